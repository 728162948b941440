// test_textstream.cpp - the text-mode stream layer of platform/ on its own, byte by byte.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "test_support.h"

#include "platform/text_stream.hpp"

using navo_test::FailureInjection;
using navo_test::readFile;
using navo_test::ScopedTempDir;
using navo_test::writeFile;

namespace {

// What the Windows C runtime hands out in text mode for `bytes`.
std::string textModeOf(const std::string &bytes)
{
    std::string out;
    for (size_t i = 0; i < bytes.size(); i++) {
        char c = bytes[i];
        if (c == '\x1A')
            break;
        if (c == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') {
            out += '\n';
            i++;
            continue;
        }
        out += c;
    }
    return out;
}

std::string crlfOf(const std::string &text)
{
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += '\r';
        out += c;
    }
    return out;
}

class TextStream : public ::testing::Test {
protected:
    ScopedTempDir dir;
    std::string path(const std::string &name = "f.txt") const { return dir.path() + "/" + name; }

    FILE *openWith(const std::string &bytes)
    {
        writeFile(path(), bytes);
        FILE *stream = navo::platform::open_text_stream(path().c_str(), "rt").release();
        EXPECT_NE(stream, nullptr);
        return stream;
    }
};

std::string readByGetc(FILE *stream)
{
    std::string out;
    int c;
    while ((c = getc(stream)) != EOF)
        out += static_cast<char>(c);
    return out;
}

std::string readByFgets(FILE *stream, int limit, int *calls = nullptr)
{
    std::string out;
    char buffer[256];
    int n = 0;
    for (;;) {
        n++;
        if (fgets(buffer, limit, stream) == nullptr)
            break;
        out += buffer;  // the test data of fgets readers holds no NUL
    }
    if (calls != nullptr)
        *calls = n;
    return out;
}

std::string readByFread(FILE *stream, size_t chunk)
{
    std::string out;
    std::string buffer(chunk, '\0');
    size_t got;
    while ((got = fread(&buffer[0], 1, chunk, stream)) > 0)
        out.append(buffer, 0, got);
    return out;
}

// Bytes of every value, with CR, LF and 0x1A made frequent, but no 0x1A (it would end the read).
std::string randomBytes(size_t size, unsigned seed, bool withCtrlZ)
{
    std::mt19937 random(seed);
    std::string out;
    out.reserve(size);
    for (size_t i = 0; i < size; i++) {
        unsigned r = random() % 16;
        char c;
        if (r < 3)
            c = '\r';
        else if (r < 6)
            c = '\n';
        else
            c = static_cast<char>(random() % 256);
        if (c == '\x1A' && !withCtrlZ)
            c = 'z';
        out += c;
    }
    return out;
}

}  // namespace

TEST_F(TextStream, EmptyFileEndsAtOnceWithEofFlag)
{
    FILE *stream = openWith("");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_EQ(fclose(stream), 0);
}

TEST_F(TextStream, CrLfArrivesAsOneLf)
{
    FILE *stream = openWith("A\r\nB\r\n");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), 'A');
    EXPECT_EQ(getc(stream), '\n');
    EXPECT_EQ(getc(stream), 'B');
    EXPECT_EQ(getc(stream), '\n');
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, BareLfAndLoneCrPassUnchanged)
{
    FILE *stream = openWith("a\nb\rc\r\r\nd\n\re");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), std::string("a\nb\rc\r\nd\n\re"));
    fclose(stream);
}

TEST_F(TextStream, FileOfCrsOnly)
{
    FILE *stream = openWith("\r\r\r\r\r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), std::string("\r\r\r\r\r"));
    EXPECT_NE(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, CrAsLastByteOfFileArrivesAsCr)
{
    FILE *stream = openWith("xy\r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), 'x');
    EXPECT_EQ(getc(stream), 'y');
    EXPECT_EQ(getc(stream), '\r');
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, CtrlZFirstEndsEverything)
{
    FILE *stream = openWith(std::string("\x1A" "ABC\r\nDEF", 9));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    // Nothing behind the 0x1A is ever read, not even after the flags are cleared.
    clearerr(stream);
    EXPECT_EQ(getc(stream), EOF);
    char buffer[16];
    EXPECT_EQ(fgets(buffer, 16, stream), nullptr);
    fclose(stream);
}

TEST_F(TextStream, CtrlZEndsInputInTheMiddle)
{
    FILE *stream = openWith(std::string("AB\x1A" "CD\n", 6));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), "AB");
    EXPECT_NE(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, CrBeforeCtrlZArrivesAsCr)
{
    FILE *stream = openWith(std::string("A\r\x1A\nB", 5));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), 'A');
    EXPECT_EQ(getc(stream), '\r');
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, ByteFFIsDataWithFlagsClear)
{
    FILE *stream = openWith("\xFF\xFE\x80");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(getc(stream), 0xFF);
    EXPECT_EQ(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    EXPECT_EQ(getc(stream), 0xFE);
    EXPECT_EQ(getc(stream), 0x80);
    EXPECT_EQ(getc(stream), EOF);
    fclose(stream);
}

TEST_F(TextStream, CrAtEveryInternalBufferBoundary)
{
    // The outer stdio buffer, the raw stream's buffer and the file's own end: a CR standing as
    // the last byte of any of them must still be joined with the LF behind it, or stay a CR.
    const size_t boundaries[] = {BUFSIZ, 4096, 8192, 65536};
    const std::string tails[] = {"\r\nT", "\rT", "\r\rT", std::string("\r\x1A" "T", 3), "\r", "\r\n"};
    for (size_t boundary : boundaries) {
        for (size_t shift = 0; shift < 3; shift++) {
            for (const std::string &tail : tails) {
                std::string bytes = std::string(boundary - 1 - shift, 'x') + std::string(shift, '\n') + tail +
                                    "\r\nend\r\n";
                std::string expected = textModeOf(bytes);
                FILE *stream = openWith(bytes);
                ASSERT_NE(stream, nullptr);
                EXPECT_EQ(readByGetc(stream), expected) << "boundary " << boundary << " shift " << shift;
                fclose(stream);
                stream = openWith(bytes);
                EXPECT_EQ(readByFgets(stream, 200), expected) << "boundary " << boundary << " shift " << shift;
                fclose(stream);
                stream = openWith(bytes);
                EXPECT_EQ(readByFread(stream, 4095), expected) << "boundary " << boundary << " shift " << shift;
                fclose(stream);
            }
        }
    }
}

TEST_F(TextStream, LongFileReadWithFgetsAndGetc)
{
    std::string bytes = randomBytes(200000, 7, false);
    ASSERT_GT(bytes.size(), 65536u);
    std::string expected = textModeOf(bytes);
    // Non-trivial: the translation did something.
    ASSERT_LT(expected.size(), bytes.size());

    FILE *stream = openWith(bytes);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), expected);
    EXPECT_NE(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    fclose(stream);

    // fgets stops at NUL bytes only in the caller's view; compare on text without NUL.
    std::string textual = bytes;
    for (char &c : textual)
        if (c == '\0')
            c = '0';
    std::string expectedTextual = textModeOf(textual);
    stream = openWith(textual);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByFgets(stream, 200), expectedTextual);
    fclose(stream);

    stream = openWith(bytes);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByFread(stream, 1000), expected);
    fclose(stream);
}

TEST_F(TextStream, LongFileWithCtrlZDeepInside)
{
    std::string bytes = std::string(70000, 'a') + "\r\n" + std::string("\x1A", 1) + std::string(5000, 'b');
    FILE *stream = openWith(bytes);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), std::string(70000, 'a') + "\n");
    EXPECT_NE(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, CountingPassThenRewindThenReadAgain)
{
    // The loader's pattern: fgets with a limit of 200 counts the lines, rewind, read by getc.
    std::string line(60, 'L');
    std::string bytes;
    for (int i = 0; i < 3000; i++)
        bytes += line + "\r\n";
    FILE *stream = openWith(bytes);
    ASSERT_NE(stream, nullptr);
    int calls = 0;
    std::string first = readByFgets(stream, 200, &calls);
    EXPECT_EQ(calls, 3001);  // one call per line, and the last finds the end
    EXPECT_NE(feof(stream), 0);
    rewind(stream);
    EXPECT_EQ(feof(stream), 0);
    EXPECT_EQ(ferror(stream), 0);
    EXPECT_EQ(readByGetc(stream), first);
    EXPECT_EQ(first, textModeOf(bytes));
    fclose(stream);
}

TEST_F(TextStream, LongLinesBreakIntoPiecesOf199)
{
    FILE *stream = openWith(std::string(450, 'q') + "\r\nx\r\n");
    ASSERT_NE(stream, nullptr);
    int calls = 0;
    readByFgets(stream, 200, &calls);
    EXPECT_EQ(calls, 5);  // 199 + 199 + 52(with LF) + "x\n" + the end
    fclose(stream);
}

TEST_F(TextStream, RewindAndFseekToStartWork)
{
    for (size_t size : {size_t(10), size_t(100000)}) {
        std::string bytes = randomBytes(size, 11, false);
        std::string expected = textModeOf(bytes);
        FILE *stream = openWith(bytes);
        ASSERT_NE(stream, nullptr);
        // Part way, at the end, and after a second full read.
        for (int c = 0; c < 5; c++)
            getc(stream);
        EXPECT_EQ(fseek(stream, 0, SEEK_SET), 0);
        EXPECT_EQ(readByGetc(stream), expected);
        rewind(stream);
        EXPECT_EQ(readByFgets(stream, 200).size() > 0, true);
        EXPECT_EQ(fseek(stream, 0, SEEK_SET), 0);
        EXPECT_EQ(ftell(stream), 0);
        EXPECT_EQ(readByFread(stream, 777), expected);
        fclose(stream);
    }
}

TEST_F(TextStream, RewindAfterCtrlZReadsAgainUpToIt)
{
    for (size_t lead : {size_t(3), size_t(90000)}) {
        std::string bytes = std::string(lead, 'k') + "\r\n" + std::string("\x1A", 1) + "tail";
        FILE *stream = openWith(bytes);
        ASSERT_NE(stream, nullptr);
        std::string expected = std::string(lead, 'k') + "\n";
        EXPECT_EQ(readByGetc(stream), expected);
        EXPECT_NE(feof(stream), 0);
        rewind(stream);
        EXPECT_EQ(feof(stream), 0);
        EXPECT_EQ(readByGetc(stream), expected);
        EXPECT_NE(feof(stream), 0);
        fclose(stream);
    }
}

TEST_F(TextStream, FtellCountsTranslatedCharacters)
{
    FILE *stream = openWith("ab\r\ncd");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ftell(stream), 0);
    getc(stream);
    getc(stream);
    getc(stream);
    EXPECT_EQ(ftell(stream), 3);
    fclose(stream);
}

TEST_F(TextStream, OtherSeeksAreRefused)
{
    FILE *stream = openWith("abcdef");
    ASSERT_NE(stream, nullptr);
    EXPECT_NE(fseek(stream, 0, SEEK_END), 0);
    fclose(stream);
}

TEST_F(TextStream, ReadErrorSetsErrorFlag)
{
    // A directory opens for reading on POSIX, and every read of it fails.
    FILE *stream = navo::platform::open_text_stream(dir.path().c_str(), "rt").release();
    if (stream == nullptr)
        GTEST_SKIP() << "this system refuses to open a directory";
    EXPECT_EQ(getc(stream), EOF);
    EXPECT_NE(ferror(stream), 0);
    EXPECT_EQ(feof(stream), 0);
    fclose(stream);
}

TEST_F(TextStream, WritingTurnsLfIntoCrLf)
{
    FILE *stream = navo::platform::open_text_stream(path().c_str(), "wt").release();
    ASSERT_NE(stream, nullptr);
    EXPECT_GE(fputs("a\nbc\n\n", stream), 0);
    EXPECT_EQ(fputc('\n', stream), '\n');
    EXPECT_GE(fputs("x\r\ny\rz", stream), 0);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_EQ(readFile(path()), "a\r\nbc\r\n\r\n\r\nx\r\r\ny\rz");
}

TEST_F(TextStream, WritingTruncatesAnExistingFile)
{
    writeFile(path(), "old content that is long");
    FILE *stream = navo::platform::open_text_stream(path().c_str(), "wt").release();
    ASSERT_NE(stream, nullptr);
    EXPECT_GE(fputs("new\n", stream), 0);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_EQ(readFile(path()), "new\r\n");
}

TEST_F(TextStream, LongWriteRoundTrips)
{
    std::string text;
    std::mt19937 random(3);
    while (text.size() < 150000) {
        text += std::string(random() % 120, static_cast<char>('A' + random() % 26));
        text += '\n';
    }
    FILE *stream = navo::platform::open_text_stream(path().c_str(), "wt").release();
    ASSERT_NE(stream, nullptr);
    // Mixed granularity: single characters and large blocks.
    size_t i = 0;
    for (; i < 1000; i++)
        ASSERT_EQ(putc(text[i], stream), static_cast<unsigned char>(text[i]));
    ASSERT_EQ(fwrite(text.data() + i, 1, text.size() - i, stream), text.size() - i);
    EXPECT_EQ(fflush(stream), 0);
    EXPECT_EQ(ftell(stream), static_cast<long>(text.size()));
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_EQ(readFile(path()), crlfOf(text));

    stream = navo::platform::open_text_stream(path().c_str(), "rt").release();
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(readByGetc(stream), text);
    fclose(stream);
}

namespace {

// Results of a sequence of writes to /dev/full, for a text stream and for a plain stream.
struct FullResults {
    int first = 0;
    int flush = 0;
    int error = 0;
    int close = 0;
};

FullResults writeToFull(FILE *stream, const std::string &text, bool flush)
{
    FullResults r;
    r.first = fputs(text.c_str(), stream) == EOF ? EOF : 0;
    if (flush)
        r.flush = fflush(stream);
    r.error = ferror(stream) != 0;
    r.close = fclose(stream);
    return r;
}

}  // namespace

TEST_F(TextStream, WriteFailureOnDevFullIsReported)
{
    FILE *probe = std::fopen("/dev/full", "wb");
    if (probe == nullptr)
        GTEST_SKIP() << "no /dev/full";
    std::fclose(probe);
    const std::string big(4 * BUFSIZ + 10, 'w');

    // A short write stays in the buffer and the flush reports the failure; the close after it
    // has nothing left to write (a plain stream does the same).
    FILE *stream = navo::platform::open_text_stream("/dev/full", "wt").release();
    ASSERT_NE(stream, nullptr);
    FullResults text = writeToFull(stream, "line\n", true);
    EXPECT_EQ(text.first, 0);
    EXPECT_EQ(text.flush, EOF);
    EXPECT_EQ(text.error, 1);
    FullResults plain = writeToFull(std::fopen("/dev/full", "w"), "line\n", true);
    EXPECT_EQ(text.flush, plain.flush);
    EXPECT_EQ(text.close, plain.close);

    // Without a flush, fclose reports it.
    stream = navo::platform::open_text_stream("/dev/full", "wt").release();
    ASSERT_NE(stream, nullptr);
    text = writeToFull(stream, "line\n", false);
    EXPECT_EQ(text.first, 0);
    EXPECT_EQ(text.close, EOF);
    plain = writeToFull(std::fopen("/dev/full", "w"), "line\n", false);
    EXPECT_EQ(plain.close, EOF);

    // A write larger than the buffer fails in fputs itself.
    stream = navo::platform::open_text_stream("/dev/full", "wt").release();
    ASSERT_NE(stream, nullptr);
    text = writeToFull(stream, big, false);
    EXPECT_EQ(text.first, EOF);
    EXPECT_EQ(text.error, 1);
    plain = writeToFull(std::fopen("/dev/full", "w"), big, false);
    EXPECT_EQ(text.first, plain.first);
    EXPECT_EQ(text.close, plain.close);

    // The writer's pattern: many small writes, each tested; one of them or the close fails.
    // It fails at the same write as a plain stream does.
    int failedAt[2] = {-1, -1};
    FILE *streams[2] = {navo::platform::open_text_stream("/dev/full", "wt").release(), std::fopen("/dev/full", "w")};
    for (int k = 0; k < 2; k++) {
        ASSERT_NE(streams[k], nullptr);
        for (int i = 0; i < 10000 && failedAt[k] < 0; i++)
            if (fputs("0123456789\n", streams[k]) == EOF)
                failedAt[k] = i;
        EXPECT_NE(ferror(streams[k]), 0);
        fclose(streams[k]);
    }
    EXPECT_GE(failedAt[0], 0);
    EXPECT_GE(failedAt[1], 0);
}

TEST_F(TextStream, BadModeAndMissingFileAreRefused)
{
    errno = 0;
    EXPECT_EQ(navo::platform::open_text_stream(path().c_str(), "r"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(navo::platform::open_text_stream(path().c_str(), "rb"), nullptr);
    EXPECT_EQ(navo::platform::open_text_stream(path().c_str(), "at"), nullptr);
    EXPECT_EQ(navo::platform::open_text_stream(nullptr, "rt"), nullptr);
    EXPECT_EQ(navo::platform::open_text_stream(path().c_str(), nullptr), nullptr);
    errno = 0;
    EXPECT_EQ(navo::platform::open_text_stream((dir.path() + "/missing").c_str(), "rt"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(navo::platform::open_text_stream((dir.path() + "/no/such/dir").c_str(), "wt"), nullptr);
}

TEST_F(TextStream, FailedAllocationFailsTheOpenAndLeaksNothing)
{
    writeFile(path(), "abc");
    int64_t before = navo::memory::live_blocks();
    {
        FailureInjection injection;
        injection.failNth(1);
        EXPECT_EQ(navo::platform::open_text_stream(path().c_str(), "rt"), nullptr);
    }
    EXPECT_EQ(navo::memory::live_blocks(), before);
    FILE *stream = navo::platform::open_text_stream(path().c_str(), "rt").release();
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(navo::memory::live_blocks(), before + 1);
    fclose(stream);
    EXPECT_EQ(navo::memory::live_blocks(), before);
}

TEST_F(TextStream, RandomContentMatchesTheRuntimeByteForByte)
{
    for (unsigned seed = 1; seed <= 40; seed++) {
        std::string bytes = randomBytes(1 + seed * 997, seed, true);
        std::string expected = textModeOf(bytes);
        FILE *stream = openWith(bytes);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(readByGetc(stream), expected) << "seed " << seed;
        EXPECT_NE(feof(stream), 0);
        fclose(stream);
    }
}
