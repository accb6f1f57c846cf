#include "test/soak/RawSubscriber.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <nghttp2/nghttp2.h>
#include <poll.h>
#include <proto/gnmi.pb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "test/checker/StockStream.h"

namespace Soak {
namespace {

enum FrameType : std::uint8_t {
    kData = 0,
    kHeaders = 1,
    kReset = 3,
    kSettings = 4,
    kPing = 6,
    kGoAway = 7,
    kWindowUpdate = 8
};
constexpr std::uint8_t kAck = 1;
constexpr std::uint8_t kEndStream = 1;
constexpr std::uint8_t kEndHeaders = 4;
constexpr std::uint8_t kPadded = 8;
constexpr std::uint8_t kPriority = 32;
constexpr std::size_t kFrameHeader = 9;
constexpr std::size_t kMessageHeader = 5;
constexpr std::uint32_t kStream = 1;
constexpr std::uint32_t kDefaultWindow = 65'535;
constexpr std::uint32_t kWidestWindow = 0x7FFF'FFFF;
constexpr std::size_t kInput = std::size_t{1} << 18U;
constexpr std::chrono::seconds kPause{1};

std::string big32(std::uint32_t value) {
    const std::uint32_t ordered = htonl(value);
    return {reinterpret_cast<const char*>(&ordered), sizeof ordered};
}

std::uint32_t read32(const char* from) {
    std::uint32_t value = 0;
    std::memcpy(&value, from, sizeof value);
    return ntohl(value);
}

std::string header(std::string_view name, std::string_view value) {  // literal, not indexed
    std::string made(1, '\0');
    made += static_cast<char>(name.size());
    made += name;
    made += static_cast<char>(value.size());
    made += value;
    return made;
}

std::string subscribeRequest() {
    gnmi::SubscribeRequest request;
    auto& list = *request.mutable_subscribe();
    list.set_encoding(gnmi::PROTO);
    list.mutable_prefix()->set_origin("openconfig");
    auto& subscription = *list.add_subscription();
    subscription.set_mode(gnmi::ON_CHANGE);
    for (const char* const name : {"network-instances", "network-instance", "afts"}) {
        subscription.mutable_path()->add_elem()->set_name(name);
    }
    const std::string bytes = request.SerializeAsString();
    return std::string(1, '\0') + big32(static_cast<std::uint32_t>(bytes.size())) + bytes;
}

int connectTo(std::uint16_t port) {
    const int made = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(made);
        throw std::runtime_error{"no server at port " + std::to_string(port)};
    }
    const int on = 1;
    ::setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return made;
}

}  // namespace

RawSubscriber::RawSubscriber(std::string name, std::uint16_t port, Pace pace)
    : name_{std::move(name)},
      pace_{pace},
      socket_{connectTo(port)},
      asked_{Clock::now()},
      next_{asked_ + kPause},
      input_(kInput),
      headers_{nullptr, nghttp2_hd_inflate_del} {
    nghttp2_hd_inflater* inflater = nullptr;
    nghttp2_hd_inflate_new(&inflater);
    headers_.reset(inflater);
    request();
}

RawSubscriber::~RawSubscriber() {
    ::close(socket_);
}

// Sending

void RawSubscriber::send(std::string_view bytes) {
    while (!bytes.empty() && !ended_) {
        const ssize_t size = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size < 0) { return endedWith(std::generic_category().message(errno)); }
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
}

void RawSubscriber::frame(std::uint8_t type,
                          std::uint8_t flags,
                          std::uint32_t stream,
                          std::string_view payload) {
    std::string bytes = big32(static_cast<std::uint32_t>(payload.size())).substr(1);
    bytes += static_cast<char>(type);
    bytes += static_cast<char>(flags);
    bytes += big32(stream);
    send(bytes.append(payload));
}

void RawSubscriber::windowUpdate(std::uint32_t stream, std::uint32_t bytes) {
    frame(kWindowUpdate, 0, stream, big32(bytes));
}

void RawSubscriber::request() {
    const bool wide = pace_ == Pace::fast || pace_ == Pace::neverSocket;
    send("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n");
    std::string settings{"\0\x02\0\0\0\0", 6};  // no push
    if (wide) { settings += std::string{"\0\x04", 2} + big32(kWidestWindow); }
    frame(kSettings, 0, 0, settings);
    if (wide) { windowUpdate(0, kWidestWindow - kDefaultWindow); }
    frame(kHeaders,
          kEndHeaders,
          kStream,
          header(":method", "POST") + header(":scheme", "http") +
              header(":path", "/gnmi.gNMI/Subscribe") + header(":authority", "localhost") +
              header("content-type", "application/grpc") + header("te", "trailers"));
    frame(kData, 0, kStream, subscribeRequest());
}

/// Gives back what was taken: at once where the window is small, seldom where it is not.
void RawSubscriber::credit(std::size_t bytes) {
    owed_ += bytes;
    if (owed_ == 0 || (pace_ == Pace::fast && owed_ < (kWidestWindow >> 2U))) { return; }
    windowUpdate(0, static_cast<std::uint32_t>(owed_));
    windowUpdate(kStream, static_cast<std::uint32_t>(owed_));
    owed_ = 0;
}

// Receiving

void RawSubscriber::read() {
    // Once only: who has much to read lets the others have their turn.
    const ssize_t size =
        ::recv(socket_, input_.data() + filled_, input_.size() - filled_, MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) { return; }
    if (size <= 0) {
        return endedWith(size == 0 ? "the connection was closed"
                                   : std::generic_category().message(errno));
    }
    filled_ += static_cast<std::size_t>(size);
    const std::size_t used = frames({input_.data(), filled_});
    std::memmove(input_.data(), input_.data() + used, filled_ - used);
    filled_ -= used;
}

std::size_t RawSubscriber::frames(std::string_view bytes) {
    std::size_t used = 0;
    while (bytes.size() - used >= kFrameHeader) {
        const char* const at = bytes.data() + used;
        const std::size_t length = read32(at) >> 8U;
        if (bytes.size() - used < kFrameHeader + length) { break; }
        onFrame(static_cast<std::uint8_t>(at[3]),
                static_cast<std::uint8_t>(at[4]),
                {at + kFrameHeader, length});
        used += kFrameHeader + length;
    }
    return used;
}

void RawSubscriber::onFrame(std::uint8_t type, std::uint8_t flags, std::string_view payload) {
    if ((type == kData || type == kHeaders) && (flags & kPadded) != 0) {
        const auto padding = static_cast<std::uint8_t>(payload[0]);
        payload = payload.substr(1, payload.size() - 1 - padding);
    }
    switch (type) {
        case kData:
            onData(payload);
            break;
        case kHeaders:
            onHeaders((flags & kPriority) != 0 ? payload.substr(5) : payload);
            if ((flags & kEndStream) != 0) { endedWith("status " + status_ + ": " + statusText_); }
            break;
        case kReset:
            endedWith("the stream was reset, code " + std::to_string(read32(payload.data())));
            break;
        case kSettings:
            if ((flags & kAck) == 0) { frame(kSettings, kAck, 0, {}); }
            break;
        case kPing:
            if ((flags & kAck) == 0) { frame(kPing, kAck, 0, payload); }
            break;
        default:
            break;
    }
}

void RawSubscriber::onHeaders(std::string_view payload) {
    const auto* at = reinterpret_cast<const std::uint8_t*>(payload.data());
    std::size_t left = payload.size();
    while (true) {
        nghttp2_nv field{};
        int flags = 0;
        const ssize_t used = nghttp2_hd_inflate_hd2(headers_.get(), &field, &flags, at, left, 1);
        if (used < 0) { return endedWith("headers that make no sense"); }
        at += used;
        left -= static_cast<std::size_t>(used);
        if ((flags & NGHTTP2_HD_INFLATE_EMIT) != 0) {
            const std::string name{reinterpret_cast<const char*>(field.name), field.namelen};
            const std::string value{reinterpret_cast<const char*>(field.value), field.valuelen};
            if (name == "grpc-status") { status_ = value; }
            if (name == "grpc-message") { statusText_ = value; }
        }
        if ((flags & NGHTTP2_HD_INFLATE_FINAL) != 0) { break; }
        if ((flags & NGHTTP2_HD_INFLATE_EMIT) == 0 && left == 0) { break; }
    }
    nghttp2_hd_inflate_end_headers(headers_.get());
}

bool RawSubscriber::waits() const {
    if (hurry_) { return false; }
    return pace_ == Pace::eachSecond || (slowing_ != Slowing::keepsUp && catchesUp_ == 0);
}

void RawSubscriber::onData(std::string_view payload) {
    if (pending_.empty() && !waits()) {
        // The sync may have been among them: what follows it then waits.
        const std::size_t used = messages(payload, pace_ == Pace::fast ? SIZE_MAX : 1);
        pending_ = payload.substr(used);
        credit(used);
    } else {
        pending_ += payload;
    }
    if (!waits()) { takePending(SIZE_MAX); }
}

void RawSubscriber::takePending(std::size_t limit) {
    std::size_t used = pace_ == Pace::fast ? messages(pending_, limit) : 0;
    while (limit-- > 0) {
        const std::size_t size = messages(std::string_view{pending_}.substr(used), 1);
        if (size == 0) { break; }
        used += size;
        if (waits()) { break; }
    }
    pending_.erase(0, used);
    credit(used);
}

/// Takes whole messages from the front; how many bytes they had.
std::size_t RawSubscriber::messages(std::string_view bytes, std::size_t limit) {
    const std::int64_t now = Checker::wallClockNs();
    std::size_t used = 0;
    for (; limit > 0 && bytes.size() - used >= kMessageHeader; --limit) {
        const std::size_t size = read32(bytes.data() + used + 1);
        if (bytes.size() - used < kMessageHeader + size) { break; }
        const std::string_view message = bytes.substr(used + kMessageHeader, size);
        digest_.take(message, now);
        if (catchesUp_ > 0) { --catchesUp_; }
        if (recording_.isOpen()) { recording_.message(now, message); }
        used += kMessageHeader + size;
    }
    return used;
}

// The rest

std::string RawSubscriber::recordTo(const std::filesystem::path& path) {
    return recording_.open(path);
}

/// A cursor holds back what was there at its target, and at a message a second it would stay with a target of the
/// moment when it slowed down, at which next to nothing was left to take. So it stands still first, and then
/// ends the epoch that it stood in: the next target is as old as that, and an epoch away.
void RawSubscriber::slowDown(Clock::time_point now) {
    if (!slowingUntil_) { slowingUntil_ = now + std::chrono::seconds{1}; }
    if (now < *slowingUntil_) { return; }
    if (slowing_ == Slowing::keepsUp) {
        slowing_ = Slowing::stands;
        slowingUntil_ = now + std::chrono::seconds{5};
    } else if (slowing_ == Slowing::stands) {
        slowing_ = Slowing::slow;
        catchesUp_ = 1000;
        takePending(SIZE_MAX);
    }
}

void RawSubscriber::tick(Clock::time_point now) {
    if (pace_ == Pace::liveEachSecond && digest_.synced()) { slowDown(now); }
    if (!waits() || slowing_ == Slowing::stands || now < next_) { return; }
    next_ = now + kPause;
    takePending(1);
}

void RawSubscriber::hurry() {
    hurry_ = true;
    if (pace_ != Pace::fast) { takePending(SIZE_MAX); }
}

void RawSubscriber::endedWith(const std::string& how) {
    if (ended_) { return; }
    ended_ = true;
    how_ = how;
    endedAfter_ = std::chrono::duration<double>(Clock::now() - asked_).count();
}

std::string RawSubscriber::finish() {
    if (!recording_.isOpen()) { return {}; }
    constexpr std::uint32_t kCancelled = 1;
    const std::uint32_t code =
        status_.empty() ? kCancelled : static_cast<std::uint32_t>(std::stoul(status_));
    return recording_.end(Checker::wallClockNs(), {code, how_});
}

SubscriberState RawSubscriber::state() const {
    return {name_,
            pace_,
            ended_,
            how_,
            endedAfter_,
            digest_.synced(),
            digest_.messages(),
            digest_.entries(),
            digest_.digest()};
}

}  // namespace Soak
