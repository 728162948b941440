// platform/console.cpp - terminals and stream modes: isatty on POSIX, the console code page and _setmode on Windows.
#if !defined(_WIN32) && !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // fileno
#endif

#include "platform/console.hpp"

#if defined(_WIN32)
#  include <fcntl.h>
#  include <io.h>
#  include <windows.h>
#else
#  include <unistd.h>
#endif

namespace navo::platform {

bool is_terminal(std::FILE *stream) noexcept
{
#if defined(_WIN32)
    return _isatty(_fileno(stream)) != 0;
#else
    return isatty(fileno(stream)) != 0;
#endif
}

void use_utf8_streams() noexcept
{
#if defined(_WIN32)
    // Text mode would write CR LF for each LF: the tool's outputs are bytes, whose line ends are
    // their own (CSV rows end in CR LF, JSON Lines in LF).
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
#endif
    // A POSIX terminal shows the bytes as its locale says; UTF-8 ones are the common case.
}

}  // namespace navo::platform
