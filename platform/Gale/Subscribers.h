#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Gale {

/// Of one call that reads a journal.
struct SubscriberStatus {
    std::string peer;
    std::string target;
    std::uint64_t messages = 0;   ///< updates and deletes sent; none of a Get
    std::uint64_t bytes = 0;      ///< of them, as messages
    std::uint64_t coalesced = 0;  ///< changes overtaken before they were sent
    std::uint64_t lag = 0;        ///< changes behind
    bool synced = false;
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

private:
    void resumeAll();

    const Post post_;
    std::atomic<bool> wakePosted_{false};
    std::vector<ReadingCall*> calls_;
};

}  // namespace Gale
