// platform/workers.cpp - worker processes: fork, dup2 and waitpid on POSIX; none on Windows.
#if !defined(_WIN32) && !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // fileno
#endif

#include "platform/workers.hpp"

#include <cerrno>

#include "platform/scratch_file.hpp"

#if !defined(_WIN32)
#  include <sys/types.h>
#  include <sys/wait.h>
#  include <unistd.h>
#endif

namespace navo::platform {

#if defined(_WIN32)

bool processes_available() noexcept
{
    return false;
}

bool run_in_processes(WorkerJob *, std::size_t, int, int (*)(void *, std::size_t) noexcept, void *) noexcept
{
    errno = ENOSYS;
    return false;
}

#else

namespace {

// Waits for one child of `jobs` and notes its status; false when there is none to wait for.
bool reap(WorkerJob *jobs, std::size_t begun) noexcept
{
    int status = 0;
    pid_t pid = -1;
    do {
        pid = waitpid(-1, &status, 0);
    } while (pid < 0 && errno == EINTR);
    if (pid < 0)
        return false;
    for (std::size_t i = 0; i < begun; i++) {
        if (jobs[i].process == pid) {
            jobs[i].process = 0;
            jobs[i].exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 2;
            if (jobs[i].output != nullptr)
                std::rewind(jobs[i].output);
        }
    }
    return true;
}

}  // namespace

bool processes_available() noexcept
{
    return true;
}

bool run_in_processes(WorkerJob *jobs, std::size_t count, int processes, int (*run)(void *user, std::size_t index) noexcept,
                      void *user) noexcept
{
    std::size_t begun = 0;
    std::size_t running = 0;
    bool made = true;
    int error = 0;
    std::fflush(nullptr);  // no buffered output is copied into the children
    while (made && begun < count) {
        if (running >= static_cast<std::size_t>(processes > 0 ? processes : 1)) {
            if (!reap(jobs, begun))
                break;
            running--;
            continue;
        }
        WorkerJob &job = jobs[begun];
        job.output = open_scratch_file();
        if (job.output == nullptr) {
            made = false;
            error = errno;
            break;
        }
        const pid_t pid = fork();
        if (pid == 0) {
            int code = 2;
            if (dup2(fileno(job.output), STDOUT_FILENO) >= 0)
                code = run(user, begun);
            if (std::fflush(stdout) != 0 && code == 0)
                code = 2;
            std::fflush(stderr);
            _exit(code);
        }
        if (pid < 0) {
            made = false;
            error = errno;
            std::fclose(job.output);
            job.output = nullptr;
            break;
        }
        job.process = pid;
        begun++;
        running++;
    }
    while (running > 0 && reap(jobs, begun))
        running--;
    if (!made)
        errno = error;
    return made;
}

#endif

}  // namespace navo::platform
