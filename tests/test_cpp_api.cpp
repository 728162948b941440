// test_cpp_api.cpp - what navo.hpp adds to navo_front.h: the bridge from the core's callbacks to
// C++ callables (stops, exceptions, nested loads, faults, findings), codes and their words, the
// views and copies a host keeps, the writer's two kinds of overloads and its refusals, content
// checks with rules of one's own, work on threads.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "navo.hpp"
#include "navo_example.h"
#include "test_support.h"

namespace {

using navo_test::exampleLines;
using navo_test::padded;

// Lifetimes by contract: a Document is a view that cannot leave its callback; the owners move.
static_assert(!std::is_copy_constructible_v<navo::Document> && !std::is_move_constructible_v<navo::Document>);
static_assert(!std::is_copy_constructible_v<navo::Writer> && std::is_nothrow_move_constructible_v<navo::Writer>);
static_assert(!std::is_copy_constructible_v<navo::KeptDocument> &&
              std::is_nothrow_move_constructible_v<navo::KeptDocument>);
static_assert(!std::is_copy_constructible_v<navo::Output> && std::is_nothrow_move_constructible_v<navo::Output>);
static_assert(std::is_same_v<decltype(std::declval<navo::Document &>().form()), std::string_view>);
static_assert(std::is_same_v<decltype(std::declval<navo::Document &>().field("", 0, "")), std::string>);
static_assert(std::is_nothrow_copy_constructible_v<navo::refused>);

// The example file twice over: documents 1 and 2, both TOBZBA.
std::vector<std::string> twoDocuments()
{
    std::vector<std::string> lines = exampleLines();
    std::vector<std::string> twice(lines.begin(), lines.begin() + 76);
    twice.insert(twice.end(), lines.begin() + 11, lines.end());
    return twice;
}
constexpr size_t nipOfFirst = 34;           // line of DIPL.Nip in document 1
constexpr size_t imiePierwszeOfFirst = 41;  // DIPL.ImiePierwsze, 22 wide

class CppApi : public ::testing::Test {
protected:
    std::string write(const std::vector<std::string> &lines, const std::string &name = "input.navo")
    {
        const std::string path = tmp.file(name);
        navo_test::writeFile(path, navo_test::crlfJoin(lines));
        return path;
    }
    navo_test::ScopedTempDir tmp;
};

// Every code of navo_code is an errc of one category, worded by the core in both languages.
TEST(CppCodes, EveryCodeInTheCategoryWithTheCoreWords)
{
    for (int32_t code = 0; code <= NAVO_READ_FAILED; code = code == NAVO_CANCELLED ? NAVO_INVALID_ARGUMENT : code + 1) {
        const std::error_code ec = static_cast<navo::errc>(code);
        EXPECT_EQ(&navo::category(), &ec.category());
        EXPECT_EQ(code, ec.value());
        EXPECT_EQ(navo_message(code, NAVO_POLISH), ec.message()) << code;
        EXPECT_EQ(navo_message(code, NAVO_ENGLISH), navo::english(ec)) << code;
    }
    EXPECT_EQ(std::error_code(navo::errc::no_context), navo::errc::invalid_argument);
    const std::error_code other = std::make_error_code(std::errc::io_error);
    EXPECT_EQ(other.message(), navo::english(other));
    EXPECT_EQ(std::string_view(navo_version()), navo::version());
}

// false from the callable stops the load; a load, conversion or open from inside a callable is
// refused, while a writer there works.
TEST_F(CppApi, StopsAndNestedLoads)
{
    const std::string path = write(twoDocuments());
    int seen = 0;
    const navo::LoadResult stopped = navo::load(path, [&](const navo::Document &) { return ++seen < 1; });
    EXPECT_EQ(navo::outcome::stopped, stopped.outcome);
    EXPECT_EQ(navo::errc::cancelled, stopped.code);
    EXPECT_EQ(1, seen);
    EXPECT_EQ(1, stopped.documents);

    std::vector<std::error_code> nested;
    const navo::LoadResult outer = navo::load(path, [&](const navo::Document &doc) {
        nested.push_back(navo::load(path, [](const navo::Document &) { return true; }).code);
        auto ignore = [](std::string_view, std::string_view) { return true; };
        nested.push_back(navo::convert(path, navo::format::csv, {}, ignore).code);
        std::error_code ec;
        const navo::KeptDocument kept = navo::open_document(path, 1, ec);
        nested.push_back(ec);
        navo::Writer inside;
        inside.add_document(doc.form());
        inside.save(tmp.file("inside" + std::to_string(doc.number()) + ".navo"));
        return true;
    });
    EXPECT_TRUE(outer) << outer.code.message();
    EXPECT_EQ(std::vector<std::error_code>(6, navo::errc::load_in_progress), nested);
    EXPECT_EQ((std::vector<std::string>{"input.navo", "inside1.navo", "inside2.navo"}), tmp.entries());
}

// An exception from any callable (or a throwing getter inside one) stops the load, comes back
// once the core has returned, and leaves nothing behind: no open file, no spool file, no lock
// (the next load runs), no progress. (Memory: the suite runs under LeakSanitizer and valgrind.)
TEST_F(CppApi, ExceptionsComeBackAfterTheLoadWithNothingLeft)
{
    std::vector<std::string> lines = twoDocuments();
    const std::string good = write(lines);
    lines[nipOfFirst] = "0";
    const std::string faulty = write(lines, "faulty.navo");
    const navo::LoadOptions keepGoing{navo::encoding::iso8859_2, true};
    const struct {
        const char *name;
        std::function<void()> run;
        std::string what;
    } cases[] = {
        {"document callable",
         [&] { (void)navo::load(good, [](const navo::Document &) -> bool { throw std::runtime_error("document"); }); },
         "document"},
        {"getter inside the callable",
         [&] { (void)navo::load(good, [](const navo::Document &d) { return d.records("NOPE") > 0; }); },
         std::string("navo::Document: ") + navo_message(NAVO_UNKNOWN_BLOCK, NAVO_POLISH)},
        {"fault callable",
         [&] {
             (void)navo::load(faulty, [](const navo::Document &) { return true; }, keepGoing,
                              [](const navo::Fault &) { throw std::runtime_error("fault"); });
         },
         "fault"},
        {"conversion's sink",
         [&] {
             (void)navo::convert(good, navo::format::jsonl, {}, [](std::string_view, std::string_view) -> bool {
                 throw std::runtime_error("sink");
             });
         },
         "sink"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const int before = navo_test::openDescriptors();
        try {
            c.run();
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::exception &e) {
            EXPECT_EQ(c.what, e.what());
        }
        EXPECT_EQ(before, navo_test::openDescriptors());
        EXPECT_TRUE(tmp.spoolFiles().empty());
        EXPECT_EQ(0, navo::progress().lines);
        EXPECT_TRUE(navo::load(good, [](const navo::Document &) { return true; }));
    }
}

// A faulty file: the result's first fault, its place members, every fault and the ones handed
// to the callable agree with what the core reports through its C interface.
TEST_F(CppApi, FaultsAndTheirPlaces)
{
    std::vector<std::string> lines = twoDocuments();
    lines[nipOfFirst] = "0";
    const std::string path = write(lines);

    navo_load_options options{};
    options.keep_going = 1;
    navo_load_result native{};
    ASSERT_EQ(NAVO_BAD_DOCUMENT, navo_load(path.c_str(), &options, nullptr, &native));
    char words[512];
    ASSERT_GT(navo_place_describe(&native.fault.place, words, sizeof words), 0);

    std::vector<navo::Fault> told;
    int documents = 0;
    const navo::LoadResult result = navo::load(path, [&](const navo::Document &) { return ++documents > 0; },
                                               {navo::encoding::iso8859_2, true},
                                               [&](const navo::Fault &fault) { told.push_back(fault); });
    EXPECT_EQ(navo::outcome::failed, result.outcome);
    EXPECT_EQ(navo::errc::bad_document, result.code);
    EXPECT_EQ(native.line, result.line);
    EXPECT_EQ(1, documents);
    ASSERT_TRUE(result.fault);
    const navo::Fault &first = *result.fault;
    EXPECT_EQ(navo::errc::bad_document, first.code);
    EXPECT_EQ(native.fault.cause, first.cause.value());
    EXPECT_EQ(native.fault.detail, first.detail);
    EXPECT_EQ(words, first.place.describe());
    EXPECT_EQ("body", first.place.area);
    EXPECT_EQ(native.fault.place.line, first.place.line);
    EXPECT_EQ(native.fault.place.offset, first.place.offset);
    EXPECT_EQ(std::optional<int>(1), result.document);
    EXPECT_EQ("TOBZBA", result.form);
    EXPECT_EQ("DIPL", result.block);
    EXPECT_EQ(std::optional<int>(0), result.record);
    EXPECT_EQ("Nip", result.field);
    ASSERT_EQ(1u, result.faults.size());
    ASSERT_EQ(1u, told.size());
    EXPECT_EQ(words, told[0].place.describe());
    EXPECT_EQ(words, result.faults[0].place.describe());

    // A file that cannot be opened: a fault without a place in the file.
    const navo::LoadResult missing = navo::load(tmp.file("none.navo"), [](const navo::Document &) { return true; });
    EXPECT_EQ(navo::errc::open_failed, missing.code);
    ASSERT_TRUE(missing.fault);
    EXPECT_EQ("no such file", missing.fault->detail);
    EXPECT_EQ("", missing.fault->place.describe());
    EXPECT_FALSE(missing.document || missing.record || missing.fault->place.line || missing.fault->place.offset);
    EXPECT_TRUE(missing.form.empty() && missing.block.empty() && missing.field.empty() && missing.version.empty());
}

// A document's getters by name and as definition entries, UTF-8 or raw, and their refusals;
// what a host keeps is its own copy; a kept document reads after its load and moves.
TEST_F(CppApi, DocumentViewsAndKeptDocuments)
{
    std::vector<std::string> lines = twoDocuments();
    lines[imiePierwszeOfFirst] = padded("\xA3UK\xA1", 22);  // "ŁUKĄ" in ISO 8859-2; "ŁUKˇ" in CP1250
    const std::string path = write(lines);
    const navo::Block &other = *navo::schema("1.3").form("TOBZWPA")->block("DIPL");

    std::vector<std::string> kept;
    std::vector<std::error_code> refusals;
    const navo::LoadResult result = navo::load(path, [&](const navo::Document &doc) {
        if (doc.number() != 1)
            return true;
        const navo::Block &dipl = *doc.definition().block("DIPL");
        const navo::Field &name = *dipl.field("ImiePierwsze");
        const std::string value = doc.field("DIPL", 0, "ImiePierwsze");
        EXPECT_EQ(value, doc.field(dipl, 0, name));
        EXPECT_EQ(value, doc.field("dipl", 0, "imiepierwsze"));
        EXPECT_EQ(value, doc.record(dipl, 0).at(static_cast<size_t>(&name - dipl.fields.data())));
        EXPECT_EQ(padded("\xA3UK\xA1", 22), doc.field(dipl, 0, name, navo::as::raw));
        EXPECT_EQ(2, doc.records("IORB"));
        kept = {std::string(doc.form()), std::string(doc.version()), value, doc.header()[0], doc.file_header()[1],
                doc.error_notes().at(0).text[3], std::to_string(doc.ocr_notes().at(0).kind)};
        std::error_code ec;
        std::vector<std::string> values;
        (void)doc.records("NOPE", ec);
        refusals.push_back(ec);
        (void)doc.records(other, ec);  // a block of another form
        refusals.push_back(ec);
        (void)doc.field("DIPL", 0, "Nope", ec);
        refusals.push_back(ec);
        (void)doc.field("DIPL", 1, "Nip", ec);
        refusals.push_back(ec);
        doc.record("IORB", 2, values, ec);
        refusals.push_back(ec);
        return true;
    });
    ASSERT_TRUE(result) << result.code.message();
    EXPECT_EQ((std::vector<std::string>{"TOBZBA", "1.3", padded("ŁUKĄ", 24), padded("D1", 51), "H2      ",
                                        "E4        ", "0"}),
              kept);
    EXPECT_EQ((std::vector<std::error_code>{navo::errc::unknown_block, navo::errc::unknown_block,
                                            navo::errc::unknown_field, navo::errc::bad_index, navo::errc::bad_index}),
              refusals);
    EXPECT_EQ("1.3", result.version);
    EXPECT_EQ("H1", result.file_header[0].substr(0, 2));
    ASSERT_EQ(1u, result.file_notes.size());
    EXPECT_EQ("F2        ", result.file_notes[0].text[1]);

    navo::LoadOptions cp1250;
    cp1250.encoding = navo::encoding::cp1250;
    std::error_code ec;
    navo::KeptDocument first = navo::open_document(path, 1, ec, cp1250);
    ASSERT_FALSE(ec) << ec.message();
    const navo::KeptDocument moved = std::move(first);
    EXPECT_FALSE(first);
    (void)first->records("DIPL", ec);
    EXPECT_EQ(navo::errc::no_context, ec);
    EXPECT_EQ(1, moved->number());
    EXPECT_EQ(padded("ŁUKˇ", 24), moved->field("DIPL", 0, "ImiePierwsze"));
    EXPECT_FALSE(navo::open_document(path, 3, ec));
    EXPECT_EQ(navo::errc::bad_index, ec);
    EXPECT_THROW((void)navo::open_document(path, 3), std::system_error);
}

// Each writer call reports a refusal through std::error_code (the refusal readable after) or
// throws navo::refused with the same place and reason. What only the bridge can get wrong: a
// NUL inside a text, a moved-from writer, a document whose header fails part-way, a failed save.
TEST_F(CppApi, WriterOverloadsAndRefusals)
{
    navo::Writer w;
    const int doc = w.add_document("TOBZBA");
    EXPECT_EQ(1, doc);
    std::error_code ec;
    w.set(doc, "DIPL", 0, "Nip", "12345678901", ec);
    EXPECT_EQ(navo::errc::value_too_wide, ec);
    const navo::Refusal why = w.last_refusal();
    EXPECT_EQ(ec, why.code);
    EXPECT_EQ("body", why.place.area);
    EXPECT_EQ(std::optional<int>(1), why.place.document);
    EXPECT_EQ("TOBZBA", why.place.form);
    EXPECT_EQ("DIPL", why.place.block);
    EXPECT_EQ(std::optional<int>(0), why.place.record);
    EXPECT_EQ("Nip", why.place.field);
    EXPECT_EQ(std::optional<int>(10), why.place.expected);
    EXPECT_EQ(std::optional<int>(11), why.place.found);
    EXPECT_FALSE(why.reason.empty());
    try {
        w.set(doc, "DIPL", 0, "Nip", "12345678901");
        ADD_FAILURE() << "nothing thrown";
    } catch (const navo::refused &e) {
        EXPECT_EQ(ec, e.code());
        EXPECT_EQ(why.reason, e.reason());
        EXPECT_EQ(why.place.describe(), e.place().describe());
        EXPECT_NE(std::string::npos, std::string(e.what()).find(why.reason + " (" + why.place.describe() + ")"));
    }

    navo::Writer gone;
    const navo::Writer taker = std::move(gone);
    const struct {
        const char *name;
        std::function<void(std::error_code &)> call;
        navo::errc code;
        const navo::Writer &writer;  // whose last_refusal() tells it
    } refusals[] = {
        {"NUL in a value", [&](auto &e) { w.set(doc, "DIPL", 0, "Nip", std::string_view("12\0" "3", 4), e); },
         navo::errc::bad_value, w},
        {"NUL in a name", [&](auto &e) { w.set(doc, std::string_view("DIPL\0X", 6), 0, "Nip", "1", e); },
         navo::errc::unknown_block, w},
        {"NUL in a note", [&](auto &e) { w.add_error_note(doc, {std::string_view("E\0", 2)}, e); },
         navo::errc::bad_value, w},
        {"moved-from writer", [&](auto &e) { gone.add_document("TOBZBA", e); }, navo::errc::no_context, gone},
        {"removal of no document", [&](auto &e) { w.remove_document(99, e); }, navo::errc::bad_index, w},
        {"header refused part-way", [&](auto &e) { w.add_document("TOBZBA", {"ID", "123456789"}, e); },
         navo::errc::value_too_wide, w},
        {"save where no file can be", [&](auto &e) { w.save(tmp.file("no/such/dir.navo"), e); },
         navo::errc::save_failed, w},
    };
    for (const auto &r : refusals) {
        SCOPED_TRACE(r.name);
        r.call(ec);
        EXPECT_EQ(r.code, ec);
        EXPECT_EQ(ec, r.writer.last_refusal().code);
    }
    w.remove_document(99, ec);
    EXPECT_EQ(std::optional<int>(99), w.last_refusal().place.document);
    EXPECT_THROW(w.save(tmp.file("no/such/dir.navo")), navo::refused);
    EXPECT_THROW(navo::Writer("1.4"), std::system_error);
    navo::Writer("1.4", navo::encoding::iso8859_2, navo::writer_flags::none, ec);
    EXPECT_EQ(navo::errc::unknown_version, ec);

    // What was accepted reads back, as a whole save and streamed; the refused document is gone.
    navo::Writer cp("1.3", navo::encoding::cp1250);
    const int first = cp.add_document("TOBZBA", {"DOC-1"});
    EXPECT_EQ(0, cp.add_document("TOBZBA", {"DOC-2", "123456789"}, ec));
    const int second = cp.add_document("tobzba");
    EXPECT_EQ(2, second) << "the refused document's number is given again";
    cp.set(first, "dipl", 0, "nazwisko", "ŁUKĄ");
    cp.set_file_header(0, "PLIK");
    cp.add_file_note({"F1", "F2"});
    cp.add_ocr_note(second, 3, {"O1"});
    cp.save(tmp.file("whole.navo"));
    cp.begin(tmp.file("streamed.navo"));
    cp.write_document(first);
    cp.write_document(second);
    cp.finish();
    EXPECT_EQ(navo_test::readFile(tmp.file("whole.navo")), navo_test::readFile(tmp.file("streamed.navo")));
    std::vector<std::string> seen;
    navo::LoadOptions options;
    options.encoding = navo::encoding::cp1250;
    const navo::LoadResult back = navo::load(tmp.file("whole.navo"), [&](const navo::Document &d) {
        seen.push_back(d.header()[0].substr(0, 5) + d.field("DIPL", 0, "Nazwisko").substr(0, 8));
        return true;
    }, options);
    ASSERT_TRUE(back) << back.code.message();
    EXPECT_EQ((std::vector<std::string>{"DOC-1" + padded("ŁUKĄ", 8), std::string(13, ' ')}), seen);
    EXPECT_EQ("F2        ", back.file_notes.at(0).text[1]);

    // A host's own output: in place on commit, abandoned without.
    navo::Output out;
    out.open(tmp.file("out.txt"));
    out.write("bytes");
    out.commit();
    EXPECT_THROW(out.write("more"), navo::refused);
    {
        navo::Output abandoned;
        abandoned.open(tmp.file("abandoned.txt"));
        abandoned.write("bytes");
    }
    EXPECT_EQ("bytes", navo_test::readFile(tmp.file("out.txt")));
    EXPECT_FALSE(std::filesystem::exists(tmp.file("abandoned.txt")));
}

// Content checks: findings through navo::check and through a load's finding callable (one that
// stops), rules of one's own parsed or refused with their line, a checking writer and its rules.
TEST_F(CppApi, ContentChecksAndRules)
{
    const std::string path = tmp.file("checked.navo");
    {
        navo::Writer w;
        const int doc = w.add_document("TOBZBA");
        w.set(doc, "DIPL", 0, "Nip", "5261040827");            // check digit one off
        w.set(doc, "DIPL", 0, "Pesel", "44051401359");         // 14 May 1944 ...
        w.set(doc, "DIPL", 0, "DataUrodzenia", "15051944");    // ... beside the 15th
        w.save(path);
    }
    std::vector<navo::Finding> found;
    const navo::LoadResult checked = navo::check(path, [&](const navo::Finding &f) { found.push_back(f); });
    EXPECT_TRUE(checked) << checked.code.message();
    EXPECT_EQ(2, checked.findings);
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ(navo::finding_kind::value, found[0].kind);
    EXPECT_EQ("document 1 (TOBZBA), body, block DIPL record 0, field Nip", found[0].place.describe());
    EXPECT_EQ("t_NIP", found[0].type);
    EXPECT_EQ("nip", found[0].rule);
    EXPECT_FALSE(found[0].problem.empty());
    EXPECT_EQ("5261040827", found[0].value);
    EXPECT_EQ(navo::finding_kind::cross, found[1].kind);
    EXPECT_EQ("pesel-birth-date", found[1].rule);

    // A finding callable that stops: the document behind it is not handed out.
    navo::LoadOptions options;
    options.checks = true;
    int documents = 0;
    const navo::LoadResult stopped = navo::load(
        path, [&](const navo::Document &) { return ++documents > 0; }, options, {},
        [](const navo::Finding &) { return false; });
    EXPECT_EQ(navo::outcome::stopped, stopped.outcome);
    EXPECT_EQ(0, documents);

    std::error_code ec;
    const navo::Rules off = navo::Rules::parse(
        R"({"rules": [{"form": "TOBZBA", "block": "DIPL", "field": "Nip", "check": "none"}], "cross_checks": false})", ec);
    ASSERT_FALSE(ec) << off.last_refusal().reason;
    EXPECT_TRUE(off);
    options.rules = &off;
    EXPECT_EQ(0, navo::check(path, [](const navo::Finding &) {}, options).findings);

    const navo::Rules bad = navo::Rules::parse("{\"rules\": [\n  {\"type\": \"t_NIP\", \"check\": \"nipp\"}]}", ec);
    EXPECT_EQ(navo::errc::bad_rules, ec);
    EXPECT_FALSE(bad);
    EXPECT_EQ(std::optional<int>(2), bad.last_refusal().place.line);
    try {
        (void)navo::Rules::parse("{\"rules\": [\n  {\"type\": \"t_NIP\", \"check\": \"nipp\"}]}");
        ADD_FAILURE() << "nothing thrown";
    } catch (const navo::refused &e) {
        EXPECT_EQ(std::optional<int>(2), e.place().line);
    }
    (void)navo::Rules::load(tmp.file("none.json"), ec);
    EXPECT_EQ(navo::errc::read_failed, ec);

    navo::Writer w("1.3", navo::encoding::iso8859_2, navo::writer_flags::check);
    const int doc = w.add_document("TOBZBA");
    w.set(doc, "DIPL", 0, "Nip", "5261040827", ec);
    EXPECT_EQ(navo::errc::content_refused, ec);
    EXPECT_EQ("Nip", w.last_refusal().place.field);
    w.set_rules(off);
    w.set(doc, "DIPL", 0, "Nip", "5261040827", ec);
    EXPECT_FALSE(ec) << w.last_refusal().reason;
}

// Two writers on two threads at once, beside a load on a third that waits in its callable until
// both writers are done and a fourth thread has seen the load's progress: the writers start once
// the load stands there, so all four run at once; everything each thread made is whole.
TEST_F(CppApi, WritersALoadAndProgressOnThreadsAtOnce)
{
    const std::string big = tmp.file("big.navo");
    {
        navo::Writer w;
        const int doc = w.add_document("TOBZBA");
        for (int r = 1; r < 400; r++)
            w.set(doc, "IORB", w.add_record(doc, "IORB"), "NumerRachunku", std::to_string(r));
        w.save(big);
    }
    std::atomic<bool> loadDone{false};
    std::atomic<bool> progressSeen{false};
    std::atomic<int> writersDone{0};
    const char *const versions[] = {"1.3", "1.2"};
    auto writer = [&](int id) {
        while (!progressSeen)
            std::this_thread::yield();
        try {
            navo::Writer w(versions[id], id == 0 ? navo::encoding::iso8859_2 : navo::encoding::cp1250);
            for (int d = 0; d < 50; d++) {
                const int doc = w.add_document("TOBZWPA");
                w.set(doc, "DIPL", 0, "Nazwisko", "ŻÓŁW" + std::to_string(id) + "-" + std::to_string(d));
            }
            w.save(tmp.file("writer" + std::to_string(id) + ".navo"));
        } catch (const std::exception &e) {
            ADD_FAILURE() << "writer " << id << ": " << e.what();
        }
        writersDone++;
    };
    int records = 0;
    navo::LoadResult loaded;
    std::thread loader([&] {
        loaded = navo::load(big, [&](const navo::Document &doc) {
            while (!progressSeen || writersDone < 2)
                std::this_thread::yield();
            records = doc.records("IORB");
            return doc.field("IORB", 399, "NumerRachunku").substr(0, 4) == "399 ";
        });
        loadDone = true;
    });
    std::thread poller([&] {
        while (!loadDone) {
            const navo::Progress at = navo::progress();
            if (at.line > 0 && at.lines >= at.line)
                progressSeen = true;
            std::this_thread::yield();
        }
    });
    std::thread first(writer, 0);
    std::thread second(writer, 1);
    for (std::thread *t : {&loader, &poller, &first, &second})
        t->join();
    EXPECT_TRUE(loaded) << loaded.code.message();
    EXPECT_EQ(400, records);
    for (int id = 0; id < 2; id++) {
        navo::LoadOptions options;
        options.encoding = id == 0 ? navo::encoding::iso8859_2 : navo::encoding::cp1250;
        std::vector<std::string> names;
        const navo::LoadResult back = navo::load(tmp.file("writer" + std::to_string(id) + ".navo"),
                                                 [&](const navo::Document &d) {
                                                     names.push_back(d.field("DIPL", 0, "Nazwisko"));
                                                     return true;
                                                 },
                                                 options);
        EXPECT_TRUE(back) << back.code.message();
        EXPECT_EQ(versions[id], back.version);
        ASSERT_EQ(50u, names.size());
        EXPECT_EQ(padded("ŻÓŁW" + std::to_string(id) + "-49", 31 + 3), names.back());  // 3 letters of 2 bytes
    }
}

}  // namespace
