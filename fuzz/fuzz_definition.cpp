/* fuzz_definition.cpp - libFuzzer target: any bytes as a definition text, then documents built on it. */
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "navo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    dk_Context *ctx = nullptr;
    char *text = static_cast<char *>(malloc(size + 1));
    int32_t f;
    if (text == nullptr)
        return 0;
    memcpy(text, data, size);
    text[size] = '\0';
    if (!dk_Init(&ctx) || !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, text) ||
        !dk_InitDocuments(ctx, 2)) {
        /* No tables: release the context part by part, as a host would have to. */
        if (ctx != nullptr) {
            if (ctx->filePool != nullptr) {
                dk_Free(ctx->filePool->blocks);
                dk_Free(ctx->filePool);
            }
            dk_Free(ctx->documentLists);
            dk_dfDestroy(&ctx->definitions);
            dk_sdDestroy(&ctx->dictionary);
            dk_Free(ctx);
        }
        free(text);
        return 0;
    }
    /* Every form gets a document; every field of every block is set and read back. */
    for (f = 0; f < ctx->formCount && f < 8; f++) {
        const dk_dfDefinition *def = &ctx->definitions->items[0];
        const char *form = ctx->dictionary->strings[f];
        int32_t doc = -1;
        int32_t r;
        if (form == nullptr || !dk_AddDocument(ctx, form, &doc))
            continue;
        for (r = 0; r < def->forms[f].refCount; r++) {
            const dk_dfBlock *block = &def->blocks[def->forms[f].refs[r].blockIndex];
            const char *tag = ctx->dictionary->strings[block->tagId];
            int32_t k;
            int32_t record = 0;
            if (def->forms[f].refs[r].occurrence == -1)
                dk_AddBlock(ctx, form, doc, tag, &record);
            for (k = 0; k < block->fieldCount && k < 16; k++) {
                const char *name = ctx->dictionary->strings[block->fields[k].nameId];
                char out[64];
                dk_SetField(ctx, form, doc, tag, record, name, "fuzz");
                dk_GetField(ctx, form, doc, tag, 0, name, out, (int32_t)sizeof out);
            }
        }
    }
    if (!dk_Destroy(&ctx)) {
        dk_RemoveAllDocuments(ctx);
        dk_Free(ctx->documentLists);
        if (ctx->filePool != nullptr) {
            dk_Free(ctx->filePool->blocks);
            dk_Free(ctx->filePool);
        }
        dk_dfDestroy(&ctx->definitions);
        dk_sdDestroy(&ctx->dictionary);
        dk_Free(ctx);
    }
    free(text);
    return 0;
}
