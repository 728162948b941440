// test_spool.cpp - store/block_spool: block stores, the spool file and the file pool.
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "store_fixture.h"

#include "store/block_spool.hpp"

using namespace navo_test;

namespace {

class Spool : public StoreFixture {
protected:
    std::vector<dk_lfBlock *> pool()
    {
        std::vector<dk_lfBlock *> slots;
        for (int i = 0; i < ctx->filePool->count; i++)
            slots.push_back(ctx->filePool->blocks[i]);
        return slots;
    }

    // Replaces the spool file of an evicted store by a directory, so that every open fails.
    void blockReopen(int32_t docIndex)
    {
        ASSERT_EQ(nullptr, store(docIndex)->file);
        ASSERT_EQ(0, std::remove(store(docIndex)->path));
        ASSERT_EQ(0, mkdir(store(docIndex)->path, 0700));
    }
};

}  // namespace

TEST_F(Spool, NewRepeatingBlockHasOneBlankRecordThatEvictionKeeps)
{
    makeContext(1);
    addDocument();
    EXPECT_EQ("     ", spool(0));
    EXPECT_EQ(0, store(0)->currentRecord);
    EXPECT_EQ(1, store(0)->recordCount);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("1/0", flags(0, 1));
    addDocument();
    EXPECT_EQ(nullptr, store(0)->file);
    EXPECT_EQ("     ", spool(0));
    EXPECT_EQ("     ", spool(1));
}

TEST_F(Spool, SingleBlockNeverCreatesAFile)
{
    makeContext(1);
    addDocument("G");
    for (int i = 0; i < 20; i++) {
        ASSERT_EQ(1, set(0, 0, "Z", std::to_string(i).c_str(), "OTH", "G"));
        EXPECT_EQ((std::to_string(i) + "     ").substr(0, 5), get(0, 0, "Z", "OTH", "G"));
    }
    dk_lfBlock *single = ctx->documentLists[1].documents[0].blocks[0];
    EXPECT_EQ(nullptr, single->path);
    EXPECT_EQ(nullptr, single->file);
    EXPECT_EQ(1, single->dirty);
    EXPECT_EQ("1/1", std::to_string(single->fields[0].loaded) + "/" + std::to_string(single->fields[0].dirty));
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_EQ(0, ctx->filePool->count);
    // the single block of a form that also repeats: still no file of its own
    addDocument("F");
    ASSERT_EQ(1, set(0, 0, "X", "abcd", "SNG"));
    EXPECT_EQ("abcd", get(0, 0, "X", "SNG"));
    EXPECT_EQ(nullptr, store(0, kSingleRef)->path);
    EXPECT_EQ(1u, tmp.entries().size());
}

TEST_F(Spool, EvictionTakesTheLastSlot)
{
    makeContext(3);
    for (int i = 0; i < 5; i++)
        addDocument();
    // [A, B, C] + D gives [D, A, B]; + E gives [E, D, A]
    dk_lfBlock *A = store(0), *B = store(1), *C = store(2), *D = store(3), *E = store(4);
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, D, A}), pool());
    EXPECT_EQ(nullptr, B->file);
    EXPECT_EQ(nullptr, C->file);
    EXPECT_NE(nullptr, A->file);
    EXPECT_EQ(3, ctx->filePool->capacity);
    EXPECT_EQ(3, ctx->filePool->count);
}

TEST_F(Spool, EvictionExampleStepByStep)
{
    makeContext(3);
    for (int i = 0; i < 3; i++)
        addDocument();
    dk_lfBlock *A = store(0), *B = store(1), *C = store(2);
    EXPECT_EQ((std::vector<dk_lfBlock *>{A, B, C}), pool());
    addDocument();
    dk_lfBlock *D = store(3);
    EXPECT_EQ((std::vector<dk_lfBlock *>{D, A, B}), pool());
    EXPECT_EQ(nullptr, C->file);
    // eviction closes the stream and nothing more
    EXPECT_EQ(0, C->dirty);
    EXPECT_EQ(1, C->recordCount);
    EXPECT_EQ("1/0", flags(2, 0));
    addDocument();
    dk_lfBlock *E = store(4);
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, D, A}), pool());
    EXPECT_EQ(nullptr, B->file);
    // using a stream does not reorder the pool
    EXPECT_EQ("  ", get(0, 0, "B"));
    EXPECT_EQ(1, set(3, 0, "A", "ddd"));
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, D, A}), pool());
}

TEST_F(Spool, CapacityOneKeepsOneStreamOpen)
{
    makeContext(1);
    addDocument();
    addDocument();
    addDocument();
    for (int round = 0; round < 3; round++) {
        for (int doc = 0; doc < 3; doc++) {
            std::string value = std::to_string(round) + std::to_string(doc);
            ASSERT_EQ(1, set(doc, 0, "A", value.c_str()));
            int32_t record = addRecord(doc);  // saves record 0, so this store takes the stream
            EXPECT_EQ(round + 1, record);
            EXPECT_EQ(1, ctx->filePool->count);
            EXPECT_EQ(store(doc), ctx->filePool->blocks[0]);
            for (int other = 0; other < 3; other++)
                EXPECT_EQ(other == doc, store(other)->file != nullptr);
        }
    }
    for (int doc = 0; doc < 3; doc++)
        EXPECT_EQ("2" + std::to_string(doc) + " ", get(doc, 0, "A"));
}

TEST_F(Spool, CapacityTwoWithThreeDocumentsKeepsAllData)
{
    makeContext(2);
    for (int doc = 0; doc < 3; doc++) {
        addDocument();
        EXPECT_EQ(1, addRecord(doc));
    }
    for (int doc = 0; doc < 3; doc++)
        ASSERT_EQ(1, set(doc, 1, "B", ("b" + std::to_string(doc)).c_str()));
    for (int doc = 0; doc < 3; doc++)
        EXPECT_EQ(1, store(doc)->dirty);
    // moving each cursor saves its record, reopening the file where the store was evicted
    for (int doc = 0; doc < 3; doc++) {
        EXPECT_EQ("   ", get(doc, 0, "A"));
        EXPECT_EQ(0, store(doc)->dirty);
        EXPECT_EQ("        b" + std::to_string(doc), spool(doc));
        EXPECT_EQ(2, ctx->filePool->count);
    }
    for (int doc = 0; doc < 3; doc++)
        EXPECT_EQ("b" + std::to_string(doc), get(doc, 1, "B"));
}

TEST_F(Spool, DeletedSpoolFileOfAnEvictedStoreIsCreatedAgain)
{
    makeContext(1);
    addDocument();
    addDocument();
    ASSERT_EQ(nullptr, store(0)->file);
    std::string path = store(0)->path;
    ASSERT_EQ(0, std::remove(path.c_str()));
    ASSERT_EQ(1, set(0, 0, "A", "abc"));
    EXPECT_EQ(1, addRecord(0));  // the save reopens: an empty file is made, and A is written
    EXPECT_TRUE(fileExists(path));
    EXPECT_EQ(std::string("abc\0\0     ", 10), spool(0));
    EXPECT_EQ("abc", get(0, 0, "A"));
    EXPECT_EQ("", get(0, 0, "B"));  // the bytes the file holds there are NULs
    // Made anew, it is as private as a new spool file, whatever the umask says.
    EXPECT_EQ(0600u, permissions(path));
}

// A link put where a deleted spool file stood is neither followed nor truncated: the reopen
// fails like any failed open, and the file the link points to keeps its bytes.
TEST_F(Spool, LinkInPlaceOfASpoolFileIsNotFollowed)
{
    const std::string victim = tmp.path() + "/victim";
    for (bool dangling : {true, false}) {
        makeContext(1);
        addDocument();
        addDocument();
        ASSERT_EQ(nullptr, store(0)->file);
        const std::string path = store(0)->path;
        writeFile(victim, "precious");
        ASSERT_EQ(0, std::remove(path.c_str()));
        ASSERT_EQ(0, symlink(dangling ? (victim + "-missing").c_str() : victim.c_str(), path.c_str()));
        ASSERT_EQ(1, set(0, 0, "A", "abc"));
        int32_t record = 5;
        EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "REP", &record)) << dangling;
        EXPECT_EQ(-1, record);
        EXPECT_EQ(nullptr, store(0)->file);
        struct stat info;
        ASSERT_EQ(0, lstat(path.c_str(), &info));
        EXPECT_TRUE(S_ISLNK(info.st_mode));
        EXPECT_FALSE(fileExists(victim + "-missing"));
        EXPECT_EQ("precious", readFile(victim));
        std::remove(victim.c_str());
        // The document goes with its store; the removal deletes the link, not what it points to.
        ASSERT_EQ(1, dk_Destroy(&ctx));
    }
}

TEST_F(Spool, SaveOfACleanStoreReturns0)
{
    makeContext();
    addDocument();
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ(0, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("     ", spool(0));
}

TEST_F(Spool, SaveWritesOnlyTheChangedFields)
{
    makeContext(1);
    addDocument();
    addDocument();  // evicts document 0
    writeFile(store(0)->path, "zzzzz");
    ASSERT_EQ(1, set(0, 0, "B", "YY"));
    EXPECT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("zzzYY", spool(0));
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("1/0", flags(0, 1));
    EXPECT_EQ(store(0), ctx->filePool->blocks[0]);  // the save reopened it through the pool
    EXPECT_EQ(nullptr, store(1)->file);
}

TEST_F(Spool, SaveRefusesSingleBlocksAndForeignArguments)
{
    makeContext();
    addDocument();
    const dk_dfDefinition *definition = &ctx->definitions->items[0];
    const dk_dfBlock *single = &definition->blocks[definition->forms[0].refs[kSingleRef].blockIndex];
    EXPECT_EQ(1, store(0, kSingleRef)->dirty);
    EXPECT_EQ(0, dk_lfBlockSave(document(0), store(0, kSingleRef), single));
    EXPECT_EQ(1, store(0, kSingleRef)->dirty);
    ASSERT_EQ(1, set(0, 0, "A", "q"));
    EXPECT_EQ(0, dk_lfBlockSave(document(0), store(0), single));  // not the block of this store
    EXPECT_EQ(1, store(0)->dirty);
    EXPECT_EQ(0, dk_lfBlockSave(nullptr, store(0), repeatingBlock()));
    EXPECT_EQ(0, dk_lfBlockSave(document(0), nullptr, repeatingBlock()));
    EXPECT_EQ(0, dk_lfBlockSave(document(0), store(0), nullptr));
    EXPECT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("q    ", spool(0));
}

TEST_F(Spool, FailedOpenTakesNoSlotAndFailedSaveKeepsTheChanges)
{
    makeContext(1);
    addDocument();
    addDocument();
    ASSERT_EQ(1, set(0, 0, "A", "abc"));
    std::string path = store(0)->path;
    blockReopen(0);
    EXPECT_EQ(0, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ(nullptr, store(0)->file);
    // the victim was evicted all the same, and no entry stands without a stream
    EXPECT_EQ(0, ctx->filePool->count);
    EXPECT_EQ(nullptr, store(1)->file);
    // the change is still pending, and goes out once the file can be opened again
    EXPECT_EQ(1, store(0)->dirty);
    EXPECT_EQ("1/1", flags(0, 0));
    ASSERT_EQ(0, rmdir(path.c_str()));
    EXPECT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("abc", spool(0));
    EXPECT_EQ(1, ctx->filePool->count);
    EXPECT_EQ(store(0), ctx->filePool->blocks[0]);
}

TEST_F(Spool, SpoolFilesArePrivateAndNamedWithThePrefix)
{
    makeContext(2);
    for (int i = 0; i < 4; i++)
        addDocument();
    std::vector<std::string> names = tmp.entries();
    ASSERT_EQ(4u, names.size());
    for (const std::string &name : names) {
        EXPECT_EQ(0u, name.rfind("P2_", 0)) << name;
        EXPECT_EQ(0600u, permissions(tmp.path() + "/" + name)) << name;
    }
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(0u, std::string(store(i)->path).rfind(tmp.path() + "/P2_", 0));
}

TEST_F(Spool, FailedPathCopyDeletesTheNewFile)
{
    makeContext();
    FailureInjection failures;
    // the path copy is the last allocation of an add (see Documents.AddDocumentAllocationFailures)
    failures.failNth(12);
    int32_t index = 0;
    EXPECT_EQ(0, dk_AddDocument(ctx, "F", &index));
    failures.off();
    EXPECT_EQ(-1, index);
    EXPECT_TRUE(tmp.entries().empty());
    EXPECT_EQ(0, ctx->documentLists[0].count);
}
