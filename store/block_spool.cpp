/* dk_spool.c - block stores of Part 3.2: creation, the file pool, saving and reading the spool. */
#include "store/block_spool.hpp"

#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "core/allocator.hpp"
#include "platform/temp_file.hpp"

#define DK_LF_BLANK ' '

dk_lfSpool *dk_lfSpoolOf(dk_lfBlock *store)
{
    /* dk_lfBlock is the first member of every dk_lfSpool, and only the library allocates stores. */
    return (dk_lfSpool *)store;
}

int32_t dk_lfBlockFieldCount(dk_lfBlock *store)
{
    return dk_lfSpoolOf(store)->fieldCount;
}

void dk_lfBlockForget(dk_lfBlock *store)
{
    dk_lfSpoolOf(store)->bufferedBytes = DK_LF_NOT_BUFFERED;
}

/* The byte position of `record` × `length` + `extra`, or 0 when a long cannot hold it. */
static int dk_lfFilePosition(int32_t record, int32_t length, int32_t extra, long *out)
{
    int64_t position = (int64_t)record * (int64_t)length + (int64_t)extra;
    if (position < 0 || position > (int64_t)LONG_MAX)
        return 0;
    *out = (long)position;
    return 1;
}

/* Departure from the Parts' fseek before every field: seek only when the stream stands elsewhere
   or when C demands a positioning call between reading and writing, so stdio's buffer batches
   the bytes of whole records instead of one or two system calls per field. */
static int dk_lfSeek(dk_lfSpool *spool, long target, int32_t access)
{
    if (spool->position == target &&
        (spool->lastAccess == DK_LF_ACCESS_NONE || spool->lastAccess == access))
        return 1;
    if (fseek(spool->store.file, target, SEEK_SET) != 0) {
        spool->position = DK_LF_POSITION_UNKNOWN;
        return 0;
    }
    spool->position = target;
    spool->lastAccess = DK_LF_ACCESS_NONE;
    return 1;
}

/* Closes the stream of an evicted store; everything else of the store survives. */
static void dk_lfBlockClose(dk_lfBlock *store)
{
    dk_lfSpool *spool = dk_lfSpoolOf(store);
    if (store->file != NULL)
        fclose(store->file);
    store->file = NULL;
    spool->position = DK_LF_POSITION_UNKNOWN;
    spool->lastAccess = DK_LF_ACCESS_NONE;
    spool->bufferedBytes = DK_LF_NOT_BUFFERED;
}

static FILE *dk_lfOpenSpoolFile(const char *path)
{
    /* Departure: through the platform, which refuses a link in the file's place (docs/decisions.md). */
    FILE *file = navo::platform::open_temp_file(path).release();
    if (file != NULL)
        return file;
    /* The file has gone missing: make it anew, empty, and open that. Departure: not fopen "w",
       which would give the umask's permissions and follow a link put in its place; the platform
       makes it owner-only and only where nothing stands (docs/decisions.md). */
    if (!navo::platform::recreate_temp_file(path))
        return NULL;
    return navo::platform::open_temp_file(path).release();
}

int32_t dk_lfBlockOpen(dk_Document *document, dk_lfBlock *store)
{
    dk_lfFilePool *pool;
    dk_lfSpool *spool;
    FILE *file;
    int evicted = 0;
    if (document == NULL || store == NULL || store->path == NULL)
        return 0;
    /* A store with a stream already has its slot; it must not take a second one. */
    if (store->file != NULL)
        return 1;
    pool = document->filePool;
    if (pool == NULL || pool->capacity < 1 || pool->blocks == NULL)
        return 0;
    if (pool->count >= pool->capacity) {
        /* The victim is the last slot, whatever its age; it leaves the pool with its stream. */
        dk_lfBlock *victim = pool->blocks[pool->capacity - 1];
        pool->blocks[pool->capacity - 1] = NULL;
        pool->count = pool->capacity - 1;
        if (victim != NULL)
            dk_lfBlockClose(victim);
        evicted = 1;
    }
    file = dk_lfOpenSpoolFile(store->path);
    /* The slot is taken only once the stream exists, so no entry of the pool is ever without one. */
    if (file == NULL)
        return 0;
    store->file = file;
    spool = dk_lfSpoolOf(store);
    spool->position = 0;
    spool->lastAccess = DK_LF_ACCESS_NONE;
    spool->bufferedBytes = DK_LF_NOT_BUFFERED;
    if (evicted) {
        memmove(pool->blocks + 1, pool->blocks, (size_t)pool->count * sizeof pool->blocks[0]);
        pool->blocks[0] = store;
    } else {
        pool->blocks[pool->count] = store;
    }
    pool->count++;
    return 1;
}

int32_t dk_lfBlockCreate(dk_Document *document, const dk_dfBlock *block, int32_t repeating)
{
    dk_lfBlock **blocks;
    dk_lfSpool *spool;
    dk_lfBlock *store;
    size_t size;
    char path[navo::platform::temp_path_size];
    int32_t i;
    if (document == NULL || block == NULL || block->fieldCount < 0 || block->recordLength < 0 ||
        document->blockCount < 0 || document->blockCount == INT32_MAX)
        return 0;
    if (!navo::memory::resize_array(document->blocks, static_cast<size_t>(document->blockCount) + 1))
        return 0;
    blocks = document->blocks;
    /* One allocation for the store and its hidden record buffer: the count of allocations stays
       that of the Part, and reading needs no memory of its own. */
    size = sizeof *spool + (repeating ? (size_t)block->recordLength + 1 : 0);
    spool = static_cast<dk_lfSpool *>(navo::memory::allocate(size));
    if (spool == NULL)
        return 0;
    memset(static_cast<void *>(spool), 0, size);
    store = &spool->store;
    spool->recordLength = block->recordLength;
    spool->position = DK_LF_POSITION_UNKNOWN;
    spool->bufferedBytes = DK_LF_NOT_BUFFERED;
    spool->record = repeating ? (char *)(spool + 1) : NULL;
    blocks[document->blockCount] = store;
    document->blockCount++;

    if (block->fieldCount > 0) {
        store->fields = navo::memory::make_zeroed<dk_lfField>(static_cast<size_t>(block->fieldCount));
        if (store->fields == NULL)
            return 0;
        spool->fieldCount = block->fieldCount;
    }
    for (i = 0; i < block->fieldCount; i++) {
        dk_lfField *slot = &store->fields[i];
        size_t width = (size_t)block->fields[i].width;
        slot->text = static_cast<char *>(navo::memory::allocate(width + 1));
        if (slot->text == NULL)
            return 0;
        memset(slot->text, DK_LF_BLANK, width);
        slot->text[width] = '\0';
        slot->loaded = 1;
        slot->dirty = 1;
    }
    store->dirty = 1;
    store->currentRecord = 0;
    store->recordCount = 1;
    if (!repeating)
        return 1;

    if (!navo::platform::create_temp_file(path))
        return 0;
    store->path = navo::memory::duplicate(path);
    if (store->path == NULL) {
        /* Nobody else knows this file, so it goes at once. */
        remove(path);
        return 0;
    }
    return dk_lfBlockSave(document, store, block);
}

void dk_lfBlockDestroy(dk_lfFilePool *pool, dk_lfBlock *store)
{
    dk_lfSpool *spool;
    int32_t i;
    if (store == NULL)
        return;
    spool = dk_lfSpoolOf(store);
    for (i = 0; i < spool->fieldCount; i++)
        navo::memory::release(store->fields[i].text);
    navo::memory::release(store->fields);
    store->fields = NULL;
    if (store->path != NULL) {
        if (store->file != NULL)
            fclose(store->file);
        store->file = NULL;
        remove(store->path);
        navo::memory::release(store->path);
        store->path = NULL;
        if (pool != NULL && pool->blocks != NULL) {
            for (i = 0; i < pool->count; i++) {
                if (pool->blocks[i] == store) {
                    memmove(pool->blocks + i, pool->blocks + i + 1,
                            (size_t)(pool->count - i - 1) * sizeof pool->blocks[0]);
                    pool->count--;
                    pool->blocks[pool->count] = NULL;
                    break;
                }
            }
        }
    }
    navo::memory::release(spool);
}

/* A failed save keeps the remaining changes: the store is dirty again while a slot still is. */
static int32_t dk_lfSaveFailed(dk_lfBlock *store, int32_t fieldCount)
{
    int32_t i;
    for (i = 0; i < fieldCount; i++) {
        if (store->fields[i].dirty) {
            store->dirty = 1;
            break;
        }
    }
    return 0;
}

int32_t dk_lfBlockWrite(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block)
{
    dk_lfSpool *spool;
    int32_t i;
    if (document == NULL || store == NULL || block == NULL)
        return 0;
    spool = dk_lfSpoolOf(store);
    /* A single block has no file, and a block that did not build this store has other fields. */
    if (store->path == NULL || block->fieldCount != spool->fieldCount ||
        block->recordLength != spool->recordLength)
        return 0;
    if (!store->dirty)
        return 0;
    store->dirty = 0;
    if (store->file == NULL)
        dk_lfBlockOpen(document, store);
    if (store->file == NULL)
        return dk_lfSaveFailed(store, spool->fieldCount);
    spool->bufferedBytes = DK_LF_NOT_BUFFERED;
    for (i = 0; i < spool->fieldCount; i++) {
        dk_lfField *slot = &store->fields[i];
        const char *end;
        size_t length;
        long target;
        if (!slot->dirty)
            continue;
        if (!dk_lfFilePosition(store->currentRecord, spool->recordLength, block->fields[i].offset, &target) ||
            !dk_lfSeek(spool, target, DK_LF_ACCESS_WRITE))
            return dk_lfSaveFailed(store, spool->fieldCount);
        /* What fputs would write: the text up to its NUL. */
        end = static_cast<const char *>(memchr(slot->text, '\0', (size_t)block->fields[i].width + 1));
        length = end != NULL ? (size_t)(end - slot->text) : (size_t)block->fields[i].width;
        if (length > 0 && fwrite(slot->text, 1, length, store->file) != length) {
            spool->position = DK_LF_POSITION_UNKNOWN;
            clearerr(store->file);
            return dk_lfSaveFailed(store, spool->fieldCount);
        }
        spool->position = target + (long)length;
        spool->lastAccess = DK_LF_ACCESS_WRITE;
        slot->dirty = 0;
    }
    return 1;
}

int32_t dk_lfBlockFlush(dk_lfBlock *store)
{
    dk_lfSpool *spool;
    if (store == NULL || store->file == NULL)
        return 1;
    spool = dk_lfSpoolOf(store);
    if (spool->lastAccess != DK_LF_ACCESS_WRITE)
        return 1;
    /* Departure: the bytes of a save reach the file once per call instead of at each next seek,
       so the file on disk always shows what the Parts' tables show. */
    if (fflush(store->file) != 0) {
        spool->position = DK_LF_POSITION_UNKNOWN;
        clearerr(store->file);
        return 0;
    }
    spool->lastAccess = DK_LF_ACCESS_NONE;
    return 1;
}

/* Departure: the first field read of a cursor visit reads the whole record at once into the
   hidden buffer; each field is then cut from it exactly as fgets would have read it. */
static int dk_lfBufferRecord(dk_lfSpool *spool)
{
    dk_lfBlock *store = &spool->store;
    size_t got;
    long target;
    if (!dk_lfFilePosition(store->currentRecord, spool->recordLength, 0, &target) ||
        !dk_lfSeek(spool, target, DK_LF_ACCESS_READ))
        return 0;
    got = fread(spool->record, 1, (size_t)spool->recordLength, store->file);
    if (ferror(store->file)) {
        clearerr(store->file);
        spool->position = DK_LF_POSITION_UNKNOWN;
        return 0;
    }
    /* A short read leaves the end-of-file flag set; the next access seeks, which clears it. */
    spool->position = got == (size_t)spool->recordLength ? target + (long)got : DK_LF_POSITION_UNKNOWN;
    spool->lastAccess = DK_LF_ACCESS_READ;
    spool->bufferedBytes = (int32_t)got;
    return 1;
}

int32_t dk_lfBlockReadField(dk_lfBlock *store, const dk_dfBlock *block, int32_t fieldIndex)
{
    dk_lfSpool *spool;
    const dk_dfField *field;
    dk_lfField *slot;
    int32_t available;
    int32_t i;
    if (store == NULL || block == NULL || store->file == NULL)
        return 0;
    spool = dk_lfSpoolOf(store);
    if (spool->record == NULL || fieldIndex < 0 || fieldIndex >= spool->fieldCount ||
        block->fieldCount != spool->fieldCount || block->recordLength != spool->recordLength)
        return 0;
    if (spool->bufferedBytes == DK_LF_NOT_BUFFERED && !dk_lfBufferRecord(spool))
        return 0;
    field = &block->fields[fieldIndex];
    slot = &store->fields[fieldIndex];
    /* fgets yields null when the file ends before the field's first byte. */
    if (field->offset >= spool->bufferedBytes)
        return 0;
    available = spool->bufferedBytes - field->offset;
    if (available > field->width)
        available = field->width;
    for (i = 0; i < available; i++) {
        char byte = spool->record[field->offset + i];
        slot->text[i] = byte;
        if (byte == '\n') {
            i++;
            break;
        }
    }
    slot->text[i] = '\0';
    slot->loaded = 1;
    return 1;
}

int32_t dk_lfBlockShiftRecord(dk_lfBlock *store, int32_t record, char *buffer)
{
    dk_lfSpool *spool;
    size_t length;
    size_t got;
    size_t carried;
    const char *lineFeed;
    const char *nul;
    long source;
    long target;
    if (store == NULL || buffer == NULL || store->file == NULL)
        return 0;
    spool = dk_lfSpoolOf(store);
    spool->bufferedBytes = DK_LF_NOT_BUFFERED;
    if (spool->recordLength == 0)
        return 1;
    length = (size_t)spool->recordLength;
    if (record == INT32_MAX || !dk_lfFilePosition(record + 1, spool->recordLength, 0, &source) ||
        !dk_lfFilePosition(record, spool->recordLength, 0, &target))
        return 0;
    if (!dk_lfSeek(spool, source, DK_LF_ACCESS_READ))
        return 0;
    got = fread(buffer, 1, length, store->file);
    spool->position = got == length ? source + (long)got : DK_LF_POSITION_UNKNOWN;
    spool->lastAccess = DK_LF_ACCESS_READ;
    if (ferror(store->file)) {
        clearerr(store->file);
        spool->position = DK_LF_POSITION_UNKNOWN;
        return 0;
    }
    if (got == 0)
        return 0;
    /* Carried as text: fgets stops after a line feed, fputs at a NUL. */
    lineFeed = static_cast<const char *>(memchr(buffer, '\n', got));
    carried = lineFeed != NULL ? (size_t)(lineFeed - buffer) + 1 : got;
    buffer[carried] = '\0';
    nul = static_cast<const char *>(memchr(buffer, '\0', carried));
    if (nul != NULL)
        carried = (size_t)(nul - buffer);
    if (!dk_lfSeek(spool, target, DK_LF_ACCESS_WRITE))
        return 0;
    if (carried > 0 && fwrite(buffer, 1, carried, store->file) != carried) {
        clearerr(store->file);
        spool->position = DK_LF_POSITION_UNKNOWN;
        return 0;
    }
    spool->position = target + (long)carried;
    spool->lastAccess = DK_LF_ACCESS_WRITE;
    return 1;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_lfBlockSave(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) noexcept
{
    int32_t written = dk_lfBlockWrite(document, store, block);
    int32_t flushed = dk_lfBlockFlush(store);
    return written && flushed;
}

}  // extern "C"
