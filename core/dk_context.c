/* dk_context.c - the library context of Part 1.1: dk_Init and dk_Destroy. */
#include "dk_context.h"

#include "dk_alloc.h"
#include "dk_dict.h"

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out)
{
    dk_Context *ctx;
    if (out == NULL)
        return 0;
    ctx = dk_mem_zalloc(sizeof *ctx);
    *out = ctx;
    if (ctx == NULL)
        return 0;
    if (!dk_sdInit(&ctx->dictionary, DK_SD_CONTEXT_BUCKETS))
        return 0;
    return dk_dfInit(&ctx->definitions);
}

void dk_ContextReleasePool(dk_Context *ctx)
{
    dk_lfFilePool *pool = ctx->filePool;
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
    dk_mem_free(pool->blocks);
    dk_mem_free(pool);
    ctx->filePool = NULL;
}

NAVO_API int32_t NAVO_CALL dk_Destroy(dk_Context **pointer)
{
    dk_Context *ctx;
    /* A null pointer or a context already destroyed is refused (outside the contract). */
    if (pointer == NULL || *pointer == NULL)
        return 0;
    ctx = *pointer;
    if (!dk_RemoveAllDocuments(ctx))
        return 0;
    dk_mem_free(ctx->documentLists);
    ctx->documentLists = NULL;
    ctx->formCount = 0;
    dk_mem_free(ctx->footer.notes);
    ctx->footer.notes = NULL;
    ctx->footer.noteCount = 0;
    dk_ContextReleasePool(ctx);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    dk_mem_free(ctx);
    *pointer = NULL;
    return 1;
}
