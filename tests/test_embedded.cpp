// test_embedded.cpp - the embedded definition texts 1.2 and 1.3: versions, forms and blocks.
//
// The expectations come from tests/data/embedded_expectations.txt, which
// lists every form and block of both versions as data, kept apart from the .def texts that
// make the embedded texts (see tests/data/README.md). Nothing here is read back from the embedded
// text itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"

#include "core/dictionary.hpp"

namespace {

// ---- the expectations file ---------------------------------------------------------------

struct ExpField {
    std::string name;
    int32_t width = 0;
    std::string type;  // CP1250 bytes
};

struct ExpBlock {
    int index = 0;
    std::string tag;
    std::string name;
    int32_t recordLength = 0;
    int32_t fieldCount = 0;
    std::vector<ExpField> fields;
};

struct ExpForm {
    int32_t id = 0;
    std::string name;
    int32_t fieldTotal = 0;
    std::vector<std::pair<std::string, int32_t>> refs;  // block name, occurrence mark
};

struct Expectations {
    std::map<std::string, long> counts;
    long lines = 0;
    std::vector<ExpForm> forms;
    std::vector<ExpBlock> blocks;
    std::string v12Block, v12Field;
    int32_t v12Width = 0, v12RecordLength = 0;

    const ExpBlock &blockByName(const std::string &name) const
    {
        for (const ExpBlock &block : blocks)
            if (block.name == name)
                return block;
        ADD_FAILURE() << "no block " << name << " in the expectations";
        return none();
    }
    static const ExpBlock &none()
    {
        static const ExpBlock empty;
        return empty;
    }
};

std::string unescape(const std::string &text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '%' && i + 2 < text.size()) {
            out.push_back(static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

std::vector<std::string> splitOn(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream stream(text);
    while (std::getline(stream, part, separator))
        parts.push_back(part);
    return parts;
}

// The expectations in version 1.3 (as the tables give them) or 1.2 (with the one change).
Expectations loadExpectations(const std::string &version)
{
    Expectations exp;
    const std::string path = std::string(NAVO_TEST_DATA_DIR) + "/embedded_expectations.txt";
    const std::string content = navo_test::readFile(path);
    if (content.empty())
        ADD_FAILURE() << "cannot read " << path;
    std::istringstream in(content);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        if (kind == "COUNT") {
            std::string key;
            long value = 0;
            words >> key >> value;
            exp.counts[key] = value;
        } else if (kind == "LINES") {
            words >> exp.lines;
        } else if (kind == "FORM") {
            ExpForm form;
            size_t refCount = 0;
            words >> form.id >> form.name >> form.fieldTotal >> refCount;
            std::string ref;
            while (words >> ref) {
                size_t colon = ref.rfind(':');
                form.refs.emplace_back(ref.substr(0, colon), std::stoi(ref.substr(colon + 1)));
            }
            EXPECT_EQ(refCount, form.refs.size()) << line;
            exp.forms.push_back(form);
        } else if (kind == "BLOCK") {
            ExpBlock block;
            words >> block.index >> block.tag >> block.name >> block.recordLength >> block.fieldCount;
            std::string field;
            while (words >> field) {
                std::vector<std::string> parts = splitOn(field, ':');
                EXPECT_EQ(3u, parts.size()) << field;
                if (parts.size() == 3)
                    block.fields.push_back({parts[0], std::stoi(parts[1]), unescape(parts[2])});
            }
            exp.blocks.push_back(block);
        } else if (kind == "V12") {
            words >> exp.v12Block >> exp.v12Field >> exp.v12Width >> exp.v12RecordLength;
        } else {
            ADD_FAILURE() << "unknown line in the expectations: " << line;
        }
    }
    if (version == "1.2") {
        int changed = 0;
        for (ExpBlock &block : exp.blocks) {
            if (block.name != exp.v12Block)
                continue;
            block.recordLength = exp.v12RecordLength;
            for (ExpField &field : block.fields)
                if (field.name == exp.v12Field) {
                    field.width = exp.v12Width;
                    changed++;
                }
        }
        EXPECT_EQ(1, changed);
    }
    return exp;
}

const Expectations &expectations(const std::string &version)
{
    static const Expectations v13 = loadExpectations("1.3");
    static const Expectations v12 = loadExpectations("1.2");
    return version == "1.2" ? v12 : v13;
}

// ---- texts and loads ---------------------------------------------------------------------

const char *textOf(const std::string &version)
{
    return version == "1.2" ? GetDefTXT_1_2() : GetDefTXT_1_3();
}

std::string otherVersion(const std::string &version)
{
    return version == "1.2" ? "1.3" : "1.2";
}

// The lines of a text without their LF; the text ends with an LF (checked elsewhere).
std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// A fresh dictionary as dk_Init makes it (400 buckets) and an empty definition list.
class Loaded {
public:
    Loaded()
    {
        EXPECT_EQ(1, dk_sdInit(&dictionary, navo::dictionary::context_buckets));
        EXPECT_EQ(1, dk_dfInit(&list));
    }
    ~Loaded()
    {
        dk_dfDestroy(&list);
        dk_sdDestroy(&dictionary);
    }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;

    int32_t load(const char *text) { return dk_dfLoadDefinition(list, dictionary, text); }
    const dk_dfDefinition &definition(int32_t index = 0) const { return list->items[index]; }
    int32_t id(const std::string &name) const
    {
        int32_t out = -1;
        EXPECT_EQ(1, dk_sdGetID(dictionary, name.c_str(), &out)) << name << " is not interned";
        return out;
    }
    std::string name(int32_t id) const
    {
        if (id < 0 || id >= dictionary->count || dictionary->strings[id] == nullptr)
            return "<no string " + std::to_string(id) + ">";
        return dictionary->strings[id];
    }
    std::vector<std::string> strings() const
    {
        std::vector<std::string> out;
        for (int32_t i = 0; i < dictionary->count; i++)
            out.push_back(dictionary->strings[i] ? dictionary->strings[i] : "<null>");
        return out;
    }

    dk_sdDictionary *dictionary = nullptr;
    dk_dfDefinitionList *list = nullptr;
};

// Index of the block with the given tag in a loaded definition, or -1.
int32_t blockIndexOfTag(const dk_dfDefinition &definition, int32_t tagId)
{
    for (int32_t i = 0; i < definition.blockCount; i++)
        if (definition.blocks[i].tagId == tagId)
            return i;
    return -1;
}

class EmbeddedVersion : public ::testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Versions, EmbeddedVersion, ::testing::Values("1.2", "1.3"),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             return info.param == "1.2" ? std::string("V1_2") : std::string("V1_3");
                         });

// ---- the bytes of the texts ----------------------------------------------------------------

TEST(EmbeddedText, FunctionsReturnTheSameConstantTextEachTime)
{
    ASSERT_NE(nullptr, GetDefTXT_1_2());
    ASSERT_NE(nullptr, GetDefTXT_1_3());
    EXPECT_EQ(GetDefTXT_1_2(), GetDefTXT_1_2());
    EXPECT_EQ(GetDefTXT_1_3(), GetDefTXT_1_3());
    EXPECT_NE(GetDefTXT_1_2(), GetDefTXT_1_3());
}

// The build embeds the checked-in definition files byte for byte, with nothing re-encoded.
TEST_P(EmbeddedVersion, TextIsTheCheckedInDefinitionFile)
{
    const std::string file =
        navo_test::readFile(std::string(NAVO_SOURCE_DIR) + "/definitions/navo-" + GetParam() + ".def");
    EXPECT_TRUE(file == textOf(GetParam()));
}

TEST_P(EmbeddedVersion, TextBeginsWithVersionLineAndEmptyLine)
{
    const std::string text = textOf(GetParam());
    EXPECT_EQ("Wersja " + GetParam() + "\n\n[TOBZUA, TOBZUA]\n", text.substr(0, 29));
}

TEST_P(EmbeddedVersion, TextHas1549LinesEndsWithLfAndNul)
{
    const Expectations &exp = expectations(GetParam());
    const char *raw = textOf(GetParam());
    const std::string text = raw;
    ASSERT_FALSE(text.empty());
    EXPECT_EQ('\n', text.back());
    EXPECT_EQ('\0', raw[text.size()]);
    EXPECT_NE('\n', text[text.size() - 2]) << "the text ends with the last field line, no empty line";
    EXPECT_EQ(1549, exp.lines);
    EXPECT_EQ(exp.lines, std::count(text.begin(), text.end(), '\n'));
    EXPECT_EQ(std::string::npos, text.find('\r'));
    // Each text is about 42 KB; every line fits the loader's 200-byte buffer with its NUL.
    EXPECT_GT(text.size(), 40000u);
    EXPECT_LT(text.size(), 44000u);
    for (const std::string &line : linesOf(text))
        EXPECT_LE(line.size() + 1, 199u) << line;
}

// The layout rules of a definition text, applied to the tables of the expectations file, give
// exactly the bytes of the embedded text.
TEST_P(EmbeddedVersion, TextIsExactlyWhatTheRulesMakeOfTheTables)
{
    const Expectations &exp = expectations(GetParam());
    std::string built = "Wersja " + GetParam() + "\n\n";
    for (const ExpForm &form : exp.forms) {
        built += "[" + form.name + ", " + form.name + "]\n";
        for (const auto &ref : form.refs)
            built += ref.first + ", 1, " + std::to_string(ref.second) + "\n";
        built += "\n";
    }
    for (size_t i = 0; i < exp.blocks.size(); i++) {
        const ExpBlock &block = exp.blocks[i];
        built += "<" + block.name + ", " + block.tag + ">\n";
        for (const ExpField &field : block.fields)
            built += field.name + ", " + std::to_string(field.width) + ", " + field.type + "\n";
        if (i + 1 != exp.blocks.size())
            built += "\n";
    }
    const std::string text = textOf(GetParam());
    EXPECT_EQ(built.size(), text.size());
    const std::vector<std::string> expected = linesOf(built), actual = linesOf(text);
    ASSERT_EQ(expected.size(), actual.size());
    for (size_t i = 0; i < expected.size(); i++)
        EXPECT_EQ(expected[i], actual[i]) << "line " << (i + 1);
    EXPECT_TRUE(built == text);
}

TEST_P(EmbeddedVersion, TypeNamesAreCp1250Bytes)
{
    const std::string text = textOf(GetParam());
    // t_miejscowość in CP1250: s-acute is 0x9C, c-acute is 0xE6; no UTF-8 (0xC5 0x9B, 0xC4 0x87).
    const std::string cp1250 = "t_miejscowo\x9c\xe6";
    size_t count = 0;
    for (size_t at = text.find(cp1250); at != std::string::npos; at = text.find(cp1250, at + 1))
        count++;
    EXPECT_EQ(9u, count);
    std::set<unsigned char> high;
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            high.insert(static_cast<unsigned char>(c));
    EXPECT_EQ((std::set<unsigned char>{0x9c, 0xe6}), high);
    EXPECT_EQ(std::string::npos, text.find("\xc5\x9b"));
    EXPECT_EQ(std::string::npos, text.find("\xc4\x87"));
}

TEST(EmbeddedText, TheTwoTextsDifferInExactlyTwoLines)
{
    const Expectations &exp = expectations("1.3");
    const std::vector<std::string> v12 = linesOf(GetDefTXT_1_2()), v13 = linesOf(GetDefTXT_1_3());
    ASSERT_EQ(v12.size(), v13.size());
    std::vector<size_t> differing;
    for (size_t i = 0; i < v12.size(); i++)
        if (v12[i] != v13[i])
            differing.push_back(i);
    ASSERT_EQ(2u, differing.size());
    EXPECT_EQ(0u, differing[0]);
    EXPECT_EQ("Wersja 1.2", v12[0]);
    EXPECT_EQ("Wersja 1.3", v13[0]);
    const size_t at = differing[1];
    EXPECT_EQ("StopaProcSklWypadk, 3, t_procent_3", v12[at]);
    EXPECT_EQ("StopaProcSklWypadk, 4, t_procent_3", v13[at]);
    EXPECT_EQ(exp.v12Field + ", " + std::to_string(exp.v12Width) + ", t_procent_3", v12[at]);
    // The line belongs to InneInform_DRABlf (tag INN7), as its last field.
    size_t header = at;
    while (header > 0 && (v13[header].empty() || v13[header][0] != '<'))
        header--;
    EXPECT_EQ("<" + exp.v12Block + ", INN7>", v13[header]);
    EXPECT_TRUE(v13[at + 1].empty());
}

TEST(EmbeddedText, DistinctTypeNamesCountedFromTheText)
{
    // The loader does not read type names, so they are counted from the field lines.
    for (const char *raw : {GetDefTXT_1_2(), GetDefTXT_1_3()}) {
        const std::vector<std::string> lines = linesOf(raw);
        std::set<std::string> types, fieldNames;
        size_t fieldLines = 0;
        bool inBlocks = false;
        for (size_t i = 2; i < lines.size(); i++) {
            if (!lines[i].empty() && lines[i][0] == '<') {
                inBlocks = true;
                continue;
            }
            if (!inBlocks || lines[i].empty())
                continue;
            std::vector<std::string> columns = splitOn(lines[i], ',');
            ASSERT_EQ(3u, columns.size()) << lines[i];
            fieldNames.insert(columns[0]);
            types.insert(columns[2]);
            fieldLines++;
        }
        EXPECT_EQ(expectations("1.3").counts.at("typenames"), static_cast<long>(types.size()));
        EXPECT_EQ(103u, types.size());
        EXPECT_EQ(344u, fieldNames.size());
        EXPECT_EQ(992u, fieldLines);
    }
}

// ---- the expectations themselves -------------------------------------------------------------

TEST(EmbeddedExpectations, TheDataFileHoldsTheWholeTables)
{
    const Expectations &exp = expectations("1.3");
    EXPECT_EQ(40, exp.counts.at("forms"));
    EXPECT_EQ(248, exp.counts.at("refs"));
    EXPECT_EQ(114, exp.counts.at("blocks"));
    EXPECT_EQ(992, exp.counts.at("fields"));
    EXPECT_EQ(344, exp.counts.at("fieldnames"));
    EXPECT_EQ(103, exp.counts.at("typenames"));
    EXPECT_EQ(static_cast<size_t>(exp.counts.at("forms")), exp.forms.size());
    EXPECT_EQ(static_cast<size_t>(exp.counts.at("blocks")), exp.blocks.size());
    size_t refs = 0, fields = 0;
    for (size_t i = 0; i < exp.forms.size(); i++) {
        EXPECT_EQ(static_cast<int32_t>(i), exp.forms[i].id);
        refs += exp.forms[i].refs.size();
    }
    for (size_t i = 0; i < exp.blocks.size(); i++) {
        EXPECT_EQ(static_cast<int>(i), exp.blocks[i].index);
        EXPECT_EQ(static_cast<size_t>(exp.blocks[i].fieldCount), exp.blocks[i].fields.size())
            << exp.blocks[i].name;
        fields += exp.blocks[i].fields.size();
    }
    EXPECT_EQ(static_cast<size_t>(exp.counts.at("refs")), refs);
    EXPECT_EQ(static_cast<size_t>(exp.counts.at("fields")), fields);
    EXPECT_EQ("InneInform_DRABlf", exp.v12Block);
    EXPECT_EQ("StopaProcSklWypadk", exp.v12Field);
    EXPECT_EQ(3, exp.v12Width);
    EXPECT_EQ(18, exp.v12RecordLength);
}

// ---- loading the texts -----------------------------------------------------------------------

TEST_P(EmbeddedVersion, LoadsIntoFreshDictionaryWithFormIds0To39And498Strings)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    ASSERT_EQ(1, loaded.list->count);
    const dk_dfDefinition &definition = loaded.definition();
    EXPECT_STREQ(GetParam().c_str(), definition.name);
    EXPECT_EQ(498, loaded.dictionary->count);
    ASSERT_EQ(40, definition.formCount);
    ASSERT_EQ(114, definition.blockCount);
    const Expectations &exp = expectations(GetParam());
    ASSERT_EQ(40u, exp.forms.size());
    for (int32_t i = 0; i < definition.formCount; i++) {
        EXPECT_EQ(i, definition.forms[i].id);
        EXPECT_EQ(exp.forms[static_cast<size_t>(i)].name, loaded.name(i));
    }
    EXPECT_EQ(0, loaded.id("TOBZUA"));
    EXPECT_EQ(39, loaded.id("TOBRGB"));
    EXPECT_EQ(40, definition.blocks[0].tagId);
    EXPECT_EQ("ADKP", loaded.name(40));

    int32_t refs = 0, fields = 0;
    std::set<int32_t> nameIds, tagIds;
    for (int32_t f = 0; f < definition.formCount; f++)
        refs += definition.forms[f].refCount;
    for (int32_t b = 0; b < definition.blockCount; b++) {
        const dk_dfBlock &block = definition.blocks[b];
        tagIds.insert(block.tagId);
        fields += block.fieldCount;
        for (int32_t i = 0; i < block.fieldCount; i++)
            nameIds.insert(block.fields[i].nameId);
    }
    EXPECT_EQ(exp.counts.at("refs"), refs);
    EXPECT_EQ(exp.counts.at("fields"), fields);
    EXPECT_EQ(exp.counts.at("fieldnames"), static_cast<long>(nameIds.size()));
    EXPECT_EQ(114u, tagIds.size());
    // No name in two of the roles form name, tag and field name: 40 + 114 + 344 = 498. Tags and
    // field names share the IDs 40..497 in order of first appearance.
    std::set<int32_t> both = tagIds;
    both.insert(nameIds.begin(), nameIds.end());
    EXPECT_EQ(tagIds.size() + nameIds.size(), both.size());
    EXPECT_EQ(40, *both.begin());
    EXPECT_EQ(497, *both.rbegin());
    EXPECT_EQ(498u, 40u + both.size());
}

TEST_P(EmbeddedVersion, LoadingTheOtherTextAfterwardsAddsNoStringAndChangesNoId)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const std::vector<std::string> before = loaded.strings();
    ASSERT_EQ(498u, before.size());
    ASSERT_EQ(1, loaded.load(textOf(otherVersion(GetParam()))));
    ASSERT_EQ(2, loaded.list->count);
    EXPECT_EQ(before, loaded.strings());
    const dk_dfDefinition &first = loaded.definition(0), &second = loaded.definition(1);
    EXPECT_STREQ(GetParam().c_str(), first.name);
    EXPECT_STREQ(otherVersion(GetParam()).c_str(), second.name);
    ASSERT_EQ(first.formCount, second.formCount);
    ASSERT_EQ(first.blockCount, second.blockCount);
    for (int32_t f = 0; f < first.formCount; f++) {
        EXPECT_EQ(f, second.forms[f].id);
        ASSERT_EQ(first.forms[f].refCount, second.forms[f].refCount);
        for (int32_t r = 0; r < first.forms[f].refCount; r++) {
            EXPECT_EQ(first.forms[f].refs[r].blockIndex, second.forms[f].refs[r].blockIndex);
            EXPECT_EQ(first.forms[f].refs[r].occurrence, second.forms[f].refs[r].occurrence);
        }
    }
    int widthDifferences = 0;
    for (int32_t b = 0; b < first.blockCount; b++) {
        EXPECT_EQ(first.blocks[b].tagId, second.blocks[b].tagId);
        ASSERT_EQ(first.blocks[b].fieldCount, second.blocks[b].fieldCount);
        for (int32_t i = 0; i < first.blocks[b].fieldCount; i++) {
            EXPECT_EQ(first.blocks[b].fields[i].nameId, second.blocks[b].fields[i].nameId);
            EXPECT_EQ(first.blocks[b].fields[i].offset, second.blocks[b].fields[i].offset);
            if (first.blocks[b].fields[i].width != second.blocks[b].fields[i].width) {
                widthDifferences++;
                EXPECT_EQ("INN7", loaded.name(first.blocks[b].tagId));
                EXPECT_EQ("StopaProcSklWypadk", loaded.name(first.blocks[b].fields[i].nameId));
            }
        }
    }
    EXPECT_EQ(1, widthDifferences);
    // The same text a second time is refused and leaves list and dictionary as they were.
    EXPECT_EQ(0, loaded.load(textOf(GetParam())));
    EXPECT_EQ(2, loaded.list->count);
    EXPECT_EQ(before, loaded.strings());
}

// Every form: its blocks in order (compared by tag, through blockIndex), the occurrence marks,
// the position map, and the field count of the expectations file.
TEST_P(EmbeddedVersion, EveryFormHasTheBlocksOfTheTable)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const Expectations &exp = expectations(GetParam());
    ASSERT_EQ(exp.forms.size(), static_cast<size_t>(definition.formCount));
    for (size_t f = 0; f < exp.forms.size(); f++) {
        const ExpForm &expected = exp.forms[f];
        const dk_dfForm &form = definition.forms[f];
        SCOPED_TRACE("form " + expected.name);
        EXPECT_EQ(expected.id, form.id);
        EXPECT_EQ(expected.name, loaded.name(form.id));
        ASSERT_EQ(expected.refs.size(), static_cast<size_t>(form.refCount));
        int32_t fieldTotal = 0;
        for (size_t r = 0; r < expected.refs.size(); r++) {
            const dk_dfBlockRef &ref = form.refs[r];
            const ExpBlock &block = exp.blockByName(expected.refs[r].first);
            EXPECT_EQ(nullptr, ref.name);
            ASSERT_GE(ref.blockIndex, 0);
            ASSERT_LT(ref.blockIndex, definition.blockCount);
            const int32_t tagId = definition.blocks[ref.blockIndex].tagId;
            EXPECT_EQ(block.tag, loaded.name(tagId)) << "reference " << r;
            EXPECT_EQ(block.index, ref.blockIndex) << "reference " << r;
            EXPECT_EQ(expected.refs[r].second, ref.occurrence) << "reference " << r;
            EXPECT_EQ(static_cast<int32_t>(r), form.positionByTag[tagId]);
            fieldTotal += definition.blocks[ref.blockIndex].fieldCount;
        }
        EXPECT_EQ(expected.fieldTotal, fieldTotal);
    }
}

// Every block: tag, record length, field count, field names, widths and offsets of the expectations file.
TEST_P(EmbeddedVersion, EveryBlockHasTheFieldsOfTheTable)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const Expectations &exp = expectations(GetParam());
    ASSERT_EQ(exp.blocks.size(), static_cast<size_t>(definition.blockCount));
    for (size_t b = 0; b < exp.blocks.size(); b++) {
        const ExpBlock &expected = exp.blocks[b];
        const dk_dfBlock &block = definition.blocks[b];
        SCOPED_TRACE("block " + expected.name);
        EXPECT_EQ(nullptr, block.name);
        EXPECT_EQ(expected.tag, loaded.name(block.tagId));
        EXPECT_EQ(loaded.id(expected.tag), block.tagId);
        EXPECT_EQ(expected.recordLength, block.recordLength);
        ASSERT_EQ(expected.fieldCount, block.fieldCount);
        ASSERT_EQ(expected.fields.size(), static_cast<size_t>(block.fieldCount));
        int32_t offset = 0;
        for (size_t i = 0; i < expected.fields.size(); i++) {
            const dk_dfField &field = block.fields[i];
            EXPECT_EQ(expected.fields[i].name, loaded.name(field.nameId)) << "field " << i;
            EXPECT_EQ(expected.fields[i].width, field.width) << expected.fields[i].name;
            EXPECT_EQ(offset, field.offset) << expected.fields[i].name;
            EXPECT_EQ(static_cast<int32_t>(i), block.positionByName[field.nameId]);
            offset += expected.fields[i].width;
        }
        EXPECT_EQ(offset, block.recordLength);
    }
}

// ---- edge cases of the embedded versions ----------------------------------------------------

TEST(EmbeddedEdge, Inn7Is19In13And18In12AndInn7BIs13InBoth)
{
    for (const std::string version : {"1.3", "1.2"}) {
        SCOPED_TRACE(version);
        Loaded loaded;
        ASSERT_EQ(1, loaded.load(textOf(version)));
        const dk_dfDefinition &definition = loaded.definition();
        const int32_t inn7 = blockIndexOfTag(definition, loaded.id("INN7"));
        const int32_t inn7b = blockIndexOfTag(definition, loaded.id("INN7B"));
        ASSERT_GE(inn7, 0);
        ASSERT_GE(inn7b, 0);
        const dk_dfBlock &block = definition.blocks[inn7];
        EXPECT_EQ(version == "1.3" ? 19 : 18, block.recordLength);
        EXPECT_EQ(13, definition.blocks[inn7b].recordLength);
        // StopaProcSklWypadk is the last field of INN7, so no other offset moves.
        const dk_dfField &last = block.fields[block.fieldCount - 1];
        EXPECT_EQ("StopaProcSklWypadk", loaded.name(last.nameId));
        EXPECT_EQ(version == "1.3" ? 4 : 3, last.width);
        EXPECT_EQ(15, last.offset);
        const dk_dfBlock &b = definition.blocks[inn7b];
        EXPECT_EQ("StopaProcSklWypadk", loaded.name(b.fields[b.fieldCount - 1].nameId));
        EXPECT_EQ(3, b.fields[b.fieldCount - 1].width);
    }
}

TEST_P(EmbeddedVersion, LargestBlockIsTheRepeatingBlockOfTobrnaWidestFieldIs72)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const int32_t largest = blockIndexOfTag(definition, loaded.id(expectations(GetParam()).blockByName("DaneDotOsUbRNABlf").tag));
    ASSERT_GE(largest, 0);
    EXPECT_EQ("DDORNA", loaded.name(definition.blocks[largest].tagId));
    EXPECT_EQ(71, definition.blocks[largest].fieldCount);
    EXPECT_EQ(506, definition.blocks[largest].recordLength);
    int32_t widest = 0;
    for (int32_t b = 0; b < definition.blockCount; b++) {
        if (b != largest) {
            EXPECT_LT(definition.blocks[b].recordLength, 506) << loaded.name(definition.blocks[b].tagId);
            EXPECT_LT(definition.blocks[b].fieldCount, 71) << loaded.name(definition.blocks[b].tagId);
        }
        for (int32_t i = 0; i < definition.blocks[b].fieldCount; i++)
            widest = std::max(widest, definition.blocks[b].fields[i].width);
    }
    EXPECT_EQ(72, widest);
    const dk_dfForm &tobrna = definition.forms[loaded.id("TOBRNA")];
    int repeating = 0;
    for (int32_t r = 0; r < tobrna.refCount; r++) {
        if (tobrna.refs[r].occurrence == -1) {
            repeating++;
            EXPECT_EQ(largest, tobrna.refs[r].blockIndex);
        }
    }
    EXPECT_EQ(1, repeating);
}

TEST_P(EmbeddedVersion, DnfBlplDnfbBlplbAreFormsOfTheDefinitionWithoutTobPrefix)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const std::map<std::string, int32_t> others = {{"DNF", 18}, {"BLPL", 19}, {"DNFB", 37}, {"BLPLB", 38}};
    for (const auto &entry : others) {
        EXPECT_EQ(entry.second, loaded.id(entry.first));
        ASSERT_LT(entry.second, definition.formCount);
        EXPECT_EQ(entry.second, definition.forms[entry.second].id);
        EXPECT_EQ(3, definition.forms[entry.second].refCount);
    }
    for (int32_t f = 0; f < definition.formCount; f++) {
        const std::string name = loaded.name(definition.forms[f].id);
        EXPECT_EQ(others.count(name) == 0, name.compare(0, 3, "TOB") == 0) << name;
    }
}

TEST_P(EmbeddedVersion, OswiadPlSklBlfIsSharedByTwentyForms)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const ExpBlock &expected = expectations(GetParam()).blockByName("OswiadPlSklBlf");
    const int32_t index = blockIndexOfTag(definition, loaded.id(expected.tag));
    ASSERT_EQ(expected.index, index);
    int forms = 0;
    for (int32_t f = 0; f < definition.formCount; f++) {
        int inForm = 0;
        for (int32_t r = 0; r < definition.forms[f].refCount; r++)
            if (definition.forms[f].refs[r].blockIndex == index) {
                inForm++;
                EXPECT_EQ(1, definition.forms[f].refs[r].occurrence);
            }
        EXPECT_LE(inForm, 1);
        forms += inForm;
    }
    EXPECT_EQ(20, forms);
}

// Repeating blocks: 17 forms have one, at most one each, in the third or fourth place,
// and a block is never repeating in one form and single in another.
TEST_P(EmbeddedVersion, RepeatingBlocksAtMostOnePerFormInThirdOrFourthPlace)
{
    Loaded loaded;
    ASSERT_EQ(1, loaded.load(textOf(GetParam())));
    const dk_dfDefinition &definition = loaded.definition();
    const std::set<std::string> withRepeating = {
        "TOBRCA", "TOBZCNA", "TOBZBA", "TOBRNA", "TOBRZA", "TOBZAA", "TOBRSA", "TOBZCZA", "TOBRGA",
        "TOBRCB", "TOBZCNB", "TOBZBB", "TOBRZB", "TOBZAB", "TOBRSB", "TOBZCZB", "TOBRGB"};
    std::map<int32_t, std::set<int32_t>> marksByBlock;
    for (int32_t f = 0; f < definition.formCount; f++) {
        const dk_dfForm &form = definition.forms[f];
        const std::string name = loaded.name(form.id);
        int repeating = 0;
        for (int32_t r = 0; r < form.refCount; r++) {
            marksByBlock[form.refs[r].blockIndex].insert(form.refs[r].occurrence);
            EXPECT_TRUE(form.refs[r].occurrence == 1 || form.refs[r].occurrence == -1);
            if (form.refs[r].occurrence == -1) {
                repeating++;
                EXPECT_TRUE(r == 2 || r == 3) << name;
            }
        }
        EXPECT_EQ(withRepeating.count(name) ? 1 : 0, repeating) << name;
    }
    for (const auto &entry : marksByBlock)
        EXPECT_EQ(1u, entry.second.size()) << loaded.name(definition.blocks[entry.first].tagId);
}

}  // namespace
