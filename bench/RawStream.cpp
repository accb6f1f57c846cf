#include "bench/RawStream.h"

#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <thread>

#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/WireClient.h"
#include "proto/gnmi.pb.h"

namespace Bench {
namespace {

using Gale::Wire::kPrefixBytes;

std::string subscribeRequest() {
    gnmi::SubscribeRequest request;
    request.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
    request.mutable_subscribe()->set_encoding(gnmi::PROTO);
    auto* path = request.mutable_subscribe()->add_subscription()->mutable_path();
    path->add_elem()->set_name("network-instances");
    return request.SerializeAsString();
}

std::size_t messageSize(std::string_view at) {
    std::uint32_t length = 0;
    std::memcpy(&length, at.data() + 1, sizeof length);
    return kPrefixBytes + ntohl(length);
}

std::uint64_t countMessages(std::string_view bytes) {
    std::uint64_t count = 0;
    while (bytes.size() >= kPrefixBytes && bytes.size() >= messageSize(bytes)) {
        bytes.remove_prefix(messageSize(bytes));
        ++count;
    }
    return count;
}

RawReply call(std::uint16_t port, const std::string& path, const std::string& request) {
    Gale::Wire::WireClient client{port, true, {{4, 0x7FFFFFFF}}};
    const auto begun = std::chrono::steady_clock::now();
    const std::uint32_t stream = client.unary(path, request);
    auto& reply = client.reply(stream);
    while (!reply.ended && client.pump()) { std::this_thread::yield(); }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
    if (!reply.ended || reply.status() != "0") {
        throw std::runtime_error{"call ended with status " + reply.status()};
    }
    RawReply result{std::move(reply.data), 0, taken.count()};
    result.messages = countMessages(result.bytes);
    return result;
}

/// Streams prepared messages, whole ones, as many as fit.
class Replay final : public Gale::Wire::CallHandler, public Gale::Wire::MessageSource {
public:
    Replay(Gale::Wire::Call& call, std::string_view bytes) : left_{bytes} { call.start(*this); }
    void onMessage(std::span<const std::byte> /*message*/) override {}
    void onHalfClose() override {}
    void onCancelled(const Gale::Wire::Status& /*why*/) override {}
    Gale::Wire::Fill fill(std::span<std::byte> out) override {
        std::size_t whole = 0;
        while (whole < left_.size()) {
            const std::size_t next = messageSize(left_.substr(whole));
            if (whole + next > out.size()) { break; }
            whole += next;
        }
        std::memcpy(out.data(), left_.data(), whole);
        left_.remove_prefix(whole);
        if (left_.empty()) { return Gale::Wire::Fill::finished(whole, {}); }
        return Gale::Wire::Fill::more(whole, messageSize(left_));
    }

private:
    std::string_view left_;
};

}  // namespace

RawReply subscribeOnce(std::uint16_t port) {
    return call(port, "/gnmi.gNMI/Subscribe", subscribeRequest());
}

RawReply subscribeUntil(std::uint16_t port, std::uint64_t entries) {
    while (true) {
        RawReply reply = subscribeOnce(port);
        if (reply.messages >= entries) { return reply; }
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
}

RawReply replay(const RawReply& of) {
    const Kiln::SteadyClock clock;
    Gale::Wire::Options options;
    options.port = 0;
    Gale::Wire::Server server{options, clock};
    server.router().add("/bench.B/Replay", Gale::Wire::MethodKind::Bidi, [&of](auto& made) {
        return std::make_unique<Replay>(made, of.bytes);
    });
    if (const auto error = server.listen()) { throw std::runtime_error{*error}; }
    server.start();
    RawReply reply = call(server.port(), "/bench.B/Replay", "");
    server.stop(Kiln::Duration::zero());
    return reply;
}

}  // namespace Bench
