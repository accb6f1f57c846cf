#include "platform/Gale/Wire/Listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Gale/Wire/Poll.h"

BLINK_TRACE_HANDLE("GaleWire");

namespace Gale::Wire {
namespace {

constexpr int kBacklog = 128;
constexpr int kAcceptsPerTurn = 16;

/// An IPv4 or IPv6 socket address.
struct Address {
    sockaddr_storage storage{};
    socklen_t size = sizeof(sockaddr_storage);

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    sockaddr_in* v4() { return reinterpret_cast<sockaddr_in*>(&storage); }
    sockaddr_in6* v6() { return reinterpret_cast<sockaddr_in6*>(&storage); }

    bool parse(const std::string& text, std::uint16_t port) {
        if (::inet_pton(AF_INET, text.c_str(), &v4()->sin_addr) == 1) {
            v4()->sin_family = AF_INET;
            v4()->sin_port = htons(port);
            size = sizeof(sockaddr_in);
            return true;
        }
        if (::inet_pton(AF_INET6, text.c_str(), &v6()->sin6_addr) != 1) { return false; }
        v6()->sin6_family = AF_INET6;
        v6()->sin6_port = htons(port);
        size = sizeof(sockaddr_in6);
        return true;
    }
    std::uint16_t port() {
        return ntohs(storage.ss_family == AF_INET ? v4()->sin_port : v6()->sin6_port);
    }
    std::string host() {
        std::array<char, INET6_ADDRSTRLEN> text{};
        const void* bytes = storage.ss_family == AF_INET
                                ? static_cast<const void*>(&v4()->sin_addr)
                                : static_cast<const void*>(&v6()->sin6_addr);
        ::inet_ntop(storage.ss_family, bytes, text.data(), text.size());
        return text.data();
    }
};

}  // namespace

std::string Peer::name() const {
    const bool v6 = address.find(':') != std::string::npos;
    return (v6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

Listener::Listener(uv_loop_s* loop, Accepted accepted)
    : loop_{loop}, accepted_{std::move(accepted)} {}

Listener::~Listener() {
    close();
}

std::optional<std::string> Listener::open(const std::string& address, std::uint16_t port) {
    close();
    auto failure = bindAndListen(address, port);
    if (failure) {
        close();
        return "cannot listen on " + Peer{-1, address, port}.name() + ": " + *failure;
    }
    spare_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    poll_ = std::make_unique<Poll>(loop_, socket_, [this](bool, bool) { acceptSome(); });
    poll_->want(true, false);
    return std::nullopt;
}

std::optional<std::string> Listener::bindAndListen(const std::string& address, std::uint16_t port) {
    const auto because = [] { return std::generic_category().message(errno); };
    Address bound;
    if (!bound.parse(address, port)) { return "not a numeric IPv4 or IPv6 address"; }
    socket_ = ::socket(bound.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket_ < 0) { return because(); }
    const int on = 1;
    ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket_, bound.get(), bound.size) != 0) { return because(); }
    if (::listen(socket_, kBacklog) != 0) { return because(); }
    if (::getsockname(socket_, bound.get(), &bound.size) != 0) { return because(); }
    port_ = bound.port();
    return std::nullopt;
}

void Listener::close() {
    poll_.reset();
    if (socket_ >= 0) { ::close(std::exchange(socket_, -1)); }
    if (spare_ >= 0) { ::close(std::exchange(spare_, -1)); }
}

void Listener::resume() {
    if (!std::exchange(paused_, false) || !poll_) { return; }
    if (spare_ < 0) { spare_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
    poll_->want(true, false);
}

void Listener::acceptSome() {
    for (int i = 0; i < kAcceptsPerTurn && acceptOne(); ++i) {}
}

bool Listener::acceptOne() {
    Address client;
    const int socket = ::accept4(socket_, client.get(), &client.size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket >= 0) {
        accepted_({socket, client.host(), client.port()});
        return true;
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        outOfDescriptors();
    }
    return errno == ECONNABORTED || errno == EINTR;
}

void Listener::outOfDescriptors() {
    ++turnedAway_;
    TRACE5("out of descriptors, turned away so far: {}", turnedAway_);
    if (spare_ >= 0) {
        ::close(std::exchange(spare_, -1));
        const int socket = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) { ::close(socket); }
        spare_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    paused_ = true;
    poll_->want(false, false);
    errno = EMFILE;
}

}  // namespace Gale::Wire
