#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "model/Counters/CounterIndex.h"
#include "model/Fec/FecId.h"
#include "model/Fec/FlattenFecEntry.h"
#include "model/Fec/FlattenNextHopEntry.h"
#include "model/Fec/OcNextHopIndex.h"
#include "model/Net/IpPrefix.h"
#include "model/Route/RouteStatus.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vrf/VrfId.h"
#include "model/Vxlan/VtiStatusDir.h"

/// What a scenario publishes, record by record: the bytes are those that go into the store, so that they may also be such
/// as no healthy producer writes. Handles are not set.
namespace Pel::Forwarder {

struct VrfItem {
    Vrf::VrfId id;
    std::string name;
};
struct VtisItem {
    Vxlan::VtiStatusDirRecord record;  ///< all of them
};
/// Tunnel configuration of one source, all of it; "" is the device's own configuration.
struct UdpPortsItem {
    std::string source;
    L3::Tunnel::UdpDestinationPortConfigRecord record;
};
struct DecapGroupsItem {
    std::string source;
    Tunnel::Decap::ConfigRecord record;
};
struct NextHopItem {
    FlattenNextHopEntry entry;  ///< no group: no counter
    std::string content;
};
struct FecItem {
    Pel::FecId id;
    FlattenFecEntry entry;
    std::string content;
};
struct RouteKey {
    std::string vrf;
    Nexo::IpPrefix prefix;
    friend auto operator<=>(const RouteKey&, const RouteKey&) = default;
};
struct RouteItem {
    RouteKey key;
    Mesa::FibRoute route;
};

/// A counter, and how it goes on. What is not given stays as it is; a source gives both before it publishes.
struct CounterItem {
    FlexCounters::CounterIndex index;
    std::optional<std::uint64_t> packets;
    std::optional<std::uint64_t> octets;
    std::uint64_t packetRate = 0;  ///< a second
    std::uint64_t octetRate = 0;
    std::uint64_t wrap = 0;  ///< where both begin at 0 again; 0: at 2^64
};

struct CounterDel {
    FlexCounters::CounterIndex index;
};
struct RouteDel {
    RouteKey key;
};
struct FecDel {
    Pel::FecId id;
};
struct NextHopDel {
    Stash::OcNextHopIndex index;
};
struct VrfIdDel {
    Vrf::VrfId id;
};
struct VrfTablesDel {
    std::string name;  ///< of a VRF without routes
};

struct FecReadyItem {
    bool ready = false;
};
struct FibReadyItem {
    std::string vrf;
    std::optional<bool> ready;  ///< none: the VRF waits for nobody
};

/// Whether the changes of a route table have paused.
struct QuiescedItem {
    std::string vrf;
    Nexo::AddressFamily family = Nexo::AddressFamily::ipv4;
    bool quiesced = false;
};

using Change = std::variant<VrfItem,
                            VtisItem,
                            UdpPortsItem,
                            DecapGroupsItem,
                            NextHopItem,
                            FecItem,
                            RouteItem,
                            CounterItem,
                            CounterDel,
                            RouteDel,
                            FecDel,
                            NextHopDel,
                            VrfIdDel,
                            VrfTablesDel,
                            FecReadyItem,
                            FibReadyItem,
                            QuiescedItem>;
using Changes = std::vector<Change>;

}  // namespace Pel::Forwarder
