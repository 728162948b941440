/* dk_docload.h - the document loader of Part 4.5: one section of a NAVO file into a document. */
#ifndef DK_DOCLOAD_H
#define DK_DOCLOAD_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "navo.h"

/* Reads the section whose tag `section` (as dk_LoadNextSection returned it) the stream has just
   passed, through its closing tag, hands the document to the host and removes it again unless
   the host stops the load. Returns 0 (the section failed, its code is set), 1 (delivered and
   removed) or 2 (delivered, the host stopped the load, the document stays). Internal. */
int32_t dk_LoadDocument(dk_Context *ctx, FILE *stream, const char *section);

/* Watches the hooks of a load from outside (tests): every code given to dk_OnNAVOError and every
   dk_OnNAVOBlock call, in order. The hooks themselves do nothing a host could see. Internal. */
typedef struct dk_LoadObserver {
    void (*onError)(void *user, int32_t code);
    void (*onBlock)(void *user, const char *form, int32_t docIndex, const char *block, int32_t recordIndex);
    void *user;
} dk_LoadObserver;

void dk_SetLoadObserver(const dk_LoadObserver *observer);

/* The loaders' failure step: the code is set, the observer sees it, dk_OnNAVOError is called. */
void dk_LoadRaise(int32_t code);


#endif /* DK_DOCLOAD_H */
