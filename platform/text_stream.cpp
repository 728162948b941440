// platform/text_stream.cpp - text-mode output streams: fopen on Windows, a translating custom FILE* on POSIX.
#if !defined(_WIN32) && !defined(_GNU_SOURCE)
#  define _GNU_SOURCE  // fopencookie on glibc and musl; harmless where funopen is used
#endif

#include "platform/text_stream.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace navo::platform {
namespace {

bool is_text_mode(const char *mode) noexcept
{
    return mode != nullptr && std::strcmp(mode, "wt") == 0;
}

}  // namespace
}  // namespace navo::platform

#if defined(_WIN32)

namespace navo::platform {

File open_text_stream(const char *path, const char *mode) noexcept
{
    if (path == nullptr || !is_text_mode(mode)) {
        errno = EINVAL;
        return File();
    }
    // The C runtime's own text mode is the behaviour that the POSIX layer below imitates.
    return File(std::fopen(path, mode));
}

}  // namespace navo::platform

#else  // POSIX

#include <sys/types.h>

#include "core/allocator.hpp"

#if defined(__APPLE__) || defined(__FreeBSD__) || defined(__NetBSD__) || defined(__OpenBSD__) \
    || defined(__DragonFly__)
#  define NAVO_TEXT_FUNOPEN 1  // the BSD way to a custom stream; fopencookie elsewhere
#endif

namespace navo::platform {
namespace {

// The state under one text stream. The stdio buffer of the outer FILE sits on top of this;
// `raw` is a binary stream on the file itself, closed with the outer one.
struct TextCookie {
    std::FILE *raw;
    // Characters handed in on the untranslated side; what ftell reports.
    long long position;
};

// Writes `size` characters with each LF as CR LF and pushes them to the file at once, so a
// failure surfaces in the stdio call that flushed the outer buffer.
bool write_text(TextCookie &cookie, const char *buffer, std::size_t size) noexcept
{
    std::FILE *raw = cookie.raw;
    // Translated into a chunk of our own and handed on a chunk at a time: the same bytes in the
    // same order as an fwrite per line, with far fewer calls.
    std::array<char, 8192> chunk;
    std::size_t used = 0;
    for (std::size_t i = 0; i < size;) {
        const auto *lineFeed = static_cast<const char *>(std::memchr(buffer + i, '\n', size - i));
        const std::size_t runEnd = lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - buffer) : size;
        std::size_t run = runEnd - i;
        while (run > 0) {
            if (used == chunk.size()) {
                if (std::fwrite(chunk.data(), 1, used, raw) != used)
                    return false;
                used = 0;
            }
            const std::size_t part = std::min(run, chunk.size() - used);
            std::memcpy(chunk.data() + used, buffer + i, part);
            used += part;
            i += part;
            run -= part;
        }
        if (lineFeed == nullptr)
            break;
        if (chunk.size() - used < 2) {
            if (std::fwrite(chunk.data(), 1, used, raw) != used)
                return false;
            used = 0;
        }
        chunk[used++] = '\r';
        chunk[used++] = '\n';
        i++;
    }
    if (used > 0 && std::fwrite(chunk.data(), 1, used, raw) != used)
        return false;
    if (std::fflush(raw) != 0)
        return false;
    cookie.position += static_cast<long long>(size);
    return true;
}

// Only the seeks that a text-mode stream can honour: back to the start, and the query of the
// position (ftell, and the stdio layer's own bookkeeping).
bool seek_text(TextCookie &cookie, long long &offset, int whence) noexcept
{
    if (whence == SEEK_CUR && offset == 0) {
        offset = cookie.position;
        return true;
    }
    if (whence == SEEK_SET && offset == 0) {
        if (std::fflush(cookie.raw) != 0 || std::fseek(cookie.raw, 0, SEEK_SET) != 0)
            return false;
        std::clearerr(cookie.raw);
        cookie.position = 0;
        return true;
    }
    errno = EINVAL;
    return false;
}

int close_text(TextCookie *cookie) noexcept
{
    const int result = std::fclose(cookie->raw);
    memory::release(cookie);
    return result == 0 ? 0 : -1;
}

TextCookie &cookie_of(void *cookie) noexcept
{
    return *static_cast<TextCookie *>(cookie);
}

#if !defined(NAVO_TEXT_FUNOPEN)

#if defined(__GLIBC__)
using TextOffset = off64_t;
#else
using TextOffset = off_t;
#endif

ssize_t cookie_write(void *cookie, const char *buffer, std::size_t size) noexcept
{
    // glibc sets the stream's error flag when fewer than `size` bytes are reported.
    return write_text(cookie_of(cookie), buffer, size) ? static_cast<ssize_t>(size) : 0;
}

int cookie_seek(void *cookie, TextOffset *offset, int whence) noexcept
{
    long long position = *offset;
    if (!seek_text(cookie_of(cookie), position, whence))
        return -1;
    *offset = static_cast<TextOffset>(position);
    return 0;
}

int cookie_close(void *cookie) noexcept
{
    return close_text(static_cast<TextCookie *>(cookie));
}

std::FILE *wrap(TextCookie *cookie) noexcept
{
    cookie_io_functions_t functions{};
    functions.write = cookie_write;
    functions.seek = cookie_seek;
    functions.close = cookie_close;
    return fopencookie(cookie, "w", functions);
}

#else  // NAVO_TEXT_FUNOPEN

int fun_write(void *cookie, const char *buffer, int size) noexcept
{
    if (size <= 0)
        return 0;
    return write_text(cookie_of(cookie), buffer, static_cast<std::size_t>(size)) ? size : -1;
}

fpos_t fun_seek(void *cookie, fpos_t offset, int whence) noexcept
{
    long long position = static_cast<long long>(offset);
    if (!seek_text(cookie_of(cookie), position, whence))
        return static_cast<fpos_t>(-1);
    return static_cast<fpos_t>(position);
}

int fun_close(void *cookie) noexcept
{
    return close_text(static_cast<TextCookie *>(cookie));
}

std::FILE *wrap(TextCookie *cookie) noexcept
{
    return funopen(cookie, nullptr, fun_write, fun_seek, fun_close);
}

#endif

}  // namespace

File open_text_stream(const char *path, const char *mode) noexcept
{
    if (path == nullptr || !is_text_mode(mode)) {
        errno = EINVAL;
        return File();
    }
    memory::Owned<TextCookie> cookie(memory::make_zeroed<TextCookie>());
    if (!cookie) {
        errno = ENOMEM;
        return File();
    }
    File raw(std::fopen(path, "wb"));
    // The cleanup of a failure below leaves errno as the failing call set it, for the caller.
    if (!raw) {
        const int saved = errno;
        memory::release(cookie.take());
        errno = saved;
        return File();
    }
    cookie->raw = raw.get();
    File stream(wrap(cookie.get()));
    if (!stream) {
        const int saved = errno;
        raw.reset();
        memory::release(cookie.take());
        errno = saved;
        return File();
    }
    // The outer stream owns both now: its close closes `raw` and releases the cookie.
    (void)raw.release();
    cookie.take();
    return stream;
}

}  // namespace navo::platform

#endif  // POSIX
