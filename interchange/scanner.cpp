/* dk_scanner.c - the stream scanner of Part 4.3: the lowest readers of a NAVO file. */
#include "platform/platform.hpp"

#include "interchange/scanner.hpp"

#include <string.h>

#include "core/allocator.hpp"
#include "interchange/format.hpp"

/* What dk_scanNext gives at the end of the input; no byte value can look like it. */
#define DK_SCAN_END (-2)

/* The next byte that is neither TAB nor LF, as 0 to 255, or DK_SCAN_END. Every LF taken
   raises the line counter, whoever keeps or drops what surrounds it. */
static int dk_scanNext(FILE *stream)
{
    for (;;) {
        int c = navo::platform::get_byte(stream);
        if (c == '\n') {
            if (i_lNumerLinii < INT32_MAX)
                i_lNumerLinii++;
            continue;
        }
        if (c == '\t')
            continue;
        /* One read yields eight bits, so 0xFF is the end of input only with the end-of-file or
           error flag set; with both clear it is a data byte (Part 4.3). */
        if (c == EOF || (c == 0xFF && (feof(stream) || ferror(stream))))
            return DK_SCAN_END;
        return c;
    }
}

/* ASCII-only upper case: other bytes must match exactly, whatever the host's locale says. */
static int dk_scanUpper(int c)
{
    return c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c;
}

/* Gathers the rest of a section tag through its '>' into `rest` (DK_SCAN_REST_SIZE bytes).
   Returns 1, 0 at the end of the input, or -1 for a rest of more than DK_SCAN_REST_SIZE - 1
   characters, which is read through its '>' without being stored. */
static int dk_scanTagRest(FILE *stream, char *rest)
{
    size_t length = 0;
    memset(rest, 0, DK_SCAN_REST_SIZE);
    for (;;) {
        int c = dk_scanNext(stream);
        if (c == DK_SCAN_END)
            return 0;
        if (length < DK_SCAN_REST_SIZE - 1)
            rest[length] = (char)c;
        length++;
        if (c == '>')
            return length < DK_SCAN_REST_SIZE ? 1 : -1;
    }
}

/* Length of the first six characters as a text: up to a NUL byte among them. */
static size_t dk_scanHeadLength(const char *head)
{
    size_t n = 0;
    while (n < DK_SCAN_HEAD_LENGTH && head[n] != '\0')
        n++;
    return n;
}

int32_t dk_LoadNextSection(FILE *stream, char *out, int32_t size)
{
    /* "<", the six characters, the rest and a terminator. */
    char tag[1 + DK_SCAN_HEAD_LENGTH + DK_SCAN_REST_SIZE];
    char buffer[DK_SCAN_REST_SIZE];
    if (out == NULL || stream == NULL || size < 1)
        return 0;
    memset(out, 0, (size_t)size);
    for (;;) {
        const char *suffix;
        size_t length;
        int c;
        int gathered;
        do {
            c = dk_scanNext(stream);
            if (c == DK_SCAN_END)
                return 0;
        } while (c != '<');
        if (!dk_LoadStringbyLen(stream, buffer, DK_SCAN_REST_SIZE, DK_SCAN_HEAD_LENGTH))
            return 0;
        if (memcmp(buffer, DK_SCAN_FOOTER_HEAD, sizeof DK_SCAN_FOOTER_HEAD - 1) == 0)
            suffix = DK_FILE_FOOTER_SUFFIX;
        else if (memcmp(buffer, DK_SCAN_SECTION_HEAD, sizeof DK_SCAN_SECTION_HEAD - 1) == 0)
            suffix = DK_SECTION_SUFFIX;
        else
            continue; /* the six characters stay consumed */
        /* Built as text, as the spec's strings are: a NUL byte among the six ends them. */
        tag[0] = '<';
        length = 1 + dk_scanHeadLength(buffer);
        memcpy(tag + 1, buffer, length - 1);
        gathered = dk_scanTagRest(stream, buffer);
        if (gathered == 0)
            return 0;
        if (gathered < 0)
            continue; /* too long for any section or footer tag: passed over */
        memcpy(tag + length, buffer, strlen(buffer) + 1);
        if (strstr(tag, suffix) != NULL && strlen(tag) < (size_t)size) {
            memcpy(out, tag, strlen(tag) + 1);
            return 1;
        }
    }
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_LoadChar(FILE *stream) noexcept
{
    int c;
    if (stream == NULL)
        return -1;
    c = dk_scanNext(stream);
    if (c == DK_SCAN_END)
        return -1;
    /* Widened from a signed 8-bit value: bytes from 0x80 on come out negative, 0xFF as -1. */
    return (int32_t)(c >= 0x80 ? c - 0x100 : c);
}

NAVO_API int32_t NAVO_CALL dk_LoadStringbyLen(FILE *stream, char *out, int32_t size, int32_t count) noexcept
{
    int32_t stored;
    if (out == NULL || stream == NULL)
        return 0;
    if (size > 0)
        memset(out, 0, (size_t)size);
    if (count < 1)
        return 1;
    for (stored = 0; stored < count; stored++) {
        int c;
        if (stored >= size)
            return 0;
        c = dk_scanNext(stream);
        if (c == DK_SCAN_END)
            return 0;
        out[stored] = (char)c;
    }
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_LoadStringforTag(FILE *stream, char *out, int32_t size) noexcept
{
    int32_t stored = 0;
    if (out == NULL || stream == NULL)
        return 0;
    if (size < 1)
        return 1;
    memset(out, 0, (size_t)size);
    for (;;) {
        int c = dk_scanNext(stream);
        if (c == DK_SCAN_END)
            return 0;
        if (stored == 0) {
            if (c == ' ' || c == '\r')
                continue;
            if (c != '<')
                return 0;
        }
        out[stored++] = (char)c;
        if (c == '>')
            return 1;
        /* A full buffer ends the read without a terminator; the rest stays in the stream. */
        if (stored == size)
            return 1;
    }
}

NAVO_API int32_t NAVO_CALL dk_LoadStringtoTerminator(FILE *stream, char **out, const char *block) noexcept
{
    char *text;
    size_t length = 0;
    size_t capacity = 1;
    size_t i;
    int c;
    if (out == NULL)
        return 0;
    if (*out != NULL) {
        navo::memory::release(*out);
        *out = NULL;
    }
    if (stream == NULL)
        return 0;
    text = static_cast<char *>(navo::memory::allocate(capacity));
    if (text == NULL)
        return 0;
    text[0] = '\0';
    for (;;) {
        c = dk_scanNext(stream);
        if (c == DK_SCAN_END) {
            navo::memory::release(text);
            return 0;
        }
        if (c == '<')
            break;
        if (length + 1 == capacity) {
            /* Capacity grows geometrically; the text still grows by one character at a time. */
            size_t grown = capacity < 64 ? 64 : capacity * 2;
            char *bigger = static_cast<char *>(navo::memory::resize(text, grown));
            if (bigger == NULL) {
                navo::memory::release(text);
                return 0;
            }
            text = bigger;
            capacity = grown;
        }
        text[length++] = (char)c;
        text[length] = '\0';
    }
    *out = text;

    /* Whatever stands between the '<' and the first '/' is dropped untested. */
    do {
        c = dk_scanNext(stream);
        if (c == DK_SCAN_END)
            return 0;
    } while (c != '/');

    if (block == NULL) {
        do {
            c = dk_scanNext(stream);
            if (c == DK_SCAN_END)
                return 0;
        } while (c != '>');
        return 1;
    }
    for (i = 0;; i++) {
        c = dk_scanNext(stream);
        if (c == DK_SCAN_END)
            return 0;
        if (c == '>')
            return block[i] == '\0' ? 1 : 0;
        if (block[i] == '\0' || dk_scanUpper(c) != dk_scanUpper((unsigned char)block[i]))
            return 0;
    }
}

}  // extern "C"
