// web/bridge.cpp - the page's calls into libnavofront: each runs calls of navo_front.h and hands
// their outcome to the page's worker as one JSON text. Every rule of the format, every name and
// every message comes from the core; this file only shapes its answers for the script.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "navo_front.h"

extern "C" {
// What the page's worker calls (web/worker.js), each answer a JSON text good until the next call.
const char *web_summary(const char *path, int32_t encoding, int32_t checks);
const char *web_find(const char *path, int32_t encoding, const char *value);
const char *web_document(const char *path, int32_t encoding, int32_t number, int32_t count);
const char *web_records(int32_t block, int32_t first, int32_t count);
const char *web_convert(const char *path, int32_t encoding, int32_t format);
void web_close();
void web_warm_up(const char *path, int32_t records, int32_t loads);

// Given by web/bridge-library.js: a load's progress and a conversion's output, to the worker.
void web_progress(int32_t line, int32_t lines);
int32_t web_output(const char *bytes, size_t size);
}

namespace {

// The most faults, findings and places of a found value one answer lists; their counts are whole.
constexpr std::size_t most_listed = 10000;

// A JSON text written front to back; commas go in by themselves.
class Json {
public:
    Json &open(char bracket)
    {
        separate();
        text_ += bracket;
        first_ = true;
        return *this;
    }
    Json &close(char bracket)
    {
        text_ += bracket;
        first_ = false;
        return *this;
    }
    Json &key(std::string_view name)
    {
        separate();
        quote(name);
        text_ += ':';
        first_ = true;
        return *this;
    }
    Json &string(std::string_view utf8)
    {
        separate();
        quote(utf8);
        return *this;
    }
    Json &number(int64_t value)
    {
        separate();
        text_ += std::to_string(value);
        return *this;
    }
    Json &boolean(bool value)
    {
        separate();
        text_ += value ? "true" : "false";
        return *this;
    }
    // A JSON text made by another writer, as one value.
    Json &raw(std::string_view json)
    {
        separate();
        text_ += json;
        return *this;
    }
    Json &field(std::string_view name, int64_t value) { return key(name).number(value); }
    Json &field(std::string_view name, std::string_view value) { return key(name).string(value); }
    // A C string of the core, or "" for none.
    Json &field(std::string_view name, const char *value) { return key(name).string(value != nullptr ? value : ""); }
    // Texts each ended by a NUL, as the core writes several into one buffer, as an array.
    Json &texts(std::string_view packed)
    {
        open('[');
        std::size_t start = 0;
        for (std::size_t i = 0; i < packed.size(); i++) {
            if (packed[i] == '\0') {
                string(packed.substr(start, i - start));
                start = i + 1;
            }
        }
        return close(']');
    }

    const char *finish()
    {
        return text_.c_str();
    }
    void clear()
    {
        text_.clear();
        first_ = true;
    }

private:
    void separate()
    {
        if (!first_)
            text_ += ',';
        first_ = false;
    }
    void quote(std::string_view utf8)
    {
        text_ += '"';
        for (const char c : utf8) {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '"' || c == '\\') {
                text_ += '\\';
                text_ += c;
            } else if (byte < 0x20) {
                constexpr std::string_view hex = "0123456789abcdef";
                text_ += "\\u00";
                text_ += hex[byte >> 4];
                text_ += hex[byte & 0xF];
            } else {
                text_ += c;
            }
        }
        text_ += '"';
    }

    std::string text_;
    bool first_ = true;
};

// The answer of the last call; good until the next one.
Json answer;
// The document the page has open, for its further pages of records.
navo_document *kept = nullptr;
// A buffer the core writes texts into, grown to what a call asks for.
std::vector<char> buffer(4096);

// The texts a call of the core writes (several, each ended by a NUL): asked again with a buffer
// large enough when the first one was too small. Empty on a failure.
template <class Call>
std::string_view fetch(Call &&call)
{
    int64_t length = call(buffer.data(), buffer.size());
    if (length >= static_cast<int64_t>(buffer.size())) {
        buffer.resize(static_cast<std::size_t>(length) + 1);
        length = call(buffer.data(), buffer.size());
    }
    if (length < 0 || length >= static_cast<int64_t>(buffer.size()))
        return {};
    // The last text's NUL belongs to it too.
    return {buffer.data(), static_cast<std::size_t>(length) + 1};
}

std::string_view name_of(const char *text, std::size_t capacity)
{
    std::size_t length = 0;
    while (length < capacity && text[length] != '\0')
        length++;
    return {text, length};
}

void place_fields(Json &json, const navo_place &place)
{
    json.field("area", place.area)
        .field("areaName", navo_area_name(place.area))
        .field("document", place.document)
        .field("record", place.record)
        .field("expected", place.expected)
        .field("found", place.found)
        .field("fieldExpected", place.field_expected)
        .field("fieldFound", place.field_found)
        .field("line", place.line)
        .field("form", name_of(place.form, sizeof place.form))
        .field("block", name_of(place.block, sizeof place.block))
        .field("field", name_of(place.field, sizeof place.field));
    char words[512];
    const int64_t length = navo_place_describe(&place, words, sizeof words);
    json.field("describe", length >= 0 ? std::string_view(words) : std::string_view());
}

void messages(Json &json, int32_t code)
{
    json.field("code", code).field("pl", navo_message(code, NAVO_POLISH)).field("en", navo_message(code, NAVO_ENGLISH));
}

void result_fields(Json &json, const navo_load_result &result)
{
    json.field("outcome", result.outcome)
        .field("line", result.line)
        .field("lines", result.lines)
        .field("documents", result.documents)
        .field("faults", result.faults)
        .field("findings", result.findings);
    json.key("message").open('{');
    messages(json, result.code);
    json.close('}');
}

navo_load_options options_of(int32_t encoding)
{
    navo_load_options options{};
    options.encoding = encoding;
    // Every section is read: the page shows each faulty one and every document around it.
    options.keep_going = 1;
    return options;
}

int32_t NAVO_FRONT_CALL on_progress(void *, int32_t line, int32_t lines)
{
    web_progress(line, lines);
    return 0;
}

// What a summary's load collects besides its result, in file order.
struct Summary {
    std::string version;
    std::string header;  // the file header's lines, each ended by a NUL
    std::string notes;   // the file's error notes: each note's 4 texts, each ended by a NUL
    int32_t noteCount = 0;
    std::vector<int32_t> numbers;
    std::vector<std::string> forms;
    Json faults;
    std::size_t faultsListed = 0;
    Json findings;
    std::size_t findingsListed = 0;
};

int32_t NAVO_FRONT_CALL on_file(void *user, const navo_file *file)
{
    auto &summary = *static_cast<Summary *>(user);
    summary.version = navo_file_version(file);
    summary.header = fetch([&](char *out, std::size_t size) { return navo_file_header(file, 0, out, size); });
    return 0;
}

int32_t NAVO_FRONT_CALL on_document(void *user, const navo_document *doc)
{
    auto &summary = *static_cast<Summary *>(user);
    summary.numbers.push_back(navo_document_number(doc));
    summary.forms.emplace_back(navo_document_form(doc)->name);
    return 0;
}

int32_t NAVO_FRONT_CALL on_fault(void *user, const navo_fault *fault)
{
    auto &summary = *static_cast<Summary *>(user);
    if (summary.faultsListed++ >= most_listed)
        return 0;
    Json &json = summary.faults;
    json.open('{');
    messages(json, fault->code);
    json.key("cause").open('{');
    messages(json, fault->cause);
    json.close('}');
    place_fields(json, fault->place);
    json.field("detail", name_of(fault->detail, sizeof fault->detail));
    json.close('}');
    return 0;
}

int32_t NAVO_FRONT_CALL on_finding(void *user, const navo_finding *finding)
{
    auto &summary = *static_cast<Summary *>(user);
    if (summary.findingsListed++ >= most_listed)
        return 0;
    Json &json = summary.findings;
    json.open('{').field("kind", finding->kind);
    place_fields(json, finding->place);
    json.field("type", name_of(finding->type, sizeof finding->type))
        .field("rule", name_of(finding->rule, sizeof finding->rule))
        .field("problem", name_of(finding->problem, sizeof finding->problem))
        .field("value", name_of(finding->value, sizeof finding->value));
    json.close('}');
    return 0;
}

int32_t NAVO_FRONT_CALL on_end(void *user, const navo_file *file)
{
    auto &summary = *static_cast<Summary *>(user);
    summary.noteCount = navo_file_notes(file);
    for (int32_t note = 0; note < summary.noteCount; note++)
        summary.notes += fetch([&](char *out, std::size_t size) { return navo_file_note(file, note, 0, out, size); });
    return 0;
}

void close_kept()
{
    navo_document_close(kept);
    kept = nullptr;
}

// Records [first, first + count) of block `block` of a document, each as an array of its values.
void rows(Json &json, const navo_document *doc, int32_t block, int32_t first, int32_t count)
{
    json.open('[');
    const int32_t records = navo_document_records(doc, block);
    for (int32_t record = first; record < records && record < first + count; record++) {
        json.texts(fetch([&](char *out, std::size_t size) {
            return navo_document_record(doc, block, record, 0, out, size);
        }));
    }
    json.close(']');
}

}  // namespace

extern "C" {

// Reads the file whole: its version, header and notes, each document's number and form, its
// faults and (with `checks`) the findings of the content checks, each listed up to most_listed
// and counted whole.
const char *web_summary(const char *path, int32_t encoding, int32_t checks)
{
    Summary summary;
    summary.faults.open('[');
    summary.findings.open('[');
    navo_load_options options = options_of(encoding);
    options.checks = checks;
    navo_load_callbacks callbacks{};
    callbacks.user = &summary;
    callbacks.file = on_file;
    callbacks.document = on_document;
    callbacks.fault = on_fault;
    callbacks.finding = on_finding;
    callbacks.end = on_end;
    callbacks.progress = on_progress;
    navo_load_result result{};
    navo_load(path, &options, &callbacks, &result);

    Json &json = answer;
    json.clear();
    json.open('{');
    result_fields(json, result);
    json.field("version", summary.version);
    json.key("header").texts(summary.header);
    json.key("notes").texts(summary.notes);
    json.key("numbers").open('[');
    for (const int32_t number : summary.numbers)
        json.number(number);
    json.close(']');
    json.key("forms").open('[');
    for (const std::string &form : summary.forms)
        json.string(form);
    json.close(']');
    json.key("faultList").raw(summary.faults.close(']').finish());
    json.key("findingList").raw(summary.findings.close(']').finish());
    json.close('}');
    return json.finish();
}

// Looks for `value` in every field: each place that holds it.
const char *web_find(const char *path, int32_t encoding, const char *value)
{
    struct Found {
        Json places;
        std::size_t listed = 0;
    } found;
    found.places.open('[');
    navo_load_options options = options_of(encoding);
    options.find = value;
    navo_load_callbacks callbacks{};
    callbacks.user = &found;
    callbacks.found = [](void *user, const navo_place *place) -> int32_t {
        auto &f = *static_cast<Found *>(user);
        if (f.listed++ < most_listed) {
            f.places.open('{');
            place_fields(f.places, *place);
            f.places.close('}');
        }
        return 0;
    };
    callbacks.progress = on_progress;
    navo_load_result result{};
    navo_load(path, &options, &callbacks, &result);

    Json &json = answer;
    json.clear();
    json.open('{');
    result_fields(json, result);
    json.field("total", static_cast<int64_t>(found.listed));
    json.key("found").raw(found.places.close(']').finish());
    json.close('}');
    return json.finish();
}

// Opens document `number` (from 1) and keeps it: its header, its blocks with their fields and
// the first `count` records of each, its notes.
const char *web_document(const char *path, int32_t encoding, int32_t number, int32_t count)
{
    close_kept();
    const navo_load_options options = options_of(encoding);
    navo_load_callbacks callbacks{};
    callbacks.progress = on_progress;
    navo_load_result result{};
    const int32_t code = navo_document_open(path, &options, number, &callbacks, &kept, &result);

    Json &json = answer;
    json.clear();
    json.open('{');
    json.key("message").open('{');
    messages(json, code);
    json.close('}');
    if (kept != nullptr) {
        const navo_form_def *form = navo_document_form(kept);
        json.field("number", navo_document_number(kept)).field("form", form->name);
        json.key("header").texts(fetch([&](char *out, std::size_t size) {
            return navo_document_header(kept, 0, out, size);
        }));
        json.key("blocks").open('[');
        for (int32_t b = 0; b < form->block_count; b++) {
            const navo_block_def &block = form->blocks[b];
            json.open('{')
                .field("tag", block.tag)
                .field("name", block.name)
                .key("repeating")
                .boolean(block.repeating != 0)
                .field("records", navo_document_records(kept, b));
            json.key("fields").open('[');
            for (int32_t f = 0; f < block.field_count; f++) {
                const navo_field_def &def = block.fields[f];
                json.open('{').field("name", def.name).field("type", def.type).field("width", def.width).close('}');
            }
            json.close(']');
            json.key("rows");
            rows(json, kept, b, 0, count);
            json.close('}');
        }
        json.close(']');
        const struct {
            const char *name;
            int32_t element;
        } kinds[] = {{"errors", NAVO_ERROR_NOTE}, {"ocr", NAVO_OCR_NOTE}};
        for (const auto &kind : kinds) {
            json.key(kind.name).open('[');
            const int32_t notes = navo_document_notes(kept, kind.element);
            for (int32_t note = 0; note < notes; note++) {
                int32_t letters = 0;
                const std::string_view texts = fetch([&](char *out, std::size_t size) {
                    return navo_document_note(kept, kind.element, note, 0, out, size, &letters);
                });
                json.open('{');
                if (kind.element == NAVO_OCR_NOTE)
                    json.field("kind", navo_ocr_kind_letters(letters));
                json.key("texts").texts(texts).close('}');
            }
            json.close(']');
        }
    }
    json.close('}');
    return json.finish();
}

// Records [first, first + count) of block `block` of the open document.
const char *web_records(int32_t block, int32_t first, int32_t count)
{
    Json &json = answer;
    json.clear();
    json.open('{');
    if (kept != nullptr) {
        json.field("block", block).field("first", first).key("rows");
        rows(json, kept, block, first, count);
    }
    json.close('}');
    return json.finish();
}

// Converts the file to `format` (navo_format), its bytes handed to the worker piece by piece.
const char *web_convert(const char *path, int32_t encoding, int32_t format)
{
    navo_load_options options{};
    options.encoding = encoding;
    navo_load_callbacks callbacks{};
    callbacks.progress = on_progress;
    navo_load_result result{};
    const navo_write_fn write = [](void *, const char *, const char *bytes, size_t size) -> int32_t {
        return web_output(bytes, size);
    };
    navo_convert(path, &options, format, 0, write, nullptr, &callbacks, &result);
    Json &json = answer;
    json.clear();
    json.open('{');
    result_fields(json, result);
    json.close('}');
    return json.finish();
}

// Lets the open document go, with its spool files.
void web_close()
{
    close_kept();
}

// Reads a file of `records` records (one document of the 1.3 form whose repeating block has the
// longest records, written by the core's writer) `loads` times, so that the browser compiles the
// reading code at its best before the user's file comes: a browser first runs a module's
// functions from quickly made code and optimises each once it has run for a while.
void web_warm_up(const char *path, int32_t records, int32_t loads)
{
    const navo_schema *schema = navo_schema_of("1.3");
    if (schema == nullptr)
        return;
    const navo_form_def *form = nullptr;
    const navo_block_def *block = nullptr;
    for (int32_t f = 0; f < schema->form_count; f++) {
        for (int32_t b = 0; b < schema->forms[f].block_count; b++) {
            const navo_block_def &candidate = schema->forms[f].blocks[b];
            if (candidate.repeating != 0 && (block == nullptr || candidate.record_length > block->record_length)) {
                form = &schema->forms[f];
                block = &candidate;
            }
        }
    }
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    int32_t document = 0;
    bool written = writer != nullptr && block != nullptr &&
                   navo_writer_add_document(writer, form->name, &document, nullptr) == NAVO_OK;
    for (int32_t r = 1; written && r < records; r++) {
        int32_t record = 0;
        written = navo_writer_add_record(writer, document, block->tag, &record, nullptr) == NAVO_OK;
    }
    written = written && navo_writer_save(writer, path, nullptr) == NAVO_OK;
    navo_writer_free(writer);
    for (int32_t load = 0; written && load < loads; load++) {
        navo_load_options options{};
        options.checks = 1;
        navo_load(path, &options, nullptr, nullptr);
    }
}

}  // extern "C"
