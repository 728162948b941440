// test_store.cpp - documents, block stores and their spool files, field access by name, records of
// repeating blocks and packed access, each through the calls a host makes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#if !defined(_WIN32)
#include <unistd.h>
#endif
#include <set>
#include <string>
#include <vector>

#include "navo_example.h"
#include "test_support.h"

using namespace navo_test;

namespace {

// Form F: single block SNG (X width 4, Y width 2), then repeating block REP (A width 3, B width
// 2, record length 5). Form G: one single block OTH (Z width 5).
const char kStoreDefinition[] =
    "Wersja T1\n\n[F, F]\nSingle, 1, 1\nRep, 1, -1\n\n[G, G]\nOther, 1, 1\n\n"
    "<Single, SNG>\nX, 4, t\nY, 2, t\n\n<Rep, REP>\nA, 3, t\nB, 2, t\n\n<Other, OTH>\nZ, 5, t\n";

class Store : public ::testing::Test {
protected:
    void SetUp() override { live_ = navo::memory::live_blocks(); }
    void TearDown() override
    {
        navo::memory::fail_after(0);
        destroyContext(ctx);
        EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
        EXPECT_EQ(live_, navo::memory::live_blocks());
    }
    void make(int32_t pool = 10, const char *definition = kStoreDefinition) { ctx = makeContext(definition, pool); }
    int32_t add(const char *form = "F")
    {
        int32_t doc = -1;
        EXPECT_EQ(1, dk_AddDocument(ctx, form, &doc));
        return doc;
    }
    int32_t addRecord(int32_t doc)
    {
        int32_t record = -1;
        EXPECT_EQ(1, dk_AddBlock(ctx, "F", doc, "REP", &record));
        return record;
    }
    int32_t count(int32_t doc, const char *form = "F", const char *block = "REP")
    {
        int32_t out = -5;
        dk_GetBlockCount(ctx, form, doc, block, &out);
        return out;
    }
    int32_t docs(const char *form = "F")
    {
        int32_t out = -5;
        dk_GetDocCount(ctx, form, &out);
        return out;
    }
    int32_t set(int32_t doc, int32_t record, const char *name, const char *value, const char *block = "REP")
    {
        return dk_SetField(ctx, "F", doc, block, record, name, value);
    }
    std::string get(int32_t doc, int32_t record, const char *name, const char *block = "REP")
    {
        return field(ctx, "F", doc, block, record, name);
    }
    // Records of document `doc` as "A|B" joined by spaces, read back through dk_GetField.
    std::string records(int32_t doc)
    {
        std::string text;
        for (int32_t r = 0; r < count(doc); r++)
            text += (r ? " " : "") + get(doc, r, "A") + "|" + get(doc, r, "B");
        return text;
    }
    void fill(int32_t doc, int n)  // n records "a<i>" / "b<i>"
    {
        for (int i = 0; i < n; i++) {
            if (i > 0)
                addRecord(doc);
            ASSERT_EQ(1, set(doc, i, "A", ("a" + std::to_string(i)).c_str()));
            ASSERT_EQ(1, set(doc, i, "B", ("b" + std::to_string(i)).c_str()));
        }
    }
    dk_lfBlock *store(int32_t doc) { return ctx->documentLists[0].documents[doc].blocks[1]; }
    std::vector<dk_lfBlock *> pool()
    {
        return std::vector<dk_lfBlock *>(ctx->filePool->blocks, ctx->filePool->blocks + ctx->filePool->count);
    }

    ScopedTempDir tmp;  // first: TMPDIR is private before any spool file is made
    dk_Context *ctx = nullptr;
    int64_t live_ = 0;
};

}  // namespace

// ---- documents ----------------------------------------------------------------------------------

TEST_F(Store, DocumentsAreAddedCountedAndRemovedPerForm)
{
    make();
    EXPECT_EQ(0, dk_1fGetIDFormularza(ctx, "F"));
    EXPECT_EQ(1, dk_1fGetIDFormularza(ctx, "G"));
    EXPECT_EQ(-1, dk_1fGetIDFormularza(ctx, "NIEMA"));
    EXPECT_EQ(-1, dk_1fGetIDFormularza(nullptr, "F"));
    EXPECT_EQ(0, docs());
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(i, add());
        ASSERT_EQ(1, set(i, 0, "X", ("d" + std::to_string(i)).c_str(), "SNG"));
    }
    EXPECT_EQ(0, add("G"));
    EXPECT_EQ(0, dk_AddDocument(ctx, "F", nullptr));
    EXPECT_EQ(3, docs());
    EXPECT_EQ(1, docs("G"));
    EXPECT_EQ(3u, tmp.spoolFiles().size());  // one per repeating block, none for single blocks
    for (const char *form : {"NIEMA", "SNG", "X"}) {
        int32_t out = 7;
        EXPECT_EQ(0, dk_AddDocument(ctx, form, &out)) << form;
        EXPECT_EQ(-1, out);
        EXPECT_EQ(0, dk_GetDocCount(ctx, form, &out));
        EXPECT_EQ(-1, out);
        EXPECT_EQ(0, dk_RemoveDocuments(ctx, form));
    }
    for (int32_t bad : {-1, 3})
        EXPECT_EQ(0, dk_RemoveDocument(ctx, "F", bad));
    // Removing from the middle moves the later ones down, with their data.
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "F", 1));
    EXPECT_EQ(2, docs());
    EXPECT_EQ("d0  ", get(0, 0, "X", "SNG"));
    EXPECT_EQ("d2  ", get(1, 0, "X", "SNG"));
    EXPECT_EQ(2u, tmp.spoolFiles().size());
    EXPECT_EQ(1, dk_RemoveDocuments(ctx, "F"));
    EXPECT_EQ(0, docs());
    EXPECT_EQ(1, docs("G"));
    EXPECT_EQ(1, dk_RemoveDocuments(ctx, "F"));  // a form without documents: nothing to do
    EXPECT_EQ(0, dk_RemoveDocument(ctx, "F", 0));
    EXPECT_EQ(0, add());
    EXPECT_EQ(1, dk_RemoveAllDocuments(ctx));
    EXPECT_EQ(0, docs());
    EXPECT_EQ(0, docs("G"));
    EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
}

TEST_F(Store, TablesAreMadeAgainOverDocuments)
{
    make(2);
    fill(add(), 3);
    add();
    add("G");
    // New tables over held documents: the old ones are left out of reach, files and all.
    dk_DocumentList *oldLists = ctx->documentLists;
    dk_lfFilePool *oldPool = ctx->filePool;
    ASSERT_EQ(1, dk_InitDocuments(ctx, 4));
    EXPECT_EQ(0, docs());
    EXPECT_EQ(0, docs("G"));
    EXPECT_EQ(2u, tmp.spoolFiles().size());
    EXPECT_EQ(4, ctx->filePool->capacity);
    EXPECT_EQ(0, add());
    EXPECT_EQ(3u, tmp.spoolFiles().size());
    // Taken back by hand: the new tables emptied and released, the old ones put back.
    ASSERT_EQ(1, dk_RemoveAllDocuments(ctx));
    dk_Free(ctx->documentLists);
    dk_Free(ctx->filePool->blocks);
    dk_Free(ctx->filePool);
    ctx->documentLists = oldLists;
    ctx->filePool = oldPool;
    EXPECT_EQ(2, docs());
    // Over empty tables the old ones are released (TearDown checks nothing leaks).
    ASSERT_EQ(1, dk_RemoveAllDocuments(ctx));
    ASSERT_EQ(1, dk_InitDocuments(ctx, 4));
    EXPECT_EQ(0, dk_InitDocuments(ctx, 0));
    dk_Context *formless = makeContext("Wersja 1\n\n<A, TA>\nX, 2\n");  // tables of no forms: no lists
    EXPECT_EQ(nullptr, formless->documentLists);
    EXPECT_EQ(0, formless->formCount);
    destroyContext(formless);
    dk_Context *bare = nullptr;
    ASSERT_EQ(1, dk_Init(&bare));
    EXPECT_EQ(0, dk_InitDocuments(bare, 3));  // no definition
    EXPECT_EQ(0, dk_RemoveAllDocuments(bare));
    int32_t out = 3;
    EXPECT_EQ(0, dk_AddDocument(bare, "F", &out));
    EXPECT_EQ(-1, out);
    destroyContext(bare);
}

// ---- spool files and the file pool --------------------------------------------------------------

// A new store is first in the pool; a full pool closes its last store's stream. Using a stream
// does not reorder the pool; removing a document takes its store out wherever it stands.
TEST_F(Store, PoolKeepsTheNewestStreamsOpen)
{
    make(3);
    for (int i = 0; i < 5; i++)
        add();
    dk_lfBlock *A = store(0), *B = store(1), *C = store(2), *D = store(3), *E = store(4);
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, D, A}), pool());
    for (dk_lfBlock *closed : {B, C})
        EXPECT_EQ(nullptr, closed->file);
    EXPECT_EQ("   ", get(0, 0, "A"));
    ASSERT_EQ(1, set(3, 0, "A", "ddd"));
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, D, A}), pool());
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "F", 3));  // D, from the middle of the pool
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, A}), pool());
    ASSERT_EQ(1, dk_RemoveDocument(ctx, "F", 1));  // B, not in the pool
    EXPECT_EQ((std::vector<dk_lfBlock *>{E, A}), pool());
    EXPECT_EQ(3u, tmp.spoolFiles().size());
}

TEST_F(Store, DataSurvivesEvictionWithOneStream)
{
    make(1);
    for (int doc = 0; doc < 3; doc++)
        add();
    for (int round = 0; round < 3; round++) {
        for (int doc = 0; doc < 3; doc++) {
            ASSERT_EQ(1, set(doc, round, "A", (std::to_string(round) + std::to_string(doc)).c_str()));
            EXPECT_EQ(round + 1, addRecord(doc));
            EXPECT_EQ(std::vector<dk_lfBlock *>{store(doc)}, pool());
        }
    }
    for (int doc = 0; doc < 3; doc++)
        EXPECT_EQ("0" + std::to_string(doc) + " |   1" + std::to_string(doc) + " |   2" + std::to_string(doc) +
                      " |      |  ",
                  records(doc));
    // A spool file that went missing while its stream was closed is made anew and empty.
    const std::string path = store(0)->path;
    ASSERT_EQ(0, std::remove(path.c_str()));
    ASSERT_EQ(1, set(0, 3, "A", "new"));
    get(0, 1, "A");  // the cursor moves on: record 3 goes to the file made anew, and is read back
    EXPECT_NE(nullptr, store(0)->file);
    EXPECT_EQ("new", get(0, 3, "A").substr(0, 3));
    EXPECT_EQ(1, dk_RemoveAllDocuments(ctx));
}

// Records of one byte: a stream opened again stands at the file's start, so the first record
// read after an eviction, one byte in, is sought to; a removal moves the later ones a byte each.
TEST_F(Store, OneByteRecordsAreReadBackAfterEviction)
{
    make(1, "Wersja T2\n\n[F, F]\nRep, 1, -1\n\n<Rep, REP>\nA, 1, t\n");
    const int32_t doc = add();
    for (int32_t r = 0; r < 4; r++) {
        EXPECT_EQ(r, r == 0 ? 0 : addRecord(doc));
        ASSERT_EQ(1, set(doc, r, "A", std::string(1, static_cast<char>('a' + r)).c_str()));
    }
    EXPECT_EQ("a", get(doc, 0, "A"));  // the cursor on record 0, everything saved
    add();                              // the second document takes the only stream
    std::string seen;
    for (int32_t r : {1, 3, 2, 0})
        seen += get(doc, r, "A");
    EXPECT_EQ("bdca", seen);
    EXPECT_EQ("abcd", readFile(ctx->documentLists[0].documents[doc].blocks[0]->path));
    ASSERT_EQ(1, dk_RemoveBlock(ctx, "F", doc, "REP", 1));  // the records behind move a byte each
    seen.clear();
    for (int32_t r = 0; r < count(doc, "F", "REP"); r++)
        seen += get(doc, r, "A");
    EXPECT_EQ("acd", seen);
}

// What a result cannot show: the files are private, their names unpredictable, and no
// descriptor outlives its document.
TEST_F(Store, SpoolFilesArePrivateUnpredictableAndClosedWithTheirDocuments)
{
    const int descriptors = openDescriptors();
    make(4);
    std::set<std::string> suffixes;
    for (int i = 0; i < 12; i++) {
        add();
        std::string name = store(i)->path;
        std::replace(name.begin(), name.end(), '\\', '/');  // Windows paths come with backslashes
        EXPECT_EQ(tmp.path(), name.substr(0, tmp.path().size()));
        const std::string base = name.substr(name.find_last_of("/\\") + 1);
        EXPECT_EQ("P2_", base.substr(0, 3));
        suffixes.insert(base.substr(3));
        EXPECT_EQ(0600, permissions(name)) << name;
    }
    EXPECT_EQ(12u, suffixes.size());
#if !defined(_WIN32)
    // Twelve letters or digits after the prefix, not a counter: two names differ in many places.
    for (const std::string &suffix : suffixes)
        EXPECT_EQ(12u, suffix.size()) << suffix;
    const std::string a = *suffixes.begin(), b = *suffixes.rbegin();
    int differing = 0;
    for (size_t i = 0; i < 12; i++)
        differing += a[i] != b[i];
    EXPECT_GT(differing, 6);
#endif
    if (descriptors < 0)
        GTEST_SKIP() << "this system does not list a process's open descriptors";
    EXPECT_EQ(descriptors + 4, openDescriptors());  // the pool's capacity, no more
    ASSERT_EQ(1, dk_RemoveDocuments(ctx, "F"));
    EXPECT_EQ(descriptors, openDescriptors());
    for (int i = 0; i < 6; i++)
        fill(add(), 3);
    destroyContext(ctx);
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_F(Store, LinkInPlaceOfASpoolFileIsNotFollowed)
{
#if defined(_WIN32)
    GTEST_SKIP() << "symbolic links need a privilege Windows hosts do not have";
#else
    make(1);
    fill(add(), 2);
    add();  // closes the stream of document 0, whose cursor is on record 1
    const std::string path = store(0)->path, target = tmp.file("target");
    writeFile(target, "kept");
    ASSERT_EQ(0, std::remove(path.c_str()));
    ASSERT_EQ(0, symlink(target.c_str(), path.c_str()));
    EXPECT_EQ("<fail>", get(0, 0, "A"));
    EXPECT_EQ(0, set(0, 0, "A", "zzz"));
    EXPECT_EQ("kept", readFile(target));
    std::remove(path.c_str());
    std::remove(target.c_str());
#endif
}

TEST_F(Store, BlockSaveWritesTheChangedFieldsOfARepeatingStore)
{
    make();
    const int32_t doc = add();
    dk_Document *document = &ctx->documentLists[0].documents[doc];
    const dk_dfDefinition &d = ctx->definitions->items[0];
    const dk_dfBlock *rep = &d.blocks[d.forms[0].refs[1].blockIndex];
    const dk_dfBlock *sng = &d.blocks[d.forms[0].refs[0].blockIndex];
    EXPECT_EQ(0, dk_lfBlockSave(document, store(doc), rep));  // nothing changed
    ASSERT_EQ(1, set(doc, 0, "B", "bb"));
    EXPECT_EQ(1, dk_lfBlockSave(document, store(doc), rep));
    EXPECT_EQ("   bb", readFile(store(doc)->path));
    ASSERT_EQ(1, set(doc, 0, "A", "abcdef"));  // cut to the width
    EXPECT_EQ(1, dk_lfBlockSave(document, store(doc), rep));
    EXPECT_EQ("abcbb", readFile(store(doc)->path));
    // Saved means clean, in the store and in each of its slots.
    EXPECT_EQ(0, store(doc)->dirty);
    for (int32_t f = 0; f < rep->fieldCount; f++)
        EXPECT_EQ(0, store(doc)->fields[f].dirty) << f;
    EXPECT_EQ(0, dk_lfBlockSave(document, document->blocks[0], sng));
    EXPECT_EQ(0, dk_lfBlockSave(nullptr, store(doc), rep));
    EXPECT_EQ(0, dk_lfBlockSave(document, nullptr, rep));
}

// ---- fields -------------------------------------------------------------------------------------

TEST_F(Store, FieldValuesAreCutOrFilledToTheirWidth)
{
    make();
    add();
    const struct {
        const char *block, *name, *value, *read;
    } rows[] = {
        {"SNG", "X", "ab", "ab  "},   {"SNG", "X", "123456", "1234"}, {"SNG", "Y", "", "  "},
        {"REP", "A", "abcdefgh", "abc"}, {"REP", "B", "x", "x "},    {"REP", "A", "", "   "},
        {"REP", "B", "q\nr", "q\n"},    {"SNG", "X", "\xB9\xEA\xB3", "\xB9\xEA\xB3 "},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(1, set(0, 0, row.name, row.value, row.block)) << row.value;
        EXPECT_EQ(row.read, get(0, 0, row.name, row.block)) << row.value;
    }
}

TEST_F(Store, FieldOutputBufferSizes)
{
    make();
    add();
    ASSERT_EQ(1, set(0, 0, "X", "ab", "SNG"));
    ASSERT_EQ(1, set(0, 0, "A", "xyz"));
    addRecord(0);  // record 0 now comes from the spool file
    for (const char *block : {"SNG", "REP"}) {
        const std::string full = block[0] == 'S' ? "ab  " : "xyz";
        for (int32_t size = 0; size <= 6; size++) {
            char out[8];
            std::memset(out, '#', sizeof out);
            const int32_t result = dk_GetField(ctx, "F", 0, block, 0, block[0] == 'S' ? "X" : "A", out, size);
            EXPECT_EQ(size > 0, result == 1) << block << " size " << size;
            if (size == 0) {
                EXPECT_EQ('#', out[0]);
                continue;
            }
            EXPECT_EQ(full.substr(0, static_cast<size_t>(size - 1)), out) << block << " size " << size;
            EXPECT_EQ('#', out[size]) << "written past the buffer, size " << size;
        }
    }
    EXPECT_EQ(0, dk_GetField(ctx, "F", 0, "SNG", 0, "X", nullptr, 5));
}

// Each wrong name or index fails alone and leaves an empty text; nothing else changes.
TEST_F(Store, FieldAccessRefusesWhatIsNotThere)
{
    make();
    add();
    fill(0, 2);
    const struct {
        const char *form;
        int32_t doc;
        const char *block;
        int32_t record;
        const char *name;
    } rows[] = {
        {"NIEMA", 0, "REP", 0, "A"}, {"G", 0, "REP", 0, "A"},  {"F", 1, "REP", 0, "A"},  {"F", -1, "REP", 0, "A"},
        {"F", 0, "OTH", 0, "Z"},     {"F", 0, "NIEMA", 0, "A"}, {"F", 0, "REP", 2, "A"},  {"F", 0, "REP", -1, "A"},
        {"F", 0, "REP", 0, "X"},     {"F", 0, "REP", 0, "REP"}, {"F", 0, "SNG", 1, "X"},  {"F", 0, "A", 0, "A"},
        {"F", 0, "REP", 0, nullptr},
    };
    for (const auto &row : rows) {
        char out[8] = "junk";
        EXPECT_EQ(0, dk_GetField(ctx, row.form, row.doc, row.block, row.record, row.name, out, sizeof out))
            << row.form << row.doc << row.block << row.record << (row.name != nullptr ? row.name : "(null)");
        EXPECT_STREQ("", out);
        EXPECT_EQ(0, dk_SetField(ctx, row.form, row.doc, row.block, row.record, row.name, "v"));
    }
    EXPECT_EQ("a0 |b0 a1 |b1", records(0));
}

TEST_F(Store, SpoolFileContentsDecideWhatAReopenedStoreReads)
{
    make(1);
    add();
    addRecord(0);
    add();  // closes document 0's stream, its cursor on record 1
    writeFile(store(0)->path, "abcdefg");
    EXPECT_EQ("abc", get(0, 0, "A"));
    EXPECT_EQ("de", get(0, 0, "B"));
    EXPECT_EQ("fg", get(0, 1, "A"));  // cut short by the end of the file
    EXPECT_EQ("<fail>", get(0, 1, "B"));
    writeFile(store(0)->path, "");
    add();
    EXPECT_EQ("<fail>", get(0, 0, "A"));
}

// ---- records of repeating blocks ----------------------------------------------------------------

TEST_F(Store, RecordsAreAddedAndRemovedWithTheCursorFollowing)
{
    make(2);
    for (int doc = 0; doc < 3; doc++) {
        EXPECT_EQ(1, count(add()));
        fill(doc, 4);
    }
    EXPECT_EQ("a0 |b0 a1 |b1 a2 |b2 a3 |b3", records(1));
    // Remove before, at, after the cursor and the last record; each leaves the rest in order.
    const struct {
        int32_t cursorAt, remove;
        const char *left;
    } rows[] = {
        {3, 1, "a0 |b0 a2 |b2 a3 |b3"},
        {0, 0, "a2 |b2 a3 |b3"},
        {1, 1, "a2 |b2"},
    };
    for (const auto &row : rows) {
        get(1, row.cursorAt, "A");
        ASSERT_EQ(1, set(1, row.cursorAt, "B", "zz"));  // a pending change is saved before moving
        ASSERT_EQ(1, set(1, row.cursorAt, "B", get(1, row.cursorAt, "A").replace(0, 1, "b").substr(0, 2).c_str()));
        EXPECT_EQ(1, dk_RemoveBlock(ctx, "F", 1, "REP", row.remove)) << row.remove;
        EXPECT_EQ(row.left, records(1));
    }
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 1, "REP", 0));  // the last record stays
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 1, "REP", -1));
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 1, "REP", 5));
    EXPECT_EQ(1, addRecord(1));  // nothing of a moved record spills behind the last one
    EXPECT_EQ("a2 |b2    |  ", records(1));
    EXPECT_EQ(2, addRecord(2) - 2);
    EXPECT_EQ("   |  ", get(2, 4, "A") + "|" + get(2, 4, "B"));  // a new record is blank
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 2, "REP", -1));
    EXPECT_EQ(1, dk_RemoveBlock(ctx, "F", 2, "REP", 5));  // past the last record: nothing to remove
    get(2, 3, "A");
    get(2, 4, "A");  // the cursor on the last record, as read from the file
    ASSERT_EQ(1, dk_RemoveBlock(ctx, "F", 2, "REP", 4));
    EXPECT_EQ("a0 |b0", get(2, 0, "A") + "|" + get(2, 0, "B"));
    EXPECT_EQ(4, count(2));
    EXPECT_EQ("a0 |b0 a1 |b1 a2 |b2 a3 |b3", records(0));    // Records move as text: a line feed ends what is carried over the record below.
    ASSERT_EQ(1, set(0, 1, "A", "\n"));
    ASSERT_EQ(1, dk_RemoveBlock(ctx, "F", 0, "REP", 0));
    EXPECT_EQ("a2 ", get(0, 1, "A"));
    EXPECT_EQ("\n", get(0, 0, "A"));
}

TEST_F(Store, RecordCallsRefuseSingleBlocksAndUnknownNames)
{
    make();
    add();
    add("G");
    const struct {
        const char *form;
        int32_t doc;
        const char *block;
    } rows[] = {{"F", 0, "SNG"}, {"G", 0, "OTH"}, {"NIEMA", 0, "REP"}, {"F", 1, "REP"}, {"F", -1, "REP"},
                {"F", 0, "NIEMA"}, {"G", 0, "REP"}, {"F", 0, "A"}};
    for (const auto &row : rows) {
        int32_t out = 9;
        EXPECT_EQ(0, dk_AddBlock(ctx, row.form, row.doc, row.block, &out)) << row.form << row.doc << row.block;
        EXPECT_EQ(-1, out);
        out = 9;
        EXPECT_EQ(0, dk_GetBlockCount(ctx, row.form, row.doc, row.block, &out));
        EXPECT_EQ(-1, out);
        EXPECT_EQ(0, dk_RemoveBlock(ctx, row.form, row.doc, row.block, 0));
    }
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "REP", nullptr));  // nowhere to put the index: nothing added
    EXPECT_EQ(1, count(0));
}

// A spool file that cannot be reopened (a directory in its place) fails the step, keeps the
// count, and the next attempt succeeds once the file is back.
TEST_F(Store, UnreadableSpoolFileFailsTheStepAndKeepsTheCount)
{
    make(1);
    fill(add(), 2);
    get(0, 0, "A");  // saved: nothing is pending when the stream is closed
    add();
    const std::string path = store(0)->path, before = readFile(path);
    ASSERT_EQ(0, std::remove(path.c_str()));
    std::filesystem::create_directory(path);
    EXPECT_EQ(0, dk_RemoveBlock(ctx, "F", 0, "REP", 0));
    const char packed[7] = {};
    EXPECT_EQ(0, dk_SetNAVOBlock(ctx, "F", 0, "REP", 1, packed, 7));
    int32_t out = 9;
    EXPECT_EQ(0, dk_AddBlock(ctx, "F", 0, "REP", &out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(2, count(0));
    EXPECT_EQ(0, set(0, 0, "A", "x"));
    EXPECT_EQ("<fail>", get(0, 0, "A"));
    std::filesystem::remove(path);
    writeFile(path, before);
    EXPECT_EQ(2, addRecord(0));
    EXPECT_EQ("a0 |b0 a1 |b1    |  ", records(0));
    // A record changed in full whose save cannot reopen the file stays changed, to be saved later.
    ASSERT_EQ(1, set(0, 2, "A", "p"));
    ASSERT_EQ(1, set(0, 2, "B", "q"));
    addRecord(1);  // doc 1 takes the one stream
    ASSERT_EQ(nullptr, store(0)->file);
    ASSERT_EQ(0, std::remove(path.c_str()));
    std::filesystem::create_directory(path);
    const dk_dfDefinition &d = ctx->definitions->items[0];
    const dk_dfBlock *rep = &d.blocks[d.forms[0].refs[1].blockIndex];
    dk_Document *document = &ctx->documentLists[0].documents[0];
    EXPECT_EQ(0, dk_lfBlockSave(document, store(0), rep));
    EXPECT_EQ(1, store(0)->dirty);
    std::filesystem::remove(path);
    writeFile(path, before);
    EXPECT_EQ(1, dk_lfBlockSave(document, store(0), rep));
    EXPECT_EQ("a0 |b0 a1 |b1 p  |q ", records(0));
}

// A record whose save the disk refuses stays cached and changed: the add that needed the save
// fails, and once the disk takes bytes again the record reaches the file whole.
TEST_F(Store, RecordRefusedByAFullDiskIsKept)
{
#if defined(_WIN32)
    GTEST_SKIP() << "a full disk is stood in for by a POSIX file-size limit (RLIMIT_FSIZE)";
#else
    make();
    const int32_t doc = add();
    ASSERT_EQ(1, set(doc, 0, "A", "kep"));
    ASSERT_EQ(1, set(doc, 0, "B", "t"));
    {
        FileSizeLimit full(0);
        int32_t out = 9;
        EXPECT_EQ(0, dk_AddBlock(ctx, "F", doc, "REP", &out));
        EXPECT_EQ(-1, out);
    }
    EXPECT_EQ(1, count(doc));
    EXPECT_EQ(1, store(doc)->dirty);
    EXPECT_EQ(1, addRecord(doc));
    EXPECT_EQ("kep|t     |  ", records(doc));
#endif
}

// ---- packed access ------------------------------------------------------------------------------

namespace {
// Slot lengths of the example definition's blocks: each field and one NUL.
constexpr int32_t kDozcba = 8 + 6 + 2, kDipl = 10 + 14 + 11 + 1 + 9 + 31 + 31 + 22 + 8 + 16 + 16 + 2 + 12,
                  kIorb = 1 + 36 + 2, kOpl1 = 8 + 1, kDocument = kDozcba + kDipl + kOpl1;
std::string slot(const std::string &text, size_t width) { return padded(text, width) + std::string(1, '\0'); }
}  // namespace

TEST_F(Store, PackedDocumentAndBlockAtEverySize)
{
    make(10, exampleDefinition());
    ASSERT_EQ(0, fillExampleDocument(ctx));
    std::string single = slot("09122009", 8) + slot("A1", 6) + slot("1234567890", 10) + slot("12345678901234", 14);
    for (size_t w : {11, 1, 9})
        single += slot("", w);
    single += slot("PRZYKLADOWA FIRMA", 31);
    for (size_t w : {31, 22, 8, 16, 16, 2})
        single += slot("", w);
    single += slot("09122009", 8);  // OPL1 directly behind DIPL: the repeating IORB is left out
    ASSERT_EQ(static_cast<size_t>(kDocument), single.size());
    const std::string record1 = slot("2", 1) + slot("99990000111122223333444455556666", 36);
    for (int32_t size : {kDocument - 1, kDocument, kDocument + 5, 0, -3}) {
        char *out = reinterpret_cast<char *>(&size);
        ASSERT_EQ(1, dk_GetNAVODocument(ctx, "TOBZBA", 0, &out, size));
        if (size < kDocument) {
            EXPECT_EQ(nullptr, out) << size;  // too small: success without data
            continue;
        }
        ASSERT_NE(nullptr, out);
        EXPECT_EQ(single + std::string(static_cast<size_t>(size - kDocument), '\0'), std::string(out, static_cast<size_t>(size)));
        dk_Free(out);
    }
    for (int32_t size : {kIorb - 1, kIorb, kIorb + 7}) {
        char *out = reinterpret_cast<char *>(&size);
        ASSERT_EQ(1, dk_GetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 1, &out, size));
        if (size < kIorb) {
            EXPECT_EQ(nullptr, out);
            continue;
        }
        EXPECT_EQ(record1 + std::string(static_cast<size_t>(size - kIorb), '\0'), std::string(out, static_cast<size_t>(size)));
        dk_Free(out);
    }
    // Set: an empty slot is blanks, a slot without NUL is cut at the width, too small is refused.
    std::string packed = slot("", 1) + std::string(kIorb - 2, 'w');
    EXPECT_EQ(0, dk_SetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 0, packed.data(), kIorb - 1));
    EXPECT_EQ(0, dk_SetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 0, nullptr, kIorb));
    ASSERT_EQ(1, dk_SetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 0, packed.data(), kIorb));
    EXPECT_EQ(" ", field(ctx, "TOBZBA", 0, "IORB", 0, "KodRodzajuZgloszen"));
    EXPECT_EQ(std::string(36, 'w'), field(ctx, "TOBZBA", 0, "IORB", 0, "NumerRachunku"));
    std::string changed = single;
    changed.replace(kDozcba + 45 + 5, 31, padded("INNA", 31));
    changed[0] = '\0';
    EXPECT_EQ(0, dk_SetNAVODocument(ctx, "TOBZBA", 0, changed.data(), kDocument - 1));
    EXPECT_EQ(0, dk_SetNAVODocument(ctx, "TOBZBA", 0, nullptr, kDocument));
    ASSERT_EQ(1, dk_SetNAVODocument(ctx, "TOBZBA", 0, changed.data(), kDocument));
    EXPECT_EQ(padded("INNA", 31), field(ctx, "TOBZBA", 0, "DIPL", 0, "NazwaSkrocona"));
    EXPECT_EQ("        ", field(ctx, "TOBZBA", 0, "DOZCBA", 0, "DataNadania"));
    EXPECT_EQ("09122009", field(ctx, "TOBZBA", 0, "OPL1", 0, "DataWypelnienia"));
    EXPECT_EQ("2", field(ctx, "TOBZBA", 0, "IORB", 1, "KodRodzajuZgloszen"));  // records untouched
    // A form without blocks packs to nothing, but still a block the host releases.
    int32_t empty = -1;
    ASSERT_EQ(1, dk_AddDocument(ctx, "TOBPUSTY", &empty));
    char *out = nullptr;
    ASSERT_EQ(1, dk_GetNAVODocument(ctx, "TOBPUSTY", empty, &out, 0));
    EXPECT_NE(nullptr, out);
    dk_Free(out);
    EXPECT_EQ(1, dk_SetNAVODocument(ctx, "TOBPUSTY", empty, "", 0));
}

TEST_F(Store, PackedCallsRefuseWhatIsNotThere)
{
    make(10, exampleDefinition());
    ASSERT_EQ(0, fillExampleDocument(ctx));
    std::string buffer(1000, '\0');
    const struct {
        const char *form;
        int32_t doc;
        const char *block;
        int32_t record;
    } rows[] = {{"NIEMA", 0, "IORB", 0}, {"DIPL", 0, "IORB", 0}, {"TOBDWA", 0, "IORB", 0}, {"TOBZBA", 1, "IORB", 0},
                {"TOBZBA", -1, "IORB", 0}, {"TOBZBA", 0, "IORB", 2}, {"TOBZBA", 0, "IORB", -1},
                {"TOBZBA", 0, "NIEMA", 0}, {"TOBZBA", 0, "Nip", 0}, {"TOBZBA", 0, "DIPL", 0}, {"TOBZBA", 0, "OPL1", 0}};
    for (const auto &row : rows) {
        char *out = buffer.data();
        EXPECT_EQ(0, dk_GetNAVOBlock(ctx, row.form, row.doc, row.block, row.record, &out, 1000))
            << row.form << row.doc << row.block << row.record;
        EXPECT_EQ(nullptr, out);
        EXPECT_EQ(0, dk_SetNAVOBlock(ctx, row.form, row.doc, row.block, row.record, buffer.data(), 1000));
        if (std::strcmp(row.block, "IORB") == 0 && row.record == 0) {
            out = buffer.data();
            EXPECT_EQ(0, dk_GetNAVODocument(ctx, row.form, row.doc, &out, 1000)) << row.form << row.doc;
            EXPECT_EQ(nullptr, out);
            EXPECT_EQ(0, dk_SetNAVODocument(ctx, row.form, row.doc, buffer.data(), 1000));
        }
    }
    EXPECT_EQ(0, dk_GetNAVODocument(ctx, "TOBZBA", 0, nullptr, 1000));
    // A document that is not there is refused whatever room the caller offers.
    std::string room(1 << 20, ' ');
    char *whole = room.data();
    EXPECT_EQ(0, dk_GetNAVODocument(ctx, "TOBZBA", 1, &whole, static_cast<int32_t>(room.size())));
    EXPECT_EQ(0, dk_SetNAVODocument(ctx, "TOBZBA", 1, room.data(), static_cast<int32_t>(room.size())));
    EXPECT_EQ(padded("PRZYKLADOWA FIRMA", 31), field(ctx, "TOBZBA", 0, "DIPL", 0, "NazwaSkrocona"));
}

// A form of no blocks and a repeating block of no fields: documents and records come and go, and
// every call past what they hold is refused.
TEST_F(Store, FormWithoutBlocksAndBlockWithoutFields)
{
    make(2, "Wersja T3\n\n[E, E]\n\n[F, F]\nRep, 1, -1\n\n<Rep, REP>\n");
    EXPECT_EQ(0, add("E"));
    EXPECT_EQ(0, dk_SetField(ctx, "E", 0, "REP", 0, "A", "x"));
    EXPECT_EQ("<fail>", field(ctx, "E", 0, "REP", 0, "A"));
    const int32_t doc = add();
    EXPECT_EQ(1, addRecord(doc));
    EXPECT_EQ(2, count(doc));
    for (int32_t record : {-1, 0, 1, 2}) {
        char *out = nullptr;
        const int32_t held = record == 0 || record == 1;
        EXPECT_EQ(held, dk_GetNAVOBlock(ctx, "F", doc, "REP", record, &out, 4)) << record;
        EXPECT_EQ(held, out != nullptr);
        dk_Free(out);
        EXPECT_EQ(held, dk_SetNAVOBlock(ctx, "F", doc, "REP", record, "", 4)) << record;
    }
    // With nothing to pack, only the document's presence decides.
    for (const char *form : {"E", "F"}) {
        for (int32_t index : {-1, 0, 1}) {
            const int32_t held = index == 0;
            char *out = nullptr;
            EXPECT_EQ(held, dk_GetNAVODocument(ctx, form, index, &out, 1)) << form << index;
            dk_Free(out);
            EXPECT_EQ(held, dk_SetNAVODocument(ctx, form, index, "", 0)) << form << index;
        }
    }
}

// ---- every allocation of every store step fails in turn -----------------------------------------

TEST_F(Store, EveryAllocationOfAStoreStepFailsCleanly)
{
    const auto base = [&] {
        make(2);
        fill(add(), 3);
        add("G");
    };
    const auto end = [&] { destroyContext(ctx); };
    const auto failed = [&](int32_t result, int64_t n) { EXPECT_EQ(n == 0, result == 1); };
    int32_t out = -1;
    struct Step {
        const char *name;
        std::function<int32_t()> act;
        std::function<void(int32_t, int64_t)> check;
        std::function<void()> prepare = [] {};
    };
    const std::vector<Step> steps = {
        {"InitDocuments", [&] { dk_RemoveAllDocuments(ctx); return dk_InitDocuments(ctx, 3); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0, docs() == 0);
             EXPECT_EQ(1, dk_InitDocuments(ctx, 3));  // a later call makes whole tables
             EXPECT_EQ(0, add());
         }},
        {"AddDocument", [&] { return dk_AddDocument(ctx, "F", &out); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0 ? 1 : -1, out);
             EXPECT_EQ(n == 0 ? 2 : 1, docs());
             EXPECT_EQ("a0 |b0 a1 |b1 a2 |b2", records(0));
         }},
        {"AddDocument G", [&] { return dk_AddDocument(ctx, "G", &out); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0 ? 2 : 1, docs("G"));
         }},
        {"AddBlock", [&] { return dk_AddBlock(ctx, "F", 0, "REP", &out); },
         [&](int32_t result, int64_t) { EXPECT_EQ(1, result) << "adding a record allocates nothing"; },
         [&] { add(), add(); }},
        {"RemoveBlock", [&] { return dk_RemoveBlock(ctx, "F", 0, "REP", 0); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0 ? "a1 |b1 a2 |b2" : "a0 |b0 a1 |b1 a2 |b2", records(0));
         }},
        {"GetField", [&] { char text[8]; return dk_GetField(ctx, "F", 0, "REP", 0, "A", text, sizeof text); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ("a0 |b0 a1 |b1 a2 |b2", records(0));
         }},
        {"SetField", [&] { return dk_SetField(ctx, "F", 0, "REP", 1, "A", "new"); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0 ? "a0 |b0 new|b1 a2 |b2" : "a0 |b0 a1 |b1 a2 |b2", records(0));
         }},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(step.name);
        sweepAllocations({.setup = [&] { base(), step.prepare(); }, .act = step.act, .check = step.check, .teardown = end},
                         tmp);
    }
    // Packed calls, on the example document.
    char *packed = nullptr;
    std::string document(kDocument, '\0'), record(kIorb, '\0');
    const auto example = [&] {
        make(10, exampleDefinition());
        ASSERT_EQ(0, fillExampleDocument(ctx));
        packed = nullptr;
    };
    const auto release = [&] {
        dk_Free(packed);
        destroyContext(ctx);
    };
    const std::vector<Step> packedSteps = {
        {"GetNAVODocument", [&] { return dk_GetNAVODocument(ctx, "TOBZBA", 0, &packed, kDocument); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0, packed != nullptr);
         }},
        {"GetNAVOBlock", [&] { return dk_GetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 0, &packed, kIorb); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             EXPECT_EQ(n == 0, packed != nullptr);
         }},
        {"SetNAVODocument", [&] { return dk_SetNAVODocument(ctx, "TOBZBA", 0, document.data(), kDocument); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             // Fields are set in order: a failure keeps those before it set.
             const std::string nip = field(ctx, "TOBZBA", 0, "DIPL", 0, "Nip");
             EXPECT_TRUE(nip == std::string(10, ' ') || (n > 0 && nip == "1234567890")) << nip;
         }},
        {"SetNAVOBlock", [&] { return dk_SetNAVOBlock(ctx, "TOBZBA", 0, "IORB", 1, record.data(), kIorb); },
         [&](int32_t result, int64_t n) {
             failed(result, n);
             const std::string kod = field(ctx, "TOBZBA", 0, "IORB", 1, "KodRodzajuZgloszen");
             EXPECT_TRUE(kod == " " || (n > 0 && kod == "2")) << kod;
         }},
    };
    for (const Step &step : packedSteps) {
        SCOPED_TRACE(step.name);
        sweepAllocations({.setup = example, .act = step.act, .check = step.check, .teardown = release}, tmp);
    }
}
