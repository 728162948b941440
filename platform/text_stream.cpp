/* dk_textstream.c - text-mode streams: fopen on Windows, a translating custom FILE* on POSIX. */
#if !defined(_WIN32) && !defined(_GNU_SOURCE)
/* fopencookie and getc_unlocked on glibc and musl; harmless where funopen is used. */
#define _GNU_SOURCE
#endif

#include "platform/text_stream.hpp"

#include <errno.h>
#include <string.h>

#if defined(_WIN32)

FILE *dk_textOpen(const char *path, const char *mode)
{
    if (path == NULL || mode == NULL || (strcmp(mode, "rt") != 0 && strcmp(mode, "wt") != 0)) {
        errno = EINVAL;
        return NULL;
    }
    /* The C runtime's own text mode is the behaviour that the POSIX layer below imitates. */
    return fopen(path, mode);
}

#else /* POSIX */

#include <sys/types.h>

#include "core/allocator.hpp"

#if defined(__APPLE__) || defined(__FreeBSD__) || defined(__NetBSD__) || defined(__OpenBSD__) \
    || defined(__DragonFly__)
#define DK_TEXT_FUNOPEN 1
#else
#define DK_TEXT_FOPENCOOKIE 1
#endif

#define DK_CTRL_Z 0x1A

/* The state under one text stream. The stdio buffer of the outer FILE sits on top of this;
   `raw` is a binary stream on the file itself. */
typedef struct dk_TextCookie {
    FILE *raw;
    int writing;
    /* A 0x1A was met: the input has ended until the stream goes back to its start. */
    int ended;
    /* Characters handed through on the translated side; what ftell reports. */
    long long position;
} dk_TextCookie;

/* Fills `buffer` with up to `size` translated characters. Returns their number, 0 at the end
   of the input, -1 on a read error that left nothing to hand out. */
static long long dk_textRead(dk_TextCookie *cookie, char *buffer, size_t size)
{
    FILE *raw = cookie->raw;
    size_t n = 0;
    if (cookie->ended)
        return 0;
    if (ferror(raw))
        return -1;
    /* Departure (speed only): the raw bytes come in runs by fread and are translated in place
       (the output never outgrows the input), instead of one getc per byte; the characters handed
       out, the end at 0x1A and the error reporting are those of the byte-wise loop. */
    while (n < size) {
        size_t want = size - n;
        size_t got = fread(buffer + n, 1, want, raw);
        size_t end = n + got;
        size_t limit;
        size_t last;
        size_t i;
        size_t o = n;
        const char *stop;
        if (got == 0) {
            /* An error behind characters already taken is reported by the next call. */
            if (n == 0 && ferror(raw))
                return -1;
            break;
        }
        /* Only the bytes before a 0x1A count; after it the input has ended. */
        stop = static_cast<const char *>(memchr(buffer + n, DK_CTRL_Z, got));
        limit = stop != NULL ? (size_t)(stop - buffer) : end;
        /* A CR is dropped exactly when an LF stands right behind it, which is what taking the
           LF in its place comes to; no byte is looked at twice. Bytes whose follower is in this
           run are decided here, without a branch per byte. */
        last = limit == end && limit > n ? limit - 1 : limit;
        for (i = n; i < last; i++) {
            char c = buffer[i];
            buffer[o] = c;
            o += (size_t)!(c == '\r' && buffer[i + 1] == '\n');
        }
        if (last < limit) {
            char c = buffer[last];
            if (c == '\r') {
                /* A CR at the end of the run is decided by the byte really behind it. */
                int next = getc_unlocked(raw);
                if (next == '\n')
                    c = '\n';
                else if (next != EOF)
                    ungetc(next, raw);
            }
            buffer[o++] = c;
        }
        if (stop != NULL)
            cookie->ended = 1;
        n = o;
        /* A short run means the end of the file or an error, where the byte-wise loop stopped. */
        if (cookie->ended || got < want)
            break;
    }
    cookie->position += (long long)n;
    return (long long)n;
}

/* Writes `size` characters with each LF as CR LF and pushes them to the file at once, so a
   failure surfaces in the stdio call that flushed the outer buffer. Returns 1 or 0. */
static int dk_textWrite(dk_TextCookie *cookie, const char *buffer, size_t size)
{
    FILE *raw = cookie->raw;
    size_t start = 0;
    size_t i;
    for (i = 0; i < size; i++) {
        if (buffer[i] != '\n')
            continue;
        if (fwrite(buffer + start, 1, i - start, raw) != i - start || fwrite("\r\n", 1, 2, raw) != 2)
            return 0;
        start = i + 1;
    }
    if (fwrite(buffer + start, 1, size - start, raw) != size - start)
        return 0;
    if (fflush(raw) != 0)
        return 0;
    cookie->position += (long long)size;
    return 1;
}

/* Only the seeks that the library and a text-mode stream can honour: back to the start, and
   the query of the position (ftell, and the stdio layer's own bookkeeping). */
static int dk_textSeek(dk_TextCookie *cookie, long long *offset, int whence)
{
    if (whence == SEEK_CUR && *offset == 0) {
        *offset = cookie->position;
        return 0;
    }
    if (whence == SEEK_SET && *offset == 0) {
        if (cookie->writing && fflush(cookie->raw) != 0)
            return -1;
        if (fseek(cookie->raw, 0, SEEK_SET) != 0)
            return -1;
        clearerr(cookie->raw);
        cookie->ended = 0;
        cookie->position = 0;
        return 0;
    }
    errno = EINVAL;
    return -1;
}

static int dk_textClose(dk_TextCookie *cookie)
{
    int result = fclose(cookie->raw);
    navo::memory::release(cookie);
    return result == 0 ? 0 : -1;
}

#if defined(DK_TEXT_FOPENCOOKIE)

#if defined(__GLIBC__)
typedef off64_t dk_TextOffset;
#else
typedef off_t dk_TextOffset;
#endif

static ssize_t dk_textCookieRead(void *cookie, char *buffer, size_t size)
{
    return (ssize_t)dk_textRead(static_cast<dk_TextCookie *>(cookie), buffer, size);
}

static ssize_t dk_textCookieWrite(void *cookie, const char *buffer, size_t size)
{
    /* glibc sets the stream's error flag when fewer than `size` bytes are reported. */
    return dk_textWrite(static_cast<dk_TextCookie *>(cookie), buffer, size) ? (ssize_t)size : 0;
}

static int dk_textCookieSeek(void *cookie, dk_TextOffset *offset, int whence)
{
    long long position = (long long)*offset;
    if (dk_textSeek(static_cast<dk_TextCookie *>(cookie), &position, whence) != 0)
        return -1;
    *offset = (dk_TextOffset)position;
    return 0;
}

static int dk_textCookieClose(void *cookie)
{
    return dk_textClose(static_cast<dk_TextCookie *>(cookie));
}

static FILE *dk_textWrap(dk_TextCookie *cookie)
{
    cookie_io_functions_t functions;
    memset(&functions, 0, sizeof functions);
    functions.read = cookie->writing ? NULL : dk_textCookieRead;
    functions.write = cookie->writing ? dk_textCookieWrite : NULL;
    functions.seek = dk_textCookieSeek;
    functions.close = dk_textCookieClose;
    return fopencookie(cookie, cookie->writing ? "w" : "r", functions);
}

#else /* DK_TEXT_FUNOPEN */

static int dk_textFunRead(void *cookie, char *buffer, int size)
{
    return (int)dk_textRead(static_cast<dk_TextCookie *>(cookie), buffer, size > 0 ? (size_t)size : 0);
}

static int dk_textFunWrite(void *cookie, const char *buffer, int size)
{
    if (size <= 0)
        return 0;
    return dk_textWrite(static_cast<dk_TextCookie *>(cookie), buffer, (size_t)size) ? size : -1;
}

static fpos_t dk_textFunSeek(void *cookie, fpos_t offset, int whence)
{
    long long position = (long long)offset;
    if (dk_textSeek(static_cast<dk_TextCookie *>(cookie), &position, whence) != 0)
        return (fpos_t)-1;
    return (fpos_t)position;
}

static int dk_textFunClose(void *cookie)
{
    return dk_textClose(static_cast<dk_TextCookie *>(cookie));
}

static FILE *dk_textWrap(dk_TextCookie *cookie)
{
    return funopen(cookie, cookie->writing ? NULL : dk_textFunRead, cookie->writing ? dk_textFunWrite : NULL,
                   dk_textFunSeek, dk_textFunClose);
}

#endif

FILE *dk_textOpen(const char *path, const char *mode)
{
    dk_TextCookie *cookie;
    FILE *stream;
    int writing;
    if (path == NULL || mode == NULL || (strcmp(mode, "rt") != 0 && strcmp(mode, "wt") != 0)) {
        errno = EINVAL;
        return NULL;
    }
    writing = mode[0] == 'w';
    cookie = navo::memory::make_zeroed<std::remove_pointer_t<decltype(cookie)>>();
    if (cookie == NULL) {
        errno = ENOMEM;
        return NULL;
    }
    cookie->writing = writing;
    cookie->raw = fopen(path, writing ? "wb" : "rb");
    if (cookie->raw == NULL) {
        int saved = errno;
        navo::memory::release(cookie);
        errno = saved;
        return NULL;
    }
    stream = dk_textWrap(cookie);
    if (stream == NULL) {
        int saved = errno;
        fclose(cookie->raw);
        navo::memory::release(cookie);
        errno = saved;
    }
    return stream;
}

#endif /* POSIX */
