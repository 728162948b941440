// test_fields.cpp - store/field_access: dk_SetField, dk_GetField and the record cursor.
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

#include "store_fixture.h"

using namespace navo_test;

namespace {

class Fields : public StoreFixture {
protected:
    // One row of the walk-through table: cursor, count, store dirty, A L/D, B L/D, spool bytes.
    void expectRow(int step, int32_t cursor, int32_t count, int32_t storeDirty, const char *a, const char *b,
                   const std::string &bytes)
    {
        SCOPED_TRACE("walk-through step " + std::to_string(step));
        dk_lfBlock *s = store(0);
        EXPECT_EQ(cursor, s->currentRecord);
        EXPECT_EQ(count, s->recordCount);
        EXPECT_EQ(storeDirty, s->dirty);
        EXPECT_EQ(a, flags(0, 0));
        EXPECT_EQ(b, flags(0, 1));
        EXPECT_EQ(bytes, spool(0));
    }

    void blockReopen(int32_t docIndex)
    {
        ASSERT_EQ(nullptr, store(docIndex)->file);
        ASSERT_EQ(0, std::remove(store(docIndex)->path));
        ASSERT_EQ(0, mkdir(store(docIndex)->path, 0700));
    }

    void unblockReopen(int32_t docIndex) { ASSERT_EQ(0, rmdir(store(docIndex)->path)); }
};

}  // namespace

TEST_F(Fields, CursorWalkThrough)
{
    makeContext(1);
    char out[16];
    // 1: a new document writes blank record 0 at once
    EXPECT_EQ(0, addDocument());
    expectRow(1, 0, 1, 0, "1/0", "1/0", "     ");
    // 2: same record, only the cache changes
    EXPECT_EQ(1, set(0, 0, "A", "X"));
    expectRow(2, 0, 1, 1, "1/1", "1/0", "     ");
    // 3: the save writes A of record 0; blank record 1 is written whole
    EXPECT_EQ(1, addRecord(0));
    expectRow(3, 1, 2, 0, "1/0", "1/0", "X         ");
    // 4
    EXPECT_EQ(1, set(0, 1, "B", "YY"));
    expectRow(4, 1, 2, 1, "1/0", "1/1", "X         ");
    // 5: move; the save writes B of record 1 at byte 8; A is read from byte 0
    EXPECT_EQ(1, dk_GetField(ctx, "F", 0, "REP", 0, "A", out, sizeof out));
    EXPECT_STREQ("X  ", out);
    expectRow(5, 0, 2, 0, "1/0", "0/0", "X       YY");
    // 6: no move; B is read from byte 3
    EXPECT_EQ("  ", get(0, 0, "B"));
    expectRow(6, 0, 2, 0, "1/0", "1/0", "X       YY");
    // 7: no move; the cache answers
    EXPECT_EQ("X  ", get(0, 0, "A"));
    expectRow(7, 0, 2, 0, "1/0", "1/0", "X       YY");
    // 8: move with nothing to save; A set in the cache
    EXPECT_EQ(1, set(0, 1, "A", "Q"));
    expectRow(8, 1, 2, 1, "1/1", "0/0", "X       YY");
    // 9: no move; B is read from byte 8; the change to A stays in the cache
    EXPECT_EQ("YY", get(0, 1, "B"));
    expectRow(9, 1, 2, 1, "1/1", "1/0", "X       YY");
    // 10: another store takes the stream
    EXPECT_EQ(1, addDocument());
    EXPECT_EQ(nullptr, store(0)->file);
    expectRow(10, 1, 2, 1, "1/1", "1/0", "X       YY");
    // 11: move; the save reopens the file and writes A of record 1 at byte 5; A is read
    EXPECT_EQ("X  ", get(0, 0, "A"));
    expectRow(11, 0, 2, 0, "1/0", "0/0", "X    Q  YY");
    EXPECT_NE(nullptr, store(0)->file);
    EXPECT_EQ(nullptr, store(1)->file);
}

TEST_F(Fields, LongValueIsCutAndEmptyValueBlanksTheField)
{
    makeContext();
    addDocument();
    EXPECT_EQ(1, set(0, 0, "A", "abcdefgh"));
    EXPECT_EQ("abc", get(0, 0, "A"));
    EXPECT_STREQ("abc", store(0)->fields[0].text);
    EXPECT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("abc  ", spool(0));
    EXPECT_EQ(1, set(0, 0, "A", ""));
    EXPECT_EQ(1, store(0)->dirty);
    EXPECT_EQ("1/1", flags(0, 0));
    EXPECT_EQ("   ", get(0, 0, "A"));
    EXPECT_EQ(1, dk_lfBlockSave(document(0), store(0), repeatingBlock()));
    EXPECT_EQ("     ", spool(0));
    // in a single block as well
    EXPECT_EQ(1, set(0, 0, "X", "123456", "SNG"));
    EXPECT_EQ("1234", get(0, 0, "X", "SNG"));
}

TEST_F(Fields, OutputBufferSizes)
{
    makeContext();
    addDocument();
    ASSERT_EQ(1, set(0, 0, "X", "ab", "SNG"));
    char out[8];
    memset(out, '#', sizeof out);
    EXPECT_EQ(1, dk_GetField(ctx, "F", 0, "SNG", 0, "X", out, 5));  // width + 1
    EXPECT_STREQ("ab  ", out);
    memset(out, '#', sizeof out);
    EXPECT_EQ(1, dk_GetField(ctx, "F", 0, "SNG", 0, "X", out, 3));
    EXPECT_STREQ("ab", out);
    EXPECT_EQ('#', out[3]);
    memset(out, '#', sizeof out);
    EXPECT_EQ(1, dk_GetField(ctx, "F", 0, "SNG", 0, "X", out, 1));
    EXPECT_STREQ("", out);
    EXPECT_EQ('#', out[1]);
    memset(out, '#', sizeof out);
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "SNG", 0, "X", out, 0));
    EXPECT_EQ('#', out[0]);
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "SNG", 0, "X", nullptr, 5));
    // a spool read obeys the size as well
    ASSERT_EQ(1, set(0, 0, "A", "xyz"));
    EXPECT_EQ(1, addRecord(0));
    memset(out, '#', sizeof out);
    EXPECT_EQ(1, dk_GetField(ctx, "F", 0, "REP", 0, "A", out, 2));
    EXPECT_STREQ("x", out);
    EXPECT_STREQ("xyz", store(0)->fields[0].text);
}

TEST_F(Fields, SetAndReadBackInTheSameRecordNeedsNoFile)
{
    makeContext(1);
    addDocument();
    addDocument();  // document 0 loses its stream
    ASSERT_EQ(nullptr, store(0)->file);
    std::string path = store(0)->path;
    ASSERT_EQ(0, std::remove(path.c_str()));  // no file to read from at all
    EXPECT_EQ(1, set(0, 0, "A", "ab"));
    EXPECT_EQ("ab ", get(0, 0, "A"));
    EXPECT_EQ("  ", get(0, 0, "B"));  // loaded before the eviction: served from the cache
    EXPECT_EQ(nullptr, store(0)->file);
    EXPECT_FALSE(fileExists(path));
    EXPECT_EQ(store(1), ctx->filePool->blocks[0]);
}

TEST_F(Fields, ValueComesBackFromTheSpoolAfterLeavingTheRecord)
{
    makeContext();
    addDocument();
    for (int i = 1; i <= 5; i++)
        EXPECT_EQ(i, addRecord(0));
    EXPECT_EQ(1, set(0, 3, "A", "r3"));
    EXPECT_EQ(1, set(0, 3, "B", "b3"));
    EXPECT_EQ(1, set(0, 5, "A", "r5"));
    EXPECT_EQ(5, store(0)->currentRecord);
    EXPECT_EQ("r3 ", get(0, 3, "A"));
    EXPECT_EQ(3, store(0)->currentRecord);
    EXPECT_EQ("b3", get(0, 3, "B"));
    EXPECT_EQ("r5 ", get(0, 5, "A"));
    EXPECT_EQ(std::string(15, ' ') + "r3 b3" + std::string(5, ' ') + "r5   ", spool(0));
}

TEST_F(Fields, RecordIndexEqualToCountIsRefused)
{
    makeContext();
    addDocument();
    addRecord(0);
    char out[8] = "junk";
    EXPECT_EQ(0, set(0, 2, "A", "x"));
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 2, "A", out, sizeof out));
    EXPECT_STREQ("", out);
    EXPECT_EQ(0, set(0, -1, "A", "x"));
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", -1, "A", out, sizeof out));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    // a single block answers to record 0 only
    EXPECT_EQ(0, set(0, 1, "X", "x", "SNG"));
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "SNG", 1, "X", out, sizeof out));
    EXPECT_EQ(1, set(0, 0, "X", "x", "SNG"));
    EXPECT_EQ("x   ", get(0, 0, "X", "SNG"));
}

TEST_F(Fields, EvictedStoreIsReadCorrectlyInAllThreeCases)
{
    makeContext(1);
    addDocument();
    addRecord(0);
    ASSERT_EQ(1, set(0, 1, "A", "one"));
    ASSERT_EQ(1, set(0, 0, "A", "zer"));  // saves record 1; cursor on record 0
    ASSERT_EQ(1, set(0, 0, "B", "zb"));
    ASSERT_EQ("  ", get(0, 1, "B"));     // saves record 0, cursor on 1, B loaded, A not
    addDocument();                       // evicts document 0
    ASSERT_EQ(nullptr, store(0)->file);
    // loaded before the eviction: the cache answers and the stream stays closed
    EXPECT_EQ("  ", get(0, 1, "B"));
    EXPECT_EQ(nullptr, store(0)->file);
    // not loaded: reopened in place, cursor unchanged
    EXPECT_EQ("one", get(0, 1, "A"));
    EXPECT_NE(nullptr, store(0)->file);
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("1/0", flags(0, 0));
    // another record with a pending change: save, reopen, move
    ASSERT_EQ(1, set(0, 1, "B", "ob"));
    addDocument();  // evicts document 0 again
    ASSERT_EQ(nullptr, store(0)->file);
    EXPECT_EQ("zb", get(0, 0, "B"));
    EXPECT_EQ(0, store(0)->currentRecord);
    EXPECT_EQ("zerzboneob", spool(0));
    EXPECT_EQ("ob", get(0, 1, "B"));
}

TEST_F(Fields, UnknownFieldWithNewRecordStillMovesTheCursor)
{
    makeContext();
    addDocument();
    addRecord(0);
    ASSERT_EQ(1, set(0, 1, "A", "new"));
    EXPECT_EQ(0, set(0, 0, "NOPE", "x"));
    EXPECT_EQ(0, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("0/0", flags(0, 0));
    EXPECT_EQ("     new  ", spool(0));
    EXPECT_EQ("new", get(0, 1, "A"));
    EXPECT_EQ(1, store(0)->currentRecord);
    // dk_GetField looks the field up before it moves
    char out[8];
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 0, "NOPE", out, sizeof out));
    EXPECT_EQ(1, store(0)->currentRecord);
}

TEST_F(Fields, ValueWithALineFeedComesBackCutAfterIt)
{
    makeContext();
    addDocument();
    addRecord(0);
    ASSERT_EQ(1, set(0, 0, "A", "a\nb"));
    ASSERT_EQ(1, set(0, 0, "B", "cd"));
    EXPECT_EQ("a\nb", get(0, 0, "A"));  // the cache still holds it whole
    EXPECT_EQ("   ", get(0, 1, "A"));
    EXPECT_EQ(std::string("a\nbcd     ", 10), spool(0));
    EXPECT_EQ("a\n", get(0, 0, "A"));
    EXPECT_EQ(2u, strlen(store(0)->fields[0].text));
    EXPECT_EQ("cd", get(0, 0, "B"));
}

TEST_F(Fields, UnknownNamesAndIndicesFailWithoutChangingState)
{
    makeContext();
    addDocument();
    addDocument("G");
    char out[8];
    auto getFails = [&](const char *form, int32_t doc, const char *block, int32_t record, const char *field) {
        strcpy(out, "junk");
        EXPECT_EQ(0, dk_GetField(ctx, form, doc, block, record, field, out, sizeof out));
        EXPECT_STREQ("", out);
    };
    getFails("NOPE", 0, "REP", 0, "A");
    getFails("REP", 0, "REP", 0, "A");   // a tag is no form
    getFails("F", 1, "REP", 0, "A");     // docIndex at the count
    getFails("F", -1, "REP", 0, "A");
    getFails("F", 0, "NOPE", 0, "A");
    getFails("F", 0, "OTH", 0, "Z");     // a tag of another form
    getFails("F", 0, "REP", 0, "X");     // a field of another block
    getFails("F", 0, "REP", 0, "NOPE");
    getFails("G", 1, "OTH", 0, "Z");
    EXPECT_EQ(0, set(0, 0, "A", "x", "REP", "NOPE"));
    EXPECT_EQ(0, set(0, 0, "A", "x", "OTH"));
    EXPECT_EQ(0, set(0, 0, "Z", "x", "SNG"));
    EXPECT_EQ(0, set(0, 0, "X", "x"));
    EXPECT_EQ(0, set(1, 0, "A", "x"));
    EXPECT_EQ(0, set(-1, 0, "A", "x"));
    EXPECT_EQ(0, set(0, 0, "A", nullptr));
    EXPECT_EQ(0, dk_SetField(nullptr, "F", 0, "REP", 0, "A", "x"));
    EXPECT_EQ(0, dk_SetField(ctx, "F", 0, "REP", 0, nullptr, "x"));
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("     ", spool(0));
}

TEST_F(Fields, FailedSaveOfTheOldRecordLeavesTheCursor)
{
    makeContext(1);
    addDocument();
    addRecord(0);
    ASSERT_EQ(1, set(0, 1, "A", "abc"));
    addDocument();
    blockReopen(0);
    char out[8] = "junk";
    EXPECT_EQ(0, set(0, 0, "A", "x"));
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 0, "A", out, sizeof out));
    EXPECT_STREQ("", out);
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("1/1", flags(0, 0));
    EXPECT_EQ("abc", get(0, 1, "A"));
    unblockReopen(0);
    EXPECT_EQ("", get(0, 0, "A"));  // the file was made anew: record 0 is a hole of NULs
    EXPECT_EQ(std::string("\0\0\0\0\0abc", 8), spool(0));
}

TEST_F(Fields, FailedReopenLeavesTheCursor)
{
    makeContext(1);
    addDocument();
    addRecord(0);
    addDocument();
    blockReopen(0);
    char out[8] = "junk";
    EXPECT_EQ(0, set(0, 0, "A", "x"));
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 0, "A", out, sizeof out));
    EXPECT_STREQ("", out);
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ(0, store(0)->dirty);
    EXPECT_EQ("1/0", flags(0, 0));
    unblockReopen(0);
}

TEST_F(Fields, ReadOfAnEmptiedSpoolFileFails)
{
    makeContext(1);
    addDocument();
    addRecord(0);
    ASSERT_EQ(1, set(0, 1, "A", "abc"));
    ASSERT_EQ("   ", get(0, 0, "A"));
    addDocument();  // evicts document 0
    writeFile(store(0)->path, "");
    char out[8] = "junk";
    // not loaded in the same record: the reopen finds nothing to read
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 0, "B", out, sizeof out));
    EXPECT_STREQ("", out);
    EXPECT_EQ("0/0", flags(0, 1));
    // another record: the cursor stays on the new record, and the slot stays not loaded
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 1, "B", out, sizeof out));
    EXPECT_STREQ("", out);
    EXPECT_EQ(1, store(0)->currentRecord);
    EXPECT_EQ("0/0", flags(0, 1));
    // a deleted file is made anew, empty, and the read fails the same way
    std::remove(store(0)->path);
    addDocument();
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 0, "A", out, sizeof out));
    EXPECT_TRUE(fileExists(store(0)->path));
    EXPECT_EQ(0, store(0)->currentRecord);
}

TEST_F(Fields, ShortSpoolFileReadsLikeFgets)
{
    makeContext(1);
    addDocument();
    addRecord(0);
    addDocument();  // evicts document 0, whose cursor stands on record 1
    writeFile(store(0)->path, "abcdefg");
    EXPECT_EQ("abc", get(0, 0, "A"));
    EXPECT_EQ("de", get(0, 0, "B"));
    EXPECT_EQ("fg", get(0, 1, "A"));  // a field cut by the end of the file comes back short
    char out[8] = "junk";
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "REP", 1, "B", out, sizeof out));  // nothing left
    EXPECT_STREQ("", out);
    EXPECT_EQ("1/0", flags(0, 0));
    EXPECT_EQ("0/0", flags(0, 1));
}

TEST_F(Fields, SingleBlockOfManyDocuments)
{
    makeContext();
    for (int i = 0; i < 4; i++)
        addDocument();
    for (int i = 0; i < 4; i++)
        ASSERT_EQ(1, set(i, 0, "Y", std::to_string(i).c_str(), "SNG"));
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(std::to_string(i) + " ", get(i, 0, "Y", "SNG"));
}
