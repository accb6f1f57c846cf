#pragma once

#include <string>

#include "model/Aft/EncapHeaderContainer.h"
#include "model/Fec/FlattenFecNextHop.h"

namespace Pel::Oc {

/// "0 mpls [16, 17]; 1 udpv4 10.0.0.1 10.0.0.2 64; 3 unset": the headers for people and tests.
std::string headerTexts(const OcApi::EncapHeaderContainer& headers);

/// A next hop with this encapsulation order, which has all the data that its types could want.
Vel::Ref<Stash::FlattenFecNextHop> encapsulated(std::initializer_list<int> order);

/// A next hop by way of a VXLAN tunnel interface.
Vel::Ref<Stash::FlattenFecNextHop> vxlanNextHop(const std::string& vti, std::uint32_t vlan);

}  // namespace Pel::Oc
