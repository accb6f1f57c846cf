#include "model/View/OpenConfigNextHops.h"

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <array>
#include <utility>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;
using OpenConfigKeys::Decimal;

struct OpenConfigNextHops::Paths {
    PathTemplate entry{OpenConfigPaths::kNextHop, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kNextHop};
    PathTemplate index{"index"};
    PathTemplate stateIndex{"state/index"};
    PathTemplate ipAddress{"state/ip-address"};
    PathTemplate macAddress{"state/mac-address"};
    PathTemplate popTopLabel{"state/pop-top-label"};
    PathTemplate labels{"state/pushed-mpls-label-stack"};
    PathTemplate decapsulateHeader{"state/decapsulate-header"};
    PathTemplate networkInstance{"state/network-instance"};
    PathTemplate vniLabel{"state/vni-label"};
    PathTemplate tunnelSource{"state/tunnel-src-ip-address"};
    PathTemplate interface { "interface-ref/state/interface" };
    PathTemplate subinterface{"interface-ref/state/subinterface"};
    PathTemplate headerIndex{"encap-headers/encap-header[index]/index"};
    PathTemplate headerStateIndex{"encap-headers/encap-header[index]/state/index"};
    PathTemplate headerType{"encap-headers/encap-header[index]/state/type"};
    PathTemplate headerLabels{"encap-headers/encap-header[index]/mpls/state/mpls-label-stack"};
    struct Udp {
        explicit Udp(const std::string& container)
            : source{"encap-headers/encap-header[index]/" + container + "/state/src-ip"},
              destination{"encap-headers/encap-header[index]/" + container + "/state/dst-ip"},
              ttl{"encap-headers/encap-header[index]/" + container + "/state/ip-ttl"} {}
        PathTemplate source;
        PathTemplate destination;
        PathTemplate ttl;
    };
    Udp udpV4{"udp-v4"};
    Udp udpV6{"udp-v6"};
    PathTemplate headerVni{"encap-headers/encap-header[index]/vxlan/state/vni-label"};
    PathTemplate headerTunnelSource{
        "encap-headers/encap-header[index]/vxlan/state/tunnel-src-ip-address"};
};

namespace {

/// The schema's name of a header type; empty for a type that has none.
std::string_view typeName(EncapHeaderType type) {
    switch (type) {
        case EncapHeaderType::unset:
            return {};
        case EncapHeaderType::gre:
            return "GRE";
        case EncapHeaderType::mpls:
            return "MPLS";
        case EncapHeaderType::ipv4:
            return "IPV4";
        case EncapHeaderType::vxlan:
            return "VXLAN";
        case EncapHeaderType::udpv4:
            return "UDPV4";
        case EncapHeaderType::udpv6:
            return "UDPV6";
        case EncapHeaderType::ipv6:
            return "IPV6";
    }
    return {};
}

/// Reserved labels go by name.
std::string_view labelName(std::uint32_t label) {
    switch (label) {
        case 0:
            return "IPV4_EXPLICIT_NULL";
        case 1:
            return "ROUTER_ALERT";
        case 2:
            return "IPV6_EXPLICIT_NULL";
        case 3:
            return "IMPLICIT_NULL";
        case 7:
            return "ENTROPY_LABEL_INDICATOR";
        default:
            return {};
    }
}

class Writer {
public:
    Writer(Gale::PackedNotification& notification, const OpenConfigInstances& instances)
        : to{notification}, instances_{instances} {}

    void address(const PathTemplate& path, PathTemplate::Keys keys, const Nexo::IpGenAddr& value) {
        if (!value.isZero()) { to.leaf(path, keys, value.stringValue()); }
    }
    /// The model's stacks are top first, the schema's bottom first. A stack with a label that the
    /// schema cannot express (4 to 6, 8 to 15) is left out: half of it would be another path.
    template <class Stack>
    void labels(const PathTemplate& path, PathTemplate::Keys keys, const Stack& stack) {
        absl::InlinedVector<NotificationWriter::Element, 16> elements;
        for (const Nexo::MplsLabel label : stack) {
            const std::string_view name = labelName(label.value());
            if (name.empty() && label.value() < 16) { return; }
            elements.push_back({label.value(), name});
        }
        if (elements.empty()) { return; }
        std::reverse(elements.begin(), elements.end());
        to.leafList(path, keys, elements);
    }
    /// An instance is said only together with the header that is removed before the look-up in it.
    template <class P>
    void decapsulation(const P& paths, const NextHop& nextHop) {
        const std::string_view header = typeName(nextHop.decapsulateHeader);
        if (header.empty()) { return; }
        to.leaf(paths.decapsulateHeader, {}, header);
        const std::string& vrf = nextHop.decapNetworkInstance.stringValue();
        if (!vrf.empty()) { to.leaf(paths.networkInstance, {}, instances_.nameOf(vrf)); }
    }
    template <class P>
    void udp(const P& paths, PathTemplate::Keys keys, const UdpState& state) {
        address(paths.source, keys, state.srcIp);
        address(paths.destination, keys, state.dstIp);
        const std::uint64_t ttl = state.ipTtl.value_or(0);
        if (ttl != 0) { to.leaf(paths.ttl, keys, ttl); }
    }
    /// VNI and local tunnel end have a home in the header and, for older clients, in the next hop.
    template <class P>
    void vxlan(const P& paths, PathTemplate::Keys keys, const VxlanState& state) {
        if (state.vniLabel) {
            to.leaf(paths.headerVni, keys, std::uint64_t{*state.vniLabel});
            to.leaf(paths.vniLabel, {}, std::uint64_t{*state.vniLabel});
        }
        address(paths.headerTunnelSource, keys, state.tunnelSrcIpAddress);
        address(paths.tunnelSource, {}, state.tunnelSrcIpAddress);
    }
    template <class P>
    void header(const P& paths, const EncapHeader& header) {
        const Decimal index{header.index};
        const std::array<std::string_view, 1> keys{index};
        to.leaf(paths.headerIndex, keys, std::uint64_t{header.index});
        to.leaf(paths.headerStateIndex, keys, std::uint64_t{header.index});
        const std::string_view type = typeName(header.type);
        if (!type.empty()) { to.leaf(paths.headerType, keys, type); }
        if (const auto* const mpls = header.stateAs<MplsState>()) {
            labels(paths.headerLabels, keys, mpls->mplsLabelStack);
        } else if (const auto* const udpState = header.stateAs<UdpState>()) {
            udp(header.type == EncapHeaderType::udpv4 ? paths.udpV4 : paths.udpV6, keys, *udpState);
        } else if (const auto* const vxlanState = header.stateAs<VxlanState>()) {
            vxlan(paths, keys, *vxlanState);
        }
    }

    NotificationWriter to;

private:
    const OpenConfigInstances& instances_;
};

}  // namespace

OpenConfigNextHops::OpenConfigNextHops(Vel::Ref<NextHopContainer> nextHops,
                                       const OpenConfigInstances& instances)
    : ListSource{Gale::Lane::nextHops},
      nextHops_{std::move(nextHops)},
      instances_{instances},
      paths_{std::make_unique<Paths>()} {
    const auto markIndex = [this](const NextHopIndex& index) {
        mark(OpenConfigKeys::ofNumber(index.value()));
    };
    onNextHop_ =
        nextHops_->onNextHopOrClear().subscribe([this, markIndex](const NextHopIndex* index) {
            index != nullptr ? markIndex(*index) : markHeld();
        });
    onProcessed_ = nextHops_->onProcessed().subscribe(markIndex);
}

OpenConfigNextHops::~OpenConfigNextHops() = default;

std::optional<Gale::EntryKey> OpenConfigNextHops::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto index = nextHops_->nextKey(after ? std::optional{NextHopIndex{after->lo}}
                                                : std::optional<NextHopIndex>{});
    if (!index) { return std::nullopt; }
    return OpenConfigKeys::ofNumber(index->value());
}

bool OpenConfigNextHops::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const NextHop* const nextHop = nextHops_->nextHop(NextHopIndex{key.lo});
    if (nextHop == nullptr) { return false; }
    const Decimal index{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    Writer writer{to.notification, instances_};
    writer.to.prefix(paths_->entry, keys);
    writer.to.leaf(paths_->index, {}, key.lo);
    writer.to.leaf(paths_->stateIndex, {}, key.lo);
    writer.address(paths_->ipAddress, {}, nextHop->ipAddress);
    if (!nextHop->macAddress.isZero()) {
        writer.to.leaf(paths_->macAddress, {}, nextHop->macAddress.stringValue());
    }
    if (nextHop->popTopLabel) { writer.to.flagLeaf(paths_->popTopLabel, {}, true); }
    writer.labels(paths_->labels, {}, nextHop->pushedMplsLabelStack);
    writer.decapsulation(*paths_, *nextHop);
    if (!nextHop->interface.empty()) {
        writer.to.leaf(paths_->interface, {}, nextHop->interface.stringValue());
        if (nextHop->subinterface) {
            writer.to.leaf(paths_->subinterface, {}, std::uint64_t{*nextHop->subinterface});
        }
    }
    for (const EncapHeader& header : nextHop->encapHeaders) { writer.header(*paths_, header); }
    writer.to.atomic();
    return true;
}

void OpenConfigNextHops::encodeDelete(const Gale::EntryKey& key,
                                      Gale::PackedNotification& notification) const {
    const Decimal index{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    NotificationWriter{notification}.deletion(OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

bool OpenConfigNextHops::pending(const Gale::EntryKey& key) const {
    return nextHops_->pending(NextHopIndex{key.lo});
}

}  // namespace Pel::OcApi
