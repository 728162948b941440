// progress.hpp - the progress bar: a thread of its own polls how far the work is and draws on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

namespace navo_cli {

// How far the work is: done and total, in any unit (lines of a load, bytes of an input).
using ProgressSource = std::function<std::pair<std::int64_t, std::int64_t>()>;

// The running load's line and its file's line count (navo::progress), from any thread.
std::pair<std::int64_t, std::int64_t> load_progress();

// Standard error when it is a terminal and the bar is not turned off; else null (no bar).
std::FILE *progress_terminal(bool noProgress);

// Draws "[####    ]  42 %" on `terminal` while it lives, polling `source` every `interval` from a
// thread of its own; no thread and no bar with a null terminal. A bar is drawn only once the work
// has been seen under way, so a short work shows none.
class ProgressBar {
public:
    ProgressBar(std::FILE *terminal, ProgressSource source,
                std::chrono::milliseconds interval = std::chrono::milliseconds(100));
    ~ProgressBar();  // stops; a bar shown ends its line
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    // The work is whole: stops, and a bar shown reaches 100 %.
    void finish();

private:
    struct State;
    void stop(bool whole);
    std::unique_ptr<State> state_;
};

}  // namespace navo_cli
