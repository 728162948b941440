// platform/replacement_file.cpp - files that replace their target in one step: rename on POSIX, MoveFileExA on Windows.
#if defined(_WIN32)
#  define _CRT_RAND_S  // rand_s: the C runtime's kernel-backed random numbers
#elif !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // O_CLOEXEC, O_DIRECTORY, fchmod, fdopen, fileno, fsync
#endif

#include "platform/replacement_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#if defined(_WIN32)
#  include <fcntl.h>
#  include <io.h>
#  include <windows.h>
#  include "core/allocator.hpp"
#else
#  include <fcntl.h>
#  if defined(__APPLE__)
#    include <sys/random.h>  // getentropy; glibc and musl declare it in unistd.h
#  endif
#  include <sys/stat.h>
#  include <unistd.h>
#endif

namespace navo::platform {
namespace {

// The new file is "." + the target's name + "." + a random suffix: hidden from a plain listing,
// recognisable as belonging to the target, and unguessable (62^12 names), so no other process
// can put a file or link at that name in advance. O_EXCL / CREATE_NEW refuse any name taken.
constexpr std::string_view suffix_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t suffix_length = 12;
constexpr int attempts = 100;
// A name may have 255 bytes on every common file system; a long target's name is cut so that
// the new file's name fits too.
constexpr std::size_t name_max = 255;
constexpr std::size_t kept_name_max = name_max - 2 - suffix_length;

bool is_separator(char c) noexcept
{
#if defined(_WIN32)
    return c == '/' || c == '\\' || c == ':';  // ':' ends a drive, as in "C:name"
#else
    return c == '/';
#endif
}

// Random bytes from the system, or false; without randomness no name is made.
bool fill_random(unsigned char *bytes, std::size_t count) noexcept
{
#if defined(_WIN32)
    for (std::size_t i = 0; i < count; i++) {
        unsigned int value = 0;
        if (rand_s(&value) != 0)
            return false;
        bytes[i] = static_cast<unsigned char>(value);
    }
    return true;
#else
    return ::getentropy(bytes, count) == 0;
#endif
}

#if defined(_WIN32)

// The errno closest to a Windows error, for callers that read errno on every platform.
void set_errno_from(DWORD error) noexcept
{
    switch (error) {
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        errno = EEXIST;
        break;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
        errno = ENOENT;
        break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
        errno = EACCES;
        break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
        errno = ENOSPC;
        break;
    case ERROR_FILENAME_EXCED_RANGE:
        errno = ENAMETOOLONG;
        break;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
        errno = ENOMEM;
        break;
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_PARAMETER:
        errno = EINVAL;
        break;
    default:
        errno = EIO;
        break;
    }
}

// Gives the new file the access list of the file it replaces, which MoveFileExA would otherwise
// drop with the old file. True when there is no file at `target` to take it from.
bool copy_access_list(const char *target, const char *path) noexcept
{
    DWORD needed = 0;
    if (GetFileSecurityA(target, DACL_SECURITY_INFORMATION, nullptr, 0, &needed))
        return true;
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return true;
    if (error != ERROR_INSUFFICIENT_BUFFER || needed == 0) {
        set_errno_from(error);
        return false;
    }
    memory::Owned<void> descriptor(memory::allocate(needed));
    if (!descriptor) {
        errno = ENOMEM;
        return false;
    }
    if (!GetFileSecurityA(target, DACL_SECURITY_INFORMATION, descriptor.get(), needed, &needed) ||
        !SetFileSecurityA(path, DACL_SECURITY_INFORMATION, descriptor.get())) {
        set_errno_from(GetLastError());
        return false;
    }
    return true;
}

// Creates `path` as a new file, gives it the access of the file at `target` and a binary stream.
File create_new(const char *path, const char *target) noexcept
{
    const HANDLE handle =
        CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        set_errno_from(GetLastError());
        return File();
    }
    int descriptor = -1;
    if (copy_access_list(target, path)) {
        descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_BINARY | _O_WRONLY);
        if (descriptor < 0)
            errno = EMFILE;
    }
    File stream(descriptor >= 0 ? _fdopen(descriptor, "wb") : nullptr);
    if (!stream) {
        const int saved = errno;
        if (descriptor >= 0)
            _close(descriptor);  // closes the handle as well
        else
            CloseHandle(handle);
        DeleteFileA(path);
        errno = saved;
    }
    return stream;
}

void remove_file(const char *path) noexcept
{
    DeleteFileA(path);
}

#else

// The permission bits of a regular file at `target`, or -1 when none stands there. Only the
// permission bits: set-user-ID, set-group-ID and sticky bits are not carried to a file whose
// content the program writes.
int existing_mode(const char *target) noexcept
{
    struct stat info;
    if (::stat(target, &info) != 0 || !S_ISREG(info.st_mode))
        return -1;
    return static_cast<int>(info.st_mode & 0777);
}

// Creates `path` as a new file (mode 0666 less the umask, or `mode` when not -1) and gives a
// binary stream on it.
File create_new(const char *path, int mode) noexcept
{
    const int descriptor = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return File();
    File stream;
    if (mode < 0 || ::fchmod(descriptor, static_cast<mode_t>(mode)) == 0)
        stream.reset(::fdopen(descriptor, "wb"));
    if (!stream) {
        const int saved = errno;
        ::close(descriptor);
        ::unlink(path);
        errno = saved;
    }
    return stream;
}

void remove_file(const char *path) noexcept
{
    ::unlink(path);
}

// Makes the rename itself durable: the directory's entry is synced too. Best effort: some file
// systems refuse to open or sync a directory, and the file's own bytes are on disk already.
void sync_directory(const char *directory) noexcept
{
    const int descriptor = ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    (void)::fsync(descriptor);
    ::close(descriptor);
}

#endif

}  // namespace

ReplacementFile::~ReplacementFile()
{
    abandon();
}

bool ReplacementFile::open(const char *target) noexcept
{
    abandon();
    if (target == nullptr) {
        errno = EINVAL;
        return false;
    }
    const std::size_t targetLength = std::strlen(target);
    std::size_t directoryLength = targetLength;
    while (directoryLength > 0 && !is_separator(target[directoryLength - 1]))
        directoryLength--;
    const std::string_view name(target + directoryLength, targetLength - directoryLength);
    if (name.empty()) {  // a directory's path: nothing to replace
        errno = EISDIR;
        return false;
    }
    const std::size_t keptName = std::min(name.size(), kept_name_max);
    if (targetLength >= path_size || directoryLength + 2 + keptName + suffix_length >= path_size) {
        errno = ENAMETOOLONG;
        return false;
    }
#if !defined(_WIN32)
    const int mode = existing_mode(target);
#endif
    for (int attempt = 0; attempt < attempts; attempt++) {
        char *cursor = std::copy_n(target, directoryLength, path_);
        *cursor++ = '.';
        cursor = std::copy_n(name.data(), keptName, cursor);
        *cursor++ = '.';
        unsigned char random[suffix_length];
        if (!fill_random(random, suffix_length)) {
            errno = EAGAIN;
            break;
        }
        for (const unsigned char byte : random)
            *cursor++ = suffix_alphabet[byte % suffix_alphabet.size()];
        *cursor = '\0';
#if defined(_WIN32)
        stream_ = create_new(path_, target);
#else
        stream_ = create_new(path_, mode);
#endif
        if (stream_) {
            std::memcpy(target_, target, targetLength + 1);
            directoryLength_ = directoryLength;
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    path_[0] = '\0';
    return false;
}

bool ReplacementFile::commit() noexcept
{
    std::FILE *stream = stream_.get();
    if (stream == nullptr) {
        errno = EINVAL;
        return false;
    }
    bool done = std::fflush(stream) == 0;
    // A write that failed before (its bytes are lost) leaves the error flag but no errno.
    if (done && std::ferror(stream) != 0) {
        errno = EIO;
        done = false;
    }
#if defined(_WIN32)
    if (done && !FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))))) {
        set_errno_from(GetLastError());
        done = false;
    }
    done = done && close(stream_);
    // Write-through: the call returns once the move is on disk, directory entry included.
    if (done && !MoveFileExA(path_, target_, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        set_errno_from(GetLastError());
        done = false;
    }
    if (!done) {
        abandon();
        return false;
    }
    path_[0] = '\0';
#else
    if (done) {
        // EINTR: asked again. EINVAL: a file system that has nothing to sync (no failure of ours).
        int synced;
        while ((synced = ::fsync(::fileno(stream))) != 0 && errno == EINTR) {
        }
        done = synced == 0 || errno == EINVAL;
    }
    done = done && close(stream_);
    done = done && ::rename(path_, target_) == 0;
    if (!done) {
        abandon();
        return false;
    }
    path_[0] = '\0';
    target_[directoryLength_] = '\0';
    sync_directory(directoryLength_ > 0 ? target_ : ".");
#endif
    target_[0] = '\0';
    directoryLength_ = 0;
    return true;
}

void ReplacementFile::abandon() noexcept
{
    const int saved = errno;
    stream_.reset();
    if (path_[0] != '\0')
        remove_file(path_);
    path_[0] = '\0';
    target_[0] = '\0';
    directoryLength_ = 0;
    errno = saved;
}

}  // namespace navo::platform
