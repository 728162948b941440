// store/block_spool.cpp - block stores: creation, the file pool, saving to and reading from the spool file.
#include "store/block_spool.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "core/allocator.hpp"
#include "core/context.hpp"
#include "platform/temp_file.hpp"

namespace navo::store {

namespace {

// The byte position of `record` × `length` + `extra`, or nothing when a long cannot hold it.
std::optional<long> file_position(std::int32_t record, std::int32_t length, std::int32_t extra) noexcept
{
    const std::int64_t position = std::int64_t{record} * length + extra;
    if (position < 0 || position > std::int64_t{std::numeric_limits<long>::max()})
        return std::nullopt;
    return static_cast<long>(position);
}

// Seeks only when the stream stands elsewhere or when C demands a positioning call between
// reading and writing, so stdio's buffer batches the bytes of whole records instead of one or
// two system calls per field.
bool seek(Spool &spool, std::optional<long> target, Access access) noexcept
{
    if (!target)
        return false;
    if (spool.position == *target && (spool.lastAccess == Access::none || spool.lastAccess == access))
        return true;
    if (std::fseek(spool.store.file, *target, SEEK_SET) != 0) {
        spool.position = unknown_position;
        return false;
    }
    spool.position = *target;
    spool.lastAccess = Access::none;
    return true;
}

// Closes the stream of an evicted store; everything else of the store survives.
void close_stream(dk_lfBlock &store) noexcept
{
    Spool &spool = spool_of(store);
    if (store.file != nullptr)
        std::fclose(store.file);
    store.file = nullptr;
    spool.position = unknown_position;
    spool.lastAccess = Access::none;
    spool.bufferedBytes = not_buffered;
}

// Through the platform, which refuses a link in the file's place (docs/decisions.md).
std::FILE *open_spool_file(const char *path) noexcept
{
    if (std::FILE *file = navo::platform::open_temp_file(path).release())
        return file;
    // The file has gone missing: make it anew, empty, and open that. Not fopen "w", which would
    // give the umask's permissions and follow a link put in its place; the platform makes it
    // owner-only and only where nothing stands (docs/decisions.md).
    if (!navo::platform::recreate_temp_file(path))
        return nullptr;
    return navo::platform::open_temp_file(path).release();
}

// A spool file just made, that nobody else knows yet: it goes again unless a store keeps it.
class NewSpoolFile {
public:
    explicit NewSpoolFile(const char *path) noexcept : path_(path) {}
    NewSpoolFile(const NewSpoolFile &) = delete;
    NewSpoolFile &operator=(const NewSpoolFile &) = delete;
    ~NewSpoolFile()
    {
        if (path_ != nullptr)
            std::remove(path_);
    }
    void keep() noexcept { path_ = nullptr; }

private:
    const char *path_;
};

// A failed save keeps the remaining changes: the store is dirty again while a slot still is.
bool save_failed(dk_lfBlock &store) noexcept
{
    const std::span fields{store.fields, count_of(field_count(store))};
    if (std::any_of(fields.begin(), fields.end(), [](const dk_lfField &slot) { return slot.dirty != 0; }))
        store.dirty = 1;
    return false;
}

// Clears the `dirty` of the first `count` slots: their text has reached the file.
void clear_marks(dk_lfBlock &store, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count; i++)
        store.fields[i].dirty = 0;
}

// The first field read of a cursor visit reads the whole record at once into the hidden buffer;
// each field is then cut from it exactly as fgets would have read it.
bool buffer_record(Spool &spool) noexcept
{
    dk_lfBlock &store = spool.store;
    const std::optional<long> target = file_position(store.currentRecord, spool.recordLength, 0);
    if (!seek(spool, target, Access::read))
        return false;
    const std::size_t got = std::fread(spool.record, 1, static_cast<std::size_t>(spool.recordLength), store.file);
    if (std::ferror(store.file)) {
        std::clearerr(store.file);
        spool.position = unknown_position;
        return false;
    }
    // A short read leaves the end-of-file flag set; the next access seeks, which clears it.
    spool.position = got == static_cast<std::size_t>(spool.recordLength) ? *target + static_cast<long>(got)
                                                                           : unknown_position;
    spool.lastAccess = Access::read;
    spool.bufferedBytes = static_cast<std::int32_t>(got);
    // Then no LF cuts a field as fgets would: read_field copies each without looking for one.
    spool.recordWhole = got == static_cast<std::size_t>(spool.recordLength) &&
                        std::memchr(spool.record, '\n', got) == nullptr &&
                        std::memchr(spool.record, '\0', got) == nullptr;
    return true;
}

}  // namespace

bool open_store(dk_Document &document, dk_lfBlock &store) noexcept
{
    if (store.path == nullptr)
        return false;
    // A store with a stream already has its slot; it must not take a second one.
    if (store.file != nullptr)
        return true;
    dk_lfFilePool *pool = document.filePool;
    if (pool == nullptr || pool->capacity < 1 || pool->blocks == nullptr)
        return false;
    bool evicted = false;
    if (pool->count >= pool->capacity) {
        // The victim is the last slot, whatever its age; it leaves the pool with its stream.
        dk_lfBlock *victim = std::exchange(pool->blocks[pool->capacity - 1], nullptr);
        pool->count = pool->capacity - 1;
        if (victim != nullptr)
            close_stream(*victim);
        evicted = true;
    }
    std::FILE *file = open_spool_file(store.path);
    // The slot is taken only once the stream exists, so no entry of the pool is ever without one.
    if (file == nullptr)
        return false;
    store.file = file;
    Spool &spool = spool_of(store);
    spool.position = 0;
    spool.lastAccess = Access::none;
    spool.bufferedBytes = not_buffered;
    dk_lfBlock **slots = pool->blocks;
    if (evicted) {
        std::copy_backward(slots, slots + pool->count, slots + pool->count + 1);
        slots[0] = &store;
    } else {
        slots[pool->count] = &store;
    }
    pool->count++;
    return true;
}

bool create_store(dk_Document &document, const dk_dfBlock &block, bool repeating) noexcept
{
    if (block.fieldCount < 0 || block.recordLength < 0 || document.blockCount < 0 ||
        document.blockCount == std::numeric_limits<std::int32_t>::max())
        return false;
    layout_changed();
    if (!memory::resize_array(document.blocks, static_cast<std::size_t>(document.blockCount) + 1))
        return false;
    // One allocation for the store and its hidden record buffer: a store costs no more
    // allocations than its fields need, and reading needs no memory of its own.
    const std::size_t size = sizeof(Spool) + (repeating ? static_cast<std::size_t>(block.recordLength) + 1 : 0);
    void *storage = memory::allocate(size);
    if (storage == nullptr)
        return false;
    std::memset(storage, 0, size);
    auto *spool = static_cast<Spool *>(storage);
    dk_lfBlock &store = spool->store;
    spool->recordLength = block.recordLength;
    spool->position = unknown_position;
    spool->bufferedBytes = not_buffered;
    spool->record = repeating ? reinterpret_cast<char *>(spool + 1) : nullptr;
    document.blocks[document.blockCount++] = &store;

    if (block.fieldCount > 0) {
        store.fields = memory::make_zeroed<dk_lfField>(static_cast<std::size_t>(block.fieldCount));
        if (store.fields == nullptr)
            return false;
        spool->fieldCount = block.fieldCount;
    }
    for (std::int32_t i = 0; i < block.fieldCount; i++) {
        dk_lfField &slot = store.fields[i];
        const auto width = static_cast<std::size_t>(block.fields[i].width);
        slot.text = static_cast<char *>(memory::allocate(width + 1));
        if (slot.text == nullptr)
            return false;
        std::memset(slot.text, blank, width);
        slot.text[width] = '\0';
        slot.loaded = 1;
        slot.dirty = 1;
    }
    store.dirty = 1;
    store.currentRecord = 0;
    store.recordCount = 1;
    if (!repeating)
        return true;

    std::array<char, navo::platform::temp_path_size> path;
    if (!navo::platform::create_temp_file(path))
        return false;
    NewSpoolFile made(path.data());
    store.path = memory::duplicate(path.data());
    if (store.path == nullptr)
        return false;
    made.keep();
    return save(&document, &store, &block);
}

void destroy_store(dk_lfFilePool *pool, dk_lfBlock *store) noexcept
{
    if (store == nullptr)
        return;
    layout_changed();
    Spool &spool = spool_of(*store);
    for (const dk_lfField &slot : std::span{store->fields, count_of(spool.fieldCount)})
        memory::release(slot.text);
    memory::release(store->fields);
    store->fields = nullptr;
    if (store->path != nullptr) {
        if (store->file != nullptr)
            std::fclose(store->file);
        store->file = nullptr;
        std::remove(store->path);
        memory::release(store->path);
        store->path = nullptr;
        if (pool != nullptr && pool->blocks != nullptr && pool->count > 0) {
            dk_lfBlock **first = pool->blocks;
            dk_lfBlock **last = first + pool->count;
            if (dk_lfBlock **found = std::find(first, last, store); found != last) {
                std::copy(found + 1, last, found);
                pool->count--;
                pool->blocks[pool->count] = nullptr;
            }
        }
    }
    memory::release(&spool);
}

bool write(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block, Marks marks) noexcept
{
    if (document == nullptr || store == nullptr || block == nullptr)
        return false;
    Spool &spool = spool_of(*store);
    // A single block has no file, and a block that did not build this store has other fields.
    if (store->path == nullptr || block->fieldCount != spool.fieldCount || block->recordLength != spool.recordLength)
        return false;
    if (!store->dirty)
        return false;
    store->dirty = 0;
    if (store->file == nullptr)
        open_store(*document, *store);
    if (store->file == nullptr)
        return save_failed(*store);
    spool.bufferedBytes = not_buffered;
    for (std::int32_t i = 0; i < spool.fieldCount; i++) {
        dk_lfField &slot = store->fields[i];
        if (!slot.dirty)
            continue;
        const dk_dfField &field = block->fields[i];
        const std::optional<long> target = file_position(store->currentRecord, spool.recordLength, field.offset);
        if (!seek(spool, target, Access::write))
            return save_failed(*store);
        // What fputs would write: the text up to its NUL.
        const auto width = static_cast<std::size_t>(field.width);
        const auto *end = static_cast<const char *>(std::memchr(slot.text, '\0', width + 1));
        const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - slot.text) : width;
        if (length > 0 && std::fwrite(slot.text, 1, length, store->file) != length) {
            spool.position = unknown_position;
            std::clearerr(store->file);
            // The fields before this one count as written, whichever way the marks go.
            if (marks == Marks::keep)
                clear_marks(*store, i);
            return save_failed(*store);
        }
        spool.position = *target + static_cast<long>(length);
        spool.lastAccess = Access::write;
        if (marks == Marks::clear)
            slot.dirty = 0;
    }
    return true;
}

bool flush(dk_lfBlock *store) noexcept
{
    if (store == nullptr || store->file == nullptr)
        return true;
    Spool &spool = spool_of(*store);
    if (spool.lastAccess != Access::write)
        return true;
    // The bytes of a save reach the file once per library call instead of at the next seek, so
    // the file on disk always shows what the tables show.
    if (std::fflush(store->file) != 0) {
        spool.position = unknown_position;
        std::clearerr(store->file);
        return false;
    }
    spool.lastAccess = Access::none;
    return true;
}

bool save(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) noexcept
{
    // The changed fields stay marked until the file has taken them: a flush the file refuses
    // (a full disk) leaves the record to be written again at the next save, not lost.
    if (!write(document, store, block, Marks::keep)) {
        flush(store);
        return false;
    }
    if (!flush(store)) {
        store->dirty = 1;
        return false;
    }
    clear_marks(*store, field_count(*store));
    return true;
}

bool read_field(dk_lfBlock &store, const dk_dfBlock &block, std::int32_t fieldIndex) noexcept
{
    if (store.file == nullptr)
        return false;
    Spool &spool = spool_of(store);
    if (spool.record == nullptr || fieldIndex < 0 || fieldIndex >= spool.fieldCount ||
        block.fieldCount != spool.fieldCount || block.recordLength != spool.recordLength)
        return false;
    if (spool.bufferedBytes == not_buffered && !buffer_record(spool))
        return false;
    const dk_dfField &field = block.fields[fieldIndex];
    char *text = store.fields[fieldIndex].text;
    // fgets yields null when the file ends before the field's first byte.
    if (field.offset >= spool.bufferedBytes)
        return false;
    const std::int32_t available = std::min(spool.bufferedBytes - field.offset, field.width);
    const char *from = spool.record + field.offset;
    // fgets' cut: through the first LF, if one comes within the bytes available.
    const auto *lineFeed = spool.recordWhole
                               ? nullptr
                               : static_cast<const char *>(std::memchr(from, '\n', static_cast<std::size_t>(available)));
    const std::size_t length =
        lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - from) + 1 : static_cast<std::size_t>(available);
    std::memcpy(text, from, length);
    text[length] = '\0';
    store.fields[fieldIndex].loaded = 1;
    return true;
}

bool shift_record(dk_lfBlock &store, std::int32_t record, std::span<char> buffer) noexcept
{
    if (buffer.data() == nullptr || store.file == nullptr)
        return false;
    Spool &spool = spool_of(store);
    spool.bufferedBytes = not_buffered;
    if (spool.recordLength == 0)
        return true;
    const auto length = static_cast<std::size_t>(spool.recordLength);
    if (record == std::numeric_limits<std::int32_t>::max())
        return false;
    const std::optional<long> source = file_position(record + 1, spool.recordLength, 0);
    const std::optional<long> target = file_position(record, spool.recordLength, 0);
    if (!source || !target || !seek(spool, source, Access::read))
        return false;
    const std::size_t got = std::fread(buffer.data(), 1, length, store.file);
    spool.position = got == length ? *source + static_cast<long>(got) : unknown_position;
    spool.lastAccess = Access::read;
    if (std::ferror(store.file)) {
        std::clearerr(store.file);
        spool.position = unknown_position;
        return false;
    }
    if (got == 0)
        return false;
    // Carried as text: fgets stops after a line feed, fputs at a NUL.
    const auto *lineFeed = static_cast<const char *>(std::memchr(buffer.data(), '\n', got));
    std::size_t carried = lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - buffer.data()) + 1 : got;
    buffer[carried] = '\0';
    if (const auto *nul = static_cast<const char *>(std::memchr(buffer.data(), '\0', carried)))
        carried = static_cast<std::size_t>(nul - buffer.data());
    if (!seek(spool, target, Access::write))
        return false;
    if (carried > 0 && std::fwrite(buffer.data(), 1, carried, store.file) != carried) {
        std::clearerr(store.file);
        spool.position = unknown_position;
        return false;
    }
    spool.position = *target + static_cast<long>(carried);
    spool.lastAccess = Access::write;
    return true;
}

}  // namespace navo::store

extern "C" {

NAVO_API int32_t NAVO_CALL dk_lfBlockSave(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) noexcept
{
    return navo::store::save(document, store, block) ? 1 : 0;
}

}  // extern "C"
