#include "forwarder/Kernel/KernelCounters.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <variant>

#include "forwarder/Kernel/AttributeReader.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("ForwarderKernel");

namespace Pel::Forwarder {

namespace {

constexpr std::size_t kReceiveBuffer = 256UL * 1024;  // the kernel waits with the next piece
constexpr std::size_t kForgetSlice = 256;

}  // namespace

KernelCounters::KernelCounters(MemberCounters& counters,
                               const Kiln::Clock& clock,
                               Kiln::Duration interval)
    : counters_{counters}, clock_{clock}, interval_{interval}, socket_{kReceiveBuffer} {}

std::optional<Kiln::TimePoint> KernelCounters::wakeAt() const {
    if (phase_ != Phase::Idle) { return std::nullopt; }
    return next_ ? *next_ : clock_.now();
}

bool KernelCounters::run(absl::FunctionRef<bool()> mustYield) {
    for (;;) {
        if (phase_ == Phase::Forgetting) {
            std::size_t budget = kForgetSlice;
            if (!counters_.forget(budget)) { pollEnded(true); }
        } else if (phase_ == Phase::Idle) {
            if (next_ && clock_.now() < *next_) { return false; }
            next_ = clock_.now() + interval_;
            interrupted_ = false;
            counters_.beginPoll();
            ask(Phase::Vnis);
        } else if (!receiveOne()) {
            return false;
        }
        if (mustYield()) { return true; }
    }
}

void KernelCounters::ask(Phase phase) {
    phase_ = phase;
    const std::uint16_t type = phase == Phase::Vnis ? kGetTunnel : std::uint16_t{RTM_GETNEXTHOP};
    if (!socket_.requestCounts(type, ++sequence_)) { pollEnded(false); }
}

bool KernelCounters::receiveOne() {
    std::span<const std::byte> datagram;
    switch (socket_.receive(datagram)) {
        case NetlinkSocket::Result::Data:
            processDatagram(datagram);
            return true;
        case NetlinkSocket::Result::Empty:
            return false;
        case NetlinkSocket::Result::Overrun:
        case NetlinkSocket::Result::Failed:
            TRACE5("reading the kernel's counters failed: errno {}", errno);
            pollEnded(false);
            return true;
    }
    return false;
}

void KernelCounters::processDatagram(std::span<const std::byte> datagram) {
    NetlinkReader reader{datagram};
    while (const auto frame = reader.next()) {
        const bool asked = frame->port == socket_.port() && frame->sequence == sequence_;
        if (!asked || phase_ == Phase::Idle) { continue; }  // what is left of a poll that failed
        if ((frame->flags & NLM_F_DUMP_INTR) != 0) { interrupted_ = true; }
        if (frame->type == NLMSG_DONE || frame->type == NLMSG_ERROR) {
            dumpEnded(readValue<std::int32_t>(frame->payload).value_or(0));
            continue;
        }
        const auto message = decode(*frame);
        if (!message || message->removed) { continue; }
        if (const auto* const filter = std::get_if<VniFilter>(&message->body)) {
            for (const VniCount& count : filter->counts) {
                counters_.apply(filter->ifindex, count);
            }
        } else if (const auto* const nexthop = std::get_if<Nexthop>(&message->body)) {
            counters_.apply(*nexthop);
        }
    }
}

void KernelCounters::dumpEnded(int error) {
    if (phase_ == Phase::Vnis) {
        ask(Phase::Groups);  // a kernel without VNI filters has no counts of them
        return;
    }
    if (error < 0) {
        if (!refused_) {
            TRACE5("the kernel refuses statistics of nexthop groups: error {}", error);
        }
        refused_ = true;
        pollEnded(false);
        return;
    }
    if (interrupted_) {
        pollEnded(false);  // what was not among the groups may be there
    } else {
        phase_ = Phase::Forgetting;
    }
}

void KernelCounters::pollEnded(bool complete) {
    phase_ = Phase::Idle;
    ++statistics_.polls;
    statistics_.incomplete += complete ? 0 : 1;
}

}  // namespace Pel::Forwarder
