// interchange/scanner.cpp - the stream scanner: the lowest readers of a NAVO file, byte by byte.
#include "platform/platform.hpp"

#include "interchange/scanner.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "core/allocator.hpp"
#include "interchange/format.hpp"

namespace navo::interchange {

namespace {

// What next_byte gives at the end of the input; no byte value can look like it.
constexpr int end_of_input = -2;

// The next byte that is neither TAB nor LF, as 0 to 255, or end_of_input. Every LF taken raises
// the line counter, whoever keeps or drops what surrounds it.
int next_byte(std::FILE *stream) noexcept
{
    for (;;) {
        const int c = navo::platform::get_byte(stream);
        if (c == '\n') {
            if (i_lNumerLinii < std::numeric_limits<std::int32_t>::max())
                i_lNumerLinii++;
            continue;
        }
        if (c == '\t')
            continue;
        // One read yields eight bits, so 0xFF is the end of input only with the end-of-file or
        // error flag set; with both clear it is a data byte.
        if (c == EOF || (c == 0xFF && (std::feof(stream) || std::ferror(stream))))
            return end_of_input;
        return c;
    }
}

// ASCII-only upper case: other bytes must match exactly, whatever the host's locale says.
constexpr int ascii_upper(int c) noexcept
{
    return c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c;
}

// How gathering the rest of a section tag ended.
enum class Rest { ended, gathered, too_long };

// Gathers the rest of a section tag through its '>' into `rest`. A rest of more than
// rest.size() - 1 characters is read through its '>' without being stored.
Rest gather_tag_rest(std::FILE *stream, std::span<char, scan::rest_size> rest) noexcept
{
    std::size_t length = 0;
    std::fill(rest.begin(), rest.end(), '\0');
    for (;;) {
        const int c = next_byte(stream);
        if (c == end_of_input)
            return Rest::ended;
        if (length < rest.size() - 1)
            rest[length] = static_cast<char>(c);
        length++;
        if (c == '>')
            return length < rest.size() ? Rest::gathered : Rest::too_long;
    }
}

// The text of an element as it is read: terminated after every character, released unless taken.
class ElementText {
public:
    ElementText() = default;
    ElementText(const ElementText &) = delete;
    ElementText &operator=(const ElementText &) = delete;
    ~ElementText() { memory::release(text_); }

    // The empty text, before the first character is read.
    bool start() noexcept
    {
        text_ = static_cast<char *>(memory::allocate(capacity_));
        if (text_ == nullptr)
            return false;
        text_[0] = '\0';
        return true;
    }

    bool append(char c) noexcept
    {
        if (length_ + 1 == capacity_) {
            // Capacity grows geometrically; the text still grows by one character at a time.
            const std::size_t grown = capacity_ < 64 ? 64 : capacity_ * 2;
            auto *bigger = static_cast<char *>(memory::resize(text_, grown));
            if (bigger == nullptr)
                return false;
            text_ = bigger;
            capacity_ = grown;
        }
        text_[length_++] = c;
        text_[length_] = '\0';
        return true;
    }

    char *take() noexcept { return std::exchange(text_, nullptr); }

private:
    char *text_ = nullptr;
    std::size_t length_ = 0;
    std::size_t capacity_ = 1;
};

}  // namespace

std::int32_t read_char(std::FILE *stream) noexcept
{
    const int c = next_byte(stream);
    if (c == end_of_input)
        return -1;
    // Widened from a signed 8-bit value: bytes from 0x80 on come out negative, 0xFF as -1.
    return c >= 0x80 ? c - 0x100 : c;
}

bool read_count(std::FILE *stream, std::span<char> out, std::int32_t count) noexcept
{
    std::fill(out.begin(), out.end(), '\0');
    for (std::int32_t stored = 0; stored < count; stored++) {
        if (static_cast<std::size_t>(stored) >= out.size())
            return false;
        const int c = next_byte(stream);
        if (c == end_of_input)
            return false;
        out[static_cast<std::size_t>(stored)] = static_cast<char>(c);
    }
    return true;
}

bool read_tag(std::FILE *stream, std::span<char> out) noexcept
{
    std::fill(out.begin(), out.end(), '\0');
    std::size_t stored = 0;
    for (;;) {
        const int c = next_byte(stream);
        if (c == end_of_input)
            return false;
        if (stored == 0) {
            if (c == ' ' || c == '\r')
                continue;
            if (c != '<')
                return false;
        }
        out[stored++] = static_cast<char>(c);
        if (c == '>')
            return true;
        // A full buffer ends the read without a terminator; the rest stays in the stream.
        if (stored == out.size())
            return true;
    }
}

bool read_element(std::FILE *stream, char *&text, std::optional<std::string_view> block) noexcept
{
    memory::release(text);
    text = nullptr;
    if (stream == nullptr)
        return false;
    ElementText gathered;
    if (!gathered.start())
        return false;
    int c = 0;
    for (;;) {
        c = next_byte(stream);
        if (c == end_of_input)
            return false;
        if (c == '<')
            break;
        if (!gathered.append(static_cast<char>(c)))
            return false;
    }
    text = gathered.take();

    // Whatever stands between the '<' and the first '/' is dropped untested.
    do {
        c = next_byte(stream);
        if (c == end_of_input)
            return false;
    } while (c != '/');

    if (!block) {
        do {
            c = next_byte(stream);
            if (c == end_of_input)
                return false;
        } while (c != '>');
        return true;
    }
    for (std::size_t i = 0;; i++) {
        c = next_byte(stream);
        if (c == end_of_input)
            return false;
        if (c == '>')
            return i == block->size();
        if (i == block->size() || ascii_upper(c) != ascii_upper(static_cast<unsigned char>((*block)[i])))
            return false;
    }
}

bool next_section(std::FILE *stream, std::span<char> out) noexcept
{
    if (out.empty() || stream == nullptr)
        return false;
    std::fill(out.begin(), out.end(), '\0');
    // "<", the six characters, the rest and a terminator.
    std::array<char, 1 + scan::head_length + scan::rest_size> tag;
    std::array<char, scan::rest_size> buffer;
    for (;;) {
        int c = 0;
        do {
            c = next_byte(stream);
            if (c == end_of_input)
                return false;
        } while (c != '<');
        if (!read_count(stream, buffer, static_cast<std::int32_t>(scan::head_length)))
            return false;
        const std::string_view head{buffer.data(), scan::head_length};
        std::string_view suffix;
        if (begins_with(head, scan::footer_head))
            suffix = tag::file_footer_suffix;
        else if (begins_with(head, scan::section_head))
            suffix = tag::section_suffix;
        else
            continue;  // the six characters stay consumed
        // Built as text: a NUL byte among the six ends them.
        const std::string_view headText = first(head, head.find('\0'));
        tag[0] = '<';
        std::copy(headText.begin(), headText.end(), tag.begin() + 1);
        const std::size_t length = 1 + headText.size();
        const Rest gathered = gather_tag_rest(stream, buffer);
        if (gathered == Rest::ended)
            return false;
        if (gathered == Rest::too_long)
            continue;  // too long for any section or footer tag: passed over
        const std::string_view rest = text_of(buffer);
        std::copy(rest.begin(), rest.end(), tag.begin() + static_cast<std::ptrdiff_t>(length));
        const std::string_view built{tag.data(), length + rest.size()};
        if (built.find(suffix) != std::string_view::npos && built.size() < out.size()) {
            std::copy(built.begin(), built.end(), out.begin());
            return true;
        }
    }
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_LoadChar(FILE *stream) noexcept
{
    if (stream == nullptr)
        return -1;
    return navo::interchange::read_char(stream);
}

NAVO_API int32_t NAVO_CALL dk_LoadStringbyLen(FILE *stream, char *out, int32_t size, int32_t count) noexcept
{
    if (out == nullptr || stream == nullptr)
        return 0;
    // A negative size is no room at all: nothing is cleared, and any byte to read fails.
    if (size < 0)
        return count < 1 ? 1 : 0;
    return navo::interchange::read_count(stream, {out, static_cast<std::size_t>(size)}, count) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_LoadStringforTag(FILE *stream, char *out, int32_t size) noexcept
{
    if (out == nullptr || stream == nullptr)
        return 0;
    if (size < 1)
        return 1;
    return navo::interchange::read_tag(stream, {out, static_cast<std::size_t>(size)}) ? 1 : 0;
}

NAVO_API int32_t NAVO_CALL dk_LoadStringtoTerminator(FILE *stream, char **out, const char *block) noexcept
{
    if (out == nullptr)
        return 0;
    std::optional<std::string_view> closing;
    if (block != nullptr)
        closing = block;
    return navo::interchange::read_element(stream, *out, closing) ? 1 : 0;
}

}  // extern "C"
