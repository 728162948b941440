// store/repeating_records.cpp - records of repeating blocks: dk_AddBlock, dk_RemoveBlock, dk_GetBlockCount.
#include "store/repeating_records.hpp"

#include <cstring>
#include <limits>
#include <span>

#include "core/allocator.hpp"
#include "store/block_spool.hpp"
#include "store/document_tables.hpp"

namespace navo::store {

namespace {

// The lookup all three calls share: form, document, block tag, and the block must repeat.
bool find_repeating_store(dk_Context *ctx, const char *form, std::int32_t docIndex, const char *block,
                          Target &target) noexcept
{
    return find_form(ctx, form, target) && find_document(target, docIndex) && find_block(*ctx, block, target) &&
           target.repeating;
}

}  // namespace

}  // namespace navo::store

extern "C" {

NAVO_API int32_t NAVO_CALL dk_AddBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t *out) noexcept
{
    using namespace navo::store;
    if (out == nullptr)
        return 0;
    *out = -1;
    Target target;
    if (!find_repeating_store(ctx, form, docIndex, block, target))
        return 0;
    dk_lfBlock &store = *target.store;
    if (store.recordCount == std::numeric_limits<int32_t>::max())
        return 0;
    // The record under the cursor reaches the file before the cursor leaves it: a flush the file
    // refuses (a full disk) then fails the call with the record still cached and marked.
    if (store.dirty && !save(target.document, &store, target.block))
        return 0;
    store.currentRecord = store.recordCount;
    store.recordCount++;
    forget_record(store);
    for (int32_t i = 0; i < field_count(store); i++) {
        dk_lfField &slot = store.fields[i];
        std::memset(slot.text, blank, static_cast<std::size_t>(target.block->fields[i].width));
        slot.dirty = 1;
    }
    store.dirty = 1;
    const bool saved = write(target.document, &store, target.block);
    const bool flushed = flush(&store);
    if (!saved || !flushed) {
        store.recordCount--;
        return 0;
    }
    *out = store.currentRecord;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                          int32_t recordIndex) noexcept
{
    using namespace navo::store;
    Target target;
    if (!find_repeating_store(ctx, form, docIndex, block, target))
        return 0;
    dk_lfBlock &store = *target.store;
    if (store.recordCount == 1)
        return 0;
    // A negative index is no record; refused before anything changes.
    if (recordIndex < 0)
        return 0;
    if (store.dirty && !save(target.document, &store, target.block))
        return 0;
    if (store.currentRecord == recordIndex) {
        store.currentRecord = 0;
        for (dk_lfField &slot : std::span{store.fields, count_of(field_count(store))}) {
            slot.loaded = 0;
            slot.dirty = 0;
        }
    } else if (store.currentRecord > recordIndex) {
        store.currentRecord--;
    }
    forget_record(store);
    const auto length = static_cast<std::size_t>(target.block->recordLength) + 1;
    const navo::memory::Owned<char> buffer(navo::memory::make_zeroed<char>(length));
    if (!buffer)
        return 0;
    if (recordIndex >= store.recordCount)
        return 1;
    bool moved = true;
    if (recordIndex < store.recordCount - 1) {
        if (store.file == nullptr && !open_store(*target.document, store))
            return 0;
        for (int32_t i = recordIndex; i <= store.recordCount - 2 && moved; i++)
            moved = shift_record(store, i, std::span{buffer.get(), length});
        // The records moved so far reach the file even when a later one fails.
        if (!flush(&store))
            moved = false;
    }
    if (!moved)
        return 0;
    store.recordCount--;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetBlockCount(dk_Context *ctx, const char *form, int32_t docIndex,
                                            const char *block, int32_t *out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = -1;
    navo::store::Target target;
    if (!navo::store::find_repeating_store(ctx, form, docIndex, block, target))
        return 0;
    *out = target.store->recordCount;
    return 1;
}

}  // extern "C"
