#include "model/View/OpenConfigPaths.h"

#include <string_view>

namespace Pel::OcApi::OpenConfigPaths {

namespace {

using Type = Gale::Leaf::Type;

const std::vector<Gale::Leaf> kNextHopLeaves{
    {"index", Type::number64},
    {"state/index", Type::number64},
    {"state/ip-address"},
    {"state/mac-address"},
    {"state/pop-top-label"},
    {"state/pushed-mpls-label-stack"},
    {"state/encapsulate-header"},
    {"state/decapsulate-header"},
    {"state/openconfig-aft-network-instance:network-instance"},
    {"state/vni-label"},
    {"state/tunnel-src-ip-address"},
    {"encap-headers/encap-header[index]/index"},
    {"encap-headers/encap-header[index]/state/index"},
    {"encap-headers/encap-header[index]/state/type"},
    {"encap-headers/encap-header[index]/mpls/state/mpls-label-stack"},
    {"encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
     "id"},
    {"encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
     "state/id"},
    {"encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
     "state/label"},
    {"encap-headers/encap-header[index]/udp-v4/state/src-ip"},
    {"encap-headers/encap-header[index]/udp-v4/state/dst-ip"},
    {"encap-headers/encap-header[index]/udp-v4/state/dst-udp-port"},
    {"encap-headers/encap-header[index]/udp-v4/state/ip-ttl"},
    {"encap-headers/encap-header[index]/udp-v6/state/src-ip"},
    {"encap-headers/encap-header[index]/udp-v6/state/dst-ip"},
    {"encap-headers/encap-header[index]/udp-v6/state/dst-udp-port"},
    {"encap-headers/encap-header[index]/udp-v6/state/ip-ttl"},
    {"encap-headers/encap-header[index]/vxlan/state/vni-label"},
    {"encap-headers/encap-header[index]/vxlan/state/tunnel-src-ip-address"},
    {"interface-ref/state/interface"},
    {"interface-ref/state/subinterface"},
};

const std::vector<Gale::Leaf> kGroupLeaves{
    {"id", Type::number64},
    {"state/id", Type::number64},
    {"state/programmed-id", Type::number64},
    {"state/next-hop-group-name"},
    {"next-hops/next-hop[index]/index", Type::number64},
    {"next-hops/next-hop[index]/state/index", Type::number64},
    {"next-hops/next-hop[index]/state/weight", Type::number64},
};

const std::vector<Gale::Leaf> kPrefixLeaves{
    {"prefix"},
    {"state/prefix"},
    {"state/openconfig-aft-network-instance:next-hop-group", Type::number64},
    {"state/openconfig-aft-network-instance:next-hop-group-network-instance"},
    {"state/origin-protocol", Type::identity, "openconfig-policy-types"},
};

const std::vector<Gale::Leaf> kInstanceLeaves{
    {"name"},
    {"config/name"},
    {"config/type", Type::identity, "openconfig-network-instance-types"},
    {"state/name"},
    {"state/type", Type::identity, "openconfig-network-instance-types"},
};

const std::vector<Gale::Leaf> kCounterLeaves{
    {"index", Type::number64},
    {"state/index", Type::number64},
    {"state/packets-forwarded", Type::number64},
    {"state/octets-forwarded", Type::number64},
};

const std::vector<Gale::Leaf> kStateSyncedLeaves{{"state/ipv4-unicast"}, {"state/ipv6-unicast"}};

const std::vector<Gale::Leaf> kSummaryLeaves{
    {"origin-protocol", Type::identity, "openconfig-policy-types"},
    {"state/origin-protocol", Type::identity, "openconfig-policy-types"},
    {"state/counters/aft-entries", Type::number64},
};

/// Leaves of the schema that this view never fills; below an instance's "afts".
constexpr std::string_view kEmptyLeaves[] = {
    "counters/ethernet/mac-entry[mac-address]",
    "counters/ipv4-unicast/ipv4-entry[prefix]",
    "counters/ipv4-unicast/ipv4-entry[prefix]/prefix",
    "counters/ipv4-unicast/ipv4-entry[prefix]/state/octets-forwarded",
    "counters/ipv4-unicast/ipv4-entry[prefix]/state/octets-forwarded-backup",
    "counters/ipv4-unicast/ipv4-entry[prefix]/state/packets-forwarded",
    "counters/ipv4-unicast/ipv4-entry[prefix]/state/packets-forwarded-backup",
    "counters/ipv4-unicast/ipv4-entry[prefix]/state/prefix",
    "counters/ipv6-unicast/ipv6-entry[prefix]",
    "counters/ipv6-unicast/ipv6-entry[prefix]/prefix",
    "counters/ipv6-unicast/ipv6-entry[prefix]/state/octets-forwarded",
    "counters/ipv6-unicast/ipv6-entry[prefix]/state/octets-forwarded-backup",
    "counters/ipv6-unicast/ipv6-entry[prefix]/state/packets-forwarded",
    "counters/ipv6-unicast/ipv6-entry[prefix]/state/packets-forwarded-backup",
    "counters/ipv6-unicast/ipv6-entry[prefix]/state/prefix",
    "counters/mpls/label-entry[label]",
    "counters/mpls/label-entry[label]/label",
    "counters/mpls/label-entry[label]/state/label",
    "counters/mpls/label-entry[label]/state/octets-forwarded",
    "counters/mpls/label-entry[label]/state/packets-forwarded",
    "counters/policy-forwarding/policy-forwarding-entry[index]",
    "ethernet/mac-entry",
    "global-filter/config/ipv4-policy",
    "global-filter/config/ipv6-policy",
    "global-filter/state/ipv4-policy",
    "global-filter/state/ipv6-policy",
    "ipv4-unicast/ipv4-entry",
    "ipv4-unicast/ipv4-entry[prefix]/state/counters/octets-forwarded",
    "ipv4-unicast/ipv4-entry[prefix]/state/counters/octets-forwarded-backup",
    "ipv4-unicast/ipv4-entry[prefix]/state/counters/packets-forwarded",
    "ipv4-unicast/ipv4-entry[prefix]/state/counters/packets-forwarded-backup",
    "ipv4-unicast/ipv4-entry[prefix]/state/decapsulate-header",
    "ipv4-unicast/ipv4-entry[prefix]/state/entry-metadata",
    "ipv4-unicast/ipv4-entry[prefix]/state/origin-network-instance",
    "ipv6-unicast/ipv6-entry",
    "ipv6-unicast/ipv6-entry[prefix]/state/counters/octets-forwarded",
    "ipv6-unicast/ipv6-entry[prefix]/state/counters/octets-forwarded-backup",
    "ipv6-unicast/ipv6-entry[prefix]/state/counters/packets-forwarded",
    "ipv6-unicast/ipv6-entry[prefix]/state/counters/packets-forwarded-backup",
    "ipv6-unicast/ipv6-entry[prefix]/state/decapsulate-header",
    "ipv6-unicast/ipv6-entry[prefix]/state/entry-metadata",
    "ipv6-unicast/ipv6-entry[prefix]/state/origin-network-instance",
    "mpls/label-entry",
    "mpls/label-entry[label]/decap-mpls-label-stacks/decap-mpls-label-stack[id]/id",
    "mpls/label-entry[label]/decap-mpls-label-stacks/decap-mpls-label-stack[id]/state/id",
    "mpls/label-entry[label]/decap-mpls-label-stacks/decap-mpls-label-stack[id]/state/label",
    "mpls/label-entry[label]/label",
    "mpls/label-entry[label]/state/counters/octets-forwarded",
    "mpls/label-entry[label]/state/counters/packets-forwarded",
    "mpls/label-entry[label]/state/entry-metadata",
    "mpls/label-entry[label]/state/label",
    "mpls/label-entry[label]/state/next-hop-group",
    "mpls/label-entry[label]/state/next-hop-group-network-instance",
    "mpls/label-entry[label]/state/popped-mpls-label-stack",
    "next-hop-groups/next-hop-group[id]/conditional/condition[id]/id",
    ("next-hop-groups/next-hop-group[id]/conditional/condition[id]/input-interfaces/"
     "input-interface[id]/id"),
    ("next-hop-groups/next-hop-group[id]/conditional/condition[id]/input-interfaces/"
     "input-interface[id]/state/id"),
    ("next-hop-groups/next-hop-group[id]/conditional/condition[id]/input-interfaces/"
     "input-interface[id]/state/interface"),
    ("next-hop-groups/next-hop-group[id]/conditional/condition[id]/input-interfaces/"
     "input-interface[id]/state/subinterface"),
    "next-hop-groups/next-hop-group[id]/conditional/condition[id]/state/dscp",
    "next-hop-groups/next-hop-group[id]/conditional/condition[id]/state/id",
    "next-hop-groups/next-hop-group[id]/conditional/condition[id]/state/next-hop-group",
    "next-hop-groups/next-hop-group[id]/state/backup-active",
    "next-hop-groups/next-hop-group[id]/state/backup-next-hop-group",
    "next-hop-groups/next-hop-group[id]/state/color",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/gre/state/dst-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/gre/state/src-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/gre/state/ttl",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/ipv4/state/dst-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/ipv4/state/src-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/ipv6/state/dst-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/ipv6/state/src-ip",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/mpls/state/traffic-class",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/udp-v4/state/dscp",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/udp-v4/state/src-udp-port",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/udp-v6/state/dscp",
    "next-hops/next-hop[index]/encap-headers/encap-header[index]/udp-v6/state/src-udp-port",
    "next-hops/next-hop[index]/gre/state/dst-ip",
    "next-hops/next-hop[index]/gre/state/src-ip",
    "next-hops/next-hop[index]/gre/state/ttl",
    "next-hops/next-hop[index]/ip-in-ip/state/dst-ip",
    "next-hops/next-hop[index]/ip-in-ip/state/src-ip",
    "next-hops/next-hop[index]/state/counters/octets-forwarded",
    "next-hops/next-hop[index]/state/counters/packets-forwarded",
    "next-hops/next-hop[index]/state/lsp-name",
    "next-hops/next-hop[index]/state/origin-protocol",
    "next-hops/next-hop[index]/state/programmed-index",
    "policy-forwarding/policy-forwarding-entry",
};

}  // namespace

const std::vector<Gale::EntryKind>& kinds() {
    static const std::vector<Gale::EntryKind> all{
        {Gale::Lane::nextHops, kNextHop, kNextHopLeaves},
        {Gale::Lane::groups, kGroup, kGroupLeaves},
        {Gale::Lane::prefixes, kIpv4Entry, kPrefixLeaves},
        {Gale::Lane::prefixes, kIpv6Entry, kPrefixLeaves},
        {Gale::Lane::flags, kInstance, kInstanceLeaves},
        {Gale::Lane::counters, kCounter, kCounterLeaves},
        {Gale::Lane::flags, kStateSynced, kStateSyncedLeaves},
        {Gale::Lane::summaries, kIpv4Summary, kSummaryLeaves},
        {Gale::Lane::summaries, kIpv6Summary, kSummaryLeaves},
    };
    return all;
}

const std::vector<std::string>& emptyLeaves() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> paths{std::string{kInstance} + "/state/fallback-network-instance"};
        for (const std::string_view leaf : kEmptyLeaves) {
            paths.push_back(std::string{kInstance} + "/afts/" + std::string{leaf});
        }
        return paths;
    }();
    return all;
}

const std::vector<Gale::ModelData>& models() {
    static const char* const kOrganization = "OpenConfig working group";
    static const std::vector<Gale::ModelData> all{
        {"openconfig-network-instance", kOrganization, "4.7.0"},
        {"openconfig-aft", kOrganization, "3.4.0"},
        {"openconfig-aft-network-instance", kOrganization, "0.3.1"},
        {"openconfig-aft-counters", kOrganization, "3.3.0"},
        {"openconfig-aft-summary", kOrganization, "0.2.2"},
    };
    return all;
}

}  // namespace Pel::OcApi::OpenConfigPaths
