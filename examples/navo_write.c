/* navo_write.c - example host: builds a NAVO file of two documents and saves it. */
#include <stdio.h>
#include <string.h>

#include "navo.h"

/* Header lines and fields must have their full width when a file is to load again. */
static void setFixed(char *line, size_t width, const char *text)
{
    size_t length = strlen(text);
    memset(line, ' ', width);
    memcpy(line, text, length < width ? length : width);
    line[width] = '\0';
}

static void fillDocHeader(dk_DocHeader *h, const char *id)
{
    setFixed(h->line1, 51, id);
    setFixed(h->line2, 8, "20091209");
    setFixed(h->line3, 8, "");
    setFixed(h->line4, 8, "");
    setFixed(h->line5, 24, "");
    setFixed(h->line6, 8, "");
    setFixed(h->line7, 24, "");
    setFixed(h->line8, 24, "");
    setFixed(h->line9, 8, "");
    setFixed(h->line10, 24, "");
    setFixed(h->line11, 24, "");
    setFixed(h->line12, 1, "X");
    setFixed(h->line13, 1, "X");
    setFixed(h->line14, 32, "");
}

int main(int argc, char **argv)
{
    const char *path = argc > 1 ? argv[1] : "sample.navo";
    static const char *accounts[] = {"11112222333344445555666677778888", "99990000111122223333444455556666",
                                     "12345678901234567890123456789012"};
    dk_Context *ctx = NULL;
    dk_FileHeader *header = NULL;
    dk_DocHeader *docHeader = NULL;
    dk_ErrorNote note;
    int32_t doc = -1;
    int32_t record = 0;
    int ok = 1;
    int i;

    ok &= dk_Init(&ctx);
    ok &= dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3());
    ok &= dk_InitDocuments(ctx, 10);
    ok &= dk_SetDefaultNAVOProlog(ctx, "1.3");
    ok &= dk_GetNAVOHeader(ctx, &header);
    if (!ok) {
        fprintf(stderr, "setup failed\n");
        return 1;
    }
    setFixed(header->line1, 51, "PRZYKLADOWY PLIK NAVO");
    setFixed(header->line2, 8, "20091209");
    setFixed(header->line3, 24, "");
    setFixed(header->line4, 24, "");
    setFixed(header->line5, 32, "");

    /* A registration of bank accounts: TOBZBA, whose block IORB repeats. */
    ok &= dk_AddDocument(ctx, "TOBZBA", &doc);
    ok &= dk_GetDocHeader(ctx, "TOBZBA", doc, &docHeader);
    if (ok)
        fillDocHeader(docHeader, "ZBA-0001");
    ok &= dk_SetField(ctx, "TOBZBA", doc, "DOZCBA", 0, "DataNadania", "09122009");
    ok &= dk_SetField(ctx, "TOBZBA", doc, "DIPL", 0, "Nip", "1234567890");
    ok &= dk_SetField(ctx, "TOBZBA", doc, "DIPL", 0, "NazwaSkrocona", "PRZYK\xA3" "ADOWA FIRMA");
    for (i = 0; i < 3; i++) {
        if (i > 0)
            ok &= dk_AddBlock(ctx, "TOBZBA", doc, "IORB", &record);
        ok &= dk_SetField(ctx, "TOBZBA", doc, "IORB", i, "KodRodzajuZgloszen", i == 2 ? "3" : "1");
        ok &= dk_SetField(ctx, "TOBZBA", doc, "IORB", i, "NumerRachunku", accounts[i]);
    }
    ok &= dk_SetField(ctx, "TOBZBA", doc, "OPL1", 0, "DataWypelnienia", "09122009");
    memset(&note, 0, sizeof note);
    strcpy(note.text1, "E1");
    ok &= dk_AddDocError(ctx, "TOBZBA", doc, &note);

    /* A deregistration of a payer: TOBZWPA, single blocks only. */
    ok &= dk_AddDocument(ctx, "TOBZWPA", &doc);
    ok &= dk_GetDocHeader(ctx, "TOBZWPA", doc, &docHeader);
    if (ok)
        fillDocHeader(docHeader, "ZWPA-0001");
    ok &= dk_SetField(ctx, "TOBZWPA", doc, "DIPL", 0, "Nip", "9876543210");
    ok &= dk_SetField(ctx, "TOBZWPA", doc, "DIPL", 0, "Nazwisko", "KOWALSKI");
    ok &= dk_SetField(ctx, "TOBZWPA", doc, "DIPL", 0, "ImiePierwsze", "JAN");

    if (!ok || !dk_SaveNAVO(ctx, path, 1)) {
        fprintf(stderr, "building or saving %s failed\n", path);
        dk_Destroy(&ctx);
        return 1;
    }
    printf("wrote %s\n", path);
    return dk_Destroy(&ctx) ? 0 : 1;
}
