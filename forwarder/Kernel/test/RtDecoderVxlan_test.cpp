#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <random>

#include "forwarder/Kernel/RtDecoder.h"
#include "forwarder/Kernel/test/Messages.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Captured from a kernel: the VNI filter of device 15, of three ranges.
constexpr std::string_view kVniFilter =
    "5400000078000200010000002d6f0000070000000f0000001c00018008000100d60b000008000200d80b0000080003"
    "00ef0101010c000180080001001a2700001400018008000100242700000800020026270000";

struct TunnelHeader {
    std::uint8_t family = AF_BRIDGE;
    std::uint8_t flags = 0;
    std::uint16_t reserved = 0;
    std::uint32_t ifindex = 15;
};

/// A VXLAN device; `fill` adds to what its driver says.
template <class Fill>
Link vxlanLink(Fill fill) {
    MessageBuilder builder{RTM_NEWLINK, linkHeader(7, 0x1 | 0x40)};
    builder.text(IFLA_IFNAME, "vxe").begin(IFLA_LINKINFO).text(IFLA_INFO_KIND, "vxlan");
    fill(builder.begin(IFLA_INFO_DATA));
    return only<Link>(builder.end().end().bytes());
}

TEST(RtDecoderVxlan, DeviceOfOneVniNamesItAndItsLocalAddress) {
    const Link link = vxlanLink([](MessageBuilder& data) {
        data.put(1, std::uint32_t{5001})
            .put(4, std::array<std::uint8_t, 4>{10, 0, 1, 1})
            .put(25, std::uint8_t{0});
    });
    Link want;
    want.ifindex = 7;
    want.name = "vxe";
    want.kind = LinkKind::Vxlan;
    want.up = want.running = true;
    want.vni = 5001;
    want.vxlanLocal = *Nexo::IpGenAddr::parse("10.0.1.1");
    EXPECT_EQ(link, want);
}

TEST(RtDecoderVxlan, ExternalDeviceSaysWhetherItHasAFilter) {
    const Link filtered = vxlanLink([](MessageBuilder& data) {
        data.put(1, std::uint32_t{0}).put(25, std::uint8_t{1}).put(30, std::uint8_t{1});
    });
    EXPECT_TRUE(filtered.vxlanExternal);
    EXPECT_TRUE(filtered.vniFilter);
    EXPECT_TRUE(isNone(filtered.vxlanLocal));
    const Link open = vxlanLink(
        [](MessageBuilder& data) { data.put(25, std::uint8_t{1}).put(30, std::uint8_t{0}); });
    EXPECT_TRUE(open.vxlanExternal);
    EXPECT_FALSE(open.vniFilter);
}

TEST(RtDecoderVxlan, LocalAddressMayBeIpv6) {
    std::array<std::uint8_t, 16> address{0x20, 0x01, 0x0d, 0xb8};
    address[15] = 1;
    const Link link = vxlanLink([&](MessageBuilder& data) { data.put(17, address); });
    EXPECT_EQ(link.vxlanLocal.stringValue(), "2001:db8::1");
}

TEST(RtDecoderVxlan, BridgeSaysWhetherItTellsVlansApart) {
    for (const bool filtering : {false, true}) {
        const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(5, 1))
                                         .text(IFLA_IFNAME, "br0")
                                         .begin(IFLA_LINKINFO)
                                         .text(IFLA_INFO_KIND, "bridge")
                                         .begin(IFLA_INFO_DATA)
                                         .put(7, static_cast<std::uint8_t>(filtering))
                                         .end()
                                         .end()
                                         .bytes());
        EXPECT_EQ(link.kind, LinkKind::Bridge);
        EXPECT_EQ(link.vlanFiltering, filtering);
    }
}

TEST(RtDecoderVxlan, BareudpDeviceIsTold) {
    const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(5, 1))
                                     .text(IFLA_IFNAME, "u0")
                                     .begin(IFLA_LINKINFO)
                                     .text(IFLA_INFO_KIND, "bareudp")
                                     .end()
                                     .bytes());
    EXPECT_EQ(link.kind, LinkKind::Bareudp);
}

// VNI filters

TEST(RtDecoderVxlan, VniFilterWithStatisticsSaysWhatEachVniHasSent) {
    // As captured: 49 and 51 datagrams of 43 octets.
    const auto filter = only<VniFilter>(fromHex(
        "f80000007800020001000000187800000700000004000000700001800800010089130000640005800c000100"
        "00000000000000000c00020000000000000000000c00030000000000000000000c0004000000000000000000"
        "0c0005003b080000000000000c00060031000000000000000c00070000000000000000000c00080000000000"
        "0000000070000180080001008a130000640005800c00010000000000000000000c0002000000000000000000"
        "0c00030000000000000000000c00040000000000000000000c00050091080000000000000c00060033000000"
        "000000000c00070000000000000000000c0008000000000000000000"));
    EXPECT_THAT(filter.counts, ElementsAre(VniCount{5001, 49, 2107}, VniCount{5002, 51, 2193}));
    EXPECT_THAT(filter.ranges, ElementsAre(VniRange{5001, 5001}, VniRange{5002, 5002}));
    EXPECT_TRUE(only<VniFilter>(fromHex(kVniFilter)).counts.empty());
}

TEST(RtDecoderVxlan, VniFilterListsItsRanges) {
    const auto filter = only<VniFilter>(fromHex(kVniFilter));
    EXPECT_EQ(filter.ifindex, 15U);
    EXPECT_THAT(filter.ranges,
                ElementsAre(VniRange{3030, 3032}, VniRange{10010, 10010}, VniRange{10020, 10022}));
}

TEST(RtDecoderVxlan, RemovedVnisAreMarked) {
    auto bytes = fromHex(kVniFilter);
    bytes[4] = std::byte{121};
    const auto all = decodeAll(bytes);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].removed);
    EXPECT_EQ(std::get<VniFilter>(all[0].body).ranges.size(), 3U);
}

TEST(RtDecoderVxlan, ImpossibleRangesAreLeftOut) {
    MessageBuilder builder{120, TunnelHeader{}};
    const std::pair<std::uint32_t, std::uint32_t> ranges[] = {
        {0, 5}, {9, 8}, {1, 0x1000000}, {0xFFFFFF, 0xFFFFFF}};
    for (const auto& [first, last] : ranges) { builder.begin(1).put(1, first).put(2, last).end(); }
    builder.begin(1).end();  // without any VNI
    EXPECT_THAT(only<VniFilter>(builder.bytes()).ranges, ElementsAre(VniRange{0xFFFFFF, 0xFFFFFF}));
}

TEST(RtDecoderVxlan, FilterOfNoDeviceOrAnotherFamilyIsNotOurs) {
    TunnelHeader header;
    header.ifindex = 0;
    EXPECT_THAT(decodeAll(MessageBuilder(120, header).bytes()), IsEmpty());
    header = {};
    header.family = AF_INET;
    EXPECT_THAT(decodeAll(MessageBuilder(120, header).bytes()), IsEmpty());
}

// Bridge ports

ifinfomsg portHeader() {
    ifinfomsg header = linkHeader(7, 1);
    header.ifi_family = AF_BRIDGE;
    return header;
}

struct Tunnel {
    std::uint32_t vni;
    std::uint16_t vlan;
    std::uint16_t flags = 0;
};

BridgePort portWith(const std::vector<bridge_vlan_info>& vlans,
                    const std::vector<Tunnel>& tunnels = {}) {
    MessageBuilder builder{RTM_NEWLINK, portHeader()};
    builder.text(IFLA_IFNAME, "vxe").begin(IFLA_AF_SPEC);
    for (const bridge_vlan_info& vlan : vlans) { builder.put(IFLA_BRIDGE_VLAN_INFO, vlan); }
    for (const Tunnel& tunnel : tunnels) {
        builder.begin(IFLA_BRIDGE_VLAN_TUNNEL_INFO)
            .put(1, tunnel.vni)
            .put(2, tunnel.vlan)
            .put(3, tunnel.flags)
            .end();
    }
    return only<BridgePort>(builder.end().bytes());
}

TEST(RtDecoderVxlan, PortNamesItsAccessVlan) {
    const BridgePort port =
        portWith({{0, 10}, {BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 100}, {0, 200}});
    EXPECT_EQ(port.ifindex, 7U);
    EXPECT_EQ(port.accessVlan, 100);
    EXPECT_THAT(port.vlanVnis, IsEmpty());
    EXPECT_EQ(portWith({{0, 10}}).accessVlan, 0);
}

TEST(RtDecoderVxlan, PortMapsVlansToVnisInOrderOfTheVni) {
    const BridgePort port = portWith({}, {{5003, 30}, {5001, 10}, {6000, 100, 8}, {6002, 102, 16}});
    EXPECT_THAT(port.vlanVnis,
                ElementsAre(VlanVni{10, 5001},
                            VlanVni{30, 5003},
                            VlanVni{100, 6000},
                            VlanVni{101, 6001},
                            VlanVni{102, 6002}));
}

TEST(RtDecoderVxlan, ImpossibleMappingsAreLeftOut) {
    EXPECT_THAT(portWith({},
                         {{5001, 0},
                          {0, 10},
                          {5001, 4095},
                          {0x1000000, 10},
                          {6000, 100, 8},
                          {6005, 102, 16},   // three VLANs, six VNIs
                          {6002, 102, 16}})  // an end without a beginning is a single one
                    .vlanVnis,
                ElementsAre(VlanVni{102, 6002}));
}

// Hostile input

TEST(RtDecoderVxlanHostile, MessageCutAnywhereDecodesToNothing) {
    MessageBuilder port{RTM_NEWLINK, portHeader()};
    port.begin(IFLA_AF_SPEC).begin(IFLA_BRIDGE_VLAN_TUNNEL_INFO).put(1, std::uint32_t{5001});
    port.put(2, std::uint16_t{10}).end().end();
    for (const auto& whole : {fromHex(kVniFilter), port.bytes()}) {
        for (std::size_t cut = 0; cut < whole.size(); ++cut) {
            std::vector<std::byte> part(whole.begin(), whole.begin() + static_cast<long>(cut));
            EXPECT_THAT(decodeAll(part), IsEmpty()) << cut;
            if (cut < sizeof(nlmsghdr)) { continue; }
            const auto length = static_cast<std::uint32_t>(cut);
            std::memcpy(part.data(), &length, sizeof length);
            EXPECT_LE(decodeAll(part).size(), 1U) << cut;
        }
    }
}

TEST(RtDecoderVxlanHostile, ChangedBytesNeverCrashNorGrow) {
    std::mt19937 random{20261121};
    std::size_t decoded = 0;
    MessageBuilder builder{RTM_NEWLINK, portHeader()};
    builder.begin(IFLA_AF_SPEC);
    for (const Tunnel& tunnel : {Tunnel{6000, 1, 8}, Tunnel{6003, 4, 16}}) {
        builder.begin(IFLA_BRIDGE_VLAN_TUNNEL_INFO).put(1, tunnel.vni).put(2, tunnel.vlan);
        builder.put(3, tunnel.flags).end();
    }
    const auto port = builder.end().bytes();
    for (int round = 0; round < 20000; ++round) {
        auto bytes = random() % 2 == 0 ? fromHex(kVniFilter) : port;
        for (unsigned change = 0; change < 1 + random() % 4; ++change) {
            bytes[random() % bytes.size()] = static_cast<std::byte>(random());
        }
        for (const RtMessage& message : decodeAll(bytes)) {
            ++decoded;
            if (const auto* const changed = std::get_if<BridgePort>(&message.body)) {
                ASSERT_LE(changed->vlanVnis.size(), 2 * 4094U);
            }
        }
    }
    EXPECT_GT(decoded, 0U);
}

}  // namespace
}  // namespace Pel::Forwarder
