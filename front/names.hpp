// front/names.hpp - the one rule by which a host's name finds a form, block tag or field name.
#pragma once

#include <cstdint>
#include <string_view>

namespace navo::front {

// Whether two names are equal with the ASCII letters a-z folded to A-Z; other bytes compare exactly.
bool equal_folded(std::string_view a, std::string_view b) noexcept;

// How a NUL-terminated name compares with `wanted`, without measuring the name first: 2 spelt
// exactly so, 1 equal with ASCII letters folded, 0 otherwise.
int compare_name(const char *name, std::string_view wanted) noexcept;

// The index among `count` names (name_of(i) gives name i, NUL-terminated) of the one spelt exactly
// as `wanted`, or, when none is, of the one name equal to it folded; -1 when there is none, or
// when more than one equals it folded. `first` is tried first: the name a caller expects (the
// field after the last one it set), so that a run through a block's fields in order takes one
// comparison each.
template <class NameOf>
std::int32_t match_name(std::string_view wanted, std::int32_t count, NameOf name_of, std::int32_t first = -1) noexcept
{
    if (first >= 0 && first < count && compare_name(name_of(first), wanted) == 2)
        return first;
    std::int32_t folded = -1;
    std::int32_t foldedMatches = 0;
    for (std::int32_t i = 0; i < count; i++) {
        const int match = compare_name(name_of(i), wanted);
        if (match == 2)
            return i;
        if (match == 1) {
            folded = i;
            foldedMatches++;
        }
    }
    return foldedMatches == 1 ? folded : -1;
}

}  // namespace navo::front
