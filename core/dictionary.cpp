/* dk_dict.c - the string dictionary of Part 1.2: hash, sorted buckets, interning and trimming. */
#include "core/dictionary.hpp"

#include <string.h>

#include "core/allocator.hpp"

/* Sign extension of the byte in bits 0 to 7, written out so it does not depend on char's sign:
   (byte ^ 0x80) - 0x80 in unsigned 32 bits is byte for 0x00 to 0x7F and byte | 0xFFFFFF00 above. */
#define DK_SD_EXTEND(byte) ((((uint32_t)(byte)) ^ 0x80u) - 0x80u)

/* Departure (speed only): the Part's steps for one byte, branch-free; the value is the same. */
#define DK_SD_EVEN(h, byte, shift)                                                    \
    do {                                                                              \
        uint32_t v_ = DK_SD_EXTEND(byte) << (shift);                                  \
        (h) ^= DK_SD_EXTEND((v_ | (v_ >> 8)) & 0xFFu);                                \
    } while (0)
#define DK_SD_ODD(h, byte, shift)                                                     \
    do {                                                                              \
        uint32_t v_ = DK_SD_EXTEND(byte) << (shift);                                  \
        (h) ^= ((v_ | (v_ >> 8)) & 0xFFu) << 8;                                       \
    } while (0)

uint32_t dk_sdHashValue(const char *text)
{
    const unsigned char *p = (const unsigned char *)text;
    uint32_t h = 0;
    /* Departure (speed only): unrolled by the period of the shift, i & 7, so each position's
       shift and parity are constants; the steps per byte are those of Part 1.2. */
    for (;;) {
        if (p[0] == '\0') break;
        DK_SD_EVEN(h, p[0], 0);
        if (p[1] == '\0') break;
        DK_SD_ODD(h, p[1], 1);
        if (p[2] == '\0') break;
        DK_SD_EVEN(h, p[2], 2);
        if (p[3] == '\0') break;
        DK_SD_ODD(h, p[3], 3);
        if (p[4] == '\0') break;
        DK_SD_EVEN(h, p[4], 4);
        if (p[5] == '\0') break;
        DK_SD_ODD(h, p[5], 5);
        if (p[6] == '\0') break;
        DK_SD_EVEN(h, p[6], 6);
        if (p[7] == '\0') break;
        DK_SD_ODD(h, p[7], 7);
        p += 8;
    }
    return h;
}

uint32_t dk_sdHash(const dk_sdDictionary *dictionary, const char *text)
{
    uint32_t h = dk_sdHashValue(text);
    /* Departure (speed only): the context's bucket count as a constant, so the compiler divides by
       multiplication; the remainder is the same unsigned 32-bit one. */
    if (dictionary->bucketCount == DK_SD_CONTEXT_BUCKETS)
        return h % DK_SD_CONTEXT_BUCKETS;
    return h % dictionary->bucketCount;
}

/* The comparison of dk_sdStrCmp, inside this file without the exported call's PLT hop. */
static inline int32_t dk_sdCompare(const char *left, const char *right)
{
    const unsigned char *l = (const unsigned char *)left;
    const unsigned char *r = (const unsigned char *)right;
    for (;; l++, r++) {
        int a;
        int b;
        /* Equal bytes are equal under folding too: the common case of a lookup that hits. */
        if (*l == *r) {
            if (*l == '\0')
                return 0;
            continue;
        }
        /* Signed bytes: 0x80 to 0xFF sort below the terminator; a to z fold to upper case. */
        a = *l >= 0x80 ? *l - 256 : *l;
        b = *r >= 0x80 ? *r - 256 : *r;
        if (a >= 0x61 && a <= 0x7A)
            a -= 32;
        if (b >= 0x61 && b <= 0x7A)
            b -= 32;
        if (a < b)
            return -1;
        if (a > b)
            return 1;
    }
}

static int32_t dk_sdMatch(const dk_sdDictionary *dictionary, int32_t id, const char *text)
{
    /* Departure (speed only): the same comparison as dk_sdStrCmp, inlined. */
    return dk_sdCompare(text, dictionary->strings[id]);
}

/* Lowest free slot, or -1 when every slot holds a string. */
static int32_t dk_sdFreeSlot(const dk_sdDictionary *dictionary)
{
    int32_t i;
    for (i = 0; i < dictionary->count; i++) {
        if (dictionary->strings[i] == NULL)
            return i;
    }
    return -1;
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_sdStrCmp(const char *left, const char *right) noexcept
{
    return dk_sdCompare(left, right);
}

NAVO_API int32_t NAVO_CALL dk_sdInit(dk_sdDictionary **out, uint32_t bucketCount) noexcept
{
    dk_sdDictionary *dictionary = navo::memory::make_zeroed<dk_sdDictionary>();
    *out = dictionary;
    if (dictionary == NULL)
        return 0;
    /* No bucket could hold a string: refused like a failed bucket allocation. */
    if (bucketCount == 0)
        return 0;
    dictionary->buckets = navo::memory::make_zeroed<dk_sdBucket>(bucketCount);
    if (dictionary->buckets == NULL)
        return 0;
    dictionary->bucketCount = bucketCount;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdDestroy(dk_sdDictionary **pointer) noexcept
{
    dk_sdDictionary *dictionary = pointer != NULL ? *pointer : NULL;
    int32_t i;
    uint32_t b;
    if (dictionary == NULL)
        return 1;
    for (i = 0; i < dictionary->count; i++)
        navo::memory::release(dictionary->strings[i]);
    navo::memory::release(dictionary->strings);
    if (dictionary->buckets != NULL) {
        for (b = 0; b < dictionary->bucketCount; b++)
            navo::memory::release(dictionary->buckets[b].ids);
    }
    navo::memory::release(dictionary->buckets);
    navo::memory::release(dictionary);
    *pointer = NULL;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdGetID(dk_sdDictionary *dictionary, const char *text, int32_t *out) noexcept
{
    const dk_sdBucket *bucket;
    int32_t i;
    if (dictionary == NULL || dictionary->buckets == NULL)
        return 0;
    bucket = &dictionary->buckets[dk_sdHash(dictionary, text)];
    *out = -1;
    if (bucket->count == 0)
        return 0;
    if (bucket->count < DK_SD_BINARY_SEARCH_FROM) {
        for (i = 0; i < bucket->count; i++) {
            if (dk_sdMatch(dictionary, bucket->ids[i], text) == 0) {
                *out = bucket->ids[i];
                return 1;
            }
        }
        return 0;
    }
    {
        /* The bounds move onto middle, not past it, and the end game checks both. */
        int32_t low = 0;
        int32_t high = bucket->count - 1;
        while (high - low >= 2) {
            int32_t middle = (low + high) / 2;
            int32_t order = dk_sdMatch(dictionary, bucket->ids[middle], text);
            if (order == 0) {
                *out = bucket->ids[middle];
                return 1;
            }
            if (order < 0)
                high = middle;
            else
                low = middle;
        }
        if (dk_sdMatch(dictionary, bucket->ids[low], text) == 0) {
            *out = bucket->ids[low];
            return 1;
        }
        if (dk_sdMatch(dictionary, bucket->ids[high], text) == 0) {
            *out = bucket->ids[high];
            return 1;
        }
    }
    return 0;
}

NAVO_API int32_t NAVO_CALL dk_sdAddStr(dk_sdDictionary *dictionary, const char *text) noexcept
{
    dk_sdBucket *bucket;
    char *copy;
    int32_t slot;
    int32_t id;
    int32_t position;
    int grew = 0;
    if (dictionary == NULL || dictionary->buckets == NULL)
        return 0;
    if (dk_sdGetID(dictionary, text, &id))
        return 1;
    /* Every fallible step comes before the first change that would need undoing with memory. */
    copy = navo::memory::duplicate(text);
    if (copy == NULL)
        return 0;
    slot = dk_sdFreeSlot(dictionary);
    if (slot < 0) {
        if (!navo::memory::resize_array(dictionary->strings, static_cast<size_t>(dictionary->count) + 1)) {
            navo::memory::release(copy);
            return 0;
        }
        slot = dictionary->count;
        dictionary->strings[slot] = NULL;
        dictionary->count++;
        grew = 1;
    }
    bucket = &dictionary->buckets[dk_sdHash(dictionary, text)];
    if (!navo::memory::resize_array(bucket->ids, static_cast<size_t>(bucket->count) + 1)) {
        navo::memory::release(copy);
        if (grew) {
            /* Give the new slot back; if even the shrink fails it stays as a free slot. */
            if (navo::memory::resize_array(dictionary->strings, static_cast<size_t>(dictionary->count) - 1))
                dictionary->count--;
        }
        return 0;
    }
    dictionary->strings[slot] = copy;
    position = bucket->count;
    for (id = 0; id < bucket->count; id++) {
        if (dk_sdStrCmp(dictionary->strings[bucket->ids[id]], text) > 0) {
            position = id;
            break;
        }
    }
    memmove(&bucket->ids[position + 1], &bucket->ids[position],
            (size_t)(bucket->count - position) * sizeof(int32_t));
    bucket->ids[position] = slot;
    bucket->count++;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdDelStr(dk_sdDictionary *dictionary, const char *text) noexcept
{
    dk_sdBucket *bucket;
    int32_t id;
    int32_t position;
    if (dictionary == NULL || dictionary->buckets == NULL)
        return 0;
    bucket = &dictionary->buckets[dk_sdHash(dictionary, text)];
    if (!dk_sdGetID(dictionary, text, &id))
        return 0;
    navo::memory::release(dictionary->strings[id]);
    dictionary->strings[id] = NULL;
    for (position = 0; bucket->ids[position] != id; position++)
        ;
    memmove(&bucket->ids[position], &bucket->ids[position + 1],
            (size_t)(bucket->count - position - 1) * sizeof(int32_t));
    bucket->count--;
    /* A shrink that fails keeps the larger block; the count is what holds. */
    (void)navo::memory::resize_array(bucket->ids, static_cast<size_t>(bucket->count));
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdDopisz(dk_sdDictionary *dictionary, const char *text) noexcept
{
    int32_t id;
    if (dk_sdGetID(dictionary, text, &id))
        return 0;
    return dk_sdAddStr(dictionary, text);
}

NAVO_API int32_t NAVO_CALL dk_sdGetSafeID(dk_sdDictionary *dictionary, const char *text, int32_t *out) noexcept
{
    if (dk_sdGetID(dictionary, text, out))
        return 1;
    if (!dk_sdAddStr(dictionary, text)) {
        *out = -1;
        return 0;
    }
    return dk_sdGetID(dictionary, text, out);
}

NAVO_API int32_t NAVO_CALL dk_sdTrimAll(const char *text, char *out, int32_t size) noexcept
{
    int32_t stored = 0;
    if (size < 1)
        return 0;
    memset(out, 0, (size_t)size);
    for (; *text != '\0'; text++) {
        if (*text == '\t' || *text == '\n' || *text == ' ')
            continue;
        out[stored++] = *text;
        if (stored == size)
            return 0;
    }
    return 1;
}

}  // extern "C"
