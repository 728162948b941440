// store/document_tables.hpp - document tables: per-form document lists, their file pool, and the lookups of the store.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <optional>

#include "core/context.hpp"
#include "definitions/definition_loader.hpp"
#include "navo.h"
#include "store/block_spool.hpp"

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

// The form found last, by any thread on any context: a guess, verified like the others, so a
// hint left by another context, another thread or a changed dictionary is only a failed guess.
// Relaxed atomic: threads on their own contexts may race on it without harm.
inline std::atomic<std::int32_t> formHint{-1};

// A form name of definition 0 that has a document list: fills definition, form and list.
bool find_form(dk_Context *ctx, const char *form, Target &target) noexcept;

// Document `docIndex` of the list found: refuses an index outside 0 .. count - 1.
bool find_document(Target &target, std::int32_t docIndex) noexcept;

// The store of block tag `block` in the document found: refuses a tag the form does not have.
bool find_block(dk_Context &ctx, const char *block, Target &target) noexcept;

// The slot index of field `field` in the block found, or nothing for a name the block does not have.
std::optional<std::int32_t> find_field(dk_Context &ctx, const char *field, const Target &target) noexcept;

// What find_form, find_document and find_block with `recordIndex` in range, then find_field,
// give together, taken in one go when every guess those lookups would try first holds: the form
// found last, the block found last in this document, the field after the last one found in this
// store or that field again. False, with nothing changed, for anything else; the caller then
// takes the lookups one by one, which give the same answer where both give one.
// Whether dictionary string `id` is `text`, byte for byte (the test of guess_id).
[[gnu::always_inline]] inline bool names_id(const dk_sdDictionary &dictionary, std::int32_t id,
                                            const char *text) noexcept
{
    return id >= 0 && id < dictionary.count && dictionary.strings[id] != nullptr &&
           std::strcmp(dictionary.strings[id], text) == 0;
}

// Whether field `at` of `block` is named `field` and is the position the block's map gives for
// that name, which is what field_position would answer.
[[gnu::always_inline]] inline bool is_field_at(const dk_sdDictionary &dictionary, const dk_dfBlock &block,
                                               const std::int32_t *byName, std::int32_t at, const char *field) noexcept
{
    const std::int32_t id = block.fields[at].nameId;
    return names_id(dictionary, id, field) && byName != nullptr && id < navo::definitions::map_entries(byName) &&
           byName[id] == at;
}

// Inline: field reads and writes take it on every call.
[[gnu::always_inline]] inline bool guess_field_place(dk_Context &ctx, const char *form, std::int32_t docIndex, const char *block,
                       std::int32_t recordIndex, const char *field, Target &target, std::int32_t &position) noexcept
{
    // The tests of guess_id, with the dictionary's own taken once for the three names.
    const dk_sdDictionary *dictionary = ctx.dictionary;
    if (form == nullptr || block == nullptr || field == nullptr || ctx.documentLists == nullptr ||
        dictionary == nullptr || dictionary->buckets == nullptr || dictionary->bucketCount == 0)
        return false;
    const auto names = [dictionary](std::int32_t id, const char *text) noexcept {
        return names_id(*dictionary, id, text);
    };
    const std::int32_t formId = formHint.load(std::memory_order_relaxed);
    if (formId < 0 || formId >= ctx.formCount || !names(formId, form))
        return false;
    dk_DocumentList &list = ctx.documentLists[formId];
    if (docIndex < 0 || docIndex >= list.count)
        return false;
    dk_Document &document = list.documents[docIndex];
    if (document.blockCount < 1 || document.blocks[0] == nullptr)
        return false;
    Spool &first = spool_of(*document.blocks[0]);
    const dk_dfDefinition *definition = navo::definitions::store_definition(&ctx);
    // The memo of the block found last in this document: its position, form and block definition
    // were tested against this definition and these tables when it was taken, and nothing has
    // changed their shape since. The name is tested now, against the dictionary as it is.
    if (first.placeGeneration != navo::layout_generation() || first.placeDefinition != definition ||
        definition == nullptr || !names(first.placeBlock->tagId, block)) {
        // Without it, the guess of find_block, tested in full.
        if (definition == nullptr || formId >= definition->formCount)
            return false;
        const dk_dfForm &formDefinition = definition->forms[formId];
        const std::int32_t hint = first.blockHint;
        if (hint < 0 || hint >= formDefinition.refCount || hint >= document.blockCount)
            return false;
        const dk_dfBlockRef &ref = formDefinition.refs[hint];
        if (ref.blockIndex < 0 || ref.blockIndex >= definition->blockCount)
            return false;
        const dk_dfBlock &guessed = definition->blocks[ref.blockIndex];
        if (!names(guessed.tagId, block) || navo::definitions::ref_position(definition, &formDefinition, guessed.tagId) != hint ||
            document.blocks[hint] == nullptr)
            return false;
        first.placeGeneration = navo::layout_generation();
        first.placeDefinition = definition;
        first.placeForm = &formDefinition;
        first.placeBlock = &guessed;
        first.placePosition = hint;
        first.placeRepeating = ref.occurrence == navo::definitions::repeating;
    }
    const dk_dfBlock &blockDefinition = *first.placeBlock;
    dk_lfBlock *store = document.blocks[first.placePosition];
    if (recordIndex < 0 || recordIndex >= store->recordCount)
        return false;
    Spool &spool = spool_of(*store);
    const std::int32_t hint = spool.fieldHint;
    if (hint < 0 || hint >= blockDefinition.fieldCount)
        return false;
    const std::int32_t next = hint + 1 < blockDefinition.fieldCount ? hint + 1 : 0;
    // A field guessed by position is taken when its name is `field` and the block's map gives
    // that position for the name, which is what field_position would answer.
    const std::int32_t *byName = blockDefinition.positionByName;
    const std::int32_t fieldPosition = is_field_at(*dictionary, blockDefinition, byName, next, field)   ? next
                                       : is_field_at(*dictionary, blockDefinition, byName, hint, field) ? hint
                                                                                                        : -1;
    if (fieldPosition < 0 || fieldPosition >= spool.fieldCount)
        return false;
    formHint.store(formId, std::memory_order_relaxed);
    first.blockHint = first.placePosition;
    spool.fieldHint = fieldPosition;
    target = Target{definition, first.placeForm, &list, &document, store, &blockDefinition,
                    first.placeRepeating, first.placePosition};
    position = fieldPosition;
    return true;
}

// Releases the file pool of `ctx`: closes every stream still held in it, then its slots and the
// record. The store owns the pool, so the context's teardown calls this.
void release_file_pool(dk_Context &ctx) noexcept;

}  // namespace navo::store
