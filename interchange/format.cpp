// interchange/format.cpp - the checks that tie the format's tables to navo.h, and the cut of a text into lines.
#include "interchange/format.hpp"

#include <algorithm>

namespace navo::interchange {

// Each line of each element has room for its width and a terminator in its record of navo.h.
static_assert(fits_record(prolog_widths), "prolog record does not match its line widths");
static_assert(fits_record(file_header_widths), "file header record does not match its line widths");
static_assert(fits_record(doc_header_widths), "document header record does not match its line widths");
static_assert(fits_record(error_note_widths), "error note record does not match its line widths");
static_assert(fits_record(ocr_note_widths), "OCR note record does not match its line widths");

// The element lengths the loaders test a text against.
static_assert(file_header_length == 139 && doc_header_length == 245);
static_assert(error_note_length == 40 && ocr_note_length == 150);

// With a version of three characters the prolog lines fill their widths exactly.
static_assert(prolog::doctype_start.size() + prolog::version_length + prolog::doctype_end.size() ==
              static_cast<std::size_t>(prolog_widths[0].width));
static_assert(prolog::version_start.size() + prolog::version_length + prolog::version_end.size() ==
              static_cast<std::size_t>(prolog_widths[1].width));
static_assert(prolog::encoding.size() == static_cast<std::size_t>(prolog_widths[2].width));
static_assert(prolog::version_1_3.size() == prolog::version_length && prolog::version_1_2.size() == prolog::version_length);
static_assert(prolog::doctype_head == "<!DOCTYPE NAVO PUBLIC");
static_assert(prolog::version_value_1_3.size() == 7);
// The version value stands inside line 2 of a written 1.3 prolog where the reader looks for it.
static_assert(prolog::version_start.find(prolog::version_word) + prolog::version_value_offset ==
              prolog::version_start.size() - 2);

// The section scan reads the six characters of the longer head.
static_assert(scan::footer_head.size() == scan::head_length && scan::section_head.size() <= scan::head_length);

std::int32_t ocr_kind_of_tag(std::string_view rest) noexcept
{
    if (rest.empty())
        return 0;
    switch (rest[0]) {
    case 'a':
        return 0;
    case 'z':
        return 1;
    case 'l':
        return rest.size() > 1 && rest[1] == '2' ? 3 : 2;
    default:
        return 0;
    }
}

void cut_lines(std::span<char> record, std::span<const Line> lines, std::string_view text) noexcept
{
    for (const Line &line : lines) {
        const auto position = static_cast<std::size_t>(line.position);
        if (position >= text.size())
            continue;
        const std::string_view piece = first(after(text, position), static_cast<std::size_t>(line.width));
        std::copy(piece.begin(), piece.end(), record.begin() + static_cast<std::ptrdiff_t>(line.member));
    }
}

}  // namespace navo::interchange
