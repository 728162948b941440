// test_support.cpp - helpers shared by the test programs.
#include "test_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace navo_test {

ScopedTempDir::ScopedTempDir()
{
    const char *base = std::getenv("TMPDIR");
    if (base != nullptr) {
        hadTmpdir_ = true;
        oldTmpdir_ = base;
    }
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/navo-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    path_ = buffer.data();
    setenv("TMPDIR", path_.c_str(), 1);
}

ScopedTempDir::~ScopedTempDir()
{
    for (const std::string &name : entries())
        std::remove((path_ + "/" + name).c_str());
    rmdir(path_.c_str());
    if (hadTmpdir_)
        setenv("TMPDIR", oldTmpdir_.c_str(), 1);
    else
        unsetenv("TMPDIR");
}

std::vector<std::string> ScopedTempDir::entries() const
{
    std::vector<std::string> names;
    DIR *dir = opendir(path_.c_str());
    if (dir == nullptr)
        return names;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
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

bool fileExists(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

void releaseRefusedContext(dk_Context *&ctx)
{
    if (ctx == nullptr)
        return;
    if (ctx->filePool != nullptr) {
        dk_Free(ctx->filePool->blocks);
        dk_Free(ctx->filePool);
    }
    dk_Free(ctx->documentLists);
    dk_Free(ctx->footer.notes);
    dk_dfDestroy(&ctx->definitions);
    dk_sdDestroy(&ctx->dictionary);
    dk_Free(ctx);
    ctx = nullptr;
}

dk_Context *contextWithDefinition(const std::string &text, int32_t poolCapacity)
{
    dk_Context *ctx = nullptr;
    if (!dk_Init(&ctx))
        return nullptr;
    if (!dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, text.c_str()) ||
        !dk_InitDocuments(ctx, poolCapacity)) {
        return ctx;  // the caller's assertions show which step is missing
    }
    return ctx;
}

}  // namespace navo_test
