// interchange/scanner.hpp - the stream scanner: characters, fixed reads, tags, element texts, sections.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

#include "navo.h"

// The exported readers dk_LoadChar, dk_LoadStringbyLen, dk_LoadStringforTag and
// dk_LoadStringtoTerminator are declared in navo.h and call these.
namespace navo::interchange {

// The next byte that is neither TAB nor LF as a signed 8-bit value widened, or -1 at the end.
std::int32_t read_char(std::FILE *stream) noexcept;

// Clears `out`, then reads exactly `count` significant bytes into it; false at the end of the
// input or when `out` is too small (what was read stays in it).
bool read_count(std::FILE *stream, std::span<char> out, std::int32_t count) noexcept;

// Skips blanks and CRs, then reads a tag from its '<' through its '>' into the cleared `out`. A
// full buffer ends the read without a terminator and leaves the rest in the stream. `out` must
// not be empty.
bool read_tag(std::FILE *stream, std::span<char> out) noexcept;

// Reads an element's text up to the next '<' into a new allocation in `text` (released first),
// then the closing tag: through its '>' when `block` is nothing, else it must close `block`
// (ASCII letters in any case).
bool read_element(std::FILE *stream, char *&text, std::optional<std::string_view> block) noexcept;

// Scans forward to the next section tag ("<TOB..." with ".DP>") or file footer tag
// ("<stopka..." with ".NAVO>") and gives it terminated in `out` (at least 27 bytes for any such
// tag). False at the end of the input.
bool next_section(std::FILE *stream, std::span<char> out) noexcept;

}  // namespace navo::interchange
