// front/names.hpp - the one rule by which a host's name finds a form, block tag or field name.
#pragma once

#include <cstdint>
#include <string_view>

namespace navo::front {

// Whether two names are equal with the ASCII letters a-z folded to A-Z; other bytes compare exactly.
bool equal_folded(std::string_view a, std::string_view b) noexcept;

// The index among `count` names (name_of(i) gives name i) of the one spelt exactly as `wanted`,
// or, when none is, of the one name equal to it folded; -1 when there is none, or when more
// than one equals it folded.
template <class NameOf>
std::int32_t match_name(std::string_view wanted, std::int32_t count, NameOf name_of) noexcept
{
    std::int32_t folded = -1;
    std::int32_t foldedMatches = 0;
    for (std::int32_t i = 0; i < count; i++) {
        const std::string_view name = name_of(i);
        if (name == wanted)
            return i;
        if (equal_folded(name, wanted)) {
            folded = i;
            foldedMatches++;
        }
    }
    return foldedMatches == 1 ? folded : -1;
}

}  // namespace navo::front
