/* dk_documents.c - the document tables of Part 3.1 (placeholder until the store lands). */
#include "navo.h"

NAVO_API int32_t NAVO_CALL dk_RemoveAllDocuments(dk_Context *ctx)
{
    if (ctx == NULL || ctx->formCount == 0)
        return 0;
    return 0;
}

NAVO_API int32_t NAVO_CALL dk_InitDocuments(dk_Context *ctx, int32_t size)
{
    (void)ctx;
    (void)size;
    return 0;
}
