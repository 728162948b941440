// test_core.cpp - the context's life, the string dictionary, status codes, messages and hooks.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "test_support.h"

using namespace navo_test;

namespace {

const char kSmallDefinition[] = "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 2, t\n";

struct Dict {
    dk_sdDictionary *d = nullptr;
    explicit Dict(uint32_t buckets = 400) { EXPECT_EQ(1, dk_sdInit(&d, buckets)); }
    ~Dict() { EXPECT_EQ(1, dk_sdDestroy(&d)); }
    int32_t id(const char *text)
    {
        int32_t out = -7;
        dk_sdGetID(d, text, &out);
        return out;
    }
};

// Every string can be found by its own text, every ID names its string, counts agree.
void expectSound(dk_sdDictionary *d)
{
    int32_t ids = 0;
    for (uint32_t b = 0; b < d->bucketCount; b++) {
        ids += d->buckets[b].count;
        EXPECT_EQ(d->buckets[b].count == 0, d->buckets[b].ids == nullptr) << "bucket " << b;
        for (int32_t i = 0; i < d->buckets[b].count; i++) {
            const int32_t id = d->buckets[b].ids[i];
            ASSERT_TRUE(id >= 0 && id < d->count && d->strings[id] != nullptr);
            int32_t found = -1;
            EXPECT_EQ(1, dk_sdGetID(d, d->strings[id], &found));
            EXPECT_EQ(id, found) << d->strings[id];
        }
    }
    int32_t held = 0;
    for (int32_t i = 0; i < d->count; i++)
        held += d->strings[i] != nullptr;
    EXPECT_EQ(held, ids);
}

}  // namespace

// ---- context ------------------------------------------------------------------------------------

TEST(Context, DestroySucceedsOnlyOnceTablesExist)
{
    const int64_t live = navo::memory::live_blocks();
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    EXPECT_EQ(0, ctx->formCount);
    EXPECT_EQ(nullptr, ctx->documentLists);
    EXPECT_EQ(0, ctx->dictionary->count);
    EXPECT_EQ(400u, ctx->dictionary->bucketCount);
    EXPECT_EQ(0, ctx->definitions->count);
    EXPECT_EQ(0, dk_Destroy(&ctx));  // no tables: refused, context untouched and usable
    ASSERT_NE(nullptr, ctx);
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, kSmallDefinition));
    EXPECT_EQ(0, dk_Destroy(&ctx));  // definition but still no tables
    ASSERT_EQ(1, dk_InitDocuments(ctx, 3));
    EXPECT_EQ(1, dk_Destroy(&ctx));
    EXPECT_EQ(nullptr, ctx);
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(0, dk_Destroy(nullptr));
    EXPECT_EQ(live, navo::memory::live_blocks());
}

TEST(Context, FormlessDefinitionIsRefusedEvenWithTables)
{
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, "Wersja 1\n\n<A, TA>\nX, 2\n"));
    EXPECT_EQ(1, dk_InitDocuments(ctx, 3));
    EXPECT_EQ(0, dk_Destroy(&ctx));
    EXPECT_EQ(0, ctx->formCount);
    destroyContext(ctx);
}

TEST(Context, InitAndMallocUnderEveryAllocationFailure)
{
    ScopedTempDir tmp;
    dk_Context *ctx = nullptr;
    sweepAllocations({.act = [&] { ctx = reinterpret_cast<dk_Context *>(&ctx); return dk_Init(&ctx); },
                      .check =
                          [&](int32_t result, int64_t n) {
                              EXPECT_EQ(n == 0, result == 1);
                              // The record itself missing gives null; a later failure keeps the
                              // part-built record for the host to see.
                              EXPECT_EQ(n == 1, ctx == nullptr);
                          },
                      .teardown = [&] { destroyContext(ctx); }},
                     tmp);
    void *block = nullptr;
    sweepAllocations({.act = [&] { block = dk_Malloc(100); return block != nullptr; },
                      .check = [&](int32_t result, int64_t n) { EXPECT_EQ(n == 0, result == 1); },
                      .teardown = [&] { dk_Free(block); dk_Free(nullptr); }},
                     tmp);
    // The tests' hook: a count below one fails nothing, and a zero-byte block is a block.
    navo::memory::fail_after(-3);
    void *small = dk_Malloc(0);
    EXPECT_NE(nullptr, small);
    dk_Free(small);
    navo::memory::fail_after(0);
}

// ---- dictionary ---------------------------------------------------------------------------------

TEST(Dictionary, CompareFoldsAsciiCaseOverSignedBytes)
{
    const struct {
        const char *left, *right;
        int32_t result;  // -1, 0 or 1, nothing else
    } rows[] = {
        {"abc", "ABC", 0}, {"", "", 0},    {"a", "", 1},         {"", "a", -1},       {"abc", "abd", -1},
        {"Zz", "zZ", 0},   {"[", "{", -1}, {"\xE9", "\xC9", 1}, {"\xB9", "a", -1},   {"a", "\xB9", 1},
        {"_", "a", 1},    {"@", "`", -1}, {"ab", "abc", -1},    {"NIP", "nip", 0},
        {"\x81", "\x80", 1}, {"\x80", "\x81", -1}, {"\xFF", "\x80", 1}, {"\x80", "", -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, dk_sdStrCmp(row.left, row.right)) << '"' << row.left << "\" vs \"" << row.right << '"';
    }
}

TEST(Dictionary, TrimAllRemovesTabLineFeedAndSpaceAndRespectsTheBuffer)
{
    const struct {
        const char *text;
        int32_t size, result;
        const char *out;
    } rows[] = {
        {" a\tb\nc d ", 10, 1, "abcd"}, {"", 4, 1, ""},       {"\r\v\f", 8, 1, "\r\v\f"},
        {"abcd", 5, 1, "abcd"},          {"abcd", 4, 0, ""},   {"a b c d e", 3, 0, ""},
        {"  x  ", 2, 1, "x"},            {"ab", 1, 0, ""},
    };
    for (const auto &row : rows) {
        char out[16];
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(row.result, dk_sdTrimAll(row.text, out, row.size)) << row.text;
        if (row.result == 1) {
            EXPECT_STREQ(row.out, out) << row.text;
            for (int32_t i = static_cast<int32_t>(std::strlen(out)); i < row.size; i++)
                EXPECT_EQ('\0', out[i]) << "unfilled byte " << i << " of " << row.text;
        }
    }
}

// Small bucket counts put many names in one bucket: search, insert and delete in the middle,
// at both ends and of the only member; case variants share a bucket only when they hash alike.
TEST(Dictionary, InternSearchAndDeleteKeepEveryBucketSound)
{
    for (uint32_t buckets : {1u, 2u, 7u, 400u}) {
        SCOPED_TRACE("buckets " + std::to_string(buckets));
        Dict dict(buckets);
        std::vector<std::string> names;
        for (int i = 0; i < 60; i++)
            names.push_back((i % 3 ? "Pole" : "x") + std::to_string(i * 7919 % 1000));
        for (size_t i = 0; i < names.size(); i++) {
            ASSERT_EQ(1, dk_sdAddStr(dict.d, names[i].c_str()));
            EXPECT_EQ(static_cast<int32_t>(i), dict.id(names[i].c_str()));
        }
        EXPECT_EQ(1, dk_sdAddStr(dict.d, names[5].c_str()));  // again: same ID, nothing added
        EXPECT_EQ(60, dict.d->count);
        EXPECT_EQ(0, dk_sdDopisz(dict.d, names[5].c_str()));
        EXPECT_EQ(-1, dict.id("absent"));
        EXPECT_EQ(-1, dict.id("Pole"));
        expectSound(dict.d);
        // Delete every third, the first and the last: the others stay found, IDs are reused
        // lowest first.
        for (size_t i = 0; i < names.size(); i += 3)
            ASSERT_EQ(1, dk_sdDelStr(dict.d, names[i].c_str()));
        EXPECT_EQ(0, dk_sdDelStr(dict.d, names[0].c_str()));
        expectSound(dict.d);
        for (size_t i = 0; i < names.size(); i++)
            EXPECT_EQ(i % 3 ? static_cast<int32_t>(i) : -1, dict.id(names[i].c_str())) << names[i];
        ASSERT_EQ(1, dk_sdDopisz(dict.d, "nowy"));
        EXPECT_EQ(0, dict.id("nowy"));
        ASSERT_EQ(1, dk_sdAddStr(dict.d, "drugi"));
        EXPECT_EQ(3, dict.id("drugi"));
        expectSound(dict.d);
        for (size_t i = 1; i < names.size(); i += 3)
            ASSERT_EQ(1, dk_sdDelStr(dict.d, names[i].c_str()));
        expectSound(dict.d);
    }
}

TEST(Dictionary, CaseVariantsAndEdgeTexts)
{
    Dict one(1);
    ASSERT_EQ(1, dk_sdAddStr(one.d, "Nazwisko"));
    EXPECT_EQ(1, dk_sdAddStr(one.d, "NAZWISKO"));  // same bucket: one string, kept as first stored
    EXPECT_EQ(1, one.d->count);
    EXPECT_STREQ("Nazwisko", one.d->strings[0]);
    EXPECT_EQ(0, one.id("nazwisko"));
    EXPECT_EQ(1, dk_sdAddStr(one.d, ""));
    EXPECT_EQ(1, one.id(""));
    // A host sees the hash as this: a case variant in the same bucket is the same name, one in
    // another bucket a second name. Each of the first ten characters moves the bucket but for
    // those whose case difference vanishes modulo the bucket count.
    for (const auto &[buckets, expected] : std::vector<std::pair<uint32_t, std::string>>{{400, "2212222211"}, {7, "2221212211"}}) {
        Dict wide(buckets);
        std::string pattern;
        ASSERT_EQ(1, dk_sdAddStr(wide.d, "abcdefghij"));
        for (size_t k = 0; k < 10; k++) {
            std::string variant = "abcdefghij";
            variant[k] = static_cast<char>(variant[k] - 32);
            const int32_t before = wide.d->count;
            ASSERT_EQ(1, dk_sdAddStr(wide.d, variant.c_str()));
            pattern += wide.d->count > before ? "2" : "1";
        }
        EXPECT_EQ(expected, pattern) << buckets << " buckets";
    }
    int32_t out = 5;
    EXPECT_EQ(0, dk_sdGetID(nullptr, "x", &out));
    EXPECT_EQ(1, dk_sdGetSafeID(one.d, "neu", &out));
    EXPECT_EQ(2, out);
    EXPECT_EQ(0, dk_sdGetSafeID(nullptr, "neu", &out));
    EXPECT_EQ(-1, out);
    dk_sdDictionary *none = nullptr;
    EXPECT_EQ(0, dk_sdInit(&none, 0));  // no bucket could hold a string: refused
    ASSERT_NE(nullptr, none);
    EXPECT_EQ(nullptr, none->buckets);
    EXPECT_EQ(1, dk_sdDestroy(&none));
}

TEST(Dictionary, EveryAllocationOfAnAddFailsCleanly)
{
    ScopedTempDir tmp;
    for (bool freeSlot : {false, true}) {
        dk_sdDictionary *d = nullptr;
        sweepAllocations({.setup =
                              [&] {
                                  ASSERT_EQ(1, dk_sdInit(&d, 2));
                                  for (const char *s : {"s0", "s1", "s2", "s3"})
                                      ASSERT_EQ(1, dk_sdAddStr(d, s));
                                  EXPECT_EQ(1, freeSlot ? dk_sdDelStr(d, "s1") : 1);
                              },
                          .act = [&] { return dk_sdAddStr(d, "KodPocztowy"); },
                          .check =
                              [&](int32_t result, int64_t n) {
                                  EXPECT_EQ(n == 0, result == 1);
                                  int32_t id = -7;
                                  dk_sdGetID(d, "KodPocztowy", &id);
                                  EXPECT_EQ(n == 0 ? (freeSlot ? 1 : 4) : -1, id);
                                  expectSound(d);
                                  if (n > 0) {  // and the dictionary goes on working
                                      EXPECT_EQ(1, dk_sdGetSafeID(d, "KodPocztowy", &id));
                                      EXPECT_EQ(freeSlot ? 1 : 4, id);
                                  }
                              },
                          .teardown = [&] { dk_sdDestroy(&d); }},
                         tmp);
    }
    dk_sdDictionary *d = nullptr;
    int32_t safe = 7;
    sweepAllocations({.setup = [&] { ASSERT_EQ(1, dk_sdInit(&d, 2)); },
                      .act = [&] { return dk_sdGetSafeID(d, "neu", &safe); },
                      .check =
                          [&](int32_t result, int64_t n) {
                              EXPECT_EQ(n == 0, result == 1);
                              EXPECT_EQ(n == 0 ? 0 : -1, safe);
                          },
                      .teardown = [&] { dk_sdDestroy(&d); }},
                     tmp);
    sweepAllocations({.act = [&] { return dk_sdInit(&d, 16); },
                      .check = [&](int32_t result, int64_t n) { EXPECT_EQ(n == 0, result == 1); },
                      .teardown =
                          [&] {
                              if (d != nullptr) {
                                  dk_sdDestroy(&d);
                              }
                          }},
                     tmp);
}

// ---- status and hooks ---------------------------------------------------------------------------

namespace {
// The messages in CP1250, as a Polish Windows host shows them.
const char *const kMessages[11] = {
    "Wszystko jest w porz\xB9" "dku",
    "Z\xB3" "y format pliku NAVO - to nie jest plik NAVO",
    "Nie powiod\xB3" "a sie pr\xF3" "ba otwarcia pliku NAVO",
    "B\xB3\xB9" "d odczytu - niespodziewany koniec pliku",
    "Z\xB3" "y format pliku - oczekiwano innego wpisu",
    "Z\xB3" "y format dokumentu - b\xB3\xB9" "d podczas analizy dokumentu",
    "Wyst\xB9" "pi\xB3" " nieoczekiwany blok, kt\xF3" "rego nie ma w definicji dokumentu",
    "Z\xB3" "y rozmiar bloku",
    "B\xB3\xB9" "d systemu - nie uda\xB3" "o si\xEA utworzy\xE6 dokumentu",
    "Brak wolnej pami\xEA" "ci !",
    "Anulowano",
};
}  // namespace

// Every size from 1 to one past the message: cut to size-1 characters, terminated, the rest
// zeroed, success; codes outside 0..10 give 0 and an empty text at every size.
TEST(Status, MessagesAtEveryBufferSize)
{
    for (int32_t code = -1; code <= 11; code++) {
        const std::string message = code >= 0 && code <= 10 ? kMessages[code] : "";
        for (int32_t size = 1; size <= static_cast<int32_t>(message.size()) + 2; size++) {
            std::string out(static_cast<size_t>(size), '#');
            EXPECT_EQ(code >= 0 && code <= 10, dk_GetNAVOErrorMessage(code, out.data(), size) == 1) << code;
            EXPECT_EQ(message.substr(0, static_cast<size_t>(size - 1)), out.c_str()) << code << "/" << size;
            EXPECT_EQ(std::string::npos, out.find('#')) << "unzeroed bytes, code " << code << " size " << size;
        }
    }
    for (int32_t code : {INT32_MIN, 100, INT32_MAX}) {
        char out[4] = "##";
        EXPECT_EQ(0, dk_GetNAVOErrorMessage(code, out, sizeof out));
        EXPECT_STREQ("", out);
    }
    char out[64] = "#";
    EXPECT_EQ(0, dk_GetNAVOErrorMessage(1, out, 0));
    EXPECT_EQ('#', out[0]);
    EXPECT_EQ(0, dk_GetNAVOErrorMessage(1, nullptr, 10));
}

namespace {
int g_calls = 0;
int32_t g_answer = 0;
dk_Context *g_seenContext = nullptr;
std::string g_seen;
int32_t NAVO_CALL recordingCallback(dk_Context *ctx, const char *form, int32_t docIndex)
{
    g_calls++;
    g_seenContext = ctx;
    g_seen = std::string(form) + "/" + std::to_string(docIndex);
    return g_answer;
}
}  // namespace

TEST(Status, HooksAndTheDocumentCallback)
{
    EXPECT_EQ(1, dk_OnNAVOError(0));
    for (int32_t code : {1, 5, 10, 11, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(0, dk_OnNAVOError(code)) << code;
    dk_OnNAVOBlock(nullptr, "TOBZUA", 0, "IORB", 3);  // a hook that does nothing, and may be called
    dk_UstawCallBack(nullptr);
    EXPECT_EQ(0, dk_OnNAVODocument(nullptr, "TOBZUA", 0));
    dk_UstawCallBack(recordingCallback);
    EXPECT_EQ(reinterpret_cast<void *>(&recordingCallback), reinterpret_cast<void *>(OnNAVODocument));
    dk_Context *marker = reinterpret_cast<dk_Context *>(&g_calls);
    for (const auto &[answer, expected] : std::vector<std::pair<int32_t, int32_t>>{
             {0, 0}, {1, 2}, {-1, 2}, {2, 2}, {INT32_MIN, 2}, {INT32_MAX, 2}}) {
        g_answer = answer;
        const int before = g_calls;
        EXPECT_EQ(expected, dk_OnNAVODocument(marker, "TOBZUA", 3)) << answer;
        EXPECT_EQ(before + 1, g_calls);
        EXPECT_EQ(marker, g_seenContext);
        EXPECT_EQ("TOBZUA/3", g_seen);
    }
    dk_UstawCallBack(nullptr);
    EXPECT_EQ(0, dk_OnNAVODocument(nullptr, "TOBZUA", 0));
    OnNAVODocument = recordingCallback;  // a host may set the variable itself
    g_answer = 7;
    EXPECT_EQ(2, dk_OnNAVODocument(nullptr, "X", 0));
    OnNAVODocument = nullptr;
    const int32_t saved = i_lNumerLinii;
    i_lNumerLinii = 12345;
    EXPECT_EQ(12345, dk_GetNAVOLine());
    i_lNumerLinii = saved;
}

// The code and the last message follow each load; a missing file is code 2.
TEST(Status, LastMessageFollowsTheLoad)
{
    ScopedTempDir tmp;
    dk_Context *ctx = nullptr;
    ASSERT_EQ(1, dk_Init(&ctx));
    char out[80];
    for (const auto &[bytes, code] : std::vector<std::pair<std::string, int32_t>>{{"", 3}, {std::string(200, 'x'), 1}}) {
        writeFile(tmp.file("in.navo"), bytes);
        EXPECT_EQ(0, dk_LoadNAVO(ctx, tmp.file("in.navo").c_str()));
        EXPECT_EQ(code, dk_GetNAVOError());
        EXPECT_EQ(1, dk_GetLastNAVOErrorMessage(out, sizeof out));
        EXPECT_STREQ(kMessages[code], out);
        EXPECT_EQ(1, dk_GetLastNAVOErrorMessage(out, 5));
        EXPECT_EQ(std::string(kMessages[code]).substr(0, 4), out);
    }
    EXPECT_EQ(0, dk_LoadNAVO(ctx, tmp.file("missing.navo").c_str()));
    EXPECT_EQ(2, dk_GetNAVOError());
    destroyContext(ctx);
}

// The shared library exports exactly the names of cmake/exported-names.txt (the list the Windows
// build checks its DLL against), and nothing else.
TEST(Exports, SharedLibraryExportsExactlyTheListedNames)
{
#if !defined(__linux__)
    GTEST_SKIP() << "read with nm -D; the Windows DLL's exports are checked by scripts/build-windows.sh";
#else
    std::set<std::string> expected, exported;
    std::ifstream list(std::string(NAVO_SOURCE_DIR) + "/cmake/exported-names.txt");
    for (std::string line; std::getline(list, line);)
        if (!line.empty() && line[0] != '#')
            expected.insert(line);
    ASSERT_EQ(68u, expected.size());
    FILE *pipe = popen(("nm -D --defined-only '" + std::string(NAVO_SHARED_LIBRARY) + "' 2>/dev/null").c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    char line[512], address[128], type[8], name[256];
    while (std::fgets(line, sizeof line, pipe) != nullptr)
        if (std::sscanf(line, "%127s %7s %255s", address, type, name) == 3 && std::strncmp(name, "__odr_asan", 10) != 0 &&
            std::strncmp(name, "__asan", 6) != 0)
            exported.insert(name);
    pclose(pipe);
    EXPECT_EQ(expected, exported);
#endif
}

// The library is C++ inside but needs no C++ runtime: a C host links it alone (README).
TEST(Exports, SharedLibraryNeedsNoCxxRuntime)
{
#if !defined(__linux__)
    GTEST_SKIP() << "read with objdump -p; the Windows DLL links its runtime in (scripts/build-windows.sh)";
#else
    FILE *pipe = popen(("objdump -p '" + std::string(NAVO_SHARED_LIBRARY) + "' 2>/dev/null").c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    std::string needed;
    char line[512];
    while (std::fgets(line, sizeof line, pipe) != nullptr)
        if (std::strstr(line, "NEEDED") != nullptr)
            needed += line;
    pclose(pipe);
    ASSERT_NE(std::string::npos, needed.find("libc.so")) << needed;
    EXPECT_EQ(std::string::npos, needed.find("libstdc++")) << needed;
#endif
}
