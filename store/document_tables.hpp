// store/document_tables.hpp - document tables: per-form document lists, their file pool, and the lookups of the store.
#pragma once

#include <cstdint>
#include <optional>

#include "navo.h"

namespace navo::store {

// What a lookup of form, document and block tag found. Filled step by step, so that each call
// keeps the order of its tests.
struct Target {
    const dk_dfDefinition *definition = nullptr;  // definition 0
    const dk_dfForm *form = nullptr;
    dk_DocumentList *list = nullptr;
    dk_Document *document = nullptr;
    dk_lfBlock *store = nullptr;
    const dk_dfBlock *block = nullptr;
    bool repeating = false;
    std::int32_t position = 0;  // of the block's reference in the form
};

// A form name of definition 0 that has a document list: fills definition, form and list.
bool find_form(dk_Context *ctx, const char *form, Target &target) noexcept;

// Document `docIndex` of the list found: refuses an index outside 0 .. count - 1.
bool find_document(Target &target, std::int32_t docIndex) noexcept;

// The store of block tag `block` in the document found: refuses a tag the form does not have.
bool find_block(dk_Context &ctx, const char *block, Target &target) noexcept;

// The slot index of field `field` in the block found, or nothing for a name the block does not have.
std::optional<std::int32_t> find_field(dk_Context &ctx, const char *field, const Target &target) noexcept;

// Releases the file pool of `ctx`: closes every stream still held in it, then its slots and the
// record. The store owns the pool, so the context's teardown calls this.
void release_file_pool(dk_Context &ctx) noexcept;

}  // namespace navo::store
