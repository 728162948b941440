// test_front_read.cpp - reading through the core: faults and their places, going on past faulty
// sections, the views of file and document, kept documents, finding values and the export formats.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "navo_example.h"
#include "navo_front.h"
#include "test_support.h"

namespace {

using navo_test::exampleLines;
using navo_test::padded;

// What the callbacks of a load saw, in order.
struct Seen {
    std::vector<std::string> events;
    std::vector<navo_fault> faults;
    std::vector<navo_place> found;
    std::function<int32_t(const navo_document *)> onDocument;
    std::function<int32_t(const navo_file *)> onFile;
};

navo_load_callbacks callbacksOf(Seen &seen)
{
    navo_load_callbacks callbacks{};
    callbacks.user = &seen;
    callbacks.file = [](void *user, const navo_file *file) -> int32_t {
        auto &s = *static_cast<Seen *>(user);
        s.events.push_back(std::string("file ") + navo_file_version(file));
        return s.onFile ? s.onFile(file) : 0;
    };
    callbacks.document = [](void *user, const navo_document *doc) -> int32_t {
        auto &s = *static_cast<Seen *>(user);
        s.events.push_back("document " + std::to_string(navo_document_number(doc)) + " " + navo_document_form(doc)->name);
        return s.onDocument ? s.onDocument(doc) : 0;
    };
    callbacks.fault = [](void *user, const navo_fault *fault) -> int32_t {
        auto &s = *static_cast<Seen *>(user);
        s.events.push_back("fault " + std::to_string(fault->place.document));
        s.faults.push_back(*fault);
        return 0;
    };
    callbacks.found = [](void *user, const navo_place *place) -> int32_t {
        static_cast<Seen *>(user)->found.push_back(*place);
        return 0;
    };
    callbacks.end = [](void *user, const navo_file *file) -> int32_t {
        static_cast<Seen *>(user)->events.push_back("end " + std::to_string(navo_file_notes(file)));
        return 0;
    };
    return callbacks;
}

// Texts of one buffer, each ended by a NUL.
std::vector<std::string> texts(const std::vector<char> &buffer, int64_t length)
{
    std::vector<std::string> out(1);
    for (int64_t i = 0; i < length; i++) {
        if (buffer[static_cast<size_t>(i)] == '\0')
            out.emplace_back();
        else
            out.back() += buffer[static_cast<size_t>(i)];
    }
    return out;
}

template <class Call>
std::vector<std::string> textsOf(Call &&call)
{
    std::vector<char> buffer(4096);
    const int64_t length = call(buffer.data(), buffer.size());
    EXPECT_GE(length, 0);
    return length < 0 ? std::vector<std::string>{} : texts(buffer, length);
}

class FrontRead : public ::testing::Test {
protected:
    std::string write(const std::vector<std::string> &lines, const std::string &name = "input.navo")
    {
        const std::string path = tmp.file(name);
        navo_test::writeFile(path, navo_test::crlfJoin(lines));
        return path;
    }

    navo_test::ScopedTempDir tmp;
};

// A faulty file and what its fault must say: the codes, where the loader stood and the words.
struct FaultCase {
    const char *name;
    std::function<void(std::vector<std::string> &)> change;
    int32_t code, cause, area, document;
    const char *form, *block;
    int32_t record;
    const char *field;
    int32_t expected, found, fieldExpected, fieldFound, line;
    const char *detail;
};

TEST_F(FrontRead, FaultsSayWhatTheLoaderSawAndWhere)
{
    const auto at = [](size_t line, std::string text) {
        return [line, text](std::vector<std::string> &lines) { lines[line - 1] = text; };
    };
    const FaultCase cases[] = {
        {"not a NAVO file", at(1, "<!DOCTYPE XAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'["), 1, 1, NAVO_AREA_PROLOG, 0, "", "",
         -1, "", -1, -1, -1, -1, 1, "the first line is not the NAVO document type"},
        {"file header line short", at(7, "H2     "), 3, 3, NAVO_AREA_FILE_HEADER, 0, "", "", -1, "line2", 139, 138, 8, 7,
         11, "the file header's lines do not add up to 139 characters"},
        {"no <NAVO>", at(4, "<NAVX>"), 4, 4, NAVO_AREA_FILE_HEADER, 0, "", "", -1, "", -1, -1, -1, -1, 4,
         "<NAVO> and the file header's opening tag expected behind the prolog"},
        {"document header line short", at(18, "D5                     "), 5, 3, NAVO_AREA_DOCUMENT_HEADER, 1, "TOBZBA",
         "", -1, "line5", 245, 244, 24, 23, 28, "the document header's lines do not add up to 245 characters"},
        {"no <naglowek.DP>", at(13, "<naglowekDP  >"), 5, 4, NAVO_AREA_DOCUMENT_HEADER, 1, "TOBZBA", "", -1, "", -1,
         -1, -1, -1, 13, "the document header's opening tag expected"},
        {"field short", at(35, "123456789"), 5, 7, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", 171, 170, 10, 9, 47,
         "the block's text differs from its record length"},
        {"second record long", at(54, "99990000111122223333444455556666     "), 5, 7, NAVO_AREA_BODY, 1, "TOBZBA",
         "IORB", 1, "NumerRachunku", 37, 38, 36, 37, 55, "the block's text differs from its record length"},
        {"block out of order",
         [](std::vector<std::string> &lines) { lines.erase(lines.begin() + 29, lines.begin() + 33); }, 5, 6,
         NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "", -1, -1, -1, -1, 43, "block out of order: DOZCBA expected here"},
        {"repeating block passed over",
         [](std::vector<std::string> &lines) { lines.erase(lines.begin() + 47, lines.begin() + 55); }, 5, 6,
         NAVO_AREA_BODY, 1, "TOBZBA", "OPL1", 0, "", -1, -1, -1, -1, 50,
         "block out of order: IORB expected here"},
        {"unknown block tag",
         [](std::vector<std::string> &lines) {
             lines[29] = "<XYZ>";
             lines[32] = "</XYZ>";
         },
         5, 6, NAVO_AREA_BODY, 1, "TOBZBA", "XYZ", -1, "", -1, -1, -1, -1, 33, "the form has no block of this tag"},
        {"closing tag of another name", at(47, "</DIPX>"), 5, 3, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "", -1, -1,
         -1, -1, 47,
         "the block's element does not close: the file ends inside it, or its closing tag has another name"},
        {"unknown form",
         [](std::vector<std::string> &lines) {
             lines[11] = "<TOBXYZ.DP>";
             lines[75] = "</TOBXYZ.DP>";
         },
         5, 8, NAVO_AREA_SECTION, 1, "TOBXYZ", "", -1, "", -1, -1, -1, -1, 12,
         "the form is not in the definition of version 1.3"},
        {"no section end", at(76, "</TOBZBX.DP>"), 5, 4, NAVO_AREA_SECTION, 1, "TOBZBA", "", -1, "", -1, -1, -1, -1, 76,
         "a tag of the section expected: the body's opening tag, or the section's closing tag behind the footer"},
        {"file ends inside a note", [](std::vector<std::string> &lines) { lines.resize(64); }, 5, 3, NAVO_AREA_NOTES,
         1, "TOBZBA", "OCR", 0, "", -1, -1, -1, -1, 65, "the file ends inside a note"},
        {"no file footer", [](std::vector<std::string> &lines) { lines.resize(76); }, 4, 4, NAVO_AREA_FOOTER, 0, "", "",
         -1, "", -1, -1, -1, -1, 77, "the file ends without a whole file footer"},
        {"another tag in the file footer", at(78, "<XYZ>"), 4, 4, NAVO_AREA_FOOTER, 0, "", "", -1, "", -1, -1, -1, -1,
         78, "only error notes may stand in the file footer"},
    };
    for (const FaultCase &c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> lines = exampleLines();
        c.change(lines);
        const std::string path = write(lines);
        Seen seen;
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_result result{};
        EXPECT_EQ(c.code, navo_load(path.c_str(), nullptr, &callbacks, &result));
        EXPECT_EQ(NAVO_FAILED, result.outcome);
        EXPECT_EQ(c.code, result.code);
        ASSERT_EQ(1, result.faults);
        ASSERT_EQ(1u, seen.faults.size());
        const navo_fault &fault = result.fault;
        EXPECT_EQ(0, std::memcmp(&fault, &seen.faults[0], sizeof fault));
        EXPECT_EQ(c.code, fault.code);
        EXPECT_EQ(c.cause, fault.cause);
        EXPECT_EQ(c.area, fault.place.area);
        EXPECT_EQ(c.document, fault.place.document);
        EXPECT_STREQ(c.form, fault.place.form);
        EXPECT_STREQ(c.block, fault.place.block);
        EXPECT_EQ(c.record, fault.place.record);
        EXPECT_STREQ(c.field, fault.place.field);
        EXPECT_EQ(c.expected, fault.place.expected);
        EXPECT_EQ(c.found, fault.place.found);
        EXPECT_EQ(c.fieldExpected, fault.place.field_expected);
        EXPECT_EQ(c.fieldFound, fault.place.field_found);
        EXPECT_EQ(c.line, fault.place.line);
        EXPECT_EQ(c.line, result.line);
        EXPECT_EQ(static_cast<int32_t>(lines.size()) + 1, result.lines);
        EXPECT_GT(fault.place.offset, 0);
        EXPECT_STREQ(c.detail, fault.detail);
        EXPECT_EQ(c.area == NAVO_AREA_FOOTER ? 1 : 0, result.documents);
    }
}

TEST_F(FrontRead, PathsThatCannotBeReadSayWhy)
{
    const std::pair<std::string, const char *> cases[] = {
        {tmp.file("missing.navo"), "no such file"},
        {tmp.path(), "is a directory"},
    };
    for (const auto &[path, reason] : cases) {
        Seen seen;
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_result result{};
        EXPECT_EQ(NAVO_OPEN_FAILED, navo_load(path.c_str(), nullptr, &callbacks, &result));
        EXPECT_EQ(NAVO_OPEN_FAILED, result.fault.code);
        EXPECT_EQ(NAVO_AREA_NONE, result.fault.place.area);
        EXPECT_EQ(0, result.fault.place.line);
        EXPECT_STREQ(reason, result.fault.detail);
        EXPECT_EQ(std::vector<std::string>{"fault 0"}, seen.events);
    }
    navo_load_result result{};
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_load(nullptr, nullptr, nullptr, &result));
    navo_load_options bad{};
    bad.encoding = 7;
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_load(tmp.file("x").c_str(), &bad, nullptr, &result));
}

// Three sections: the first and the third faulty. Going on, each fault is told and the good
// document between them comes with its number in the file; the footer is read, the result is
// the first fault's.
TEST_F(FrontRead, KeepGoingReportsEachFaultySectionAndGoesOn)
{
    std::vector<std::string> lines = exampleLines();
    const std::vector<std::string> section(lines.begin() + 11, lines.begin() + 76);
    std::vector<std::string> bad = section;
    bad[35 - 12] = "123";  // Nip short
    std::vector<std::string> unknown = section;
    unknown.front() = "<TOBXYZ.DP>";
    lines.erase(lines.begin() + 11, lines.begin() + 76);
    lines.insert(lines.begin() + 11, unknown.begin(), unknown.end());
    lines.insert(lines.begin() + 11, section.begin(), section.end());
    lines.insert(lines.begin() + 11, bad.begin(), bad.end());
    const std::string path = write(lines);

    for (int32_t keepGoing : {0, 1}) {
        SCOPED_TRACE(keepGoing);
        Seen seen;
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_options options{};
        options.keep_going = keepGoing;
        navo_load_result result{};
        EXPECT_EQ(NAVO_BAD_DOCUMENT, navo_load(path.c_str(), &options, &callbacks, &result));
        EXPECT_EQ(NAVO_FAILED, result.outcome);
        const std::vector<std::string> expected =
            keepGoing != 0 ? std::vector<std::string>{"file 1.3", "fault 1", "document 2 TOBZBA", "fault 3", "end 1"}
                           : std::vector<std::string>{"file 1.3", "fault 1"};
        EXPECT_EQ(expected, seen.events);
        EXPECT_EQ(keepGoing != 0 ? 2 : 1, result.faults);
        EXPECT_EQ(keepGoing != 0 ? 1 : 0, result.documents);
        EXPECT_EQ(7, result.fault.cause);
        if (keepGoing != 0) {
            EXPECT_EQ(8, seen.faults[1].cause);
            EXPECT_STREQ("TOBXYZ", seen.faults[1].place.form);
            EXPECT_EQ(static_cast<int32_t>(lines.size()) - 1, result.line);  // "</NAVO>" is never read
        }
    }
}

// The views of one document: header, records and values with and without padding, raw bytes,
// the notes, in both code pages.
TEST_F(FrontRead, DocumentViews)
{
    std::vector<std::string> lines = exampleLines();
    lines[39] = padded("Zak\xB3" "ad \xA5", 31);  // NazwaSkrocona
    lines[62] = padded("\xA3", 10);             // OCR note, text 2
    const std::string path = write(lines);
    for (int32_t encoding : {NAVO_ISO8859_2, NAVO_CP1250}) {
        SCOPED_TRACE(encoding);
        Seen seen;
        int checked = 0;
        seen.onFile = [&](const navo_file *file) {
            EXPECT_EQ(navo_schema_of("1.3"), navo_file_schema(file));
            const auto prolog = textsOf([&](char *out, size_t size) { return navo_file_prolog(file, 0, out, size); });
            EXPECT_EQ((std::vector<std::string>{lines[0], lines[1], lines[2]}), prolog);
            const auto header = textsOf([&](char *out, size_t size) { return navo_file_header(file, 0, out, size); });
            EXPECT_EQ((std::vector<std::string>{"H1", "H2", "H3", "H4", "H5"}), header);
            EXPECT_EQ(0, navo_file_notes(file));
            return 0;
        };
        seen.onDocument = [&](const navo_document *doc) -> int32_t {
            checked++;
            const navo_form_def *form = navo_document_form(doc);
            const int32_t dipl = navo_form_block(form, "DIPL");
            const int32_t iorb = navo_form_block(form, "IORB");
            const int32_t name = navo_block_field(&form->blocks[dipl], "NazwaSkrocona");
            EXPECT_EQ(1, navo_document_records(doc, dipl));
            EXPECT_EQ(2, navo_document_records(doc, iorb));
            EXPECT_EQ(-NAVO_BAD_INDEX, navo_document_records(doc, form->block_count));
            const auto header = textsOf([&](char *out, size_t size) { return navo_document_header(doc, 0, out, size); });
            EXPECT_EQ(14u, header.size());
            EXPECT_EQ("D5", header.at(4));
            const auto padded5 = textsOf([&](char *out, size_t size) {
                return navo_document_header(doc, NAVO_KEEP_PADDING, out, size);
            });
            EXPECT_EQ(lines[17], padded5.at(4));
            const auto record = textsOf([&](char *out, size_t size) {
                return navo_document_record(doc, iorb, 1, 0, out, size);
            });
            EXPECT_EQ((std::vector<std::string>{"2", "99990000111122223333444455556666"}), record);
            char value[64];
            EXPECT_EQ(10, navo_document_value(doc, dipl, 0, name, 0, value, sizeof value));
            EXPECT_STREQ(encoding == NAVO_ISO8859_2 ? "Zakład Ľ" : "Zakład Ą", value);
            EXPECT_EQ(31 + 2, navo_document_value(doc, dipl, 0, name, NAVO_KEEP_PADDING, value, sizeof value));
            EXPECT_EQ(8, navo_document_value(doc, dipl, 0, name, NAVO_RAW, value, sizeof value));
            EXPECT_STREQ("Zak\xB3" "ad \xA5", value);
            EXPECT_EQ(31, navo_document_value(doc, dipl, 0, name, NAVO_RAW | NAVO_KEEP_PADDING, value, sizeof value));
            EXPECT_EQ(-NAVO_BAD_INDEX, navo_document_value(doc, dipl, 1, name, 0, value, sizeof value));
            EXPECT_EQ(-NAVO_BAD_INDEX, navo_document_value(doc, dipl, 0, 99, 0, value, sizeof value));
            EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_document_value(doc, dipl, 0, name, 4, value, sizeof value));
            EXPECT_EQ(1, navo_document_notes(doc, NAVO_OCR_NOTE));
            EXPECT_EQ(1, navo_document_notes(doc, NAVO_ERROR_NOTE));
            int32_t kind = -1;
            const auto ocr = textsOf([&](char *out, size_t size) {
                return navo_document_note(doc, NAVO_OCR_NOTE, 0, 0, out, size, &kind);
            });
            EXPECT_EQ(0, kind);
            EXPECT_EQ((std::vector<std::string>{"O1", "Ł", "O3", "O4", "O5", "O6"}), ocr);
            EXPECT_EQ(-NAVO_BAD_INDEX, navo_document_note(doc, NAVO_ERROR_NOTE, 1, 0, value, sizeof value, nullptr));
            EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_document_notes(doc, NAVO_FILE_HEADER));
            return 0;
        };
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_options options{};
        options.encoding = encoding;
        navo_load_result result{};
        ASSERT_EQ(NAVO_OK, navo_load(path.c_str(), &options, &callbacks, &result));
        EXPECT_EQ(NAVO_DONE, result.outcome);
        EXPECT_EQ(1, checked);
        EXPECT_EQ(1, result.documents);
        EXPECT_EQ((std::vector<std::string>{"file 1.3", "document 1 TOBZBA", "end 1"}), seen.events);
        EXPECT_EQ(86, result.lines);
    }
}

// A stop from any callback ends the load with no further call; a load from inside a callback is
// refused; the progress of a load is seen from another thread while a callback waits for it.
TEST_F(FrontRead, StopsNestedLoadsAndProgress)
{
    std::vector<std::string> lines = exampleLines();
    std::vector<std::string> twice(lines.begin(), lines.begin() + 76);
    twice.insert(twice.end(), lines.begin() + 11, lines.end());
    const std::string path = write(twice);

    Seen seen;
    seen.onFile = [](const navo_file *) { return 1; };
    navo_load_callbacks callbacks = callbacksOf(seen);
    navo_load_result result{};
    EXPECT_EQ(NAVO_CANCELLED, navo_load(path.c_str(), nullptr, &callbacks, &result));
    EXPECT_EQ(NAVO_STOPPED, result.outcome);
    EXPECT_EQ(std::vector<std::string>{"file 1.3"}, seen.events);

    Seen second;
    int32_t nested = -1;
    int32_t line = 0;
    int32_t count = 0;
    second.onDocument = [&](const navo_document *) {
        navo_load_result inner{};
        nested = navo_load(path.c_str(), nullptr, nullptr, &inner);
        std::thread watcher([&] { navo_progress(&line, &count); });
        watcher.join();
        return 1;
    };
    callbacks = callbacksOf(second);
    EXPECT_EQ(NAVO_CANCELLED, navo_load(path.c_str(), nullptr, &callbacks, &result));
    EXPECT_EQ(NAVO_LOAD_IN_PROGRESS, nested);
    EXPECT_EQ(76, line);
    EXPECT_EQ(static_cast<int32_t>(twice.size()) + 1, count);
    EXPECT_EQ((std::vector<std::string>{"file 1.3", "document 1 TOBZBA"}), second.events);
    EXPECT_EQ(1, result.documents);
    navo_progress(&line, &count);
    EXPECT_EQ(0, line);
    EXPECT_EQ(0, count);
}

// The progress callback of navo_load and navo_convert: one call per hundredth of the file's lines
// passed, in rising hundredths, each with the file's line count; a stop from it ends the load.
TEST_F(FrontRead, ProgressRisesByHundredths)
{
    std::vector<std::string> lines = exampleLines();
    const auto at = std::find(lines.begin(), lines.end(), "<IORB>") - lines.begin();
    const std::vector<std::string> record(lines.begin() + at, lines.begin() + at + 4);
    for (int i = 0; i < 400; i++)
        lines.insert(lines.begin() + at, record.begin(), record.end());
    const std::string path = write(lines);

    struct Calls {
        std::vector<std::pair<int32_t, int32_t>> seen;  // line, lines
        size_t stopAt = 0;                               // the call that stops the load; 0: none
    };
    for (const bool convert : {false, true}) {
        SCOPED_TRACE(convert ? "navo_convert" : "navo_load");
        const auto run = [&](Calls &calls, navo_load_result &result) {
            navo_load_callbacks callbacks{};
            callbacks.user = &calls;
            callbacks.progress = [](void *user, int32_t line, int32_t count) -> int32_t {
                auto &c = *static_cast<Calls *>(user);
                c.seen.emplace_back(line, count);
                return c.seen.size() == c.stopAt ? 1 : 0;
            };
            const navo_write_fn discard = [](void *, const char *, const char *, size_t) -> int32_t { return 0; };
            return convert ? navo_convert(path.c_str(), nullptr, NAVO_JSONL, 0, discard, nullptr, &callbacks, &result)
                           : navo_load(path.c_str(), nullptr, &callbacks, &result);
        };
        Calls calls;
        navo_load_result result{};
        ASSERT_EQ(NAVO_OK, run(calls, result));
        // The records, 4 lines each, fill the file from its 2nd hundredth to its 97th: each is told.
        EXPECT_GE(calls.seen.size(), 95u);
        int64_t last = 0;
        for (const auto &[line, count] : calls.seen) {
            EXPECT_EQ(result.lines, count);
            const int64_t hundredth = int64_t{line} * 100 / count;
            EXPECT_GT(hundredth, last) << "line " << line;
            last = hundredth;
        }
        EXPECT_LE(last, 100);

        Calls stopping;
        stopping.stopAt = 50;
        EXPECT_EQ(NAVO_CANCELLED, run(stopping, result));
        EXPECT_EQ(NAVO_STOPPED, result.outcome);
        EXPECT_EQ(50u, stopping.seen.size());
    }
}

// Loads on several threads at once run one after the other, each whole.
TEST_F(FrontRead, LoadsOnThreadsTakeTurns)
{
    const std::string path = write(exampleLines());
    struct Turns {
        std::atomic<int> inside{0};
        std::atomic<int> overlaps{0};
    } turns;
    std::vector<std::thread> threads;
    std::vector<int32_t> codes(4, -1);
    for (size_t i = 0; i < codes.size(); i++) {
        threads.emplace_back([&, i] {
            navo_load_callbacks callbacks{};
            callbacks.user = &turns;
            callbacks.file = [](void *user, const navo_file *) -> int32_t {
                auto &t = *static_cast<Turns *>(user);
                if (t.inside++ != 0)
                    t.overlaps++;
                std::this_thread::yield();
                return 0;
            };
            callbacks.end = [](void *user, const navo_file *) -> int32_t {
                static_cast<Turns *>(user)->inside--;
                return 0;
            };
            codes[i] = navo_load(path.c_str(), nullptr, &callbacks, nullptr);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(0, turns.overlaps.load());
    EXPECT_EQ(std::vector<int32_t>(4, NAVO_OK), codes);
}

TEST_F(FrontRead, KeptDocumentAfterItsLoad)
{
    std::vector<std::string> lines = exampleLines();
    std::vector<std::string> twice(lines.begin(), lines.begin() + 76);
    twice.insert(twice.end(), lines.begin() + 11, lines.end());
    twice[76 + 34 - 11] = "0000000002";  // Nip of the second document
    const std::string path = write(twice);

    Seen seen;
    const navo_load_callbacks callbacks = callbacksOf(seen);
    navo_document *doc = nullptr;
    navo_load_result result{};
    ASSERT_EQ(NAVO_OK, navo_document_open(path.c_str(), nullptr, 2, &callbacks, &doc, &result));
    ASSERT_NE(nullptr, doc);
    EXPECT_EQ((std::vector<std::string>{"file 1.3", "document 1 TOBZBA"}), seen.events);
    EXPECT_EQ(NAVO_STOPPED, result.outcome);
    EXPECT_EQ(2, navo_document_number(doc));
    const navo_form_def *form = navo_document_form(doc);
    char value[32];
    EXPECT_EQ(10, navo_document_value(doc, navo_form_block(form, "DIPL"), 0, 0, 0, value, sizeof value));
    EXPECT_STREQ("0000000002", value);
    EXPECT_STREQ("1.3", navo_file_version(navo_document_file(doc)));
    EXPECT_EQ(2, navo_document_records(doc, navo_form_block(form, "IORB")));
    // Another load while the document is kept, then the document still reads.
    EXPECT_EQ(NAVO_OK, navo_load(path.c_str(), nullptr, nullptr, nullptr));
    EXPECT_EQ(10, navo_document_value(doc, navo_form_block(form, "DIPL"), 0, 0, 0, value, sizeof value));
    navo_document_close(doc);

    navo_document *none = reinterpret_cast<navo_document *>(1);
    EXPECT_EQ(NAVO_BAD_INDEX, navo_document_open(path.c_str(), nullptr, 3, nullptr, &none, &result));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_document_open(path.c_str(), nullptr, 0, nullptr, &none, &result));
    std::vector<std::string> faulty = twice;
    faulty[76 + 34 - 11] = "0";
    const std::string broken = write(faulty, "broken.navo");
    EXPECT_EQ(NAVO_BAD_DOCUMENT, navo_document_open(broken.c_str(), nullptr, 2, nullptr, &none, &result));
    navo_load_options options{};
    options.keep_going = 1;
    EXPECT_EQ(NAVO_BAD_DOCUMENT, navo_document_open(broken.c_str(), &options, 2, nullptr, &none, &result));
    EXPECT_EQ(nullptr, none);
}

TEST_F(FrontRead, FindTellsEachFieldHoldingTheValue)
{
    std::vector<std::string> lines = exampleLines();
    lines[52] = "1";  // IORB record 1 KodRodzajuZgloszen
    lines[41] = padded("\xA3UK", 22);  // ImiePierwsze: "ŁUK"
    const std::string path = write(lines);
    struct Case {
        const char *find;
        int32_t encoding;
        std::vector<std::string> found;  // block record field
    };
    const Case cases[] = {
        {"1", NAVO_ISO8859_2, {"IORB 0 KodRodzajuZgloszen", "IORB 1 KodRodzajuZgloszen"}},
        {"A1  ", NAVO_ISO8859_2, {"DOZCBA 0 NalepkaR"}},
        {"ŁUK", NAVO_ISO8859_2, {"DIPL 0 ImiePierwsze"}},
        {"ŁUK", NAVO_CP1250, {"DIPL 0 ImiePierwsze"}},
        {"ŁU", NAVO_ISO8859_2, {}},
        {"€", NAVO_ISO8859_2, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.find);
        Seen seen;
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_options options{};
        options.find = c.find;
        options.encoding = c.encoding;
        navo_load_result result{};
        ASSERT_EQ(NAVO_OK, navo_load(path.c_str(), &options, &callbacks, &result));
        std::vector<std::string> found;
        for (const navo_place &place : seen.found) {
            EXPECT_EQ(1, place.document);
            EXPECT_STREQ("TOBZBA", place.form);
            EXPECT_EQ(NAVO_AREA_BODY, place.area);
            found.push_back(std::string(place.block) + " " + std::to_string(place.record) + " " + place.field);
        }
        EXPECT_EQ(c.found, found);
    }
    navo_load_options options{};
    options.find = "\xC0\x80";
    EXPECT_EQ(NAVO_NOT_UTF8, navo_load(path.c_str(), &options, nullptr, nullptr));
}

// The conversion of a small file, every format: the bytes each front end gives.
TEST_F(FrontRead, ConvertFormats)
{
    std::vector<std::string> lines = exampleLines();
    lines[39] = padded("A,\"B\"\\\xA5\xB9\x01\x7F", 31);  // NazwaSkrocona
    lines[62] = padded("O\xA3", 10);                    // OCR note, text 2
    const std::string path = write(lines);
    const std::string jsonLines[] = {
        "{\"type\":\"file\",\"version\":\"1.3\",\"header\":[\"H1\",\"H2\",\"H3\",\"H4\",\"H5\"]}",
        "{\"type\":\"document\",\"number\":1,\"form\":\"TOBZBA\",\"header\":[\"D1\",\"D2\",\"D3\",\"D4\",\"D5\",\"D6\",\"D7\","
        "\"D8\",\"D9\",\"D10\",\"D11\",\"X\",\"X\",\"D14\"],\"blocks\":{\"DOZCBA\":[{\"DataNadania\":\"09122009\","
        "\"NalepkaR\":\"A1\"}],\"DIPL\":[{\"Nip\":\"1234567890\",\"Regon\":\"12345678901234\",\"Pesel\":\"\","
        "\"RodzajDokumentu\":\"\",\"SeriaINumerDokumen\":\"\",\"NazwaSkrocona\":\"A,\\\"B\\\"\\\\Ľš\\u0001\\u007f\","
        "\"Nazwisko\":\"\",\"ImiePierwsze\":\"\",\"DataUrodzenia\":\"\",\"ID_SYSTEMOWY\":\"\",\"NR_WER_DANYCH_ID\":\"\","
        "\"POZIOM_UFNOSCI_ID\":\"\"}],\"IORB\":[{\"KodRodzajuZgloszen\":\"1\",\"NumerRachunku\":"
        "\"11112222333344445555666677778888\"},{\"KodRodzajuZgloszen\":\"2\",\"NumerRachunku\":"
        "\"99990000111122223333444455556666\"}],\"OPL1\":[{\"DataWypelnienia\":\"09122009\"}]},\"ocr\":[{\"kind\":0,"
        "\"texts\":[\"O1\",\"OŁ\",\"O3\",\"O4\",\"O5\",\"O6\"]}],\"errors\":[[\"E1\",\"E2\",\"E3\",\"E4\"]]}",
        "{\"type\":\"footer\",\"errors\":[[\"F1\",\"F2\",\"F3\",\"F4\"]]}",
    };
    std::string csvLong =
        "document,form,block,record,field,value\r\n0,,@file,0,version,1.3\r\n";
    for (int i = 1; i <= 5; i++)
        csvLong += "0,,@header,0,line" + std::to_string(i) + ",H" + std::to_string(i) + "\r\n";
    const char *docHeader[] = {"D1", "D2", "D3", "D4", "D5", "D6", "D7", "D8", "D9", "D10", "D11", "X", "X", "D14"};
    for (int i = 0; i < 14; i++)
        csvLong += "1,TOBZBA,@header,0,line" + std::to_string(i + 1) + "," + docHeader[i] + "\r\n";
    csvLong += "1,TOBZBA,DOZCBA,0,DataNadania,09122009\r\n"
               "1,TOBZBA,DOZCBA,0,NalepkaR,A1\r\n"
               "1,TOBZBA,DIPL,0,Nip,1234567890\r\n"
               "1,TOBZBA,DIPL,0,Regon,12345678901234\r\n"
               "1,TOBZBA,DIPL,0,Pesel,\r\n"
               "1,TOBZBA,DIPL,0,RodzajDokumentu,\r\n"
               "1,TOBZBA,DIPL,0,SeriaINumerDokumen,\r\n"
               "1,TOBZBA,DIPL,0,NazwaSkrocona,\"A,\"\"B\"\"\\Ąą\x01\x7F\"\r\n"
               "1,TOBZBA,DIPL,0,Nazwisko,\r\n"
               "1,TOBZBA,DIPL,0,ImiePierwsze,\r\n"
               "1,TOBZBA,DIPL,0,DataUrodzenia,\r\n"
               "1,TOBZBA,DIPL,0,ID_SYSTEMOWY,\r\n"
               "1,TOBZBA,DIPL,0,NR_WER_DANYCH_ID,\r\n"
               "1,TOBZBA,DIPL,0,POZIOM_UFNOSCI_ID,\r\n"
               "1,TOBZBA,IORB,0,KodRodzajuZgloszen,1\r\n"
               "1,TOBZBA,IORB,0,NumerRachunku,11112222333344445555666677778888\r\n"
               "1,TOBZBA,IORB,1,KodRodzajuZgloszen,2\r\n"
               "1,TOBZBA,IORB,1,NumerRachunku,99990000111122223333444455556666\r\n"
               "1,TOBZBA,OPL1,0,DataWypelnienia,09122009\r\n"
               "1,TOBZBA,@ocr,0,kind,0\r\n"
               "1,TOBZBA,@ocr,0,text1,O1\r\n"
               "1,TOBZBA,@ocr,0,text2,OŁ\r\n";
    for (int i = 3; i <= 6; i++)
        csvLong += "1,TOBZBA,@ocr,0,text" + std::to_string(i) + ",O" + std::to_string(i) + "\r\n";
    for (int i = 1; i <= 4; i++)
        csvLong += "1,TOBZBA,@error,0,text" + std::to_string(i) + ",E" + std::to_string(i) + "\r\n";
    for (int i = 1; i <= 4; i++)
        csvLong += "0,,@error,0,text" + std::to_string(i) + ",F" + std::to_string(i) + "\r\n";
    const std::map<std::string, std::string> csvTables = {
        {"headers", "document,form,line1,line2,line3,line4,line5,line6,line7,line8,line9,line10,line11,line12,line13,"
                    "line14\r\n1,TOBZBA,D1,D2,D3,D4,D5,D6,D7,D8,D9,D10,D11,X,X,D14\r\n"},
        {"TOBZBA.DOZCBA", "document,record,DataNadania,NalepkaR\r\n1,0,09122009,A1\r\n"},
        {"TOBZBA.DIPL", "document,record,Nip,Regon,Pesel,RodzajDokumentu,SeriaINumerDokumen,NazwaSkrocona,Nazwisko,"
                        "ImiePierwsze,DataUrodzenia,ID_SYSTEMOWY,NR_WER_DANYCH_ID,POZIOM_UFNOSCI_ID\r\n"
                        "1,0,1234567890,12345678901234,,,,\"A,\"\"B\"\"\\Ľš\x01\x7F\",,,,,,\r\n"},
        {"TOBZBA.IORB", "document,record,KodRodzajuZgloszen,NumerRachunku\r\n1,0,1,11112222333344445555666677778888\r\n"
                        "1,1,2,99990000111122223333444455556666\r\n"},
        {"TOBZBA.OPL1", "document,record,DataWypelnienia\r\n1,0,09122009\r\n"},
    };
    struct Case {
        int32_t format;
        int32_t encoding;
        int32_t flags;
        std::map<std::string, std::string> output;  // by table ("" for the one output)
    };
    const Case cases[] = {
        {NAVO_JSONL, NAVO_ISO8859_2, 0, {{"", jsonLines[0] + "\n" + jsonLines[1] + "\n" + jsonLines[2] + "\n"}}},
        {NAVO_JSON, NAVO_ISO8859_2, 0,
         {{"", "[\n" + jsonLines[0] + ",\n" + jsonLines[1] + ",\n" + jsonLines[2] + "\n]\n"}}},
        {NAVO_CSV, NAVO_CP1250, 0, {{"", csvLong}}},
        {NAVO_CSV_BLOCKS, NAVO_ISO8859_2, 0, csvTables},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        std::map<std::string, std::string> output;
        navo_load_options options{};
        options.encoding = c.encoding;
        navo_load_result result{};
        const navo_write_fn collect = [](void *user, const char *table, const char *bytes, size_t size) -> int32_t {
            (*static_cast<std::map<std::string, std::string> *>(user))[table != nullptr ? table : ""].append(bytes, size);
            return 0;
        };
        ASSERT_EQ(NAVO_OK, navo_convert(path.c_str(), &options, c.format, c.flags, collect, &output, nullptr, &result));
        EXPECT_EQ(c.output, output);
        EXPECT_EQ(1, result.documents);
    }

    // Padding kept; a write that fails stops the conversion.
    std::string padded;
    const navo_write_fn append = [](void *user, const char *, const char *bytes, size_t size) -> int32_t {
        static_cast<std::string *>(user)->append(bytes, size);
        return 0;
    };
    ASSERT_EQ(NAVO_OK, navo_convert(path.c_str(), nullptr, NAVO_JSONL, NAVO_KEEP_PADDING, append, &padded, nullptr, nullptr));
    EXPECT_NE(std::string::npos, padded.find("\"NalepkaR\":\"A1    \""));
    const navo_write_fn refuse = [](void *, const char *, const char *, size_t) -> int32_t { return 1; };
    navo_load_result result{};
    EXPECT_EQ(NAVO_SAVE_FAILED, navo_convert(path.c_str(), nullptr, NAVO_CSV, 0, refuse, nullptr, nullptr, &result));
    EXPECT_EQ(NAVO_SAVE_FAILED, result.code);
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_convert(path.c_str(), nullptr, 4, 0, append, &padded, nullptr, nullptr));
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_convert(path.c_str(), nullptr, NAVO_CSV, NAVO_RAW, append, &padded, nullptr, nullptr));
}

// Every allocation of the library that a load makes may fail: the load ends with a code, leaks
// nothing and leaves no spool file, whatever the core was doing then.
TEST_F(FrontRead, FailedAllocationsOfALoad)
{
    const std::string path = write(exampleLines());
    navo_test::Scenario scenario;
    std::vector<std::string> events;
    scenario.act = [&] {
        Seen seen;
        seen.onDocument = [](const navo_document *doc) {
            std::vector<char> buffer(256);
            const navo_form_def *form = navo_document_form(doc);
            for (int32_t b = 0; b < form->block_count; b++)
                navo_document_record(doc, b, 0, 0, buffer.data(), buffer.size());
            return 0;
        };
        const navo_load_callbacks callbacks = callbacksOf(seen);
        navo_load_result result{};
        const int32_t code = navo_load(path.c_str(), nullptr, &callbacks, &result);
        events = seen.events;
        return code;
    };
    scenario.check = [&](int32_t code, int64_t n) {
        if (n == 0) {
            EXPECT_EQ(NAVO_OK, code);
            EXPECT_EQ((std::vector<std::string>{"file 1.3", "document 1 TOBZBA", "end 1"}), events);
        } else {
            // Memory refused to a text read is the library's code 3, in a section 5.
            EXPECT_TRUE(code == NAVO_OK || code == NAVO_OUT_OF_MEMORY || code == NAVO_UNEXPECTED_END ||
                        code == NAVO_BAD_DOCUMENT)
                << code;
        }
    };
    EXPECT_GT(navo_test::sweepAllocations(scenario, tmp), 10);
}

}  // namespace
