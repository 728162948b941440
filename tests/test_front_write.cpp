// test_front_write.cpp - writing through the core: refusals that change nothing, documents by
// number, whole and streamed saves that reach their path whole or not at all, the safe output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#endif

#include "navo_example.h"
#include "navo_front.h"
#include "test_support.h"

namespace {

using navo_test::exampleFile;
using navo_test::exampleLines;

// The example file's content through the writer: its file header and note, its one document.
void fillExample(navo_writer *writer, int32_t &doc)
{
    const char *header[] = {"H1", "H2", "H3", "H4", "H5"};
    for (int32_t line = 0; line < 5; line++)
        ASSERT_EQ(NAVO_OK, navo_writer_file_header(writer, line, header[line], nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, "TOBZBA", &doc, nullptr));
    for (int32_t line = 0; line < 14; line++) {
        const std::string text = line == 11 || line == 12 ? "X" : "D" + std::to_string(line + 1);
        ASSERT_EQ(NAVO_OK, navo_writer_header(writer, doc, line, text.c_str(), nullptr));
    }
    const struct {
        const char *block;
        int32_t record;
        const char *field, *value;
    } values[] = {
        {"DOZCBA", 0, "DataNadania", "09122009"}, {"DOZCBA", 0, "NalepkaR", "A1"},
        {"DIPL", 0, "Nip", "1234567890"},         {"DIPL", 0, "Regon", "12345678901234"},
        {"DIPL", 0, "NazwaSkrocona", "PRZYKLADOWA FIRMA"},
        {"IORB", 0, "KodRodzajuZgloszen", "1"},   {"IORB", 0, "NumerRachunku", "11112222333344445555666677778888"},
        {"IORB", 1, "KodRodzajuZgloszen", "2"},   {"IORB", 1, "NumerRachunku", "99990000111122223333444455556666"},
        {"OPL1", 0, "DataWypelnienia", "09122009"},
    };
    int32_t record = -1;
    ASSERT_EQ(NAVO_OK, navo_writer_add_record(writer, doc, "IORB", &record, nullptr));
    ASSERT_EQ(1, record);
    for (const auto &v : values)
        ASSERT_EQ(NAVO_OK, navo_writer_set(writer, doc, v.block, v.record, v.field, v.value, nullptr)) << v.field;
    const char *ocr[] = {"O1", "O2", "O3", "O4", "O5", "O6"};
    const char *error[] = {"E1", "E2", "E3", "E4"};
    const char *file[] = {"F1", "F2", "F3", "F4"};
    ASSERT_EQ(NAVO_OK, navo_writer_ocr_note(writer, doc, 0, ocr, 6, nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_error_note(writer, doc, error, 4, nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_file_note(writer, file, 4, nullptr));
}

// The names in a directory, sorted.
std::vector<std::string> entriesOf(const std::string &directory)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class FrontWrite : public ::testing::Test {
protected:
    // Outputs go to a directory of their own: the temporary directory also holds spool files.
    FrontWrite() : directory(tmp.file("out")) { std::filesystem::create_directory(directory); }
    std::string file(const std::string &name) const { return directory + "/" + name; }

    navo_test::ScopedTempDir tmp;
    std::string directory;
};

// What a refused call must say.
struct RefusalCase {
    const char *name;
    std::function<int32_t(navo_writer *, int32_t doc, navo_refusal *)> call;
    int32_t code, area, document;
    const char *form, *block;
    int32_t record;
    const char *field;
    int32_t expected, found;
};

// Each refusal with its code and place; refused calls change nothing, so the file saved after all
// of them is the example file itself.
TEST_F(FrontWrite, RefusalsSayWhyAndChangeNothing)
{
    const std::string wide11(11, '1');
    const auto set = [](const char *block, int32_t record, const char *field, std::string text) {
        return [=](navo_writer *w, int32_t doc, navo_refusal *why) {
            return navo_writer_set(w, doc, block, record, field, text.c_str(), why);
        };
    };
    const char *fiveTexts[] = {"a", "b", "c", "d", "e"};
    const RefusalCase cases[] = {
        {"too wide", set("DIPL", 0, "Nip", wide11), NAVO_TOO_WIDE, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", 10, 11},
        {"width in the code page's bytes", set("DIPL", 0, "Nip", "ąąąąąąąąąąą"), NAVO_TOO_WIDE, NAVO_AREA_BODY, 1,
         "TOBZBA", "DIPL", 0, "Nip", 10, 11},
        {"line feed", set("dipl", 0, "nip", "12\n3"), NAVO_BAD_CHARACTER, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip",
         -1, -1},
        {"carriage return", set("DIPL", 0, "Nip", "1\r"), NAVO_BAD_CHARACTER, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0,
         "Nip", -1, -1},
        {"tab", set("DIPL", 0, "Nip", "\t"), NAVO_BAD_CHARACTER, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", -1, -1},
        {"less-than", set("DIPL", 0, "Nip", "a<b"), NAVO_BAD_CHARACTER, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip",
         -1, -1},
        {"byte 0x1A", set("DIPL", 0, "Nip", "\x1A"), NAVO_BAD_CHARACTER, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip",
         -1, -1},
        {"not UTF-8", set("DIPL", 0, "Nip", "\xC0\x80"), NAVO_NOT_UTF8, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", -1,
         -1},
        {"not in the code page", set("DIPL", 0, "Nip", "€"), NAVO_NOT_ENCODABLE, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0,
         "Nip", -1, -1},
        {"not UTF-8 before a bad character", set("DIPL", 0, "Nip", "\n\xC0\x80"), NAVO_NOT_UTF8, NAVO_AREA_BODY, 1,
         "TOBZBA", "DIPL", 0, "Nip", -1, -1},
        {"a bad character before one the code page lacks", set("DIPL", 0, "Nip", "€\n"), NAVO_BAD_CHARACTER,
         NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", -1, -1},
        {"lacking before too wide", set("DIPL", 0, "Nip", "€€€€€€€€€€€"), NAVO_NOT_ENCODABLE, NAVO_AREA_BODY, 1,
         "TOBZBA", "DIPL", 0, "Nip", -1, -1},
        {"unknown block", set("XXXX", 0, "Nip", "1"), NAVO_UNKNOWN_BLOCK, NAVO_AREA_BODY, 1, "TOBZBA", "", 0, "", -1, -1},
        {"unknown field", set("DIPL", 0, "Nipp", "1"), NAVO_UNKNOWN_FIELD, NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "", -1,
         -1},
        {"no such record", set("IORB", 2, "NumerRachunku", "1"), NAVO_BAD_INDEX, NAVO_AREA_BODY, 1, "TOBZBA", "IORB", 2,
         "NumerRachunku", -1, -1},
        {"a second record of a single block", set("DIPL", 1, "Nip", "1"), NAVO_BAD_INDEX, NAVO_AREA_BODY, 1, "TOBZBA",
         "DIPL", 1, "Nip", -1, -1},
        {"no such document",
         [](navo_writer *w, int32_t, navo_refusal *why) { return navo_writer_set(w, 2, "DIPL", 0, "Nip", "1", why); },
         NAVO_BAD_INDEX, NAVO_AREA_BODY, 2, "", "", 0, "", -1, -1},
        {"record of a single block",
         [](navo_writer *w, int32_t doc, navo_refusal *why) {
             return navo_writer_add_record(w, doc, "OPL1", nullptr, why);
         },
         NAVO_NOT_REPEATING, NAVO_AREA_BODY, 1, "TOBZBA", "OPL1", -1, "", -1, -1},
        {"unknown form",
         [](navo_writer *w, int32_t, navo_refusal *why) { return navo_writer_add_document(w, "TOBXYZ", nullptr, why); },
         NAVO_UNKNOWN_FORM, NAVO_AREA_NONE, 0, "", "", -1, "", -1, -1},
        {"document header line too wide",
         [](navo_writer *w, int32_t doc, navo_refusal *why) {
             return navo_writer_header(w, doc, 0, std::string(52, 'x').c_str(), why);
         },
         NAVO_TOO_WIDE, NAVO_AREA_DOCUMENT_HEADER, 1, "TOBZBA", "", 0, "line1", 51, 52},
        {"no such header line",
         [](navo_writer *w, int32_t doc, navo_refusal *why) { return navo_writer_header(w, doc, 14, "x", why); },
         NAVO_BAD_INDEX, NAVO_AREA_DOCUMENT_HEADER, 1, "TOBZBA", "", 14, "", -1, -1},
        {"file header line too wide",
         [](navo_writer *w, int32_t, navo_refusal *why) { return navo_writer_file_header(w, 1, "123456789", why); },
         NAVO_TOO_WIDE, NAVO_AREA_FILE_HEADER, 0, "", "", 1, "line2", 8, 9},
        {"note text too wide",
         [](navo_writer *w, int32_t doc, navo_refusal *why) {
             const char *texts[] = {"a", "b", "0123456789A"};
             return navo_writer_error_note(w, doc, texts, 3, why);
         },
         NAVO_TOO_WIDE, NAVO_AREA_NOTES, 1, "TOBZBA", "BLAD", 1, "text3", 10, 11},
        {"too many note texts",
         [&](navo_writer *w, int32_t doc, navo_refusal *why) { return navo_writer_error_note(w, doc, fiveTexts, 5, why); },
         NAVO_INVALID_ARGUMENT, NAVO_AREA_NOTES, 1, "TOBZBA", "BLAD", 1, "", -1, -1},
        {"OCR text too wide",
         [](navo_writer *w, int32_t doc, navo_refusal *why) {
             const std::string wide(73, 'o');
             const char *texts[] = {"", "", "", wide.c_str()};
             return navo_writer_ocr_note(w, doc, 3, texts, 4, why);
         },
         NAVO_TOO_WIDE, NAVO_AREA_NOTES, 1, "TOBZBA", "OCR", 1, "text4", 72, 73},
        {"OCR kind",
         [](navo_writer *w, int32_t doc, navo_refusal *why) { return navo_writer_ocr_note(w, doc, 4, nullptr, 0, why); },
         NAVO_INVALID_ARGUMENT, NAVO_AREA_NOTES, 1, "TOBZBA", "OCR", -1, "", -1, -1},
        {"file note bad character",
         [](navo_writer *w, int32_t, navo_refusal *why) {
             const char *texts[] = {"<"};
             return navo_writer_file_note(w, texts, 1, why);
         },
         NAVO_BAD_CHARACTER, NAVO_AREA_FOOTER, 0, "", "BLAD", 1, "text1", -1, -1},
        {"streaming without a file",
         [](navo_writer *w, int32_t doc, navo_refusal *why) { return navo_writer_write_document(w, doc, why); },
         NAVO_INVALID_ARGUMENT, NAVO_AREA_NONE, 0, "", "", -1, "", -1, -1},
    };
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, writer);
    int32_t doc = 0;
    fillExample(writer, doc);
    for (const RefusalCase &c : cases) {
        SCOPED_TRACE(c.name);
        navo_refusal why{};
        EXPECT_EQ(c.code, c.call(writer, doc, &why));
        EXPECT_EQ(c.code, why.code);
        EXPECT_EQ(c.area, why.place.area);
        EXPECT_EQ(c.document, why.place.document);
        EXPECT_STREQ(c.form, why.place.form);
        EXPECT_STREQ(c.block, why.place.block);
        EXPECT_EQ(c.record, why.place.record);
        EXPECT_STREQ(c.field, why.place.field);
        EXPECT_EQ(c.expected, why.place.expected);
        EXPECT_EQ(c.found, why.place.found);
        EXPECT_NE('\0', why.reason[0]);
        // The reason names no value the call was given.
        EXPECT_EQ(nullptr, std::strstr(why.reason, "123")) << why.reason;
    }
    const std::string path = file("out.navo");
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, path.c_str(), nullptr));
    EXPECT_EQ(exampleFile(), navo_test::readFile(path));
    navo_writer_free(writer);

    EXPECT_EQ(nullptr, navo_writer_new("1.4", NAVO_ISO8859_2, 0));
    EXPECT_EQ(nullptr, navo_writer_new("1.3", 2, 0));
    EXPECT_EQ(nullptr, navo_writer_new("1.3", NAVO_CP1250, 4));
}

// With NAVO_TRUNCATE values too wide are cut and characters the code page lacks become '?'; the
// writer's code page is the file's.
TEST_F(FrontWrite, TruncateAndCodePage)
{
    navo_writer *writer = navo_writer_new("1.2", NAVO_CP1250, NAVO_TRUNCATE);
    ASSERT_NE(nullptr, writer);
    int32_t doc = 0;
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, "tobzba", &doc, nullptr));
    EXPECT_EQ(NAVO_OK, navo_writer_set(writer, doc, "DIPL", 0, "Nip", "12345678901234", nullptr));
    EXPECT_EQ(NAVO_OK, navo_writer_set(writer, doc, "DIPL", 0, "Nazwisko", "Łąka ₿ €", nullptr));
    EXPECT_EQ(NAVO_BAD_CHARACTER, navo_writer_set(writer, doc, "DIPL", 0, "Regon", "\n", nullptr));
    const std::string path = file("cut.navo");
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, path.c_str(), nullptr));
    navo_writer_free(writer);
    const std::string text = navo_test::readFile(path);
    EXPECT_NE(std::string::npos, text.find("\r\n1234567890\r\n"));
    EXPECT_NE(std::string::npos, text.find("\r\n\xA3\xB9ka ? \x80" + std::string(23, ' ') + "\r\n"));
    EXPECT_NE(std::string::npos, text.find("<!ENTITY wersja '001.200' >"));
}

// A saved file loads back with every value, in the order the documents were added, under their
// numbers; a removed document takes nothing of the others with it.
TEST_F(FrontWrite, SaveLoadRoundTripAndRemoval)
{
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, writer);
    const char *forms[] = {"TOBZBA", "TOBRCA", "TOBZBA", "TOBZBA", "TOBRCA"};
    for (int32_t i = 0; i < 5; i++) {
        int32_t doc = 0;
        ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, forms[i], &doc, nullptr));
        ASSERT_EQ(i + 1, doc);
        const std::string nip = std::to_string(1000 + doc);
        ASSERT_EQ(NAVO_OK, navo_writer_header(writer, doc, 0, ("doc " + nip).c_str(), nullptr));
        ASSERT_EQ(NAVO_OK, navo_writer_set(writer, doc, "DIPL", 0, "Nip", nip.c_str(), nullptr));
    }
    // Document 1 and 3 go; 4 of the same form moves down in the library, not in number.
    EXPECT_EQ(NAVO_OK, navo_writer_remove_document(writer, 1));
    EXPECT_EQ(NAVO_OK, navo_writer_remove_document(writer, 3));
    EXPECT_EQ(NAVO_BAD_INDEX, navo_writer_remove_document(writer, 3));
    EXPECT_EQ(NAVO_BAD_INDEX, navo_writer_set(writer, 1, "DIPL", 0, "Nip", "1", nullptr));
    EXPECT_EQ(NAVO_OK, navo_writer_set(writer, 4, "DIPL", 0, "Regon", "REGON4", nullptr));
    int32_t record = 0;
    EXPECT_EQ(NAVO_OK, navo_writer_add_record(writer, 5, "DDORCA", &record, nullptr));
    EXPECT_EQ(1, record);
    EXPECT_EQ(NAVO_OK, navo_writer_set(writer, 5, "DDORCA", 1, "Nazwisko", "ŻÓŁW", nullptr));
    const char *note[] = {"N1"};
    EXPECT_EQ(NAVO_OK, navo_writer_ocr_note(writer, 4, 3, note, 1, nullptr));
    // An add undone at the end gives its number to the next add.
    int32_t undone = 0;
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, "TOBZBA", &undone, nullptr));
    EXPECT_EQ(6, undone);
    ASSERT_EQ(NAVO_OK, navo_writer_remove_document(writer, undone));
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, "TOBZBA", &undone, nullptr));
    EXPECT_EQ(6, undone);
    ASSERT_EQ(NAVO_OK, navo_writer_remove_document(writer, undone));
    const std::string path = file("round.navo");
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, path.c_str(), nullptr));
    navo_writer_free(writer);

    struct Read {
        std::vector<std::string> seen;
    } read;
    navo_load_callbacks callbacks{};
    callbacks.user = &read;
    callbacks.document = [](void *user, const navo_document *doc) -> int32_t {
        auto &r = *static_cast<Read *>(user);
        const navo_form_def *form = navo_document_form(doc);
        const int32_t dipl = navo_form_block(form, "DIPL");
        char value[64];
        std::string line = std::to_string(navo_document_number(doc)) + " " + form->name;
        navo_document_value(doc, dipl, 0, navo_block_field(&form->blocks[dipl], "Nip"), 0, value, sizeof value);
        line += std::string(" ") + value;
        navo_document_value(doc, dipl, 0, navo_block_field(&form->blocks[dipl], "Regon"), 0, value, sizeof value);
        line += std::string(" ") + value;
        std::vector<char> header(512);
        navo_document_header(doc, 0, header.data(), header.size());
        line += std::string(" [") + header.data() + "]";
        const int32_t ddorca = navo_form_block(form, "DDORCA");
        if (ddorca >= 0) {
            line += " " + std::to_string(navo_document_records(doc, ddorca));
            navo_document_value(doc, ddorca, 1, navo_block_field(&form->blocks[ddorca], "Nazwisko"), 0, value,
                                sizeof value);
            line += std::string(" ") + value;
        }
        line += " notes " + std::to_string(navo_document_notes(doc, NAVO_OCR_NOTE));
        r.seen.push_back(line);
        return 0;
    };
    navo_load_result result{};
    ASSERT_EQ(NAVO_OK, navo_load(path.c_str(), nullptr, &callbacks, &result));
    const std::vector<std::string> expected = {
        "1 TOBRCA 1002  [doc 1002] 1  notes 0",
        "2 TOBZBA 1004 REGON4 [doc 1004] notes 1",
        "3 TOBRCA 1005  [doc 1005] 2 ŻÓŁW notes 0",
    };
    EXPECT_EQ(expected, read.seen);
}


// A save that cannot be written whole leaves the file that stood at the path as it was, and no
// new file beside it; so does a streamed save given up, and an output never committed.
TEST_F(FrontWrite, FailedSavesLeaveTheOldFileWhole)
{
#ifdef _WIN32
    GTEST_SKIP() << "a full disk is stood in for by a POSIX file-size limit (RLIMIT_FSIZE)";
#else
    const std::string path = file("kept.navo");
    const std::string old = "the file that stood here\r\n";
    navo_test::writeFile(path, old);
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, writer);
    int32_t doc = 0;
    fillExample(writer, doc);
    // A save puts the records of the repeating block into its spool file first; the limit below
    // then meets the new file alone (the spool lives in the same temporary directory's file system).
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, file("first.navo").c_str(), nullptr));
    std::remove(file("first.navo").c_str());
    for (rlim_t limit : {rlim_t{0}, rlim_t{100}, rlim_t{700}, rlim_t{exampleFile().size() - 1}}) {
        SCOPED_TRACE(limit);
        navo_refusal why{};
        int32_t code = 0;
        {
            navo_test::FileSizeLimit small(limit);
            code = navo_writer_save(writer, path.c_str(), &why);
        }
        EXPECT_EQ(NAVO_SAVE_FAILED, code);
        EXPECT_EQ(NAVO_SAVE_FAILED, why.code);
        EXPECT_NE(nullptr, std::strstr(why.reason, "File too large")) << why.reason;
        EXPECT_EQ(old, navo_test::readFile(path));
        EXPECT_EQ(std::vector<std::string>{"kept.navo"}, entriesOf(directory));
    }
    // Streamed: the limit meets the document or the footer, whichever reaches the disk first.
    ASSERT_EQ(NAVO_OK, navo_writer_begin(writer, path.c_str(), nullptr));
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_writer_save(writer, path.c_str(), nullptr));
    EXPECT_EQ(2u, entriesOf(directory).size());
    {
        navo_test::FileSizeLimit small(600);
        const int32_t written = navo_writer_write_document(writer, doc, nullptr);
        EXPECT_EQ(NAVO_SAVE_FAILED, written == NAVO_OK ? navo_writer_finish(writer, nullptr) : written);
    }
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_writer_finish(writer, nullptr));
    EXPECT_EQ(old, navo_test::readFile(path));
    EXPECT_EQ(std::vector<std::string>{"kept.navo"}, entriesOf(directory));
    navo_writer_free(writer);

    navo_output *output = nullptr;
    ASSERT_EQ(NAVO_OK, navo_output_open(path.c_str(), &output, nullptr));
    EXPECT_EQ(NAVO_OK, navo_output_write(output, "new", 3, nullptr));
    navo_output_free(output);
    EXPECT_EQ(old, navo_test::readFile(path));
    EXPECT_EQ(std::vector<std::string>{"kept.navo"}, entriesOf(directory));
#endif
}

// Streaming writes each document and lets it go; what reaches the path is what a whole save gives.
// A writer freed before finish leaves nothing but the old file.
TEST_F(FrontWrite, StreamedSave)
{
    const std::string whole = file("whole.navo");
    const std::string streamed = file("streamed.navo");
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, writer);
    int32_t first = 0;
    fillExample(writer, first);
    int32_t second = 0;
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(writer, "TOBZBA", &second, nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_set(writer, second, "DIPL", 0, "Nip", "2", nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, whole.c_str(), nullptr));

    ASSERT_EQ(NAVO_OK, navo_writer_begin(writer, streamed.c_str(), nullptr));
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_writer_begin(writer, streamed.c_str(), nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_write_document(writer, first, nullptr));
    EXPECT_EQ(NAVO_BAD_INDEX, navo_writer_write_document(writer, first, nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_write_document(writer, second, nullptr));
    EXPECT_FALSE(std::filesystem::exists(streamed)) << "nothing at the path before finish";
    ASSERT_EQ(NAVO_OK, navo_writer_finish(writer, nullptr));
    EXPECT_EQ(navo_test::readFile(whole), navo_test::readFile(streamed));

    // Documents written are gone: a new begin and finish give the envelope alone.
    const std::string begun = file("begun.navo");
    ASSERT_EQ(NAVO_OK, navo_writer_begin(writer, begun.c_str(), nullptr));
    navo_writer_free(writer);
    EXPECT_EQ((std::vector<std::string>{"streamed.navo", "whole.navo"}), entriesOf(directory));
}

// The new file's permissions follow the umask, or those of the file it replaces.
TEST_F(FrontWrite, ModeOfTheNewFile)
{
#ifdef _WIN32
    GTEST_SKIP() << "Windows has no mode bits";
#else
    navo_writer *writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, writer);
    const std::string path = file("mode.navo");
    for (mode_t mask : {mode_t{022}, mode_t{077}, mode_t{002}}) {
        std::remove(path.c_str());
        const mode_t old = umask(mask);
        const int32_t code = navo_writer_save(writer, path.c_str(), nullptr);
        umask(old);
        ASSERT_EQ(NAVO_OK, code);
        EXPECT_EQ(static_cast<int>(0666 & ~mask), navo_test::permissions(path)) << mask;
    }
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    ASSERT_EQ(NAVO_OK, navo_writer_save(writer, path.c_str(), nullptr));
    EXPECT_EQ(0640, navo_test::permissions(path));
    navo_output *output = nullptr;
    ASSERT_EQ(NAVO_OK, navo_output_open(path.c_str(), &output, nullptr));
    EXPECT_EQ(NAVO_OK, navo_output_write(output, "out", 3, nullptr));
    EXPECT_EQ(NAVO_OK, navo_output_commit(output, nullptr));
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_output_write(output, "x", 1, nullptr));
    navo_output_free(output);
    EXPECT_EQ("out", navo_test::readFile(path));
    EXPECT_EQ(0640, navo_test::permissions(path));
    navo_writer_free(writer);
#endif
}

// The writer's calls under failing allocations of the library: a refused call is a code, never a
// leak or a spool file left behind.
TEST_F(FrontWrite, FailedAllocationsOfAWriter)
{
    navo_test::Scenario scenario;
    navo_writer *writer = nullptr;
    scenario.act = [&]() -> int32_t {
        writer = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
        if (writer == nullptr)
            return -1;
        int32_t doc = 0;
        int32_t code = navo_writer_add_document(writer, "TOBZBA", &doc, nullptr);
        for (int i = 0; i < 3 && code == NAVO_OK; i++)
            code = navo_writer_add_record(writer, doc, "IORB", nullptr, nullptr);
        if (code == NAVO_OK)
            code = navo_writer_set(writer, doc, "IORB", 2, "NumerRachunku", "77", nullptr);
        const char *texts[] = {"E"};
        if (code == NAVO_OK)
            code = navo_writer_error_note(writer, doc, texts, 1, nullptr);
        if (code == NAVO_OK)
            code = navo_writer_save(writer, file("sweep.navo").c_str(), nullptr);
        return code;
    };
    scenario.check = [&](int32_t code, int64_t n) {
        if (n == 0)
            EXPECT_EQ(NAVO_OK, code);
        else
            EXPECT_TRUE(code == -1 || code == NAVO_STORE_FAILED || code == NAVO_SAVE_FAILED) << code;
    };
    scenario.teardown = [&] {
        navo_writer_free(writer);
        writer = nullptr;
        std::remove(file("sweep.navo").c_str());
    };
    EXPECT_GT(navo_test::sweepAllocations(scenario, tmp), 10);
}

}  // namespace
