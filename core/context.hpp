/* dk_context.h - the library context of Part 1.1: creation and orderly destruction. */
#ifndef DK_CONTEXT_H
#define DK_CONTEXT_H

#include "navo.h"

#endif /* DK_CONTEXT_H */
