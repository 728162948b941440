// test_envelope.cpp - interchange/envelope: the prolog, the header and footer pointers and the note adds.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "navo_example.h"
#include "test_support.h"

#include "interchange/envelope.hpp"

using namespace navo_test;

namespace {

class EnvelopeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        baseline_ = navo::memory::live_blocks();
        ctx_ = contextWithDefinition(exampleDefinition());
        ASSERT_NE(ctx_, nullptr);
        ASSERT_EQ(ctx_->formCount, 3);
    }
    void TearDown() override
    {
        ASSERT_EQ(dk_Destroy(&ctx_), 1);
        EXPECT_EQ(navo::memory::live_blocks(), baseline_);
    }
    int32_t addDocument(const char *form = "TOBZBA")
    {
        int32_t doc = -1;
        EXPECT_EQ(dk_AddDocument(ctx_, form, &doc), 1);
        return doc;
    }
    ScopedTempDir tmp_;
    int64_t baseline_ = 0;
    dk_Context *ctx_ = nullptr;
};

dk_ErrorNote errorNote(const char *a, const char *b, const char *c, const char *d)
{
    dk_ErrorNote note;
    std::memset(&note, 0, sizeof note);
    std::strcpy(note.text1, a);
    std::strcpy(note.text2, b);
    std::strcpy(note.text3, c);
    std::strcpy(note.text4, d);
    return note;
}

dk_OcrNote ocrNote(int32_t kind, const std::string &text4)
{
    dk_OcrNote note;
    std::memset(&note, 0, sizeof note);
    note.kind = kind;
    std::strcpy(note.text1, "O1");
    std::strcpy(note.text2, "O2");
    std::strcpy(note.text3, "O3");
    std::memcpy(note.text4, text4.c_str(), text4.size() + 1);
    std::strcpy(note.text5, "O5");
    std::strcpy(note.text6, "O6");
    return note;
}

const std::string kTen(10, ' ');

}  // namespace

// ---- prolog ----------------------------------------------------------------------------------

TEST_F(EnvelopeTest, DefaultPrologOfVersion13ThenVersion12ReplacesIt)
{
    dk_FileProlog *prolog = nullptr;
    ASSERT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.3"), 1);
    ASSERT_EQ(dk_GetNAVOProlog(ctx_, &prolog), 1);
    EXPECT_EQ(prolog, &ctx_->prolog);
    EXPECT_STREQ(prolog->doctypeLine, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[");
    EXPECT_STREQ(prolog->versionLine, "<!ENTITY wersja '001.300' >");
    EXPECT_STREQ(prolog->encodingLine, "<!ENTITY strona.kodowa 'ISO 8859-2' >]>");
    // 49, 27 and 39 characters fill the capacities 50, 28 and 40 to the last byte.
    EXPECT_EQ(std::strlen(prolog->doctypeLine), sizeof prolog->doctypeLine - 1);
    EXPECT_EQ(std::strlen(prolog->versionLine), sizeof prolog->versionLine - 1);
    EXPECT_EQ(std::strlen(prolog->encodingLine), sizeof prolog->encodingLine - 1);

    ASSERT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.2"), 1);
    EXPECT_STREQ(prolog->doctypeLine, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.2//PL'[");
    EXPECT_STREQ(prolog->versionLine, "<!ENTITY wersja '001.200' >");
    EXPECT_STREQ(prolog->encodingLine, "<!ENTITY strona.kodowa 'ISO 8859-2' >]>");
}

TEST_F(EnvelopeTest, FreshContextHasEmptyPrologHeaderAndNoNotes)
{
    dk_FileProlog *prolog = nullptr;
    dk_FileHeader *header = nullptr;
    dk_FileFooter *footer = nullptr;
    ASSERT_EQ(dk_GetNAVOProlog(ctx_, &prolog), 1);
    ASSERT_EQ(dk_GetNAVOHeader(ctx_, &header), 1);
    ASSERT_EQ(dk_GetNAVOFooter(ctx_, &footer), 1);
    EXPECT_EQ(header, &ctx_->header);
    EXPECT_EQ(footer, &ctx_->footer);
    EXPECT_STREQ(prolog->doctypeLine, "");
    EXPECT_STREQ(prolog->versionLine, "");
    EXPECT_STREQ(prolog->encodingLine, "");
    EXPECT_STREQ(header->line1, "");
    EXPECT_STREQ(header->line5, "");
    EXPECT_EQ(footer->noteCount, 0);
    EXPECT_EQ(footer->notes, nullptr);
}

TEST_F(EnvelopeTest, VersionLongerThanThreeIsRefusedAndNothingChanges)
{
    ASSERT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.3"), 1);
    dk_FileProlog before = ctx_->prolog;
    dk_FileHeader headerBefore = ctx_->header;
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.3.1"), 0);
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1.30"), 0);
    EXPECT_EQ(std::memcmp(&before, &ctx_->prolog, sizeof before), 0);
    EXPECT_EQ(std::memcmp(&headerBefore, &ctx_->header, sizeof headerBefore), 0);
}

TEST_F(EnvelopeTest, ShortVersionFitsAndIsNotTested)
{
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, "1"), 1);
    EXPECT_STREQ(ctx_->prolog.doctypeLine, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1//PL'[");
    EXPECT_STREQ(ctx_->prolog.versionLine, "<!ENTITY wersja '00100' >");
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, ""), 1);
    EXPECT_STREQ(ctx_->prolog.versionLine, "<!ENTITY wersja '0000' >");
    // Any three characters, also a version that no definition has.
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, "9.9"), 1);
    EXPECT_STREQ(ctx_->prolog.versionLine, "<!ENTITY wersja '009.900' >");
}

TEST_F(EnvelopeTest, NullArgumentsAreRefused)
{
    dk_FileProlog *prolog = reinterpret_cast<dk_FileProlog *>(&ctx_->header);
    EXPECT_EQ(dk_SetDefaultNAVOProlog(nullptr, "1.3"), 0);
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx_, nullptr), 0);
    EXPECT_EQ(dk_GetNAVOProlog(nullptr, &prolog), 0);
    EXPECT_EQ(prolog, nullptr);
    EXPECT_EQ(dk_AddNAVOError(ctx_, nullptr), 0);
    EXPECT_EQ(dk_AddNAVOError(nullptr, nullptr), 0);
}

// ---- file-level notes ------------------------------------------------------------------------

TEST_F(EnvelopeTest, EmptyErrorNoteIsStoredAsFourTextsOfTenBlanks)
{
    dk_ErrorNote note = errorNote("", "", "", "");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &note), 1);
    dk_FileFooter *footer = nullptr;
    ASSERT_EQ(dk_GetNAVOFooter(ctx_, &footer), 1);
    ASSERT_EQ(footer->noteCount, 1);
    EXPECT_EQ(std::string(footer->notes[0].text1), kTen);
    EXPECT_EQ(std::string(footer->notes[0].text2), kTen);
    EXPECT_EQ(std::string(footer->notes[0].text3), kTen);
    EXPECT_EQ(std::string(footer->notes[0].text4), kTen);
}

TEST_F(EnvelopeTest, ShortTextsAreFilledFullOnesKeptInOrderOfAdding)
{
    dk_ErrorNote first = errorNote("AB", "0123456789", "x", "");
    dk_ErrorNote second = errorNote("2", "2", "2", "2");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &first), 1);
    ASSERT_EQ(dk_AddNAVOError(ctx_, &second), 1);
    ASSERT_EQ(ctx_->footer.noteCount, 2);
    EXPECT_EQ(std::string(ctx_->footer.notes[0].text1), "AB        ");
    EXPECT_EQ(std::string(ctx_->footer.notes[0].text2), "0123456789");
    EXPECT_EQ(std::string(ctx_->footer.notes[0].text3), "x         ");
    EXPECT_EQ(std::string(ctx_->footer.notes[1].text4), "2         ");
}

TEST_F(EnvelopeTest, AddingDoesNotChangeTheHostRecordWhichCanBeAddedAgain)
{
    dk_ErrorNote note = errorNote("A", "B", "C", "D");
    dk_ErrorNote copy = note;
    ASSERT_EQ(dk_AddNAVOError(ctx_, &note), 1);
    EXPECT_EQ(std::memcmp(&note, &copy, sizeof note), 0);
    std::strcpy(note.text1, "Z");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &note), 1);
    ASSERT_EQ(ctx_->footer.noteCount, 2);
    EXPECT_EQ(std::string(ctx_->footer.notes[0].text1), "A         ");
    EXPECT_EQ(std::string(ctx_->footer.notes[1].text1), "Z         ");
    EXPECT_STREQ(note.text2, "B");
}

TEST_F(EnvelopeTest, FailedResizeSetsCountToZeroAndNextAddShrinksToOneNote)
{
    dk_ErrorNote a = errorNote("A", "", "", "");
    dk_ErrorNote b = errorNote("B", "", "", "");
    dk_ErrorNote c = errorNote("C", "", "", "");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &a), 1);
    ASSERT_EQ(dk_AddNAVOError(ctx_, &b), 1);
    dk_ErrorNote *array = ctx_->footer.notes;
    {
        FailureInjection failure;
        failure.failNth(1);
        EXPECT_EQ(dk_AddNAVOError(ctx_, &c), 0);
        EXPECT_EQ(ctx_->footer.noteCount, 0);
        EXPECT_EQ(ctx_->footer.notes, array);  // kept and still owned
        failure.failNth(1);
        EXPECT_EQ(dk_AddNAVOError(ctx_, &c), 0);  // two failures in a row
        EXPECT_EQ(ctx_->footer.noteCount, 0);
        EXPECT_EQ(ctx_->footer.notes, array);
        // The old notes are still in the array, only unreachable through the count.
        EXPECT_EQ(std::string(array[0].text1), "A         ");
    }
    ASSERT_EQ(dk_AddNAVOError(ctx_, &c), 1);
    ASSERT_EQ(ctx_->footer.noteCount, 1);
    EXPECT_EQ(std::string(ctx_->footer.notes[0].text1), "C         ");
}

TEST_F(EnvelopeTest, FailedFirstAddLeavesNoArray)
{
    dk_ErrorNote a = errorNote("A", "", "", "");
    {
        FailureInjection failure;
        failure.failNth(1);
        EXPECT_EQ(dk_AddNAVOError(ctx_, &a), 0);
    }
    EXPECT_EQ(ctx_->footer.noteCount, 0);
    EXPECT_EQ(ctx_->footer.notes, nullptr);
}

TEST_F(EnvelopeTest, UnterminatedInnerTextRunsOnAndIsNeitherFilledNorCut)
{
    dk_ErrorNote note = errorNote("", "B", "C", "D");
    std::memset(note.text1, 'x', sizeof note.text1);  // 11 bytes, no terminator
    ASSERT_EQ(dk_AddNAVOError(ctx_, &note), 1);
    const dk_ErrorNote &stored = ctx_->footer.notes[0];
    EXPECT_EQ(std::memcmp(stored.text1, note.text1, sizeof stored.text1), 0);
    EXPECT_EQ(std::string(stored.text2), "B         ");
    // Read as a text, text1 runs on into text2.
    EXPECT_EQ(std::string(stored.text1), std::string(11, 'x') + "B         ");
}

TEST_F(EnvelopeTest, UnterminatedLastTextIsRefusedBeforeAnythingChanges)
{
    dk_ErrorNote good = errorNote("A", "", "", "");
    ASSERT_EQ(dk_AddNAVOError(ctx_, &good), 1);
    dk_ErrorNote *array = ctx_->footer.notes;
    dk_ErrorNote note = errorNote("A", "B", "C", "");
    std::memset(note.text4, 'x', sizeof note.text4);
    EXPECT_EQ(dk_AddNAVOError(ctx_, &note), 0);
    EXPECT_EQ(ctx_->footer.noteCount, 1);
    EXPECT_EQ(ctx_->footer.notes, array);

    int32_t doc = addDocument();
    dk_OcrNote ocr = ocrNote(0, "");
    std::memset(ocr.text6, 'y', sizeof ocr.text6);
    EXPECT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &ocr), 0);
    EXPECT_EQ(dk_AddDocError(ctx_, "TOBZBA", doc, &note), 0);
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", doc, &footer), 1);
    EXPECT_EQ(footer->ocrCount, 0);
    EXPECT_EQ(footer->ocrNotes, nullptr);
    EXPECT_EQ(footer->errorCount, 0);
    EXPECT_EQ(footer->errorNotes, nullptr);
}

// ---- document headers and footers ------------------------------------------------------------

TEST_F(EnvelopeTest, DocumentHeaderAndFooterPointIntoTheDocument)
{
    int32_t first = addDocument();
    int32_t second = addDocument();
    ASSERT_EQ(second, 1);
    dk_DocHeader *header = nullptr;
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(dk_GetDocHeader(ctx_, "TOBZBA", second, &header), 1);
    ASSERT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", second, &footer), 1);
    EXPECT_EQ(header, &ctx_->documentLists[0].documents[1].header);
    EXPECT_EQ(footer, &ctx_->documentLists[0].documents[1].footer);
    // A new document's header is all empty texts, its footer has no notes.
    EXPECT_STREQ(header->line1, "");
    EXPECT_STREQ(header->line14, "");
    EXPECT_EQ(footer->ocrCount, 0);
    EXPECT_EQ(footer->errorCount, 0);
    setLine(header->line2, "D2");
    ASSERT_EQ(dk_GetDocHeader(ctx_, "TOBZBA", first, &header), 1);
    EXPECT_STREQ(header->line2, "");
    ASSERT_EQ(dk_GetDocHeader(ctx_, "TOBZBA", second, &header), 1);
    EXPECT_STREQ(header->line2, "D2      ");
}

TEST_F(EnvelopeTest, DocumentOperationsRefuseWhatIsNoDocumentAndLeaveOutAsItWas)
{
    dk_ErrorNote note = errorNote("A", "", "", "");
    dk_OcrNote ocr = ocrNote(1, "");
    dk_DocHeader sentinelHeader;
    dk_DocFooter sentinelFooter;
    dk_DocHeader *header = &sentinelHeader;
    dk_DocFooter *footer = &sentinelFooter;

    // A known form without any document.
    EXPECT_EQ(dk_GetDocHeader(ctx_, "TOBZBA", 0, &header), 0);
    EXPECT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", 0, &footer), 0);
    EXPECT_EQ(dk_AddDocError(ctx_, "TOBZBA", 0, &note), 0);
    EXPECT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", 0, &ocr), 0);

    int32_t doc = addDocument();
    ASSERT_EQ(doc, 0);
    const char *names[] = {"NIEMA", "DIPL", "Nip", ""};  // unknown; a tag; a field name; empty
    for (const char *name : names) {
        EXPECT_EQ(dk_GetDocHeader(ctx_, name, 0, &header), 0) << name;
        EXPECT_EQ(dk_GetDocFooter(ctx_, name, 0, &footer), 0) << name;
        EXPECT_EQ(dk_AddDocError(ctx_, name, 0, &note), 0) << name;
        EXPECT_EQ(dk_AddDocOCR(ctx_, name, 0, &ocr), 0) << name;
    }
    for (int32_t index : {1, 2, -1, INT32_MIN}) {
        EXPECT_EQ(dk_GetDocHeader(ctx_, "TOBZBA", index, &header), 0) << index;
        EXPECT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", index, &footer), 0) << index;
        EXPECT_EQ(dk_AddDocError(ctx_, "TOBZBA", index, &note), 0) << index;
        EXPECT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", index, &ocr), 0) << index;
    }
    EXPECT_EQ(header, &sentinelHeader);
    EXPECT_EQ(footer, &sentinelFooter);
    EXPECT_EQ(ctx_->documentLists[0].documents[0].footer.errorCount, 0);
    EXPECT_EQ(ctx_->documentLists[0].documents[0].footer.ocrCount, 0);
    EXPECT_EQ(dk_AddDocError(ctx_, "TOBZBA", 0, nullptr), 0);
    EXPECT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", 0, nullptr), 0);
}

TEST_F(EnvelopeTest, DocumentNotesAreFilledAndKeptPerDocument)
{
    int32_t first = addDocument();
    int32_t second = addDocument();
    dk_ErrorNote note = errorNote("E1", "", "E3", "E4");
    ASSERT_EQ(dk_AddDocError(ctx_, "TOBZBA", second, &note), 1);
    ASSERT_EQ(dk_AddDocError(ctx_, "TOBZBA", second, &note), 1);
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", second, &footer), 1);
    ASSERT_EQ(footer->errorCount, 2);
    EXPECT_EQ(std::string(footer->errorNotes[1].text1), "E1        ");
    EXPECT_EQ(std::string(footer->errorNotes[1].text2), kTen);
    EXPECT_EQ(footer->ocrCount, 0);
    ASSERT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", first, &footer), 1);
    EXPECT_EQ(footer->errorCount, 0);
    EXPECT_EQ(footer->errorNotes, nullptr);
}

TEST_F(EnvelopeTest, OcrText4Of72StaysAndOf71GetsOneBlank)
{
    int32_t doc = addDocument();
    dk_OcrNote full = ocrNote(0, std::string(72, 'q'));
    dk_OcrNote shorter = ocrNote(0, std::string(71, 'q'));
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &full), 1);
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &shorter), 1);
    const dk_DocFooter &footer = ctx_->documentLists[0].documents[doc].footer;
    ASSERT_EQ(footer.ocrCount, 2);
    EXPECT_EQ(std::string(footer.ocrNotes[0].text4), std::string(72, 'q'));
    EXPECT_EQ(std::string(footer.ocrNotes[1].text4), std::string(71, 'q') + " ");
    EXPECT_EQ(std::string(footer.ocrNotes[1].text1), "O1        ");
    EXPECT_EQ(std::string(footer.ocrNotes[1].text5), padded("O5", 24));
    EXPECT_EQ(std::string(footer.ocrNotes[1].text6), padded("O6", 24));
}

TEST_F(EnvelopeTest, OcrKindIsCopiedAndNeverTested)
{
    int32_t doc = addDocument();
    for (int32_t kind : {0, 3, 4, -1, 1000}) {
        dk_OcrNote note = ocrNote(kind, "");
        ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &note), 1) << kind;
    }
    const dk_DocFooter &footer = ctx_->documentLists[0].documents[doc].footer;
    ASSERT_EQ(footer.ocrCount, 5);
    EXPECT_EQ(footer.ocrNotes[0].kind, 0);
    EXPECT_EQ(footer.ocrNotes[1].kind, 3);
    EXPECT_EQ(footer.ocrNotes[2].kind, 4);
    EXPECT_EQ(footer.ocrNotes[3].kind, -1);
    EXPECT_EQ(footer.ocrNotes[4].kind, 1000);
}

TEST_F(EnvelopeTest, DocumentAddsBehaveAlikeOnAFailedResize)
{
    int32_t doc = addDocument();
    dk_ErrorNote note = errorNote("A", "", "", "");
    dk_OcrNote ocr = ocrNote(2, "T");
    ASSERT_EQ(dk_AddDocError(ctx_, "TOBZBA", doc, &note), 1);
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &ocr), 1);
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &ocr), 1);
    dk_DocFooter *footer = nullptr;
    ASSERT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", doc, &footer), 1);
    dk_OcrNote *ocrArray = footer->ocrNotes;
    dk_ErrorNote *errorArray = footer->errorNotes;
    {
        FailureInjection failure;
        failure.failNth(1);
        EXPECT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &ocr), 0);
        failure.failNth(1);
        EXPECT_EQ(dk_AddDocError(ctx_, "TOBZBA", doc, &note), 0);
    }
    EXPECT_EQ(footer->ocrCount, 0);
    EXPECT_EQ(footer->ocrNotes, ocrArray);
    EXPECT_EQ(footer->errorCount, 0);
    EXPECT_EQ(footer->errorNotes, errorArray);
    dk_OcrNote next = ocrNote(3, "N");
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &next), 1);
    ASSERT_EQ(footer->ocrCount, 1);
    EXPECT_EQ(footer->ocrNotes[0].kind, 3);
    EXPECT_EQ(std::string(footer->ocrNotes[0].text4), padded("N", 72));
}

TEST_F(EnvelopeTest, RemovingTheDocumentReleasesItsNotes)
{
    int32_t doc = addDocument();
    dk_ErrorNote note = errorNote("A", "", "", "");
    dk_OcrNote ocr = ocrNote(0, "");
    ASSERT_EQ(dk_AddDocError(ctx_, "TOBZBA", doc, &note), 1);
    ASSERT_EQ(dk_AddDocOCR(ctx_, "TOBZBA", doc, &ocr), 1);
    ASSERT_EQ(dk_RemoveDocument(ctx_, "TOBZBA", doc), 1);
    dk_DocFooter *footer = nullptr;
    EXPECT_EQ(dk_GetDocFooter(ctx_, "TOBZBA", 0, &footer), 0);
    EXPECT_EQ(footer, nullptr);
}

TEST(EnvelopeWithoutTables, DocumentOperationsNeedTheTables)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(dk_Init(&ctx), 1);
    ASSERT_EQ(dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, exampleDefinition()), 1);
    dk_DocHeader *header = nullptr;
    dk_ErrorNote note = errorNote("", "", "", "");
    EXPECT_EQ(dk_GetDocHeader(ctx, "TOBZBA", 0, &header), 0);
    EXPECT_EQ(dk_AddDocError(ctx, "TOBZBA", 0, &note), 0);
    EXPECT_EQ(header, nullptr);
    // The file-level operations need nothing but the context.
    EXPECT_EQ(dk_SetDefaultNAVOProlog(ctx, "1.3"), 1);
    EXPECT_EQ(dk_AddNAVOError(ctx, &note), 1);
    ASSERT_EQ(dk_InitDocuments(ctx, 10), 1);
    ASSERT_EQ(dk_Destroy(&ctx), 1);
}
