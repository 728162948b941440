// interchange/format.hpp - the NAVO file format: tags, prolog pieces, line widths and positions, one table for reader and writer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "navo.h"

namespace navo::interchange {

// Every text of the format is a std::string_view on a whole string literal, so its length is
// known at compile time and reader and writer can disagree neither on a byte nor on a length.

// Cuts of a text without the range checks of std::string_view's substr and compare, which
// report a bad position by throwing; every count here is clamped to the text instead.
constexpr std::string_view first(std::string_view text, std::size_t count) noexcept
{
    return {text.data(), count < text.size() ? count : text.size()};
}
constexpr std::string_view after(std::string_view text, std::size_t count) noexcept
{
    text.remove_prefix(count < text.size() ? count : text.size());
    return text;
}
constexpr bool begins_with(std::string_view text, std::string_view head) noexcept
{
    return first(text, head.size()) == head;
}
constexpr bool finishes_with(std::string_view text, std::string_view tail) noexcept
{
    return text.size() >= tail.size() && after(text, text.size() - tail.size()) == tail;
}

// ---- Prolog ----------------------------------------------------------------------------------

namespace prolog {

// Line 1 = doctype_start + version + doctype_end.
inline constexpr std::string_view doctype_start = "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO ";
inline constexpr std::string_view doctype_end = "//PL'[";
// Line 2 = version_start + version + version_end.
inline constexpr std::string_view version_start = "<!ENTITY wersja '00";
inline constexpr std::string_view version_end = "00' >";
// Line 3.
inline constexpr std::string_view encoding = "<!ENTITY strona.kodowa 'ISO 8859-2' >]>";

// The version is always exactly three characters.
inline constexpr std::size_t version_length = 3;
inline constexpr std::string_view version_1_3 = "1.3";
inline constexpr std::string_view version_1_2 = "1.2";

// The only test that a file is a NAVO file: the head of line 1.
inline constexpr std::string_view doctype_head = first(doctype_start, 21);

// Version selection: search line 2 for the word; the value of version 1.3 starts 8 characters
// behind the start of the word. Anything else is version 1.2.
inline constexpr std::string_view version_word = "wersja ";
inline constexpr std::size_t version_value_offset = 8;
inline constexpr std::string_view version_value_1_3 = "001.300";

}  // namespace prolog

// ---- Tags ------------------------------------------------------------------------------------

namespace tag {

inline constexpr std::string_view navo_open = "<NAVO>";
inline constexpr std::string_view navo_close = "</NAVO>";
inline constexpr std::string_view file_header_open = "<naglowek.NAVO>";
inline constexpr std::string_view file_header_close = "</naglowek.NAVO>";
inline constexpr std::string_view file_footer_open = "<stopka.NAVO>";
inline constexpr std::string_view file_footer_close = "</stopka.NAVO>";
inline constexpr std::string_view doc_header_open = "<naglowek.DP>";
inline constexpr std::string_view doc_header_close = "</naglowek.DP>";
inline constexpr std::string_view doc_footer_open = "<stopka.DP>";
inline constexpr std::string_view doc_footer_close = "</stopka.DP>";
inline constexpr std::string_view error_open = "<BLAD>";
inline constexpr std::string_view error_close = "</BLAD>";
// An OCR note's tags: prefix + kind letters + end.
inline constexpr std::string_view ocr_open_prefix = "<OCR.";
inline constexpr std::string_view ocr_close_prefix = "</OCR.";

// Pieces of the tags built from a name: start X end, close_start X end, start X section_suffix.
inline constexpr std::string_view start = "<";
inline constexpr std::string_view close_start = "</";
inline constexpr std::string_view end = ">";
inline constexpr std::string_view section_suffix = ".DP>";
inline constexpr std::string_view file_footer_suffix = ".NAVO>";

}  // namespace tag

// ---- What the section scan looks for in the six characters behind a "<" ------------------------

namespace scan {

inline constexpr std::size_t head_length = 6;
inline constexpr std::string_view footer_head = "stopka";
inline constexpr std::string_view section_head = "TOB";
// The scan's own buffer for the rest of a tag: up to 19 characters and a terminator.
inline constexpr std::size_t rest_size = 20;

}  // namespace scan

// Line buffer of a load: counting pass (fgets limit), fixed reads, tags, section tag.
inline constexpr std::size_t read_buffer_size = 200;

// A terminated buffer as text: up to its NUL, or all of it when a full read left none.
inline std::string_view text_of(std::span<const char> buffer) noexcept
{
    std::size_t length = 0;
    while (length < buffer.size() && buffer[length] != '\0')
        length++;
    return {buffer.data(), length};
}

// ---- Fixed-width envelope lines ----------------------------------------------------------------

// One line of an envelope element as the format states it: where its text lives in the record of
// navo.h (`member`, an offsetof, of `capacity` bytes) and its width in the file.
struct LineWidth {
    std::size_t member;
    std::size_t capacity;
    std::int32_t width;
};

// One line as reader and writer use it: the member, its width, and its position in the element's
// run of significant characters.
struct Line {
    std::size_t member;
    std::int32_t width;
    std::int32_t position;
};

// The lines of an element laid end to end: each position is the sum of the widths before it.
template <std::size_t N>
constexpr std::array<Line, N> lay_out(const std::array<LineWidth, N> &widths) noexcept
{
    std::array<Line, N> lines{};
    std::int32_t position = 0;
    for (std::size_t i = 0; i < N; i++) {
        lines[i] = Line{widths[i].member, widths[i].width, position};
        position += widths[i].width;
    }
    return lines;
}

// Characters of the element in the file.
template <std::size_t N>
constexpr std::int32_t total_width(const std::array<LineWidth, N> &widths) noexcept
{
    std::int32_t total = 0;
    for (const LineWidth &line : widths)
        total += line.width;
    return total;
}

// Every line has room in its record for its width and a terminator, and no byte more: a change
// of navo.h that breaks a table fails the build instead of a cut.
template <std::size_t N>
constexpr bool fits_record(const std::array<LineWidth, N> &widths) noexcept
{
    for (const LineWidth &line : widths) {
        if (line.width < 0 || static_cast<std::size_t>(line.width) + 1 != line.capacity)
            return false;
    }
    return true;
}

// The prolog record: three lines side by side; the writer writes each up to its terminator.
inline constexpr std::array<LineWidth, 3> prolog_widths{{
    {offsetof(dk_FileProlog, doctypeLine), sizeof(dk_FileProlog::doctypeLine), 49},
    {offsetof(dk_FileProlog, versionLine), sizeof(dk_FileProlog::versionLine), 27},
    {offsetof(dk_FileProlog, encodingLine), sizeof(dk_FileProlog::encodingLine), 39},
}};
inline constexpr auto prolog_lines = lay_out(prolog_widths);

// The reader takes the prolog by fixed lengths: line 1 whole, lines 2 and 3 one character short
// (their closing '>' is then found by a search, so a longer line still loads).
namespace prolog {
inline constexpr std::int32_t read_doctype = prolog_widths[0].width;
inline constexpr std::int32_t read_version = prolog_widths[1].width - 1;
inline constexpr std::int32_t read_encoding = prolog_widths[2].width - 1;
}  // namespace prolog

inline constexpr std::array<LineWidth, 5> file_header_widths{{
    {offsetof(dk_FileHeader, line1), sizeof(dk_FileHeader::line1), 51},
    {offsetof(dk_FileHeader, line2), sizeof(dk_FileHeader::line2), 8},
    {offsetof(dk_FileHeader, line3), sizeof(dk_FileHeader::line3), 24},
    {offsetof(dk_FileHeader, line4), sizeof(dk_FileHeader::line4), 24},
    {offsetof(dk_FileHeader, line5), sizeof(dk_FileHeader::line5), 32},
}};
inline constexpr auto file_header_lines = lay_out(file_header_widths);
inline constexpr std::int32_t file_header_length = total_width(file_header_widths);

inline constexpr std::array<LineWidth, 14> doc_header_widths{{
    {offsetof(dk_DocHeader, line1), sizeof(dk_DocHeader::line1), 51},
    {offsetof(dk_DocHeader, line2), sizeof(dk_DocHeader::line2), 8},
    {offsetof(dk_DocHeader, line3), sizeof(dk_DocHeader::line3), 8},
    {offsetof(dk_DocHeader, line4), sizeof(dk_DocHeader::line4), 8},
    {offsetof(dk_DocHeader, line5), sizeof(dk_DocHeader::line5), 24},
    {offsetof(dk_DocHeader, line6), sizeof(dk_DocHeader::line6), 8},
    {offsetof(dk_DocHeader, line7), sizeof(dk_DocHeader::line7), 24},
    {offsetof(dk_DocHeader, line8), sizeof(dk_DocHeader::line8), 24},
    {offsetof(dk_DocHeader, line9), sizeof(dk_DocHeader::line9), 8},
    {offsetof(dk_DocHeader, line10), sizeof(dk_DocHeader::line10), 24},
    {offsetof(dk_DocHeader, line11), sizeof(dk_DocHeader::line11), 24},
    {offsetof(dk_DocHeader, line12), sizeof(dk_DocHeader::line12), 1},
    {offsetof(dk_DocHeader, line13), sizeof(dk_DocHeader::line13), 1},
    {offsetof(dk_DocHeader, line14), sizeof(dk_DocHeader::line14), 32},
}};
inline constexpr auto doc_header_lines = lay_out(doc_header_widths);
inline constexpr std::int32_t doc_header_length = total_width(doc_header_widths);

inline constexpr std::array<LineWidth, 4> error_note_widths{{
    {offsetof(dk_ErrorNote, text1), sizeof(dk_ErrorNote::text1), 10},
    {offsetof(dk_ErrorNote, text2), sizeof(dk_ErrorNote::text2), 10},
    {offsetof(dk_ErrorNote, text3), sizeof(dk_ErrorNote::text3), 10},
    {offsetof(dk_ErrorNote, text4), sizeof(dk_ErrorNote::text4), 10},
}};
inline constexpr auto error_note_lines = lay_out(error_note_widths);
inline constexpr std::int32_t error_note_length = total_width(error_note_widths);

// The OCR note's `kind` is no line: it is written as the letters of the note's tags.
inline constexpr std::array<LineWidth, 6> ocr_note_widths{{
    {offsetof(dk_OcrNote, text1), sizeof(dk_OcrNote::text1), 10},
    {offsetof(dk_OcrNote, text2), sizeof(dk_OcrNote::text2), 10},
    {offsetof(dk_OcrNote, text3), sizeof(dk_OcrNote::text3), 10},
    {offsetof(dk_OcrNote, text4), sizeof(dk_OcrNote::text4), 72},
    {offsetof(dk_OcrNote, text5), sizeof(dk_OcrNote::text5), 24},
    {offsetof(dk_OcrNote, text6), sizeof(dk_OcrNote::text6), 24},
}};
inline constexpr auto ocr_note_lines = lay_out(ocr_note_widths);
inline constexpr std::int32_t ocr_note_length = total_width(ocr_note_widths);

// ---- OCR kinds -------------------------------------------------------------------------------

// Kinds 0 to 3 are written with these letters.
inline constexpr std::array<std::string_view, 4> ocr_kind_letters{"a", "z", "l", "l2"};

// The reader's rule for the kind: `rest` is what stands behind "<OCR." in a tag ('a' 0, 'z' 1,
// 'l' 2, or 3 when '2' follows the 'l'; anything else 0). Looks at two characters at most.
std::int32_t ocr_kind_of_tag(std::string_view rest) noexcept;

// ---- Records as bytes ------------------------------------------------------------------------

// The bytes of an envelope record of navo.h, which the line tables address by offset.
template <class Record>
std::span<char, sizeof(Record)> bytes_of(Record &record) noexcept
{
    return std::span<char, sizeof(Record)>{reinterpret_cast<char *>(&record), sizeof(Record)};
}
template <class Record>
std::span<const char, sizeof(Record)> bytes_of(const Record &record) noexcept
{
    return std::span<const char, sizeof(Record)>{reinterpret_cast<const char *>(&record), sizeof(Record)};
}

// Cuts `text` into the lines of `record` at the table's positions and widths. Each piece is
// copied at most `width` characters and stops at the end of the text; nothing behind the end of
// the text is read and the record is not otherwise touched, so a caller who zeroed it first gets
// terminated, possibly shorter or empty, pieces.
void cut_lines(std::span<char> record, std::span<const Line> lines, std::string_view text) noexcept;

template <class Record>
void cut_lines(Record &record, std::span<const Line> lines, std::string_view text) noexcept
{
    cut_lines(std::span<char>{bytes_of(record)}, lines, text);
}

}  // namespace navo::interchange
