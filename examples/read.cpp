// read.cpp - example host in C++: loads a NAVO file through navo.hpp and prints every document.
// `read FILE` prints documents, blocks, fields and notes as UTF-8; `read --count FILE` reads every
// field the same way but prints only the totals (for timing).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "navo.hpp"

int main(int argc, char **argv)
{
    const bool countOnly = argc == 3 && std::strcmp(argv[1], "--count") == 0;
    if (argc != 2 && !countOnly) {
        std::fprintf(stderr, "usage: %s [--count] FILE.navo\n", argv[0]);
        return 2;
    }
    long documents = 0, fields = 0;
    auto print = [&](const std::string &label, const std::string &value) {
        if (!countOnly)
            std::printf("    %-20s [%s]\n", label.c_str(), value.c_str());
    };
    std::vector<std::string> values;  // one record's values, reused record after record
    navo::LoadResult result = navo::load(argv[argc - 1], [&](const navo::Document &doc) {
        documents++;
        if (!countOnly)
            std::printf("document %d: form %.*s\n", doc.number(), static_cast<int>(doc.form().size()),
                        doc.form().data());
        int n = 1;
        for (const std::string &line : doc.header())
            print("line" + std::to_string(n++), line);
        for (const navo::Block &block : doc.definition().blocks) {
            for (int r = 0, records = doc.records(block); r < records; r++) {
                std::error_code ec;
                doc.record(block, r, values, ec);
                if (ec)
                    throw std::system_error(ec, "block " + block.tag);
                fields += static_cast<long>(values.size());
                if (countOnly)
                    continue;
                std::printf("  block %s record %d\n", block.tag.c_str(), r);
                for (std::size_t i = 0; i < values.size(); i++)
                    print(block.fields[i].name, values[i]);
            }
        }
        for (const navo::OcrNote &note : doc.ocr_notes())
            print("OCR note kind " + std::to_string(note.kind), note.text[0]);
        for (const navo::ErrorNote &note : doc.error_notes())
            print("error note", note.text[0] + note.text[1] + note.text[2] + note.text[3]);
        if (const navo::Progress at = navo::progress(); !countOnly && at.lines > 0)
            std::fprintf(stderr, "\rprogress: %3d%%", static_cast<int>(at.line * 100LL / at.lines));
        return true;
    });
    if (!countOnly) {
        std::fprintf(stderr, "\n");
        std::printf("file header: [%s] [%s]\n", result.file_header[0].c_str(), result.file_header[1].c_str());
        for (const navo::ErrorNote &note : result.file_notes)
            std::printf("file error note: [%s] [%s] [%s] [%s]\n", note.text[0].c_str(), note.text[1].c_str(),
                        note.text[2].c_str(), note.text[3].c_str());
    }
    std::printf("%ld documents, %ld fields; %s (%d: %s / %s), line %d of %d\n", documents, fields,
                result ? "done" : result.outcome == navo::outcome::stopped ? "stopped" : "failed",
                result.code.value(), result.code.message().c_str(), navo::english(result.code).c_str(), result.line,
                result.lines);
    if (result.fault) {
        const std::string where = result.fault->place.describe();
        std::printf("fault: %s%s%s\n", where.c_str(), where.empty() ? "" : "; ", result.fault->detail.c_str());
    }
    return result ? 0 : 1;
}
