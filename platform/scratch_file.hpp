// platform/scratch_file.hpp - a program's scratch file: temporary, gone when closed, with 64-bit positions.
#pragma once

#include <cstdint>
#include <cstdio>

namespace navo::platform {

// A new empty file for reading and writing in binary mode, in the directory for temporary files
// (TMPDIR; TMP on Windows), removed by the system when it is closed or the program ends. Null,
// with errno set, when none can be made.
[[nodiscard]] std::FILE *open_scratch_file() noexcept;

// Moves to byte `offset` of `file`, past the 2 GiB a long reaches on Windows. False on failure.
[[nodiscard]] bool seek_to(std::FILE *file, std::int64_t offset) noexcept;

// The byte position of `file`, or -1.
[[nodiscard]] std::int64_t position_of(std::FILE *file) noexcept;

}  // namespace navo::platform
