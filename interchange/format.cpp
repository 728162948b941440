/* dk_format.c - the tables of the NAVO file format (Part 4.1) and the cut of a text into lines. */
#include "interchange/format.hpp"

#include <string.h>

#define DK_LINE(type, field, width, position) { offsetof(type, field), width, position }

const dk_fmtLine dk_fmtFileHeaderLines[DK_FILE_HEADER_LINES] = {
    DK_LINE(dk_FileHeader, line1, 51, 0),
    DK_LINE(dk_FileHeader, line2, 8, 51),
    DK_LINE(dk_FileHeader, line3, 24, 59),
    DK_LINE(dk_FileHeader, line4, 24, 83),
    DK_LINE(dk_FileHeader, line5, 32, 107),
};

const dk_fmtLine dk_fmtDocHeaderLines[DK_DOC_HEADER_LINES] = {
    DK_LINE(dk_DocHeader, line1, 51, 0),
    DK_LINE(dk_DocHeader, line2, 8, 51),
    DK_LINE(dk_DocHeader, line3, 8, 59),
    DK_LINE(dk_DocHeader, line4, 8, 67),
    DK_LINE(dk_DocHeader, line5, 24, 75),
    DK_LINE(dk_DocHeader, line6, 8, 99),
    DK_LINE(dk_DocHeader, line7, 24, 107),
    DK_LINE(dk_DocHeader, line8, 24, 131),
    DK_LINE(dk_DocHeader, line9, 8, 155),
    DK_LINE(dk_DocHeader, line10, 24, 163),
    DK_LINE(dk_DocHeader, line11, 24, 187),
    DK_LINE(dk_DocHeader, line12, 1, 211),
    DK_LINE(dk_DocHeader, line13, 1, 212),
    DK_LINE(dk_DocHeader, line14, 32, 213),
};

const dk_fmtLine dk_fmtErrorNoteLines[DK_ERROR_NOTE_LINES] = {
    DK_LINE(dk_ErrorNote, text1, 10, 0),
    DK_LINE(dk_ErrorNote, text2, 10, 10),
    DK_LINE(dk_ErrorNote, text3, 10, 20),
    DK_LINE(dk_ErrorNote, text4, 10, 30),
};

const dk_fmtLine dk_fmtOcrNoteLines[DK_OCR_NOTE_LINES] = {
    DK_LINE(dk_OcrNote, text1, 10, 0),
    DK_LINE(dk_OcrNote, text2, 10, 10),
    DK_LINE(dk_OcrNote, text3, 10, 20),
    DK_LINE(dk_OcrNote, text4, 72, 30),
    DK_LINE(dk_OcrNote, text5, 24, 102),
    DK_LINE(dk_OcrNote, text6, 24, 126),
};

const char *const dk_fmtOcrKindLetters[DK_OCR_KIND_COUNT] = { "a", "z", "l", "l2" };

/* The records of navo.h must keep room for each line and its terminator; a change there that
   breaks a table fails the build instead of a cut. */
static_assert(sizeof(dk_FileHeader::line1) == 52 && sizeof(dk_FileHeader::line5) == 33,
               "file header record does not match Part 4.1");
static_assert(sizeof(dk_DocHeader::line12) == 2 && sizeof(dk_DocHeader::line14) == 33,
               "document header record does not match Part 4.1");
static_assert(sizeof(dk_OcrNote::text4) == 73 && sizeof(dk_ErrorNote::text4) == 11,
               "note records do not match Part 4.1");
static_assert(51 + 8 + 24 + 24 + 32 == DK_FILE_HEADER_LENGTH, "file header widths");
static_assert(51 + 8 * 5 + 24 * 5 + 1 + 1 + 32 == DK_DOC_HEADER_LENGTH, "document header widths");
static_assert(10 * 3 + 72 + 24 * 2 == DK_OCR_NOTE_LENGTH, "OCR note widths");
static_assert(sizeof(DK_PROLOG_DOCTYPE_START) - 1 + DK_PROLOG_VERSION_LENGTH + sizeof(DK_PROLOG_DOCTYPE_END) - 1
                   == DK_PROLOG_READ_DOCTYPE,
               "prolog line 1 length");
static_assert(sizeof(DK_PROLOG_VERSION_START) - 1 + DK_PROLOG_VERSION_LENGTH + sizeof(DK_PROLOG_VERSION_END) - 1
                   == DK_PROLOG_READ_VERSION + 1,
               "prolog line 2 length");
static_assert(sizeof(DK_PROLOG_ENCODING) - 1 == DK_PROLOG_READ_ENCODING + 1, "prolog line 3 length");
static_assert(sizeof(DK_DOCTYPE_HEAD) - 1 == DK_DOCTYPE_HEAD_LENGTH, "doctype head length");
static_assert(sizeof(DK_VERSION_VALUE_1_3) - 1 == DK_VERSION_VALUE_LENGTH, "version value length");

int32_t dk_fmtOcrKindOfTag(const char *rest)
{
    if (rest == NULL)
        return 0;
    switch (rest[0]) {
    case 'a':
        return 0;
    case 'z':
        return 1;
    case 'l':
        return rest[1] == '2' ? 3 : 2;
    default:
        return 0;
    }
}

void dk_fmtCutLines(void *record, const dk_fmtLine *lines, int32_t lineCount, const char *text)
{
    size_t length = strlen(text);
    int32_t i;
    for (i = 0; i < lineCount; i++) {
        size_t position = (size_t)lines[i].position;
        size_t width = (size_t)lines[i].width;
        size_t n;
        if (position >= length)
            continue;
        n = length - position < width ? length - position : width;
        memcpy((char *)record + lines[i].member, text + position, n);
    }
}
