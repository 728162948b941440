// test_status.cpp - core/status: the error catalogue, the status calls, the hooks and the callback.
#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <string>

#include "test_support.h"

#include "core/status.hpp"

namespace {

// The catalogue's messages, encoded in CP1250 (python3: s.encode('cp1250')).
const char *const kMessages[11] = {
    "Wszystko jest w porz\xB9" "dku",
    "Z\xB3" "y format pliku NAVO - to nie jest plik NAVO",
    "Nie powiod\xB3" "a sie pr\xF3" "ba otwarcia pliku NAVO",
    "B\xB3\xB9" "d odczytu - niespodziewany koniec pliku",
    "Z\xB3" "y format pliku - oczekiwano innego wpisu",
    "Z\xB3" "y format dokumentu - b\xB3\xB9" "d podczas analizy dokumentu",
    "Wyst\xB9" "pi\xB3" " nieoczekiwany blok, kt\xF3" "rego nie ma w definicji dokumentu",
    "Z\xB3" "y rozmiar bloku",
    "B\xB3\xB9" "d systemu - nie uda\xB3" "o si\xEA utworzy\xE6 dokumentu",
    "Brak wolnej pami\xEA" "ci !",
    "Anulowano",
};
const size_t kLengths[11] = {24, 45, 42, 42, 42, 53, 65, 17, 47, 21, 9};

// Fills a buffer with a marker first, so zeroing shows.
std::string messageOf(int32_t code, int32_t size, int32_t *result)
{
    std::string buffer(static_cast<size_t>(size), '#');
    *result = dk_GetNAVOErrorMessage(code, &buffer[0], size);
    for (char c : buffer)
        if (c == '#')
            ADD_FAILURE() << "byte left unzeroed for code " << code;
    EXPECT_EQ(buffer[static_cast<size_t>(size) - 1], '\0');
    return std::string(buffer.c_str());
}

struct CallRecord {
    int calls = 0;
    dk_Context *ctx = nullptr;
    std::string form;
    int32_t docIndex = -1;
};
CallRecord g_record;
int32_t g_answer = 0;

int32_t NAVO_CALL recordingCallback(dk_Context *ctx, const char *form, int32_t docIndex)
{
    g_record.calls++;
    g_record.ctx = ctx;
    g_record.form = form;
    g_record.docIndex = docIndex;
    return g_answer;
}

class Status : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_record = CallRecord();
        g_answer = 0;
        dk_UstawCallBack(nullptr);
    }
    void TearDown() override
    {
        dk_UstawCallBack(nullptr);
        navo::status::set_last_error(0);
    }
};

}  // namespace

TEST_F(Status, CatalogueHasElevenRowsWithExactCp1250Bytes)
{
    for (int i = 0; i < static_cast<int>(navo::status::catalogue.size()); i++) {
        EXPECT_EQ(navo::status::catalogue[i].code, i);
        EXPECT_EQ(navo::status::catalogue[i].text, kMessages[i]) << "code " << i;
        EXPECT_EQ(navo::status::catalogue[i].text.size(), kLengths[i]) << "code " << i;
    }
}

TEST_F(Status, LongestMessageHas65Characters)
{
    size_t longest = 0;
    for (const navo::status::Message &row : navo::status::catalogue)
        longest = std::max(longest, row.text.size());
    EXPECT_EQ(longest, 65u);
}

TEST_F(Status, EveryMessageComesWholeInABufferOf200)
{
    for (int32_t code = 0; code <= 10; code++) {
        int32_t result = -1;
        EXPECT_EQ(messageOf(code, 200, &result), kMessages[code]) << "code " << code;
        EXPECT_EQ(result, 1);
    }
}

TEST_F(Status, MessageInExactlyLengthPlusOneBytes)
{
    for (int32_t code = 0; code <= 10; code++) {
        int32_t result = -1;
        EXPECT_EQ(messageOf(code, static_cast<int32_t>(kLengths[code]) + 1, &result), kMessages[code]);
        EXPECT_EQ(result, 1);
    }
}

TEST_F(Status, Size25GivesTheWholeMessageOfCode0)
{
    int32_t result = -1;
    std::string text = messageOf(0, 25, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(text, "Wszystko jest w porz\xB9" "dku");
    EXPECT_EQ(text.size(), 24u);
}

TEST_F(Status, Size24GivesTheFirst23CharactersTerminated)
{
    int32_t result = -1;
    std::string text = messageOf(0, 24, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(text, "Wszystko jest w porz\xB9" "dk");
    EXPECT_EQ(text.size(), 23u);
}

TEST_F(Status, Size1GivesAnEmptyTextAndSuccess)
{
    for (int32_t code = 0; code <= 10; code++) {
        int32_t result = -1;
        EXPECT_EQ(messageOf(code, 1, &result), "");
        EXPECT_EQ(result, 1);
    }
}

TEST_F(Status, TruncationCountsAsSuccessForEverySize)
{
    for (int32_t code = 0; code <= 10; code++) {
        for (int32_t size = 1; size <= 70; size++) {
            int32_t result = -1;
            std::string text = messageOf(code, size, &result);
            EXPECT_EQ(result, 1);
            size_t expected = std::min(kLengths[code], static_cast<size_t>(size - 1));
            EXPECT_EQ(text, std::string(kMessages[code], expected));
        }
    }
}

TEST_F(Status, CodesOutsideTheCatalogueGiveZeroAndAnEmptyText)
{
    const int32_t codes[] = {11, 12, -1, -10, 100, INT32_MAX, INT32_MIN};
    for (int32_t code : codes) {
        for (int32_t size : {1, 2, 25, 200}) {
            int32_t result = -1;
            EXPECT_EQ(messageOf(code, size, &result), "");
            EXPECT_EQ(result, 0) << "code " << code;
        }
    }
}

TEST_F(Status, ErrorBeforeAnyLoadIsZeroWithItsMessage)
{
    // Nothing in this program has loaded a file: the module-wide state starts zero.
    EXPECT_EQ(dk_GetNAVOError(), 0);
    char out[200];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(dk_GetLastNAVOErrorMessage(out, 200), 1);
    EXPECT_STREQ(out, "Wszystko jest w porz\xB9" "dku");
    EXPECT_EQ(out[199], '\0');
}

TEST_F(Status, LastMessageFollowsTheCodeTheLoadersSet)
{
    char out[200];
    for (int32_t code = 0; code <= 10; code++) {
        navo::status::set_last_error(code);
        EXPECT_EQ(dk_GetNAVOError(), code);
        EXPECT_EQ(navo::status::last_error(), code);
        EXPECT_EQ(dk_GetLastNAVOErrorMessage(out, 200), 1);
        EXPECT_STREQ(out, kMessages[code]);
    }
    navo::status::set_last_error(10);
    EXPECT_EQ(dk_GetLastNAVOErrorMessage(out, 200), 1);
    EXPECT_STREQ(out, "Anulowano");
    EXPECT_EQ(dk_GetLastNAVOErrorMessage(out, 5), 1);
    EXPECT_STREQ(out, "Anul");
    navo::status::set_last_error(42);
    EXPECT_EQ(dk_GetLastNAVOErrorMessage(out, 200), 0);
    EXPECT_STREQ(out, "");
}

TEST_F(Status, RaiseErrorSetsTheCodeAndAnswersLikeTheHook)
{
    EXPECT_EQ(navo::status::raise(4), 0);
    EXPECT_EQ(dk_GetNAVOError(), 4);
    EXPECT_EQ(navo::status::raise(0), 1);
    EXPECT_EQ(dk_GetNAVOError(), 0);
}

TEST_F(Status, LineCounterIsWhatGetNAVOLineReturns)
{
    int32_t saved = i_lNumerLinii;
    i_lNumerLinii = 1;
    EXPECT_EQ(dk_GetNAVOLine(), 1);
    i_lNumerLinii = 12345;
    EXPECT_EQ(dk_GetNAVOLine(), 12345);
    i_lNumerLinii = saved;
}

TEST_F(Status, OnNAVOErrorIsOneOnlyForZero)
{
    EXPECT_EQ(dk_OnNAVOError(0), 1);
    for (int32_t code = 1; code <= 10; code++)
        EXPECT_EQ(dk_OnNAVOError(code), 0) << "code " << code;
    for (int32_t code : {11, -1, 1000, INT32_MAX, INT32_MIN})
        EXPECT_EQ(dk_OnNAVOError(code), 0) << "code " << code;
}

TEST_F(Status, OnNAVOErrorChangesNoState)
{
    navo::status::set_last_error(3);
    i_lNumerLinii = 7;
    dk_OnNAVOError(5);
    dk_OnNAVOError(0);
    EXPECT_EQ(dk_GetNAVOError(), 3);
    EXPECT_EQ(dk_GetNAVOLine(), 7);
}

TEST_F(Status, OnNAVOBlockDoesNothing)
{
    navo::status::set_last_error(6);
    i_lNumerLinii = 9;
    dk_OnNAVOBlock(nullptr, "TOBZUA", 0, "IORB", 3);
    EXPECT_EQ(dk_GetNAVOError(), 6);
    EXPECT_EQ(dk_GetNAVOLine(), 9);
}

TEST_F(Status, OnNAVODocumentWithoutCallbackGivesZero)
{
    EXPECT_EQ(OnNAVODocument, nullptr);
    EXPECT_EQ(dk_OnNAVODocument(nullptr, "TOBZUA", 0), 0);
}

TEST_F(Status, OnNAVODocumentMapsCallbackResults)
{
    dk_UstawCallBack(recordingCallback);
    EXPECT_EQ(OnNAVODocument, &recordingCallback);
    const struct {
        int32_t answer;
        int32_t expected;
    } cases[] = {{-1, 2}, {1, 2}, {0, 0}, {2, 2}, {INT32_MIN, 2}, {INT32_MAX, 2}};
    dk_Context *marker = reinterpret_cast<dk_Context *>(&g_record);
    for (const auto &c : cases) {
        g_answer = c.answer;
        int before = g_record.calls;
        EXPECT_EQ(dk_OnNAVODocument(marker, "TOBZUA", 3), c.expected) << "answer " << c.answer;
        EXPECT_EQ(g_record.calls, before + 1);
        EXPECT_EQ(g_record.ctx, marker);
        EXPECT_EQ(g_record.form, "TOBZUA");
        EXPECT_EQ(g_record.docIndex, 3);
    }
}

TEST_F(Status, UstawCallBackWithNullClearsTheCallback)
{
    dk_UstawCallBack(recordingCallback);
    g_answer = 1;
    EXPECT_EQ(dk_OnNAVODocument(nullptr, "TOBZBA", 0), 2);
    dk_UstawCallBack(nullptr);
    EXPECT_EQ(OnNAVODocument, nullptr);
    int before = g_record.calls;
    EXPECT_EQ(dk_OnNAVODocument(nullptr, "TOBZBA", 0), 0);
    EXPECT_EQ(g_record.calls, before);
}

TEST_F(Status, HostMayWriteTheExportedVariableDirectly)
{
    OnNAVODocument = recordingCallback;
    g_answer = -1;
    EXPECT_EQ(dk_OnNAVODocument(nullptr, "TOBZUA", 0), 2);
    OnNAVODocument = nullptr;
}

TEST(StatusExports, SharedObjectExportsTheVariablesAndHidesTheInternals)
{
    void *library = dlopen(NAVO_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const char *name : {"i_lNumerLinii", "i_lLinii", "OnNAVODocument", "dk_GetNAVOLine", "dk_GetNAVOError",
                             "dk_GetNAVOErrorMessage", "dk_GetLastNAVOErrorMessage", "dk_UstawCallBack",
                             "dk_OnNAVOError", "dk_OnNAVOBlock", "dk_OnNAVODocument"})
        EXPECT_NE(dlsym(library, name), nullptr) << name;
    for (const char *name : {"i_lKodBledu", "dk_ErrorCatalogue", "dk_SetErrorCode", "dk_GetErrorCode",
                             "dk_RaiseError"})
        EXPECT_EQ(dlsym(library, name), nullptr) << name;

    // The shared object's own state: the variables are the ones its functions use.
    auto *line = static_cast<int32_t *>(dlsym(library, "i_lNumerLinii"));
    auto getLine = reinterpret_cast<int32_t (*)(void)>(dlsym(library, "dk_GetNAVOLine"));
    ASSERT_NE(line, nullptr);
    ASSERT_NE(getLine, nullptr);
    *line = 77;
    EXPECT_EQ(getLine(), 77);
    dlclose(library);
}
