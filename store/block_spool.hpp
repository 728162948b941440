// store/block_spool.hpp - block stores: the field cache, the spool file behind a repeating block, the file pool.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cstdint>
#include <span>
#include <type_traits>

#include "navo.h"

namespace navo::store {

// An element count of the records (int32_t) as a size for spans and loops; below zero is none.
inline constexpr std::size_t count_of(std::int32_t count) noexcept
{
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

// A field slot that holds no text yet is filled with blanks up to its width.
inline constexpr char blank = ' ';

// What the stream of a store did since the last flush or seek: C wants a positioning call
// between a read and a write, so a change of direction always seeks.
enum class Access : std::int32_t { none, read, write };

inline constexpr long unknown_position = -1;  // the stream stands where nobody knows
inline constexpr std::int32_t not_buffered = -1;

// Every store the library allocates is a Spool: the public dk_lfBlock first, then what only the
// store modules see. A dk_lfBlock pointer of the library can therefore be widened to its Spool.
struct Spool {
    dk_lfBlock store;
    std::int32_t fieldCount;    // entries of store.fields as allocated, so removal never needs the definition
    std::int32_t recordLength;  // of the block that built the store
    long position;              // where the stream stands, or unknown_position
    Access lastAccess;
    std::int32_t bufferedBytes;  // bytes of the cursor's record held in `record`, or not_buffered
    char *record;                // recordLength + 1 bytes in the same allocation; repeating blocks only
    bool recordWhole;            // the buffered record is recordLength bytes with no LF and no NUL
    std::int32_t fieldHint;      // position of the last field found by name: a guess, always verified
    std::int32_t blockHint;      // on a document's first store: position of the last block found by tag
    // On a document's first store: where guess_field_place last found a block of this document,
    // valid while the layout generation is `placeGeneration` (0: none) and the context's
    // definition is `placeDefinition` (store/document_tables).
    std::uint64_t placeGeneration;
    const dk_dfDefinition *placeDefinition;
    const dk_dfForm *placeForm;
    const dk_dfBlock *placeBlock;
    std::int32_t placePosition;
    bool placeRepeating;
};
static_assert(std::is_standard_layout_v<Spool> && std::is_trivially_copyable_v<Spool>,
              "a Spool must stay pointer-interconvertible with its first member");

// The hidden part of a store made by create_store.
inline Spool &spool_of(dk_lfBlock &store) noexcept
{
    // The dk_lfBlock is the first member of a standard-layout Spool, and only the library allocates stores.
    return *reinterpret_cast<Spool *>(&store);
}

// Number of field slots of a store.
inline std::int32_t field_count(dk_lfBlock &store) noexcept
{
    return spool_of(store).fieldCount;
}

// Drops the hidden copy of the cursor's record: the cursor moved or the file changed.
inline void forget_record(dk_lfBlock &store) noexcept
{
    spool_of(store).bufferedBytes = not_buffered;
}

// Appends a blank store for `block` to `document`; a repeating one gets its spool file with blank
// record 0 on it. False leaves the store in the document as far as it got, for the document's
// removal to release.
bool create_store(dk_Document &document, const dk_dfBlock &block, bool repeating) noexcept;

// Takes a pool slot for `store` (evicting the last slot when full) and opens its spool file,
// re-creating it when it has gone. False leaves `file` null and takes no slot.
bool open_store(dk_Document &document, dk_lfBlock &store) noexcept;

// Releases the fields, closes and deletes the spool file, takes the store out of `pool` and
// releases it. Copes with a store that failed halfway, and with null.
void destroy_store(dk_lfFilePool *pool, dk_lfBlock *store) noexcept;

// What write does with the `dirty` of each field it writes: clears it, or keeps it for the caller
// to clear once a flush has put the bytes in the file.
enum class Marks { clear, keep };

// dk_lfBlockSave without the final flush, so that consecutive saves reach the file in one write;
// flush must follow before the library call returns. Refuses null arguments.
bool write(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block, Marks marks = Marks::clear) noexcept;
bool flush(dk_lfBlock *store) noexcept;
// write, then flush whatever write did: dk_lfBlockSave.
bool save(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) noexcept;

// Reads field `fieldIndex` of the cursor's record from the open spool file as fgets would (stops
// after a line feed, fails at the end of the file) and sets its `loaded`.
bool read_field(dk_lfBlock &store, const dk_dfBlock &block, std::int32_t fieldIndex) noexcept;

// Moves record `record` + 1 to `record` through `buffer` of record length + 1 bytes, as fgets
// and fputs would carry it.
bool shift_record(dk_lfBlock &store, std::int32_t record, std::span<char> buffer) noexcept;

// What read_field does for a field of a record already buffered whole (no LF, no NUL, every
// byte there): the field's bytes as they stand, taken inline. False, with nothing changed, for
// anything else; read_field then decides.
inline bool take_whole_field(dk_lfBlock &store, const dk_dfBlock &block, dk_lfField &slot, const dk_dfField &field,
                             std::size_t *taken = nullptr) noexcept
{
    const Spool &spool = spool_of(store);
    if (store.file == nullptr || spool.record == nullptr || spool.bufferedBytes == not_buffered || !spool.recordWhole ||
        block.fieldCount != spool.fieldCount || block.recordLength != spool.recordLength ||
        field.offset >= spool.bufferedBytes)
        return false;
    const auto length = static_cast<std::size_t>(std::min(spool.bufferedBytes - field.offset, field.width));
    std::memcpy(slot.text, spool.record + field.offset, length);
    slot.text[length] = '\0';
    slot.loaded = 1;
    if (taken != nullptr)
        *taken = length;  // and no NUL before it
    return true;
}


}  // namespace navo::store
