// test_definitions.cpp - definition_loader: the grammar, every way a load fails, offsets, links, maps.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"

#include "definitions/definition_loader.hpp"
#include "core/dictionary.hpp"

namespace {

// A small text in the definition grammar: two forms, three blocks, one repeating reference.
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
        dk_dfDestroy(&list);
        dk_sdDestroy(&dict);
    }
    int32_t load(const std::string &text) { return dk_dfLoadDefinition(list, dict, text.c_str()); }
    int32_t id(const char *name) const
    {
        int32_t out = -7;
        dk_sdGetID(dict, name, &out);
        return out;
    }
    const dk_dfDefinition &def(int i = 0) const { return list->items[i]; }
};

int32_t mapEntries(const int32_t *map) { return map[-1]; }

std::string replaceAll(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

TEST(DefinitionLoader, LoadsFormsBlocksFieldsOffsetsAndLinks)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    ASSERT_EQ(1, l.list->count);
    const dk_dfDefinition &d = l.def();
    EXPECT_STREQ("9.1", d.name);
    ASSERT_EQ(2, d.formCount);
    ASSERT_EQ(3, d.blockCount);
    // Form names are interned first: IDs 0 and 1, then tags and field names in order.
    EXPECT_EQ(0, d.forms[0].id);
    EXPECT_EQ(1, d.forms[1].id);
    EXPECT_EQ(2, l.id("BP"));
    EXPECT_EQ(3, l.id("Nazwisko"));
    EXPECT_EQ(4, l.id("Imie"));
    EXPECT_EQ(5, l.id("BD"));
    EXPECT_EQ(6, l.id("Kwota"));
    EXPECT_EQ(7, l.id("Data"));
    EXPECT_EQ(8, l.id("BT"));
    EXPECT_EQ(9, l.id("Pesel"));
    EXPECT_EQ(10, l.dict->count);

    ASSERT_EQ(2, d.forms[0].refCount);
    EXPECT_EQ(1, d.forms[0].refs[0].occurrence);
    EXPECT_EQ(0, d.forms[0].refs[0].blockIndex);
    EXPECT_EQ(-1, d.forms[0].refs[1].occurrence);
    EXPECT_EQ(1, d.forms[0].refs[1].blockIndex);
    EXPECT_EQ(nullptr, d.forms[0].refs[0].name);
    ASSERT_EQ(2, d.forms[1].refCount);
    EXPECT_EQ(2, d.forms[1].refs[0].blockIndex);
    EXPECT_EQ(0, d.forms[1].refs[1].blockIndex);

    const dk_dfBlock &bp = d.blocks[0];
    EXPECT_EQ(2, bp.tagId);
    EXPECT_EQ(nullptr, bp.name);
    EXPECT_EQ(53, bp.recordLength);
    ASSERT_EQ(2, bp.fieldCount);
    EXPECT_EQ(3, bp.fields[0].nameId);
    EXPECT_EQ(0, bp.fields[0].offset);
    EXPECT_EQ(31, bp.fields[0].width);
    EXPECT_EQ(31, bp.fields[1].offset);
    EXPECT_EQ(22, bp.fields[1].width);

    const dk_dfBlock &bd = d.blocks[1];
    EXPECT_EQ(20, bd.recordLength);
    EXPECT_EQ(0, bd.fields[0].offset);
    EXPECT_EQ(7, bd.fields[1].offset);
    EXPECT_EQ(5, bd.fields[1].width);  // a field name shared with another block keeps its own width
    EXPECT_EQ(12, bd.fields[2].offset);

    // Position maps: (largest ID) + 1 entries, position at each ID, zero elsewhere.
    EXPECT_EQ(6, mapEntries(d.forms[0].positionByTag));
    EXPECT_EQ(0, d.forms[0].positionByTag[2]);
    EXPECT_EQ(1, d.forms[0].positionByTag[5]);
    EXPECT_EQ(0, d.forms[0].positionByTag[4]);
    EXPECT_EQ(9, mapEntries(d.forms[1].positionByTag));
    EXPECT_EQ(0, d.forms[1].positionByTag[8]);
    EXPECT_EQ(1, d.forms[1].positionByTag[2]);
    EXPECT_EQ(5, mapEntries(bp.positionByName));
    EXPECT_EQ(0, bp.positionByName[3]);
    EXPECT_EQ(1, bp.positionByName[4]);
    EXPECT_EQ(8, mapEntries(bd.positionByName));
    EXPECT_EQ(2, bd.positionByName[7]);
    EXPECT_EQ(1, bd.positionByName[3]);
}

TEST(DefinitionLoader, SafeLookupsRefuseNamesTheFormOrBlockDoesNotHave)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    const dk_dfDefinition &d = l.def();
    EXPECT_EQ(0, navo::definitions::ref_position(&d, &d.forms[0], l.id("BP")));
    EXPECT_EQ(1, navo::definitions::ref_position(&d, &d.forms[0], l.id("BD")));
    EXPECT_EQ(-1, navo::definitions::ref_position(&d, &d.forms[0], l.id("BT")));       // another form's block
    EXPECT_EQ(-1, navo::definitions::ref_position(&d, &d.forms[0], l.id("Imie")));     // inside the map, not a tag
    EXPECT_EQ(-1, navo::definitions::ref_position(&d, &d.forms[0], 400));              // past the map
    EXPECT_EQ(-1, navo::definitions::ref_position(&d, &d.forms[0], -1));
    EXPECT_EQ(1, navo::definitions::field_position(&d.blocks[0], l.id("Imie")));
    EXPECT_EQ(-1, navo::definitions::field_position(&d.blocks[0], l.id("Kwota")));     // past this block's map
    EXPECT_EQ(-1, navo::definitions::field_position(&d.blocks[1], l.id("Imie")));      // inside the map, other block
    EXPECT_EQ(-1, navo::definitions::field_position(&d.blocks[0], -1));
}

TEST(DefinitionLoader, FormWithoutReferencesHasAOneEntryMap)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[PUSTA, PUSTA]\n\n<B, T>\nF, 1, x\n"));
    const dk_dfForm &f = l.def().forms[0];
    EXPECT_EQ(0, f.refCount);
    ASSERT_NE(nullptr, f.positionByTag);
    EXPECT_EQ(1, mapEntries(f.positionByTag));
    EXPECT_EQ(0, f.positionByTag[0]);
}

TEST(DefinitionLoader, BlockWithoutFieldsHasRecordLengthZero)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nB, 1, 1\n\n<B, T>\n\n<C, U>\nX, 2, x\n"));
    const dk_dfBlock &b = l.def().blocks[0];
    EXPECT_EQ(0, b.fieldCount);
    EXPECT_EQ(0, b.recordLength);
    EXPECT_EQ(1, mapEntries(b.positionByName));
    EXPECT_EQ(0, b.positionByName[0]);
    EXPECT_EQ(2, l.def().blocks[1].recordLength);
}

TEST(DefinitionLoader, TextWithoutFormsLoads)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n<B, T>\nX, 2, x\n"));
    EXPECT_EQ(0, l.def().formCount);
    EXPECT_EQ(nullptr, l.def().forms);
    EXPECT_EQ(1, l.def().blockCount);
    EXPECT_EQ(0, l.id("T"));
}

TEST(DefinitionLoader, TextMayEndWithOrWithoutEmptyLine)
{
    Loaded a;
    EXPECT_EQ(1, a.load(kText));
    Loaded b;
    EXPECT_EQ(1, b.load(std::string(kText) + "\n"));
    EXPECT_EQ(3, b.def().blockCount);
    EXPECT_EQ(11, b.def().blocks[2].recordLength);
}

TEST(DefinitionLoader, SecondLoadOfTheSameNameIsRefused)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    const int32_t strings = l.dict->count;
    const dk_dfDefinition *items = l.list->items;
    EXPECT_EQ(0, l.load(kText));
    EXPECT_EQ(1, l.list->count);
    EXPECT_EQ(items, l.list->items);
    EXPECT_EQ(strings, l.dict->count);
    // Names compare under dk_sdStrCmp: 1.3A and 1.3a are one name.
    Loaded m;
    ASSERT_EQ(1, m.load(replaceAll(kText, "9.1", "1.3A")));
    EXPECT_EQ(0, m.load(replaceAll(kText, "9.1", "1.3a")));
    EXPECT_EQ(1, m.list->count);
}

TEST(DefinitionLoader, VersionNameIsTrimmedOfBlanksEverywhere)
{
    Loaded l;
    ASSERT_EQ(1, l.load(replaceAll(kText, "Wersja 9.1", "Wersja  9 .\t1 ")));
    EXPECT_STREQ("9.1", l.def().name);
}

TEST(DefinitionLoader, TwoNamesGiveTwoEntriesAndDestroyMovesTheSecondDown)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    ASSERT_EQ(1, l.load(replaceAll(kText, "9.1", "9.2")));
    ASSERT_EQ(2, l.list->count);
    EXPECT_STREQ("9.1", l.def(0).name);
    EXPECT_STREQ("9.2", l.def(1).name);
    // Same forms in the same order on the same dictionary: same IDs, nothing added.
    EXPECT_EQ(10, l.dict->count);
    EXPECT_EQ(1, dk_dfDestroyDefinition(l.list, 0));
    ASSERT_EQ(1, l.list->count);
    EXPECT_STREQ("9.2", l.def(0).name);
    EXPECT_EQ(2, l.def(0).formCount);
    EXPECT_EQ(1, dk_dfDestroyDefinition(l.list, 0));
    EXPECT_EQ(0, l.list->count);
    EXPECT_EQ(nullptr, l.list->items);
    EXPECT_EQ(0, dk_dfDestroyDefinition(l.list, 0));
    EXPECT_EQ(10, l.dict->count);  // the dictionary is not touched
}

TEST(DefinitionLoader, DestroyOutsideTheListIsRefused)
{
    Loaded l;
    ASSERT_EQ(1, l.load(kText));
    EXPECT_EQ(0, dk_dfDestroyDefinition(l.list, 1));
    EXPECT_EQ(0, dk_dfDestroyDefinition(l.list, -1));
    EXPECT_EQ(1, l.list->count);
}

TEST(DefinitionLoader, ReferenceNamesLinkWithoutRegardToCase)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nADDOKORPLSKLBLF, 1, 1\n\n<AdDoKorPlSklBlf, ADKP>\nKodPocztowy, 5, x\n"));
    EXPECT_EQ(0, l.def().forms[0].refs[0].blockIndex);
    // Tags and field names go through the dictionary: case matters there.
    int32_t out = 0;
    EXPECT_EQ(1, dk_sdGetID(l.dict, "ADKP", &out));
    EXPECT_EQ(0, dk_sdGetID(l.dict, "adkp", &out));
}

TEST(DefinitionLoader, TrailingCommaAndBlankBeforeCommaReadTheSame)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nOswidPlLRBlf, 1 ,1\nInny,1,-1,\nTrzeci , 1, 1\n\n"
                        "<OswidPlLRBlf, O>\nA, 1, x\n\n<Inny, I>\nB ,2 , x,\n\n<Trzeci , T>\nC, 3\n"));
    const dk_dfForm &f = l.def().forms[0];
    ASSERT_EQ(3, f.refCount);
    EXPECT_EQ(1, f.refs[0].occurrence);
    EXPECT_EQ(-1, f.refs[1].occurrence);
    EXPECT_EQ(2, f.refs[2].blockIndex);  // "Trzeci " links to the block named "Trzeci "
    EXPECT_EQ(2, l.def().blocks[1].recordLength);
    EXPECT_EQ(3, l.def().blocks[2].recordLength);  // the third column of a field is never read
}

TEST(DefinitionLoader, ReferenceStartingWithTabEndsTheForm)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nA, 1, 1\n\tB, 1, 1\n[G, G]\nB, 1, 1\n\n<A, TA>\nX, 1, x\n\n<B, TB>\nY, 1, x\n"));
    ASSERT_EQ(2, l.def().formCount);
    EXPECT_EQ(1, l.def().forms[0].refCount);
    EXPECT_EQ(1, l.def().forms[1].refCount);
    EXPECT_EQ(1, l.def().forms[1].id);
}

TEST(DefinitionLoader, OnlyMinusOneRepeats)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nA, 1, 2\nB, 1, -1\nC, 1, -2\n\n<A, TA>\nX, 1\n\n<B, TB>\nY, 1\n\n<C, TC>\nZ, 1\n"));
    EXPECT_EQ(2, l.def().forms[0].refs[0].occurrence);
    EXPECT_EQ(-1, l.def().forms[0].refs[1].occurrence);
    EXPECT_EQ(-2, l.def().forms[0].refs[2].occurrence);
}

TEST(DefinitionLoader, TagReferencedTwiceMapsToTheLaterPositionAndSoDoesAFieldName)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nA, 1, 1\nB, 1, 1\nA, 1, 1\n\n<A, TA>\nX, 1\nY, 2\nX, 3\n\n<B, TB>\nZ, 1\n"));
    const dk_dfDefinition &d = l.def();
    EXPECT_EQ(2, d.forms[0].positionByTag[l.id("TA")]);
    EXPECT_EQ(2, d.blocks[0].positionByName[l.id("X")]);
    EXPECT_EQ(6, d.blocks[0].recordLength);
}

TEST(DefinitionLoader, BlanksAroundNumbersAndAtoiStopsAtTheFirstOtherByte)
{
    Loaded l;
    ASSERT_EQ(1, l.load("Wersja 1\n\n[F, F]\nA, x,  -1 \n\n<A, TA>\nX,  12abc , x\nY,+3\n"));
    EXPECT_EQ(-1, l.def().forms[0].refs[0].occurrence);
    EXPECT_EQ(12, l.def().blocks[0].fields[0].width);
    EXPECT_EQ(3, l.def().blocks[0].fields[1].width);
}

TEST(DefinitionLoader, TwoContextsLoadingOneAfterTheOtherAreBothSound)
{
    dk_Context *a = nullptr;
    dk_Context *b = nullptr;
    ASSERT_EQ(1, dk_Init(&a));
    ASSERT_EQ(1, dk_Init(&b));
    ASSERT_EQ(1, dk_dfLoadDefinition(a->definitions, a->dictionary, kText));
    ASSERT_EQ(1, dk_dfLoadDefinition(b->definitions, b->dictionary, "Wersja 2\n\n[X, X]\nQ, 1, 1\n\n<Q, TQ>\nP, 4\n"));
    EXPECT_EQ(2, a->definitions->items[0].formCount);
    EXPECT_EQ(1, b->definitions->items[0].formCount);
    EXPECT_EQ(4, b->definitions->items[0].blocks[0].recordLength);
    EXPECT_EQ(53, a->definitions->items[0].blocks[0].recordLength);
    ASSERT_EQ(1, dk_InitDocuments(a, 10));
    ASSERT_EQ(1, dk_InitDocuments(b, 10));
    EXPECT_EQ(1, dk_Destroy(&a));
    EXPECT_EQ(1, dk_Destroy(&b));
}

// ---- Every way a definition load fails ------------------------------------------------------

struct FailureCase {
    const char *label;
    std::string text;
};

TEST(DefinitionFailure, BrokenTextsAreRemovedAndTheirStringsStay)
{
    const std::vector<FailureCase> cases = {
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
        {"only a version line", "Wersja 1\n"},
    };
    for (const FailureCase &c : cases) {
        Loaded l;
        const int64_t before = navo::memory::live_blocks();
        EXPECT_EQ(0, l.load(c.text)) << c.label;
        EXPECT_EQ(0, l.list->count) << c.label;
        EXPECT_EQ(nullptr, l.list->items) << c.label;
        EXPECT_GE(navo::memory::live_blocks(), before) << c.label;  // interned strings stay
        // The index is free again and a sound text loads under the same name.
        EXPECT_EQ(1, l.load("Wersja 1\n\n<Q, TQ>\nP, 4\n")) << c.label;
    }
}

TEST(DefinitionFailure, StringsOfAFailedLoadStayInterned)
{
    Loaded l;
    EXPECT_EQ(0, l.load("Wersja 1\n\n[F, F]\nA, 1, 1\nZ, 1, 1\n\n<A, TA>\nX, 1\n"));
    EXPECT_EQ(0, l.id("F"));
    EXPECT_EQ(1, l.id("TA"));
    EXPECT_EQ(2, l.id("X"));
    EXPECT_EQ(3, l.dict->count);
}

TEST(DefinitionFailure, EmptyTextFailsAndChangesNothing)
{
    Loaded l;
    EXPECT_EQ(0, l.load(""));
    EXPECT_EQ(0, l.list->count);
    EXPECT_EQ(0, l.dict->count);
}

TEST(DefinitionFailure, TooLongLineEndsTheLoadSafely)
{
    Loaded l;
    std::string text = "Wersja 1\n\n[F, F]\n" + std::string(5000, 'A') + ", 1, 1\n\n<A, TA>\nX, 1\n";
    EXPECT_EQ(0, l.load(text));
    EXPECT_EQ(0, l.list->count);
    // 198 bytes and the LF fit the 200-byte buffer.
    Loaded m;
    std::string name(190, 'B');
    EXPECT_EQ(1, m.load("Wersja 1\n\n[F, F]\n" + name + ", 1, 1\n\n<" + name + ", T>\nX, 1\n"));
}

// Every allocation of a load fails in turn. Where the interning of a name fails, the half-built
// definition stays (counted, named, without maps, with unresolved references); every other
// failure removes it. In all cases the dictionary is sound and nothing leaks.
TEST(DefinitionFailure, EveryAllocationOfALoadFailsInTurn)
{
    const int64_t baseline = navo::memory::live_blocks();
    int halfBuilt = 0;
    int removed = 0;
    int64_t n = 1;
    for (;; n++) {
        navo_test::FailureInjection injection;
        Loaded l;
        injection.failNth(n);
        const int32_t result = l.load(kText);
        injection.off();
        if (result == 1) {
            EXPECT_EQ(1, l.list->count);
            break;
        }
        if (l.list->count == 0) {
            removed++;
            EXPECT_EQ(nullptr, l.list->items);
        } else {
            halfBuilt++;
            ASSERT_EQ(1, l.list->count) << "n=" << n;
            const dk_dfDefinition &d = l.def();
            EXPECT_STREQ("9.1", d.name);
            for (int32_t f = 0; f < d.formCount; f++) {
                EXPECT_EQ(nullptr, d.forms[f].positionByTag);
                for (int32_t r = 0; r < d.forms[f].refCount; r++)
                    EXPECT_NE(nullptr, d.forms[f].refs[r].name) << "reference resolved in a half-built definition";
            }
            for (int32_t b = 0; b < d.blockCount; b++)
                EXPECT_EQ(nullptr, d.blocks[b].positionByName);
            // Its name keeps a new load of the same name from succeeding.
            EXPECT_EQ(0, l.load(kText));
            EXPECT_EQ(1, dk_dfDestroyDefinition(l.list, 0));
            EXPECT_EQ(1, l.load(kText));
        }
        ASSERT_LT(n, 400);
    }
    // 10 names, each interned with three allocations (copy, slot, bucket entry).
    EXPECT_EQ(30, halfBuilt);
    EXPECT_EQ(n - 1 - 30, removed);
    EXPECT_GT(removed, 0);
    EXPECT_EQ(baseline, navo::memory::live_blocks());
}

TEST(DefinitionFailure, ListInitWithoutMemory)
{
    navo_test::FailureInjection injection;
    dk_dfDefinitionList *list = reinterpret_cast<dk_dfDefinitionList *>(0x1);
    injection.failNth(1);
    EXPECT_EQ(0, dk_dfInit(&list));
    EXPECT_EQ(nullptr, list);
}
