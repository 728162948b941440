// test_front_checks.cpp - content checks: each built-in rule's accepted and refused values, the rules
// file's grammar and faults, which rule a field gets, and findings through a load and a writer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "front/value_checks.hpp"
#include "navo_front.h"
#include "test_support.h"

namespace {

struct Case {
    const char *value;
    bool accepted;
};

// Each built-in check against values on both sides of its line: check digits and one off,
// month ends, leap years and centuries.
TEST(ValueChecks, AcceptAndRefuse)
{
    const struct {
        const char *check;
        std::vector<Case> cases;
    } table[] = {
        {"pesel",
         {{"44051401359", true},   // 14 May 1944
          {"44051401358", false},  // check digit one off
          {"00222900009", true},   // 29 February 2000: month + 20 for the 2000s
          {"99812900000", true},   // 29 January 1899: month + 80 for the 1800s
          {"89022900008", false},  // 29 February 1989: no such day
          {"00622900001", false},  // 29 February 2200: no leap year
          {"00233100003", true},   // 31 March 2000
          {"4405140135", false},
          {"4405140135X", false}}},
        {"nip",
         {{"5261040828", true}, {"5261040827", false}, {"1111111111", true}, {"1234567890", false},
          {"526104082", false}, {"52610408280", false}}},
        {"regon",
         {{"123456785", true}, {"123456784", false}, {"12345678512347", true}, {"12345678512346", false},
          {"100000050", true},  // a remainder of 10 gives the check digit 0
          {"1234567851", false}, {"12345678A", false}}},
        {"date",
         {{"29022000", true}, {"29021900", false}, {"29022024", true}, {"29022023", false}, {"31012024", true},
          {"32012024", false}, {"31042024", false}, {"00012024", false}, {"15132024", false}, {"01010000", false},
          {"1501202", false}}},
        {"day-month", {{"2902", true}, {"3002", false}, {"3112", true}, {"3111", false}, {"0101", true}, {"0100", false}}},
        {"date-range", {{"0101202431122024", true}, {"01012024", true}, {"        31122024", true}, {"3101202431022024", false}}},
        {"report-id", {{"01122024", true}, {"01132024", false}, {"01002024", false}, {"0112202", false}}},
        {"digits", {{"0", true}, {"0012", true}, {"12a", false}, {"1 2", false}, {"-1", false}}},
        {"postal-code", {{"00950", true}, {"0095", false}, {"00-95", false}}},
        {"email", {{"a@b", true}, {"jan.kowalski@example.pl", true}, {"a@", false}, {"@b", false}, {"a@b@c", false},
                   {"a b@c", false}}},
    };
    for (const auto &row : table) {
        const navo::front::NamedCheck *named = navo::front::find_check(row.check);
        ASSERT_NE(nullptr, named) << row.check;
        for (const Case &c : row.cases)
            EXPECT_EQ(c.accepted, named->check(c.value).empty()) << row.check << " " << c.value;
    }
}

// Type names that get a rule by default, and some that get none (no certain meaning).
TEST(ValueChecks, TypesThatAreChecked)
{
    const std::vector<std::pair<const char *, const char *>> checked = {
        {"t_PESEL", "pesel"}, {"T_PESEL", "pesel"}, {"t_NIP", "nip"}, {"T_REGON", "regon"},
        {"t_data_DDMMRRRR", "date"}, {"T_DATA_DDMM", "day-month"}, {"T_NNMMRRRR", "report-id"},
        {"t_liczba_2", "digits"}, {"t_kod_pocztowy", "postal-code"}, {"T_EMAIL", "email"}};
    for (const auto &[type, check] : checked) {
        const navo::front::NamedCheck *named = navo::front::check_of_type(type);
        ASSERT_NE(nullptr, named) << type;
        EXPECT_STREQ(check, std::string(named->name).c_str()) << type;
    }
    for (const char *type : {"t_kwota_7", "T_KWOTA", "TAK_NIE", "T_SLOWNIK", "t_telefon", "t_nazwisko", "t_NIPX"})
        EXPECT_EQ(nullptr, navo::front::check_of_type(type)) << type;
}

// ---- the rules file -------------------------------------------------------------------------

int32_t parse(const std::string &json, navo_refusal &why, navo_rules **rules = nullptr)
{
    navo_rules *made = nullptr;
    why = navo_refusal{};
    const int32_t code = navo_rules_parse(json.data(), json.size(), &made, &why);
    if (rules != nullptr)
        *rules = made;
    else
        navo_rules_free(made);
    return code;
}

TEST(RulesFile, FaultsNameTheirLine)
{
    const struct {
        const char *json;
        int32_t line;
        const char *reason;  // a part of the reason
    } faults[] = {
        {"{\"rules\": [\n  {\"type\": \"t_NIP\", \"check\": \"nipp\"}\n]}", 2, "no built-in check"},
        {"{\"rules\": [\n  {\"type\": \"t_NIP\"}\n]}", 2, "asks for nothing"},
        {"{\"rules\": [\n  {\"check\": \"nip\"}\n]}", 2, "names no type"},
        {"{\"rules\": [\n\n  {\"type\": \"x\", \"check\": \"nip\", \"pattern\": \"[0-9]\"}]}", 3, "not two"},
        {"{\"rules\": [\n  {\"type\": \"x\",\n   \"pattern\": \"[0-9\"}]}", 3, "no regular expression"},
        {"{\"rules\": [\n  {\"type\": \"x\", \"values\": []}]}", 2, "lists no value"},
        {"{\"rules\": [\n  {\"type\": \"x\", \"colour\": \"red\"}]}", 2, "no key \"colour\""},
        {"{\"rule\": []}", 1, "no key \"rule\""},
        {"{\"rules\": [\n  {\"type\": \"x\", \"check\": \"nip\"},\n  {\"type\": 5}]}", 3, "a number"},
        {"{\"rules\": [\n  {\"type\": \"x\", \"check\": \"nip\"}\n  {\"type\": \"y\"}]}", 3, "malformed JSON"},
        {"[]", 1, "not expected"},
    };
    for (const auto &f : faults) {
        navo_refusal why{};
        EXPECT_EQ(NAVO_BAD_RULES, parse(f.json, why)) << f.json;
        EXPECT_EQ(f.line, why.place.line) << f.json << ": " << why.reason;
        EXPECT_NE(nullptr, std::strstr(why.reason, f.reason)) << f.json << ": " << why.reason;
    }
    navo_refusal why{};
    EXPECT_EQ(NAVO_OK, parse("{\"rules\": [], \"cross_checks\": false}", why));
    navo_rules *rules = nullptr;
    EXPECT_EQ(NAVO_READ_FAILED, navo_rules_load("/no/such/rules.json", &rules, &why));
    EXPECT_EQ(nullptr, rules);
}

// ---- findings through a load and a writer -----------------------------------------------------

class Checks : public ::testing::Test {
protected:
    // A TOBZBA document whose DIPL holds the given NIP, PESEL and birth date.
    int32_t add(navo_writer *w, const char *nip, const char *pesel, const char *birth)
    {
        int32_t doc = 0;
        EXPECT_EQ(NAVO_OK, navo_writer_add_document(w, "TOBZBA", &doc, nullptr));
        EXPECT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "Nip", nip, nullptr));
        EXPECT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "Pesel", pesel, nullptr));
        EXPECT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "DataUrodzenia", birth, nullptr));
        return doc;
    }
    // The findings of a load of `path` as "document form block record field rule".
    std::vector<std::string> findings(const std::string &path, const navo_rules *rules = nullptr)
    {
        std::vector<std::string> seen;
        navo_load_callbacks callbacks{};
        callbacks.user = &seen;
        callbacks.finding = [](void *user, const navo_finding *f) -> int32_t {
            static_cast<std::vector<std::string> *>(user)->push_back(
                std::to_string(f->place.document) + " " + f->place.form + " " + f->place.block + " " +
                std::to_string(f->place.record) + " " + f->place.field + " " + f->rule + " " + f->type);
            return 0;
        };
        navo_load_options options{};
        options.checks = 1;
        options.rules = rules;
        navo_load_result result{};
        EXPECT_EQ(NAVO_OK, navo_load(path.c_str(), &options, &callbacks, &result));
        EXPECT_EQ(static_cast<int32_t>(seen.size()), result.findings);
        return seen;
    }
    navo_test::ScopedTempDir tmp;
};

TEST_F(Checks, PlantedFaultsAreFoundWhereTheyStand)
{
    navo_writer *w = navo_writer_new("1.3", NAVO_ISO8859_2, 0);
    ASSERT_NE(nullptr, w);
    add(w, "5261040828", "44051401359", "14051944");        // all well
    add(w, "5261040827", "44051401359", "15051944");        // NIP one off; birth date not the PESEL's
    const int32_t third = add(w, "          ", "44051401358", "31021944");  // blank NIP; bad PESEL, no such day
    int32_t record = 0;
    ASSERT_EQ(NAVO_OK, navo_writer_add_record(w, third, "IORB", &record, nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_save(w, tmp.file("planted.navo").c_str(), nullptr));
    navo_writer_free(w);

    const std::vector<std::string> expected = {
        "2 TOBZBA DIPL 0 Nip nip t_NIP",
        "2 TOBZBA DIPL 0 DataUrodzenia pesel-birth-date t_data_DDMMRRRR",
        "3 TOBZBA DIPL 0 Pesel pesel t_PESEL",
        "3 TOBZBA DIPL 0 DataUrodzenia date t_data_DDMMRRRR",
    };
    EXPECT_EQ(expected, findings(tmp.file("planted.navo")));

    // Rules of one's own: NIP off for this form's DIPL, the birth date checked by a pattern, no cross checks.
    const std::string json = R"({"rules": [
        {"form": "tobzba", "block": "DIPL", "field": "Nip", "check": "none"},
        {"type": "t_data_DDMMRRRR", "pattern": "[0-9]{8}"}
    ], "cross_checks": false})";
    navo_refusal why{};
    navo_rules *rules = nullptr;
    ASSERT_EQ(NAVO_OK, parse(json, why, &rules)) << why.reason;
    EXPECT_EQ(std::vector<std::string>{"3 TOBZBA DIPL 0 Pesel pesel t_PESEL"}, findings(tmp.file("planted.navo"), rules));
    navo_rules_free(rules);
}

// A writer with NAVO_CHECK refuses a value that fails its rule when it is set, and a pair of values
// that disagree before anything is saved.
TEST_F(Checks, WriterRefusesBeforeSaving)
{
    navo_writer *w = navo_writer_new("1.3", NAVO_ISO8859_2, NAVO_CHECK);
    ASSERT_NE(nullptr, w);
    int32_t doc = 0;
    ASSERT_EQ(NAVO_OK, navo_writer_add_document(w, "TOBZBA", &doc, nullptr));
    navo_refusal why{};
    EXPECT_EQ(NAVO_CONTENT_REFUSED, navo_writer_set(w, doc, "DIPL", 0, "Nip", "1234567890", &why));
    EXPECT_STREQ("Nip", why.place.field);
    EXPECT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "Nip", "", nullptr));  // blank: not checked
    ASSERT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "Pesel", "44051401359", nullptr));
    ASSERT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "DataUrodzenia", "15051944", nullptr));
    const std::string path = tmp.file("checked.navo");
    EXPECT_EQ(NAVO_CONTENT_REFUSED, navo_writer_save(w, path.c_str(), &why));
    EXPECT_STREQ("DataUrodzenia", why.place.field);
    EXPECT_EQ(1, why.place.document);
    EXPECT_EQ(tmp.spoolFiles(), tmp.entries()) << "nothing but the writer's spool file";
    ASSERT_EQ(NAVO_OK, navo_writer_set(w, doc, "DIPL", 0, "DataUrodzenia", "14051944", nullptr));
    EXPECT_EQ(NAVO_OK, navo_writer_save(w, path.c_str(), nullptr));
    navo_writer_free(w);
}

}  // namespace
