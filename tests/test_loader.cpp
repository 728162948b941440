// test_loader.cpp - dk_LoadNAVO end to end: faults with their code and line, what the callback
// sees and keeps, version selection, the order of blocks, and every allocation of a load failing.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "interchange/document_loader.hpp"
#include "interchange/file_loader.hpp"
#include "navo_builder.h"
#include "test_support.h"

using namespace navo_test;

namespace {

const Layouts &layouts13()
{
    static const Layouts layouts(GetDefTXT_1_3());
    return layouts;
}

std::function<int32_t(dk_Context *, const std::string &, int32_t)> g_onDocument;
std::vector<std::string> g_documents;

int32_t NAVO_CALL onDocument(dk_Context *ctx, const char *form, int32_t docIndex)
{
    g_documents.push_back(std::string(form) + "/" + std::to_string(docIndex));
    return g_onDocument ? g_onDocument(ctx, form, docIndex) : 0;
}

// A body of the given block tags, each element filled with 'x' to its record length.
std::string body(const std::string &form, const std::vector<std::string> &tags)
{
    std::string text = "<" + form + ">\n";
    for (const std::string &tag : tags) {
        for (const BlockLayout &block : layouts13().form(form)) {
            if (block.tag == tag) {
                std::vector<std::string> values;
                for (const auto &f : block.fields)
                    values.push_back(std::string(static_cast<size_t>(f.second), 'x'));
                text += element(block, values);
                break;
            }
        }
    }
    return text + "</" + form + ">\n";
}

std::string section(const std::string &form, const std::string &bodyText, const std::string &footer = "")
{
    return "<" + form + ".DP>\n" + docHeaderText(0) + bodyText + "<stopka.DP>\n" + footer + "</stopka.DP>\n</" + form +
           ".DP>\n";
}

std::string file(const std::string &sections, const std::string &notes = "") { return fileText("1.3", sections, notes); }

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    const size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    if (at != std::string::npos)
        text.replace(at, from.size(), to);
    return text;
}

// A fault place in short: code/cause area [section form] [block@position/previous] [r record]
// [expected/found] [f field:expected/found], each part only where the place has it.
std::string describe(const navo::interchange::FaultPlace &p)
{
    static const char *const areas[] = {"none", "prolog", "file_header", "section", "document_header", "body", "notes", "footer"};
    std::string text = std::to_string(p.code) + "/" + std::to_string(p.cause) + " " + areas[static_cast<int>(p.area)];
    if (p.document != 0)
        text += " " + std::to_string(p.document) + " " + p.form;
    if (p.block[0] != '\0' || p.blockPosition != -1 || p.previousPosition != -1)
        text += " " + std::string(p.block) + "@" + std::to_string(p.blockPosition) + "/" + std::to_string(p.previousPosition);
    if (p.record != -1)
        text += " r" + std::to_string(p.record);
    if (p.expected != -1 || p.found != -1)
        text += " " + std::to_string(p.expected) + "/" + std::to_string(p.found);
    if (p.field != -1)
        text += " f" + std::to_string(p.field) + ":" + std::to_string(p.fieldExpected) + "/" + std::to_string(p.fieldFound);
    return text;
}

// A load through load_file, with what its hooks saw.
struct Hooked {
    std::vector<navo::interchange::FaultPlace> faults;
    std::vector<std::string> records;    // "document form docIndex block record: text"
    std::vector<std::string> documents;  // "number form docIndex"
    int32_t load(dk_Context *ctx, const std::string &path, bool keepGoing = false)
    {
        navo::interchange::LoadHooks hooks;
        hooks.user = this;
        hooks.keepGoing = keepGoing;
        hooks.fault = [](void *user, const navo::interchange::FaultPlace &fault) noexcept {
            static_cast<Hooked *>(user)->faults.push_back(fault);
        };
        hooks.record = [](void *user, dk_Context &, const navo::interchange::RecordSeen &seen) noexcept {
            static_cast<Hooked *>(user)->records.push_back(std::to_string(seen.document) + " " + seen.form + " " +
                                                          std::to_string(seen.docIndex) + " " + std::to_string(seen.block) +
                                                          " " + std::to_string(seen.record) + ": " + std::string(seen.text));
        };
        hooks.document = [](void *user, dk_Context &, const char *form, int32_t docIndex, int32_t number) noexcept {
            static_cast<Hooked *>(user)->documents.push_back(std::to_string(number) + " " + form + " " + std::to_string(docIndex));
            return 0;
        };
        return navo::interchange::load_file(*ctx, path.c_str(), hooks);
    }
};

class Load : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(1, dk_Init(&ctx));
        g_onDocument = nullptr;
        g_documents.clear();
        dk_UstawCallBack(onDocument);
    }
    void TearDown() override
    {
        dk_UstawCallBack(nullptr);
        g_onDocument = nullptr;
        destroyContext(ctx);
        EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
    }
    int32_t load(const std::string &bytes)
    {
        g_documents.clear();
        writeFile(tmp.file("in.navo"), bytes);
        return dk_LoadNAVO(ctx, tmp.file("in.navo").c_str());
    }
    int32_t docCount(const char *form)
    {
        int32_t out = -5;
        dk_GetDocCount(ctx, form, &out);
        return out;
    }
    int32_t recordLength(const char *tag)
    {
        int32_t id = -1;
        dk_sdGetID(ctx->dictionary, tag, &id);
        const dk_dfDefinition &d = ctx->definitions->items[0];
        for (int32_t b = 0; b < d.blockCount; b++)
            if (d.blocks[b].tagId == id)
                return d.blocks[b].recordLength;
        return -1;
    }
    ScopedTempDir tmp;
    dk_Context *ctx = nullptr;
};

}  // namespace

// A good file changed in one place: the load's result, the code and the line reading stopped on,
// and the place load_file reports for it (describe: code/cause area [section form]
// [block@position/previous] [r record] [expected/found] [f field:expected/found]). A fault inside
// a section reaches the host as code 5; the failed document is gone. Where `after` is given, the
// fault's offset is the end of its first occurrence, in the LF and the CR LF file.
TEST_F(Load, FaultsGiveTheirCodeLineAndPlace)
{
    const std::string good = file(sectionText(layouts13(), "TOBZWPA", 0, {}));
    const std::string rca = file(section("TOBRCA", body("TOBRCA", {"DORCA"})));
    const std::string rca3 = file(sectionText(layouts13(), "TOBRCA", 0, {1, 1, 3, 1}));
    const int32_t dorca = static_cast<int32_t>(layouts13().form("TOBRCA")[0].recordLength);
    const std::string tail = replaced(good, "'001.300' >", "'001.300' tail");
    const std::string notes = file(section("TOBRCA", body("TOBRCA", {}), "<BLAD>\n" + fixed("E", 40) + "\n</BLAD>\n<BLAD>\nabc"));
    std::string lines300;
    for (int i = 0; i < 300; i++)
        lines300 += "x\n";
    const struct {
        const char *label;
        std::string text;
        int32_t code, line;  // line -1: not checked
        std::string place;
        const char *after = nullptr;
    } rows[] = {
        {"empty file", "", 3, 1, "3/3 prolog"},
        {"48 characters", "hello\tworld\n" + std::string(38, 'z'), 3, -1, "3/3 prolog"},
        {"no document type", std::string(60, 'z') + "\n", 1, 1, "1/1 prolog"},
        {"not NAVO", replaced(good, "<!DOCTYPE NAVO PUBLIC", "<!DOCTYPE NAVO PUBLIX"), 1, 1, "1/1 prolog"},
        {"file ends in the version line", tail.substr(0, tail.find("tail") + 4), 3, -1, "3/3 prolog"},
        {"no <NAVO>", replaced(good, "<NAVO>", "<NAVX>"), 4, 4, "4/4 file_header", "<NAVX>"},
        {"space before <NAVO>", replaced(good, "<NAVO>", " <NAVO>"), 4, -1, "4/4 file_header"},
        {"CR before <NAVO>", replaced(good, "<NAVO>", "\r<NAVO>"), 4, -1, "4/4 file_header"},
        {"no file header tag", replaced(good, "<naglowek.NAVO>", "<naglowek.NAVX>"), 4, 5, "4/4 file_header"},
        {"file header one short", replaced(good, "H1 ", "H1"), 3, -1, "3/3 file_header 139/138 f0:51/50", "</naglowek.NAVO>"},
        {"file header one long", replaced(good, "H3 ", "H3  "), 3, -1, "3/3 file_header 139/140 f2:24/25"},
        {"document header tag", replaced(good, "<naglowek.DP>", "<naglowek.DX>"), 5, 13, "5/4 document_header 1 TOBZWPA"},
        {"document header one short", replaced(good, "D5/0 ", "D5/0"), 5, 28, "5/3 document_header 1 TOBZWPA 245/244 f4:24/23",
         "</naglowek.DP>"},
        {"closing tag of another block", replaced(good, "<DOZWPA>", "<DIPL>"), 5, 36, "5/3 body 1 TOBZWPA DIPL@1/-1 r0 171/-1"},
        {"section closing tag", replaced(good, "</TOBZWPA.DP>", "</TOBZWPX.DP>"), 5, 61, "5/4 section 1 TOBZWPA"},
        {"section closing tag in other case", replaced(good, "</TOBZWPA.DP>", "</tobzwpa.DP>"), 5, -1, "5/4 section 1 TOBZWPA"},
        {"file footer tag", replaced(good, "</stopka.NAVO>", "</stopka.NAVX>"), 4, 63, "4/4 footer"},
        {"footer tag misspelt", replaced(good, "<stopka.NAVO>", "<stopkaX.NAVO>"), 4, -1, "4/4 footer"},
        {"file ends after the sections", good.substr(0, good.find("<stopka.NAVO>")), 4, -1, "4/4 footer"},
        {"OCR note in the file footer", file("", "<OCR.a>\nx\n</OCR.a>\n"), 4, -1, "4/4 footer"},
        {"file note cut off", file("", "<BLAD>\nabc").substr(0, file("", "<BLAD>\nabc").find("abc") + 3), 3, -1, "3/3 footer BLAD@-1/-1 r0"},
        {"unknown TOB form", file(section("TOBXYZ", "<TOBXYZ>\n</TOBXYZ>\n")), 5, 12, "5/8 section 1 TOBXYZ"},
        {"block of another form", replaced(rca, "</TOBRCA>\n<stopka", "<DIPLB>\nabc\n</DIPLB>\n</TOBRCA>\n<stopka"), 5, -1,
         "5/6 body 1 TOBRCA DIPLB@-1/0 -1/3"},
        {"field name as block", replaced(rca, "</TOBRCA>\n<stopka", "<Nazwisko>\nabc\n</Nazwisko>\n</TOBRCA>\n<stopka"), 5, -1,
         "5/6 body 1 TOBRCA Nazwisko@-1/0 -1/3"},
        {"element one short", file(section("TOBRCA", "<TOBRCA>\n<DORCA>" + std::string(dorca - 1, 'x') + "</DORCA>\n</TOBRCA>\n")), 5, -1,
         "5/7 body 1 TOBRCA DORCA@0/-1 r0 31/30", "</DORCA>"},
        {"element one long", file(section("TOBRCA", "<TOBRCA>\n<DORCA>" + std::string(dorca + 1, 'x') + "</DORCA>\n</TOBRCA>\n")), 5, -1,
         "5/7 body 1 TOBRCA DORCA@0/-1 r0 31/32"},
        {"empty element", file(section("TOBRCA", "<TOBRCA>\n<DORCA></DORCA>\n</TOBRCA>\n")), 5, -1, "5/7 body 1 TOBRCA DORCA@0/-1 r0 31/0"},
        {"element of 300 lines", file(section("TOBRCA", "<TOBRCA>\n<DORCA>\n" + lines300 + "</DORCA>\n</TOBRCA>\n")), 5, -1,
         "5/7 body 1 TOBRCA DORCA@0/-1 r0 31/300"},
        {"field of a record one short", replaced(rca3, "0.2.1.3    \n", "0.2.1.3   \n"), 5, -1,
         "5/7 body 1 TOBRCA DDORCA@2/2 r1 233/232 f3:11/10"},
        {"single block twice", file(section("TOBRCA", body("TOBRCA", {"DORCA", "DORCA"}))), 5, -1, "5/6 body 1 TOBRCA DORCA@0/0 r0 31/31"},
        {"repeating block skipped", file(section("TOBRCA", body("TOBRCA", {"DORCA", "DIPL", "OPLR"}))), 5, -1,
         "5/6 body 1 TOBRCA OPLR@3/1 r0 8/8"},
        {"repeating block after a later one", file(section("TOBRCA", body("TOBRCA", {"DORCA", "DIPL", "DDORCA", "DDORCA", "OPLR", "DDORCA"}))),
         5, -1, "5/6 body 1 TOBRCA DDORCA@2/3 r0 233/233"},
        {"body closing tag in other case", replaced(rca, "</TOBRCA>\n<stopka", "</tobrca>\n<stopka"), 5, -1,
         "5/3 body 1 TOBRCA /tobrca@-1/0"},
        {"unknown footer element with text", file(section("TOBRCA", body("TOBRCA", {}), "<XYZ>abc</XYZ>\n")), 5, -1, "5/4 notes 1 TOBRCA"},
        {"document note cut off", notes.substr(0, notes.find("abc") + 3), 5, -1, "5/3 notes 1 TOBRCA BLAD@-1/-1 r1"},
        {"section tag with a rest of 19", file("<TOBZUA" + std::string(15, 'Q') + ".DP>\n"), 5, -1,
         "5/8 section 1 TOBZUAQQQQQQQQQQQQQ"},
        {"tag filling its buffer", file(section("TOBRCA", "<TOBRCA>\n<" + std::string(300, 'A') + ">\n</TOBRCA>\n")), 5, -1,
         "5/5 body 1 TOBRCA " + std::string(199, 'A') + "@-1/-1"},
    };
    for (const auto &row : rows) {
        for (const std::string &text : {row.text, toCrLf(row.text)}) {
            const bool crLf = text != row.text;
            EXPECT_EQ(0, load(text)) << row.label;
            EXPECT_EQ(row.code, dk_GetNAVOError()) << row.label << (crLf ? " (CR LF)" : "");
            EXPECT_TRUE(row.line < 0 || crLf || row.line == dk_GetNAVOLine()) << row.label << " stopped on line " << dk_GetNAVOLine();
            EXPECT_TRUE(ctx->formCount == 0 || docCount("TOBRCA") + docCount("TOBZWPA") == 0) << row.label;
            const int32_t line = dk_GetNAVOLine();
            Hooked hooked;
            EXPECT_EQ(0, hooked.load(ctx, tmp.file("in.navo")));
            ASSERT_EQ(1u, hooked.faults.size()) << row.label;
            const navo::interchange::FaultPlace &fault = hooked.faults[0];
            EXPECT_EQ(row.place, describe(fault)) << row.label << (crLf ? " (CR LF)" : "");
            EXPECT_EQ(line, fault.line) << row.label;
            const int64_t offset = row.after == nullptr ? -2 : static_cast<int64_t>(text.find(row.after) + std::strlen(row.after));
            EXPECT_TRUE(offset == -2 || offset == fault.offset) << row.label << ": offset " << fault.offset << ", not " << offset;
        }
    }
    EXPECT_EQ(0, dk_LoadNAVO(ctx, tmp.file("missing/none.navo").c_str()));
    EXPECT_EQ(2, dk_GetNAVOError());
    Hooked hooked;
    EXPECT_EQ(0, hooked.load(ctx, tmp.file("missing/none.navo")));
    ASSERT_EQ(1u, hooked.faults.size());
    EXPECT_EQ("2/2 none", describe(hooked.faults[0]));
}

// load_file's hooks: the record hook sees each block element once, with its record's text; the
// document hook numbers the sections from 1; with
// keepGoing each faulty section is reported and dropped, the good ones around it delivered, and
// the load ends with the first fault's code.
TEST_F(Load, HooksSeeRecordsDocumentsAndFaults)
{
    writeFile(tmp.file("in.navo"), file(sectionText(layouts13(), "TOBRCA", 0, {1, 1, 3, 1})));
    Hooked hooked;
    ASSERT_EQ(1, hooked.load(ctx, tmp.file("in.navo")));
    std::vector<std::string> expected;
    const std::vector<BlockLayout> &blocks = layouts13().form("TOBRCA");
    for (int b = 0; b < 4; b++)
        for (int r = 0; r < (b == 2 ? 3 : 1); r++) {
            std::string values;
            for (size_t f = 0; f < blocks[static_cast<size_t>(b)].fields.size(); f++)
                values += sampleValue(0, b, r, static_cast<int>(f), blocks[static_cast<size_t>(b)].fields[f].second);
            expected.push_back("1 TOBRCA 0 " + std::to_string(b) + " " + std::to_string(r) + ": " + values);
        }
    EXPECT_EQ(expected, hooked.records);
    EXPECT_EQ(std::vector<std::string>{"1 TOBRCA 0"}, hooked.documents);

    const std::string good = sectionText(layouts13(), "TOBZWPA", 0, {});
    const std::string faulty = file(good + replaced(good, "<DOZWPA>", "<DIPL>") + good + section("TOBXYZ", "") + good);
    writeFile(tmp.file("in.navo"), faulty);
    Hooked going;
    EXPECT_EQ(0, going.load(ctx, tmp.file("in.navo"), true));
    EXPECT_EQ(5, dk_GetNAVOError());
    ASSERT_EQ(2u, going.faults.size());
    EXPECT_EQ("5/3 body 2 TOBZWPA DIPL@1/-1 r0 171/-1", describe(going.faults[0]));
    EXPECT_EQ("5/8 section 4 TOBXYZ", describe(going.faults[1]));
    EXPECT_EQ((std::vector<std::string>{"1 TOBZWPA 0", "3 TOBZWPA 0", "5 TOBZWPA 0"}), going.documents);
    EXPECT_EQ(0, docCount("TOBZWPA"));
    // Without keepGoing the first fault ends the load; a fault outside the sections ends it anyway.
    Hooked stopping;
    EXPECT_EQ(0, stopping.load(ctx, tmp.file("in.navo")));
    EXPECT_EQ(1u, stopping.faults.size());
    EXPECT_EQ(std::vector<std::string>{"1 TOBZWPA 0"}, stopping.documents);
    writeFile(tmp.file("in.navo"), faulty.substr(0, faulty.find("<stopka.NAVO>")));
    Hooked cut;
    EXPECT_EQ(0, cut.load(ctx, tmp.file("in.navo"), true));
    EXPECT_EQ(5, dk_GetNAVOError());
    ASSERT_EQ(3u, cut.faults.size());
    EXPECT_EQ("4/4 footer", describe(cut.faults[2]));
    EXPECT_EQ(3u, cut.documents.size());
}

// Readings that a sound file may take: all load with 1 and call back once per TOB section.
TEST_F(Load, AcceptedVariants)
{
    const std::string good = file(sectionText(layouts13(), "TOBZWPA", 0, {}));
    const std::string rca = file(section("TOBRCA", body("TOBRCA", {"DORCA"})));
    const struct {
        const char *label;
        std::string text;
        int callbacks;
    } rows[] = {
        {"tab and line feeds before <NAVO>", replaced(good, "<NAVO>", "\t\n\t<NAVO>"), 1},
        {"blanks before the file header tag", replaced(good, "<naglowek.NAVO>", "  \r\t\n \n<naglowek.NAVO>"), 1},
        {"blanks before the document header tag", replaced(good, "<naglowek.DP>", " \r \r<naglowek.DP>"), 1},
        {"version line of 26 characters", replaced(good, "'001.300' >", "'001.300'>"), 1},
        {"closing block tag in other case", replaced(rca, "</DORCA>", "</dorca>"), 1},
        {"body and footer opening tags", replaced(replaced(rca, "<TOBRCA>", "<X>"), "<stopka.DP>", "<anything>"), 1},
        {"empty unknown footer element", file(section("TOBRCA", body("TOBRCA", {}), "<XYZ></XYZ>\n")), 1},
        {"stray text between sections", file("junk <x> </y> more <TOBZUA> <stopka.DP> text\n"), 0},
        {"sections of forms without TOB", file(sectionText(layouts13(), "DNF", 0, {}) + sectionText(layouts13(), "BLPLB", 0, {}) +
                                               sectionText(layouts13(), "TOBZWPA", 0, {})),
         1},
        {"element with a lone CR", file(section("TOBRCA", "<TOBRCA>\n<DORCA>" +
                                                             std::string(static_cast<size_t>(layouts13().form("TOBRCA")[0].recordLength) - 1, 'x') +
                                                             "\r</DORCA>\n</TOBRCA>\n")),
         1},
        {"without sections", file(""), 0},
        {"section and footer tags with rests of 20 passed over",
         file("<TOBZUA" + std::string(16, 'Q') + ".DP>\n<stopka" + std::string(16, 'S') + ".NAVO>\n" +
              sectionText(layouts13(), "TOBZWPA", 0, {})),
         1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(1, load(row.text)) << row.label;
        EXPECT_EQ(0, dk_GetNAVOError()) << row.label;
        EXPECT_EQ(static_cast<size_t>(row.callbacks), g_documents.size()) << row.label;
    }
}

// The block order of a form: single blocks once, in order; a repeating block any number of times
// (absent: one blank record); nothing after a later block.
TEST_F(Load, BlockOrderOfAForm)
{
    const struct {
        std::vector<std::string> tags;
        int32_t records;  // of DDORCA; -1: refused
    } rows[] = {
        {{"DORCA", "DIPL", "DDORCA", "DDORCA", "OPLR"}, 2},
        {{"DORCA", "DIPL", "DDORCA", "OPLR"}, 1},
        {{"DORCA", "DIPL", "DDORCA"}, 1},
        {{"DORCA", "DIPL"}, 1},
        {{}, 1},
        {{"DORCA", "DIPL", "OPLR"}, -1},
        {{"DIPL", "DDORCA", "OPLR"}, -1},
        {{"DORCA", "DORCA"}, -1},
        {{"DORCA", "DIPL", "DDORCA", "OPLR", "DDORCA"}, -1},
    };
    for (const auto &row : rows) {
        int32_t records = -1;
        g_onDocument = [&](dk_Context *context, const std::string &form, int32_t doc) {
            dk_GetBlockCount(context, form.c_str(), doc, "DDORCA", &records);
            return 0;
        };
        const int32_t result = load(file(section("TOBRCA", body("TOBRCA", row.tags))));
        EXPECT_EQ(row.records >= 0, result == 1) << ::testing::PrintToString(row.tags);
        EXPECT_EQ(row.records, records) << ::testing::PrintToString(row.tags);
        EXPECT_EQ(row.records >= 0 ? 0 : 5, dk_GetNAVOError());
    }
}

// The version line picks the definition: 1.3 only for '001.300' at its place, anything else 1.2;
// INN7 shows which one was loaded. The first line's version is never read.
TEST_F(Load, VersionLineSelectsTheDefinition)
{
    const std::string good = file("");
    const struct {
        const char *line;
        int32_t inn7;
    } rows[] = {
        {"<!ENTITY wersja '001.300' >", 19}, {"<!ENTITY wersja '001.200' >", 18}, {"<!ENTITY wersja '009.900' >", 18},
        {"<!ENTITY version '001.300'>", 18}, {"<!ENTITY wersja X001.300' >", 19}, {"<!ENTITY wersja '001.301' >", 18},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(1, load(replaced(good, "<!ENTITY wersja '001.300' >", row.line))) << row.line;
        EXPECT_EQ(row.inn7, recordLength("INN7")) << row.line;
        EXPECT_STREQ(row.line, ctx->prolog.versionLine);
        EXPECT_EQ(1, ctx->definitions->count);
        EXPECT_EQ(498, ctx->dictionary->count);
    }
    // Long prolog lines: the fixed reads take their start, the rest up to the next '>' is dropped.
    ASSERT_EQ(1, load(replaced(replaced(good, "'001.300' >", "'001.300' with a long tail of words >"), "'ISO 8859-2' >]>",
                               "'ISO 8859-2' with a long tail of words ]>")));
    EXPECT_EQ(19, recordLength("INN7"));
    EXPECT_STREQ("<!ENTITY wersja '001.300' w", ctx->prolog.versionLine);
    EXPECT_STREQ("<!ENTITY strona.kodowa 'ISO 8859-2' wit", ctx->prolog.encodingLine);
    ASSERT_EQ(1, load(replaced(good, "'001.300'", "'001.200'")));
    EXPECT_EQ(18, recordLength("INN7"));
    EXPECT_STREQ("<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[", ctx->prolog.doctypeLine);
    EXPECT_STREQ("<!ENTITY strona.kodowa 'ISO 8859-2' >]>", ctx->prolog.encodingLine);
    EXPECT_EQ(0, dk_1fGetIDFormularza(ctx, "TOBZUA"));
    EXPECT_EQ(39, dk_1fGetIDFormularza(ctx, "TOBRGB"));
}

// The file header is cut by position, not by line, and the file notes into pieces of ten.
TEST_F(Load, HeaderAndFileNotesAreCutByPosition)
{
    std::string header;
    for (int i = 0; i < 139; i++)
        header += static_cast<char>('A' + i % 26);
    const std::string t40 = "AAAAAAAAAABBBBBBBBBBCCCCCCCCCCDDDDDDDDDD";
    const std::string notes = "<BLAD>\n" + t40 + "\n</BLAD>\n<BLAD>\n" + t40.substr(0, 35) + "\n</x>\n<BLAD>\n" + t40 +
                              "EEEEE\n</BLAD>\n<BLAD>\nABCDEFGHIJKL\n</BLAD>\n";
    ASSERT_EQ(1, load(prologText("1.3") + "<NAVO>\n<naglowek.NAVO>\n" + header.substr(0, 10) + "\n" + header.substr(10, 100) +
                      "\n\t" + header.substr(110) + "\n</x>\n<stopka.NAVO>\n" + notes + "</stopka.NAVO>\n"));
    const std::vector<std::pair<const char *, size_t>> lines = {
        {ctx->header.line1, 0}, {ctx->header.line2, 51}, {ctx->header.line3, 59}, {ctx->header.line4, 83}, {ctx->header.line5, 107}};
    const size_t widths[] = {51, 8, 24, 24, 32};
    for (size_t i = 0; i < lines.size(); i++)
        EXPECT_EQ(header.substr(lines[i].second, widths[i]), lines[i].first) << i;
    ASSERT_EQ(4, ctx->footer.noteCount);
    const dk_ErrorNote *n = ctx->footer.notes;
    EXPECT_EQ("AAAAAAAAAA|DDDDDDDDDD", std::string(n[0].text1) + "|" + n[0].text4);
    EXPECT_EQ("CCCCCCCCCC|DDDDD", std::string(n[1].text3) + "|" + n[1].text4);
    EXPECT_STREQ("DDDDDDDDDD", n[2].text4);
    EXPECT_EQ("ABCDEFGHIJ|KL||", std::string(n[3].text1) + "|" + n[3].text2 + "|" + n[3].text3 + "|" + n[3].text4);
}

// The callback sees every field, header line and note; a callback returning non-zero stops the
// load with code 10 and keeps exactly its document; the next load clears it.
TEST_F(Load, CallbackSeesTheDocumentAndCanStopTheLoad)
{
    const std::string footer = "<OCR.z>\n" + fixed("O1", 10) + fixed("O2", 10) + fixed("O3", 10) + fixed("O4", 72) +
                               fixed("O5", 24) + fixed("O6", 24) + "\n</OCR.z>\n<BLAD>\n" + fixed("E1", 40) + "\n</BLAD>\n";
    int checked = 0;
    g_onDocument = [&](dk_Context *context, const std::string &form, int32_t doc) -> int32_t {
        const std::vector<BlockLayout> &blocks = layouts13().form(form);
        for (size_t b = 0; b < blocks.size(); b++) {
            int32_t count = 1;
            EXPECT_EQ(1, blocks[b].repeating ? dk_GetBlockCount(context, form.c_str(), doc, blocks[b].tag.c_str(), &count) : 1);
            EXPECT_EQ(blocks[b].repeating ? 3 : 1, count);
            for (int32_t r = 0; r < count; r++)
                for (size_t f = 0; f < blocks[b].fields.size(); f++, checked++)
                    EXPECT_EQ(sampleValue(4, static_cast<int>(b), r, static_cast<int>(f), blocks[b].fields[f].second),
                              field(context, form.c_str(), doc, blocks[b].tag.c_str(), r, blocks[b].fields[f].first.c_str()));
        }
        dk_DocHeader *header = nullptr;
        dk_DocFooter *notes = nullptr;
        EXPECT_EQ(1, dk_GetDocHeader(context, form.c_str(), doc, &header));
        EXPECT_EQ(1, dk_GetDocFooter(context, form.c_str(), doc, &notes));
        EXPECT_EQ(fixed("D1/4", 51), header->line1);
        EXPECT_EQ(fixed("D14/4", 32), header->line14);
        EXPECT_STREQ("E", header->line12);
        EXPECT_EQ(1, notes->ocrCount);
        EXPECT_EQ(1, notes->ocrNotes[0].kind);
        EXPECT_EQ(fixed("O4", 72) + "|" + fixed("O6", 24), std::string(notes->ocrNotes[0].text4) + "|" + notes->ocrNotes[0].text6);
        EXPECT_EQ(1, notes->errorCount);
        EXPECT_EQ(fixed("E1", 10) + "|" + fixed("", 10), std::string(notes->errorNotes[0].text1) + "|" + notes->errorNotes[0].text4);
        return 0;
    };
    // The block hook sees each record of a repeating block as it is read, numbered from 0.
    std::vector<std::string> hooked, expected;
    const navo::interchange::LoadObserver observer{
        nullptr,
        [](void *user, const char *form, int32_t doc, const char *block, int32_t record) {
            static_cast<std::vector<std::string> *>(user)->push_back(std::string(form) + std::to_string(doc) + block +
                                                                     std::to_string(record));
        },
        &hooked};
    const int records[] = {1, 1, 3, 1};
    for (size_t b = 0; b < 4; b++)
        for (int r = 0; layouts13().form("TOBRNA")[b].repeating && r < records[b]; r++)
            expected.push_back("TOBRNA0" + layouts13().form("TOBRNA")[b].tag + std::to_string(r));
    navo::interchange::set_load_observer(&observer);
    ASSERT_EQ(1, load(file(sectionText(layouts13(), "TOBRNA", 4, {1, 1, 3, 1}, footer))));
    navo::interchange::set_load_observer(nullptr);
    EXPECT_GT(checked, 200);
    EXPECT_EQ(expected, hooked);
    // Three sections; the second one stops the load.
    const std::string sections = sectionText(layouts13(), "TOBZWPA", 0, {}) + sectionText(layouts13(), "TOBRCA", 1, {1, 1, 3, 1}) +
                                 sectionText(layouts13(), "TOBZWPA", 2, {});
    for (int32_t answer : {7, -1}) {
        g_onDocument = [answer](dk_Context *, const std::string &form, int32_t doc) {
            EXPECT_EQ(0, doc);
            return form == "TOBRCA" ? answer : 0;
        };
        EXPECT_EQ(2, load(file(sections)));
        EXPECT_EQ(10, dk_GetNAVOError());
        EXPECT_EQ((std::vector<std::string>{"TOBZWPA/0", "TOBRCA/0"}), g_documents);
        EXPECT_EQ(1, docCount("TOBRCA"));
        EXPECT_EQ(0, docCount("TOBZWPA"));
        const auto &first = layouts13().form("TOBRCA")[2].fields[0];
        EXPECT_EQ(sampleValue(1, 2, 2, 0, first.second), field(ctx, "TOBRCA", 0, "DDORCA", 2, first.first.c_str()));
        EXPECT_EQ(1u, tmp.spoolFiles().size());
    }
    g_onDocument = nullptr;
    EXPECT_EQ(1, load(file(sections)));
    EXPECT_EQ(0, docCount("TOBRCA"));
    EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
    dk_UstawCallBack(nullptr);  // without a callback every document is dropped after its section
    EXPECT_EQ(1, load(file(sections)));
    EXPECT_EQ(0u, g_documents.size());
    EXPECT_EQ(0, docCount("TOBRCA"));
}

TEST_F(Load, LineCountersAndNotesOfEachDocument)
{
    std::vector<std::pair<int32_t, int32_t>> seen;
    std::vector<std::string> notes;
    g_onDocument = [&](dk_Context *context, const std::string &form, int32_t doc) {
        seen.emplace_back(i_lNumerLinii, i_lLinii);
        dk_DocFooter *footer = nullptr;
        EXPECT_EQ(1, dk_GetDocFooter(context, form.c_str(), doc, &footer));
        for (int32_t i = 0; i < footer->ocrCount; i++)
            notes.push_back(std::to_string(footer->ocrNotes[i].kind) + footer->ocrNotes[i].text1);
        for (int32_t i = 0; i < footer->errorCount; i++)
            notes.push_back(footer->errorNotes[i].text1);
        return 0;
    };
    std::string footer;
    const char *tags[] = {"OCR.a", "OCR.z", "OCR.l", "OCR.l2", "OCR.lx", "OCR.q"};
    for (int i = 0; i < 6; i++)
        footer += "<" + std::string(tags[i]) + ">" + fixed("T" + std::to_string(i), 150) + "</whatever>\n<BLAD>" +
                  fixed("E" + std::to_string(i), 40) + "EXTRA</BLAD>\n";
    const std::string text = file(sectionText(layouts13(), "TOBZWPA", 0, {}, footer) + sectionText(layouts13(), "TOBZWPA", 1, {}));
    int32_t lines = 0;
    for (char c : text)
        lines += c == '\n';
    ASSERT_EQ(1, load(text));
    EXPECT_EQ(lines + 1, i_lLinii);
    ASSERT_EQ(2u, seen.size());
    EXPECT_LT(seen[0].first, seen[1].first);
    EXPECT_LT(seen[1].first, lines + 1);
    EXPECT_EQ(lines + 1, seen[0].second);
    ASSERT_EQ(12u, notes.size());
    const char *expected[] = {"0T0        ", "1T1        ", "2T2        ", "3T3        ", "2T4        ", "0T5        "};
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(expected[i], notes[static_cast<size_t>(i)]) << tags[i];
        EXPECT_EQ(fixed("E" + std::to_string(i), 10), notes[static_cast<size_t>(6 + i)]);
    }
}

// A file cut off anywhere fails with a code of its place, leaving no document and no spool file.
TEST_F(Load, FileBreakingOffAnywhere)
{
    const std::string full = file(sectionText(layouts13(), "TOBZBA", 0, {1, 1, 2, 1}, "<BLAD>\n" + fixed("E", 40) + "\n</BLAD>\n"),
                                  "<BLAD>\n" + fixed("F", 40) + "\n</BLAD>\n");
    const size_t footerAt = full.find("<stopka.NAVO>"), end = full.find("</stopka.NAVO>") + 14;
    for (size_t cut = 0; cut < full.size(); cut += 3) {
        const int32_t result = load(full.substr(0, cut));
        EXPECT_EQ(cut >= end ? 1 : 0, result) << cut;
        const int32_t code = dk_GetNAVOError();
        EXPECT_TRUE(cut >= end || code == 3 || code == 4 || (code == 5 && cut <= footerAt + 14)) << cut << ": " << code;
        EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles()) << cut;
    }
}

// Every allocation of a load fails in turn: the load fails (code 2 when the stream could not be
// had, 3 for a text, 9 for the definition or tables, 5 inside a section), the document is gone,
// nothing leaks, no spool file stays, and the next load on the same context succeeds.
TEST_F(Load, EveryAllocationOfALoadFailsCleanly)
{
    const std::string text = file(sectionText(layouts13(), "TOBZBA", 0, {1, 1, 2, 1}, "<BLAD>\n" + fixed("E", 40) +
                                                  "\n</BLAD>\n<OCR.a>\n" + fixed("O", 150) + "\n</OCR.a>\n"),
                                  "<BLAD>\n" + fixed("F", 40) + "\n</BLAD>\n");
    writeFile(tmp.file("in.navo"), text);
    ASSERT_EQ(1, dk_LoadNAVO(ctx, tmp.file("in.navo").c_str()));  // definition and tables in place
    g_documents.clear();
    const int64_t count = sweepAllocations(
        {.act = [&] { return dk_LoadNAVO(ctx, tmp.file("in.navo").c_str()); },
         .check =
             [&](int32_t result, int64_t n) {
                 EXPECT_EQ(n == 0, result == 1);
                 if (n == 0) {
                     EXPECT_EQ(1u, g_documents.size());
                     return;
                 }
                 const int32_t code = dk_GetNAVOError();
                 EXPECT_TRUE(code == 2 || code == 3 || code == 5 || code == 9) << code;
                 EXPECT_LE(docCount("TOBZBA"), 0);
             },
         .teardown =
             [&] {
                 EXPECT_EQ(1, dk_LoadNAVO(ctx, tmp.file("in.navo").c_str()));  // and all is in place again
                 g_documents.clear();
             }},
        tmp);
    EXPECT_GT(count, 50);
}
