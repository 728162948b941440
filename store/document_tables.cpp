// store/document_tables.cpp - document tables: per-form document lists, their file pool, and the store's lookups.
#include "store/document_tables.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <limits>
#include <span>

#include "core/allocator.hpp"
#include "core/context.hpp"
#include "definitions/definition_loader.hpp"
#include "store/block_spool.hpp"

namespace navo::store {

namespace {

// A guessed dictionary ID is taken without the lookup when the string of that ID is byte for
// byte `text` (speed only). Then dk_sdGetID would give exactly that ID: equal bytes hash to the
// same bucket, the ID stands in the bucket of its string, and no other string of a bucket compares
// equal under dk_sdStrCmp. The check reads the dictionary as it is now, so no cache can go stale;
// anything else (another case, a freed slot, a changed dictionary) takes the lookup.
bool guess_id(const dk_sdDictionary *dictionary, std::int32_t id, const char *text, std::int32_t &out) noexcept
{
    if (dictionary == nullptr || dictionary->buckets == nullptr || dictionary->bucketCount == 0 ||
        !names_id(*dictionary, id, text))
        return false;
    out = id;
    return true;
}

// The tag ID of the block last found in this document, guessed from the hint on its first store.
bool guess_tag(const dk_sdDictionary *dictionary, const char *block, const Target &target, std::int32_t &out) noexcept
{
    if (target.document->blockCount < 1 || target.document->blocks[0] == nullptr)
        return false;
    const std::int32_t hint = spool_of(*target.document->blocks[0]).blockHint;
    if (hint < 0 || hint >= target.form->refCount)
        return false;
    const dk_dfBlockRef &ref = target.form->refs[hint];
    if (ref.blockIndex < 0 || ref.blockIndex >= target.definition->blockCount)
        return false;
    return guess_id(dictionary, target.definition->blocks[ref.blockIndex].tagId, block, out);
}

bool holds_documents(const dk_Context &ctx) noexcept
{
    if (ctx.documentLists == nullptr)
        return false;
    const std::span lists{ctx.documentLists, count_of(ctx.formCount)};
    return std::any_of(lists.begin(), lists.end(), [](const dk_DocumentList &list) { return list.count > 0; });
}

// The removal of a document, for a list and an index already tested: its stores, its arrays, its
// place in the list.
void remove_document_at(dk_DocumentList &list, std::int32_t docIndex) noexcept
{
    layout_changed();
    dk_Document &document = list.documents[docIndex];
    for (dk_lfBlock *store : std::span{document.blocks, count_of(document.blockCount)})
        destroy_store(document.filePool, store);
    memory::release(document.blocks);
    memory::release(document.footer.errorNotes);
    memory::release(document.footer.ocrNotes);
    if (list.count == 1) {
        memory::release(list.documents);
        list.documents = nullptr;
        list.count = 0;
        return;
    }
    std::copy(list.documents + docIndex + 1, list.documents + list.count, list.documents + docIndex);
    list.count--;
    // A shrink that fails keeps the larger array; the count is what counts.
    static_cast<void>(memory::resize_array(list.documents, static_cast<std::size_t>(list.count)));
}

// dk_RemoveDocuments for a list already found: removes from the front, count times.
void remove_documents_of(dk_DocumentList &list) noexcept
{
    for (std::int32_t remaining = list.count; remaining > 0 && list.count > 0; remaining--)
        remove_document_at(list, 0);
}

// A document being added: removed again, with whatever of its stores exists, unless it is kept.
class PendingDocument {
public:
    PendingDocument(dk_DocumentList &list, std::int32_t index) noexcept : list_(list), index_(index) {}
    PendingDocument(const PendingDocument &) = delete;
    PendingDocument &operator=(const PendingDocument &) = delete;
    ~PendingDocument()
    {
        if (!kept_)
            remove_document_at(list_, index_);
    }
    void keep() noexcept { kept_ = true; }

private:
    dk_DocumentList &list_;
    std::int32_t index_;
    bool kept_ = false;
};

}  // namespace

bool find_form(dk_Context *ctx, const char *form, Target &target) noexcept
{
    target = Target{};
    if (ctx == nullptr || form == nullptr || ctx->documentLists == nullptr)
        return false;
    // Hosts and the writer name the same form call after call; the guess spares the lookup.
    std::int32_t id = -1;
    if (!guess_id(ctx->dictionary, formHint.load(std::memory_order_relaxed), form, id))
        id = dk_1fGetIDFormularza(ctx, form);
    // Block tags and field names live in the same dictionary; their IDs lie past the forms.
    if (id < 0 || id >= ctx->formCount)
        return false;
    target.definition = navo::definitions::store_definition(ctx);
    if (target.definition != nullptr && id < target.definition->formCount)
        target.form = &target.definition->forms[id];
    target.list = &ctx->documentLists[id];
    formHint.store(id, std::memory_order_relaxed);
    return true;
}

bool find_document(Target &target, std::int32_t docIndex) noexcept
{
    if (target.list == nullptr || docIndex < 0 || docIndex >= target.list->count)
        return false;
    target.document = &target.list->documents[docIndex];
    return true;
}

bool find_block(dk_Context &ctx, const char *block, Target &target) noexcept
{
    std::int32_t tagId = 0;
    if (block == nullptr || target.form == nullptr || target.document == nullptr ||
        (!guess_tag(ctx.dictionary, block, target, tagId) && !dk_sdGetID(ctx.dictionary, block, &tagId)))
        return false;
    const std::int32_t position = navo::definitions::ref_position(target.definition, target.form, tagId);
    if (position < 0 || position >= target.document->blockCount)
        return false;
    if (target.document->blocks[0] != nullptr)
        spool_of(*target.document->blocks[0]).blockHint = position;
    const dk_dfBlockRef &ref = target.form->refs[position];
    target.store = target.document->blocks[position];
    target.block = &target.definition->blocks[ref.blockIndex];
    target.repeating = ref.occurrence == navo::definitions::repeating;
    target.position = position;
    return target.store != nullptr;
}

std::optional<std::int32_t> find_field(dk_Context &ctx, const char *field, const Target &target) noexcept
{
    if (field == nullptr || target.block == nullptr)
        return std::nullopt;
    const dk_dfBlock &block = *target.block;
    Spool &spool = spool_of(*target.store);
    std::int32_t nameId = 0;
    bool guessed = false;
    // The guesses: the field after the one last found in this store (fields are mostly read in
    // order), then that one again.
    if (const std::int32_t hint = spool.fieldHint; hint >= 0 && hint < block.fieldCount) {
        const std::int32_t next = hint + 1 < block.fieldCount ? hint + 1 : 0;
        guessed = guess_id(ctx.dictionary, block.fields[next].nameId, field, nameId) ||
                  guess_id(ctx.dictionary, block.fields[hint].nameId, field, nameId);
    }
    if (!guessed && !dk_sdGetID(ctx.dictionary, field, &nameId))
        return std::nullopt;
    const std::int32_t position = navo::definitions::field_position(&block, nameId);
    if (position < 0 || position >= spool.fieldCount)
        return std::nullopt;
    spool.fieldHint = position;
    return position;
}

void release_file_pool(dk_Context &ctx) noexcept
{
    dk_lfFilePool *pool = ctx.filePool;
    if (pool == nullptr)
        return;
    for (dk_lfBlock *store : std::span{pool->blocks, count_of(pool->count)}) {
        if (store != nullptr && store->file != nullptr) {
            std::fclose(store->file);
            store->file = nullptr;
        }
    }
    memory::release(pool->blocks);
    memory::release(pool);
    ctx.filePool = nullptr;
}

}  // namespace navo::store

using navo::store::Target;

extern "C" {

NAVO_API int32_t NAVO_CALL dk_InitDocuments(dk_Context *ctx, int32_t size) noexcept
{
    namespace memory = navo::memory;
    const dk_dfDefinition *definition = navo::definitions::store_definition(ctx);
    // Eviction takes slot capacity - 1, so a pool needs at least one slot.
    if (definition == nullptr || size < 1)
        return 0;
    navo::layout_changed();
    // Tables without documents are released rather than lost: a load calls this once per file.
    // Tables that still hold documents are left as they are, out of reach.
    if (!navo::store::holds_documents(*ctx)) {
        memory::release(ctx->documentLists);
        ctx->documentLists = nullptr;
        ctx->formCount = 0;
        navo::store::release_file_pool(*ctx);
    }
    memory::Owned<dk_lfBlock *> entries(memory::make_zeroed<dk_lfBlock *>(static_cast<std::size_t>(size)));
    if (!entries)
        return 0;
    dk_lfFilePool *pool = memory::make_zeroed<dk_lfFilePool>();
    if (pool == nullptr)
        return 0;
    pool->capacity = size;
    pool->count = 0;
    pool->blocks = entries.take();
    ctx->filePool = pool;
    ctx->documentLists = nullptr;
    ctx->formCount = 0;
    if (definition->formCount > 0) {
        ctx->documentLists = memory::make_zeroed<dk_DocumentList>(static_cast<std::size_t>(definition->formCount));
        if (ctx->documentLists == nullptr)
            return 0;
    }
    ctx->formCount = definition->formCount;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_1fGetIDFormularza(dk_Context *ctx, const char *form) noexcept
{
    int32_t id = -1;
    if (ctx == nullptr || form == nullptr || !dk_sdGetID(ctx->dictionary, form, &id))
        return -1;
    return id;
}

NAVO_API int32_t NAVO_CALL dk_AddDocument(dk_Context *ctx, const char *form, int32_t *out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = -1;
    Target target;
    if (!navo::store::find_form(ctx, form, target) || target.form == nullptr)
        return 0;
    navo::layout_changed();
    dk_DocumentList &list = *target.list;
    if (list.count == std::numeric_limits<int32_t>::max())
        return 0;
    if (!navo::memory::resize_array(list.documents, static_cast<std::size_t>(list.count) + 1))
        return 0;
    const int32_t index = list.count++;
    dk_Document &document = list.documents[index];
    document = dk_Document{};
    document.filePool = ctx->filePool;
    navo::store::PendingDocument pending(list, index);
    for (const dk_dfBlockRef &ref : std::span{target.form->refs, navo::store::count_of(target.form->refCount)}) {
        if (!navo::store::create_store(document, target.definition->blocks[ref.blockIndex],
                                       ref.occurrence == navo::definitions::repeating))
            return 0;
    }
    pending.keep();
    *out = index;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveDocument(dk_Context *ctx, const char *form, int32_t docIndex) noexcept
{
    Target target;
    if (!navo::store::find_form(ctx, form, target) || !navo::store::find_document(target, docIndex))
        return 0;
    navo::store::remove_document_at(*target.list, docIndex);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveDocuments(dk_Context *ctx, const char *form) noexcept
{
    Target target;
    if (!navo::store::find_form(ctx, form, target))
        return 0;
    navo::store::remove_documents_of(*target.list);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_RemoveAllDocuments(dk_Context *ctx) noexcept
{
    if (ctx == nullptr || ctx->formCount == 0 || ctx->documentLists == nullptr)
        return 0;
    // Form i is dictionary slot i, so the list is reached by its index directly: the same list a
    // lookup by name reaches, without a lookup that could miss.
    for (dk_DocumentList &list : std::span{ctx->documentLists, navo::store::count_of(ctx->formCount)})
        navo::store::remove_documents_of(list);
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetDocCount(dk_Context *ctx, const char *form, int32_t *out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = -1;
    Target target;
    if (!navo::store::find_form(ctx, form, target))
        return 0;
    *out = target.list->count;
    return 1;
}

}  // extern "C"
