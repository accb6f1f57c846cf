#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/Kiln/TaskScheduler.h"

namespace Store {

/// Hears the bell that a writer rings after each commit, and that the bell was taken away.
class BellWatch {
public:
    /// @param rung called on the scheduler; true when the bell itself changed (was removed,
    ///        replaced)
    BellWatch(Kiln::TaskScheduler& scheduler,
              const std::filesystem::path& bell,
              std::function<void(bool bellChanged)> rung);
    BellWatch(const BellWatch&) = delete;
    BellWatch& operator=(const BellWatch&) = delete;
    ~BellWatch();
    /// Ends the watch and answers the descriptor that is left to be closed. That sleeps for ten milliseconds and more,
    /// until nobody in the kernel looks at the watches; the destructor waits for it.
    int release();  // -1: nothing
    /// False when there is no bell to listen to, or not any more.
    bool listening() const { return listening_; }
    /// Why it does not listen from the beginning; empty when it did.
    const std::string& error() const { return error_; }

private:
    void drain();
    int inotify_;
    bool listening_ = false;
    std::string error_;
    std::function<void(bool)> rung_;
    Kiln::FdWatch watch_;
};

}  // namespace Store
