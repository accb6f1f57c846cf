#pragma once

#include "platform/Gale/CallContext.h"
#include "platform/Gale/ChannelReader.h"
#include "platform/Gale/LeafFilter.h"
#include "platform/Gale/PackedNotification.h"
#include "platform/Gale/ResendSchedule.h"
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

/// One Subscribe RPC: checks the request, then is a cursor in the journal whose messages are
/// written to the wire when there is room. For each poll it is a new cursor; between a stream's epochs
/// there are its rounds, of samples and heartbeats. I/O thread.
class SubscribeCall final : public Wire::CallHandler,
                            public ReadingCall,
                            private Wire::MessageSource {
public:
    /// Both outlive the call.
    SubscribeCall(Wire::Call& call, CallContext& context) : call_(call), context_(context) {}
    ~SubscribeCall() override;

    void onMessage(std::span<const std::byte> message) override;
    void onHalfClose() override;
    void onCancelled(const Wire::Status& why) override;

    void resume() override;
    SubscriberStatus status() const override;

private:
    void refuse(Wire::Status why);
    void note(CallFailures& failures, const Wire::Status& why) const;
    void begin(SubscribePlan plan);
    void beginRound();
    void poll();
    bool nextRound();
    Wire::Fill fill(std::span<std::byte> out) override;
    bool refill();
    void beginResend();
    void synced();
    void stampAgain(const CursorMessage& message);
    bool prepare(const CursorMessage& message);
    void prepareJson(const CursorMessage& message);
    std::string_view unpacked();
    std::size_t notificationSize() const;
    std::size_t pendingSize() const;
    std::string_view cut(std::string_view notification, const CursorMessage& message);
    void writePending(std::byte* out);

    Wire::Call& call_;
    CallContext& context_;

    std::optional<SubscribePlan> plan_;
    std::shared_ptr<JsonForms> json_;  // null: PROTO
    std::string suffix_;               // what is appended to each Notification: the target
    std::optional<LeafFilter> leafFilter_;
    std::optional<ChannelReader> reader_;
    std::optional<ResendSchedule> resends_;  // from the sync on, if there are to be rounds
    Cursor::State state_ = Cursor::State::more;
    std::array<CursorMessage, 256> batch_;
    std::size_t next_ = 0;
    std::size_t count_ = 0;

    // The message that is to be written next.
    bool pending_ = false;
    bool pendingSync_ = false;
    std::string_view notification_;  // without suffix_; stands in batch_ or in one of those below
    bool packed_ = false;            // it is still to be unpacked
    std::size_t size_ = 0;           // of it when it is unpacked
    std::string stampSuffix_;        // what is appended to it in a round: a later stamp
    SharedBytes sharedJson_;
    PackedNotification made_;
    std::string unpacked_;
    std::string madeJson_;
    std::string cutDown_;

    // Entries that went out in part before the sync; afterwards a change tells by itself.
    absl::flat_hash_set<Reference> partsSent_;
    bool synced_ = false;
    std::int64_t again_ = 0;  // stamp of what is told again in this batch
    Kiln::TimePoint begun_;
    std::optional<Kiln::TimePoint> behindSince_;  // nothing: level with the journal
    std::size_t waitingPolls_ = 0;
    bool halfClosed_ = false;
    std::uint64_t messages_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace Gale
