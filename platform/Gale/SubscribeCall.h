#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/Demand.h"
#include "platform/Gale/LeafFilter.h"
#include "platform/Gale/SubscribePlan.h"
#include "platform/Gale/Subscribers.h"
#include "platform/Gale/Wire/Call.h"

#include "absl/container/flat_hash_set.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Gale {

class Channel;

/// One Subscribe RPC: checks the request, then is a cursor in the journal whose messages are
/// written to the wire when there is room. I/O thread.
class SubscribeCall final : public Wire::CallHandler, private Wire::MessageSource {
public:
    /// All outlive the call.
    SubscribeCall(Wire::Call& call,
                  std::span<const std::unique_ptr<Channel>> channels,
                  Subscribers& subscribers,
                  const Limits& limits);
    ~SubscribeCall() override;

    void onMessage(std::span<const std::byte> message) override;
    void onHalfClose() override;
    void onCancelled(const Wire::Status& why) override;

    void resume() { call_.resume(); }
    SubscriberStatus status() const;

private:
    void begin(SubscribePlan plan);
    void attach();
    Wire::Fill fill(std::span<std::byte> out) override;
    bool refill();
    bool prepare(const CursorMessage& message);
    std::string_view cut(std::string_view notification, const CursorMessage& message);
    std::size_t pendingSize() const;
    void writePending(std::byte* out);

    Wire::Call& call_;
    const std::span<const std::unique_ptr<Channel>> channels_;
    Subscribers& subscribers_;
    const Limits& limits_;

    std::optional<SubscribePlan> plan_;
    std::string suffix_;  // what is appended to each Notification: the target
    std::optional<LeafFilter> leafFilter_;
    std::optional<Demand::Token> demand_;
    std::optional<Cursor> cursor_;  // null: the entries are not there yet
    Cursor::State state_ = Cursor::State::more;
    std::array<CursorMessage, 64> batch_;
    std::size_t next_ = 0;
    std::size_t count_ = 0;

    // The message that is to be written next.
    bool pending_ = false;
    bool pendingSync_ = false;
    SharedBytes held_;               // keeps notification_ alive, or
    std::string made_;               // encoded here
    std::string cutDown_;            // scratch of the leaf filter
    std::string_view notification_;  // without suffix_

    // Entries that went out in part before the sync; afterwards a change tells by itself.
    absl::flat_hash_set<Reference> partsSent_;
    bool synced_ = false;
    std::uint64_t messages_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace Gale
