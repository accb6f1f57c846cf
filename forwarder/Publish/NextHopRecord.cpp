#include "forwarder/Publish/NextHopRecord.h"

#include <memory>

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
    if (nextHop.encap == nullptr || nextHop.encap->kind != EncapKind::Mpls) { return; }
    for (const std::uint32_t label : nextHop.encap->labels) {
        record.labels.push(Nexo::MplsLabel{label & Nexo::MplsLabel::kMax});
    }
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
    if (record.labels.empty()) { return result; }
    auto encap = std::make_shared<Encap>();
    encap->kind = EncapKind::Mpls;
    for (const Nexo::MplsLabel label : record.labels) { encap->labels.push_back(label.value()); }
    result.encap = std::move(encap);
    return result;
}

}  // namespace Pel::Forwarder
