#include "PelOpenConfig/PelNexthopVxlanRequeue.h"

namespace Pel::Oc {
namespace {

/// A step is done between two elements of the walk: it must cost no more than a few of them.
constexpr int kLookedAtInAStep = 16;

}  // namespace

bool NexthopVxlanRequeue::step(
    absl::FunctionRef<void(const VxlanChange&, Stash::OcNextHopIndex)> put) {
    if (!current_) {
        if (order_.empty()) { return false; }
        current_ = order_.front();
        order_.pop_front();
        waiting_.erase(*current_);
        after_.reset();
    }
    const NexthopVxlanIndexes::NextHopIds* const all = candidates(*current_);
    if (all == nullptr) {
        current_.reset();
    } else {
        auto it = after_ ? all->upper_bound(*after_) : all->begin();
        for (int i = 0; i < kLookedAtInAStep && it != all->end(); ++i, ++it) {
            after_ = *it;
            if (concerns(*current_, *it)) { put(*current_, *it); }
        }
        if (it == all->end()) { current_.reset(); }
    }
    return current_ || !order_.empty();
}

const NexthopVxlanIndexes::NextHopIds* NexthopVxlanRequeue::candidates(
    const VxlanChange& change) const {
    const auto ofVti = indexes_.vtiToNextHopIdMap().find(change.vti);
    if (ofVti == indexes_.vtiToNextHopIdMap().end()) { return nullptr; }
    if (!change.vlan) { return &ofVti->second.nextHopId(); }
    const auto ofVlan = indexes_.vlanToNextHopIdMap().find(*change.vlan);
    if (ofVlan == indexes_.vlanToNextHopIdMap().end()) { return nullptr; }
    return ofVlan->second.nextHopId().size() < ofVti->second.nextHopId().size()
               ? &ofVlan->second.nextHopId()
               : &ofVti->second.nextHopId();
}

bool NexthopVxlanRequeue::concerns(const VxlanChange& change, Stash::OcNextHopIndex nhId) const {
    return !change.vlan ||
           *indexes_.nextHopVxlanInfo(nhId) == NextHopVxlanInfo{change.vti, *change.vlan};
}

}  // namespace Pel::Oc
