/* dk_records.c - repeating blocks of Part 3.4: dk_AddBlock, dk_RemoveBlock, dk_GetBlockCount. */
#include "store/repeating_records.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "store/document_tables.hpp"
#include "store/block_spool.hpp"

#define DK_LF_BLANK ' '

/* Step 2 of dk_AddBlock, shared by all three calls: form, document, block tag, repeating. */
static int dk_FindRepeatingStore(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                 dk_StoreTarget *target)
{
    return dk_StoreFindForm(ctx, form, target) && dk_StoreFindDocument(target, docIndex) &&
           dk_StoreFindBlock(ctx, block, target) && target->repeating;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_AddBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t *out) noexcept
{
    dk_StoreTarget target;
    dk_lfBlock *store;
    int32_t fieldCount;
    int32_t i;
    int32_t saved;
    int32_t flushed;
    if (out == NULL)
        return 0;
    *out = -1;
    if (!dk_FindRepeatingStore(ctx, form, docIndex, block, &target))
        return 0;
    store = target.store;
    if (store->recordCount == INT32_MAX)
        return 0;
    /* Departure: both saves of this call go to the file in one write, by a flush at the end. */
    if (store->dirty && !dk_lfBlockWrite(target.document, store, target.block)) {
        dk_lfBlockFlush(store);
        return 0;
    }
    store->currentRecord = store->recordCount;
    store->recordCount++;
    dk_lfBlockForget(store);
    fieldCount = dk_lfBlockFieldCount(store);
    for (i = 0; i < fieldCount; i++) {
        dk_lfField *slot = &store->fields[i];
        memset(slot->text, DK_LF_BLANK, (size_t)target.block->fields[i].width);
        slot->dirty = 1;
    }
    store->dirty = 1;
    saved = dk_lfBlockWrite(target.document, store, target.block);
    flushed = dk_lfBlockFlush(store);
    if (!saved || !flushed) {
        store->recordCount--;
        return 0;
    }
    *out = store->currentRecord;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                          int32_t recordIndex) noexcept
{
    dk_StoreTarget target;
    dk_lfBlock *store;
    char *buffer;
    int32_t fieldCount;
    int32_t i;
    int32_t moved = 1;
    if (!dk_FindRepeatingStore(ctx, form, docIndex, block, &target))
        return 0;
    store = target.store;
    if (store->recordCount == 1)
        return 0;
    /* A negative index is no record; refused before anything changes. */
    if (recordIndex < 0)
        return 0;
    if (store->dirty && !dk_lfBlockSave(target.document, store, target.block))
        return 0;
    if (store->currentRecord == recordIndex) {
        store->currentRecord = 0;
        fieldCount = dk_lfBlockFieldCount(store);
        for (i = 0; i < fieldCount; i++) {
            store->fields[i].loaded = 0;
            store->fields[i].dirty = 0;
        }
    } else if (store->currentRecord > recordIndex) {
        store->currentRecord--;
    }
    dk_lfBlockForget(store);
    buffer = navo::memory::make_zeroed<char>(static_cast<size_t>(target.block->recordLength) + 1);
    if (buffer == NULL)
        return 0;
    if (recordIndex >= store->recordCount) {
        navo::memory::release(buffer);
        return 1;
    }
    if (recordIndex < store->recordCount - 1) {
        if (store->file == NULL && !dk_lfBlockOpen(target.document, store)) {
            navo::memory::release(buffer);
            return 0;
        }
        for (i = recordIndex; i <= store->recordCount - 2 && moved; i++)
            moved = dk_lfBlockShiftRecord(store, i, buffer);
        /* The records moved so far reach the file even when a later one fails. */
        if (!dk_lfBlockFlush(store))
            moved = 0;
    }
    navo::memory::release(buffer);
    if (!moved)
        return 0;
    store->recordCount--;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetBlockCount(dk_Context *ctx, const char *form, int32_t docIndex,
                                            const char *block, int32_t *out) noexcept
{
    dk_StoreTarget target;
    if (out == NULL)
        return 0;
    *out = -1;
    if (!dk_FindRepeatingStore(ctx, form, docIndex, block, &target))
        return 0;
    *out = target.store->recordCount;
    return 1;
}

}  // extern "C"
