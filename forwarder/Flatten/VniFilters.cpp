#include "forwarder/Flatten/VniFilters.h"

#include <algorithm>
#include <iterator>

namespace Pel::Forwarder {

bool VniRanges::add(const VniRange& range) {
    VniRange grown = range;
    auto at = ranges_.upper_bound(range.first);
    if (at != ranges_.begin() && std::prev(at)->second + 1 >= range.first) { --at; }
    if (at != ranges_.end() && at->first <= range.first && at->second >= range.last) {
        return false;
    }
    while (at != ranges_.end() && at->first <= grown.last + 1) {
        grown.first = std::min(grown.first, at->first);
        grown.last = std::max(grown.last, at->second);
        at = ranges_.erase(at);
    }
    ranges_[grown.first] = grown.last;
    return true;
}

bool VniRanges::remove(const VniRange& range) {
    auto at = ranges_.upper_bound(range.first);
    if (at != ranges_.begin() && std::prev(at)->second >= range.first) { --at; }
    bool removed = false;
    while (at != ranges_.end() && at->first <= range.last) {
        const VniRange old{at->first, at->second};
        ranges_.erase(at);
        if (old.first < range.first) { ranges_[old.first] = range.first - 1; }
        if (old.last > range.last) { ranges_[range.last + 1] = old.last; }
        at = ranges_.upper_bound(range.first);
        removed = true;
    }
    return removed;
}

bool VniRanges::contains(std::uint32_t vni) const {
    const auto behind = ranges_.upper_bound(vni);
    return behind != ranges_.begin() && std::prev(behind)->second >= vni;
}

std::vector<VniRange> VniRanges::ranges() const {
    std::vector<VniRange> result;
    result.reserve(ranges_.size());
    for (const auto& [first, last] : ranges_) { result.push_back({first, last}); }
    return result;
}

bool VniFilters::add(const VniFilter& filter) {
    bool changed = false;
    for (const VniRange& range : filter.ranges) {
        changed = filters_[filter.ifindex].add(range) || changed;
        dumped_[filter.ifindex].add(range);
    }
    return changed;
}

bool VniFilters::remove(const VniFilter& filter) {
    bool changed = false;
    for (Filters* const filters : {&filters_, &dumped_}) {
        const auto at = filters->find(filter.ifindex);
        if (at == filters->end()) { continue; }
        for (const VniRange& range : filter.ranges) {
            const bool removed = at->second.remove(range);
            changed = changed || (removed && filters == &filters_);
        }
        if (at->second.empty()) { filters->erase(at); }
    }
    return changed;
}

void VniFilters::forget(std::uint32_t ifindex) {
    filters_.erase(ifindex);
    dumped_.erase(ifindex);
}

void VniFilters::beginDump() {
    dumped_.clear();
}

std::vector<std::uint32_t> VniFilters::sweep() {
    absl::btree_set<std::uint32_t> devices;
    for (const auto& [ifindex, ranges] : filters_) { devices.insert(ifindex); }
    for (const auto& [ifindex, ranges] : dumped_) { devices.insert(ifindex); }
    std::vector<std::uint32_t> changed;
    for (const std::uint32_t ifindex : devices) {
        const auto before = filters_.find(ifindex);
        const auto now = dumped_.find(ifindex);
        const bool same =
            before != filters_.end() && now != dumped_.end() && before->second == now->second;
        if (!same) { changed.push_back(ifindex); }
    }
    filters_ = std::move(dumped_);
    dumped_.clear();
    return changed;
}

const VniRanges* VniFilters::find(std::uint32_t ifindex) const {
    const auto at = filters_.find(ifindex);
    return at == filters_.end() ? nullptr : &at->second;
}

}  // namespace Pel::Forwarder
