// internals.hpp - the only place the tests reach past navo.h and the allocator's hooks: the
// platform layer's text-mode output stream and temporary-file creation, which have no exported
// entry. When these move or change their names, only this file follows them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <span>
#include <string>

#include "platform/temp_file.hpp"
#include "platform/text_stream.hpp"
#include "text_input.h"

namespace navo_test::internals {

// Text-mode stream: mode "rt" (the tests' own reading stream) or "wt" (the library's); any other
// mode goes to the library, which refuses it. Null on failure.
inline FILE *openText(const std::string &path, const char *mode)
{
    if (mode != nullptr && std::string(mode) == "rt")
        return openTextInput(path);
    return navo::platform::open_text_stream(path.c_str(), mode).release();
}

// A new owner-only spool file in the directory for temporary files; its path, or "" on failure
// (then `out` must be left empty, checked by the caller through `emptied`).
inline std::string createTemp(std::size_t size, bool *emptied = nullptr)
{
    std::string out(size == 0 ? 1 : size, 'x');
    const bool ok = navo::platform::create_temp_file(std::span<char>(out.data(), size));
    if (emptied != nullptr)
        *emptied = size == 0 || out[0] == '\0';
    return ok ? std::string(out.c_str()) : std::string();
}

}  // namespace navo_test::internals
