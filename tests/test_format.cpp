// test_format.cpp - the constants of interchange/format.hpp: prolog, tags, widths, positions, OCR kinds.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

#include "interchange/format.hpp"

using namespace navo::interchange;

namespace {

template <size_t N>
void expectContiguous(const std::array<Line, N> &lines, int total, const std::vector<int> &widths)
{
    const int count = static_cast<int>(N);
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
    std::string line1 = std::string(prolog::doctype_start).append(prolog::version_1_3).append(prolog::doctype_end);
    std::string line2 = std::string(prolog::version_start).append(prolog::version_1_3).append(prolog::version_end);
    std::string line3(prolog::encoding);
    EXPECT_EQ(line1, "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[");
    EXPECT_EQ(line2, "<!ENTITY wersja '001.300' >");
    EXPECT_EQ(line3, "<!ENTITY strona.kodowa 'ISO 8859-2' >]>");
    EXPECT_EQ(line1.size(), 49u);
    EXPECT_EQ(line2.size(), 27u);
    EXPECT_EQ(line3.size(), 39u);
    EXPECT_EQ(prolog::doctype_start.size(), 40u);
    EXPECT_EQ(prolog::version_start.size(), 19u);
    EXPECT_EQ(prolog::read_doctype, 49);
    EXPECT_EQ(prolog::read_version, 26);
    EXPECT_EQ(prolog::read_encoding, 38);
    EXPECT_EQ(line1.compare(0, prolog::doctype_head.size(), prolog::doctype_head), 0);
    EXPECT_EQ(prolog::doctype_head.size(), 21u);
}

TEST(Format, VersionWordAndValueSelectOnTheWrittenLine)
{
    std::string line2 = std::string(prolog::version_start).append(prolog::version_1_3).append(prolog::version_end);
    size_t word = line2.find(prolog::version_word);
    ASSERT_NE(word, std::string::npos);
    EXPECT_EQ(line2.substr(word + prolog::version_value_offset, prolog::version_value_1_3.size()), prolog::version_value_1_3);
    EXPECT_EQ(prolog::version_word, "wersja ");
    EXPECT_EQ(prolog::version_value_1_3, "001.300");
}

TEST(Format, TagsAreExact)
{
    EXPECT_EQ(tag::navo_open, "<NAVO>");
    EXPECT_EQ(tag::navo_close, "</NAVO>");
    EXPECT_EQ(tag::file_header_open, "<naglowek.NAVO>");
    EXPECT_EQ(tag::file_header_close, "</naglowek.NAVO>");
    EXPECT_EQ(tag::file_footer_open, "<stopka.NAVO>");
    EXPECT_EQ(tag::file_footer_close, "</stopka.NAVO>");
    EXPECT_EQ(tag::doc_header_open, "<naglowek.DP>");
    EXPECT_EQ(tag::doc_header_close, "</naglowek.DP>");
    EXPECT_EQ(tag::doc_header_open.size(), 13u);
    EXPECT_EQ(tag::doc_footer_open, "<stopka.DP>");
    EXPECT_EQ(tag::doc_footer_close, "</stopka.DP>");
    EXPECT_EQ(tag::error_open, "<BLAD>");
    EXPECT_EQ(tag::error_close, "</BLAD>");
    EXPECT_EQ(tag::ocr_open_prefix, "<OCR.");
    EXPECT_EQ(tag::ocr_close_prefix, "</OCR.");
    EXPECT_EQ(tag::section_suffix, ".DP>");
    EXPECT_EQ(tag::file_footer_suffix, ".NAVO>");
    EXPECT_EQ(scan::footer_head, "stopka");
    EXPECT_EQ(scan::section_head, "TOB");
    EXPECT_EQ(scan::footer_head.size(), scan::head_length);
}

TEST(Format, LineTablesAreContiguousAndAddUp)
{
    expectContiguous(file_header_lines, file_header_length, {51, 8, 24, 24, 32});
    expectContiguous(doc_header_lines, doc_header_length,
                     {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32});
    expectContiguous(error_note_lines, error_note_length, {10, 10, 10, 10});
    expectContiguous(ocr_note_lines, ocr_note_length, {10, 10, 10, 72, 24, 24});
    EXPECT_EQ(file_header_length, 139);
    EXPECT_EQ(doc_header_length, 245);
    EXPECT_EQ(error_note_length, 40);
    EXPECT_EQ(ocr_note_length, 150);
}

TEST(Format, LineTablesPointAtTheRecordMembers)
{
    EXPECT_EQ(file_header_lines[0].member, offsetof(dk_FileHeader, line1));
    EXPECT_EQ(file_header_lines[4].member, offsetof(dk_FileHeader, line5));
    EXPECT_EQ(doc_header_lines[11].member, offsetof(dk_DocHeader, line12));
    EXPECT_EQ(doc_header_lines[13].member, offsetof(dk_DocHeader, line14));
    EXPECT_EQ(error_note_lines[3].member, offsetof(dk_ErrorNote, text4));
    EXPECT_EQ(ocr_note_lines[0].member, offsetof(dk_OcrNote, text1));
    EXPECT_EQ(ocr_note_lines[5].member, offsetof(dk_OcrNote, text6));
}

TEST(Format, CutFillsEachLineAtFullWidth)
{
    std::string text;
    for (int i = 0; i < file_header_length; i++)
        text += static_cast<char>('A' + i % 26);
    dk_FileHeader header;
    std::memset(&header, 0, sizeof header);
    cut_lines(header, file_header_lines, text);
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
    cut_lines(note, error_note_lines, text35);
    EXPECT_STREQ(note.text1, "aaaaaaaaaa");
    EXPECT_STREQ(note.text3, "cccccccccc");
    EXPECT_STREQ(note.text4, "ddddd");

    std::memset(&note, 0, sizeof note);
    cut_lines(note, error_note_lines, "short");
    EXPECT_STREQ(note.text1, "short");
    EXPECT_STREQ(note.text2, "");
    EXPECT_STREQ(note.text4, "");

    std::memset(&note, 0, sizeof note);
    std::string text45 = std::string(40, 'x') + "yyyyy";
    cut_lines(note, error_note_lines, text45);
    EXPECT_STREQ(note.text4, "xxxxxxxxxx");

    dk_OcrNote ocr;
    std::memset(&ocr, 0, sizeof ocr);
    cut_lines(ocr, ocr_note_lines, "");
    EXPECT_EQ(ocr.kind, 0);
    EXPECT_STREQ(ocr.text1, "");
}

TEST(Format, OcrKindLettersAndTheReadersRule)
{
    EXPECT_EQ(ocr_kind_letters[0], "a");
    EXPECT_EQ(ocr_kind_letters[1], "z");
    EXPECT_EQ(ocr_kind_letters[2], "l");
    EXPECT_EQ(ocr_kind_letters[3], "l2");
    EXPECT_EQ(ocr_kind_of_tag("a>"), 0);
    EXPECT_EQ(ocr_kind_of_tag("z>"), 1);
    EXPECT_EQ(ocr_kind_of_tag("l>"), 2);
    EXPECT_EQ(ocr_kind_of_tag("l2>"), 3);
    EXPECT_EQ(ocr_kind_of_tag("lx>"), 2);
    EXPECT_EQ(ocr_kind_of_tag("q>"), 0);
    EXPECT_EQ(ocr_kind_of_tag(""), 0);
    EXPECT_EQ(ocr_kind_of_tag("l"), 2);
    EXPECT_EQ(ocr_kind_of_tag(std::string_view{}), 0);
    // The writer's tags from the letters.
    for (int kind = 0; kind < static_cast<int>(ocr_kind_letters.size()); kind++) {
        std::string open = std::string(tag::ocr_open_prefix).append(ocr_kind_letters[static_cast<size_t>(kind)]).append(tag::end);
        EXPECT_EQ(ocr_kind_of_tag(open.c_str() + tag::ocr_open_prefix.size()), kind);
    }
}
