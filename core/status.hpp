/* dk_status.h - errors and notifications of Part 1.3: the catalogue, the last code, the hooks. */
#ifndef DK_STATUS_H
#define DK_STATUS_H

#include <stdint.h>

#include "navo.h"

/* The error codes of the catalogue (Part 1.3), by what raises them. */
enum {
    DK_ERR_NONE = 0,         /* nothing went wrong */
    DK_ERR_NOT_NAVO = 1,     /* the first prolog line is not the document type */
    DK_ERR_OPEN = 2,         /* the file cannot be opened */
    DK_ERR_READ = 3,         /* a fixed read or an element text failed, or a header length is wrong */
    DK_ERR_TAG = 4,          /* a tag is missing or is another one */
    DK_ERR_DOCUMENT = 5,     /* a section failed to load */
    DK_ERR_BLOCK = 6,        /* a block the form does not have, or out of order */
    DK_ERR_BLOCK_SIZE = 7,   /* a block text of the wrong length, or a record that cannot be added */
    DK_ERR_ADD_DOCUMENT = 8, /* dk_AddDocument failed */
    DK_ERR_MEMORY = 9,       /* a note list cannot grow */
    DK_ERR_CANCELLED = 10    /* the host's callback ended the load */
};

#define DK_ERROR_CATALOGUE_ROWS 11

typedef struct dk_ErrorEntry {
    int32_t code;
    const char *message; /* CP1250 */
} dk_ErrorEntry;

/* The constant table of Part 1.3, codes 0 to 10, searched row by row. */
extern const dk_ErrorEntry dk_ErrorCatalogue[DK_ERROR_CATALOGUE_ROWS];

/* i_lKodBledu is module-wide and internal; the loaders set it through these. */
void dk_SetErrorCode(int32_t code);
int32_t dk_GetErrorCode(void);

/* The loaders' failure step: sets the code, then calls dk_OnNAVOError with it and returns
   that result (0 for every failure code, so the load ends). */
int32_t dk_RaiseError(int32_t code);

#endif /* DK_STATUS_H */
