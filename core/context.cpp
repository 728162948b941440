// core/context.cpp - the library context: dk_Init and dk_Destroy, and the promises about the open records.
#include "core/context.hpp"

#include <type_traits>

#include "core/allocator.hpp"
#include "core/dictionary.hpp"

namespace {

// The records of navo.h are shared with C hosts, which read and write them as C structs and
// copy them with memcpy; the library keeps them in storage from navo::memory and grows their
// arrays with realloc. Both hold only while every record stays standard-layout and trivially
// copyable: a member with a constructor, a virtual function or a reference would break them.
template <class... Records>
constexpr bool all_open = ((std::is_standard_layout_v<Records> && std::is_trivially_copyable_v<Records>) && ...);

static_assert(all_open<dk_sdBucket, dk_sdDictionary, dk_dfField, dk_dfBlock, dk_dfBlockRef, dk_dfForm,
                       dk_dfDefinition, dk_dfDefinitionList, dk_FileProlog, dk_FileHeader, dk_ErrorNote,
                       dk_OcrNote, dk_FileFooter, dk_DocHeader, dk_DocFooter, dk_lfField, dk_lfBlock,
                       dk_lfFilePool, dk_Document, dk_DocumentList, dk_Context>,
              "a record of navo.h is no longer a plain C struct");

}  // namespace

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
    navo::memory::release(pool->blocks);
    navo::memory::release(pool);
    ctx->filePool = NULL;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out) noexcept
{
    if (out == nullptr)
        return 0;
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
    if (!dk_RemoveAllDocuments(ctx))
        return 0;
    navo::memory::release(ctx->documentLists);
    ctx->documentLists = nullptr;
    ctx->formCount = 0;
    navo::memory::release(ctx->footer.notes);
    ctx->footer.notes = nullptr;
    ctx->footer.noteCount = 0;
    dk_ContextReleasePool(ctx);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    navo::memory::release(ctx);
    *pointer = nullptr;
    return 1;
}

}  // extern "C"
