/* dk_format.h - the NAVO file format of Part 4.1: prolog pieces, tags, line widths and positions. */
#ifndef DK_FORMAT_H
#define DK_FORMAT_H

#include <stddef.h>
#include <stdint.h>

#include "navo.h"

/* Every literal here is a string literal macro, so that sizeof(X) - 1 is its length at compile
   time and reader and writer can neither disagree on a byte nor on a length. */

/* ---- Prolog (Part 4.1 "Prolog", Part 4.4 steps 8-17) ----------------------------------- */

/* Line 1 = START + version + END (40 + 3 + 6 = 49 characters). */
#define DK_PROLOG_DOCTYPE_START "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO "
#define DK_PROLOG_DOCTYPE_END "//PL'["
/* Line 2 = START + version + END (19 + 3 + 5 = 27 characters). */
#define DK_PROLOG_VERSION_START "<!ENTITY wersja '00"
#define DK_PROLOG_VERSION_END "00' >"
/* Line 3, 39 characters. */
#define DK_PROLOG_ENCODING "<!ENTITY strona.kodowa 'ISO 8859-2' >]>"
/* The version is always exactly three characters ("1.3", "1.2"). */
#define DK_PROLOG_VERSION_LENGTH 3
#define DK_PROLOG_VERSION_1_3 "1.3"
#define DK_PROLOG_VERSION_1_2 "1.2"

/* The reader takes the prolog by fixed lengths, one character short of lines 2 and 3. */
#define DK_PROLOG_READ_DOCTYPE 49
#define DK_PROLOG_READ_VERSION 26
#define DK_PROLOG_READ_ENCODING 38
/* The only test that a file is a NAVO file: the first 21 characters of line 1. */
#define DK_DOCTYPE_HEAD "<!DOCTYPE NAVO PUBLIC"
#define DK_DOCTYPE_HEAD_LENGTH 21
/* Version selection: search line 2 for the word; compare 7 characters that start 8 behind
   the start of the word with the value of version 1.3. Anything else is version 1.2. */
#define DK_VERSION_WORD "wersja "
#define DK_VERSION_VALUE_OFFSET 8
#define DK_VERSION_VALUE_1_3 "001.300"
#define DK_VERSION_VALUE_LENGTH 7

/* ---- Tags (Part 4.1 "The file from top to bottom") ----------------------------------- */

#define DK_TAG_NAVO_OPEN "<NAVO>"
#define DK_TAG_NAVO_CLOSE "</NAVO>"
#define DK_TAG_FILE_HEADER_OPEN "<naglowek.NAVO>"
#define DK_TAG_FILE_HEADER_CLOSE "</naglowek.NAVO>"
#define DK_TAG_FILE_FOOTER_OPEN "<stopka.NAVO>"
#define DK_TAG_FILE_FOOTER_CLOSE "</stopka.NAVO>"
#define DK_TAG_DOC_HEADER_OPEN "<naglowek.DP>"
#define DK_TAG_DOC_HEADER_CLOSE "</naglowek.DP>"
#define DK_TAG_DOC_FOOTER_OPEN "<stopka.DP>"
#define DK_TAG_DOC_FOOTER_CLOSE "</stopka.DP>"
#define DK_TAG_ERROR_OPEN "<BLAD>"
#define DK_TAG_ERROR_CLOSE "</BLAD>"
/* An OCR note's tags: prefix + kind letters + ">" (dk_fmtOcrKindLetters). */
#define DK_TAG_OCR_OPEN_PREFIX "<OCR."
#define DK_TAG_OCR_CLOSE_PREFIX "</OCR."

/* Pieces of the tags built from a name: "<" X ">", "</" X ">", "<" X ".DP>", "</" X ".DP>". */
#define DK_TAG_START "<"
#define DK_TAG_CLOSE_START "</"
#define DK_TAG_END ">"
#define DK_SECTION_SUFFIX ".DP>"
#define DK_FILE_FOOTER_SUFFIX ".NAVO>"

/* What dk_LoadNextSection (Part 4.3) looks for in the six characters behind a "<". */
#define DK_SCAN_HEAD_LENGTH 6
#define DK_SCAN_FOOTER_HEAD "stopka"
#define DK_SCAN_SECTION_HEAD "TOB"

/* ---- Buffers of the readers (Part 4.3 "Buffers", Part 4.4 "Data model") -------------- */

/* Line buffer of a load: counting pass (fgets limit), fixed reads, tags, section tag. */
#define DK_READ_BUFFER_SIZE 200
/* dk_LoadNextSection's own buffer: up to 19 characters and a terminator. */
#define DK_SCAN_REST_SIZE 20

/* ---- Fixed-width envelope lines ------------------------------------------------------ */

/* One line of an envelope element: where its text lives in the record of Part 1.1
   (`member`, an offsetof; the member has `width` + 1 bytes), its width in the file and its
   position in the element's run of significant characters. */
typedef struct dk_fmtLine {
    size_t member;
    int32_t width;
    int32_t position;
} dk_fmtLine;

/* File header: 5 lines, 139 characters; record dk_FileHeader. */
#define DK_FILE_HEADER_LENGTH 139
#define DK_FILE_HEADER_LINES 5
extern const dk_fmtLine dk_fmtFileHeaderLines[DK_FILE_HEADER_LINES];

/* Document header: 14 lines, 245 characters; record dk_DocHeader. */
#define DK_DOC_HEADER_LENGTH 245
#define DK_DOC_HEADER_LINES 14
extern const dk_fmtLine dk_fmtDocHeaderLines[DK_DOC_HEADER_LINES];

/* Error note: 4 lines of 10, 40 characters; record dk_ErrorNote. */
#define DK_ERROR_NOTE_LENGTH 40
#define DK_ERROR_NOTE_LINES 4
extern const dk_fmtLine dk_fmtErrorNoteLines[DK_ERROR_NOTE_LINES];

/* OCR note: 6 lines, 150 characters; record dk_OcrNote (its `kind` is no line). */
#define DK_OCR_NOTE_LENGTH 150
#define DK_OCR_NOTE_LINES 6
extern const dk_fmtLine dk_fmtOcrNoteLines[DK_OCR_NOTE_LINES];

/* ---- OCR kinds ---------------------------------------------------------------------- */

/* Kinds 0 to 3 are written with the letters "a", "z", "l", "l2". */
#define DK_OCR_KIND_COUNT 4
extern const char *const dk_fmtOcrKindLetters[DK_OCR_KIND_COUNT];

/* The reader's rule for the kind: `rest` is what stands behind "<OCR." in a tag
   ('a' 0, 'z' 1, 'l' 2, or 3 when '2' follows the 'l'; anything else 0). Reads at most two
   characters and stops at a terminator, so any terminated text is safe. */
int32_t dk_fmtOcrKindOfTag(const char *rest);

/* Cuts `text` (terminated) into the lines of `record` at the table's positions and widths.
   Each piece is copied at most `width` characters and stops at the end of the text; nothing
   behind the end of the text is read and the record is not otherwise touched, so a caller who
   zeroed it first gets terminated, possibly shorter or empty, pieces. */
void dk_fmtCutLines(void *record, const dk_fmtLine *lines, int32_t lineCount, const char *text);

#endif /* DK_FORMAT_H */
