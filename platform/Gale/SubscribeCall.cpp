#include "platform/Gale/SubscribeCall.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/StampClock.h"
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

constexpr std::string_view kSync{"\x18\x01", 2};
static_assert(kSync[0] == varintTag(Fields::SubscribeResponse::syncResponse));

/// Rounds in which a filter may hide all before other calls get their turn.
constexpr int kBlankRounds = 16;

/// Bytes that give a Notification a target when they stand at its end: on the wire a message field
/// that comes twice is merged, so this adds to the prefix that is there.
std::string targetSuffix(const std::string& target) {
    std::string suffix;
    if (target.empty()) { return suffix; }
    appendHead(suffix, Fields::Notification::prefix, fieldSize(target.size()));
    appendField(suffix, Fields::Path::target, target);
    return suffix;
}

std::string_view modeName(const SubscribePlan& plan) {
    if (plan.poll) { return "POLL"; }
    switch (plan.mode) {
        case Cursor::Mode::stream:
            return "STREAM";
        case Cursor::Mode::updatesOnly:
            return "updates only";
        case Cursor::Mode::once:
            return "ONCE";
    }
    return {};
}

}  // namespace

SubscribeCall::~SubscribeCall() {
    if (plan_) { context_.subscribers.remove(*this); }
}

void SubscribeCall::onMessage(std::span<const std::byte> message) {
    gnmi::SubscribeRequest request;
    if (!request.ParseFromArray(message.data(), static_cast<int>(message.size()))) {
        refuse({Code::InvalidArgument, "the message is no gnmi.SubscribeRequest"});
        return;
    }
    if (plan_) {
        if (!request.has_poll()) {
            refuse({Code::InvalidArgument, "a call takes one subscribe message only"});
        } else if (!plan_->poll) {
            refuse({Code::InvalidArgument, "poll belongs to mode POLL only"});
        } else {
            poll();
        }
        return;
    }
    if (!request.has_subscribe()) {
        refuse({Code::InvalidArgument, "the first message must hold subscribe"});
        return;
    }
    auto plan = planSubscribe(request, context_.channels, context_.limits);
    if (auto* const bad = std::get_if<Status>(&plan)) {
        refuse(std::move(*bad));
        return;
    }
    if (auto full = context_.subscribersFull()) {
        refuse(std::move(*full));
        return;
    }
    begin(std::move(std::get<SubscribePlan>(plan)));
}

void SubscribeCall::refuse(Status why) {
    note(context_.subscribers.refused, why);
    call_.finish(std::move(why));
}

void SubscribeCall::note(CallFailures& failures, const Status& why) const {
    failures = {failures.count + 1, std::string{call_.peer()}, why.message, context_.clock.now()};
}

void SubscribeCall::begin(SubscribePlan plan) {
    plan_ = std::move(plan);
    begun_ = context_.clock.now();
    suffix_ = targetSuffix(plan_->target);
    leafFilter_.emplace(plan_->filter->patterns());
    if (plan_->encoding != ValueEncoding::proto) { json_ = context_.jsonForms(plan_->encoding); }
    beginRound();
    context_.subscribers.add(*this);
    call_.start(*this);
}

/// From the whole state, or what the mode wants in its place, to the sync and on.
void SubscribeCall::beginRound() {
    if (reader_) {
        reader_->restart();
    } else {
        reader_.emplace(*plan_->channel, plan_->cursorFilter, plan_->mode, [this] { resume(); });
    }
    state_ = Cursor::State::more;
    synced_ = false;
    behindSince_ = context_.clock.now();
}

void SubscribeCall::poll() {
    if (waitingPolls_ == context_.limits.waitingPolls) {
        refuse({Code::ResourceExhausted,
                std::to_string(waitingPolls_) +
                    " polls wait for their answers, as many as are allowed"});
        return;
    }
    ++waitingPolls_;
    call_.resume();
}

/// The next poll's turn; false when none waits.
bool SubscribeCall::nextRound() {
    if (waitingPolls_ == 0) { return false; }
    --waitingPolls_;
    beginRound();
    return true;
}

void SubscribeCall::onHalfClose() {
    if (!plan_) { refuse({Code::InvalidArgument, "the call ended without subscribe"}); }
    halfClosed_ = true;
    call_.resume();
}

void SubscribeCall::onCancelled(const Status& why) {
    if (why.code != Code::Cancelled) { note(context_.subscribers.terminated, why); }
}

void SubscribeCall::resume() {
    if (!behindSince_) { behindSince_ = context_.clock.now(); }
    call_.resume();
}

Fill SubscribeCall::fill(std::span<std::byte> out) {
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
        if (state_ == Cursor::State::ended) {
            if (nextRound()) { continue; }
            behindSince_.reset();
            if (plan_->poll && !halfClosed_) { return Fill::idle(written); }
            return Fill::finished(written, {});
        }
        if (!refill()) {
            if (state_ == Cursor::State::ended) { continue; }
            if (state_ == Cursor::State::idle) {
                state_ = Cursor::State::more;  // the next call asks again
                if (synced_) { behindSince_.reset(); }
                if (resends_) { call_.resumeAt(*resends_->next()); }
                return Fill::idle(written);
            }
            if (++blank < kBlankRounds) { continue; }
            if (written > 0) { return Fill::more(written); }
            context_.subscribers.resumeLater(*this);
            return Fill::idle(0);
        }
    }
}

/// The next batch of the cursor; false when it is empty.
bool SubscribeCall::refill() {
    if (resends_) { beginResend(); }
    // Before anything is looked at, so that what comes later is stamped later.
    if (reader_->resending()) { again_ = context_.stamps.again(); }
    const Cursor::Result result = reader_->next(batch_);
    next_ = 0;
    count_ = result.count;
    state_ = result.state;
    return count_ > 0;
}

/// The round that is due, unless another one is under way.
void SubscribeCall::beginResend() {
    const Kiln::TimePoint now = context_.clock.now();
    if (!reader_->resending()) { resends_->over(reader_->told()); }
    resends_->advance(now);
    if (reader_->resending()) { return; }
    if (auto round = resends_->take()) {
        reader_->resend(std::move(*round));
        if (!behindSince_) { behindSince_ = now; }
    }
}

void SubscribeCall::synced() {
    synced_ = true;
    partsSent_ = {};
    if (plan_->resends.empty()) { return; }
    resends_.emplace(plan_->resends, context_.clock.now(), reader_->told());
}

/// A value is told again as of now: with an old stamp a collector would drop it as stale, and would
/// not know how long it has stood. On the wire the later one of a field's two values counts.
void SubscribeCall::stampAgain(const CursorMessage& message) {
    stampSuffix_.clear();
    if (!message.again) { return; }
    const Content& content = message.content;
    const std::int64_t own =
        content.isValue() ? content.stamp() : PackedNotification::stamp(content.view());
    if (own >= again_) { return; }
    stampSuffix_.push_back(varintTag(Fields::Notification::timestamp));
    appendVarint(stampSuffix_, static_cast<std::uint64_t>(again_));
}

/// Makes the message pending; false when there is nothing of it to be sent.
bool SubscribeCall::prepare(const CursorMessage& message) {
    pendingSync_ = message.kind == CursorMessage::Kind::sync;
    if (pendingSync_) {
        synced();
        return true;
    }
    stampAgain(message);
    notification_ = ChannelReader::notification(
        *plan_->channel, {message.lane, message.key}, message.content, made_);
    packed_ = true;
    if (message.kind == CursorMessage::Kind::update) {
        if (json_) { prepareJson(message); }
        if (plan_->filter->of(message.lane, message.key) == EntryFilter::Coverage::part) {
            notification_ = cut(unpacked(), message);
        }
        if (notification_.empty()) { return false; }
    }
    size_ = packed_ ? PackedNotification::unpackedSize(notification_) : notification_.size();
    return true;
}

/// The pending message as it is sent.
std::string_view SubscribeCall::unpacked() {
    if (!packed_) { return notification_; }
    PackedNotification::unpack(notification_, unpacked_);
    packed_ = false;
    return unpacked_;
}

void SubscribeCall::prepareJson(const CursorMessage& message) {
    const Channel& channel = *plan_->channel;
    const Schema::Kind& kind =
        channel.schema.kinds()[channel.view->kindOf(message.lane, message.key)];
    if (message.content.isValue()) {
        madeJson_.clear();
        json_->converter().convert(kind, unpacked(), madeJson_);
        notification_ = madeJson_;
    } else {
        sharedJson_ = json_->of(kind, message.content.bytes());
        notification_ = sharedJson_.view();
        packed_ = false;
    }
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

std::size_t SubscribeCall::notificationSize() const {
    return size_ + suffix_.size() + stampSuffix_.size();
}

std::size_t SubscribeCall::pendingSize() const {
    return pendingSync_ ? kSync.size() : fieldSize(notificationSize());
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
    head[0] = lengthTag(Fields::SubscribeResponse::update);
    const int varint = protozero::write_varint(head.data() + 1, notificationSize());
    put({head.data(), 1 + static_cast<std::size_t>(varint)});
    if (packed_) {
        PackedNotification::unpack(notification_, {reinterpret_cast<char*>(out), size_});
        out += size_;
    } else {
        put(notification_);
    }
    put(suffix_);
    put(stampSuffix_);
    ++messages_;
    bytes_ += size;
}

SubscriberStatus SubscribeCall::status() const {
    const CursorStatistics cursor = reader_->statistics();
    const auto now = context_.clock.now();
    const auto blocked = call_.blockedSince();
    return {.peer = std::string{call_.peer()},
            .target = plan_->target,
            .mode = modeName(*plan_),
            .paths = plan_->paths,
            .age = now - begun_,
            .messages = messages_,
            .bytes = bytes_,
            .coalesced = cursor.coalesced,
            .lag = cursor.lag,
            .behind = behindSince_ ? std::optional{now - *behindSince_} : std::nullopt,
            .blocked = blocked ? std::optional{now - *blocked} : std::nullopt,
            .synced = synced_,
            .skipped = resends_ ? resends_->skipped() : 0};
}

}  // namespace Gale
