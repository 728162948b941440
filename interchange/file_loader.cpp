/* dk_fileload.c - the file loader of Part 4.4: prolog, version choice, header, sections, footer. */
#include "interchange/file_loader.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "interchange/document_loader.hpp"
#include "interchange/format.hpp"
#include "interchange/scanner.hpp"
#include "core/status.hpp"
#include "platform/text_stream.hpp"

/* What one load holds of its own (Part 4.4, "Data model"). */
typedef struct dk_LoadState {
    dk_Context *ctx;
    FILE *stream;
    char line[DK_READ_BUFFER_SIZE];
    char *text;
} dk_LoadState;

/* Every way out after a successful open closes the stream once and releases the text. */
static int32_t dk_LoadEnd(dk_LoadState *s, int32_t result)
{
    fclose(s->stream);
    navo::memory::release(s->text);
    s->text = NULL;
    return result;
}

static int32_t dk_LoadFail(dk_LoadState *s, int32_t code)
{
    dk_LoadRaise(code);
    return dk_LoadEnd(s, 0);
}

/* Steps 14 and 16: drop single characters through the next '>'. The dropped characters are kept
   behind `line` as far as its capacity allows (docs/decisions.md), so that a prolog read from a
   file is stored whole and a save after a load writes a prolog that loads again. */
static int dk_LoadSkipThroughGreater(dk_LoadState *s, char *line, size_t capacity)
{
    size_t length = strlen(line);
    char c[2];
    do {
        if (!dk_LoadStringbyLen(s->stream, c, (int32_t)sizeof c, 1))
            return 0;
        if (length + 1 < capacity)
            line[length++] = c[0];
    } while (c[0] != '>');
    return 1;
}

/* Step 11: "wersja " and, 8 characters behind its start, "001.300" select version 1.3. */
static const char *dk_LoadChooseText(const char *versionLine)
{
    const char *word = strstr(versionLine, DK_VERSION_WORD);
    if (word != NULL && strlen(word) >= DK_VERSION_VALUE_OFFSET + DK_VERSION_VALUE_LENGTH &&
        memcmp(word + DK_VERSION_VALUE_OFFSET, DK_VERSION_VALUE_1_3, DK_VERSION_VALUE_LENGTH) == 0)
        return GetDefTXT_1_3();
    return GetDefTXT_1_2();
}

/* Steps 5 to 7: the store, definition 0 and the file's notes of an earlier load go. */
static void dk_LoadEmptyContext(dk_Context *ctx)
{
    if (ctx->formCount > 0)
        dk_RemoveAllDocuments(ctx);
    dk_dfDestroyDefinition(ctx->definitions, 0);
    if (ctx->footer.noteCount > 0 || ctx->footer.notes != NULL) {
        navo::memory::release(ctx->footer.notes);
        ctx->footer.notes = NULL;
        ctx->footer.noteCount = 0;
    }
}

/* Steps 12 and 13: the chosen text as definition 0 and new tables with a pool of 10; the old
   tables, empty since step 5, are released by dk_InitDocuments itself. The Part leaves a failure
   here open; without a definition and tables the load cannot go on, so it fails with code 9, the
   catalogue's out-of-memory code (docs/decisions.md). */
static int dk_LoadDefinitionAndTables(dk_Context *ctx, const char *text)
{
    return dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, text) &&
           dk_InitDocuments(ctx, DK_LOAD_POOL_CAPACITY);
}

/* Steps 24 to 28: error notes until "</stopka.NAVO>". */
static int32_t dk_LoadFooter(dk_LoadState *s)
{
    dk_FileFooter *footer = &s->ctx->footer;
    for (;;) {
        dk_ErrorNote *note;
        if (!dk_LoadStringforTag(s->stream, s->line, (int32_t)sizeof s->line))
            return dk_LoadFail(s, navo::status::unexpected_tag);
        if (strncmp(s->line, DK_TAG_FILE_FOOTER_CLOSE, sizeof s->line) == 0)
            return dk_LoadEnd(s, 1);
        if (strncmp(s->line, DK_TAG_ERROR_OPEN, sizeof s->line) != 0)
            return dk_LoadFail(s, navo::status::unexpected_tag);
        if (!dk_LoadStringtoTerminator(s->stream, &s->text, NULL))
            return dk_LoadFail(s, navo::status::read_failed);
        note = navo::memory::append_zeroed(footer->notes, footer->noteCount);
        if (note == NULL)
            return dk_LoadFail(s, navo::status::out_of_memory);
        dk_fmtCutLines(note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, s->text);
    }
}

/* Steps 21 to 23: sections until the file footer. */
static int32_t dk_LoadSections(dk_LoadState *s)
{
    for (;;) {
        if (!dk_LoadNextSection(s->stream, s->line, (int32_t)sizeof s->line))
            return dk_LoadFail(s, navo::status::unexpected_tag);
        if (strstr(s->line, DK_SECTION_SUFFIX) != NULL) {
            int32_t result = dk_LoadDocument(s->ctx, s->stream, s->line);
            if (result == 1)
                continue;
            if (result == 2) {
                dk_LoadRaise(navo::status::cancelled);
                return dk_LoadEnd(s, 2);
            }
            return dk_LoadFail(s, navo::status::bad_document);
        }
        if (strcmp(s->line, DK_TAG_FILE_FOOTER_OPEN) != 0)
            return dk_LoadFail(s, navo::status::unexpected_tag);
        return dk_LoadFooter(s);
    }
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_LoadNAVO(dk_Context *ctx, const char *path) noexcept
{
    dk_LoadState s;
    dk_FileProlog *prolog;
    const char *text;
    if (ctx == NULL || path == NULL)
        return 0;
    memset(&s, 0, sizeof s);
    s.ctx = ctx;
    prolog = &ctx->prolog;

    /* Steps 1 to 4. */
    navo::status::set_last_error(navo::status::none);
    i_lNumerLinii = 1;
    s.stream = navo::platform::open_text_stream(path, "rt").release();
    if (s.stream == NULL) {
        navo::status::set_last_error(navo::status::open_failed);
        return 0;
    }
    i_lLinii = 0;
    do
        i_lLinii++;
    while (fgets(s.line, (int)sizeof s.line, s.stream) != NULL);
    rewind(s.stream);

    dk_LoadEmptyContext(ctx);

    /* Steps 8 to 11: the first two prolog lines by fixed lengths. */
    if (!dk_LoadStringbyLen(s.stream, s.line, (int32_t)sizeof s.line, DK_PROLOG_READ_DOCTYPE))
        return dk_LoadFail(&s, navo::status::read_failed);
    if (memcmp(s.line, DK_DOCTYPE_HEAD, DK_DOCTYPE_HEAD_LENGTH) != 0)
        return dk_LoadFail(&s, navo::status::not_navo);
    memset(prolog->doctypeLine, 0, sizeof prolog->doctypeLine);
    memcpy(prolog->doctypeLine, s.line, DK_PROLOG_READ_DOCTYPE);
    if (!dk_LoadStringbyLen(s.stream, s.line, (int32_t)sizeof s.line, DK_PROLOG_READ_VERSION))
        return dk_LoadFail(&s, navo::status::read_failed);
    memset(prolog->versionLine, 0, sizeof prolog->versionLine);
    memcpy(prolog->versionLine, s.line, DK_PROLOG_READ_VERSION);
    text = dk_LoadChooseText(prolog->versionLine);

    if (!dk_LoadDefinitionAndTables(ctx, text))
        return dk_LoadFail(&s, navo::status::out_of_memory);

    /* Steps 14 to 17: the rest of the prolog and "<NAVO>". */
    if (prolog->versionLine[DK_PROLOG_READ_VERSION - 1] != '>' &&
        !dk_LoadSkipThroughGreater(&s, prolog->versionLine, sizeof prolog->versionLine))
        return dk_LoadFail(&s, navo::status::read_failed);
    if (!dk_LoadStringbyLen(s.stream, s.line, (int32_t)sizeof s.line, DK_PROLOG_READ_ENCODING))
        return dk_LoadFail(&s, navo::status::read_failed);
    memset(prolog->encodingLine, 0, sizeof prolog->encodingLine);
    memcpy(prolog->encodingLine, s.line, DK_PROLOG_READ_ENCODING);
    if (prolog->encodingLine[DK_PROLOG_READ_ENCODING - 1] != '>' &&
        !dk_LoadSkipThroughGreater(&s, prolog->encodingLine, sizeof prolog->encodingLine))
        return dk_LoadFail(&s, navo::status::read_failed);
    if (!dk_LoadStringbyLen(s.stream, s.line, (int32_t)sizeof s.line, (int32_t)sizeof DK_TAG_NAVO_OPEN - 1))
        return dk_LoadFail(&s, navo::status::read_failed);
    if (strcmp(s.line, DK_TAG_NAVO_OPEN) != 0)
        return dk_LoadFail(&s, navo::status::unexpected_tag);

    /* Steps 18 to 20: the file header of exactly 139 characters. */
    if (!dk_LoadStringforTag(s.stream, s.line, (int32_t)sizeof s.line) ||
        strncmp(s.line, DK_TAG_FILE_HEADER_OPEN, sizeof s.line) != 0)
        return dk_LoadFail(&s, navo::status::unexpected_tag);
    if (!dk_LoadStringtoTerminator(s.stream, &s.text, NULL) || strlen(s.text) != DK_FILE_HEADER_LENGTH)
        return dk_LoadFail(&s, navo::status::read_failed);
    memset(&ctx->header, 0, sizeof ctx->header);
    dk_fmtCutLines(&ctx->header, dk_fmtFileHeaderLines, DK_FILE_HEADER_LINES, s.text);

    return dk_LoadSections(&s);
}

}  // extern "C"
