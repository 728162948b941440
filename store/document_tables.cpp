/* dk_documents.c - document tables of Part 3.1: per-form document lists and their file pool. */
#include "store/document_tables.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "definitions/definition_loader.hpp"
#include "store/block_spool.hpp"

int32_t dk_StoreFindForm(dk_Context *ctx, const char *form, dk_StoreTarget *target)
{
    int32_t id;
    memset(target, 0, sizeof *target);
    if (ctx == NULL || form == NULL || ctx->documentLists == NULL)
        return 0;
    id = dk_1fGetIDFormularza(ctx, form);
    /* Block tags and field names live in the same dictionary; their IDs lie past the forms. */
    if (id < 0 || id >= ctx->formCount)
        return 0;
    target->definition = dk_dfStoreDefinition(ctx);
    if (target->definition != NULL && id < target->definition->formCount)
        target->form = &target->definition->forms[id];
    target->list = &ctx->documentLists[id];
    return 1;
}

int32_t dk_StoreFindDocument(dk_StoreTarget *target, int32_t docIndex)
{
    if (target->list == NULL || docIndex < 0 || docIndex >= target->list->count)
        return 0;
    target->document = &target->list->documents[docIndex];
    return 1;
}

/* Departure (speed only): a guessed dictionary ID is taken without the lookup when the string of
   that ID is byte for byte `text`. Then dk_sdGetID would give exactly that ID: equal bytes hash to
   the same bucket, the ID stands in the bucket of its string, and no other string of a bucket
   compares equal under dk_sdStrCmp. The check reads the dictionary as it is now, so no cache can
   go stale; anything else (another case, a freed slot, a changed dictionary) takes the lookup. */
static int dk_StoreGuessId(const dk_sdDictionary *dictionary, int32_t id, const char *text, int32_t *out)
{
    if (dictionary == NULL || dictionary->buckets == NULL || dictionary->bucketCount == 0 || id < 0 ||
        id >= dictionary->count || dictionary->strings[id] == NULL || strcmp(dictionary->strings[id], text) != 0)
        return 0;
    *out = id;
    return 1;
}

/* The tag ID of the block last found in this document, guessed from the hint on its first store. */
static int dk_StoreGuessTag(const dk_sdDictionary *dictionary, const char *block, const dk_StoreTarget *target,
                            int32_t *out)
{
    const dk_dfBlockRef *ref;
    int32_t hint;
    if (target->document->blockCount < 1 || target->document->blocks[0] == NULL)
        return 0;
    hint = dk_lfSpoolOf(target->document->blocks[0])->blockHint;
    if (hint < 0 || hint >= target->form->refCount)
        return 0;
    ref = &target->form->refs[hint];
    if (ref->blockIndex < 0 || ref->blockIndex >= target->definition->blockCount)
        return 0;
    return dk_StoreGuessId(dictionary, target->definition->blocks[ref->blockIndex].tagId, block, out);
}

int32_t dk_StoreFindBlock(dk_Context *ctx, const char *block, dk_StoreTarget *target)
{
    const dk_dfBlockRef *ref;
    int32_t tagId;
    int32_t position;
    if (block == NULL || target->form == NULL || target->document == NULL ||
        (!dk_StoreGuessTag(ctx->dictionary, block, target, &tagId) && !dk_sdGetID(ctx->dictionary, block, &tagId)))
        return 0;
    position = dk_dfRefPosition(target->definition, target->form, tagId);
    if (position < 0 || position >= target->document->blockCount)
        return 0;
    if (target->document->blocks[0] != NULL)
        dk_lfSpoolOf(target->document->blocks[0])->blockHint = position;
    ref = &target->form->refs[position];
    target->store = target->document->blocks[position];
    target->block = &target->definition->blocks[ref->blockIndex];
    target->repeating = ref->occurrence == DK_DF_REPEATING;
    target->position = position;
    return target->store != NULL;
}

int32_t dk_StoreFindField(dk_Context *ctx, const char *field, const dk_StoreTarget *target)
{
    int32_t nameId;
    int32_t position;
    int32_t hint;
    int guessed = 0;
    if (field == NULL || target->block == NULL)
        return -1;
    /* The guesses: the field after the one last found in this store (fields are mostly read in
       order), then that one again. */
    hint = dk_lfSpoolOf(target->store)->fieldHint;
    if (hint >= 0 && hint < target->block->fieldCount) {
        int32_t next = hint + 1 < target->block->fieldCount ? hint + 1 : 0;
        guessed = dk_StoreGuessId(ctx->dictionary, target->block->fields[next].nameId, field, &nameId) ||
                  dk_StoreGuessId(ctx->dictionary, target->block->fields[hint].nameId, field, &nameId);
    }
    if (!guessed && !dk_sdGetID(ctx->dictionary, field, &nameId))
        return -1;
    position = dk_dfFieldPosition(target->block, nameId);
    if (position < 0 || position >= dk_lfBlockFieldCount(target->store))
        return -1;
    dk_lfSpoolOf(target->store)->fieldHint = position;
    return position;
}

void navo::store::release_file_pool(dk_Context &ctx) noexcept
{
    dk_lfFilePool *pool = ctx.filePool;
    int32_t i;
    if (pool == NULL)
        return;
    for (i = 0; i < pool->count; i++) {
        dk_lfBlock *store = pool->blocks[i];
        if (store != NULL && store->file != NULL) {
            fclose(store->file);
            store->file = NULL;
        }
    }
    navo::memory::release(pool->blocks);
    navo::memory::release(pool);
    ctx.filePool = NULL;
}

static int dk_TablesHoldDocuments(const dk_Context *ctx)
{
    int32_t i;
    if (ctx->documentLists == NULL)
        return 0;
    for (i = 0; i < ctx->formCount; i++) {
        if (ctx->documentLists[i].count > 0)
            return 1;
    }
    return 0;
}

/* Steps 2 to 7 of dk_RemoveDocument, for a list and an index already tested. */
static void dk_RemoveDocumentAt(dk_DocumentList *list, int32_t docIndex)
{
    dk_Document *document = &list->documents[docIndex];
    int32_t i;
    for (i = 0; i < document->blockCount; i++)
        dk_lfBlockDestroy(document->filePool, document->blocks[i]);
    navo::memory::release(document->blocks);
    navo::memory::release(document->footer.errorNotes);
    navo::memory::release(document->footer.ocrNotes);
    if (list->count == 1) {
        navo::memory::release(list->documents);
        list->documents = NULL;
        list->count = 0;
        return;
    }
    memmove(document, document + 1, (size_t)(list->count - docIndex - 1) * sizeof *document);
    list->count--;
    /* A shrink that fails keeps the larger array; the count is what counts. */
    (void)navo::memory::resize_array(list->documents, static_cast<size_t>(list->count));
}

/* dk_RemoveDocuments for a list already found: removes from the front, count times. */
static void dk_RemoveDocumentsOf(dk_DocumentList *list)
{
    int32_t remaining = list->count;
    while (remaining-- > 0 && list->count > 0)
        dk_RemoveDocumentAt(list, 0);
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_InitDocuments(dk_Context *ctx, int32_t size) noexcept
{
    const dk_dfDefinition *definition = dk_dfStoreDefinition(ctx);
    dk_lfBlock **entries;
    dk_lfFilePool *pool;
    /* Eviction takes slot capacity - 1, so a pool needs at least one slot. */
    if (definition == NULL || size < 1)
        return 0;
    /* Tables without documents are released rather than lost: a load calls this once per file.
       Tables that still hold documents are left as the Part says, out of reach. */
    if (!dk_TablesHoldDocuments(ctx)) {
        navo::memory::release(ctx->documentLists);
        ctx->documentLists = NULL;
        ctx->formCount = 0;
        navo::store::release_file_pool(*ctx);
    }
    entries = navo::memory::make_zeroed<dk_lfBlock *>(static_cast<size_t>(size));
    if (entries == NULL)
        return 0;
    pool = navo::memory::make_zeroed<dk_lfFilePool>();
    if (pool == NULL) {
        navo::memory::release(entries);
        return 0;
    }
    pool->capacity = size;
    pool->count = 0;
    pool->blocks = entries;
    ctx->filePool = pool;
    ctx->documentLists = NULL;
    ctx->formCount = 0;
    if (definition->formCount > 0) {
        ctx->documentLists = navo::memory::make_zeroed<dk_DocumentList>(static_cast<size_t>(definition->formCount));
        if (ctx->documentLists == NULL)
            return 0;
    }
    ctx->formCount = definition->formCount;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_1fGetIDFormularza(dk_Context *ctx, const char *form) noexcept
{
    int32_t id = -1;
    if (ctx == NULL || form == NULL || !dk_sdGetID(ctx->dictionary, form, &id))
        return -1;
    return id;
}

NAVO_API int32_t NAVO_CALL dk_AddDocument(dk_Context *ctx, const char *form, int32_t *out) noexcept
{
    dk_StoreTarget target;
    dk_DocumentList *list;
    dk_Document *documents;
    dk_Document *document;
    int32_t index;
    int32_t i;
    if (out == NULL)
        return 0;
    *out = -1;
    if (!dk_StoreFindForm(ctx, form, &target) || target.form == NULL)
        return 0;
    list = target.list;
    if (list->count == INT32_MAX)
        return 0;
    if (!navo::memory::resize_array(list->documents, static_cast<size_t>(list->count) + 1))
        return 0;
    documents = list->documents;
    index = list->count;
    list->count++;
    document = &documents[index];
    memset(document, 0, sizeof *document);
    document->filePool = ctx->filePool;
    for (i = 0; i < target.form->refCount; i++) {
        const dk_dfBlockRef *ref = &target.form->refs[i];
        if (!dk_lfBlockCreate(document, &target.definition->blocks[ref->blockIndex],
                              ref->occurrence == DK_DF_REPEATING)) {
            dk_RemoveDocumentAt(list, index);
            return 0;
        }
    }
    *out = index;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveDocument(dk_Context *ctx, const char *form, int32_t docIndex) noexcept
{
    dk_StoreTarget target;
    if (!dk_StoreFindForm(ctx, form, &target) || !dk_StoreFindDocument(&target, docIndex))
        return 0;
    dk_RemoveDocumentAt(target.list, docIndex);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveDocuments(dk_Context *ctx, const char *form) noexcept
{
    dk_StoreTarget target;
    if (!dk_StoreFindForm(ctx, form, &target))
        return 0;
    dk_RemoveDocumentsOf(target.list);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveAllDocuments(dk_Context *ctx) noexcept
{
    int32_t i;
    if (ctx == NULL || ctx->formCount == 0 || ctx->documentLists == NULL)
        return 0;
    /* Form i is dictionary slot i (Part 2.1), so the list is reached by its index directly:
       the same list the Part reaches through the name, without a lookup that could miss. */
    for (i = 0; i < ctx->formCount; i++)
        dk_RemoveDocumentsOf(&ctx->documentLists[i]);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetDocCount(dk_Context *ctx, const char *form, int32_t *out) noexcept
{
    dk_StoreTarget target;
    if (out == NULL)
        return 0;
    *out = -1;
    if (!dk_StoreFindForm(ctx, form, &target))
        return 0;
    *out = target.list->count;
    return 1;
}

}  // extern "C"
