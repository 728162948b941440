// test_support.h - helpers shared by the test programs: failure injection, temp dirs, files.
#ifndef NAVO_TEST_SUPPORT_H
#define NAVO_TEST_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "core/allocator.hpp"
#include "navo.h"

namespace navo_test {

// Switches allocation-failure injection off again however a test ends.
class FailureInjection {
public:
    FailureInjection() { navo::memory::reset_counters(); }
    ~FailureInjection() { navo::memory::fail_after(0, 0); }
    FailureInjection(const FailureInjection &) = delete;
    FailureInjection &operator=(const FailureInjection &) = delete;
    void failNth(int64_t n, bool sticky = false) { navo::memory::fail_after(n, sticky ? 1 : 0); }
    void off() { navo::memory::fail_after(0, 0); }
};

// A private directory used as TMPDIR for the lifetime of the object; removed with its content.
class ScopedTempDir {
public:
    ScopedTempDir();
    ~ScopedTempDir();
    ScopedTempDir(const ScopedTempDir &) = delete;
    ScopedTempDir &operator=(const ScopedTempDir &) = delete;
    const std::string &path() const { return path_; }
    std::vector<std::string> entries() const;  // names in the directory, sorted
private:
    std::string path_;
    std::string oldTmpdir_;
    bool hadTmpdir_ = false;
};

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &bytes);
bool fileExists(const std::string &path);

// Takes down, part by part, a context that dk_Destroy refuses (no tables: the interface offers the
// host no call for it), so that the test leaks nothing; sets `ctx` to null.
void releaseRefusedContext(dk_Context *&ctx);

// Loads `text` as a definition into a fresh context and prepares the document tables.
// Returns the context, or null when a step fails.
dk_Context *contextWithDefinition(const std::string &text, int32_t poolCapacity = 10);

}  // namespace navo_test

#endif
