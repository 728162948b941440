/* dk_spool.h - block stores of Part 3.2: the field cache, the spool file and the file pool. */
#ifndef DK_SPOOL_H
#define DK_SPOOL_H

#include <stdint.h>

#include "navo.h"

/* Every store the library allocates is a dk_lfSpool: the public dk_lfBlock first, then what
   only the store modules see. A dk_lfBlock pointer of the library can therefore be widened. */
typedef struct dk_lfSpool {
    dk_lfBlock store;
    int32_t fieldCount;      /* entries of store.fields as allocated, so removal never needs the definition */
    int32_t recordLength;    /* of the block that built the store */
    long position;           /* where the stream stands, or DK_LF_POSITION_UNKNOWN */
    int32_t lastAccess;      /* DK_LF_ACCESS_*: what the stream did since the last flush or seek */
    int32_t bufferedBytes;   /* bytes of the cursor's record held in `record`, or DK_LF_NOT_BUFFERED */
    char *record;            /* recordLength + 1 bytes in the same allocation; repeating blocks only */
    int32_t fieldHint;       /* position of the last field found by name: a guess, always verified */
    int32_t blockHint;       /* on a document's first store: position of the last block found by tag */
} dk_lfSpool;

#define DK_LF_POSITION_UNKNOWN (-1L)
#define DK_LF_NOT_BUFFERED (-1)
#define DK_LF_ACCESS_NONE 0
#define DK_LF_ACCESS_READ 1
#define DK_LF_ACCESS_WRITE 2

/* The hidden part of a store made by dk_lfBlockCreate. */
dk_lfSpool *dk_lfSpoolOf(dk_lfBlock *store);

/* Part 3.2: appends a blank store for `block` to `document`; a repeating one gets its spool file
   with blank record 0 on it. Returns 1, or 0 with the store left in the document as far as it got. */
int32_t dk_lfBlockCreate(dk_Document *document, const dk_dfBlock *block, int32_t repeating);

/* Part 3.2: takes a pool slot for `store` (evicting the last slot when full) and opens its spool
   file, re-creating it when it has gone. Returns 1, or 0 with `file` null and no slot taken. */
int32_t dk_lfBlockOpen(dk_Document *document, dk_lfBlock *store);

/* Part 3.1, steps 2 to 4 of a removal: releases the fields, closes and deletes the spool file,
   takes the store out of `pool` and releases it. Copes with a store that failed halfway. */
void dk_lfBlockDestroy(dk_lfFilePool *pool, dk_lfBlock *store);

/* dk_lfBlockSave without the final flush, so that consecutive saves reach the file in one write;
   dk_lfBlockFlush must follow before the library call returns. */
int32_t dk_lfBlockWrite(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block);
int32_t dk_lfBlockFlush(dk_lfBlock *store);

/* Part 3.3, step 9: reads field `fieldIndex` of the cursor's record from the open spool file with
   the semantics of fgets (stops after a line feed, fails at end of file) and sets its `loaded`. */
int32_t dk_lfBlockReadField(dk_lfBlock *store, const dk_dfBlock *block, int32_t fieldIndex);

/* Part 3.4, step 9, one record: moves record `record` + 1 to `record` through `buffer` of
   record length + 1 bytes, as fgets and fputs would carry it. Returns 1, or 0. */
int32_t dk_lfBlockShiftRecord(dk_lfBlock *store, int32_t record, char *buffer);

/* Drops the hidden copy of the cursor's record: the cursor moved or the file changed. */
void dk_lfBlockForget(dk_lfBlock *store);

/* Number of field slots of a store. */
int32_t dk_lfBlockFieldCount(dk_lfBlock *store);

#endif /* DK_SPOOL_H */
