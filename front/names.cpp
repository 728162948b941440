// front/names.cpp - the comparison behind name matching: ASCII letters folded, nothing else.
#include "front/names.hpp"

namespace navo::front {

bool equal_folded(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); i++) {
        char x = a[i];
        char y = b[i];
        if (x >= 'a' && x <= 'z')
            x = static_cast<char>(x - 'a' + 'A');
        if (y >= 'a' && y <= 'z')
            y = static_cast<char>(y - 'a' + 'A');
        if (x != y)
            return false;
    }
    return true;
}

}  // namespace navo::front
