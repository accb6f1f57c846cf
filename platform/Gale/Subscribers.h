#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Kiln/Clock.h"

namespace Gale {

/// Of one call that reads a journal.
struct SubscriberStatus {
    std::string peer;
    std::string target;
    std::string_view mode;        ///< "STREAM", "updates only", "ONCE", "POLL" or "Get"
    std::size_t paths = 0;        ///< that it asked for
    Kiln::Duration age{};         ///< since it asked
    std::uint64_t messages = 0;   ///< updates and deletes sent; none of a Get
    std::uint64_t bytes = 0;      ///< of them, as messages
    std::uint64_t coalesced = 0;  ///< changes overtaken before they were sent
    std::uint64_t lag = 0;        ///< changes behind
    /// For how long it has not been level with the journal; nothing when it is.
    std::optional<Kiln::Duration> behind;
    /// For how long the client has taken nothing of what there is for it, see
    /// Wire::Call::blockedSince().
    std::optional<Kiln::Duration> blocked;
    bool synced = false;
    /// Samples and heartbeats left out because the one before was still under way.
    std::uint64_t skipped = 0;
};

/// Subscribe calls that did not go as their client wanted, and the last one of them.
struct CallFailures {
    std::uint64_t count = 0;
    std::string peer;
    std::string reason;
    Kiln::TimePoint at;
};

/// A call that reads a journal: a Subscribe, or a Get under way. I/O thread.
class ReadingCall {
public:
    ReadingCall() = default;
    ReadingCall(const ReadingCall&) = delete;
    ReadingCall& operator=(const ReadingCall&) = delete;
    virtual ~ReadingCall() = default;

    /// There may be more to read.
    virtual void resume() = 0;
    virtual SubscriberStatus status() const = 0;
};

/// The reading calls of one server, and how they learn of news. I/O thread, but for wake().
class Subscribers final {
public:
    /// Runs a function on the I/O thread; must be callable from any thread.
    using Post = std::function<void(std::function<void()>)>;

    explicit Subscribers(Post post) : post_(std::move(post)) {}
    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    /// There is something new in a journal. Any thread; costs one atomic operation while the I/O
    /// thread has not taken note of the last one.
    void wake();
    /// The call is resumed once all others have had their turn.
    void resumeLater(ReadingCall& call);

    void add(ReadingCall& call);
    void remove(ReadingCall& call);
    std::size_t size() const { return calls_.size(); }
    std::vector<SubscriberStatus> status() const;

    CallFailures refused;     ///< their request could not be served
    CallFailures terminated;  ///< ended by this side: no data taken, deadline over

private:
    void resumeAll();

    const Post post_;
    std::atomic<bool> wakePosted_{false};
    std::vector<ReadingCall*> calls_;
};

}  // namespace Gale
