/* dk_docload.c - the document loader of Part 4.5: header, blocks in form order, notes, callback. */
#include "interchange/document_loader.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "definitions/definition_loader.hpp"
#include "store/document_tables.hpp"
#include "interchange/format.hpp"
#include "interchange/scanner.hpp"
#include "core/status.hpp"

/* The Part's `form`, `closing` and `block` have room for 19 characters; a longer name is no name
   of the definition. The buffers here are as large as a tag so that such a name still reaches
   the test that rejects it, with the code the Part gives, and nothing is cut or overrun. */
#define DK_NAME_SIZE DK_READ_BUFFER_SIZE
#define DK_FORM_NAME_MAX 19

static const dk_LoadObserver *loadObserver;

void dk_SetLoadObserver(const dk_LoadObserver *observer)
{
    loadObserver = observer;
}

void dk_LoadRaise(int32_t code)
{
    dk_SetErrorCode(code);
    if (loadObserver != NULL && loadObserver->onError != NULL)
        loadObserver->onError(loadObserver->user, code);
    dk_OnNAVOError(code);
}

/* One section's working state (Part 4.5, "Data model"). */
typedef struct dk_SectionState {
    dk_Context *ctx;
    FILE *stream;
    char form[DK_NAME_SIZE];
    int32_t docIndex;
    char *text;
    char tag[DK_READ_BUFFER_SIZE];
    char closing[DK_NAME_SIZE + 8];
    char block[DK_NAME_SIZE];
    int32_t lastPosition;
    int repeatSeen;
    int32_t recordIndex;
    navo::store::Target target;  /* the form and the new document; per element, its block */
} dk_SectionState;

/* The failure step of the Part: release the text, set the code, tell the hook, drop the document. */
static int32_t dk_SectionFail(dk_SectionState *s, int32_t code)
{
    navo::memory::release(s->text);
    s->text = NULL;
    dk_LoadRaise(code);
    dk_RemoveDocument(s->ctx, s->form, s->docIndex);
    return 0;
}

static int dk_IsSpaceOrCr(int32_t c)
{
    return c == ' ' || c == '\r';
}

/* Steps 4 to 9: "<naglowek.DP>", the header text of exactly 245 characters, cut into lines. */
static int32_t dk_SectionHeader(dk_SectionState *s)
{
    int32_t c;
    do
        c = dk_LoadChar(s->stream);
    while (dk_IsSpaceOrCr(c));
    memset(s->tag, 0, sizeof s->tag);
    s->tag[0] = (char)c;
    if (!dk_LoadStringbyLen(s->stream, s->tag + 1, (int32_t)sizeof s->tag - 1,
                            (int32_t)(sizeof DK_TAG_DOC_HEADER_OPEN - 2)))
        return DK_ERR_READ;
    if (strcmp(s->tag, DK_TAG_DOC_HEADER_OPEN) != 0)
        return DK_ERR_TAG;
    if (!dk_LoadStringtoTerminator(s->stream, &s->text, NULL))
        return DK_ERR_READ;
    if (strlen(s->text) != DK_DOC_HEADER_LENGTH)
        return DK_ERR_READ;
    dk_fmtCutLines(&s->target.document->header, dk_fmtDocHeaderLines, DK_DOC_HEADER_LINES, s->text);
    return DK_ERR_NONE;
}

/* Steps 21 to 23: the element's text goes straight into the field cache of the record under the
   cursor, cut by the field widths; the next cursor move or add writes it to the spool. */
static void dk_SectionFillRecord(dk_lfBlock *store, const dk_dfBlock *block, const char *text)
{
    int32_t i;
    int32_t position = 0;
    for (i = 0; i < block->fieldCount; i++) {
        dk_lfField *slot = &store->fields[i];
        memcpy(slot->text, text + position, (size_t)block->fields[i].width);
        position += block->fields[i].width;
        slot->loaded = 1;
        slot->dirty = 1;
    }
    store->dirty = 1;
}

/* Steps 15 to 24 for one block element whose opening tag is in `tag`. Returns a code, or -1 for
   the tag that filled its buffer (step 15: no code of its own). */
static int32_t dk_SectionBlock(dk_SectionState *s)
{
    const char *end = static_cast<const char *>(memchr(s->tag, '>', sizeof s->tag));
    size_t length;
    navo::store::Target *t = &s->target;
    if (end == NULL)
        return -1;
    length = (size_t)(end - (s->tag + 1));
    memcpy(s->block, s->tag + 1, length);
    s->block[length] = '\0';
    if (!dk_LoadStringtoTerminator(s->stream, &s->text, s->block))
        return DK_ERR_READ;
    /* The store's lookup refuses a tag the dictionary lacks and one that is no block of this form. */
    if (!navo::store::find_block(*s->ctx, s->block, *t))
        return DK_ERR_BLOCK;
    if (strlen(s->text) != (size_t)t->block->recordLength)
        return DK_ERR_BLOCK_SIZE;
    if (s->lastPosition == -1) {
        if (t->position != 0)
            return DK_ERR_BLOCK;
    } else {
        int32_t step = t->position - s->lastPosition;
        if (!(step == 1 || (t->repeating && step == 0)))
            return DK_ERR_BLOCK;
    }
    s->lastPosition = t->position;
    if (t->repeating) {
        if (!s->repeatSeen)
            s->repeatSeen = 1;
        else if (!dk_AddBlock(s->ctx, s->form, s->docIndex, s->block, &s->recordIndex))
            return DK_ERR_BLOCK_SIZE;
    }
    dk_SectionFillRecord(t->store, t->block, s->text);
    if (t->repeating) {
        if (loadObserver != NULL && loadObserver->onBlock != NULL)
            loadObserver->onBlock(loadObserver->user, s->form, s->docIndex, s->block, s->recordIndex);
        dk_OnNAVOBlock(s->ctx, s->form, s->docIndex, s->block, s->recordIndex);
    }
    return DK_ERR_NONE;
}

/* Step 29: a <BLAD> note of the document. */
static int32_t dk_SectionErrorNote(dk_SectionState *s)
{
    dk_DocFooter *footer = &s->target.document->footer;
    dk_ErrorNote *note;
    if (!dk_LoadStringtoTerminator(s->stream, &s->text, NULL))
        return DK_ERR_READ;
    note = navo::memory::append_zeroed(footer->errorNotes, footer->errorCount);
    if (note == NULL)
        return DK_ERR_MEMORY;
    dk_fmtCutLines(note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, s->text);
    return DK_ERR_NONE;
}

/* Step 30: an <OCR.x> note of the document; the kind comes from the tag. */
static int32_t dk_SectionOcrNote(dk_SectionState *s)
{
    dk_DocFooter *footer = &s->target.document->footer;
    dk_OcrNote *note;
    if (!dk_LoadStringtoTerminator(s->stream, &s->text, NULL))
        return DK_ERR_READ;
    note = navo::memory::append_zeroed(footer->ocrNotes, footer->ocrCount);
    if (note == NULL)
        return DK_ERR_MEMORY;
    note->kind = dk_fmtOcrKindOfTag(s->tag + sizeof DK_TAG_OCR_OPEN_PREFIX - 1);
    dk_fmtCutLines(note, dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES, s->text);
    return DK_ERR_NONE;
}

/* Steps 26 to 31: the footer's opening tag, then notes until "</stopka.DP>". */
static int32_t dk_SectionFooter(dk_SectionState *s)
{
    if (!dk_LoadStringforTag(s->stream, s->tag, (int32_t)sizeof s->tag))
        return DK_ERR_TAG;
    for (;;) {
        int32_t code = DK_ERR_NONE;
        if (!dk_LoadStringforTag(s->stream, s->tag, (int32_t)sizeof s->tag))
            return DK_ERR_TAG;
        if (strncmp(s->tag, DK_TAG_DOC_FOOTER_CLOSE, sizeof s->tag) == 0)
            return DK_ERR_NONE;
        if (strncmp(s->tag, DK_TAG_ERROR_OPEN, sizeof s->tag) == 0)
            code = dk_SectionErrorNote(s);
        else if (strncmp(s->tag, DK_TAG_OCR_OPEN_PREFIX, sizeof DK_TAG_OCR_OPEN_PREFIX - 1) == 0)
            code = dk_SectionOcrNote(s);
        if (code != DK_ERR_NONE)
            return code;
    }
}

int32_t dk_LoadDocument(dk_Context *ctx, FILE *stream, const char *section)
{
    dk_SectionState s{};
    const char *suffix;
    size_t length;
    int32_t code;
    int32_t verdict;
    s.ctx = ctx;
    s.stream = stream;
    s.docIndex = -1;

    /* Steps 1 to 3. */
    suffix = strstr(section + 1, DK_SECTION_SUFFIX);
    length = suffix != NULL ? (size_t)(suffix - (section + 1)) : strlen(section + 1);
    if (length <= DK_FORM_NAME_MAX) {
        memcpy(s.form, section + 1, length);
        s.form[length] = '\0';
    }
    if (length > DK_FORM_NAME_MAX || !dk_AddDocument(ctx, s.form, &s.docIndex)) {
        dk_LoadRaise(DK_ERR_ADD_DOCUMENT);
        return 0;
    }
    navo::store::find_form(ctx, s.form, s.target);
    navo::store::find_document(s.target, s.docIndex);

    code = dk_SectionHeader(&s);
    if (code != DK_ERR_NONE)
        return dk_SectionFail(&s, code);

    /* Steps 10 to 25: the body. */
    strcpy(s.closing, DK_TAG_CLOSE_START);
    strcat(s.closing, s.form);
    strcat(s.closing, DK_TAG_END);
    if (!dk_LoadStringforTag(stream, s.tag, (int32_t)sizeof s.tag))
        return dk_SectionFail(&s, DK_ERR_TAG);
    s.lastPosition = -1;
    for (;;) {
        if (!dk_LoadStringforTag(stream, s.tag, (int32_t)sizeof s.tag))
            return dk_SectionFail(&s, DK_ERR_TAG);
        if (strncmp(s.tag, s.closing, sizeof s.tag) == 0)
            break;
        code = dk_SectionBlock(&s);
        if (code == -1) {
            navo::memory::release(s.text);
            dk_RemoveDocument(ctx, s.form, s.docIndex);
            return 0;
        }
        if (code != DK_ERR_NONE)
            return dk_SectionFail(&s, code);
    }

    code = dk_SectionFooter(&s);
    if (code != DK_ERR_NONE)
        return dk_SectionFail(&s, code);

    /* Steps 32 to 36. */
    strcpy(s.closing, DK_TAG_CLOSE_START);
    strcat(s.closing, s.form);
    strcat(s.closing, DK_SECTION_SUFFIX);
    if (!dk_LoadStringforTag(stream, s.tag, (int32_t)sizeof s.tag) || strncmp(s.tag, s.closing, sizeof s.tag) != 0)
        return dk_SectionFail(&s, DK_ERR_TAG);
    verdict = dk_OnNAVODocument(ctx, s.form, s.docIndex);
    if (verdict == 0)
        dk_RemoveDocument(ctx, s.form, s.docIndex);
    navo::memory::release(s.text);
    return verdict == 0 ? 1 : 2;
}
