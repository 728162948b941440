// core/context.cpp - the library context: dk_Init and dk_Destroy.
#include "core/context.hpp"

#include "core/allocator.hpp"
#include "core/dictionary.hpp"
#include "store/document_tables.hpp"

extern "C" {

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out) noexcept
{
    if (out == nullptr)
        return 0;
    navo::layout_changed();
    // *out holds the context even when a part of it fails, with what was made so far.
    dk_Context *ctx = navo::memory::make_zeroed<dk_Context>();
    *out = ctx;
    if (ctx == nullptr)
        return 0;
    if (!dk_sdInit(&ctx->dictionary, navo::dictionary::context_buckets))
        return 0;
    return dk_dfInit(&ctx->definitions);
}

NAVO_API int32_t NAVO_CALL dk_Destroy(dk_Context **pointer) noexcept
{
    // A null pointer or a context already destroyed is refused (outside the contract).
    if (pointer == nullptr || *pointer == nullptr)
        return 0;
    dk_Context *ctx = *pointer;
    navo::layout_changed();
    if (!dk_RemoveAllDocuments(ctx))
        return 0;
    navo::memory::release(ctx->documentLists);
    ctx->documentLists = nullptr;
    ctx->formCount = 0;
    navo::memory::release(ctx->footer.notes);
    ctx->footer.notes = nullptr;
    ctx->footer.noteCount = 0;
    navo::store::release_file_pool(*ctx);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    navo::memory::release(ctx);
    *pointer = nullptr;
    return 1;
}

}  // extern "C"
