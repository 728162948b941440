/* fuzz_load.cpp - libFuzzer target: any bytes as a NAVO file, loaded with a callback that reads everything. */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "navo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static int32_t NAVO_CALL readEverything(dk_Context *ctx, const char *formName, int32_t docIndex)
{
    const dk_dfDefinition *def = &ctx->definitions->items[0];
    const dk_dfForm *form = &def->forms[dk_1fGetIDFormularza(ctx, formName)];
    char *packed = nullptr;
    int32_t i;
    for (i = 0; i < form->refCount; i++) {
        const dk_dfBlock *block = &def->blocks[form->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        int32_t records = 1;
        int32_t r;
        if (form->refs[i].occurrence == -1)
            dk_GetBlockCount(ctx, formName, docIndex, tag, &records);
        for (r = 0; r < records && r < 64; r++) {
            int32_t f;
            for (f = 0; f < block->fieldCount; f++) {
                char value[128];
                dk_GetField(ctx, formName, docIndex, tag, r, ctx->dictionary->strings[block->fields[f].nameId], value,
                            (int32_t)sizeof value);
            }
        }
    }
    if (dk_GetNAVODocument(ctx, formName, docIndex, &packed, 4096) && packed != nullptr)
        dk_Free(packed);
    /* Every third document stops the load, so that the kept document is exercised too. */
    return (docIndex + (int32_t)(i_lNumerLinii % 3)) == 2 ? 1 : 0;
}

static char path[512];

static void removeInput(void)
{
    remove(path);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    dk_Context *ctx = nullptr;
    FILE *file;
    if (path[0] == '\0') {
        const char *dir = getenv("TMPDIR");
        snprintf(path, sizeof path, "%s/navo-fuzz-%ld.navo", dir != nullptr && *dir != '\0' ? dir : "/tmp", (long)getpid());
        atexit(removeInput);
    }
    file = fopen(path, "wb");
    if (file == nullptr)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);
    if (!dk_Init(&ctx))
        return 0;
    dk_UstawCallBack(readEverything);
    dk_LoadNAVO(ctx, path);
    if (!dk_Destroy(&ctx)) {
        dk_dfDestroy(&ctx->definitions);
        dk_sdDestroy(&ctx->dictionary);
        dk_Free(ctx->footer.notes);
        dk_Free(ctx);
    }
    return 0;
}
