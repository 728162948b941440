/* dk_context.h - the library context of Part 1.1: creation and orderly destruction. */
#ifndef DK_CONTEXT_H
#define DK_CONTEXT_H

#include "navo.h"

/* Releases the file pool: closes every stream still held in it, then its slots and the record. */
void dk_ContextReleasePool(dk_Context *ctx);

#endif /* DK_CONTEXT_H */
