// platform/file_input.cpp - a file's raw bytes read in large runs straight into the caller's buffer.
#include "platform/file_input.hpp"

#include <cerrno>
#include <cstdio>

#if !defined(_WIN32)
#  include <fcntl.h>
#  include <unistd.h>
#endif

namespace navo::platform {

#if defined(_WIN32)

FileInput::~FileInput() = default;

bool FileInput::open(const char *path) noexcept
{
    stream_.reset(path != nullptr ? std::fopen(path, "rb") : nullptr);
    return stream_ != nullptr;
}

std::size_t FileInput::read(char *buffer, std::size_t size) noexcept
{
    if (done_)
        return 0;
    const std::size_t got = std::fread(buffer, 1, size, stream_.get());
    if (got < size) {
        done_ = true;
        failed_ = std::ferror(stream_.get()) != 0;
    }
    return got;
}

void FileInput::rewind() noexcept
{
    if (std::fseek(stream_.get(), 0, SEEK_SET) == 0) {
        std::clearerr(stream_.get());
        done_ = false;
        failed_ = false;
    }
}

#else  // POSIX

FileInput::~FileInput()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool FileInput::open(const char *path) noexcept
{
    if (path == nullptr) {
        errno = EINVAL;
        return false;
    }
    int descriptor = -1;
    do
        descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
    while (descriptor < 0 && errno == EINTR);
    descriptor_ = descriptor;
    return descriptor >= 0;
}

std::size_t FileInput::read(char *buffer, std::size_t size) noexcept
{
    std::size_t got = 0;
    while (got < size && !done_) {
        const ssize_t n = ::read(descriptor_, buffer + got, size - got);
        if (n > 0) {
            got += static_cast<std::size_t>(n);
        } else if (n == 0) {
            done_ = true;
        } else if (errno != EINTR) {
            done_ = true;
            failed_ = true;
        }
    }
    return got;
}

void FileInput::rewind() noexcept
{
    if (::lseek(descriptor_, 0, SEEK_SET) == 0) {
        done_ = false;
        failed_ = false;
    }
}

#endif

}  // namespace navo::platform
