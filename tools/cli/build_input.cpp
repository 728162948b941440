// build_input.cpp - build's readers: nlohmann-json's SAX events and RFC 4180 records, turned into a sink's calls.
#include "build_input.hpp"

#include <algorithm>
#include <cerrno>
#include <istream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace navo_cli {

InputBuffer::InputBuffer(std::FILE *file) : file_(file), buffer_(std::size_t{1} << 16)
{
    setg(buffer_.data(), buffer_.data(), buffer_.data());
}

int InputBuffer::line() const
{
    return pinned_ > 0 ? pinned_ : linesBefore_ + static_cast<int>(std::count(eback(), gptr(), '\n')) + 1;
}

InputBuffer::int_type InputBuffer::underflow()
{
    linesBefore_ += static_cast<int>(std::count(eback(), egptr(), '\n'));
    errno = 0;
    const std::size_t got = std::fread(buffer_.data(), 1, buffer_.size(), file_);
    if (got == 0 && std::ferror(file_) != 0 && error_ == 0)
        error_ = errno != 0 ? errno : EIO;
    setg(buffer_.data(), buffer_.data(), buffer_.data() + got);
    consumed_.fetch_add(static_cast<std::int64_t>(got), std::memory_order_relaxed);
    return got == 0 ? traits_type::eof() : traits_type::to_int_type(buffer_[0]);
}

namespace {

using Json = nlohmann::json;

// The objects of `navo convert`'s JSON output, read as a stream of events: a document's records go
// on as they arrive. `base` is 1 inside the one array of a JSON file, 0 for a line of JSON Lines.
class JsonReader final : public nlohmann::json_sax<Json> {
public:
    JsonReader(BuildSink &sink, std::size_t base, bool showValues) : sink_(sink), base_(base), showValues_(showValues) {}

    bool null() override { return scalar(false, {}); }
    bool boolean(bool) override { return scalar(false, {}); }
    bool number_integer(number_integer_t value) override { return number(static_cast<long long>(value)); }
    bool number_unsigned(number_unsigned_t value) override
    {
        return number(static_cast<long long>(std::min<number_unsigned_t>(value, INT32_MAX)));
    }
    bool number_float(number_float_t, const string_t &) override { return scalar(false, {}); }
    bool binary(binary_t &) override { return scalar(false, {}); }
    bool string(string_t &value) override { return scalar(true, value); }

    bool start_object(std::size_t) override
    {
        const std::size_t d = depth();
        if (base_ == 1 && frames_.empty())
            throw InputError("a JSON file holds one array of objects; JSON Lines hold one object a line");
        if (d == 0)
            type_.clear();
        else if (d == 3 && key(0) == "blocks")
            sink_.begin_record(index(2));
        else if (d == 2 && key(0) == "ocr")
            start_note();
        else if (!(d == 1 && key(0) == "blocks"))
            unexpected("an object");
        frames_.push_back({false, {}, 0});
        return true;
    }
    bool end_object() override
    {
        frames_.pop_back();
        next();
        const std::size_t d = depth();
        if (d == 0 && type_ == "document")
            sink_.end_document();
        else if (d == 0 && type_.empty())
            throw InputError("an object without \"type\"");
        else if (d == 2 && key(0) == "ocr")
            sink_.ocr_note(ocrKind_, texts_);
        return true;
    }
    bool start_array(std::size_t) override
    {
        const std::size_t d = depth();
        if (d == 0 && base_ == 1 && frames_.empty()) {
            frames_.push_back({true, {}, 0});
            return true;
        }
        if (d == 2 && key(0) == "blocks")
            sink_.begin_block(key(1));
        else if (d == 2 && key(0) == "errors")
            start_note();
        else if (!(d == 1 && (key(0) == "header" || key(0) == "blocks" || key(0) == "ocr" || key(0) == "errors")) &&
                 !(d == 3 && key(0) == "ocr" && key(2) == "texts"))
            unexpected("an array");
        frames_.push_back({true, {}, 0});
        return true;
    }
    bool end_array() override
    {
        frames_.pop_back();
        next();
        if (depth() == 2 && key(0) == "errors") {
            if (type_ == "document")
                sink_.error_note(texts_);
            else
                sink_.file_note(texts_);
        }
        return true;
    }
    bool key(string_t &name) override
    {
        frames_.back().key = name;
        if (depth() == 1 && type_.empty() && name != "type")
            throw InputError("\"type\" must be the first key of each object");
        return true;
    }
    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &e) override
    {
        // nlohmann's words without their "[json.exception...] parse error at line L, column C: "
        // (the line of the object's own text; the error names the input's), and, unless asked,
        // without the input's text that follows "last read:" (it may be a value).
        std::string what = e.what();
        const std::size_t at = what.find("] ");
        what = at == std::string::npos ? what : what.substr(at + 2);
        const std::size_t words = what.find(": ");
        if (what.rfind("parse error", 0) == 0 && words != std::string::npos)
            what.erase(0, words + 2);
        const std::size_t last = what.find("; last read:");
        if (last != std::string::npos && !showValues_)
            what.resize(last);
        throw InputError("malformed JSON: " + what);
    }

private:
    struct Frame {
        bool array;
        std::string key;
        std::size_t index;
    };
    void start_note()
    {
        ocrKind_ = 0;
        texts_.clear();
    }
    std::size_t depth() const { return frames_.size() > base_ ? frames_.size() - base_ : 0; }
    const std::string &key(std::size_t level) const { return frames_[base_ + level].key; }
    std::size_t index(std::size_t level) const { return frames_[base_ + level].index; }
    void next()
    {
        if (!frames_.empty() && frames_.back().array)
            frames_.back().index++;
    }
    [[noreturn]] void unexpected(const char *what) const
    {
        std::string path;
        for (std::size_t i = base_; i < frames_.size(); i++)
            path += frames_[i].array ? fmt::format("[{}]", frames_[i].index) : "." + frames_[i].key;
        throw InputError(fmt::format("{} was not expected at {}", what, path.empty() ? "the top" : path));
    }
    bool number(long long value)
    {
        const std::size_t d = depth();
        if (d == 3 && key(0) == "ocr" && key(2) == "kind") {
            ocrKind_ = static_cast<int>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
            next();
            return true;
        }
        return scalar(false, {});
    }
    bool scalar(bool isString, const std::string &value)
    {
        const std::size_t d = depth();
        bool taken = true;
        if (d == 1 && key(0) == "number") {
            // The document's number in the file it came from: only informative.
        } else if (!isString) {
            taken = false;
        } else if (d == 1 && key(0) == "type") {
            type_ = value;
            if (value != "file" && value != "document" && value != "footer")
                throw InputError(fmt::format("unknown object type '{}'", value));
        } else if (d == 1 && key(0) == "version" && type_ == "file") {
            sink_.version(value);
        } else if (d == 1 && key(0) == "form" && type_ == "document") {
            sink_.begin_document(value);
        } else if (d == 2 && key(0) == "header") {
            if (type_ == "document")
                sink_.header(index(1), value);
            else
                sink_.file_header(index(1), value);
        } else if (d == 4 && key(0) == "blocks") {
            sink_.field(key(3), value);
        } else if ((d == 3 && key(0) == "errors") || (d == 4 && key(0) == "ocr" && key(2) == "texts")) {
            texts_.push_back(value);
        } else {
            taken = false;
        }
        if (!taken)
            unexpected(isString ? "a string" : "a value");
        next();
        return true;
    }

    BuildSink &sink_;
    std::size_t base_;
    bool showValues_;
    std::vector<Frame> frames_;
    std::string type_;
    int ocrKind_ = 0;
    std::vector<std::string> texts_;
};

// One record of RFC 4180 CSV: quoted fields with doubled quotes, CR LF or LF line ends. False at
// the input's end.
bool csv_record(std::istream &in, std::vector<std::string> &fields)
{
    fields.assign(1, "");
    int c = in.get();
    if (c == EOF)
        return false;
    bool quoted = false;
    bool wasQuoted = false;
    for (;; c = in.get()) {
        if (quoted) {
            if (c == EOF)
                throw InputError("malformed CSV: the input ends inside a quoted field");
            if (c == '"' && in.peek() == '"')
                fields.back() += static_cast<char>(in.get());
            else if (c == '"')
                quoted = false;
            else
                fields.back() += static_cast<char>(c);
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
        } else if (wasQuoted) {
            throw InputError("malformed CSV: text behind a closing quote");
        } else {
            fields.back() += static_cast<char>(c);
        }
    }
}

std::size_t csv_number(const std::string &text, const char *what)
{
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
        throw InputError(fmt::format("malformed CSV: {} must be a number", what));
    return std::stoul(text);
}

}  // namespace

void read_json_lines(std::istream &in, BuildSink &sink, bool showValues)
{
    for (;;) {
        int c = 0;
        while ((c = in.peek()) != EOF && (c == ' ' || c == '\t' || c == '\r' || c == '\n'))
            in.get();
        if (c == EOF)
            return;
        JsonReader reader(sink, 0, showValues);
        Json::sax_parse(in, &reader, nlohmann::detail::input_format_t::json, false);
    }
}

void read_json(std::istream &in, BuildSink &sink, bool showValues)
{
    JsonReader reader(sink, 1, showValues);
    Json::sax_parse(in, &reader, nlohmann::detail::input_format_t::json, true);
}

void read_csv(std::istream &in, InputBuffer &buffer, BuildSink &sink)
{
    std::vector<std::string> row;
    buffer.pin(1);
    if (!csv_record(in, row) || row.size() != 6 || row[0] != "document" || row[5] != "value")
        throw InputError("malformed CSV: the first row must be document,form,block,record,field,value");
    std::size_t current = 0;
    std::string block;
    std::size_t record = 0;
    // Notes arrive text by text; each is whole when the next begins or its document ends.
    bool inNote = false;
    std::string noteBlock;
    std::size_t noteRecord = 0;
    int ocrKind = 0;
    std::vector<std::string> noteTexts;
    const auto endNote = [&] {
        if (!inNote)
            return;
        if (noteBlock == "@ocr")
            sink.ocr_note(ocrKind, noteTexts);
        else if (current == 0)
            sink.file_note(noteTexts);
        else
            sink.error_note(noteTexts);
        inNote = false;
        noteTexts.clear();
        ocrKind = 0;
    };
    for (;;) {
        // What a row causes names the line it begins on.
        buffer.pin(0);
        buffer.pin(buffer.line());
        if (!csv_record(in, row))
            break;
        if (row.size() == 1 && row[0].empty())
            continue;
        if (row.size() != 6)
            throw InputError(fmt::format("malformed CSV: {} columns, 6 expected", row.size()));
        const std::size_t number = csv_number(row[0], "document");
        const std::size_t rec = csv_number(row[3], "record");
        const std::string &tag = row[2];
        const std::string &field = row[4];
        const std::string &value = row[5];
        if (number != current) {
            endNote();
            if (current > 0)
                sink.end_document();
            current = number;
            block.clear();
            if (number > 0)
                sink.begin_document(row[1]);
        }
        if (tag == "@ocr" || tag == "@error") {
            if (!inNote || tag != noteBlock || rec != noteRecord) {
                endNote();
                inNote = true;
                noteBlock = tag;
                noteRecord = rec;
            }
            if (field == "kind")
                ocrKind = static_cast<int>(csv_number(value, "an OCR note's kind"));
            else
                noteTexts.push_back(value);
            continue;
        }
        endNote();
        if (tag == "@file") {
            if (number != 0 || field != "version")
                throw InputError("malformed CSV: @file holds the version, in document 0");
            sink.version(value);
        } else if (tag == "@header") {
            if (field.compare(0, 4, "line") != 0)
                throw InputError("malformed CSV: the fields of @header are line1, line2, ...");
            const std::size_t at = csv_number(field.substr(4), "a header line's number");
            if (at == 0)
                throw InputError("malformed CSV: header lines are line1, line2, ...");
            if (number == 0)
                sink.file_header(at - 1, value);
            else
                sink.header(at - 1, value);
        } else {
            if (number == 0)
                throw InputError("malformed CSV: blocks belong to documents, numbered from 1");
            if (tag != block) {
                sink.begin_block(tag);
                block = tag;
                sink.begin_record(rec);
                record = rec;
            } else if (rec != record) {
                sink.begin_record(rec);
                record = rec;
            }
            sink.field(field, value);
        }
    }
    buffer.pin(0);
    endNote();
    if (current > 0)
        sink.end_document();
}

}  // namespace navo_cli
