#include "bench/RawStream.h"

#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string_view>

#include "bench/RawClient.h"
#include "platform/Gale/Wire/Server.h"

namespace Bench {
namespace {

using Gale::Wire::Fill;
using Gale::Wire::kPrefixBytes;
using Clock = std::chrono::steady_clock;

std::size_t messageSize(std::string_view at) {
    std::uint32_t length = 0;
    std::memcpy(&length, at.data() + 1, sizeof length);
    return kPrefixBytes + ntohl(length);
}

/// Streams prepared messages, whole ones, as many as fit.
class Replay final : public Gale::Wire::CallHandler, public Gale::Wire::MessageSource {
public:
    Replay(Gale::Wire::Call& call, std::string_view bytes) : left_{bytes} { call.start(*this); }
    void onMessage(std::span<const std::byte> /*message*/) override {}
    void onHalfClose() override {}
    void onCancelled(const Gale::Wire::Status& /*why*/) override {}
    Fill fill(std::span<std::byte> out) override {
        std::size_t whole = 0;
        while (whole < left_.size()) {
            const std::size_t next = messageSize(left_.substr(whole));
            if (whole + next > out.size()) { break; }
            whole += next;
        }
        std::memcpy(out.data(), left_.data(), whole);
        left_.remove_prefix(whole);
        return left_.empty() ? Fill::finished(whole, {}) : Fill::more(whole, messageSize(left_));
    }

private:
    std::string_view left_;
};

RawReply call(std::uint16_t port, Mode mode, std::uint64_t entries) {
    const auto begun = Clock::now();
    RawClient client{port, kSubscribe, subscribeRequest(mode)};
    if (mode == Mode::once) { client.keepBytes(); }
    const auto updates = [&] { return client.messages() - client.syncs(); };
    while ((mode == Mode::once || updates() < entries) && client.read()) {}
    const std::chrono::duration<double> taken = Clock::now() - begun;
    if (updates() < entries || (mode == Mode::once && client.syncs() != 1)) {
        throw std::runtime_error{"the call ended after " + std::to_string(updates()) + " updates"};
    }
    return {std::move(client.bytes()), updates(), taken.count()};
}

}  // namespace

RawReply subscribeOnce(std::uint16_t port) {
    return call(port, Mode::once, 0);
}

RawReply subscribeUntil(std::uint16_t port, std::uint64_t entries) {
    return call(port, Mode::stream, entries);
}

struct ReplayServer::Impl {
    Kiln::SteadyClock clock;
    Gale::Wire::Server server{{}, clock};
};

ReplayServer::ReplayServer(const std::string& bytes) : impl_{std::make_unique<Impl>()} {
    Gale::Wire::Server& server = impl_->server;
    server.router().add(kSubscribe, Gale::Wire::MethodKind::Bidi, [&bytes](auto& made) {
        return std::make_unique<Replay>(made, bytes);
    });
    if (const auto error = server.listen()) { throw std::runtime_error{*error}; }
    server.start();
}

ReplayServer::~ReplayServer() {
    impl_->server.stop(Kiln::Duration::zero());
}

std::uint16_t ReplayServer::port() const {
    return impl_->server.port();
}

RawReply replay(const RawReply& of) {
    const ReplayServer server{of.bytes};
    return subscribeOnce(server.port());
}

}  // namespace Bench
