#pragma once

#include <algorithm>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// Runs work(begin, end) over the numbers below a count: of many in chunks, one a thread
// and a thread a core up to 8, else all at once in this one. What a chunk throws is
// thrown when all have ended.
template <typename Work>
void inChunks(size_t count, Work work) {
    constexpr size_t kSmallestChunk = 500;
    constexpr size_t kMostThreads = 8;
    const size_t cores = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMostThreads);
    const size_t chunks = std::clamp<size_t>(count / kSmallestChunk, 1, cores);
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
