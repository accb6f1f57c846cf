#pragma once

#include "model/Aft/EncapHeaderContainer.h"
#include "model/Net/ExtendedVlanId.h"

namespace Pel::Stash {
struct FlattenFecNextHop;
}  // namespace Pel::Stash
namespace Vxlan {
struct VtiStatus;
}  // namespace Vxlan

namespace Pel::Oc {

/// One header for each position of the next hop's encapsulation order that can be expressed; the
/// others leave a gap. A UDP header of a foreign address family has no type and no state. Nothing
/// is allocated for an empty order. Steps of NexthopMapperSm::backlogProcessElem, traced as such.
OcApi::EncapHeaderContainer encapHeadersOf(const Stash::FlattenFecNextHop& from);

/// The VLAN as published if it is one, else, with a trace, VLAN 0.
Nexo::ExtendedVlanId boundedVlan(std::uint32_t published);

/// The one header of a VXLAN next hop, at index 0. What its tunnel interface does not say (or, when
/// it is null, is not there to say) is left out.
OcApi::EncapHeaderContainer vxlanHeader(const Vxlan::VtiStatus* vti, Nexo::ExtendedVlanId vlan);

}  // namespace Pel::Oc
