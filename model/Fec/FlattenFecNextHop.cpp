#include "model/Fec/FlattenFecNextHop.h"

#include <algorithm>
#include <array>
#include <span>

#include "model/Fec/Fec_generated.h"
#include "model/Record/FlatBytes.h"

namespace Pel::Stash {
namespace {

using Labels = flatbuffers::Vector<std::uint32_t>;
using Builder = flatbuffers::FlatBufferBuilder;
constexpr std::size_t kMaxLabels = 255;
constexpr std::size_t kMaxNameBytes = 255;

Nexo::IpGenAddr toAddress(const Wire::Ip* from) {
    if (from == nullptr) { return {}; }
    const std::size_t width = from->family() == 1 ? 4 : from->family() == 2 ? 16 : 0;
    return Nexo::IpGenAddr{std::span{from->bytes()->Data(), width}};
}

Wire::Ip fromAddress(const Nexo::IpGenAddr& address) {
    std::array<std::uint8_t, 16> bytes{};
    std::copy(address.bytes().begin(), address.bytes().end(), bytes.begin());
    return {static_cast<std::uint8_t>(address.family()), flatbuffers::make_span(bytes)};
}

bool nameFits(const flatbuffers::String* name) {
    return name == nullptr || name->size() <= kMaxNameBytes;
}

/// False when a name is too long.
bool toInterface(const Wire::Interface* from, Nexo::IntfId& to) {
    if (from == nullptr) { return true; }
    if (!nameFits(from->name()) || !nameFits(from->parent())) { return false; }
    to = from->parent() == nullptr
             ? Nexo::IntfId{from->name()->string_view()}
             : Nexo::IntfId{
                   from->name()->string_view(), from->parent()->string_view(), from->number()};
    return true;
}

flatbuffers::Offset<Wire::Interface> fromInterface(Builder& to, const Nexo::IntfId& interface) {
    if (interface.empty()) { return {}; }
    const auto name = to.CreateString(interface.stringValue());
    const auto number = interface.subinterface();
    const auto parent = number ? to.CreateString(interface.parent().stringValue())
                               : flatbuffers::Offset<flatbuffers::String>{};
    return Wire::CreateInterface(to, name, parent, number.value_or(0));
}

/// Hands each label on; false when one of them or their number is out of range.
template <class Push>
bool toLabels(const Labels* from, Push push) {
    if (from == nullptr) { return true; }
    if (from->size() > kMaxLabels) { return false; }
    for (const std::uint32_t label : *from) {
        if (label > Nexo::MplsLabel::kMax) { return false; }
        push(Nexo::MplsLabel{label});
    }
    return true;
}

template <class Range>
flatbuffers::Offset<Labels> fromLabels(Builder& to, const Range& labels) {
    std::vector<std::uint32_t> numbers;
    for (const Nexo::MplsLabel label : labels) { numbers.push_back(label.value()); }
    return numbers.empty() ? flatbuffers::Offset<Labels>{} : to.CreateVector(numbers);
}

bool toEncaps(const Wire::FlattenFecNextHop& from, FlattenFecNextHop& to) {
    if (const auto* const order = from.encap_order()) {
        if (order->size() > EncapTypeStack::kMaxEncaps) { return false; }
        for (const std::uint8_t type : *order) {
            to.encapOrder.push(static_cast<Tunnel::TunnelTable::EncapType>(type));
        }
    }
    if (const auto* const gue = from.gue()) {
        to.gue = GueEncap{
            gue->family(), toAddress(gue->source()), toAddress(gue->destination()), gue->ip_ttl()};
    }
    if (const auto* const vxlan = from.vxlan()) {
        to.vxlan.emplace().vlan = vxlan->vlan();
        return toInterface(vxlan->vti(), to.vxlan->vti);
    }
    return true;
}

}  // namespace

Vel::Ref<const FlattenFecNextHop> RecordCodec<FlattenFecNextHop>::decode(std::string_view bytes) {
    const auto* const from = Record::verified<Wire::FlattenFecNextHop>(bytes);
    if (from == nullptr) { return nullptr; }
    const auto to = Vel::make<FlattenFecNextHop>();
    if (const Labels* const labels = from->mpls_encap_labels()) {
        to->mplsEncapLabels.reserve(std::min<std::size_t>(labels->size(), kMaxLabels));
    }
    const bool inRange =
        toInterface(from->interface(), to->interface) &&
        toLabels(from->labels(), [&](Nexo::MplsLabel label) { to->labels.push(label); }) &&
        toLabels(from->mpls_encap_labels(),
                 [&](Nexo::MplsLabel label) { to->mplsEncapLabels.push_back(label); }) &&
        toEncaps(*from, *to);
    if (!inRange) { return nullptr; }
    to->address = toAddress(from->address());
    if (const auto* const mac = from->mac()) {
        std::array<std::uint8_t, 6> raw{};
        std::copy_n(mac->bytes()->Data(), raw.size(), raw.begin());
        to->mac = Nexo::EthAddr{raw};
    }
    to->decapVrfId = Vrf::VrfId{from->decap_vrf_id()};
    to->decapHeader = from->decap_header();
    to->fallbackVrfId = Vrf::VrfId{from->fallback_vrf_id()};
    to->popTopLabel = from->pop_top_label();
    return to;
}

std::string RecordCodec<FlattenFecNextHop>::encode(const FlattenFecNextHop& record) {
    return Record::encode([&](Builder& to) {
        const auto interface = fromInterface(to, record.interface);
        const auto labels = fromLabels(to, record.labels);
        const auto mplsEncapLabels = fromLabels(to, record.mplsEncapLabels);
        flatbuffers::Offset<flatbuffers::Vector<std::uint8_t>> encapOrder;
        if (record.encapOrder.encaps() > 0) {
            std::array<std::uint8_t, EncapTypeStack::kMaxEncaps> types{};
            for (std::uint8_t i = 0; i < record.encapOrder.encaps(); ++i) {
                types[i] = static_cast<std::uint8_t>(record.encapOrder.encap(i));
            }
            encapOrder = to.CreateVector(types.data(), record.encapOrder.encaps());
        }
        flatbuffers::Offset<Wire::Gue> gue;
        if (record.gue) {
            const Wire::Ip source = fromAddress(record.gue->source);
            const Wire::Ip destination = fromAddress(record.gue->destination);
            gue = Wire::CreateGue(
                to, record.gue->addressFamily, &source, &destination, record.gue->ipTtl);
        }
        flatbuffers::Offset<Wire::Vxlan> vxlan;
        if (record.vxlan) {
            const auto vti = fromInterface(to, record.vxlan->vti);
            vxlan = Wire::CreateVxlan(to, vti, record.vxlan->vlan);
        }
        const Wire::Ip address = fromAddress(record.address);
        const Wire::Mac mac{flatbuffers::make_span(record.mac.bytes())};
        return Wire::CreateFlattenFecNextHop(to,
                                             interface,
                                             record.address.width() == 0 ? nullptr : &address,
                                             record.mac.isZero() ? nullptr : &mac,
                                             labels,
                                             encapOrder,
                                             mplsEncapLabels,
                                             gue,
                                             vxlan,
                                             record.decapVrfId.value(),
                                             record.fallbackVrfId.value(),
                                             record.decapHeader,
                                             record.popTopLabel);
    });
}

}  // namespace Pel::Stash
