// platform/temp_file.hpp - temporary spool files: new, empty, uniquely named files made by the platform.
#pragma once

#include <cstddef>
#include <span>

#include "platform/file_handle.hpp"

namespace navo::platform {

// Every spool file's name begins with this prefix.
inline constexpr char temp_prefix[] = "P2_";

// Room for a temporary file's full path with its terminator: MAX_PATH (260) on Windows, which
// GetTempFileNameA writes into; POSIX directories may be deeper, so there the usual PATH_MAX.
#if defined(_WIN32)
inline constexpr std::size_t temp_path_size = 260;
#else
inline constexpr std::size_t temp_path_size = 4096;
#endif

// Creates a new empty file, that no other file's name matches, whose name begins with
// temp_prefix, in the directory for temporary files (TMPDIR, else the system's), readable and
// writable by its owner only, and writes its full path, NUL-terminated, into `out`.
// Gives true, or false with `out` empty (when it has room for a byte) and no file left behind.
[[nodiscard]] bool create_temp_file(std::span<char> out) noexcept;

// Opens the spool file at `path` for update in binary mode (fopen's "r+b"), refusing a symbolic
// link in its place, so a link put there can't redirect the library's writes. Empty on failure.
[[nodiscard]] File open_temp_file(const char *path) noexcept;

// Makes the spool file at `path` anew, empty, after it went missing (what fopen "w" would do):
// with the same owner-only permissions as create_temp_file, and only if nothing stands at `path`
// now, so that a file or link someone put there meanwhile is neither truncated nor followed.
[[nodiscard]] bool recreate_temp_file(const char *path) noexcept;

}  // namespace navo::platform
