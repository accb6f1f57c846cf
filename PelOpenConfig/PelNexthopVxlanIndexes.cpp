#include "PelOpenConfig/PelNexthopVxlanIndexes.h"

namespace Pel::Oc {

void NexthopVxlanIndexes::nextHopIs(Stash::OcNextHopIndex nhId, const NextHopVxlanInfo& info) {
    vtiToNextHopIdMapIs(info.vtiId).nextHopIs(nhId);
    vlanToNextHopIdMapIs(info.vlanId).nextHopIs(nhId);
    nextHopVxlanInfoShadowMapIs(nhId) = info;
}

void NexthopVxlanIndexes::nextHopDel(Stash::OcNextHopIndex nhId) {
    const NextHopVxlanInfo* const found = nextHopVxlanInfo(nhId);
    if (found == nullptr) { return; }
    const NextHopVxlanInfo info = *found;
    VtiToNextHopIdMap& ofVti = vtiToNextHopIdMapIs(info.vtiId);
    ofVti.nextHopDel(nhId);
    if (ofVti.nextHopId().empty()) { vtiToNextHopIdMapDel(info.vtiId); }
    VlanToNextHopIdMap& ofVlan = vlanToNextHopIdMapIs(info.vlanId);
    ofVlan.nextHopDel(nhId);
    if (ofVlan.nextHopId().empty()) { vlanToNextHopIdMapDel(info.vlanId); }
    nextHopVxlanInfoShadowMapDel(nhId);
}

}  // namespace Pel::Oc
