// platform/workers.hpp - jobs run in child processes, each with a standard output of its own.
#pragma once

#include <cstddef>
#include <cstdio>

namespace navo::platform {

// One job's slot, held by the caller.
struct WorkerJob {
    std::FILE *output = nullptr;  // what the job wrote to standard output, from its start once it ended; the caller closes it
    int exit_code = 0;            // the job's exit status; 2 when it ended otherwise (a signal)
    long long process = 0;        // the child running it while it runs
};

// Whether jobs can run in child processes here (POSIX: fork). Without them a program runs its
// jobs one after the other itself.
[[nodiscard]] bool processes_available() noexcept;

// Runs `run(user, i)` for each job i of jobs[0, count) in a child process of its own, at most
// `processes` at once, and waits for all of them. A child starts as a copy of the program (its
// output flushed first); its standard output goes to jobs[i].output, a scratch file; its result is
// its exit status. `run` must not return into the program's own work: the child ends right after
// it, flushing stdout and stderr. False, with errno set, when a child or a scratch file could not
// be made: the children begun are waited for, the jobs not begun keep a null output.
[[nodiscard]] bool run_in_processes(WorkerJob *jobs, std::size_t count, int processes,
                                    int (*run)(void *user, std::size_t index) noexcept, void *user) noexcept;

}  // namespace navo::platform
