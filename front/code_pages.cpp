// front/code_pages.cpp - one table per code page for the bytes 0x80-0xFF, its reverse, and UTF-8.
#include "front/code_pages.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "front/names.hpp"
#include "navo_front.h"

namespace navo::front {
namespace {

using HighTable = std::array<char16_t, 128>;

// Code points of the bytes 0x80 to 0xFF. 0x80-0x9F of ISO 8859-2 are the C1 controls themselves.
constexpr HighTable iso8859_2 = {
    0x0080, 0x0081, 0x0082, 0x0083, 0x0084, 0x0085, 0x0086, 0x0087, 0x0088, 0x0089, 0x008A, 0x008B, 0x008C,
    0x008D, 0x008E, 0x008F, 0x0090, 0x0091, 0x0092, 0x0093, 0x0094, 0x0095, 0x0096, 0x0097, 0x0098, 0x0099,
    0x009A, 0x009B, 0x009C, 0x009D, 0x009E, 0x009F, 0x00A0, 0x0104, 0x02D8, 0x0141, 0x00A4, 0x013D, 0x015A,
    0x00A7, 0x00A8, 0x0160, 0x015E, 0x0164, 0x0179, 0x00AD, 0x017D, 0x017B, 0x00B0, 0x0105, 0x02DB, 0x0142,
    0x00B4, 0x013E, 0x015B, 0x02C7, 0x00B8, 0x0161, 0x015F, 0x0165, 0x017A, 0x02DD, 0x017E, 0x017C, 0x0154,
    0x00C1, 0x00C2, 0x0102, 0x00C4, 0x0139, 0x0106, 0x00C7, 0x010C, 0x00C9, 0x0118, 0x00CB, 0x011A, 0x00CD,
    0x00CE, 0x010E, 0x0110, 0x0143, 0x0147, 0x00D3, 0x00D4, 0x0150, 0x00D6, 0x00D7, 0x0158, 0x016E, 0x00DA,
    0x0170, 0x00DC, 0x00DD, 0x0162, 0x00DF, 0x0155, 0x00E1, 0x00E2, 0x0103, 0x00E4, 0x013A, 0x0107, 0x00E7,
    0x010D, 0x00E9, 0x0119, 0x00EB, 0x011B, 0x00ED, 0x00EE, 0x010F, 0x0111, 0x0144, 0x0148, 0x00F3, 0x00F4,
    0x0151, 0x00F6, 0x00F7, 0x0159, 0x016F, 0x00FA, 0x0171, 0x00FC, 0x00FD, 0x0163, 0x02D9,
};

// CP1250 leaves 0x81, 0x83, 0x88, 0x90 and 0x98 undefined: they keep U+0081 and so on.
constexpr HighTable cp1250 = {
    0x20AC, 0x0081, 0x201A, 0x0083, 0x201E, 0x2026, 0x2020, 0x2021, 0x0088, 0x2030, 0x0160, 0x2039, 0x015A,
    0x0164, 0x017D, 0x0179, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0x0098, 0x2122,
    0x0161, 0x203A, 0x015B, 0x0165, 0x017E, 0x017A, 0x00A0, 0x02C7, 0x02D8, 0x0141, 0x00A4, 0x0104, 0x00A6,
    0x00A7, 0x00A8, 0x00A9, 0x015E, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x017B, 0x00B0, 0x00B1, 0x02DB, 0x0142,
    0x00B4, 0x00B5, 0x00B6, 0x00B7, 0x00B8, 0x0105, 0x015F, 0x00BB, 0x013D, 0x02DD, 0x013E, 0x017C, 0x0154,
    0x00C1, 0x00C2, 0x0102, 0x00C4, 0x0139, 0x0106, 0x00C7, 0x010C, 0x00C9, 0x0118, 0x00CB, 0x011A, 0x00CD,
    0x00CE, 0x010E, 0x0110, 0x0143, 0x0147, 0x00D3, 0x00D4, 0x0150, 0x00D6, 0x00D7, 0x0158, 0x016E, 0x00DA,
    0x0170, 0x00DC, 0x00DD, 0x0162, 0x00DF, 0x0155, 0x00E1, 0x00E2, 0x0103, 0x00E4, 0x013A, 0x0107, 0x00E7,
    0x010D, 0x00E9, 0x0119, 0x00EB, 0x011B, 0x00ED, 0x00EE, 0x010F, 0x0111, 0x0144, 0x0148, 0x00F3, 0x00F4,
    0x0151, 0x00F6, 0x00F7, 0x0159, 0x016F, 0x00FA, 0x0171, 0x00FC, 0x00FD, 0x0163, 0x02D9,
};

constexpr const HighTable &table_of(Encoding encoding) noexcept
{
    return encoding == Encoding::cp1250 ? cp1250 : iso8859_2;
}

// The way back: code points below U+0100 by a table, the others by a search of a sorted list.
struct Reverse {
    std::array<std::uint8_t, 128> latin{};  // U+0080-U+00FF: the byte, or 0 when none
    std::array<std::pair<char16_t, std::uint8_t>, 128> wide{};
    std::size_t wideCount = 0;
};

constexpr Reverse reverse_of(const HighTable &table) noexcept
{
    Reverse reverse;
    for (std::size_t i = 0; i < table.size(); i++) {
        const auto byte = static_cast<std::uint8_t>(0x80 + i);
        if (table[i] < 0x100)
            reverse.latin[table[i] - 0x80] = byte;
        else
            reverse.wide[reverse.wideCount++] = {table[i], byte};
    }
    std::sort(reverse.wide.begin(), reverse.wide.begin() + static_cast<std::ptrdiff_t>(reverse.wideCount));
    return reverse;
}

constexpr Reverse reverse_iso8859_2 = reverse_of(iso8859_2);
constexpr Reverse reverse_cp1250 = reverse_of(cp1250);

// Each table maps its 128 bytes to 128 distinct code points, none of them ASCII.
constexpr bool one_to_one(const HighTable &table) noexcept
{
    for (std::size_t i = 0; i < table.size(); i++) {
        if (table[i] < 0x80)
            return false;
        for (std::size_t k = i + 1; k < table.size(); k++) {
            if (table[i] == table[k])
                return false;
        }
    }
    return true;
}
static_assert(one_to_one(iso8859_2) && one_to_one(cp1250));

}  // namespace

bool is_encoding(std::int32_t value) noexcept
{
    return value == NAVO_ISO8859_2 || value == NAVO_CP1250;
}

std::int32_t encoding_named(std::string_view name) noexcept
{
    for (std::string_view known : {"iso8859-2", "iso-8859-2", "latin2"}) {
        if (equal_folded(name, known))
            return NAVO_ISO8859_2;
    }
    for (std::string_view known : {"cp1250", "windows-1250"}) {
        if (equal_folded(name, known))
            return NAVO_CP1250;
    }
    return -1;
}

const char *encoding_name(std::int32_t encoding) noexcept
{
    switch (encoding) {
    case NAVO_ISO8859_2:
        return "iso8859-2";
    case NAVO_CP1250:
        return "cp1250";
    default:
        return "";
    }
}

char32_t code_point(Encoding encoding, unsigned char byte) noexcept
{
    return byte < 0x80 ? byte : table_of(encoding)[byte - 0x80u];
}

void append_code_point(std::string &out, char32_t c)
{
    char bytes[4];
    std::size_t length = 0;
    if (c < 0x80) {
        bytes[length++] = static_cast<char>(c);
    } else if (c < 0x800) {
        bytes[length++] = static_cast<char>(0xC0 | (c >> 6));
        bytes[length++] = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        bytes[length++] = static_cast<char>(0xE0 | (c >> 12));
        bytes[length++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        bytes[length++] = static_cast<char>(0x80 | (c & 0x3F));
    } else {
        bytes[length++] = static_cast<char>(0xF0 | (c >> 18));
        bytes[length++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        bytes[length++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        bytes[length++] = static_cast<char>(0x80 | (c & 0x3F));
    }
    out.append(bytes, length);
}

void append_utf8(std::string &out, std::string_view bytes, Encoding encoding)
{
    const HighTable &table = table_of(encoding);
    std::size_t start = 0;
    for (std::size_t i = 0; i < bytes.size(); i++) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < 0x80)
            continue;
        out.append(bytes.data() + start, i - start);
        append_code_point(out, table[byte - 0x80u]);
        start = i + 1;
    }
    out.append(bytes.data() + start, bytes.size() - start);
}

std::size_t decode_utf8(std::string_view text, std::size_t at, char32_t &c) noexcept
{
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        c = lead;
        return 1;
    }
    std::size_t length = 0;
    char32_t smallest = 0;  // below it the form is overlong
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        smallest = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        smallest = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        smallest = 0x10000;
    } else {
        return 0;  // a continuation byte, 0xC0 and 0xC1 (always overlong), or 0xF5 and up
    }
    if (text.size() - at < length)
        return 0;
    char32_t value = lead & (0x7Fu >> length);
    for (std::size_t k = 1; k < length; k++) {
        const auto next = static_cast<unsigned char>(text[at + k]);
        if ((next & 0xC0) != 0x80)
            return 0;
        value = (value << 6) | (next & 0x3Fu);
    }
    if (value < smallest || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return 0;
    c = value;
    return length;
}

std::size_t find_invalid_utf8(std::string_view text) noexcept
{
    char32_t c = 0;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = decode_utf8(text, i, c);
        if (length == 0)
            return i;
        i += length;
    }
    return std::string_view::npos;
}

int encode(Encoding encoding, char32_t c) noexcept
{
    if (c < 0x80)
        return static_cast<int>(c);
    const Reverse &reverse = encoding == Encoding::cp1250 ? reverse_cp1250 : reverse_iso8859_2;
    if (c < 0x100) {
        const std::uint8_t byte = reverse.latin[c - 0x80];
        return byte != 0 ? byte : -1;
    }
    if (c > 0xFFFF)
        return -1;
    const auto end = reverse.wide.begin() + static_cast<std::ptrdiff_t>(reverse.wideCount);
    const auto found = std::lower_bound(reverse.wide.begin(), end, std::pair<char16_t, std::uint8_t>{static_cast<char16_t>(c), 0});
    return found != end && found->first == c ? found->second : -1;
}

std::int32_t from_utf8(std::string_view text, Encoding encoding, bool substitute, std::string &out, std::size_t &at)
{
    // Text that is not UTF-8 is refused whole, before a character the code page lacks.
    out.clear();
    at = find_invalid_utf8(text);
    if (at != std::string_view::npos)
        return NAVO_NOT_UTF8;
    out.reserve(text.size());
    char32_t c = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            out += text[i++];
            continue;
        }
        const std::size_t length = decode_utf8(text, i, c);
        const int encoded = encode(encoding, c);
        if (encoded < 0 && !substitute) {
            at = i;
            return NAVO_NOT_ENCODABLE;
        }
        out += encoded < 0 ? '?' : static_cast<char>(encoded);
        i += length;
    }
    return NAVO_OK;
}

}  // namespace navo::front
