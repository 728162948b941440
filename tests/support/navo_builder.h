// navo_builder.h - builds NAVO file texts for the reader tests, independently of the library's writer.
#ifndef NAVO_TEST_NAVO_BUILDER_H
#define NAVO_TEST_NAVO_BUILDER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "navo.h"

namespace navo_test {

// The layout of one block of the embedded definition, as the tests see it.
struct BlockLayout {
    std::string tag;
    bool repeating = false;
    int32_t recordLength = 0;
    std::vector<std::pair<std::string, int32_t>> fields;  // name, width
};

// The forms of an embedded definition: name -> blocks in reference order.
class Layouts {
public:
    explicit Layouts(const char *definitionText);
    ~Layouts();
    Layouts(const Layouts &) = delete;
    Layouts &operator=(const Layouts &) = delete;
    const std::vector<BlockLayout> &form(const std::string &name) const { return forms_.at(name); }
    const std::vector<std::string> &formNames() const { return names_; }
private:
    std::map<std::string, std::vector<BlockLayout>> forms_;
    std::vector<std::string> names_;
};

// A line of `width` characters: `text` cut or filled with blanks.
std::string fixed(const std::string &text, size_t width);

// A deterministic field value of full width for document d, block b, record r, field f.
std::string sampleValue(int d, int b, int r, int f, int32_t width);

// The three prolog lines of a version ("1.3", "1.2") and "<NAVO>" + the file header element
// with five lines of full width.
std::string prologText(const std::string &version);
std::string fileHeaderText();
std::string docHeaderText(int d);

// One block element: <T>, one line per field, </T>.
std::string element(const BlockLayout &block, const std::vector<std::string> &values);

// One section of form `form` with document number d, `records[b]` records of block b (1 for a
// single block), sample values, and `footer` (notes) inside <stopka.DP>.
std::string sectionText(const Layouts &layouts, const std::string &form, int d, const std::vector<int> &records,
                        const std::string &footer = "");

// A whole file: prolog, header, `sections`, file footer with `fileNotes`, </NAVO>.
std::string fileText(const std::string &version, const std::string &sections, const std::string &fileNotes = "");

std::string toCrLf(const std::string &lfText);

}  // namespace navo_test

#endif
