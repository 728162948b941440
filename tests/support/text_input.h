// text_input.h - text-mode input streams for the tests: what the Windows C runtime's "rt" gives, on every platform.
#ifndef NAVO_TEST_TEXT_INPUT_H
#define NAVO_TEST_TEXT_INPUT_H

#include <cstdio>
#include <string>

namespace navo_test {

// Opens `path` for reading in text mode: plain fopen "rt" on Windows; elsewhere a custom stream
// that reads as the Windows C runtime does, so that the readers of navo.h and the loader's own
// text-mode rules can be held against it:
// - CR LF arrives as one LF, a CR not followed by LF arrives as CR, and a byte 0x1A ends the
//   input there (end-of-file flag set; nothing behind it is ever read);
// - rewind and fseek(stream, 0, SEEK_SET) go back to the start (and forget a 0x1A seen); ftell
//   reports the position counted in translated characters. Other seeks are refused.
// Null when the file cannot be opened.
FILE *openTextInput(const std::string &path);

}  // namespace navo_test

#endif
