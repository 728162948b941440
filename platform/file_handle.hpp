// platform/file_handle.hpp - navo::platform::File, a stdio stream that closes itself.
#pragma once

#include <cstdio>
#include <memory>

namespace navo::platform {

struct FileCloser {
    void operator()(std::FILE *file) const noexcept { std::fclose(file); }
};

// Owns one stream: fclose runs when the handle goes out of scope, unless `release()` hands the
// stream on (to a record of navo.h that keeps a plain FILE*, or to a host). A null handle is an
// open that failed. Nothing is allocated for the handle itself.
using File = std::unique_ptr<std::FILE, FileCloser>;

// Closes now and tells whether fclose succeeded, for writers whose last buffered bytes fail only
// at the close; the handle is empty afterwards. An empty handle closes successfully.
inline bool close(File &file) noexcept
{
    std::FILE *stream = file.release();
    return stream == nullptr || std::fclose(stream) == 0;
}

}  // namespace navo::platform
