// platform/text_stream.cpp - text-mode streams: fopen on Windows, a translating custom FILE* on POSIX.
#if !defined(_WIN32) && !defined(_GNU_SOURCE)
#  define _GNU_SOURCE  // fopencookie and getc_unlocked on glibc and musl; harmless where funopen is used
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
    return mode != nullptr && (std::strcmp(mode, "rt") == 0 || std::strcmp(mode, "wt") == 0);
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

constexpr int ctrl_z = 0x1A;

// The state under one text stream. The stdio buffer of the outer FILE sits on top of this;
// `raw` is a binary stream on the file itself, closed with the outer one.
struct TextCookie {
    std::FILE *raw;
    bool writing;
    // A 0x1A was met: the input has ended until the stream goes back to its start.
    bool ended;
    // Characters handed through on the translated side; what ftell reports.
    long long position;
};

// Fills `buffer` with up to `size` translated characters. Gives their number, 0 at the end of
// the input, -1 on a read error that left nothing to hand out.
long long read_text(TextCookie &cookie, char *buffer, std::size_t size) noexcept
{
    std::FILE *raw = cookie.raw;
    if (cookie.ended)
        return 0;
    if (std::ferror(raw))
        return -1;
    // The raw bytes come in runs by fread and are translated in place (the output never
    // outgrows the input), for speed: one getc per byte costs a call each. The characters
    // handed out, the end at 0x1A and the error reporting are those of a byte-wise loop.
    std::size_t n = 0;
    while (n < size) {
        const std::size_t want = size - n;
        const std::size_t got = std::fread(buffer + n, 1, want, raw);
        if (got == 0) {
            // An error behind characters already taken is reported by the next call.
            if (n == 0 && std::ferror(raw))
                return -1;
            break;
        }
        const std::size_t end = n + got;
        // Only the bytes before a 0x1A count; after it the input has ended.
        const auto *stop = static_cast<const char *>(std::memchr(buffer + n, ctrl_z, got));
        const std::size_t limit = stop != nullptr ? static_cast<std::size_t>(stop - buffer) : end;
        // A CR is dropped exactly when an LF stands right behind it, which is what taking the
        // LF in its place comes to; no byte is looked at twice. Bytes whose follower is in this
        // run are decided here, without a branch per byte.
        const std::size_t last = limit == end && limit > n ? limit - 1 : limit;
        // The runs between CRs stay as they are (moved down once a CR was dropped before them),
        // found by memchr; only a CR itself is looked at with the byte behind it.
        std::size_t o = n;
        for (std::size_t i = n; i < last;) {
            const auto *cr = static_cast<const char *>(std::memchr(buffer + i, '\r', last - i));
            const std::size_t runEnd = cr != nullptr ? static_cast<std::size_t>(cr - buffer) : last;
            if (o != i)
                std::memmove(buffer + o, buffer + i, runEnd - i);
            o += runEnd - i;
            i = runEnd;
            if (i == last)
                break;
            if (buffer[i + 1] != '\n')
                buffer[o++] = '\r';
            i++;
        }
        if (last < limit) {
            char c = buffer[last];
            if (c == '\r') {
                // A CR at the end of the run is decided by the byte really behind it.
                const int next = getc_unlocked(raw);
                if (next == '\n')
                    c = '\n';
                else if (next != EOF)
                    std::ungetc(next, raw);
            }
            buffer[o++] = c;
        }
        if (stop != nullptr)
            cookie.ended = true;
        n = o;
        // A short run means the end of the file or an error, where the byte-wise loop stopped.
        if (cookie.ended || got < want)
            break;
    }
    cookie.position += static_cast<long long>(n);
    return static_cast<long long>(n);
}

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

// Only the seeks that the library and a text-mode stream can honour: back to the start, and
// the query of the position (ftell, and the stdio layer's own bookkeeping).
bool seek_text(TextCookie &cookie, long long &offset, int whence) noexcept
{
    if (whence == SEEK_CUR && offset == 0) {
        offset = cookie.position;
        return true;
    }
    if (whence == SEEK_SET && offset == 0) {
        if (cookie.writing && std::fflush(cookie.raw) != 0)
            return false;
        if (std::fseek(cookie.raw, 0, SEEK_SET) != 0)
            return false;
        std::clearerr(cookie.raw);
        cookie.ended = false;
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

ssize_t cookie_read(void *cookie, char *buffer, std::size_t size) noexcept
{
    return static_cast<ssize_t>(read_text(cookie_of(cookie), buffer, size));
}

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
    functions.read = cookie->writing ? nullptr : cookie_read;
    functions.write = cookie->writing ? cookie_write : nullptr;
    functions.seek = cookie_seek;
    functions.close = cookie_close;
    return fopencookie(cookie, cookie->writing ? "w" : "r", functions);
}

#else  // NAVO_TEXT_FUNOPEN

int fun_read(void *cookie, char *buffer, int size) noexcept
{
    return static_cast<int>(read_text(cookie_of(cookie), buffer, size > 0 ? static_cast<std::size_t>(size) : 0));
}

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
    return funopen(cookie, cookie->writing ? nullptr : fun_read, cookie->writing ? fun_write : nullptr, fun_seek,
                   fun_close);
}

#endif

}  // namespace

File open_text_stream(const char *path, const char *mode) noexcept
{
    if (path == nullptr || !is_text_mode(mode)) {
        errno = EINVAL;
        return File();
    }
    const bool writing = mode[0] == 'w';
    memory::Owned<TextCookie> cookie(memory::make_zeroed<TextCookie>());
    if (!cookie) {
        errno = ENOMEM;
        return File();
    }
    cookie->writing = writing;
    File raw(std::fopen(path, writing ? "wb" : "rb"));
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
