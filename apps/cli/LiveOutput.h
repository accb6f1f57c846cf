#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace Pel::Cli {

/// Standard output of a command that goes on until its user ends it (Ctrl-C) or nobody reads any
/// more. Both end it in the same way: wait() and print() say so, and the command ends as one that is
/// done. Make it before any thread: from here on the signals SIGINT and SIGTERM wait to be asked for.
class LiveOutput {
public:
    enum class Reason { time, woken, over };

    LiveOutput();
    LiveOutput(const LiveOutput&) = delete;
    LiveOutput& operator=(const LiveOutput&) = delete;
    ~LiveOutput();

    /// False when it is over. A text that its reader takes at once is printed whole. For one thread
    /// at a time.
    bool print(std::string_view text);
    /// Waits for the end, for wake() from another thread, or for the time (nullopt: for ever).
    Reason wait(std::optional<std::chrono::milliseconds> time) const;
    void wake() const;
    bool over() const { return wait(std::chrono::milliseconds{0}) == Reason::over; }
    /// A terminal that shows colours, and a user who has not forbidden them (NO_COLOR).
    static bool coloured();

private:
    int signals_;
    int wake_;
};

}  // namespace Pel::Cli
