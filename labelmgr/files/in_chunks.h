#pragma once

#include <algorithm>
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

// Runs work(begin, end) over the numbers below a count: of many in chunks, one a thread
// and as many as are useful, else all at once in this one. What a chunk throws is
// thrown when all have ended.
template <typename Work>
void inChunks(size_t count, Work work) {
    constexpr size_t kSmallestChunk = 500;
    const size_t chunks = std::clamp<size_t>(count / kSmallestChunk, 1, usefulThreads());
    std::mutex mutex;
    std::exception_ptr failure;
    const auto run = [&](size_t chunk) {
        try {
            work(count * chunk / chunks, count * (chunk + 1) / chunks);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            failure = failure ? failure : std::current_exception();
        }
    };
    {
        std::vector<std::jthread> threads;
        for (size_t chunk = 1; chunk < chunks; ++chunk) {
            try {
                threads.emplace_back(run, chunk);
            } catch (const std::system_error&) {  // no more threads to be had
                run(chunk);
            }
        }
        run(0);
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}
