// store/record_appender.cpp - the loader's records of a repeating block, reaching the spool file in batches.
#include "store/record_appender.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "core/status.hpp"
#include "platform/spool_io.hpp"
#include "store/block_spool.hpp"

namespace navo::store {

// Whether the batch may stand in for the literal adds of `target`'s store: the store must be the
// one batched (else the batch is written first), open, under its last record, filled in full by
// the loader (every slot dirty, no NUL, so the literal save writes each field's full width), and
// its fields must lie side by side (so a record's bytes are its fields in order).
bool RecordAppender::takes(const Target &target) noexcept
{
    dk_lfBlock &store = *target.store;
    if (&store != store_) {
        if (!settle())
            return false;
        store_ = &store;
        block_ = target.block;
        length_ = static_cast<std::size_t>(std::max(target.block->recordLength, 0));
        std::int32_t offset = 0;
        contiguous_ = length_ > 0;
        for (std::int32_t i = 0; i < target.block->fieldCount && contiguous_; i++) {
            contiguous_ = target.block->fields[i].offset == offset && target.block->fields[i].width >= 0;
            offset += target.block->fields[i].width;
        }
        contiguous_ = contiguous_ && static_cast<std::size_t>(offset) == length_;
        room_ = contiguous_ ? std::min(capacity / length_, max_records + 1) : 0;
        room_ = room_ > 0 ? room_ - 1 : 0;
    }
    const Spool &spool = spool_of(store);
    if (!contiguous_ || room_ == 0 || store.file == nullptr || store.path == nullptr || spool.record == nullptr ||
        target.block != block_ || spool.fieldCount != block_->fieldCount ||
        static_cast<std::size_t>(spool.recordLength) != length_ || !store.dirty ||
        store.recordCount == std::numeric_limits<std::int32_t>::max() ||
        store.currentRecord != store.recordCount - 1)
        return false;
    // The batch's last file position must fit a long, as the literal seek's does.
    const std::int64_t end = (std::int64_t{store.recordCount} + 1) * static_cast<std::int64_t>(length_);
    if (end > std::int64_t{std::numeric_limits<long>::max()})
        return false;
    const std::span fields{store.fields, count_of(spool.fieldCount)};
    return std::all_of(fields.begin(), fields.end(), [](const dk_lfField &slot) { return slot.dirty != 0; });
}

bool RecordAppender::add(dk_Context &ctx, const char *form, std::int32_t docIndex, const char *block,
                         const Target &target, std::int32_t &out) noexcept
{
    if (target.store == nullptr || target.block == nullptr || !target.repeating) {
        if (!settle())
            return false;
        return dk_AddBlock(&ctx, form, docIndex, block, &out) != 0;
    }
    if (!takes(target)) {
        if (store_ == target.store && !settle())
            return false;
        if (store_ != target.store)
            return false;  // the batch of another store failed to settle
        return dk_AddBlock(&ctx, form, docIndex, block, &out) != 0;
    }
    dk_lfBlock &store = *store_;
    // The filled record under the cursor, as the literal save would write it: already in the batch
    // when the loader handed it over with filled(), else gathered from the slots.
    const bool prefilled = prefilled_ && prefilledRecord_ == store.currentRecord;
    prefilled_ = false;
    prefilledCount_ += prefilled ? 1 : 0;
    if (!prefilled) {
        char *record = bytes_.data() + pending_ * length_;
        for (std::int32_t i = 0; i < block_->fieldCount; i++) {
            const auto width = static_cast<std::size_t>(block_->fields[i].width);
            std::memcpy(record + block_->fields[i].offset, store.fields[i].text, width);
        }
        // A NUL would end a field's fputs early: that record takes the literal path.
        if (std::memchr(record, '\0', length_) != nullptr) {
            if (!settle())
                return false;
            return dk_AddBlock(&ctx, form, docIndex, block, &out) != 0;
        }
    }
    if (pending_ == 0)
        first_ = store.currentRecord;
    batched_++;
    lines_[pending_++] = i_lNumerLinii;
    // The store as the literal add leaves it: the cursor on the new record, saved. The literal add
    // also blanked the slots; the loader fills every one of them in full before anything else can
    // look (docs/decisions.md), so they keep the old bytes until then.
    store.currentRecord = store.recordCount;
    store.recordCount++;
    forget_record(store);
    for (std::int32_t i = 0; i < block_->fieldCount; i++)
        store.fields[i].dirty = 0;
    store.dirty = 0;
    out = store.currentRecord;
    return pending_ < room_ || write_pending();
}

void RecordAppender::filled(const Target &target, std::string_view text) noexcept
{
    prefilled_ = false;
    if (target.store != store_ || store_ == nullptr || !contiguous_ || text.size() != length_ || pending_ >= room_ ||
        text.find('\0') != std::string_view::npos)
        return;
    std::memcpy(bytes_.data() + pending_ * length_, text.data(), length_);
    prefilled_ = true;
    prefilledRecord_ = store_->currentRecord;
}

bool RecordAppender::settle() noexcept
{
    return pending_ == 0 || write_pending();
}

// The batch's filled records and the blank one under the cursor behind them, in one write.
bool RecordAppender::write_pending() noexcept
{
    dk_lfBlock &store = *store_;
    Spool &spool = spool_of(store);
    prefilled_ = false;
    std::memset(bytes_.data() + pending_ * length_, blank, length_);
    const std::size_t total = (pending_ + 1) * length_;
    const long offset = static_cast<long>(std::int64_t{first_} * static_cast<std::int64_t>(length_));
    const std::size_t written = navo::platform::write_at(store.file, offset, {bytes_.data(), total});
    writes_++;
    spool.position = unknown_position;
    spool.lastAccess = Access::none;
    forget_record(store);
    const std::size_t batch = pending_;
    pending_ = 0;
    if (written == total)
        return true;
    // The literal add of record k wrote record k - 1 over its blank and record k behind the end;
    // the first byte refused lies in record `refused`, so the add that first wrote that record
    // failed (at least the batch's first add: its first record stood on the file already).
    const std::size_t refused = std::max<std::size_t>(written / length_, 1);
    navo::status::set_line(lines_[std::min(refused, batch) - 1]);
    return false;
}

}  // namespace navo::store
