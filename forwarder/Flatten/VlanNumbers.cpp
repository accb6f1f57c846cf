#include "forwarder/Flatten/VlanNumbers.h"

#include <algorithm>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("ForwarderFlatten");

namespace Pel::Forwarder {

void VlanNumbers::restore(std::uint32_t vlan, std::uint32_t vni) {
    if (vlan < kFirst || vlan > kLast || numbers_.contains(vni) || taken_.contains(vlan)) {
        return;
    }
    numbers_[vni] = {vlan, 0};
    taken_.insert(vlan);
    passOver(vlan);
}

void VlanNumbers::passOver(std::uint32_t vlan) {
    if (vlan <= kLast) { next_ = std::max(next_, vlan + 1); }
}

void VlanNumbers::forgetRestored() {
    for (auto at = numbers_.begin(); at != numbers_.end();) {
        if (at->second.users > 0) {
            ++at;
            continue;
        }
        taken_.erase(at->second.vlan);
        at = numbers_.erase(at);
    }
}

/// The first free number behind the last one that was given, round and round; 0: none is left.
std::uint32_t VlanNumbers::takeFree() {
    if (taken_.size() >= kCount) { return 0; }
    if (next_ > kLast) { next_ = kFirst; }
    while (!taken_.insert(next_).second) { next_ = next_ == kLast ? kFirst : next_ + 1; }
    return next_++;
}

bool VlanNumbers::acquire(std::uint32_t vni) {
    const auto found = numbers_.find(vni);
    if (found != numbers_.end()) {
        ++found->second.users;
        return true;
    }
    const std::uint32_t vlan = takeFree();
    if (vlan == 0) {
        TRACE5("no VLAN number is left for VNI {}", vni);
        return false;
    }
    numbers_[vni] = {vlan, 1};
    return true;
}

void VlanNumbers::release(std::uint32_t vni) {
    const auto found = numbers_.find(vni);
    VEL_ASSERT(found != numbers_.end() && found->second.users > 0);
    if (--found->second.users > 0) { return; }
    taken_.erase(found->second.vlan);
    numbers_.erase(found);
}

std::uint32_t VlanNumbers::find(std::uint32_t vni) const {
    const auto found = numbers_.find(vni);
    return found == numbers_.end() ? 0 : found->second.vlan;
}

}  // namespace Pel::Forwarder
