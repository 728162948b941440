// platform/platform.hpp - per-platform primitives for the readers outside platform/.
#pragma once

#include <cstdio>

namespace navo::platform {

// One byte of a buffered stream that no other thread touches, without the per-call lock of getc.
// The C++ compilers of glibc systems declare getc_unlocked by default (they define _GNU_SOURCE
// for the standard library), as do the BSD and macOS headers, so no feature level is asked for.
inline int get_byte(std::FILE *stream) noexcept
{
#if defined(_WIN32)
    // Both CRTs have it: a function in the UCRT and MSVC's, a macro on the buffer with MinGW's
    // msvcrt.dll headers (which is why it takes a plain parameter, never an expression).
    return _getc_nolock(stream);
#elif defined(__unix__) || defined(__APPLE__)
    return getc_unlocked(stream);
#else
    return std::getc(stream);
#endif
}

}  // namespace navo::platform
