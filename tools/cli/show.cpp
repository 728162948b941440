// show.cpp - `navo show`: a file's documents in words, as navo::load hands them out.
#include <algorithm>
#include <array>

#include "commands.hpp"
#include "common.hpp"
#include "progress.hpp"

namespace navo_cli {
namespace {

// A value in quotes with its trailing blanks counted, so that padding is plain to see.
std::string shown(std::string_view value)
{
    const std::string_view kept = trim_right(value);
    const std::size_t blanks = value.size() - kept.size();
    if (kept.empty())
        return fmt::format("(blank, {} character{})", value.size(), value.size() == 1 ? "" : "s");
    const std::string text = fmt::format("\"{}\"", kept);
    return blanks == 0 ? text : fmt::format("{} + {} blank{}", text, blanks, blanks == 1 ? "" : "s");
}

template <class Texts>
void lines(std::string &out, const Texts &texts, const char *name)
{
    std::size_t i = 0;
    for (const std::string &text : texts)
        out += fmt::format("    {:<8}{}\n", fmt::format("{}{}", name, ++i), shown(text));
}

class Shower {
public:
    explicit Shower(const ShowOptions &options) : options_(options) {}

    bool document(const navo::Document &doc)
    {
        if (!begun_)
            begin(doc.version(), doc.file_header());
        if (options_.doc > 0 && doc.number() != options_.doc)
            return true;
        if (!options_.form.empty() && !is_form(doc))
            return true;
        shownDocuments_++;
        std::string out = fmt::format("\nDocument {}: form {}\n", doc.number(), doc.form());
        const navo::Block *only = nullptr;
        if (!options_.block.empty()) {
            only = doc.definition().block(options_.block);
        } else {
            out += "  Header:\n";
            lines(out, doc.header(), "line");
        }
        std::vector<std::string> values;
        for (const navo::Block &block : doc.definition().blocks) {
            if (!options_.block.empty() && &block != only)
                continue;
            const int count = doc.records(block);
            std::size_t width = 0;
            for (const navo::Field &field : block.fields)
                width = std::max(width, field.name.size());
            for (int r = 0; r < count; r++) {
                doc.record(block, r, values);
                if (block.repeating)
                    out += fmt::format("  Block {} record {} of 0-{} ({}):\n", block.tag, r, count - 1, block.name);
                else
                    out += fmt::format("  Block {} ({}):\n", block.tag, block.name);
                for (std::size_t i = 0; i < block.fields.size(); i++)
                    out += fmt::format("    {:<{}}  {}\n", block.fields[i].name, width, shown(values[i]));
                flush(out);
            }
        }
        if (options_.block.empty()) {
            int n = 0;
            for (const navo::OcrNote &note : doc.ocr_notes()) {
                out += fmt::format("  OCR note {} <OCR.{}>:\n", n++, navo::ocr_kind_letters(note.kind));
                lines(out, note.text, "text");
            }
            n = 0;
            for (const navo::ErrorNote &note : doc.error_notes()) {
                out += fmt::format("  Error note {} <BLAD>:\n", n++);
                lines(out, note.text, "text");
            }
        }
        flush(out);
        // With --doc, the file's rest is not read.
        return options_.doc == 0 || doc.number() < options_.doc;
    }

    void end(const navo::LoadResult &result)
    {
        if (!begun_)
            begin(result.version, result.file_header);
        std::string out;
        if (!filtered()) {
            int n = 0;
            for (const navo::ErrorNote &note : result.file_notes) {
                out += fmt::format("\nFile error note {} <BLAD>:\n", n++);
                lines(out, note.text, "text");
            }
        } else if (shownDocuments_ == 0) {
            out += "\n(no document matches)\n";
        }
        flush(out);
    }

private:
    bool filtered() const { return !options_.form.empty() || options_.doc > 0 || !options_.block.empty(); }
    // The core matches the names: the document's form is the one --form names in its definition.
    bool is_form(const navo::Document &doc) const
    {
        return navo::schema(doc.version()).form(options_.form) == &doc.definition();
    }
    void begin(std::string_view version, const std::array<std::string, 5> &header)
    {
        begun_ = true;
        std::string out = fmt::format("File {}\nDefinition version {}\n", options_.file, version);
        if (!filtered()) {
            out += "File header:\n";
            lines(out, header, "line");
        }
        flush(out);
    }
    static void flush(std::string &out)
    {
        if (!write_out(out))
            output_failed();
        out.clear();
    }

    const ShowOptions &options_;
    bool begun_ = false;
    int shownDocuments_ = 0;
};

}  // namespace

int run_show(const ShowOptions &options, const Invocation &common)
{
    Shower shower(options);
    navo::LoadOptions load;
    load.encoding = options.encoding;
    navo::LoadResult result;
    {
        ProgressBar bar(progress_terminal(common.noProgress), load_progress);
        result = navo::load(options.file, [&](const navo::Document &doc) { return shower.document(doc); }, load);
        if (result)
            bar.finish();
    }
    if (result.outcome == navo::outcome::failed)
        fail_load(options.file, result);
    shower.end(result);
    return kExitOk;
}

}  // namespace navo_cli
