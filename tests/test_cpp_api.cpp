// test_cpp_api.cpp - the C++ interface of navo.hpp: ownership in every state, error mapping,
// early stop and exceptions, lifetimes of what a host keeps, refusals of the writer.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "navo.hpp"
#include "test_support.h"

namespace {

static_assert(!std::is_copy_constructible_v<navo::Document> && !std::is_move_constructible_v<navo::Document>);
static_assert(!std::is_copy_constructible_v<navo::Context> && std::is_nothrow_move_constructible_v<navo::Context>);

const std::string sample = std::string(NAVO_SOURCE_DIR) + "/examples/data/sample.navo";

// Brings a fresh context into one of the states a host can leave it in.
using Setup = std::function<void(navo::Context &, const std::string &tmp)>;

struct OwnershipCase {
    const char *name;
    Setup setup;
};

void loadDefinition(navo::Context &ctx, const char *text)
{
    ASSERT_EQ(1, dk_dfLoadDefinition(ctx.get()->definitions, ctx.get()->dictionary, text));
}

const OwnershipCase ownershipCases[] = {
    {"fresh", [](navo::Context &, const std::string &) {}},
    {"definition_without_tables", [](navo::Context &c, const std::string &) { loadDefinition(c, GetDefTXT_1_3()); }},
    {"definition_without_forms", [](navo::Context &c, const std::string &) { loadDefinition(c, "Wersja 1\n\n<A, TA>\nX, 3, x\n"); }},
    {"tables_and_documents",
     [](navo::Context &c, const std::string &) {
         loadDefinition(c, GetDefTXT_1_3());
         int32_t doc = -1, record = -1;
         ASSERT_EQ(1, dk_InitDocuments(c.get(), 10));
         ASSERT_EQ(1, dk_AddDocument(c.get(), "TOBZBA", &doc));
         ASSERT_EQ(1, dk_AddBlock(c.get(), "TOBZBA", doc, "IORB", &record));
     }},
    {"failed_open",
     [](navo::Context &c, const std::string &tmp) {
         auto r = navo::load(c, tmp + "/missing.navo", [](const navo::Document &) { return true; });
         ASSERT_EQ(navo::errc::open_failed, r.code);
     }},
    {"stopped_load_keeps_document",
     [](navo::Context &c, const std::string &) {
         auto r = navo::load(c, sample, [](const navo::Document &) { return false; });
         ASSERT_EQ(navo::outcome::stopped, r.outcome);
     }},
};

class Ownership : public ::testing::TestWithParam<OwnershipCase> {};

// Whatever the state, the destructor (and a move onto the context) leaves no block of the
// library's memory and no spool file behind.
TEST_P(Ownership, ReleasesEverythingInEveryState)
{
    navo_test::ScopedTempDir tmp;
    navo::memory::reset_counters();
    const int64_t before = navo::memory::live_blocks();
    {
        navo::Context ctx;
        GetParam().setup(ctx, tmp.path());
        navo::Context moved(std::move(ctx));
        EXPECT_FALSE(ctx);
        navo::Context target;
        target = std::move(moved);  // releases the fresh one, takes over
        EXPECT_TRUE(target && !moved);
    }
    EXPECT_EQ(before, navo::memory::live_blocks());
    EXPECT_TRUE(tmp.spoolFiles().empty());
}

INSTANTIATE_TEST_SUITE_P(States, Ownership, ::testing::ValuesIn(ownershipCases),
                         [](const auto &info) { return std::string(info.param.name); });

// A writer whose construction runs out of memory reports it and still releases what was built:
// failures inside dk_Init (its first allocations), at the start and at the end of the definition
// load, and in dk_InitDocuments (the last allocations).
TEST(Ownership, AllocationFailureWhileBuildingAWriter)
{
    navo::memory::reset_counters();
    const int64_t before = navo::memory::live_blocks();
    { navo::Writer counted(navo::version::v1_2); }
    const int64_t total = navo::memory::allocations();
    for (int64_t n = 1; n <= total; n = n == 8 ? std::max<int64_t>(9, total - 7) : n + 1) {
        navo::memory::reset_counters();
        navo::memory::fail_after(n);
        std::error_code ec;
        { navo::Writer writer(navo::version::v1_2, ec); }
        navo::memory::fail_after(0);
        EXPECT_EQ(navo::errc::out_of_memory, ec) << "allocation " << n << " of " << total;
        ASSERT_EQ(before, navo::memory::live_blocks()) << "allocation " << n << " of " << total;
    }
}

struct FaultCase {
    const char *content;  // null: the file does not exist
    navo::errc code;
    navo::outcome outcome;
    int line;
    const char *polish;  // as UTF-8
};

// Load results map to outcome, code, line and the library's message in both renderings.
TEST(ErrorMapping, LoadResults)
{
    navo_test::ScopedTempDir tmp;
    const FaultCase cases[] = {
        {nullptr, navo::errc::open_failed, navo::outcome::failed, 1, "Nie powiodła sie próba otwarcia pliku NAVO"},
        {"<!DOCTYPE NAVX PUBLIC '-//TOB//DTD NAVO 1.3//PL'[\r\n", navo::errc::not_navo, navo::outcome::failed, 1,
         "Zły format pliku NAVO - to nie jest plik NAVO"},
        {"short", navo::errc::unexpected_end, navo::outcome::failed, 1, "Błąd odczytu - niespodziewany koniec pliku"},
        {"", navo::errc::ok, navo::outcome::done, 124, "Wszystko jest w porządku"},  // the sample
    };
    for (const FaultCase &c : cases) {
        std::string path = c.content == nullptr ? tmp.path() + "/none.navo" : sample;
        if (c.content != nullptr && *c.content != '\0') {
            path = tmp.path() + "/bad.navo";
            navo_test::writeFile(path, c.content);
        }
        auto result = navo::load(path, [](const navo::Document &) { return true; });
        EXPECT_EQ(c.outcome, result.outcome) << path;
        EXPECT_EQ(c.code, result.code);
        EXPECT_EQ(&navo::category(), &result.code.category());
        EXPECT_EQ(c.line, result.line);
        EXPECT_EQ(c.polish, result.code.message());
        EXPECT_EQ(navo::to_utf8(navo::library_message(static_cast<int>(c.code)), navo::charset::cp1250),
                  result.code.message());
        EXPECT_NE(navo::english(result.code), result.code.message());
        EXPECT_EQ(c.outcome == navo::outcome::done, static_cast<bool>(result));
    }
    // The header's own codes have no library message: message() is the English one.
    std::error_code own = navo::errc::value_too_wide;
    EXPECT_EQ(navo::english(own), own.message());
    EXPECT_EQ("ŁĄ", navo::to_utf8("\xA3\xA1", navo::charset::iso8859_2));
    EXPECT_EQ("ŁĄ", navo::to_utf8("\xA3\xA5", navo::charset::cp1250));
}

// Stopping, throwing and a load started from the callback: the library's callback slot and the
// process-wide lock come back each time, so the next load runs normally.
TEST(EarlyStop, StopThrowAndNestedLoad)
{
    navo_test::ScopedTempDir tmp;
    auto previous = +[](dk_Context *, const char *, int32_t) -> int32_t { return 0; };
    dk_UstawCallBack(previous);

    navo::Context ctx;
    int seen = 0;
    auto stopped = navo::load(ctx, sample, [&](const navo::Document &) { return ++seen < 1; });
    EXPECT_EQ(navo::outcome::stopped, stopped.outcome);
    EXPECT_EQ(navo::errc::cancelled, stopped.code);
    EXPECT_EQ(1, seen);
    int32_t kept = 0;
    EXPECT_EQ(1, dk_GetDocCount(ctx.get(), "TOBZWPA", &kept));
    EXPECT_EQ(1, kept);

    EXPECT_THROW((void)navo::load(ctx, sample, [](const navo::Document &) -> bool { throw std::runtime_error("x"); }),
                 std::runtime_error);
    EXPECT_EQ(previous, OnNAVODocument);

    navo::errc nested = navo::errc::ok;
    auto outer = navo::load(ctx, sample, [&](const navo::Document &) {
        nested = static_cast<navo::errc>(
            navo::load(sample, [](const navo::Document &) { return true; }).code.value());
        navo::Writer inside;  // a writer inside a callback does not wait for the lock
        return true;
    });
    EXPECT_EQ(navo::errc::load_in_progress, nested);
    EXPECT_EQ(navo::outcome::done, outer.outcome);
    EXPECT_EQ(previous, OnNAVODocument);
    dk_UstawCallBack(nullptr);
}

// What a host keeps from a load is its own: values, notes and the file header outlive the
// callback and the context; a Schema outlives the context it was read from.
TEST(Lifetime, KeptValuesOutliveCallbackAndContext)
{
    navo_test::ScopedTempDir tmp;
    std::vector<std::string> accounts, headers;
    std::vector<navo::ErrorNote> notes;
    navo::LoadResult result = navo::load(sample, [&](const navo::Document &d) {
        headers.emplace_back(d.header()[0]);
        std::error_code noBlock;  // TOBZWPA has no IORB: 0 records and unknown_block
        for (int r = 0; r < d.records("IORB", noBlock); r++)
            accounts.push_back(d.field("IORB", r, "NumerRachunku").substr(0, 33));
        auto n = d.error_notes();
        notes.insert(notes.end(), n.begin(), n.end());
        return true;
    });
    ASSERT_TRUE(result);
    EXPECT_EQ((std::vector<std::string>{"11112222333344445555666677778888 ", "99990000111122223333444455556666 ",
                                        "12345678901234567890123456789012 "}),
              accounts);
    ASSERT_EQ(2u, headers.size());
    EXPECT_EQ(51u, headers[0].size());
    ASSERT_EQ(1u, notes.size());
    EXPECT_EQ("E1        ", notes[0].text[0]);
    EXPECT_EQ("PRZYKLADOWY PLIK NAVO", result.file_header[0].substr(0, 21));

    navo::Schema schema = navo::schema(navo::version::v1_3);
    const navo::Block *iorb = schema.form("tobzba")->block("IORB");
    ASSERT_NE(nullptr, iorb);
    EXPECT_TRUE(iorb->repeating);
    EXPECT_EQ(36, iorb->field("NumerRachunku")->width);
    EXPECT_FALSE(schema.form("TOBZBA")->block("DIPL")->repeating);
}

// The writer refuses what the library would cut or misplace, and says why; what it accepts
// reads back.
TEST(Writer, RefusalsAndRoundTrip)
{
    navo_test::ScopedTempDir tmp;
    navo::Writer w(navo::version::v1_3);
    const int doc = w.add_document("TOBZBA");
    struct Refusal {
        std::function<void(std::error_code &)> call;
        navo::errc code;
    };
    const Refusal refusals[] = {
        {[&](auto &ec) { w.add_document("NOPE", ec); }, navo::errc::unknown_form},
        {[&](auto &ec) { w.set("TOBZBA", doc, "NOPE", 0, "Nip", "1", ec); }, navo::errc::unknown_block},
        {[&](auto &ec) { w.set("TOBZBA", doc, "DIPL", 0, "Nope", "1", ec); }, navo::errc::unknown_field},
        {[&](auto &ec) { w.set("TOBZBA", doc, "DIPL", 0, "Nip", "12345678901", ec); }, navo::errc::value_too_wide},
        {[&](auto &ec) { w.set("TOBZBA", doc, "DIPL", 0, "Nip", "1\n2", ec); }, navo::errc::bad_value},
        {[&](auto &ec) { w.set("TOBZBA", doc, "DIPL", 1, "Nip", "1", ec); }, navo::errc::bad_index},
        {[&](auto &ec) { w.set("TOBZBA", doc, "IORB", 1, "NumerRachunku", "1", ec); }, navo::errc::bad_index},
        {[&](auto &ec) { w.set("TOBZBA", doc + 1, "DIPL", 0, "Nip", "1", ec); }, navo::errc::bad_index},
        {[&](auto &ec) { w.add_record("TOBZBA", doc, "DIPL", ec); }, navo::errc::not_repeating},
        {[&](auto &ec) { w.set_header("TOBZBA", doc, {"", "123456789"}, ec); }, navo::errc::value_too_wide},
        {[&](auto &ec) { w.add_error_note("TOBZBA", doc, {"", "", "", "", ""}, ec); }, navo::errc::bad_index},
        {[&](auto &ec) { w.add_ocr_note("TOBZBA", doc, 4, {}, ec); }, navo::errc::bad_value},
        {[&](auto &ec) { w.save(tmp.path() + "/no/such/dir.navo", ec); }, navo::errc::save_failed},
    };
    for (const Refusal &r : refusals) {
        std::error_code ec;
        r.call(ec);
        EXPECT_EQ(r.code, ec) << ec.message();
    }
    EXPECT_THROW(w.set("TOBZBA", doc, "DIPL", 0, "Nip", "12345678901"), std::system_error);

    w.set_file_header({"ROUND TRIP", "20260101"});
    w.set_header("TOBZBA", doc, {"DOC-1"});
    w.set("tobzba", doc, "dipl", 0, "nip", "1234567890");
    EXPECT_EQ(1, w.add_record("TOBZBA", doc, "IORB"));
    w.set("TOBZBA", doc, "IORB", 1, "NumerRachunku", "42");
    w.add_error_note("TOBZBA", doc, {"E1"});
    w.add_ocr_note("TOBZBA", doc, 3, {"O1"});
    w.add_file_note({"F1", "F2"});
    const std::string path = tmp.path() + "/out.navo";
    w.save(path);

    std::vector<std::string> seen;
    auto result = navo::load(path, [&](const navo::Document &d) {
        seen = {std::string(d.header()[0].substr(0, 5)), d.field("DIPL", 0, "Nip"),
                d.field("IORB", 1, "NumerRachunku").substr(0, 3), d.error_notes().at(0).text[0],
                std::to_string(d.ocr_notes().at(0).kind)};
        return true;
    });
    ASSERT_TRUE(result) << result.code.message() << " line " << result.line;
    EXPECT_EQ((std::vector<std::string>{"DOC-1", "1234567890", "42 ", "E1        ", "3"}), seen);
    EXPECT_EQ("F2        ", result.file_notes.at(0).text[1]);
}

}  // namespace
