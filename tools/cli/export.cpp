// export.cpp - `navo show`, `navo convert` and `navo schema`: documents and definitions out, one
// document at a time.
#include <filesystem>
#include <set>

#include <fmt/format.h>

#include "commands.hpp"
#include "common.hpp"

namespace navo_cli {

Encoding parseEncoding(const std::string &name)
{
    if (name == "iso8859-2" || name == "iso-8859-2" || name == "latin2")
        return Encoding::Iso88592;
    if (name == "cp1250" || name == "windows-1250")
        return Encoding::Cp1250;
    throw Failure(kExitUsage, fmt::format("unknown encoding '{}' (iso8859-2 or cp1250)", name));
}

namespace {

// ---- show --------------------------------------------------------------------------------

class ShowVisitor : public Visitor {
public:
    ShowVisitor(const ShowOptions &options, Output &out) : options_(options), out_(out), enc_(parseEncoding(options.encoding)) {}

    void begin(const FileInfo &info) override
    {
        out_.write(fmt::format("File {}\nDefinition version {}\n", info.path, info.version));
        if (!filtered()) {
            out_.write("File header:\n");
            lines(info.header, "    ");
        }
    }
    void document(const DocumentView &doc) override
    {
        if ((!options_.form.empty() && doc.form() != options_.form) || (options_.doc > 0 && doc.number() != options_.doc))
            return;
        shown_++;
        out_.write(fmt::format("\nDocument {}: form {}\n", doc.number(), doc.form()));
        if (options_.block.empty()) {
            out_.write("  Header:\n");
            lines(doc.header(), "    ");
        }
        std::vector<std::string> values;
        for (const auto &block : doc.definition().blocks) {
            if (!options_.block.empty() && block.tag != options_.block)
                continue;
            int32_t count = doc.recordCount(block);
            for (int32_t r = 0; r < count; r++) {
                doc.record(block, r, values);
                if (block.repeating)
                    out_.write(fmt::format("  Block {} record {} of {} ({}):\n", block.tag, r + 1, count, block.name));
                else
                    out_.write(fmt::format("  Block {} ({}):\n", block.tag, block.name));
                size_t width = 0;
                for (const auto &f : block.fields)
                    width = std::max(width, f.name.size());
                for (size_t i = 0; i < block.fields.size(); i++)
                    out_.write(fmt::format("    {:<{}}  {}\n", block.fields[i].name, width, value(values[i])));
            }
        }
        if (!options_.block.empty())
            return;
        NoteList notes = doc.notes();
        for (const auto &n : notes.ocr) {
            out_.write(fmt::format("  OCR note <OCR.{}>:\n", ocrKindTag(n.kind)));
            lines(n.texts, "    ");
        }
        for (const auto &n : notes.errors) {
            out_.write("  Error note <BLAD>:\n");
            lines(n, "    ");
        }
    }
    void end(const FileInfo &, const std::vector<std::vector<std::string>> &fileNotes) override
    {
        if (!filtered()) {
            for (const auto &n : fileNotes) {
                out_.write("\nFile error note <BLAD>:\n");
                lines(n, "    ");
            }
        }
        if (filtered() && shown_ == 0)
            out_.write("\n(no document matches)\n");
    }

private:
    bool filtered() const { return !options_.form.empty() || options_.doc > 0 || !options_.block.empty(); }
    // A value in quotes with its trailing blanks counted, so that padding is plain to see.
    std::string value(const std::string &raw)
    {
        std::string_view kept = trimRight(raw);
        size_t blanks = raw.size() - kept.size();
        if (kept.empty())
            return fmt::format("(blank, {} character{})", raw.size(), raw.size() == 1 ? "" : "s");
        std::string text = '"' + toUtf8(kept, enc_) + '"';
        return blanks == 0 ? text : fmt::format("{} + {} blank{}", text, blanks, blanks == 1 ? "" : "s");
    }
    void lines(const std::vector<std::string> &texts, const char *indent)
    {
        for (size_t i = 0; i < texts.size(); i++)
            out_.write(fmt::format("{}line{:<3} {}\n", indent, i + 1, value(texts[i])));
    }

    const ShowOptions &options_;
    Output &out_;
    Encoding enc_;
    int shown_ = 0;
};

// ---- convert -----------------------------------------------------------------------------

class JsonVisitor : public Visitor {
public:
    JsonVisitor(const ConvertOptions &options, Output &out, bool array)
        : out_(out), enc_(parseEncoding(options.encoding)), keep_(options.keepPadding), array_(array)
    {
    }
    void begin(const FileInfo &info) override
    {
        if (array_)
            out_.write("[\n");
        std::string line = fmt::format(R"({{"type":"file","version":{},"header":{}}})", jsonString(info.version),
                                       list(info.header));
        emit(line);
    }
    void document(const DocumentView &doc) override
    {
        std::string &s = buffer_;
        s = fmt::format(R"({}{{"type":"document","number":{},"form":{},"header":{},"blocks":{{)", separator(),
                        doc.number(), jsonString(doc.form()), list(doc.header()));
        std::vector<std::string> values;
        bool firstBlock = true;
        for (const auto &block : doc.definition().blocks) {
            s += firstBlock ? "" : ",";
            firstBlock = false;
            s += jsonString(block.tag);
            s += ":[";
            int32_t count = doc.recordCount(block);
            // The keys of the block's fields, quoted once for all its records.
            keys_.clear();
            for (const auto &field : block.fields) {
                keys_.emplace_back();
                appendJsonString(keys_.back(), field.name);
                keys_.back() += ':';
            }
            for (int32_t r = 0; r < count; r++) {
                doc.record(block, r, values);
                s += r ? ",{" : "{";
                for (size_t i = 0; i < values.size(); i++) {
                    if (i)
                        s += ',';
                    s += keys_[i];
                    text(values[i]);
                }
                s += '}';
                if (s.size() > (1 << 16)) {
                    out_.write(s);
                    s.clear();
                }
            }
            s += ']';
        }
        s += "}";
        NoteList notes = doc.notes();
        if (!notes.ocr.empty()) {
            s += R"(,"ocr":[)";
            for (size_t i = 0; i < notes.ocr.size(); i++)
                s += fmt::format(R"({}{{"kind":{},"texts":{}}})", i ? "," : "", notes.ocr[i].kind,
                                 list(notes.ocr[i].texts));
            s += "]";
        }
        if (!notes.errors.empty())
            s += R"(,"errors":)" + lists(notes.errors);
        s += "}";
        s += array_ ? "" : "\n";
        out_.write(s);
    }
    void end(const FileInfo &, const std::vector<std::vector<std::string>> &fileNotes) override
    {
        std::string line = R"({"type":"footer")";
        if (!fileNotes.empty())
            line += R"(,"errors":)" + lists(fileNotes);
        emit(line + "}");
        if (array_)
            out_.write("\n]\n");
    }

private:
    std::string separator()
    {
        return array_ ? ",\n" : "";
    }
    void emit(const std::string &object)
    {
        if (array_ && !first_)
            out_.write(",\n");
        first_ = false;
        out_.write(object);
        if (!array_)
            out_.write("\n");
    }
    void text(const std::string &raw)
    {
        utf8_.clear();
        toUtf8(keep_ ? std::string_view(raw) : trimRight(raw), enc_, utf8_);
        appendJsonString(buffer_, utf8_);
    }
    std::string list(const std::vector<std::string> &texts)
    {
        std::string saved;
        saved.swap(buffer_);
        buffer_ = "[";
        for (size_t i = 0; i < texts.size(); i++) {
            if (i)
                buffer_ += ',';
            text(texts[i]);
        }
        buffer_ += ']';
        saved.swap(buffer_);
        return saved;
    }
    std::string lists(const std::vector<std::vector<std::string>> &texts)
    {
        std::string out = "[";
        for (size_t i = 0; i < texts.size(); i++)
            out += (i ? "," : "") + list(texts[i]);
        return out + "]";
    }

    Output &out_;
    Encoding enc_;
    bool keep_;
    bool array_;
    bool first_ = true;
    std::vector<std::string> keys_;
    std::string buffer_;
    std::string utf8_;
};

// One long table: document, form, block, record, field, value. The envelope has blocks of its own
// names: @file (version), @header (header lines), @ocr and @error (notes); document 0 is the file.
class CsvLongVisitor : public Visitor {
public:
    CsvLongVisitor(const ConvertOptions &options, Output &out)
        : out_(out), enc_(parseEncoding(options.encoding)), keep_(options.keepPadding)
    {
    }
    void begin(const FileInfo &info) override
    {
        out_.write("document,form,block,record,field,value\r\n");
        row(0, "", "@file", 0, "version", info.version, false);
        for (size_t i = 0; i < info.header.size(); i++)
            row(0, "", "@header", 0, fmt::format("line{}", i + 1), info.header[i]);
    }
    void document(const DocumentView &doc) override
    {
        auto header = doc.header();
        for (size_t i = 0; i < header.size(); i++)
            row(doc.number(), doc.form(), "@header", 0, fmt::format("line{}", i + 1), header[i]);
        std::vector<std::string> values;
        for (const auto &block : doc.definition().blocks) {
            int32_t count = doc.recordCount(block);
            for (int32_t r = 0; r < count; r++) {
                doc.record(block, r, values);
                for (size_t i = 0; i < values.size(); i++)
                    row(doc.number(), doc.form(), block.tag, r, block.fields[i].name, values[i]);
            }
        }
        NoteList notes = doc.notes();
        for (size_t n = 0; n < notes.ocr.size(); n++) {
            row(doc.number(), doc.form(), "@ocr", static_cast<int>(n), "kind", std::to_string(notes.ocr[n].kind), false);
            for (size_t i = 0; i < notes.ocr[n].texts.size(); i++)
                row(doc.number(), doc.form(), "@ocr", static_cast<int>(n), fmt::format("text{}", i + 1), notes.ocr[n].texts[i]);
        }
        errorRows(doc.number(), doc.form(), notes.errors);
    }
    void end(const FileInfo &, const std::vector<std::vector<std::string>> &fileNotes) override
    {
        errorRows(0, "", fileNotes);
    }

private:
    void errorRows(int number, const std::string &form, const std::vector<std::vector<std::string>> &notes)
    {
        for (size_t n = 0; n < notes.size(); n++)
            for (size_t i = 0; i < notes[n].size(); i++)
                row(number, form, "@error", static_cast<int>(n), fmt::format("text{}", i + 1), notes[n][i]);
    }
    void row(int number, const std::string &form, const std::string &block, int record, const std::string &field,
             const std::string &raw, bool convert = true)
    {
        utf8_.clear();
        if (convert)
            toUtf8(keep_ ? std::string_view(raw) : trimRight(raw), enc_, utf8_);
        else
            utf8_ = raw;
        line_ = fmt::format("{},{},{},{},{},{}\r\n", number, form, block, record, field, csvField(utf8_));
        out_.write(line_);
    }

    Output &out_;
    Encoding enc_;
    bool keep_;
    std::string utf8_, line_;
};

// One table per block of each form: <stem>.<FORM>.<TAG>.csv with document, record and the
// fields; the document headers go to <stem>.headers.csv. Notes have no table in this layout.
class CsvTablesVisitor : public Visitor {
public:
    CsvTablesVisitor(const ConvertOptions &options) : options_(options), enc_(parseEncoding(options.encoding))
    {
        if (options.output.empty() || options.output == "-")
            throw Failure(kExitUsage, "--csv-layout blocks writes several files: give -o STEM");
        stem_ = options.output;
        if (stem_.size() > 4 && stem_.compare(stem_.size() - 4, 4, ".csv") == 0)
            stem_.resize(stem_.size() - 4);
    }
    void begin(const FileInfo &) override
    {
        auto &headers = table("headers", [] {
            std::string h = "document,form";
            for (int i = 1; i <= 14; i++)
                h += fmt::format(",line{}", i);
            return h;
        });
        headers_ = &headers;
    }
    void document(const DocumentView &doc) override
    {
        std::string line = fmt::format("{},{}", doc.number(), doc.form());
        for (const auto &h : doc.header())
            line += "," + cell(h);
        headers_->write(line + "\r\n");
        std::vector<std::string> values;
        for (const auto &block : doc.definition().blocks) {
            Output &out = table(doc.form() + "." + block.tag, [&] {
                std::string h = "document,record";
                for (const auto &f : block.fields)
                    h += "," + csvField(f.name);
                return h;
            });
            int32_t count = doc.recordCount(block);
            for (int32_t r = 0; r < count; r++) {
                doc.record(block, r, values);
                line = fmt::format("{},{}", doc.number(), r);
                for (const auto &v : values)
                    line += "," + cell(v);
                out.write(line + "\r\n");
            }
        }
    }
    void commit()
    {
        for (auto &[name, out] : tables_)
            out->commit();
    }

private:
    template <class Header> Output &table(const std::string &name, Header header)
    {
        auto found = tables_.find(name);
        if (found != tables_.end())
            return *found->second;
        auto out = std::make_unique<Output>(stem_ + "." + name + ".csv");
        out->write(header() + "\r\n");
        return *tables_.emplace(name, std::move(out)).first->second;
    }
    std::string cell(const std::string &raw)
    {
        return csvField(toUtf8(options_.keepPadding ? std::string_view(raw) : trimRight(raw), enc_));
    }

    const ConvertOptions &options_;
    Encoding enc_;
    std::string stem_;
    std::map<std::string, std::unique_ptr<Output>> tables_;
    Output *headers_ = nullptr;
};

} // namespace

int runShow(const ShowOptions &options)
{
    Output out("");
    ShowVisitor visitor(options, out);
    walkFile(options.file, visitor);
    out.commit();
    return kExitOk;
}

int runConvert(const ConvertOptions &options)
{
    if (options.to == "csv" && options.csvLayout == "blocks") {
        CsvTablesVisitor visitor(options);
        walkFile(options.file, visitor);
        visitor.commit();
        return kExitOk;
    }
    if (options.csvLayout != "long" && options.csvLayout != "blocks")
        throw Failure(kExitUsage, "--csv-layout must be long or blocks");
    requireRegularFile(options.file);
    Output out(options.output);
    if (options.to == "jsonl" || options.to == "json") {
        JsonVisitor visitor(options, out, options.to == "json");
        walkFile(options.file, visitor);
    } else if (options.to == "csv") {
        CsvLongVisitor visitor(options, out);
        walkFile(options.file, visitor);
    } else {
        throw Failure(kExitUsage, "--to must be jsonl, json or csv");
    }
    out.commit();
    return kExitOk;
}

int runSchema(const SchemaOptions &options)
{
    const Schema &schema = schemaFor(options.version);
    std::vector<const FormDef *> forms;
    for (const auto &f : schema.forms)
        if (options.form.empty() || f.name == options.form)
            forms.push_back(&f);
    if (forms.empty())
        throw Failure(kExitInvalid, fmt::format("no form {} in version {}", options.form, options.version));
    Output out("");
    if (options.json)
        out.write(fmt::format(R"({{"version":{},"forms":[)", jsonString(schema.version)));
    bool anyBlock = false;
    for (size_t i = 0; i < forms.size(); i++) {
        const FormDef &form = *forms[i];
        if (options.json)
            out.write(fmt::format(R"({}{{"name":{},"blocks":[)", i ? "," : "", jsonString(form.name)));
        else
            out.write(fmt::format("{}{}\n", i ? "\n" : "", form.name));
        bool firstBlock = true;
        for (const auto &b : form.blocks) {
            if (!options.block.empty() && b.tag != options.block)
                continue;
            anyBlock = true;
            if (options.json) {
                out.write(fmt::format(R"({}{{"tag":{},"name":{},"repeating":{},"recordLength":{},"fields":[)",
                                      firstBlock ? "" : ",", jsonString(b.tag), jsonString(toUtf8(b.name, Encoding::Cp1250)),
                                      b.repeating, b.recordLength));
                for (size_t k = 0; k < b.fields.size(); k++)
                    out.write(fmt::format(R"({}{{"name":{},"offset":{},"width":{}}})", k ? "," : "",
                                          jsonString(toUtf8(b.fields[k].name, Encoding::Cp1250)), b.fields[k].offset,
                                          b.fields[k].width));
                out.write("]}");
            } else {
                out.write(fmt::format("  {:<8} {:<24} {:<9} record length {}\n", b.tag, toUtf8(b.name, Encoding::Cp1250),
                                      b.repeating ? "repeating" : "single", b.recordLength));
                if (!options.block.empty() || options.form.size() > 0)
                    for (const auto &f : b.fields)
                        out.write(fmt::format("    {:<24} offset {:>4}  width {:>3}\n", toUtf8(f.name, Encoding::Cp1250),
                                              f.offset, f.width));
            }
            firstBlock = false;
        }
        if (options.json)
            out.write("]}");
    }
    if (options.json)
        out.write("]}\n");
    if (!options.block.empty() && !anyBlock)
        throw Failure(kExitInvalid, fmt::format("form {} has no block {}", options.form, options.block));
    out.commit();
    return kExitOk;
}

} // namespace navo_cli
