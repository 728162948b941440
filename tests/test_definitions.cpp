// test_definitions.cpp - the definition grammar and loader, and the two embedded definitions
// checked through what they load into (a row per form and per block), not by re-deriving them.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "definitions/definition_loader.hpp"
#include "test_support.h"

using namespace navo_test;

namespace {

// Two forms, three blocks, one repeating reference, a field name shared by two blocks.
const char kText[] =
    "Wersja 9.1\n"
    "\n"
    "[FORMA, FORMA]\n"
    "BlokPierwszy, 1, 1\n"
    "BlokDrugi, 1, -1\n"
    "\n"
    "[FORMB, FORMB]\n"
    "BlokTrzeci, 1, 1\n"
    "BlokPierwszy, 1, 1\n"
    "\n"
    "<BlokPierwszy, BP>\n"
    "Nazwisko, 31, t_nazwisko\n"
    "Imie, 22, t_imie\n"
    "\n"
    "<BlokDrugi, BD>\n"
    "Kwota, 7, t_kwota\n"
    "Nazwisko, 5, t_nazwisko\n"
    "Data, 8, t_data\n"
    "\n"
    "<BlokTrzeci, BT>\n"
    "Pesel, 11, t_pesel\n";

struct Loaded {
    dk_sdDictionary *dict = nullptr;
    dk_dfDefinitionList *list = nullptr;
    Loaded()
    {
        EXPECT_EQ(1, dk_sdInit(&dict, 400));
        EXPECT_EQ(1, dk_dfInit(&list));
    }
    ~Loaded()
    {
        EXPECT_EQ(1, dk_dfDestroy(&list));
        dk_sdDestroy(&dict);
    }
    int32_t load(const std::string &text) { return dk_dfLoadDefinition(list, dict, text.c_str()); }
    int32_t id(const char *name) const
    {
        int32_t out = -7;
        dk_sdGetID(dict, name, &out);
        return out;
    }
    std::string name(int32_t id) const { return id >= 0 && id < dict->count ? dict->strings[id] : "?"; }
    const dk_dfDefinition &def(int i = 0) const { return list->items[i]; }
    // One line per form: "FORM: TAG(len)*, ..." and per block its fields "name:offset+width".
    std::string layout(int i = 0) const
    {
        const dk_dfDefinition &d = def(i);
        std::string text = std::string(d.name) + "\n";
        for (int32_t f = 0; f < d.formCount; f++) {
            text += name(d.forms[f].id) + ":";
            for (int32_t r = 0; r < d.forms[f].refCount; r++) {
                const dk_dfBlock &b = d.blocks[d.forms[f].refs[r].blockIndex];
                text += " " + name(b.tagId) + "(" + std::to_string(b.recordLength) + ")" +
                        (d.forms[f].refs[r].occurrence == -1 ? "*" : "");
            }
            text += "\n";
        }
        for (int32_t b = 0; b < d.blockCount; b++) {
            text += name(d.blocks[b].tagId) + ":";
            for (int32_t k = 0; k < d.blocks[b].fieldCount; k++)
                text += " " + name(d.blocks[b].fields[k].nameId) + ":" + std::to_string(d.blocks[b].fields[k].offset) +
                        "+" + std::to_string(d.blocks[b].fields[k].width);
            text += "\n";
        }
        return text;
    }
};

}  // namespace

TEST(DefinitionLoader, FormsBlocksFieldsAndOffsets)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    ASSERT_EQ(1, l.list->count);
    // Form names are interned first (form i has ID i), then tags and field names in order.
    EXPECT_EQ("9.1\n"
              "FORMA: BP(53) BD(20)*\n"
              "FORMB: BT(11) BP(53)\n"
              "BP: Nazwisko:0+31 Imie:31+22\n"
              "BD: Kwota:0+7 Nazwisko:7+5 Data:12+8\n"
              "BT: Pesel:0+11\n",
              l.layout());
    const std::vector<std::string> order = {"FORMA", "FORMB", "BP", "Nazwisko", "Imie", "BD", "Kwota", "Data", "BT", "Pesel"};
    for (size_t i = 0; i < order.size(); i++)
        EXPECT_EQ(static_cast<int32_t>(i), l.id(order[i].c_str())) << order[i];
    EXPECT_EQ(10, l.dict->count);
    EXPECT_EQ(nullptr, l.def().forms[0].refs[0].name);  // resolved references keep no name
    EXPECT_EQ(nullptr, l.def().blocks[0].name);
    // The same name loads once; a second list entry of another name sits behind it.
    EXPECT_EQ(0, l.load(kText));
    EXPECT_EQ(1, l.load("Wersja 2\n\n<Q, TQ>\nP, 4\n"));
    EXPECT_EQ(2, l.list->count);
    EXPECT_EQ(0, dk_dfDestroyDefinition(l.list, 2));
    EXPECT_EQ(0, dk_dfDestroyDefinition(l.list, -1));
    EXPECT_EQ(1, dk_dfDestroyDefinition(l.list, 0));
    EXPECT_STREQ("2", l.def().name);  // the second moved down
    EXPECT_EQ(1, l.load(kText));
}

// Readings of the grammar that a hand-written text relies on, each shown by the layout it gives.
TEST(DefinitionLoader, GrammarVariants)
{
    const struct {
        const char *label;
        std::string text;
        std::string layout;
    } rows[] = {
        {"blanks and commas", "Wersja  1 .\t3 \n\n[F, F]\nA, 1 ,1\nInny,1,-1,\nTrzeci , 1, 1\n\n<A, O>\nX, 1, x\n\n"
         "<Inny, I>\nB,2 , x,\n\n<Trzeci , T>\nC,  +3 \n",
         "1.3\nF: O(1) I(2)* T(3)\nO: X:0+1\nI: B:0+2\nT: C:0+3\n"},
        {"reference names ignore case", "Wersja 1\n\n[F, F]\nblokA, 1, 1\n\n<BLOKA, TA>\nX, 2\n", "1\nF: TA(2)\nTA: X:0+2\n"},
        {"only -1 repeats", "Wersja 1\n\n[F, F]\nA, 1, 2\nB, 1, -2\n\n<A, TA>\nX, 2\n\n<B, TB>\nY, 1\n",
         "1\nF: TA(2) TB(1)\nTA: X:0+2\nTB: Y:0+1\n"},
        {"number read up to its first other byte", "Wersja 1\n\n[F, F]\nA, 1, -1x\n\n<A, TA>\nX, 3abc\n",
         "1\nF: TA(3)*\nTA: X:0+3\n"},
        {"a form without references", "Wersja 1\n\n[F, F]\n\n<A, TA>\nX, 2\n", "1\nF:\nTA: X:0+2\n"},
        {"a block without fields", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\n", "1\nF: TA(0)\nTA:\n"},
        {"no forms at all", "Wersja 1\n\n<A, TA>\nX, 2\n", "1\nTA: X:0+2\n"},
        {"trailing empty line", "Wersja 1\n\n<A, TA>\nX, 2\n\n", "1\nTA: X:0+2\n"},
        {"a reference starting with TAB ends the form", "Wersja 1\n\n[F, F]\nA, 1, 1\n\tB, 1, 1\n[G, G]\nB, 1, 1\n\n<A, TA>\nX, 1, x\n\n<B, TB>\nY, 1, x\n",
         "1\nF: TA(1)\nG: TB(1)\nTA: X:0+1\nTB: Y:0+1\n"},
        {"a line of 198 bytes", "Wersja 1\n\n[F, F]\n" + std::string(190, 'B') + ", 1, 1\n\n<" + std::string(190, 'B') + ", T>\nX, 1\n",
         "1\nF: T(1)\nT: X:0+1\n"},
        {"a line of 199 bytes", "Wersja 1\n\n<A, TA>\nX" + std::string(194, 'x') + ", 1\n", "1\nTA: X" + std::string(194, 'x') + ":0+1\n"},
        {"commas before a field name", "Wersja 1\n\n<A, TA>\n,,X, 2\n", "1\nTA: X:0+2\n"},
        {"the name after any first seven bytes", "Version 2\n\n<A, TA>\nX, 2\n", "2\nTA: X:0+2\n"},
    };
    for (const auto &row : rows) {
        Loaded l;
        ASSERT_EQ(1, l.load(row.text)) << row.label;
        EXPECT_EQ(row.layout, l.layout()) << row.label;
    }
}

// A broken text: result 0, no entry in the list, the strings it interned stay, and a sound text
// of the same name loads afterwards.
TEST(DefinitionLoader, GrammarFaults)
{
    const struct {
        const char *label;
        std::string text;
    } rows[] = {
        {"duplicate form", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n[G, G]\nA, 1, 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 1\n"},
        {"occurrence 0", "Wersja 1\n\n[F, F]\nA, 1, 0\n\n<A, TA>\nX, 1\n"},
        {"occurrence not a number", "Wersja 1\n\n[F, F]\nA, 1, x\n\n<A, TA>\nX, 1\n"},
        {"width 0", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 1\nY, 0\n"},
        {"negative width", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, -4\n"},
        {"unknown block", "Wersja 1\n\n[F, F]\nA, 1, 1\nZ, 1, 1\n\n<A, TA>\nX, 1\n"},
        {"missing third column", "Wersja 1\n\n[F, F]\nA, 1\n\n<A, TA>\nX, 1\n"},
        {"missing width", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX\n"},
        {"form header without comma", "Wersja 1\n\n[F]\nA, 1, 1\n\n<A, TA>\nX, 1\n"},
        {"block header without comma", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A>\nX, 1\n"},
        {"form part runs into the end", "Wersja 1\n\n[F, F]\nA, 1, 1\n"},
        {"no block line", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n"},
        {"second empty line in a row", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 1\n\n\n<B, TB>\nY, 1\n"},
        {"last line without LF", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX, 1"},
        {"line of 200 bytes", "Wersja 1\n\n[F, F]\nA, 1, 1\n\n<A, TA>\nX" + std::string(195, 'x') + ", 1\n"},
        {"line of 5000 bytes", "Wersja 1\n\n[F, F]\n" + std::string(5000, 'A') + ", 1, 1\n\n<A, TA>\nX, 1\n"},
        {"only a version line", "Wersja 1\n"},
        {"empty text", ""},
    };
    for (const auto &row : rows) {
        Loaded l;
        EXPECT_EQ(0, l.load(row.text)) << row.label;
        EXPECT_EQ(0, l.list->count) << row.label;
        EXPECT_EQ(nullptr, l.list->items) << row.label;
        EXPECT_EQ(1, l.load("Wersja 1\n\n<Q, TQ>\nP, 4\n")) << row.label;
    }
    Loaded l;
    EXPECT_EQ(0, l.load("Wersja 1\n\n[F, F]\nA, 1, 1\nZ, 1, 1\n\n<A, TA>\nX, 1\n"));
    EXPECT_EQ(3, l.dict->count);  // F, TA, X stay interned
    EXPECT_EQ(2, l.id("X"));
}

// Every allocation of a load fails in turn. When a name cannot be interned the half-built
// definition stays in the list (named, without position maps), otherwise nothing stays; either
// way nothing leaks once the list is destroyed, and the dictionary keeps working.
TEST(DefinitionLoader, EveryAllocationFailsCleanly)
{
    ScopedTempDir tmp;
    Loaded *l = nullptr;
    int halfBuilt = 0;
    const int64_t count = sweepAllocations(
        {.setup = [&] { l = new Loaded; },
         .act = [&] { return l->load(kText); },
         .check =
             [&](int32_t result, int64_t n) {
                 EXPECT_EQ(n == 0, result == 1);
                 if (n == 0 || l->list->count == 0) {
                     EXPECT_EQ(n == 0, l->list->items != nullptr);
                     return;
                 }
                 halfBuilt++;
                 ASSERT_EQ(1, l->list->count);
                 EXPECT_STREQ("9.1", l->def().name);
                 for (int32_t f = 0; f < l->def().formCount; f++)
                     EXPECT_EQ(nullptr, l->def().forms[f].positionByTag);
                 EXPECT_EQ(0, l->load(kText));  // its name still blocks a second load
                 EXPECT_EQ(1, dk_dfDestroyDefinition(l->list, 0));
                 EXPECT_EQ(1, l->load(kText));
             },
         .teardown = [&] { delete l; }},
        tmp);
    EXPECT_EQ(30, halfBuilt);  // ten names, three allocations each
    EXPECT_GT(count, 30);
    dk_dfDefinitionList *list = nullptr;
    sweepAllocations({.act = [&] { return dk_dfInit(&list); },
                      .check = [&](int32_t result, int64_t n) { EXPECT_EQ(n == 0, list != nullptr && result == 1); },
                      .teardown = [&] { dk_dfDestroy(&list); }},
                     tmp);
}

// The details a load reports beside its records, gathered in order.
namespace {
struct Details {
    std::vector<std::string> blocks;               // block names in text order
    std::vector<std::vector<std::string>> types;  // per block, each field's type column
    int calls = 0;
    int refuseAt = -1;  // the call that answers false
    navo::definitions::TextDetails hooks()
    {
        return {this,
                [](void *user, int32_t block, std::string_view name) noexcept {
                    Details &d = *static_cast<Details *>(user);
                    EXPECT_EQ(d.blocks.size(), static_cast<size_t>(block));
                    d.blocks.emplace_back(name);
                    d.types.emplace_back();
                    return d.calls++ != d.refuseAt;
                },
                [](void *user, int32_t block, int32_t field, std::string_view type) noexcept {
                    Details &d = *static_cast<Details *>(user);
                    EXPECT_EQ(d.blocks.size(), static_cast<size_t>(block) + 1);
                    EXPECT_EQ(d.types.back().size(), static_cast<size_t>(field));
                    d.types.back().emplace_back(type);
                    return d.calls++ != d.refuseAt;
                }};
    }
};
}  // namespace

TEST(DefinitionLoader, ReportsBlockNamesAndFieldTypes)
{
    using navo::definitions::load_definition;
    {
        Loaded l;
        Details d;
        const navo::definitions::TextDetails hooks = d.hooks();
        ASSERT_TRUE(load_definition(*l.list, *l.dict, GetDefTXT_1_3(), &hooks));
        ASSERT_EQ(114u, d.blocks.size());
        size_t fields = 0;
        std::set<std::string> distinct;
        std::map<std::string, int32_t> byTag;
        for (int32_t b = 0; b < l.def().blockCount; b++) {
            ASSERT_EQ(static_cast<size_t>(l.def().blocks[b].fieldCount), d.types[b].size()) << b;
            fields += d.types[b].size();
            distinct.insert(d.types[b].begin(), d.types[b].end());
            byTag[l.name(l.def().blocks[b].tagId)] = b;
        }
        EXPECT_EQ(992u, fields);
        EXPECT_EQ(103u, distinct.size());
        EXPECT_EQ("DaneIdPlSklaBlf", d.blocks[byTag["DIPL"]]);
        EXPECT_EQ("t_NIP", d.types[byTag["DIPL"]][0]);
        EXPECT_EQ((std::vector<std::string>{"T_SLOWNIK", "T_KWOTA", "T_LOGICZNE", "T_LICZBA"}), d.types[byTag["INN7B"]]);
        EXPECT_EQ(nullptr, l.def().blocks[0].name);  // the records keep no block name
    }
    {
        // The third column alone, trimmed; empty where a line has none.
        Loaded l;
        Details d;
        const navo::definitions::TextDetails hooks = d.hooks();
        ASSERT_TRUE(load_definition(*l.list, *l.dict, "Wersja 1\n\n<A , TA>\nX, 1\nY, 2, t_y ,extra\nZ,3,\n\n<B, TB>\nW, 4\n",
                                    &hooks));
        EXPECT_EQ((std::vector<std::string>{"A ", "B"}), d.blocks);
        EXPECT_EQ((std::vector<std::vector<std::string>>{{"", "t_y", ""}, {""}}), d.types);
        EXPECT_EQ("1\nTA: X:0+1 Y:1+2 Z:3+3\nTB: W:0+4\n", l.layout());
    }
    // A refusal at any call fails the load as a failed allocation does: the list as before,
    // nothing held, and the same text loads afterwards.
    for (int refuse = 0; refuse < 9; refuse++) {
        const int64_t live = navo::memory::live_blocks();
        {
            Loaded l;
            Details d;
            d.refuseAt = refuse;
            const navo::definitions::TextDetails hooks = d.hooks();
            EXPECT_FALSE(load_definition(*l.list, *l.dict, kText, &hooks)) << refuse;
            EXPECT_EQ(refuse + 1, d.calls);
            EXPECT_EQ(0, l.list->count);
            EXPECT_EQ(1, l.load(kText));
        }
        EXPECT_EQ(live, navo::memory::live_blocks()) << refuse;
    }
}

// ---- the embedded definitions -------------------------------------------------------------------

namespace {
struct Version {
    const char *name;
    const char *(NAVO_CALL *text)();
};
const Version kVersions[] = {{"1.2", GetDefTXT_1_2}, {"1.3", GetDefTXT_1_3}};
void PrintTo(const Version &version, std::ostream *out) { *out << version.name; }

// What the embedded 1.3 text loads into, one row per form (its block tags in order, * repeating)
// and one per block in text order (tag, record length, field count, first..last field). Version
// 1.2 differs only in the width of INN7's last field, checked on its own below.
const char *const kForms[] = {
    "TOBZUA: DOZUA DIPL DAU DEOZ TYUB DOWP DOOU DOBU DODU IODZ DOKC AZMO ADZA ADKB OPL1",
    "TOBZPA: DOZPF DAIP DAPL DORB IDO1 ASZP ADKP DOBR OPL2",
    "TOBRCA: DORCA DIPL DDORCA* OPLR",
    "TOBDRA: DADRA DIPL INN7 ZSDRAI ZWDRA RIVDRA ZSDRA ZDRAV LSKD KNDK DDDU OPLS",
    "TOBZIUA: DOZIUA DIPL DIOP ADIU OPL1",
    "TOBZCNA: DOZCBA DIPL DAU DOCRA* OPL1",
    "TOBZWUA: DOZWUA DIPL DAU WUBD WNOU OPL1",
    "TOBZFA: DOZPF DIPL DEPL PPDB DORB IDOP ASPL ASZP ADKP DOBR OPL2",
    "TOBIWA: DOIWA DIPLIWA DUZWIWA ZDKRIWA ADKP OPLR",
    "TOBZIPA: DOZIPA DIPL ADIP OPL1",
    "TOBZWPA: DOZWPA DIPL DOWL OPL1",
    "TOBZBA: DOZCBA DIPL IORB* OPL1",
    "TOBRNA: DORNA DIPL DDORNA* OPLR",
    "TOBRZA: DORZA DIPL DDORZA* OPLR",
    "TOBZAA: DOZCBA DIPL APDG* OPL1",
    "TOBRSA: DORSA DIPL DDORSA* OPLR",
    "TOBZZA: DOZZA DIPL DAU DEOZ TYUBZ DOOU DODU DOKC AZMO ADZA ADKB OPL1",
    "TOBZCZA: DOZCBA DIPL DAU DOCRBA* OPL1",
    "DNF: DNFORG DIPL DAU",
    "BLPL: DICERT ADKB OPZ",
    "TOBRGA: DORGA DIPL DDOURGA* OPLR",
    "TOBZUB: DOZUB DIPLB DAUB DEOZB TYUB DOWPB DOOU DOBUB DODUB IODZ DOKCB AZMOB ADZAB ADKBB INDAB OPL1",
    "TOBZPB: DOZPFB DAIP DAPL DORB IDO1 ASPLB ADKPB IDAPB DOBR OPL2",
    "TOBRCB: DORCB DIPLB DDORCB* OPLR",
    "TOBDRB: DADRB DIPLB INN7B ZSDRAIB ZWDRA RIVDRA ZSDRA ZDRAV LSKD DDDUB OPLSB",
    "TOBZIUB: DOZIUB DIPLB DIOPB ADIUB OPL1",
    "TOBZCNB: DOZCBA DIPLB DAUB DOCRB* OPL1",
    "TOBZWUB: DOZWUA DIPLB DAUB WUBDB OPL1",
    "TOBZFB: DOZPFB DIPLB DEPL PPDB DORB IDOP ASPLB ASZPB ADKPB IDAPB DOBR OPL2",
    "TOBZIPB: DOZIPB DIPLB ADIPB OPL1",
    "TOBZWPB: DOZWPA DIPLB DOWL OPL1",
    "TOBZBB: DOZCBA DIPLB IORB* OPL1",
    "TOBRZB: DORZB DIPLB DDORZB* OPLR",
    "TOBZAB: DOZCBA DIPLB APDGB* OPL1",
    "TOBRSB: DORSB DIPLB DDORSB* OPLR",
    "TOBZZB: DOZZB DIPLB DAUB DEOZB TYUBZ DOOU DODUB DOKCB AZMOB ADZAB ADKBB INDAB OPL1",
    "TOBZCZB: DOZCBA DIPLB DAUB DOCRBB* OPL1",
    "DNFB: DNFORG DIPLB DAUB",
    "BLPLB: DICERT ADKBB OPZ",
    "TOBRGB: DORGB DIPLB DDOURGB* OPLR",
};
const char *const kBlocks[] = {
    "ADKP 146 10 KodPocztowy..AdresPocztyElektro", "ADKB 134 9 KodPocztowy..AdresPocztyElektro",
    "APDG 126 9 KodRodzajuZglosz2..NumerFaksu", "ASZP 155 9 KodPocztowy..AdresPocztyElektro",
    "ASPL 155 9 KodPocztowy..AdresPocztyElektro", "AZMO 125 8 KodPocztowy..NumerFaksu",
    "ADZA 125 8 KodPocztowy..NumerFaksu", "ADIP 171 12 Nip..POZIOM_UFNOSCI_ID",
    "ADIU 126 10 Pesel..POZIOM_UFNOSCI_ID", "DORB 37 2 NumerRachunku..CzyPlMaInneRachBan",
    "DDORCA 233 28 Nazwisko..POZIOM_UFNOSCI_ID", "DDORNA 506 71 Nazwisko..POZIOM_UFNOSCI_ID",
    "DDORSA 127 14 Nazwisko..POZIOM_UFNOSCI_ID", "DDORZA 120 10 Nazwisko..POZIOM_UFNOSCI_ID",
    "DDOURGA 162 27 Nazwisko..POZIOM_UFNOSCI_ID", "DEOZ 78 6 ImieDrugie..CzyKartaCzasoPobyt",
    "DAPL 207 10 NazwaFirma..DataRozpoczDzialal", "DEPL 70 3 ImieDrugie..Obywatelstwo",
    "DICERT 95 4 Nip..nazwa_z_cert", "DAU 126 10 Pesel..POZIOM_UFNOSCI_ID", "DIPL 171 12 Nip..POZIOM_UFNOSCI_ID",
    "DIPLIWA 193 12 Nip..POZIOM_UFNOSCI_ID", "DAIP 89 6 Nip..POZIOM_UFNOSCI_ID", "DOBR 89 6 Nip..POZIOM_UFNOSCI_ID",
    "DOCRBA 140 16 KodRodzajuZgloszen..POZIOM_UFNOSCI_ID", "DOCRA 265 24 KodRodzajuZgloszen..POZIOM_UFNOSCI_ID",
    "DOBU 27 6 WnoszeOObjUbEmeryt..OdDniaUbChorobowe", "DODU 17 2 DataPowstObowiaUb..KwotaPierwszejSkl",
    "DOKC 34 3 KodKasy..DataZawarUmowZKasa", "DOWP 18 6 WymiarCzasuPracy..OsZglaPodlUbWypadk",
    "DOOU 8 1 DataPowstObowiaUb..DataPowstObowiaUb", "DOWL 11 2 KodPrzyczWyrejestr..DataWyrejestrowani",
    "DORCA 31 4 IdRaportu..SumaKwotNaStr_2_9", "DOZCBA 14 2 DataNadania..NalepkaR",
    "DOZIPA 16 4 ZglZmianyDaOsPrawn..NalepkaR", "DOZIUA 15 3 ZglZmianyDaIdOsUb..NalepkaR",
    "DOZWPA 17 5 WyrejPlOsPrawnej..NalepkaR", "DOZWUA 18 6 WyrejZUbSpoIZdowot..NalepkaR",
    "DADRA 35 5 TerminPrzysDekIRap..ZnakINrDecPok", "DORGA 30 4 IdRaportu..SumaKwotNaStr_2_9",
    "DORNA 33 4 IdRaportu..SumaKwotNaStr_2_10", "DORSA 27 4 IdRaportu..SumaKwotNaStr_2_8",
    "DORZA 28 4 IdRaportu..SumaKwotNaStr_2_8", "DOZPF 16 4 ZgloszeniePlSklade..NalepkaR",
    "DOIWA 46 6 IdentyfikatorInformacji..ZnakINrDecPok", "DOZUA 17 5 ZglDoUbSpoIZdrowot..NalepkaR",
    "DOZZA 16 4 ZglDoUbezpZdrowotn..NalepkaR", "DDDU 37 5 KodTytuluUbezpiecz..InfOPrzekRoczPodSk",
    "IODZ 77 10 KodPokrewZPracodaw..OkresPracyWSzczWar", "IDOP 26 5 CzyPlMaStatPrChron..AdresDzialnnyNSied",
    "IDO1 18 4 CzyPlMaStatPrChron..AdresDzialnnyNSied", "IORB 37 2 KodRodzajuZgloszen..NumerRachunku",
    "INN7 19 4 LiczbaUbezpieczony..StopaProcSklWypadk", "KNDK 41 4 KwotaDoplNaUbSpol..LaczKwotaDoplat",
    "LSKD 12 1 LaczSumaKwotDoZapl..LaczSumaKwotDoZapl", "OPZ 39 2 id_pliku_zrodl..data_przyj_pl_zrod",
    "OPL1 8 1 DataWypelnienia..DataWypelnienia", "OPL2 14 3 LiczbaZalZBA..DataWypelnienia",
    "OPLR 8 1 DataWypelnienia..DataWypelnienia", "OPLS 46 8 LiczbaKarteTOB_RCA..DataWypelnienia",
    "PPDB 105 5 KodRodzUprawnienia..DataRozpoczDzialal", "DIOP 126 10 Pesel..POZIOM_UFNOSCI_ID",
    "RIVDRA 22 2 KwotaDoZwrotu_vi..KwotaDoZaplPPl_vi", "TYUB 22 2 KodTytuluUbezpiecz..OkresNiep",
    "TYUBZ 6 1 KodTytuluUbezpiecz..KodTytuluUbezpiecz", "WNOU 14 2 KodTytuluUbezpiecz..DataKontynUbEmeIRe",
    "WUBD 66 16 KodTytuluUbezpiecz..KodPrzyczWyrZUbZdr", "ZDRAV 31 3 KwotaNalSkladNaFP..KwotaDoZapPPl_viii",
    "ZSDRAI 321 32 SumaSklNaUbEmeryt..KwSklNaUbSpoleczne", "ZSDRA 41 4 KwSkladekNaUbZdrow..KwotaDoZaplPPl_vii",
    "ZWDRA 51 5 KwWypSwiadZUbChor..LaczKwDoPotrac_DRA", "DNFORG 2 1 typ_DNF..typ_DNF",
    "ADKPB 100 6 KodPocztowy..Kraj", "ADKBB 100 6 KodPocztowy..Kraj", "APDGB 151 10 KodRodzajuZglosz2..NumerFaksu",
    "ASZPB 126 7 KodPocztowy..Kraj", "ASPLB 186 10 KodPocztowy..AdresPocztyElektro", "AZMOB 126 7 KodPocztowy..Kraj",
    "ADZAB 126 7 KodPocztowy..Kraj", "ADIPB 193 12 Nip..POZIOM_UFNOSCI_ID",
    "ADIUB 227 13 AtrybutUbezpieczII..POZIOM_UFNOSCI_ID", "DDORCB 449 47 KwotaZaliczPoD..POZIOM_UFNOSCI_ID",
    "DDORSB 236 17 AtrybutUbezpieczII..POZIOM_UFNOSCI_ID", "DDORZB 251 17 IdntyfikatorUbez..POZIOM_UFNOSCI_ID",
    "DDOURGB 271 30 AtrybutUbezpieczII..POZIOM_UFNOSCI_ID", "DEOZB 77 5 ImieDrugie..CzyKartaCzasoPobyt",
    "DAUB 227 13 AtrybutUbezpieczI..POZIOM_UFNOSCI_ID", "DIPLB 193 12 Nip..POZIOM_UFNOSCI_ID",
    "DOCRBB 162 16 KodRodzajuZgloszen..POZIOM_UFNOSCI_ID", "DOCRB 312 25 KodRodzajuZgloszen..POZIOM_UFNOSCI_ID",
    "DOBUB 18 4 WnoszeOObjUbEmIRen..OdDniaUbChorobowe", "DODUB 9 2 PodUbZdz2410..DataPowstObowiaUb",
    "DOKCB 26 2 KodKasy..NazwaKasyChorych", "DOWPB 17 5 WymiarCzasuPracy..OsZglaPodlUbWypadk",
    "DORCB 45 6 IdRaportu..SumaKwotNaStr_2_9", "DOZIPB 24 5 ZglZmianyDaOsPrawn..NalepkaR",
    "DOZIUB 24 5 ZglZmianyDaIdOsUb..NalepkaR", "DADRB 38 5 TerminPrzysDekIRap..ZnakINrDecPok",
    "DORGB 44 6 IdRaportu..SumaKwotNaStr_2_9", "DORSB 41 6 IdRaportu..SumaKwotNaStr_2_8",
    "DORZB 42 6 IdRaportu..SumaKwotNaStr_2_8", "DOZPFB 24 5 ZgloszeniePlSklade..NalepkaR",
    "DOZUB 25 6 ZglDoUbSpoIZdrowot..NalepkaR", "DOZZB 24 5 ZglDoUbezpZdrowotn..NalepkaR",
    "DDDUB 76 13 KodTytuluUbezpiecz..LaczKwotaWypZas", "INDAB 100 6 NumerTelefonu..AdresPocztyElektro",
    "IDAPB 112 7 NumerTelefonu..AdresPocztyElektro", "INN7B 13 4 InfoUprPlDoWyp..StopaProcSklWypadk",
    "OPLSB 33 6 LiczbaKarteTOB_RCA..DataWypelnienia", "DIOPB 227 13 AtrybutUbezpieczII..POZIOM_UFNOSCI_ID",
    "WUBDB 67 15 KodTytuluUbezpiecz..KodPrzyczWyrZUbZdr", "ZSDRAIB 331 33 SumaSklNaUbEmeryt..KwSklNaUbSpoleczne",
    "DUZWIWA 6 1 LiczbaUbezpieczonych..LiczbaUbezpieczonych",
    "ZDKRIWA 23 4 RodzajDizlalnosci..LiczbaZatrudnionychWarZagrozenia",
};

// Row i of a table against form or block i of the loaded definition.
std::string formRow(const Loaded &l, int32_t f)
{
    const dk_dfForm &form = l.def().forms[f];
    std::string row = l.name(form.id) + ":";
    for (int32_t r = 0; r < form.refCount; r++)
        row += " " + l.name(l.def().blocks[form.refs[r].blockIndex].tagId) + (form.refs[r].occurrence == -1 ? "*" : "");
    return row;
}
std::string blockRow(const Loaded &l, int32_t b)
{
    const dk_dfBlock &block = l.def().blocks[b];
    if (block.fieldCount == 0)
        return l.name(block.tagId) + " empty";
    return l.name(block.tagId) + " " + std::to_string(block.recordLength) + " " + std::to_string(block.fieldCount) + " " +
           l.name(block.fields[0].nameId) + ".." + l.name(block.fields[block.fieldCount - 1].nameId);
}
}  // namespace

class Embedded : public ::testing::TestWithParam<Version> {};
INSTANTIATE_TEST_SUITE_P(Versions, Embedded, ::testing::ValuesIn(kVersions),
                         [](const auto &info) { return std::string("v") + (info.param.name[2] == '2' ? "12" : "13"); });

TEST_P(Embedded, LoadsWithTheFormsBlocksAndFieldsItCarries)
{
    const Version &v = GetParam();
    const std::string text = v.text();
    EXPECT_EQ(v.text(), v.text());  // one constant text
    // The build embeds the definition file byte for byte.
    const std::string source = readFile(std::string(NAVO_SOURCE_DIR) + "/definitions/navo-" + v.name + ".def");
    const auto differ = std::mismatch(text.begin(), text.end(), source.begin(), source.end());
    EXPECT_TRUE(differ.first == text.end() && differ.second == source.end())
        << "the embedded text differs from its file at byte " << differ.first - text.begin();
    Loaded l;
    ASSERT_EQ(1, l.load(text));
    const dk_dfDefinition &d = l.def();
    EXPECT_STREQ(v.name, d.name);
    ASSERT_EQ(std::size(kForms), static_cast<size_t>(d.formCount));
    for (int32_t f = 0; f < d.formCount; f++)
        EXPECT_EQ(kForms[f], formRow(l, f)) << "form " << f;
    ASSERT_EQ(std::size(kBlocks), static_cast<size_t>(d.blockCount));
    for (int32_t b = 0; b < d.blockCount; b++) {
        const std::string expected = kBlocks[b];
        EXPECT_EQ(v.name[2] == '2' && expected.rfind("INN7 19 ", 0) == 0 ? "INN7 18" + expected.substr(7) : expected,
                  blockRow(l, b))
            << "block " << b;
    }
    EXPECT_EQ(498, l.dict->count);
    std::set<int32_t> referenced;
    for (int32_t f = 0; f < d.formCount; f++) {
        EXPECT_EQ(f, d.forms[f].id);
        for (int32_t r = 0; r < d.forms[f].refCount; r++)
            referenced.insert(d.forms[f].refs[r].blockIndex);
    }
    EXPECT_EQ(static_cast<size_t>(d.blockCount), referenced.size()) << "a block no form uses";
    int32_t widest = 0;
    for (int32_t b = 0; b < d.blockCount; b++) {
        int32_t sum = 0;
        for (int32_t k = 0; k < d.blocks[b].fieldCount; k++) {
            EXPECT_EQ(sum, d.blocks[b].fields[k].offset);
            sum += d.blocks[b].fields[k].width;
            widest = std::max(widest, d.blocks[b].fields[k].width);
        }
        EXPECT_EQ(sum, d.blocks[b].recordLength);
    }
    EXPECT_EQ(72, widest);
    // The one difference between the versions: the last field of INN7 is 3 wide in 1.2, 4 in 1.3.
    for (int32_t b = 0; b < d.blockCount; b++) {
        const std::string tag = l.name(d.blocks[b].tagId);
        if (tag != "INN7" && tag != "INN7B")
            continue;
        const dk_dfField &last = d.blocks[b].fields[d.blocks[b].fieldCount - 1];
        EXPECT_EQ("StopaProcSklWypadk", l.name(last.nameId));
        EXPECT_EQ(tag == "INN7" && v.name[2] == '3' ? 4 : 3, last.width) << tag;
    }
    // The other version loads into the same dictionary without a new string or a moved ID.
    const Version &other = kVersions[v.name[2] == '2' ? 1 : 0];
    ASSERT_EQ(1, l.load(other.text()));
    EXPECT_EQ(498, l.dict->count);
}

// Every form gets a document and its tables through the public calls, in a context whose
// definition came from the embedded text.
TEST_P(Embedded, EveryFormTakesADocument)
{
    ScopedTempDir tmp;
    dk_Context *ctx = makeContext(GetParam().text());
    ASSERT_EQ(40, ctx->formCount);
    for (int32_t f = 0; f < ctx->formCount; f++) {
        const char *form = ctx->dictionary->strings[f];
        EXPECT_EQ(f, dk_1fGetIDFormularza(ctx, form));
        int32_t doc = -1, count = -1;
        EXPECT_EQ(1, dk_AddDocument(ctx, form, &doc)) << form;
        EXPECT_EQ(1, dk_GetDocCount(ctx, form, &count));
        EXPECT_EQ(1, count) << form;
    }
    destroyContext(ctx);
    EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles());
}
