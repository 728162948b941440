/* dk_scanner.h - the stream scanner of Part 4.3: characters, fixed reads, tags, texts, sections. */
#ifndef DK_SCANNER_H
#define DK_SCANNER_H

#include <stdint.h>
#include <stdio.h>

#include "navo.h"

/* The exported readers dk_LoadChar, dk_LoadStringbyLen, dk_LoadStringforTag and
   dk_LoadStringtoTerminator are declared in navo.h. */

/* Scans forward to the next section tag ("<TOB..." with ".DP>") or file footer tag
   ("<stopka..." with ".NAVO>") and returns it terminated in `out` (capacity `size`, at
   least 27 for any such tag). Returns 1, or 0 at the end of the input. Internal. */
int32_t dk_LoadNextSection(FILE *stream, char *out, int32_t size);

#endif /* DK_SCANNER_H */
