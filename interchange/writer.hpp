// interchange/writer.hpp - the file writer: envelope records and documents out to a NAVO file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

#include "navo.h"

namespace navo::interchange {

// Writes `text` and a line feed. The text ends at its terminator but never reaches past the end
// of the span, the room left to the end of the record it lies in: an unterminated text runs on
// into the texts behind it and stops at the record's end.
bool write_text(std::FILE *stream, std::span<const char> text) noexcept;

// dk_SaveDocument. With `ownStream` (dk_SaveNAVO's own stream, which no host sees) a record goes
// to the stream in one write instead of one per line.
bool save_document(dk_Context *ctx, const char *form, std::int32_t docIndex, std::FILE *stream, std::int32_t envelope,
                   bool ownStream) noexcept;

}  // namespace navo::interchange
