#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <vector>

#include "forwarder/Flatten/FibMessages.h"

namespace Pel::Forwarder {

/// VNIs as ranges that neither touch nor overlap: a filter of all sixteen million is one of them.
class VniRanges {
public:
    /// True when it was not all there.
    bool add(const VniRange& range);
    /// True when some of it was there.
    bool remove(const VniRange& range);
    bool contains(std::uint32_t vni) const;
    bool empty() const { return ranges_.empty(); }
    /// Lowest first.
    std::vector<VniRange> ranges() const;
    bool operator==(const VniRanges&) const = default;

private:
    absl::btree_map<std::uint32_t, std::uint32_t> ranges_;  // first -> last
};

/// The VNI filters of VXLAN devices, by ifindex. A dump is gathered beside what is there, which it
/// replaces when it is swept: a range of a dump may well be another one's half, so entries cannot
/// be marked one by one.
class VniFilters {
public:
    /// True when the filter changed.
    bool add(const VniFilter& filter);
    bool remove(const VniFilter& filter);
    void forget(std::uint32_t ifindex);
    void beginDump();
    /// Ends the dump; the devices whose filter it changed.
    std::vector<std::uint32_t> sweep();
    /// Null when there is no VNI in it.
    const VniRanges* find(std::uint32_t ifindex) const;

private:
    using Filters = absl::btree_map<std::uint32_t, VniRanges>;
    Filters filters_;
    Filters dumped_;  // since beginDump, notifications included
};

}  // namespace Pel::Forwarder
