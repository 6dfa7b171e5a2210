#include "labelmgr/scan/supervision.h"

#include <cstdint>
#include <cstdio>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kPause = 500;  // milliseconds between two looks at the progress

// Those that would end the process at once.
sigset_t deadlySignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            sigaddset(&set, signal);
        }
    }
    return set;
}

}  // namespace

Supervision::Supervision(const ScanCounts& countsOfScan, std::function<void()> endScan)
    : counts(countsOfScan), end(std::move(endScan)), isTerminal(isatty(STDERR_FILENO) == 1) {
    const sigset_t set = deadlySignals();
    pthread_sigmask(SIG_BLOCK, &set, &formerMask);
    signals = UniqueFd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    stopRequest = UniqueFd(eventfd(0, EFD_CLOEXEC));
    try {
        if (!signals || !stopRequest) {
            throw std::system_error(errno, std::generic_category());
        }
        watcher = std::thread([this] { watch(); });
    } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
    }
}

Supervision::~Supervision() {
    stop();
    pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
}

void Supervision::stop() {
    if (!watcher.joinable()) {
        return;
    }
    const uint64_t once = 1;
    const ssize_t written = write(stopRequest.get(), &once, sizeof(once));
    static_cast<void>(written);
    watcher.join();
    if (isTerminal) {
        std::fputs("\r\033[K", stderr);
    }
}

void Supervision::watch() {
    for (;;) {
        pollfd events[] = {{stopRequest.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
        poll(events, std::size(events), isTerminal ? kPause : -1);
        if (events[0].revents != 0) {
            return;
        }
        signalfd_siginfo signal{};
        if (read(signals.get(), &signal, sizeof(signal)) == sizeof(signal)) {
            received = static_cast<int>(signal.ssi_signo);
            end();
        }
        if (isTerminal) {
            showProgress();
        }
    }
}

void Supervision::showProgress() const {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    const auto done = static_cast<double>(counts.done());
    std::fprintf(stderr, "\r%.0f files, %.0f files/s\033[K", done, done / elapsed.count());
}
