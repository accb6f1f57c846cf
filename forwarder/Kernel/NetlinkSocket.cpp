#include "forwarder/Kernel/NetlinkSocket.h"

#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("ForwarderKernel");

namespace Pel::Forwarder {

namespace {

// One message, however large: a notification of a group of the largest size is below 64 KiB with
// its attributes, and dumps come in pieces of 32 KiB.
constexpr std::size_t kDatagram = 256UL * 1024;

constexpr int kGroups[] = {
    RTNLGRP_LINK, RTNLGRP_NEIGH, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_NEXTHOP};

// VNI filters; the distribution's headers do not have them.
constexpr int kTunnelGroup = 35;
constexpr std::uint32_t kWithVlanRanges = 4;  // RTEXT_FILTER_BRVLAN_COMPRESSED
constexpr std::uint16_t kNexthopOptions = 14;
constexpr std::uint32_t kWithCounts = 3;                // in software and in hardware
constexpr std::byte kTunnelsWithCounts = std::byte{1};  // in the fixed header

/// Length of the fixed header of a GET message. All begin with the family, and a kernel that is not
/// strict takes the longest for any of them, others do not.
std::size_t fixedHeader(std::uint16_t type) {
    switch (type) {
        case RTM_GETLINK:
            return sizeof(ifinfomsg);
        case RTM_GETNEXTHOP:
        case kGetTunnel:
            return 8;
        default:
            return sizeof(rtmsg);
    }
}

}  // namespace

NetlinkSocket::NetlinkSocket(std::size_t receiveBuffer)
    : receiveBuffer_{receiveBuffer}, buffer_{std::make_unique<std::byte[]>(kDatagram)} {}

NetlinkSocket::~NetlinkSocket() {
    if (fd_ >= 0) { close(fd_); }
}

std::string NetlinkSocket::open(Use use) {
    if (fd_ >= 0) { close(fd_); }
    fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (fd_ < 0) { return std::string{"netlink socket: "} + std::strerror(errno); }
    enlargeReceiveBuffer();
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    socklen_t size = sizeof address;
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return std::string{"netlink bind: "} + std::strerror(errno);
    }
    port_ = address.nl_pid;
    if (use == Use::Listen && !subscribe()) {
        return std::string{"netlink subscription: "} + std::strerror(errno);
    }
    return {};
}

bool NetlinkSocket::subscribe() {
    // A kernel without VNI filters does not know their group.
    setsockopt(fd_, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &kTunnelGroup, sizeof kTunnelGroup);
    return std::all_of(std::begin(kGroups), std::end(kGroups), [this](int group) {
        return setsockopt(fd_, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) == 0;
    });
}

void NetlinkSocket::enlargeReceiveBuffer() const {
    const int bytes = static_cast<int>(std::min<std::size_t>(receiveBuffer_, 1U << 30));
    if (setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0) { return; }
    // Without the right to force it, the system's limit caps it.
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

/// A GET message as it is built: the fixed header begins with the family, attributes follow it.
struct NetlinkSocket::Request {
    explicit Request(std::uint16_t type) : length{NLMSG_LENGTH(fixedHeader(type))} {}
    std::byte& fixed(std::size_t at) { return bytes.at(sizeof(nlmsghdr) + at); }
    void put(std::uint16_t type, const void* value, std::size_t size) {
        const rtattr attribute{static_cast<unsigned short>(sizeof(rtattr) + size), type};
        VEL_ASSERT(length + attribute.rta_len <= bytes.size());
        std::memcpy(bytes.data() + length, &attribute, sizeof attribute);
        if (size > 0) { std::memcpy(bytes.data() + length + sizeof attribute, value, size); }
        length += attribute.rta_len;  // sizes are multiples of four
    }

    std::array<std::byte, 80> bytes{};  // the message's header first
    std::size_t length;
};

bool NetlinkSocket::requestDump(std::uint16_t type, std::uint8_t family, std::uint32_t sequence) {
    Request request{type};
    request.fixed(0) = static_cast<std::byte>(family);
    if (type == RTM_GETLINK && family == AF_BRIDGE) {  // else the ports come without their VLANs
        request.put(IFLA_EXT_MASK, &kWithVlanRanges, sizeof kWithVlanRanges);
    }
    return send(request, type, sequence);
}

bool NetlinkSocket::requestCounts(std::uint16_t type, std::uint32_t sequence) {
    Request request{type};
    if (type == kGetTunnel) {
        request.fixed(0) = static_cast<std::byte>(AF_BRIDGE);
        request.fixed(1) = kTunnelsWithCounts;
    } else {
        request.put(NHA_GROUPS, nullptr, 0);  // single nexthops are not counted
        request.put(kNexthopOptions, &kWithCounts, sizeof kWithCounts);
    }
    return send(request, type, sequence);
}

bool NetlinkSocket::send(Request& request, std::uint16_t type, std::uint32_t sequence) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(request.length);
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    header.nlmsg_seq = sequence;
    std::memcpy(request.bytes.data(), &header, sizeof header);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const ssize_t sent = sendto(fd_,
                                request.bytes.data(),
                                request.length,
                                0,
                                reinterpret_cast<const sockaddr*>(&kernel),
                                sizeof kernel);
    if (sent < 0) { TRACE5("dump request of type {} failed: errno {}", type, errno); }
    return sent >= 0;
}

NetlinkSocket::Result NetlinkSocket::receive(std::span<const std::byte>& data) {
    for (;;) {
        sockaddr_nl from{};
        iovec vector{buffer_.get(), kDatagram};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &vector;
        message.msg_iovlen = 1;
        const ssize_t size = recvmsg(fd_, &message, 0);
        if (size < 0 && errno == EINTR) { continue; }
        if (size < 0 && errno == EAGAIN) { return Result::Empty; }
        if (size < 0) { return errno == ENOBUFS ? Result::Overrun : Result::Failed; }
        if (from.nl_pid != 0) { continue; }  // another process; only the kernel speaks for the FIB
        if ((message.msg_flags & MSG_TRUNC) != 0) { return Result::Overrun; }
        data = {buffer_.get(), static_cast<std::size_t>(size)};
        return Result::Data;
    }
}

}  // namespace Pel::Forwarder
