// store/packed_records.cpp - packed records: whole documents and records as one flat buffer.
#include "store/packed_records.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "core/allocator.hpp"
#include "definitions/definition_loader.hpp"
#include "store/block_spool.hpp"
#include "store/document_tables.hpp"

namespace navo::store {

namespace {

using memory::Owned;

constexpr std::int64_t largest_size = std::numeric_limits<std::int32_t>::max();

// A form that has documents; a known name that is no form's (a tag, a field) is refused.
bool find_packed_form(dk_Context *ctx, const char *form, Target &target) noexcept
{
    return find_form(ctx, form, target) && target.form != nullptr && target.list->count > 0 &&
           ctx->dictionary != nullptr;
}

// Negative indices are refused too, like an index past the end (docs/decisions.md).
bool find_packed_document(Target &target, std::int32_t docIndex) noexcept
{
    return find_document(target, docIndex) && target.document->blockCount >= target.form->refCount;
}

// The store of a repeating block; an unknown tag and a single block's tag are refused.
bool find_packed_repeating(dk_Context &ctx, const char *block, Target &target) noexcept
{
    return find_block(ctx, block, target) && target.repeating;
}

// Record `recordIndex` of a repeating block, for the two record calls. dk_GetField tests the record
// index too, but a block without fields would never call it.
bool find_packed_record(dk_Context *ctx, const char *form, std::int32_t docIndex, const char *block,
                        std::int32_t recordIndex, Target &target) noexcept
{
    return find_packed_form(ctx, form, target) && find_packed_document(target, docIndex) &&
           find_packed_repeating(*ctx, block, target) && recordIndex >= 0 &&
           recordIndex < target.store->recordCount;
}

// A call works on its own copies of the names it takes from the dictionary, released before it
// returns, so a failed copy is one of the ways a call runs out of memory.
Owned<char> copy_name(const dk_Context &ctx, std::int32_t id) noexcept
{
    if (id < 0 || id >= ctx.dictionary->count || ctx.dictionary->strings[id] == nullptr)
        return Owned<char>();
    return Owned<char>(memory::duplicate(ctx.dictionary->strings[id]));
}

// Copies a field text into its zeroed slot, up to its NUL but never more than the width.
void fill_slot(char *slot, const char *text, std::int32_t width) noexcept
{
    if (text == nullptr)
        return;
    const auto *end = static_cast<const char *>(std::memchr(text, '\0', count_of(width)));
    std::copy(text, end != nullptr ? end : text + count_of(width), slot);
}

// The host's buffer has exactly `size` bytes, zeros behind the data; data larger than `size` is
// answered with success and nothing handed out.
std::int32_t hand_out(const char *work, std::int64_t length, std::int32_t size, char **out) noexcept
{
    if (length > size)
        return 1;
    char *result = memory::make_zeroed<char>(static_cast<std::size_t>(size));
    if (result == nullptr)
        return 0;
    if (length > 0)
        std::memcpy(result, work, static_cast<std::size_t>(length));
    *out = result;
    return 1;
}

// The packed copy of a document as it grows block by block: released whichever way the call ends.
class GrowingBuffer {
public:
    GrowingBuffer() = default;
    GrowingBuffer(const GrowingBuffer &) = delete;
    GrowingBuffer &operator=(const GrowingBuffer &) = delete;
    ~GrowingBuffer() { memory::release(data_); }

    // `size` bytes in all, the old ones kept; false leaves the buffer as it was.
    bool grow(std::size_t size) noexcept
    {
        void *grown = memory::resize(data_, size);
        if (grown == nullptr)
            return false;
        data_ = static_cast<char *>(grown);
        return true;
    }
    char *data() const noexcept { return data_; }

private:
    char *data_ = nullptr;
};

}  // namespace

}  // namespace navo::store

extern "C" {

NAVO_API int32_t NAVO_CALL dk_GetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex, char **out,
                                              int32_t size) noexcept
{
    using namespace navo::store;
    if (out == nullptr)
        return 0;
    *out = nullptr;
    Target target;
    if (!find_packed_form(ctx, form, target) || !find_packed_document(target, docIndex))
        return 0;
    GrowingBuffer work;
    int64_t length = 0;
    for (int32_t r = 0; r < target.form->refCount; r++) {
        const dk_dfBlockRef &ref = target.form->refs[r];
        const dk_dfBlock &block = target.definition->blocks[ref.blockIndex];
        const int64_t blockLength = packed_length(block);
        if (ref.occurrence == navo::definitions::repeating || blockLength == 0)
            continue;
        const dk_lfBlock *store = target.document->blocks[r];
        if (store == nullptr)
            return 0;
        // Past 2^31 - 1 no int32 size can hold the data: answered like any size too small.
        if (length + blockLength > largest_size)
            return 1;
        if (!work.grow(static_cast<std::size_t>(length + blockLength)))
            return 0;
        char *slot = work.data() + length;
        std::memset(slot, 0, static_cast<std::size_t>(blockLength));
        for (int32_t f = 0; f < block.fieldCount; f++) {
            // A single block holds every field in its cache, so no spool is read.
            if (store->fields != nullptr)
                fill_slot(slot, store->fields[f].text, block.fields[f].width);
            slot += int64_t{block.fields[f].width} + 1;
        }
        length += blockLength;
    }
    return hand_out(work.data(), length, size, out);
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, char **out, int32_t size) noexcept
{
    using namespace navo::store;
    using navo::memory::Owned;
    if (out == nullptr)
        return 0;
    *out = nullptr;
    Target target;
    if (!find_packed_record(ctx, form, docIndex, block, recordIndex, target))
        return 0;
    const int64_t length = packed_length(*target.block);
    if (length > largest_size)
        return 1;
    Owned<char> work(navo::memory::make_zeroed<char>(static_cast<std::size_t>(length)));
    if (!work)
        return 0;
    char *slot = work.get();
    for (const dk_dfField &field : std::span{target.block->fields, count_of(target.block->fieldCount)}) {
        const Owned<char> name = copy_name(*ctx, field.nameId);
        const Owned<char> buffer(name ? static_cast<char *>(navo::memory::allocate(count_of(field.width) + 1))
                                      : nullptr);
        if (!buffer || !dk_GetField(ctx, form, docIndex, block, recordIndex, name.get(), buffer.get(), field.width + 1))
            return 0;
        fill_slot(slot, buffer.get(), field.width);
        slot += int64_t{field.width} + 1;
    }
    return hand_out(work.get(), length, size, out);
}

NAVO_API int32_t NAVO_CALL dk_SetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex,
                                              const char *value, int32_t size) noexcept
{
    using namespace navo::store;
    using navo::memory::Owned;
    // A null value is outside the contract; refusing it costs nothing.
    if (value == nullptr)
        return 0;
    Target target;
    if (!find_packed_form(ctx, form, target) || !find_packed_document(target, docIndex))
        return 0;
    const std::span refs{target.form->refs, count_of(target.form->refCount)};
    int64_t length = 0;
    for (const dk_dfBlockRef &ref : refs) {
        if (ref.occurrence != navo::definitions::repeating)
            length += packed_length(target.definition->blocks[ref.blockIndex]);
    }
    if (length > size)
        return 0;
    const char *slot = value;
    for (const dk_dfBlockRef &ref : refs) {
        const dk_dfBlock &block = target.definition->blocks[ref.blockIndex];
        if (ref.occurrence == navo::definitions::repeating || block.fieldCount == 0)
            continue;
        const Owned<char> tag = copy_name(*ctx, block.tagId);
        if (!tag)
            return 0;
        for (const dk_dfField &field : std::span{block.fields, count_of(block.fieldCount)}) {
            const Owned<char> name = copy_name(*ctx, field.nameId);
            // dk_SetField reads at most the width, so a slot without its NUL stays inside value.
            if (!name || !dk_SetField(ctx, form, docIndex, tag.get(), 0, name.get(), slot))
                return 0;
            slot += int64_t{field.width} + 1;
        }
    }
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_SetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, const char *value, int32_t size) noexcept
{
    using namespace navo::store;
    using navo::memory::Owned;
    if (value == nullptr)
        return 0;
    Target target;
    if (!find_packed_record(ctx, form, docIndex, block, recordIndex, target))
        return 0;
    if (packed_length(*target.block) > size)
        return 0;
    const char *slot = value;
    for (const dk_dfField &field : std::span{target.block->fields, count_of(target.block->fieldCount)}) {
        const Owned<char> name = copy_name(*ctx, field.nameId);
        const Owned<char> buffer(name ? navo::memory::make_zeroed<char>(count_of(field.width) + 1) : nullptr);
        if (!buffer)
            return 0;
        // Up to the NUL, bounded by the slot: a slot without one is cut at its width.
        fill_slot(buffer.get(), slot, field.width);
        if (!dk_SetField(ctx, form, docIndex, block, recordIndex, name.get(), buffer.get()))
            return 0;
        slot += int64_t{field.width} + 1;
    }
    return 1;
}

}  // extern "C"
