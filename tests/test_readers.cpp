// test_readers.cpp - the four readers on every kind of input and the text-mode streams under them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "internals.hpp"
#include "test_support.h"

using namespace navo_test;

namespace {

std::string B(const char *bytes, size_t size) { return std::string(bytes, size); }

// One reader call on one input. `kind`: c = dk_LoadChar until -1 (results joined by spaces),
// n = dk_LoadStringbyLen(size, count), t = dk_LoadStringforTag(size), e = dk_LoadStringtoTerminator
// (block; null when `block` is "*"). `out` for n and t is the whole buffer, '#' where untouched;
// for e the text or "<null>". `next` is the byte left for fgetc (-2: not checked). `lines`: the
// line counter afterwards, from 1.
struct ReadRow {
    char kind;
    bool textMode;
    std::string input;
    int32_t size, count;
    const char *block;
    int32_t result;
    std::string out;
    int next;
    int32_t lines;
};

const ReadRow kReadRows[] = {
    // dk_LoadChar: TAB skipped, LF counted and skipped; space, CR, signed bytes come back.
    {'c', false, "\t\n\tA\n\n\tB", 0, 0, nullptr, 0, "65 66 -1", -1, 4},
    {'c', false, " \rX\r\n", 0, 0, nullptr, 0, "32 13 88 13 -1", -1, 2},
    {'c', true, " \r\nX\r\r\n", 0, 0, nullptr, 0, "32 88 13 -1", -1, 3},
    {'c', false, "\x80\xB9\xFE\x7F", 0, 0, nullptr, 0, "-128 -71 -2 127 -1", -1, 1},
    {'c', false, "\xFF" "A", 0, 0, nullptr, 0, "-1", 'A', 1},  // data 0xFF reads as the end
    {'c', true, B("A\x1A" "B\n", 4), 0, 0, nullptr, 0, "65 -1", -1, 1},
    {'c', false, B("A\x1A", 2), 0, 0, nullptr, 0, "65 26 -1", -1, 1},
    {'c', false, "", 0, 0, nullptr, 0, "-1", -1, 1},
    // dk_LoadStringbyLen: LF and TAB dropped (LF counted), everything else stored, rest zeroed.
    {'n', false, "A\n\tB", 6, 2, nullptr, 1, B("AB\0\0\0\0##", 8), -1, 2},
    {'n', false, " \r X", 6, 4, nullptr, 1, B(" \r X\0\0##", 8), -1, 1},
    {'n', true, "A\r\nB\r\nC", 4, 3, nullptr, 1, B("ABC\0##", 6), -1, 3},
    {'n', false, "A\r\nB\r\nC", 6, 5, nullptr, 1, B("A\rB\rC\0##", 8), -1, 3},
    {'n', false, "\xFFZ\xFF", 4, 3, nullptr, 1, B("\xFFZ\xFF\0##", 6), -1, 1},
    {'n', false, "abcde", 8, 6, nullptr, 0, B("abcde\0\0\0##", 10), -1, 1},
    {'n', false, "", 2, 1, nullptr, 0, B("\0\0##", 4), -1, 1},
    {'n', true, B("abc\x1A" "defg", 8), 5, 4, nullptr, 0, B("abc\0\0##", 7), -2, 1},
    {'n', false, "\nxyz", 3, 0, nullptr, 1, B("\0\0\0##", 5), '\n', 1},
    {'n', false, "\nxyz", 3, -3, nullptr, 1, B("\0\0\0##", 5), '\n', 1},
    {'n', false, "ab\ncd\nef", 6, 5, nullptr, 1, B("abcde\0##", 8), 'f', 3},
    {'n', false, "abcdefg", 3, 5, nullptr, 0, "abc##", 'd', 1},  // full: no terminator, no more read
    {'n', false, "abc", 3, 3, nullptr, 1, "abc##", -1, 1},
    {'n', false, "a", 1, 1, nullptr, 1, "a##", -1, 1},
    // dk_LoadStringforTag: blanks, CR, LF skipped ahead; LF and TAB dropped inside.
    {'t', false, "  \r \r\n\t\n <A>rest", 6, 0, nullptr, 1, B("<A>\0\0\0##", 8), 'r', 3},
    {'t', true, "\r\n\r\n<naglowek.NAVO>\r\n", 16, 0, nullptr, 1, B("<naglowek.NAVO>\0##", 18), '\n', 3},
    {'t', false, " x<A>", 3, 0, nullptr, 0, B("\0\0\0##", 5), '<', 1},
    {'t', false, "", 3, 0, nullptr, 0, B("\0\0\0##", 5), -1, 1},
    {'t', false, "\xFF<A>", 3, 0, nullptr, 0, B("\0\0\0##", 5), -2, 1},
    {'t', false, "<A B\r\xFF<>", 9, 0, nullptr, 1, B("<A B\r\xFF<>\0##", 11), -1, 1},
    {'t', false, "<A\n\tB>", 6, 0, nullptr, 1, B("<AB>\0\0##", 8), -1, 2},
    {'t', true, "<A\r\nB>", 5, 0, nullptr, 1, B("<AB>\0##", 7), -1, 2},
    {'t', false, "<AB", 5, 0, nullptr, 0, B("<AB\0\0##", 7), -1, 1},
    {'t', true, B("<AB\x1A" "C>", 6), 5, 0, nullptr, 0, B("<AB\0\0##", 7), -2, 1},
    {'t', false, "<ABCDEF>", 4, 0, nullptr, 1, "<ABC##", 'D', 1},  // full: unterminated
    {'t', false, "<AB>", 4, 0, nullptr, 1, "<AB>##", -1, 1},
    {'t', false, "<AB>", 5, 0, nullptr, 1, B("<AB>\0##", 7), -1, 1},
    {'t', false, "<A>", 0, 0, nullptr, 1, "##", '<', 1},
    {'t', false, "<A>", 1, 0, nullptr, 1, "<##", 'A', 1},
    // dk_LoadStringtoTerminator: text up to the closing tag of `block` (ASCII case folded).
    {'e', false, "AB\nCD</T>", 0, 0, "T", 1, "ABCD", -1, 2},
    {'e', true, "A B\r\n C\tD\r</T>", 0, 0, "T", 1, "A B CD\r", -1, 2},
    {'e', false, "AB</T >", 0, 0, "T", 0, "AB", -2, 1},
    {'e', false, "AB</TT>", 0, 0, "T", 0, "AB", -2, 1},
    {'e', false, "AB</>", 0, 0, "T", 0, "AB", -2, 1},
    {'e', false, "AB</T>", 0, 0, "TT", 0, "AB", -2, 1},
    {'e', false, "AB</TX>rest", 0, 0, "T", 0, "AB", '>', 1},
    {'e', false, "AB</QT>", 0, 0, "T", 0, "AB", 'T', 1},
    {'e', false, "AB<xyz\n\t/T>", 0, 0, "T", 1, "AB", -1, 2},
    {'e', false, "AB</D\nOR\tCA>", 0, 0, "dorca", 1, "AB", -1, 2},
    {'e', false, "AB</\xB9>", 0, 0, "\xA5", 0, "AB", -2, 1},
    {'e', false, "AB</\xB9>", 0, 0, "\xB9", 1, "AB", -1, 1},
    {'e', false, "AB</IoRb>", 0, 0, "iOrB", 1, "AB", -1, 1},
    {'e', false, "AB</@>", 0, 0, "`", 0, "AB", -2, 1},
    {'e', false, "AB</whatever it is>Z", 0, 0, "*", 1, "AB", 'Z', 1},
    {'e', false, "AB<x/y z>Z", 0, 0, "*", 1, "AB", 'Z', 1},
    {'e', false, "AB</T", 0, 0, "*", 0, "AB", -1, 1},
    {'e', false, "</T>", 0, 0, "T", 1, "", -1, 1},
    {'e', false, "\n\t\n</T>", 0, 0, "T", 1, "", -1, 3},
    {'e', false, "ABC", 0, 0, "T", 0, "<null>", -1, 1},
    {'e', false, "", 0, 0, "T", 0, "<null>", -1, 1},
    {'e', false, "AB<", 0, 0, "T", 0, "AB", -1, 1},
    {'e', false, "AB</", 0, 0, "*", 0, "AB", -1, 1},
    {'e', false, "A\xFF" "B</T>", 0, 0, "T", 1, "A\xFF" "B", -1, 1},
    {'e', true, B("AB\x1A" "C</T>", 8), 0, 0, "T", 0, "<null>", -2, 1},
    {'e', false, "A>B</T>", 0, 0, "T", 1, "A>B", -1, 1},
};

class Readers : public ::testing::TestWithParam<ReadRow> {
protected:
    ScopedTempDir tmp;
};

std::string label(const ReadRow &row)
{
    std::string text = std::string(1, row.kind) + (row.textMode ? " text " : " raw ");
    for (unsigned char c : row.input)
        text += c >= 0x20 && c < 0x7F ? std::string(1, static_cast<char>(c)) : "\\x" + std::to_string(c);
    return text;
}

// GoogleTest names a row by this, not by its raw bytes.
void PrintTo(const ReadRow &row, std::ostream *out) { *out << label(row); }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rows, Readers, ::testing::ValuesIn(kReadRows));

TEST_P(Readers, OneCallOnOneInput)
{
    const ReadRow &row = GetParam();
    SCOPED_TRACE(label(row));
    const std::string path = tmp.file("in.navo");
    writeFile(path, row.input);
    FILE *stream = row.textMode ? internals::openText(path, "rt") : std::fopen(path.c_str(), "rb");
    ASSERT_NE(nullptr, stream);
    i_lNumerLinii = 1;
    std::string out(static_cast<size_t>(row.size) + 2, '#');
    int32_t result = 0;
    if (row.kind == 'c') {
        std::string seen;
        for (int i = 0; i < 8; i++) {
            const int32_t c = dk_LoadChar(stream);
            seen += (seen.empty() ? "" : " ") + std::to_string(c);
            if (c == -1)
                break;
        }
        out = seen;
    } else if (row.kind == 'n') {
        result = dk_LoadStringbyLen(stream, out.data(), row.size, row.count);
    } else if (row.kind == 't') {
        result = dk_LoadStringforTag(stream, out.data(), row.size);
    } else {
        char *text = nullptr;
        const int64_t live = navo::memory::live_blocks();
        result = dk_LoadStringtoTerminator(stream, &text, std::strcmp(row.block, "*") == 0 ? nullptr : row.block);
        EXPECT_EQ(live + (text != nullptr), navo::memory::live_blocks());
        out = text != nullptr ? text : "<null>";
        dk_Free(text);
    }
    EXPECT_EQ(row.result, result);
    EXPECT_EQ(row.out, out);
    EXPECT_TRUE(row.next == -2 || row.next == std::fgetc(stream)) << "byte left behind";
    EXPECT_EQ(row.lines, i_lNumerLinii);
    std::fclose(stream);
}

// A missing stream or output is refused before anything is read.
TEST(ReaderArguments, NullStreamOrOutputIsRefused)
{
    ScopedTempDir tmp;
    writeFile(tmp.file("in"), "<A>");
    FILE *stream = std::fopen(tmp.file("in").c_str(), "rb");
    ASSERT_NE(nullptr, stream);
    char out[4] = "";
    EXPECT_EQ(-1, dk_LoadChar(nullptr));
    EXPECT_EQ(0, dk_LoadStringforTag(nullptr, out, 4));
    EXPECT_EQ(0, dk_LoadStringforTag(stream, nullptr, 4));
    EXPECT_EQ(0, dk_LoadStringbyLen(nullptr, out, 4, 1));
    EXPECT_EQ(0, dk_LoadStringbyLen(stream, nullptr, 4, 1));
    EXPECT_EQ(0, dk_LoadStringtoTerminator(stream, nullptr, "A"));
    // A negative size is no room: reading nothing succeeds, reading anything fails, and the
    // output and the stream are left alone.
    EXPECT_EQ(1, dk_LoadStringbyLen(stream, out, -1, 0));
    EXPECT_EQ(1, dk_LoadStringbyLen(stream, out, -1, -3));
    EXPECT_EQ(0, dk_LoadStringbyLen(stream, out, -1, 1));
    EXPECT_STREQ("", out);
    EXPECT_EQ('<', std::fgetc(stream));
    std::fclose(stream);
}

// A text that replaces its predecessor: the old block is released, and every allocation of a
// long text fails cleanly.
TEST(ReaderMemory, ElementTextsGrowAndFailCleanly)
{
    ScopedTempDir tmp;
    const std::string longText(5000, 'x');
    writeFile(tmp.file("in"), longText + "</T>");
    FILE *stream = nullptr;
    char *out = nullptr;
    sweepAllocations({.setup = [&] { stream = std::fopen(tmp.file("in").c_str(), "rb"); out = static_cast<char *>(dk_Malloc(4)); },
                      .act = [&] { return dk_LoadStringtoTerminator(stream, &out, "T"); },
                      .check =
                          [&](int32_t result, int64_t n) {
                              EXPECT_EQ(n == 0, result == 1);
                              EXPECT_EQ(n == 0 ? longText : "", out != nullptr ? out : "");
                          },
                      .teardown =
                          [&] {
                              dk_Free(out);
                              std::fclose(stream);
                          }},
                     tmp);
}

// ---- the text-mode stream -----------------------------------------------------------------------

namespace {
// Bytes on disk and what reading them in text mode gives; writing gives each LF as CR LF.
struct TextRow {
    std::string disk;
    std::string read;
};
const TextRow kTextRows[] = {
    {"", ""},
    {"a\r\nb\r\n", "a\nb\n"},
    {"a\nb\rc", "a\nb\rc"},
    {"\r\r\r", "\r\r\r"},
    {"x\r", "x\r"},
    {"\r\r\n\n", "\r\n\n"},
    {B("\x1A" "abc", 4), ""},
    {B("ab\x1A" "c\r\n", 6), "ab"},
    {B("a\r\x1A\n", 4), "a\r"},
    {"\xFF\xFE\r\n\xFF", "\xFF\xFE\n\xFF"},
};
void PrintTo(const TextRow &row, std::ostream *out) { *out << ::testing::PrintToString(row.disk); }
}  // namespace

class TextMode : public ::testing::TestWithParam<TextRow> {
protected:
    ScopedTempDir tmp;
};
INSTANTIATE_TEST_SUITE_P(Rows, TextMode, ::testing::ValuesIn(kTextRows));

TEST_P(TextMode, ReadsByteForByteAsTheTranslationSays)
{
    const TextRow &row = GetParam();
    writeFile(tmp.file("t"), row.disk);
    FILE *stream = internals::openText(tmp.file("t"), "rt");
    ASSERT_NE(nullptr, stream);
    std::string got;
    for (int c; (c = std::fgetc(stream)) != EOF;)
        got += static_cast<char>(c);
    EXPECT_EQ(row.read, got);
    EXPECT_NE(0, std::feof(stream));
    EXPECT_EQ(0, std::ferror(stream));
    std::rewind(stream);  // back to the start, a 0x1A seen is forgotten
    std::string again;
    for (int c; (c = std::fgetc(stream)) != EOF;)
        again += static_cast<char>(c);
    EXPECT_EQ(row.read, again);
    std::fclose(stream);
}

// A CR that ends the stream's 8 KiB run is decided by the byte behind it (an LF, another byte,
// the end, a 0x1A); an LF that meets a full 8 KiB chunk on output still leaves as CR LF, and a
// refused chunk fails the write.
TEST(TextModeStream, CarriageReturnsAndLineFeedsAtTheRunEdges)
{
    ScopedTempDir tmp;
    const std::string run(8191, 'a');
    const struct {
        std::string file, read;
    } rows[] = {{run + "\r\nb", run + "\nb"}, {run + "\rb", run + "\rb"}, {run + "\r", run + "\r"},
                {run + "\r\x1a" + "b", run + "\r"}, {run + "x\r\nb", run + "x\nb"}};
    for (const auto &row : rows) {
        writeFile(tmp.file("in"), row.file);
        FILE *in = internals::openText(tmp.file("in"), "rt");
        ASSERT_NE(nullptr, in);
        std::string read(row.file.size() + 8, '\0');
        read.resize(std::fread(read.data(), 1, read.size(), in));
        EXPECT_EQ(row.read, read) << row.file.size();
        std::fclose(in);
    }
    FILE *out = internals::openText(tmp.file("out"), "wt");
    ASSERT_NE(nullptr, out);
    std::setvbuf(out, nullptr, _IONBF, 0);  // each write reaches the translation whole
    const std::string text = run + "\nb" + std::string(9000, '\n');
    ASSERT_EQ(text.size(), std::fwrite(text.data(), 1, text.size(), out));
    ASSERT_EQ('c', std::fputc('c', out));  // a write of one byte
    ASSERT_EQ(0, std::fclose(out));
    std::string expected = run + "\r\nb";
    for (int i = 0; i < 9000; i++)
        expected += "\r\n";
    expected += "c";
    EXPECT_EQ(expected, readFile(tmp.file("out")));
#if defined(__linux__)
    FILE *full = internals::openText("/dev/full", "wt");
    ASSERT_NE(nullptr, full);
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_NE(text.size(), std::fwrite(text.data(), 1, text.size(), full));
    std::fclose(full);
#endif
}

// Long inputs cross every internal buffer boundary: CR LF pairs split at any offset, fgets and
// getc agree, ftell counts translated characters, and a written file reads back.
TEST(TextModeStream, LongContentRoundTripsAtEveryBoundary)
{
    ScopedTempDir tmp;
    std::mt19937 random(7);
    std::string lfText;
    for (int i = 0; i < 40000; i++) {
        const unsigned r = random() % 20;
        lfText += r == 0 ? '\n' : r == 1 ? '\r' : static_cast<char>('a' + r);
    }
    FILE *out = internals::openText(tmp.file("w"), "wt");
    ASSERT_NE(nullptr, out);
    ASSERT_GE(std::fputs(lfText.c_str(), out), 0);
    ASSERT_EQ(0, std::fclose(out));
    std::string crlf;
    for (char c : lfText)
        crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(crlf, readFile(tmp.file("w")));
    FILE *in = internals::openText(tmp.file("w"), "rt");
    ASSERT_NE(nullptr, in);
    std::string read;
    char line[199];
    while (std::fgets(line, sizeof line, in) != nullptr)
        read += line;
    // A CR just before a CR LF stays a CR: the text reads back except where the file held CR CR LF.
    EXPECT_EQ(lfText.size(), read.size());
    EXPECT_EQ(lfText, read);
    std::rewind(in);
    for (int i = 0; i < 1000; i++)
        std::fgetc(in);
#if defined(_WIN32)
    EXPECT_LE(1000, std::ftell(in));  // the Windows runtime counts the bytes of the file
#else
    EXPECT_EQ(1000, std::ftell(in));  // our text layer counts translated characters
    EXPECT_NE(0, std::fseek(in, 0, SEEK_END));  // and goes back to the start only
#endif
    EXPECT_EQ(0, std::fseek(in, 0, SEEK_SET));
    EXPECT_EQ(lfText[0], static_cast<char>(std::fgetc(in)));
    std::fclose(in);
}

TEST(TextModeStream, RefusedOpensAndFailedWrites)
{
    ScopedTempDir tmp;
    writeFile(tmp.file("x"), "old content");
    for (const char *mode : {"r", "w", "rb", "a", "r+t", ""})
        EXPECT_EQ(nullptr, internals::openText(tmp.file("x"), mode)) << mode;
    EXPECT_EQ(nullptr, internals::openText(tmp.file("missing"), "rt"));
    FILE *truncated = internals::openText(tmp.file("x"), "wt");
    ASSERT_NE(nullptr, truncated);
    std::fclose(truncated);
    EXPECT_EQ("", readFile(tmp.file("x")));
    FILE *stream = nullptr;
    sweepAllocations({.act = [&] { stream = internals::openText(tmp.file("x"), "wt"); return stream != nullptr; },
                      .check = [&](int32_t result, int64_t n) { EXPECT_EQ(n == 0, result == 1); },
                      .teardown =
                          [&] {
                              if (stream != nullptr)
                                  std::fclose(stream);
                          }},
                     tmp);
#if defined(__linux__)
    FILE *full = internals::openText("/dev/full", "wt");
    ASSERT_NE(nullptr, full);
    std::string big(100000, 'x');
    const bool failed = std::fputs(big.c_str(), full) < 0 || std::fflush(full) != 0;
    EXPECT_TRUE(failed);
    std::fclose(full);
#endif
}
