// platform/file_input.hpp - a file's raw bytes read in large runs straight into the caller's buffer.
#pragma once

#include <cstddef>

#include "platform/file_handle.hpp"

namespace navo::platform {

// A file opened for reading in binary mode. The loader reads through it into its own buffer and
// applies the text-mode rules itself (interchange/scanner), so a byte is copied once on its way
// in: by the system, not through a stream's buffer as well. POSIX reads with the system's read
// calls; Windows with fread on a binary stream (which reads a large request directly).
class FileInput {
public:
    FileInput() noexcept = default;
    FileInput(const FileInput &) = delete;
    FileInput &operator=(const FileInput &) = delete;
    ~FileInput();

    // Opens `path`; false (errno set) when it cannot be opened.
    [[nodiscard]] bool open(const char *path) noexcept;
    // Reads up to `size` bytes into `buffer` and gives their number: fewer than `size` only at the
    // end of the file or at a read error, after which it gives nothing until rewind().
    std::size_t read(char *buffer, std::size_t size) noexcept;
    // Whether a read error ended the input.
    bool failed() const noexcept { return failed_; }
    // Back to the first byte, with the end and the error forgotten. A file that cannot go back
    // (a pipe) stays where it is, at its end, as a stream whose fseek failed does.
    void rewind() noexcept;

private:
#if defined(_WIN32)
    File stream_;
#else
    int descriptor_ = -1;
#endif
    bool done_ = false;    // the file gave its last byte, or an error
    bool failed_ = false;  // ... and it was an error
};

}  // namespace navo::platform
