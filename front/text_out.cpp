// front/text_out.cpp - the caller's buffers, filled and counted; values trimmed and converted.
#include "front/text_out.hpp"

#include <cstring>

#include "navo_front.h"

namespace navo::front {

void TextOut::add(std::string_view piece) noexcept
{
    if (size_ > 0 && length_ < size_ - 1) {
        const std::size_t room = size_ - 1 - length_;
        std::memcpy(out_ + length_, piece.data(), piece.size() < room ? piece.size() : room);
    }
    length_ += piece.size();
}

std::int64_t TextOut::finish() noexcept
{
    if (size_ > 0)
        out_[length_ < size_ - 1 ? length_ : size_ - 1] = '\0';
    return static_cast<std::int64_t>(length_);
}

void append_value(std::string &out, std::string_view raw, std::int32_t flags, Encoding encoding)
{
    const std::string_view kept = (flags & NAVO_KEEP_PADDING) != 0 ? raw : trim_right(raw);
    if ((flags & NAVO_RAW) != 0)
        out.append(kept);
    else
        append_utf8(out, kept, encoding);
}

std::string_view text_of(const char *text, std::size_t capacity) noexcept
{
    const void *nul = std::memchr(text, '\0', capacity);
    return {text, nul != nullptr ? static_cast<std::size_t>(static_cast<const char *>(nul) - text) : capacity};
}

}  // namespace navo::front
