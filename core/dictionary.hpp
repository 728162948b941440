/* dk_dict.h - the string dictionary: names interned as small IDs in a chained hash table. */
#ifndef DK_DICT_H
#define DK_DICT_H

#include <stdint.h>

#include "navo.h"

/* The bucket count that dk_Init gives every context (Part 1.1). */
#define DK_SD_CONTEXT_BUCKETS 400u

/* From 4 IDs on a bucket is searched by halves (Part 1.2). */
#define DK_SD_BINARY_SEARCH_FROM 4

/* The raw 32-bit hash accumulator of Part 1.2, before the modulo. */
uint32_t dk_sdHashValue(const char *text);

/* The bucket index of `text`: dk_sdHashValue modulo the bucket count. */
uint32_t dk_sdHash(const dk_sdDictionary *dictionary, const char *text);

#endif /* DK_DICT_H */
