// platform/spool_io.hpp - a run of bytes written to a spool file at a position, past its stdio buffer.
#pragma once

#include <cstddef>
#include <cstdio>
#include <span>

namespace navo::platform {

// Flushes `file` (an open stream), then writes `bytes` at byte `offset` (0 or more) of its file with as few system calls as
// the system allows. Gives how many bytes reached the file before the first failure (all of them
// on success), so a caller can tell which of its records a full disk refused. The stream's own
// position is left unknown: the next stdio access to `file` must seek.
[[nodiscard]] std::size_t write_at(std::FILE *file, long offset, std::span<const char> bytes) noexcept;

}  // namespace navo::platform
