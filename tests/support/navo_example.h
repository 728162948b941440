// navo_example.h - the example file of the format and a small definition with its form, for the
// packed access and writer tests.
#ifndef NAVO_TEST_NAVO_EXAMPLE_H
#define NAVO_TEST_NAVO_EXAMPLE_H

#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

namespace navo_test {

// TOBZBA as in the embedded texts, a form without block references, and a
// third form to show that the writer orders by form. Form IDs: TOBZBA 0, TOBPUSTY 1, TOBDWA 2.
inline const char *exampleDefinition()
{
    return "Wersja 1.3\n"
           "\n"
           "[TOBZBA, TOBZBA]\n"
           "DaneOrgan_ZCBABlf, 1, 1\n"
           "DaneIdPlSklaBlf, 1, 1\n"
           "InfORachBaPlSklBlf, 1, -1\n"
           "OswiadPlSklBlf, 1, 1\n"
           "\n"
           "[TOBPUSTY, TOBPUSTY]\n"
           "\n"
           "[TOBDWA, TOBDWA]\n"
           "OswiadPlSklBlf, 1, 1\n"
           "\n"
           "<DaneOrgan_ZCBABlf, DOZCBA>\n"
           "DataNadania, 8, t_data_DDMMRRRR\n"
           "NalepkaR, 6, t_nalepka_R\n"
           "\n"
           "<DaneIdPlSklaBlf, DIPL>\n"
           "Nip, 10, t_NIP\n"
           "Regon, 14, t_REGON\n"
           "Pesel, 11, t_PESEL\n"
           "RodzajDokumentu, 1, s_RodzajDokumentu\n"
           "SeriaINumerDokumen, 9, t_seria_i_nr_dokumentu\n"
           "NazwaSkrocona, 31, t_nazwa_31\n"
           "Nazwisko, 31, t_nazwisko\n"
           "ImiePierwsze, 22, t_imie\n"
           "DataUrodzenia, 8, t_data_DDMMRRRR\n"
           "ID_SYSTEMOWY, 16, t_ID_SYSTEMOWY\n"
           "NR_WER_DANYCH_ID, 16, t_NR_WERSJI_DANYCH_ID\n"
           "POZIOM_UFNOSCI_ID, 2, t_POZIOM_UFNOSCI_ID\n"
           "\n"
           "<InfORachBaPlSklBlf, IORB>\n"
           "KodRodzajuZgloszen, 1, s_KodRodzajuZgloszeniaDoUbeZdr\n"
           "NumerRachunku, 36, t_nr_rachunku\n"
           "\n"
           "<OswiadPlSklBlf, OPL1>\n"
           "DataWypelnienia, 8, t_data_DDMMRRRR\n";
}

// The 85 lines of the example file, without line ends.
inline std::vector<std::string> exampleLines()
{
    return {
        "<!DOCTYPE NAVO PUBLIC '-//TOB//DTD NAVO 1.3//PL'[",
        "<!ENTITY wersja '001.300' >",
        "<!ENTITY strona.kodowa 'ISO 8859-2' >]>",
        "<NAVO>",
        "<naglowek.NAVO>",
        "H1                                                 ",
        "H2      ",
        "H3                      ",
        "H4                      ",
        "H5                              ",
        "</naglowek.NAVO>",
        "<TOBZBA.DP>",
        "<naglowek.DP>",
        "D1                                                 ",
        "D2      ",
        "D3      ",
        "D4      ",
        "D5                      ",
        "D6      ",
        "D7                      ",
        "D8                      ",
        "D9      ",
        "D10                     ",
        "D11                     ",
        "X",
        "X",
        "D14                             ",
        "</naglowek.DP>",
        "<TOBZBA>",
        "<DOZCBA>",
        "09122009",
        "A1    ",
        "</DOZCBA>",
        "<DIPL>",
        "1234567890",
        "12345678901234",
        "           ",
        " ",
        "         ",
        "PRZYKLADOWA FIRMA              ",
        "                               ",
        "                      ",
        "        ",
        "                ",
        "                ",
        "  ",
        "</DIPL>",
        "<IORB>",
        "1",
        "11112222333344445555666677778888    ",
        "</IORB>",
        "<IORB>",
        "2",
        "99990000111122223333444455556666    ",
        "</IORB>",
        "<OPL1>",
        "09122009",
        "</OPL1>",
        "</TOBZBA>",
        "<stopka.DP>",
        "<OCR.a>",
        "O1        ",
        "O2        ",
        "O3        ",
        "O4                                                                      ",
        "O5                      ",
        "O6                      ",
        "</OCR.a>",
        "<BLAD>",
        "E1        ",
        "E2        ",
        "E3        ",
        "E4        ",
        "</BLAD>",
        "</stopka.DP>",
        "</TOBZBA.DP>",
        "<stopka.NAVO>",
        "<BLAD>",
        "F1        ",
        "F2        ",
        "F3        ",
        "F4        ",
        "</BLAD>",
        "</stopka.NAVO>",
        "</NAVO>",
    };
}

// Lines joined as the file holds them: every line ends in CR LF, the last one too.
inline std::string crlfJoin(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\r\n";
    return text;
}

inline std::string exampleFile() { return crlfJoin(exampleLines()); }

// `text` filled with blanks to `width`, as a host fills a header line.
inline std::string padded(const std::string &text, size_t width)
{
    std::string result = text;
    result.resize(width, ' ');
    return result;
}

template <size_t N>
inline void setLine(char (&line)[N], const std::string &text)
{
    std::string full = padded(text, N - 1);
    std::memcpy(line, full.c_str(), N);
}

// Everything of the example but the prolog and the file header, into a context that has the
// tables of a definition with TOBZBA. Returns the document index, or -1 on failure.
inline int32_t fillExampleDocument(dk_Context *ctx)
{
    int32_t doc = -1;
    int32_t record = -1;
    dk_DocHeader *header = nullptr;
    if (!dk_AddDocument(ctx, "TOBZBA", &doc) || !dk_GetDocHeader(ctx, "TOBZBA", doc, &header))
        return -1;
    char *targets[] = {header->line1, header->line2, header->line3, header->line4,  header->line5,  header->line6,  header->line7,
                       header->line8, header->line9, header->line10, header->line11, header->line12, header->line13, header->line14};
    const size_t widths[] = {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32};
    for (size_t i = 0; i < 14; i++)
        std::memcpy(targets[i], padded(i == 11 || i == 12 ? "X" : "D" + std::to_string(i + 1), widths[i]).c_str(), widths[i] + 1);
    bool ok = dk_SetField(ctx, "TOBZBA", doc, "DOZCBA", 0, "DataNadania", "09122009") &&
              dk_SetField(ctx, "TOBZBA", doc, "DOZCBA", 0, "NalepkaR", "A1") &&
              dk_SetField(ctx, "TOBZBA", doc, "DIPL", 0, "Nip", "1234567890") &&
              dk_SetField(ctx, "TOBZBA", doc, "DIPL", 0, "Regon", "12345678901234") &&
              dk_SetField(ctx, "TOBZBA", doc, "DIPL", 0, "NazwaSkrocona", "PRZYKLADOWA FIRMA") &&
              dk_SetField(ctx, "TOBZBA", doc, "IORB", 0, "KodRodzajuZgloszen", "1") &&
              dk_SetField(ctx, "TOBZBA", doc, "IORB", 0, "NumerRachunku", "11112222333344445555666677778888") &&
              dk_AddBlock(ctx, "TOBZBA", doc, "IORB", &record) && record == 1 &&
              dk_SetField(ctx, "TOBZBA", doc, "IORB", 1, "KodRodzajuZgloszen", "2") &&
              dk_SetField(ctx, "TOBZBA", doc, "IORB", 1, "NumerRachunku", "99990000111122223333444455556666") &&
              dk_SetField(ctx, "TOBZBA", doc, "OPL1", 0, "DataWypelnienia", "09122009");
    if (!ok)
        return -1;
    dk_OcrNote ocr{};
    std::strcpy(ocr.text1, "O1");
    std::strcpy(ocr.text2, "O2");
    std::strcpy(ocr.text3, "O3");
    std::strcpy(ocr.text4, "O4");
    std::strcpy(ocr.text5, "O5");
    std::strcpy(ocr.text6, "O6");
    dk_ErrorNote error{};
    std::strcpy(error.text1, "E1");
    std::strcpy(error.text2, "E2");
    std::strcpy(error.text3, "E3");
    std::strcpy(error.text4, "E4");
    if (!dk_AddDocOCR(ctx, "TOBZBA", doc, &ocr) || !dk_AddDocError(ctx, "TOBZBA", doc, &error))
        return -1;
    return doc;
}

// The whole example: prolog, file header, the document and the file's note.
inline bool fillExample(dk_Context *ctx)
{
    dk_FileHeader *header = nullptr;
    if (!dk_SetDefaultNAVOProlog(ctx, "1.3") || !dk_GetNAVOHeader(ctx, &header))
        return false;
    setLine(header->line1, "H1");
    setLine(header->line2, "H2");
    setLine(header->line3, "H3");
    setLine(header->line4, "H4");
    setLine(header->line5, "H5");
    if (fillExampleDocument(ctx) < 0)
        return false;
    dk_ErrorNote note{};
    std::strcpy(note.text1, "F1");
    std::strcpy(note.text2, "F2");
    std::strcpy(note.text3, "F3");
    std::strcpy(note.text4, "F4");
    return dk_AddNAVOError(ctx, &note) != 0;
}

}  // namespace navo_test

#endif
