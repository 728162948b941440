// platform/replacement_file.hpp - navo::platform::ReplacementFile, a file that reaches its path whole or not at all.
#pragma once

#include <cstddef>
#include <cstdio>

#include "platform/file_handle.hpp"

namespace navo::platform {

// Writes go to a new file beside the target; commit puts it in the target's place in one step
// (rename), so a reader of `target` sees the old file or the new one, never a part of either.
// The paths live in the object itself: path() stays valid for the object's whole life, which a
// signal handler that removes the new file needs, and nothing is allocated.
class ReplacementFile {
public:
    ReplacementFile() noexcept = default;
    ReplacementFile(const ReplacementFile &) = delete;
    ReplacementFile &operator=(const ReplacementFile &) = delete;
    ~ReplacementFile();  // removes the new file unless committed

    // Creates a new empty file beside `target` (same directory, a hidden name that no other file
    // has), with the permissions the umask gives, or those of the file at `target` when one is
    // there. False with errno set, and no file made. An object holds one new file at a time:
    // open on an object that holds one abandons it first.
    bool open(const char *target) noexcept;
    std::FILE *stream() const noexcept { return stream_.get(); }  // binary, buffered; null when none is open
    const char *path() const noexcept { return path_; }           // the new file's path; "" when none is open
    // Flushes (checked), syncs to disk, closes (checked), renames over `target` (and syncs the
    // directory where the system allows). False with errno set: the new file is gone, `target`
    // as it was. Either way the object holds no file afterwards.
    bool commit() noexcept;
    void abandon() noexcept;  // closes and removes the new file now; errno stays as it was

    // Room for a path with its terminator: MAX_PATH on Windows (the limit of the ...A calls),
    // PATH_MAX elsewhere. A target whose new file's path does not fit fails with ENAMETOOLONG.
#if defined(_WIN32)
    static constexpr std::size_t path_size = 260;
#else
    static constexpr std::size_t path_size = 4096;
#endif

private:
    File stream_;
    char path_[path_size] = {};    // the new file
    char target_[path_size] = {};  // where commit puts it
    std::size_t directoryLength_ = 0;  // bytes of target_ before its last name, separator included
};

}  // namespace navo::platform
