// test_fast_paths.cpp - the batched, bulk and guessed paths of load, field access and save keep what a host sees.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <array>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/allocator.hpp"
#include "core/context.hpp"
#include "core/dictionary.hpp"
#include "interchange/document_loader.hpp"
#include "interchange/scanner.hpp"
#include "interchange/writer.hpp"
#include "navo.h"
#include "navo_builder.h"
#include "platform/file_input.hpp"
#include "store/record_appender.hpp"
#include "test_support.h"
#include "text_input.h"

using navo_test::BlockLayout;

namespace {

const navo_test::Layouts &layouts13()
{
    static const navo_test::Layouts layouts(GetDefTXT_1_3());
    return layouts;
}

constexpr const char *form = "TOBRCA";

// Position of the first repeating block of `form` and its layout.
size_t repeatingIndex()
{
    const std::vector<BlockLayout> &blocks = layouts13().form(form);
    for (size_t b = 0; b < blocks.size(); b++) {
        if (blocks[b].repeating)
            return b;
    }
    return blocks.size();
}

const BlockLayout &repeating()
{
    return layouts13().form(form).at(repeatingIndex());
}

// The record bytes a filled record r of the repeating block holds: its sample values side by side.
std::string recordBytes(int r)
{
    std::string bytes;
    const BlockLayout &block = repeating();
    for (size_t f = 0; f < block.fields.size(); f++)
        bytes += navo_test::sampleValue(0, static_cast<int>(repeatingIndex()), r, static_cast<int>(f), block.fields[f].second);
    return bytes;
}

// A file with one document of `form` whose repeating block has `records` records.
std::string fileWith(int records)
{
    std::vector<int> counts(layouts13().form(form).size(), 1);
    counts[repeatingIndex()] = records;
    return navo_test::fileText("1.3", navo_test::sectionText(layouts13(), form, 0, counts));
}

#ifndef _WIN32
// The line the loader stands on after the closing tag of record `r` of the repeating block.
int32_t lineOfRecordEnd(const std::string &text, int r)
{
    const std::string closing = "</" + repeating().tag + ">";
    size_t at = 0;
    for (int i = 0; i <= r; i++)
        at = text.find(closing, i == 0 ? 0 : at + 1);
    return 1 + static_cast<int32_t>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
}
#endif

struct Seen {
    std::vector<int32_t> errors;
    std::function<int32_t(dk_Context *)> onDocument;
    std::vector<size_t> appends;  // writes, batched, prefilled of the last section
};
Seen *seen = nullptr;

void onError(void *, int32_t code) { seen->errors.push_back(code); }
void onSection(void *, size_t writes, size_t batched, size_t prefilled) { seen->appends = {writes, batched, prefilled}; }

int32_t NAVO_CALL onDocument(dk_Context *ctx, const char *, int32_t)
{
    return seen->onDocument ? seen->onDocument(ctx) : 0;
}

class FastPaths : public ::testing::Test {
protected:
    navo_test::ScopedTempDir tmp;
    dk_Context *ctx = nullptr;
    Seen trace;
    navo::interchange::LoadObserver observer{onError, nullptr, nullptr, onSection};

    void SetUp() override
    {
        ASSERT_EQ(1, dk_Init(&ctx));
        seen = &trace;
        navo::interchange::set_load_observer(&observer);
        dk_UstawCallBack(onDocument);
    }
    void TearDown() override
    {
        dk_UstawCallBack(nullptr);
        navo::interchange::set_load_observer(nullptr);
        seen = nullptr;
        if (ctx != nullptr)
            navo_test::destroyContext(ctx);
        std::vector<std::string> left = tmp.entries();
        std::erase(left, "input.navo");
        EXPECT_EQ(std::vector<std::string>{}, left) << "spool files left behind";
    }
    std::string input() const { return tmp.path() + "/input.navo"; }
    int32_t load(const std::string &bytes)
    {
        navo_test::writeFile(input(), bytes);
        return dk_LoadNAVO(ctx, input().c_str());
    }
    // The repeating block's store of the document the callback is handed.
    static dk_lfBlock &store(dk_Context *c)
    {
        int32_t id = -1;
        dk_sdGetID(c->dictionary, form, &id);
        return *c->documentLists[id].documents[0].blocks[repeatingIndex()];
    }
};

// ---- the batched spool writes of a load ---------------------------------------------------------

// At the callback the spool file holds every record but the last filled and the last blank; the
// cache holds the last filled and dirty; every field reads back. Counts around the batch sizes.
TEST_F(FastPaths, SpoolAtTheCallbackIsThatOfOneAddPerRecord)
{
    const size_t length = recordBytes(0).size();
    for (int records : {1, 2, 3, 54, 55, 56, 57, 64, 65, 66, 130, 300}) {
        SCOPED_TRACE(records);
        int calls = 0;
        trace.onDocument = [&](dk_Context *c) -> int32_t {
            calls++;
            dk_lfBlock &s = store(c);
            EXPECT_EQ(records, s.recordCount);
            EXPECT_EQ(records - 1, s.currentRecord);
            EXPECT_EQ(1, s.dirty);
            std::string expected;
            for (int r = 0; r + 1 < records; r++)
                expected += recordBytes(r);
            expected += std::string(length, ' ');
            EXPECT_EQ(expected, navo_test::readFile(s.path));
            for (int r = records; r-- > 0;) {  // backwards: every read moves the cursor
                const std::string bytes = recordBytes(r);
                size_t offset = 0;
                for (const auto &[name, width] : repeating().fields) {
                    char out[512];
                    EXPECT_EQ(1, dk_GetField(c, form, 0, repeating().tag.c_str(), r, name.c_str(), out, sizeof out));
                    EXPECT_EQ(bytes.substr(offset, static_cast<size_t>(width)), out);
                    offset += static_cast<size_t>(width);
                }
            }
            return 0;
        };
        EXPECT_EQ(1, load(fileWith(records)));
        EXPECT_EQ(1, calls);
        EXPECT_EQ(std::vector<int32_t>{}, trace.errors);
        // Every record behind the first went through the batch, all but the first of those
        // handed over whole, in writes of `room` records and the blank behind them.
        const size_t added = static_cast<size_t>(records) - 1;
        const size_t room = std::min<size_t>(16 * 1024 / length, 65) - 1;
        EXPECT_EQ((std::vector<size_t>{(added + room - 1) / room, added, added > 0 ? added - 1 : 0}), trace.appends);
    }
}

// A spool file the system refuses to grow (a file size limit stands in for a full disk) fails the
// section with 7 and the load with 5, at the line of the record whose add met the limit, whatever
// batch that record falls in; nothing is left behind, and the same file loads once the limit goes.
TEST_F(FastPaths, FullSpoolFailsAtTheLineOfTheRefusedAdd)
{
#ifdef _WIN32
    GTEST_SKIP() << "a full disk is stood in for by a POSIX file-size limit (RLIMIT_FSIZE)";
#else
    const size_t length = recordBytes(0).size();
    const int records = 200;
    const std::string text = fileWith(records);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old {};
    ASSERT_EQ(0, sigaction(SIGXFSZ, &ignore, &old));
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    navo_test::writeFile(input(), text);
    for (size_t limitRecords : {1ul, 2ul, 3ul, 40ul, 54ul, 55ul, 56ul, 57ul, 108ul, 120ul, 199ul}) {
        for (size_t extra : {0ul, length / 2}) {
            const size_t limit = limitRecords * length + extra;
            SCOPED_TRACE(limit);
            trace.errors.clear();
            int calls = 0;
            trace.onDocument = [&](dk_Context *) { return calls++, 0; };
            rlimit small = before;
            small.rlim_cur = limit;
            ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
            const int32_t result = dk_LoadNAVO(ctx, input().c_str());
            const int32_t line = dk_GetNAVOLine();
            ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
            EXPECT_EQ(0, result);
            EXPECT_EQ((std::vector<int32_t>{7, 5}), trace.errors);
            EXPECT_EQ(0, calls);
            // Record k's add is the first write that reaches past k × length.
            EXPECT_EQ(lineOfRecordEnd(text, static_cast<int>(limit / length)), line);
        }
    }
    ASSERT_EQ(0, sigaction(SIGXFSZ, &old, nullptr));
    trace.errors.clear();
    trace.onDocument = nullptr;
    EXPECT_EQ(1, dk_LoadNAVO(ctx, input().c_str()));
#endif
}

// Memory failing at every allocation of a multi-batch load: each failure ends the load with a
// code or is absorbed, leaves no spool file behind (leaks are the sanitizer runs' to find), and
// every load that reaches the callback finds the spool as one add per record leaves it.
TEST_F(FastPaths, LoadUnderEveryAllocationFailure)
{
    const int records = 60;
    navo_test::writeFile(input(), fileWith(records));
    std::string expected;
    for (int r = 0; r + 1 < records; r++)
        expected += recordBytes(r);
    expected += std::string(recordBytes(0).size(), ' ');
    trace.onDocument = [&](dk_Context *c) -> int32_t {
        EXPECT_EQ(expected, navo_test::readFile(store(c).path));
        return 0;
    };
    // A clean run counts the load's allocations; then each of them fails in turn, none skipped.
    navo::memory::reset_counters();
    ASSERT_EQ(1, dk_LoadNAVO(ctx, input().c_str()));
    const int64_t count = navo::memory::allocations();
    for (int64_t n = 1; n <= count; n++) {
        SCOPED_TRACE(n);
        trace.errors.clear();
        navo::memory::reset_counters();
        navo::memory::fail_after(n);
        const int32_t result = dk_LoadNAVO(ctx, input().c_str());
        navo::memory::fail_after(0);
        // A failed shrink keeps the larger block by design, so some points end in a whole load
        // (whose callback checked the spool as above); every other one ends it with a code.
        if (result != 1) {
            EXPECT_NE(0, dk_GetNAVOError());
        }
        EXPECT_EQ(std::vector<std::string>{"input.navo"}, tmp.entries());
    }
}

// The appender driven as the loader drives it, on stores it cannot batch: a record too wide for
// the batch, a record whose slots hold a NUL, a single block. Each add is the literal one; a
// record handed over for another store is not taken; a batch the file refuses outright fails
// at the line of its first add.
TEST_F(FastPaths, AppenderFallsBackToTheLiteralAddWhereItCannotBatch)
{
    dk_Context *c = navo_test::makeContext("Wersja T1\n\n[F, F]\nSingle, 1, 1\nRep, 1, -1\n\n[W, W]\nWide, 1, -1\n\n"
                                           "<Single, SNG>\nX, 4, t\n\n<Rep, REP>\nA, 3, t\nB, 2, t\n\n"
                                           "<Wide, WID>\nC, 9000, t\n");
    ASSERT_NE(nullptr, c);
    const auto target = [&](const char *formName, int32_t doc, const char *tag) {
        navo::store::Target t;
        EXPECT_TRUE(navo::store::find_form(c, formName, t) && navo::store::find_document(t, doc) &&
                    navo::store::find_block(*c, tag, t));
        return t;
    };
    // What the loader does with an element's text: every slot of the record under the cursor, in full.
    const auto fill = [](const navo::store::Target &t, const std::string &text) {
        for (int32_t i = 0; i < t.block->fieldCount; i++) {
            std::memcpy(t.store->fields[i].text, text.data() + t.block->fields[i].offset,
                        static_cast<size_t>(t.block->fields[i].width));
            t.store->fields[i].loaded = 1;
            t.store->fields[i].dirty = 1;
        }
        t.store->dirty = 1;
    };
    int32_t doc = -1;
    ASSERT_EQ(1, dk_AddDocument(c, "W", &doc));
    ASSERT_EQ(1, dk_AddDocument(c, "F", &doc));
    ASSERT_EQ(1, dk_AddDocument(c, "F", &doc));
    navo::store::RecordAppender appender;
    int32_t out = -1;

    const navo::store::Target wide = target("W", 0, "WID");
    for (int32_t r = 0; r < 3; r++) {
        if (r > 0) {
            ASSERT_TRUE(appender.add(*c, "W", 0, "WID", wide, out));
            EXPECT_EQ(r, out);
        }
        const std::string text(9000, static_cast<char>('a' + r));
        fill(wide, text);
        appender.filled(wide, text);
    }
    ASSERT_TRUE(appender.settle());
    EXPECT_EQ(0u, appender.batched());
    for (int32_t r = 0; r < 3; r++) {
        std::string value(9001, '?');
        ASSERT_EQ(1, dk_GetField(c, "W", 0, "WID", r, "C", value.data(), 9001));
        EXPECT_TRUE(value == std::string(9000, static_cast<char>('a' + r)) + '\0') << "record " << r;
    }

    // A NUL among the slots: the literal add, which writes the field up to its NUL.
    const navo::store::Target rep = target("F", 0, "REP");
    fill(rep, std::string("ab\0xy", 5));
    ASSERT_TRUE(appender.add(*c, "F", 0, "REP", rep, out));
    EXPECT_EQ(1, out);
    fill(rep, "cdeuv");
    appender.filled(rep, "cdeuv");
    EXPECT_EQ(0u, appender.batched());
    // The single block is no store to add to.
    EXPECT_FALSE(appender.add(*c, "F", 0, "SNG", target("F", 0, "SNG"), out));

    // Three batched records of document 0, settled; then document 1, with the same cursor, is
    // handed a record while document 0's store is still the one batched.
    for (int32_t r = 2; r <= 4; r++) {
        ASSERT_TRUE(appender.add(*c, "F", 0, "REP", rep, out));
        EXPECT_EQ(r, out);
        const std::string text = "rec" + std::to_string(r) + "!";
        fill(rep, text);
        appender.filled(rep, text);
    }
    EXPECT_EQ(3u, appender.batched());
    EXPECT_EQ(3u, appender.prefilled());
    ASSERT_TRUE(appender.settle());
    const navo::store::Target other = target("F", 1, "REP");
    for (int32_t r = 1; r <= 4; r++)
        ASSERT_EQ(1, dk_AddBlock(c, "F", 1, "REP", &out));
    fill(other, "other");
    appender.filled(other, "other");
    ASSERT_TRUE(appender.add(*c, "F", 1, "REP", other, out));
    EXPECT_EQ(3u, appender.prefilled()) << "a record handed over for another store was taken";
    ASSERT_TRUE(appender.settle());
    EXPECT_EQ("ab |xy cde|uv rec|2! rec|3! rec|4!", [&] {
        std::string text;
        for (int32_t r = 0; r < 5; r++)
            text += (r ? " " : "") + navo_test::field(c, "F", 0, "REP", r, "A") + "|" + navo_test::field(c, "F", 0, "REP", r, "B");
        return text;
    }());
    EXPECT_EQ("other", navo_test::field(c, "F", 1, "REP", 4, "A") + navo_test::field(c, "F", 1, "REP", 4, "B"));

#ifndef _WIN32
    // A file that takes no byte of the batch: the batch fails at the line of its first add.
    ASSERT_TRUE(appender.add(*c, "F", 1, "REP", other, out));
    for (int32_t line : {101, 102}) {
        fill(other, "xxxxx");
        i_lNumerLinii = line;
        ASSERT_TRUE(appender.add(*c, "F", 1, "REP", other, out));
    }
    FILE *readOnly = std::fopen(other.store->path, "rb");
    ASSERT_NE(nullptr, readOnly);
    std::swap(readOnly, other.store->file);
    i_lNumerLinii = 0;
    EXPECT_FALSE(appender.settle());
    EXPECT_EQ(101, i_lNumerLinii);
    std::swap(readOnly, other.store->file);
    std::fclose(readOnly);
#endif
    navo_test::destroyContext(c);
}

// ---- the buffered input of a load ----------------------------------------------------------

// What fgets(line, 200, stream) finds on the text stream, counted the way the loader tells hosts:
// one more than the calls that give a line.
int32_t fgetsCalls(const std::string &path)
{
    FILE *stream = navo_test::openTextInput(path);
    char line[200];
    int32_t calls = 0;
    do
        calls++;
    while (std::fgets(line, sizeof line, stream) != nullptr);
    std::fclose(stream);
    return calls;
}

// Line counts on inputs built to hit the piece size of 199, LF and CR LF line ends, lone CRs,
// TABs, a 0x1A and the input buffer's edges.
TEST_F(FastPaths, LineCountIsThatOfFgetsCalls)
{
    std::vector<std::string> inputs = {"", "\n", "a", "a\n", std::string(198, 'x') + "\n", std::string(199, 'x') + "\n",
                                       std::string(200, 'x'), std::string(398, 'x'), std::string(199, 'x'),
                                       std::string(597, 'x') + "\n\n", "a\r\nb\rc\r", "ab\x1a\ncd\n\n",
                                       std::string(198, 'x') + "\r\n", std::string(199, 'x') + "\r\n",
                                       std::string(200, 'x') + "\r\n", std::string(398, 'x') + "\r\n",
                                       std::string(500, '\t') + "\n"};
    std::string big;
    for (int i = 0; big.size() < 200000; i++)
        big += std::string(static_cast<size_t>(i * 37 % 450), i % 5 == 0 ? '\t' : 'y') + (i % 3 == 0 ? "\r\n" : "\n");
    inputs.push_back(big);
    inputs.push_back(big + "tail");
    inputs.push_back(big.substr(0, 32767) + "\r\n" + big);
    inputs.push_back(fileWith(120));
    inputs.push_back(navo_test::toCrLf(fileWith(120)));
    const int descriptors = navo_test::openDescriptors();
    for (const std::string &text : inputs) {
        SCOPED_TRACE(text.size());
        load(text);
        EXPECT_EQ(fgetsCalls(input()), i_lLinii);
    }
    EXPECT_EQ(descriptors, navo_test::openDescriptors()) << "a load left its file open";
}

// Loads of a valid file as LF, CR LF, with TABs, a 0x1A, a lone CR and a long line, each cut at
// many points (the input buffer's edge among them): the code and line of every case, as the loader
// reading one getc at a time gives them. The rest follows from the code: the result, the document
// delivered (code 0 only), the faults raised (a section's cause and 5; 4 alone); the line count
// is what fgets finds.
TEST_F(FastPaths, CutAndTranslatedInputsGiveTheSameCodesAndLines)
{
    std::string plain = fileWith(120);
    const size_t section = plain.find("<" + std::string(form) + ".DP>");
    plain.insert(section, std::string(450, 'z') + "\n");
    std::string tabbed;
    for (size_t i = 0; i < plain.size(); i++)
        tabbed += (i % 53 == 0 ? "\t" : "") + std::string(1, plain[i]);
    std::string stopped = plain;
    stopped[plain.size() * 2 / 3] = '\x1a';
    std::string crs = plain;
    crs.insert(plain.size() / 2, "\r");
    // Per variant, the code and line of each cut: the whole file, 32767, 32768, 32769 bytes, then
    // k/60 of it for k = 1 to 59.
    const struct {
        const char *name;
        std::string text;
        const char *codes;
        std::vector<int32_t> lines;
    } variants[] = {
        {"LF", plain, "055545555555555555555555555555555555555555555555555555555555555",
         {3659, 3419, 3419, 3419, 12, 42, 96, 159, 223, 286, 348, 410, 472, 533, 595, 658, 721, 784, 847, 910, 973,
          1037, 1098, 1161, 1222, 1283, 1345, 1409, 1471, 1534, 1597, 1660, 1724, 1787, 1848, 1911, 1972, 2033, 2095,
          2159, 2222, 2285, 2348, 2411, 2475, 2537, 2598, 2662, 2722, 2783, 2846, 2910, 2972, 3035, 3098, 3162, 3225,
          3287, 3350, 3412, 3472, 3533, 3597}},
        {"CR LF", navo_test::toCrLf(plain), "055545555555555555555555555555555555555555555555555555555555555",
         {3659, 3088, 3088, 3088, 12, 45, 107, 168, 231, 292, 353, 415, 478, 541, 603, 666, 729, 792, 855, 917, 979,
          1042, 1102, 1163, 1226, 1289, 1352, 1415, 1477, 1540, 1603, 1667, 1728, 1790, 1852, 1913, 1975, 2038, 2100,
          2163, 2226, 2289, 2352, 2415, 2477, 2538, 2601, 2662, 2723, 2786, 2849, 2912, 2974, 3037, 3100, 3163, 3226,
          3288, 3350, 3412, 3473, 3534, 3598}},
        {"TABs", tabbed, "055545555555555555555555555555555555555555555555555555555555555",
         {3659, 3353, 3353, 3353, 12, 42, 96, 159, 223, 286, 348, 410, 472, 533, 595, 658, 721, 784, 847, 910, 973,
          1037, 1098, 1161, 1222, 1283, 1345, 1409, 1471, 1534, 1597, 1660, 1724, 1787, 1848, 1911, 1972, 2033, 2095,
          2159, 2222, 2285, 2348, 2411, 2475, 2537, 2598, 2662, 2722, 2783, 2846, 2910, 2972, 3035, 3098, 3162, 3225,
          3287, 3350, 3412, 3472, 3533, 3597}},
        {"0x1A", stopped, "555545555555555555555555555555555555555555555555555555555555555",
         {2411, 2411, 2411, 2411, 12, 42, 96, 159, 223, 286, 348, 410, 472, 533, 595, 658, 721, 784, 847, 910, 973,
          1037, 1098, 1161, 1222, 1283, 1345, 1409, 1471, 1534, 1597, 1660, 1724, 1787, 1848, 1911, 1972, 2033, 2095,
          2159, 2222, 2285, 2348, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411, 2411,
          2411, 2411, 2411, 2411, 2411, 2411}},
        {"lone CR", crs, "555545555555555555555555555555555555555555555555555555555555555",
         {1790, 1790, 1790, 1790, 12, 42, 96, 159, 223, 286, 348, 410, 472, 533, 595, 658, 721, 784, 847, 910, 973,
          1037, 1098, 1161, 1222, 1283, 1345, 1409, 1471, 1534, 1597, 1660, 1724, 1787, 1790, 1790, 1790, 1790, 1790,
          1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790, 1790,
          1790, 1790, 1790, 1790, 1790, 1790}},
    };
    int calls = 0;
    trace.onDocument = [&](dk_Context *) { return calls++, 0; };
    for (const auto &variant : variants) {
        std::vector<std::pair<std::string, size_t>> cuts = {{"whole", variant.text.size()}, {"32767", 32767},
                                                            {"32768", 32768}, {"32769", 32769}};
        for (size_t k = 1; k < 60; k++)
            cuts.emplace_back(std::to_string(k) + "/60", variant.text.size() * k / 60);
        ASSERT_EQ(cuts.size(), std::strlen(variant.codes));
        ASSERT_EQ(cuts.size(), variant.lines.size());
        for (size_t i = 0; i < cuts.size(); i++) {
            const int32_t code = variant.codes[i] - '0';
            calls = 0;
            trace.errors.clear();
            const int32_t result = load(variant.text.substr(0, cuts[i].second));
            EXPECT_EQ((std::vector<int32_t>{code, variant.lines[i], code == 0, code == 0, fgetsCalls(input()),
                                            code == 5 ? 2 : code != 0}),
                      (std::vector<int32_t>{dk_GetNAVOError(), dk_GetNAVOLine(), result, calls, i_lLinii,
                                            static_cast<int32_t>(trace.errors.size())}))
                << variant.name << " cut " << cuts[i].first << ": code, line, result, documents, line count, faults";
        }
    }
}

// The loader's buffered readers, which read the raw file and apply the text-mode rules themselves
// (16 bytes at a time where they can, tags and closing tags whole), against the byte-wise readers
// on a text stream of the same file: the same answers, texts and line counts, call for call, on
// tags and texts full of TABs, LFs, CR LFs, lone CRs, CR CR LFs and a 0x1A, whose pieces fall
// on every offset of the 16-byte blocks and across the 32 KiB runs of the buffer.
TEST_F(FastPaths, BufferedReadersAnswerAsTheByteWiseReaders)
{
    const std::string pieces[] = {"\r\n", "\n", "\t", "\r", "\r\r\n", " ", "x", "0123456789abcdef", "<",
                                  ">", "/", "AB", "ab", "<TOBXYZ.DP>", "<stopka.NAVO>", "<TOBQ\r\n.DP>"};
    std::mt19937 random(20261124);
    for (int round = 0; round < 24; round++) {
        SCOPED_TRACE(round);
        // Elements "<T>text</T>" with noise inside and between, some cut short.
        std::string bytes;
        const size_t target = round % 3 == 0 ? 70000 : 3000;
        while (bytes.size() < target) {
            const std::string name = random() % 2 ? "AB" : "ab";
            bytes += "<" + name + ">";
            for (int k = static_cast<int>(random() % 12); k > 0; k--)
                bytes += pieces[random() % 8];
            // Some closings name another block: the other case, or this name and more.
            const std::string others[] = {"AB", "Ab", name + "C"};
            bytes += random() % 5 == 0 ? "</" + others[random() % 3] + ">" : "</" + name + ">";
            for (int k = static_cast<int>(random() % 3); k > 0; k--)
                bytes += pieces[random() % std::size(pieces)];
        }
        if (round % 4 == 1)
            bytes[bytes.size() / 2] = '\x1a';
        navo_test::writeFile(input(), bytes);

        navo::platform::FileInput raw;
        ASSERT_TRUE(raw.open(input().c_str()));
        navo::interchange::BulkInput buffered(raw);
        navo::interchange::TextBuffer text;
        FILE *stream = navo_test::openTextInput(input());
        ASSERT_NE(nullptr, stream);
        int32_t bufferedLines = 1;
        int32_t streamLines = 1;
        for (int call = 0;; call++) {
            SCOPED_TRACE(call);
            std::array<char, 32> fast{};
            std::array<char, 32> slow{};
            // Every seventh call, and the first of every other file, looks for the next section tag.
            const bool section = call % 7 == 6 || (call == 0 && round % 2 == 1);
            i_lNumerLinii = bufferedLines;
            const bool a = section ? navo::interchange::next_section(buffered, fast)
                                   : navo::interchange::read_tag(buffered, fast);
            bufferedLines = i_lNumerLinii;
            i_lNumerLinii = streamLines;
            const bool b = section ? navo::interchange::next_section(stream, slow) : navo::interchange::read_tag(stream, slow);
            streamLines = i_lNumerLinii;
            ASSERT_EQ(b, a);
            ASSERT_EQ(slow, fast);
            ASSERT_EQ(streamLines, bufferedLines);
            if (!a)
                break;
            if (section)
                continue;
            std::optional<std::string_view> block;
            const std::string_view opened{fast.data(), strnlen(fast.data(), fast.size())};
            if (call % 3 != 2 && opened.size() > 2)
                block = opened.substr(1, opened.size() - 2);
            char *element = nullptr;
            i_lNumerLinii = bufferedLines;
            const bool c = navo::interchange::read_element(buffered, text, block);
            bufferedLines = i_lNumerLinii;
            i_lNumerLinii = streamLines;
            const bool d = navo::interchange::read_element(stream, element, block);
            streamLines = i_lNumerLinii;
            const std::string byteWise = element != nullptr ? element : "";
            navo::memory::release(element);
            ASSERT_EQ(d, c);
            ASSERT_EQ(streamLines, bufferedLines);
            if (!c)
                break;
            ASSERT_EQ(byteWise, text.c_str());
        }
        std::fclose(stream);
    }
}

// A text that cannot grow past its first 64 bytes: the buffered reader, which grows once for the
// whole run, stops where the byte-wise reader, which grows by doubling as it goes, found its text
// full, with the same LFs counted, whatever TABs, LFs and CR LFs lie before and after that point.
TEST_F(FastPaths, TextThatCannotGrowStopsWhereTheByteWiseReadStopped)
{
    const std::string units[] = {"a\n", "ab\r\n", "\t\ta\r\r\n", "abc", "\n\n\r\nxyz\t"};
    for (const std::string &unit : units) {
        for (size_t shift = 0; shift < 4; shift++) {
            std::string text(shift, 'p');
            while (text.size() < 400)
                text += unit;
            SCOPED_TRACE(testing::PrintToString(text.substr(0, 12)) + " shifted " + std::to_string(shift));
            navo_test::writeFile(input(), "<AB>" + text + "</AB>");
            std::array<char, 32> tag{};
            navo::platform::FileInput raw;
            ASSERT_TRUE(raw.open(input().c_str()));
            navo::interchange::BulkInput buffered(raw);
            navo::interchange::TextBuffer grown;
            i_lNumerLinii = 1;
            ASSERT_TRUE(navo::interchange::read_tag(buffered, tag));
            navo::memory::fail_after(2);  // after the first 64 bytes
            EXPECT_FALSE(navo::interchange::read_element(buffered, grown, std::nullopt));
            navo::memory::fail_after(0);
            const int32_t bufferedLines = i_lNumerLinii;

            FILE *stream = navo_test::openTextInput(input());
            ASSERT_NE(nullptr, stream);
            char *element = nullptr;
            i_lNumerLinii = 1;
            ASSERT_TRUE(navo::interchange::read_tag(stream, tag));
            navo::memory::fail_after(3);  // the first byte, then the first 64
            EXPECT_FALSE(navo::interchange::read_element(stream, element, std::nullopt));
            navo::memory::fail_after(0);
            std::fclose(stream);
            EXPECT_EQ(i_lNumerLinii, bufferedLines);
        }
    }
}

// A CR on the last byte of a run waits for the next run to decide it: alone it stays, before an LF
// it goes, and a 0x1A behind it ends the text after it. Element texts, lines and the next tag as
// the byte-wise reader gives them.
TEST_F(FastPaths, CarriageReturnOnTheLastByteOfARun)
{
    constexpr size_t run = navo::interchange::BulkInput::run_size;
    for (const std::string piece : {"\r", "\r\n", "\r\r\n", "\r\x1a", "\n\r"}) {
        for (size_t at = run - 3; at <= run + 1; at++) {
            SCOPED_TRACE(testing::PrintToString(piece) + " at " + std::to_string(at));
            const std::string opening = "<AB>";
            std::string bytes = opening + std::string(at - opening.size(), 'a') + piece + "b</AB><CD>";
            navo_test::writeFile(input(), bytes);
            std::array<char, 32> fast{};
            std::array<char, 32> slow{};
            navo::platform::FileInput raw;
            ASSERT_TRUE(raw.open(input().c_str()));
            navo::interchange::BulkInput buffered(raw);
            navo::interchange::TextBuffer text;
            i_lNumerLinii = 1;
            ASSERT_TRUE(navo::interchange::read_tag(buffered, fast));
            const bool a = navo::interchange::read_element(buffered, text, std::string_view{"AB"});
            const bool b = a && navo::interchange::read_tag(buffered, fast);
            const int32_t bufferedLines = i_lNumerLinii;

            FILE *stream = navo_test::openTextInput(input());
            ASSERT_NE(nullptr, stream);
            char *element = nullptr;
            i_lNumerLinii = 1;
            ASSERT_TRUE(navo::interchange::read_tag(stream, slow));
            EXPECT_EQ(navo::interchange::read_element(stream, element, std::string_view{"AB"}), a);
            EXPECT_EQ(a && navo::interchange::read_tag(stream, slow), b);
            std::fclose(stream);
            // Texts of 32 KiB are compared without printing them.
            const std::string byteWise = element != nullptr ? element : "";
            EXPECT_TRUE(!a || byteWise == text.c_str()) << byteWise.size() << " bytes byte-wise";
            navo::memory::release(element);
            EXPECT_EQ(slow, fast);
            EXPECT_EQ(i_lNumerLinii, bufferedLines);
        }
    }
}

#ifndef _WIN32
void ignoreSignal(int) {}
#endif

// The raw input on a pipe whose writer comes late and writes in pieces, with a signal (its handler
// installed without SA_RESTART) arriving while the open and each read wait: every read still
// fills the whole request from the pieces and the end comes once, after the last byte.
TEST_F(FastPaths, RawInputFillsEachReadAcrossPiecesAndSignals)
{
#ifdef _WIN32
    GTEST_SKIP() << "named pipes and interrupted system calls are POSIX; Windows reads with fread";
#else
    const std::string fifo = tmp.path() + "/input.navo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    struct sigaction wake {};
    wake.sa_handler = ignoreSignal;
    struct sigaction old {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &wake, &old));
    const std::string pieces[] = {"<NAVO>", "0123456789", "", "x\r\n", "abcdefghijklmnopqrstuvwxyz"};
    const pthread_t reader = pthread_self();
    std::thread writer([&] {
        const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); };
        pause();
        pthread_kill(reader, SIGUSR1);  // the open is waiting for a writer
        pause();
        FILE *pipe = std::fopen(fifo.c_str(), "wb");
        for (const std::string &piece : pieces) {
            pause();
            pthread_kill(reader, SIGUSR1);  // a read is waiting for the piece
            pause();
            std::fwrite(piece.data(), 1, piece.size(), pipe);
            std::fflush(pipe);
        }
        std::fclose(pipe);
    });
    navo::platform::FileInput raw;
    const bool opened = raw.open(fifo.c_str());
    std::string got;
    std::vector<size_t> reads;
    for (size_t n = 1; opened && n != 0;) {
        char buffer[16];
        n = raw.read(buffer, sizeof buffer);
        got.append(buffer, n);
        reads.push_back(n);
    }
    // A failed open must not leave the writer waiting for a reader.
    const int release = opened ? -1 : ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    writer.join();
    if (release >= 0)
        ::close(release);
    ASSERT_EQ(0, sigaction(SIGUSR1, &old, nullptr));
    ASSERT_TRUE(opened);
    EXPECT_EQ("<NAVO>0123456789x\r\nabcdefghijklmnopqrstuvwxyz", got);
    EXPECT_EQ((std::vector<size_t>{16, 16, 13, 0}), reads);
    EXPECT_FALSE(raw.failed());
    std::remove(fifo.c_str());
#endif
}

// ---- field access: guessed IDs and bulk copies ----------------------------------------------

// A context with the version 1.3 definition, tables and one document of `form` with three records
// in its repeating block.
dk_Context *contextWithDocument(const char *definition)
{
    dk_Context *c = nullptr;
    if (!dk_Init(&c) || !dk_dfLoadDefinition(c->definitions, c->dictionary, definition) || !dk_InitDocuments(c, 10))
        return c;
    int32_t doc = -1;
    int32_t record = -1;
    if (dk_AddDocument(c, form, &doc)) {
        dk_AddBlock(c, form, doc, repeating().tag.c_str(), &record);
        dk_AddBlock(c, form, doc, repeating().tag.c_str(), &record);
    }
    return c;
}

// Every way of naming the form, the block and the field, alternating so that each call meets the
// guess left by the one before, on two contexts whose dictionaries number the names differently:
// the answers are those of a full lookup (whose hash tells case apart).
TEST_F(FastPaths, GuessedNamesAnswerAsTheLookup)
{
    dk_Context *other = contextWithDocument(GetDefTXT_1_2());
    dk_Context *mine = contextWithDocument(GetDefTXT_1_3());
    ASSERT_NE(nullptr, other);
    ASSERT_NE(nullptr, mine);
    const std::string tag = repeating().tag;
    const std::string field = repeating().fields[1].first;
    std::string lowerTag = tag;
    for (char &ch : lowerTag)
        ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    ASSERT_EQ(1, dk_SetField(mine, form, 0, tag.c_str(), 1, field.c_str(), "VALUE"));
    struct Case {
        dk_Context *c;
        const char *form;
        std::string block;
        std::string name;
        int32_t record;
        int32_t result;
    };
    const std::string otherForm = layouts13().formNames().front() == form ? layouts13().formNames().back()
                                                                          : layouts13().formNames().front();
    const Case cases[] = {
        {mine, form, tag, field, 1, 1},          {mine, "tobrca", tag, field, 1, 0},
        {mine, form, lowerTag, field, 1, 0},     {mine, "TOBRCB", tag, field, 1, 0},
        {mine, tag.c_str(), tag, field, 1, 0},   {mine, form, form, field, 1, 0},
        {mine, form, tag, tag, 1, 0},            {mine, form, tag, "", 1, 0},
        {mine, "", tag, field, 1, 0},            {mine, otherForm.c_str(), tag, field, 1, 0},
        {mine, form, tag, field, 3, 0},          {mine, form, tag, field, -1, 0},
        {other, form, tag, field, 1, 1},         {mine, form, tag, field, 1, 1},
        {other, form, tag, field, 0, 1},         {mine, form, tag, repeating().fields[0].first, 1, 1},
    };
    for (int round = 0; round < 2; round++) {
        for (const Case &k : cases) {
            SCOPED_TRACE(std::string(k.form) + "/" + k.block + "/" + k.name + "/" + std::to_string(k.record));
            char out[256] = "unchanged";
            EXPECT_EQ(k.result, dk_GetField(k.c, k.form, 0, k.block.c_str(), k.record, k.name.c_str(), out, sizeof out));
            if (k.result == 0) {
                EXPECT_STREQ("", out);
            } else if (k.c == mine && k.name == field) {
                EXPECT_EQ(navo_test::fixed("VALUE", static_cast<size_t>(repeating().fields[1].second)), out);
            }
        }
    }
    EXPECT_EQ(1, dk_Destroy(&other));
    EXPECT_EQ(1, dk_Destroy(&mine));
}

// The block found last in a document is remembered only while no table changes shape: when the
// definition under a document is replaced by one of the same size whose blocks stand the other
// way round (so its memory is likely the old one's), every read answers as on a context that
// never read before the change, with the same bytes.
TEST_F(FastPaths, RememberedBlockNeverOutlivesTheDefinition)
{
    const char *before = "Wersja 1\n\n[F, F]\nA, 1, 1\nB, 1, -1\n\n<A, TA>\nX, 2\n\n<B, TB>\nY, 3\nZ, 4\n";
    const char *after = "Wersja 1\n\n[F, F]\nB, 1, -1\nA, 1, 1\n\n<A, TA>\nX, 2\n\n<B, TB>\nY, 3\nZ, 4\n";
    dk_Context *contexts[2] = {navo_test::makeContext(before, 10), navo_test::makeContext(before, 10)};
    for (dk_Context *c : contexts) {
        ASSERT_NE(nullptr, c);
        int32_t doc = -1;
        ASSERT_EQ(1, dk_AddDocument(c, "F", &doc));
        ASSERT_EQ(1, dk_SetField(c, "F", 0, "TA", 0, "X", "xx"));
        ASSERT_EQ(1, dk_SetField(c, "F", 0, "TB", 0, "Y", "yyy"));
    }
    char out[64];
    ASSERT_EQ(1, dk_GetField(contexts[0], "F", 0, "TB", 0, "Y", out, sizeof out));
    for (dk_Context *c : contexts) {
        ASSERT_EQ(1, dk_dfDestroyDefinition(c->definitions, 0));
        ASSERT_EQ(1, dk_dfLoadDefinition(c->definitions, c->dictionary, after));
    }
    for (const char *block : {"TB", "TA", "TB"}) {
        for (const char *field : {"Y", "Z", "X"}) {
            SCOPED_TRACE(std::string(block) + "." + field);
            std::string read(64, '#');
            std::string fresh(64, '#');
            EXPECT_EQ(dk_GetField(contexts[1], "F", 0, block, 0, field, fresh.data(), 64),
                      dk_GetField(contexts[0], "F", 0, block, 0, field, read.data(), 64));
            EXPECT_EQ(fresh, read);
        }
    }
    for (dk_Context *c : contexts)
        navo_test::destroyContext(c);
}

// The memo above rests on one promise: every call that changes the shape of the tables moves the
// layout generation on (whatever allocator addresses it reuses).
TEST_F(FastPaths, EveryChangeOfShapeMovesTheLayoutGeneration)
{
    const char *text = "Wersja 1\n\n[F, F]\nA, 1, 1\nB, 1, -1\n\n<A, TA>\nX, 2\n\n<B, TB>\nY, 3\n";
    dk_Context *c = nullptr;
    int32_t doc = -1;
    const std::vector<std::pair<const char *, std::function<int32_t()>>> changes = {
        {"dk_Init", [&] { return dk_Init(&c); }},
        {"dk_dfLoadDefinition", [&] { return dk_dfLoadDefinition(c->definitions, c->dictionary, text); }},
        {"dk_InitDocuments", [&] { return dk_InitDocuments(c, 10); }},
        {"dk_AddDocument", [&] { return dk_AddDocument(c, "F", &doc); }},
        {"dk_RemoveDocument", [&] { return dk_RemoveDocument(c, "F", 0); }},
        {"dk_AddDocument again", [&] { return dk_AddDocument(c, "F", &doc); }},
        {"dk_RemoveDocuments", [&] { return dk_RemoveDocuments(c, "F"); }},
        {"dk_AddDocument once more", [&] { return dk_AddDocument(c, "F", &doc); }},
        {"dk_RemoveAllDocuments", [&] { return dk_RemoveAllDocuments(c); }},
        {"dk_dfDestroyDefinition", [&] { return dk_dfDestroyDefinition(c->definitions, 0); }},
        {"dk_dfDestroy", [&] { return dk_dfDestroy(&c->definitions); }},
        {"dk_dfInit", [&] { return dk_dfInit(&c->definitions); }},
        {"dk_Destroy", [&] { return dk_Destroy(&c); }},
    };
    for (const auto &[name, change] : changes) {
        SCOPED_TRACE(name);
        const uint64_t before = navo::layout_generation();
        EXPECT_EQ(1, change());
        EXPECT_NE(before, navo::layout_generation());
    }
}

// The guesses spare the dictionary's lookups, which is what they are for: a load looks names up
// per section, not per record; reads of a record's fields in order after the first read look up
// nothing, nor do writes; reads that alternate between two blocks look up one block name per pair.
TEST_F(FastPaths, GuessesSpareTheDictionaryLookups)
{
    std::vector<uint64_t> perLoad;
    ASSERT_EQ(1, load(fileWith(2)));  // the form guessed from here on
    for (int records : {3, 300}) {
        const uint64_t before = navo::dictionary::lookups();
        ASSERT_EQ(1, load(fileWith(records)));
        perLoad.push_back(navo::dictionary::lookups() - before);
    }
    EXPECT_EQ(perLoad[0], perLoad[1]);

    dk_Context *c = contextWithDocument(GetDefTXT_1_3());
    ASSERT_NE(nullptr, c);
    const std::string tag = repeating().tag;
    const BlockLayout &single = layouts13().form(form).at(repeatingIndex() == 0 ? 1 : 0);
    char out[256];
    ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 0, repeating().fields[0].first.c_str(), out, sizeof out));
    uint64_t before = navo::dictionary::lookups();
    for (int record : {0, 1, 2}) {
        for (const auto &[name, width] : repeating().fields) {
            ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), record, name.c_str(), out, sizeof out));
            ASSERT_EQ(1, dk_SetField(c, form, 0, tag.c_str(), record, name.c_str(), "v"));
        }
    }
    EXPECT_EQ(before, navo::dictionary::lookups());
    before = navo::dictionary::lookups();
    const size_t fields = std::min(single.fields.size(), repeating().fields.size());
    for (size_t f = 0; f < fields; f++) {
        ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 1, repeating().fields[f].first.c_str(), out, sizeof out));
        ASSERT_EQ(1, dk_GetField(c, form, 0, single.tag.c_str(), 0, single.fields[f].first.c_str(), out, sizeof out));
    }
    EXPECT_EQ(before + fields, navo::dictionary::lookups());  // one block name per pair, no field name
    EXPECT_EQ(1, dk_Destroy(&c));
}

// Values shorter than, as long as and longer than the field, read back through buffers shorter
// than, as long as and longer than the field: filled with blanks, cut to the width, and cut to
// the buffer with its terminator; nothing written behind the buffer's size.
TEST_F(FastPaths, FieldCopiesFillCutAndTerminate)
{
    dk_Context *c = contextWithDocument(GetDefTXT_1_3());
    ASSERT_NE(nullptr, c);
    const std::string tag = repeating().tag;
    const auto &[name, width] = repeating().fields[1];
    const auto w = static_cast<size_t>(width);
    for (const std::string &value : {std::string(), std::string("a"), std::string(w - 1, 'b'), std::string(w, 'c'),
                                     std::string(w + 5, 'd')}) {
        for (size_t size : std::initializer_list<size_t>{1, 2, w, w + 1, w + 2, 200}) {
            SCOPED_TRACE(value.size() * 1000 + size);
            ASSERT_EQ(1, dk_SetField(c, form, 0, tag.c_str(), 2, name.c_str(), value.c_str()));
            std::string out(size + 8, '#');
            ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 2, name.c_str(), out.data(), static_cast<int32_t>(size)));
            const std::string stored = navo_test::fixed(value, w);
            EXPECT_EQ(stored.substr(0, size - 1), out.c_str());
            EXPECT_EQ(std::string(8, '#'), out.substr(size));
            // The same through the spool file, after the cursor has moved away and back.
            char elsewhere[256];
            ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 0, name.c_str(), elsewhere, sizeof elsewhere));
            std::string again(size + 8, '#');
            ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 2, name.c_str(), again.data(), static_cast<int32_t>(size)));
            EXPECT_EQ(out, again);
        }
    }
    // A value with an LF comes back whole from the cache, and cut after the LF from the spool
    // file, as fgets cuts a line; a record without one is cut by the widths alone.
    ASSERT_EQ(1, dk_SetField(c, form, 0, tag.c_str(), 2, name.c_str(), "ab\ncd"));
    char cached[256];
    char spooled[256];
    char elsewhere[256];
    ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 2, name.c_str(), cached, sizeof cached));
    ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 0, name.c_str(), elsewhere, sizeof elsewhere));
    ASSERT_EQ(1, dk_GetField(c, form, 0, tag.c_str(), 2, name.c_str(), spooled, sizeof spooled));
    EXPECT_EQ(navo_test::fixed("ab\ncd", w), cached);
    EXPECT_STREQ("ab\n", spooled);
    EXPECT_EQ(std::string(w, ' '), elsewhere);
    EXPECT_EQ(1, dk_Destroy(&c));
}

// ---- the save's direct walk of the store --------------------------------------------------------

#ifndef _WIN32
// A host stream that takes writes while they fit `budget` bytes, then refuses every write, as a
// full disk does; unbuffered, so each write of the library reaches it as made.
struct Budget {
    std::string bytes;
    size_t budget;
    bool full = false;
};

ssize_t budgetWrite(void *cookie, const char *buffer, size_t size)
{
    auto &sink = *static_cast<Budget *>(cookie);
    sink.full = sink.full || sink.bytes.size() + size > sink.budget;
    if (sink.full)
        return -1;
    sink.bytes.append(buffer, size);
    return static_cast<ssize_t>(size);
}
#endif

// Two documents of `form` on a pool of one stream, their repeating blocks filled record by record
// and then touched out of order, so that a save meets dirty caches, cursors in the middle and
// evicted spool files.
dk_Context *contextForSave(int documents = 2)
{
    dk_Context *c = navo_test::makeContext(GetDefTXT_1_3(), 1);
    if (c == nullptr)
        return nullptr;
    const std::string tag = repeating().tag;
    for (int d = 0; d < documents; d++) {
        int32_t doc = -1;
        dk_AddDocument(c, form, &doc);
        for (int r = 0; r < 30; r++) {
            int32_t record = -1;
            if (r > 0)
                dk_AddBlock(c, form, doc, tag.c_str(), &record);
            for (const auto &[name, width] : repeating().fields)
                dk_SetField(c, form, doc, tag.c_str(), r, name.c_str(), (name + std::to_string(d * 100 + r)).c_str());
        }
    }
    for (int r : {7, 3, 29, 11})
        dk_SetField(c, form, r % 2, tag.c_str(), r, repeating().fields[2].first.c_str(), "TOUCHED");
    return c;
}

// dk_SaveDocument of both documents on host streams that refuse writes from many points on: the
// bytes taken, the results, the cursors, flags and spool files afterwards, folded into a digest,
// are those of the save that asked dk_GetField for every field.
TEST_F(FastPaths, SaveWalkKeepsBytesCursorsSpoolsAndStops)
{
#ifdef _WIN32
    GTEST_SKIP() << "the refusing host stream is made with fopencookie, which only glibc has";
#else
    uint64_t digest = 1469598103934665603ull;
    const auto fold = [&](uint64_t value) { digest = (digest ^ value) * 1099511628211ull; };
    const auto foldText = [&](const std::string &text) {
        for (unsigned char ch : text)
            fold(ch);
        fold(text.size());
    };
    int cases = 0;
    for (size_t budget : std::initializer_list<size_t>{0, 1, 9, 200, 1000, 4095, 4096, 9000, 15000, 20000, 33333,
                                                       size_t{1} << 30}) {
        SCOPED_TRACE(budget);
        dk_Context *c = contextForSave();
        ASSERT_NE(nullptr, c);
        Budget sink{{}, budget, false};
        cookie_io_functions_t functions{};
        functions.write = budgetWrite;
        FILE *stream = fopencookie(&sink, "w", functions);
        ASSERT_NE(nullptr, stream);
        setvbuf(stream, nullptr, _IONBF, 0);
        for (int32_t doc : {1, 0})
            fold(static_cast<uint64_t>(dk_SaveDocument(c, form, doc, stream, 1)));
        std::fclose(stream);
        foldText(sink.bytes);
        int32_t id = -1;
        dk_sdGetID(c->dictionary, form, &id);
        for (int32_t doc : {0, 1}) {
            const dk_lfBlock &s = *c->documentLists[id].documents[doc].blocks[repeatingIndex()];
            fold(static_cast<uint64_t>(s.currentRecord));
            fold(static_cast<uint64_t>(s.dirty));
            fold(s.file != nullptr);
            for (int32_t f = 0; f < static_cast<int32_t>(repeating().fields.size()); f++)
                fold(static_cast<uint64_t>(s.fields[f].loaded * 2 + s.fields[f].dirty));
            foldText(navo_test::readFile(s.path));
        }
        EXPECT_EQ(1, dk_Destroy(&c));
        cases++;
    }
    EXPECT_EQ(12, cases);
    EXPECT_EQ(15535035520258934318ull, digest);
#endif
}

// The save walks the store without an allocation of its own per record or field: saving four
// times the documents costs the allocations of saving one, whatever they are.
TEST_F(FastPaths, SaveWalkAllocatesNothingPerRecord)
{
    std::vector<int64_t> counts;
    for (int documents : {1, 4}) {
        dk_Context *c = contextForSave(documents);
        ASSERT_NE(nullptr, c);
        navo::memory::reset_counters();
        ASSERT_EQ(1, dk_SaveNAVO(c, input().c_str(), 1));
        counts.push_back(navo::memory::allocations());
        EXPECT_EQ(1, dk_Destroy(&c));
    }
    EXPECT_EQ(counts[0], counts[1]);
}

// dk_SaveNAVO hands its file the translated text a buffer at a time: refused from many points on
// (a file size limit standing in for a full disk), what reached the file is the start of the
// whole, a save that came out short by more than its last buffer failed with 0, and nothing is
// lost: the next save writes the file a fresh context writes, byte for byte.
TEST_F(FastPaths, SaveNAVOOnAFullFileFailsAndLosesNothing)
{
#ifdef _WIN32
    GTEST_SKIP() << "a full disk is stood in for by a POSIX file-size limit (RLIMIT_FSIZE)";
#else
    const std::string out = tmp.path() + "/input.navo";
    constexpr int documents = 8;  // about 75 KB of file, four buffers and more
    dk_Context *fresh = contextForSave(documents);
    ASSERT_NE(nullptr, fresh);
    dk_SetDefaultNAVOProlog(fresh, "1.3");
    ASSERT_EQ(1, dk_SaveNAVO(fresh, out.c_str(), 1));
    const std::string expected = navo_test::readFile(out);
    EXPECT_EQ(1, dk_Destroy(&fresh));
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old {};
    ASSERT_EQ(0, sigaction(SIGXFSZ, &ignore, &old));
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    // Limits above a spool file's size (30 records), so that only the saved file meets them.
    for (size_t limit : {9000ul, 16384ul, 16385ul, 30000ul, 40000ul, 49153ul, 60000ul, 70000ul}) {
        SCOPED_TRACE(limit);
        dk_Context *c = contextForSave(documents);
        ASSERT_NE(nullptr, c);
        dk_SetDefaultNAVOProlog(c, "1.3");
        rlimit small = before;
        small.rlim_cur = limit;
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
        const int32_t result = dk_SaveNAVO(c, out.c_str(), 1);
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
        // Whatever reached the file is the start of the whole; a limit the save meets fails it.
        const std::string partial = navo_test::readFile(out);
        EXPECT_EQ(0, expected.compare(0, partial.size(), partial));
        if (partial.size() + navo::interchange::save_buffer_size < expected.size()) {
            EXPECT_EQ(0, result);
        }
        EXPECT_EQ(1, dk_SaveNAVO(c, out.c_str(), 1));
        EXPECT_EQ(expected, navo_test::readFile(out));
        EXPECT_EQ(1, dk_Destroy(&c));
    }
    ASSERT_EQ(0, sigaction(SIGXFSZ, &old, nullptr));
#endif
}

}  // namespace
