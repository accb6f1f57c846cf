#pragma once

#include "forwarder/Flatten/AdjacencyTable.h"
#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/FlatDiff.h"
#include "forwarder/Flatten/VtiTable.h"

namespace Pel::Forwarder {

/// The address under which a next hop is published: its gateway, or the far end of the VXLAN tunnel
/// where its encapsulation names one.
Nexo::IpGenAddr publishedAddress(const VtiTable& vtis, const AdjacencyKey& key);

/// Fills in what links, neighbours and encapsulation say of a next hop; its identity stays.
///
/// Said of an encapsulation: pushed labels; the VXLAN tunnel interface and VLAN of what leaves by a
/// VXLAN device, or by a bridge that has nothing else below it; the UDP header of a bareudp device.
/// The record has no place for others.
void fillContent(const Fib& fib,
                 const VtiTable& vtis,
                 const Adjacency& adjacency,
                 FlatNextHop& nextHop);

/// Whether a next hop of an earlier run was made for the member that reads `now`: alike but for
/// what may change while a member lives.
bool sameMember(const FlatNextHop& then, const FlatNextHop& now);

}  // namespace Pel::Forwarder
