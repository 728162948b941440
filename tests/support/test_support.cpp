// test_support.cpp - helpers shared by the test programs.
#include "test_support.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <sys/stat.h>

#if defined(_WIN32)
#include <windows.h>
#include <aclapi.h>
#include <io.h>
#include <stdlib.h>
#endif

namespace fs = std::filesystem;

namespace navo_test {

namespace {
#if defined(_WIN32)
const char *const kTempVariables[] = {"TMP", "TEMP", "TMPDIR"};
#else
const char *const kTempVariables[] = {"TMPDIR"};
#endif
}  // namespace

void setEnv(const char *name, const char *value)
{
#if defined(_WIN32)
    _putenv_s(name, value != nullptr ? value : "");
#else
    if (value != nullptr)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

ScopedTempDir::ScopedTempDir()
{
    std::random_device random;
    fs::path base = fs::temp_directory_path();
    for (int attempt = 0; path_.empty(); attempt++) {
        fs::path candidate = base / ("navo-test-" + std::to_string(random()));
        if (fs::create_directory(candidate))
            path_ = candidate.generic_string();
        if (attempt > 100)
            throw std::runtime_error("no temporary directory");
    }
    for (const char *name : kTempVariables) {
        const char *old = std::getenv(name);
        saved_.emplace_back(name, old != nullptr ? old : "\1");
        setEnv(name, path_.c_str());
    }
}

ScopedTempDir::~ScopedTempDir()
{
    for (const auto &[name, value] : saved_)
        setEnv(name.c_str(), value == "\1" ? nullptr : value.c_str());
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> ScopedTempDir::entries() const
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> ScopedTempDir::spoolFiles() const
{
    std::vector<std::string> names = entries();
    std::erase_if(names, [](const std::string &name) { return name.rfind("P2_", 0) != 0; });
    return names;
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

int openDescriptors()
{
#if defined(__linux__)
    int count = 0;
    for ([[maybe_unused]] const fs::directory_entry &entry : fs::directory_iterator("/proc/self/fd"))
        count++;
    return count;
#elif defined(_WIN32)
    // The C runtime's descriptors, which the spool's streams are: the process's handle count is
    // no measure, since Wine always reports 0. A closed descriptor is an invalid parameter, which
    // must not end the process here.
    const _invalid_parameter_handler previous =
        _set_invalid_parameter_handler([](const wchar_t *, const wchar_t *, const wchar_t *, unsigned, uintptr_t) {});
    int count = 0;
    for (int descriptor = 0; descriptor < 2048; descriptor++)  // the runtime's most
        count += _get_osfhandle(descriptor) != -1;
    _set_invalid_parameter_handler(previous);
    return count;
#else
    return -1;
#endif
}

#if defined(_WIN32)
namespace {
// A file's access list is owner-only when it lets in the user this process runs as and no one
// else but the system itself: Windows keeps the library's one ACE as it is, Wine turns the list
// into mode bits and reports them back with an ACE for SYSTEM beside the user's.
bool onlyTheProcessUserIsLetIn(PACL dacl)
{
    union {
        TOKEN_USER user;
        unsigned char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } self;
    HANDLE token = nullptr;
    DWORD size = 0;
    if (dacl == nullptr || !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    const BOOL known = GetTokenInformation(token, TokenUser, &self, sizeof self, &size);
    CloseHandle(token);
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    PSID system = nullptr;
    if (!known || !AllocateAndInitializeSid(&ntAuthority, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0, &system))
        return false;
    bool user = false, others = false;
    for (DWORD i = 0; i < dacl->AceCount; i++) {
        void *ace = nullptr;
        if (!GetAce(dacl, i, &ace) || static_cast<ACE_HEADER *>(ace)->AceType != ACCESS_ALLOWED_ACE_TYPE)
            continue;
        PSID sid = &static_cast<ACCESS_ALLOWED_ACE *>(ace)->SidStart;
        if (EqualSid(sid, self.user.User.Sid))
            user = true;
        else if (!EqualSid(sid, system))
            others = true;
    }
    FreeSid(system);
    return user && !others;
}
}  // namespace
#endif

int permissions(const std::string &path)
{
#if defined(_WIN32)
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, &dacl, nullptr, &descriptor) != ERROR_SUCCESS)
        return -2;
    const bool ownerOnly = onlyTheProcessUserIsLetIn(dacl);
    LocalFree(descriptor);
    return ownerOnly ? 0600 : 0;
#else
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 0777) : -2;
#endif
}

dk_Context *makeContext(const char *definition, int32_t poolCapacity)
{
    dk_Context *ctx = nullptr;
    EXPECT_EQ(1, dk_Init(&ctx));
    EXPECT_EQ(1, dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, definition));
    EXPECT_EQ(1, dk_InitDocuments(ctx, poolCapacity));
    return ctx;
}

void destroyContext(dk_Context *&ctx)
{
    if (ctx == nullptr || dk_Destroy(&ctx) == 1)
        return;
    // dk_Destroy refuses a context without tables; a host gives it a definition and tables.
    if (ctx->dictionary != nullptr && ctx->dictionary->buckets != nullptr && ctx->definitions != nullptr) {
        if (ctx->definitions->count == 0 || ctx->definitions->items[0].formCount == 0) {
            while (ctx->definitions->count > 0)
                dk_dfDestroyDefinition(ctx->definitions, 0);
            dk_sdDestroy(&ctx->dictionary);
            dk_sdInit(&ctx->dictionary, 400);
            dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, "Wersja 0\n\n[F, F]\n\n");
        }
        if (ctx->documentLists == nullptr)
            dk_InitDocuments(ctx, 1);
        if (dk_Destroy(&ctx) == 1)
            return;
    }
    // A context dk_Init could not finish: taken down part by part.
    dk_Free(ctx->documentLists);
    if (ctx->filePool != nullptr)
        dk_Free(ctx->filePool->blocks);
    dk_Free(ctx->filePool);
    dk_Free(ctx->footer.notes);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    dk_Free(ctx);
    ctx = nullptr;
}

std::string field(dk_Context *ctx, const char *form, int32_t doc, const char *block, int32_t record, const char *name)
{
    char out[128];
    if (!dk_GetField(ctx, form, doc, block, record, name, out, sizeof out))
        return "<fail>";
    return out;
}

int64_t sweepAllocations(const Scenario &scenario, const ScopedTempDir &tmp)
{
    const int64_t live = navo::memory::live_blocks();
    auto runOnce = [&](int64_t n) {
        SCOPED_TRACE(n == 0 ? std::string("clean run") : "allocation " + std::to_string(n) + " fails");
        scenario.setup();
        navo::memory::reset_counters();
        navo::memory::fail_after(n);
        const int32_t result = scenario.act();
        navo::memory::fail_after(0);
        const int64_t made = navo::memory::allocations();
        scenario.check(result, n);
        scenario.teardown();
        EXPECT_EQ(live, navo::memory::live_blocks()) << "leak";
        EXPECT_EQ(std::vector<std::string>{}, tmp.spoolFiles()) << "spool files left behind";
        return made;
    };
    const int64_t count = runOnce(0);
    for (int64_t n = 1; n <= count && !::testing::Test::HasFatalFailure(); n++)
        runOnce(n);
    return count;
}

#if !defined(_WIN32)
FileSizeLimit::FileSizeLimit(rlim_t bytes)
{
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, &oldAction_);
    getrlimit(RLIMIT_FSIZE, &old_);
    rlimit small = old_;
    small.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &small);
}

FileSizeLimit::~FileSizeLimit()
{
    setrlimit(RLIMIT_FSIZE, &old_);
    sigaction(SIGXFSZ, &oldAction_, nullptr);
}
#endif

}  // namespace navo_test
