#include "platform/Gale/TurnMutex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace Gale {
namespace {

/// Holds the mutex, lets go and holds it again, as fast as it can.
class Reader {
public:
    explicit Reader(TurnMutex& mutex)
        : thread_([this, &mutex] {
              while (!stop_) {
                  const std::lock_guard lock{mutex};
                  ++holds_;
                  // Longer than it takes to fall asleep over it, and to be woken.
                  const auto end =
                      std::chrono::steady_clock::now() + std::chrono::microseconds{200};
                  while (std::chrono::steady_clock::now() < end) {}
              }
          }) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() {
        stop_ = true;
        thread_.join();
    }
    std::uint64_t holds() const { return holds_; }

private:
    std::atomic<bool> stop_{false};
    std::atomic<std::uint64_t> holds_{0};
    std::thread thread_;
};

TEST(TurnMutex, WhoComesFirstWaitsForAFewHoldsOfAnotherAndNotUntilThatPauses) {
    TurnMutex mutex;
    const Reader reader{mutex};
    while (reader.holds() < 10) { std::this_thread::yield(); }
    std::vector<std::uint64_t> waited;
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t seen = reader.holds();
        while (reader.holds() == seen) { std::this_thread::yield(); }  // just begun
        // Between the look at the count and the wish for the mutex this thread may be put aside.
        const std::uint64_t before = reader.holds();
        const TurnMutex::First lock{mutex};
        waited.push_back(reader.holds() - before);
    }
    std::sort(waited.begin(), waited.end());
    EXPECT_LE(waited[waited.size() * 9 / 10], 2U);
    EXPECT_GT(reader.holds(), 10U);
}

TEST(TurnMutex, NobodyElseHoldsItMeanwhile) {
    TurnMutex mutex;
    std::uint64_t sum = 0;  // the mutex's; the thread sanitizer watches, too
    constexpr int kEach = 20000;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < kEach; ++i) {
                    const std::lock_guard lock{mutex};
                    ++sum;
                }
            });
        }
        for (int i = 0; i < kEach; ++i) {
            const TurnMutex::First lock{mutex};
            ++sum;
        }
    }
    EXPECT_EQ(sum, 3U * kEach);
}

}  // namespace
}  // namespace Gale
