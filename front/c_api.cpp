// front/c_api.cpp - the C entry points of navo_front.h for codes, code pages, forms and places.
// Each one catches whatever the core throws and answers by its result: nothing crosses into C.
#include <new>
#include <string>

#include "front/code_pages.hpp"
#include "front/guard.hpp"
#include "front/messages.hpp"
#include "front/places.hpp"
#include "front/schema.hpp"
#include "front/text_out.hpp"
#include "navo_front.h"

using namespace navo::front;

extern "C" {

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_message(int32_t code, int32_t language) noexcept
{
    return message(code, language);
}

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_version(void) noexcept
{
    return NAVO_FRONT_VERSION;
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_encoding_named(const char *name) noexcept
{
    return name == nullptr ? -1 : encoding_named(name);
}

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_encoding_name(int32_t encoding) noexcept
{
    return encoding_name(encoding);
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_to_utf8(int32_t encoding, const char *raw, size_t length, char *out,
                                                   size_t size) noexcept
{
    TextOut text(out, size);
    if (!is_encoding(encoding) || (raw == nullptr && length > 0) || !text.valid())
        return -NAVO_INVALID_ARGUMENT;
    const auto page = static_cast<Encoding>(encoding);
    std::size_t start = 0;
    for (std::size_t i = 0; i < length; i++) {
        const auto byte = static_cast<unsigned char>(raw[i]);
        if (byte < 0x80)
            continue;
        text.add({raw + start, i - start});
        const char32_t c = code_point(page, byte);
        const char bytes[3] = {c < 0x800 ? static_cast<char>(0xC0 | (c >> 6)) : static_cast<char>(0xE0 | (c >> 12)),
                               c < 0x800 ? static_cast<char>(0x80 | (c & 0x3F)) : static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
                               static_cast<char>(0x80 | (c & 0x3F))};
        text.add({bytes, c < 0x800 ? 2u : 3u});
        start = i + 1;
    }
    if (raw != nullptr)
        text.add({raw + start, length - start});
    return text.finish();
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_from_utf8(int32_t encoding, const char *text, size_t length,
                                                     int32_t substitute, char *out, size_t size, size_t *at) noexcept
{
    TextOut bytes(out, size);
    if (!is_encoding(encoding) || (text == nullptr && length > 0) || !bytes.valid())
        return -NAVO_INVALID_ARGUMENT;
    return guarded_length([&]() -> int64_t {
        std::string converted;
        std::size_t offending = 0;
        const int32_t code = from_utf8({text != nullptr ? text : "", length}, static_cast<Encoding>(encoding),
                                       substitute != 0, converted, offending);
        if (code != NAVO_OK) {
            if (at != nullptr)
                *at = offending;
            return -code;
        }
        bytes.add(converted);
        return bytes.finish();
    });
}

NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_schema_of(const char *version) noexcept
{
    if (version == nullptr)
        return nullptr;
    try {
        return embedded_schema(version);
    } catch (...) {
        return nullptr;
    }
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_schema_parse(const char *raw, navo_schema **out) noexcept
{
    if (out != nullptr)
        *out = nullptr;
    if (raw == nullptr || out == nullptr)
        return NAVO_INVALID_ARGUMENT;
    return guarded([&] { return parse_schema(raw, *out); });
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_schema_free(navo_schema *schema) noexcept
{
    free_schema(schema);
}

NAVO_FRONT_API const navo_form_def *NAVO_FRONT_CALL navo_schema_form(const navo_schema *schema,
                                                                    const char *form) noexcept
{
    return schema == nullptr || form == nullptr ? nullptr : find_form(*schema, form);
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_form_block(const navo_form_def *form, const char *tag) noexcept
{
    return form == nullptr || tag == nullptr ? -1 : find_block(*form, tag);
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_block_field(const navo_block_def *block, const char *name) noexcept
{
    return block == nullptr || name == nullptr ? -1 : find_field(*block, name);
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_element_lines(int32_t element) noexcept
{
    return element_lines(element);
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_element_width(int32_t element, int32_t line) noexcept
{
    return element_width(element, line);
}

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_ocr_kind_letters(int32_t kind) noexcept
{
    return ocr_kind_letters(kind);
}

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_area_name(int32_t area) noexcept
{
    return area_name(area);
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_place_describe(const navo_place *place, char *out, size_t size) noexcept
{
    TextOut text(out, size);
    if (place == nullptr || !text.valid())
        return -NAVO_INVALID_ARGUMENT;
    return guarded_length([&] {
        text.add(describe(*place));
        return text.finish();
    });
}

}  // extern "C"
