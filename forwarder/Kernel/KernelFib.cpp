#include "forwarder/Kernel/KernelFib.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <bit>
#include <cerrno>
#include <chrono>
#include <variant>

#include "forwarder/Kernel/AttributeReader.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("ForwarderKernel");

namespace Pel::Forwarder {

namespace {

constexpr Kiln::Duration kLater = std::chrono::seconds{1};
constexpr std::size_t kSweepSlice = 256;

struct DumpRequest {
    std::uint16_t type;
    std::uint8_t family;
};

DumpRequest requestFor(FibPart part) {
    switch (part) {
        case FibPart::Links:
            return {RTM_GETLINK, AF_UNSPEC};
        case FibPart::BridgePorts:
            return {RTM_GETLINK, AF_BRIDGE};
        case FibPart::VniFilters:
            return {kGetTunnel, AF_BRIDGE};
        case FibPart::Neighbours:
            return {RTM_GETNEIGH, AF_UNSPEC};
        case FibPart::Nexthops:
            return {RTM_GETNEXTHOP, AF_UNSPEC};
        case FibPart::RoutesV4:
            return {RTM_GETROUTE, AF_INET};
        case FibPart::RoutesV6:
            return {RTM_GETROUTE, AF_INET6};
    }
    return {};
}

RouteMode modeOf(const RtMessage& message, bool fromDump) {
    if (fromDump) { return RouteMode::Dump; }
    if (message.replace) { return RouteMode::Replace; }
    return message.append ? RouteMode::Append : RouteMode::Add;
}

}  // namespace

KernelFib::KernelFib(Fib& fib, const Kiln::Clock& clock, std::size_t receiveBuffer)
    : fib_{fib}, clock_{clock}, socket_{receiveBuffer} {}

bool KernelFib::run(absl::FunctionRef<bool()> mustYield) {
    if (wakeAt_ && clock_.now() >= *wakeAt_) {
        wantNow(std::exchange(later_, Parts{0}));
        wakeAt_.reset();
    }
    for (;;) {
        const bool received = receiveOne();
        if (phase_ == Phase::Sweeping) {
            sweepSlice();
        } else if (phase_ == Phase::Idle && wanted_ != 0) {
            startDump();
        } else if (!received) {
            return false;
        }
        if (mustYield()) { return true; }
    }
}

bool KernelFib::receiveOne() {
    std::span<const std::byte> datagram;
    switch (socket_.receive(datagram)) {
        case NetlinkSocket::Result::Data:
            ++statistics_.datagrams;
            processDatagram(datagram);
            return true;
        case NetlinkSocket::Result::Empty:
            return false;
        case NetlinkSocket::Result::Overrun:
            TRACE5("notifications of the kernel were lost, all is read again");
            ++statistics_.overruns;
            wantNow(kAllParts);
            interrupted_ = true;
            return true;
        case NetlinkSocket::Result::Failed:
            TRACE5("reading from the kernel failed: errno {}", errno);
            return false;
    }
    return false;
}

bool KernelFib::isDump(const NetlinkFrame& frame) const {
    return frame.port == socket_.port() && frame.sequence == sequence_ && phase_ == Phase::Dumping;
}

void KernelFib::processDatagram(std::span<const std::byte> datagram) {
    NetlinkReader reader{datagram};
    while (const auto frame = reader.next()) {
        const bool fromDump = isDump(*frame);
        if (fromDump && (frame->flags & NLM_F_DUMP_INTR) != 0) { interrupted_ = true; }
        if (frame->type < NLMSG_MIN_TYPE) {
            if (fromDump) { processControl(*frame); }
        } else if (const auto message = decode(*frame)) {
            apply(*message, fromDump);
        }
    }
    if (reader.broken()) {
        TRACE5("a datagram of {} bytes is malformed", datagram.size());
        ++statistics_.malformed;
    }
}

void KernelFib::processControl(const NetlinkFrame& frame) {
    if (frame.type != NLMSG_DONE && frame.type != NLMSG_ERROR) { return; }
    const int error = readValue<std::int32_t>(frame.payload).value_or(0);
    // A kernel without nexthop objects, bridges or VNI filters has none: not a failure.
    const bool optional =
        part_ == FibPart::Nexthops || part_ == FibPart::BridgePorts || part_ == FibPart::VniFilters;
    const bool unsupported = error == -EOPNOTSUPP && optional;
    if (error < 0) {
        TRACE5("dump of part {} ended with error {}", static_cast<int>(part_), error);
    }
    endDump(error < 0 && !unsupported);
}

void KernelFib::apply(const RtMessage& message, bool fromDump) {
    std::visit([&](const auto& body) { applyBody(body, message, fromDump); }, message.body);
}

void KernelFib::applyBody(const Link& link, const RtMessage& message, bool fromDump) {
    constexpr Parts kBehindLinks =
        bit(FibPart::Nexthops) | bit(FibPart::RoutesV4) | bit(FibPart::RoutesV6);
    bool stateChanged = true;
    if (message.removed) {
        fib_.linkDel(link.ifindex);
    } else {
        stateChanged = fib_.apply(link);
    }
    if (stateChanged && complete()) {
        wantNowAndLater(kBehindLinks);
    } else if (stateChanged && !fromDump) {
        wantNow(kBehindLinks);
    }
}

void KernelFib::applyBody(const BridgePort& port, const RtMessage& message, bool) {
    if (message.removed) {
        fib_.bridgePortDel(port.ifindex);
    } else {
        fib_.apply(port);
    }
}

void KernelFib::applyBody(const VniFilter& filter, const RtMessage& message, bool) {
    if (message.removed) {
        fib_.vniFilterDel(filter);
    } else {
        fib_.apply(filter);
    }
}

void KernelFib::applyBody(const Neighbour& neighbour, const RtMessage& message, bool) {
    if (message.removed) {
        fib_.neighbourDel(neighbour.ifindex, neighbour.address);
    } else {
        fib_.apply(neighbour);
    }
}

void KernelFib::applyBody(const Nexthop& nexthop, const RtMessage& message, bool) {
    if (message.removed) {
        fib_.nexthopDel(nexthop.id);
        wantNowAndLater(bit(FibPart::RoutesV4));
    } else {
        fib_.apply(nexthop);
    }
}

void KernelFib::applyBody(const Route& route, const RtMessage& message, bool fromDump) {
    if (!message.removed) {
        fib_.apply(route, modeOf(message, fromDump));
        return;
    }
    fib_.routeDel(route);
    if (fib_.takeRoutesUncertain()) { wantNow(bit(FibPart::RoutesV4) | bit(FibPart::RoutesV6)); }
}

void KernelFib::startDump() {
    part_ = static_cast<FibPart>(std::countr_zero(wanted_));
    const DumpRequest request = requestFor(part_);
    if (!socket_.requestDump(request.type, request.family, ++sequence_)) {
        wantLater(std::exchange(wanted_, Parts{0}));
        return;
    }
    wanted_ = static_cast<Parts>(wanted_ & ~bit(part_));
    interrupted_ = false;
    phase_ = Phase::Dumping;
    ++statistics_.dumps;
    fib_.beginDump(part_);
    TRACE7("dump of part {} begins", static_cast<int>(part_));
}

void KernelFib::endDump(bool failed) {
    phase_ = Phase::Idle;
    if (failed) {
        wantLater(bit(part_));
        return;
    }
    if (!interrupted_) {
        interruptedInARow_ = 0;
        phase_ = Phase::Sweeping;
        return;
    }
    ++statistics_.interrupted;
    if (++interruptedInARow_ < kMaxInterrupted) {
        wantNow(bit(part_));
        return;
    }
    TRACE5("dump of part {} was interrupted {} times in a row",
           static_cast<int>(part_),
           interruptedInARow_);
    interruptedInARow_ = 0;
    completed_ = static_cast<Parts>(completed_ | bit(part_));
    wantLater(bit(part_));
}

void KernelFib::sweepSlice() {
    std::size_t budget = kSweepSlice;
    if (fib_.sweep(part_, budget)) { return; }
    phase_ = Phase::Idle;
    completed_ = static_cast<Parts>(completed_ | bit(part_));
    TRACE7("dump of part {} is complete", static_cast<int>(part_));
}

void KernelFib::wantLater(Parts parts) {
    later_ = static_cast<Parts>(later_ | parts);
    if (!wakeAt_) { wakeAt_ = clock_.now() + kLater; }
}

void KernelFib::wantNowAndLater(Parts parts) {
    wantNow(parts);
    // With the links: their dump waits for whoever is changing the tables, the others' may not.
    wantLater(static_cast<Parts>(parts | bit(FibPart::Links)));
}

}  // namespace Pel::Forwarder
