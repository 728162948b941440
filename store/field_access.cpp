// store/field_access.cpp - field access by name: the cursor move, the field cache and the spool reads.
#include "store/field_access.hpp"

#include <algorithm>
#include <cstring>
#include <span>

#include "store/block_spool.hpp"
#include "store/document_tables.hpp"

namespace navo::store {

namespace {

// The tests both calls share, in this order: form, document, block, record.
bool find_record(dk_Context *ctx, const char *form, std::int32_t docIndex, const char *block,
                 std::int32_t recordIndex, Target &target) noexcept
{
    if (!find_form(ctx, form, target) || !find_document(target, docIndex) || !find_block(*ctx, block, target))
        return false;
    // A negative index is no record: refused like one past the end.
    return recordIndex >= 0 && recordIndex < target.store->recordCount;
}

}  // namespace

bool move_cursor(dk_Document &document, dk_lfBlock &store, const dk_dfBlock &block, std::int32_t recordIndex) noexcept
{
    if (store.dirty && !save(&document, &store, &block))
        return false;
    if (store.file == nullptr && !open_store(document, store))
        return false;
    store.currentRecord = recordIndex;
    for (dk_lfField &slot : std::span{store.fields, count_of(field_count(store))}) {
        slot.loaded = 0;
        slot.dirty = 0;
    }
    forget_record(store);
    return true;
}

}  // namespace navo::store

extern "C" {

NAVO_API int32_t NAVO_CALL dk_SetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, const char *value) noexcept
{
    using namespace navo::store;
    Target target;
    int32_t position = 0;
    if (value == nullptr)
        return 0;
    if (ctx == nullptr || !guess_field_place(*ctx, form, docIndex, block, recordIndex, field, target, position)) {
        if (!find_record(ctx, form, docIndex, block, recordIndex, target))
            return 0;
        // The cursor moves before the field is looked up, as it always has.
        if (target.repeating && recordIndex != target.store->currentRecord &&
            !move_cursor(*target.document, *target.store, *target.block, recordIndex))
            return 0;
        const std::optional<int32_t> found = find_field(*ctx, field, target);
        if (!found)
            return 0;
        position = *found;
    } else if (target.repeating && recordIndex != target.store->currentRecord &&
               !move_cursor(*target.document, *target.store, *target.block, recordIndex)) {
        return 0;
    }
    dk_lfBlock &store = *target.store;
    dk_lfField &slot = store.fields[position];
    const int32_t width = target.block->fields[position].width;
    int32_t i = 0;
    while (i < width && value[i] != '\0')
        i++;
    std::memcpy(slot.text, value, static_cast<std::size_t>(i));
    std::fill(slot.text + i, slot.text + std::max(i, width), blank);
    store.dirty = 1;
    slot.loaded = 1;
    slot.dirty = 1;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, char *out, int32_t size) noexcept
{
    using namespace navo::store;
    if (out == nullptr || size < 1)
        return 0;
    out[0] = '\0';
    Target target;
    int32_t position = 0;
    if (ctx == nullptr || !guess_field_place(*ctx, form, docIndex, block, recordIndex, field, target, position)) {
        if (!find_record(ctx, form, docIndex, block, recordIndex, target))
            return 0;
        const std::optional<int32_t> found = find_field(*ctx, field, target);
        if (!found)
            return 0;
        position = *found;
    }
    dk_lfBlock &store = *target.store;
    dk_lfField &slot = store.fields[position];
    const dk_dfField &definition = target.block->fields[position];
    std::size_t taken = 0;
    bool takenWhole = false;
    if (target.repeating && recordIndex != store.currentRecord) {
        if (!move_cursor(*target.document, store, *target.block, recordIndex) ||
            !read_field(store, *target.block, position))
            return 0;
    } else if (!slot.loaded) {
        takenWhole = take_whole_field(store, *target.block, slot, definition, &taken);
        if (!takenWhole) {
            if (store.file == nullptr && !open_store(*target.document, store))
                return 0;
            if (!read_field(store, *target.block, position))
                return 0;
        }
    }
    out[size - 1] = '\0';
    // The text up to its NUL, at most size - 1 bytes: a slot holds width + 1 bytes, its NUL among them.
    const auto room = static_cast<std::size_t>(size - 1);
    std::size_t length = 0;
    if (takenWhole) {
        // The text just taken has its NUL at `taken` and none before, and taken <= width.
        length = std::min(taken + 1, room);
    } else {
        const auto slotBytes = static_cast<std::size_t>(definition.width) + 1;
        const auto *nul = static_cast<const char *>(std::memchr(slot.text, '\0', std::min(room, slotBytes)));
        length = nul != nullptr ? static_cast<std::size_t>(nul - slot.text) + 1 : std::min(room, slotBytes);
    }
    std::memcpy(out, slot.text, length);
    return 1;
}

}  // extern "C"
