/* dk_packed.c - packed records of Part 3.5: whole documents and records as one flat buffer. */
#include "store/packed_records.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "definitions/definition_loader.hpp"
#include "store/document_tables.hpp"

/* A form that has documents; a known name that is no form's (a tag, a field) is refused. */
static int dk_pkFindForm(dk_Context *ctx, const char *form, dk_StoreTarget *target)
{
    return dk_StoreFindForm(ctx, form, target) && target->form != NULL && target->list->count > 0 &&
           ctx->dictionary != NULL;
}

/* Negative indices are refused too: the spec bounds them from above only (docs/decisions.md). */
static int dk_pkFindDocument(dk_StoreTarget *target, int32_t docIndex)
{
    return dk_StoreFindDocument(target, docIndex) && target->document->blockCount >= target->form->refCount;
}

/* The store of a repeating block; an unknown tag and a single block's tag are refused. */
static int dk_pkFindRepeating(dk_Context *ctx, const char *block, dk_StoreTarget *target)
{
    return dk_StoreFindBlock(ctx, block, target) && target->repeating;
}

/* Part 3.5: a call works on its own copies of the names it takes from the dictionary, released
   before it returns, so a failed copy is one of the ways a call runs out of memory. */
static char *dk_pkName(const dk_Context *ctx, int32_t id)
{
    if (id < 0 || id >= ctx->dictionary->count || ctx->dictionary->strings[id] == NULL)
        return NULL;
    return navo::memory::duplicate(ctx->dictionary->strings[id]);
}

/* Copies a field text into its zeroed slot, up to its NUL but never more than the width. */
static void dk_pkFillSlot(char *slot, const char *text, int32_t width)
{
    size_t length = 0;
    if (text == NULL)
        return;
    while (length < (size_t)width && text[length] != '\0')
        length++;
    memcpy(slot, text, length);
}

/* Step 5 of the get calls: the host's buffer has exactly `size` bytes, zeros behind the data. */
static int32_t dk_pkHandOut(char *work, int64_t length, int32_t size, char **out)
{
    char *result;
    if (length > (int64_t)size) {
        navo::memory::release(work);
        return 1;
    }
    result = navo::memory::make_zeroed<char>(static_cast<size_t>(size));
    if (result == NULL) {
        navo::memory::release(work);
        return 0;
    }
    if (length > 0)
        memcpy(result, work, (size_t)length);
    navo::memory::release(work);
    *out = result;
    return 1;
}

int64_t dk_pkBlockLength(const dk_dfBlock *block)
{
    return (int64_t)block->recordLength + (int64_t)block->fieldCount;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_GetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex, char **out,
                                              int32_t size) noexcept
{
    dk_StoreTarget target;
    char *work = NULL;
    int64_t length = 0;
    int32_t r;
    if (out == NULL)
        return 0;
    *out = NULL;
    if (!dk_pkFindForm(ctx, form, &target) || !dk_pkFindDocument(&target, docIndex))
        return 0;
    for (r = 0; r < target.form->refCount; r++) {
        const dk_dfBlockRef *ref = &target.form->refs[r];
        const dk_dfBlock *block = &target.definition->blocks[ref->blockIndex];
        const dk_lfBlock *store;
        int64_t blockLength = dk_pkBlockLength(block);
        int64_t slot = length;
        char *grown;
        int32_t f;
        if (ref->occurrence == navo::definitions::repeating || blockLength == 0)
            continue;
        if (target.document->blocks[r] == NULL) {
            navo::memory::release(work);
            return 0;
        }
        /* Past 2^31 - 1 no int32 size can hold the data: answered like any size too small. */
        if (length + blockLength > INT32_MAX) {
            navo::memory::release(work);
            return 1;
        }
        grown = static_cast<char *>(navo::memory::resize(work, static_cast<size_t>(length + blockLength)));
        if (grown == NULL) {
            navo::memory::release(work);
            return 0;
        }
        work = grown;
        memset(work + length, 0, (size_t)blockLength);
        store = target.document->blocks[r];
        for (f = 0; f < block->fieldCount; f++) {
            /* A single block holds every field in its cache (Part 3.2), so no spool is read. */
            if (store->fields != NULL)
                dk_pkFillSlot(work + slot, store->fields[f].text, block->fields[f].width);
            slot += (int64_t)block->fields[f].width + 1;
        }
        length += blockLength;
    }
    return dk_pkHandOut(work, length, size, out);
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, char **out, int32_t size) noexcept
{
    dk_StoreTarget target;
    char *work;
    int64_t length;
    int64_t slot = 0;
    int32_t f;
    if (out == NULL)
        return 0;
    *out = NULL;
    if (!dk_pkFindForm(ctx, form, &target) || !dk_pkFindDocument(&target, docIndex) ||
        !dk_pkFindRepeating(ctx, block, &target))
        return 0;
    /* dk_GetField tests the record index too, but a block without fields would never call it. */
    if (recordIndex < 0 || recordIndex >= target.store->recordCount)
        return 0;
    length = dk_pkBlockLength(target.block);
    if (length > INT32_MAX)
        return 1;
    work = navo::memory::make_zeroed<char>(static_cast<size_t>(length));
    if (work == NULL)
        return 0;
    for (f = 0; f < target.block->fieldCount; f++) {
        int32_t width = target.block->fields[f].width;
        char *name = dk_pkName(ctx, target.block->fields[f].nameId);
        char *buffer = name == NULL ? NULL : static_cast<char *>(navo::memory::allocate(static_cast<size_t>(width) + 1));
        int32_t got = buffer != NULL &&
                      dk_GetField(ctx, form, docIndex, block, recordIndex, name, buffer, width + 1);
        if (got)
            dk_pkFillSlot(work + slot, buffer, width);
        navo::memory::release(buffer);
        navo::memory::release(name);
        if (!got) {
            navo::memory::release(work);
            return 0;
        }
        slot += (int64_t)width + 1;
    }
    return dk_pkHandOut(work, length, size, out);
}

NAVO_API int32_t NAVO_CALL dk_SetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex,
                                              const char *value, int32_t size) noexcept
{
    dk_StoreTarget target;
    int64_t length = 0;
    int64_t slot = 0;
    int32_t r;
    /* The spec leaves a null value outside the contract; refusing it costs nothing. */
    if (value == NULL)
        return 0;
    if (!dk_pkFindForm(ctx, form, &target) || !dk_pkFindDocument(&target, docIndex))
        return 0;
    for (r = 0; r < target.form->refCount; r++) {
        if (target.form->refs[r].occurrence != navo::definitions::repeating)
            length += dk_pkBlockLength(&target.definition->blocks[target.form->refs[r].blockIndex]);
    }
    if (length > (int64_t)size)
        return 0;
    for (r = 0; r < target.form->refCount; r++) {
        const dk_dfBlock *block = &target.definition->blocks[target.form->refs[r].blockIndex];
        char *tag;
        int32_t f;
        if (target.form->refs[r].occurrence == navo::definitions::repeating || block->fieldCount == 0)
            continue;
        tag = dk_pkName(ctx, block->tagId);
        if (tag == NULL)
            return 0;
        for (f = 0; f < block->fieldCount; f++) {
            char *name = dk_pkName(ctx, block->fields[f].nameId);
            /* dk_SetField reads at most the width, so a slot without its NUL stays inside value. */
            int32_t set = name != NULL && dk_SetField(ctx, form, docIndex, tag, 0, name, value + slot);
            navo::memory::release(name);
            if (!set) {
                navo::memory::release(tag);
                return 0;
            }
            slot += (int64_t)block->fields[f].width + 1;
        }
        navo::memory::release(tag);
    }
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_SetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, const char *value, int32_t size) noexcept
{
    dk_StoreTarget target;
    int64_t slot = 0;
    int32_t f;
    if (value == NULL)
        return 0;
    if (!dk_pkFindForm(ctx, form, &target) || !dk_pkFindDocument(&target, docIndex) ||
        !dk_pkFindRepeating(ctx, block, &target))
        return 0;
    if (recordIndex < 0 || recordIndex >= target.store->recordCount)
        return 0;
    if (dk_pkBlockLength(target.block) > (int64_t)size)
        return 0;
    for (f = 0; f < target.block->fieldCount; f++) {
        int32_t width = target.block->fields[f].width;
        char *name = dk_pkName(ctx, target.block->fields[f].nameId);
        char *buffer = name == NULL ? NULL : navo::memory::make_zeroed<char>(static_cast<size_t>(width) + 1);
        int32_t set = 0;
        if (buffer != NULL) {
            /* Up to the NUL, bounded by the slot: a slot without one is cut at its width. */
            dk_pkFillSlot(buffer, value + slot, width);
            set = dk_SetField(ctx, form, docIndex, block, recordIndex, name, buffer);
        }
        navo::memory::release(buffer);
        navo::memory::release(name);
        if (!set)
            return 0;
        slot += (int64_t)width + 1;
    }
    return 1;
}

}  // extern "C"
