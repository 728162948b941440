/* dk_envelope.c - envelope operations of Part 4.2: prolog, headers and notes of file and document. */
#include "interchange/envelope.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "store/document_tables.hpp"
#include "interchange/format.hpp"

/* With a version of three characters the prolog lines fill their arrays to the last byte. */
static_assert(sizeof DK_PROLOG_DOCTYPE_START - 1 + DK_PROLOG_VERSION_LENGTH + sizeof DK_PROLOG_DOCTYPE_END ==
                   sizeof(dk_FileProlog::doctypeLine),
               "doctypeLine capacity");
static_assert(sizeof DK_PROLOG_VERSION_START - 1 + DK_PROLOG_VERSION_LENGTH + sizeof DK_PROLOG_VERSION_END ==
                   sizeof(dk_FileProlog::versionLine),
               "versionLine capacity");
static_assert(sizeof DK_PROLOG_ENCODING == sizeof(dk_FileProlog::encodingLine), "encodingLine capacity");

dk_Document *dk_envFindDocument(dk_Context *ctx, const char *form, int32_t docIndex)
{
    navo::store::Target target;
    if (!navo::store::find_form(ctx, form, target) || !navo::store::find_document(target, docIndex))
        return NULL;
    return target.document;
}

/* start + version + end into a cleared array; the caller has checked that it fits. */
static void dk_envPrologLine(char *line, size_t capacity, const char *start, const char *version, size_t versionLength,
                             const char *end)
{
    size_t startLength = strlen(start);
    memset(line, 0, capacity);
    memcpy(line, start, startLength);
    memcpy(line + startLength, version, versionLength);
    memcpy(line + startLength + versionLength, end, strlen(end));
}

/* The last text of a note has nothing of the record behind it to run on into; a host record
   whose last text lacks its terminator is refused before anything changes (docs/decisions.md). */
static int dk_envLastTextTerminated(const void *note, const dk_fmtLine *lines, int32_t lineCount)
{
    const dk_fmtLine *last = &lines[lineCount - 1];
    return memchr((const char *)note + last->member, '\0', (size_t)last->width + 1) != NULL;
}

/* Step 4 of an add: each text shorter than its width gets blanks up to the width and its
   terminator at the last byte; a text without a terminator in its capacity stays as it is. */
static void dk_envFillTexts(void *note, const dk_fmtLine *lines, int32_t lineCount)
{
    int32_t i;
    for (i = 0; i < lineCount; i++) {
        char *text = (char *)note + lines[i].member;
        size_t width = (size_t)lines[i].width;
        const char *end = static_cast<const char *>(memchr(text, '\0', width + 1));
        if (end != NULL) {
            size_t length = (size_t)(end - text);
            memset(text + length, ' ', width - length);
            text[width] = '\0';
        }
    }
}

/* Steps 1 and 2: one more element, or on failure a count of 0 with the array kept as it was;
   the next add then resizes to one element, which shrinks it. Returns the array or null. */
template <class Note>
static Note *dk_envGrow(Note *array, int32_t *count)
{
    int32_t next = *count > 0 ? *count + 1 : 1;
    if (!navo::memory::resize_array(array, static_cast<size_t>(next))) {
        *count = 0;
        return NULL;
    }
    *count = next;
    return array;
}

static int32_t dk_envAddError(dk_ErrorNote **notes, int32_t *count, const dk_ErrorNote *note)
{
    dk_ErrorNote *grown;
    if (!dk_envLastTextTerminated(note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES))
        return 0;
    grown = dk_envGrow(*notes, count);
    if (grown == NULL)
        return 0;
    *notes = grown;
    grown[*count - 1] = *note;
    dk_envFillTexts(&grown[*count - 1], dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES);
    return 1;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_SetDefaultNAVOProlog(dk_Context *ctx, const char *version) noexcept
{
    size_t length = 0;
    if (ctx == NULL || version == NULL)
        return 0;
    /* Counted only up to one past the limit: the host's text need not end soon. */
    while (length <= DK_PROLOG_VERSION_LENGTH && version[length] != '\0')
        length++;
    if (length > DK_PROLOG_VERSION_LENGTH)
        return 0;
    dk_envPrologLine(ctx->prolog.doctypeLine, sizeof ctx->prolog.doctypeLine, DK_PROLOG_DOCTYPE_START, version,
                     length, DK_PROLOG_DOCTYPE_END);
    dk_envPrologLine(ctx->prolog.versionLine, sizeof ctx->prolog.versionLine, DK_PROLOG_VERSION_START, version,
                     length, DK_PROLOG_VERSION_END);
    memcpy(ctx->prolog.encodingLine, DK_PROLOG_ENCODING, sizeof DK_PROLOG_ENCODING);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOProlog(dk_Context *ctx, dk_FileProlog **out) noexcept
{
    if (out == NULL)
        return 0;
    *out = ctx == NULL ? NULL : &ctx->prolog;
    return ctx != NULL;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOHeader(dk_Context *ctx, dk_FileHeader **out) noexcept
{
    if (out == NULL)
        return 0;
    *out = ctx == NULL ? NULL : &ctx->header;
    return ctx != NULL;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOFooter(dk_Context *ctx, dk_FileFooter **out) noexcept
{
    if (out == NULL)
        return 0;
    *out = ctx == NULL ? NULL : &ctx->footer;
    return ctx != NULL;
}

/* Part 4.2 leaves `out` as it was on failure, unlike the general rule of the Overview. */
NAVO_API int32_t NAVO_CALL dk_GetDocHeader(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocHeader **out) noexcept
{
    dk_Document *document;
    if (out == NULL)
        return 0;
    document = dk_envFindDocument(ctx, form, docIndex);
    if (document == NULL)
        return 0;
    *out = &document->header;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetDocFooter(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocFooter **out) noexcept
{
    dk_Document *document;
    if (out == NULL)
        return 0;
    document = dk_envFindDocument(ctx, form, docIndex);
    if (document == NULL)
        return 0;
    *out = &document->footer;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_AddNAVOError(dk_Context *ctx, const dk_ErrorNote *note) noexcept
{
    if (ctx == NULL || note == NULL)
        return 0;
    return dk_envAddError(&ctx->footer.notes, &ctx->footer.noteCount, note);
}

NAVO_API int32_t NAVO_CALL dk_AddDocError(dk_Context *ctx, const char *form, int32_t docIndex,
                                          const dk_ErrorNote *note) noexcept
{
    dk_Document *document;
    if (note == NULL)
        return 0;
    document = dk_envFindDocument(ctx, form, docIndex);
    if (document == NULL)
        return 0;
    return dk_envAddError(&document->footer.errorNotes, &document->footer.errorCount, note);
}

NAVO_API int32_t NAVO_CALL dk_AddDocOCR(dk_Context *ctx, const char *form, int32_t docIndex, const dk_OcrNote *note) noexcept
{
    dk_Document *document;
    dk_OcrNote *grown;
    if (note == NULL)
        return 0;
    document = dk_envFindDocument(ctx, form, docIndex);
    if (document == NULL || !dk_envLastTextTerminated(note, dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES))
        return 0;
    grown = dk_envGrow(document->footer.ocrNotes, &document->footer.ocrCount);
    if (grown == NULL)
        return 0;
    document->footer.ocrNotes = grown;
    /* kind is copied with the rest and not tested: Part 4.6 decides what it means. */
    grown[document->footer.ocrCount - 1] = *note;
    dk_envFillTexts(&grown[document->footer.ocrCount - 1], dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES);
    return 1;
}

}  // extern "C"
