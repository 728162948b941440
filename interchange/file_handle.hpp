// interchange/file_handle.hpp - a FILE* that closes itself: the streams the loader and the writer open.
#pragma once

#include <cstdio>
#include <memory>

namespace navo::interchange {

// Closes the stream; what the close reports is not examined by any of its users.
struct CloseFile {
    void operator()(std::FILE *file) const noexcept { static_cast<void>(std::fclose(file)); }
};

// Owns a stream from its open to the end of the scope, whichever way the scope is left.
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace navo::interchange
