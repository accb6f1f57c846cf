#pragma once

#include <absl/functional/function_ref.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "forwarder/Flatten/MemberCounters.h"
#include "forwarder/Kernel/NetlinkSocket.h"
#include "forwarder/Kernel/RtDecoder.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Polls what the kernel counts of nexthop groups and of the VNIs of filters, once in an interval, and tells
/// MemberCounters. Asks only; nothing of the kernel is changed, so where statistics are not kept there are none.
///
///   idle -> the VNI filters are dumped -> the groups are dumped -> what was not among them is forgotten -> idle
///
/// On a socket of its own: counts need no order among notifications, and a dump of many groups must not fill the socket
/// that carries those. An answer comes in pieces of 32 KiB, as fast as it is read. A poll that is late is not made up for.
///
/// Belongs to one thread.
class KernelCounters {
public:
    struct Statistics {
        std::uint64_t polls = 0;       ///< that ended
        std::uint64_t incomplete = 0;  ///< of these: interrupted, or refused
    };

    /// Borrows both. `interval` is above 0.
    KernelCounters(MemberCounters& counters, const Kiln::Clock& clock, Kiln::Duration interval);

    /// Opens the socket in the thread's network namespace. "" on success, else what failed.
    std::string open() { return socket_.open(NetlinkSocket::Use::Ask); }
    /// To be watched for reading; run() when it is readable.
    int fd() const { return socket_.fd(); }

    /// Works until nothing is left or `mustYield` says so, which is asked after each datagram and each 256 forgotten
    /// entries. True when there is more to do at once, without waiting for the descriptor. The first poll begins at once.
    bool run(absl::FunctionRef<bool()> mustYield);
    /// When run() wants to be called next though nothing is readable.
    std::optional<Kiln::TimePoint> wakeAt() const;

    const Statistics& statistics() const { return statistics_; }

private:
    enum class Phase : std::uint8_t { Idle, Vnis, Groups, Forgetting };
    bool receiveOne();
    void processDatagram(std::span<const std::byte> datagram);
    void dumpEnded(int error);
    void ask(Phase phase);
    void pollEnded(bool complete);

    MemberCounters& counters_;
    const Kiln::Clock& clock_;
    Kiln::Duration interval_;
    NetlinkSocket socket_;
    Statistics statistics_;
    Phase phase_ = Phase::Idle;
    std::uint32_t sequence_ = 0;  // of the running dump
    bool interrupted_ = false;    // the running poll
    bool refused_ = false;        // has been told
    std::optional<Kiln::TimePoint> next_;
};

}  // namespace Pel::Forwarder
