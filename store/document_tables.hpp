/* dk_documents.h - document tables of Part 3.1, and the lookups that the store calls share. */
#ifndef DK_DOCUMENTS_H
#define DK_DOCUMENTS_H

#include <stdint.h>

#include "navo.h"

/* What a lookup of form, document and block tag found. Filled step by step, so that each call
   keeps the order of its Part's tests. */
typedef struct dk_StoreTarget {
    const dk_dfDefinition *definition;  /* definition 0 */
    const dk_dfForm *form;
    dk_DocumentList *list;
    dk_Document *document;
    dk_lfBlock *store;
    const dk_dfBlock *block;
    int32_t repeating;
    int32_t position;                   /* of the block's reference in the form */
} dk_StoreTarget;

/* A form name of definition 0 that has a document list: fills definition, form and list. */
int32_t dk_StoreFindForm(dk_Context *ctx, const char *form, dk_StoreTarget *target);

/* Document `docIndex` of the list found: refuses an index outside 0 .. count - 1. */
int32_t dk_StoreFindDocument(dk_StoreTarget *target, int32_t docIndex);

/* The store of block tag `block` in the document found: refuses a tag the form does not have. */
int32_t dk_StoreFindBlock(dk_Context *ctx, const char *block, dk_StoreTarget *target);

/* The slot index of field `field` in the block found, or -1 for a name the block does not have. */
int32_t dk_StoreFindField(dk_Context *ctx, const char *field, const dk_StoreTarget *target);

namespace navo::store {

/* Releases the file pool of `ctx`: closes every stream still held in it, then its slots and the
   record. The store owns the pool, so the context's teardown calls this. */
void release_file_pool(dk_Context &ctx) noexcept;

}  // namespace navo::store

#endif /* DK_DOCUMENTS_H */
