// build.cpp - `navo build`: JSON Lines, JSON or the long CSV table back into a NAVO file, one
// document at a time, with every field set by name through the library.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <istream>
#include <streambuf>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.hpp"
#include "common.hpp"

namespace navo_cli {

Encoding parseEncoding(const std::string &name);

namespace {

// A read buffer over a FILE that knows the line of its read position and how much it has read.
class LineBuffer : public std::streambuf {
public:
    explicit LineBuffer(std::FILE *file) : file_(file), buffer_(1 << 16) { setg(buffer_.data(), buffer_.data(), buffer_.data()); }
    int line() const
    {
        return linesBefore_ + static_cast<int>(std::count(eback(), gptr(), '\n')) + 1;
    }
    std::atomic<int64_t> consumed{0};

protected:
    int_type underflow() override
    {
        linesBefore_ += static_cast<int>(std::count(eback(), egptr(), '\n'));
        size_t got = std::fread(buffer_.data(), 1, buffer_.size(), file_);
        setg(buffer_.data(), buffer_.data(), buffer_.data() + got);
        consumed += static_cast<int64_t>(got);
        return got == 0 ? traits_type::eof() : traits_type::to_int_type(buffer_[0]);
    }

private:
    std::FILE *file_;
    std::vector<char> buffer_;
    int linesBefore_ = 0;
};

struct Where {
    const LineBuffer *input;
    const std::string *path;
};

// Drives the library: a context with the definition, the file stream, the current document.
class Builder {
public:
    Builder(const BuildOptions &options, const std::string &target, Where where)
        : options_(options), target_(target), where_(where), enc_(parseEncoding(options.encoding)), version_(options.version)
    {
        header_.assign(5, "");
    }
    ~Builder()
    {
        if (stream_ != nullptr)
            dk_CloseFile(stream_);
        releaseContext(ctx_);
    }

    void setVersion(const std::string &version)
    {
        if (started_)
            fail("the file's version must come before its documents");
        if (version != "1.3" && version != "1.2")
            fail(fmt::format("unknown version '{}' (1.3 or 1.2)", version));
        if (options_.version.empty())
            version_ = version;
    }
    void setFileHeader(size_t line, const std::string &utf8)
    {
        if (started_)
            fail("the file header must come before the documents");
        if (line >= 5)
            fail(fmt::format("the file header has 5 lines, not {}", line + 1));
        header_[line] = encode(utf8, kFileHeaderWidths[line], fmt::format("file header line{}", line + 1));
    }
    void addFileNote(const std::vector<std::string> &utf8)
    {
        fileNotes_.push_back(errorNote(utf8, "file note"));
    }

    void beginDocument(const std::string &form)
    {
        start();
        if (inDocument_)
            fail("a document begins before the one before it has ended");
        number_++;
        block_ = nullptr;
        form_ = schema_->form(form);
        if (form_ == nullptr)
            fail(fmt::format("unknown form '{}' in version {}", form, schema_->version));
        if (!dk_AddDocument(ctx_, form.c_str(), &docIndex_))
            fail("the document cannot be created");
        counts_.assign(form_->blocks.size(), 1);
        inDocument_ = true;
    }
    void setDocHeader(size_t line, const std::string &utf8)
    {
        requireDocument();
        if (line >= 14)
            fail(fmt::format("a document header has 14 lines, not {}", line + 1));
        dk_DocHeader *h = nullptr;
        dk_GetDocHeader(ctx_, form_->name.c_str(), docIndex_, &h);
        char *lines[14] = {h->line1, h->line2, h->line3, h->line4, h->line5, h->line6, h->line7,
                           h->line8, h->line9, h->line10, h->line11, h->line12, h->line13, h->line14};
        std::string text = encode(utf8, kDocHeaderWidths[line], fmt::format("header line{}", line + 1));
        std::memcpy(lines[line], text.c_str(), text.size() + 1);
    }
    void beginBlock(const std::string &tag)
    {
        requireDocument();
        block_ = form_->block(tag);
        record_ = -1;
        if (block_ == nullptr)
            fail(fmt::format("form {} has no block '{}'", form_->name, tag));
    }
    void beginRecord(int record)
    {
        auto position = static_cast<size_t>(block_ - form_->blocks.data());
        int &count = counts_[position];
        record_ = record;
        if (record < count)
            return;
        if (!block_->repeating)
            fail(fmt::format("block {} is single: it has record 0 only", block_->tag));
        if (record > count)
            fail(fmt::format("records of block {} must come in order: {} expected", block_->tag, count));
        int32_t added = -1;
        if (!dk_AddBlock(ctx_, form_->name.c_str(), docIndex_, block_->tag.c_str(), &added))
            fail("the record cannot be added");
        count++;
    }
    void setField(const std::string &name, const std::string &utf8)
    {
        const FieldDef *field = block_->field(name);
        if (field == nullptr)
            fail(fmt::format("block {} has no field '{}'", block_->tag, name));
        field_ = field;
        std::string text = encode(utf8, field->width, "the value");
        if (!dk_SetField(ctx_, form_->name.c_str(), docIndex_, block_->tag.c_str(), record_, field->name.c_str(),
                         text.c_str()))
            fail("the field cannot be set");
        field_ = nullptr;
    }
    void addOcr(int kind, const std::vector<std::string> &utf8)
    {
        requireDocument();
        if (kind < 0 || kind > 3)
            fail(fmt::format("an OCR note's kind is 0 to 3, not {}", kind));
        if (utf8.size() > 6)
            fail("an OCR note has 6 texts");
        dk_OcrNote note{};
        note.kind = kind;
        char *texts[6] = {note.text1, note.text2, note.text3, note.text4, note.text5, note.text6};
        for (size_t i = 0; i < utf8.size(); i++) {
            std::string text = encode(utf8[i], kOcrWidths[i], fmt::format("OCR note text{}", i + 1));
            std::memcpy(texts[i], text.c_str(), text.size() + 1);
        }
        dk_AddDocOCR(ctx_, form_->name.c_str(), docIndex_, &note);
    }
    void addError(const std::vector<std::string> &utf8)
    {
        requireDocument();
        dk_ErrorNote note = errorNote(utf8, "error note");
        dk_AddDocError(ctx_, form_->name.c_str(), docIndex_, &note);
    }
    void endDocument()
    {
        requireDocument();
        if (!dk_SaveDocument(ctx_, form_->name.c_str(), docIndex_, stream_, 1))
            throw Failure(kExitUsage, fmt::format("{}: write failed", target_));
        dk_RemoveDocument(ctx_, form_->name.c_str(), docIndex_);
        inDocument_ = false;
        block_ = nullptr;
    }
    void finish()
    {
        if (inDocument_)
            fail("the input ends inside a document");
        start();
        for (const auto &note : fileNotes_)
            dk_AddNAVOError(ctx_, &note);
        bool ok = dk_SaveFooter(ctx_, stream_) && std::fflush(stream_) == 0 && !std::ferror(stream_);
        dk_CloseFile(stream_);
        stream_ = nullptr;
        if (!ok)
            throw Failure(kExitUsage, fmt::format("{}: write failed", target_));
    }
    // The input line that errors name; 0: the reader's current line.
    void atLine(int line) { line_ = line; }
    bool inDocument() const { return inDocument_; }
    int number() const { return number_; }
    int fileNoteCount() const { return static_cast<int>(fileNotes_.size()); }

    [[noreturn]] void fail(const std::string &what) const
    {
        std::string place = fmt::format("{}:{}", *where_.path, line_ > 0 ? line_ : where_.input->line());
        if (inDocument_ && form_ != nullptr) {
            place += fmt::format(": document {} ({})", number_, form_->name);
            if (block_ != nullptr) {
                place += fmt::format(", block {} record {}", block_->tag, record_);
                if (field_ != nullptr)
                    place += fmt::format(", field {}", field_->name);
            }
        }
        throw Failure(kExitInvalid, place + ": " + what);
    }

private:
    void requireDocument() const
    {
        if (!inDocument_)
            fail("document content outside a document");
    }
    void start()
    {
        if (started_)
            return;
        started_ = true;
        if (version_.empty())
            version_ = "1.3";
        schema_ = &schemaFor(version_);
        if (!dk_Init(&ctx_) ||
            !dk_dfLoadDefinition(ctx_->definitions, ctx_->dictionary,
                                 version_ == "1.3" ? GetDefTXT_1_3() : GetDefTXT_1_2()) ||
            !dk_InitDocuments(ctx_, 10))
            throw Failure(kExitUsage, "the library cannot be set up");
        dk_SetDefaultNAVOProlog(ctx_, version_.c_str());
        char *lines[5] = {ctx_->header.line1, ctx_->header.line2, ctx_->header.line3, ctx_->header.line4,
                          ctx_->header.line5};
        for (size_t i = 0; i < 5; i++) {
            std::string text = header_[i];
            text.resize(static_cast<size_t>(kFileHeaderWidths[i]), ' ');
            std::memcpy(lines[i], text.c_str(), text.size() + 1);
        }
        if (!dk_OpenFileforSave(&stream_, target_.c_str()))
            throw Failure(kExitUsage, fmt::format("{}: cannot be written", target_));
        if (!dk_SaveProlog(ctx_, stream_) || !dk_SaveHeader(ctx_, stream_))
            throw Failure(kExitUsage, fmt::format("{}: write failed", target_));
    }
    // UTF-8 to the file's encoding, padded to width; a value too wide, not UTF-8, with a character
    // the encoding lacks or with a character the format cannot carry is an error.
    std::string encode(const std::string &utf8, int width, const std::string &what)
    {
        if (!fromUtf8(utf8, enc_, encoded_, options_.truncate)) {
            if (!fromUtf8(utf8, enc_, encoded_, true))
                fail(fmt::format("{} is not UTF-8", what));
            fail(fmt::format("{} holds a character that {} cannot hold{}", what,
                             enc_ == Encoding::Cp1250 ? "CP1250" : "ISO 8859-2", shown(utf8)));
        }
        if (encoded_.find_first_of(std::string("<\t\n\r\x1a", 5)) != std::string::npos)
            fail(fmt::format("{} holds '<', a TAB, a line end or the byte 26, which a NAVO text cannot carry{}", what,
                             shown(utf8)));
        if (encoded_.size() > static_cast<size_t>(width)) {
            if (!options_.truncate)
                fail(fmt::format("{} has {} characters, wider than its {}{}", what, encoded_.size(), width,
                                 shown(utf8)));
            encoded_.resize(static_cast<size_t>(width));
        }
        std::string out = encoded_;
        out.resize(static_cast<size_t>(width), ' ');
        return out;
    }
    std::string shown(const std::string &utf8) const
    {
        return globalOptions.showValues ? fmt::format(" (value {})", jsonString(utf8)) : "";
    }
    dk_ErrorNote errorNote(const std::vector<std::string> &utf8, const char *what)
    {
        if (utf8.size() > 4)
            fail(fmt::format("an {} has 4 texts", what));
        dk_ErrorNote note{};
        char *texts[4] = {note.text1, note.text2, note.text3, note.text4};
        for (size_t i = 0; i < utf8.size(); i++) {
            std::string text = encode(utf8[i], 10, fmt::format("{} text{}", what, i + 1));
            std::memcpy(texts[i], text.c_str(), text.size() + 1);
        }
        return note;
    }

    const BuildOptions &options_;
    std::string target_;
    Where where_;
    Encoding enc_;
    std::string version_;
    const Schema *schema_ = nullptr;
    std::vector<std::string> header_;
    std::vector<dk_ErrorNote> fileNotes_;
    dk_Context *ctx_ = nullptr;
    std::FILE *stream_ = nullptr;
    bool started_ = false;
    bool inDocument_ = false;
    int number_ = 0;
    const FormDef *form_ = nullptr;
    int32_t docIndex_ = -1;
    std::vector<int> counts_;
    const BlockDef *block_ = nullptr;
    int record_ = -1;
    const FieldDef *field_ = nullptr;
    std::string encoded_;
    int line_ = 0;
};

// ---- JSON and JSON Lines -----------------------------------------------------------------

using Json = nlohmann::json;

// The objects that `navo convert` writes, read as a stream of events: a document's records go to
// the library as they arrive, so that no document is ever held whole.
class JsonReader : public nlohmann::json_sax<Json> {
public:
    JsonReader(Builder &builder, size_t base) : b_(builder), base_(base) {}

    bool null() override { return scalar(Kind::Other, {}); }
    bool boolean(bool) override { return scalar(Kind::Other, {}); }
    bool number_integer(number_integer_t v) override { return number(static_cast<long long>(v)); }
    bool number_unsigned(number_unsigned_t v) override { return number(static_cast<long long>(v)); }
    bool number_float(number_float_t, const string_t &) override { return scalar(Kind::Other, {}); }
    bool binary(binary_t &) override { return scalar(Kind::Other, {}); }
    bool string(string_t &v) override { return scalar(Kind::String, v); }

    bool start_object(std::size_t) override
    {
        size_t d = depth();
        if (base_ == 1 && frames_.empty())
            b_.fail("a JSON file holds one array of objects; give JSON Lines one object a line");
        if (d == 0) {
            type_.clear();
        } else if (d == 3 && key(0) == "blocks") {
            b_.beginRecord(static_cast<int>(index(2)));
        } else if (d == 2 && key(0) == "ocr") {
            ocrKind_ = 0;
            texts_.clear();
        } else if (!(d == 1 && key(0) == "blocks")) {
            unexpected("an object");
        }
        frames_.push_back({false, {}, 0});
        return true;
    }
    bool end_object() override
    {
        frames_.pop_back();
        next();
        size_t d = depth();
        if (d == 0) {
            if (type_ == "document")
                b_.endDocument();
            else if (type_.empty())
                b_.fail("an object without \"type\"");
        } else if (d == 2 && key(0) == "ocr") {
            b_.addOcr(ocrKind_, texts_);
        }
        return true;
    }
    bool start_array(std::size_t) override
    {
        size_t d = depth();
        if (d == 0 && base_ == 1 && frames_.empty()) {
            frames_.push_back({true, {}, 0});
            return true;
        }
        if (d == 2 && key(0) == "blocks") {
            b_.beginBlock(key(1));
        } else if (d == 2 && key(0) == "errors") {
            texts_.clear();
        } else if (!(d == 1 && (key(0) == "header" || key(0) == "blocks" || key(0) == "ocr" || key(0) == "errors")) &&
                   !(d == 3 && key(0) == "ocr" && key(2) == "texts")) {
            unexpected("an array");
        }
        frames_.push_back({true, {}, 0});
        return true;
    }
    bool end_array() override
    {
        frames_.pop_back();
        next();
        size_t d = depth();
        if (d == 2 && key(0) == "errors") {
            if (type_ == "document")
                b_.addError(texts_);
            else
                b_.addFileNote(texts_);
        }
        return true;
    }
    bool key(string_t &k) override
    {
        frames_.back().key = k;
        if (depth() == 1 && type_.empty() && k != "type")
            b_.fail("\"type\" must be the first key of each object");
        return true;
    }
    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &e) override
    {
        std::string what = e.what();
        auto at = what.find("] ");
        what = at == std::string::npos ? what : what.substr(at + 2);
        auto last = what.find("; last read:"); // the input's text, maybe a value
        if (last != std::string::npos && !globalOptions.showValues)
            what.resize(last);
        b_.fail("malformed JSON: " + what);
    }

private:
    enum class Kind { String, Other };
    struct Frame {
        bool array;
        std::string key;
        size_t index;
    };
    size_t depth() const { return frames_.size() > base_ ? frames_.size() - base_ : 0; }
    const std::string &key(size_t level) const { return frames_[base_ + level].key; }
    size_t index(size_t level) const { return frames_[base_ + level].index; }
    void next()
    {
        if (!frames_.empty() && frames_.back().array)
            frames_.back().index++;
    }
    [[noreturn]] void unexpected(const char *what) const
    {
        std::string path;
        for (size_t i = base_; i < frames_.size(); i++)
            path += frames_[i].array ? fmt::format("[{}]", frames_[i].index) : "." + frames_[i].key;
        b_.fail(fmt::format("{} was not expected at {}", what, path.empty() ? "the top" : path));
    }
    bool number(long long v)
    {
        size_t d = depth();
        if (d == 1 && key(0) == "number")
            return scalar(Kind::Other, {});
        if (d == 3 && key(0) == "ocr" && key(2) == "kind") {
            ocrKind_ = static_cast<int>(v);
            next();
            return true;
        }
        unexpected("a number");
    }
    bool scalar(Kind kind, const std::string &v)
    {
        size_t d = depth();
        if (d == 1 && key(0) == "number") { // the document's number in its file: informative
            next();
            return true;
        }
        bool ok = kind == Kind::String;
        if (ok && d == 1) {
            const std::string &k = key(0);
            if (k == "type") {
                type_ = v;
                if (v != "file" && v != "document" && v != "footer")
                    b_.fail(fmt::format("unknown object type '{}'", v));
            } else if (k == "version" && type_ == "file") {
                b_.setVersion(v);
            } else if (k == "form" && type_ == "document") {
                b_.beginDocument(v);
            } else {
                ok = false;
            }
        } else if (ok && d == 2 && key(0) == "header") {
            if (type_ == "document")
                b_.setDocHeader(index(1), v);
            else
                b_.setFileHeader(index(1), v);
        } else if (ok && d == 4 && key(0) == "blocks") {
            b_.setField(key(3), v);
        } else if (ok && ((d == 3 && key(0) == "errors") || (d == 4 && key(0) == "ocr" && key(2) == "texts"))) {
            texts_.push_back(v);
        } else if (!(d == 1 && key(0) == "number")) {
            ok = false;
        }
        if (!ok)
            unexpected(kind == Kind::String ? "a string" : "a value");
        next();
        return true;
    }

    Builder &b_;
    size_t base_;
    std::vector<Frame> frames_;
    std::string type_;
    int ocrKind_ = 0;
    std::vector<std::string> texts_;
};

void readJson(std::istream &in, Builder &builder, bool lines)
{
    if (!lines) {
        JsonReader reader(builder, 1);
        Json::sax_parse(in, &reader, nlohmann::detail::input_format_t::json, true);
        return;
    }
    for (;;) {
        int c;
        while ((c = in.peek()) != EOF && std::isspace(c))
            in.get();
        if (c == EOF)
            return;
        JsonReader reader(builder, 0);
        Json::sax_parse(in, &reader, nlohmann::detail::input_format_t::json, false);
    }
}

// ---- the long CSV table ------------------------------------------------------------------

// One record of RFC 4180 CSV: quoted fields with doubled quotes, CR LF or LF line ends.
bool csvRecord(std::istream &in, std::vector<std::string> &fields, const Builder &builder)
{
    fields.assign(1, "");
    int c = in.get();
    if (c == EOF)
        return false;
    bool quoted = false, wasQuoted = false;
    for (;; c = in.get()) {
        if (quoted) {
            if (c == EOF)
                builder.fail("malformed CSV: the file ends inside a quoted field");
            if (c == '"') {
                if (in.peek() == '"')
                    fields.back() += static_cast<char>(in.get());
                else
                    quoted = false;
            } else {
                fields.back() += static_cast<char>(c);
            }
            continue;
        }
        if (c == EOF || c == '\n')
            return true;
        if (c == '\r' && in.peek() == '\n')
            continue;
        if (c == ',') {
            fields.emplace_back();
            wasQuoted = false;
        } else if (c == '"' && fields.back().empty() && !wasQuoted) {
            quoted = wasQuoted = true;
        } else {
            if (wasQuoted)
                builder.fail("malformed CSV: text behind a closing quote");
            fields.back() += static_cast<char>(c);
        }
    }
}

int parseNumber(const std::string &text, const Builder &builder, const char *what)
{
    int value = 0;
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
        builder.fail(fmt::format("malformed CSV: {} must be a number", what));
    for (char c : text)
        value = value * 10 + (c - '0');
    return value;
}

void readCsv(std::istream &in, const LineBuffer &buffer, Builder &b)
{
    std::vector<std::string> row;
    if (!csvRecord(in, row, b) || row.size() != 6 || row[0] != "document" || row[5] != "value")
        b.fail("malformed CSV: the first row must be document,form,block,record,field,value");
    int current = 0;
    std::string block;
    int record = -1;
    // Notes arrive text by text; each is complete when the next begins or its document ends.
    int noteRecord = -1;
    std::string noteBlock;
    int ocrKind = 0;
    std::vector<std::string> noteTexts;
    auto flushNote = [&] {
        if (noteRecord < 0)
            return;
        if (noteBlock == "@ocr")
            b.addOcr(ocrKind, noteTexts);
        else if (current == 0)
            b.addFileNote(noteTexts);
        else
            b.addError(noteTexts);
        noteRecord = -1;
        noteTexts.clear();
        ocrKind = 0;
    };
    for (;;) {
        b.atLine(0);
        int line = buffer.line();
        if (!csvRecord(in, row, b))
            break;
        b.atLine(line); // errors of a row name the line where it begins
        if (row.size() == 1 && row[0].empty())
            continue;
        if (row.size() != 6)
            b.fail(fmt::format("malformed CSV: {} columns, 6 expected", row.size()));
        int number = parseNumber(row[0], b, "document");
        int rec = parseNumber(row[3], b, "record");
        const std::string &tag = row[2], &field = row[4], &value = row[5];
        if (number != current) {
            flushNote();
            if (current > 0)
                b.endDocument();
            current = number;
            block.clear();
            if (number > 0)
                b.beginDocument(row[1]);
        }
        if (tag == "@ocr" || tag == "@error") {
            if (tag != noteBlock || rec != noteRecord) {
                flushNote();
                noteBlock = tag;
                noteRecord = rec;
            }
            if (field == "kind")
                ocrKind = parseNumber(value, b, "kind");
            else
                noteTexts.push_back(value);
            continue;
        }
        flushNote();
        if (tag == "@file") {
            if (number != 0 || field != "version")
                b.fail("malformed CSV: @file holds the version of document 0 only");
            b.setVersion(value);
        } else if (tag == "@header") {
            if (field.compare(0, 4, "line") != 0)
                b.fail("malformed CSV: header fields are line1, line2, ...");
            size_t line = static_cast<size_t>(parseNumber(field.substr(4), b, "the header line")) - 1;
            if (number == 0)
                b.setFileHeader(line, value);
            else
                b.setDocHeader(line, value);
        } else {
            if (number == 0)
                b.fail("malformed CSV: blocks belong to documents from 1");
            if (tag != block || rec != record) {
                if (tag != block)
                    b.beginBlock(tag);
                b.beginRecord(rec);
                block = tag;
                record = rec;
            }
            b.setField(field, value);
        }
    }
    b.atLine(0);
    flushNote();
    if (current > 0)
        b.endDocument();
}

} // namespace

int runBuild(const BuildOptions &options)
{
    requireRegularFile(options.input);
    if (options.output.empty() || options.output == "-")
        throw Failure(kExitUsage, "build writes a file: give -o OUT.navo");
    std::string from = options.from;
    if (from.empty()) {
        std::string ext = std::filesystem::path(options.input).extension().string();
        from = ext == ".jsonl" || ext == ".ndjson" ? "jsonl" : ext == ".json" ? "json" : ext == ".csv" ? "csv" : "";
        if (from.empty())
            throw Failure(kExitUsage, "cannot tell the input's format from its name: give --from jsonl|json|csv");
    }
    if (from != "jsonl" && from != "json" && from != "csv")
        throw Failure(kExitUsage, "--from must be jsonl, json or csv");
    if (!options.version.empty() && options.version != "1.3" && options.version != "1.2")
        throw Failure(kExitUsage, "--version must be 1.3 or 1.2");

    std::FILE *file = std::fopen(options.input.c_str(), "rb");
    if (file == nullptr)
        throw Failure(kExitUsage, fmt::format("{}: cannot be read", options.input));
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> closer(file, std::fclose);
    int64_t size = static_cast<int64_t>(std::filesystem::file_size(options.input));
    LineBuffer buffer(file);
    std::istream in(&buffer);

    std::string temp = createTempBeside(options.output);
    struct Remove {
        std::string path;
        bool keep = false;
        ~Remove()
        {
            if (!keep)
                std::remove(path.c_str());
        }
    } remove{temp};
    {
        Progress progress([&] { return std::pair<int64_t, int64_t>(buffer.consumed.load(), size); });
        Builder builder(options, temp, {&buffer, &options.input});
        if (from == "csv")
            readCsv(in, buffer, builder);
        else
            readJson(in, builder, from == "jsonl");
        if (size == 0)
            builder.fail("the input is empty");
        builder.finish();
        progress.finish();
    }
    std::error_code error;
    std::filesystem::rename(temp, options.output, error);
    if (error)
        throw Failure(kExitUsage, fmt::format("{}: cannot be written ({})", options.output, error.message()));
    remove.keep = true;
    return kExitOk;
}

} // namespace navo_cli
