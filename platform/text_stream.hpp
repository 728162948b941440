// platform/text_stream.hpp - text-mode streams (CR LF <-> LF, 0x1A ends input) on every platform, as plain FILE*.
#pragma once

#include "platform/file_handle.hpp"

namespace navo::platform {

// Opens `path` in text mode. `mode` is "rt" (read) or "wt" (write: create or truncate); any
// other mode is refused with an empty handle and errno EINVAL. Gives a standard stream that
// every stdio call accepts (release() it to keep a plain FILE* that fclose closes), or an empty
// handle when the file cannot be opened or memory runs out.
//
// The stream behaves like one of the Windows C runtime in text mode, where it is plain fopen:
// - reading, CR LF arrives as one LF, a CR not followed by LF arrives as CR, and a byte 0x1A
//   ends the input there (end-of-file flag set; nothing behind it is ever read);
// - writing, each LF leaves as CR LF;
// - the end-of-file and error flags are testable as usual; a failed write makes the stdio call
//   that flushed it (fputs, fflush, fclose ...) report failure;
// - rewind and fseek(stream, 0, SEEK_SET) go back to the start (and forget a 0x1A seen);
//   ftell reports the position counted in translated characters. Other seeks are refused.
[[nodiscard]] File open_text_stream(const char *path, const char *mode) noexcept;

}  // namespace navo::platform
