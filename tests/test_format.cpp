// test_format.cpp - the constants of interchange/format.hpp: prolog, tags, widths, positions, OCR kinds.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

#include "interchange/format.hpp"

namespace {

void expectContiguous(const dk_fmtLine *lines, int count, int total, const std::vector<int> &widths)
{
    ASSERT_EQ(static_cast<int>(widths.size()), count);
    int position = 0;
    for (int i = 0; i < count; i++) {
        EXPECT_EQ(lines[i].width, widths[static_cast<size_t>(i)]) << "line " << i + 1;
        EXPECT_EQ(lines[i].position, position) << "line " << i + 1;
        position += lines[i].width;
    }
    EXPECT_EQ(position, total);
}

}  // namespace

TEST(Format, PrologLinesHaveTheirLengths)
{
    std::string line1 = std::string(DK_PROLOG_DOCTYPE_START) + DK_PROLOG_VERSION_1_3 + DK_PROLOG_DOCTYPE_END;
    std::string line2 = std::string(DK_PROLOG_VERSION_START) + DK_PROLOG_VERSION_1_3 + DK_PROLOG_VERSION_END;
    std::string line3 = DK_PROLOG_ENCODING;
    EXPECT_EQ(line1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[");
    EXPECT_EQ(line2, "<!ENTITY wersja '001.300' >");
    EXPECT_EQ(line3, "<!ENTITY strona.kodowa 'ISO 8859-2' >]>");
    EXPECT_EQ(line1.size(), 49u);
    EXPECT_EQ(line2.size(), 27u);
    EXPECT_EQ(line3.size(), 39u);
    EXPECT_EQ(std::strlen(DK_PROLOG_DOCTYPE_START), 40u);
    EXPECT_EQ(std::strlen(DK_PROLOG_VERSION_START), 19u);
    EXPECT_EQ(DK_PROLOG_READ_DOCTYPE, 49);
    EXPECT_EQ(DK_PROLOG_READ_VERSION, 26);
    EXPECT_EQ(DK_PROLOG_READ_ENCODING, 38);
    EXPECT_EQ(line1.compare(0, DK_DOCTYPE_HEAD_LENGTH, DK_DOCTYPE_HEAD), 0);
    EXPECT_EQ(std::strlen(DK_DOCTYPE_HEAD), 21u);
}

TEST(Format, VersionWordAndValueSelectOnTheWrittenLine)
{
    std::string line2 = std::string(DK_PROLOG_VERSION_START) + DK_PROLOG_VERSION_1_3 + DK_PROLOG_VERSION_END;
    size_t word = line2.find(DK_VERSION_WORD);
    ASSERT_NE(word, std::string::npos);
    EXPECT_EQ(line2.substr(word + DK_VERSION_VALUE_OFFSET, DK_VERSION_VALUE_LENGTH), DK_VERSION_VALUE_1_3);
    EXPECT_STREQ(DK_VERSION_WORD, "wersja ");
    EXPECT_STREQ(DK_VERSION_VALUE_1_3, "001.300");
}

TEST(Format, TagsAreExact)
{
    EXPECT_STREQ(DK_TAG_NAVO_OPEN, "<NAVO>");
    EXPECT_STREQ(DK_TAG_NAVO_CLOSE, "</NAVO>");
    EXPECT_STREQ(DK_TAG_FILE_HEADER_OPEN, "<naglowek.NAVO>");
    EXPECT_STREQ(DK_TAG_FILE_HEADER_CLOSE, "</naglowek.NAVO>");
    EXPECT_STREQ(DK_TAG_FILE_FOOTER_OPEN, "<stopka.NAVO>");
    EXPECT_STREQ(DK_TAG_FILE_FOOTER_CLOSE, "</stopka.NAVO>");
    EXPECT_STREQ(DK_TAG_DOC_HEADER_OPEN, "<naglowek.DP>");
    EXPECT_STREQ(DK_TAG_DOC_HEADER_CLOSE, "</naglowek.DP>");
    EXPECT_EQ(std::strlen(DK_TAG_DOC_HEADER_OPEN), 13u);
    EXPECT_STREQ(DK_TAG_DOC_FOOTER_OPEN, "<stopka.DP>");
    EXPECT_STREQ(DK_TAG_DOC_FOOTER_CLOSE, "</stopka.DP>");
    EXPECT_STREQ(DK_TAG_ERROR_OPEN, "<BLAD>");
    EXPECT_STREQ(DK_TAG_ERROR_CLOSE, "</BLAD>");
    EXPECT_STREQ(DK_TAG_OCR_OPEN_PREFIX, "<OCR.");
    EXPECT_STREQ(DK_TAG_OCR_CLOSE_PREFIX, "</OCR.");
    EXPECT_STREQ(DK_SECTION_SUFFIX, ".DP>");
    EXPECT_STREQ(DK_FILE_FOOTER_SUFFIX, ".NAVO>");
    EXPECT_STREQ(DK_SCAN_FOOTER_HEAD, "stopka");
    EXPECT_STREQ(DK_SCAN_SECTION_HEAD, "TOB");
    EXPECT_EQ(std::strlen(DK_SCAN_FOOTER_HEAD), static_cast<size_t>(DK_SCAN_HEAD_LENGTH));
}

TEST(Format, LineTablesAreContiguousAndAddUp)
{
    expectContiguous(dk_fmtFileHeaderLines, DK_FILE_HEADER_LINES, DK_FILE_HEADER_LENGTH, {51, 8, 24, 24, 32});
    expectContiguous(dk_fmtDocHeaderLines, DK_DOC_HEADER_LINES, DK_DOC_HEADER_LENGTH,
                     {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32});
    expectContiguous(dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, DK_ERROR_NOTE_LENGTH, {10, 10, 10, 10});
    expectContiguous(dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES, DK_OCR_NOTE_LENGTH, {10, 10, 10, 72, 24, 24});
    EXPECT_EQ(DK_FILE_HEADER_LENGTH, 139);
    EXPECT_EQ(DK_DOC_HEADER_LENGTH, 245);
    EXPECT_EQ(DK_ERROR_NOTE_LENGTH, 40);
    EXPECT_EQ(DK_OCR_NOTE_LENGTH, 150);
}

TEST(Format, LineTablesPointAtTheRecordMembers)
{
    EXPECT_EQ(dk_fmtFileHeaderLines[0].member, offsetof(dk_FileHeader, line1));
    EXPECT_EQ(dk_fmtFileHeaderLines[4].member, offsetof(dk_FileHeader, line5));
    EXPECT_EQ(dk_fmtDocHeaderLines[11].member, offsetof(dk_DocHeader, line12));
    EXPECT_EQ(dk_fmtDocHeaderLines[13].member, offsetof(dk_DocHeader, line14));
    EXPECT_EQ(dk_fmtErrorNoteLines[3].member, offsetof(dk_ErrorNote, text4));
    EXPECT_EQ(dk_fmtOcrNoteLines[0].member, offsetof(dk_OcrNote, text1));
    EXPECT_EQ(dk_fmtOcrNoteLines[5].member, offsetof(dk_OcrNote, text6));
}

TEST(Format, CutFillsEachLineAtFullWidth)
{
    std::string text;
    for (int i = 0; i < DK_FILE_HEADER_LENGTH; i++)
        text += static_cast<char>('A' + i % 26);
    dk_FileHeader header;
    std::memset(&header, 0, sizeof header);
    dk_fmtCutLines(&header, dk_fmtFileHeaderLines, DK_FILE_HEADER_LINES, text.c_str());
    EXPECT_EQ(std::string(header.line1), text.substr(0, 51));
    EXPECT_EQ(std::string(header.line2), text.substr(51, 8));
    EXPECT_EQ(std::string(header.line3), text.substr(59, 24));
    EXPECT_EQ(std::string(header.line4), text.substr(83, 24));
    EXPECT_EQ(std::string(header.line5), text.substr(107, 32));
}

TEST(Format, CutOfShorterAndLongerNoteTexts)
{
    dk_ErrorNote note;
    std::memset(&note, 0, sizeof note);
    std::string text35 = std::string(10, 'a') + std::string(10, 'b') + std::string(10, 'c') + "ddddd";
    dk_fmtCutLines(&note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, text35.c_str());
    EXPECT_STREQ(note.text1, "aaaaaaaaaa");
    EXPECT_STREQ(note.text3, "cccccccccc");
    EXPECT_STREQ(note.text4, "ddddd");

    std::memset(&note, 0, sizeof note);
    dk_fmtCutLines(&note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, "short");
    EXPECT_STREQ(note.text1, "short");
    EXPECT_STREQ(note.text2, "");
    EXPECT_STREQ(note.text4, "");

    std::memset(&note, 0, sizeof note);
    std::string text45 = std::string(40, 'x') + "yyyyy";
    dk_fmtCutLines(&note, dk_fmtErrorNoteLines, DK_ERROR_NOTE_LINES, text45.c_str());
    EXPECT_STREQ(note.text4, "xxxxxxxxxx");

    dk_OcrNote ocr;
    std::memset(&ocr, 0, sizeof ocr);
    dk_fmtCutLines(&ocr, dk_fmtOcrNoteLines, DK_OCR_NOTE_LINES, "");
    EXPECT_EQ(ocr.kind, 0);
    EXPECT_STREQ(ocr.text1, "");
}

TEST(Format, OcrKindLettersAndTheReadersRule)
{
    EXPECT_STREQ(dk_fmtOcrKindLetters[0], "a");
    EXPECT_STREQ(dk_fmtOcrKindLetters[1], "z");
    EXPECT_STREQ(dk_fmtOcrKindLetters[2], "l");
    EXPECT_STREQ(dk_fmtOcrKindLetters[3], "l2");
    EXPECT_EQ(dk_fmtOcrKindOfTag("a>"), 0);
    EXPECT_EQ(dk_fmtOcrKindOfTag("z>"), 1);
    EXPECT_EQ(dk_fmtOcrKindOfTag("l>"), 2);
    EXPECT_EQ(dk_fmtOcrKindOfTag("l2>"), 3);
    EXPECT_EQ(dk_fmtOcrKindOfTag("lx>"), 2);
    EXPECT_EQ(dk_fmtOcrKindOfTag("q>"), 0);
    EXPECT_EQ(dk_fmtOcrKindOfTag(""), 0);
    EXPECT_EQ(dk_fmtOcrKindOfTag("l"), 2);
    EXPECT_EQ(dk_fmtOcrKindOfTag(nullptr), 0);
    // The writer's tags from the letters.
    for (int kind = 0; kind < DK_OCR_KIND_COUNT; kind++) {
        std::string open = std::string(DK_TAG_OCR_OPEN_PREFIX) + dk_fmtOcrKindLetters[kind] + DK_TAG_END;
        EXPECT_EQ(dk_fmtOcrKindOfTag(open.c_str() + std::strlen(DK_TAG_OCR_OPEN_PREFIX)), kind);
    }
}
