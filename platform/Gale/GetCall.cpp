#include "platform/Gale/GetCall.h"

#include <proto/gnmi.pb.h>

#include <cstring>
#include <utility>
#include <variant>

namespace Gale {

using Wire::Code;
using Wire::Fill;
using Wire::Status;

GetCall::~GetCall() {
    if (!answer_) { return; }
    context_.subscribers.remove(*this);
    --context_.gets;
}

void GetCall::onMessage(std::span<const std::byte> message) {
    if (auto bad = begin(message)) { call_.finish(std::move(*bad)); }
}

std::optional<Status> GetCall::begin(std::span<const std::byte> message) {
    gnmi::GetRequest request;
    if (!request.ParseFromArray(message.data(), static_cast<int>(message.size()))) {
        return Status{Code::InvalidArgument, "the message is no gnmi.GetRequest"};
    }
    auto plan = planGet(request, context_.channels, context_.limits);
    if (auto* const bad = std::get_if<Status>(&plan)) { return std::move(*bad); }
    if (auto full = context_.subscribersFull()) { return full; }
    if (context_.gets >= context_.limits.gets) {
        return Status{Code::ResourceExhausted,
                      "there are " + std::to_string(context_.gets) +
                          " Get calls under way, as many as are allowed"};
    }
    target_ = std::get<GetPlan>(plan).target;
    paths_ = request.path_size();
    begun_ = context_.clock.now();
    answer_.emplace(
        std::move(std::get<GetPlan>(plan)), context_.limits, context_.clock, [this] { resume(); });
    context_.subscribers.add(*this);
    ++context_.gets;
    call_.start(*this);
    return std::nullopt;
}

Fill GetCall::fill(std::span<std::byte> out) {
    if (message_) { return send(out); }
    switch (answer_->step()) {
        case GetAnswer::State::more:
            context_.subscribers.resumeLater(*this);
            return Fill::idle(0);
        case GetAnswer::State::waiting:
            return Fill::idle(0);
        case GetAnswer::State::failed:
            return Fill::finished(0, answer_->status());
        case GetAnswer::State::done:
            break;
    }
    message_ = answer_->takeMessage();
    return send(out);
}

Fill GetCall::send(std::span<std::byte> out) {
    const std::size_t size = Wire::kPrefixBytes + message_->size();
    if (size > out.size()) { return Fill::more(0, size); }
    Wire::putPrefix(out.data(), message_->size());
    std::memcpy(out.data() + Wire::kPrefixBytes, message_->data(), message_->size());
    message_->clear();
    message_->shrink_to_fit();
    return Fill::finished(size, {});
}

SubscriberStatus GetCall::status() const {
    const auto now = context_.clock.now();
    const auto blocked = call_.blockedSince();
    return {.peer = std::string{call_.peer()},
            .target = target_,
            .mode = "Get",
            .paths = static_cast<std::size_t>(paths_),
            .age = now - begun_,
            .messages = 0,
            .bytes = answer_->bytes(),
            .coalesced = 0,
            .lag = 0,
            .behind = {},
            .blocked = message_ && blocked ? std::optional{now - *blocked} : std::nullopt,
            .synced = message_.has_value()};
}

}  // namespace Gale
