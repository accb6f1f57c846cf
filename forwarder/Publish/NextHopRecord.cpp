#include "forwarder/Publish/NextHopRecord.h"

#include <memory>
#include <utility>

namespace Pel::Forwarder {

void toRecord(const FlatNextHop& nextHop, Stash::FlattenFecNextHop& record) {
    if (nextHop.parentName.empty()) {
        record.interface = Nexo::IntfId{nextHop.interfaceName};
    } else {
        record.interface =
            Nexo::IntfId{nextHop.interfaceName, nextHop.parentName, nextHop.subinterface};
    }
    record.address = nextHop.address;
    if (nextHop.mac) { record.mac = *nextHop.mac; }
    if (nextHop.encap == nullptr) { return; }
    for (const std::uint32_t label : nextHop.encap->labels) {
        record.labels.push(Nexo::MplsLabel{label & Nexo::MplsLabel::kMax});
    }
    if (nextHop.encap->udp) { record.encapOrder.push(Tunnel::TunnelTable::EncapType::udp); }
    record.gue = nextHop.encap->udp;
    record.vxlan = nextHop.encap->vxlan;
}

FlatNextHop fromRecord(const Stash::FlattenFecNextHop& record) {
    FlatNextHop result;
    result.interfaceName = record.interface.stringValue();
    if (record.interface.isSubinterface()) {
        result.parentName = record.interface.parent().stringValue();
        result.subinterface = *record.interface.subinterface();
    }
    result.address = record.address;
    if (!record.mac.isZero()) { result.mac = record.mac; }
    FlatEncap encap;
    for (const Nexo::MplsLabel label : record.labels) { encap.labels.push_back(label.value()); }
    encap.udp = record.gue;
    encap.vxlan = record.vxlan;
    if (!(encap == FlatEncap{})) {
        result.encap = std::make_shared<const FlatEncap>(std::move(encap));
    }
    return result;
}

}  // namespace Pel::Forwarder
