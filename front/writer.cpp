// front/writer.cpp - the writer's refusals before anything changes, its documents by number, saving.
#include "front/writer.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

#include "front/content_checks.hpp"
#include "front/guard.hpp"
#include "front/places.hpp"
#include "front/schema.hpp"
#include "interchange/file_loader.hpp"
#include "interchange/format.hpp"
#include "interchange/writer.hpp"

namespace navo::front {
namespace {

using navo::interchange::Line;

// A refused call: its code, where, and why in words that name no value.
struct Refused {
    std::int32_t code;
    navo_place place;
    std::string reason;
};

[[noreturn]] void refuse(std::int32_t code, const navo_place &place, std::string reason)
{
    throw Refused{code, place, std::move(reason)};
}

// Runs a call of the writer: a refusal fills `why` and gives its code.
template <class Body>
std::int32_t run(navo_refusal *why, Body &&body) noexcept
{
    const auto tell = [why](std::int32_t code, const navo_place &place, std::string_view reason) noexcept {
        if (why != nullptr) {
            why->code = code;
            why->place = place;
            set_name(why->reason, reason);
        }
        return code;
    };
    try {
        body();
        return NAVO_OK;
    } catch (const Refused &refused) {
        return tell(refused.code, refused.place, refused.reason);
    } catch (...) {
        const std::int32_t code = code_of_current_exception();
        return tell(code, empty_place(), code == NAVO_OUT_OF_MEMORY ? "the memory ran out" : "the call was refused");
    }
}

// Why a file could not be written, from errno.
std::string system_reason(const char *what)
{
    return std::string(what) + " (" + std::generic_category().message(errno) + ")";
}

const char *kind_of(std::int32_t area) noexcept
{
    switch (area) {
    case NAVO_AREA_BODY: return "field";
    case NAVO_AREA_NOTES:
    case NAVO_AREA_FOOTER: return "note text";
    default: return "line";
    }
}

// The text of a value as the file will hold it: refused when it is no UTF-8, holds a character a
// NAVO text cannot carry or one the code page lacks, or is wider than `width` (the last two
// mended with NAVO_TRUNCATE); filled with blanks to the width.
std::string prepare(const navo_writer &writer, std::string_view text, std::int32_t width, navo_place place)
{
    const bool truncate = (writer.flags & NAVO_TRUNCATE) != 0;
    // ASCII without a character a NAVO text cannot carry, the bulk of all values, is its own bytes
    // in both code pages.
    const auto plain = [](char c) { return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x80 && c != '<'; };
    if (text.size() <= static_cast<std::size_t>(width) && std::all_of(text.begin(), text.end(), plain)) {
        std::string bytes(static_cast<std::size_t>(width), ' ');
        std::copy(text.begin(), text.end(), bytes.begin());
        return bytes;
    }
    if (find_invalid_utf8(text) != std::string_view::npos)
        refuse(NAVO_NOT_UTF8, place, "the value is not UTF-8");
    if (text.find_first_of(std::string_view("\r\n\t\0<\x1A", 6)) != std::string_view::npos)
        refuse(NAVO_BAD_CHARACTER, place,
               "the value holds a character a NAVO text cannot carry (CR, LF, TAB, NUL, '<' or the byte 0x1A)");
    std::string bytes;
    std::size_t at = 0;
    if (from_utf8(text, writer.encoding, truncate, bytes, at) != NAVO_OK)
        refuse(NAVO_NOT_ENCODABLE, place,
               std::string("the value holds a character the code page ") +
                   (writer.encoding == Encoding::cp1250 ? "CP1250" : "ISO 8859-2") + " does not have");
    const auto wide = static_cast<std::size_t>(width);
    if (bytes.size() > wide) {
        if (!truncate) {
            place.expected = width;
            place.found = static_cast<std::int32_t>(bytes.size() < INT32_MAX ? bytes.size() : INT32_MAX);
            refuse(NAVO_TOO_WIDE, place, std::string("the value is wider than its ") + kind_of(place.area));
        }
        bytes.resize(wide);
    }
    bytes.resize(wide, ' ');
    return bytes;
}

// `text`, already of the line's width, into the line of an envelope record.
template <class Record>
void put_line(Record &record, const Line &line, const std::string &text) noexcept
{
    char *target = reinterpret_cast<char *>(&record) + line.member;
    std::memcpy(target, text.data(), static_cast<std::size_t>(line.width));
    target[line.width] = '\0';
}

// Every line of a record blank at its width.
template <class Record>
void blank_lines(Record &record, std::span<const Line> lines) noexcept
{
    for (const Line &line : lines) {
        char *target = reinterpret_cast<char *>(&record) + line.member;
        std::memset(target, ' ', static_cast<std::size_t>(line.width));
        target[line.width] = '\0';
    }
}

navo_place place_in(std::int32_t area, std::int32_t document = 0) noexcept
{
    navo_place place = empty_place();
    place.area = area;
    place.document = document;
    return place;
}

std::string line_name(const char *kind, std::int32_t index)
{
    return kind + std::to_string(index + 1);
}

// Checks handed-in arguments that are the host's mistake rather than its data.
void require(bool valid, const navo_place &place, const char *reason)
{
    if (!valid)
        refuse(NAVO_INVALID_ARGUMENT, place, reason);
}

// The document of number `number`, present in the writer.
navo_writer::Entry &document_of(navo_writer &writer, std::int32_t number, navo_place &place)
{
    place.document = number;
    if (number < 1 || static_cast<std::size_t>(number) > writer.documents.size() ||
        !writer.documents[static_cast<std::size_t>(number) - 1].present)
        refuse(NAVO_BAD_INDEX, place, "the writer has no document of that number");
    navo_writer::Entry &entry = writer.documents[static_cast<std::size_t>(number) - 1];
    set_name(place.form, writer.schema->forms[entry.form].name);
    return entry;
}

const char *raw_form_of(const navo_writer &writer, const navo_writer::Entry &entry) noexcept
{
    return raw_form(*writer.schema, entry.form);
}

// The texts of a note: `count` of them at most as many as its lines; the others stay blank.
template <class Note>
Note prepare_note(const navo_writer &writer, const char *const *texts, std::int32_t count,
                  std::span<const Line> lines, navo_place place)
{
    require(count >= 0 && static_cast<std::size_t>(count) <= lines.size() && (texts != nullptr || count == 0), place,
            "a note has at most as many texts as lines");
    for (std::int32_t i = 0; i < count; i++)
        require(texts[i] != nullptr, place, "a note's text is null");
    Note note{};
    blank_lines(note, lines);
    for (std::int32_t i = 0; i < count; i++) {
        const Line &line = lines[static_cast<std::size_t>(i)];
        set_name(place.field, line_name("text", i));
        put_line(note, line, prepare(writer, texts[i], line.width, place));
    }
    return note;
}

// A removed document's place is free, and the documents of its form behind it move down one.
void forget(navo_writer &writer, std::int32_t number) noexcept
{
    navo_writer::Entry &gone = writer.documents[static_cast<std::size_t>(number) - 1];
    for (navo_writer::Entry &entry : writer.documents) {
        if (entry.present && entry.form == gone.form && entry.docIndex > gone.docIndex)
            entry.docIndex--;
    }
    gone.present = false;
}

// A value against its content rule (NAVO_CHECK); a blank value is not checked.
void check_value(const navo_writer &writer, const navo_form_def &form, const navo_block_def &block,
                 std::int32_t field, const std::string &value, const navo_place &place)
{
    BlockChecks one;
    one.fields.assign(static_cast<std::size_t>(block.field_count), FieldRule{});
    one.fields[static_cast<std::size_t>(field)] = resolve_rule(writer.rules, form, block, block.fields[field]);
    one.any = one.fields[static_cast<std::size_t>(field)].active();
    check_record(one, block, [&](std::int32_t) { return std::string_view(value); }, writer.encoding, place,
                 [&](const navo_finding &finding) {
                     refuse(NAVO_CONTENT_REFUSED, finding.place,
                            std::string("the value fails its content rule (") + finding.rule + "): " + finding.problem);
                 });
}

// The pairs of fields of every record of a document checked against each other (NAVO_CHECK),
// before a byte of it is written.
void check_document(navo_writer &writer, std::int32_t number, const navo_writer::Entry &entry)
{
    const navo_form_def &form = writer.schema->forms[entry.form];
    dk_Context *ctx = writer.ctx.get();
    const char *rawForm = raw_form(*writer.schema, entry.form);
    for (std::int32_t b = 0; b < form.block_count; b++) {
        const navo_block_def &block = form.blocks[b];
        const BlockChecks checks = block_checks(writer.rules, form, block);
        if (checks.cross.empty())
            continue;
        const char *rawTag = raw_tag(*writer.schema, block);
        std::int32_t records = 1;
        if (block.repeating && !dk_GetBlockCount(ctx, rawForm, entry.docIndex, rawTag, &records))
            records = 0;
        std::vector<std::string> values(static_cast<std::size_t>(block.field_count));
        for (std::int32_t r = 0; r < records; r++) {
            navo_place place = place_in(NAVO_AREA_BODY, number);
            place.record = r;
            set_name(place.form, form.name);
            set_name(place.block, block.tag);
            const ValueOf value = [&](std::int32_t f) -> std::string_view {
                std::string &text = values[static_cast<std::size_t>(f)];
                text.assign(static_cast<std::size_t>(block.fields[f].width) + 1, '\0');
                if (!dk_GetField(ctx, rawForm, entry.docIndex, rawTag, r, raw_field(*writer.schema, block, f),
                                 text.data(), static_cast<std::int32_t>(text.size())))
                    refuse(NAVO_STORE_FAILED, place, "the document store refused the call");
                text.resize(std::char_traits<char>::length(text.c_str()));
                return text;
            };
            check_cross(checks, block, value, writer.encoding, place, [&](const navo_finding &finding) {
                refuse(NAVO_CONTENT_REFUSED, finding.place,
                       std::string("the values fail a content rule (") + finding.rule + "): " + finding.problem);
            });
        }
    }
}

// Every document's pairs, before a whole save writes anything.
void check_documents(navo_writer &writer)
{
    if ((writer.flags & NAVO_CHECK) == 0)
        return;
    for (std::size_t n = 0; n < writer.documents.size(); n++) {
        if (writer.documents[n].present)
            check_document(writer, static_cast<std::int32_t>(n + 1), writer.documents[n]);
    }
}

void remove_document(navo_writer &writer, std::int32_t number)
{
    navo_place place = place_in(NAVO_AREA_NONE);
    navo_writer::Entry &entry = document_of(writer, number, place);
    if (!dk_RemoveDocument(writer.ctx.get(), raw_form_of(writer, entry), entry.docIndex))
        refuse(NAVO_STORE_FAILED, place, "the document store refused to remove the document");
    forget(writer, number);
}

}  // namespace

}  // namespace navo::front

using namespace navo::front;

extern "C" {

NAVO_FRONT_API navo_writer *NAVO_FRONT_CALL navo_writer_new(const char *version, int32_t encoding,
                                                           int32_t flags) noexcept
{
    if (version == nullptr || !is_encoding(encoding) || (flags & ~(NAVO_TRUNCATE | NAVO_CHECK)) != 0)
        return nullptr;
    const std::string_view name(version);
    if (name != navo::interchange::prolog::version_1_3 && name != navo::interchange::prolog::version_1_2)
        return nullptr;
    try {
        auto writer = std::make_unique<navo_writer>();
        writer->schema = embedded_schema(name);
        writer->encoding = static_cast<Encoding>(encoding);
        writer->flags = flags;
        dk_Context *ctx = nullptr;
        if (!writer->ctx.create())
            return nullptr;
        ctx = writer->ctx.get();
        const char *text = name == navo::interchange::prolog::version_1_3 ? GetDefTXT_1_3() : GetDefTXT_1_2();
        if (!dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, text) ||
            !dk_InitDocuments(ctx, navo::interchange::load_pool_capacity) || !dk_SetDefaultNAVOProlog(ctx, version))
            return nullptr;
        blank_lines(ctx->header, navo::interchange::file_header_lines);
        return writer.release();
    } catch (...) {
        return nullptr;
    }
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_writer_free(navo_writer *writer) noexcept
{
    delete writer;
}

NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_writer_schema(const navo_writer *writer) noexcept
{
    return writer == nullptr ? nullptr : writer->schema;
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_rules(navo_writer *writer, const navo_rules *rules) noexcept
{
    if (writer == nullptr)
        return NAVO_INVALID_ARGUMENT;
    writer->rules = rules;
    return NAVO_OK;
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_file_header(navo_writer *writer, int32_t line, const char *text,
                                                              navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_FILE_HEADER);
        place.record = line;
        require(writer != nullptr && text != nullptr, place, "a null writer or text");
        const auto &lines = navo::interchange::file_header_lines;
        if (line < 0 || static_cast<std::size_t>(line) >= lines.size())
            refuse(NAVO_BAD_INDEX, place, "the file header has no line of that number");
        set_name(place.field, line_name("line", line));
        const Line &at = lines[static_cast<std::size_t>(line)];
        put_line(writer->ctx->header, at, prepare(*writer, text, at.width, place));
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_file_note(navo_writer *writer, const char *const *texts,
                                                            int32_t count, navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_FOOTER);
        require(writer != nullptr, place, "a null writer");
        dk_FileFooter &footer = writer->ctx->footer;
        set_name(place.block, "BLAD");
        place.record = footer.noteCount;
        const auto note = prepare_note<dk_ErrorNote>(*writer, texts, count, navo::interchange::error_note_lines, place);
        const std::int32_t before = footer.noteCount;
        if (!dk_AddNAVOError(writer->ctx.get(), &note)) {
            footer.noteCount = before;  // a failed add drops the count, never the notes
            refuse(NAVO_STORE_FAILED, place, "the note cannot be added (memory)");
        }
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_add_document(navo_writer *writer, const char *form,
                                                               int32_t *document, navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_NONE);
        require(writer != nullptr && form != nullptr, place, "a null writer or form");
        const navo_form_def *def = find_form(*writer->schema, form);
        if (def == nullptr)
            refuse(NAVO_UNKNOWN_FORM, place, "the definition has no form of that name");
        set_name(place.form, def->name);
        const std::int32_t formIndex = form_index(*writer->schema, *def);
        writer->documents.reserve(writer->documents.size() + 1);
        dk_Context *ctx = writer->ctx.get();
        std::int32_t docIndex = -1;
        dk_DocHeader *header = nullptr;
        if (!dk_AddDocument(ctx, raw_form(*writer->schema, formIndex), &docIndex))
            refuse(NAVO_STORE_FAILED, place, "the document store refused the document (spool file or memory)");
        dk_GetDocHeader(ctx, raw_form(*writer->schema, formIndex), docIndex, &header);
        blank_lines(*header, navo::interchange::doc_header_lines);
        writer->documents.push_back({formIndex, docIndex, true});
        if (document != nullptr)
            *document = static_cast<std::int32_t>(writer->documents.size());
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_remove_document(navo_writer *writer, int32_t document) noexcept
{
    return run(nullptr, [&] {
        require(writer != nullptr, empty_place(), "a null writer");
        remove_document(*writer, document);
        // The numbers of the last documents removed are free again, so that a front end undoing a
        // failed add keeps its numbers the places of the documents in the saved file. A number
        // whose document went to a streamed file stays taken.
        while (!writer->documents.empty() && !writer->documents.back().present && !writer->documents.back().written)
            writer->documents.pop_back();
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_header(navo_writer *writer, int32_t document, int32_t line,
                                                         const char *text, navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_DOCUMENT_HEADER);
        place.record = line;
        require(writer != nullptr && text != nullptr, place, "a null writer or text");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        const auto &lines = navo::interchange::doc_header_lines;
        if (line < 0 || static_cast<std::size_t>(line) >= lines.size())
            refuse(NAVO_BAD_INDEX, place, "the document header has no line of that number");
        set_name(place.field, line_name("line", line));
        const Line &at = lines[static_cast<std::size_t>(line)];
        const std::string value = prepare(*writer, text, at.width, place);
        dk_DocHeader *header = nullptr;
        if (!dk_GetDocHeader(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, &header))
            refuse(NAVO_STORE_FAILED, place, "the document store refused the call");
        put_line(*header, at, value);
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_add_record(navo_writer *writer, int32_t document,
                                                             const char *block, int32_t *record,
                                                             navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_BODY);
        require(writer != nullptr && block != nullptr, place, "a null writer or block");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        const navo_form_def &form = writer->schema->forms[entry.form];
        const std::int32_t position = find_block(form, block);
        if (position < 0)
            refuse(NAVO_UNKNOWN_BLOCK, place, "the form has no block of that tag");
        const navo_block_def &def = form.blocks[position];
        set_name(place.block, def.tag);
        if (!def.repeating)
            refuse(NAVO_NOT_REPEATING, place, "the block is a single block: it has one record");
        std::int32_t added = -1;
        if (!dk_AddBlock(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, raw_tag(*writer->schema, def),
                         &added))
            refuse(NAVO_STORE_FAILED, place, "the document store refused the record (spool file or memory)");
        if (record != nullptr)
            *record = added;
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_set(navo_writer *writer, int32_t document, const char *block,
                                                      int32_t record, const char *field, const char *text,
                                                      navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_BODY);
        place.record = record;
        require(writer != nullptr && block != nullptr && field != nullptr && text != nullptr, place,
                "a null writer, block, field or text");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        const navo_form_def &form = writer->schema->forms[entry.form];
        const std::int32_t position = find_block(form, block);
        if (position < 0)
            refuse(NAVO_UNKNOWN_BLOCK, place, "the form has no block of that tag");
        const navo_block_def &def = form.blocks[position];
        set_name(place.block, def.tag);
        const std::int32_t index = find_field(def, field, writer->lastBlock == &def ? writer->lastField + 1 : -1);
        if (index < 0)
            refuse(NAVO_UNKNOWN_FIELD, place, "the block has no field of that name");
        set_name(place.field, def.fields[index].name);
        const char *rawForm = raw_form_of(*writer, entry);
        const char *rawTag = raw_tag(*writer->schema, def);
        const auto no_record = [&] { refuse(NAVO_BAD_INDEX, place, "the block has no record of that number"); };
        if (record < 0 || (!def.repeating && record != 0))
            no_record();
        const std::string value = prepare(*writer, text, def.fields[index].width, place);
        if ((writer->flags & NAVO_CHECK) != 0)
            check_value(*writer, form, def, index, value, place);
        // The store refuses a record beyond the block's count, with nothing changed; the count is
        // asked only then, to tell that from a refusal of the store itself.
        if (!dk_SetField(writer->ctx.get(), rawForm, entry.docIndex, rawTag, record,
                         raw_field(*writer->schema, def, index), value.c_str())) {
            std::int32_t records = 0;
            if (dk_GetBlockCount(writer->ctx.get(), rawForm, entry.docIndex, rawTag, &records) && record >= records)
                no_record();
            refuse(NAVO_STORE_FAILED, place, "the document store refused the value (spool file or memory)");
        }
        writer->lastBlock = &def;
        writer->lastField = index;
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_error_note(navo_writer *writer, int32_t document,
                                                             const char *const *texts, int32_t count,
                                                             navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_NOTES);
        require(writer != nullptr, place, "a null writer");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        dk_DocFooter *footer = nullptr;
        if (!dk_GetDocFooter(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, &footer))
            refuse(NAVO_STORE_FAILED, place, "the document store refused the call");
        set_name(place.block, "BLAD");
        place.record = footer->errorCount;
        const auto note = prepare_note<dk_ErrorNote>(*writer, texts, count, navo::interchange::error_note_lines, place);
        const std::int32_t before = footer->errorCount;
        if (!dk_AddDocError(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, &note)) {
            footer->errorCount = before;  // a failed add drops the count, never the notes
            refuse(NAVO_STORE_FAILED, place, "the note cannot be added (memory)");
        }
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_ocr_note(navo_writer *writer, int32_t document, int32_t kind,
                                                           const char *const *texts, int32_t count,
                                                           navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_NOTES);
        require(writer != nullptr, place, "a null writer");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        set_name(place.block, "OCR");
        require(ocr_kind_letters(kind)[0] != '\0', place, "an OCR note's kind is 0 to 3");
        dk_DocFooter *footer = nullptr;
        if (!dk_GetDocFooter(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, &footer))
            refuse(NAVO_STORE_FAILED, place, "the document store refused the call");
        place.record = footer->ocrCount;
        auto note = prepare_note<dk_OcrNote>(*writer, texts, count, navo::interchange::ocr_note_lines, place);
        note.kind = kind;
        const std::int32_t before = footer->ocrCount;
        if (!dk_AddDocOCR(writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex, &note)) {
            footer->ocrCount = before;  // a failed add drops the count, never the notes
            refuse(NAVO_STORE_FAILED, place, "the note cannot be added (memory)");
        }
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_save(navo_writer *writer, const char *path,
                                                       navo_refusal *why) noexcept
{
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(writer != nullptr && path != nullptr, place, "a null writer or path");
        require(!writer->begun, place, "a file is begun: finish it first");
        check_documents(*writer);
        navo::platform::ReplacementFile file;
        if (!file.open(path))
            refuse(NAVO_SAVE_FAILED, place, system_reason("the new file beside the path cannot be made"));
        dk_Context &ctx = *writer->ctx.get();
        bool written = navo::interchange::write_head(ctx, file.stream());
        for (const navo_writer::Entry &entry : writer->documents) {
            if (written && entry.present)
                written = navo::interchange::write_document(ctx, raw_form_of(*writer, entry), entry.docIndex,
                                                            file.stream());
        }
        written = written && navo::interchange::write_tail(ctx, file.stream());
        if (!written) {
            const std::string reason = system_reason("the file cannot be written whole");
            file.abandon();
            refuse(NAVO_SAVE_FAILED, place, reason);
        }
        if (!file.commit())
            refuse(NAVO_SAVE_FAILED, place, system_reason("the file cannot be put in place"));
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_begin(navo_writer *writer, const char *path,
                                                        navo_refusal *why) noexcept
{
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(writer != nullptr && path != nullptr, place, "a null writer or path");
        require(!writer->begun, place, "a file is begun: finish it first");
        if (!writer->streamed.open(path))
            refuse(NAVO_SAVE_FAILED, place, system_reason("the new file beside the path cannot be made"));
        if (!navo::interchange::write_head(*writer->ctx.get(), writer->streamed.stream())) {
            const std::string reason = system_reason("the file cannot be written");
            writer->streamed.abandon();
            refuse(NAVO_SAVE_FAILED, place, reason);
        }
        writer->begun = true;
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_write_document(navo_writer *writer, int32_t document,
                                                                 navo_refusal *why) noexcept
{
    return run(why, [&] {
        navo_place place = place_in(NAVO_AREA_NONE);
        require(writer != nullptr, place, "a null writer");
        require(writer->begun, place, "no file is begun");
        const navo_writer::Entry &entry = document_of(*writer, document, place);
        if ((writer->flags & NAVO_CHECK) != 0)
            check_document(*writer, document, entry);
        if (!navo::interchange::write_document(*writer->ctx.get(), raw_form_of(*writer, entry), entry.docIndex,
                                               writer->streamed.stream())) {
            // What reached the file of this document cannot be taken back: the file goes.
            const std::string reason = system_reason("the file cannot be written; it is given up");
            writer->streamed.abandon();
            writer->begun = false;
            refuse(NAVO_SAVE_FAILED, place, reason);
        }
        writer->documents[static_cast<std::size_t>(document) - 1].written = true;
        remove_document(*writer, document);
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_finish(navo_writer *writer, navo_refusal *why) noexcept
{
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(writer != nullptr, place, "a null writer");
        require(writer->begun, place, "no file is begun");
        writer->begun = false;
        if (!navo::interchange::write_tail(*writer->ctx.get(), writer->streamed.stream())) {
            const std::string reason = system_reason("the file cannot be written; it is given up");
            writer->streamed.abandon();
            refuse(NAVO_SAVE_FAILED, place, reason);
        }
        if (!writer->streamed.commit())
            refuse(NAVO_SAVE_FAILED, place, system_reason("the file cannot be put in place"));
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_open(const char *path, navo_output **out,
                                                       navo_refusal *why) noexcept
{
    if (out != nullptr)
        *out = nullptr;
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(path != nullptr && out != nullptr, place, "a null path or output");
        auto output = std::make_unique<navo_output>();
        if (!output->file.open(path))
            refuse(NAVO_SAVE_FAILED, place, system_reason("the new file beside the path cannot be made"));
        *out = output.release();
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_write(navo_output *output, const char *bytes, size_t size,
                                                        navo_refusal *why) noexcept
{
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(output != nullptr && (bytes != nullptr || size == 0), place, "a null output or bytes");
        require(output->file.stream() != nullptr, place, "the output is committed or given up");
        if (size > 0 && std::fwrite(bytes, 1, size, output->file.stream()) != size)
            refuse(NAVO_SAVE_FAILED, place, system_reason("the output cannot be written"));
    });
}

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_commit(navo_output *output, navo_refusal *why) noexcept
{
    return run(why, [&] {
        const navo_place place = place_in(NAVO_AREA_NONE);
        require(output != nullptr, place, "a null output");
        require(output->file.stream() != nullptr, place, "the output is committed or given up");
        if (!output->file.commit())
            refuse(NAVO_SAVE_FAILED, place, system_reason("the output cannot be put in place"));
    });
}

NAVO_FRONT_API void NAVO_FRONT_CALL navo_output_free(navo_output *output) noexcept
{
    delete output;
}

}  // extern "C"
