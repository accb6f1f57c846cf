#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "forwarder/Scenario/Change.h"

namespace gnmi {
class Notification;
}

namespace Pel::Scale {

/// Entries by name ("next-hop 17", "next-hop-group 3", "ipv4-entry 192.0.2.0/24"), each with what tells
/// it from another: address, MAC and interface; members and weights; group.
using Entries = absl::flat_hash_map<std::string, std::string>;

/// Adds the entry that a client should see of what was programmed.
void expect(const Forwarder::Change& change, Entries& entries);
/// Names one difference; "" when there is none.
std::string difference(const Entries& got, const Entries& wanted);

/// What a gNMI client holds, from the messages alone.
class Collector {
public:
    /// Takes the whole messages at the beginning of the bytes; answers how many bytes those are.
    std::size_t take(std::string_view bytes);

    Entries entries;
    bool synced = false;
    std::uint64_t messages = 0;
    std::uint64_t counters = 0;  ///< messages with the counters of a next hop
    std::string fault;           ///< what was wrong with a message

private:
    void take(const gnmi::Notification& notification);
};

}  // namespace Pel::Scale
