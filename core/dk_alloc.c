/* dk_alloc.c - the one internal allocator, with counters and failure injection for tests. */
#include "dk_alloc.h"

#include <stdlib.h>
#include <string.h>

/* Module-wide, like all state outside the context: the library runs one job at a time. */
static int64_t failCountdown;   /* 0: no injection */
static int failSticky;
static int64_t allocationCount;
static int64_t liveBlocks;

static int dk_mem_should_fail(void)
{
    allocationCount++;
    if (failCountdown == 0)
        return 0;
    if (failCountdown > 1) {
        failCountdown--;
        return 0;
    }
    if (!failSticky)
        failCountdown = 0;
    return 1;
}

void *dk_mem_alloc(size_t size)
{
    void *block;
    if (dk_mem_should_fail())
        return NULL;
    block = malloc(size == 0 ? 1 : size);
    if (block != NULL)
        liveBlocks++;
    return block;
}

void *dk_mem_zalloc(size_t size)
{
    void *block = dk_mem_alloc(size);
    if (block != NULL)
        memset(block, 0, size);
    return block;
}

void *dk_mem_resize(void *pointer, size_t size)
{
    void *block;
    if (pointer == NULL)
        return dk_mem_alloc(size);
    if (size == 0) {
        dk_mem_free(pointer);
        return NULL;
    }
    if (dk_mem_should_fail())
        return NULL;
    block = realloc(pointer, size);
    return block;
}

void dk_mem_free(void *pointer)
{
    if (pointer == NULL)
        return;
    liveBlocks--;
    free(pointer);
}

char *dk_mem_strdup(const char *text)
{
    size_t length = strlen(text) + 1;
    char *copy = dk_mem_alloc(length);
    if (copy != NULL)
        memcpy(copy, text, length);
    return copy;
}

void *dk_mem_resize_array(void *array, size_t newCount, size_t elementSize, int *ok)
{
    void *grown;
    if (newCount == 0) {
        dk_mem_free(array);
        *ok = 1;
        return NULL;
    }
    if (newCount > SIZE_MAX / elementSize) {
        *ok = 0;
        return NULL;
    }
    grown = dk_mem_resize(array, newCount * elementSize);
    *ok = grown != NULL;
    return grown;
}

void dk_mem_fail_after(int64_t n, int sticky)
{
    failCountdown = n < 0 ? 0 : n;
    failSticky = sticky;
}

int64_t dk_mem_allocations(void)
{
    return allocationCount;
}

int64_t dk_mem_live_blocks(void)
{
    return liveBlocks;
}

void dk_mem_reset_counters(void)
{
    allocationCount = 0;
    failCountdown = 0;
    failSticky = 0;
}

NAVO_API void *NAVO_CALL dk_Malloc(size_t size)
{
    return dk_mem_alloc(size);
}

NAVO_API void NAVO_CALL dk_Free(void *pointer)
{
    dk_mem_free(pointer);
}
