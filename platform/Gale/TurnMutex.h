#pragma once

#include <atomic>
#include <mutex>

namespace Gale {

/// A mutex between one thread that takes it often and briefly, and others that hold it for longer
/// and take it again at once. With a common mutex the one who waits is woken too late each time, a
/// thousand times in a row; here the others let it go first.
class TurnMutex final {
public:
    TurnMutex() = default;
    TurnMutex(const TurnMutex&) = delete;
    TurnMutex& operator=(const TurnMutex&) = delete;

    /// What any thread takes: whoever waits as First has its turn before.
    void lock() {
        wanted_.wait(1);
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }

    /// Holds the mutex while it lives. One thread only has such ones, and one at a time: it waits for one hold of
    /// each other thread at most.
    class [[nodiscard]] First final {
    public:
        explicit First(TurnMutex& of) : of_(of) {
            if (of_.mutex_.try_lock()) { return; }
            of_.wanted_.store(1);
            of_.mutex_.lock();
            of_.wanted_.store(0);
            of_.wanted_.notify_all();
        }
        ~First() { of_.mutex_.unlock(); }
        First(const First&) = delete;
        First& operator=(const First&) = delete;

    private:
        TurnMutex& of_;
    };

private:
    std::mutex mutex_;
    std::atomic<int> wanted_{0};  // 1: a First waits
};

}  // namespace Gale
