#include "platform/Gale/SubscribeCall.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/WireFields.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Gale {

using namespace WireFields;
using Wire::Code;
using Wire::Fill;
using Wire::Status;

namespace {

// SubscribeResponse: update 1, sync_response 3. Notification: prefix 2. Path: target 4.
constexpr int kUpdate = 1;
constexpr int kSyncResponse = 3;
constexpr int kPrefix = 2;
constexpr int kTarget = 4;
constexpr std::string_view kSync{"\x18\x01", 2};
static_assert(kSync[0] == varintTag(kSyncResponse));

/// Rounds in which a filter may hide all before other calls get their turn.
constexpr int kBlankRounds = 16;

/// Bytes that give a Notification a target when they stand at its end: on the wire a message field
/// that comes twice is merged, so this adds to the prefix that is there.
std::string targetSuffix(const std::string& target) {
    std::string suffix;
    if (target.empty()) { return suffix; }
    appendHead(suffix, kPrefix, fieldSize(target.size()));
    appendField(suffix, kTarget, target);
    return suffix;
}

}  // namespace

SubscribeCall::SubscribeCall(Wire::Call& call,
                             std::span<const std::unique_ptr<Channel>> channels,
                             Subscribers& subscribers,
                             const Limits& limits)
    : call_(call), channels_(channels), subscribers_(subscribers), limits_(limits) {}

SubscribeCall::~SubscribeCall() {
    if (plan_) { subscribers_.remove(*this); }
}

void SubscribeCall::onMessage(std::span<const std::byte> message) {
    gnmi::SubscribeRequest request;
    if (!request.ParseFromArray(message.data(), static_cast<int>(message.size()))) {
        call_.finish({Code::InvalidArgument, "the message is no gnmi.SubscribeRequest"});
        return;
    }
    if (plan_) {
        call_.finish({Code::InvalidArgument,
                      request.has_poll() ? "poll belongs to mode POLL only"
                                         : "a call takes one subscribe message only"});
        return;
    }
    if (!request.has_subscribe()) {
        call_.finish({Code::InvalidArgument, "the first message must hold subscribe"});
        return;
    }
    auto plan = planSubscribe(request, channels_, limits_);
    if (auto* const bad = std::get_if<Status>(&plan)) {
        call_.finish(std::move(*bad));
        return;
    }
    if (subscribers_.size() >= limits_.subscribers) {
        call_.finish({Code::ResourceExhausted,
                      "there are " + std::to_string(subscribers_.size()) +
                          " subscribers, as many as are allowed"});
        return;
    }
    begin(std::move(std::get<SubscribePlan>(plan)));
}

void SubscribeCall::begin(SubscribePlan plan) {
    plan_ = std::move(plan);
    suffix_ = targetSuffix(plan_->target);
    leafFilter_.emplace(plan_->filter->patterns());
    subscribers_.add(*this);
    demand_.emplace(plan_->channel->demand, [this] {
        attach();
        resume();
    });
    if (demand_->filled()) { attach(); }
    call_.start(*this);
}

void SubscribeCall::attach() {
    cursor_.emplace(plan_->channel->journal, EntryFilter::forCursor(plan_->filter), plan_->mode);
}

void SubscribeCall::onHalfClose() {
    if (!plan_) { call_.finish({Code::InvalidArgument, "the call ended without subscribe"}); }
}

void SubscribeCall::onCancelled(const Status& /*why*/) {}

Fill SubscribeCall::fill(std::span<std::byte> out) {
    if (!cursor_) { return Fill::idle(0); }
    std::size_t written = 0;
    for (int blank = 0;;) {
        if (pending_) {
            const std::size_t size = pendingSize() + Wire::kPrefixBytes;
            if (size > out.size() - written) { return Fill::more(written, size); }
            writePending(out.data() + written);
            written += size;
        }
        if (next_ < count_) {
            pending_ = prepare(batch_[next_]);
            ++next_;
            continue;
        }
        if (state_ == Cursor::State::ended) { return Fill::finished(written, {}); }
        if (!refill()) {
            if (state_ == Cursor::State::ended) { continue; }
            if (state_ == Cursor::State::idle) {
                state_ = Cursor::State::more;  // the next call asks again
                return Fill::idle(written);
            }
            if (++blank < kBlankRounds) { continue; }
            if (written > 0) { return Fill::more(written); }
            subscribers_.wake();
            return Fill::idle(0);
        }
    }
}

/// The next batch of the cursor; false when it is empty.
bool SubscribeCall::refill() {
    const Cursor::Result result = cursor_->next(batch_);
    next_ = 0;
    count_ = result.count;
    state_ = result.state;
    return count_ > 0;
}

/// Makes the message pending; false when there is nothing of it to be sent.
bool SubscribeCall::prepare(const CursorMessage& message) {
    pendingSync_ = message.kind == CursorMessage::Kind::sync;
    if (pendingSync_) {
        synced_ = true;
        partsSent_ = {};
        return true;
    }
    if (message.content.isValue()) {
        made_.clear();
        NotificationWriter{made_}.stamp(message.content.stamp());
        plan_->channel->view->encodeValue(
            message.lane, message.key, message.content.value(), made_);
        notification_ = made_;
    } else {
        held_ = message.content.bytes();
        notification_ = held_.view();
    }
    if (message.kind == CursorMessage::Kind::update &&
        plan_->filter->of(message.lane, message.key) == EntryFilter::Coverage::part) {
        notification_ = cut(notification_, message);
    }
    return !notification_.empty();
}

/// Only the leaves asked for. When none is left of an entry that the client may hold, a delete.
std::string_view SubscribeCall::cut(std::string_view notification, const CursorMessage& message) {
    cutDown_.clear();
    const Reference self{message.lane, message.key};
    if (leafFilter_->cut(notification, cutDown_)) {
        if (!synced_) { partsSent_.insert(self); }
    } else if (synced_ || partsSent_.contains(self)) {
        LeafFilter::makeDelete(notification, cutDown_);
    }
    return cutDown_;
}

std::size_t SubscribeCall::pendingSize() const {
    return pendingSync_ ? kSync.size() : fieldSize(notification_.size() + suffix_.size());
}

void SubscribeCall::writePending(std::byte* out) {
    const auto put = [&out](std::string_view bytes) {
        std::memcpy(out, bytes.data(), bytes.size());
        out += bytes.size();
    };
    const std::size_t size = pendingSize();
    Wire::putPrefix(out, size);
    out += Wire::kPrefixBytes;
    pending_ = false;
    if (pendingSync_) {
        put(kSync);
        return;
    }
    std::array<char, 16> head{};
    head[0] = lengthTag(kUpdate);
    const int varint =
        protozero::write_varint(head.data() + 1, notification_.size() + suffix_.size());
    put({head.data(), 1 + static_cast<std::size_t>(varint)});
    put(notification_);
    put(suffix_);
    ++messages_;
    bytes_ += size;
}

SubscriberStatus SubscribeCall::status() const {
    const CursorStatistics cursor = cursor_ ? cursor_->statistics() : CursorStatistics{};
    return {.peer = std::string{call_.peer()},
            .target = plan_->target,
            .messages = messages_,
            .bytes = bytes_,
            .coalesced = cursor.coalesced,
            .lag = cursor.lag,
            .synced = synced_};
}

}  // namespace Gale
