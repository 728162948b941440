// front/views.hpp - the file and document views of a load: what navo_file and navo_document are.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "front/code_pages.hpp"
#include "front/context.hpp"
#include "interchange/format.hpp"
#include "navo.h"
#include "navo_front.h"

namespace navo::front {
struct KeptDocument;
}

// The file being read: its context, the encoding of the values handed out, its definition.
struct navo_file {
    dk_Context *ctx = nullptr;
    navo::front::Encoding encoding = navo::front::Encoding::iso8859_2;
    const navo_schema *schema = nullptr;  // the embedded definition the prolog chose
    const char *version = "";             // its version, "1.3" or "1.2"
};

// One document of a file, in the library's store while the view lives.
struct navo_document {
    const navo_file *file = nullptr;
    const navo_form_def *form = nullptr;
    const char *rawForm = "";  // the form's name as the library spells it, for its calls
    std::int32_t docIndex = 0;
    std::int32_t number = 0;
    // A document kept by navo_document_open owns its context and file; null for a callback's view.
    std::unique_ptr<navo::front::KeptDocument> kept;
};

namespace navo::front {

// What a kept document owns.
struct KeptDocument {
    Context ctx;
    navo_file file;
};

// One line of an envelope record, as the format's tables place it: up to its NUL.
template <class Record>
std::string_view line_of(const Record &record, const navo::interchange::Line &line) noexcept
{
    const char *text = reinterpret_cast<const char *>(&record) + line.member;
    const auto capacity = static_cast<std::size_t>(line.width) + 1;
    std::size_t length = 0;
    while (length < capacity && text[length] != '\0')
        length++;
    return {text, length};
}

// The document's header and footer in the store, or null.
const dk_DocHeader *header_of(const navo_document &doc) noexcept;
const dk_DocFooter *footer_of(const navo_document &doc) noexcept;

// Records of the block at `block`: 1 for a single block; -code for no such block or a refusal.
std::int32_t record_count(const navo_document &doc, std::int32_t block) noexcept;

// Reads the fields of one block of a document through the store: the names in the library's
// spelling are looked up once, and each value goes to one buffer of the caller's.
class FieldReader {
public:
    FieldReader(const navo_document &doc, const navo_block_def &block, std::string &buffer);
    // The field's bytes up to its NUL, good until the next read; false when the store refuses.
    bool read(std::int32_t record, std::int32_t field, std::string_view &value) noexcept;

private:
    dk_Context *ctx_;
    const char *form_;
    std::int32_t docIndex_;
    const char *tag_;
    const char *const *fields_;
    const navo_field_def *defs_;
    char *buffer_;
};

}  // namespace navo::front
