// platform/spool_io.cpp - positioned writes of spool bytes: pwrite on POSIX, _lseeki64 and _write on Windows.
#if !defined(_WIN32) && !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // pwrite, fileno
#endif

#include "platform/spool_io.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>

#if defined(_WIN32)
#  include <io.h>
#else
#  include <unistd.h>
#endif

namespace navo::platform {

std::size_t write_at(std::FILE *file, long offset, std::span<const char> bytes) noexcept
{
    // Bytes the stream still buffers go first, so that the positioned write lands after them.
    if (std::fflush(file) != 0)
        return 0;
    std::size_t done = 0;
#if defined(_WIN32)
    const int fd = _fileno(file);
    if (_lseeki64(fd, offset, SEEK_SET) < 0)
        return 0;
    while (done < bytes.size()) {
        const auto chunk = static_cast<unsigned>(std::min<std::size_t>(bytes.size() - done, INT_MAX));
        const int wrote = _write(fd, bytes.data() + done, chunk);
        if (wrote <= 0)
            break;
        done += static_cast<std::size_t>(wrote);
    }
#else
    const int fd = fileno(file);
    while (done < bytes.size()) {
        const ssize_t wrote = pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset) +
                                                                                       static_cast<off_t>(done));
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            break;
        done += static_cast<std::size_t>(wrote);
    }
#endif
    return done;
}

}  // namespace navo::platform
