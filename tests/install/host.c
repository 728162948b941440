/* host.c - a host built against the installed library (scripts/test.sh: pkg-config and find_package). */
#include <navo.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    dk_Context *ctx = NULL;
    char message[200];
    int ok = dk_Init(&ctx) && dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3()) &&
             dk_InitDocuments(ctx, 10) && dk_GetNAVOErrorMessage(10, message, (int32_t)sizeof message) &&
             strcmp(message, "Anulowano") == 0 && dk_Destroy(&ctx);
    puts(ok ? "installed library: ok" : "installed library: FAILED");
    return ok ? 0 : 1;
}
