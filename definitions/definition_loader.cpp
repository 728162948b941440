/* dk_deffile.c - the definition loader of Part 2.1: grammar, interning, offsets, links and maps. */
#include "definitions/definition_loader.hpp"

#include <ctype.h>
#include <limits.h>
#include <string.h>

#include "core/allocator.hpp"
#include "core/dictionary.hpp"

/* Module-wide, as Part 1.1 lists them: the text being loaded and the cursor in it. */
static const char *definitionText;
static int32_t definitionCursor;
static size_t definitionLength;   /* cached strlen of the text: the Part's "length of the text" */
static int definitionMalformed;   /* a line without LF or longer than the buffer was met */

/* Part 2.1's line reader: one line with its LF into `out`, or null at the end of the text. */
static char *dk_dfReadLine(char *out, int32_t size)
{
    size_t start = (size_t)definitionCursor;
    const char *lineFeed;
    size_t length;
    memset(out, 0, (size_t)size);
    if (start >= definitionLength)
        return NULL;
    lineFeed = static_cast<const char *>(memchr(definitionText + start, '\n', definitionLength - start));
    /* A last line without LF, or a line that does not fit with its terminator, breaks the
       grammar; the loader fails on it rather than read or write past a buffer. */
    if (lineFeed == NULL) {
        definitionMalformed = 1;
        definitionCursor = (int32_t)definitionLength;
        return NULL;
    }
    length = (size_t)(lineFeed - (definitionText + start)) + 1;
    if (length > (size_t)size - 1) {
        definitionMalformed = 1;
        definitionCursor = (int32_t)definitionLength;
        return NULL;
    }
    memcpy(out, definitionText + start, length);
    definitionCursor = (int32_t)(start + length);
    return out;
}

/* The standard tokenizer's semantics (a run of delimiters counts as one, no empty token),
   with the position kept by the caller so that a host's own strtok is not disturbed. */
static char *dk_dfToken(char **position, const char *delimiters)
{
    char *start = *position;
    char *end;
    if (start == NULL)
        return NULL;
    start += strspn(start, delimiters);
    if (*start == '\0') {
        *position = NULL;
        return NULL;
    }
    end = start + strcspn(start, delimiters);
    if (*end == '\0') {
        *position = NULL;
    } else {
        *end = '\0';
        *position = end + 1;
    }
    return start;
}

/* atoi's reading (white space, sign, digits, stop at the first other byte), saturating
   instead of overflowing. */
static int32_t dk_dfNumber(const char *text)
{
    int negative = 0;
    int64_t value = 0;
    while (isspace((unsigned char)*text))
        text++;
    if (*text == '+' || *text == '-')
        negative = *text++ == '-';
    for (; *text >= '0' && *text <= '9'; text++) {
        if (value <= (int64_t)INT32_MAX + 1)
            value = value * 10 + (*text - '0');
    }
    if (negative)
        value = -value;
    if (value > INT32_MAX)
        return INT32_MAX;
    if (value < INT32_MIN)
        return INT32_MIN;
    return (int32_t)value;
}

static int dk_dfEndsSection(const char *line)
{
    return isspace((unsigned char)line[0]) != 0;
}

/* A position map carries its entry count in one hidden slot in front of the entries, so that a
   lookup can refuse an ID outside the map in O(1); the map pointer is to the first entry. */
static int32_t *dk_dfMapAlloc(int32_t entries)
{
    int32_t *base = navo::memory::make_zeroed<int32_t>(static_cast<size_t>(entries) + 1);
    if (base == NULL)
        return NULL;
    base[0] = entries;
    return base + 1;
}

static void dk_dfMapFree(int32_t *map)
{
    if (map != NULL)
        navo::memory::release(map - 1);
}

static int32_t dk_dfMapEntries(const int32_t *map)
{
    return map[-1];
}

static void dk_dfReleaseDefinition(dk_dfDefinition *definition)
{
    int32_t i;
    int32_t j;
    for (i = 0; i < definition->formCount; i++) {
        dk_dfForm *form = &definition->forms[i];
        for (j = 0; j < form->refCount; j++)
            navo::memory::release(form->refs[j].name);
        navo::memory::release(form->refs);
        dk_dfMapFree(form->positionByTag);
    }
    navo::memory::release(definition->forms);
    for (i = 0; i < definition->blockCount; i++) {
        dk_dfBlock *block = &definition->blocks[i];
        navo::memory::release(block->name);
        navo::memory::release(block->fields);
        dk_dfMapFree(block->positionByName);
    }
    navo::memory::release(definition->blocks);
    navo::memory::release(definition->name);
    memset(definition, 0, sizeof *definition);
}

/* How the reading part of a load ended. */
enum dk_dfOutcome {
    DK_DF_READ_OK,
    DK_DF_INTERN_FAILED,  /* the half-built definition stays in the list (Part 2.1) */
    DK_DF_REMOVE          /* the definition is removed again */
};

/* Step 6: the forms, up to the first line that begins with '<'. */
static enum dk_dfOutcome dk_dfReadForms(dk_dfDefinition *definition, dk_sdDictionary *dictionary, char *line,
                                        char *name)
{
    while (line[0] != '<') {
        char *position = line;
        char *column;
        dk_dfForm *form;
        int32_t id;
        int32_t i;
        if (dk_dfToken(&position, ",") == NULL || (column = dk_dfToken(&position, "]")) == NULL)
            return DK_DF_REMOVE;
        if (!dk_sdTrimAll(column, name, DK_DF_NAME_SIZE))
            return DK_DF_REMOVE;
        if (!dk_sdGetSafeID(dictionary, name, &id))
            return DK_DF_INTERN_FAILED;
        for (i = 0; i < definition->formCount; i++) {
            if (definition->forms[i].id == id)
                return DK_DF_REMOVE;
        }
        form = navo::memory::append_zeroed(definition->forms, definition->formCount);
        if (form == NULL)
            return DK_DF_REMOVE;
        form->id = id;
        for (;;) {
            dk_dfBlockRef *ref;
            char *blockName;
            char *occurrence;
            if (dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL)
                return DK_DF_REMOVE;
            if (dk_dfEndsSection(line))
                break;
            position = line;
            blockName = dk_dfToken(&position, ",");
            if (blockName == NULL || dk_dfToken(&position, ",") == NULL ||
                (occurrence = dk_dfToken(&position, ",")) == NULL)
                return DK_DF_REMOVE;
            ref = navo::memory::append_zeroed(form->refs, form->refCount);
            if (ref == NULL)
                return DK_DF_REMOVE;
            ref->occurrence = dk_dfNumber(occurrence);
            ref->name = navo::memory::duplicate(blockName);
            if (ref->name == NULL || ref->occurrence == 0)
                return DK_DF_REMOVE;
        }
        if (dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL)
            return DK_DF_REMOVE;
    }
    return DK_DF_READ_OK;
}

/* Step 7: the blocks, from the line in the buffer to the end of the text. */
static enum dk_dfOutcome dk_dfReadBlocks(dk_dfDefinition *definition, dk_sdDictionary *dictionary, char *line,
                                         char *name)
{
    for (;;) {
        char *position = line + 1;
        char *blockName;
        char *tag;
        dk_dfBlock *block;
        int ended;
        blockName = dk_dfToken(&position, ",");
        if (blockName == NULL || (tag = dk_dfToken(&position, ">")) == NULL)
            return DK_DF_REMOVE;
        block = navo::memory::append_zeroed(definition->blocks, definition->blockCount);
        if (block == NULL)
            return DK_DF_REMOVE;
        block->name = navo::memory::duplicate(blockName);
        if (block->name == NULL || !dk_sdTrimAll(tag, name, DK_DF_NAME_SIZE))
            return DK_DF_REMOVE;
        if (!dk_sdGetSafeID(dictionary, name, &block->tagId))
            return DK_DF_INTERN_FAILED;
        for (;;) {
            dk_dfField *field;
            char *fieldName;
            char *width;
            int32_t nameId;
            ended = dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL;
            if (ended || dk_dfEndsSection(line))
                break;
            position = line;
            fieldName = dk_dfToken(&position, ",");
            if (fieldName == NULL || (width = dk_dfToken(&position, ",")) == NULL)
                return DK_DF_REMOVE;
            if (!dk_sdTrimAll(fieldName, name, DK_DF_NAME_SIZE))
                return DK_DF_REMOVE;
            if (!dk_sdGetSafeID(dictionary, name, &nameId))
                return DK_DF_INTERN_FAILED;
            field = navo::memory::append_zeroed(block->fields, block->fieldCount);
            if (field == NULL)
                return DK_DF_REMOVE;
            field->nameId = nameId;
            field->width = dk_dfNumber(width);
            if (field->width == 0 || field->width < 0 || field->width > DK_DF_MAX_WIDTH)
                return DK_DF_REMOVE;
        }
        if (definitionMalformed)
            return DK_DF_REMOVE;
        if (ended || dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL)
            return definitionMalformed ? DK_DF_REMOVE : DK_DF_READ_OK;
    }
}

/* Steps 8 to 13: offsets, links, names released, position maps. */
static int dk_dfComplete(dk_dfDefinition *definition)
{
    int32_t i;
    int32_t j;
    int32_t k;
    for (i = 0; i < definition->blockCount; i++) {
        dk_dfBlock *block = &definition->blocks[i];
        int32_t offset = 0;
        for (j = 0; j < block->fieldCount; j++) {
            block->fields[j].offset = offset;
            offset += block->fields[j].width;
            if (offset > DK_DF_MAX_RECORD_LENGTH)
                return 0;
        }
        block->recordLength = offset;
    }
    for (i = 0; i < definition->formCount; i++) {
        dk_dfForm *form = &definition->forms[i];
        for (j = 0; j < form->refCount; j++) {
            for (k = 0; k < definition->blockCount; k++) {
                if (dk_sdStrCmp(definition->blocks[k].name, form->refs[j].name) == 0)
                    break;
            }
            if (k == definition->blockCount)
                return 0;
            form->refs[j].blockIndex = k;
        }
    }
    for (i = 0; i < definition->formCount; i++) {
        for (j = 0; j < definition->forms[i].refCount; j++) {
            navo::memory::release(definition->forms[i].refs[j].name);
            definition->forms[i].refs[j].name = NULL;
        }
    }
    for (i = 0; i < definition->blockCount; i++) {
        navo::memory::release(definition->blocks[i].name);
        definition->blocks[i].name = NULL;
    }
    for (i = 0; i < definition->formCount; i++) {
        dk_dfForm *form = &definition->forms[i];
        int32_t largest = 0;
        for (j = 0; j < form->refCount; j++) {
            int32_t tagId = definition->blocks[form->refs[j].blockIndex].tagId;
            if (tagId > largest)
                largest = tagId;
        }
        form->positionByTag = dk_dfMapAlloc(largest + 1);
        if (form->positionByTag == NULL)
            return 0;
        for (j = 0; j < form->refCount; j++)
            form->positionByTag[definition->blocks[form->refs[j].blockIndex].tagId] = j;
    }
    for (i = 0; i < definition->blockCount; i++) {
        dk_dfBlock *block = &definition->blocks[i];
        int32_t largest = 0;
        for (j = 0; j < block->fieldCount; j++) {
            if (block->fields[j].nameId > largest)
                largest = block->fields[j].nameId;
        }
        block->positionByName = dk_dfMapAlloc(largest + 1);
        if (block->positionByName == NULL)
            return 0;
        for (j = 0; j < block->fieldCount; j++)
            block->positionByName[block->fields[j].nameId] = j;
    }
    return 1;
}

const dk_dfDefinition *dk_dfStoreDefinition(const dk_Context *ctx)
{
    if (ctx == NULL || ctx->definitions == NULL || ctx->definitions->count == 0)
        return NULL;
    return &ctx->definitions->items[0];
}

int32_t dk_dfRefPosition(const dk_dfDefinition *definition, const dk_dfForm *form, int32_t tagId)
{
    int32_t position;
    if (tagId < 0 || form->positionByTag == NULL || tagId >= dk_dfMapEntries(form->positionByTag))
        return -1;
    position = form->positionByTag[tagId];
    /* The map is zero for IDs it does not know: the tag at that position must be the one asked. */
    if (position >= form->refCount || definition->blocks[form->refs[position].blockIndex].tagId != tagId)
        return -1;
    return position;
}

int32_t dk_dfFieldPosition(const dk_dfBlock *block, int32_t nameId)
{
    int32_t position;
    if (nameId < 0 || block->positionByName == NULL || nameId >= dk_dfMapEntries(block->positionByName))
        return -1;
    position = block->positionByName[nameId];
    if (position >= block->fieldCount || block->fields[position].nameId != nameId)
        return -1;
    return position;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_dfInit(dk_dfDefinitionList **out) noexcept
{
    if (out == NULL)
        return 0;
    *out = navo::memory::make_zeroed<dk_dfDefinitionList>();
    return *out != NULL;
}

NAVO_API int32_t NAVO_CALL dk_dfDestroyDefinition(dk_dfDefinitionList *list, int32_t index) noexcept
{
    if (list == NULL || list->count == 0)
        return 0;
    /* An index outside the list is refused (outside the contract). */
    if (index < 0 || index >= list->count)
        return 0;
    dk_dfReleaseDefinition(&list->items[index]);
    if (list->count == 1) {
        navo::memory::release(list->items);
        list->items = NULL;
        list->count = 0;
        return 1;
    }
    memmove(&list->items[index], &list->items[index + 1],
            (size_t)(list->count - index - 1) * sizeof(dk_dfDefinition));
    list->count--;
    /* A shrink that fails keeps the larger block; the count is what holds. */
    (void)navo::memory::resize_array(list->items, static_cast<size_t>(list->count));
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_dfDestroy(dk_dfDefinitionList **pointer) noexcept
{
    dk_dfDefinitionList *list;
    if (pointer == NULL || *pointer == NULL)
        return 1;
    list = *pointer;
    while (list->count > 0)
        dk_dfDestroyDefinition(list, 0);
    navo::memory::release(list);
    *pointer = NULL;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_dfLoadDefinition(dk_dfDefinitionList *list, dk_sdDictionary *dictionary,
                                               const char *text) noexcept
{
    char line[DK_DF_LINE_SIZE];
    char name[DK_DF_NAME_SIZE];
    dk_dfDefinition *definition;
    char *nameCopy;
    enum dk_dfOutcome outcome;
    int32_t index;
    int32_t i;
    if (list == NULL || dictionary == NULL || text == NULL)
        return 0;
    definitionText = text;
    definitionCursor = 0;
    definitionLength = strlen(text);
    definitionMalformed = 0;

    if (dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL)
        return 0;
    /* The line buffer is zero behind the line, so a short version line gives an empty name. */
    if (!dk_sdTrimAll(strlen(line) >= DK_DF_VERSION_SKIP ? line + DK_DF_VERSION_SKIP : "", name,
                      DK_DF_NAME_SIZE))
        return 0;
    for (i = 0; i < list->count; i++) {
        if (list->items[i].name != NULL && dk_sdStrCmp(list->items[i].name, name) == 0)
            return 0;
    }
    nameCopy = navo::memory::duplicate(name);
    if (nameCopy == NULL)
        return 0;
    index = list->count;
    definition = navo::memory::append_zeroed(list->items, list->count);
    if (definition == NULL) {
        navo::memory::release(nameCopy);
        return 0;
    }
    definition->name = nameCopy;

    if (dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL || dk_dfReadLine(line, DK_DF_LINE_SIZE) == NULL) {
        dk_dfDestroyDefinition(list, index);
        return 0;
    }
    outcome = dk_dfReadForms(definition, dictionary, line, name);
    if (outcome == DK_DF_READ_OK)
        outcome = dk_dfReadBlocks(definition, dictionary, line, name);
    if (outcome == DK_DF_INTERN_FAILED)
        return 0;
    if (outcome == DK_DF_REMOVE || !dk_dfComplete(definition)) {
        dk_dfDestroyDefinition(list, index);
        return 0;
    }
    return 1;
}

}  // extern "C"
