#include "forwarder/Flatten/FlatDiff.h"

namespace Pel::Forwarder {

bool operator==(const FlatNextHop& a, const FlatNextHop& b) {
    const bool sameEncap =
        a.encap == b.encap || (a.encap != nullptr && b.encap != nullptr && *a.encap == *b.encap);
    return sameEncap && a.index == b.index && a.fecId == b.fecId && a.slot == b.slot &&
           a.interfaceName == b.interfaceName && a.parentName == b.parentName &&
           a.subinterface == b.subinterface && a.address == b.address && a.mac == b.mac;
}

void FlatDiff::clear() {
    vrfs.clear();
    vtis.clear();
    nextHops.clear();
    fecs.clear();
    routes.clear();
    routeDeletes.clear();
    fecDeletes.clear();
    nextHopDeletes.clear();
    vrfDeletes.clear();
}

}  // namespace Pel::Forwarder
