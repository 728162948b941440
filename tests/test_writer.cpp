// test_writer.cpp - interchange/writer: the file writer, whole and in single steps, and its failures.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "navo_example.h"
#include "test_support.h"

#include "interchange/writer.hpp"

using namespace navo_test;

namespace {

// A stream that keeps what it is given and refuses every byte past `limit`; it is unbuffered, so
// each stdio call of the writer reaches it at once. Records the calls after the first refusal.
struct Capture {
    std::string bytes;
    size_t limit = static_cast<size_t>(-1);
    bool failed = false;
    int callsAfterFailure = 0;
};

ssize_t captureWrite(void *cookie, const char *buffer, size_t size)
{
    Capture *capture = static_cast<Capture *>(cookie);
    if (capture->failed) {
        capture->callsAfterFailure++;
        return 0;
    }
    size_t room = capture->limit - capture->bytes.size();
    size_t taken = size < room ? size : room;
    capture->bytes.append(buffer, taken);
    if (taken < size) {
        capture->failed = true;
        errno = ENOSPC;
    }
    return static_cast<ssize_t>(taken);
}

FILE *openCapture(Capture *capture)
{
    cookie_io_functions_t functions = {nullptr, captureWrite, nullptr, nullptr};
    FILE *stream = fopencookie(capture, "w", functions);
    if (stream != nullptr)
        setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

std::string lf(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

std::vector<std::string> slice(const std::vector<std::string> &lines, size_t first, size_t last)
{
    // 1-based and inclusive, like the line numbers of the example table.
    return std::vector<std::string>(lines.begin() + static_cast<long>(first) - 1,
                                    lines.begin() + static_cast<long>(last));
}

dk_ErrorNote errorNote(const char *text)
{
    dk_ErrorNote note;
    std::memset(&note, 0, sizeof note);
    std::strcpy(note.text1, text);
    return note;
}

dk_OcrNote ocrNote(int32_t kind, const char *text)
{
    dk_OcrNote note;
    std::memset(&note, 0, sizeof note);
    note.kind = kind;
    std::strcpy(note.text1, text);
    return note;
}

class WriterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        baseline_ = navo::memory::live_blocks();
        ctx_ = contextWithDefinition(definitionText(), poolCapacity());
        ASSERT_NE(ctx_, nullptr);
        ASSERT_GE(ctx_->formCount, 1);
        path_ = tmp_.path() + "/out.navo";
    }
    void TearDown() override
    {
        ASSERT_EQ(dk_Destroy(&ctx_), 1);
        EXPECT_EQ(navo::memory::live_blocks(), baseline_);
    }
    virtual std::string definitionText() const { return exampleDefinition(); }
    virtual int32_t poolCapacity() const { return 10; }
    std::string save(int32_t envelope)
    {
        EXPECT_EQ(dk_SaveNAVO(ctx_, path_.c_str(), envelope), 1);
        return readFile(path_);
    }
    // Runs one writing step on a capture stream without limit.
    std::string capture(const std::function<int32_t(FILE *)> &step)
    {
        Capture sink;
        FILE *stream = openCapture(&sink);
        EXPECT_NE(stream, nullptr);
        EXPECT_EQ(step(stream), 1);
        EXPECT_EQ(dk_CloseFile(stream), 1);
        return sink.bytes;
    }
    int32_t addDocument(const char *form)
    {
        int32_t doc = -1;
        EXPECT_EQ(dk_AddDocument(ctx_, form, &doc), 1);
        return doc;
    }
    ScopedTempDir tmp_;
    int64_t baseline_ = 0;
    dk_Context *ctx_ = nullptr;
    std::string path_;
};

class EmbeddedWriterTest : public WriterTest {
protected:
    std::string definitionText() const override { return GetDefTXT_1_3(); }
};

class SmallPoolWriterTest : public WriterTest {
protected:
    int32_t poolCapacity() const override { return 1; }
};

}  // namespace

// ---- the example file ------------------------------------------------------------------------

TEST_F(WriterTest, ExampleFileByteForByte)
{
    ASSERT_TRUE(fillExample(ctx_));
    std::string written = save(1);
    EXPECT_EQ(written, exampleFile());
    EXPECT_EQ(written.size(), 85u * 2 + [] {
        size_t total = 0;
        for (const std::string &line : exampleLines())
            total += line.size();
        return total;
    }());
}

TEST_F(EmbeddedWriterTest, ExampleFileWithTheEmbeddedDefinition13)
{
    ASSERT_EQ(ctx_->formCount, 40);
    ASSERT_TRUE(fillExample(ctx_));
    EXPECT_EQ(save(1), exampleFile());
}

TEST_F(WriterTest, SingleStepsOnAHostStreamGiveTheSameFile)
{
    ASSERT_TRUE(fillExample(ctx_));
    FILE *stream = nullptr;
    ASSERT_EQ(dk_OpenFileforSave(&stream, path_.c_str()), 1);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(dk_SaveProlog(ctx_, stream), 1);
    EXPECT_EQ(dk_SaveHeader(ctx_, stream), 1);
    EXPECT_EQ(dk_SaveDocument(ctx_, "TOBZBA", 0, stream, 1), 1);
    EXPECT_EQ(dk_SaveFooter(ctx_, stream), 1);
    EXPECT_EQ(dk_CloseFile(stream), 1);
    EXPECT_EQ(readFile(path_), exampleFile());
}

TEST_F(WriterTest, EachStepWritesItsPartOfTheExample)
{
    ASSERT_TRUE(fillExample(ctx_));
    std::vector<std::string> lines = exampleLines();
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveProlog(ctx_, s); }), lf(slice(lines, 1, 3)));
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveHeader(ctx_, s); }), lf(slice(lines, 4, 11)));
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 1); }), lf(slice(lines, 12, 76)));
    // Any non-zero envelope is on.
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, -7); }), lf(slice(lines, 12, 76)));
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 0); }), lf(slice(lines, 29, 59)));
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveFooter(ctx_, s); }), lf(slice(lines, 77, 85)));
}

TEST_F(WriterTest, ShortFormHasTheBodiesOnly)
{
    ASSERT_TRUE(fillExample(ctx_));
    EXPECT_EQ(save(0), crlfJoin(slice(exampleLines(), 29, 59)));
}

TEST_F(WriterTest, SaveChangesNothingInTheEnvelope)
{
    ASSERT_TRUE(fillExample(ctx_));
    dk_FileProlog prolog = ctx_->prolog;
    dk_FileHeader header = ctx_->header;
    dk_DocHeader docHeader = ctx_->documentLists[0].documents[0].header;
    save(1);
    EXPECT_EQ(std::memcmp(&prolog, &ctx_->prolog, sizeof prolog), 0);
    EXPECT_EQ(std::memcmp(&header, &ctx_->header, sizeof header), 0);
    EXPECT_EQ(std::memcmp(&docHeader, &ctx_->documentLists[0].documents[0].header, sizeof docHeader), 0);
    EXPECT_EQ(ctx_->footer.noteCount, 1);
    EXPECT_EQ(ctx_->documentLists[0].documents[0].footer.ocrCount, 1);
    EXPECT_EQ(ctx_->documentLists[0].documents[0].footer.errorCount, 1);
}

// ---- edge cases of the writer ----------------------------------------------------------------

TEST_F(WriterTest, NoDocumentsWithEnvelopeGivesPrologHeaderAndFooterOnly)
{
    dk_FileHeader *header = nullptr;
    ASSERT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.3"), 1);
    ASSERT_EQ(dk_GetNAVOHeader(ctx_, &header), 1);
    setLine(header->line1, "H1");
    setLine(header->line2, "H2");
    setLine(header->line3, "H3");
    setLine(header->line4, "H4");
    setLine(header->line5, "H5");
    dk_ErrorNote note = errorNote("F1");
    std::strcpy(note.text2, "F2");
    std::strcpy(note.text3, "F3");
    std::strcpy(note.text4, "F4");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &note), 1);
    std::vector<std::string> lines = slice(exampleLines(), 1, 11);
    for (const std::string &line : slice(exampleLines(), 77, 85))
        lines.push_back(line);
    EXPECT_EQ(save(1), crlfJoin(lines));
}

TEST_F(WriterTest, NoDocumentsWithoutEnvelopeGivesAnEmptyFile)
{
    writeFile(path_, "old content");
    EXPECT_EQ(dk_SaveNAVO(ctx_, path_.c_str(), 0), 1);
    EXPECT_TRUE(fileExists(path_));
    EXPECT_EQ(readFile(path_), "");
}

TEST_F(WriterTest, NeverSetPrologAndHeaderGiveEmptyLinesAndTheSaveSucceeds)
{
    EXPECT_EQ(save(1), crlfJoin({"", "", "", "<NAVO>", "<naglowek.NAVO>", "", "", "", "", "", "</naglowek.NAVO>",
                                 "<stopka.NAVO>", "</stopka.NAVO>", "</NAVO>"}));
}

TEST_F(WriterTest, DocumentWithoutNotesHasAnEmptyFooterElement)
{
    int32_t doc = addDocument("TOBDWA");
    std::string section = capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBDWA", doc, s, 1); });
    std::string header = "<naglowek.DP>\n" + std::string(14, '\n') + "</naglowek.DP>\n";
    EXPECT_EQ(section, "<TOBDWA.DP>\n" + header + "<TOBDWA>\n<OPL1>\n        \n</OPL1>\n</TOBDWA>\n" +
                           "<stopka.DP>\n</stopka.DP>\n</TOBDWA.DP>\n");
}

TEST_F(WriterTest, FormWithoutBlockReferencesGivesAnEmptyBody)
{
    int32_t doc = addDocument("TOBPUSTY");
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBPUSTY", doc, s, 0); }),
              "<TOBPUSTY>\n</TOBPUSTY>\n");
}

TEST_F(WriterTest, RepeatingBlockWithThreeRecordsGivesThreeElementsInOrder)
{
    int32_t doc = addDocument("TOBZBA");
    int32_t record = -1;
    ASSERT_EQ(dk_AddBlock(ctx_, "TOBZBA", doc, "IORB", &record), 1);
    ASSERT_EQ(dk_AddBlock(ctx_, "TOBZBA", doc, "IORB", &record), 1);
    ASSERT_EQ(record, 2);
    ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc, "IORB", 0, "NumerRachunku", "R0"), 1);
    ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc, "IORB", 2, "KodRodzajuZgloszen", "3"), 1);
    ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc, "IORB", 2, "NumerRachunku", "R2"), 1);
    std::string body = capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", doc, s, 0); });
    std::string iorb = "<IORB>\n \n" + padded("R0", 36) + "\n</IORB>\n" +   // record 0 first
                       "<IORB>\n \n" + std::string(36, ' ') + "\n</IORB>\n" +  // record 1, never filled
                       "<IORB>\n3\n" + padded("R2", 36) + "\n</IORB>\n";
    EXPECT_NE(body.find("</DIPL>\n" + iorb + "<OPL1>\n"), std::string::npos) << body;
    // The save walked the cursor to the last record, and every change reached the spool.
    dk_lfBlock *store = ctx_->documentLists[0].documents[doc].blocks[2];
    EXPECT_EQ(store->currentRecord, 2);
    std::string spool = readFile(store->path);
    ASSERT_GE(spool.size(), 3u * 37);
    EXPECT_EQ(spool.substr(0, 37), " " + padded("R0", 36));
    EXPECT_EQ(spool.substr(37, 37), std::string(37, ' '));
}

TEST_F(WriterTest, SaveNAVOOrdersByFormThenByDocumentIndex)
{
    int32_t dwa = addDocument("TOBDWA");
    int32_t first = addDocument("TOBZBA");
    int32_t second = addDocument("TOBZBA");
    ASSERT_EQ(dk_SetField(ctx_, "TOBDWA", dwa, "OPL1", 0, "DataWypelnienia", "DWA"), 1);
    ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", first, "OPL1", 0, "DataWypelnienia", "FIRST"), 1);
    ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", second, "OPL1", 0, "DataWypelnienia", "SECOND"), 1);
    std::string written = save(0);
    size_t a = written.find("FIRST   ");
    size_t b = written.find("SECOND  ");
    size_t c = written.find("DWA     ");
    ASSERT_NE(a, std::string::npos);
    ASSERT_NE(b, std::string::npos);
    ASSERT_NE(c, std::string::npos);
    EXPECT_LT(a, b);
    EXPECT_LT(b, c);
    EXPECT_EQ(written.rfind("<TOBZBA>\r\n", 0), 0u);
    EXPECT_EQ(written.substr(written.size() - 20), "</OPL1>\r\n</TOBDWA>\r\n");
}

TEST_F(WriterTest, SavingTwiceWritesTheSameFileTwice)
{
    ASSERT_TRUE(fillExample(ctx_));
    std::string once = save(1);
    std::string twice = save(1);
    EXPECT_EQ(once, exampleFile());
    EXPECT_EQ(twice, once);
    EXPECT_EQ(ctx_->documentLists[0].documents[0].blocks[2]->currentRecord, 1);
}

TEST_F(WriterTest, SectionTagsCarryTheFormNameAndNoBlocksGiveNoElements)
{
    int32_t doc = addDocument("TOBPUSTY");
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBPUSTY", doc, s, 1); }),
              "<TOBPUSTY.DP>\n<naglowek.DP>\n" + std::string(14, '\n') +
                  "</naglowek.DP>\n<TOBPUSTY>\n</TOBPUSTY>\n<stopka.DP>\n</stopka.DP>\n</TOBPUSTY.DP>\n");
    // Names are found by their exact bytes (the dictionary hashes them), so another spelling is no form.
    Capture sink;
    FILE *stream = openCapture(&sink);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(dk_SaveDocument(ctx_, "tobpusty", doc, stream, 1), 0);
    EXPECT_EQ(dk_CloseFile(stream), 1);
    EXPECT_EQ(sink.bytes, "");
}

TEST_F(WriterTest, OcrNotesComeFirstWithTheTagsOfTheirKinds)
{
    int32_t doc = addDocument("TOBPUSTY");
    dk_ErrorNote error = errorNote("E");
    ASSERT_EQ(dk_AddDocError(ctx_, "TOBPUSTY", doc, &error), 1);
    for (int32_t kind : {3, 2, 1, 0}) {
        dk_OcrNote note = ocrNote(kind, std::to_string(kind).c_str());
        ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBPUSTY", doc, &note), 1);
    }
    std::string footer = capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBPUSTY", doc, s, 1); });
    auto ocr = [](const std::string &letters, const std::string &text) {
        return "<OCR." + letters + ">\n" + padded(text, 10) + "\n" + std::string(10, ' ') + "\n" +
               std::string(10, ' ') + "\n" + std::string(72, ' ') + "\n" + std::string(24, ' ') + "\n" +
               std::string(24, ' ') + "\n</OCR." + letters + ">\n";
    };
    std::string expected = "<stopka.DP>\n" + ocr("l2", "3") + ocr("l", "2") + ocr("z", "1") + ocr("a", "0") +
                           "<BLAD>\n" + padded("E", 10) + "\n" + std::string(10, ' ') + "\n" +
                           std::string(10, ' ') + "\n" + std::string(10, ' ') + "\n</BLAD>\n</stopka.DP>\n" +
                           "</TOBPUSTY.DP>\n";
    ASSERT_GE(footer.size(), expected.size());
    EXPECT_EQ(footer.substr(footer.size() - expected.size()), expected);
}

TEST_F(WriterTest, OcrKindOutsideTheFormatIsRefusedBeforeTheSectionIsWritten)
{
    int32_t doc = addDocument("TOBPUSTY");
    dk_OcrNote good = ocrNote(1, "G");
    dk_OcrNote bad = ocrNote(4, "B");
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBPUSTY", doc, &good), 1);
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBPUSTY", doc, &bad), 1);
    for (int32_t kind : {4, -1, 1000}) {
        ctx_->documentLists[1].documents[doc].footer.ocrNotes[1].kind = kind;
        Capture sink;
        FILE *stream = openCapture(&sink);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(dk_SaveDocument(ctx_, "TOBPUSTY", doc, stream, 1), 0) << kind;
        EXPECT_EQ(dk_CloseFile(stream), 1);
        EXPECT_EQ(sink.bytes, "") << kind;
    }
    // The body alone has no notes, so the kind does not matter there.
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBPUSTY", doc, s, 0); }),
              "<TOBPUSTY>\n</TOBPUSTY>\n");
    // dk_SaveNAVO stops there, closes the file and keeps what reached it.
    EXPECT_EQ(dk_SaveNAVO(ctx_, path_.c_str(), 1), 0);
    EXPECT_EQ(readFile(path_), crlfJoin({"", "", "", "<NAVO>", "<naglowek.NAVO>", "", "", "", "", "",
                                         "</naglowek.NAVO>"}));
    EXPECT_EQ(dk_SaveNAVO(ctx_, path_.c_str(), 0), 1);
}

TEST_F(WriterTest, SaveDocumentRefusesWhatIsNoDocumentBeforeWritingAnything)
{
    Capture sink;
    FILE *stream = openCapture(&sink);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(dk_SaveDocument(ctx_, "TOBZBA", 0, stream, 1), 0);  // a form without documents
    int32_t doc = addDocument("TOBZBA");
    for (const char *form : {"NIEMA", "DIPL", "Nip", ""})
        EXPECT_EQ(dk_SaveDocument(ctx_, form, doc, stream, 1), 0) << form;
    for (int32_t index : {1, -1})
        EXPECT_EQ(dk_SaveDocument(ctx_, "TOBZBA", index, stream, 0), 0) << index;
    EXPECT_EQ(dk_SaveDocument(ctx_, "TOBZBA", doc, nullptr, 0), 0);
    EXPECT_EQ(dk_SaveDocument(nullptr, "TOBZBA", doc, stream, 0), 0);
    EXPECT_EQ(dk_SaveProlog(nullptr, stream), 0);
    EXPECT_EQ(dk_SaveHeader(ctx_, nullptr), 0);
    EXPECT_EQ(dk_SaveFooter(nullptr, stream), 0);
    EXPECT_EQ(dk_CloseFile(stream), 1);
    EXPECT_EQ(sink.bytes, "");
    EXPECT_EQ(dk_CloseFile(nullptr), 0);
}

TEST_F(WriterTest, OpenOnAPathInAMissingDirectoryFails)
{
    std::string missing = tmp_.path() + "/no/such/dir/out.navo";
    FILE *stream = reinterpret_cast<FILE *>(this);
    EXPECT_EQ(dk_OpenFileforSave(&stream, missing.c_str()), 0);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(dk_SaveNAVO(ctx_, missing.c_str(), 1), 0);
    EXPECT_FALSE(fileExists(missing));
    EXPECT_EQ(dk_OpenFileforSave(&stream, nullptr), 0);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(dk_OpenFileforSave(nullptr, path_.c_str()), 0);
    EXPECT_EQ(dk_SaveNAVO(nullptr, path_.c_str(), 1), 0);
    EXPECT_FALSE(fileExists(path_));
}

TEST_F(WriterTest, OpenTruncatesAnExistingFile)
{
    writeFile(path_, std::string(1000, 'x'));
    FILE *stream = nullptr;
    ASSERT_EQ(dk_OpenFileforSave(&stream, path_.c_str()), 1);
    EXPECT_EQ(readFile(path_), "");
    EXPECT_EQ(dk_SaveHeader(ctx_, stream), 1);
    EXPECT_EQ(dk_CloseFile(stream), 1);
    EXPECT_EQ(readFile(path_), "<NAVO>\r\n<naglowek.NAVO>\r\n\r\n\r\n\r\n\r\n\r\n</naglowek.NAVO>\r\n");
}

TEST_F(WriterTest, UnterminatedRecordTextsRunOnButStopAtTheRecordsEnd)
{
    int32_t doc = addDocument("TOBPUSTY");
    dk_DocHeader *header = nullptr;
    ASSERT_EQ(dk_GetDocHeader(ctx_, "TOBPUSTY", doc, &header), 1);
    std::memset(header, 'h', sizeof *header);  // no terminator anywhere in the record
    std::string section = capture([&](FILE *s) { return dk_SaveDocument(ctx_, "TOBPUSTY", doc, s, 1); });
    // The header's texts end together at the end of line14, 259 bytes from the start of line1.
    std::string expected = "<TOBPUSTY.DP>\n<naglowek.DP>\n";
    const size_t capacities[] = {52, 9, 9, 9, 25, 9, 25, 25, 9, 25, 25, 2, 2, 33};
    size_t rest = 259;
    for (size_t capacity : capacities) {
        expected += std::string(rest, 'h') + "\n";
        rest -= capacity;
    }
    expected += "</naglowek.DP>\n";
    EXPECT_EQ(section.substr(0, expected.size()), expected);

    std::memset(&ctx_->prolog, 'p', sizeof ctx_->prolog);
    EXPECT_EQ(capture([&](FILE *s) { return dk_SaveProlog(ctx_, s); }),
              std::string(118, 'p') + "\n" + std::string(68, 'p') + "\n" + std::string(40, 'p') + "\n");
    std::memset(&ctx_->prolog, 0, sizeof ctx_->prolog);
}

// ---- failing writes --------------------------------------------------------------------------

TEST_F(WriterTest, EveryWriteIsTestedAndTheStepStopsAtTheFirstFailure)
{
    ASSERT_TRUE(fillExample(ctx_));
    struct Step {
        const char *name;
        std::function<int32_t(FILE *)> run;
    };
    std::vector<Step> steps = {
        {"SaveProlog", [&](FILE *s) { return dk_SaveProlog(ctx_, s); }},
        {"SaveHeader", [&](FILE *s) { return dk_SaveHeader(ctx_, s); }},
        {"SaveDocument", [&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 1); }},
        {"SaveDocument body", [&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 0); }},
        {"SaveFooter", [&](FILE *s) { return dk_SaveFooter(ctx_, s); }},
    };
    for (const Step &step : steps) {
        std::string full = capture(step.run);
        ASSERT_FALSE(full.empty());
        for (size_t limit = 0; limit < full.size(); limit++) {
            Capture sink;
            sink.limit = limit;
            FILE *stream = openCapture(&sink);
            ASSERT_NE(stream, nullptr);
            EXPECT_EQ(step.run(stream), 0) << step.name << " limit " << limit;
            EXPECT_EQ(sink.callsAfterFailure, 0) << step.name << " limit " << limit;
            EXPECT_EQ(sink.bytes, full.substr(0, limit)) << step.name << " limit " << limit;
            // The stream stays open after a failed step: the host can still use and close it.
            EXPECT_NE(ferror(stream), 0);
            EXPECT_EQ(dk_CloseFile(stream), 1);
        }
    }
}

TEST_F(WriterTest, SingleStepsOnDevFullFailAndLeaveTheStreamOpen)
{
    ASSERT_TRUE(fillExample(ctx_));
    std::vector<std::function<int32_t(FILE *)>> steps = {
        [&](FILE *s) { return dk_SaveProlog(ctx_, s); },
        [&](FILE *s) { return dk_SaveHeader(ctx_, s); },
        [&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 1); },
        [&](FILE *s) { return dk_SaveDocument(ctx_, "TOBZBA", 0, s, 0); },
        [&](FILE *s) { return dk_SaveFooter(ctx_, s); },
    };
    for (size_t i = 0; i < steps.size(); i++) {
        FILE *stream = nullptr;
        ASSERT_EQ(dk_OpenFileforSave(&stream, "/dev/full"), 1);
        ASSERT_NE(stream, nullptr);
        // Unbuffered, each write reaches the device and reports the failure at once.
        ASSERT_EQ(setvbuf(stream, nullptr, _IONBF, 0), 0);
        EXPECT_EQ(steps[i](stream), 0) << i;
        EXPECT_NE(ferror(stream), 0) << i;
        clearerr(stream);
        EXPECT_EQ(fputs("x", stream), EOF) << i;  // still a stream of the host's
        EXPECT_EQ(dk_CloseFile(stream), 1) << i;
    }
}

TEST_F(WriterTest, SaveNAVOOnDevFullFailsOnceTheBufferReachesTheDevice)
{
    for (int i = 0; i < 40; i++)
        ASSERT_GE(fillExampleDocument(ctx_), 0);
    EXPECT_EQ(dk_SaveNAVO(ctx_, "/dev/full", 1), 0);
    EXPECT_EQ(dk_SaveNAVO(ctx_, "/dev/full", 0), 0);
}

TEST_F(WriterTest, SaveNAVOAndCloseFileIgnoreWhatTheCloseReports)
{
    // A short output stays in the stream's buffer until the close, which fails on the device.
    EXPECT_EQ(dk_SaveNAVO(ctx_, "/dev/full", 1), 1);
    FILE *stream = nullptr;
    ASSERT_EQ(dk_OpenFileforSave(&stream, "/dev/full"), 1);
    EXPECT_EQ(dk_SaveHeader(ctx_, stream), 1);
    EXPECT_EQ(dk_CloseFile(stream), 1);
}

TEST_F(SmallPoolWriterTest, AFailedFieldReadStopsTheDocument)
{
    int32_t doc = addDocument("TOBZBA");
    int32_t record = -1;
    ASSERT_EQ(dk_AddBlock(ctx_, "TOBZBA", doc, "IORB", &record), 1);
    // A second document takes the one stream of the pool; then the first one's spool goes.
    addDocument("TOBZBA");
    dk_lfBlock *store = ctx_->documentLists[0].documents[doc].blocks[2];
    ASSERT_EQ(store->file, nullptr);
    ASSERT_EQ(std::remove(store->path), 0);
    Capture sink;
    FILE *stream = openCapture(&sink);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(dk_SaveDocument(ctx_, "TOBZBA", doc, stream, 0), 0);
    EXPECT_EQ(dk_CloseFile(stream), 1);
    // Everything up to the opening tag of the block whose field could not be read.
    ASSERT_GE(sink.bytes.size(), 15u);
    EXPECT_EQ(sink.bytes.substr(sink.bytes.size() - 15), "</DIPL>\n<IORB>\n");
}

// ---- failing allocations ---------------------------------------------------------------------

TEST_F(WriterTest, AllocationFailuresStopTheSaveWithZeroAndLeakNothing)
{
    ASSERT_TRUE(fillExample(ctx_));
    int64_t live = navo::memory::live_blocks();
    int64_t n = 1;
    for (;; n++) {
        int32_t result;
        {
            FailureInjection failure;
            failure.failNth(n);
            result = dk_SaveNAVO(ctx_, path_.c_str(), 1);
        }
        EXPECT_EQ(navo::memory::live_blocks(), live) << "n=" << n;
        if (result == 1)
            break;
        // Whatever reached the file is the start of the example.
        std::string partial = readFile(path_);
        EXPECT_EQ(exampleFile().compare(0, partial.size(), partial), 0) << "n=" << n;
        ASSERT_LT(n, 10000);
    }
    // The text stream takes one; the field lines take none (interchange/writer).
    EXPECT_EQ(n, 2);
    EXPECT_EQ(readFile(path_), exampleFile());
}

TEST_F(WriterTest, AllocationFailuresInSingleSteps)
{
    ASSERT_TRUE(fillExample(ctx_));
    int64_t live = navo::memory::live_blocks();
    {
        FailureInjection failure;
        FILE *stream = reinterpret_cast<FILE *>(this);
        failure.failNth(1);
        EXPECT_EQ(dk_OpenFileforSave(&stream, path_.c_str()), 0);
        EXPECT_EQ(stream, nullptr);
    }
    for (int64_t n = 1;; n++) {
        Capture sink;
        FILE *stream = openCapture(&sink);
        ASSERT_NE(stream, nullptr);
        int32_t result;
        {
            FailureInjection failure;
            failure.failNth(n);
            result = dk_SaveDocument(ctx_, "TOBZBA", 0, stream, 1);
        }
        EXPECT_EQ(dk_CloseFile(stream), 1);
        EXPECT_EQ(navo::memory::live_blocks(), live);
        if (result == 1) {
            EXPECT_EQ(n, 1);  // the field lines take no buffer (interchange/writer)
            EXPECT_EQ(sink.bytes, lf(slice(exampleLines(), 12, 76)));
            break;
        }
        // The output stops in front of the field whose buffer was missing.
        EXPECT_EQ(lf(slice(exampleLines(), 12, 76)).compare(0, sink.bytes.size(), sink.bytes), 0);
        ASSERT_LT(n, 100);
    }
}

// ---- round trips through the reader ----------------------------------------------------------

namespace {

// What the document callback of a load writes back: each section, as dk_SaveDocument gives it.
struct WriteBack {
    std::string sections;
    std::vector<std::string> forms;
    bool ok = true;
};
WriteBack *g_writeBack = nullptr;

int32_t NAVO_CALL writeBackSection(dk_Context *ctx, const char *form, int32_t docIndex)
{
    Capture sink;
    FILE *stream = openCapture(&sink);
    if (stream == nullptr) {
        g_writeBack->ok = false;
        return 0;
    }
    if (!dk_SaveDocument(ctx, form, docIndex, stream, 1))
        g_writeBack->ok = false;
    dk_CloseFile(stream);
    g_writeBack->sections += sink.bytes;
    g_writeBack->forms.push_back(form);
    return 0;
}

std::string withCrLf(const std::string &text)
{
    std::string result;
    for (char c : text) {
        if (c == '\n')
            result += '\r';
        result += c;
    }
    return result;
}

}  // namespace

class RoundTripTest : public EmbeddedWriterTest {
protected:
    void TearDown() override
    {
        dk_UstawCallBack(nullptr);
        g_writeBack = nullptr;
        if (loaded_ != nullptr && !dk_Destroy(&loaded_)) {
            // A load that failed before it chose a definition leaves no tables (dk_Destroy refuses): give it
            // a definition and tables, which is the one way to release it.
            if (loaded_->definitions->count == 0) {
                EXPECT_EQ(dk_dfLoadDefinition(loaded_->definitions, loaded_->dictionary, GetDefTXT_1_3()), 1);
            }
            EXPECT_EQ(dk_InitDocuments(loaded_, 10), 1);
            EXPECT_EQ(dk_Destroy(&loaded_), 1);
        }
        EmbeddedWriterTest::TearDown();
    }
    // Loads path_ into a new context with the write-back callback; returns dk_LoadNAVO's result.
    int32_t load()
    {
        EXPECT_EQ(dk_Init(&loaded_), 1);
        g_writeBack = &writeBack_;
        dk_UstawCallBack(writeBackSection);
        return dk_LoadNAVO(loaded_, path_.c_str());
    }
    // The whole file again from the loaded context: its prolog, header, the sections written
    // back by the callback, and its footer.
    std::string rebuilt()
    {
        std::string text = capture([&](FILE *s) { return dk_SaveProlog(loaded_, s); }) +
                           capture([&](FILE *s) { return dk_SaveHeader(loaded_, s); }) + writeBack_.sections +
                           capture([&](FILE *s) { return dk_SaveFooter(loaded_, s); });
        return withCrLf(text);
    }
    dk_Context *loaded_ = nullptr;
    WriteBack writeBack_;
};

TEST_F(RoundTripTest, ExampleLoadsBackAndIsWrittenBackByteForByte)
{
    ASSERT_TRUE(fillExample(ctx_));
    std::string written = save(1);
    ASSERT_EQ(written, exampleFile());
    ASSERT_EQ(load(), 1);
    EXPECT_TRUE(writeBack_.ok);
    EXPECT_EQ(writeBack_.forms, std::vector<std::string>{"TOBZBA"});
    EXPECT_EQ(rebuilt(), written);
}

TEST_F(RoundTripTest, SeveralDocumentsWithRepeatingBlocksComeBackByteForByte)
{
    ASSERT_TRUE(fillExample(ctx_));
    for (int i = 0; i < 3; i++) {
        int32_t doc = fillExampleDocument(ctx_);
        ASSERT_GE(doc, 0);
        int32_t record = -1;
        ASSERT_EQ(dk_AddBlock(ctx_, "TOBZBA", doc, "IORB", &record), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc, "IORB", record, "NumerRachunku", std::to_string(i).c_str()), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc, "DIPL", 0, "Nazwisko", ("KOWALSKI " + std::to_string(i)).c_str()),
                  1);
        dk_OcrNote note = ocrNote(i + 1, "OCR");
        ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &note), 1);
    }
    int32_t other = addDocument("TOBRCA");
    ASSERT_GE(other, 0);
    dk_DocHeader *header = nullptr;
    ASSERT_EQ(dk_GetDocHeader(ctx_, "TOBRCA", other, &header), 1);
    setLine(header->line1, "R1");
    setLine(header->line2, "R2");
    setLine(header->line3, "R3");
    setLine(header->line4, "R4");
    setLine(header->line5, "R5");
    setLine(header->line6, "R6");
    setLine(header->line7, "R7");
    setLine(header->line8, "R8");
    setLine(header->line9, "R9");
    setLine(header->line10, "R10");
    setLine(header->line11, "R11");
    setLine(header->line12, "Y");
    setLine(header->line13, "Z");
    setLine(header->line14, "R14");
    std::string written = save(1);
    ASSERT_EQ(load(), 1);
    EXPECT_TRUE(writeBack_.ok);
    EXPECT_EQ(writeBack_.forms.size(), 5u);
    EXPECT_EQ(rebuilt(), written);
}

TEST_F(RoundTripTest, DocumentOfANonTobFormIsWrittenButDoesNotComeBack)
{
    ASSERT_TRUE(fillExample(ctx_));
    ASSERT_GE(addDocument("DNF"), 0);
    std::string written = save(1);
    EXPECT_NE(written.find("<DNF.DP>\r\n"), std::string::npos);
    ASSERT_EQ(load(), 1);
    EXPECT_EQ(writeBack_.forms, std::vector<std::string>{"TOBZBA"});
    // Without the DNF section, the file is what was written.
    std::string withoutDnf = written;
    size_t from = withoutDnf.find("<DNF.DP>\r\n");
    size_t to = withoutDnf.find("</DNF.DP>\r\n") + std::strlen("</DNF.DP>\r\n");
    withoutDnf.erase(from, to - from);
    EXPECT_EQ(rebuilt(), withoutDnf);
}

TEST_F(RoundTripTest, NeverFilledHeaderIsRejectedWithCode3)
{
    ASSERT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.3"), 1);
    save(1);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(dk_GetNAVOError(), 3);
}

TEST_F(RoundTripTest, ShortFormIsRejectedAtTheFirstTestWithCode1)
{
    ASSERT_TRUE(fillExample(ctx_));
    save(0);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(dk_GetNAVOError(), 1);
}
