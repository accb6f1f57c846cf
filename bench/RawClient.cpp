#include "bench/RawClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/Gale/Wire/Call.h"
#include "platform/Gale/Wire/test/WireClient.h"
#include "proto/gnmi.pb.h"

namespace Bench {
namespace {

using Gale::Wire::kPrefixBytes;
using Gale::Wire::WireClient;

constexpr std::size_t kFrameHead = 9;
constexpr std::size_t kReadBytes = 1U << 20U;
constexpr std::uint32_t kWindow = 0x7FFFFFFF;
constexpr std::uint32_t kStream = 1;
constexpr std::size_t kSyncBytes = 2;  // of a response that says nothing else

std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    while (bytes-- > 0) { text += static_cast<char>((value >> (8 * bytes)) & 0xFFU); }
    return text;
}

std::uint32_t readNumber(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes) { value = (value << 8U) | static_cast<unsigned char>(c); }
    return value;
}

/// Moves bytes until `to` holds `size` of them. Answers whether it does.
bool gather(std::string& to, std::size_t size, std::string_view& from) {
    const std::size_t n = std::min(size - to.size(), from.size());
    to.append(from.substr(0, n));
    from.remove_prefix(n);
    return to.size() == size;
}

}  // namespace

RawClient::RawClient(std::uint16_t port, const std::string& method, std::string_view request)
    : socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)}, buffer_(kReadBytes, '\0') {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket_);
        throw std::runtime_error{"nobody listens on port " + std::to_string(port)};
    }
    send("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n");
    frame(WireClient::Settings, 0, 0, number(4, 2) + number(kWindow, 4));
    frame(WireClient::Window, 0, 0, number(kWindow - 65535, 4));
    frame(WireClient::Headers,
          WireClient::kEndHeaders,
          kStream,
          WireClient::block(WireClient::head(method)));
    frame(WireClient::Data, WireClient::kEnd, kStream, WireClient::prefixed(request));
}

RawClient::~RawClient() {
    ::close(socket_);
}

void RawClient::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n <= 0) { return; }  // the next read tells
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

void RawClient::frame(std::uint8_t type,
                      std::uint8_t flags,
                      std::uint32_t stream,
                      std::string_view payload) {
    send((number(payload.size(), 3) + number(type, 1) + number(flags, 1) + number(stream, 4))
             .append(payload));
}

bool RawClient::read(std::chrono::milliseconds patience) {
    if (ended_) { return false; }
    pollfd wait{socket_, POLLIN, 0};
    if (::poll(&wait, 1, static_cast<int>(patience.count())) <= 0) { return false; }
    const ssize_t n = ::recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (n < 0 && errno == EAGAIN) { return true; }
    if (n <= 0) { return false; }
    take(std::string_view{buffer_}.substr(0, static_cast<std::size_t>(n)));
    return true;
}

void RawClient::take(std::string_view bytes) {
    while (!bytes.empty()) {
        if (head_.size() < kFrameHead) {
            if (!gather(head_, kFrameHead, bytes)) { return; }
            frameLeft_ = readNumber(std::string_view{head_}.substr(0, 3));
        }
        const auto n = std::min<std::size_t>(frameLeft_, bytes.size());
        if (head_[3] == WireClient::Data) {
            data(bytes.substr(0, n));
        } else {
            control_.append(bytes.substr(0, n));
        }
        bytes.remove_prefix(n);
        frameLeft_ -= n;
        if (frameLeft_ == 0) { frameEnded(); }
    }
}

void RawClient::frameEnded() {
    const auto type = static_cast<std::uint8_t>(head_[3]);
    const auto flags = static_cast<std::uint8_t>(head_[4]);
    const bool end = (flags & WireClient::kEnd) != 0;
    if ((type == WireClient::Data || type == WireClient::Headers) && end) { ended_ = true; }
    if (type == WireClient::Reset || type == WireClient::Goaway) { ended_ = true; }
    if (type == WireClient::Settings && (flags & WireClient::kAck) == 0) {
        frame(WireClient::Settings, WireClient::kAck, 0, "");
    }
    if (type == WireClient::Ping && (flags & WireClient::kAck) == 0) {
        frame(WireClient::Ping, WireClient::kAck, 0, control_);
    }
    head_.clear();
    control_.clear();
}

void RawClient::data(std::string_view bytes) {
    if (keep_) { bytes_.append(bytes); }
    while (!bytes.empty()) {
        if (prefix_.size() < kPrefixBytes) {
            if (!gather(prefix_, kPrefixBytes, bytes)) { return; }
            messageLeft_ = readNumber(std::string_view{prefix_}.substr(1));
            if (messageLeft_ == kSyncBytes) { ++syncs_; }
        }
        const auto n = std::min<std::size_t>(messageLeft_, bytes.size());
        bytes.remove_prefix(n);
        messageLeft_ -= n;
        if (messageLeft_ > 0) { return; }
        ++messages_;
        prefix_.clear();
    }
}

std::string subscribeRequest(Mode mode) {
    gnmi::SubscribeRequest request;
    auto& list = *request.mutable_subscribe();
    list.set_mode(mode == Mode::once ? gnmi::SubscriptionList::ONCE
                                     : gnmi::SubscriptionList::STREAM);
    list.set_encoding(gnmi::PROTO);
    auto& subscription = *list.add_subscription();
    subscription.set_mode(gnmi::ON_CHANGE);
    subscription.mutable_path()->add_elem()->set_name("network-instances");
    return request.SerializeAsString();
}

}  // namespace Bench
