/* dk_packed.h - packed records of Part 3.5: whole documents and records as one flat buffer. */
#ifndef DK_PACKED_H
#define DK_PACKED_H

#include <stdint.h>

#include "navo.h"

/* Bytes of one block in the packed form: a slot of width + 1 per field, its NUL included. */
int64_t dk_pkBlockLength(const dk_dfBlock *block);

#endif /* DK_PACKED_H */
