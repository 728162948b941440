// core/context.hpp - the library context: creation and orderly destruction.
#pragma once

#include "navo.h"

/* Releases the file pool: closes every stream still held in it, then its slots and the record. */
void dk_ContextReleasePool(dk_Context *ctx);
