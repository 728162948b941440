// interchange/writer.hpp - the file writer: envelope records and documents out to a NAVO file.
#pragma once

#include <cstddef>

#include "navo.h"

// The writer's exported functions (dk_OpenFileforSave, dk_SaveProlog, dk_SaveHeader,
// dk_SaveDocument, dk_SaveFooter, dk_CloseFile, dk_SaveNAVO) are declared in navo.h.
namespace navo::interchange {

// dk_SaveNAVO gathers this many bytes of translated text, on the stack of the call, before it
// hands them to its file; only the last of them can fail unnoticed, at the close.
inline constexpr std::size_t save_buffer_size = 16 * 1024;

}  // namespace navo::interchange
