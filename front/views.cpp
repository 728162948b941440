// front/views.cpp - the views' C functions: prolog, headers, notes, records and values of a load.
#include "front/views.hpp"

#include <cstring>

#include "front/guard.hpp"
#include "front/schema.hpp"
#include "front/text_out.hpp"

namespace navo::front {
namespace {

using navo::interchange::Line;

// The lines of `record` by `lines`, each as the flags want it, each ended by a NUL.
template <class Record>
std::int64_t put_lines(const Record &record, std::span<const Line> lines, std::int32_t flags, Encoding encoding,
                       char *out, std::size_t size)
{
    TextOut text(out, size);
    std::string value;
    for (std::size_t i = 0; i < lines.size(); i++) {
        if (i > 0)
            text.next_text();
        value.clear();
        append_value(value, line_of(record, lines[i]), flags, encoding);
        text.add(value);
    }
    return text.finish();
}

bool valid_flags(std::int32_t flags) noexcept
{
    return (flags & ~(NAVO_KEEP_PADDING | NAVO_RAW)) == 0;
}

}  // namespace

const dk_DocHeader *header_of(const navo_document &doc) noexcept
{
    dk_DocHeader *header = nullptr;
    return dk_GetDocHeader(doc.file->ctx, doc.rawForm, doc.docIndex, &header) ? header : nullptr;
}

const dk_DocFooter *footer_of(const navo_document &doc) noexcept
{
    dk_DocFooter *footer = nullptr;
    return dk_GetDocFooter(doc.file->ctx, doc.rawForm, doc.docIndex, &footer) ? footer : nullptr;
}

std::int32_t record_count(const navo_document &doc, std::int32_t block) noexcept
{
    if (block < 0 || block >= doc.form->block_count)
        return -NAVO_BAD_INDEX;
    const navo_block_def &def = doc.form->blocks[block];
    if (!def.repeating)
        return 1;
    std::int32_t count = 0;
    if (!dk_GetBlockCount(doc.file->ctx, doc.rawForm, doc.docIndex, raw_tag(*doc.file->schema, def), &count))
        return -NAVO_STORE_FAILED;
    return count;
}

FieldReader::FieldReader(const navo_document &doc, const navo_block_def &block, std::string &buffer)
    : ctx_(doc.file->ctx), form_(doc.rawForm), docIndex_(doc.docIndex), tag_(raw_tag(*doc.file->schema, block)),
      fields_(raw_fields(*doc.file->schema, block)), defs_(block.fields)
{
    std::int32_t widest = 0;
    for (std::int32_t f = 0; f < block.field_count; f++)
        widest = block.fields[f].width > widest ? block.fields[f].width : widest;
    if (buffer.size() < static_cast<std::size_t>(widest) + 1)
        buffer.resize(static_cast<std::size_t>(widest) + 1);
    buffer_ = buffer.data();
}

bool FieldReader::read(std::int32_t record, std::int32_t field, std::string_view &value) noexcept
{
    const std::int32_t size = defs_[field].width + 1;
    if (!dk_GetField(ctx_, form_, docIndex_, tag_, record, fields_[field], buffer_, size))
        return false;
    // A plain loop: the values are short, shorter than a library call's own cost.
    std::int32_t length = 0;
    while (length < size && buffer_[length] != '\0')
        length++;
    value = {buffer_, static_cast<std::size_t>(length)};
    return true;
}

}  // namespace navo::front

using namespace navo::front;

extern "C" {

NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_file_version(const navo_file *file) noexcept
{
    return file == nullptr ? "" : file->version;
}

NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_file_schema(const navo_file *file) noexcept
{
    return file == nullptr ? nullptr : file->schema;
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_prolog(const navo_file *file, int32_t flags, char *out,
                                                       size_t size) noexcept
{
    if (file == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    return guarded_length([&] {
        return put_lines(file->ctx->prolog, navo::interchange::prolog_lines, flags, file->encoding, out, size);
    });
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_header(const navo_file *file, int32_t flags, char *out,
                                                       size_t size) noexcept
{
    if (file == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    return guarded_length([&] {
        return put_lines(file->ctx->header, navo::interchange::file_header_lines, flags, file->encoding, out, size);
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_file_notes(const navo_file *file) noexcept
{
    return file == nullptr ? -NAVO_INVALID_ARGUMENT : file->ctx->footer.noteCount;
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_note(const navo_file *file, int32_t note, int32_t flags, char *out,
                                                     size_t size) noexcept
{
    if (file == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    const dk_FileFooter &footer = file->ctx->footer;
    if (note < 0 || note >= footer.noteCount)
        return -NAVO_BAD_INDEX;
    return guarded_length([&] {
        return put_lines(footer.notes[note], navo::interchange::error_note_lines, flags, file->encoding, out, size);
    });
}

NAVO_FRONT_API const navo_file *NAVO_FRONT_CALL navo_document_file(const navo_document *doc) noexcept
{
    return doc == nullptr ? nullptr : doc->file;
}

NAVO_FRONT_API const navo_form_def *NAVO_FRONT_CALL navo_document_form(const navo_document *doc) noexcept
{
    return doc == nullptr ? nullptr : doc->form;
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_number(const navo_document *doc) noexcept
{
    return doc == nullptr ? -NAVO_INVALID_ARGUMENT : doc->number;
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_header(const navo_document *doc, int32_t flags, char *out,
                                                           size_t size) noexcept
{
    if (doc == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    const dk_DocHeader *header = header_of(*doc);
    if (header == nullptr)
        return -NAVO_STORE_FAILED;
    return guarded_length([&] {
        return put_lines(*header, navo::interchange::doc_header_lines, flags, doc->file->encoding, out, size);
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_records(const navo_document *doc, int32_t block) noexcept
{
    return doc == nullptr ? -NAVO_INVALID_ARGUMENT : record_count(*doc, block);
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_record(const navo_document *doc, int32_t block, int32_t record,
                                                           int32_t flags, char *out, size_t size) noexcept
{
    if (doc == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    const std::int32_t count = record_count(*doc, block);
    if (count < 0)
        return count;
    if (record < 0 || record >= count)
        return -NAVO_BAD_INDEX;
    return guarded_length([&]() -> std::int64_t {
        const navo_block_def &def = doc->form->blocks[block];
        TextOut text(out, size);
        std::string buffer;
        FieldReader reader(*doc, def, buffer);
        std::string_view raw;
        std::string value;
        for (std::int32_t f = 0; f < def.field_count; f++) {
            if (!reader.read(record, f, raw))
                return -NAVO_STORE_FAILED;
            if (f > 0)
                text.next_text();
            value.clear();
            append_value(value, raw, flags, doc->file->encoding);
            text.add(value);
        }
        return text.finish();
    });
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_value(const navo_document *doc, int32_t block, int32_t record,
                                                          int32_t field, int32_t flags, char *out,
                                                          size_t size) noexcept
{
    if (doc == nullptr || !valid_flags(flags) || (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    const std::int32_t count = record_count(*doc, block);
    if (count < 0)
        return count;
    const navo_block_def &def = doc->form->blocks[block];
    if (record < 0 || record >= count || field < 0 || field >= def.field_count)
        return -NAVO_BAD_INDEX;
    return guarded_length([&]() -> std::int64_t {
        std::string buffer;
        FieldReader reader(*doc, def, buffer);
        std::string_view raw;
        if (!reader.read(record, field, raw))
            return -NAVO_STORE_FAILED;
        std::string value;
        append_value(value, raw, flags, doc->file->encoding);
        TextOut text(out, size);
        text.add(value);
        return text.finish();
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_notes(const navo_document *doc, int32_t element) noexcept
{
    if (doc == nullptr || (element != NAVO_ERROR_NOTE && element != NAVO_OCR_NOTE))
        return -NAVO_INVALID_ARGUMENT;
    const dk_DocFooter *footer = footer_of(*doc);
    if (footer == nullptr)
        return -NAVO_STORE_FAILED;
    return element == NAVO_ERROR_NOTE ? footer->errorCount : footer->ocrCount;
}

NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_note(const navo_document *doc, int32_t element, int32_t note,
                                                         int32_t flags, char *out, size_t size,
                                                         int32_t *kind) noexcept
{
    if (doc == nullptr || (element != NAVO_ERROR_NOTE && element != NAVO_OCR_NOTE) || !valid_flags(flags) ||
        (out == nullptr && size > 0))
        return -NAVO_INVALID_ARGUMENT;
    const dk_DocFooter *footer = footer_of(*doc);
    if (footer == nullptr)
        return -NAVO_STORE_FAILED;
    const std::int32_t count = element == NAVO_ERROR_NOTE ? footer->errorCount : footer->ocrCount;
    if (note < 0 || note >= count)
        return -NAVO_BAD_INDEX;
    return guarded_length([&] {
        if (element == NAVO_ERROR_NOTE)
            return put_lines(footer->errorNotes[note], navo::interchange::error_note_lines, flags, doc->file->encoding,
                             out, size);
        if (kind != nullptr)
            *kind = footer->ocrNotes[note].kind;
        return put_lines(footer->ocrNotes[note], navo::interchange::ocr_note_lines, flags, doc->file->encoding, out,
                         size);
    });
}

}  // extern "C"
