/* bench_load.c - NAVO load (every field read, or none), NAVO save, and expat on the same content.
   The XML layout is the benchmark's own: <declarations> holds one <document form="...">, which holds
   an element per block record named by the block's tag, which holds an element per field named by
   the field's name, with the value as its text. Times are CPU seconds (user + system). */
#include <expat.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>

#include "navo.h"

/* The form that the benchmark fills: a version 1.3 form whose block DDORCA repeats. */
#define BENCH_FORM "TOBRCA"
#define BENCH_BLOCK "DDORCA"

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static double cpuSeconds(void)
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return (double)usage.ru_utime.tv_sec + (double)usage.ru_utime.tv_usec / 1e6 +
           (double)usage.ru_stime.tv_sec + (double)usage.ru_stime.tv_usec / 1e6;
}

static long peakKiB(void)
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/* ---- generator -------------------------------------------------------------------------- */

static void fixedLine(FILE *out, const char *text, int width)
{
    fprintf(out, "%-*.*s\r\n", width, width, text);
}

static int generate(const char *navoPath, const char *xmlPath, long records)
{
    dk_Context *ctx = NULL;
    const dk_dfDefinition *def;
    const dk_dfForm *form;
    FILE *navo = fopen(navoPath, "wb");
    FILE *xml = fopen(xmlPath, "wb");
    static const int docWidths[14] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
    int32_t r;
    long n;
    int i;
    if (navo == NULL || xml == NULL || !dk_Init(&ctx) ||
        !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3()))
        return 1;
    def = &ctx->definitions->items[0];
    form = &def->forms[dk_sdGetID(ctx->dictionary, BENCH_FORM, &r) ? r : 0];
    fputs("<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[\r\n<!ENTITY wersja '001.300' >\r\n"
          "<!ENTITY strona.kodowa 'ISO 8859-2' >]>\r\n<NAVO>\r\n<naglowek.NAVO>\r\n", navo);
    fixedLine(navo, "BENCH", 51);
    fixedLine(navo, "20260101", 8);
    fixedLine(navo, "", 24);
    fixedLine(navo, "", 24);
    fixedLine(navo, "", 32);
    fputs("</naglowek.NAVO>\r\n<" BENCH_FORM ".DP>\r\n<naglowek.DP>\r\n", navo);
    for (i = 0; i < 14; i++)
        fixedLine(navo, i == 0 ? "DOC" : "", docWidths[i]);
    fputs("</naglowek.DP>\r\n<" BENCH_FORM ">\r\n", navo);
    fputs("<?xml version=\"1.0\"?>\n<declarations>\n<document form=\"" BENCH_FORM "\">\n", xml);
    for (i = 0; i < form->refCount; i++) {
        const dk_dfBlock *block = &def->blocks[form->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        long count = form->refs[i].occurrence == -1 ? records : 1;
        for (n = 0; n < count; n++) {
            int32_t f;
            fprintf(navo, "<%s>\r\n", tag);
            fprintf(xml, "<%s>", tag);
            for (f = 0; f < block->fieldCount; f++) {
                const char *name = ctx->dictionary->strings[block->fields[f].nameId];
                char value[64];
                snprintf(value, sizeof value, "%ld%d", n, (int)f);
                fixedLine(navo, value, block->fields[f].width);
                value[block->fields[f].width < 63 ? block->fields[f].width : 63] = '\0';
                fprintf(xml, "<%s>%s</%s>", name, value, name);
            }
            fprintf(navo, "</%s>\r\n", tag);
            fprintf(xml, "</%s>\n", tag);
        }
    }
    fputs("</" BENCH_FORM ">\r\n<stopka.DP>\r\n</stopka.DP>\r\n</" BENCH_FORM ".DP>\r\n"
          "<stopka.NAVO>\r\n</stopka.NAVO>\r\n</NAVO>\r\n", navo);
    fputs("</document>\n</declarations>\n", xml);
    fclose(navo);
    fclose(xml);
    dk_InitDocuments(ctx, 1);
    dk_Destroy(&ctx);
    return 0;
}

/* ---- NAVO load -------------------------------------------------------------------------- */

static long fieldsRead;
static unsigned long checksum;

static int32_t NAVO_CALL readEverything(dk_Context *ctx, const char *formName, int32_t docIndex)
{
    const dk_dfDefinition *def = &ctx->definitions->items[0];
    const dk_dfForm *form = &def->forms[dk_1fGetIDFormularza(ctx, formName)];
    int32_t i;
    for (i = 0; i < form->refCount; i++) {
        const dk_dfBlock *block = &def->blocks[form->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        int32_t records = 1;
        int32_t r;
        if (form->refs[i].occurrence == -1)
            dk_GetBlockCount(ctx, formName, docIndex, tag, &records);
        for (r = 0; r < records; r++) {
            int32_t f;
            for (f = 0; f < block->fieldCount; f++) {
                char value[128];
                if (dk_GetField(ctx, formName, docIndex, tag, r, ctx->dictionary->strings[block->fields[f].nameId],
                                value, (int32_t)sizeof value)) {
                    fieldsRead++;
                    checksum += (unsigned char)value[0];
                }
            }
        }
    }
    return 0;
}

static int32_t NAVO_CALL readNothing(dk_Context *ctx, const char *formName, int32_t docIndex)
{
    (void)ctx;
    (void)formName;
    (void)docIndex;
    return 0;
}

static int loadNavo(const char *path, dk_DocumentCallback callback)
{
    dk_Context *ctx = NULL;
    int32_t result;
    if (!dk_Init(&ctx))
        return 1;
    dk_UstawCallBack(callback);
    result = dk_LoadNAVO(ctx, path);
    dk_Destroy(&ctx);
    return result == 1 ? 0 : 1;
}

/* ---- NAVO save: one document of the bench form built through the API, then dk_SaveNAVO -------- */

static double saveCpu;

static int saveNavo(const char *path, long records)
{
    dk_Context *ctx = NULL;
    const dk_dfDefinition *def;
    const dk_dfForm *form;
    dk_FileHeader *fileHeader;
    dk_DocHeader *docHeader;
    int32_t doc = -1;
    int32_t i;
    int ok;
    double start;
    if (!dk_Init(&ctx) || !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3()) ||
        !dk_InitDocuments(ctx, 10) || !dk_SetDefaultNAVOProlog(ctx, "1.3") || !dk_AddDocument(ctx, BENCH_FORM, &doc))
        return 1;
    /* The envelope of the generated file, so that the saved file equals it byte for byte. */
    if (!dk_GetNAVOHeader(ctx, &fileHeader) || !dk_GetDocHeader(ctx, BENCH_FORM, doc, &docHeader))
        return 1;
    snprintf(fileHeader->line1, sizeof fileHeader->line1, "%-51s", "BENCH");
    snprintf(fileHeader->line2, sizeof fileHeader->line2, "%-8s", "20260101");
    snprintf(fileHeader->line3, sizeof fileHeader->line3, "%24s", "");
    snprintf(fileHeader->line4, sizeof fileHeader->line4, "%24s", "");
    snprintf(fileHeader->line5, sizeof fileHeader->line5, "%32s", "");
    {
        char *lines[14] = {docHeader->line1, docHeader->line2, docHeader->line3, docHeader->line4,
                           docHeader->line5, docHeader->line6, docHeader->line7, docHeader->line8,
                           docHeader->line9, docHeader->line10, docHeader->line11, docHeader->line12,
                           docHeader->line13, docHeader->line14};
        static const int widths[14] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
        for (i = 0; i < 14; i++)
            snprintf(lines[i], (size_t)widths[i] + 1, "%-*s", widths[i], i == 0 ? "DOC" : "");
    }
    def = &ctx->definitions->items[0];
    form = &def->forms[dk_1fGetIDFormularza(ctx, BENCH_FORM)];
    for (i = 0; i < form->refCount; i++) {
        const dk_dfBlock *block = &def->blocks[form->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        long count = form->refs[i].occurrence == -1 ? records : 1;
        long n;
        for (n = 0; n < count; n++) {
            int32_t record = 0;
            int32_t f;
            if (n > 0 && !dk_AddBlock(ctx, BENCH_FORM, doc, tag, &record))
                return 1;
            for (f = 0; f < block->fieldCount; f++) {
                char value[64];
                snprintf(value, sizeof value, "%ld%d", n, (int)f);
                if (!dk_SetField(ctx, BENCH_FORM, doc, tag, record, ctx->dictionary->strings[block->fields[f].nameId],
                                 value))
                    return 1;
            }
        }
    }
    start = cpuSeconds();
    ok = dk_SaveNAVO(ctx, path, 1);
    saveCpu = cpuSeconds() - start;
    dk_Destroy(&ctx);
    return ok ? 0 : 1;
}

/* ---- expat ------------------------------------------------------------------------------ */

typedef struct XmlState {
    char text[256];
    size_t length;
    int depth;
} XmlState;

static void XMLCALL xmlStart(void *user, const XML_Char *name, const XML_Char **attributes)
{
    XmlState *s = user;
    (void)name;
    (void)attributes;
    s->length = 0;
    s->depth++;
}

static void XMLCALL xmlText(void *user, const XML_Char *text, int length)
{
    XmlState *s = user;
    size_t n = (size_t)length;
    if (s->length + n >= sizeof s->text)
        n = sizeof s->text - 1 - s->length;
    memcpy(s->text + s->length, text, n);
    s->length += n;
}

/* Every element's text is copied, as the NAVO side copies every field; the fields are the elements
   at depth 4 (declarations, document, block record, field). */
static void XMLCALL xmlEnd(void *user, const XML_Char *name)
{
    XmlState *s = user;
    char copy[256];
    (void)name;
    memcpy(copy, s->text, s->length);
    copy[s->length] = '\0';
    if (s->depth == 4) {
        fieldsRead++;
        checksum += (unsigned char)copy[0];
    }
    s->length = 0;
    s->depth--;
}

static int parseXml(const char *path)
{
    XML_Parser parser = XML_ParserCreate(NULL);
    XmlState state;
    FILE *in = fopen(path, "rb");
    char buffer[65536];
    size_t got;
    int ok = 1;
    if (parser == NULL || in == NULL)
        return 1;
    memset(&state, 0, sizeof state);
    XML_SetUserData(parser, &state);
    XML_SetElementHandler(parser, xmlStart, xmlEnd);
    XML_SetCharacterDataHandler(parser, xmlText);
    do {
        got = fread(buffer, 1, sizeof buffer, in);
        if (XML_Parse(parser, buffer, (int)got, got == 0) == XML_STATUS_ERROR)
            ok = 0;
    } while (got > 0 && ok);
    fclose(in);
    XML_ParserFree(parser);
    return ok ? 0 : 1;
}

int main(int argc, char **argv)
{
    double start;
    double wall;
    double cpu;
    int status;
    if (argc == 5 && strcmp(argv[1], "generate") == 0)
        return generate(argv[2], argv[3], atol(argv[4]));
    start = now();
    cpu = cpuSeconds();
    if (argc == 3 && strcmp(argv[1], "navo") == 0)
        status = loadNavo(argv[2], readEverything);
    else if (argc == 3 && strcmp(argv[1], "navo-none") == 0)
        status = loadNavo(argv[2], readNothing);
    else if (argc == 3 && strcmp(argv[1], "xml") == 0)
        status = parseXml(argv[2]);
    else if (argc == 4 && strcmp(argv[1], "save") == 0)
        status = saveNavo(argv[2], atol(argv[3]));
    else {
        fprintf(stderr, "usage: %s generate NAVO XML RECORDS | navo FILE | navo-none FILE | xml FILE | save OUT RECORDS\n",
                argv[0]);
        return 2;
    }
    wall = now() - start;
    cpu = strcmp(argv[1], "save") == 0 ? saveCpu : cpuSeconds() - cpu;
    /* mode cpu-seconds wall-seconds fields peak-KiB checksum */
    printf("%s %.3f %.3f %ld %ld %lu\n", argv[1], cpu, wall, fieldsRead, peakKiB(), checksum);
    return status;
}
