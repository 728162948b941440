// read.cpp - example host in C++: loads a NAVO file through navo.hpp and prints every document.
// `read FILE` prints documents, blocks, fields and notes as UTF-8; `read --count FILE` reads every
// field the same way but prints only the totals (for timing).
#include <cstdio>
#include <cstring>
#include <string>

#include "navo.hpp"

int main(int argc, char **argv)
{
    const bool countOnly = argc == 3 && std::strcmp(argv[1], "--count") == 0;
    if (argc != 2 && !countOnly) {
        std::fprintf(stderr, "usage: %s [--count] FILE.navo\n", argv[0]);
        return 2;
    }
    long documents = 0, fields = 0;
    auto print = [&](const char *label, std::string_view bytes) {
        if (!countOnly)
            std::printf("    %-20s [%s]\n", label, navo::to_utf8(bytes).c_str());
    };
    navo::LoadResult result = navo::load(argv[argc - 1], [&](const navo::Document &doc) {
        documents++;
        if (!countOnly)
            std::printf("document %.*s #%d\n", static_cast<int>(doc.form().size()), doc.form().data(), doc.index());
        int n = 1;
        for (std::string_view line : doc.header())
            print(("line" + std::to_string(n++)).c_str(), line);
        for (const navo::Block &block : doc.definition().blocks) {
            for (int r = 0, records = doc.records(block.tag); r < records; r++) {
                if (!countOnly)
                    std::printf("  block %s record %d\n", block.tag.c_str(), r);
                for (const navo::Field &field : block.fields) {
                    std::string value = doc.field(block.tag, r, field.name);
                    fields++;
                    print(field.name.c_str(), value);
                }
            }
        }
        for (const navo::OcrNote &note : doc.ocr_notes())
            print(("OCR note kind " + std::to_string(note.kind)).c_str(), note.text[0]);
        for (const navo::ErrorNote &note : doc.error_notes())
            print("error note", note.text[0] + note.text[1] + note.text[2] + note.text[3]);
        if (!countOnly && doc.lines() > 0)
            std::fprintf(stderr, "\rprogress: %3d%%", static_cast<int>(doc.line() * 100LL / doc.lines()));
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
    return result ? 0 : 1;
}
