#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// One a core, up to 8.
inline unsigned int usefulThreads() {
    constexpr unsigned int kMostThreads = 8;
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
}

// The numbers below a count, handed out to several threads in pieces.
class Pieces {
 public:
    static constexpr size_t kSize = 500;

    explicit Pieces(size_t numbers) : count(numbers) {}

    // Works on one after the other until there are no more.
    template <typename Work>
    void forEachNumber(Work work) {
        for (size_t begin = 0; (begin = next.fetch_add(kSize)) < count;) {
            for (size_t number = begin; number < std::min(begin + kSize, count); ++number) {
                work(number);
            }
        }
    }
    // No more are handed out.
    void stop() { next = count; }

 private:
    size_t count;
    std::atomic<size_t> next = 0;
};

// Runs work(pieces) in this thread, and for many numbers in as many more as are useful;
// this one does something of its own first. What one of them throws is thrown when all
// have ended, and no more pieces are begun.
template <typename Work, typename OwnWork>
void inThreads(size_t count, Work work, OwnWork first) {
    Pieces pieces(count);
    std::mutex mutex;
    std::exception_ptr failure;
    const auto attempt = [&](const auto& part) {
        try {
            part();
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            failure = failure ? failure : std::current_exception();
            pieces.stop();
        }
    };
    const auto run = [&] { attempt([&] { work(pieces); }); };
    {
        std::vector<std::jthread> others;
        try {
            while (others.size() + 1 < std::min<size_t>(usefulThreads(), count / Pieces::kSize)) {
                others.emplace_back(run);
            }
        } catch (const std::system_error&) {  // no more threads to be had: fewer do it, too
        }
        attempt(first);
        run();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}
