// interchange/writer.hpp - the file writer: envelope records and documents out to a NAVO file.
#pragma once

#include <cstdio>
#include <span>

#include "navo.h"

namespace navo::interchange {

// Writes `text` and a line feed. The text ends at its terminator but never reaches past the end
// of the span, the room left to the end of the record it lies in: an unterminated text runs on
// into the texts behind it and stops at the record's end.
bool write_text(std::FILE *stream, std::span<const char> text) noexcept;

}  // namespace navo::interchange
