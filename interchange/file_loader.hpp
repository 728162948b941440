/* dk_fileload.h - the file loader of Part 4.4: dk_LoadNAVO, declared in navo.h. */
#ifndef DK_FILELOAD_H
#define DK_FILELOAD_H

#include "navo.h"

/* The capacity of the file pool that a load gives its new tables. */
#define DK_LOAD_POOL_CAPACITY 10

#endif /* DK_FILELOAD_H */
