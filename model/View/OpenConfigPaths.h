#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/Gale/View.h"

/// Where the served lists stand in the OpenConfig schema, and what else there is. With modules, as
/// Gale::EntryKind explains: openconfig-aft has groupings only, so that its nodes belong to the
/// module that uses them.
namespace Pel::OcApi::OpenConfigPaths {

inline constexpr const char* kOrigin = "openconfig";
inline constexpr const char* kInstance =
    "openconfig-network-instance:network-instances/network-instance[name]";
inline constexpr const char* kNextHop =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/next-hops/"
    "next-hop[index]";
inline constexpr const char* kGroup =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/next-hop-groups/"
    "next-hop-group[id]";
inline constexpr const char* kIpv4Entry =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/ipv4-unicast/"
    "ipv4-entry[prefix]";
inline constexpr const char* kIpv6Entry =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/ipv6-unicast/"
    "ipv6-entry[prefix]";

inline constexpr const char* kCounter =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/"
    "openconfig-aft-counters:counters/next-hops/next-hop[index]";

inline constexpr const char* kStateSynced =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/state-synced";
inline constexpr const char* kIpv4Summary =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/"
    "openconfig-aft-summary:aft-summaries/ipv4-unicast/protocols/protocol[origin-protocol]";
inline constexpr const char* kIpv6Summary =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/"
    "openconfig-aft-summary:aft-summaries/ipv6-unicast/protocols/protocol[origin-protocol]";

/// The order of kinds().
enum Kind : std::size_t {
    nextHops,
    groups,
    ipv4Entries,
    ipv6Entries,
    instances,
    counters,
    stateSynced,
    ipv4Summaries,
    ipv6Summaries,
};

const std::vector<Gale::EntryKind>& kinds();
const std::vector<std::string>& emptyLeaves();
const std::vector<Gale::ModelData>& models();

}  // namespace Pel::OcApi::OpenConfigPaths
