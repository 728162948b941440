/* dk_envelope.h - envelope operations of Part 4.2: prolog, headers and notes of file and document. */
#ifndef DK_ENVELOPE_H
#define DK_ENVELOPE_H

#include <stdint.h>

#include "navo.h"

/* The document `docIndex` of `form`, or null. Refuses what Part 4.2 refuses (unknown form, a
   form without documents, an index at or beyond the count) and what it leaves open: a name the
   dictionary knows that is no form's, and a negative index. */
dk_Document *dk_envFindDocument(dk_Context *ctx, const char *form, int32_t docIndex);

#endif /* DK_ENVELOPE_H */
