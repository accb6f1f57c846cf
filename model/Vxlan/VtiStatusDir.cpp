#include "model/Vxlan/VtiStatusDir.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>
#include <vector>

#include "model/Record/FlatBytes.h"
#include "model/Vxlan/Vxlan_generated.h"

namespace Vxlan {
namespace {

Nexo::IpGenAddr toAddress(const Pel::Wire::VtepAddress* from) {
    if (from == nullptr) { return {}; }
    const std::size_t width = from->family() == 1 ? 4 : from->family() == 2 ? 16 : 0;
    return Nexo::IpGenAddr{std::span{from->bytes()->Data(), width}};
}

Pel::Wire::VtepAddress fromAddress(const Nexo::IpGenAddr& address) {
    std::array<std::uint8_t, 16> bytes{};
    std::copy(address.bytes().begin(), address.bytes().end(), bytes.begin());
    return {static_cast<std::uint8_t>(address.family()), flatbuffers::make_span(bytes)};
}

const VtiStatus kNone;

const VtiStatus* statusIn(const VtiStatusDirRecord& in, const Nexo::IntfId& vti) {
    const auto it = in.vti.find(vti);
    return it == in.vti.end() ? nullptr : &it->second;
}

std::optional<std::uint32_t> vniOf(const VtiStatus& status, std::uint32_t vlan) {
    const auto it = status.vlanVniMap.find(vlan);
    return it == status.vlanVniMap.end() ? std::nullopt : std::optional{it->second};
}

}  // namespace

const VtiStatus* VtiStatusDir::vtiStatus(const Nexo::IntfId& vti) const {
    return statusIn(record(), vti);
}

void VtiStatusDir::recordChanged(const VtiStatusDirRecord& previous) {
    std::set<Nexo::IntfId> all;
    for (const auto& [vti, status] : previous.vti) { all.insert(vti); }
    for (const auto& [vti, status] : record().vti) { all.insert(vti); }
    for (const Nexo::IntfId& vti : all) {
        publishDifference(vti, statusIn(previous, vti), statusIn(record(), vti));
    }
}

void VtiStatusDir::publishDifference(const Nexo::IntfId& vti,
                                     const VtiStatus* before,
                                     const VtiStatus* now) {
    const bool cameOrWent = before == nullptr || now == nullptr;
    const VtiStatus& was = before == nullptr ? kNone : *before;
    const VtiStatus& is = now == nullptr ? kNone : *now;
    if (cameOrWent || was.vtepAddr != is.vtepAddr) { onVtepAddr_.publish(vti, Nexo::V4V6::ipv4); }
    if (cameOrWent || was.vtepAddrV6 != is.vtepAddrV6) {
        onVtepAddr_.publish(vti, Nexo::V4V6::ipv6);
    }
    if (was.vlanVniMap == is.vlanVniMap) { return; }
    std::set<std::uint32_t> vlans;
    for (const auto& [vlan, vni] : was.vlanVniMap) { vlans.insert(vlan); }
    for (const auto& [vlan, vni] : is.vlanVniMap) { vlans.insert(vlan); }
    for (const std::uint32_t vlan : vlans) {
        if (vniOf(was, vlan) != vniOf(is, vlan)) { onVlanVni_.publish(vti, vlan); }
    }
}

}  // namespace Vxlan

std::optional<Vxlan::VtiStatusDirRecord> Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::decode(
    std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::VtiStatusDir>(bytes);
    if (table == nullptr) { return std::nullopt; }
    Vxlan::VtiStatusDirRecord record;
    if (table->vti() == nullptr) { return record; }
    for (const Pel::Wire::Vti* const from : *table->vti()) {
        Vxlan::VtiStatus status{Nexo::IntfId{from->name()->string_view()},
                                Vxlan::toAddress(from->vtep_addr()),
                                Vxlan::toAddress(from->vtep_addr_v6()),
                                {}};
        if (const auto* const map = from->vlan_vni_map()) {
            for (const Pel::Wire::VlanVni* const pair : *map) {
                status.vlanVniMap[pair->vlan()] = pair->vni();
            }
        }
        record.vti[status.name] = status;
    }
    return record;
}

std::string Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::encode(
    const Vxlan::VtiStatusDirRecord& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        std::vector<flatbuffers::Offset<Pel::Wire::Vti>> all;
        for (const auto& [vti, status] : record.vti) {
            std::vector<Pel::Wire::VlanVni> pairs;
            for (const auto& [vlan, vni] : status.vlanVniMap) { pairs.emplace_back(vlan, vni); }
            const auto name = to.CreateString(vti.stringValue());
            const auto map = to.CreateVectorOfStructs(pairs);
            const auto v4 = Vxlan::fromAddress(status.vtepAddr);
            const auto v6 = Vxlan::fromAddress(status.vtepAddrV6);
            all.push_back(Pel::Wire::CreateVti(to, name, &v4, &v6, map));
        }
        return Pel::Wire::CreateVtiStatusDir(to, to.CreateVector(all));
    });
}
