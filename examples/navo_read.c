/* navo_read.c - example host: loads a NAVO file and prints every document it delivers. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "navo.h"

/* The library's messages and texts are CP1250; a terminal wants UTF-8. */
static void printCp1250(FILE *out, const char *text)
{
    static const struct {
        unsigned char byte;
        const char *utf8;
    } letters[] = {
        {0xA5, "\xC4\x84"}, {0xB9, "\xC4\x85"}, {0xC6, "\xC4\x86"}, {0xE6, "\xC4\x87"}, {0xCA, "\xC4\x98"},
        {0xEA, "\xC4\x99"}, {0xA3, "\xC5\x81"}, {0xB3, "\xC5\x82"}, {0xD1, "\xC5\x83"}, {0xF1, "\xC5\x84"},
        {0xD3, "\xC3\x93"}, {0xF3, "\xC3\xB3"}, {0x8C, "\xC5\x9A"}, {0x9C, "\xC5\x9B"}, {0x8F, "\xC5\xB9"},
        {0x9F, "\xC5\xBA"}, {0xAF, "\xC5\xBB"}, {0xBF, "\xC5\xBC"},
    };
    for (; *text != '\0'; text++) {
        unsigned char c = (unsigned char)*text;
        size_t i;
        if (c < 0x80) {
            fputc(c, out);
            continue;
        }
        for (i = 0; i < sizeof letters / sizeof letters[0]; i++) {
            if (letters[i].byte == c)
                break;
        }
        fputs(i < sizeof letters / sizeof letters[0] ? letters[i].utf8 : "?", out);
    }
}

static void printLine(const char *label, const char *text)
{
    printf("    %-8s [", label);
    printCp1250(stdout, text);
    printf("]\n");
}

static int32_t NAVO_CALL onDocument(dk_Context *ctx, const char *form, int32_t docIndex)
{
    const dk_dfDefinition *definition = &ctx->definitions->items[0];
    int32_t formId = dk_1fGetIDFormularza(ctx, form);
    const dk_dfForm *dfForm = &definition->forms[formId];
    dk_DocHeader *header = NULL;
    dk_DocFooter *footer = NULL;
    const char *lines[14];
    char label[16];
    int32_t i;

    printf("document %s #%d\n", form, (int)docIndex);
    if (dk_GetDocHeader(ctx, form, docIndex, &header)) {
        lines[0] = header->line1; lines[1] = header->line2; lines[2] = header->line3; lines[3] = header->line4;
        lines[4] = header->line5; lines[5] = header->line6; lines[6] = header->line7; lines[7] = header->line8;
        lines[8] = header->line9; lines[9] = header->line10; lines[10] = header->line11; lines[11] = header->line12;
        lines[12] = header->line13; lines[13] = header->line14;
        for (i = 0; i < 14; i++) {
            snprintf(label, sizeof label, "line%d", (int)i + 1);
            printLine(label, lines[i]);
        }
    }
    for (i = 0; i < dfForm->refCount; i++) {
        const dk_dfBlock *block = &definition->blocks[dfForm->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        int32_t records = 1;
        int32_t r;
        if (dfForm->refs[i].occurrence == -1)
            dk_GetBlockCount(ctx, form, docIndex, tag, &records);
        for (r = 0; r < records; r++) {
            int32_t f;
            printf("  block %s record %d\n", tag, (int)r);
            for (f = 0; f < block->fieldCount; f++) {
                const char *name = ctx->dictionary->strings[block->fields[f].nameId];
                char value[128];
                if (dk_GetField(ctx, form, docIndex, tag, r, name, value, (int32_t)sizeof value)) {
                    printf("    %-20s [", name);
                    printCp1250(stdout, value);
                    printf("]\n");
                }
            }
        }
    }
    if (dk_GetDocFooter(ctx, form, docIndex, &footer)) {
        for (i = 0; i < footer->ocrCount; i++)
            printf("  OCR note kind %d: [%s] [%s] [%s]\n", (int)footer->ocrNotes[i].kind, footer->ocrNotes[i].text1,
                   footer->ocrNotes[i].text2, footer->ocrNotes[i].text3);
        for (i = 0; i < footer->errorCount; i++)
            printf("  error note: [%s] [%s] [%s] [%s]\n", footer->errorNotes[i].text1, footer->errorNotes[i].text2,
                   footer->errorNotes[i].text3, footer->errorNotes[i].text4);
    }
    if (i_lLinii > 0)
        fprintf(stderr, "\rprogress: %3d%%", (int)((int64_t)i_lNumerLinii * 100 / i_lLinii));
    return 0;
}

int main(int argc, char **argv)
{
    dk_Context *ctx = NULL;
    dk_FileHeader *header = NULL;
    dk_FileFooter *footer = NULL;
    char message[200];
    int32_t result;
    int32_t i;
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE.navo\n", argv[0]);
        return 2;
    }
    if (!dk_Init(&ctx)) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    dk_UstawCallBack(onDocument);
    result = dk_LoadNAVO(ctx, argv[1]);
    fprintf(stderr, "\n");
    if (dk_GetNAVOHeader(ctx, &header))
        printf("file header: [%s] [%s] [%s] [%s] [%s]\n", header->line1, header->line2, header->line3, header->line4,
               header->line5);
    if (dk_GetNAVOFooter(ctx, &footer)) {
        for (i = 0; i < footer->noteCount; i++)
            printf("file error note: [%s] [%s] [%s] [%s]\n", footer->notes[i].text1, footer->notes[i].text2,
                   footer->notes[i].text3, footer->notes[i].text4);
    }
    dk_GetLastNAVOErrorMessage(message, (int32_t)sizeof message);
    printf("result %d, code %d (", (int)result, (int)dk_GetNAVOError());
    printCp1250(stdout, message);
    printf("), line %d of %d\n", (int)dk_GetNAVOLine(), (int)i_lLinii);
    if (!dk_Destroy(&ctx)) {
        /* A load that failed before it made its tables leaves a context dk_Destroy refuses. */
        dk_dfDestroy(&ctx->definitions);
        dk_sdDestroy(&ctx->dictionary);
        dk_Free(ctx->footer.notes);
        dk_Free(ctx);
    }
    return result == 1 ? 0 : 1;
}
