#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "forwarder/Scenario/Change.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// A described state and what becomes of it. The same state and the same sequence of changes at each start. Nothing is
/// ever referred to before it has been given, or after it has been taken away, unless the description wants just that.
class ChangeSource {
public:
    ChangeSource() = default;
    ChangeSource(const ChangeSource&) = delete;
    ChangeSource& operator=(const ChangeSource&) = delete;
    virtual ~ChangeSource() = default;

    /// Appends the next elements of the state at the beginning, at most `limit`. False when there were none left.
    virtual bool describe(Changes& to, std::size_t limit) = 0;
    /// Appends what says that the state is complete; once, after all of it.
    virtual void describeReadiness(Changes& to) = 0;

    // What the state at the beginning has; asked about what the store holds.

    virtual bool hasVrfId(Vrf::VrfId id) const = 0;
    virtual bool hasVrf(const std::string& name) const = 0;
    virtual bool hasNextHop(Stash::OcNextHopIndex index) const = 0;
    virtual bool hasFec(Pel::FecId id) const = 0;
    virtual bool hasCounter(FlexCounters::CounterIndex index) const = 0;
    virtual bool hasRoute(const RouteKey& key) const = 0;
    virtual bool hasUdpPorts(const std::string& source) const = 0;
    virtual bool hasDecapGroups(const std::string& source) const = 0;
    /// No number that a kernel could be given too is this or above.
    virtual std::uint64_t firstFreeIndex() const = 0;

    // What follows. Times count from the end of the beginning.

    /// Appends changes that are due, at most `limit`; none when none are.
    virtual void due(Kiln::Duration now, Changes& to, std::size_t limit) = 0;
    /// When the next are due; none: never.
    virtual std::optional<Kiln::Duration> nextDue() const = 0;
};

}  // namespace Pel::Forwarder
