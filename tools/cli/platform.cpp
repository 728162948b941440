// platform.cpp - the only place with POSIX- or Windows-only calls: terminals, unique temporary
// files, worker processes.
#include "common.hpp"

#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#ifdef _WIN32
#  include <io.h>
#  include <windows.h>
#else
#  include <fcntl.h>
#  include <sys/wait.h>
#  include <unistd.h>
#endif

namespace navo_cli {

bool stderrIsTerminal()
{
#ifdef _WIN32
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

bool seekTo(std::FILE *file, long long offset)
{
#ifdef _WIN32
    return _fseeki64(file, offset, SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

long long positionOf(std::FILE *file)
{
#ifdef _WIN32
    return _ftelli64(file);
#else
    return static_cast<long long>(ftello(file));
#endif
}

std::string createTempBeside(const std::string &target)
{
    namespace fs = std::filesystem;
    fs::path dir = fs::path(target).parent_path();
    if (dir.empty())
        dir = ".";
    std::string pattern = (dir / (".navo-" + fs::path(target).filename().string() + "-XXXXXX")).string();
#ifdef _WIN32
    for (unsigned attempt = 0; attempt < 1000; attempt++) {
        std::string name = pattern.substr(0, pattern.size() - 6) +
                           fmt::format("{:06}", (GetTickCount() + attempt * 7919u) % 1000000u);
        HANDLE h = CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            CloseHandle(h);
            return name;
        }
    }
#else
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd >= 0) {
        close(fd);
        return name.data();
    }
#endif
    throw Failure(kExitUsage, fmt::format("cannot create a file in {}", dir.string()));
}

void requireRegularFile(const std::string &path)
{
    namespace fs = std::filesystem;
    std::error_code error;
    auto status = fs::status(path, error);
    if (error || !fs::exists(status))
        throw Failure(kExitUsage, fmt::format("{}: no such file", path));
    if (fs::is_directory(status))
        throw Failure(kExitUsage, fmt::format("{}: is a directory", path));
    if (!fs::is_regular_file(status))
        throw Failure(kExitUsage, fmt::format("{}: not a regular file", path));
    std::FILE *probe = std::fopen(path.c_str(), "rb");
    if (probe == nullptr)
        throw Failure(kExitUsage, fmt::format("{}: cannot be read", path));
    std::fclose(probe);
}

int runInProcesses(size_t count, int workers, const std::function<int(size_t)> &job)
{
    int worst = 0;
#ifndef _WIN32
    if (workers > 1 && count > 1) {
        std::fflush(stdout);
        std::fflush(stderr);
        struct Running {
            pid_t pid;
            std::FILE *output;
        };
        std::vector<std::FILE *> outputs(count, nullptr);
        std::vector<int> codes(count, 0);
        std::map<pid_t, size_t> running;
        size_t next = 0;
        auto reap = [&] {
            int status = 0;
            pid_t pid = wait(&status);
            if (pid <= 0)
                return;
            auto it = running.find(pid);
            if (it == running.end())
                return;
            codes[it->second] = WIFEXITED(status) ? WEXITSTATUS(status) : kExitUsage;
            running.erase(it);
        };
        while (next < count || !running.empty()) {
            if (next < count && running.size() < static_cast<size_t>(workers)) {
                std::FILE *out = std::tmpfile();
                if (out == nullptr)
                    throw Failure(kExitUsage, "cannot create a temporary file");
                outputs[next] = out;
                pid_t pid = fork();
                if (pid == 0) {
                    dup2(fileno(out), STDOUT_FILENO);
                    int code = kExitUsage;
                    try {
                        code = job(next);
                    } catch (const Failure &failure) {
                        std::fprintf(stderr, "navo: %s\n", failure.what());
                        code = failure.exitCode;
                    } catch (const std::exception &e) {
                        std::fprintf(stderr, "navo: %s\n", e.what());
                    }
                    std::fflush(stdout);
                    std::fflush(stderr);
                    _exit(code);
                }
                if (pid < 0)
                    throw Failure(kExitUsage, "cannot start a worker process");
                running[pid] = next++;
            } else {
                reap();
            }
        }
        for (size_t i = 0; i < count; i++) {
            std::rewind(outputs[i]);
            char buffer[65536];
            size_t got;
            while ((got = std::fread(buffer, 1, sizeof buffer, outputs[i])) > 0)
                std::fwrite(buffer, 1, got, stdout);
            std::fclose(outputs[i]);
            worst = std::max(worst, codes[i]);
        }
        std::fflush(stdout);
        return worst;
    }
#else
    (void)workers;
#endif
    for (size_t i = 0; i < count; i++)
        worst = std::max(worst, job(i));
    return worst;
}

} // namespace navo_cli
