// test_scanner.cpp - interchange/scanner: the stream readers, every kind of input and every edge case.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

#include "interchange/scanner.hpp"
#include "platform/text_stream.hpp"

using navo_test::FailureInjection;
using navo_test::ScopedTempDir;
using navo_test::writeFile;

namespace {

class Scanner : public ::testing::Test {
protected:
    ScopedTempDir dir;
    std::vector<FILE *> streams;
    int files = 0;

    void SetUp() override { i_lNumerLinii = 1; }
    void TearDown() override
    {
        for (FILE *stream : streams)
            std::fclose(stream);
    }

    std::string newPath()
    {
        return dir.path() + "/in" + std::to_string(files++) + ".navo";
    }
    // The bytes exactly as they are, LF-only input (binary stream).
    FILE *raw(const std::string &bytes)
    {
        std::string path = newPath();
        writeFile(path, bytes);
        FILE *stream = std::fopen(path.c_str(), "rb");
        EXPECT_NE(stream, nullptr);
        streams.push_back(stream);
        return stream;
    }
    // Through the text layer, as dk_LoadNAVO opens a file: CR LF -> LF, 0x1A ends the input.
    FILE *text(const std::string &bytes)
    {
        std::string path = newPath();
        writeFile(path, bytes);
        FILE *stream = navo::platform::open_text_stream(path.c_str(), "rt").release();
        EXPECT_NE(stream, nullptr);
        streams.push_back(stream);
        return stream;
    }
};

std::string bytes(const char *data, size_t size)
{
    return std::string(data, size);
}

// Reads with dk_LoadStringbyLen into a buffer pre-filled with '#' to show what is zeroed.
struct ByLen {
    int32_t result;
    std::string buffer;
};
ByLen byLen(FILE *stream, int32_t size, int32_t count)
{
    ByLen r;
    r.buffer.assign(static_cast<size_t>(size) + 4, '#');
    r.result = dk_LoadStringbyLen(stream, &r.buffer[0], size, count);
    return r;
}

struct Tag {
    int32_t result;
    std::string buffer;
    std::string text() const { return std::string(buffer.c_str()); }
};
Tag tagOf(FILE *stream, int32_t size = 200)
{
    Tag r;
    r.buffer.assign(static_cast<size_t>(size) + 4, '#');
    r.result = dk_LoadStringforTag(stream, &r.buffer[0], size);
    return r;
}

struct Element {
    int32_t result;
    bool isNull;
    std::string text;
};
Element elementOf(FILE *stream, const char *block)
{
    char *out = nullptr;
    Element r;
    r.result = dk_LoadStringtoTerminator(stream, &out, block);
    r.isNull = out == nullptr;
    if (out != nullptr)
        r.text = out;
    dk_Free(out);
    return r;
}

Tag sectionOf(FILE *stream, int32_t size = 200)
{
    Tag r;
    r.buffer.assign(static_cast<size_t>(size) + 4, '#');
    r.result = navo::interchange::next_section(stream, {&r.buffer[0], static_cast<size_t>(size)});
    return r;
}

void expectZeroFrom(const std::string &buffer, size_t from, size_t to)
{
    for (size_t i = from; i < to; i++)
        EXPECT_EQ(buffer[i], '\0') << "byte " << i;
}

}  // namespace

// ---- dk_LoadChar ------------------------------------------------------------------------

TEST_F(Scanner, LoadCharSkipsTabsAndCountsLineFeeds)
{
    FILE *s = raw("\t\n\tA\n\n\tB");
    EXPECT_EQ(dk_LoadChar(s), 'A');
    EXPECT_EQ(i_lNumerLinii, 2);
    EXPECT_EQ(dk_LoadChar(s), 'B');
    EXPECT_EQ(i_lNumerLinii, 4);
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(i_lNumerLinii, 4);
}

TEST_F(Scanner, LoadCharReturnsSpaceAndCr)
{
    FILE *s = raw(" \rX\r\n");
    EXPECT_EQ(dk_LoadChar(s), ' ');
    EXPECT_EQ(dk_LoadChar(s), '\r');
    EXPECT_EQ(dk_LoadChar(s), 'X');
    EXPECT_EQ(dk_LoadChar(s), '\r');  // binary input keeps the CR of CR LF
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(i_lNumerLinii, 2);
}

TEST_F(Scanner, LoadCharThroughTextModeSeesCrLfAsOneLineFeed)
{
    FILE *s = text(" \r\nX\r\r\n");
    EXPECT_EQ(dk_LoadChar(s), ' ');
    EXPECT_EQ(dk_LoadChar(s), 'X');
    EXPECT_EQ(i_lNumerLinii, 2);
    EXPECT_EQ(dk_LoadChar(s), '\r');  // a CR that no LF follows arrives as CR
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, LoadCharWidensSignedBytes)
{
    FILE *s = raw("\x80\xB9\xFE\x7F");
    EXPECT_EQ(dk_LoadChar(s), -128);
    EXPECT_EQ(dk_LoadChar(s), -71);
    EXPECT_EQ(dk_LoadChar(s), -2);
    EXPECT_EQ(dk_LoadChar(s), 127);
}

TEST_F(Scanner, LoadCharGivesMinusOneForDataFFWithFlagsClear)
{
    FILE *s = raw("\xFF" "A");
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(feof(s), 0);
    EXPECT_EQ(ferror(s), 0);
    EXPECT_EQ(dk_LoadChar(s), 'A');
}

TEST_F(Scanner, LoadCharGivesMinusOneAtEnd)
{
    FILE *s = raw("");
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_NE(feof(s), 0);
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(i_lNumerLinii, 1);
}

TEST_F(Scanner, LoadCharStopsAtCtrlZ)
{
    FILE *s = text(bytes("A\x1A" "B\n", 4));
    EXPECT_EQ(dk_LoadChar(s), 'A');
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(dk_LoadChar(s), -1);
    EXPECT_EQ(i_lNumerLinii, 1);
}

// ---- dk_LoadStringbyLen -----------------------------------------------------------------

TEST_F(Scanner, ByLenDropsLineFeedAndTabAndCountsTheLineFeed)
{
    FILE *s = raw("A\n\tB");
    ByLen r = byLen(s, 200, 2);
    EXPECT_EQ(r.result, 1);
    EXPECT_STREQ(r.buffer.c_str(), "AB");
    EXPECT_EQ(i_lNumerLinii, 2);
    expectZeroFrom(r.buffer, 2, 200);
}

TEST_F(Scanner, ByLenStoresSpacesAndCrs)
{
    FILE *s = raw(" \r X");
    ByLen r = byLen(s, 200, 4);
    EXPECT_EQ(r.result, 1);
    EXPECT_STREQ(r.buffer.c_str(), " \r X");
}

TEST_F(Scanner, ByLenWithCrLfInputInBothModes)
{
    ByLen t = byLen(text("A\r\nB\r\nC"), 200, 3);
    EXPECT_EQ(t.result, 1);
    EXPECT_STREQ(t.buffer.c_str(), "ABC");
    EXPECT_EQ(i_lNumerLinii, 3);
    i_lNumerLinii = 1;
    ByLen r = byLen(raw("A\r\nB\r\nC"), 200, 5);
    EXPECT_EQ(r.result, 1);
    EXPECT_STREQ(r.buffer.c_str(), "A\rB\rC");
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, ByLenStoresDataFF)
{
    FILE *s = raw("\xFFZ\xFF");
    ByLen r = byLen(s, 200, 3);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.buffer.substr(0, 4), std::string("\xFFZ\xFF", 3) + '\0');
}

TEST_F(Scanner, ByLenFailsAtEndKeepingWhatWasRead)
{
    FILE *s = raw("abcde");
    ByLen r = byLen(s, 200, 6);
    EXPECT_EQ(r.result, 0);
    EXPECT_STREQ(r.buffer.c_str(), "abcde");
    expectZeroFrom(r.buffer, 5, 200);
}

TEST_F(Scanner, ByLenFailsOnEmptyInput)
{
    ByLen r = byLen(raw(""), 200, 1);
    EXPECT_EQ(r.result, 0);
    expectZeroFrom(r.buffer, 0, 200);
}

TEST_F(Scanner, ByLenFailsAtCtrlZ)
{
    ByLen r = byLen(text(bytes("abc\x1A" "defg", 8)), 200, 4);
    EXPECT_EQ(r.result, 0);
    EXPECT_STREQ(r.buffer.c_str(), "abc");
}

TEST_F(Scanner, ByLenWithCountZeroReadsNothing)
{
    FILE *s = raw("\nxyz");
    ByLen r = byLen(s, 10, 0);
    EXPECT_EQ(r.result, 1);
    expectZeroFrom(r.buffer, 0, 10);
    EXPECT_EQ(r.buffer.substr(10), "####");
    EXPECT_EQ(i_lNumerLinii, 1);
    EXPECT_EQ(std::fgetc(s), '\n');  // nothing was read
    ByLen n = byLen(s, 10, -3);
    EXPECT_EQ(n.result, 1);
    expectZeroFrom(n.buffer, 0, 10);
    EXPECT_EQ(std::fgetc(s), 'x');
}

TEST_F(Scanner, ByLenRunsOnAcrossLines)
{
    ByLen r = byLen(raw("ab\ncd\nef"), 200, 5);
    EXPECT_EQ(r.result, 1);
    EXPECT_STREQ(r.buffer.c_str(), "abcde");
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, ByLenRefusesToStorePastSize)
{
    FILE *s = raw("abcdefg");
    ByLen r = byLen(s, 3, 5);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.buffer, "abc####");  // full, unterminated, nothing past the buffer
    EXPECT_EQ(std::fgetc(s), 'd');   // only `size` characters were taken
}

TEST_F(Scanner, ByLenLoaderCounts)
{
    // The fixed reads of the loaders: 49, 26, 38 of the prolog, 6 of "<NAVO>".
    std::string prolog = "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[\r\n"
                         "<!ENTITY wersja '001.300' >\r\n"
                         "<!ENTITY strona.kodowa 'ISO 8859-2' >]>\r\n"
                         "<NAVO>\r\n";
    FILE *s = text(prolog);
    ByLen a = byLen(s, 200, 49);
    EXPECT_EQ(a.result, 1);
    EXPECT_STREQ(a.buffer.c_str(), "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[");
    ByLen b = byLen(s, 200, 26);
    EXPECT_STREQ(b.buffer.c_str(), "<!ENTITY wersja '001.300' ");
    EXPECT_EQ(i_lNumerLinii, 2);
    ByLen c = byLen(s, 200, 1);
    EXPECT_STREQ(c.buffer.c_str(), ">");
    ByLen d = byLen(s, 200, 38);
    EXPECT_STREQ(d.buffer.c_str(), "<!ENTITY strona.kodowa 'ISO 8859-2' >]");
    ByLen e = byLen(s, 200, 1);
    EXPECT_STREQ(e.buffer.c_str(), ">");
    ByLen f = byLen(s, 200, 6);
    EXPECT_STREQ(f.buffer.c_str(), "<NAVO>");
    EXPECT_EQ(i_lNumerLinii, 4);
}

// ---- dk_LoadStringforTag ----------------------------------------------------------------

TEST_F(Scanner, TagSkipsBlanksCrsAndLineFeedsAhead)
{
    FILE *s = raw("  \r \r\n\t\n <A>rest");
    Tag r = tagOf(s);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<A>");
    EXPECT_EQ(i_lNumerLinii, 3);
    expectZeroFrom(r.buffer, 3, 200);
    EXPECT_EQ(std::fgetc(s), 'r');  // nothing behind the '>' is taken
}

TEST_F(Scanner, TagThroughTextModeAfterCrLfLines)
{
    FILE *s = text("<A>\r\n\r\n<naglowek.NAVO>\r\n");
    EXPECT_EQ(tagOf(s).text(), "<A>");
    Tag r = tagOf(s);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<naglowek.NAVO>");
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, TagFailsOnALetterAheadAndConsumesIt)
{
    FILE *s = raw(" x<A>");
    Tag r = tagOf(s);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text(), "");
    expectZeroFrom(r.buffer, 0, 200);
    EXPECT_EQ(std::fgetc(s), '<');
}

TEST_F(Scanner, TagFailsOnEmptyStream)
{
    Tag r = tagOf(raw(""));
    EXPECT_EQ(r.result, 0);
    expectZeroFrom(r.buffer, 0, 200);
}

TEST_F(Scanner, TagFailsOnDataFFAhead)
{
    FILE *s = raw("\xFF<A>");
    Tag r = tagOf(s);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text(), "");
}

TEST_F(Scanner, TagStoresSpaceCrAndFFInside)
{
    EXPECT_EQ(tagOf(raw("<A B>")).text(), "<A B>");
    EXPECT_EQ(tagOf(raw("<A\rB>")).text(), "<A\rB>");
    Tag r = tagOf(raw("<\xFF>"));
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<\xFF>");
    EXPECT_EQ(tagOf(raw("<a<b>")).text(), "<a<b>");
}

TEST_F(Scanner, TagDropsLineFeedAndTabInside)
{
    Tag r = tagOf(raw("<A\n\tB>"));
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<AB>");
    EXPECT_EQ(i_lNumerLinii, 2);
    i_lNumerLinii = 1;
    Tag t = tagOf(text("<A\r\nB>"));
    EXPECT_EQ(t.text(), "<AB>");
    EXPECT_EQ(i_lNumerLinii, 2);
}

TEST_F(Scanner, TagFailsAtEndInsideTheTag)
{
    Tag r = tagOf(raw("<AB"));
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text(), "<AB");
    Tag z = tagOf(text(bytes("<AB\x1A" "C>", 6)));
    EXPECT_EQ(z.result, 0);
    EXPECT_EQ(z.text(), "<AB");
}

TEST_F(Scanner, TagFillingTheBufferHasNoTerminatorAndLeavesTheRest)
{
    FILE *s = raw("<ABCDEF>");
    Tag r = tagOf(s, 4);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.buffer, "<ABC####");  // nothing stored past the 4 bytes
    EXPECT_EQ(std::fgetc(s), 'D');
}

TEST_F(Scanner, TagOfSizeMinusOneComesBackTerminated)
{
    Tag r = tagOf(raw("<AB>"), 5);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.buffer.substr(0, 5), std::string("<AB>\0", 5));
    Tag full = tagOf(raw("<AB>"), 4);
    EXPECT_EQ(full.result, 1);
    EXPECT_EQ(full.buffer, "<AB>####");
}

TEST_F(Scanner, TagWithSizeZeroReadsNothing)
{
    FILE *s = raw("<A>");
    Tag r = tagOf(s, 0);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.buffer, "####");
    EXPECT_EQ(std::fgetc(s), '<');
}

// ---- dk_LoadStringtoTerminator ----------------------------------------------------------

TEST_F(Scanner, TextAcrossALineFeedWithItsBlockName)
{
    Element e = elementOf(raw("AB\nCD</T>"), "T");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, "ABCD");
    EXPECT_EQ(i_lNumerLinii, 2);
    Element lower = elementOf(raw("AB\nCD</T>"), "t");
    EXPECT_EQ(lower.result, 1);
    EXPECT_EQ(lower.text, "ABCD");
}

TEST_F(Scanner, TextThroughTextModeAndRaw)
{
    Element t = elementOf(text("AB\r\nCD\r\n</T>\r\n"), "T");
    EXPECT_EQ(t.result, 1);
    EXPECT_EQ(t.text, "ABCD");
    EXPECT_EQ(i_lNumerLinii, 3);
    i_lNumerLinii = 1;
    Element r = elementOf(raw("AB\r\nCD\r\n</T>\r\n"), "T");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text, "AB\rCD\r");  // without text mode every CR counts
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, TextStoresSpacesAndDropsTabs)
{
    Element e = elementOf(raw(" A\tB \t</X>"), "X");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, " AB ");
}

TEST_F(Scanner, ClosingTagsThatDoNotMatch)
{
    for (const char *input : {"AB</T >", "AB</TT>", "AB</>"}) {
        Element e = elementOf(raw(input), "T");
        EXPECT_EQ(e.result, 0) << input;
        EXPECT_FALSE(e.isNull) << input;
        EXPECT_EQ(e.text, "AB") << input;
    }
    Element longer = elementOf(raw("AB</T>"), "TT");
    EXPECT_EQ(longer.result, 0);
    EXPECT_EQ(longer.text, "AB");
}

TEST_F(Scanner, MismatchLeavesTheRestOfTheTagUnread)
{
    FILE *s = raw("AB</TX>rest");
    Element e = elementOf(s, "T");
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(std::fgetc(s), '>');
    FILE *d = raw("AB</QT>");
    EXPECT_EQ(elementOf(d, "T").result, 0);
    EXPECT_EQ(std::fgetc(d), 'T');
}

TEST_F(Scanner, AnythingBetweenLessThanAndSlashIsDropped)
{
    Element e = elementOf(raw("AB<x/T>"), "T");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, "AB");
    Element f = elementOf(raw("AB<xyz\n\t/T>"), "T");
    EXPECT_EQ(f.result, 1);
    EXPECT_EQ(i_lNumerLinii, 2);
}

TEST_F(Scanner, NameWithLineFeedAndTabStillMatches)
{
    Element e = elementOf(raw("AB</D\nOR\tCA>"), "dorca");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, "AB");
    EXPECT_EQ(i_lNumerLinii, 2);
}

TEST_F(Scanner, OnlyAsciiLettersMatchInEitherCase)
{
    // CP1250 0xB9 and 0xA5 are the lower and upper case of one letter; only ASCII is folded.
    EXPECT_EQ(elementOf(raw("AB</\xB9>"), "\xA5").result, 0);
    EXPECT_EQ(elementOf(raw("AB</\xB9>"), "\xB9").result, 1);
    EXPECT_EQ(elementOf(raw("AB</iorb>"), "IORB").result, 1);
    EXPECT_EQ(elementOf(raw("AB</IoRb>"), "iOrB").result, 1);
    EXPECT_EQ(elementOf(raw("AB</@>"), "`").result, 0);
}

TEST_F(Scanner, NullBlockAcceptsAnyClosingTag)
{
    for (const char *input : {"AB</T>", "AB</whatever it is>", "AB</>", "AB<x/y z>", "AB</stopka.DP>"}) {
        FILE *s = raw(std::string(input) + "Z");
        Element e = elementOf(s, nullptr);
        EXPECT_EQ(e.result, 1) << input;
        EXPECT_EQ(e.text, "AB") << input;
        EXPECT_EQ(std::fgetc(s), 'Z') << input;  // taken up to and including the '>'
    }
}

TEST_F(Scanner, NullBlockFailsAtEndBeforeTheGreaterThan)
{
    Element e = elementOf(raw("AB</T"), nullptr);
    EXPECT_EQ(e.result, 0);
    EXPECT_FALSE(e.isNull);
    EXPECT_EQ(e.text, "AB");
}

TEST_F(Scanner, EmptyElementGivesAnAllocatedEmptyText)
{
    char *out = nullptr;
    int64_t before = navo::memory::live_blocks();
    EXPECT_EQ(dk_LoadStringtoTerminator(raw("</T>"), &out, "T"), 1);
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(navo::memory::live_blocks(), before + 1);
    dk_Free(out);
    Element spaced = elementOf(raw("\n\t\n</T>"), "T");
    EXPECT_EQ(spaced.result, 1);
    EXPECT_FALSE(spaced.isNull);
    EXPECT_EQ(spaced.text, "");
}

TEST_F(Scanner, FileEndingAnywhereInAnElementFails)
{
    Element inText = elementOf(raw("ABC"), "T");
    EXPECT_EQ(inText.result, 0);
    EXPECT_TRUE(inText.isNull);
    Element emptyStream = elementOf(raw(""), "T");
    EXPECT_EQ(emptyStream.result, 0);
    EXPECT_TRUE(emptyStream.isNull);
    for (const char *input : {"AB<", "AB</", "AB</T", "AB<x"}) {
        for (const char *block : {"T", static_cast<const char *>(nullptr)}) {
            Element e = elementOf(raw(input), block);
            EXPECT_EQ(e.result, 0) << input;
            EXPECT_FALSE(e.isNull) << input;
            EXPECT_EQ(e.text, "AB") << input;
        }
    }
}

TEST_F(Scanner, DataFFInTextIsStoredAndCounted)
{
    Element e = elementOf(raw("A\xFF" "B\xFF</T>"), "T");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, std::string("A\xFF" "B\xFF"));
    EXPECT_EQ(e.text.size(), 4u);
    Element t = elementOf(text("\xFF\r\n\xFF</T>"), "T");
    EXPECT_EQ(t.result, 1);
    EXPECT_EQ(t.text, "\xFF\xFF");
}

TEST_F(Scanner, CtrlZInTextActsAsEndOfFile)
{
    Element e = elementOf(text(bytes("AB\x1A" "CD</T>", 9)), "T");
    EXPECT_EQ(e.result, 0);
    EXPECT_TRUE(e.isNull);
    Element tag = elementOf(text(bytes("AB</\x1A" "T>", 7)), "T");
    EXPECT_EQ(tag.result, 0);
    EXPECT_EQ(tag.text, "AB");
}

TEST_F(Scanner, LoneCrInTextIsStoredAndCounted)
{
    Element r = elementOf(raw("A\rB</T>"), "T");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text, "A\rB");
    EXPECT_EQ(r.text.size(), 3u);
    Element t = elementOf(text("A\rB\r</T>"), "T");
    EXPECT_EQ(t.result, 1);
    EXPECT_EQ(t.text, "A\rB\r");
    EXPECT_EQ(t.text.size(), 4u);
}

TEST_F(Scanner, GreaterThanInTextIsOrdinary)
{
    Element e = elementOf(raw("a>b</T>"), "T");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, "a>b");
}

TEST_F(Scanner, EarlierTextIsReleasedAndTheBufferHandedOn)
{
    FILE *s = raw("first</A>\nsecond</B>\n</C>");
    int64_t before = navo::memory::live_blocks();
    char *out = navo::memory::duplicate("an earlier text");
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(dk_LoadStringtoTerminator(s, &out, "A"), 1);
    EXPECT_STREQ(out, "first");
    EXPECT_EQ(navo::memory::live_blocks(), before + 1);
    EXPECT_EQ(dk_LoadStringtoTerminator(s, &out, "B"), 1);
    EXPECT_STREQ(out, "second");
    EXPECT_EQ(navo::memory::live_blocks(), before + 1);
    EXPECT_EQ(dk_LoadStringtoTerminator(s, &out, nullptr), 1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(i_lNumerLinii, 3);
    // A failing call releases the earlier text first: null after a failure in the text.
    EXPECT_EQ(dk_LoadStringtoTerminator(s, &out, nullptr), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(navo::memory::live_blocks(), before);
}

TEST_F(Scanner, LongTextsGrowWithoutLimit)
{
    for (size_t length : {size_t(63), size_t(64), size_t(65), size_t(506), size_t(100000)}) {
        std::string body;
        for (size_t i = 0; i < length; i++)
            body += static_cast<char>('a' + i % 26);
        Element e = elementOf(raw(body + "</T>"), "T");
        EXPECT_EQ(e.result, 1);
        EXPECT_EQ(e.text, body) << length;
    }
}

TEST_F(Scanner, FailedAllocationFailsTheReadWithNullAndNoLeak)
{
    std::string body(300, 'x');
    int64_t before = navo::memory::live_blocks();
    int failures = 0;
    for (int64_t n = 1; n <= 30; n++) {
        FILE *s = raw(body + "</T>");
        char *out = navo::memory::duplicate("old");
        ASSERT_NE(out, nullptr);
        int32_t result;
        {
            FailureInjection injection;
            injection.failNth(n);
            result = dk_LoadStringtoTerminator(s, &out, "T");
        }
        if (result == 0) {
            failures++;
            EXPECT_EQ(out, nullptr) << "allocation " << n;
            EXPECT_EQ(navo::memory::live_blocks(), before) << "allocation " << n;
        } else {
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(std::string(out), body);
            dk_Free(out);
            EXPECT_EQ(navo::memory::live_blocks(), before);
        }
    }
    EXPECT_GE(failures, 2);  // the first allocation and at least one growth can fail
    FILE *s = raw("abc</T>");
    char *out = nullptr;
    FailureInjection injection;
    injection.failNth(1);
    EXPECT_EQ(dk_LoadStringtoTerminator(s, &out, "T"), 0);
    EXPECT_EQ(out, nullptr);
}

// ---- dk_LoadNextSection -----------------------------------------------------------------

TEST_F(Scanner, SectionFindsTheFileFooterWhole)
{
    FILE *s = raw("<stopka.NAVO>\n<BLAD>");
    Tag r = sectionOf(s);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<stopka.NAVO>");
    expectZeroFrom(r.buffer, 13, 200);
    EXPECT_EQ(std::fgetc(s), '\n');
}

TEST_F(Scanner, SectionFindsASectionTag)
{
    FILE *s = text("\r\n\r\n<TOBZUA.DP>\r\n<naglowek.DP>");
    Tag r = sectionOf(s);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<TOBZUA.DP>");
    EXPECT_EQ(i_lNumerLinii, 3);
}

TEST_F(Scanner, SectionPassesOverDocumentFooterAndWrongCase)
{
    Tag a = sectionOf(raw("<stopka.DP><STOPKA.NAVO><tobZUA.DP><Tobzua.DP>"));
    EXPECT_EQ(a.result, 0);
    expectZeroFrom(a.buffer, 0, 200);
    Tag b = sectionOf(raw("<stopka.DP>\n<STOPKA.NAVO>\n<tobZUA.DP>\n<TOBZUA.DP>"));
    EXPECT_EQ(b.result, 1);
    EXPECT_EQ(b.text(), "<TOBZUA.DP>");
    EXPECT_EQ(i_lNumerLinii, 4);
}

TEST_F(Scanner, SectionReturnsStopkaWithExtraCharacters)
{
    Tag r = sectionOf(raw("<stopkaX.NAVO>"));
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<stopkaX.NAVO>");
}

TEST_F(Scanner, SectionTagWithLineFeedsComesBackWithout)
{
    Tag a = sectionOf(raw("<TOB\nZUA.DP>"));  // line feed inside the six characters
    EXPECT_EQ(a.result, 1);
    EXPECT_EQ(a.text(), "<TOBZUA.DP>");
    EXPECT_EQ(i_lNumerLinii, 2);
    Tag b = sectionOf(raw("<stopka.\n\tNAVO\n>"));  // and inside the rest
    EXPECT_EQ(b.result, 1);
    EXPECT_EQ(b.text(), "<stopka.NAVO>");
    EXPECT_EQ(i_lNumerLinii, 4);
    Tag c = sectionOf(text("<TOBZ\r\nUA.DP>"));
    EXPECT_EQ(c.text(), "<TOBZUA.DP>");
    EXPECT_EQ(i_lNumerLinii, 5);
}

TEST_F(Scanner, SectionPassesOverEverythingBetweenSections)
{
    std::string between = "stray text \xFF \r \t\n<naglowek.NAVO>\nH1\n</naglowek.NAVO>\n"
                          "</TOBZUA.DP>\n<TOBZUA>\n<TOBX>\n<IORB>\n</stopka.NAVO>\n<TOBZBA.DP>";
    Tag r = sectionOf(raw(between));
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<TOBZBA.DP>");
    EXPECT_EQ(i_lNumerLinii, 10);  // nine line feeds passed over
}

TEST_F(Scanner, SectionWalksThroughSectionsOfOtherForms)
{
    std::string dnf = "<DNF.DP>\r\n<naglowek.DP>\r\nD1\r\n</naglowek.DP>\r\n<DNF>\r\n<DNF1>\r\nx\r\n</DNF1>\r\n"
                      "</DNF>\r\n<stopka.DP>\r\n<BLAD>\r\nE\r\n</BLAD>\r\n</stopka.DP>\r\n</DNF.DP>\r\n"
                      "<stopka.NAVO>\r\n</stopka.NAVO>\r\n</NAVO>\r\n";
    Tag r = sectionOf(text(dnf));
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.text(), "<stopka.NAVO>");
    EXPECT_EQ(i_lNumerLinii, 16);
}

TEST_F(Scanner, SectionConsumesSixCharactersBehindAPassedOverLessThan)
{
    Tag r = sectionOf(raw("<ab<TOBZUA.DP>"));
    EXPECT_EQ(r.result, 0);
    Tag s = sectionOf(raw("<ab<TOBZUA.DP><TOBZBA.DP>"));
    EXPECT_EQ(s.result, 1);
    EXPECT_EQ(s.text(), "<TOBZBA.DP>");
}

TEST_F(Scanner, SectionStoresSpaceCrAndFFInsideATag)
{
    Tag a = sectionOf(raw("<TOB A\r.DP>"));
    EXPECT_EQ(a.result, 1);
    EXPECT_EQ(a.text(), "<TOB A\r.DP>");
    Tag b = sectionOf(raw("<TOB\xFF" "A.D\xFFP>\n<TOB\xFF" ".DP>"));
    EXPECT_EQ(b.result, 1);
    EXPECT_EQ(b.text(), "<TOB\xFF" ".DP>");  // the first has no ".DP>"; the second is found
    Tag c = sectionOf(raw("<TO\tBZUA.D\tP>"));
    EXPECT_EQ(c.text(), "<TOBZUA.DP>");
}

TEST_F(Scanner, SectionFailsAtEndEverywhere)
{
    for (const char *input : {"", "no tag at all \xFF", "<", "<TOBZ", "<TOBZUA", "<TOBZUA.D", "<stopka.NAVO",
                              "<TOBZUA.DP", "<abcdef>"}) {
        Tag r = sectionOf(raw(input));
        EXPECT_EQ(r.result, 0) << input;
        expectZeroFrom(r.buffer, 0, 200);
    }
    Tag z = sectionOf(text(bytes("<TOBZUA\x1A" ".DP>", 12)));
    EXPECT_EQ(z.result, 0);
}

TEST_F(Scanner, SectionRestOfNineteenFitsTwentyIsPassedOver)
{
    std::string rest19 = std::string(15, 'Q') + ".DP>";
    ASSERT_EQ(rest19.size(), 19u);
    Tag fits = sectionOf(raw("<TOBZUA" + rest19));
    EXPECT_EQ(fits.result, 1);
    EXPECT_EQ(fits.text(), "<TOBZUA" + rest19);
    EXPECT_EQ(fits.text().size(), 26u);

    std::string rest20 = std::string(16, 'Q') + ".DP>";
    FILE *s = raw("<TOBZUA" + rest20 + "\n<stopka" + std::string(16, 'S') + ".NAVO>\n<TOBZBA.DP>");
    Tag passed = sectionOf(s);
    EXPECT_EQ(passed.result, 1);
    EXPECT_EQ(passed.text(), "<TOBZBA.DP>");
    EXPECT_EQ(i_lNumerLinii, 3);
    Tag end = sectionOf(raw("<TOBZUA" + std::string(40, 'Q')));
    EXPECT_EQ(end.result, 0);
}

TEST_F(Scanner, SectionTagLongerThanTheCallersBufferIsPassedOver)
{
    Tag small = sectionOf(raw("<TOBZUA.DP>\n<TOB.DP>"), 11);
    EXPECT_EQ(small.result, 1);
    EXPECT_EQ(small.text(), "<TOB.DP>");
    EXPECT_EQ(small.buffer.substr(11), "####");
}

TEST_F(Scanner, SectionsOneAfterAnotherInAFile)
{
    FILE *s = text("<TOBZUA.DP>\r\n<TOBZUA>\r\n</TOBZUA>\r\n</TOBZUA.DP>\r\n<TOBZBA.DP>\r\n</TOBZBA.DP>\r\n"
                   "<stopka.NAVO>\r\n");
    EXPECT_EQ(sectionOf(s).text(), "<TOBZUA.DP>");
    EXPECT_EQ(sectionOf(s).text(), "<TOBZBA.DP>");
    EXPECT_EQ(i_lNumerLinii, 5);
    EXPECT_EQ(sectionOf(s).text(), "<stopka.NAVO>");
    EXPECT_EQ(i_lNumerLinii, 7);
    EXPECT_EQ(sectionOf(s).result, 0);
    EXPECT_EQ(i_lNumerLinii, 8);
}

// ---- the readers together, as the loaders use them --------------------------------------

TEST_F(Scanner, ReadersWalkAnElementByElement)
{
    FILE *s = text("<IORB>\r\n1\r\n11112222333344445555666677778888    \r\n</IORB>\r\n"
                   "<OPL1>\r\n09122009\r\n</OPL1>\r\n</TOBZBA>\r\n");
    Tag open = tagOf(s);
    EXPECT_EQ(open.text(), "<IORB>");
    Element e = elementOf(s, "IORB");
    EXPECT_EQ(e.result, 1);
    EXPECT_EQ(e.text, "111112222333344445555666677778888    ");
    EXPECT_EQ(e.text.size(), 37u);
    EXPECT_EQ(i_lNumerLinii, 4);
    EXPECT_EQ(tagOf(s).text(), "<OPL1>");
    EXPECT_EQ(elementOf(s, "OPL1").text, "09122009");
    EXPECT_EQ(tagOf(s).text(), "</TOBZBA>");
    EXPECT_EQ(i_lNumerLinii, 8);
}
