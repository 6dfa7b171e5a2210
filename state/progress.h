#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "state/options.h"

// One line of standard error that is written over while something takes longer than a
// second, if that is a terminal; not with --quiet.
class Progress {
 public:
    // What is done so far, asked for from a thread of its own with the seconds since the
    // beginning.
    Progress(const Options& options, std::function<std::string(double seconds)> describe);
    // The same words all the time.
    Progress(const Options& options, const std::string& words)
        : Progress(options, [words](double) { return words; }) {}
    // Clears the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

 private:
    void show(const std::function<std::string(double seconds)>& describe);

    std::mutex mutex;
    std::condition_variable changed;
    bool isOver = false;
    std::thread shower;
};
