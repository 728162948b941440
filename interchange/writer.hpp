// interchange/writer.hpp - the file writer: envelope records and documents out to a NAVO file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "navo.h"

// The writer's exported functions (dk_OpenFileforSave, dk_SaveProlog, dk_SaveHeader,
// dk_SaveDocument, dk_SaveFooter, dk_CloseFile, dk_SaveNAVO) are declared in navo.h.
namespace navo::interchange {

// dk_SaveNAVO gathers this many bytes of translated text, on the stack of the call, before it
// hands them to its file; only the last of them can fail unnoticed, at the close.
inline constexpr std::size_t save_buffer_size = 16 * 1024;

// The writer's output to a binary stream of the caller's (fopen "wb"): the format's CR LF line
// ends, written through the writer's own buffer of save_buffer_size bytes, which each call hands
// to the stream before it returns (the stream's own buffer is the caller's to flush). False at
// the first write the stream refuses, and for what dk_SaveDocument refuses.
bool write_head(dk_Context &ctx, std::FILE *file) noexcept;  // prolog and file header
bool write_document(dk_Context &ctx, const char *form, std::int32_t docIndex, std::FILE *file) noexcept;  // one section
bool write_tail(dk_Context &ctx, std::FILE *file) noexcept;  // the file footer and "</NAVO>"
bool write_file(dk_Context &ctx, std::FILE *file) noexcept;  // all of it, as dk_SaveNAVO(ctx, path, 1) writes it

}  // namespace navo::interchange
