/* dk_writer.c - the file writer of Part 4.6: envelope records and documents out to a NAVO file. */
#include "interchange/writer.hpp"

#include <stddef.h>
#include <string.h>

#include "core/allocator.hpp"
#include "store/document_tables.hpp"
#include "interchange/format.hpp"
#include "platform/text_stream.hpp"

int32_t dk_wrText(FILE *stream, const char *text, size_t limit)
{
    const char *end = static_cast<const char *>(memchr(text, '\0', limit));
    size_t length = end != NULL ? (size_t)(end - text) : limit;
    if (length > 0 && fwrite(text, 1, length, stream) != length)
        return 0;
    return fputc('\n', stream) != EOF;
}

/* A literal of the format on a line of its own. */
static int dk_wrLine(FILE *stream, const char *literal)
{
    return fputs(literal, stream) != EOF && fputc('\n', stream) != EOF;
}

/* A tag built from a name: start + name + end, as "<" X ".DP>" or "</" T ">". */
static int dk_wrTag(FILE *stream, const char *start, const char *name, const char *end)
{
    return fputs(start, stream) != EOF && fputs(name, stream) != EOF && fputs(end, stream) != EOF &&
           fputc('\n', stream) != EOF;
}

/* The texts of an envelope record, a line each, in the order of the format's table. */
static int dk_wrRecord(FILE *stream, const void *record, const dk_fmtLine *lines, int32_t lineCount)
{
    size_t recordEnd = lines[lineCount - 1].member + (size_t)lines[lineCount - 1].width + 1;
    int32_t i;
    for (i = 0; i < lineCount; i++) {
        if (!dk_wrText(stream, (const char *)record + lines[i].member, recordEnd - lines[i].member))
            return 0;
    }
    return 1;
}

static int dk_wrErrorNotes(FILE *stream, const dk_ErrorNote *notes, int32_t count)
{
    int32_t i;
    for (i = 0; i < count && notes != NULL; i++) {
        if (!dk_wrLine(stream, DK_TAG_ERROR_OPEN) ||
            !dk_wrRecord(stream, &notes[i], dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES) ||
            !dk_wrLine(stream, DK_TAG_ERROR_CLOSE))
            return 0;
    }
    return 1;
}

/* The format has no tag for a kind outside 0 to 3; such a document is refused before its first
   line is written, rather than leaving a section without a footer (docs/decisions.md). */
static int dk_wrKindsValid(const dk_DocFooter *footer)
{
    int32_t i;
    for (i = 0; i < footer->ocrCount && footer->ocrNotes != NULL; i++) {
        if (footer->ocrNotes[i].kind < 0 || footer->ocrNotes[i].kind >= DK_OCR_KIND_COUNT)
            return 0;
    }
    return 1;
}

static int dk_wrOcrNotes(FILE *stream, const dk_OcrNote *notes, int32_t count)
{
    int32_t i;
    for (i = 0; i < count && notes != NULL; i++) {
        const char *letters = dk_fmtOcrKindLetters[notes[i].kind];
        if (!dk_wrTag(stream, DK_TAG_OCR_OPEN_PREFIX, letters, DK_TAG_END) ||
            !dk_wrRecord(stream, &notes[i], dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES) ||
            !dk_wrTag(stream, DK_TAG_OCR_CLOSE_PREFIX, letters, DK_TAG_END))
            return 0;
    }
    return 1;
}

/* One record of one block: the tag and each field as dk_GetField gives it, which moves the
   cursor of a repeating block and so flushes its cached changes on the way (Part 3.3). */
static int dk_wrRecordOfBlock(dk_Context *ctx, const char *form, int32_t docIndex, const dk_dfBlock *block,
                              const char *tag, int32_t recordIndex, FILE *stream)
{
    int32_t f;
    if (!dk_wrTag(stream, DK_TAG_START, tag, DK_TAG_END))
        return 0;
    for (f = 0; f < block->fieldCount; f++) {
        int32_t width = block->fields[f].width;
        const char *name = ctx->dictionary->strings[block->fields[f].nameId];
        char *buffer = static_cast<char *>(navo::memory::allocate(static_cast<size_t>(width) + 1));
        int written = buffer != NULL && name != NULL &&
                      dk_GetField(ctx, form, docIndex, tag, recordIndex, name, buffer, width + 1) &&
                      dk_wrText(stream, buffer, (size_t)width + 1);
        navo::memory::release(buffer);
        if (!written)
            return 0;
    }
    return dk_wrTag(stream, DK_TAG_CLOSE_START, tag, DK_TAG_END);
}

/* Every document of the context, form by form in the order of the definition. */
static int dk_wrAllDocuments(dk_Context *ctx, FILE *stream, int32_t envelope)
{
    int32_t i;
    if (ctx->documentLists == NULL || ctx->dictionary == NULL)
        return 1;
    for (i = 0; i < ctx->formCount; i++) {
        int32_t d;
        /* By the invariant of Part 2.1 dictionary slot i holds the name of form i. Nothing in a
           save interns or removes a string, so the slot is used as it is, without a copy. */
        const char *name = i < ctx->dictionary->count ? ctx->dictionary->strings[i] : NULL;
        if (ctx->documentLists[i].count <= 0)
            continue;
        if (name == NULL)
            return 0;
        for (d = 0; d < ctx->documentLists[i].count; d++) {
            if (!dk_SaveDocument(ctx, name, d, stream, envelope))
                return 0;
        }
    }
    return 1;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_OpenFileforSave(FILE **out, const char *path) noexcept
{
    if (out == NULL)
        return 0;
    *out = NULL;
    if (path == NULL)
        return 0;
    *out = dk_textOpen(path, "wt");
    return *out != NULL;
}

NAVO_API int32_t NAVO_CALL dk_SaveProlog(dk_Context *ctx, FILE *stream) noexcept
{
    /* The three lines lie side by side; an unterminated one runs on but stops at the last. */
    static const dk_fmtLine prologLines[] = {
        { offsetof(dk_FileProlog, doctypeLine), (int32_t)sizeof(dk_FileProlog::doctypeLine) - 1, 0 },
        { offsetof(dk_FileProlog, versionLine), (int32_t)sizeof(dk_FileProlog::versionLine) - 1, 0 },
        { offsetof(dk_FileProlog, encodingLine), (int32_t)sizeof(dk_FileProlog::encodingLine) - 1, 0 },
    };
    if (ctx == NULL || stream == NULL)
        return 0;
    return dk_wrRecord(stream, &ctx->prolog, prologLines, 3);
}

NAVO_API int32_t NAVO_CALL dk_SaveHeader(dk_Context *ctx, FILE *stream) noexcept
{
    if (ctx == NULL || stream == NULL)
        return 0;
    return dk_wrLine(stream, DK_TAG_NAVO_OPEN) && dk_wrLine(stream, DK_TAG_FILE_HEADER_OPEN) &&
           dk_wrRecord(stream, &ctx->header, dk_fmtFileHeaderLines, DK_FILE_HEADER_LINES) &&
           dk_wrLine(stream, DK_TAG_FILE_HEADER_CLOSE);
}

NAVO_API int32_t NAVO_CALL dk_SaveDocument(dk_Context *ctx, const char *form, int32_t docIndex, FILE *stream,
                                          int32_t envelope) noexcept
{
    navo::store::Target target;
    int32_t r;
    if (stream == NULL || !navo::store::find_form(ctx, form, target) || target.form == NULL ||
        !navo::store::find_document(target, docIndex) || target.document->blockCount < target.form->refCount)
        return 0;
    if (envelope != 0 && !dk_wrKindsValid(&target.document->footer))
        return 0;
    if (envelope != 0) {
        if (!dk_wrTag(stream, DK_TAG_START, form, DK_SECTION_SUFFIX) || !dk_wrLine(stream, DK_TAG_DOC_HEADER_OPEN) ||
            !dk_wrRecord(stream, &target.document->header, dk_fmtDocHeaderLines, DK_DOC_HEADER_LINES) ||
            !dk_wrLine(stream, DK_TAG_DOC_HEADER_CLOSE))
            return 0;
    }
    if (!dk_wrTag(stream, DK_TAG_START, form, DK_TAG_END))
        return 0;
    for (r = 0; r < target.form->refCount; r++) {
        const dk_dfBlock *block = &target.definition->blocks[target.form->refs[r].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        /* Field access adds and removes no document, so the document stays where it is. */
        int32_t recordCount = target.document->blocks[r]->recordCount;
        int32_t record;
        if (tag == NULL)
            return 0;
        for (record = 0; record < recordCount; record++) {
            if (!dk_wrRecordOfBlock(ctx, form, docIndex, block, tag, record, stream))
                return 0;
        }
    }
    if (!dk_wrTag(stream, DK_TAG_CLOSE_START, form, DK_TAG_END))
        return 0;
    if (envelope == 0)
        return 1;
    return dk_wrLine(stream, DK_TAG_DOC_FOOTER_OPEN) &&
           dk_wrOcrNotes(stream, target.document->footer.ocrNotes, target.document->footer.ocrCount) &&
           dk_wrErrorNotes(stream, target.document->footer.errorNotes, target.document->footer.errorCount) &&
           dk_wrLine(stream, DK_TAG_DOC_FOOTER_CLOSE) && dk_wrTag(stream, DK_TAG_CLOSE_START, form, DK_SECTION_SUFFIX);
}

NAVO_API int32_t NAVO_CALL dk_SaveFooter(dk_Context *ctx, FILE *stream) noexcept
{
    if (ctx == NULL || stream == NULL)
        return 0;
    return dk_wrLine(stream, DK_TAG_FILE_FOOTER_OPEN) &&
           dk_wrErrorNotes(stream, ctx->footer.notes, ctx->footer.noteCount) &&
           dk_wrLine(stream, DK_TAG_FILE_FOOTER_CLOSE) && dk_wrLine(stream, DK_TAG_NAVO_CLOSE);
}

NAVO_API int32_t NAVO_CALL dk_CloseFile(FILE *stream) noexcept
{
    /* A null stream is no stream to close (outside the contract); any real close gives 1. */
    if (stream == NULL)
        return 0;
    (void)fclose(stream);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_SaveNAVO(dk_Context *ctx, const char *path, int32_t envelope) noexcept
{
    FILE *stream;
    int ok;
    if (ctx == NULL || !dk_OpenFileforSave(&stream, path))
        return 0;
    ok = (envelope == 0 || (dk_SaveProlog(ctx, stream) && dk_SaveHeader(ctx, stream))) &&
         dk_wrAllDocuments(ctx, stream, envelope) && (envelope == 0 || dk_SaveFooter(ctx, stream));
    /* Closed on success and failure alike; what the close reports is not examined (Part 4.6). */
    (void)fclose(stream);
    return ok ? 1 : 0;
}

}  // extern "C"
