#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "base/handles.h"
#include "labelmgr/scan/label_visitor.h"

// Looks after a scan from a thread of its own: shows its progress in one line of standard
// error that is written over, while that is a terminal, and lets a request to end the
// process (SIGINT, SIGTERM, SIGHUP, where they would just kill it) end the scan first.
// Without a thread to be had the scan goes on without either.
class Supervision {
 public:
    // What is to be done when the process is asked to end comes from that thread.
    Supervision(const ScanCounts& countsOfScan, std::function<void()> endScan);
    // Signals are as before.
    ~Supervision();
    Supervision(const Supervision&) = delete;
    Supervision& operator=(const Supervision&) = delete;

    // Clears the line. Signals stay held back until the object is gone.
    void stop();
    // The signal that asked, or 0. After stop.
    int receivedSignal() const { return received; }

 private:
    void watch();
    void showProgress() const;

    const ScanCounts& counts;
    std::function<void()> end;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    bool isTerminal;
    int received = 0;
    sigset_t formerMask{};
    UniqueFd signals;
    UniqueFd stopRequest;
    std::thread watcher;
};
