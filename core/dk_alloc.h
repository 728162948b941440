/* dk_alloc.h - the one internal allocator; every byte of the library goes through it. */
#ifndef DK_ALLOC_H
#define DK_ALLOC_H

#include <stddef.h>
#include <stdint.h>

#include "navo.h"

/* Allocation, release and resizing. dk_mem_resize(p, 0) releases p and returns null;
   on failure it returns null and leaves p untouched, like realloc. */
void *dk_mem_alloc(size_t size);
void *dk_mem_zalloc(size_t size);
void *dk_mem_resize(void *pointer, size_t size);
void dk_mem_free(void *pointer);
char *dk_mem_strdup(const char *text);

/* Grows or shrinks an array of `count` elements to `newCount` elements of `elementSize`.
   Returns the new array (null when newCount is 0) or null on failure with `array` intact;
   `*ok` tells the two nulls apart. */
void *dk_mem_resize_array(void *array, size_t newCount, size_t elementSize, int *ok);

/* Test hooks. The countdown makes the n-th allocation from now fail (1 = the next one);
   0 switches failure injection off. Failures are one-shot unless `sticky` is set, when
   every allocation from the n-th on fails. The counters see every allocation the library makes. */
void dk_mem_fail_after(int64_t n, int sticky);
int64_t dk_mem_allocations(void);  /* allocations attempted since the last reset */
int64_t dk_mem_live_blocks(void);  /* blocks currently held by the library or handed to hosts */
void dk_mem_reset_counters(void);

#endif /* DK_ALLOC_H */
