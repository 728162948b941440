// platform/console.hpp - a program's standard streams: terminals, and bytes that reach them unchanged.
#pragma once

#include <cstdio>

namespace navo::platform {

// Whether `stream` (stdout or stderr) is a terminal.
[[nodiscard]] bool is_terminal(std::FILE *stream) noexcept;

// Standard output and standard error carry bytes as they are (no line end translated), and a
// terminal shows them as UTF-8. Called once at the start of a program, before any output.
void use_utf8_streams() noexcept;

}  // namespace navo::platform
