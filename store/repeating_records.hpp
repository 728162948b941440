/* dk_records.h - repeating blocks of Part 3.4: adding, removing and counting records. */
#ifndef DK_RECORDS_H
#define DK_RECORDS_H

#include "navo.h"

/* The calls of this Part are all exported through navo.h: dk_AddBlock, dk_RemoveBlock and
   dk_GetBlockCount. This header exists so the module keeps its .c/.h pair. */

#endif /* DK_RECORDS_H */
