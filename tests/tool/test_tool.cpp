// test_tool.cpp - the navo program run on generated files: round trips over every TOB form, the
// encodings, each class of fault with its exit code and place, content checks, bad inputs, outputs
// that fail (and say so), diff, show and schema.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include <nlohmann/json.hpp>

#include "navo_builder.h"
#include "test_support.h"

using namespace navo_test;

namespace {

struct Result {
    int code;
    std::string out, err;
};

std::string replaceOnce(std::string text, const std::string &from, const std::string &to)
{
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

int lineOf(const std::string &text, size_t offset)
{
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<long>(offset), '\n'));
}

std::string noteFooter()
{
    return "<OCR.z>\n" + fixed("O1", 10) + "\n" + fixed("O2", 10) + "\n" + fixed("O3", 10) + "\n" + fixed("O4", 72) +
           "\n" + fixed("O5", 24) + "\n" + fixed("O6", 24) + "\n</OCR.z>\n<BLAD>\n" + fixed("E1", 10) + "\n" +
           fixed("E2", 10) + "\n" + fixed("E3", 10) + "\n" + fixed("E4", 10) + "\n</BLAD>\n";
}

const std::string kFileNote = "<BLAD>\n" + fixed("F1", 10) + "\n" + fixed("F2", 10) + "\n" + fixed("F3", 10) + "\n" +
                              fixed("F4", 10) + "\n</BLAD>\n";

class Tool : public ::testing::Test {
protected:
    ScopedTempDir dir;
    Layouts layouts13{GetDefTXT_1_3()};

    std::string at(const std::string &name) const { return dir.path() + "/" + name; }

    // Runs the program; `args` that redirect standard output themselves leave it uncaptured.
    Result navo(const std::string &args)
    {
        std::string out = at("stdout.txt"), err = at("stderr.txt");
        const std::string redirect = args.find(" >") == std::string::npos ? " >" + out : "";
        int status = std::system((std::string(NAVO_TOOL) + " " + args + redirect + " 2>" + err).c_str());
        Result run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
        std::remove(out.c_str());
        std::remove(err.c_str());
        return run;
    }

    // Two documents: TOBRCA with three DDORCA records, TOBZBA with three IORB records and notes.
    std::string twoDocuments() const
    {
        return sectionText(layouts13, "TOBRCA", 1, {1, 1, 3, 1}) +
               sectionText(layouts13, "TOBZBA", 2, {1, 1, 3, 1}, noteFooter());
    }
    std::string write(const std::string &name, const std::string &lfText)
    {
        writeFile(at(name), toCrLf(lfText));
        return at(name);
    }
    // Nothing but the files a test wrote itself: no output and no temporary file left behind.
    void expectOnly(const std::vector<std::string> &names)
    {
        EXPECT_EQ(dir.entries(), names);
    }
};

TEST_F(Tool, ConvertThenBuildGivesBackEveryTobFormByteForByte)
{
    for (const std::string version : {"1.3", "1.2"}) {
        Layouts layouts(version == "1.3" ? GetDefTXT_1_3() : GetDefTXT_1_2());
        std::string sections;
        int d = 0;
        for (const auto &form : layouts.formNames()) {
            if (form.rfind("TOB", 0) != 0)
                continue;
            std::vector<int> records;
            for (const auto &block : layouts.form(form))
                records.push_back(block.repeating ? 2 : 1);
            ++d;
            sections += sectionText(layouts, form, d, records, d == 1 ? noteFooter() : "");
        }
        std::string original = write("all.navo", fileText(version, sections, kFileNote));
        Result valid = navo("validate " + original);
        ASSERT_EQ(valid.code, 0) << valid.out;
        EXPECT_EQ(valid.out, original + ": valid\n");
        for (const std::string format : {"jsonl", "json", "csv"}) {
            for (const std::string padding : {"", " --keep-padding"}) {
                SCOPED_TRACE(version + " " + format + padding);
                Result convert = navo("convert " + original + " --to " + format + padding + " -o " + at("all." + format));
                ASSERT_EQ(convert.code, 0) << convert.err;
                EXPECT_EQ(convert.err, "") << "no progress bar when stderr is no terminal";
                Result build = navo("build " + at("all." + format) + " -o " + at("back.navo"));
                ASSERT_EQ(build.code, 0) << build.err;
                EXPECT_EQ(readFile(at("back.navo")), readFile(original));
            }
        }
        Result again = navo("convert " + original + " --to jsonl --keep-padding");
        EXPECT_TRUE(again.out == readFile(at("all.jsonl"))) << "the same input gives the same bytes";
    }
}

TEST_F(Tool, EncodingsDifferInTheSixLettersAndBuildWritesTheChosenOne)
{
    // ISO 8859-2 bytes of "ĄąŚśŹź" in NazwaSkrocona of TOBZBA's DIPL (width 31).
    std::string lf = fileText("1.3", sectionText(layouts13, "TOBZBA", 1, {1, 1, 1, 1}));
    std::string value = sampleValue(1, 1, 0, 5, 31);
    std::string iso = write("iso.navo", replaceOnce(lf, value, fixed("\xA1\xB1\xA6\xB6\xAC\xBC", 31)));
    struct Case {
        const char *encoding;
        const char *utf8;
        const char *bytes;
    } cases[] = {
        {"iso8859-2", "\u0104\u0105\u015A\u015B\u0179\u017A", "\xA1\xB1\xA6\xB6\xAC\xBC"},
        {"cp1250", "\u02C7\u00B1\u00A6\u00B6\u00AC\u013D", "\xA1\xB1\xA6\xB6\xAC\xBC"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.encoding);
        Result convert = navo(std::string("convert ") + iso + " --to jsonl --encoding " + c.encoding);
        ASSERT_EQ(convert.code, 0) << convert.err;
        EXPECT_NE(convert.out.find(std::string("\"NazwaSkrocona\":\"") + c.utf8 + "\""), std::string::npos);
        writeFile(at("in.jsonl"), convert.out);
        ASSERT_EQ(navo(std::string("build ") + at("in.jsonl") + " --encoding " + c.encoding + " -o " + at("out.navo")).code, 0);
        EXPECT_EQ(readFile(at("out.navo")), readFile(iso));
    }
    // The same UTF-8 letters written as CP1250 take that code page's bytes.
    writeFile(at("in.jsonl"), navo("convert " + iso + " --to jsonl").out);
    ASSERT_EQ(navo("build " + at("in.jsonl") + " --encoding cp1250 -o " + at("cp.navo")).code, 0);
    EXPECT_NE(readFile(at("cp.navo")).find("\xA5\xB9\x8C\x9C\x8F\x9F"), std::string::npos);
}

TEST_F(Tool, ValidateNamesTheFaultItsCodeAndItsPlace)
{
    const std::string good = fileText("1.3", twoDocuments());
    std::string shortName = sampleValue(1, 2, 1, 0, 31);
    struct Case {
        const char *name;
        std::function<std::string(const std::string &)> mutate;
        int exit;
        std::vector<std::string> expected;
        std::function<size_t(const std::string &)> stop; // where the library stops reading, if checked
    } cases[] = {
        {"field one short", [&](const std::string &t) { return replaceOnce(t, shortName + "\n", shortName.substr(1) + "\n"); }, 1,
         {"code 5", "cause 7", "document 1 (TOBRCA)", "block DDORCA record 1, field Nazwisko",
          "expected 233 characters, found 232 (Nazwisko: 31, found 30)"},
         [&](const std::string &t) { return t.find("</DDORCA>", t.find(shortName.substr(1))); }},
        {"unknown block", [](const std::string &t) { return replaceOnce(replaceOnce(t, "<DIPL>", "<DIPX>"), "</DIPL>", "</DIPX>"); }, 1,
         {"cause 6", "document 1 (TOBRCA)", "block DIPX", "has no block"},
         [](const std::string &t) { return t.find("</DIPX>"); }},
        {"repeating block left out", [](std::string t) { return t.erase(t.find("<IORB>"), t.rfind("</IORB>\n") + 8 - t.find("<IORB>")); }, 1,
         {"cause 6", "document 2 (TOBZBA)", "block OPL1", "out of order: IORB expected"}, nullptr},
        {"unknown form", [](const std::string &t) { return replaceOnce(t, "<TOBZBA.DP>", "<TOBZZZ.DP>"); }, 1,
         {"cause 8", "document 2 (TOBZZZ)"}, [](const std::string &t) { return t.find("<TOBZZZ.DP>"); }},
        {"file header line short", [](const std::string &t) { return replaceOnce(t, fixed("H2", 8), fixed("H2", 7)); }, 1,
         {"code 3", "file header, field line2", "expected 139 characters, found 138"},
         [](const std::string &t) { return t.find("</naglowek.NAVO>"); }},
        {"document header line long", [](const std::string &t) { return replaceOnce(t, fixed("D5/2", 24), fixed("D5/2", 25)); }, 1,
         {"cause 3", "document 2 (TOBZBA), document header, field line5", "expected 245 characters, found 246"}, nullptr},
        {"no file footer", [](const std::string &t) { return t.substr(0, t.find("<stopka.NAVO>")); }, 1,
         {"code 4", "without a whole file footer"}, nullptr},
        {"truncated inside a block", [&](const std::string &t) { return t.substr(0, t.find(shortName) + 5); }, 1,
         {"cause 3", "block DDORCA record 1", "the file ends inside it"}, nullptr},
        {"not a NAVO file", [](const std::string &t) { return std::string(t.size(), 'x'); }, 1, {"code 1", "prolog"}, nullptr},
        {"binary garbage", [](const std::string &) { return std::string("\x00\xff\x1a\x80<>\x01", 7) + std::string(100, '\x9c'); }, 1,
         {"code 3", "prolog"}, nullptr},
        {"empty file", [](const std::string &) { return std::string(); }, 1, {"code 3", "the file ends inside the prolog"}, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::string text = c.mutate(good);
        std::string path = write("bad.navo", text);
        Result run = navo("validate " + path);
        EXPECT_EQ(run.code, c.exit) << run.out << run.err;
        EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
        for (const auto &part : c.expected)
            EXPECT_NE(run.out.find(part), std::string::npos) << part << "\n" << run.out;
        if (c.stop) {
            EXPECT_NE(run.out.find("invalid at line " + std::to_string(lineOf(text, c.stop(text))) + ":"), std::string::npos)
                << run.out;
        }
        EXPECT_EQ(run.out.find("1.2.1.0"), std::string::npos) << "no value in a fault report";
        Result json = navo("validate --format jsonl " + path);
        auto object = nlohmann::json::parse(json.out);
        EXPECT_FALSE(object["valid"].get<bool>());
        ASSERT_EQ(object["faults"].size(), 1u);
        const auto &fault = object["faults"][0];
        EXPECT_EQ(fault["message_en"].get<std::string>().empty(), false);
        if (c.stop) {
            EXPECT_EQ(fault["line"], lineOf(text, c.stop(text)));
        }
        EXPECT_FALSE(object.contains("findings")) << "no checks asked for";
    }
    // A file that cannot be read is named once, with the reason.
    Result missing = navo("validate " + at("none.navo") + " " + dir.path());
    EXPECT_EQ(missing.code, 2);
    EXPECT_EQ(missing.out, at("none.navo") + ": error: no such file\n" + dir.path() + ": error: is a directory\n");
    auto none = nlohmann::json::parse(navo("validate --format jsonl " + at("none.navo")).out);
    EXPECT_EQ(none["faults"][0]["code"], 2);
    EXPECT_EQ(none["faults"][0]["detail"], "no such file");
    EXPECT_FALSE(none["faults"][0].contains("line")) << "what is not known is left out";
}

TEST_F(Tool, ValidateAllResumesBehindEachFaultySectionAndWorkersKeepTheOrder)
{
    std::string shortName = sampleValue(1, 2, 1, 0, 31);
    std::string third = sectionText(layouts13, "TOBZBA", 3, {1, 1, 2, 1});
    std::string text = fileText("1.3", twoDocuments() + third, kFileNote);
    text = replaceOnce(text, shortName + "\n", shortName + "x\n");                       // document 1
    text = replaceOnce(text, sampleValue(3, 3, 0, 0, 8) + "\n", "\n"); // document 3, OPL1
    std::string path = write("three.navo", text);
    Result all = navo("validate --all --format jsonl " + path);
    EXPECT_EQ(all.code, 1);
    auto faults = nlohmann::json::parse(all.out)["faults"];
    ASSERT_EQ(faults.size(), 2u) << all.out;
    EXPECT_EQ(faults[0]["document"], 1);
    EXPECT_EQ(faults[0]["record"], 1);
    EXPECT_EQ(faults[0]["line"], lineOf(text, text.find("</DDORCA>", text.find(shortName))));
    EXPECT_EQ(faults[1]["document"], 3);
    EXPECT_EQ(faults[1]["block"], "OPL1");
    EXPECT_EQ(faults[1]["line"], lineOf(text, text.rfind("</OPL1>")));
    EXPECT_EQ(faults[1]["found"], 0);

    std::string good = write("good.navo", fileText("1.3", twoDocuments()));
    std::string files = good + " " + path + " " + good + " " + at("none.navo");
    Result one = navo("validate -j 1 " + files), two = navo("validate -j 2 " + files);
    EXPECT_EQ(one.code, 2);
    EXPECT_EQ(two.code, 2);
    EXPECT_EQ(one.out, two.out);
    EXPECT_EQ(std::count(two.out.begin(), two.out.end(), '\n'), 4);
}

TEST_F(Tool, BuildRejectsBadInputNamingItsPlaceAndLeavesNoFile)
{
    const std::string file = R"({"type":"file","version":"1.3","header":["H1","H2","","",""]})";
    auto doc = [](const std::string &form, const std::string &blocks) {
        return R"({"type":"document","form":")" + form + R"(","header":["D1"],"blocks":{)" + blocks + "}}";
    };
    struct Case {
        const char *name;
        std::string input;
        const char *extension;
        const char *options;
        int exit;
        std::vector<std::string> expected;
    } cases[] = {
        {"unknown form", file + "\n" + doc("TOBXYZ", ""), "jsonl", "", 1, {":2: ", "no form of that name: 'TOBXYZ'"}},
        {"unknown block", file + "\n" + doc("TOBZBA", R"("XYZ":[{}])"), "jsonl", "", 1,
         {":2: document 1 (TOBZBA), body: ", "no block of that tag: 'XYZ'"}},
        {"unknown field", file + "\n\n" + doc("TOBZBA", R"("DIPL":[{"Foo":"1"}])"), "jsonl", "", 1,
         {":3: document 1 (TOBZBA), body, block DIPL record 0: ", "no field of that name: 'Foo'"}},
        {"value too wide", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"SECRET67890"}])"), "jsonl", "", 1,
         {"block DIPL record 0, field Nip; expected 10 characters, found 11: the value is wider than its field"}},
        {"value too wide, shown", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"SECRET67890"}])"), "jsonl", "--show-values", 1,
         {"SECRET67890"}},
        {"value too wide, cut", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"SECRET67890"}])"), "jsonl", "--truncate", 0, {}},
        {"character ISO 8859-2 lacks", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"€"}])"), "jsonl", "", 1,
         {"field Nip", "the code page ISO 8859-2 does not have"}},
        {"the same character in CP1250", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"€"}])"), "jsonl", "--encoding cp1250", 0, {}},
        {"second record of a single block", file + "\n" + doc("TOBZBA", R"("DIPL":[{},{}])"), "jsonl", "", 1, {"single"}},
        {"CSV record out of turn", "document,form,block,record,field,value\n1,TOBZBA,IORB,2,NumerRachunku,1\n", "csv", "", 1,
         {":2: document 1 (TOBZBA), body, block IORB record 2", "no record of that number"}},
        {"file header line 6", R"({"type":"file","version":"1.3","header":["","","","","","H6"]})", "jsonl", "", 1,
         {":1: file header", "no line of that number"}},
        {"unknown version", R"({"type":"file","version":"1.4"})", "jsonl", "", 1, {":1: unknown definition version"}},
        {"malformed JSON", file + "\n" + doc("TOBZBA", R"("DIPL":[{"Nip":"SECRET)"), "jsonl", "", 1, {":2: ", "malformed JSON"}},
        {"CSV value not UTF-8", "document,form,block,record,field,value\n1,TOBZBA,DIPL,0,Nip,SECRET\xff\n", "csv", "", 1,
         {":2: document 1 (TOBZBA), body, block DIPL record 0, field Nip", "not UTF-8"}},
        {"JSON not an array", file, "json", "", 1, {"array"}},
        {"malformed CSV", "document,form\n1,TOBZBA\n", "csv", "", 1, {"malformed CSV"}},
        {"CSV quote left open", "document,form,block,record,field,value\n1,TOBZBA,DIPL,0,Nip,\"12\n", "csv", "", 1,
         {"malformed CSV"}},
        {"empty input", "", "jsonl", "", 1, {"empty"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::string input = "in." + std::string(c.extension);
        writeFile(at(input), c.input);
        Result run = navo("build " + at(input) + " -o " + at("out.navo") + " " + c.options);
        EXPECT_EQ(run.code, c.exit) << run.err;
        for (const auto &part : c.expected)
            EXPECT_NE(run.err.find(part), std::string::npos) << part << "\n" << run.err;
        if (std::string(c.options).find("--show-values") == std::string::npos) {
            EXPECT_EQ(run.err.find("SECRET"), std::string::npos);
        }
        if (c.exit != 0)
            expectOnly({input});
        std::remove(at("out.navo").c_str());
        std::remove(at(input).c_str());
    }
    for (const char *args : {"build /nonexistent.jsonl -o x.navo", "build . -o x.navo", "convert /nonexistent --to csv",
                             "show /nonexistent", "diff /nonexistent /nonexistent", "frobnicate", "convert",
                             "schema TOBXYZ", "schema TOBZBA XYZ", "show x.navo --doc 0",
                             "validate --rules /nonexistent.json x.navo"}) {
        Result run = navo(args);
        EXPECT_EQ(run.code, 2) << args;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << run.err;
    }
}

TEST_F(Tool, ConvertAndShowOfAnInvalidFileFailWithoutOutput)
{
    std::string text = fileText("1.3", twoDocuments());
    std::string bad = write("bad.navo", text.substr(0, text.size() / 2));
    Result convert = navo("convert " + bad + " --to jsonl -o " + at("out.jsonl"));
    EXPECT_EQ(convert.code, 1);
    EXPECT_NE(convert.err.find("invalid at line"), std::string::npos) << convert.err;
    Result show = navo("show " + bad);
    EXPECT_EQ(show.code, 1);
    expectOnly({"bad.navo"});
}

TEST_F(Tool, DiffReportsDocumentsAndFieldsThatDiffer)
{
    std::string a = write("a.navo", fileText("1.3", twoDocuments()));
    std::string changed = replaceOnce(fileText("1.3", twoDocuments()), sampleValue(2, 1, 0, 0, 10), fixed("X", 10));
    std::string b = write("b.navo", changed);
    std::string extra = write("c.navo", fileText("1.3", twoDocuments() + sectionText(layouts13, "TOBZBA", 3, {})));
    std::string swapped = write("d.navo", fileText("1.3", sectionText(layouts13, "TOBZBA", 2, {1, 1, 3, 1}, noteFooter()) +
                                                               sectionText(layouts13, "TOBRCA", 1, {1, 1, 3, 1})));
    std::string longer = write("e.navo", fileText("1.3", sectionText(layouts13, "TOBRCA", 1, {1, 1, 3, 1}) +
                                                             sectionText(layouts13, "TOBZBA", 2, {1, 1, 4, 1}, noteFooter())));
    struct Case {
        std::string args;
        int exit;
        std::string out;
    } cases[] = {
        {a + " " + a, 0, "equal\n"},
        {a + " " + b, 1, "document 2 (TOBZBA): block DIPL record 0 field Nip differs\n"},
        {a + " " + b + " --show-values", 1, "document 2 (TOBZBA): block DIPL record 0 field Nip differs: \"2.1.0.0\" -> \"X\"\n"},
        {a + " " + extra, 1, "document 3 (TOBZBA): only in B\n"},
        {a + " " + swapped + " --key DIPL.Nip", 0, "equal\n"},
        {a + " " + swapped + " --key dipl.nip", 0, "equal\n"},
        {a + " " + longer, 1, "document 2 (TOBZBA): block IORB record 3 only in B\n"},
    };
    for (const auto &c : cases) {
        Result run = navo("diff " + c.args);
        EXPECT_EQ(run.code, c.exit) << c.args;
        EXPECT_EQ(run.out, c.out) << c.args;
    }
    Result json = navo("diff --format jsonl " + a + " " + b);
    EXPECT_EQ(nlohmann::json::parse(json.out)["field"], "Nip");
}

// --content: findings after the structure, with place, type, rule and problem, never a value
// unless asked for; rules of one's own; build refuses such values before anything is saved.
TEST_F(Tool, ContentChecksFindAndRefuseValuesByTheirRules)
{
    // NIP one off; PESEL of 14 May 1944 beside a birth date of the 15th (a finding across fields).
    const std::string input = write("in.jsonl", R"({"type":"file","version":"1.3"}
{"type":"document","form":"TOBZBA","blocks":{"DIPL":[{"Nip":"5261040827","Pesel":"44051401359","DataUrodzenia":"15051944"}]}}
)");
    ASSERT_EQ(navo("build " + input + " -o " + at("plain.navo")).code, 0);
    const std::string file = at("plain.navo");
    writeFile(at("off.json"), R"({"rules": [{"form": "TOBZBA", "block": "DIPL", "field": "Nip", "check": "none"}],
 "cross_checks": false})");
    writeFile(at("bad.json"), "{\"rules\": [\n  {\"type\": \"t_NIP\", \"check\": \"nipp\"}\n]}");
    const std::string nip = file + ": document 1 (TOBZBA), body, block DIPL record 0, field Nip: t_NIP, rule nip: ";
    struct Case {
        std::string args;
        int exit;
        std::vector<std::string> out;  // parts of standard output, in order
        std::string err;
    } cases[] = {
        {"validate " + file, 0, {file + ": valid\n"}, ""},
        {"validate --content " + file, 1, {nip, "field DataUrodzenia: t_data_DDMMRRRR, rule pesel-birth-date: "}, ""},
        {"validate --content --show-values " + file, 1, {nip, "(value \"5261040827\")"}, ""},
        {"validate --rules " + at("off.json") + " " + file, 0, {file + ": valid\n"}, ""},
        {"validate --rules " + at("bad.json") + " " + file, 2, {}, "navo: " + at("bad.json") + ":2: "},
        {"build --content " + input + " -o " + at("checked.navo"), 1, {},
         "navo: " + input + ":2: document 1 (TOBZBA), body, block DIPL record 0, field Nip: the value fails its content rule (nip)"},
        {"build --rules " + at("off.json") + " " + input + " -o " + at("checked.navo"), 0, {}, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        Result run = navo(c.args);
        EXPECT_EQ(run.code, c.exit) << run.out << run.err;
        size_t at = 0;
        for (const auto &part : c.out) {
            at = run.out.find(part, at);
            EXPECT_NE(at, std::string::npos) << part << "\n" << run.out;
        }
        EXPECT_EQ(run.err.rfind(c.err, 0), 0u) << run.err;
        if (c.args.find("--show-values") == std::string::npos) {
            EXPECT_EQ(run.out.find("5261040827"), std::string::npos) << "no value unless asked for";
            EXPECT_EQ(run.err.find("5261040827"), std::string::npos);
        }
    }
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"bad.json", "checked.navo", "in.jsonl", "off.json", "plain.navo"}))
        << "the refused build left nothing";

    for (const bool values : {false, true}) {
        Result json = navo(std::string("validate --content --format jsonl ") + (values ? "--show-values " : "") + file);
        const auto object = nlohmann::json::parse(json.out);
        EXPECT_FALSE(object["valid"].get<bool>());
        EXPECT_TRUE(object["faults"].empty());
        ASSERT_EQ(object["findings"].size(), 2u) << json.out;
        const auto &finding = object["findings"][0];
        EXPECT_EQ(finding["document"], 1);
        EXPECT_EQ(finding["form"], "TOBZBA");
        EXPECT_EQ(finding["block"], "DIPL");
        EXPECT_EQ(finding["record"], 0);
        EXPECT_EQ(finding["field"], "Nip");
        EXPECT_EQ(finding["type"], "t_NIP");
        EXPECT_EQ(finding["rule"], "nip");
        EXPECT_EQ(finding["kind"], "value");
        EXPECT_EQ(object["findings"][1]["kind"], "cross");
        EXPECT_EQ(finding.contains("value"), values);
    }
}

// What the tool writes goes through the core: a failed write is an error (exit 2) that leaves
// nothing behind, and a file written gets the permissions the umask gives.
TEST_F(Tool, OutputsThatFailSaySoAndLeaveNothing)
{
    const std::string good = write("good.navo", fileText("1.3", twoDocuments()));
    writeFile(at("in.jsonl"), navo("convert " + good + " --to jsonl").out);
    const std::string notDir = good + "/out";  // a path below a file: no one can write there
    struct Case {
        std::string args;
        std::string err;
    } cases[] = {
        {"validate " + good + " >/dev/full", "navo: standard output: No space left on device\n"},
        {"convert " + good + " --to json >/dev/full", "navo: standard output: No space left on device\n"},
        {"schema >/dev/full", "navo: standard output: No space left on device\n"},
        {"build " + at("in.jsonl") + " -o " + notDir + ".navo", "navo: " + notDir + ".navo: the new file beside"},
        {"convert " + good + " --to csv -o " + notDir + ".csv", "navo: " + notDir + ".csv: the new file beside"},
        {"convert " + good + " --to csv --csv-layout blocks -o " + notDir, "navo: " + notDir + ".TOBRCA."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        Result run = navo(c.args);
        EXPECT_EQ(run.code, 2);
        EXPECT_EQ(run.err.rfind(c.err, 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        expectOnly({"good.navo", "in.jsonl"});
    }
    for (const std::string &args : {"build " + at("in.jsonl") + " -o " + at("out.navo"),
                                   "convert " + good + " --to csv -o " + at("out.csv")}) {
        ASSERT_EQ(std::system(("umask 022 && " + std::string(NAVO_TOOL) + " " + args).c_str()), 0) << args;
    }
    EXPECT_EQ(permissions(at("out.navo")), 0644);
    EXPECT_EQ(permissions(at("out.csv")), 0644);
    EXPECT_EQ(readFile(at("out.navo")), readFile(good));
}

// One voice: the answers a new user meets first.
TEST_F(Tool, CommandLineAnswers)
{
    struct Case {
        std::string args;
        int exit;
        std::string out, err;
    } cases[] = {
        {"--version", 0, "navo " NAVO_VERSION "\n", ""},
        {"frobnicate x", 2, "",
         "navo: unknown command 'frobnicate' (validate, show, convert, build, schema, diff; see navo --help)\n"},
        {"show x.navo --doc 0", 2, "", "navo: --doc: a document number from 1\n"},
        {"validate -j 0 x.navo", 2, "", "navo: --jobs: a number of processes from 1 to 256\n"},
        {"convert x.navo --to xml", 2, "", "navo: --to: jsonl, json or csv\n"},
        {"show x.navo --encoding latin9", 2, "", "navo: --encoding: an encoding: iso8859-2 (the format's own) or cp1250\n"},
        {"schema --version 1.4", 2, "", "navo: --version: a definition version: 1.3 or 1.2\n"},
    };
    for (const auto &c : cases) {
        Result run = navo(c.args);
        EXPECT_EQ(run.code, c.exit) << c.args;
        EXPECT_EQ(run.out, c.out) << c.args;
        EXPECT_EQ(run.err, c.err) << c.args;
    }
    for (const char *help : {"--help", "show --help", "diff --help"}) {
        const Result run = navo(help);
        EXPECT_EQ(run.code, 0);
        EXPECT_NE(run.out.find("records of a block, notes and lines\ncount from 0"), std::string::npos) << help;
    }
    EXPECT_EQ(navo("show --help").out.find("--show-values"), std::string::npos) << "offered where it changes something";
}

TEST_F(Tool, ShowNarrowsAndSchemaDescribesEveryBlock)
{
    std::string path = write("two.navo", fileText("1.3", twoDocuments()));
    Result show = navo("show " + path + " --doc 2 --block IORB");
    ASSERT_EQ(show.code, 0);
    EXPECT_NE(show.out.find("Block IORB record 2 of 0-2"), std::string::npos) << show.out;
    EXPECT_NE(show.out.find("\"2.2.2.1\" + 29 blanks"), std::string::npos) << show.out;
    EXPECT_EQ(show.out.find("DIPL"), std::string::npos);
    EXPECT_EQ(show.out.find("Document 1"), std::string::npos);

    // One table per block, all written in one pass: each file holds its own rows only.
    ASSERT_EQ(navo("convert " + path + " --to csv --csv-layout blocks -o " + at("t.csv")).code, 0);
    EXPECT_EQ(readFile(at("t.TOBZBA.IORB.csv")), "document,record,KodRodzajuZgloszen,NumerRachunku\r\n"
                                                 "2,0,0,2.2.0.1\r\n2,1,0,2.2.1.1\r\n2,2,0,2.2.2.1\r\n");
    EXPECT_EQ(readFile(at("t.TOBRCA.OPLR.csv")), "document,record,DataWypelnienia\r\n1,0,1.3.0.0\r\n");
    std::string headers = readFile(at("t.headers.csv"));
    EXPECT_EQ(std::count(headers.begin(), headers.end(), '\n'), 3);

    for (const std::string version : {"1.3", "1.2"}) {
        Result schema = navo("schema --json --version " + version);
        ASSERT_EQ(schema.code, 0);
        auto json = nlohmann::json::parse(schema.out);
        Layouts layouts(version == "1.3" ? GetDefTXT_1_3() : GetDefTXT_1_2());
        ASSERT_EQ(json["forms"].size(), layouts.formNames().size());
        for (const auto &form : json["forms"]) {
            const auto &expected = layouts.form(form["name"].get<std::string>());
            ASSERT_EQ(form["blocks"].size(), expected.size());
            for (size_t b = 0; b < expected.size(); b++) {
                const auto &block = form["blocks"][b];
                EXPECT_EQ(block["tag"], expected[b].tag);
                EXPECT_EQ(block["repeating"], expected[b].repeating);
                EXPECT_FALSE(block["name"].get<std::string>().empty());
                int offset = 0;
                for (const auto &field : block["fields"]) {
                    EXPECT_EQ(field["offset"], offset);
                    EXPECT_TRUE(field["type"].is_string());
                    offset += field["width"].get<int>();
                }
                EXPECT_EQ(block["recordLength"], offset);
            }
        }
    }
    Result dipl = navo("schema TOBZBA DIPL --json");
    EXPECT_EQ(nlohmann::json::parse(dipl.out)["forms"][0]["blocks"][0]["fields"][0]["type"], "t_NIP");
}

} // namespace
