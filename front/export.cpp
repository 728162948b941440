// front/export.cpp - the export formats, written as the documents arrive: JSON Lines, JSON, CSV.
#include "front/export.hpp"

#include <array>
#include <charconv>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "front/places.hpp"
#include "front/reader.hpp"
#include "front/schema.hpp"
#include "front/text_out.hpp"
#include "front/views.hpp"

namespace navo::front {
namespace {

using navo::interchange::Line;

// Output is handed on in pieces of about this size.
constexpr std::size_t output_piece = std::size_t{1} << 16;

// Bytes a JSON string cannot carry as they are.
constexpr std::array<bool, 128> json_escaped = [] {
    std::array<bool, 128> table{};
    for (std::size_t c = 0; c < 0x20; c++)
        table[c] = true;
    table['"'] = table['\\'] = table[0x7F] = true;
    return table;
}();

void append_escape(std::string &out, unsigned char c)
{
    switch (c) {
    case '"': out += "\\\""; break;
    case '\\': out += "\\\\"; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default: {
        constexpr std::string_view hex = "0123456789abcdef";
        const char escape[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        out.append(escape, sizeof escape);
    }
    }
}

// A JSON string of UTF-8 text: runs that need no escape go in one append.
void append_json_string(std::string &out, std::string_view utf8)
{
    out += '"';
    std::size_t start = 0;
    for (std::size_t i = 0; i < utf8.size(); i++) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x80 || !json_escaped[c])
            continue;
        out.append(utf8.data() + start, i - start);
        start = i + 1;
        append_escape(out, c);
    }
    out.append(utf8.data() + start, utf8.size() - start);
    out += '"';
}

// A JSON string of a value of the file, converted from its code page on the way: ASCII runs that
// need no escape go in whole.
void append_json_value(std::string &out, std::string_view raw, Encoding encoding)
{
    out += '"';
    std::size_t start = 0;
    for (std::size_t i = 0; i < raw.size(); i++) {
        const auto c = static_cast<unsigned char>(raw[i]);
        if (c < 0x80 && !json_escaped[c])
            continue;
        out.append(raw.data() + start, i - start);
        start = i + 1;
        if (c >= 0x80)
            append_code_point(out, code_point(encoding, c));
        else
            append_escape(out, c);
    }
    out.append(raw.data() + start, raw.size() - start);
    out += '"';
}

// A CSV cell of UTF-8 text: quoted, with its quotes doubled, when it holds a comma, a quote or a
// line end.
void append_csv(std::string &out, std::string_view utf8)
{
    if (utf8.find_first_of(",\"\r\n") == std::string_view::npos) {
        out.append(utf8);
        return;
    }
    out += '"';
    for (const char c : utf8) {
        if (c == '"')
            out += '"';
        out += c;
    }
    out += '"';
}

void append_number(std::string &out, std::int64_t value)
{
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, static_cast<std::size_t>(end - digits));
}

// The texts of one envelope record by its lines.
template <class Record>
void lines_of(const Record &record, std::span<const Line> lines, std::vector<std::string_view> &out)
{
    out.clear();
    for (const Line &line : lines)
        out.push_back(line_of(record, line));
}

class Exporter final : public LoadListener {
public:
    Exporter(std::int32_t format, bool keepPadding, navo_write_fn write, void *writeUser, LoadListener &host)
        : format_(format), keepPadding_(keepPadding), write_(write), writeUser_(writeUser), host_(host)
    {
        out_.reserve(output_piece + output_piece / 4);
    }

    std::int32_t file(const navo_file &file) override;
    std::int32_t document(const navo_document &doc) override;
    std::int32_t end(const navo_file &file) override;
    std::int32_t fault(const navo_fault &fault) override { return host_.fault(fault); }
    std::int32_t finding(const navo_finding &finding) override { return host_.finding(finding); }
    std::int32_t found(const navo_place &place) override { return host_.found(place); }
    std::int32_t progress(std::int32_t line, std::int32_t lines) override { return host_.progress(line, lines); }
    [[nodiscard]] bool follows_progress() const override { return host_.follows_progress(); }

    // Hands on what is left; the first failure of the conversion's own, or NAVO_OK.
    std::int32_t finish();

private:
    bool json() const noexcept { return format_ == NAVO_JSONL || format_ == NAVO_JSON; }
    bool array() const noexcept { return format_ == NAVO_JSON; }

    // Hands `bytes` to the host; false (and the failure kept) when it refuses.
    bool hand_on(const char *table, std::string &bytes);
    std::int32_t flush_if_full()
    {
        return out_.size() >= output_piece && !hand_on(nullptr, out_) ? failure_ : NAVO_OK;
    }
    std::int32_t fail(std::int32_t code) noexcept
    {
        if (failure_ == NAVO_OK)
            failure_ = code;
        return code;
    }

    // A value as the export gives it: trailing blanks trimmed unless kept, as UTF-8.
    void json_value(std::string &out, std::string_view raw) const
    {
        append_json_value(out, keepPadding_ ? raw : trim_right(raw), encoding_);
    }
    void csv_value(std::string &out, std::string_view raw)
    {
        utf8_.clear();
        append_utf8(utf8_, keepPadding_ ? raw : trim_right(raw), encoding_);
        append_csv(out, utf8_);
    }
    void json_list(std::string &out, const std::vector<std::string_view> &texts) const
    {
        out += '[';
        for (std::size_t i = 0; i < texts.size(); i++) {
            if (i > 0)
                out += ',';
            json_value(out, texts[i]);
        }
        out += ']';
    }
    void json_error_notes(std::string &out, const dk_ErrorNote *notes, std::int32_t count);
    void json_emit_start()
    {
        if (array() && !firstObject_)
            out_ += ",\n";
        firstObject_ = false;
    }
    void csv_row(std::int32_t number, std::string_view form, std::string_view block, std::int64_t record,
                 std::string_view field, std::string_view raw, bool convert = true);
    void csv_error_rows(std::int32_t number, std::string_view form, const dk_ErrorNote *notes, std::int32_t count);

    // The keys of a block's fields, quoted once for all its records.
    const std::vector<std::string> &keys_of(const navo_schema &schema, const navo_block_def &block);

    std::int32_t json_document(const navo_document &doc);
    std::int32_t csv_document(const navo_document &doc);
    std::int32_t csv_blocks_document(const navo_document &doc);

    std::int32_t format_;
    bool keepPadding_;
    navo_write_fn write_;
    void *writeUser_;
    LoadListener &host_;
    Encoding encoding_ = Encoding::iso8859_2;
    std::int32_t failure_ = NAVO_OK;
    bool firstObject_ = true;
    std::string out_;
    std::string buffer_;  // a field's bytes as the store gives them
    std::string_view raw_;
    std::string utf8_;
    std::string row_;
    std::vector<std::string_view> texts_;
    std::vector<std::vector<std::string>> keys_;  // by block record of the schema
    std::map<std::string, std::string> tables_;   // CSV per block: name -> bytes not yet handed on
    std::string *headers_ = nullptr;
};

bool Exporter::hand_on(const char *table, std::string &bytes)
{
    if (bytes.empty())
        return true;
    const std::int32_t refused = write_(writeUser_, table, bytes.data(), bytes.size());
    bytes.clear();
    if (refused != 0) {
        fail(NAVO_SAVE_FAILED);
        return false;
    }
    return true;
}

const std::vector<std::string> &Exporter::keys_of(const navo_schema &schema, const navo_block_def &block)
{
    const SchemaData &data = data_of(schema);
    if (keys_.size() != data.block_defs.size())
        keys_.assign(data.block_defs.size(), {});
    std::vector<std::string> &keys = keys_[static_cast<std::size_t>(&block - data.block_defs.data())];
    if (keys.empty() && block.field_count > 0) {
        for (std::int32_t f = 0; f < block.field_count; f++) {
            std::string key;
            append_json_string(key, block.fields[f].name);
            key += ':';
            keys.push_back(std::move(key));
        }
    }
    return keys;
}

void Exporter::json_error_notes(std::string &out, const dk_ErrorNote *notes, std::int32_t count)
{
    out += '[';
    for (std::int32_t i = 0; i < count; i++) {
        if (i > 0)
            out += ',';
        lines_of(notes[i], navo::interchange::error_note_lines, texts_);
        json_list(out, texts_);
    }
    out += ']';
}

void Exporter::csv_row(std::int32_t number, std::string_view form, std::string_view block, std::int64_t record,
                       std::string_view field, std::string_view raw, bool convert)
{
    append_number(out_, number);
    (out_ += ',').append(form) += ',';
    out_.append(block) += ',';
    append_number(out_, record);
    (out_ += ',').append(field) += ',';
    if (convert)
        csv_value(out_, raw);
    else
        append_csv(out_, raw);
    out_ += "\r\n";
}

void Exporter::csv_error_rows(std::int32_t number, std::string_view form, const dk_ErrorNote *notes, std::int32_t count)
{
    for (std::int32_t n = 0; n < count; n++) {
        lines_of(notes[n], navo::interchange::error_note_lines, texts_);
        for (std::size_t i = 0; i < texts_.size(); i++)
            csv_row(number, form, "@error", n, "text" + std::to_string(i + 1), texts_[i]);
    }
}

std::int32_t Exporter::file(const navo_file &file)
{
    encoding_ = file.encoding;
    const dk_Context &ctx = *file.ctx;
    lines_of(ctx.header, navo::interchange::file_header_lines, texts_);
    if (json()) {
        if (array())
            out_ += "[\n";
        json_emit_start();
        out_ += R"({"type":"file","version":)";
        append_json_string(out_, file.version);
        out_ += R"(,"header":)";
        json_list(out_, texts_);
        out_ += '}';
        if (!array())
            out_ += '\n';
    } else if (format_ == NAVO_CSV) {
        out_ += "document,form,block,record,field,value\r\n";
        csv_row(0, "", "@file", 0, "version", file.version, false);
        for (std::size_t i = 0; i < texts_.size(); i++)
            csv_row(0, "", "@header", 0, "line" + std::to_string(i + 1), texts_[i]);
    } else {
        std::string header = "document,form";
        for (std::size_t i = 1; i <= navo::interchange::doc_header_lines.size(); i++)
            header += ",line" + std::to_string(i);
        headers_ = &tables_.emplace("headers", std::move(header) + "\r\n").first->second;
    }
    return flush_if_full();
}

std::int32_t Exporter::json_document(const navo_document &doc)
{
    std::string &s = out_;
    const navo_schema &schema = *doc.file->schema;
    if (array())
        s += ",\n";
    s += R"({"type":"document","number":)";
    append_number(s, doc.number);
    s += R"(,"form":)";
    append_json_string(s, doc.form->name);
    s += R"(,"header":)";
    if (const dk_DocHeader *header = header_of(doc))
        lines_of(*header, navo::interchange::doc_header_lines, texts_);
    else
        texts_.assign(navo::interchange::doc_header_lines.size(), {});
    json_list(s, texts_);
    s += R"(,"blocks":{)";
    for (std::int32_t b = 0; b < doc.form->block_count; b++) {
        const navo_block_def &block = doc.form->blocks[b];
        if (b > 0)
            s += ',';
        append_json_string(s, block.tag);
        s += ":[";
        const std::vector<std::string> &keys = keys_of(schema, block);
        FieldReader reader(doc, block, buffer_);
        std::int32_t count = record_count(doc, b);
        if (count < 0)
            count = 1;
        for (std::int32_t r = 0; r < count; r++) {
            s += r > 0 ? ",{" : "{";
            for (std::int32_t f = 0; f < block.field_count; f++) {
                if (f > 0)
                    s += ',';
                s += keys[static_cast<std::size_t>(f)];
                if (!reader.read(r, f, raw_))
                    return fail(NAVO_STORE_FAILED);
                json_value(s, raw_);
            }
            s += '}';
            if (const std::int32_t code = flush_if_full(); code != NAVO_OK)
                return code;
        }
        s += ']';
    }
    s += '}';
    if (const dk_DocFooter *footer = footer_of(doc)) {
        if (footer->ocrCount > 0) {
            s += R"(,"ocr":[)";
            for (std::int32_t i = 0; i < footer->ocrCount; i++) {
                s += i > 0 ? R"(,{"kind":)" : R"({"kind":)";
                append_number(s, footer->ocrNotes[i].kind);
                s += R"(,"texts":)";
                lines_of(footer->ocrNotes[i], navo::interchange::ocr_note_lines, texts_);
                json_list(s, texts_);
                s += '}';
            }
            s += ']';
        }
        if (footer->errorCount > 0) {
            s += R"(,"errors":)";
            json_error_notes(s, footer->errorNotes, footer->errorCount);
        }
    }
    s += '}';
    if (!array())
        s += '\n';
    return flush_if_full();
}

std::int32_t Exporter::csv_document(const navo_document &doc)
{
    const std::string_view form = doc.form->name;
    if (const dk_DocHeader *header = header_of(doc))
        lines_of(*header, navo::interchange::doc_header_lines, texts_);
    else
        texts_.assign(navo::interchange::doc_header_lines.size(), {});
    for (std::size_t i = 0; i < texts_.size(); i++)
        csv_row(doc.number, form, "@header", 0, "line" + std::to_string(i + 1), texts_[i]);
    for (std::int32_t b = 0; b < doc.form->block_count; b++) {
        const navo_block_def &block = doc.form->blocks[b];
        FieldReader reader(doc, block, buffer_);
        std::int32_t count = record_count(doc, b);
        if (count < 0)
            count = 1;
        for (std::int32_t r = 0; r < count; r++) {
            for (std::int32_t f = 0; f < block.field_count; f++) {
                if (!reader.read(r, f, raw_))
                    return fail(NAVO_STORE_FAILED);
                csv_row(doc.number, form, block.tag, r, block.fields[f].name, raw_);
            }
            if (const std::int32_t code = flush_if_full(); code != NAVO_OK)
                return code;
        }
    }
    if (const dk_DocFooter *footer = footer_of(doc)) {
        for (std::int32_t n = 0; n < footer->ocrCount; n++) {
            csv_row(doc.number, form, "@ocr", n, "kind", std::to_string(footer->ocrNotes[n].kind), false);
            lines_of(footer->ocrNotes[n], navo::interchange::ocr_note_lines, texts_);
            for (std::size_t i = 0; i < texts_.size(); i++)
                csv_row(doc.number, form, "@ocr", n, "text" + std::to_string(i + 1), texts_[i]);
        }
        csv_error_rows(doc.number, form, footer->errorNotes, footer->errorCount);
    }
    return flush_if_full();
}

std::int32_t Exporter::csv_blocks_document(const navo_document &doc)
{
    const std::string form = doc.form->name;
    std::string &headers = *headers_;
    append_number(headers, doc.number);
    (headers += ',').append(form);
    if (const dk_DocHeader *header = header_of(doc))
        lines_of(*header, navo::interchange::doc_header_lines, texts_);
    else
        texts_.assign(navo::interchange::doc_header_lines.size(), {});
    for (const std::string_view line : texts_) {
        headers += ',';
        csv_value(headers, line);
    }
    headers += "\r\n";
    if (headers.size() >= output_piece && !hand_on("headers", headers))
        return failure_;
    for (std::int32_t b = 0; b < doc.form->block_count; b++) {
        const navo_block_def &block = doc.form->blocks[b];
        const std::string name = form + "." + block.tag;
        auto found = tables_.find(name);
        if (found == tables_.end()) {
            std::string header = "document,record";
            for (std::int32_t f = 0; f < block.field_count; f++) {
                header += ',';
                append_csv(header, block.fields[f].name);
            }
            found = tables_.emplace(name, std::move(header) + "\r\n").first;
        }
        std::string &out = found->second;
        FieldReader reader(doc, block, buffer_);
        std::int32_t count = record_count(doc, b);
        if (count < 0)
            count = 1;
        for (std::int32_t r = 0; r < count; r++) {
            append_number(out, doc.number);
            out += ',';
            append_number(out, r);
            for (std::int32_t f = 0; f < block.field_count; f++) {
                if (!reader.read(r, f, raw_))
                    return fail(NAVO_STORE_FAILED);
                out += ',';
                csv_value(out, raw_);
            }
            out += "\r\n";
            if (out.size() >= output_piece && !hand_on(name.c_str(), out))
                return failure_;
        }
    }
    return NAVO_OK;
}

std::int32_t Exporter::document(const navo_document &doc)
{
    switch (format_) {
    case NAVO_JSONL:
    case NAVO_JSON:
        return json_document(doc);
    case NAVO_CSV:
        return csv_document(doc);
    default:
        return csv_blocks_document(doc);
    }
}

std::int32_t Exporter::end(const navo_file &file)
{
    const dk_FileFooter &footer = file.ctx->footer;
    if (json()) {
        json_emit_start();
        out_ += R"({"type":"footer")";
        if (footer.noteCount > 0) {
            out_ += R"(,"errors":)";
            json_error_notes(out_, footer.notes, footer.noteCount);
        }
        out_ += '}';
        out_ += array() ? "\n]\n" : "\n";
    } else if (format_ == NAVO_CSV) {
        csv_error_rows(0, "", footer.notes, footer.noteCount);
    }
    return flush_if_full();
}

std::int32_t Exporter::finish()
{
    if (failure_ != NAVO_OK)
        return failure_;
    if (!hand_on(nullptr, out_))
        return failure_;
    for (auto &[name, bytes] : tables_) {
        if (!hand_on(name.c_str(), bytes))
            return failure_;
    }
    return NAVO_OK;
}

}  // namespace

std::int32_t convert(const char *path, const navo_load_options *options, std::int32_t format, std::int32_t flags,
                     navo_write_fn write, void *writeUser, const navo_load_callbacks *callbacks,
                     navo_load_result &result) noexcept
{
    if (format < NAVO_JSONL || format > NAVO_CSV_BLOCKS || (flags & ~NAVO_KEEP_PADDING) != 0 || write == nullptr) {
        result = navo_load_result{};
        result.fault.place = empty_place();
        result.code = NAVO_INVALID_ARGUMENT;
        return NAVO_INVALID_ARGUMENT;
    }
    try {
        HostCallbacks host(callbacks);
        Exporter exporter(format, (flags & NAVO_KEEP_PADDING) != 0, write, writeUser, host);
        const std::int32_t code = run_load(path, options, exporter, result);
        const std::int32_t failure = exporter.finish();
        if (failure != NAVO_OK) {
            result.outcome = NAVO_FAILED;
            result.code = failure;
            return failure;
        }
        return code;
    } catch (...) {
        result.outcome = NAVO_FAILED;
        result.code = NAVO_OUT_OF_MEMORY;
        return NAVO_OUT_OF_MEMORY;
    }
}

}  // namespace navo::front

extern "C" {

NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_convert(const char *path, const navo_load_options *options,
                                                   int32_t format, int32_t flags, navo_write_fn write,
                                                   void *write_user, const navo_load_callbacks *callbacks,
                                                   navo_load_result *result) noexcept
{
    navo_load_result local;
    return navo::front::convert(path, options, format, flags, write, write_user, callbacks,
                                result != nullptr ? *result : local);
}

}  // extern "C"
