// store/record_appender.hpp - the loader's records of a repeating block, reaching the spool file in batches.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "navo.h"
#include "store/document_tables.hpp"

namespace navo::store {

// dk_AddBlock for a loader that fills every record it adds before the next add. Each literal add
// writes the filled record under the cursor and the blank new one and flushes; nobody can look at
// the spool file until the loader hands the document over, so the appender keeps those bytes and
// writes them in one positioned write per batch. After settle() the file and the store are as the
// literal adds left them: every record but the last filled, the last blank on the file and filled
// in the cache (docs/decisions.md, store/record_appender).
class RecordAppender {
public:
    RecordAppender() noexcept = default;
    RecordAppender(const RecordAppender &) = delete;
    RecordAppender &operator=(const RecordAppender &) = delete;

    // dk_AddBlock(ctx, form, docIndex, block, out) for `target` as find_block found it for that
    // tag, for a caller that fills every slot of the new record in full right after it (the new
    // record's slots are not blanked). False where that call would fail, or where the pending
    // records could not be written; then i_lNumerLinii is the line of the refused add.
    bool add(dk_Context &ctx, const char *form, std::int32_t docIndex, const char *block, const Target &target,
             std::int32_t &out) noexcept;

    // Tells the appender that the loader has just filled the record under the cursor of
    // `target`'s store with `text` (its fields side by side, no NUL among them): when that store
    // is the one batched, the bytes go to the batch now, in one copy, and the next add takes them
    // instead of gathering the record from its slots. Nothing but the loader runs in between.
    void filled(const Target &target, std::string_view text) noexcept;

    // What the appender did so far: positioned writes, records added through the batch, and of
    // those the ones handed over by filled() (for the tests of these paths).
    std::size_t writes() const noexcept { return writes_; }
    std::size_t batched() const noexcept { return batched_; }
    std::size_t prefilled() const noexcept { return prefilledCount_; }

    // Writes what is pending. False when the file took less; then i_lNumerLinii is the line of the
    // first add that the literal path would have seen fail.
    [[nodiscard]] bool settle() noexcept;

private:
    bool takes(const Target &target) noexcept;
    bool write_pending() noexcept;

    // Up to this many bytes of records are held: a few dozen records of the usual widths, on the
    // loader's stack, so batching costs no allocation and no failure point of its own.
    static constexpr std::size_t capacity = 16 * 1024;
    static constexpr std::size_t max_records = 64;

    dk_lfBlock *store_ = nullptr;
    const dk_dfBlock *block_ = nullptr;
    bool contiguous_ = false;    // the block's fields tile its record without gaps
    std::size_t length_ = 0;     // record length of store_
    std::size_t room_ = 0;       // filled records a batch holds, with room for the blank one behind
    std::int32_t first_ = 0;     // record at the start of the batch
    std::size_t pending_ = 0;    // filled records in the batch
    bool prefilled_ = false;     // the batch holds the record under the cursor at pending_
    std::size_t writes_ = 0;
    std::size_t batched_ = 0;
    std::size_t prefilledCount_ = 0;
    std::int32_t prefilledRecord_ = 0;
    std::array<std::int32_t, max_records> lines_{};
    std::array<char, capacity> bytes_{};
};

}  // namespace navo::store
