// test_front_text.cpp - the core's words and letters: code pages, UTF-8, names, forms as data,
// messages and the wording of places.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "navo_front.h"

namespace {

std::string toUtf8(int32_t encoding, const std::string &raw)
{
    char out[1024];
    const int64_t length = navo_to_utf8(encoding, raw.data(), raw.size(), out, sizeof out);
    return length < 0 ? "<error " + std::to_string(-length) + ">" : std::string(out, static_cast<size_t>(length));
}

struct FromUtf8 {
    int64_t result;
    std::string bytes;
    size_t at;
};

FromUtf8 fromUtf8(int32_t encoding, const std::string &text, bool substitute = false)
{
    char out[1024];
    size_t at = 999;
    const int64_t result = navo_from_utf8(encoding, text.data(), text.size(), substitute ? 1 : 0, out, sizeof out, &at);
    return {result, result >= 0 ? std::string(out, static_cast<size_t>(result)) : std::string(), at};
}

// Characters of both code pages, each with the byte that carries it; a byte a code page leaves
// undefined carries the C1 code point of its own value.
TEST(FrontCodePages, KnownCharactersBothWays)
{
    struct Case {
        int32_t encoding;
        unsigned char byte;
        const char *utf8;
    };
    const Case cases[] = {
        {NAVO_ISO8859_2, 0xA1, "Ą"}, {NAVO_ISO8859_2, 0xB1, "ą"}, {NAVO_ISO8859_2, 0xA6, "Ś"},
        {NAVO_ISO8859_2, 0xBC, "ź"}, {NAVO_ISO8859_2, 0xA5, "Ľ"}, {NAVO_ISO8859_2, 0xFF, "˙"},
        {NAVO_ISO8859_2, 0x80, "\xC2\x80"}, {NAVO_ISO8859_2, 0x9F, "\xC2\x9F"},
        {NAVO_CP1250, 0xA5, "Ą"}, {NAVO_CP1250, 0xB9, "ą"}, {NAVO_CP1250, 0x8C, "Ś"}, {NAVO_CP1250, 0x9F, "ź"},
        {NAVO_CP1250, 0x80, "€"}, {NAVO_CP1250, 0x99, "™"}, {NAVO_CP1250, 0xD3, "Ó"},
        {NAVO_CP1250, 0x81, "\xC2\x81"}, {NAVO_CP1250, 0x83, "\xC2\x83"}, {NAVO_CP1250, 0x88, "\xC2\x88"},
        {NAVO_CP1250, 0x90, "\xC2\x90"}, {NAVO_CP1250, 0x98, "\xC2\x98"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.encoding) + " byte " + std::to_string(c.byte));
        const std::string raw(1, static_cast<char>(c.byte));
        EXPECT_EQ(c.utf8, toUtf8(c.encoding, raw));
        const FromUtf8 back = fromUtf8(c.encoding, c.utf8);
        EXPECT_EQ(1, back.result);
        EXPECT_EQ(raw, back.bytes);
    }
}

// Every byte of each code page comes back from its UTF-8, and no two bytes share a character.
TEST(FrontCodePages, EveryByteSurvivesItsWayBack)
{
    for (int32_t encoding : {NAVO_ISO8859_2, NAVO_CP1250}) {
        std::string all;
        for (int byte = 1; byte < 256; byte++)
            all += static_cast<char>(byte);
        const std::string utf8 = toUtf8(encoding, all);
        const FromUtf8 back = fromUtf8(encoding, utf8);
        EXPECT_EQ(all, back.bytes) << encoding;
        std::vector<std::string> seen;
        for (int byte = 0x80; byte < 256; byte++) {
            const std::string one = toUtf8(encoding, std::string(1, static_cast<char>(byte)));
            for (const std::string &other : seen)
                EXPECT_NE(other, one) << encoding << " byte " << byte;
            seen.push_back(one);
        }
    }
}

TEST(FrontCodePages, RefusalsOfText)
{
    struct Case {
        const char *name;
        int32_t encoding;
        std::string text;
        bool substitute;
        int64_t result;  // bytes, or -code
        size_t at;       // of the offending character (999: untouched)
        std::string bytes;
    };
    const Case cases[] = {
        {"overlong two bytes", NAVO_ISO8859_2, "\xC0\x80", false, -NAVO_NOT_UTF8, 0, ""},
        {"overlong three bytes", NAVO_ISO8859_2, "a\xE0\x80\x80", false, -NAVO_NOT_UTF8, 1, ""},
        {"overlong four bytes", NAVO_ISO8859_2, "ab\xF0\x8F\xBF\xBF", false, -NAVO_NOT_UTF8, 2, ""},
        {"surrogate", NAVO_CP1250, "\xED\xA0\x80", false, -NAVO_NOT_UTF8, 0, ""},
        {"above U+10FFFF", NAVO_CP1250, "x\xF4\x90\x80\x80", false, -NAVO_NOT_UTF8, 1, ""},
        {"lead byte F5", NAVO_CP1250, "\xF5\x80\x80\x80", false, -NAVO_NOT_UTF8, 0, ""},
        {"stray continuation", NAVO_ISO8859_2, "ok\x80", false, -NAVO_NOT_UTF8, 2, ""},
        {"cut sequence", NAVO_ISO8859_2, "ab\xC5", false, -NAVO_NOT_UTF8, 2, ""},
        {"cut before ASCII", NAVO_ISO8859_2, "\xE2\x82z", false, -NAVO_NOT_UTF8, 0, ""},
        {"not in ISO 8859-2", NAVO_ISO8859_2, "ą€", false, -NAVO_NOT_ENCODABLE, 2, ""},
        {"no UTF-8 wins over no character", NAVO_ISO8859_2, "€\xC0\x80", false, -NAVO_NOT_UTF8, 3, ""},
        {"substituted", NAVO_ISO8859_2, "x€y", true, 3, 999, "x?y"},
        {"U+0080 not in CP1250", NAVO_CP1250, "\xC2\x80", false, -NAVO_NOT_ENCODABLE, 0, ""},
        {"four bytes never encodable", NAVO_CP1250, "\xF0\x9F\x98\x80", true, 1, 999, "?"},
        {"empty", NAVO_CP1250, "", false, 0, 999, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const FromUtf8 got = fromUtf8(c.encoding, c.text, c.substitute);
        EXPECT_EQ(c.result, got.result);
        EXPECT_EQ(c.at, got.at);
        EXPECT_EQ(c.bytes, got.bytes);
    }
    char out[8];
    EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_to_utf8(2, "a", 1, out, sizeof out));
    EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_from_utf8(-1, "a", 1, 0, out, sizeof out, nullptr));
    EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_to_utf8(NAVO_CP1250, "a", 1, nullptr, 4));
}

// The snprintf rule: the full length always, at most size - 1 bytes and a NUL.
TEST(FrontCodePages, ShortBuffersAreCutAndCounted)
{
    const std::string raw = "Zg\xB3oszenie";  // "Zgłoszenie" in ISO 8859-2: 11 bytes of UTF-8
    EXPECT_EQ(11, navo_to_utf8(NAVO_ISO8859_2, raw.data(), raw.size(), nullptr, 0));
    char out[5];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(11, navo_to_utf8(NAVO_ISO8859_2, raw.data(), raw.size(), out, sizeof out));
    EXPECT_STREQ("Zg\xC5\x82", out);
    EXPECT_EQ(1, navo_from_utf8(NAVO_ISO8859_2, "\xC5\x82", 2, 0, out, 1, nullptr));
    EXPECT_EQ('\0', out[0]);
}

TEST(FrontCodePages, EncodingNames)
{
    const std::pair<const char *, int32_t> names[] = {
        {"iso8859-2", NAVO_ISO8859_2}, {"ISO-8859-2", NAVO_ISO8859_2}, {"Latin2", NAVO_ISO8859_2},
        {"cp1250", NAVO_CP1250},       {"Windows-1250", NAVO_CP1250},  {"CP1250", NAVO_CP1250},
        {"utf-8", -1},                 {"latin-2", -1},                {"", -1},
        {"cp1250 ", -1},
    };
    for (const auto &[name, encoding] : names)
        EXPECT_EQ(encoding, navo_encoding_named(name)) << name;
    EXPECT_EQ(-1, navo_encoding_named(nullptr));
    EXPECT_STREQ("iso8859-2", navo_encoding_name(NAVO_ISO8859_2));
    EXPECT_STREQ("cp1250", navo_encoding_name(NAVO_CP1250));
    EXPECT_STREQ("", navo_encoding_name(2));
}

// A definition of the host's own, in CP1250: two fields that differ only in ASCII case, a name
// with Polish letters, a third column on some lines only.
const char *ownDefinition()
{
    return "Wersja TEST\n"
           "\n"
           "[TOBAA, TOBAA]\n"
           "Blok\xB3, 1, 1\n"
           "Powt, 1, -1\n"
           "\n"
           "<Blok\xB3, BL>\n"
           "Nazwa, 5, t_nazwa\n"
           "NAZWA, 3\n"
           "Pole, 2, t_pole\n"
           "\xA3\xF3" "d\x9F, 4, t_miasto\n"
           "\n"
           "<Powt, PW>\n"
           "Kod, 1, t_kod\n";
}

TEST(FrontNames, OneRuleForFormsBlocksAndFields)
{
    navo_schema *own = nullptr;
    ASSERT_EQ(NAVO_OK, navo_schema_parse(ownDefinition(), &own));
    const navo_form_def *form = navo_schema_form(own, "tobaa");
    ASSERT_NE(nullptr, form);
    EXPECT_STREQ("TOBAA", form->name);
    const int32_t block = navo_form_block(form, "bl");
    ASSERT_EQ(0, block);
    const navo_block_def *fields = &form->blocks[block];
    const std::pair<const char *, int32_t> lookups[] = {
        {"Nazwa", 0},   // exact
        {"NAZWA", 1},   // exact, though another name equals it folded
        {"nazwa", -1},  // folded it equals two names: none is the one
        {"pole", 2},    // only folded
        {"POLE ", -1},
        {"Łódź", 3},    // exact, in UTF-8
        {"ŁÓDŹ", -1},   // letters beyond ASCII match only exactly
        {"łÓdź", -1},
        {"Kod", -1},    // a field of another block
    };
    for (const auto &[name, index] : lookups)
        EXPECT_EQ(index, navo_block_field(fields, name)) << name;
    EXPECT_EQ(1, navo_form_block(form, "PW"));
    EXPECT_EQ(-1, navo_form_block(form, "XX"));
    EXPECT_EQ(nullptr, navo_schema_form(own, "TOBAB"));
    EXPECT_EQ(nullptr, navo_schema_form(nullptr, "TOBAA"));
    navo_schema_free(own);
}

TEST(FrontSchema, ParsedTextKeepsNamesTypesAndLayout)
{
    navo_schema *own = nullptr;
    ASSERT_EQ(NAVO_OK, navo_schema_parse(ownDefinition(), &own));
    EXPECT_STREQ("TEST", own->name);
    EXPECT_STREQ("", own->version);
    ASSERT_EQ(1, own->form_count);
    const navo_form_def &form = own->forms[0];
    ASSERT_EQ(2, form.block_count);
    const navo_block_def &first = form.blocks[0];
    EXPECT_STREQ("BL", first.tag);
    EXPECT_STREQ("Blokł", first.name);
    EXPECT_EQ(0, first.repeating);
    EXPECT_EQ(14, first.record_length);
    ASSERT_EQ(4, first.field_count);
    const char *types[] = {"t_nazwa", "", "t_pole", "t_miasto"};
    const int32_t offsets[] = {0, 5, 8, 10};
    for (int32_t f = 0; f < 4; f++) {
        EXPECT_STREQ(types[f], first.fields[f].type);
        EXPECT_EQ(offsets[f], first.fields[f].offset);
    }
    EXPECT_STREQ("Łódź", first.fields[3].name);
    EXPECT_EQ(1, form.blocks[1].repeating);
    EXPECT_STREQ("Powt", form.blocks[1].name);
    navo_schema_free(own);

    navo_schema *broken = reinterpret_cast<navo_schema *>(1);
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_schema_parse("Wersja X\n\n[TOBAA, TOBAA]\nNikt, 1, 1\n\n<Blok, BL>\nA, 1\n", &broken));
    EXPECT_EQ(nullptr, broken);
    EXPECT_EQ(NAVO_INVALID_ARGUMENT, navo_schema_parse(nullptr, &broken));
}

TEST(FrontSchema, EmbeddedDefinitionsOncePerProcess)
{
    const navo_schema *v13 = navo_schema_of("1.3");
    const navo_schema *v12 = navo_schema_of("1.2");
    ASSERT_NE(nullptr, v13);
    ASSERT_NE(nullptr, v12);
    EXPECT_EQ(nullptr, navo_schema_of("1.4"));
    EXPECT_STREQ("1.3", v13->version);
    EXPECT_STREQ("1.2", v12->version);
    EXPECT_EQ(40, v13->form_count);
    EXPECT_EQ(40, v12->form_count);
    // Threads that ask at once get the one schema.
    std::vector<const navo_schema *> seen(4);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); i++)
        threads.emplace_back([&seen, i] { seen[i] = navo_schema_of(i % 2 == 0 ? "1.3" : "1.2"); });
    for (std::thread &thread : threads)
        thread.join();
    for (size_t i = 0; i < seen.size(); i++)
        EXPECT_EQ(i % 2 == 0 ? v13 : v12, seen[i]);
    navo_schema_free(const_cast<navo_schema *>(v13));  // not the host's: nothing happens
    EXPECT_EQ(40, navo_schema_of("1.3")->form_count);
}

TEST(FrontSchema, EmbeddedFormsBlocksAndTypes)
{
    for (const char *version : {"1.3", "1.2"}) {
        SCOPED_TRACE(version);
        const navo_schema *schema = navo_schema_of(version);
        for (int32_t f = 0; f < schema->form_count; f++) {
            const navo_form_def &form = schema->forms[f];
            for (int32_t b = 0; b < form.block_count; b++) {
                const navo_block_def &block = form.blocks[b];
                EXPECT_NE('\0', block.name[0]) << form.name << " " << block.tag;
                int32_t length = 0;
                for (int32_t k = 0; k < block.field_count; k++) {
                    EXPECT_EQ(length, block.fields[k].offset);
                    EXPECT_NE('\0', block.fields[k].type[0]) << block.tag << "." << block.fields[k].name;
                    length += block.fields[k].width;
                }
                EXPECT_EQ(length, block.record_length);
            }
        }
        const navo_form_def *zba = navo_schema_form(schema, "TOBZBA");
        ASSERT_NE(nullptr, zba);
        const navo_block_def &dipl = zba->blocks[navo_form_block(zba, "DIPL")];
        EXPECT_STREQ("DaneIdPlSklaBlf", dipl.name);
        EXPECT_STREQ("t_NIP", dipl.fields[navo_block_field(&dipl, "Nip")].type);
        EXPECT_EQ(1, zba->blocks[navo_form_block(zba, "IORB")].repeating);
        // The one field in which the versions differ.
        const navo_form_def *dra = navo_schema_form(schema, "TOBDRA");
        const navo_block_def &inn7 = dra->blocks[navo_form_block(dra, "INN7")];
        EXPECT_EQ(std::string(version) == "1.3" ? 4 : 3, inn7.fields[navo_block_field(&inn7, "StopaProcSklWypadk")].width);
    }
}

TEST(FrontEnvelope, ElementsAndOcrKinds)
{
    const std::vector<int32_t> widths[] = {{51, 8, 24, 24, 32},
                                           {51, 8, 8, 8, 24, 8, 24, 24, 8, 24, 24, 1, 1, 32},
                                           {10, 10, 10, 10},
                                           {10, 10, 10, 72, 24, 24}};
    for (int32_t element = 0; element < 4; element++) {
        ASSERT_EQ(static_cast<int32_t>(widths[element].size()), navo_element_lines(element));
        for (int32_t line = 0; line < navo_element_lines(element); line++)
            EXPECT_EQ(widths[element][static_cast<size_t>(line)], navo_element_width(element, line));
        EXPECT_EQ(-1, navo_element_width(element, navo_element_lines(element)));
    }
    EXPECT_EQ(-1, navo_element_lines(4));
    EXPECT_EQ(-1, navo_element_width(0, -1));
    const char *letters[] = {"a", "z", "l", "l2", "", ""};
    for (int32_t kind = 0; kind < 6; kind++)
        EXPECT_STREQ(letters[kind], navo_ocr_kind_letters(kind == 5 ? -1 : kind));
}

TEST(FrontMessages, OneTableInTwoLanguages)
{
    std::vector<std::string> english;
    for (int32_t code = 0; code <= 116; code++) {
        if (code > 10 && code < 100) {
            EXPECT_STREQ("unknown code", navo_message(code, NAVO_ENGLISH));
            continue;
        }
        const std::string text = navo_message(code, NAVO_ENGLISH);
        EXPECT_NE("unknown code", text) << code;
        for (const std::string &other : english)
            EXPECT_NE(other, text) << code;
        english.push_back(text);
        if (code < 1 || code > 10) {
            EXPECT_EQ(text, navo_message(code, NAVO_POLISH)) << code;
        }
    }
    EXPECT_STREQ("Nie powiod\xC5\x82" "a sie pr\xC3\xB3" "ba otwarcia pliku NAVO", navo_message(2, NAVO_POLISH));
    EXPECT_STREQ("Brak wolnej pami\xC4\x99" "ci !", navo_message(9, NAVO_POLISH));
    EXPECT_STREQ("the NAVO file cannot be opened", navo_message(2, NAVO_ENGLISH));
    EXPECT_STREQ("unknown code", navo_message(-1, NAVO_POLISH));
    EXPECT_STREQ("unknown code", navo_message(117, NAVO_ENGLISH));
    EXPECT_STREQ("body", navo_area_name(NAVO_AREA_BODY));
    EXPECT_STREQ("", navo_area_name(NAVO_AREA_NONE));
    EXPECT_STREQ("", navo_area_name(8));
    const std::string version = navo_version();
    EXPECT_EQ(2, std::count(version.begin(), version.end(), '.')) << version;
}

navo_place place(int32_t area, int32_t document, const char *form, const char *block, int32_t record,
                 const char *field, int32_t expected = -1, int32_t found = -1, int32_t fieldExpected = -1,
                 int32_t fieldFound = -1)
{
    navo_place p{};
    p.area = area;
    p.document = document;
    p.record = record;
    p.expected = expected;
    p.found = found;
    p.field_expected = fieldExpected;
    p.field_found = fieldFound;
    p.line = 77;
    p.offset = 1234;
    std::strcpy(p.form, form);
    std::strcpy(p.block, block);
    std::strcpy(p.field, field);
    return p;
}

TEST(FrontPlaces, OneWording)
{
    const std::pair<navo_place, const char *> cases[] = {
        {place(NAVO_AREA_BODY, 3, "TOBZBA", "DIPL", 0, "Nip", 171, 170, 10, 9),
         "document 3 (TOBZBA), body, block DIPL record 0, field Nip; expected 171 characters, found 170 (Nip: 10, found 9)"},
        {place(NAVO_AREA_DOCUMENT_HEADER, 1, "TOBZBA", "", -1, "line5", 245, 244, 24, 23),
         "document 1 (TOBZBA), document header, field line5; expected 245 characters, found 244 (line5: 24, found 23)"},
        {place(NAVO_AREA_NOTES, 2, "TOBRCA", "BLAD", 1, "text3"), "document 2 (TOBRCA), notes, block BLAD record 1, field text3"},
        {place(NAVO_AREA_BODY, 1, "TOBZBA", "DIPL", 0, "Nip", 10, 11), "document 1 (TOBZBA), body, block DIPL record 0, field Nip; expected 10 characters, found 11"},
        {place(NAVO_AREA_FILE_HEADER, 0, "", "", -1, "line2", 139, 138), "file header, field line2; expected 139 characters, found 138"},
        {place(NAVO_AREA_SECTION, 4, "TOBXYZ", "", -1, ""), "document 4 (TOBXYZ), section"},
        {place(NAVO_AREA_NONE, 0, "", "", -1, ""), ""},
        {place(NAVO_AREA_PROLOG, 0, "", "", -1, ""), "prolog"},
    };
    for (const auto &[where, words] : cases) {
        char out[512];
        const int64_t length = navo_place_describe(&where, out, sizeof out);
        EXPECT_EQ(static_cast<int64_t>(std::strlen(words)), length);
        EXPECT_STREQ(words, out);
    }
    EXPECT_EQ(-NAVO_INVALID_ARGUMENT, navo_place_describe(nullptr, nullptr, 0));
}

}  // namespace
