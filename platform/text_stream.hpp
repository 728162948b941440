// platform/text_stream.hpp - text-mode output streams (LF out as CR LF) on every platform, as plain FILE*.
#pragma once

#include "platform/file_handle.hpp"

namespace navo::platform {

// Opens `path` for writing in text mode, creating or truncating it. `mode` is "wt"; any other
// mode is refused with an empty handle and errno EINVAL (the library reads its files through
// platform/file_input and applies the text-mode rules itself). Gives a standard stream that
// every stdio call accepts (release() it to keep a plain FILE* that fclose closes), or an empty
// handle when the file cannot be opened or memory runs out.
//
// The stream behaves like one of the Windows C runtime in text mode, where it is plain fopen:
// - each LF leaves as CR LF;
// - the error flag is testable as usual; a failed write makes the stdio call that flushed it
//   (fputs, fflush, fclose ...) report failure;
// - rewind and fseek(stream, 0, SEEK_SET) go back to the start; ftell reports the position
//   counted in characters before translation. Other seeks are refused.
[[nodiscard]] File open_text_stream(const char *path, const char *mode) noexcept;

}  // namespace navo::platform
