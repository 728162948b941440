// test_context.cpp - core/context: the context, its records' layout, dk_Init, dk_Destroy, the allocator.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "test_support.h"

namespace {

const char kOneForm[] = "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 3, x\n";
const char kNoForms[] = "Wersja 1\n\n<A, TA>\nX, 3, x\n";

bool allZero(const void *p, size_t n)
{
    const unsigned char *bytes = static_cast<const unsigned char *>(p);
    for (size_t i = 0; i < n; i++) {
        if (bytes[i] != 0)
            return false;
    }
    return true;
}

}  // namespace

// The envelope records are open records: capacities and order are interface.
static_assert(sizeof(dk_FileProlog) == 50 + 28 + 40, "prolog capacities");
static_assert(offsetof(dk_FileProlog, versionLine) == 50 && offsetof(dk_FileProlog, encodingLine) == 78, "prolog order");
static_assert(sizeof(dk_FileHeader) == 52 + 9 + 25 + 25 + 33, "file header capacities");
static_assert(offsetof(dk_FileHeader, line5) == 52 + 9 + 25 + 25, "file header order");
static_assert(sizeof(dk_DocHeader) == 259, "document header capacities");
static_assert(offsetof(dk_DocHeader, line12) == 222 && offsetof(dk_DocHeader, line14) == 226, "document header order");
static_assert(sizeof(dk_ErrorNote) == 44 && offsetof(dk_ErrorNote, text4) == 33, "error note");
static_assert(offsetof(dk_OcrNote, text1) == 4 && offsetof(dk_OcrNote, text4) == 37 && offsetof(dk_OcrNote, text5) == 110 &&
                  offsetof(dk_OcrNote, text6) == 135,
              "OCR note");
static_assert(offsetof(dk_Context, prolog) > offsetof(dk_Context, definitions) &&
                  offsetof(dk_Context, header) == offsetof(dk_Context, prolog) + sizeof(dk_FileProlog) &&
                  offsetof(dk_Context, footer) > offsetof(dk_Context, header) &&
                  offsetof(dk_Context, filePool) > offsetof(dk_Context, footer) &&
                  offsetof(dk_Context, formCount) > offsetof(dk_Context, filePool) &&
                  offsetof(dk_Context, documentLists) > offsetof(dk_Context, formCount),
              "context field order");

TEST(Context, NewContextIsEmptyAndZero)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_NE(nullptr, ctx);
    ASSERT_NE(nullptr, ctx->dictionary);
    EXPECT_EQ(400u, ctx->dictionary->bucketCount);
    EXPECT_EQ(0, ctx->dictionary->count);
    ASSERT_NE(nullptr, ctx->definitions);
    EXPECT_EQ(0, ctx->definitions->count);
    EXPECT_EQ(nullptr, ctx->definitions->items);
    EXPECT_TRUE(allZero(&ctx->prolog, sizeof ctx->prolog));
    EXPECT_TRUE(allZero(&ctx->header, sizeof ctx->header));
    EXPECT_EQ(0, ctx->footer.noteCount);
    EXPECT_EQ(nullptr, ctx->footer.notes);
    EXPECT_EQ(nullptr, ctx->filePool);
    EXPECT_EQ(0, ctx->formCount);
    EXPECT_EQ(nullptr, ctx->documentLists);
    navo_test::releaseRefusedContext(ctx);
}

TEST(Context, DestroyStraightAfterInitFailsAndLeavesTheContextUsable)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    dk_Context *const same = ctx;
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(same, ctx);
    EXPECT_EQ(0, ctx->dictionary->count);
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kOneForm));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 10));
    EXPECT_EQ(1, ctx->formCount);
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
}

TEST(Context, DestroyWithDefinitionButNoTablesKeepsEverything)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kOneForm));
    EXPECT_EQ(0, dk_Destroy(&ctx));
    ASSERT_NE(nullptr, ctx);
    EXPECT_EQ(1, ctx->definitions->count);
    EXPECT_EQ(3, ctx->dictionary->count);
    // The orderly way out: tables first, then dk_Destroy.
    ASSERT_EQ(1, dk_InitDocuments(ctx, 10));
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
}

TEST(Context, DestroyAfterInitDocumentsWithoutDocumentsSucceeds)
{
    const int64_t baseline = navo::memory::live_blocks();
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kOneForm));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 3));
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(Context, DestroyWithAFormlessDefinitionFailsEvenWithTables)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kNoForms));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 10));
    EXPECT_EQ(0, ctx->formCount);
    EXPECT_EQ(0, dk_Destroy(&ctx));
    ASSERT_NE(nullptr, ctx);
    EXPECT_EQ(1, ctx->definitions->count);
    EXPECT_EQ(2, ctx->dictionary->count);
    navo_test::releaseRefusedContext(ctx);
}

TEST(Context, NullAndSecondDestroyAreRefused)
{
    EXPECT_EQ(0, dk_Destroy(nullptr));
    dk_Context *ctx = nullptr;
    EXPECT_EQ(0, dk_Destroy(&ctx));
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kOneForm));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 1));
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
}

TEST(Context, InitWithoutMemoryForTheRecord)
{
    navo_test::FailureInjection injection;
    dk_Context *ctx = reinterpret_cast<dk_Context *>(0x1);
    injection.failNth(1);
    EXPECT_EQ(0, dk_Init(&ctx));
    EXPECT_EQ(nullptr, ctx);
}

TEST(Context, InitWithoutMemoryForDictionaryOrListKeepsThePartlyBuiltContext)
{
    const int64_t baseline = navo::memory::live_blocks();
    // Allocations of dk_Init: context, dictionary record, buckets, definition list.
    for (int64_t n = 2; n <= 4; n++) {
        navo_test::FailureInjection injection;
        dk_Context *ctx = nullptr;
        injection.failNth(n);
        EXPECT_EQ(0, dk_Init(&ctx)) << n;
        injection.off();
        ASSERT_NE(nullptr, ctx) << n;
        EXPECT_EQ(n == 2, ctx->dictionary == nullptr) << n;
        EXPECT_EQ(n == 3, ctx->dictionary != nullptr && ctx->dictionary->buckets == nullptr) << n;
        EXPECT_EQ(nullptr, ctx->definitions) << n;
        navo_test::releaseRefusedContext(ctx);
    }
    navo_test::FailureInjection injection;
    dk_Context *ctx = nullptr;
    injection.failNth(5);
    EXPECT_EQ(1, dk_Init(&ctx));
    injection.off();
    navo_test::releaseRefusedContext(ctx);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(Context, MallocAndFreeShareTheLibraryHeap)
{
    const int64_t baseline = navo::memory::live_blocks();
    void *block = dk_Malloc(100);
    ASSERT_NE(nullptr, block);
    std::memset(block, 0xAB, 100);
    EXPECT_EQ(baseline + 1, navo::memory::live_blocks());
    dk_Free(block);
    dk_Free(nullptr);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
    navo_test::FailureInjection injection;
    injection.failNth(1);
    EXPECT_EQ(nullptr, dk_Malloc(16));
}
