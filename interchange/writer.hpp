/* dk_writer.h - the file writer of Part 4.6: envelope records and documents out to a NAVO file. */
#ifndef DK_WRITER_H
#define DK_WRITER_H

#include <stdint.h>
#include <stdio.h>

#include "navo.h"

/* Writes `text` and a line feed. The text ends at its terminator but never reaches past `limit`
   bytes, the room left to the end of the record it lies in: an unterminated text runs on into
   the texts behind it (Part 4.2) and stops at the record's end. Returns 1, or 0 on a failed write. */
int32_t dk_wrText(FILE *stream, const char *text, size_t limit);

#endif /* DK_WRITER_H */
