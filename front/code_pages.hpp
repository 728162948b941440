// front/code_pages.hpp - the two code pages of NAVO texts and UTF-8, both ways, and their names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace navo::front {

// The values of navo_encoding.
enum class Encoding : std::int32_t { iso8859_2 = 0, cp1250 = 1 };

// Whether `value` is a navo_encoding.
bool is_encoding(std::int32_t value) noexcept;

// The encoding a name gives ("iso8859-2", "iso-8859-2", "latin2", "cp1250", "windows-1250", in any
// ASCII case), or -1; and the one name of each encoding ("" for another value).
std::int32_t encoding_named(std::string_view name) noexcept;
const char *encoding_name(std::int32_t encoding) noexcept;

// The code point of byte `byte` in `encoding`. A byte the code page leaves undefined stands for the
// C1 code point of its own value (U+0080 + n), so every byte survives a conversion and its way back.
char32_t code_point(Encoding encoding, unsigned char byte) noexcept;

// Appends the bytes of `encoding` as UTF-8. ASCII runs, the bulk of every file, go in whole.
void append_utf8(std::string &out, std::string_view bytes, Encoding encoding);

// Appends one code point (at most U+10FFFF) as UTF-8.
void append_code_point(std::string &out, char32_t c);

// Decodes the UTF-8 character at `text[at]`: its length in bytes (1-4) with the code point in
// `c`, or 0 for what is no UTF-8: a stray continuation byte, an overlong form, a surrogate, a
// code point above U+10FFFF, a sequence cut short.
std::size_t decode_utf8(std::string_view text, std::size_t at, char32_t &c) noexcept;

// The offset of the first byte that does not begin a whole UTF-8 character, or npos.
std::size_t find_invalid_utf8(std::string_view text) noexcept;

// The byte of `c` in `encoding`, or -1 when the code page lacks it.
int encode(Encoding encoding, char32_t c) noexcept;

// Converts UTF-8 to bytes of `encoding` into `out` (cleared first). NAVO_OK, NAVO_NOT_UTF8 or
// NAVO_NOT_ENCODABLE with `at` the offset in `text` of the offending character; with `substitute` a
// character the code page lacks becomes '?'.
std::int32_t from_utf8(std::string_view text, Encoding encoding, bool substitute, std::string &out,
                       std::size_t &at);

}  // namespace navo::front
