/* dk_deffile.h - the definition text grammar and its loader (Part 2.1). */
#ifndef DK_DEFFILE_H
#define DK_DEFFILE_H

#include <stdint.h>

#include "navo.h"

/* The loader's line buffer and name buffer; a line holds at most 199 bytes with its LF. */
#define DK_DF_LINE_SIZE 200
#define DK_DF_NAME_SIZE 200

/* The version line's first bytes that are not looked at ("Wersja "). */
#define DK_DF_VERSION_SKIP 7

/* The occurrence mark that makes a block repeating. */
#define DK_DF_REPEATING (-1)

/* Bounds this build puts on what the grammar leaves open (docs/decisions.md). */
#define DK_DF_MAX_WIDTH 65535
#define DK_DF_MAX_RECORD_LENGTH (1 << 24)

/* The definition the document store works with: index 0 of the context's list, or null. */
const dk_dfDefinition *dk_dfStoreDefinition(const dk_Context *ctx);

/* Position of `id` in a form's references or a block's fields, or -1 when the form or block has
   no such name. Unlike the bare position maps, this tells an absent ID from position 0. */
int32_t dk_dfRefPosition(const dk_dfDefinition *definition, const dk_dfForm *form, int32_t tagId);
int32_t dk_dfFieldPosition(const dk_dfBlock *block, int32_t nameId);

#endif /* DK_DEFFILE_H */
