// platform/scratch_file.cpp - scratch files: tmpfile and fseeko on POSIX, a delete-on-close file and _fseeki64 on Windows.
#if !defined(_WIN32) && !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // fseeko, ftello
#endif

#include "platform/scratch_file.hpp"

#include <cerrno>

#if defined(_WIN32)
#  include <fcntl.h>
#  include <io.h>
#  include <windows.h>
#else
#  include <sys/types.h>
#endif

namespace navo::platform {

std::FILE *open_scratch_file() noexcept
{
#if defined(_WIN32)
    // The C runtime's tmpfile makes its file in the root of the current drive, where a user may
    // not write: the file goes to the temporary directory, and the system deletes it on close.
    char directory[MAX_PATH + 1];
    char path[MAX_PATH + 1];
    const DWORD length = GetTempPathA(static_cast<DWORD>(sizeof directory), directory);
    if (length == 0 || length > MAX_PATH || GetTempFileNameA(directory, "nvs", 0, path) == 0) {
        errno = ENOENT;
        return nullptr;
    }
    const HANDLE handle = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        DeleteFileA(path);
        errno = EACCES;
        return nullptr;
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDWR | _O_BINARY);
    if (descriptor < 0) {
        CloseHandle(handle);
        return nullptr;
    }
    std::FILE *file = _fdopen(descriptor, "w+b");
    if (file == nullptr)
        _close(descriptor);
    return file;
#else
    return std::tmpfile();
#endif
}

bool seek_to(std::FILE *file, std::int64_t offset) noexcept
{
#if defined(_WIN32)
    return _fseeki64(file, offset, SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

std::int64_t position_of(std::FILE *file) noexcept
{
#if defined(_WIN32)
    return _ftelli64(file);
#else
    return static_cast<std::int64_t>(ftello(file));
#endif
}

}  // namespace navo::platform
