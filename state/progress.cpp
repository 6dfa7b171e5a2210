#include "state/progress.h"

#include <chrono>
#include <cstdio>
#include <system_error>
#include <unistd.h>

using namespace std::chrono_literals;

Progress::Progress(const Options& options, std::function<std::string(double seconds)> describe) {
    if (options.isQuiet || isatty(STDERR_FILENO) != 1) {
        return;
    }
    try {
        shower = std::thread([this, describe = std::move(describe)] { show(describe); });
    } catch (const std::system_error&) {  // no thread to be had: the work goes on without
    }
}

Progress::~Progress() {
    if (!shower.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isOver = true;
    }
    changed.notify_one();
    shower.join();
}

void Progress::show(const std::function<std::string(double seconds)>& describe) {
    const auto begin = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex);
    bool isShown = false;
    for (auto pause = 1000ms; !changed.wait_for(lock, pause, [this] { return isOver; }); pause = 500ms) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
        std::fprintf(stderr, "\r%s, %.0f s\033[K", describe(elapsed.count()).c_str(), elapsed.count());
        isShown = true;
    }
    if (isShown) {
        std::fputs("\r\033[K", stderr);
    }
}
