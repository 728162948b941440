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

int compare_name(const char *name, std::string_view wanted) noexcept
{
    bool exact = true;
    for (std::size_t i = 0; i < wanted.size(); i++) {
        char x = name[i];
        if (x == '\0')
            return 0;
        char y = wanted[i];
        if (x == y)
            continue;
        exact = false;
        if (x >= 'a' && x <= 'z')
            x = static_cast<char>(x - 'a' + 'A');
        if (y >= 'a' && y <= 'z')
            y = static_cast<char>(y - 'a' + 'A');
        if (x != y)
            return 0;
    }
    if (name[wanted.size()] != '\0')
        return 0;
    return exact ? 2 : 1;
}

}  // namespace navo::front
