// test_records.cpp - store/repeating_records: dk_AddBlock, dk_RemoveBlock and dk_GetBlockCount.
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

#include "store_fixture.h"

using namespace navo_test;

namespace {

class Records : public StoreFixture {
protected:
    // Fills records 0 .. count - 1 of document `doc` with A = "a<i>", B = "b<i>".
    void fill(int32_t doc, int32_t count)
    {
        for (int32_t i = 1; i < count; i++)
            ASSERT_EQ(i, addRecord(doc));
        for (int32_t i = 0; i < count; i++) {
            ASSERT_EQ(1, set(doc, i, "A", ("a" + std::to_string(i)).c_str()));
            ASSERT_EQ(1, set(doc, i, "B", ("b" + std::to_string(i)).c_str()));
        }
    }

    static std::string record(int i) { return "a" + std::to_string(i) + " b" + std::to_string(i); }

    int32_t remove(int32_t doc, int32_t record) { return dk_RemoveBlock(ctx, "F", doc, "REP", record); }
};

}  // namespace

TEST_F(Records, NewDocumentCountsOneAndFirstAddYieldsOne)
{
    makeContext();
    addDocument();
    EXPECT_EQ(1, recordCount(0));
    int32_t index = 77;
    EXPECT_EQ(1, dk_AddBlock(ctx, "F", 0, "REP", &index));
    EXPECT_EQ(1, index);
    EXPECT_EQ(2, recordCount(0));
    // after the add: cursor on the new record, blank on file, cache blank, store clean
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("1/0", flags(0, 1));
    EXPECT_EQ(std::string(10, ' '), spool(0));
}

TEST_F(Records, SingleBlocksAreRefused)
{
    makeContext();
    addDocument();
    int32_t out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "F", 0, "SNG", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "SNG", &out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 0, "SNG", 0));
    EXPECT_EQ(1, store(0, kSingleRef)->recordCount);
}

TEST_F(Records, UnknownFormDocumentOrTagIsRefused)
{
    makeContext();
    addDocument();
    addDocument("G");
    int32_t out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "NOPE", 0, "REP", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "F", 1, "REP", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "F", -1, "REP", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "F", 0, "NOPE", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "G", 0, "REP", &out));  // a tag of another form
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 1, "REP", &out));
    EXPECT_EQ(-1, out);
    out = 5;
    EXPECT_EQ(0, dk_AddBlock(ctx, "NOPE", 0, "REP", &out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "REP", nullptr));
    EXPECT_EQ(0, dk_GetBlockCount(ctx, "F", 0, "REP", nullptr));
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 1, "REP", 0));
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 0, "NOPE", 0));
    EXPECT_EQ(0, dk_RemoveBlock(nullptr, "F", 0, "REP", 0));
    EXPECT_EQ(1, recordCount(0));
}

TEST_F(Records, AddAndRemoveDownToOneInEveryDocument)
{
    makeContext(2);
    for (int doc = 0; doc < 3; doc++) {
        addDocument();
        fill(doc, 4);
    }
    for (int doc = 2; doc >= 0; doc--) {
        for (int32_t count = 4; count > 1; count--) {
            EXPECT_EQ(count, recordCount(doc));
            EXPECT_EQ(1, remove(doc, 0));
            EXPECT_EQ(count - 1, recordCount(doc));
        }
        EXPECT_EQ(0, remove(doc, 0));
        EXPECT_EQ(0, remove(doc, 5));
        EXPECT_EQ(1, recordCount(doc));
        EXPECT_EQ("a3 ", get(doc, 0, "A"));
        EXPECT_EQ("b3", get(doc, 0, "B"));
    }
    // an only document of its form
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "F", 1));
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "F", 1));
    EXPECT_EQ(1, addRecord(0));
    EXPECT_EQ(1, remove(0, 1));
    EXPECT_EQ(0, remove(0, 0));
    EXPECT_EQ(1, recordCount(0));
}

TEST_F(Records, RemovingRecordOneOfThreeMovesRecordTwoDown)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ(record(0) + record(1) + record(2), spool(0));
    EXPECT_EQ(1, remove(0, 1));
    EXPECT_EQ(2, recordCount(0));
    // the file is not shortened: the old last record stays behind as stale bytes
    EXPECT_EQ(record(0) + record(2) + record(2), spool(0));
    EXPECT_EQ("a2 ", get(0, 1, "A"));
    EXPECT_EQ("b2", get(0, 1, "B"));
    EXPECT_EQ("a0 ", get(0, 0, "A"));
}

TEST_F(Records, RemovingTheLastRecordMovesNothingAndTheNextAddIsBlank)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ("a0 ", get(0, 0, "A"));  // saves record 2, cursor on 0
    std::string before = spool(0);
    EXPECT_EQ(1, remove(0, 2));
    EXPECT_EQ(before, spool(0));
    EXPECT_EQ(2, recordCount(0));
    EXPECT_EQ(2, addRecord(0));
    EXPECT_EQ("   ", get(0, 2, "A"));
    EXPECT_EQ("  ", get(0, 2, "B"));
    EXPECT_EQ(record(0) + record(1) + "     ", spool(0));
}

TEST_F(Records, RemovingTheRecordUnderTheCursorPutsItOnRecordZero)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ(2, store(0)->currentRecord);
    ASSERT_EQ(1, set(0, 1, "A", "new"));  // cursor on 1, dirty
    EXPECT_EQ(1, remove(0, 1));
    EXPECT_EQ(0, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("0/0", flags(0, 0));
    EXPECT_EQ("0/0", flags(0, 1));
    EXPECT_EQ("a0 ", get(0, 0, "A"));
    EXPECT_EQ("b0", get(0, 0, "B"));
    EXPECT_EQ("a2 ", get(0, 1, "A"));
    EXPECT_EQ(record(0) + record(2) + record(2), spool(0));
}

TEST_F(Records, RemovingRecordZeroUnderTheCursorReadsTheFormerRecordOne)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ("a0 ", get(0, 0, "A"));
    EXPECT_EQ(1, remove(0, 0));
    EXPECT_EQ(0, store(0)->currentRecord);
    EXPECT_EQ("0/0", flags(0, 0));
    EXPECT_EQ("a1 ", get(0, 0, "A"));
    EXPECT_EQ("b1", get(0, 0, "B"));
    EXPECT_EQ(2, recordCount(0));
}

TEST_F(Records, CursorAfterTheRemovedRecordFollowsItsRecord)
{
    makeContext();
    addDocument();
    fill(0, 4);
    ASSERT_EQ("a2 ", get(0, 2, "A"));  // cursor on 2, A loaded, B not
    EXPECT_EQ(1, remove(0, 0));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("1/0", flags(0, 0));  // cache unchanged and still valid
    EXPECT_EQ("0/0", flags(0, 1));
    EXPECT_EQ("a2 ", get(0, 1, "A"));
    EXPECT_EQ("b2", get(0, 1, "B"));  // read from the record's new place
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("a3 ", get(0, 2, "A"));
}

TEST_F(Records, CursorBeforeTheRemovedRecordStays)
{
    makeContext();
    addDocument();
    fill(0, 4);
    ASSERT_EQ("a1 ", get(0, 1, "A"));
    EXPECT_EQ(1, remove(0, 2));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("0/0", flags(0, 1));
    EXPECT_EQ("b1", get(0, 1, "B"));
    EXPECT_EQ("a3 ", get(0, 2, "A"));
    EXPECT_EQ(3, recordCount(0));
}

TEST_F(Records, PendingChangeIsSavedBeforeRecordsMove)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ(1, set(0, 2, "B", "ZZ"));  // cursor 2, dirty
    EXPECT_EQ(1, remove(0, 0));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ(record(1) + "a2 ZZ" + "a2 ZZ", spool(0));
    EXPECT_EQ("ZZ", get(0, 1, "B"));
}

TEST_F(Records, RemoveOnAnEvictedStoreReopensAndMoves)
{
    makeContext(1);
    addDocument();
    fill(0, 3);
    ASSERT_EQ("a0 ", get(0, 0, "A"));  // record 2 saved; the record under the cursor is clean
    addDocument();
    ASSERT_EQ(nullptr, store(0)->file);
    EXPECT_EQ(1, remove(0, 1));
    EXPECT_NE(nullptr, store(0)->file);
    EXPECT_EQ(nullptr, store(1)->file);
    EXPECT_EQ(record(0) + record(2) + record(2), spool(0));
    EXPECT_EQ("b2", get(0, 1, "B"));
}

TEST_F(Records, IndexBeyondTheCountRemovesNothingAndNegativeIsRefused)
{
    makeContext();
    addDocument();
    fill(0, 2);
    std::string before = spool(0);
    EXPECT_EQ(1, remove(0, 2));
    EXPECT_EQ(1, remove(0, 100));
    EXPECT_EQ(2, recordCount(0));
    EXPECT_EQ(0, remove(0, -1));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(2, recordCount(0));
}

TEST_F(Records, LastRemainingRecordCannotBeRemoved)
{
    makeContext();
    addDocument();
    ASSERT_EQ(1, set(0, 0, "A", "one"));
    EXPECT_EQ(0, remove(0, 0));
    EXPECT_EQ(0, remove(0, 3));
    EXPECT_EQ(1, store(0)->dirty);  // no save either
    EXPECT_EQ("1/1", flags(0, 0));
    EXPECT_EQ("     ", spool(0));
}

TEST_F(Records, AddBlockMakesNoAllocation)
{
    makeContext();
    addDocument();
    FailureInjection failures;
    int32_t result = 0;
    int32_t index = -1;
    int64_t n = 1;
    for (; n < 20; n++) {
        failures.failNth(n);
        result = dk_AddBlock(ctx, "F", 0, "REP", &index);
        failures.off();
        if (result == 1)
            break;
        EXPECT_EQ(-1, index);
        EXPECT_EQ(1, recordCount(0));
    }
    EXPECT_EQ(1, result);
    EXPECT_EQ(1, n);  // succeeded at once: dk_AddBlock allocates nothing
    EXPECT_EQ(1, index);
    EXPECT_EQ(2, recordCount(0));
}

TEST_F(Records, RemoveBlockBufferFailureLeavesTheCursorUpdated)
{
    makeContext();
    addDocument();
    fill(0, 3);
    ASSERT_EQ(2, store(0)->currentRecord);
    FailureInjection failures;
    failures.failNth(1);
    EXPECT_EQ(0, remove(0, 0));
    failures.off();
    EXPECT_EQ(1, store(0)->currentRecord);  // the cursor moved before the buffer failed
    EXPECT_EQ(3, recordCount(0));
    EXPECT_EQ(record(0) + record(1) + record(2), spool(0));
}

TEST_F(Records, FailedAddBlockKeepsTheCountAndTheNextAddTakesTheIndexAgain)
{
    makeContext(1);
    addDocument();
    fill(0, 2);
    ASSERT_EQ("a0 ", get(0, 0, "A"));
    addDocument();
    std::string path = store(0)->path;
    std::string before = spool(0);
    ASSERT_EQ(0, std::remove(path.c_str()));
    ASSERT_EQ(0, mkdir(path.c_str(), 0700));
    int32_t index = 9;
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "REP", &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(2, recordCount(0));
    EXPECT_EQ(2, store(0)->currentRecord);  // stays on the index given up
    ASSERT_EQ(0, rmdir(path.c_str()));
    writeFile(path, before);
    EXPECT_EQ(2, addRecord(0));
    EXPECT_EQ(3, recordCount(0));
    EXPECT_EQ(before + "     ", spool(0));
    EXPECT_EQ("a1 ", get(0, 1, "A"));
}

TEST_F(Records, FailureInTheMiddleOfTheMoveLeavesTheCountUnchanged)
{
    makeContext(1);
    addDocument();
    fill(0, 3);
    ASSERT_EQ("a0 ", get(0, 0, "A"));
    addDocument();
    writeFile(store(0)->path, record(0) + record(1));  // record 2 is gone from the file
    EXPECT_EQ(0, remove(0, 0));
    EXPECT_EQ(3, recordCount(0));
    EXPECT_EQ(0, store(0)->currentRecord);
    // record 1 reached its new place before record 2 could not be read
    EXPECT_EQ(record(1) + record(1), spool(0));
}
