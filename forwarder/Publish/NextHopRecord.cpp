#include "forwarder/Publish/NextHopRecord.h"

#include <memory>

namespace Pel::Forwarder {

namespace {

Nexo::IpGenAddr toRecord(const IpAddress& address) {
    return Nexo::IpGenAddr{std::span{address.bytes.data(), address.size()}};
}

IpAddress fromRecord(const Nexo::IpGenAddr& address) {
    return IpAddress::fromBytes(std::as_bytes(address.bytes()));
}

}  // namespace

Nexo::IpPrefix toRecord(const IpPrefix& prefix) {
    return Nexo::IpPrefix{toRecord(prefix.address), prefix.length};
}

IpPrefix fromRecord(const Nexo::IpPrefix& prefix) {
    return IpPrefix{fromRecord(prefix.address()), static_cast<std::uint8_t>(prefix.length())};
}

void toRecord(const FlatNextHop& nextHop, Stash::FlattenFecNextHop& record) {
    if (nextHop.parentName.empty()) {
        record.interface = Nexo::IntfId{nextHop.interfaceName};
    } else {
        record.interface =
            Nexo::IntfId{nextHop.interfaceName, nextHop.parentName, nextHop.subinterface};
    }
    record.address = toRecord(nextHop.address);
    if (nextHop.mac) { record.mac = Nexo::EthAddr{*nextHop.mac}; }
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
    result.address = fromRecord(record.address);
    if (!record.mac.isZero()) { result.mac = record.mac.bytes(); }
    if (record.labels.empty()) { return result; }
    auto encap = std::make_shared<Encap>();
    encap->kind = EncapKind::Mpls;
    for (const Nexo::MplsLabel label : record.labels) { encap->labels.push_back(label.value()); }
    result.encap = std::move(encap);
    return result;
}

}  // namespace Pel::Forwarder
