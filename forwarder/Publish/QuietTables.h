#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/Net/IpGenAddr.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Which route tables have had no change for a while. Each is told of once: what changes in it after
/// that takes nothing back, and a table that keeps changing is never due. A VRF that goes and comes
/// again begins anew.
class QuietTables {
public:
    using Table = std::pair<std::string, Nexo::AddressFamily>;  ///< VRF and family

    /// Borrows the clock. `quietTime`: how long is long enough.
    QuietTables(const Kiln::Clock& clock, Kiln::Duration quietTime)
        : clock_{clock}, quietTime_{quietTime} {}

    /// A VRF is there; from now on its tables wait, if they do not yet.
    void vrfIs(const std::string& vrf);
    void vrfDel(const std::string& vrf);
    /// A route of the table has changed.
    void changed(const std::string& vrf, Nexo::AddressFamily family);
    /// Tables that have been quiet for long enough, at most `limit`. Each stays due until it has been
    /// told, and no longer than it is quiet.
    std::vector<Table> due(std::size_t limit);
    void told(const Table& table);
    /// When due() may have one. Not later than it has, but maybe earlier.
    std::optional<Kiln::TimePoint> wakeAt() const;

private:
    struct Times {
        Kiln::TimePoint lastChange;
        Kiln::TimePoint lookAt;  ///< not later than it can be quiet
    };
    const Kiln::Clock& clock_;
    Kiln::Duration quietTime_;
    absl::btree_map<Table, Times> waiting_;                      // those that have not been told
    absl::btree_set<std::pair<Kiln::TimePoint, Table>> lookAt_;  // the same, by their time
};

}  // namespace Pel::Forwarder
