/* dk_context.c - the library context of Part 1.1: dk_Init and dk_Destroy. */
#include "core/context.hpp"

#include "core/allocator.hpp"
#include "core/dictionary.hpp"
#include "store/document_tables.hpp"

extern "C" {

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out) noexcept
{
    dk_Context *ctx;
    if (out == NULL)
        return 0;
    ctx = navo::memory::make_zeroed<dk_Context>();
    *out = ctx;
    if (ctx == NULL)
        return 0;
    if (!dk_sdInit(&ctx->dictionary, DK_SD_CONTEXT_BUCKETS))
        return 0;
    return dk_dfInit(&ctx->definitions);
}

NAVO_API int32_t NAVO_CALL dk_Destroy(dk_Context **pointer) noexcept
{
    dk_Context *ctx;
    /* A null pointer or a context already destroyed is refused (outside the contract). */
    if (pointer == NULL || *pointer == NULL)
        return 0;
    ctx = *pointer;
    if (!dk_RemoveAllDocuments(ctx))
        return 0;
    navo::memory::release(ctx->documentLists);
    ctx->documentLists = NULL;
    ctx->formCount = 0;
    navo::memory::release(ctx->footer.notes);
    ctx->footer.notes = NULL;
    ctx->footer.noteCount = 0;
    navo::store::release_file_pool(*ctx);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    navo::memory::release(ctx);
    *pointer = NULL;
    return 1;
}

}  // extern "C"
