/* dk_platform.h - per-platform choices for readers outside platform/; include before any system header. */
#ifndef DK_PLATFORM_H
#define DK_PLATFORM_H

/* getc_unlocked is POSIX, not C11: the readers ask for the POSIX level that declares it. This
   works only if no system header came in before; a header that did is caught below. */
#if !defined(_WIN32) && (defined(__unix__) || defined(__APPLE__)) && !defined(_POSIX_C_SOURCE) \
    && !defined(_GNU_SOURCE) && !defined(_XOPEN_SOURCE)
#  if defined(_STDIO_H) || defined(_STDIO_H_) || defined(__STDIO_H__)
#    error "dk_platform.h must be included before any system header"
#  endif
#  define _POSIX_C_SOURCE 200809L
#endif

#include <stdio.h>

/* DK_GETC(stream): one byte of a buffered stream that no other thread touches, without the
   per-call lock of getc. */
#if defined(_WIN32)
/* Both CRTs have it: a function in the UCRT and MSVC's, a macro on the buffer with MinGW's
   msvcrt.dll headers (so `stream` must be an expression without side effects). */
#  define DK_GETC(stream) _getc_nolock(stream)
#elif defined(__unix__) || defined(__APPLE__)
#  define DK_GETC(stream) getc_unlocked(stream)
#else
#  define DK_GETC(stream) getc(stream)
#endif

#endif /* DK_PLATFORM_H */
