#include "forwarder/Kernel/RtDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "forwarder/Kernel/test/Messages.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;

// Captured from a kernel.
constexpr std::string_view kWideGroup =
    "ac000000680000000100000025750000000000000000000008000100f401000006000300000000001c000200650000"
    "00e7"
    "03000066000000feff00006700000000000000080010000000000058000f801c000180080001006500000008000200"
    "0000"
    "000008000300000000001c0001800800010066000000080002000000000008000300000000001c0001800800010067"
    "0000"
    "000800020000000000080003000000000008000e0000000080";
constexpr std::string_view kResilientGroup =
    "b000000068000000010000006b6d0000000000000000000008000100dc000000060003000100000014000200650000"
    "0000"
    "000000660000000200000028000c800600010020000000080002007017000008000300000000000c00040000000000"
    "0000"
    "000008001000000000003c000f801c0001800800010065000000080002000101000008000300000000001c00018008"
    "0001"
    "006600000008000200e7020000080003000000000008000e0000000080";
constexpr std::string_view kVxlanNexthop =
    "700000006800000001000000f66d000002fd000000000000080001002d0100000800050007000000080006000a3200"
    "0238"
    "0008000c0001000000000000001389080002000a000102080003000a00010105000500080000000500040040000000"
    "06000"
    "600000000000600070002000000";
constexpr std::string_view kSegmentRouting =
    "780000006800000001000000056e00000afd000000000000080001003701000008000500020000001400060020010d"
    "b8000"
    "100000000000000000002340008003000010001000000000404010100000020010db80006000000000000000000012"
    "001"
    "0db80005000000000000000000010600070005000000";
constexpr std::string_view kViaIpv6 =
    "540000001800220001000000106e000002100000fe0300010000000008000f00fe000000080001000ad2000008001e"
    "006f"
    "000000160012000a0020010db800010000000000000000000200000800040002000000";
constexpr std::string_view kFdbNexthop =
    "2c00000068000000010000001b6e000002fd000000000000080001004a01000004000b00080006000a000102";
// Captured from zebra, without the FPM header.
constexpr std::string_view kConnectedNexthop =
    "280000006800010500000000ca163edf02000b000000000008000100070000000800050002000000";
constexpr std::string_view kNhidRoute =
    "340000001800010500000000ca163edf02180000fec400010000000008000100c0000200080006001400000008001e"
    "0012"
    "000000";
constexpr std::string_view kDeleteThenNew =
    "2c0000001900010400000000ca163edf02180000fec400000000000008000100c00002000800060014000000340000"
    "00180"
    "0010500000000ca163edf02180000fec400010000000008000100c0000200080006001400000008001e0019000000";
constexpr std::string_view kLargeTable =
    "3c00000018000105000000003feedfa80218000000c400010000000008000100c0a80800080006001400000008000f"
    "00e803"
    "000008001e0021000000";
constexpr std::string_view kDeletedNexthop =
    "200000006900010400000000ca163edf00000000000000000800010019000000";
constexpr std::string_view kMplsNexthop =
    "480000006800010500000000fb2344c302000b0000000000080001000e000000080006000a00010208000500020000"
    "000600"
    "070001000000100008800c00010003e8100003e82100";
constexpr std::string_view kMultipath =
    "5000000018000105000000003feedfa802180000fec400010000000008000100c00002000800060014000000240009"
    "8010"
    "00000002000000080005000a0001021000000003000000080005000a000202";
constexpr std::string_view kBlackholeRoute =
    "2c0000001800010500000000ca163edf02180000fec400060000000008000100c0a801000800060014000000";
constexpr std::string_view kLsp =
    "400000001800010500000000fb2344c31c140000fec4000100000000080001000006410008001300000c81000a0012"
    "0002"
    "000a00020200000800040003000000";

constexpr std::string_view kAll[] = {kWideGroup,
                                     kResilientGroup,
                                     kVxlanNexthop,
                                     kSegmentRouting,
                                     kViaIpv6,
                                     kFdbNexthop,
                                     kConnectedNexthop,
                                     kNhidRoute,
                                     kDeleteThenNew,
                                     kLargeTable,
                                     kDeletedNexthop,
                                     kMplsNexthop,
                                     kMultipath,
                                     kBlackholeRoute,
                                     kLsp};

TEST(RtDecoder, GroupWeightsAreSixteenBitsWide) {
    const auto group = only<Nexthop>(fromHex(kWideGroup));
    EXPECT_EQ(group.id, 500U);
    EXPECT_TRUE(group.isGroup);
    EXPECT_TRUE(group.hasStatistics);
    EXPECT_THAT(group.group,
                ElementsAre(NexthopGroupEntry{101, 1000, 0},
                            NexthopGroupEntry{102, 65535, 0},
                            NexthopGroupEntry{103, 1, 0}));
}

TEST(RtDecoder, GroupStatisticsStandAtTheirMembers) {
    const auto group = only<Nexthop>(fromHex(kResilientGroup));
    EXPECT_THAT(group.group,
                ElementsAre(NexthopGroupEntry{101, 1, 257}, NexthopGroupEntry{102, 3, 743}));
}

TEST(RtDecoder, EncapsulationIsReadThoughItComesBeforeItsType) {
    const auto nexthop = only<Nexthop>(fromHex(kVxlanNexthop));
    EXPECT_EQ(nexthop.id, 301U);
    EXPECT_EQ(nexthop.path.ifindex, 7U);
    EXPECT_EQ(nexthop.path.gateway.stringValue(), "10.50.0.2");
    ASSERT_NE(nexthop.path.encap, nullptr);
    EXPECT_EQ(nexthop.path.encap->kind, EncapKind::Ip);
    EXPECT_EQ(nexthop.path.encap->tunnelId, 5001U);
    EXPECT_EQ(nexthop.path.encap->remote.stringValue(), "10.0.1.2");
    EXPECT_EQ(nexthop.path.encap->local.stringValue(), "10.0.1.1");
    EXPECT_EQ(nexthop.path.encap->ttl, 64);
    EXPECT_EQ(nexthop.path.encap->tos, 8);
}

TEST(RtDecoder, LabelsAreReadFromTheTopOfTheStack) {
    const auto nexthop = only<Nexthop>(fromHex(kMplsNexthop));
    EXPECT_EQ(nexthop.id, 14U);
    ASSERT_NE(nexthop.path.encap, nullptr);
    EXPECT_EQ(nexthop.path.encap->kind, EncapKind::Mpls);
    EXPECT_THAT(nexthop.path.encap->labels, ElementsAre(16001U, 16002U));
}

TEST(RtDecoder, UnknownEncapsulationKeepsItsBytesAsIdentity) {
    const auto nexthop = only<Nexthop>(fromHex(kSegmentRouting));
    ASSERT_NE(nexthop.path.encap, nullptr);
    EXPECT_EQ(nexthop.path.encap->kind, EncapKind::Other);
    EXPECT_EQ(nexthop.path.encap->wireType, 5);
    EXPECT_EQ(nexthop.path.encap->opaque.size(), 0x34U - 4);
}

TEST(RtDecoder, ConnectedNexthopHasNoGateway) {
    const auto nexthop = only<Nexthop>(fromHex(kConnectedNexthop));
    EXPECT_EQ(nexthop.id, 7U);
    EXPECT_EQ(nexthop.path.ifindex, 2U);
    EXPECT_TRUE(isNone(nexthop.path.gateway));
    EXPECT_EQ(nexthop.path.encap, nullptr);
}

TEST(RtDecoder, FdbNexthopIsMarked) {
    EXPECT_TRUE(only<Nexthop>(fromHex(kFdbNexthop)).fdb);
}

TEST(RtDecoder, DeletedNexthopNamesItsId) {
    const auto all = decodeAll(fromHex(kDeletedNexthop));
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].removed);
    EXPECT_EQ(std::get<Nexthop>(all[0].body).id, 25U);
}

TEST(RtDecoder, RouteOverNexthopObjectTakesTheIdAndNotTheCopiedPaths) {
    const auto route = only<Route>(fromHex(kViaIpv6));
    EXPECT_EQ(route.prefix.stringValue(), "10.210.0.0/16");
    EXPECT_EQ(route.table, 254U);
    EXPECT_EQ(route.protocol, RTPROT_BOOT);
    EXPECT_EQ(route.type, RouteType::Unicast);
    EXPECT_EQ(route.nexthopId, 111U);
    EXPECT_TRUE(route.paths.empty());
}

TEST(RtDecoder, Ipv4RouteMayHaveAnIpv6Gateway) {
    rtmsg header{};
    header.rtm_family = AF_INET;
    header.rtm_dst_len = 8;
    header.rtm_type = RTN_UNICAST;
    header.rtm_table = 254;
    std::array<std::uint8_t, 18> via{10, 0, 0xFE, 0x80};
    via[17] = 7;
    const auto route = only<Route>(MessageBuilder(RTM_NEWROUTE, header)
                                       .put(RTA_DST, std::array<std::uint8_t, 4>{10, 0, 0, 0})
                                       .put(RTA_VIA, via)
                                       .put(RTA_OIF, std::uint32_t{3})
                                       .bytes());
    ASSERT_EQ(route.paths.size(), 1U);
    EXPECT_EQ(route.paths[0].gateway.stringValue(), "fe80::7");
    EXPECT_EQ(route.paths[0].ifindex, 3U);
}

TEST(RtDecoder, TableBeyondTheByteIsReadFromItsAttribute) {
    const auto route = only<Route>(fromHex(kLargeTable));
    EXPECT_EQ(route.table, 1000U);
    EXPECT_EQ(route.metric, 20U);
    EXPECT_EQ(route.nexthopId, 33U);
}

TEST(RtDecoder, OneDatagramMayHoldADeleteAndAnAdd) {
    const auto all = decodeAll(fromHex(kDeleteThenNew));
    ASSERT_EQ(all.size(), 2U);
    EXPECT_TRUE(all[0].removed);
    EXPECT_EQ(std::get<Route>(all[0].body).type, RouteType::Unspecified);
    EXPECT_FALSE(all[1].removed);
    EXPECT_TRUE(all[1].replace);
    EXPECT_EQ(std::get<Route>(all[1].body).nexthopId, 25U);
}

TEST(RtDecoder, MultipathListsItsHops) {
    const auto route = only<Route>(fromHex(kMultipath));
    ASSERT_EQ(route.paths.size(), 2U);
    EXPECT_EQ(route.paths[0].gateway.stringValue(), "10.0.1.2");
    EXPECT_EQ(route.paths[0].ifindex, 2U);
    EXPECT_EQ(route.paths[0].weight, 1U);
    EXPECT_EQ(route.paths[1].gateway.stringValue(), "10.0.2.2");
    EXPECT_EQ(route.paths[1].ifindex, 3U);
}

struct RouteTypeCase {
    std::string_view name;
    std::uint8_t wire;
    RouteType want;
};
class RouteTypes : public testing::TestWithParam<RouteTypeCase> {};
TEST_P(RouteTypes, AreTold) {
    rtmsg header{};
    header.rtm_family = AF_INET6;
    header.rtm_type = GetParam().wire;
    const auto route = only<Route>(MessageBuilder(RTM_NEWROUTE, header).bytes());
    EXPECT_EQ(route.type, GetParam().want);
    EXPECT_EQ(route.prefix.stringValue(), "::/0");
}
constexpr RouteTypeCase kRouteTypes[] = {{"Unicast", RTN_UNICAST, RouteType::Unicast},
                                         {"Blackhole", RTN_BLACKHOLE, RouteType::Blackhole},
                                         {"Unreachable", RTN_UNREACHABLE, RouteType::Unreachable},
                                         {"Prohibit", RTN_PROHIBIT, RouteType::Prohibit},
                                         {"Local", RTN_LOCAL, RouteType::Other},
                                         {"Multicast", RTN_MULTICAST, RouteType::Other}};
INSTANTIATE_TEST_SUITE_P(, RouteTypes, testing::ValuesIn(kRouteTypes), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(RtDecoder, BlackholeRouteHasNoPaths) {
    const auto route = only<Route>(fromHex(kBlackholeRoute));
    EXPECT_EQ(route.type, RouteType::Blackhole);
    EXPECT_TRUE(route.paths.empty());
}

TEST(RtDecoder, LabelSwitchedPathsAreNotOurs) {
    EXPECT_TRUE(decodeAll(fromHex(kLsp)).empty());
}

TEST(RtDecoder, VlanLinkNamesItsParentAndNumber) {
    const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(9, 0x1 | 0x40 | 0x10000))
                                     .text(IFLA_IFNAME, "eth0.100")
                                     .put(IFLA_LINK, std::uint32_t{2})
                                     .begin(IFLA_LINKINFO)
                                     .text(IFLA_INFO_KIND, "vlan")
                                     .begin(IFLA_INFO_DATA)
                                     .put(1, std::uint16_t{100})
                                     .put(5, std::uint16_t{0x0081})
                                     .end()
                                     .end()
                                     .bytes());
    Link want;
    want.ifindex = 9;
    want.name = "eth0.100";
    want.kind = LinkKind::Vlan;
    want.parent = 2;
    want.vlanId = 100;
    want.up = want.running = true;
    EXPECT_EQ(link, want);
}

TEST(RtDecoder, VrfLinkNamesItsTable) {
    const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(10, 0x1))
                                     .text(IFLA_IFNAME, "red")
                                     .begin(IFLA_LINKINFO)
                                     .text(IFLA_INFO_KIND, "vrf")
                                     .begin(IFLA_INFO_DATA)
                                     .put(1, std::uint32_t{1001})
                                     .end()
                                     .end()
                                     .bytes());
    EXPECT_EQ(link.kind, LinkKind::Vrf);
    EXPECT_EQ(link.vrfTable, 1001U);
    EXPECT_TRUE(link.up);
    EXPECT_FALSE(link.running);
}

TEST(RtDecoder, LinkInAVrfNamesItsMaster) {
    const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(3, 0))
                                     .text(IFLA_IFNAME, "e1")
                                     .put(IFLA_MASTER, std::uint32_t{10})
                                     .bytes());
    EXPECT_EQ(link.master, 10U);
}

TEST(RtDecoder, ParentInAnotherNamespaceIsNoParentHere) {
    const auto link = only<Link>(MessageBuilder(RTM_NEWLINK, linkHeader(3, 0))
                                     .text(IFLA_IFNAME, "e1")
                                     .put(IFLA_LINK, std::uint32_t{2})
                                     .put(IFLA_LINK_NETNSID, std::int32_t{0})
                                     .bytes());
    EXPECT_EQ(link.parent, 0U);
}

TEST(RtDecoder, BridgePortMessageIsNotALink) {
    ifinfomsg header = linkHeader(3, 0);
    header.ifi_family = AF_BRIDGE;
    const auto all = decodeAll(MessageBuilder(RTM_DELLINK, header).text(IFLA_IFNAME, "e1").bytes());
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].removed);
    EXPECT_EQ(std::get<BridgePort>(all[0].body).ifindex, 3U);
}

TEST(RtDecoder, LinkEventWithoutANameSaysNothingAboutTheLink) {
    EXPECT_TRUE(decodeAll(MessageBuilder(RTM_NEWLINK, linkHeader(3, 1)).bytes()).empty());
}

struct NeighbourCase {
    std::string_view name;
    std::uint16_t state;
    bool usable;
};
class NeighbourStates : public testing::TestWithParam<NeighbourCase> {};
TEST_P(NeighbourStates, DecideWhetherTheMacCounts) {
    ndmsg header{};
    header.ndm_family = AF_INET;
    header.ndm_ifindex = 4;
    header.ndm_state = GetParam().state;
    const Nexo::EthAddr mac{{2, 0, 0, 0, 0, 9}};
    const auto neighbour =
        only<Neighbour>(MessageBuilder(RTM_NEWNEIGH, header)
                            .put(NDA_DST, std::array<std::uint8_t, 4>{10, 0, 0, 1})
                            .put(NDA_LLADDR, mac)
                            .bytes());
    EXPECT_EQ(neighbour.ifindex, 4U);
    EXPECT_EQ(neighbour.address.stringValue(), "10.0.0.1");
    EXPECT_EQ(neighbour.mac, GetParam().usable ? std::optional{mac} : std::nullopt);
}
constexpr NeighbourCase kNeighbourStates[] = {{"Incomplete", NUD_INCOMPLETE, false},
                                              {"Reachable", NUD_REACHABLE, true},
                                              {"Stale", NUD_STALE, true},
                                              {"Delay", NUD_DELAY, true},
                                              {"Probe", NUD_PROBE, true},
                                              {"Failed", NUD_FAILED, false},
                                              {"Noarp", NUD_NOARP, true},
                                              {"Permanent", NUD_PERMANENT, true}};
INSTANTIATE_TEST_SUITE_P(,
                         NeighbourStates,
                         testing::ValuesIn(kNeighbourStates),
                         [](const auto& row) { return std::string{row.param.name}; });

// Hostile input: nothing below may read outside of its buffer (run under the address sanitizer) or
// invent a message.

TEST(RtDecoderHostile, MessageCutAnywhereDecodesToNothing) {
    for (const std::string_view hex : kAll) {
        const auto whole = fromHex(hex);
        const std::size_t messages = decodeAll(whole).size();
        for (std::size_t cut = 0; cut < whole.size(); ++cut) {
            // A copy of exactly that size, so that a read behind its end is seen.
            const std::vector<std::byte> part(whole.begin(),
                                              whole.begin() + static_cast<long>(cut));
            EXPECT_LT(decodeAll(part).size(), std::max<std::size_t>(messages, 1))
                << hex << " at " << cut;
        }
    }
}

TEST(RtDecoderHostile, MessageWhoseLengthIsCutWithItIsMalformedOrShorter) {
    for (const std::string_view hex : kAll) {
        const auto whole = fromHex(hex);
        for (std::size_t cut = sizeof(nlmsghdr); cut < whole.size(); ++cut) {
            std::vector<std::byte> part(whole.begin(), whole.begin() + static_cast<long>(cut));
            const auto length = static_cast<std::uint32_t>(cut);
            std::memcpy(part.data(), &length, sizeof length);
            EXPECT_LE(decodeAll(part).size(), 1U) << hex << " at " << cut;
        }
    }
}

TEST(RtDecoderHostile, HeaderOfImpossibleLengthEndsTheWalk) {
    auto bytes = fromHex(kNhidRoute);
    for (const std::uint32_t length : {0U, 1U, 15U, 0x1000U, 0xFFFFFFFFU}) {
        std::memcpy(bytes.data(), &length, sizeof length);
        NetlinkReader reader{bytes};
        EXPECT_FALSE(reader.next().has_value());
        EXPECT_TRUE(reader.broken());
    }
}

TEST(RtDecoderHostile, RouteWhosePathDoesNotFitIsDroppedAsAWhole) {
    auto bytes = fromHex(kMultipath);
    bytes[64] = std::byte{0x40};  // length of the second hop
    EXPECT_TRUE(decodeAll(bytes).empty());
}

TEST(RtDecoderHostile, PrefixLongerThanItsFamilyIsDropped) {
    auto bytes = fromHex(kNhidRoute);
    bytes[17] = std::byte{33};
    EXPECT_TRUE(decodeAll(bytes).empty());
}

TEST(RtDecoderHostile, GroupOfBrokenEntriesIsDropped) {
    const std::array<std::uint8_t, 8> header{};
    EXPECT_TRUE(decodeAll(MessageBuilder(RTM_NEWNEXTHOP, header)
                              .put(1, std::uint32_t{9})
                              .put(2, std::array<std::uint8_t, 12>{})
                              .bytes())
                    .empty());
}

TEST(RtDecoderHostile, ChangedBytesNeverCrash) {
    std::mt19937 random{20240229};
    std::size_t decoded = 0;
    for (int round = 0; round < 20000; ++round) {
        auto bytes = fromHex(kAll[random() % std::size(kAll)]);
        for (unsigned change = 0; change < 1 + random() % 4; ++change) {
            bytes[random() % bytes.size()] = static_cast<std::byte>(random());
        }
        decoded += decodeAll(bytes).size();
    }
    EXPECT_GT(decoded, 0U);  // else the changes did not get past the first header
}

TEST(RtDecoderHostile, RandomBytesNeverCrash) {
    std::mt19937 random{7};
    constexpr std::uint16_t kTypes[] = {RTM_NEWLINK, RTM_NEWROUTE, RTM_NEWNEIGH, RTM_NEWNEXTHOP};
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::byte> payload(random() % 200);
        for (auto& b : payload) {
            b = static_cast<std::byte>(random() % 24);
        }  // small: plausible lengths
        NetlinkFrame frame;
        frame.type = kTypes[random() % 4];
        frame.payload = payload;
        (void)decode(frame);
    }
}

}  // namespace
}  // namespace Pel::Forwarder
