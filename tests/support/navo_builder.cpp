// navo_builder.cpp - builds NAVO file texts for the reader tests from the layouts of a definition.
#include "navo_builder.h"

namespace navo_test {

Layouts::Layouts(const char *definitionText)
{
    dk_Context *ctx = nullptr;
    dk_Init(&ctx);
    dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, definitionText);
    const dk_dfDefinition &def = ctx->definitions->items[0];
    for (int32_t f = 0; f < def.formCount; f++) {
        std::string name = ctx->dictionary->strings[def.forms[f].id];
        names_.push_back(name);
        std::vector<BlockLayout> &blocks = forms_[name];
        for (int32_t r = 0; r < def.forms[f].refCount; r++) {
            const dk_dfBlock &block = def.blocks[def.forms[f].refs[r].blockIndex];
            BlockLayout layout;
            layout.tag = ctx->dictionary->strings[block.tagId];
            layout.repeating = def.forms[f].refs[r].occurrence == -1;
            layout.recordLength = block.recordLength;
            for (int32_t k = 0; k < block.fieldCount; k++)
                layout.fields.emplace_back(ctx->dictionary->strings[block.fields[k].nameId], block.fields[k].width);
            blocks.push_back(layout);
        }
    }
    dk_InitDocuments(ctx, 1);
    dk_Destroy(&ctx);
}

Layouts::~Layouts() = default;

std::string fixed(const std::string &text, size_t width)
{
    std::string line = text.substr(0, width);
    line.resize(width, ' ');
    return line;
}

std::string sampleValue(int d, int b, int r, int f, int32_t width)
{
    std::string value = std::to_string(d) + "." + std::to_string(b) + "." + std::to_string(r) + "." + std::to_string(f);
    if (static_cast<int32_t>(value.size()) > width)
        value = value.substr(value.size() - static_cast<size_t>(width));
    return fixed(value, static_cast<size_t>(width));
}

std::string prologText(const std::string &version)
{
    return "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO " + version + "//PL'[\n<!ENTITY wersja '00" + version +
           "00' >\n<!ENTITY strona.kodowa 'ISO 8859-2' >]>\n";
}

std::string fileHeaderText()
{
    return "<NAVO>\n<naglowek.NAVO>\n" + fixed("H1", 51) + "\n" + fixed("H2", 8) + "\n" + fixed("H3", 24) + "\n" +
           fixed("H4", 24) + "\n" + fixed("H5", 32) + "\n</naglowek.NAVO>\n";
}

std::string docHeaderText(int d)
{
    const size_t widths[] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
    std::string text = "<naglowek.DP>\n";
    for (size_t i = 0; i < 14; i++) {
        std::string line(1, static_cast<char>('A' + d % 26));
        if (i < 11 || i > 12)
            line = std::string("D").append(std::to_string(i + 1)).append("/").append(std::to_string(d));
        text += fixed(line, widths[i]) + "\n";
    }
    return text + "</naglowek.DP>\n";
}

std::string element(const BlockLayout &block, const std::vector<std::string> &values)
{
    std::string text = "<" + block.tag + ">\n";
    for (const std::string &value : values)
        text += value + "\n";
    return text + "</" + block.tag + ">\n";
}

std::string sectionText(const Layouts &layouts, const std::string &form, int d, const std::vector<int> &records,
                        const std::string &footer)
{
    const std::vector<BlockLayout> &blocks = layouts.form(form);
    std::string text = "<" + form + ".DP>\n" + docHeaderText(d) + "<" + form + ">\n";
    for (size_t b = 0; b < blocks.size(); b++) {
        int count = b < records.size() ? records[b] : 1;
        for (int r = 0; r < count; r++) {
            std::vector<std::string> values;
            for (size_t f = 0; f < blocks[b].fields.size(); f++)
                values.push_back(sampleValue(d, static_cast<int>(b), r, static_cast<int>(f), blocks[b].fields[f].second));
            text += element(blocks[b], values);
        }
    }
    return text + "</" + form + ">\n<stopka.DP>\n" + footer + "</stopka.DP>\n</" + form + ".DP>\n";
}

std::string fileText(const std::string &version, const std::string &sections, const std::string &fileNotes)
{
    return prologText(version) + fileHeaderText() + sections + "<stopka.NAVO>\n" + fileNotes + "</stopka.NAVO>\n</NAVO>\n";
}

std::string toCrLf(const std::string &lfText)
{
    std::string out;
    for (char c : lfText) {
        if (c == '\n')
            out += '\r';
        out += c;
    }
    return out;
}

}  // namespace navo_test
