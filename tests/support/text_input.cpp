// text_input.cpp - text-mode input streams for the tests: fopen "rt" on Windows, a translating custom FILE* elsewhere.
#if !defined(_WIN32) && !defined(_GNU_SOURCE)
#define _GNU_SOURCE  // fopencookie on glibc and musl; harmless where funopen is used
#endif

#include "text_input.h"

#if defined(_WIN32)

namespace navo_test {

FILE *openTextInput(const std::string &path)
{
    return std::fopen(path.c_str(), "rt");
}

}  // namespace navo_test

#else

#include <cerrno>
#include <cstring>
#include <new>

#include <sys/types.h>

#if defined(__APPLE__) || defined(__FreeBSD__) || defined(__NetBSD__) || defined(__OpenBSD__) \
    || defined(__DragonFly__)
#define NAVO_TEXT_FUNOPEN 1  // the BSD way to a custom stream; fopencookie elsewhere
#endif

namespace navo_test {
namespace {

constexpr int ctrl_z = 0x1A;

// The state under one text stream; `raw` is a binary stream on the file, closed with the outer one.
struct TextCookie {
    std::FILE *raw;
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
                const int next = std::getc(raw);
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

// Back to the start, and the query of the position (ftell, and the stdio layer's bookkeeping).
bool seek_text(TextCookie &cookie, long long &offset, int whence) noexcept
{
    if (whence == SEEK_CUR && offset == 0) {
        offset = cookie.position;
        return true;
    }
    if (whence == SEEK_SET && offset == 0) {
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

int close_text(void *cookie) noexcept
{
    auto *text = static_cast<TextCookie *>(cookie);
    const int result = std::fclose(text->raw);
    delete text;
    return result == 0 ? 0 : -1;
}

#if !defined(NAVO_TEXT_FUNOPEN)

#if defined(__GLIBC__)
using TextOffset = off64_t;
#else
using TextOffset = off_t;
#endif

ssize_t cookie_read(void *cookie, char *buffer, std::size_t size) noexcept
{
    return static_cast<ssize_t>(read_text(*static_cast<TextCookie *>(cookie), buffer, size));
}

int cookie_seek(void *cookie, TextOffset *offset, int whence) noexcept
{
    long long position = *offset;
    if (!seek_text(*static_cast<TextCookie *>(cookie), position, whence))
        return -1;
    *offset = static_cast<TextOffset>(position);
    return 0;
}

std::FILE *wrap(TextCookie *cookie) noexcept
{
    cookie_io_functions_t functions{};
    functions.read = cookie_read;
    functions.seek = cookie_seek;
    functions.close = close_text;
    return fopencookie(cookie, "r", functions);
}

#else

int fun_read(void *cookie, char *buffer, int size) noexcept
{
    return static_cast<int>(
        read_text(*static_cast<TextCookie *>(cookie), buffer, size > 0 ? static_cast<std::size_t>(size) : 0));
}

fpos_t fun_seek(void *cookie, fpos_t offset, int whence) noexcept
{
    long long position = static_cast<long long>(offset);
    if (!seek_text(*static_cast<TextCookie *>(cookie), position, whence))
        return static_cast<fpos_t>(-1);
    return static_cast<fpos_t>(position);
}

std::FILE *wrap(TextCookie *cookie) noexcept
{
    return funopen(cookie, fun_read, nullptr, fun_seek, close_text);
}

#endif

}  // namespace

FILE *openTextInput(const std::string &path)
{
    std::FILE *raw = std::fopen(path.c_str(), "rb");
    if (raw == nullptr)
        return nullptr;
    auto *cookie = new (std::nothrow) TextCookie{raw, false, 0};
    std::FILE *stream = cookie != nullptr ? wrap(cookie) : nullptr;
    if (stream == nullptr) {
        std::fclose(raw);
        delete cookie;
    }
    return stream;
}

}  // namespace navo_test

#endif
