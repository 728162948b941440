// front/places.cpp - the envelope's widths from the format's tables, and the wording of a place.
#include "front/places.hpp"

#include <cstring>
#include <span>

#include "front/messages.hpp"
#include "interchange/format.hpp"

namespace navo::front {
namespace {

using navo::interchange::Line;

std::span<const Line> lines_of(std::int32_t element) noexcept
{
    switch (element) {
    case NAVO_FILE_HEADER:
        return navo::interchange::file_header_lines;
    case NAVO_DOCUMENT_HEADER:
        return navo::interchange::doc_header_lines;
    case NAVO_ERROR_NOTE:
        return navo::interchange::error_note_lines;
    case NAVO_OCR_NOTE:
        return navo::interchange::ocr_note_lines;
    default:
        return {};
    }
}

void add_number(std::string &out, std::int64_t number)
{
    out += std::to_string(number);
}

}  // namespace

std::int32_t element_lines(std::int32_t element) noexcept
{
    const std::span<const Line> lines = lines_of(element);
    return lines.empty() ? -1 : static_cast<std::int32_t>(lines.size());
}

std::int32_t element_width(std::int32_t element, std::int32_t line) noexcept
{
    const std::span<const Line> lines = lines_of(element);
    if (line < 0 || static_cast<std::size_t>(line) >= lines.size())
        return -1;
    return lines[static_cast<std::size_t>(line)].width;
}

const char *ocr_kind_letters(std::int32_t kind) noexcept
{
    const auto &letters = navo::interchange::ocr_kind_letters;
    if (kind < 0 || static_cast<std::size_t>(kind) >= letters.size())
        return "";
    // Each entry is a whole string literal, so its data ends with a NUL.
    return letters[static_cast<std::size_t>(kind)].data();
}

navo_place empty_place() noexcept
{
    navo_place place{};
    place.record = -1;
    place.expected = -1;
    place.found = -1;
    place.field_expected = -1;
    place.field_found = -1;
    place.offset = -1;
    return place;
}

void set_name(char *name, std::size_t capacity, std::string_view utf8) noexcept
{
    if (capacity == 0)
        return;
    std::size_t length = utf8.size() < capacity - 1 ? utf8.size() : capacity - 1;
    // A cut never leaves half a character: back up over continuation bytes.
    if (length < utf8.size()) {
        while (length > 0 && (static_cast<unsigned char>(utf8[length]) & 0xC0) == 0x80)
            length--;
    }
    std::memcpy(name, utf8.data(), length);
    std::memset(name + length, 0, capacity - length);
}

std::string describe(const navo_place &place)
{
    std::string out;
    const auto piece = [&out]() -> std::string & {
        if (!out.empty())
            out += ", ";
        return out;
    };
    const std::string_view form(place.form, strnlen(place.form, sizeof place.form));
    const std::string_view block(place.block, strnlen(place.block, sizeof place.block));
    const std::string_view field(place.field, strnlen(place.field, sizeof place.field));
    if (place.document > 0) {
        piece() += "document ";
        add_number(out, place.document);
        if (!form.empty())
            (out += " (").append(form) += ')';
    } else if (!form.empty()) {
        piece().append("form ").append(form);
    }
    const std::string_view area = area_name(place.area);
    if (!area.empty())
        piece().append(area);
    if (!block.empty()) {
        piece().append("block ").append(block);
        if (place.record >= 0) {
            out += " record ";
            add_number(out, place.record);
        }
    }
    if (!field.empty())
        piece().append("field ").append(field);
    if (place.expected >= 0) {
        out += out.empty() ? "expected " : "; expected ";
        add_number(out, place.expected);
        out += " characters, found ";
        add_number(out, place.found);
    }
    if (place.field_expected >= 0) {
        out += out.empty() ? "(" : " (";
        out.append(field.empty() ? std::string_view("line") : field) += ": ";
        add_number(out, place.field_expected);
        out += ", found ";
        add_number(out, place.field_found);
        out += ')';
    }
    return out;
}

}  // namespace navo::front
