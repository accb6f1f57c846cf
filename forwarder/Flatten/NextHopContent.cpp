#include "forwarder/Flatten/NextHopContent.h"

#include <memory>

namespace Pel::Forwarder {

namespace {

bool isIp(const EncapPtr& encap) {
    return encap != nullptr && encap->kind == EncapKind::Ip;
}

Nexo::IpGenAddr addressBehind(const AdjacencyKey& key, const Link* vti) {
    const bool named = vti != nullptr && vti->vxlanExternal && !isNone(key.encap->remote);
    return named ? key.encap->remote : key.gateway;
}

FlatEncapPtr encapOf(const VtiTable& vtis,
                     const AdjacencyKey& key,
                     const Link* vti,
                     LinkKind kind) {
    FlatEncap result;
    if (vti != nullptr) {
        result.vxlan = vtis.encapOf(key, *vti);
    } else if (kind == LinkKind::Bareudp && isIp(key.encap)) {
        const Encap& from = *key.encap;
        result.udp = {
            static_cast<std::uint8_t>(from.remote.family()), from.local, from.remote, from.ttl};
    } else if (key.encap != nullptr && key.encap->kind == EncapKind::Mpls) {
        result.labels = key.encap->labels;
    }
    return result == FlatEncap{} ? nullptr : std::make_shared<const FlatEncap>(std::move(result));
}

/// A VLAN is content, too.
FlatEncap withoutVlan(const FlatEncapPtr& encap) {
    FlatEncap result = encap == nullptr ? FlatEncap{} : *encap;
    if (result.vxlan) { result.vxlan->vlan = 0; }
    return result;
}

}  // namespace

Nexo::IpGenAddr publishedAddress(const VtiTable& vtis, const AdjacencyKey& key) {
    return isIp(key.encap) ? addressBehind(key, vtis.deviceOf(key)) : key.gateway;
}

void fillContent(const Fib& fib,
                 const VtiTable& vtis,
                 const Adjacency& adjacency,
                 FlatNextHop& nextHop) {
    const AdjacencyKey& key = adjacency.key;
    const Link* const link = fib.link(key.ifindex);
    const LinkKind kind = link == nullptr ? LinkKind::Other : link->kind;
    nextHop.address = key.gateway;
    nextHop.mac = adjacency.state.mac;
    if (key.encap != nullptr || kind == LinkKind::Vxlan || kind == LinkKind::Bridge) {
        const Link* const vti = vtis.deviceOf(key);
        nextHop.address = addressBehind(key, vti);
        nextHop.encap = encapOf(vtis, key, vti, kind);
    }
    if (link == nullptr) { return; }
    nextHop.interfaceName = link->name;
    const Link* const parent = kind == LinkKind::Vlan ? fib.link(link->parent) : nullptr;
    if (parent == nullptr) { return; }
    nextHop.parentName = parent->name;
    nextHop.subinterface = link->vlanId;
}

bool sameMember(const FlatNextHop& then, const FlatNextHop& now) {
    return then.interfaceName == now.interfaceName && then.address == now.address &&
           (then.encap == now.encap || withoutVlan(then.encap) == withoutVlan(now.encap));
}

}  // namespace Pel::Forwarder
