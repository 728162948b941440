// store_fixture.h - a small definition and a fixture for the tests of store/ (tables to records).
#ifndef NAVO_STORE_FIXTURE_H
#define NAVO_STORE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

#include "test_support.h"

namespace navo_test {

// Form F: single block SNG (X width 4, Y width 2), then repeating block REP (A width 3, B width 2:
// the block of test_fields.cpp's walk-through, record length 5). Form G: one single block OTH (Z width 5).
inline const char *storeDefinition()
{
    return "Wersja T1\n"
           "\n"
           "[F, F]\n"
           "Single, 1, 1\n"
           "Rep, 1, -1\n"
           "\n"
           "[G, G]\n"
           "Other, 1, 1\n"
           "\n"
           "<Single, SNG>\n"
           "X, 4, t\n"
           "Y, 2, t\n"
           "\n"
           "<Rep, REP>\n"
           "A, 3, t\n"
           "B, 2, t\n"
           "\n"
           "<Other, OTH>\n"
           "Z, 5, t\n";
}

constexpr int32_t kSingleRef = 0;     // position of SNG in form F
constexpr int32_t kRepeatingRef = 1;  // position of REP in form F
constexpr int kRecordLength = 5;

// Owns a private TMPDIR and a context with storeDefinition(); at the end it destroys the context
// and checks that no spool file and no allocation is left over.
class StoreFixture : public ::testing::Test {
protected:
    void SetUp() override { baseline_ = navo::memory::live_blocks(); }

    void TearDown() override
    {
        navo::memory::fail_after(0, 0);
        if (ctx != nullptr) {
            EXPECT_EQ(1, dk_Destroy(&ctx));
            EXPECT_EQ(nullptr, ctx);
        }
        EXPECT_TRUE(tmp.entries().empty()) << "spool files left behind";
        EXPECT_EQ(baseline_, navo::memory::live_blocks());
    }

    void makeContext(int32_t poolCapacity = 10)
    {
        ctx = contextWithDefinition(storeDefinition(), poolCapacity);
        ASSERT_NE(nullptr, ctx);
        ASSERT_NE(nullptr, ctx->documentLists);
        ASSERT_EQ(2, ctx->formCount);
    }

    int32_t addDocument(const char *form = "F")
    {
        int32_t index = -1;
        EXPECT_EQ(1, dk_AddDocument(ctx, form, &index));
        return index;
    }

    dk_Document *document(int32_t docIndex, int32_t formId = 0)
    {
        return &ctx->documentLists[formId].documents[docIndex];
    }

    dk_lfBlock *store(int32_t docIndex, int32_t ref = kRepeatingRef) { return document(docIndex)->blocks[ref]; }

    const dk_dfBlock *repeatingBlock() const
    {
        const dk_dfDefinition *definition = &ctx->definitions->items[0];
        return &definition->blocks[definition->forms[0].refs[kRepeatingRef].blockIndex];
    }

    std::string spool(int32_t docIndex) { return readFile(store(docIndex)->path); }

    std::string get(int32_t docIndex, int32_t record, const char *field, const char *block = "REP",
                    const char *form = "F")
    {
        char out[64];
        int32_t result = dk_GetField(ctx, form, docIndex, block, record, field, out, sizeof out);
        EXPECT_EQ(1, result) << "get " << block << "[" << record << "]." << field;
        return out;
    }

    int32_t set(int32_t docIndex, int32_t record, const char *field, const char *value, const char *block = "REP",
                const char *form = "F")
    {
        return dk_SetField(ctx, form, docIndex, block, record, field, value);
    }

    int32_t addRecord(int32_t docIndex)
    {
        int32_t index = -1;
        EXPECT_EQ(1, dk_AddBlock(ctx, "F", docIndex, "REP", &index));
        return index;
    }

    int32_t recordCount(int32_t docIndex)
    {
        int32_t count = -1;
        EXPECT_EQ(1, dk_GetBlockCount(ctx, "F", docIndex, "REP", &count));
        return count;
    }

    // Slot flags as "L/D" and the store's dirty flag, for the walk-through tables.
    std::string flags(int32_t docIndex, int32_t slot)
    {
        const dk_lfField &field = store(docIndex)->fields[slot];
        return std::to_string(field.loaded) + "/" + std::to_string(field.dirty);
    }

    static unsigned permissions(const std::string &path)
    {
        struct stat info;
        if (stat(path.c_str(), &info) != 0)
            return 0xFFFFu;
        return static_cast<unsigned>(info.st_mode & 0777);
    }

    ScopedTempDir tmp;  // first, so TMPDIR is private before the context makes any spool file
    dk_Context *ctx = nullptr;

private:
    int64_t baseline_ = 0;
};

}  // namespace navo_test

#endif
