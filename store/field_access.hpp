/* dk_fields.h - field access of Part 3.3: dk_SetField, dk_GetField and the record cursor. */
#ifndef DK_FIELDS_H
#define DK_FIELDS_H

#include <stdint.h>

#include "navo.h"

/* Part 3.3, moving the cursor of a repeating block's store to `recordIndex`: saves the old
   record if dirty, reopens the spool file if evicted, then empties the cache. Returns 1, or 0
   with the cursor where it was. */
int32_t dk_lfMoveCursor(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block, int32_t recordIndex);

#endif /* DK_FIELDS_H */
