#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "forwarder/Scenario/Problems.h"
#include "model/Fec/FecId.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/OcNextHopIndex.h"
#include "model/Route/OriginProtocol.h"
#include "model/Tunnel/PayloadType.h"
#include "model/Vrf/VrfId.h"

/// The elements of a scenario as a file describes them, and the bytes of their records. `place` is where the description
/// stands.
namespace Pel::Forwarder {

struct DescribedVrf {
    Place place;
    std::string name;
    Vrf::VrfId id;
};

/// A VRF by its id, or by its name until ScenarioState has looked up the id. 0: none.
struct VrfReference {
    Place place;
    std::string name;
    std::uint32_t id = 0;
};

struct DescribedNextHop {
    Place place;
    std::string name;
    Stash::OcNextHopIndex index;
    Nexo::IntfId interface;
    Nexo::IpGenAddr address;
    Nexo::EthAddr mac;
    std::vector<Nexo::MplsLabel> labels;
    std::vector<std::uint8_t> encapOrder;
    std::vector<Nexo::MplsLabel> mplsEncapLabels;
    std::optional<Stash::GueEncap> gue;
    std::optional<Stash::VxlanEncap> vxlan;
    VrfReference decapVrf;
    std::uint8_t decapHeader = 0;
    VrfReference fallbackVrf;
    bool pop = false;
    std::optional<std::uint32_t> truncate;  ///< the record has only so many of its bytes
};

struct DescribedMember {
    Place place;
    std::string nextHop;
    std::uint32_t weight = 1;
};

struct DescribedFec {
    Place place;
    Pel::FecId id;
    std::string name;
    std::uint8_t groupAttribute = 0;
    std::uint64_t programmedId = 0;
    bool top = true;
    bool secondFlag = false;
    std::vector<DescribedMember> members;
    std::optional<std::uint32_t> truncate;
};

struct DescribedRoute {
    Place place;
    Pel::FecId fec;
    OriginProtocol origin = OriginProtocol::unset;
};

/// What a counter counts: a next hop, by its name, or a tunnel, or nothing that is known: a number as it is.
struct CounterKey {
    std::string nextHop;
    Pel::FecId fec;
    std::uint64_t index = 0;
    friend auto operator<=>(const CounterKey&, const CounterKey&) = default;
};

struct DescribedCounter {
    Place place;
    std::optional<std::uint64_t> packets;  ///< none: goes on from where it is
    std::optional<std::uint64_t> octets;
    std::uint64_t packetRate = 0;  ///< a second
    std::uint64_t octetRate = 0;
    std::uint64_t wrap = 0;  ///< 0: at 2^64
};

/// What names a piece of tunnel configuration; `source` "" is the device's own configuration.
template <class Name>
struct SourcedKey {
    std::string source;
    Name name{};
    friend auto operator<=>(const SourcedKey&, const SourcedKey&) = default;
};
using UdpPortKey = SourcedKey<Tunnel::PayloadType>;
using DecapGroupKey = SourcedKey<std::string>;

/// The number of a next hop that is given none: made of its name, so that it is the same in every run, and at or above
/// kFirstDerivedIndex, where no kernel's next hop ever gets one.
Stash::OcNextHopIndex derivedIndex(const std::string& name);
inline constexpr std::uint64_t kFirstDerivedIndex = std::uint64_t{1} << 47U;

/// A word of a file and the number that it stands for.
using Word = std::pair<std::string_view, std::uint8_t>;
inline constexpr std::array<Word, 5> kFecKindWords = {
    {{"kernel", 0}, {"memberSet", 1}, {"ipInIpTunnel", 2}, {"bottom", 3}, {"scenario", 4}}};
/// The id as a file says it: "41", "kernel/41".
std::string shown(Pel::FecId id);

std::string recordBytes(const DescribedNextHop& nextHop);
/// `indexes`: of the members.
std::string recordBytes(const DescribedFec& fec, const std::vector<Stash::OcNextHopIndex>& indexes);

}  // namespace Pel::Forwarder
