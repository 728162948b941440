// core/dictionary.hpp - the string dictionary: names interned as small IDs in a chained hash table.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "navo.h"

namespace navo::dictionary {

// The bucket count that dk_Init gives every context.
inline constexpr std::uint32_t context_buckets = 400;

// The raw 32-bit hash accumulator of `text` (NUL-terminated), before the modulo.
std::uint32_t hash_value(const char *text) noexcept;

// The bucket index of `text`: hash_value modulo the dictionary's bucket count.
std::uint32_t bucket_index(const dk_sdDictionary *dictionary, const char *text) noexcept;

// The ID of `text`, or -1 when the dictionary does not hold it.
std::int32_t find(const dk_sdDictionary &dictionary, const char *text) noexcept;

#if defined(NAVO_TEST_HOOKS)
// Lookups by dk_sdGetID so far, in the whole process: the store's guesses exist to spare them,
// and the tests count them to see that the guesses are taken (a relaxed count, for that only;
// test builds only).
std::uint64_t lookups() noexcept;
#endif

// Copies `text` into `out` without its TABs, LFs and spaces, zero-filling the rest of `out`.
// False when the kept bytes fill `out` entirely, leaving no room for the terminator, or when
// `out` is empty.
bool trim_all(std::string_view text, std::span<char> out) noexcept;

}  // namespace navo::dictionary
