// front/text_out.hpp - text handed out the C interface's way, and values as the flags want them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "front/code_pages.hpp"

namespace navo::front {

// Fills a caller's buffer of `size` bytes as snprintf does: at most size - 1 bytes and a NUL,
// while counting the whole length. Several texts are joined by a NUL of their own, counted.
class TextOut {
public:
    TextOut(char *out, std::size_t size) noexcept : out_(out), size_(size) {}
    // Whether the buffer is usable: null only with size 0.
    bool valid() const noexcept { return out_ != nullptr || size_ == 0; }
    void add(std::string_view piece) noexcept;
    void next_text() noexcept { add(std::string_view("", 1)); }
    // Terminates what was written and gives the full length, without the last NUL.
    std::int64_t finish() noexcept;

private:
    char *out_;
    std::size_t size_;
    std::size_t length_ = 0;
};

// A value as the flags of navo_value_flags want it, appended to `out`: trailing blanks trimmed
// unless NAVO_KEEP_PADDING, converted from `encoding` to UTF-8 unless NAVO_RAW.
void append_value(std::string &out, std::string_view raw, std::int32_t flags, Encoding encoding);

// The text of a record's array up to its NUL, or all of it when it has none.
std::string_view text_of(const char *text, std::size_t capacity) noexcept;

// `raw` without its trailing blanks.
inline std::string_view trim_right(std::string_view raw) noexcept
{
    std::size_t end = raw.size();
    while (end > 0 && raw[end - 1] == ' ')
        end--;
    return raw.substr(0, end);
}

}  // namespace navo::front
