// test_cli.cpp - the navo tool's own pieces: the command line made into typed values and its
// refusals, build's readers on tricky input, the output helpers, and the progress bar polling a
// running load from its thread (meaningful under ThreadSanitizer).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <sstream>
#include <thread>

#include "build_input.hpp"
#include "common.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "test_support.h"

using namespace navo_cli;

namespace {

Invocation parse(const std::vector<std::string> &words)
{
    std::vector<const char *> argv{"navo"};
    for (const std::string &word : words)
        argv.push_back(word.c_str());
    return parse_command_line(static_cast<int>(argv.size()), argv.data());
}

// ---- the command line --------------------------------------------------------------------------

TEST(CommandLine, OptionsBecomeTypedValues)
{
    const struct {
        std::vector<std::string> words;
        std::function<void(const Invocation &)> check;
    } cases[] = {
        {{"validate", "a.navo", "b.navo", "--all", "--rules", "r.json", "--format", "jsonl", "-j", "4", "--encoding",
          "CP1250", "--show-values"},
         [](const Invocation &i) {
             EXPECT_EQ(Command::validate, i.command);
             EXPECT_EQ((std::vector<std::string>{"a.navo", "b.navo"}), i.validate.files);
             EXPECT_TRUE(i.validate.all && i.validate.content && i.showValues) << "--rules implies --content";
             EXPECT_EQ(Report::jsonl, i.validate.format);
             EXPECT_EQ(4, i.validate.jobs);
             EXPECT_EQ(navo::encoding::cp1250, i.validate.encoding);
         }},
        {{"show", "f.navo", "--doc", "3", "--encoding", "latin2", "--no-progress"},
         [](const Invocation &i) {
             EXPECT_EQ(3, i.show.doc);
             EXPECT_EQ(navo::encoding::iso8859_2, i.show.encoding);
             EXPECT_TRUE(i.noProgress);
         }},
        {{"convert", "f.navo", "--to", "csv", "--csv-layout", "blocks", "-o", "t"},
         [](const Invocation &i) { EXPECT_EQ(navo::format::csv_blocks, i.convert.to); }},
        {{"convert", "f.navo", "--to", "json", "--csv-layout", "blocks"},
         [](const Invocation &i) { EXPECT_EQ(navo::format::json, i.convert.to) << "a CSV layout leaves JSON alone"; }},
        {{"build", "in.txt", "-o", "o.navo", "--from", "csv", "--version", "1.2", "--truncate", "--content"},
         [](const Invocation &i) {
             EXPECT_EQ(InputFormat::csv, i.build.from);
             EXPECT_EQ("1.2", i.build.version);
             EXPECT_TRUE(i.build.truncate && i.build.content);
         }},
        {{"diff", "a.navo", "b.navo", "--key", "DIPL.Nip", "--format", "jsonl"},
         [](const Invocation &i) {
             EXPECT_EQ("DIPL", i.diff.keyBlock);
             EXPECT_EQ("Nip", i.diff.keyField);
             EXPECT_EQ(Report::jsonl, i.diff.format);
         }},
        {{"schema", "TOBZBA", "DIPL", "--version", "1.2", "--json"},
         [](const Invocation &i) {
             EXPECT_EQ("TOBZBA", i.schema.form);
             EXPECT_EQ("DIPL", i.schema.block);
             EXPECT_TRUE(i.schema.json);
         }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words.front());
        const Invocation invocation = parse(c.words);
        EXPECT_EQ("", invocation.err);
        c.check(invocation);
    }
}

TEST(CommandLine, AnswersAndRefusals)
{
    const struct {
        std::vector<std::string> words;
        int exit;
        std::string err;
    } cases[] = {
        {{}, 2, "navo: a command is needed (validate, show, convert, build, schema, diff; see navo --help)\n"},
        {{"vaildate", "a.navo"}, 2,
         "navo: unknown command 'vaildate' (validate, show, convert, build, schema, diff; see navo --help)\n"},
        {{"show", "f.navo", "--doc", "0"}, 2, "navo: --doc: a document number from 1\n"},
        {{"show", "f.navo", "--doc", "2x"}, 2, "navo: --doc: a document number from 1\n"},
        {{"validate", "-j", "257", "f.navo"}, 2, "navo: --jobs: a number of processes from 1 to 256\n"},
        {{"validate", "--format", "xml", "f.navo"}, 2, "navo: --format: text or jsonl\n"},
        {{"diff", "a", "b", "--key", "DIPL"}, 2, "navo: --key: BLOCK.FIELD, as DIPL.Nip\n"},
        {{"diff", "a", "b", "--key", "A.B.C"}, 2, "navo: --key: BLOCK.FIELD, as DIPL.Nip\n"},
        {{"build", "in.jsonl", "-o", "o", "--version", "2.0"}, 2, "navo: --version: a definition version: 1.3 or 1.2\n"},
        {{"show", "f.navo", "--show-values"}, 2,
         "navo: The following argument was not expected: --show-values (see navo show --help)\n"},
        {{"show"}, 2, "navo: file is required (see navo show --help)\n"},
        {{"--version"}, 0, ""},
        {{"--help"}, 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words.empty() ? "(none)" : c.words.front());
        const Invocation invocation = parse(c.words);
        EXPECT_EQ(Command::none, invocation.command);
        EXPECT_EQ(c.exit, invocation.exit);
        EXPECT_EQ(c.err, invocation.err);
    }
    EXPECT_EQ("navo " + std::string(navo::version()) + "\n", parse({"--version"}).out);
    EXPECT_NE(std::string::npos, parse({"--help"}).out.find("documents count from 1"));
}

// ---- build's readers ---------------------------------------------------------------------------

// Each event of a reader as a line of words.
class Recorder final : public BuildSink {
public:
    std::vector<std::string> events;

    void version(const std::string &v) override { add("version " + v); }
    void file_header(std::size_t line, const std::string &text) override { add(fmt::format("file_header {} {}", line, text)); }
    void file_note(const std::vector<std::string> &texts) override { add("file_note " + joined(texts)); }
    void begin_document(const std::string &form) override { add("document " + form); }
    void header(std::size_t line, const std::string &text) override { add(fmt::format("header {} {}", line, text)); }
    void begin_block(const std::string &tag) override { add("block " + tag); }
    void begin_record(std::size_t record) override { add(fmt::format("record {}", record)); }
    void field(const std::string &name, const std::string &value) override { add(name + "=" + value); }
    void ocr_note(int kind, const std::vector<std::string> &texts) override
    {
        add(fmt::format("ocr {} {}", kind, joined(texts)));
    }
    void error_note(const std::vector<std::string> &texts) override { add("error_note " + joined(texts)); }
    void end_document() override { add("end"); }

private:
    void add(std::string event) { events.push_back(std::move(event)); }
    static std::string joined(const std::vector<std::string> &texts)
    {
        std::string out;
        for (const std::string &text : texts)
            out += "[" + text + "]";
        return out;
    }
};

enum class Reader { jsonl, json, csv };

struct Read {
    std::vector<std::string> events;
    std::string error;  // "LINE: what" of an InputError
};

Read read(Reader reader, const std::string &input, bool showValues = false)
{
    std::FILE *file = std::tmpfile();
    std::fwrite(input.data(), 1, input.size(), file);
    std::rewind(file);
    InputBuffer buffer(file);
    std::istream in(&buffer);
    Recorder sink;
    Read result;
    try {
        if (reader == Reader::csv)
            read_csv(in, buffer, sink);
        else if (reader == Reader::json)
            read_json(in, sink, showValues);
        else
            read_json_lines(in, sink, showValues);
    } catch (const InputError &e) {
        result.error = fmt::format("{}: {}", buffer.line(), e.what());
    }
    std::fclose(file);
    result.events = sink.events;
    return result;
}

TEST(BuildInput, ReadersHandOnWhatTheInputHolds)
{
    const std::vector<std::string> document = {"document TOBZBA", "header 0 D1", "block IORB", "record 0", "A=1",
                                               "record 1",        "A=x,\"y\"",   "end"};
    const struct {
        const char *name;
        Reader reader;
        std::string input;
        std::vector<std::string> events;
    } cases[] = {
        {"JSON Lines: blank lines, CR LF, an object over lines, escapes, the number ignored", Reader::jsonl,
         "\r\n{\"type\":\"file\",\"version\":\"1.2\",\"header\":[\"H\\u0105\",\"\"]}\r\n\r\n"
         "{\"type\":\"document\",\"number\":7,\"form\":\"TOBZBA\",\n\"header\":[\"D1\"],"
         "\"blocks\":{\"IORB\":[{\"A\":\"1\"},{\"A\":\"x,\\\"y\\\"\"}]},"
         "\"ocr\":[{\"kind\":3,\"texts\":[\"O\"]}],\"errors\":[[\"E1\",\"E2\"]]}\n"
         "{\"type\":\"footer\",\"errors\":[[\"F\"]]}",
         {"version 1.2", "file_header 0 H\xC4\x85", "file_header 1 ", "document TOBZBA", "header 0 D1", "block IORB",
          "record 0", "A=1", "record 1", "A=x,\"y\"", "ocr 3 [O]", "error_note [E1][E2]", "end", "file_note [F]"}},
        {"JSON: the same objects in one array", Reader::json,
         "[{\"type\":\"document\",\"form\":\"TOBZBA\",\"header\":[\"D1\"],"
         "\"blocks\":{\"IORB\":[{\"A\":\"1\"},{\"A\":\"x,\\\"y\\\"\"}]}}]",
         document},
        {"CSV: quotes, doubled quotes, CR LF, notes by their record", Reader::csv,
         "document,form,block,record,field,value\r\n0,,@file,0,version,1.3\r\n0,,@header,0,line2,\"a,\"\"b\"\"\"\r\n"
         "1,TOBZBA,@header,0,line1,D1\r\n1,TOBZBA,IORB,0,A,1\r\n1,TOBZBA,IORB,1,A,\"x,\"\"y\"\"\"\r\n"
         "1,TOBZBA,@ocr,0,kind,2\r\n1,TOBZBA,@ocr,0,text1,O\r\n1,TOBZBA,@error,0,text1,E\r\n1,TOBZBA,@error,1,text1,G\r\n"
         "0,,@error,0,text1,F\r\n",
         {"version 1.3", "file_header 1 a,\"b\"", "document TOBZBA", "header 0 D1", "block IORB", "record 0", "A=1",
          "record 1", "A=x,\"y\"", "ocr 2 [O]", "error_note [E]", "error_note [G]", "end", "file_note [F]"}},
        {"CSV: a line end inside a quoted value", Reader::csv,
         "document,form,block,record,field,value\n1,TOBZBA,DIPL,0,Nazwa,\"a\nb\"\n",
         {"document TOBZBA", "block DIPL", "record 0", "Nazwa=a\nb", "end"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Read result = read(c.reader, c.input);
        EXPECT_EQ("", result.error);
        EXPECT_EQ(c.events, result.events);
    }
}

TEST(BuildInput, MalformedInputNamesItsLineAndNoValue)
{
    const std::string header = "document,form,block,record,field,value\n";
    const struct {
        const char *name;
        Reader reader;
        std::string input;
        std::string error;  // "LINE: what", or its start
    } cases[] = {
        {"JSON cut inside a value", Reader::jsonl, "{\"type\":\"file\"}\n{\"type\":\"document\",\"form\":\"SECRET",
         "2: malformed JSON: syntax error while parsing value - invalid string: missing closing quote"},
        {"type not first", Reader::jsonl, "{\"form\":\"TOBZBA\",\"type\":\"document\"}",
         "1: \"type\" must be the first key of each object"},
        {"unknown type", Reader::jsonl, "{\"type\":\"docs\"}", "1: unknown object type 'docs'"},
        {"a value where records go", Reader::jsonl, "{\"type\":\"document\",\"form\":\"F\",\n\"blocks\":{\"B\":[1]}}",
         "2: a value was not expected at .blocks.B[0]"},
        {"an object in a JSON file's place", Reader::json, "{\"type\":\"file\"}", "1: a JSON file holds one array"},
        {"CSV: a wrong first row", Reader::csv, "document,form\n", "1: malformed CSV: the first row must be"},
        {"CSV: five columns", Reader::csv, header + "1,TOBZBA,DIPL,0,Nip\n", "2: malformed CSV: 5 columns, 6 expected"},
        {"CSV: text behind a quote", Reader::csv, header + "1,TOBZBA,DIPL,0,Nip,\"1\"2\n",
         "2: malformed CSV: text behind a closing quote"},
        {"CSV: a quote left open", Reader::csv, header + "1,TOBZBA,DIPL,0,Nip,\"12\n",
         "2: malformed CSV: the input ends inside a quoted field"},
        {"CSV: the row's own line after a value over two lines", Reader::csv,
         header + "1,TOBZBA,DIPL,0,Nazwa,\"a\nb\"\n1,TOBZBA,DIPL,x,Nip,1\n", "4: malformed CSV: record must be a number"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Read result = read(c.reader, c.input);
        EXPECT_EQ(0u, result.error.rfind(c.error, 0)) << result.error;
        EXPECT_EQ(std::string::npos, result.error.find("SECRET")) << "no value unless asked for";
    }
    EXPECT_NE(std::string::npos,
              read(Reader::jsonl, "{\"type\":\"document\",\"form\":\"SECRET", true).error.find("SECRET"));
}

// ---- output helpers ----------------------------------------------------------------------------

TEST(Output, JsonStringsAndTheWordsOfFaultsAndFindings)
{
    EXPECT_EQ(R"("a\"b\\c\n\r\t\u0001\u001f\u007f ąż")", json_string("a\"b\\c\n\r\t\x01\x1f\x7f ąż"));
    EXPECT_EQ("ab", trim_right("ab  "));
    EXPECT_EQ("", trim_right("   "));

    navo::Fault fault{navo::errc::bad_document, navo::errc::bad_block_size, {}, "the block's text is short"};
    fault.place.area = "body";
    fault.place.document = 2;
    fault.place.form = "TOBZBA";
    fault.place.block = "DIPL";
    fault.place.record = 0;
    fault.place.line = 40;
    EXPECT_EQ("f.navo: invalid at line 40: code 5, " + navo::english(fault.code) + " [" + fault.code.message() +
                  "]; cause 7, " + navo::english(fault.cause) + " [" + fault.cause.message() +
                  "]; at document 2 (TOBZBA), body, block DIPL record 0; the block's text is short",
              fault_text("f.navo", fault));
    std::string json;
    append_fault_json(json, fault);
    EXPECT_EQ(0u, json.find(R"({"code":5,"message":)"));
    EXPECT_NE(std::string::npos,
              json.find(R"("cause":7,"line":40,"area":"body","document":2,"form":"TOBZBA","block":"DIPL","record":0,)"
                        R"("detail":"the block's text is short"})"))
        << json;

    navo::Fault missing{navo::errc::open_failed, navo::errc::open_failed, {}, "no such file"};
    EXPECT_EQ("f.navo: error: no such file", fault_text("f.navo", missing));

    navo::Finding finding{navo::finding_kind::cross, {}, "t_data_DDMMRRRR", "pesel-birth-date", "differs", "15051944"};
    finding.place.document = 1;
    finding.place.field = "DataUrodzenia";
    EXPECT_EQ("f.navo: document 1, field DataUrodzenia: t_data_DDMMRRRR, rule pesel-birth-date: differs",
              finding_text("f.navo", finding, false));
    EXPECT_NE(std::string::npos, finding_text("f.navo", finding, true).find("(value \"15051944\")"));
    std::string hidden, shown;
    append_finding_json(hidden, finding, false);
    append_finding_json(shown, finding, true);
    EXPECT_EQ(R"({"document":1,"field":"DataUrodzenia","type":"t_data_DDMMRRRR","rule":"pesel-birth-date",)"
              R"("kind":"cross","problem":"differs"})",
              hidden);
    EXPECT_EQ(hidden.substr(0, hidden.size() - 1) + R"(,"value":"15051944"})", shown);
}

// ---- the progress bar --------------------------------------------------------------------------

// The bar's thread polls a running load while the loading thread waits inside the load until the
// bar has seen it under way: both touch the core's counters at once, as on a terminal.
TEST(Progress, TheBarPollsARunningLoadFromItsThread)
{
    navo_test::ScopedTempDir tmp;
    const std::string path = tmp.file("big.navo");
    {
        navo::Writer writer;
        const int doc = writer.add_document("TOBZBA");
        for (int r = 1; r < 2000; r++)
            writer.set(doc, "IORB", writer.add_record(doc, "IORB"), "NumerRachunku", std::to_string(r));
        writer.save(path);
    }
    std::FILE *terminal = std::tmpfile();
    ASSERT_NE(nullptr, terminal);
    std::atomic<bool> seen{false};
    navo::LoadResult result;
    {
        ProgressBar bar(terminal, [&seen] {
            const auto at = load_progress();
            if (at.first > 0)
                seen = true;
            return at;
        }, std::chrono::milliseconds(1));
        result = navo::load(path, [&](const navo::Document &) {
            for (int spins = 0; !seen && spins < 10000000; spins++)
                std::this_thread::yield();
            return true;
        });
        bar.finish();
    }
    ASSERT_TRUE(result) << result.code.message();
    EXPECT_TRUE(seen);
    EXPECT_EQ(navo::Progress{}.lines, navo::progress().lines) << "no load runs now";
    std::string drawn(4096, '\0');
    std::rewind(terminal);
    drawn.resize(std::fread(drawn.data(), 1, drawn.size(), terminal));
    std::fclose(terminal);
    EXPECT_EQ(0u, drawn.find("\r[")) << drawn;
    EXPECT_EQ(drawn.size() - 8, drawn.rfind("] 100 %\n")) << drawn;

    // Without a terminal there is no bar and no thread.
    ProgressBar none(nullptr, [] { return std::pair<std::int64_t, std::int64_t>(1, 2); });
    none.finish();
}

}  // namespace
