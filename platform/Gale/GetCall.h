#pragma once

#include "platform/Gale/CallContext.h"
#include "platform/Gale/GetAnswer.h"
#include "platform/Gale/Wire/Call.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace Gale {

/// One Get RPC: checks the request, builds the answer slice by slice while others are served, and
/// sends it. I/O thread.
class GetCall final : public Wire::CallHandler, public ReadingCall, private Wire::MessageSource {
public:
    /// Both outlive the call.
    GetCall(Wire::Call& call, CallContext& context) : call_(call), context_(context) {}
    ~GetCall() override;

    void onMessage(std::span<const std::byte> message) override;
    void onHalfClose() override {}
    void onCancelled(const Wire::Status& /*why*/) override {}

    void resume() override { call_.resume(); }
    SubscriberStatus status() const override;

private:
    std::optional<Wire::Status> begin(std::span<const std::byte> message);
    Wire::Fill fill(std::span<std::byte> out) override;
    Wire::Fill send(std::span<std::byte> out);

    Wire::Call& call_;
    CallContext& context_;
    std::string target_;
    int paths_ = 0;
    Kiln::TimePoint begun_;
    std::optional<GetAnswer> answer_;
    std::optional<std::string> message_;  // complete
};

}  // namespace Gale
