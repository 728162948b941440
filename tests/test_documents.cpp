// test_documents.cpp - store/document_tables, the context cases that need tables, and the
// platform's temporary files.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "store_fixture.h"

#include "core/context.hpp"
#include "platform/temp_file.hpp"

using namespace navo_test;

namespace {

class Documents : public StoreFixture {};

const char *formlessDefinition()
{
    return "Wersja N1\n\n<Blk, TG>\nA, 1, t\n";
}

}  // namespace

// ---- Context edge cases that need the tables -------------------------------------------------

TEST(Lifecycle, DestroyAfterInitDocumentsWithoutDocumentsReturns1)
{
    int64_t baseline = navo::memory::live_blocks();
    dk_Context *ctx = contextWithDefinition(storeDefinition(), 3);
    ASSERT_NE(nullptr, ctx);
    ASSERT_EQ(2, ctx->formCount);
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(Lifecycle, DestroyWithFormlessDefinitionReturns0EvenAfterInitDocuments)
{
    int64_t baseline = navo::memory::live_blocks();
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, formlessDefinition()));
    EXPECT_EQ(1, dk_InitDocuments(ctx, 10));
    EXPECT_EQ(0, ctx->formCount);
    EXPECT_EQ(nullptr, ctx->documentLists);
    ASSERT_NE(nullptr, ctx->filePool);
    EXPECT_EQ(10, ctx->filePool->capacity);
    dk_Context *before = ctx;
    EXPECT_EQ(0, dk_RemoveAllDocuments(ctx));
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(before, ctx);
    EXPECT_EQ(1, ctx->definitions->count);
    releaseRefusedContext(ctx);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(Lifecycle, DestroyStraightAfterInitReturns0AndContextStaysUsable)
{
    ScopedTempDir tmp;
    int64_t baseline = navo::memory::live_blocks();
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    dk_Context *before = ctx;
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(before, ctx);
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, storeDefinition()));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 10));
    int32_t index = -1;
    EXPECT_EQ(1, dk_AddDocument(ctx, "F", &index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(1u, tmp.entries().size());
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(Lifecycle, RemoveAllDocumentsBeforeInitDocumentsReturns0)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, storeDefinition()));
    EXPECT_EQ(0, ctx->formCount);
    EXPECT_EQ(0, dk_RemoveAllDocuments(ctx));
    EXPECT_EQ(0, dk_RemoveAllDocuments(nullptr));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 1));
    EXPECT_EQ(1, dk_Destroy(&ctx));
}

// ---- dk_InitDocuments ------------------------------------------------------------------------

TEST_F(Documents, InitDocumentsBuildsPoolAndOneEmptyListPerForm)
{
    makeContext(7);
    ASSERT_NE(nullptr, ctx->filePool);
    EXPECT_EQ(7, ctx->filePool->capacity);
    EXPECT_EQ(0, ctx->filePool->count);
    for (int i = 0; i < 7; i++)
        EXPECT_EQ(nullptr, ctx->filePool->blocks[i]);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(0, ctx->documentLists[i].count);
        EXPECT_EQ(nullptr, ctx->documentLists[i].documents);
    }
}

TEST_F(Documents, InitDocumentsRefusesZeroCapacityAndMissingDefinition)
{
    makeContext(2);
    EXPECT_EQ(0, dk_InitDocuments(ctx, 0));
    EXPECT_EQ(0, dk_InitDocuments(ctx, -3));
    EXPECT_EQ(0, dk_InitDocuments(nullptr, 1));
    EXPECT_EQ(2, ctx->filePool->capacity);  // nothing replaced by a refused call

    dk_Context *bare = nullptr;
    ASSERT_EQ(1, dk_Init(&bare));
    EXPECT_EQ(0, dk_InitDocuments(bare, 10));
    EXPECT_EQ(nullptr, bare->filePool);
    EXPECT_EQ(nullptr, bare->documentLists);
    releaseRefusedContext(bare);
}

TEST_F(Documents, SecondInitDocumentsOnEmptyTablesLeaksNothing)
{
    makeContext(2);
    ASSERT_EQ(1, dk_InitDocuments(ctx, 4));
    EXPECT_EQ(4, ctx->filePool->capacity);
    EXPECT_EQ(2, ctx->formCount);
    EXPECT_EQ(0, addDocument());
}  // TearDown checks the allocations of the first tables were released

TEST_F(Documents, InitDocumentsAllocationFailuresOneByOne)
{
    makeContext(2);
    FailureInjection failures;
    int32_t result = 0;
    int64_t n = 1;
    for (; n < 50; n++) {
        failures.failNth(n);
        result = dk_InitDocuments(ctx, 3);
        failures.off();
        if (result == 1)
            break;
        // either nothing is installed yet, or the pool is and the table is missing
        EXPECT_EQ(0, ctx->formCount);
        EXPECT_EQ(nullptr, ctx->documentLists);
        EXPECT_EQ(0, dk_RemoveAllDocuments(ctx));
    }
    ASSERT_EQ(1, result);
    EXPECT_EQ(4, n);  // the entry array, the pool and the table could fail; the fourth try succeeds
    EXPECT_EQ(3, ctx->filePool->capacity);
    EXPECT_EQ(2, ctx->formCount);
}

// ---- dk_1fGetIDFormularza, dk_GetDocCount ---------------------------------------------------

TEST_F(Documents, FormIdIsTheDictionaryIdOrMinusOne)
{
    makeContext();
    EXPECT_EQ(0, dk_1fGetIDFormularza(ctx, "F"));
    EXPECT_EQ(1, dk_1fGetIDFormularza(ctx, "G"));
    EXPECT_EQ(-1, dk_1fGetIDFormularza(ctx, "NOPE"));
    EXPECT_GE(dk_1fGetIDFormularza(ctx, "REP"), 2);  // a tag is known, but is no form
    EXPECT_EQ(-1, dk_1fGetIDFormularza(ctx, nullptr));
    EXPECT_EQ(-1, dk_1fGetIDFormularza(nullptr, "F"));
}

TEST_F(Documents, GetDocCountKnownFormWithoutDocumentsYields0)
{
    makeContext();
    int32_t count = 99;
    EXPECT_EQ(1, dk_GetDocCount(ctx, "F", &count));
    EXPECT_EQ(0, count);
    count = 99;
    EXPECT_EQ(0, dk_GetDocCount(ctx, "UNKNOWN", &count));
    EXPECT_EQ(-1, count);
    count = 99;
    EXPECT_EQ(0, dk_GetDocCount(ctx, "REP", &count));  // a known name that is not a form
    EXPECT_EQ(-1, count);
    EXPECT_EQ(0, dk_GetDocCount(ctx, "F", nullptr));
    addDocument();
    addDocument();
    EXPECT_EQ(1, dk_GetDocCount(ctx, "F", &count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(1, dk_GetDocCount(ctx, "G", &count));
    EXPECT_EQ(0, count);
}

// ---- dk_AddDocument --------------------------------------------------------------------------

TEST_F(Documents, NewDocumentIsCompleteAndBlank)
{
    makeContext();
    int32_t index = 42;
    ASSERT_EQ(1, dk_AddDocument(ctx, "F", &index));
    EXPECT_EQ(0, index);
    dk_Document *doc = document(0);
    EXPECT_EQ(ctx->filePool, doc->filePool);
    EXPECT_EQ(2, doc->blockCount);
    EXPECT_EQ(0, doc->footer.ocrCount);
    EXPECT_EQ(nullptr, doc->footer.ocrNotes);
    EXPECT_EQ(0, doc->footer.errorCount);
    EXPECT_EQ(nullptr, doc->footer.errorNotes);
    EXPECT_EQ('\0', doc->header.line1[0]);

    dk_lfBlock *single = store(0, kSingleRef);
    EXPECT_EQ(nullptr, single->path);
    EXPECT_EQ(nullptr, single->file);
    EXPECT_EQ(0, single->currentRecord);
    EXPECT_EQ(1, single->recordCount);
    EXPECT_EQ(1, single->dirty);
    EXPECT_STREQ("    ", single->fields[0].text);
    EXPECT_STREQ("  ", single->fields[1].text);
    EXPECT_EQ(1, single->fields[0].loaded);
    EXPECT_EQ(1, single->fields[0].dirty);
    EXPECT_EQ("    ", get(0, 0, "X", "SNG"));

    dk_lfBlock *repeating = store(0);
    ASSERT_NE(nullptr, repeating->path);
    EXPECT_NE(nullptr, repeating->file);
    EXPECT_EQ(0, repeating->dirty);
    EXPECT_EQ(1, repeating->recordCount);
    EXPECT_EQ(std::string(kRecordLength, ' '), spool(0));
    EXPECT_EQ(1, ctx->filePool->count);
    EXPECT_EQ(repeating, ctx->filePool->blocks[0]);

    std::vector<std::string> names = tmp.entries();
    ASSERT_EQ(1u, names.size());
    EXPECT_EQ(0u, names[0].rfind("P2_", 0));
    EXPECT_EQ(tmp.path() + "/" + names[0], std::string(repeating->path));
    EXPECT_EQ(0600u, permissions(repeating->path));
}

TEST_F(Documents, AddDocumentRefusesUnknownFormsWithMinusOne)
{
    makeContext();
    int32_t index = 5;
    EXPECT_EQ(0, dk_AddDocument(ctx, "NOPE", &index));
    EXPECT_EQ(-1, index);
    index = 5;
    EXPECT_EQ(0, dk_AddDocument(ctx, "SNG", &index));  // a tag, not a form
    EXPECT_EQ(-1, index);
    index = 5;
    EXPECT_EQ(0, dk_AddDocument(nullptr, "F", &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(0, dk_AddDocument(ctx, "F", nullptr));
    EXPECT_TRUE(tmp.entries().empty());
}

TEST_F(Documents, DocumentsOfTwoFormsAreKeptApart)
{
    makeContext();
    EXPECT_EQ(0, addDocument("G"));
    EXPECT_EQ(0, addDocument("F"));
    EXPECT_EQ(1, addDocument("G"));
    EXPECT_EQ(2, ctx->documentLists[1].count);
    EXPECT_EQ(1, ctx->documentLists[0].count);
    EXPECT_EQ(1u, tmp.entries().size());  // form G has only a single block: no spool file
    EXPECT_EQ(1, set(1, 0, "Z", "zz", "OTH", "G"));
    EXPECT_EQ("zz   ", get(1, 0, "Z", "OTH", "G"));
    EXPECT_EQ("     ", get(0, 0, "Z", "OTH", "G"));
}

TEST_F(Documents, AddDocumentAllocationFailuresOneByOne)
{
    makeContext(2);
    addDocument();  // one document already there, which every failed add must leave alone
    ASSERT_EQ(1, set(0, 0, "A", "abc"));
    std::vector<std::string> before = tmp.entries();
    FailureInjection failures;
    int32_t result = 0;
    int32_t index = -1;
    int64_t n = 1;
    for (; n < 100; n++) {
        int64_t live = navo::memory::live_blocks();
        failures.failNth(n);
        result = dk_AddDocument(ctx, "F", &index);
        failures.off();
        if (result == 1)
            break;
        SCOPED_TRACE("allocation " + std::to_string(n));
        EXPECT_EQ(-1, index);
        EXPECT_EQ(1, ctx->documentLists[0].count);
        EXPECT_EQ(before, tmp.entries());  // no spool file left behind
        EXPECT_EQ(1, ctx->filePool->count);
        EXPECT_EQ(store(0), ctx->filePool->blocks[0]);
        EXPECT_EQ(live, navo::memory::live_blocks());
        EXPECT_EQ("abc", get(0, 0, "A"));
    }
    ASSERT_EQ(1, result);
    EXPECT_EQ(1, index);
    // the documents array, then per store the grown blocks array, the store, its fields and a
    // text per field, and the path copy: 12 places to fail
    EXPECT_EQ(13, n);
    EXPECT_EQ(2u, tmp.entries().size());
    EXPECT_EQ("abc", get(0, 0, "A"));
    EXPECT_EQ("   ", get(1, 0, "A"));
}

TEST_F(Documents, AddDocumentStickyAllocationFailureLeavesNothing)
{
    makeContext();
    FailureInjection failures;
    for (int64_t n = 1; n <= 12; n++) {
        int32_t index = 7;
        failures.failNth(n, true);
        EXPECT_EQ(0, dk_AddDocument(ctx, "F", &index));
        failures.off();
        EXPECT_EQ(-1, index);
        EXPECT_EQ(0, ctx->documentLists[0].count);
        EXPECT_EQ(nullptr, ctx->documentLists[0].documents);
        EXPECT_EQ(0, ctx->filePool->count);
        EXPECT_TRUE(tmp.entries().empty());
    }
}

// ---- dk_RemoveDocument, dk_RemoveDocuments, dk_RemoveAllDocuments --------------------------

TEST_F(Documents, RemoveOnFormWithoutDocuments)
{
    makeContext();
    EXPECT_EQ(1, dk_RemoveDocuments(ctx, "F"));
    EXPECT_EQ(0, dk_RemoveDocument(ctx, "F", 0));
    EXPECT_EQ(0, dk_RemoveDocuments(ctx, "NOPE"));
    EXPECT_EQ(0, dk_RemoveDocument(ctx, "NOPE", 0));
    EXPECT_EQ(0, dk_RemoveDocuments(ctx, "REP"));
}

TEST_F(Documents, RemoveDocumentRefusesIndicesOutsideTheList)
{
    makeContext();
    addDocument();
    addDocument();
    EXPECT_EQ(0, dk_RemoveDocument(ctx, "F", 2));
    EXPECT_EQ(0, dk_RemoveDocument(ctx, "F", -1));
    EXPECT_EQ(2, ctx->documentLists[0].count);
    EXPECT_EQ(2u, tmp.entries().size());
}

TEST_F(Documents, RemovingIndexZeroOfThreeShiftsTheOthersDown)
{
    makeContext();
    for (int i = 0; i < 3; i++)
        addDocument();
    ASSERT_EQ(1, set(1, 0, "A", "one"));
    ASSERT_EQ(1, set(2, 0, "A", "two"));
    ASSERT_EQ(1, set(1, 0, "X", "sgl1", "SNG"));
    dk_lfBlock *removed = store(0);
    std::string removedPath = removed->path;
    dk_lfBlock *second = store(1);
    dk_lfBlock *third = store(2);
    std::string secondPath = second->path;
    std::string secondBytes = spool(1);

    EXPECT_EQ(1, dk_RemoveDocument(ctx, "F", 0));
    EXPECT_EQ(2, ctx->documentLists[0].count);
    EXPECT_FALSE(fileExists(removedPath));
    EXPECT_EQ(2u, tmp.entries().size());
    EXPECT_EQ(second, store(0));  // the store keeps its address
    EXPECT_EQ(third, store(1));
    EXPECT_EQ(secondPath, std::string(store(0)->path));
    EXPECT_EQ(secondBytes, spool(0));
    EXPECT_EQ("one", get(0, 0, "A"));
    EXPECT_EQ("sgl1", get(0, 0, "X", "SNG"));
    EXPECT_EQ("two", get(1, 0, "A"));
    EXPECT_EQ(2, ctx->filePool->count);
    for (int i = 0; i < ctx->filePool->count; i++)
        EXPECT_NE(removed, ctx->filePool->blocks[i]);
    EXPECT_EQ(nullptr, ctx->filePool->blocks[2]);
}

TEST_F(Documents, RemovingTheOnlyDocumentLeavesNullAndNextAddIsZero)
{
    makeContext();
    addDocument();
    std::string path = store(0)->path;
    EXPECT_EQ(1, dk_RemoveDocument(ctx, "F", 0));
    EXPECT_EQ(0, ctx->documentLists[0].count);
    EXPECT_EQ(nullptr, ctx->documentLists[0].documents);
    EXPECT_FALSE(fileExists(path));
    EXPECT_EQ(0, ctx->filePool->count);
    EXPECT_EQ(0, addDocument());
}

TEST_F(Documents, RemoveEvictedDocumentDeletesItsFileAndTouchesNoSlot)
{
    makeContext(1);
    addDocument();
    addDocument();  // evicts the store of document 0
    ASSERT_EQ(nullptr, store(0)->file);
    std::string path = store(0)->path;
    dk_lfBlock *kept = store(1);
    EXPECT_EQ(1, dk_RemoveDocument(ctx, "F", 0));
    EXPECT_FALSE(fileExists(path));
    EXPECT_EQ(1, ctx->filePool->count);
    EXPECT_EQ(kept, ctx->filePool->blocks[0]);
}

TEST_F(Documents, RemoveDocumentsEmptiesOneFormOnly)
{
    makeContext();
    addDocument("F");
    addDocument("F");
    addDocument("G");
    EXPECT_EQ(1, dk_RemoveDocuments(ctx, "F"));
    EXPECT_EQ(0, ctx->documentLists[0].count);
    EXPECT_EQ(nullptr, ctx->documentLists[0].documents);
    EXPECT_EQ(1, ctx->documentLists[1].count);
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_EQ(0, ctx->filePool->count);
}

TEST_F(Documents, RemoveAllDocumentsEmptiesEveryForm)
{
    makeContext(2);
    for (int i = 0; i < 3; i++)
        addDocument("F");
    addDocument("G");
    EXPECT_EQ(3u, tmp.entries().size());
    EXPECT_EQ(1, dk_RemoveAllDocuments(ctx));
    EXPECT_EQ(0, ctx->documentLists[0].count);
    EXPECT_EQ(0, ctx->documentLists[1].count);
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_EQ(0, ctx->filePool->count);
    EXPECT_EQ(1, dk_RemoveAllDocuments(ctx));  // empty tables: still 1
}

TEST_F(Documents, RemoveDocumentFreesNotesOfTheFooter)
{
    makeContext();
    addDocument();
    dk_Document *doc = document(0);
    doc->footer.errorNotes = static_cast<dk_ErrorNote *>(dk_Malloc(sizeof(dk_ErrorNote)));
    doc->footer.errorCount = 1;
    doc->footer.ocrNotes = static_cast<dk_OcrNote *>(dk_Malloc(sizeof(dk_OcrNote)));
    doc->footer.ocrCount = 1;
    EXPECT_EQ(1, dk_RemoveDocument(ctx, "F", 0));
}  // TearDown checks both notes were released

// ---- Platform: temporary files ----------------------------------------------------------------

TEST(TempFile, CreatesEmptyPrivateUniqueFilesWithThePrefix)
{
    ScopedTempDir tmp;
    std::set<std::string> paths;
    for (int i = 0; i < 50; i++) {
        char path[navo::platform::temp_path_size];
        ASSERT_EQ(1, navo::platform::create_temp_file(path));
        std::string name(path);
        EXPECT_EQ(0u, name.rfind(tmp.path() + "/P2_", 0)) << name;
        EXPECT_EQ("", readFile(name));
        struct stat info;
        ASSERT_EQ(0, stat(path, &info));
        EXPECT_EQ(0600u, static_cast<unsigned>(info.st_mode & 0777));
        EXPECT_TRUE(S_ISREG(info.st_mode));
        paths.insert(name);
    }
    EXPECT_EQ(50u, paths.size());
    EXPECT_EQ(50u, tmp.entries().size());
}

TEST(TempFile, RefusesATooSmallBufferAndLeavesNoFile)
{
    ScopedTempDir tmp;
    char path[8] = "junk";
    EXPECT_EQ(0, navo::platform::create_temp_file(path));
    EXPECT_STREQ("", path);
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_FALSE(navo::platform::create_temp_file({}));
}

TEST(TempFile, FailsInADirectoryThatDoesNotExist)
{
    ScopedTempDir tmp;
    std::string missing = tmp.path() + "/missing";
    setenv("TMPDIR", missing.c_str(), 1);
    char path[navo::platform::temp_path_size];
    EXPECT_EQ(0, navo::platform::create_temp_file(path));
    EXPECT_STREQ("", path);
    setenv("TMPDIR", tmp.path().c_str(), 1);
    EXPECT_TRUE(tmp.entries().empty());
}

TEST(TempFile, WithoutTmpdirUsesTheSystemDirectory)
{
    ScopedTempDir tmp;  // restores TMPDIR afterwards
    unsetenv("TMPDIR");
    char path[navo::platform::temp_path_size];
    ASSERT_EQ(1, navo::platform::create_temp_file(path));
    std::string name(path);
    std::string system = P_tmpdir;
    while (system.size() > 1 && system.back() == '/')
        system.pop_back();
    EXPECT_EQ(0u, name.rfind(system + "/P2_", 0)) << name;
    EXPECT_EQ(0, std::remove(path));
}
