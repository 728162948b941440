// diff.cpp - `navo diff`: two files compared document by document. Each file is first flattened
// to a temporary list of (document, block, record, field, value) lines, one load at a time; the
// two lists are then walked side by side, so that memory stays flat whatever the files' sizes.
#include <filesystem>
#include <set>
#include <unordered_map>

#include <fmt/format.h>

#include "commands.hpp"
#include "common.hpp"

namespace navo_cli {

Encoding parseEncoding(const std::string &name);

namespace {

constexpr int kHeaderPosition = -1;
constexpr int kOcrPosition = 1000000;
constexpr int kErrorPosition = 1000001;

std::string escape(std::string_view raw)
{
    std::string out;
    for (char c : raw) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\t')
            out += "\\t";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

std::string unescape(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            char n = text[++i];
            out += n == 't' ? '\t' : n == 'n' ? '\n' : n;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Lines: group, form, position, record, field position, block, field, value. Group H is the file
// header, F the file footer, numbers the documents.
class Flatten : public Visitor {
public:
    explicit Flatten(std::FILE *out) : out_(out) {}
    void begin(const FileInfo &info) override
    {
        line("H", "", kHeaderPosition, 0, 0, "@file", "version", info.version);
        for (size_t i = 0; i < info.header.size(); i++)
            line("H", "", kHeaderPosition, 0, static_cast<int>(i) + 1, "@header", fmt::format("line{}", i + 1), info.header[i]);
    }
    void document(const DocumentView &doc) override
    {
        std::string group = std::to_string(doc.number());
        auto header = doc.header();
        for (size_t i = 0; i < header.size(); i++)
            line(group, doc.form(), kHeaderPosition, 0, static_cast<int>(i), "@header", fmt::format("line{}", i + 1), header[i]);
        std::vector<std::string> values;
        const auto &blocks = doc.definition().blocks;
        for (size_t p = 0; p < blocks.size(); p++) {
            int32_t count = doc.recordCount(blocks[p]);
            for (int32_t r = 0; r < count; r++) {
                doc.record(blocks[p], r, values);
                for (size_t i = 0; i < values.size(); i++)
                    line(group, doc.form(), static_cast<int>(p), r, static_cast<int>(i), blocks[p].tag,
                         blocks[p].fields[i].name, values[i]);
            }
        }
        NoteList notes = doc.notes();
        for (size_t n = 0; n < notes.ocr.size(); n++) {
            line(group, doc.form(), kOcrPosition, static_cast<int>(n), 0, "@ocr", "kind", std::to_string(notes.ocr[n].kind));
            for (size_t i = 0; i < notes.ocr[n].texts.size(); i++)
                line(group, doc.form(), kOcrPosition, static_cast<int>(n), static_cast<int>(i) + 1, "@ocr",
                     fmt::format("text{}", i + 1), notes.ocr[n].texts[i]);
        }
        errors(group, doc.form(), notes.errors);
    }
    void end(const FileInfo &, const std::vector<std::vector<std::string>> &fileNotes) override
    {
        line("F", "", -2, 0, 0, "@end", "", ""); // every list ends with a group F
        errors("F", "", fileNotes);
    }

private:
    void errors(const std::string &group, const std::string &form, const std::vector<std::vector<std::string>> &notes)
    {
        for (size_t n = 0; n < notes.size(); n++)
            for (size_t i = 0; i < notes[n].size(); i++)
                line(group, form, kErrorPosition, static_cast<int>(n), static_cast<int>(i), "@error",
                     fmt::format("text{}", i + 1), notes[n][i]);
    }
    void line(const std::string &group, const std::string &form, int position, int record, int fieldPosition,
              const std::string &block, const std::string &field, const std::string &value)
    {
        fmt::print(out_, "{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n", group, form, position, record, fieldPosition, block, field,
                   escape(value));
    }
    std::FILE *out_;
};

struct Entry {
    std::string group, form, block, field, value;
    int position = 0, record = 0, fieldPosition = 0;
    bool operator<(const Entry &o) const
    {
        return std::tie(position, record, fieldPosition) < std::tie(o.position, o.record, o.fieldPosition);
    }
};

class FlatReader {
public:
    explicit FlatReader(std::FILE *file) : file_(file) { advance(); }
    bool has() const { return has_; }
    const Entry &peek() const { return entry_; }
    long long offset() const { return offset_; }
    void advance()
    {
        offset_ = positionOf(file_);
        has_ = false;
        std::string line;
        int c;
        while ((c = std::getc(file_)) != EOF && c != '\n')
            line += static_cast<char>(c);
        if (line.empty())
            return;
        std::vector<std::string_view> parts;
        std::string_view rest(line);
        for (int i = 0; i < 7; i++) {
            size_t tab = rest.find('\t');
            parts.push_back(rest.substr(0, tab));
            rest.remove_prefix(tab + 1);
        }
        entry_ = {std::string(parts[0]), std::string(parts[1]), std::string(parts[5]), std::string(parts[6]),
                  unescape(rest), std::stoi(std::string(parts[2])), std::stoi(std::string(parts[3])),
                  std::stoi(std::string(parts[4]))};
        has_ = true;
    }
    void seek(long long offset)
    {
        seekTo(file_, offset);
        advance();
    }

private:
    std::FILE *file_;
    Entry entry_;
    bool has_ = false;
    long long offset_ = 0;
};

class Reporter {
public:
    Reporter(const DiffOptions &options) : json_(options.format == "jsonl"), enc_(parseEncoding(options.encoding)) {}
    int differences = 0;

    void onlyIn(const char *side, const std::string &group, const std::string &form)
    {
        differences++;
        if (json_)
            fmt::print("{{\"change\":\"only_in_{}\",\"document_{}\":{},\"form\":{}}}\n", side, side, group,
                       jsonString(form));
        else
            fmt::print("document {} ({}): only in {}\n", group, form, side == std::string("a") ? "A" : "B");
    }
    void formDiffers(const std::string &a, const std::string &b, const std::string &formA, const std::string &formB)
    {
        differences++;
        if (json_)
            fmt::print("{{\"change\":\"form\",\"document_a\":{},\"document_b\":{},\"form_a\":{},\"form_b\":{}}}\n", a,
                       b, jsonString(formA), jsonString(formB));
        else
            fmt::print("{}: form {} in A, {} in B\n", label(a, b), formA, formB);
    }
    void record(const char *change, const std::string &a, const std::string &b, const Entry &e)
    {
        differences++;
        if (json_)
            fmt::print("{{\"change\":\"{}\",{},\"form\":{},\"block\":{},\"record\":{}}}\n", change, docs(a, b),
                       jsonString(e.form), jsonString(e.block), e.record);
        else
            fmt::print("{}: block {} record {} only in {}\n", label(a, b, e.form), e.block, e.record,
                       change == std::string("record_only_in_a") ? "A" : "B");
    }
    void field(const std::string &a, const std::string &b, const Entry &ea, const Entry &eb)
    {
        differences++;
        std::string values;
        if (globalOptions.showValues)
            values = json_ ? fmt::format(",\"a\":{},\"b\":{}", shown(ea.value), shown(eb.value))
                           : fmt::format(": {} -> {}", shown(ea.value), shown(eb.value));
        if (json_)
            fmt::print("{{\"change\":\"field\",{},\"form\":{},\"block\":{},\"record\":{},\"field\":{}{}}}\n", docs(a, b),
                       jsonString(ea.form), jsonString(ea.block), ea.record, jsonString(ea.field), values);
        else
            fmt::print("{}: block {} record {} field {} differs{}\n", label(a, b, ea.form), ea.block, ea.record,
                       ea.field, values);
    }

private:
    std::string shown(const std::string &raw) const { return jsonString(toUtf8(trimRight(raw), enc_)); }
    static std::string label(const std::string &a, const std::string &b, const std::string &form = "")
    {
        std::string what = a == "H" ? "file header" : a == "F" ? "file footer" : a == b ? "document " + a : "document " + a + " (A) / " + b + " (B)";
        return form.empty() ? what : what + " (" + form + ")";
    }
    static std::string docs(const std::string &a, const std::string &b)
    {
        auto number = [](const std::string &g) { return g == "H" || g == "F" ? "0" : g; };
        return fmt::format("\"document_a\":{},\"document_b\":{}", number(a), number(b));
    }
    bool json_;
    Encoding enc_;
};

// Walks one group of each reader side by side.
void compareGroups(FlatReader &a, FlatReader &b, Reporter &report)
{
    std::string ga = a.peek().group, gb = b.peek().group;
    if (a.peek().form != b.peek().form) {
        report.formDiffers(ga, gb, a.peek().form, b.peek().form);
        while (a.has() && a.peek().group == ga)
            a.advance();
        while (b.has() && b.peek().group == gb)
            b.advance();
        return;
    }
    int lastA = -2, lastB = -2, lastRecordA = -1, lastRecordB = -1;
    for (;;) {
        bool hasA = a.has() && a.peek().group == ga, hasB = b.has() && b.peek().group == gb;
        if (!hasA && !hasB)
            return;
        if (hasA && hasB && !(a.peek() < b.peek()) && !(b.peek() < a.peek())) {
            if (a.peek().value != b.peek().value)
                report.field(ga, gb, a.peek(), b.peek());
            a.advance();
            b.advance();
        } else if (hasA && (!hasB || a.peek() < b.peek())) {
            const Entry &e = a.peek();
            if (e.position != lastA || e.record != lastRecordA)
                report.record("record_only_in_a", ga, gb, e);
            lastA = e.position;
            lastRecordA = e.record;
            a.advance();
        } else {
            const Entry &e = b.peek();
            if (e.position != lastB || e.record != lastRecordB)
                report.record("record_only_in_b", ga, gb, e);
            lastB = e.position;
            lastRecordB = e.record;
            b.advance();
        }
    }
}

struct Indexed {
    std::string group, form, key;
    long long offset;
};

std::vector<Indexed> indexGroups(std::FILE *file, const std::string &block, const std::string &field)
{
    std::vector<Indexed> groups;
    std::rewind(file);
    FlatReader reader(file);
    while (reader.has()) {
        const Entry &e = reader.peek();
        if (groups.empty() || groups.back().group != e.group)
            groups.push_back({e.group, e.form, "", reader.offset()});
        if (e.block == block && e.record == 0 && e.field == field)
            groups.back().key = std::string(trimRight(e.value));
        reader.advance();
    }
    return groups;
}

std::FILE *flatten(const std::string &path)
{
    std::FILE *file = std::tmpfile();
    if (file == nullptr)
        throw Failure(kExitUsage, "cannot create a temporary file");
    Flatten visitor(file);
    walkFile(path, visitor);
    if (std::fflush(file) != 0)
        throw Failure(kExitUsage, "cannot write a temporary file");
    std::rewind(file);
    return file;
}

} // namespace

int runDiff(const DiffOptions &options)
{
    if (options.format != "text" && options.format != "jsonl")
        throw Failure(kExitUsage, "--format must be text or jsonl");
    std::string keyBlock, keyField;
    if (!options.key.empty()) {
        size_t dot = options.key.find('.');
        if (dot == std::string::npos || dot == 0 || dot + 1 == options.key.size())
            throw Failure(kExitUsage, "--key must be BLOCK.FIELD");
        keyBlock = options.key.substr(0, dot);
        keyField = options.key.substr(dot + 1);
    }
    requireRegularFile(options.a);
    requireRegularFile(options.b);
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> fa(flatten(options.a), std::fclose);
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> fb(flatten(options.b), std::fclose);
    Reporter report(options);
    FlatReader a(fa.get()), b(fb.get());
    if (keyBlock.empty()) {
        // File order: the n-th document of A against the n-th of B. Both lists begin with the
        // group H and end with the group F, so the two walks meet again at F.
        while (a.has() && b.has()) {
            std::string ga = a.peek().group, gb = b.peek().group;
            bool docA = ga != "H" && ga != "F", docB = gb != "H" && gb != "F";
            if (docA == docB) {
                compareGroups(a, b, report);
                continue;
            }
            FlatReader &side = docA ? a : b;
            std::string g = side.peek().group;
            report.onlyIn(docA ? "a" : "b", g, side.peek().form);
            while (side.has() && side.peek().group == g)
                side.advance();
        }
    } else {
        auto ia = indexGroups(fa.get(), keyBlock, keyField);
        auto ib = indexGroups(fb.get(), keyBlock, keyField);
        std::unordered_multimap<std::string, size_t> byKey;
        for (size_t i = 0; i < ib.size(); i++)
            if (ib[i].group != "H" && ib[i].group != "F")
                byKey.emplace(ib[i].form + '\t' + ib[i].key, i);
        std::vector<bool> used(ib.size(), false);
        auto compareAt = [&](const Indexed &x, const Indexed &y) {
            a.seek(x.offset);
            b.seek(y.offset);
            compareGroups(a, b, report);
        };
        for (const auto &x : ia) {
            if (x.group == "H" || x.group == "F") {
                for (size_t i = 0; i < ib.size(); i++)
                    if (ib[i].group == x.group && !used[i]) {
                        used[i] = true;
                        compareAt(x, ib[i]);
                    }
                continue;
            }
            auto range = byKey.equal_range(x.form + '\t' + x.key);
            size_t match = ib.size();
            for (auto it = range.first; it != range.second; ++it)
                if (!used[it->second] && it->second < match)
                    match = it->second;
            if (match == ib.size()) {
                report.onlyIn("a", x.group, x.form);
                continue;
            }
            used[match] = true;
            compareAt(x, ib[match]);
        }
        for (size_t i = 0; i < ib.size(); i++)
            if (!used[i] && ib[i].group != "H" && ib[i].group != "F")
                report.onlyIn("b", ib[i].group, ib[i].form);
    }
    std::fflush(stdout);
    if (report.differences == 0 && options.format == "text")
        fmt::print("equal\n");
    return report.differences == 0 ? kExitOk : kExitInvalid;
}

} // namespace navo_cli
