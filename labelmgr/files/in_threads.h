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
    static constexpr size_t kUsualSize = 500;

    explicit Pieces(size_t numbers, size_t sizeOfPiece = kUsualSize) : count(numbers), size(sizeOfPiece) {}

    // Works on one after the other until there are no more.
    template <typename Work>
    void forEachNumber(Work work) {
        for (size_t begin = 0; (begin = next.fetch_add(size)) < count;) {
            for (size_t number = begin; number < std::min(begin + size, count); ++number) {
                work(number);
            }
        }
    }
    // No more are handed out.
    void stop() { next = count; }

 private:
    size_t count;
    size_t size;
    std::atomic<size_t> next = 0;
};

// Runs work(pieces) in this thread, and for many numbers in as many more as are useful;
// this one does something of its own first. What one of them throws is thrown when all
// have ended, and no more pieces are begun.
template <typename Work, typename OwnWork>
void inThreads(size_t count, Work work, OwnWork first, size_t sizeOfPiece = Pieces::kUsualSize) {
    Pieces pieces(count, sizeOfPiece);
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
            while (others.size() + 1 < std::min<size_t>(usefulThreads(), count / sizeOfPiece)) {
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

// Sorts by a total order, parts of it in a thread each.
template <typename Value, typename Less>
void sortInThreads(std::vector<Value>& values, Less less) {
    constexpr size_t kWorthAThread = 5000;
    const size_t parts = std::clamp<size_t>(values.size() / kWorthAThread, 1, usefulThreads());
    const auto begin = [&](size_t part) {
        return values.begin() + static_cast<ptrdiff_t>(values.size() * std::min(part, parts) / parts);
    };
    const auto sortPart = [&](size_t part) { std::sort(begin(part), begin(part + 1), less); };
    inThreads(
        parts, [&](Pieces& pieces) { pieces.forEachNumber(sortPart); }, [] {}, 1);
    for (size_t width = 1; width < parts; width *= 2) {
        for (size_t part = 0; part + width < parts; part += 2 * width) {
            std::inplace_merge(begin(part), begin(part + width), begin(part + 2 * width), less);
        }
    }
}
