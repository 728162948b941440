/* dk_fields.c - field access of Part 3.3: fields by name, the cursor move and the spool reads. */
#include "store/field_access.hpp"

#include "store/document_tables.hpp"
#include "store/block_spool.hpp"

#define DK_LF_BLANK ' '

int32_t dk_lfMoveCursor(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block, int32_t recordIndex)
{
    int32_t i;
    int32_t fieldCount;
    if (store->dirty && !dk_lfBlockSave(document, store, block))
        return 0;
    if (store->file == NULL && !dk_lfBlockOpen(document, store))
        return 0;
    store->currentRecord = recordIndex;
    fieldCount = dk_lfBlockFieldCount(store);
    for (i = 0; i < fieldCount; i++) {
        store->fields[i].loaded = 0;
        store->fields[i].dirty = 0;
    }
    dk_lfBlockForget(store);
    return 1;
}

/* The tests both calls share, in the Part's order: form, document, block, record. */
static int dk_FindRecord(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                         int32_t recordIndex, dk_StoreTarget *target)
{
    if (!dk_StoreFindForm(ctx, form, target) || !dk_StoreFindDocument(target, docIndex) ||
        !dk_StoreFindBlock(ctx, block, target))
        return 0;
    /* A negative index is no record: refused like one past the end. */
    return recordIndex >= 0 && recordIndex < target->store->recordCount;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_SetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, const char *value) noexcept
{
    dk_StoreTarget target;
    dk_lfBlock *store;
    dk_lfField *slot;
    int32_t position;
    int32_t width;
    int32_t i;
    if (value == NULL || !dk_FindRecord(ctx, form, docIndex, block, recordIndex, &target))
        return 0;
    store = target.store;
    if (target.repeating && recordIndex != store->currentRecord &&
        !dk_lfMoveCursor(target.document, store, target.block, recordIndex))
        return 0;
    position = dk_StoreFindField(ctx, field, &target);
    if (position < 0)
        return 0;
    slot = &store->fields[position];
    width = target.block->fields[position].width;
    for (i = 0; i < width && value[i] != '\0'; i++)
        slot->text[i] = value[i];
    for (; i < width; i++)
        slot->text[i] = DK_LF_BLANK;
    store->dirty = 1;
    slot->loaded = 1;
    slot->dirty = 1;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, char *out, int32_t size) noexcept
{
    dk_StoreTarget target;
    dk_lfBlock *store;
    dk_lfField *slot;
    int32_t position;
    int32_t i;
    if (out == NULL || size < 1)
        return 0;
    out[0] = '\0';
    if (!dk_FindRecord(ctx, form, docIndex, block, recordIndex, &target))
        return 0;
    store = target.store;
    position = dk_StoreFindField(ctx, field, &target);
    if (position < 0)
        return 0;
    slot = &store->fields[position];
    if (target.repeating && recordIndex != store->currentRecord) {
        if (!dk_lfMoveCursor(target.document, store, target.block, recordIndex) ||
            !dk_lfBlockReadField(store, target.block, position))
            return 0;
    } else if (!slot->loaded) {
        if (store->file == NULL && !dk_lfBlockOpen(target.document, store))
            return 0;
        if (!dk_lfBlockReadField(store, target.block, position))
            return 0;
    }
    out[size - 1] = '\0';
    for (i = 0; i < size - 1; i++) {
        out[i] = slot->text[i];
        if (slot->text[i] == '\0')
            break;
    }
    return 1;
}

}  // extern "C"
