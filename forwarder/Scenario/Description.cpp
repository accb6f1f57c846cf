#include "forwarder/Scenario/Description.h"

#include <algorithm>

#include "model/Fec/FlattenFec.h"

namespace Pel::Forwarder {

namespace {

std::string cut(std::string bytes, const std::optional<std::uint32_t>& to) {
    if (to) { bytes.resize(std::min<std::size_t>(bytes.size(), *to)); }
    return bytes;
}

}  // namespace

Stash::OcNextHopIndex derivedIndex(const std::string& name) {
    std::uint64_t hash = 0xCBF2'9CE4'8422'2325U;  // FNV-1a: the same on every machine and for ever
    for (const char c : name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x0000'0100'0000'01B3U;
    }
    hash ^= hash >> 47U;
    return Stash::OcNextHopIndex{kFirstDerivedIndex | (hash & (kFirstDerivedIndex - 1))};
}

std::string shown(Pel::FecId id) {
    std::string number = std::to_string(fecNumber(id));
    const auto kind = static_cast<std::size_t>(fecKind(id));
    if (fecKind(id) == FecKind::scenario) { return number; }
    return (kind < kFecKindWords.size() ? std::string{kFecKindWords[kind].first}
                                        : std::to_string(kind)) +
           "/" + number;
}

std::string recordBytes(const DescribedNextHop& nextHop) {
    Stash::FlattenFecNextHop record;
    record.interface = nextHop.interface;
    record.address = nextHop.address;
    record.mac = nextHop.mac;
    for (const Nexo::MplsLabel label : nextHop.labels) { record.labels.push(label); }
    for (const std::uint8_t type : nextHop.encapOrder) {
        record.encapOrder.push(static_cast<Tunnel::TunnelTable::EncapType>(type));
    }
    record.mplsEncapLabels = nextHop.mplsEncapLabels;
    record.gue = nextHop.gue;
    record.vxlan = nextHop.vxlan;
    record.decapVrfId = Vrf::VrfId{nextHop.decapVrf.id};
    record.decapHeader = nextHop.decapHeader;
    record.fallbackVrfId = Vrf::VrfId{nextHop.fallbackVrf.id};
    record.popTopLabel = nextHop.pop;
    return cut(Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(record), nextHop.truncate);
}

std::string recordBytes(const DescribedFec& fec,
                        const std::vector<Stash::OcNextHopIndex>& indexes) {
    Stash::FlattenFec record;
    for (std::size_t i = 0; i < fec.members.size(); ++i) {
        record.nextHopIs({indexes[i], fec.members[i].weight});
    }
    record.nexthopGroupNameIs(fec.name, fec.groupAttribute);
    return cut(Stash::RecordCodec<Stash::FlattenFec>::encode(record), fec.truncate);
}

}  // namespace Pel::Forwarder
