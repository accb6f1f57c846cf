#pragma once

#include <absl/functional/function_ref.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Kernel/NetlinkSocket.h"
#include "forwarder/Kernel/RtDecoder.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Follows the kernel's forwarding state in a Fib: subscribes, dumps, then applies what is
/// notified, all on one socket.
///
///   what happens                            what follows
///   start, lost notifications (ENOBUFS)     all parts are dumped
///   a link's state or carrier changes,      nexthops and routes are dumped, now and once more a
///   or it is deleted                        second later: the kernel removes both without a word,
///                                           and after it has told of the link
///   a nexthop object is deleted             IPv4 routes likewise
///   a dump was interrupted (DUMP_INTR)      it is made again; what is missing from it is not removed
///   a dump ended                            what it did not mention is removed (sweep)
///
/// Nothing blocks: a dump and a sweep are states, and each call of run() does a slice. A table that
/// never stops changing interrupts every dump: after kMaxInterrupted in a row a dump counts as
/// complete, without its sweep, and is made again a second later.
///
/// Belongs to one thread.
class KernelFib {
public:
    static constexpr std::size_t kDefaultReceiveBuffer = 64U << 20;
    static constexpr unsigned kMaxInterrupted = 3;

    struct Statistics {
        std::uint64_t datagrams = 0;
        std::uint64_t dumps = 0;        ///< started
        std::uint64_t interrupted = 0;  ///< dumps that were
        std::uint64_t overruns = 0;     ///< times that notifications were lost
        std::uint64_t malformed = 0;    ///< datagrams that could not be cut into messages
    };

    KernelFib(Fib& fib,
              const Kiln::Clock& clock,
              std::size_t receiveBuffer = kDefaultReceiveBuffer);

    /// Opens the socket in the thread's network namespace. "" on success, else what failed.
    std::string open() { return socket_.open(); }
    /// To be watched for reading; run() when it is readable.
    int fd() const { return socket_.fd(); }

    /// Works until nothing is left or `mustYield` says so, which is asked after each datagram and
    /// each 256 swept entries. True when there is more to do at once, without waiting for the
    /// descriptor.
    bool run(absl::FunctionRef<bool()> mustYield);
    /// When run() wants to be called next though nothing is readable.
    std::optional<Kiln::TimePoint> wakeAt() const { return wakeAt_; }

    /// Whether every part has been downloaded once. Stays true.
    bool complete() const { return completed_ == kAllParts; }
    /// Whether a dump is running or waits for its turn.
    bool dumping() const { return phase_ != Phase::Idle || wanted_ != 0; }
    const Statistics& statistics() const { return statistics_; }

private:
    using Parts = std::uint8_t;
    enum class Phase : std::uint8_t { Idle, Dumping, Sweeping };
    static constexpr Parts bit(FibPart part) {
        return static_cast<Parts>(1U << static_cast<unsigned>(part));
    }
    static constexpr Parts kAllParts = (1U << kFibParts) - 1;

    bool receiveOne();
    void processDatagram(std::span<const std::byte> datagram);
    void processControl(const NetlinkFrame& frame);
    void apply(const RtMessage& message, bool fromDump);
    void applyBody(const Link& link, const RtMessage& message, bool fromDump);
    void applyBody(const BridgePort& port, const RtMessage& message, bool fromDump);
    void applyBody(const VniFilter& filter, const RtMessage& message, bool fromDump);
    void applyBody(const Neighbour& neighbour, const RtMessage& message, bool fromDump);
    void applyBody(const Nexthop& nexthop, const RtMessage& message, bool fromDump);
    void applyBody(const Route& route, const RtMessage& message, bool fromDump);
    void startDump();
    void endDump(bool failed);
    void sweepSlice();
    void wantNow(Parts parts) { wanted_ = static_cast<Parts>(wanted_ | parts); }
    void wantLater(Parts parts);
    void wantNowAndLater(Parts parts);
    bool isDump(const NetlinkFrame& frame) const;

    Fib& fib_;
    const Kiln::Clock& clock_;
    NetlinkSocket socket_;
    Statistics statistics_;
    Phase phase_ = Phase::Idle;
    FibPart part_ = FibPart::Links;  // of the running dump or sweep
    std::uint32_t sequence_ = 0;     // of the running dump
    bool interrupted_ = false;       // the running dump
    unsigned interruptedInARow_ = 0;
    Parts wanted_ = kAllParts;  // to be dumped, lowest first
    Parts later_ = 0;           // to be dumped at wakeAt_
    Parts completed_ = 0;
    std::optional<Kiln::TimePoint> wakeAt_;
};

}  // namespace Pel::Forwarder
