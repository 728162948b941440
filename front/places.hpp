// front/places.hpp - places in a file or a writer's documents, in words; the envelope's line widths.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "navo_front.h"

namespace navo::front {

// Lines of an element of navo_element (5, 14, 4, 6), or -1; the width of line `line` (from 0), or
// -1; all from the format's own tables.
std::int32_t element_lines(std::int32_t element) noexcept;
std::int32_t element_width(std::int32_t element, std::int32_t line) noexcept;
// The letters of an OCR note's kind 0-3 as its tag carries them, or "".
const char *ocr_kind_letters(std::int32_t kind) noexcept;

// A place where nothing is known yet: 0, -1 and "".
navo_place empty_place() noexcept;

// Copies UTF-8 text into one of a place's names, cut at a character's start to fit with its NUL.
template <std::size_t N>
void set_name(char (&name)[N], std::string_view utf8) noexcept;
void set_name(char *name, std::size_t capacity, std::string_view utf8) noexcept;

template <std::size_t N>
void set_name(char (&name)[N], std::string_view utf8) noexcept
{
    set_name(name, N, utf8);
}

// The one wording of a place (without line and offset): "document 3 (TOBZBA), body, block DIPL
// record 0, field Nip; expected 171 characters, found 170 (Nip: 10, found 9)".
std::string describe(const navo_place &place);

}  // namespace navo::front
