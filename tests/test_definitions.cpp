// test_definitions.cpp - the definition grammar and loader, and the two embedded definitions
// checked through what they load into (counts, widths, fingerprints), not by re-deriving them.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

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

// ---- the embedded definitions -------------------------------------------------------------------

namespace {
struct Version {
    const char *name;
    const char *(NAVO_CALL *text)();
    uint32_t textFingerprint;
    uint32_t layoutFingerprint;
};
const Version kVersions[] = {
    {"1.2", GetDefTXT_1_2, 0xd25bee12u, 0xc8662e10u},
    {"1.3", GetDefTXT_1_3, 0xae2c29ceu, 0xabbfe697u},
};
void PrintTo(const Version &version, std::ostream *out) { *out << version.name; }
}  // namespace

class Embedded : public ::testing::TestWithParam<Version> {};
INSTANTIATE_TEST_SUITE_P(Versions, Embedded, ::testing::ValuesIn(kVersions),
                         [](const auto &info) { return std::string("v") + (info.param.name[2] == '2' ? "12" : "13"); });

TEST_P(Embedded, LoadsWithTheFormsBlocksAndFieldsItCarries)
{
    const Version &v = GetParam();
    const std::string text = v.text();
    EXPECT_EQ(v.text(), v.text());  // one constant text
    EXPECT_EQ("Wersja " + std::string(v.name) + "\n\n", text.substr(0, 12));
    EXPECT_EQ(v.textFingerprint, fnv1a(text)) << std::hex << fnv1a(text);
    Loaded l;
    ASSERT_EQ(1, l.load(text));
    const dk_dfDefinition &d = l.def();
    EXPECT_STREQ(v.name, d.name);
    EXPECT_EQ(v.layoutFingerprint, fnv1a(l.layout())) << std::hex << fnv1a(l.layout());
    EXPECT_EQ(40, d.formCount);
    EXPECT_EQ(498, l.dict->count);
    int tob = 0, repeating = 0;
    std::set<int32_t> referenced;
    for (int32_t f = 0; f < d.formCount; f++) {
        EXPECT_EQ(f, d.forms[f].id);
        tob += l.name(d.forms[f].id).rfind("TOB", 0) == 0;
        for (int32_t r = 0; r < d.forms[f].refCount; r++) {
            referenced.insert(d.forms[f].refs[r].blockIndex);
            repeating += d.forms[f].refs[r].occurrence == -1;
        }
    }
    EXPECT_EQ(36, tob);
    EXPECT_EQ(static_cast<size_t>(d.blockCount), referenced.size()) << "a block no form uses";
    EXPECT_GT(repeating, 0);
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
