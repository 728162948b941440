// front/messages.cpp - the one English table of the codes, the library's Polish ones as UTF-8, area names.
#include "front/messages.hpp"

#include <array>
#include <string>

#include "front/code_pages.hpp"
#include "interchange/format.hpp"
#include "navo.h"

namespace navo::front {
namespace {

constexpr std::int32_t first_own_code = NAVO_INVALID_ARGUMENT;
constexpr std::int32_t last_own_code = NAVO_READ_FAILED;

// Codes 0-10: the library's load codes.
constexpr std::array<const char *, 11> load_messages{
    "no error",
    "bad NAVO file format: this is not a NAVO file",
    "the NAVO file cannot be opened",
    "read error: unexpected end of file, or a text of the wrong length",
    "bad file format: another element was expected",
    "bad document format: a section failed to load",
    "a block the form's definition does not have, or out of order",
    "wrong block size",
    "system error: the document could not be created",
    "out of memory",
    "cancelled",
};

// Codes 100-116: the core's own.
constexpr std::array<const char *, last_own_code - first_own_code + 1> own_messages{
    "invalid argument: a null object or text, or a flag or number out of its range",
    "a load is running on this thread (a callback must not start one)",
    "no form of that name in the definition",
    "the form has no block with that tag",
    "the block has no field of that name",
    "no document, record, line or note at that number",
    "the block is not a repeating block",
    "value wider than its field, line or note text",
    "value holds a character a NAVO text cannot carry (CR, LF, TAB, NUL, '<' or the byte 0x1A)",
    "the document store refused the call (spool file or memory)",
    "the file could not be written",
    "value holds a character the code page does not have",
    "text that is not UTF-8",
    "unknown definition version (1.2 or 1.3)",
    "a value fails its content rule",
    "the rules break their grammar",
    "the input could not be read",
};

constexpr std::array<const char *, 8> area_names{
    "", "prolog", "file header", "section", "document header", "body", "notes", "footer",
};

// The library's catalogue for codes 1-10, converted from CP1250 once.
struct PolishMessages {
    std::array<std::string, load_messages.size()> texts;
    PolishMessages()
    {
        for (std::size_t code = 1; code < texts.size(); code++) {
            char buffer[256] = {};
            dk_GetNAVOErrorMessage(static_cast<std::int32_t>(code), buffer, static_cast<std::int32_t>(sizeof buffer));
            append_utf8(texts[code], buffer, Encoding::cp1250);
        }
    }
};

}  // namespace

const char *english_message(std::int32_t code) noexcept
{
    if (code >= 0 && static_cast<std::size_t>(code) < load_messages.size())
        return load_messages[static_cast<std::size_t>(code)];
    if (code >= first_own_code && code <= last_own_code)
        return own_messages[static_cast<std::size_t>(code - first_own_code)];
    return nullptr;
}

const char *message(std::int32_t code, std::int32_t language) noexcept
{
    const char *english = english_message(code);
    if (english == nullptr)
        return "unknown code";
    if (language != NAVO_POLISH || code < NAVO_NOT_NAVO || code > NAVO_CANCELLED)
        return english;
    try {
        static const PolishMessages polish;
        return polish.texts[static_cast<std::size_t>(code)].c_str();
    } catch (...) {
        return english;  // no memory for the conversion: the English words rather than none
    }
}

const char *area_name(std::int32_t area) noexcept
{
    return area >= 0 && static_cast<std::size_t>(area) < area_names.size() ? area_names[static_cast<std::size_t>(area)] : "";
}

namespace {

using navo::interchange::Area;
using navo::interchange::FaultPlace;

std::string number(std::int64_t value)
{
    return std::to_string(value);
}

// The block the form wants where an element came out of order.
std::string wanted_block(const FaultPlace &fault, const navo_form_def *form)
{
    if (form == nullptr || form->block_count == 0)
        return "another block";
    if (fault.previousPosition < 0)
        return form->blocks[0].tag;
    const std::int32_t next = fault.previousPosition + 1;
    if (next >= form->block_count)
        return "the body's end";
    const navo_block_def &previous = form->blocks[fault.previousPosition];
    std::string wanted = form->blocks[next].tag;
    return previous.repeating ? std::string(previous.tag) + " or " + wanted : wanted;
}

std::string body_detail(const FaultPlace &fault, const navo_form_def *form)
{
    switch (fault.cause) {
    case NAVO_UNEXPECTED_END:
        return "the block's element does not close: the file ends inside it, or its closing tag has another name";
    case NAVO_UNEXPECTED_ENTRY:
        return "a block or the body's closing tag expected";
    case NAVO_UNEXPECTED_BLOCK:
        if (fault.blockPosition < 0)
            return "the form has no block of this tag";
        return "block out of order: " + wanted_block(fault, form) + " expected here";
    case NAVO_BAD_BLOCK_SIZE:
        if (fault.expected >= 0 && fault.found >= 0 && fault.expected != fault.found)
            return "the block's text differs from its record length";
        return "the record cannot be added to its block (spool file or memory)";
    case NAVO_BAD_DOCUMENT:
        return "a tag of " + number(navo::interchange::read_buffer_size) + " characters or more";
    default:
        return "";
    }
}

}  // namespace

std::string fault_detail(const FaultPlace &fault, const navo_form_def *form, std::string_view version, bool atEnd)
{
    const std::int32_t cause = fault.cause != 0 ? fault.cause : fault.code;
    if (cause == NAVO_OUT_OF_MEMORY)
        return "the memory ran out";
    switch (fault.area) {
    case Area::prolog:
        if (cause == NAVO_NOT_NAVO)
            return "the first line is not the NAVO document type";
        return "the file ends inside the prolog";
    case Area::file_header:
        if (cause == NAVO_UNEXPECTED_ENTRY)
            return "<NAVO> and the file header's opening tag expected behind the prolog";
        if (fault.expected >= 0)
            return "the file header's lines do not add up to " + number(fault.expected) + " characters";
        return "the file ends inside the file header";
    case Area::section:
        if (cause == NAVO_DOCUMENT_NOT_CREATED) {
            if (form != nullptr)
                return "the document cannot be made (spool file or memory)";
            return version.empty() ? std::string("the form is not in the definition")
                                   : "the form is not in the definition of version " + std::string(version);
        }
        return "a tag of the section expected: the body's opening tag, or the section's closing tag behind the footer";
    case Area::document_header:
        if (cause == NAVO_UNEXPECTED_ENTRY)
            return "the document header's opening tag expected";
        if (fault.expected >= 0)
            return "the document header's lines do not add up to " + number(fault.expected) + " characters";
        return "the file ends inside the document header";
    case Area::body:
        return body_detail(fault, form);
    case Area::notes:
        if (cause == NAVO_UNEXPECTED_END)
            return "the file ends inside a note";
        return "a note or the document footer's closing tag expected";
    case Area::footer:
        if (cause == NAVO_UNEXPECTED_END)
            return "the file ends inside a note";
        if (atEnd)
            return "the file ends without a whole file footer";
        return "only error notes may stand in the file footer";
    case Area::none:
        break;
    }
    if (cause == NAVO_OPEN_FAILED)
        return "cannot be read";
    return "";
}

}  // namespace navo::front
