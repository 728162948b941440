// test_platform.cpp - the platform layer: spool files, and files that replace their target whole or not at all.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "internals.hpp"
#include "platform/replacement_file.hpp"
#include "test_support.h"

using namespace navo_test;
using navo::platform::ReplacementFile;
using Names = std::vector<std::string>;

// ---- spool files ---------------------------------------------------------------------------------

TEST(TempFile, NewEmptyPrivateFilesWithUnpredictableNames)
{
    ScopedTempDir tmp;
    const int descriptors = openDescriptors();
    std::set<std::string> names;
    for (int i = 0; i < 50; i++) {
        const std::string path = internals::createTemp(260);
        ASSERT_FALSE(path.empty());
        EXPECT_EQ(tmp.path(), std::filesystem::path(path).parent_path().generic_string());
        EXPECT_EQ("", readFile(path));
        EXPECT_EQ(0600, permissions(path)) << path;
        names.insert(path);
    }
    EXPECT_EQ(50u, names.size());
    EXPECT_EQ(50u, tmp.spoolFiles().size());
    EXPECT_EQ(descriptors, openDescriptors()) << "a descriptor per file left open";
    for (const std::string &name : names)
        std::remove(name.c_str());
#if !defined(_WIN32)
    // The random suffixes use all 62 letters and digits (one missing in 2,400 draws: p < 1e-15).
    std::set<char> seen;
    for (int i = 0; i < 200; i++) {
        const std::string path = internals::createTemp(260);
        for (char c : path.substr(path.size() - 12))
            seen.insert(c);
        std::remove(path.c_str());
    }
    EXPECT_EQ(62u, seen.size());
#endif
}

// Descriptor 0 is a descriptor like any other: with standard input closed, the new file (or the
// random source before it) gets it and is made, reported and closed as usual.
TEST(TempFile, DescriptorZeroWhenStandardInputIsClosed)
{
#if defined(_WIN32)
    GTEST_SKIP() << "POSIX descriptors: Windows makes the file through GetTempFileNameA";
#else
    ScopedTempDir tmp;
    const int input = ::dup(0);
    ASSERT_GE(input, 0);
    ::close(0);
    const int descriptors = openDescriptors();
    const std::string path = internals::createTemp(260);
    const int after = openDescriptors();
    ::dup2(input, 0);
    ::close(input);
    EXPECT_FALSE(path.empty());
    EXPECT_EQ(descriptors, after);
    std::remove(path.c_str());
#endif
}

// The path must fit with its terminator: a buffer one byte short fails, leaves `out` empty and no
// file behind; on POSIX trailing slashes of the directory are dropped and an empty TMPDIR means
// the system's directory.
TEST(TempFile, BufferAndDirectoryBoundaries)
{
    ScopedTempDir tmp;
    const std::string path = internals::createTemp(4096);
    ASSERT_FALSE(path.empty());
    std::remove(path.c_str());
    const size_t needed = path.size() + 1;
    for (size_t size : {needed - 1, needed, static_cast<size_t>(1), static_cast<size_t>(0)}) {
        bool emptied = false;
        const std::string made = internals::createTemp(size, &emptied);
        EXPECT_EQ(size >= needed, !made.empty()) << size;
        EXPECT_TRUE(made.empty() ? emptied : made.size() == needed - 1) << size;
        EXPECT_EQ(made.empty() ? 0u : 1u, tmp.spoolFiles().size()) << size;
        std::remove(made.c_str());
    }
#if defined(_WIN32)
    GTEST_SKIP() << "the Windows temporary directory comes from GetTempPathA, tested through TMP above";
#else
    setEnv("TMPDIR", (tmp.path() + "//").c_str());
    const std::string slashed = internals::createTemp(needed);
    EXPECT_EQ(path.size(), slashed.size()) << slashed;
    std::remove(slashed.c_str());
    // A relative directory, however short, is taken as it stands.
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(tmp.path());
    std::filesystem::create_directory("d");
    setEnv("TMPDIR", "d");
    const std::string relative = internals::createTemp(4096);
    std::filesystem::current_path(here);
    EXPECT_EQ("d", std::filesystem::path(relative).parent_path().generic_string());
    std::filesystem::remove_all(tmp.path() + "/d");
    setEnv("TMPDIR", (tmp.path() + "/missing").c_str());
    bool emptied = false;
    EXPECT_EQ("", internals::createTemp(4096, &emptied));
    EXPECT_TRUE(emptied);
    for (const char *value : {"", static_cast<const char *>(nullptr)}) {
        setEnv("TMPDIR", value);
        const std::string system = internals::createTemp(4096);
        ASSERT_FALSE(system.empty());
        EXPECT_NE(tmp.path(), std::filesystem::path(system).parent_path().generic_string());
        std::remove(system.c_str());
    }
    setEnv("TMPDIR", tmp.path().c_str());
#endif
}

// ---- replacement files ---------------------------------------------------------------------------

namespace {

bool put(ReplacementFile &file, const std::string &bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), file.stream()) == bytes.size();
}

}  // namespace

// The new file waits under a hidden name beside the target, which keeps its old bytes until the
// commit puts the new file in its place: for a target given with a directory or without one, with
// or without a file there, and with a name so long that only a cut copy of it fits the hidden name.
TEST(ReplacementFile, ReplacesTheTargetOnlyAtCommit)
{
    ScopedTempDir tmp;
    const std::filesystem::path home = std::filesystem::current_path();
    Names names = {"out.navo"};
#ifndef _WIN32
    names.push_back(std::string(250, 'n'));  // Windows paths have 260 bytes in all
#endif
    for (const std::string &name : names) {
        for (const bool relative : {false, true}) {
            for (const bool existing : {false, true}) {
                SCOPED_TRACE(name.substr(0, 10) + (relative ? " relative" : "") + (existing ? " replaced" : ""));
                if (relative)
                    std::filesystem::current_path(tmp.path());
                const std::string target = relative ? name : tmp.file(name);
                if (existing)
                    writeFile(target, "old");
                ReplacementFile file;
                ASSERT_TRUE(file.open(target.c_str())) << errno;
                const std::string hidden = file.path();
                EXPECT_EQ(0u, hidden.rfind((relative ? "." : tmp.file(".")) + name.substr(0, 20), 0)) << hidden;
                EXPECT_TRUE(put(file, "new") && std::fflush(file.stream()) == 0);
                EXPECT_EQ(existing ? "old" : "", readFile(target));
#ifndef _WIN32  // Windows keeps the new file to the handle that writes it
                EXPECT_EQ("new", readFile(hidden));
#endif
                EXPECT_EQ(existing ? 2u : 1u, tmp.entries().size());
                EXPECT_TRUE(file.commit()) << errno;
                EXPECT_EQ("new", readFile(target));
                EXPECT_EQ(Names{name}, tmp.entries());
                EXPECT_STREQ("", file.path());
                EXPECT_EQ(nullptr, file.stream());
                std::filesystem::current_path(home);
                std::filesystem::remove(tmp.file(name));
            }
        }
    }
}

TEST(ReplacementFile, AbandonAndTheDestructorRemoveTheNewFile)
{
    ScopedTempDir tmp;
    const std::string target = tmp.file("out.navo");
    writeFile(target, "old");
    const int descriptors = openDescriptors();
    for (const bool destroy : {false, true}) {
        {
            ReplacementFile file;
            ASSERT_TRUE(file.open(target.c_str()));
            EXPECT_TRUE(put(file, "new"));
            if (!destroy) {
                errno = EDOM;
                file.abandon();
                EXPECT_EQ(EDOM, errno);
                EXPECT_STREQ("", file.path());
                EXPECT_FALSE(file.commit());
                EXPECT_EQ(EINVAL, errno);
            }
        }
        EXPECT_EQ("old", readFile(target));
        EXPECT_EQ(Names{"out.navo"}, tmp.entries()) << destroy;
        EXPECT_EQ(descriptors, openDescriptors()) << destroy;
    }
}

// 0666 less the umask for a new file; the permission bits of a file that is replaced, even when
// they deny the writing that the open descriptor still does.
TEST(ReplacementFile, TakesTheUmaskOrTheModeOfTheFileItReplaces)
{
#ifdef _WIN32
    GTEST_SKIP() << "mode bits and the umask are POSIX; Windows files inherit their directory's access list";
#else
    ScopedTempDir tmp;
    const std::string target = tmp.file("out.navo");
    struct Case {
        mode_t umask;
        int existing;  // -1: no file at the target
        int expected;
    };
    for (const Case &c : {Case{022, -1, 0644}, Case{077, -1, 0600}, Case{022, 0640, 0640}, Case{077, 0404, 0404}}) {
        SCOPED_TRACE(testing::Message() << std::oct << c.umask << " " << c.existing);
        std::filesystem::remove(target);
        if (c.existing >= 0) {
            writeFile(target, "old");
            ASSERT_EQ(0, chmod(target.c_str(), static_cast<mode_t>(c.existing)));
        }
        const mode_t saved = umask(c.umask);
        ReplacementFile file;
        const bool opened = file.open(target.c_str());
        umask(saved);
        ASSERT_TRUE(opened);
        EXPECT_TRUE(put(file, "new"));
        EXPECT_TRUE(file.commit());
        EXPECT_EQ(c.expected, permissions(target));
        EXPECT_EQ("new", readFile(target));
    }
#endif
}

// A file-size limit stands in for a full disk: met inside the stream's buffer of 4 KiB, it fails
// the flush of the commit (with the system's errno); met by an earlier write, the stream's error
// flag fails it. Either way the old file stays whole and the new one is gone.
TEST(ReplacementFile, FailedCommitLeavesTheOldFileAndNoNewOne)
{
#ifdef _WIN32
    GTEST_SKIP() << "a full disk is stood in for by a POSIX file-size limit (RLIMIT_FSIZE)";
#else
    ScopedTempDir tmp;
    const std::string target = tmp.file("out.navo");
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction old {};
    ASSERT_EQ(0, sigaction(SIGXFSZ, &ignore, &old));
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    const int descriptors = openDescriptors();
    for (const size_t bytes : {1500u, 200000u}) {
        SCOPED_TRACE(bytes);
        writeFile(target, "old");
        ReplacementFile file;
        ASSERT_TRUE(file.open(target.c_str()));
        ASSERT_EQ(0, std::setvbuf(file.stream(), nullptr, _IOFBF, 4096));
        rlimit small = before;
        small.rlim_cur = 1000;
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
        const bool written = put(file, std::string(bytes, 'x'));
        errno = 0;
        const bool committed = file.commit();
        const int error = errno;
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
        EXPECT_EQ(bytes < 4096, written);
        EXPECT_FALSE(committed);
        EXPECT_TRUE(error == EFBIG || (bytes > 4096 && error == EIO)) << error;
        EXPECT_STREQ("", file.path());
        EXPECT_EQ("old", readFile(target));
        EXPECT_EQ(Names{"out.navo"}, tmp.entries());
        EXPECT_EQ(descriptors, openDescriptors());
    }
    ASSERT_EQ(0, sigaction(SIGXFSZ, &old, nullptr));
#endif
}

// Where no file can be made, open fails and leaves nothing.
TEST(ReplacementFile, OpenFailsInADirectoryThatCannotBeWritten)
{
#ifdef _WIN32
    GTEST_SKIP() << "a directory closed to writing is a POSIX mode bit; Windows ignores a directory's read-only flag";
#else
    ScopedTempDir tmp;
    const std::string directory = tmp.file("locked");
    ASSERT_EQ(0, mkdir(directory.c_str(), 0755));
    writeFile(directory + "/out.navo", "old");
    ASSERT_EQ(0, chmod(directory.c_str(), 0555));
    // The superuser passes any mode: the open runs as "nobody" then.
    const bool asRoot = geteuid() == 0;
    if (asRoot && seteuid(65534) != 0)
        GTEST_SKIP() << "running as root without the right to take another user's id";
    ReplacementFile file;
    errno = 0;
    const bool opened = file.open((directory + "/out.navo").c_str());
    const int error = errno;
    const bool restored = !asRoot || seteuid(0) == 0;
    chmod(directory.c_str(), 0755);
    ASSERT_TRUE(restored);
    EXPECT_FALSE(opened);
    EXPECT_EQ(EACCES, error);
    EXPECT_STREQ("", file.path());
    EXPECT_EQ(nullptr, file.stream());
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory), {}));
    EXPECT_EQ("old", readFile(directory + "/out.navo"));
#endif
}
