// progress.cpp - the progress bar's thread: it polls, draws on change, and stops when told.
#include "progress.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "navo.hpp"
#include "platform/console.hpp"

namespace navo_cli {

std::pair<std::int64_t, std::int64_t> load_progress()
{
    const navo::Progress at = navo::progress();
    return {at.line, at.lines};
}

std::FILE *progress_terminal(bool noProgress)
{
    return !noProgress && navo::platform::is_terminal(stderr) ? stderr : nullptr;
}

struct ProgressBar::State {
    std::FILE *terminal;
    ProgressSource source;
    std::chrono::milliseconds interval;
    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;  // guarded by mutex
    int shown = -1;         // the percentage drawn last; only the thread touches it until joined
    std::thread thread;

    void draw(int percent)
    {
        if (percent == shown)
            return;
        shown = percent;
        constexpr int width = 40;
        const int filled = percent * width / 100;
        std::fprintf(terminal, "\r[%s%s] %3d %%", std::string(static_cast<std::size_t>(filled), '#').c_str(),
                     std::string(static_cast<std::size_t>(width - filled), ' ').c_str(), percent);
        std::fflush(terminal);
    }
    void poll()
    {
        const auto [done, total] = source();
        if (done > 0 && total > 0)
            draw(static_cast<int>(std::clamp<std::int64_t>(done * 100 / total, 0, 99)));
    }
    void run()
    {
        std::unique_lock lock(mutex);
        while (!wake.wait_for(lock, interval, [this] { return stopping; }))
            poll();
    }
};

ProgressBar::ProgressBar(std::FILE *terminal, ProgressSource source, std::chrono::milliseconds interval)
{
    if (terminal == nullptr)
        return;
    state_ = std::make_unique<State>();
    state_->terminal = terminal;
    state_->source = std::move(source);
    state_->interval = interval;
    state_->thread = std::thread([state = state_.get()] { state->run(); });
}

ProgressBar::~ProgressBar()
{
    stop(false);
}

void ProgressBar::finish()
{
    stop(true);
}

void ProgressBar::stop(bool whole)
{
    if (!state_)
        return;
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->wake.notify_all();
    state_->thread.join();
    if (state_->shown >= 0) {
        if (whole)
            state_->draw(100);
        std::fputc('\n', state_->terminal);
        std::fflush(state_->terminal);
    }
    state_.reset();
}

}  // namespace navo_cli
