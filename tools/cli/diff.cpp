// diff.cpp - `navo diff`: two files compared document by document. Each file is read once with
// navo::load and its documents flattened into a scratch file, (place, value) a line; the two are
// then walked side by side, so that memory stays flat whatever the files' sizes.
#include <algorithm>
#include <array>
#include <tuple>
#include <unordered_map>

#include "commands.hpp"
#include "common.hpp"
#include "platform/scratch_file.hpp"
#include "progress.hpp"

namespace navo_cli {
namespace {

// Where an entry stands in its document: headers first, the blocks in the form's order, notes last.
constexpr int kHeaderPosition = -1;
constexpr int kOcrPosition = 1000000;
constexpr int kErrorPosition = 1000001;

struct Entry {
    int position = 0;  // the block's place in the form, or one of the above
    int record = 0;    // of the block or note, from 0
    int fieldPosition = 0;
    std::string block, field, value;

    auto order() const { return std::tie(position, record, fieldPosition); }
};

// A document of a flattened file: its entries lie at `offset` of the scratch file.
struct Group {
    int number = 0;  // from 1; 0 for the file's header and footer
    std::string form;
    std::string key;  // the value of --key, trailing blanks trimmed
    std::int64_t offset = 0;
    std::size_t entries = 0;
    bool footer = false;  // with number 0: the file's footer, else its header
};

std::string escape(std::string_view text)
{
    std::string out;
    for (const char c : text)
        out += c == '\\' ? "\\\\" : c == '\t' ? "\\t" : c == '\n' ? "\\n" : std::string(1, c);
    return out;
}

std::string unescape(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            const char next = text[++i];
            out += next == 't' ? '\t' : next == 'n' ? '\n' : next;
        } else {
            out += text[i];
        }
    }
    return out;
}

class ScratchFile {
public:
    ScratchFile() : file_(navo::platform::open_scratch_file())
    {
        if (file_ == nullptr)
            throw Failure(kExitUsage, "a scratch file cannot be made in the directory for temporary files");
    }
    ~ScratchFile() { std::fclose(file_); }
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;
    std::FILE *get() const { return file_; }

private:
    std::FILE *file_;
};

// One file flattened: its documents' entries in a scratch file, the header and notes in memory.
class Flat {
public:
    Flat(const std::string &path, const DiffOptions &options, bool noProgress)
    {
        navo::LoadOptions load;
        load.encoding = options.encoding;
        navo::LoadResult result;
        {
            ProgressBar bar(progress_terminal(noProgress), load_progress);
            result = navo::load(path, [&](const navo::Document &doc) { return add(doc, options); }, load);
            if (result)
                bar.finish();
        }
        if (!result)
            fail_load(path, result);
        if (std::fflush(scratch_.get()) != 0)
            throw Failure(kExitUsage, "the scratch file cannot be written");
        header_.push_back({kHeaderPosition, 0, 0, "@file", "version", result.version});
        for (std::size_t i = 0; i < result.file_header.size(); i++)
            header_.push_back({kHeaderPosition, 0, static_cast<int>(i) + 1, "@header", fmt::format("line{}", i + 1),
                               result.file_header[i]});
        errorNotes(footer_, result.file_notes);
    }

    const std::vector<Group> &groups() const { return groups_; }
    const std::vector<Entry> &header() const { return header_; }
    const std::vector<Entry> &footer() const { return footer_; }

    // The entries of a group, one at a time.
    class Reader {
    public:
        Reader(const Flat &flat, const Group &group) : file_(flat.scratch_.get()), left_(group.entries)
        {
            if (!navo::platform::seek_to(file_, group.offset))
                throw Failure(kExitUsage, "the scratch file cannot be read");
            advance();
        }
        Reader(const std::vector<Entry> &entries) : list_(&entries), left_(entries.size()) { advance(); }
        bool has() const { return has_; }
        const Entry &peek() const { return entry_; }
        void advance()
        {
            has_ = left_ > 0;
            if (!has_)
                return;
            left_--;
            if (list_ != nullptr) {
                entry_ = (*list_)[list_->size() - left_ - 1];
                return;
            }
            line_.clear();
            int c = 0;
            while ((c = std::getc(file_)) != EOF && c != '\n')
                line_ += static_cast<char>(c);
            std::string_view rest = line_;
            std::string_view parts[5];
            for (std::string_view &part : parts) {
                const std::size_t tab = std::min(rest.find('\t'), rest.size());
                part = rest.substr(0, tab);
                rest.remove_prefix(std::min(tab + 1, rest.size()));
            }
            entry_ = {std::stoi(std::string(parts[0])), std::stoi(std::string(parts[1])),
                      std::stoi(std::string(parts[2])), std::string(parts[3]), std::string(parts[4]), unescape(rest)};
        }

    private:
        std::FILE *file_ = nullptr;
        const std::vector<Entry> *list_ = nullptr;
        std::size_t left_;
        bool has_ = false;
        Entry entry_;
        std::string line_;
    };

private:
    bool add(const navo::Document &doc, const DiffOptions &options)
    {
        Group &group = groups_.emplace_back();
        group.number = doc.number();
        group.form = doc.form();
        group.offset = navo::platform::position_of(scratch_.get());
        // The key's block and field as the core finds them in this document's form.
        if (!options.keyBlock.empty()) {
            const navo::Block *block = doc.definition().block(options.keyBlock);
            const navo::Field *field = block != nullptr ? block->field(options.keyField) : nullptr;
            if (field != nullptr)
                group.key = trim_right(doc.field(*block, 0, *field));
        }
        const std::array<std::string, 14> header = doc.header();
        for (std::size_t i = 0; i < header.size(); i++)
            put(group, {kHeaderPosition, 0, static_cast<int>(i), "@header", fmt::format("line{}", i + 1), header[i]});
        const std::vector<navo::Block> &blocks = doc.definition().blocks;
        for (std::size_t p = 0; p < blocks.size(); p++) {
            const int count = doc.records(blocks[p]);
            for (int r = 0; r < count; r++) {
                doc.record(blocks[p], r, values_);
                for (std::size_t i = 0; i < values_.size(); i++)
                    put(group, {static_cast<int>(p), r, static_cast<int>(i), blocks[p].tag, blocks[p].fields[i].name,
                                values_[i]});
            }
        }
        int n = 0;
        for (const navo::OcrNote &note : doc.ocr_notes()) {
            put(group, {kOcrPosition, n, 0, "@ocr", "kind", std::to_string(note.kind)});
            for (std::size_t i = 0; i < note.text.size(); i++)
                put(group, {kOcrPosition, n, static_cast<int>(i) + 1, "@ocr", fmt::format("text{}", i + 1), note.text[i]});
            n++;
        }
        std::vector<Entry> errors;
        errorNotes(errors, doc.error_notes());
        for (Entry &entry : errors)
            put(group, std::move(entry));
        return true;
    }
    static void errorNotes(std::vector<Entry> &out, const std::vector<navo::ErrorNote> &notes)
    {
        for (std::size_t n = 0; n < notes.size(); n++) {
            for (std::size_t i = 0; i < notes[n].text.size(); i++)
                out.push_back({kErrorPosition, static_cast<int>(n), static_cast<int>(i), "@error",
                               fmt::format("text{}", i + 1), notes[n].text[i]});
        }
    }
    void put(Group &group, const Entry &entry)
    {
        fmt::print(scratch_.get(), "{}\t{}\t{}\t{}\t{}\t{}\n", entry.position, entry.record, entry.fieldPosition,
                   entry.block, entry.field, escape(entry.value));
        group.entries++;
    }

    ScratchFile scratch_;
    std::vector<Group> groups_;
    std::vector<Entry> header_;
    std::vector<Entry> footer_;
    std::vector<std::string> values_;
};

// Writes the differences, as text or JSON Lines, and counts them.
class Reporter {
public:
    Reporter(const DiffOptions &options, bool showValues)
        : json_(options.format == Report::jsonl), showValues_(showValues)
    {
    }
    int differences = 0;

    void only_in(char side, const Group &group)
    {
        if (json_)
            emit(fmt::format("{{\"change\":\"only_in_{}\",\"document_{}\":{},\"form\":{}}}", side, side, group.number,
                             json_string(group.form)));
        else
            emit(fmt::format("document {} ({}): only in {}", group.number, group.form, side == 'a' ? 'A' : 'B'));
    }
    void form(const Group &a, const Group &b)
    {
        if (json_)
            emit(fmt::format("{{\"change\":\"form\",\"document_a\":{},\"document_b\":{},\"form_a\":{},\"form_b\":{}}}",
                             a.number, b.number, json_string(a.form), json_string(b.form)));
        else
            emit(fmt::format("{}: form {} in A, {} in B", label(a, b, ""), a.form, b.form));
    }
    void record(char side, const Group &a, const Group &b, const Entry &entry)
    {
        if (json_)
            emit(fmt::format("{{\"change\":\"record_only_in_{}\",{},\"form\":{},\"block\":{},\"record\":{}}}", side,
                             documents(a, b), json_string(a.form), json_string(entry.block), entry.record));
        else
            emit(fmt::format("{}: block {} record {} only in {}", label(a, b, a.form), entry.block, entry.record,
                             side == 'a' ? 'A' : 'B'));
    }
    void field(const Group &a, const Group &b, const Entry &ea, const Entry &eb)
    {
        std::string values;
        if (showValues_)
            values = json_ ? fmt::format(",\"a\":{},\"b\":{}", shown(ea.value), shown(eb.value))
                           : fmt::format(": {} -> {}", shown(ea.value), shown(eb.value));
        if (json_)
            emit(fmt::format("{{\"change\":\"field\",{},\"form\":{},\"block\":{},\"record\":{},\"field\":{}{}}}",
                             documents(a, b), json_string(a.form), json_string(ea.block), ea.record,
                             json_string(ea.field), values));
        else
            emit(fmt::format("{}: block {} record {} field {} differs{}", label(a, b, a.form), ea.block, ea.record,
                             ea.field, values));
    }

private:
    void emit(const std::string &line)
    {
        differences++;
        if (!write_out(line + '\n'))
            output_failed();
    }
    static std::string shown(std::string_view value) { return json_string(trim_right(value)); }
    static std::string label(const Group &a, const Group &b, const std::string &form)
    {
        std::string what = a.number == 0          ? (a.footer ? "file footer" : "file header")
                           : a.number == b.number ? fmt::format("document {}", a.number)
                                                  : fmt::format("document {} (A) / {} (B)", a.number, b.number);
        return form.empty() ? what : what + " (" + form + ")";
    }
    static std::string documents(const Group &a, const Group &b)
    {
        return fmt::format("\"document_a\":{},\"document_b\":{}", a.number, b.number);
    }

    bool json_;
    bool showValues_;
};

// Walks two groups side by side: fields of one place that differ, records of only one side.
void compare(Flat::Reader a, Flat::Reader b, const Group &ga, const Group &gb, Reporter &report)
{
    if (ga.form != gb.form) {
        report.form(ga, gb);
        return;
    }
    std::tuple<int, int> lastA{-2, -1}, lastB{-2, -1};
    while (a.has() || b.has()) {
        if (a.has() && b.has() && a.peek().order() == b.peek().order()) {
            if (a.peek().value != b.peek().value)
                report.field(ga, gb, a.peek(), b.peek());
            a.advance();
            b.advance();
            continue;
        }
        const bool fromA = a.has() && (!b.has() || a.peek().order() < b.peek().order());
        Flat::Reader &side = fromA ? a : b;
        std::tuple<int, int> &last = fromA ? lastA : lastB;
        const std::tuple<int, int> at{side.peek().position, side.peek().record};
        if (at != last)
            report.record(fromA ? 'a' : 'b', ga, gb, side.peek());
        last = at;
        side.advance();
    }
}

}  // namespace

int run_diff(const DiffOptions &options, const Invocation &common)
{
    const Flat a(options.a, options, common.noProgress);
    const Flat b(options.b, options, common.noProgress);
    Reporter report(options, common.showValues);
    const Group fileHeader{};
    const Group fileFooter{0, "", "", 0, 0, true};
    compare(Flat::Reader(a.header()), Flat::Reader(b.header()), fileHeader, fileHeader, report);
    const auto &ga = a.groups();
    const auto &gb = b.groups();
    if (options.keyBlock.empty()) {
        // File order: the n-th document of A against the n-th of B.
        for (std::size_t i = 0; i < std::max(ga.size(), gb.size()); i++) {
            if (i < ga.size() && i < gb.size())
                compare(Flat::Reader(a, ga[i]), Flat::Reader(b, gb[i]), ga[i], gb[i], report);
            else if (i < ga.size())
                report.only_in('a', ga[i]);
            else
                report.only_in('b', gb[i]);
        }
    } else {
        // By key: each document of A against the first unmatched one of B of its form and key.
        std::unordered_multimap<std::string, std::size_t> byKey;
        for (std::size_t i = 0; i < gb.size(); i++)
            byKey.emplace(gb[i].form + '\t' + gb[i].key, i);
        std::vector<bool> used(gb.size(), false);
        for (const Group &x : ga) {
            const auto [first, last] = byKey.equal_range(x.form + '\t' + x.key);
            std::size_t match = gb.size();
            for (auto it = first; it != last; ++it) {
                if (!used[it->second])
                    match = std::min(match, it->second);
            }
            if (match == gb.size()) {
                report.only_in('a', x);
                continue;
            }
            used[match] = true;
            compare(Flat::Reader(a, x), Flat::Reader(b, gb[match]), x, gb[match], report);
        }
        for (std::size_t i = 0; i < gb.size(); i++) {
            if (!used[i])
                report.only_in('b', gb[i]);
        }
    }
    compare(Flat::Reader(a.footer()), Flat::Reader(b.footer()), fileFooter, fileFooter, report);
    if (report.differences == 0 && options.format == Report::text && !write_out("equal\n"))
        output_failed();
    return report.differences == 0 ? kExitOk : kExitInvalid;
}

}  // namespace navo_cli
