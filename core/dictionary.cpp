// core/dictionary.cpp - the string dictionary: hash, sorted buckets, interning and trimming.
#include "core/dictionary.hpp"

#include <atomic>
#include <cstring>

#include "core/allocator.hpp"

namespace navo::dictionary {

#if defined(NAVO_TEST_HOOKS)
std::atomic<std::uint64_t> lookupCount{0};

std::uint64_t lookups() noexcept
{
    return lookupCount.load(std::memory_order_relaxed);
}
#endif

namespace {

// From 4 IDs on a bucket is searched by halves.
constexpr std::int32_t binary_search_from = 4;

// Sign extension of the byte in bits 0 to 7, written out so it does not depend on char's sign:
// (byte ^ 0x80) - 0x80 in unsigned 32 bits is byte for 0x00 to 0x7F and byte | 0xFFFFFF00 above.
constexpr std::uint32_t sign_extend(std::uint32_t byte) noexcept
{
    return (byte ^ 0x80u) - 0x80u;
}

// What the byte at a position with shift `Shift` (the position & 7) contributes to the hash:
// the sign-extended byte shifted, its two low bytes folded into one; even positions give that
// byte sign-extended, odd ones give it moved to bits 8 to 15. Branch-free, for speed.
template <unsigned Shift>
constexpr std::uint32_t contribution(unsigned char byte) noexcept
{
    const std::uint32_t shifted = sign_extend(byte) << Shift;
    const std::uint32_t folded = (shifted | (shifted >> 8)) & 0xFFu;
    if constexpr (Shift % 2 == 0)
        return sign_extend(folded);
    else
        return folded << 8;
}

static_assert(contribution<0>('A') == 0x41u && contribution<1>('A') == 0x8200u);
static_assert(contribution<0>(0xFF) == 0xFFFFFFFFu && contribution<1>(0x80) == 0xFF00u);

// The dictionary's order: bytes compared as signed (0x80 to 0xFF sort below the terminator),
// a to z folded to upper case. dk_sdStrCmp exports it; the dictionary calls it here directly.
inline std::int32_t compare(const char *left, const char *right) noexcept
{
    const auto *l = reinterpret_cast<const unsigned char *>(left);
    const auto *r = reinterpret_cast<const unsigned char *>(right);
    for (;; l++, r++) {
        // Equal bytes are equal under folding too: the common case of a lookup that hits.
        if (*l == *r) {
            if (*l == '\0')
                return 0;
            continue;
        }
        int a = *l >= 0x80 ? *l - 256 : *l;
        int b = *r >= 0x80 ? *r - 256 : *r;
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

// The ID in `bucket` whose string equals `text` under the dictionary's order, or -1.
std::int32_t search(const dk_sdDictionary &dictionary, const dk_sdBucket &bucket, const char *text) noexcept
{
    const auto order = [&](std::int32_t position) { return compare(text, dictionary.strings[bucket.ids[position]]); };
    if (bucket.count < binary_search_from) {
        for (std::int32_t i = 0; i < bucket.count; i++) {
            if (order(i) == 0)
                return bucket.ids[i];
        }
        return -1;
    }
    // The bounds move onto middle, not past it, and the end game checks both.
    std::int32_t low = 0;
    std::int32_t high = bucket.count - 1;
    while (high - low >= 2) {
        const std::int32_t middle = (low + high) / 2;
        const std::int32_t result = order(middle);
        if (result == 0)
            return bucket.ids[middle];
        if (result < 0)
            high = middle;
        else
            low = middle;
    }
    if (order(low) == 0)
        return bucket.ids[low];
    if (order(high) == 0)
        return bucket.ids[high];
    return -1;
}

// Lowest free slot, or -1 when every slot holds a string.
std::int32_t free_slot(const dk_sdDictionary &dictionary) noexcept
{
    for (std::int32_t i = 0; i < dictionary.count; i++) {
        if (dictionary.strings[i] == nullptr)
            return i;
    }
    return -1;
}

// The ID of `text`, interned first when it is new; -1 when it could not be.
std::int32_t add(dk_sdDictionary &dictionary, const char *text) noexcept
{
    dk_sdBucket &bucket = dictionary.buckets[bucket_index(&dictionary, text)];
    if (const std::int32_t id = search(dictionary, bucket, text); id >= 0)
        return id;
    // Every fallible step comes before the first change that would need undoing with memory.
    memory::Owned<char> copy(memory::duplicate(text));
    if (!copy)
        return -1;
    std::int32_t slot = free_slot(dictionary);
    bool grew = false;
    if (slot < 0) {
        if (!memory::resize_array(dictionary.strings, static_cast<std::size_t>(dictionary.count) + 1))
            return -1;
        slot = dictionary.count;
        dictionary.strings[slot] = nullptr;
        dictionary.count++;
        grew = true;
    }
    if (!memory::resize_array(bucket.ids, static_cast<std::size_t>(bucket.count) + 1)) {
        // Give the new slot back; if even the shrink fails it stays as a free slot.
        if (grew && memory::resize_array(dictionary.strings, static_cast<std::size_t>(dictionary.count) - 1))
            dictionary.count--;
        return -1;
    }
    dictionary.strings[slot] = copy.take();
    // The bucket stays sorted: the new ID goes before the first string that orders after it.
    std::int32_t position = bucket.count;
    for (std::int32_t i = 0; i < bucket.count; i++) {
        if (compare(dictionary.strings[bucket.ids[i]], text) > 0) {
            position = i;
            break;
        }
    }
    std::memmove(&bucket.ids[position + 1], &bucket.ids[position],
                 static_cast<std::size_t>(bucket.count - position) * sizeof(std::int32_t));
    bucket.ids[position] = slot;
    bucket.count++;
    return slot;
}

bool usable(const dk_sdDictionary *dictionary) noexcept
{
    return dictionary != nullptr && dictionary->buckets != nullptr;
}

}  // namespace

std::uint32_t hash_value(const char *text) noexcept
{
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    std::uint32_t h = 0;
    // Unrolled by the period of the shift (position & 7), so that each position's shift and
    // parity are constants; the value is that of one step per byte.
    for (;; p += 8) {
        if (p[0] == '\0') break;
        h ^= contribution<0>(p[0]);
        if (p[1] == '\0') break;
        h ^= contribution<1>(p[1]);
        if (p[2] == '\0') break;
        h ^= contribution<2>(p[2]);
        if (p[3] == '\0') break;
        h ^= contribution<3>(p[3]);
        if (p[4] == '\0') break;
        h ^= contribution<4>(p[4]);
        if (p[5] == '\0') break;
        h ^= contribution<5>(p[5]);
        if (p[6] == '\0') break;
        h ^= contribution<6>(p[6]);
        if (p[7] == '\0') break;
        h ^= contribution<7>(p[7]);
    }
    return h;
}

std::uint32_t bucket_index(const dk_sdDictionary *dictionary, const char *text) noexcept
{
    const std::uint32_t h = hash_value(text);
    // The context's bucket count as a constant, so the compiler divides by multiplication; the
    // remainder is the same unsigned 32-bit one.
    if (dictionary->bucketCount == context_buckets)
        return h % context_buckets;
    return h % dictionary->bucketCount;
}

std::int32_t find(const dk_sdDictionary &dictionary, const char *text) noexcept
{
    return search(dictionary, dictionary.buckets[bucket_index(&dictionary, text)], text);
}

bool trim_all(std::string_view text, std::span<char> out) noexcept
{
    if (out.empty())
        return false;
    std::memset(out.data(), 0, out.size());
    std::size_t stored = 0;
    for (const char c : text) {
        if (c == '\t' || c == '\n' || c == ' ')
            continue;
        out[stored++] = c;
        if (stored == out.size())
            return false;
    }
    return true;
}

}  // namespace navo::dictionary

extern "C" {

NAVO_API int32_t NAVO_CALL dk_sdStrCmp(const char *left, const char *right) noexcept
{
    return navo::dictionary::compare(left, right);
}

NAVO_API int32_t NAVO_CALL dk_sdInit(dk_sdDictionary **out, uint32_t bucketCount) noexcept
{
    // The record goes out even when its buckets fail: dk_sdDestroy takes it back.
    dk_sdDictionary *dictionary = navo::memory::make_zeroed<dk_sdDictionary>();
    *out = dictionary;
    if (dictionary == nullptr)
        return 0;
    // No bucket could hold a string: refused like a failed bucket allocation.
    if (bucketCount == 0)
        return 0;
    dictionary->buckets = navo::memory::make_zeroed<dk_sdBucket>(bucketCount);
    if (dictionary->buckets == nullptr)
        return 0;
    dictionary->bucketCount = bucketCount;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdDestroy(dk_sdDictionary **pointer) noexcept
{
    dk_sdDictionary *dictionary = pointer != nullptr ? *pointer : nullptr;
    if (dictionary == nullptr)
        return 1;
    for (int32_t i = 0; i < dictionary->count; i++)
        navo::memory::release(dictionary->strings[i]);
    navo::memory::release(dictionary->strings);
    if (dictionary->buckets != nullptr) {
        for (uint32_t b = 0; b < dictionary->bucketCount; b++)
            navo::memory::release(dictionary->buckets[b].ids);
    }
    navo::memory::release(dictionary->buckets);
    navo::memory::release(dictionary);
    *pointer = nullptr;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdGetID(dk_sdDictionary *dictionary, const char *text, int32_t *out) noexcept
{
#if defined(NAVO_TEST_HOOKS)
    navo::dictionary::lookupCount.fetch_add(1, std::memory_order_relaxed);
#endif
    if (!navo::dictionary::usable(dictionary))
        return 0;
    *out = navo::dictionary::find(*dictionary, text);
    return *out >= 0 ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_sdAddStr(dk_sdDictionary *dictionary, const char *text) noexcept
{
    if (!navo::dictionary::usable(dictionary))
        return 0;
    return navo::dictionary::add(*dictionary, text) >= 0 ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_sdDelStr(dk_sdDictionary *dictionary, const char *text) noexcept
{
    if (!navo::dictionary::usable(dictionary))
        return 0;
    const int32_t id = navo::dictionary::find(*dictionary, text);
    if (id < 0)
        return 0;
    dk_sdBucket &bucket = dictionary->buckets[navo::dictionary::bucket_index(dictionary, text)];
    navo::memory::release(dictionary->strings[id]);
    dictionary->strings[id] = nullptr;
    int32_t position = 0;
    while (bucket.ids[position] != id)
        position++;
    std::memmove(&bucket.ids[position], &bucket.ids[position + 1],
                 static_cast<size_t>(bucket.count - position - 1) * sizeof(int32_t));
    bucket.count--;
    // A shrink that fails keeps the larger block; the count is what holds.
    (void)navo::memory::resize_array(bucket.ids, static_cast<size_t>(bucket.count));
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_sdDopisz(dk_sdDictionary *dictionary, const char *text) noexcept
{
    // Adds only a new string: one already held is refused.
    if (!navo::dictionary::usable(dictionary) || navo::dictionary::find(*dictionary, text) >= 0)
        return 0;
    return navo::dictionary::add(*dictionary, text) >= 0 ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_sdGetSafeID(dk_sdDictionary *dictionary, const char *text, int32_t *out) noexcept
{
    // The ID of a string held, else of the string interned now; -1 when it could not be.
    *out = navo::dictionary::usable(dictionary) ? navo::dictionary::add(*dictionary, text) : -1;
    return *out >= 0 ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_sdTrimAll(const char *text, char *out, int32_t size) noexcept
{
    if (size < 1)
        return 0;
    return navo::dictionary::trim_all(text, {out, static_cast<size_t>(size)}) ? 1 : 0;
}

}  // extern "C"
