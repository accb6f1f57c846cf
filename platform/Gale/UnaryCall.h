#pragma once

#include "platform/Gale/Wire/Call.h"

#include <functional>
#include <string>
#include <utility>
#include <variant>

namespace Gale {

/// One unary RPC whose answer is made at once from its request: a message, or why not.
template <class Request, class Response>
class UnaryCall final : public Wire::CallHandler {
public:
    using Answer = std::variant<Response, Wire::Status>;
    using Function = std::function<Answer(const Request&)>;

    UnaryCall(Wire::Call& call, Function function) : call_(call), function_(std::move(function)) {}

    void onMessage(std::span<const std::byte> message) override {
        Request request;
        if (!request.ParseFromArray(message.data(), static_cast<int>(message.size()))) {
            call_.finish({Wire::Code::InvalidArgument,
                          "the message is no " + Request::descriptor()->full_name()});
            return;
        }
        Answer answer = function_(request);
        if (auto* const status = std::get_if<Wire::Status>(&answer)) {
            call_.finish(std::move(*status));
            return;
        }
        const std::string bytes = std::get<Response>(answer).SerializeAsString();
        call_.reply(std::as_bytes(std::span{bytes}));
    }
    void onHalfClose() override {}
    void onCancelled(const Wire::Status& /*why*/) override {}

private:
    Wire::Call& call_;
    const Function function_;
};

}  // namespace Gale
