// test_packed.cpp - store/packed_records: whole documents and records of repeating blocks as packed buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "navo_example.h"
#include "test_support.h"

#include "store/packed_records.hpp"

using namespace navo_test;

namespace {

// Packed lengths of the example definition: a slot of width + 1 per field.
constexpr int32_t kDozcba = 8 + 1 + 6 + 1;                 // 16
constexpr int32_t kDipl = 171 + 12;                        // 183
constexpr int32_t kIorb = 1 + 1 + 36 + 1;                  // 39
constexpr int32_t kOpl1 = 8 + 1;                           // 9
constexpr int32_t kDocument = kDozcba + kDipl + kOpl1;     // 208: IORB is left out

class PackedTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        baseline_ = navo::memory::live_blocks();
        ctx_ = contextWithDefinition(exampleDefinition());
        ASSERT_NE(ctx_, nullptr);
        ASSERT_EQ(ctx_->formCount, 3);
        ASSERT_EQ(dk_AddDocument(ctx_, "TOBZBA", &doc_), 1);
    }
    void TearDown() override
    {
        ASSERT_EQ(dk_Destroy(&ctx_), 1);
        EXPECT_EQ(navo::memory::live_blocks(), baseline_);
    }
    std::string field(const char *block, int32_t record, const char *name)
    {
        char buffer[64];
        EXPECT_EQ(dk_GetField(ctx_, "TOBZBA", doc_, block, record, name, buffer, sizeof buffer), 1);
        return buffer;
    }
    void fillSomeFields()
    {
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "DOZCBA", 0, "DataNadania", "09122009"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "DOZCBA", 0, "NalepkaR", "A1"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "DIPL", 0, "Nip", "1234567890"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "DIPL", 0, "NazwaSkrocona", "FIRMA"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "DIPL", 0, "POZIOM_UFNOSCI_ID", "99"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "OPL1", 0, "DataWypelnienia", "31122009"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "IORB", 0, "KodRodzajuZgloszen", "1"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "IORB", 0, "NumerRachunku", "1111"), 1);
        int32_t record = -1;
        ASSERT_EQ(dk_AddBlock(ctx_, "TOBZBA", doc_, "IORB", &record), 1);
        ASSERT_EQ(record, 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "IORB", 1, "KodRodzajuZgloszen", "2"), 1);
        ASSERT_EQ(dk_SetField(ctx_, "TOBZBA", doc_, "IORB", 1, "NumerRachunku", "2222"), 1);
    }
    // What the packed document holds for fillSomeFields(), built slot by slot.
    static std::string expectedDocument()
    {
        std::string packed;
        auto slot = [&packed](const std::string &text, size_t width) {
            packed += padded(text, width);
            packed += '\0';
        };
        slot("09122009", 8);
        slot("A1", 6);
        slot("1234567890", 10);
        slot("", 14);
        slot("", 11);
        slot("", 1);
        slot("", 9);
        slot("FIRMA", 31);
        slot("", 31);
        slot("", 22);
        slot("", 8);
        slot("", 16);
        slot("", 16);
        slot("99", 2);
        slot("31122009", 8);
        return packed;
    }
    static std::string expectedRecord(const std::string &kod, const std::string &numer)
    {
        return padded(kod, 1) + std::string(1, '\0') + padded(numer, 36) + std::string(1, '\0');
    }
    ScopedTempDir tmp_;
    int64_t baseline_ = 0;
    dk_Context *ctx_ = nullptr;
    int32_t doc_ = -1;
};

}  // namespace

TEST_F(PackedTest, BlockLengthIsRecordLengthPlusFieldCount)
{
    const dk_dfDefinition &definition = ctx_->definitions->items[0];
    ASSERT_EQ(definition.blockCount, 4);
    EXPECT_EQ(navo::store::packed_length(definition.blocks[0]), kDozcba);
    EXPECT_EQ(navo::store::packed_length(definition.blocks[1]), kDipl);
    EXPECT_EQ(navo::store::packed_length(definition.blocks[2]), kIorb);
    EXPECT_EQ(navo::store::packed_length(definition.blocks[3]), kOpl1);
}

TEST_F(PackedTest, DocumentOfExactSizeHasNoZerosBehindTheData)
{
    fillSomeFields();
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, kDocument), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, kDocument), expectedDocument());
    // The slot of a field is its position in the definition plus one byte per earlier field:
    // NazwaSkrocona follows widths 10, 14, 11, 1, 9 in DIPL, so it stands at 45 + 5 = 50 there.
    EXPECT_EQ(std::string(out + kDozcba + 50, 31), padded("FIRMA", 31));
    // OPL1 stands directly behind DIPL: the repeating IORB between them is left out.
    EXPECT_EQ(std::string(out + kDozcba + kDipl, 9), std::string("31122009") + '\0');
    dk_Free(out);
}

TEST_F(PackedTest, DocumentOfLargerSizeHasZerosBehindTheData)
{
    fillSomeFields();
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, kDocument + 100), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, kDocument), expectedDocument());
    EXPECT_EQ(std::string(out + kDocument, 100), std::string(100, '\0'));
    dk_Free(out);
}

TEST_F(PackedTest, DocumentSizeOneTooSmallSucceedsWithoutData)
{
    char *out = reinterpret_cast<char *>(this);
    EXPECT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, kDocument - 1), 1);
    EXPECT_EQ(out, nullptr);
    out = reinterpret_cast<char *>(this);
    EXPECT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, -5), 1);
    EXPECT_EQ(out, nullptr);
}

TEST_F(PackedTest, BlankDocumentIsAllSpacesInItsSlots)
{
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, kDocument), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, 8), "        ");
    EXPECT_EQ(out[8], '\0');
    EXPECT_EQ(std::string(out + 9, 6), "      ");
    EXPECT_EQ(out[15], '\0');
    dk_Free(out);
}

TEST_F(PackedTest, GetThenSetOfTheSameDocumentBufferChangesNoField)
{
    fillSomeFields();
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &out, kDocument), 1);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, out, kDocument), 1);
    char *again = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, &again, kDocument), 1);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(std::memcmp(out, again, kDocument), 0);
    EXPECT_EQ(field("DIPL", 0, "NazwaSkrocona"), padded("FIRMA", 31));
    EXPECT_EQ(field("IORB", 0, "NumerRachunku"), padded("1111", 36));
    dk_Free(out);
    dk_Free(again);
}

TEST_F(PackedTest, SetDocumentFillsShortSlotsAndEmptySlotsWithSpaces)
{
    fillSomeFields();
    std::string packed(kDocument, 'z');
    // Each slot: a short text and its NUL, garbage behind the NUL, which is ignored.
    size_t position = 0;
    const int widths[] = {8, 6, 10, 14, 11, 1, 9, 31, 31, 22, 8, 16, 16, 2, 8};
    for (int width : widths) {
        packed[position] = '\0';  // empty text
        position += static_cast<size_t>(width) + 1;
    }
    std::memcpy(&packed[0], "01\0", 3);                     // DataNadania = "01"
    std::memcpy(&packed[kDozcba + 50], "NOWA\0", 5);        // NazwaSkrocona
    std::memcpy(&packed[kDozcba + kDipl], "12345678", 9);   // DataWypelnienia, full width and NUL
    packed[kDozcba + kDipl + 8] = '\0';
    ASSERT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, packed.data(), kDocument), 1);
    EXPECT_EQ(field("DOZCBA", 0, "DataNadania"), "01      ");
    EXPECT_EQ(field("DOZCBA", 0, "NalepkaR"), "      ");
    EXPECT_EQ(field("DIPL", 0, "Nip"), std::string(10, ' '));
    EXPECT_EQ(field("DIPL", 0, "NazwaSkrocona"), padded("NOWA", 31));
    EXPECT_EQ(field("DIPL", 0, "POZIOM_UFNOSCI_ID"), "  ");
    EXPECT_EQ(field("OPL1", 0, "DataWypelnienia"), "12345678");
    // The repeating block is not part of a packed document.
    EXPECT_EQ(field("IORB", 0, "NumerRachunku"), padded("1111", 36));
}

TEST_F(PackedTest, SetDocumentTooSmallIsRefusedWithNothingChanged)
{
    fillSomeFields();
    std::string packed(kDocument, '\0');
    EXPECT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, packed.data(), kDocument - 1), 0);
    EXPECT_EQ(field("DOZCBA", 0, "DataNadania"), "09122009");
    EXPECT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, packed.data(), kDocument + 10), 1);
    EXPECT_EQ(field("DOZCBA", 0, "DataNadania"), "        ");
}

TEST_F(PackedTest, SetDocumentSetsFlagsLikeSetFieldAndTouchesNoSpool)
{
    dk_lfBlock *dipl = ctx_->documentLists[0].documents[doc_].blocks[1];
    dk_lfBlock *iorb = ctx_->documentLists[0].documents[doc_].blocks[2];
    ASSERT_EQ(dipl->path, nullptr);
    ASSERT_NE(iorb->path, nullptr);
    std::string spoolBefore = readFile(iorb->path);
    std::vector<std::string> filesBefore = tmp_.entries();
    int32_t iorbDirty = iorb->dirty;
    dipl->dirty = 0;
    dipl->fields[0].dirty = 0;
    std::string packed(kDocument, '\0');
    ASSERT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, packed.data(), kDocument), 1);
    EXPECT_EQ(dipl->dirty, 1);
    EXPECT_EQ(dipl->fields[0].dirty, 1);
    EXPECT_EQ(dipl->fields[0].loaded, 1);
    EXPECT_EQ(iorb->dirty, iorbDirty);
    EXPECT_EQ(tmp_.entries(), filesBefore);
    EXPECT_EQ(readFile(iorb->path), spoolBefore);
}

TEST_F(PackedTest, BlockOfExactLargerAndTooSmallSize)
{
    fillSomeFields();
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, &out, kIorb), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, kIorb), expectedRecord("1", "1111"));
    dk_Free(out);

    out = nullptr;
    ASSERT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, &out, kIorb + 7), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, kIorb), expectedRecord("2", "2222"));
    EXPECT_EQ(std::string(out + kIorb, 7), std::string(7, '\0'));
    dk_Free(out);

    out = reinterpret_cast<char *>(this);
    EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, &out, kIorb - 1), 1);
    EXPECT_EQ(out, nullptr);
}

TEST_F(PackedTest, GetBlockMovesTheCursorThroughGetField)
{
    fillSomeFields();
    dk_lfBlock *iorb = ctx_->documentLists[0].documents[doc_].blocks[2];
    ASSERT_EQ(iorb->currentRecord, 1);
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, &out, kIorb), 1);
    dk_Free(out);
    EXPECT_EQ(iorb->currentRecord, 0);
    // The move saved record 1 to the spool: 37 bytes a record.
    std::string spool = readFile(iorb->path);
    ASSERT_GE(spool.size(), 74u);
    EXPECT_EQ(spool.substr(37, 37), "2" + padded("2222", 36));
}

TEST_F(PackedTest, GetThenSetOfTheSameBlockBufferChangesNoField)
{
    fillSomeFields();
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, &out, kIorb), 1);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, out, kIorb), 1);
    dk_Free(out);
    EXPECT_EQ(field("IORB", 1, "KodRodzajuZgloszen"), "2");
    EXPECT_EQ(field("IORB", 1, "NumerRachunku"), padded("2222", 36));
    EXPECT_EQ(field("IORB", 0, "NumerRachunku"), padded("1111", 36));
}

TEST_F(PackedTest, SetBlockEmptySlotGivesSpacesAndAMissingNulIsCutAtTheWidth)
{
    fillSomeFields();
    std::string packed(kIorb, 'w');
    packed[0] = '\0';                          // KodRodzajuZgloszen empty
    // NumerRachunku: 37 bytes of 'w', no NUL in its slot (outside the contract): cut at 36.
    ASSERT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, packed.data(), kIorb), 1);
    EXPECT_EQ(field("IORB", 0, "KodRodzajuZgloszen"), " ");
    EXPECT_EQ(field("IORB", 0, "NumerRachunku"), std::string(36, 'w'));
}

TEST_F(PackedTest, SetBlockTooSmallOrNullIsRefusedWithNothingChanged)
{
    fillSomeFields();
    std::string packed = expectedRecord("9", "9999");
    EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, packed.data(), kIorb - 1), 0);
    EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, nullptr, kIorb), 0);
    EXPECT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", doc_, nullptr, kDocument), 0);
    EXPECT_EQ(field("IORB", 0, "NumerRachunku"), padded("1111", 36));
    EXPECT_EQ(field("IORB", 1, "NumerRachunku"), padded("2222", 36));
}

TEST_F(PackedTest, BlockCallsRefuseASingleBlock)
{
    char *out = reinterpret_cast<char *>(this);
    std::string packed(200, '\0');
    for (const char *block : {"DOZCBA", "DIPL", "OPL1"}) {
        out = reinterpret_cast<char *>(this);
        EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, block, 0, &out, 1000), 0) << block;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, block, 0, packed.data(), 1000), 0) << block;
    }
    EXPECT_EQ(field("DIPL", 0, "Nip"), std::string(10, ' '));
}

TEST_F(PackedTest, UnknownNamesAndIndicesAreRefused)
{
    std::string packed(1000, '\0');
    char *out = reinterpret_cast<char *>(this);
    // Unknown form, a tag given as a form, a form without documents, a form name unknown as tag.
    for (const char *form : {"NIEMA", "DIPL", "TOBDWA"}) {
        out = reinterpret_cast<char *>(this);
        EXPECT_EQ(dk_GetNAVODocument(ctx_, form, 0, &out, 1000), 0) << form;
        EXPECT_EQ(out, nullptr);
        out = reinterpret_cast<char *>(this);
        EXPECT_EQ(dk_GetNAVOBlock(ctx_, form, 0, "IORB", 0, &out, 1000), 0) << form;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(dk_SetNAVODocument(ctx_, form, 0, packed.data(), 1000), 0) << form;
        EXPECT_EQ(dk_SetNAVOBlock(ctx_, form, 0, "IORB", 0, packed.data(), 1000), 0) << form;
    }
    for (int32_t index : {1, -1}) {
        out = reinterpret_cast<char *>(this);
        EXPECT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", index, &out, 1000), 0) << index;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", index, "IORB", 0, &out, 1000), 0) << index;
        EXPECT_EQ(dk_SetNAVODocument(ctx_, "TOBZBA", index, packed.data(), 1000), 0) << index;
        EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", index, "IORB", 0, packed.data(), 1000), 0) << index;
    }
    // Record indices: one past the count, negative; unknown tag; a field name as tag.
    EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, &out, 1000), 0);
    EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", -1, &out, 1000), 0);
    EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, packed.data(), 1000), 0);
    EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", -1, packed.data(), 1000), 0);
    EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "NIEMA", 0, &out, 1000), 0);
    EXPECT_EQ(dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "Nip", 0, &out, 1000), 0);
    EXPECT_EQ(dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "NIEMA", 0, packed.data(), 1000), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(dk_GetNAVODocument(ctx_, "TOBZBA", doc_, nullptr, 1000), 0);
}

TEST_F(PackedTest, FormWithoutBlocksPacksToNothing)
{
    int32_t doc = -1;
    ASSERT_EQ(dk_AddDocument(ctx_, "TOBPUSTY", &doc), 1);
    char *out = nullptr;
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBPUSTY", doc, &out, 0), 1);
    ASSERT_NE(out, nullptr);  // exactly size bytes: zero, but a block the host releases
    dk_Free(out);
    ASSERT_EQ(dk_GetNAVODocument(ctx_, "TOBPUSTY", doc, &out, 4), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, 4), std::string(4, '\0'));
    dk_Free(out);
    EXPECT_EQ(dk_SetNAVODocument(ctx_, "TOBPUSTY", doc, "", 0), 1);
}

TEST_F(PackedTest, AllocationFailuresReturnZeroWithOutNullAndLeakNothing)
{
    fillSomeFields();
    int64_t live = navo::memory::live_blocks();
    std::string record = expectedRecord("7", "7777");
    std::string document = expectedDocument();
    struct Call {
        const char *name;
        std::function<int32_t(char **)> run;
    };
    std::vector<Call> calls = {
        {"GetNAVODocument", [&](char **out) { return dk_GetNAVODocument(ctx_, "TOBZBA", doc_, out, kDocument); }},
        {"GetNAVOBlock", [&](char **out) { return dk_GetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 0, out, kIorb); }},
        {"SetNAVODocument",
         [&](char **) { return dk_SetNAVODocument(ctx_, "TOBZBA", doc_, document.data(), kDocument); }},
        {"SetNAVOBlock",
         [&](char **) { return dk_SetNAVOBlock(ctx_, "TOBZBA", doc_, "IORB", 1, record.data(), kIorb); }},
    };
    for (const Call &call : calls) {
        int64_t n = 1;
        for (;; n++) {
            char *out = reinterpret_cast<char *>(this);
            int32_t result;
            {
                FailureInjection failure;
                failure.failNth(n);
                result = call.run(&out);
            }
            if (result == 1) {
                if (out != reinterpret_cast<char *>(this)) {
                    EXPECT_NE(out, nullptr) << call.name;
                    dk_Free(out);
                }
                break;
            }
            if (out != reinterpret_cast<char *>(this)) {
                EXPECT_EQ(out, nullptr) << call.name << " n=" << n;
            }
            EXPECT_EQ(navo::memory::live_blocks(), live) << call.name << " n=" << n;
            ASSERT_LT(n, 1000) << call.name;
        }
        EXPECT_GT(n, 1) << call.name << " allocates";
        EXPECT_EQ(navo::memory::live_blocks(), live) << call.name;
    }
    // After all of that the data is what the successful runs left.
    EXPECT_EQ(field("IORB", 1, "NumerRachunku"), padded("7777", 36));
    EXPECT_EQ(field("DIPL", 0, "NazwaSkrocona"), padded("FIRMA", 31));
}
