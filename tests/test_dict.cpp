// test_dict.cpp - core/dictionary: hash values, bucket order, search by halves, interning, trimming.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "test_support.h"

#include "core/dictionary.hpp"

namespace {

struct Dictionary {
    dk_sdDictionary *d = nullptr;
    explicit Dictionary(uint32_t buckets = 400) { EXPECT_EQ(1, dk_sdInit(&d, buckets)); }
    ~Dictionary() { dk_sdDestroy(&d); }
    int32_t id(const std::string &text) const
    {
        int32_t out = -7;
        dk_sdGetID(d, text.c_str(), &out);
        return out;
    }
    const dk_sdBucket &bucketOf(const std::string &text) const { return d->buckets[navo::dictionary::bucket_index(d, text.c_str())]; }
};

// Every invariant of the dictionary that a host can observe in the open records.
void expectSound(const dk_sdDictionary *d)
{
    std::vector<int> seen(static_cast<size_t>(d->count), 0);
    int32_t nonNull = 0;
    for (int32_t i = 0; i < d->count; i++)
        nonNull += d->strings[i] != nullptr;
    int32_t inBuckets = 0;
    for (uint32_t b = 0; b < d->bucketCount; b++) {
        const dk_sdBucket &bucket = d->buckets[b];
        ASSERT_GE(bucket.count, 0);
        if (bucket.count == 0) {
            EXPECT_EQ(nullptr, bucket.ids);
            continue;
        }
        for (int32_t k = 0; k < bucket.count; k++) {
            int32_t id = bucket.ids[k];
            ASSERT_GE(id, 0);
            ASSERT_LT(id, d->count);
            ASSERT_NE(nullptr, d->strings[id]) << "bucket holds an ID without a string";
            EXPECT_EQ(b, navo::dictionary::bucket_index(d, d->strings[id]));
            seen[static_cast<size_t>(id)]++;
            if (k > 0) {
                EXPECT_LT(dk_sdStrCmp(d->strings[bucket.ids[k - 1]], d->strings[id]), 0) << "bucket not strictly sorted";
            }
        }
        inBuckets += bucket.count;
    }
    EXPECT_EQ(nonNull, inBuckets);
    for (int32_t i = 0; i < d->count; i++) {
        EXPECT_EQ(d->strings[i] != nullptr ? 1 : 0, seen[static_cast<size_t>(i)]) << "string " << i;
    }
}

struct HashRow {
    const char *text;
    uint32_t h;
    uint32_t bucket;
};

}  // namespace

TEST(DictionaryHash, TableOfValuesAndBuckets)
{
    const HashRow rows[] = {
        {"", 0x00000000u, 0},         {"A", 0x00000041u, 65},          {"a", 0x00000061u, 97},
        {"AB", 0x00008441u, 257},     {"ab", 0x0000C461u, 273},        {"DNF", 0x00009C5Du, 29},
        {"Nazwisko", 0xFFFF5FEBu, 315}, {"nazwisko", 0xFFFF5FCBu, 283}, {"NAZWISKO", 0x0000F561u, 17},
        {"KodPocztowy", 0x0000E438u, 24}, {"\xB3", 0xFFFFFFFFu, 95},   {"A\xB3", 0x0000FF41u, 145},
        {"\xB3" "A", 0xFFFF7DFFu, 15},  {"aih", 0xFFFF2DC0u, 272},       {"AIH", 0x00009260u, 272},
    };
    Dictionary dict;
    for (const HashRow &row : rows) {
        EXPECT_EQ(row.h, navo::dictionary::hash_value(row.text)) << "text '" << row.text << "'";
        EXPECT_EQ(row.bucket, navo::dictionary::bucket_index(dict.d, row.text)) << "text '" << row.text << "'";
    }
}

TEST(DictionaryHash, EverySingleHighByteSharesOneBucket)
{
    Dictionary dict;
    for (int byte = 0x80; byte <= 0xFF; byte++) {
        char text[2] = {static_cast<char>(byte), '\0'};
        EXPECT_EQ(0xFFFFFFFFu, navo::dictionary::hash_value(text)) << byte;
        EXPECT_EQ(95u, navo::dictionary::bucket_index(dict.d, text));
    }
}

TEST(DictionaryHash, ShiftCountFallsBackAtPositionEight)
{
    // Position 8 shifts by 0 like position 0: 'A' there XORs 0x41 sign-extended, even position.
    EXPECT_EQ(navo::dictionary::hash_value("\x01\x01\x01\x01\x01\x01\x01\x01") ^ 0x41u, navo::dictionary::hash_value("\x01\x01\x01\x01\x01\x01\x01\x01" "A"));
}

TEST(DictionaryCompare, SignedBytesAsciiFoldedTerminatorAsZero)
{
    EXPECT_EQ(0, dk_sdStrCmp("Nazwisko", "NAZWISKO"));
    EXPECT_EQ(0, dk_sdStrCmp("", ""));
    EXPECT_EQ(-1, dk_sdStrCmp("A\xB3", "A"));   // 0xB3 is negative: before the end of "A"
    EXPECT_EQ(1, dk_sdStrCmp("A", "A\xB3"));
    EXPECT_EQ(-1, dk_sdStrCmp("A", "AB"));
    EXPECT_EQ(1, dk_sdStrCmp("AB", "A"));
    EXPECT_EQ(1, dk_sdStrCmp("[", "z"));        // 0x5B..0x60 sort after every letter
    EXPECT_EQ(1, dk_sdStrCmp("_", "Z"));
    EXPECT_EQ(1, dk_sdStrCmp("`", "a"));
    EXPECT_EQ(-1, dk_sdStrCmp("\xA3", "\xB3"));  // CP1250 letters compare as signed bytes, unfolded
    EXPECT_EQ(1, dk_sdStrCmp("\xB3", "\xA3"));
}

TEST(Dictionary, CaseVariantsInDifferentBucketsAreTwoStrings)
{
    Dictionary dict;
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "Nazwisko"));
    int32_t out = 5;
    EXPECT_EQ(0, dk_sdGetID(dict.d, "nazwisko", &out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(1, dk_sdAddStr(dict.d, "nazwisko"));
    EXPECT_EQ(0, dict.id("Nazwisko"));
    EXPECT_EQ(1, dict.id("nazwisko"));
    EXPECT_EQ(2, dict.d->count);
}

TEST(Dictionary, CaseVariantsInOneBucketAreOneString)
{
    Dictionary dict;
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "aih"));
    int32_t out = -5;
    EXPECT_EQ(1, dk_sdGetID(dict.d, "AIH", &out));
    EXPECT_EQ(0, out);
    EXPECT_EQ(1, dk_sdAddStr(dict.d, "AIH"));
    EXPECT_EQ(1, dict.d->count);
    EXPECT_STREQ("aih", dict.d->strings[0]);
}

TEST(Dictionary, GetIdOnNullDictionaryLeavesOutAlone)
{
    int32_t out = 42;
    EXPECT_EQ(0, dk_sdGetID(nullptr, "x", &out));
    EXPECT_EQ(42, out);
    EXPECT_EQ(0, dk_sdAddStr(nullptr, "x"));
    EXPECT_EQ(0, dk_sdDelStr(nullptr, "x"));
}

TEST(Dictionary, EmptyTextInternsIntoBucketZero)
{
    Dictionary dict;
    ASSERT_EQ(1, dk_sdAddStr(dict.d, ""));
    EXPECT_EQ(0, dict.id(""));
    ASSERT_EQ(1, dict.d->buckets[0].count);
    EXPECT_EQ(0, dict.d->buckets[0].ids[0]);
}

TEST(Dictionary, IdsInOrderOfInterning)
{
    Dictionary dict;
    const char *names[] = {"TOBZUA", "TOBZPA", "DOZUA", "Nazwisko", "KodPocztowy"};
    for (int i = 0; i < 5; i++) {
        int32_t id = -2;
        ASSERT_EQ(1, dk_sdGetSafeID(dict.d, names[i], &id));
        EXPECT_EQ(i, id);
    }
    int32_t again = -2;
    EXPECT_EQ(1, dk_sdGetSafeID(dict.d, "DOZUA", &again));
    EXPECT_EQ(2, again);
    EXPECT_EQ(5, dict.d->count);
}

TEST(Dictionary, BucketOfFourSearchedByHalvesBothEnds)
{
    Dictionary dict(1);  // one bucket: every string shares it
    const std::vector<std::string> words = {"DELTA", "ALPHA", "CHARLIE", "BRAVO"};
    for (const std::string &w : words)
        ASSERT_EQ(1, dk_sdAddStr(dict.d, w.c_str()));
    const dk_sdBucket &bucket = dict.d->buckets[0];
    ASSERT_EQ(4, bucket.count);
    // Sorted under dk_sdStrCmp: ALPHA(1) BRAVO(3) CHARLIE(2) DELTA(0).
    EXPECT_EQ(1, bucket.ids[0]);
    EXPECT_EQ(3, bucket.ids[1]);
    EXPECT_EQ(2, bucket.ids[2]);
    EXPECT_EQ(0, bucket.ids[3]);
    EXPECT_EQ(1, dict.id("ALPHA"));    // low end, found by the end game
    EXPECT_EQ(0, dict.id("DELTA"));    // high end, found by the end game
    EXPECT_EQ(3, dict.id("bravo"));    // folded compare within the bucket
    EXPECT_EQ(2, dict.id("CHARLIE"));
    EXPECT_EQ(-1, dict.id("AAA"));
    EXPECT_EQ(-1, dict.id("BZ"));
    EXPECT_EQ(-1, dict.id("ZULU"));
}

TEST(Dictionary, LongBucketsFindEveryStringAndMissEveryAbsentOne)
{
    for (int size = 4; size <= 40; size++) {
        Dictionary dict(1);
        for (int i = 0; i < size; i++)
            ASSERT_EQ(1, dk_sdAddStr(dict.d, ("K" + std::to_string(i * 2 + 10)).c_str()));
        for (int i = 0; i < size; i++)
            EXPECT_EQ(i, dict.id("K" + std::to_string(i * 2 + 10))) << "size " << size;
        for (int i = 0; i <= size; i++)
            EXPECT_EQ(-1, dict.id("K" + std::to_string(i * 2 + 9))) << "size " << size;
        expectSound(dict.d);
    }
}

TEST(Dictionary, ManyNamesIn400BucketsAlwaysFoundLetterForLetter)
{
    Dictionary dict;
    std::vector<std::string> names;
    for (int i = 0; i < 3000; i++)
        names.push_back("Pole" + std::to_string(i * 7919 % 10007) + (i % 3 ? "_x" : "Blf"));
    int longest = 0;
    for (const std::string &n : names)
        ASSERT_EQ(1, dk_sdAddStr(dict.d, n.c_str()));
    for (uint32_t b = 0; b < dict.d->bucketCount; b++)
        longest = std::max(longest, static_cast<int>(dict.d->buckets[b].count));
    EXPECT_GE(longest, 4);
    for (size_t i = 0; i < names.size(); i++)
        EXPECT_EQ(static_cast<int32_t>(i), dict.id(names[i]));
    expectSound(dict.d);
}

TEST(Dictionary, DeletedIdComesBackForTheNextString)
{
    Dictionary dict;
    for (const char *s : {"s0", "s1", "s2", "s3", "s4"})
        ASSERT_EQ(1, dk_sdAddStr(dict.d, s));
    ASSERT_EQ(1, dk_sdDelStr(dict.d, "s3"));
    EXPECT_EQ(nullptr, dict.d->strings[3]);
    EXPECT_EQ(5, dict.d->count);
    EXPECT_EQ(-1, dict.id("s3"));
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "new"));
    EXPECT_EQ(3, dict.id("new"));
    EXPECT_EQ(5, dict.d->count);
    expectSound(dict.d);
}

TEST(Dictionary, LowestFreeSlotIsReusedFirst)
{
    Dictionary dict;
    for (const char *s : {"s0", "s1", "s2", "s3", "s4"})
        ASSERT_EQ(1, dk_sdAddStr(dict.d, s));
    ASSERT_EQ(1, dk_sdDelStr(dict.d, "s4"));
    ASSERT_EQ(1, dk_sdDelStr(dict.d, "s1"));
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "a"));
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "b"));
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "c"));
    EXPECT_EQ(1, dict.id("a"));
    EXPECT_EQ(4, dict.id("b"));
    EXPECT_EQ(5, dict.id("c"));
    EXPECT_EQ(6, dict.d->count);
}

TEST(Dictionary, LastIdLeavingABucketReleasesItsArray)
{
    Dictionary dict;
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "A"));
    const dk_sdBucket &bucket = dict.bucketOf("A");
    ASSERT_EQ(1, bucket.count);
    EXPECT_EQ(1, dk_sdDelStr(dict.d, "A"));
    EXPECT_EQ(0, bucket.count);
    EXPECT_EQ(nullptr, bucket.ids);
    EXPECT_EQ(1, dk_sdAddStr(dict.d, "A"));
    EXPECT_EQ(1, bucket.count);
    EXPECT_EQ(0, dict.id("A"));
}

TEST(Dictionary, DeleteOfAbsentStringChangesNothing)
{
    Dictionary dict;
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "A"));
    EXPECT_EQ(0, dk_sdDelStr(dict.d, "B"));
    EXPECT_EQ(1, dict.d->count);
    EXPECT_EQ(0, dict.id("A"));
    expectSound(dict.d);
}

TEST(Dictionary, DopiszIsStrictAddStrIsNot)
{
    Dictionary dict;
    EXPECT_EQ(1, dk_sdDopisz(dict.d, "X"));
    EXPECT_EQ(0, dk_sdDopisz(dict.d, "X"));
    EXPECT_EQ(1, dk_sdAddStr(dict.d, "X"));
    EXPECT_EQ(1, dict.d->count);
}

TEST(Dictionary, AddKeepsTheStringAsFirstStored)
{
    Dictionary dict(1);
    ASSERT_EQ(1, dk_sdAddStr(dict.d, "Abc"));
    EXPECT_EQ(1, dk_sdAddStr(dict.d, "ABC"));
    EXPECT_STREQ("Abc", dict.d->strings[0]);
}

TEST(Dictionary, InitRefusesZeroBuckets)
{
    dk_sdDictionary *d = nullptr;
    EXPECT_EQ(0, dk_sdInit(&d, 0));
    ASSERT_NE(nullptr, d);
    EXPECT_EQ(nullptr, d->buckets);
    EXPECT_EQ(1, dk_sdDestroy(&d));
    EXPECT_EQ(nullptr, d);
}

TEST(DictionaryTrim, RemovesTabLineFeedAndSpaceEverywhere)
{
    char out[16];
    EXPECT_EQ(1, dk_sdTrimAll(" a b\tc\n", out, 16));
    EXPECT_STREQ("abc", out);
    for (int i = 3; i < 16; i++)
        EXPECT_EQ('\0', out[i]);
}

TEST(DictionaryTrim, EmptyTextGivesAllZeroBuffer)
{
    char out[8];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(1, dk_sdTrimAll("", out, 8));
    for (char c : out)
        EXPECT_EQ('\0', c);
}

TEST(DictionaryTrim, ExactlySizeCharactersFailsWithoutTerminator)
{
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(0, dk_sdTrimAll("abc", out, 3));
    EXPECT_EQ('a', out[0]);
    EXPECT_EQ('b', out[1]);
    EXPECT_EQ('c', out[2]);
    EXPECT_EQ('x', out[3]);  // not touched: size was 3
    char fits[4];
    EXPECT_EQ(1, dk_sdTrimAll("abc", fits, 4));
    EXPECT_STREQ("abc", fits);
}

TEST(DictionaryTrim, CrVtFfAreKept)
{
    char out[16];
    EXPECT_EQ(1, dk_sdTrimAll("a\rb\vc\fd", out, 16));
    EXPECT_STREQ("a\rb\vc\fd", out);
}

TEST(DictionaryTrim, StopsAsSoonAsTheBufferFills)
{
    char out[3];
    EXPECT_EQ(0, dk_sdTrimAll("a b c d", out, 3));
    EXPECT_EQ(0, std::memcmp(out, "abc", 3));
}

// An add that runs out of memory at any allocation (see docs/decisions.md) leaves
// every count matching its array, no bucket holding an ID without a string, and nothing leaked.
TEST(DictionaryFailure, EveryAllocationOfAnAddFailsInTurn)
{
    const int64_t baseline = navo::memory::live_blocks();
    for (bool withFreeSlot : {false, true}) {
        for (int64_t n = 1;; n++) {
            navo_test::FailureInjection injection;
            Dictionary dict;
            for (const char *s : {"s0", "s1", "s2", "Nazwisko"})
                ASSERT_EQ(1, dk_sdAddStr(dict.d, s));
            if (withFreeSlot) {
                ASSERT_EQ(1, dk_sdDelStr(dict.d, "s1"));
            }
            const int32_t countBefore = dict.d->count;
            injection.failNth(n);
            const int32_t result = dk_sdAddStr(dict.d, "KodPocztowy");
            injection.off();
            expectSound(dict.d);
            if (result == 1) {
                EXPECT_EQ(withFreeSlot ? 1 : 4, dict.id("KodPocztowy"));
                EXPECT_GE(n, 3);
                break;
            }
            EXPECT_EQ(-1, dict.id("KodPocztowy"));
            EXPECT_EQ(countBefore, dict.d->count) << "n=" << n;
            // The dictionary keeps working after the failure.
            ASSERT_EQ(1, dk_sdAddStr(dict.d, "KodPocztowy"));
            EXPECT_EQ(withFreeSlot ? 1 : 4, dict.id("KodPocztowy"));
            expectSound(dict.d);
            ASSERT_LT(n, 20);
        }
    }
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(DictionaryFailure, StickyFailureFromEveryPointKeepsTheDictionarySound)
{
    const int64_t baseline = navo::memory::live_blocks();
    for (int64_t n = 1; n <= 60; n++) {
        navo_test::FailureInjection injection;
        Dictionary dict(7);
        injection.failNth(n, true);
        int added = 0;
        for (int i = 0; i < 20; i++)
            added += dk_sdAddStr(dict.d, ("name" + std::to_string(i)).c_str());
        injection.off();
        expectSound(dict.d);
        int found = 0;
        for (int i = 0; i < 20; i++)
            found += dict.id("name" + std::to_string(i)) >= 0;
        EXPECT_EQ(added, found);
    }
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(DictionaryFailure, InitWithoutMemory)
{
    navo_test::FailureInjection injection;
    dk_sdDictionary *d = reinterpret_cast<dk_sdDictionary *>(0x1);
    injection.failNth(1);
    EXPECT_EQ(0, dk_sdInit(&d, 400));
    EXPECT_EQ(nullptr, d);
    injection.failNth(2);
    EXPECT_EQ(0, dk_sdInit(&d, 400));
    ASSERT_NE(nullptr, d);
    EXPECT_EQ(nullptr, d->buckets);
    EXPECT_EQ(0, d->count);
    EXPECT_EQ(1, dk_sdDestroy(&d));
}

TEST(DictionaryFailure, GetSafeIdReportsAFailedInterning)
{
    navo_test::FailureInjection injection;
    Dictionary dict;
    int32_t out = 9;
    injection.failNth(1);
    EXPECT_EQ(0, dk_sdGetSafeID(dict.d, "x", &out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(1, dk_sdGetSafeID(dict.d, "x", &out));
    EXPECT_EQ(0, out);
}
