// test_support.h - what every test program shares: a private temporary directory, file helpers,
// resource counts, contexts, and the one failure-injection sweep all areas use.
#ifndef NAVO_TEST_SUPPORT_H
#define NAVO_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <signal.h>
#include <sys/resource.h>
#endif

#include "core/allocator.hpp"
#include "navo.h"

namespace navo_test {

// A private directory that is the library's directory for temporary files (TMPDIR; TMP and TEMP
// on Windows) while the object lives; removed with its content at the end.
class ScopedTempDir {
public:
    ScopedTempDir();
    ~ScopedTempDir();
    ScopedTempDir(const ScopedTempDir &) = delete;
    ScopedTempDir &operator=(const ScopedTempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    std::vector<std::string> entries() const;     // every name in the directory, sorted
    std::vector<std::string> spoolFiles() const;  // names beginning with P2_, sorted
private:
    std::string path_;
    std::vector<std::pair<std::string, std::string>> saved_;  // variable, old value ("\1" = unset)
};

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &bytes);
void setEnv(const char *name, const char *value);  // null value: unset

// Open file descriptors of the process (-1 where the system cannot tell).
int openDescriptors();
// Permission bits of a file, -2 when they cannot be read. Windows has no mode bits: there a
// file whose access list lets in the process's user and no other user counts as 0600, any
// other as 0.
int permissions(const std::string &path);

// A context with `definition` loaded and tables of the given pool capacity (fails the test
// otherwise); released by destroyContext, which also releases a context dk_Destroy refuses.
dk_Context *makeContext(const char *definition, int32_t poolCapacity = 10);
void destroyContext(dk_Context *&ctx);

std::string field(dk_Context *ctx, const char *form, int32_t doc, const char *block, int32_t record,
                  const char *name);  // "<fail>" when the call fails

// Failure injection done one way for every area. `setup` builds the state (not injected), `act`
// runs the step under test, `check(result, n)` states what must hold after a clean run (n = 0) or
// with the n-th allocation of `act` failing, `teardown` releases the state. The clean run counts
// the allocations of `act`; then each of them fails in turn, and after every run live blocks are
// back where they were before `setup` and no spool file is left in `tmp`. Returns the count.
struct Scenario {
    std::function<void()> setup = [] {};
    std::function<int32_t()> act;
    std::function<void(int32_t result, int64_t n)> check;
    std::function<void()> teardown = [] {};
};
int64_t sweepAllocations(const Scenario &scenario, const ScopedTempDir &tmp);

#if !defined(_WIN32)
// A file-size limit (RLIMIT_FSIZE, with SIGXFSZ ignored) stands in for a full disk while the
// object lives: a write past `bytes` fails with EFBIG.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit old_{};
    struct sigaction oldAction_ {};
};
#endif

}  // namespace navo_test

#endif
