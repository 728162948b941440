// test_writer.cpp - the example file byte for byte, write -> load round trips with sections
// written back from the callback, the envelope and its notes, and the writer under failing
// memory and failing output.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "interchange/writer.hpp"
#include "navo_builder.h"
#include "navo_example.h"
#include "test_support.h"

using namespace navo_test;

namespace {

std::string lines(size_t first, size_t last, const char *end = "\n")  // 1-based, inclusive
{
    std::string text;
    const std::vector<std::string> all = exampleLines();
    for (size_t i = first; i <= last; i++)
        text += all[i - 1] + end;
    return text;
}

dk_ErrorNote errorNote(const char *t1, const char *t2 = "", const char *t3 = "", const char *t4 = "")
{
    dk_ErrorNote note{};
    std::strcpy(note.text1, t1);
    std::strcpy(note.text2, t2);
    std::strcpy(note.text3, t3);
    std::strcpy(note.text4, t4);
    return note;
}

dk_OcrNote ocrNote(int32_t kind, const std::string &text4)
{
    dk_OcrNote note{};
    note.kind = kind;
    std::strcpy(note.text1, "O1");
    std::strcpy(note.text4, text4.c_str());
    std::strcpy(note.text5, "O5");
    return note;
}

class Writer : public ::testing::Test {
protected:
    void SetUp() override { live_ = navo::memory::live_blocks(); }
    void TearDown() override
    {
        dk_UstawCallBack(nullptr);
        destroyContext(ctx);
        destroyContext(loaded);
        EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
        EXPECT_EQ(live_, navo::memory::live_blocks());
    }
    void make(const char *definition = exampleDefinition(), int32_t pool = 10) { ctx = makeContext(definition, pool); }
    std::string save(int32_t envelope)
    {
        EXPECT_EQ(1, dk_SaveNAVO(ctx, tmp.file("out.navo").c_str(), envelope));
        return readFile(tmp.file("out.navo"));
    }
    // One writing step on a binary host stream: the bytes as written, LF line ends.
    std::string step(const std::function<int32_t(FILE *)> &write, int32_t expected = 1)
    {
        FILE *stream = std::fopen(tmp.file("step").c_str(), "wb");
        EXPECT_NE(nullptr, stream);
        EXPECT_EQ(expected, write(stream));
        EXPECT_EQ(1, dk_CloseFile(stream));
        return readFile(tmp.file("step"));
    }
    // Loads out.navo into a new context whose callback writes each section back.
    int32_t loadBack()
    {
        EXPECT_EQ(1, dk_Init(&loaded));
        sections_.clear();
        forms_.clear();
        active_ = this;
        dk_UstawCallBack(writeBack);
        return dk_LoadNAVO(loaded, tmp.file("out.navo").c_str());
    }
    // The whole file again from the loaded context and the sections written back.
    std::string rebuilt()
    {
        return toCrLf(step([&](FILE *s) { return dk_SaveProlog(loaded, s); }) +
                      step([&](FILE *s) { return dk_SaveHeader(loaded, s); }) + sections_ +
                      step([&](FILE *s) { return dk_SaveFooter(loaded, s); }));
    }
    static int32_t NAVO_CALL writeBack(dk_Context *context, const char *form, int32_t doc)
    {
        active_->forms_.push_back(form);
        active_->sections_ += active_->step([&](FILE *s) { return dk_SaveDocument(context, form, doc, s, 1); });
        return 0;
    }

    ScopedTempDir tmp;
    dk_Context *ctx = nullptr;
    dk_Context *loaded = nullptr;
    std::string sections_;
    std::vector<std::string> forms_;
    static inline Writer *active_ = nullptr;
    int64_t live_ = 0;
};

}  // namespace

// ---- the example file ---------------------------------------------------------------------------

TEST_F(Writer, ExampleFileByteForByteWholeAndInSteps)
{
    for (const char *definition : {exampleDefinition(), GetDefTXT_1_3()}) {
        make(definition);
        ASSERT_TRUE(fillExample(ctx));
        EXPECT_EQ(exampleFile(), save(1));
        EXPECT_EQ(lines(29, 59, "\r\n"), save(0));  // the short form: the bodies only
        destroyContext(ctx);
    }
    make();
    ASSERT_TRUE(fillExample(ctx));
    EXPECT_EQ(lines(1, 3), step([&](FILE *s) { return dk_SaveProlog(ctx, s); }));
    EXPECT_EQ(lines(4, 11), step([&](FILE *s) { return dk_SaveHeader(ctx, s); }));
    EXPECT_EQ(lines(12, 76), step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", 0, s, 1); }));
    EXPECT_EQ(lines(12, 76), step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", 0, s, -7); }));
    EXPECT_EQ(lines(29, 59), step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", 0, s, 0); }));
    EXPECT_EQ(lines(77, 85), step([&](FILE *s) { return dk_SaveFooter(ctx, s); }));
    // Single steps through the writer's own text-mode stream give the whole file.
    FILE *stream = nullptr;
    ASSERT_EQ(1, dk_OpenFileforSave(&stream, tmp.file("steps.navo").c_str()));
    EXPECT_EQ(1, dk_SaveProlog(ctx, stream));
    EXPECT_EQ(1, dk_SaveHeader(ctx, stream));
    EXPECT_EQ(1, dk_SaveDocument(ctx, "TOBZBA", 0, stream, 1));
    EXPECT_EQ(1, dk_SaveFooter(ctx, stream));
    EXPECT_EQ(1, dk_CloseFile(stream));
    EXPECT_EQ(exampleFile(), readFile(tmp.file("steps.navo")));
    // Saving changes nothing: twice the same file.
    EXPECT_EQ(exampleFile(), save(1));
    EXPECT_EQ(exampleFile(), save(1));
}

TEST_F(Writer, DocumentsInFormThenIndexOrderAndEmptyParts)
{
    ASSERT_EQ(1, dk_Init(&ctx));
    EXPECT_EQ("", save(0));  // no definition, no tables: nothing to write
    destroyContext(ctx);
    make();
    EXPECT_EQ("", save(0));  // no documents, no envelope
    const std::string bare = save(1);
    EXPECT_EQ(toCrLf(step([&](FILE *s) { return dk_SaveProlog(ctx, s); }) + step([&](FILE *s) { return dk_SaveHeader(ctx, s); }) +
                     step([&](FILE *s) { return dk_SaveFooter(ctx, s); })),
              bare);
    EXPECT_NE(std::string::npos, bare.find("<NAVO>\r\n<naglowek.NAVO>\r\n\r\n"));  // never-set lines are empty
    for (const char *form : {"TOBDWA", "TOBZBA", "TOBPUSTY", "TOBZBA"}) {
        int32_t doc = -1;
        ASSERT_EQ(1, dk_AddDocument(ctx, form, &doc));
        dk_DocHeader *header = nullptr;
        ASSERT_EQ(1, dk_GetDocHeader(ctx, form, doc, &header));
        setLine(header->line1, std::string(form) + std::to_string(doc));
    }
    const std::string text = save(0);
    std::vector<std::string> order;
    for (size_t at = text.find("<TOB"); at != std::string::npos; at = text.find("<TOB", at + 1))
        order.push_back(text.substr(at + 1, text.find('>', at) - at - 1));
    EXPECT_EQ((std::vector<std::string>{"TOBZBA", "TOBZBA", "TOBPUSTY", "TOBDWA"}), order);
    const std::string withEnvelope = save(1);
    EXPECT_LT(withEnvelope.find(padded("TOBZBA0", 51)), withEnvelope.find(padded("TOBZBA1", 51)));
    EXPECT_NE(std::string::npos, withEnvelope.find("<TOBPUSTY>\r\n</TOBPUSTY>\r\n<stopka.DP>\r\n</stopka.DP>\r\n"));
}

// What dk_SaveDocument refuses, it refuses before writing anything.
TEST_F(Writer, RefusalsWriteNothing)
{
    make();
    ASSERT_GE(fillExampleDocument(ctx), 0);
    for (int32_t kind : {4, -1, INT32_MAX}) {
        dk_OcrNote note = ocrNote(kind, "x");
        ASSERT_EQ(1, dk_AddDocOCR(ctx, "TOBZBA", 0, &note));
        EXPECT_EQ("", step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", 0, s, 1); }, 0)) << kind;
        ASSERT_EQ(1, dk_RemoveDocument(ctx, "TOBZBA", 0));
        ASSERT_EQ(0, fillExampleDocument(ctx));
    }
    const struct {
        const char *form;
        int32_t doc;
    } rows[] = {{"NIEMA", 0}, {"DIPL", 0}, {"TOBZBA", 1}, {"TOBZBA", -1}, {"TOBDWA", 0}};
    for (const auto &row : rows)
        EXPECT_EQ("", step([&](FILE *s) { return dk_SaveDocument(ctx, row.form, row.doc, s, 1); }, 0)) << row.form << row.doc;
    // A kind outside 0 to 3 on a document's first and only note is refused as well.
    int32_t fresh = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "TOBZBA", &fresh));
    dk_OcrNote only = ocrNote(4, "x");
    ASSERT_EQ(1, dk_AddDocOCR(ctx, "TOBZBA", fresh, &only));
    EXPECT_EQ("", step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", fresh, s, 1); }, 0));
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "TOBZBA", fresh));
    // No context or no stream: every step refuses, the stream untouched.
    FILE *open = std::fopen(tmp.file("steps.navo").c_str(), "wb");
    ASSERT_NE(nullptr, open);
    for (FILE *s : {open, static_cast<FILE *>(nullptr)}) {
        dk_Context *c = s == nullptr ? ctx : nullptr;
        EXPECT_EQ(0, dk_SaveProlog(c, s));
        EXPECT_EQ(0, dk_SaveHeader(c, s));
        EXPECT_EQ(0, dk_SaveFooter(c, s));
        EXPECT_EQ(0, dk_SaveDocument(c, "TOBZBA", 0, s, 1));
    }
    EXPECT_EQ(0, std::ftell(open));
    std::fclose(open);
    FILE *stream = reinterpret_cast<FILE *>(this);
    EXPECT_EQ(0, dk_OpenFileforSave(&stream, tmp.file("missing/out.navo").c_str()));
    EXPECT_EQ(nullptr, stream);
    EXPECT_EQ(0, dk_SaveNAVO(ctx, tmp.file("missing/out.navo").c_str(), 1));
    writeFile(tmp.file("out.navo"), std::string(5000, 'z'));
    EXPECT_EQ(0, dk_SaveNAVO(nullptr, tmp.file("out.navo").c_str(), 1));
    EXPECT_EQ(0, dk_SaveNAVO(ctx, nullptr, 1));
    EXPECT_EQ(std::string(5000, 'z'), readFile(tmp.file("out.navo")));  // refused before the file is touched
    EXPECT_EQ(lines(29, 59, "\r\n"), save(0));  // an existing file is truncated
}

// ---- round trips --------------------------------------------------------------------------------

TEST_F(Writer, WrittenFilesLoadBackAndAreWrittenBackByteForByte)
{
    make(GetDefTXT_1_3());
    ASSERT_TRUE(fillExample(ctx));
    for (int i = 0; i < 3; i++) {
        const int32_t doc = fillExampleDocument(ctx);
        ASSERT_GE(doc, 0);
        int32_t record = -1;
        ASSERT_EQ(1, dk_AddBlock(ctx, "TOBZBA", doc, "IORB", &record));
        ASSERT_EQ(1, dk_SetField(ctx, "TOBZBA", doc, "IORB", record, "NumerRachunku", std::to_string(i).c_str()));
        dk_OcrNote note = ocrNote(i + 1, std::string(72 - i, 'q'));
        ASSERT_EQ(1, dk_AddDocOCR(ctx, "TOBZBA", doc, &note));
        dk_ErrorNote error = errorNote("0123456789", "", "x", "0123456789");
        ASSERT_EQ(1, dk_AddDocError(ctx, "TOBZBA", doc, &error));
    }
    int32_t other = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "TOBRCA", &other));
    dk_DocHeader *header = nullptr;
    ASSERT_EQ(1, dk_GetDocHeader(ctx, "TOBRCA", other, &header));
    char *targets[] = {header->line1, header->line2, header->line3, header->line4,  header->line5,  header->line6,  header->line7,
                       header->line8, header->line9, header->line10, header->line11, header->line12, header->line13, header->line14};
    const size_t widths[] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
    for (size_t i = 0; i < 14; i++)
        std::strcpy(targets[i], fixed("R" + std::to_string(i + 1), widths[i]).c_str());
    int32_t dnf = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "DNF", &dnf));  // written, but a load passes over it
    const std::string written = save(1);
    ASSERT_NE(std::string::npos, written.find("<DNF.DP>\r\n"));
    ASSERT_EQ(1, loadBack());
    EXPECT_EQ(5u, forms_.size());
    std::string withoutDnf = written;
    const size_t from = withoutDnf.find("<DNF.DP>\r\n"), to = withoutDnf.find("</DNF.DP>\r\n") + 11;
    withoutDnf.erase(from, to - from);
    EXPECT_EQ(withoutDnf, rebuilt());
}

// Every field of every TOB form, three records in each repeating block, written and loaded back.
TEST_F(Writer, EveryFormRoundTrips)
{
    static const Layouts layouts(GetDefTXT_1_3());
    make(GetDefTXT_1_3());
    ASSERT_EQ(1, dk_SetDefaultNAVOProlog(ctx, "1.3"));
    dk_FileHeader *fileHeader = nullptr;
    ASSERT_EQ(1, dk_GetNAVOHeader(ctx, &fileHeader));
    setLine(fileHeader->line1, "H1");
    setLine(fileHeader->line2, "H2");
    setLine(fileHeader->line3, "H3");
    setLine(fileHeader->line4, "H4");
    setLine(fileHeader->line5, "H5");
    int forms = 0;
    for (const std::string &name : layouts.formNames()) {
        if (name.compare(0, 3, "TOB") != 0)
            continue;
        const int number = ++forms;
        int32_t doc = -1;
        ASSERT_EQ(1, dk_AddDocument(ctx, name.c_str(), &doc));
        dk_DocHeader *header = nullptr;
        ASSERT_EQ(1, dk_GetDocHeader(ctx, name.c_str(), doc, &header));
        setLine(header->line1, "D" + std::to_string(number));
        for (char *line : {header->line2, header->line3, header->line4, header->line6, header->line9})
            std::strcpy(line, "        ");
        for (char *line : {header->line5, header->line7, header->line8, header->line10, header->line11})
            std::strcpy(line, fixed("", 24).c_str());
        std::strcpy(header->line12, "A");
        std::strcpy(header->line13, "B");
        setLine(header->line14, "D14");
        const std::vector<BlockLayout> &blocks = layouts.form(name);
        for (size_t b = 0; b < blocks.size(); b++)
            for (int r = 0; r < (blocks[b].repeating ? 3 : 1); r++) {
                int32_t record = 0;
                ASSERT_EQ(1, r > 0 ? dk_AddBlock(ctx, name.c_str(), doc, blocks[b].tag.c_str(), &record) : 1);
                for (size_t f = 0; f < blocks[b].fields.size(); f++)
                    ASSERT_EQ(1, dk_SetField(ctx, name.c_str(), doc, blocks[b].tag.c_str(), r, blocks[b].fields[f].first.c_str(),
                                             sampleValue(number, static_cast<int>(b), r, static_cast<int>(f), blocks[b].fields[f].second)
                                                 .c_str()));
            }
    }
    EXPECT_EQ(36, forms);
    const std::string written = save(1);
    ASSERT_EQ(1, loadBack());
    EXPECT_EQ(36u, forms_.size());
    EXPECT_EQ(written, rebuilt());
}

TEST_F(Writer, WhatALoadRejects)
{
    make(GetDefTXT_1_3());
    ASSERT_EQ(1, dk_SetDefaultNAVOProlog(ctx, "1.3"));
    save(1);  // a header never filled has empty lines: not 139 characters
    EXPECT_EQ(0, loadBack());
    EXPECT_EQ(3, dk_GetNAVOError());
    destroyContext(loaded);
    ASSERT_TRUE(fillExample(ctx));
    save(0);  // the short form has no prolog
    EXPECT_EQ(0, loadBack());
    EXPECT_EQ(1, dk_GetNAVOError());
}

// Blocks of 512 fields and more, each field a line of its own, records of 20 KiB: two
// records of each, in order, on a host stream and in a file the library opens itself, where
// the LF of a field leaves as CR LF like every other.
TEST_F(Writer, BlocksOfManyFieldsAreWrittenWhole)
{
    for (const int fields : {512, 513}) {
        std::string definition = "Wersja T4\n\n[W, W]\nWide, 1, -1\n\n<Wide, WID>\n";
        for (int f = 0; f < fields; f++)
            definition += "P" + std::to_string(f) + ", 40, t\n";
        make(definition.c_str());
        int32_t doc = -1, record = -1;
        ASSERT_EQ(1, dk_AddDocument(ctx, "W", &doc));
        ASSERT_EQ(1, dk_AddBlock(ctx, "W", doc, "WID", &record));
        std::string expected = "<W>\n";
        for (int32_t r = 0; r < 2; r++) {
            expected += "<WID>\n";
            for (int f = 0; f < fields; f++) {
                std::string value = std::string(39, static_cast<char>('a' + f % 26)) + std::to_string(r);
                if (f % 100 == 7)
                    value[5] = '\n';  // read back, as fgets reads, up to and with the LF
                ASSERT_EQ(1, dk_SetField(ctx, "W", doc, "WID", r, ("P" + std::to_string(f)).c_str(), value.c_str()));
                const size_t lineFeed = value.find('\n');
                expected += value.substr(0, lineFeed == std::string::npos ? lineFeed : lineFeed + 1) + "\n";
            }
            expected += "</WID>\n";
        }
        expected += "</W>\n";
        EXPECT_TRUE(expected == step([&](FILE *s) { return dk_SaveDocument(ctx, "W", doc, s, 0); })) << fields;
        EXPECT_TRUE(toCrLf(expected) == save(0)) << fields;
        destroyContext(ctx);
    }
}

// Lines the host left without a NUL run on to the end of their record, and no further: the
// document header, and an error note with another one behind it.
TEST_F(Writer, UnterminatedLinesRunOnToTheEndOfTheirRecord)
{
    make();
    int32_t doc = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "TOBZBA", &doc));
    dk_DocHeader *header = nullptr;
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(1, dk_GetDocHeader(ctx, "TOBZBA", doc, &header));
    ASSERT_EQ(1, dk_GetDocFooter(ctx, "TOBZBA", doc, &footer));
    for (const char *text : {"FIRST", "NEXT"}) {
        const dk_ErrorNote note = errorNote(text);
        ASSERT_EQ(1, dk_AddDocError(ctx, "TOBZBA", doc, &note));
    }
    std::memset(header, 'x', sizeof *header);
    std::memset(&footer->errorNotes[0], 'x', sizeof(dk_ErrorNote));
    std::string expected = "<naglowek.DP>\n";
    size_t rest = sizeof *header;
    for (const size_t size : {52, 9, 9, 9, 25, 9, 25, 25, 9, 25, 25, 2, 2, 33}) {
        expected += std::string(rest, 'x') + "\n";
        rest -= size;
    }
    const std::string text = step([&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", doc, s, 1); });
    EXPECT_NE(std::string::npos, text.find(expected + "</naglowek.DP>\n")) << text.substr(0, 300);
    const std::string x11(11, 'x');
    EXPECT_NE(std::string::npos, text.find("<BLAD>\n" + x11 + x11 + x11 + x11 + "\n" + x11 + x11 + x11 + "\n" + x11 + x11 +
                                           "\n" + x11 + "\n</BLAD>\n<BLAD>\nNEXT"))
        << text.substr(text.find("<BLAD>"));
}

// ---- envelope -----------------------------------------------------------------------------------

TEST_F(Writer, DefaultPrologOfAnyVersionOfThreeOrFewerCharacters)
{
    make();
    const struct {
        const char *version;
        int32_t result;
        const char *doctype, *versionLine;
    } rows[] = {
        {"1.3", 1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[", "<!ENTITY wersja '001.300' >"},
        {"1.2", 1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.2//PL'[", "<!ENTITY wersja '001.200' >"},
        {"9.9", 1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 9.9//PL'[", "<!ENTITY wersja '009.900' >"},
        {"1", 1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1//PL'[", "<!ENTITY wersja '00100' >"},
        {"", 1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO //PL'[", "<!ENTITY wersja '0000' >"},
        {"1.30", 0, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO //PL'[", "<!ENTITY wersja '0000' >"},
        {"1.3.1", 0, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO //PL'[", "<!ENTITY wersja '0000' >"},
    };
    dk_FileProlog *prolog = nullptr;
    ASSERT_EQ(1, dk_GetNAVOProlog(ctx, &prolog));
    EXPECT_STREQ("", prolog->doctypeLine);
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, dk_SetDefaultNAVOProlog(ctx, row.version)) << row.version;
        EXPECT_STREQ(row.doctype, prolog->doctypeLine);
        EXPECT_STREQ(row.versionLine, prolog->versionLine);
        EXPECT_STREQ("<!ENTITY strona.kodowa 'ISO 8859-2' >]>", prolog->encodingLine);
    }
    EXPECT_EQ(0, dk_SetDefaultNAVOProlog(nullptr, "1.3"));
    EXPECT_EQ(0, dk_SetDefaultNAVOProlog(ctx, nullptr));
    EXPECT_EQ(0, dk_GetNAVOProlog(nullptr, &prolog));
    EXPECT_EQ(nullptr, prolog);
    dk_FileHeader *header = nullptr;
    dk_FileFooter *footer = nullptr;
    EXPECT_EQ(1, dk_GetNAVOHeader(ctx, &header));
    EXPECT_EQ(1, dk_GetNAVOFooter(ctx, &footer));
    EXPECT_EQ(&ctx->header, header);
    EXPECT_EQ(&ctx->footer, footer);
}

// Notes of the file and of documents: short texts filled with blanks, full ones kept, an
// unterminated inner text runs on, an unterminated last text is refused before anything changes.
TEST_F(Writer, NotesAreFilledKeptInOrderAndChecked)
{
    make();
    ASSERT_EQ(0, fillExampleDocument(ctx));
    int32_t second = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "TOBZBA", &second));
    const std::string ten(10, ' ');
    dk_ErrorNote note = errorNote("AB", "0123456789", "x", "");
    dk_ErrorNote copy = note;
    using Add = std::function<int32_t(const dk_ErrorNote *)>;
    const std::vector<std::pair<Add, std::function<const dk_ErrorNote *(int32_t *)>>> lists = {
        {[&](const dk_ErrorNote *n) { return dk_AddNAVOError(ctx, n); },
         [&](int32_t *count) {
             *count = ctx->footer.noteCount;
             return ctx->footer.notes;
         }},
        {[&](const dk_ErrorNote *n) { return dk_AddDocError(ctx, "TOBZBA", second, n); },
         [&](int32_t *count) {
             dk_DocFooter *footer = nullptr;
             EXPECT_EQ(1, dk_GetDocFooter(ctx, "TOBZBA", second, &footer));
             *count = footer->errorCount;
             return footer->errorNotes;
         }},
    };
    for (const auto &[add, read] : lists) {
        ASSERT_EQ(1, add(&note));
        EXPECT_EQ(0, std::memcmp(&note, &copy, sizeof note));  // the host's record is not changed
        dk_ErrorNote unterminated = errorNote("", "B");
        std::memset(unterminated.text1, 'x', sizeof unterminated.text1);
        ASSERT_EQ(1, add(&unterminated));
        std::memset(unterminated.text4, 'x', sizeof unterminated.text4);
        EXPECT_EQ(0, add(&unterminated));
        EXPECT_EQ(0, add(nullptr));
        int32_t count = 0;
        const dk_ErrorNote *notes = read(&count);
        ASSERT_EQ(2, count);
        EXPECT_EQ("AB        |0123456789|x         |" + ten,
                  std::string(notes[0].text1) + "|" + notes[0].text2 + "|" + notes[0].text3 + "|" + notes[0].text4);
        EXPECT_EQ(std::string(11, 'x') + "B         ", notes[1].text1);  // runs on into text2
    }
    dk_DocFooter *first = nullptr;
    ASSERT_EQ(1, dk_GetDocFooter(ctx, "TOBZBA", 0, &first));
    EXPECT_EQ(1, first->errorCount);  // each document keeps its own
    // OCR: text4 of 72 stays, of 71 gets one blank; the kind is copied untested.
    for (const auto &[kind, text4] : std::vector<std::pair<int32_t, std::string>>{{0, std::string(72, 'q')}, {1000, std::string(71, 'q')}}) {
        dk_OcrNote ocr = ocrNote(kind, text4);
        ASSERT_EQ(1, dk_AddDocOCR(ctx, "TOBZBA", second, &ocr));
    }
    dk_OcrNote bad = ocrNote(0, "");
    std::memset(bad.text6, 'y', sizeof bad.text6);
    EXPECT_EQ(0, dk_AddDocOCR(ctx, "TOBZBA", second, &bad));
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(1, dk_GetDocFooter(ctx, "TOBZBA", second, &footer));
    ASSERT_EQ(2, footer->ocrCount);
    EXPECT_EQ(std::string(72, 'q'), footer->ocrNotes[0].text4);
    EXPECT_EQ(std::string(71, 'q') + " ", footer->ocrNotes[1].text4);
    EXPECT_EQ(1000, footer->ocrNotes[1].kind);
    EXPECT_EQ("O1        |" + padded("O5", 24) + "|" + padded("", 24),
              std::string(footer->ocrNotes[1].text1) + "|" + footer->ocrNotes[1].text5 + "|" + footer->ocrNotes[1].text6);
    // Names and indices that are no document are refused and leave `out` alone.
    dk_DocHeader headerSentinel{};
    dk_DocHeader *header = &headerSentinel;
    dk_DocFooter *footerOut = first;
    for (const auto &[form, doc] : std::vector<std::pair<const char *, int32_t>>{
             {"NIEMA", 0}, {"DIPL", 0}, {"Nip", 0}, {"", 0}, {"TOBZBA", 2}, {"TOBZBA", -1}, {"TOBZBA", INT32_MIN}, {"TOBDWA", 0}}) {
        EXPECT_EQ(0, dk_GetDocHeader(ctx, form, doc, &header)) << form << doc;
        EXPECT_EQ(0, dk_GetDocFooter(ctx, form, doc, &footerOut));
        EXPECT_EQ(0, dk_AddDocError(ctx, form, doc, &note));
        EXPECT_EQ(0, dk_AddDocOCR(ctx, form, doc, &bad));
    }
    EXPECT_EQ(&headerSentinel, header);
    EXPECT_EQ(first, footerOut);
    EXPECT_EQ(0, dk_AddDocError(ctx, "TOBZBA", 0, nullptr));
    EXPECT_EQ(0, dk_AddDocOCR(ctx, "TOBZBA", 0, nullptr));
    EXPECT_EQ(0, dk_GetDocHeader(ctx, "TOBZBA", 0, nullptr));
    EXPECT_EQ(0, dk_GetDocFooter(ctx, "TOBZBA", 0, nullptr));
    EXPECT_EQ(1, first->errorCount);
    EXPECT_EQ(1, first->ocrCount);
}

// Every allocation of a note's add fails in turn: result 0, the count drops to 0 with the array
// kept, and the next add shrinks the array to one note.
TEST_F(Writer, EveryAllocationOfANoteFailsAsDocumented)
{
    dk_ErrorNote note = errorNote("N");
    dk_OcrNote ocr = ocrNote(2, "t");
    struct List {
        const char *name;
        std::function<int32_t()> add;
        std::function<int32_t()> count;
    };
    const std::vector<List> lists = {
        {"file", [&] { return dk_AddNAVOError(ctx, &note); }, [&] { return ctx->footer.noteCount; }},
        {"document", [&] { return dk_AddDocError(ctx, "TOBZBA", 0, &note); },
         [&] { return ctx->documentLists[0].documents[0].footer.errorCount; }},
        {"OCR", [&] { return dk_AddDocOCR(ctx, "TOBZBA", 0, &ocr); },
         [&] { return ctx->documentLists[0].documents[0].footer.ocrCount; }},
    };
    for (const List &list : lists) {
        SCOPED_TRACE(list.name);
        int32_t before = 0;
        sweepAllocations({.setup =
                              [&] {
                                  make();
                                  ASSERT_EQ(0, fillExampleDocument(ctx));
                                  ASSERT_EQ(1, list.add());
                                  before = list.count();
                              },
                          .act = list.add,
                          .check =
                              [&](int32_t result, int64_t n) {
                                  EXPECT_EQ(n == 0, result == 1);
                                  EXPECT_EQ(n == 0 ? before + 1 : 0, list.count());
                                  if (n > 0) {
                                      EXPECT_EQ(1, list.add());
                                      EXPECT_EQ(1, list.count());
                                  }
                              },
                          .teardown = [&] { destroyContext(ctx); }},
                         tmp);
    }
}

// ---- the writer under failing memory and failing output -----------------------------------------

TEST_F(Writer, EveryAllocationOfASaveFailsCleanly)
{
    sweepAllocations({.setup =
                          [&] {
                              make(exampleDefinition(), 1);
                              ASSERT_TRUE(fillExample(ctx));
                              ASSERT_GE(fillExampleDocument(ctx), 0);  // the first document's store closed
                          },
                      .act = [&] { return dk_SaveNAVO(ctx, tmp.file("out.navo").c_str(), 1); },
                      .check =
                          [&](int32_t result, int64_t n) {
                              EXPECT_EQ(n == 0, result == 1);
                              const std::string text = readFile(tmp.file("out.navo"));
                              // What was written is the start of the file, never anything else.
                              EXPECT_EQ(0, lines(1, 76, "\r\n").compare(0, std::min(text.size(), lines(1, 76, "\r\n").size()),
                                                                         text.substr(0, lines(1, 76, "\r\n").size())));
                          },
                      .teardown = [&] { destroyContext(ctx); }},
                     tmp);
}

#if defined(__linux__)
namespace {
// A stream that keeps what it is given and refuses every byte past `limit`, unbuffered so that
// each stdio call of the writer reaches it at once.
struct Sink {
    std::string bytes;
    size_t limit;
};
ssize_t sinkWrite(void *cookie, const char *buffer, size_t size)
{
    Sink *sink = static_cast<Sink *>(cookie);
    const size_t taken = std::min(size, sink->limit - std::min(sink->limit, sink->bytes.size()));
    sink->bytes.append(buffer, taken);
    if (taken < size)
        errno = ENOSPC;
    return taken < size ? -1 : static_cast<ssize_t>(taken);
}
}  // namespace
#endif

// The writer to a stream of the caller's: write_file gives dk_SaveNAVO's bytes, and so do the head,
// each document and the tail written one after the other, for the example file and for one of
// 400 repeating records more than the writer's buffer holds. Each refuses a stream that refuses
// a byte, having written what the stream took.
TEST_F(Writer, StreamStepsGiveTheSavedFile)
{
    using namespace navo::interchange;
    make();
    ASSERT_TRUE(fillExample(ctx));
    for (const int records : {0, 400}) {
        const int32_t doc = records > 0 ? fillExampleDocument(ctx) : 0;
        for (int32_t r = 1, added = -1; r < records; r++) {
            ASSERT_EQ(1, dk_AddBlock(ctx, "TOBZBA", doc, "IORB", &added));
            ASSERT_EQ(1, dk_SetField(ctx, "TOBZBA", doc, "IORB", added, "NumerRachunku", std::to_string(r).c_str()));
        }
        const std::string saved = save(1);
        EXPECT_TRUE(saved == step([&](FILE *s) { return write_file(*ctx, s) ? 1 : 0; })) << records;
        std::string parts = step([&](FILE *s) { return write_head(*ctx, s) ? 1 : 0; });
        for (int32_t d = 0; d <= doc; d++)
            parts += step([&](FILE *s) { return write_document(*ctx, "TOBZBA", d, s) ? 1 : 0; });
        parts += step([&](FILE *s) { return write_tail(*ctx, s) ? 1 : 0; });
        EXPECT_TRUE(saved == parts) << records;
        ASSERT_GT(saved.size(), records > 0 ? save_buffer_size : 0);
    }
    EXPECT_EQ("", step([&](FILE *s) { return write_document(*ctx, "TOBDWA", 0, s) ? 1 : 0; }, 0));
#if defined(__linux__)
    const std::vector<std::pair<size_t, std::function<bool(FILE *)>>> steps = {
        {lines(1, 11, "\r\n").size(), [&](FILE *s) { return write_head(*ctx, s); }},
        {lines(12, 76, "\r\n").size(), [&](FILE *s) { return write_document(*ctx, "TOBZBA", 0, s); }},
        {lines(77, 85, "\r\n").size(), [&](FILE *s) { return write_tail(*ctx, s); }},
        {save(1).size(), [&](FILE *s) { return write_file(*ctx, s); }},
    };
    for (const auto &[size, write] : steps) {
        for (const size_t limit : {size_t{0}, size_t{1}, size - 1, size}) {
            Sink sink{"", limit};
            FILE *stream = fopencookie(&sink, "w", {nullptr, sinkWrite, nullptr, nullptr});
            ASSERT_NE(nullptr, stream);
            setvbuf(stream, nullptr, _IONBF, 0);
            EXPECT_EQ(limit == size, write(stream)) << size << " limit " << limit;
            EXPECT_EQ(limit, sink.bytes.size());
            std::fclose(stream);
        }
    }
#endif
}

// Every step stops with 0 at the first byte the output refuses, for every limit, and what it
// wrote is the start of what it would have written; the stream stays the host's to close.
TEST_F(Writer, EveryRefusedByteStopsTheStep)
{
#if !defined(__linux__)
    GTEST_SKIP() << "a stream with a byte limit needs fopencookie (glibc)";
#else
    make();
    ASSERT_TRUE(fillExample(ctx));
    const std::vector<std::pair<std::string, std::function<int32_t(FILE *)>>> steps = {
        {lines(1, 3), [&](FILE *s) { return dk_SaveProlog(ctx, s); }},
        {lines(4, 11), [&](FILE *s) { return dk_SaveHeader(ctx, s); }},
        {lines(12, 76), [&](FILE *s) { return dk_SaveDocument(ctx, "TOBZBA", 0, s, 1); }},
        {lines(77, 85), [&](FILE *s) { return dk_SaveFooter(ctx, s); }},
    };
    for (const auto &[full, write] : steps) {
        for (size_t limit = 0; limit <= full.size(); limit++) {
            Sink sink{"", limit};
            FILE *stream = fopencookie(&sink, "w", {nullptr, sinkWrite, nullptr, nullptr});
            ASSERT_NE(nullptr, stream);
            setvbuf(stream, nullptr, _IONBF, 0);
            EXPECT_EQ(limit == full.size() ? 1 : 0, write(stream)) << full.substr(0, 20) << " limit " << limit;
            EXPECT_EQ(full.substr(0, limit), sink.bytes);
            std::fclose(stream);
        }
    }
    // A full device: every step fails, and dk_SaveNAVO once its buffer reaches the device.
    FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(nullptr, full);
    setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(0, dk_SaveProlog(ctx, full));
    EXPECT_EQ(0, dk_SaveDocument(ctx, "TOBZBA", 0, full, 1));
    EXPECT_EQ(1, dk_CloseFile(full));  // the close's own report is not the writer's concern
    EXPECT_EQ(1, dk_SaveNAVO(ctx, "/dev/full", 1));   // all of it still in the buffer at the close
    for (int i = 0; i < 40; i++)
        ASSERT_GE(fillExampleDocument(ctx), 0);
    EXPECT_EQ(0, dk_SaveNAVO(ctx, "/dev/full", 1));
    EXPECT_EQ(0, dk_SaveNAVO(ctx, "/dev/full", 0));
#endif
}
