#include <algorithm>

#include "model/Tunnel/PelNexthopGueEncapDestPort.h"
#include "model/View/test/OpenConfigViewFixture.h"

namespace Pel::OcApi {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

class OpenConfigEncapHeadersTest : public OpenConfigViewTest {
protected:
    OpenConfigEncapHeadersTest() { root->insert(guePorts); }

    static std::string entryOf(std::uint64_t index) {
        return std::string{kAfts} + "/next-hops/next-hop[index=" + std::to_string(index) + "]";
    }
    static EncapHeader mpls(std::uint8_t index, const std::vector<std::uint32_t>& topFirst) {
        MplsState state;
        for (const std::uint32_t label : topFirst) {
            state.mplsLabelStackPush(Nexo::MplsLabel{label});
        }
        return {index, EncapHeaderType::mpls, state};
    }
    static EncapHeader udp4(std::uint8_t index, std::optional<std::uint8_t> ttl = 64) {
        return {index,
                EncapHeaderType::udpv4,
                UdpState{address("192.0.2.7"), address("198.51.100.7"), ttl}};
    }
    static EncapHeader udp6(std::uint8_t index) {
        return {index,
                EncapHeaderType::udpv6,
                UdpState{address("2001:db8::7"), address("::ffff:192.0.2.1"), 9}};
    }
    static EncapHeader vxlan(std::uint8_t index, std::optional<std::uint32_t> vni) {
        return {index, EncapHeaderType::vxlan, VxlanState{address("192.0.2.3"), vni}};
    }
    void hop(std::uint64_t index, const std::vector<EncapHeader>& headers) {
        NextHop made;
        made.index = NextHopIndex{index};
        for (const EncapHeader& header : headers) { made.encapHeaders.encapHeaderIs(header); }
        aft->nextHops()->nextHopIs(made);
    }
    /// All leaves of a new next hop with these headers, but its index.
    Leaves leavesOf(const std::vector<EncapHeader>& headers) {
        hop(++lastIndex_, headers);
        if (!channel) { show(); }
        Leaves all = takeLeaves(entryOf(lastIndex_));
        all.erase("index");
        all.erase("state/index");
        return all;
    }
    /// Those of one header, without the path to it, its index and type.
    Leaves leavesOf(const std::vector<EncapHeader>& headers, int index, const std::string& type) {
        const std::string path = "encap-headers/encap-header[index=" + std::to_string(index) + "]/";
        Leaves some;
        for (const auto& [leaf, value] : leavesOf(headers)) {
            if (leaf.starts_with(path)) { some.emplace(leaf.substr(path.size()), value); }
        }
        EXPECT_EQ(some["index"], std::to_string(index));
        EXPECT_EQ(some["state/index"], std::to_string(index));
        EXPECT_EQ(some["state/type"], type);
        for (const char* leaf : {"index", "state/index", "state/type"}) { some.erase(leaf); }
        return some;
    }
    static std::string label(int id, const std::string& leaf) {
        return "mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id=" + std::to_string(id) +
               "]/" + leaf;
    }
    /// How many entries have been encoded since the last call.
    std::uint64_t encoded() {
        settle();
        const std::uint64_t all = channel->provider->statistics().encoded;
        return all - std::exchange(encoded_, all);
    }

    Vel::Ref<Oc::PelNexthopGueEncapDestPort> guePorts =
        Oc::pelNexthopGueEncapDestPortFactory("gueEncapDestPort");

private:
    std::uint64_t encoded_ = 0;
    std::uint64_t lastIndex_ = 1000;
};

TEST_F(OpenConfigEncapHeadersTest, LabelsStandInBothListsBottomFirst) {
    EXPECT_THAT(leavesOf({mpls(0, {300, 200, 100})}, 0, "MPLS"),
                UnorderedElementsAre(Pair("mpls/state/mpls-label-stack", "[100 200 300 ]"),
                                     Pair(label(0, "id"), "0"),
                                     Pair(label(0, "state/id"), "0"),
                                     Pair(label(0, "state/label"), "100"),
                                     Pair(label(1, "id"), "1"),
                                     Pair(label(1, "state/id"), "1"),
                                     Pair(label(1, "state/label"), "200"),
                                     Pair(label(2, "id"), "2"),
                                     Pair(label(2, "state/id"), "2"),
                                     Pair(label(2, "state/label"), "300")));
}

TEST_F(OpenConfigEncapHeadersTest, ReservedLabelsGoByName) {
    const Leaves got = leavesOf({mpls(0, {0, 1, 2, 3, 7, 16})}, 0, "MPLS");
    EXPECT_EQ(got.at("mpls/state/mpls-label-stack"),
              "[16 ENTROPY_LABEL_INDICATOR IMPLICIT_NULL IPV6_EXPLICIT_NULL ROUTER_ALERT "
              "IPV4_EXPLICIT_NULL ]");
    EXPECT_EQ(got.at(label(0, "state/label")), "16");
    EXPECT_EQ(got.at(label(1, "state/label")), "ENTROPY_LABEL_INDICATOR");
    EXPECT_EQ(got.at(label(2, "state/label")), "IMPLICIT_NULL");
    EXPECT_EQ(got.at(label(3, "state/label")), "IPV6_EXPLICIT_NULL");
    EXPECT_EQ(got.at(label(4, "state/label")), "ROUTER_ALERT");
    EXPECT_EQ(got.at(label(5, "state/label")), "IPV4_EXPLICIT_NULL");
}

TEST_F(OpenConfigEncapHeadersTest, AStackThatRepeatsALabelHasTheKeyedListOnly) {
    const Leaves got = leavesOf({mpls(0, {100, 7, 200, 100})}, 0, "MPLS");
    EXPECT_THAT(got, Not(Contains(Key("mpls/state/mpls-label-stack"))));
    EXPECT_EQ(got.at(label(0, "state/label")), "100");
    EXPECT_EQ(got.at(label(3, "state/label")), "100");
    EXPECT_EQ(got.size(), 12U);
}

TEST_F(OpenConfigEncapHeadersTest, ALabelThatTheSchemaCannotExpressKeepsItsPosition) {
    for (const std::uint32_t odd : {4U, 5U, 6U, 8U, 15U}) {
        EXPECT_THAT(leavesOf({mpls(0, {200, odd, 100})}, 0, "MPLS"),
                    UnorderedElementsAre(Pair(label(0, "id"), "0"),
                                         Pair(label(0, "state/id"), "0"),
                                         Pair(label(0, "state/label"), "100"),
                                         Pair(label(1, "id"), "1"),
                                         Pair(label(1, "state/id"), "1"),
                                         Pair(label(2, "id"), "2"),
                                         Pair(label(2, "state/id"), "2"),
                                         Pair(label(2, "state/label"), "200")))
            << odd;
    }
}

TEST_F(OpenConfigEncapHeadersTest, AnEmptyStackIsAHeaderWithItsTypeAlone) {
    EXPECT_THAT(leavesOf({mpls(0, {})}, 0, "MPLS"), IsEmpty());
}

TEST_F(OpenConfigEncapHeadersTest, AStackDeeperThanItsPositionsGoHasNoKeyedList) {
    std::vector<std::uint32_t> labels(256);
    for (std::uint32_t i = 0; i < labels.size(); ++i) { labels[i] = 1000 + i; }
    Leaves got = leavesOf({mpls(0, labels)}, 0, "MPLS");
    EXPECT_EQ(got.at(label(255, "state/label")), "1000");
    labels.push_back(2000);
    got = leavesOf({mpls(0, labels)}, 0, "MPLS");
    EXPECT_THAT(got, ElementsAre(Key("mpls/state/mpls-label-stack")));
}

TEST_F(OpenConfigEncapHeadersTest, APushedStackThatRepeatsALabelHasNoHome) {
    NextHop made = nextHop(7);
    made.pushedMplsLabelStack.push(Nexo::MplsLabel{100});
    made.pushedMplsLabelStack.push(Nexo::MplsLabel{100});
    aft->nextHops()->nextHopIs(made);
    show();
    EXPECT_THAT(takeLeaves(entryOf(7)), Not(Contains(Key("state/pushed-mpls-label-stack"))));
}

TEST_F(OpenConfigEncapHeadersTest, UdpOverMplsNamesTheDestinationPort) {
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    EXPECT_THAT(leavesOf({mpls(0, {100}), udp4(1)}, 1, "UDPV4"),
                UnorderedElementsAre(Pair("udp-v4/state/src-ip", "192.0.2.7"),
                                     Pair("udp-v4/state/dst-ip", "198.51.100.7"),
                                     Pair("udp-v4/state/dst-udp-port", "6635"),
                                     Pair("udp-v4/state/ip-ttl", "64")));
    EXPECT_THAT(leavesOf({mpls(1, {100}), udp6(2)}, 2, "UDPV6"),
                UnorderedElementsAre(Pair("udp-v6/state/src-ip", "2001:db8::7"),
                                     Pair("udp-v6/state/dst-ip", "::ffff:c000:201"),
                                     Pair("udp-v6/state/dst-udp-port", "6635"),
                                     Pair("udp-v6/state/ip-ttl", "9")));
}

struct PayloadCase {
    const char* name;
    std::vector<std::uint8_t> mplsAt;
    std::uint8_t udpAt;
    bool port;
};
class UdpPayload : public OpenConfigEncapHeadersTest,
                   public testing::WithParamInterface<PayloadCase> {};
TEST_P(UdpPayload, DecidesWhetherThePortIsKnown) {
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    guePorts->gueIPv4EncapUdpDestPortIs(6080);
    std::vector<EncapHeader> headers{udp4(GetParam().udpAt)};
    for (const std::uint8_t index : GetParam().mplsAt) { headers.push_back(mpls(index, {100})); }
    const Leaves got = leavesOf(headers, GetParam().udpAt, "UDPV4");
    EXPECT_EQ(got.contains("udp-v4/state/dst-udp-port"), GetParam().port);
}
INSTANTIATE_TEST_SUITE_P(,
                         UdpPayload,
                         testing::Values(PayloadCase{"Mpls", {0}, 1, true},
                                         PayloadCase{"Innermost", {}, 0, false},
                                         PayloadCase{"MplsOutside", {1}, 0, false},
                                         PayloadCase{"MplsBeyondAGap", {0}, 2, false},
                                         PayloadCase{"GapInside", {}, 1, false}),
                         [](const auto& row) { return std::string{row.param.name}; });

TEST_F(OpenConfigEncapHeadersTest, UdpAroundUdpIsNotAroundMpls) {
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    const std::vector<EncapHeader> headers{mpls(0, {100}), udp4(1), udp6(2)};
    EXPECT_THAT(leavesOf(headers, 1, "UDPV4"), Contains(Key("udp-v4/state/dst-udp-port")));
    EXPECT_THAT(leavesOf(headers, 2, "UDPV6"), Not(Contains(Key("udp-v6/state/dst-udp-port"))));
}

TEST_F(OpenConfigEncapHeadersTest, APortThatIsNotKnownIsLeftOut) {
    EXPECT_THAT(leavesOf({mpls(0, {100}), udp4(1)}, 1, "UDPV4"),
                Not(Contains(Key("udp-v4/state/dst-udp-port"))));
}

TEST_F(OpenConfigEncapHeadersTest, WithoutTheRecordNoPortIsKnown) {
    root->entityDel("gueEncapDestPort");
    EXPECT_THAT(leavesOf({mpls(0, {100}), udp4(1)}, 1, "UDPV4"),
                Not(Contains(Key("udp-v4/state/dst-udp-port"))));
}

TEST_F(OpenConfigEncapHeadersTest, ATtlThatIsCopiedOrNotShownIsLeftOut) {
    EXPECT_THAT(leavesOf({udp4(0, 0)}, 0, "UDPV4"), Not(Contains(Key("udp-v4/state/ip-ttl"))));
    EXPECT_THAT(leavesOf({udp4(0, 1)}, 0, "UDPV4"), Contains(Pair("udp-v4/state/ip-ttl", "1")));
    EXPECT_THAT(leavesOf({udp4(0, std::nullopt)}, 0, "UDPV4"),
                Not(Contains(Key("udp-v4/state/ip-ttl"))));
}

TEST_F(OpenConfigEncapHeadersTest, AnAddressOfTheOtherFamilyHasNoPlace) {
    const UdpState mixed{address("2001:db8::7"), address("198.51.100.7"), 1};
    EXPECT_THAT(leavesOf({{0, EncapHeaderType::udpv4, mixed}}, 0, "UDPV4"),
                UnorderedElementsAre(Pair("udp-v4/state/dst-ip", "198.51.100.7"),
                                     Pair("udp-v4/state/ip-ttl", "1")));
    EXPECT_THAT(leavesOf({{0, EncapHeaderType::udpv6, mixed}}, 0, "UDPV6"),
                UnorderedElementsAre(Pair("udp-v6/state/src-ip", "2001:db8::7"),
                                     Pair("udp-v6/state/ip-ttl", "1")));
}

TEST_F(OpenConfigEncapHeadersTest, VxlanStandsInTheHeaderAndInTheNextHop) {
    EXPECT_THAT(leavesOf({vxlan(0, 5000)}),
                UnorderedElementsAre(
                    Pair("state/encapsulate-header", "VXLAN"),
                    Pair("state/vni-label", "5000"),
                    Pair("state/tunnel-src-ip-address", "192.0.2.3"),
                    Pair("encap-headers/encap-header[index=0]/index", "0"),
                    Pair("encap-headers/encap-header[index=0]/state/index", "0"),
                    Pair("encap-headers/encap-header[index=0]/state/type", "VXLAN"),
                    Pair("encap-headers/encap-header[index=0]/vxlan/state/vni-label", "5000"),
                    Pair("encap-headers/encap-header[index=0]/vxlan/state/tunnel-src-ip-address",
                         "192.0.2.3")));
}

TEST_F(OpenConfigEncapHeadersTest, OnlyAVniOf24BitsIsOne) {
    const auto shown = [&](std::optional<std::uint32_t> vni) {
        const Leaves got = leavesOf({vxlan(0, vni)});
        const bool header =
            got.contains("encap-headers/encap-header[index=0]/vxlan/state/vni-label");
        EXPECT_EQ(got.contains("state/vni-label"), header);
        EXPECT_EQ(got.at("state/encapsulate-header"), "VXLAN");
        return header;
    };
    EXPECT_FALSE(shown(std::nullopt));
    EXPECT_FALSE(shown(0));
    EXPECT_TRUE(shown(1));
    EXPECT_TRUE(shown(16'777'215));
    EXPECT_FALSE(shown(16'777'216));
}

TEST_F(OpenConfigEncapHeadersTest, OfSeveralVxlanHeadersTheInnermostIsTheNextHops) {
    const Leaves got = leavesOf({vxlan(0, 5), vxlan(1, 6)});  // leaves() fails for a path twice
    EXPECT_EQ(got.at("state/vni-label"), "5");
}

TEST_F(OpenConfigEncapHeadersTest, AHeaderWithoutATypeHasItsIndexAlone) {
    EXPECT_THAT(leavesOf({{1, EncapHeaderType::unset, {}}}),
                UnorderedElementsAre(Pair("encap-headers/encap-header[index=1]/index", "1"),
                                     Pair("encap-headers/encap-header[index=1]/state/index", "1")));
    const UdpState state{address("192.0.2.7"), address("198.51.100.7"), 1};
    EXPECT_EQ(leavesOf({{1, EncapHeaderType::unset, state}}).size(), 2U) << "whatever it holds";
}

TEST_F(OpenConfigEncapHeadersTest, TheFallbackInstanceHasNoPlace) {
    NextHop made;
    made.index = NextHopIndex{7};
    made.fallbackNetworkInstance = Nexo::InternedName{"blue"};
    aft->nextHops()->nextHopIs(made);
    show();
    EXPECT_THAT(takeLeaves(entryOf(7)),
                UnorderedElementsAre(Pair("index", "7"), Pair("state/index", "7")));
}

TEST_F(OpenConfigEncapHeadersTest, AChangedPortEncodesExactlyTheNextHopsThatHoldIt) {
    for (std::uint64_t i = 1; i <= 100; ++i) {
        switch (i % 4) {
            case 0:
                hop(i, {mpls(0, {100}), udp4(1)});
                break;
            case 1:
                hop(i, {});
                break;
            case 2:
                hop(i, {udp6(0)});
                break;
            default:
                hop(i, {mpls(0, {100})});
        }
    }
    show();
    take();
    encoded();
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    EXPECT_EQ(encoded(), 25U);
    const auto changed = take();
    ASSERT_EQ(changed.size(), 25U);
    EXPECT_EQ(entry(changed[0]), entryOf(4));
    EXPECT_EQ(
        leaves(changed[0]).at("encap-headers/encap-header[index=1]/udp-v4/state/dst-udp-port"),
        "6635");
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    guePorts->gueIPv4EncapUdpDestPortIs(6080);
    guePorts->gueIPv6EncapUdpDestPortIs(6081);
    EXPECT_EQ(encoded(), 0U) << "no entry holds these";
    guePorts->gueMplsEncapUdpDestPortIs(0);
    EXPECT_EQ(encoded(), 25U);
    EXPECT_FALSE(leaves(take()[0]).contains(
        "encap-headers/encap-header[index=1]/udp-v4/state/dst-udp-port"));
}

TEST_F(OpenConfigEncapHeadersTest, WhatHoldsThePortFollowsTheNextHops) {
    const std::vector<EncapHeader> holds{mpls(0, {100}), udp4(1)};
    hop(1, holds);
    hop(2, holds);
    hop(3, {});
    show();
    encoded();
    hop(1, {});                                    // holds it no longer
    aft->nextHops()->nextHopDel(NextHopIndex{2});  // gone
    hop(3, holds);                                 // holds it now
    encoded();
    take();
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    EXPECT_EQ(encoded(), 1U);
    EXPECT_THAT(takeEntries(), ElementsAre(entryOf(3)));
    aft->nextHops()->nextHopDelAll();
    encoded();
    guePorts->gueMplsEncapUdpDestPortIs(6636);
    EXPECT_EQ(encoded(), 0U);
}

TEST_F(OpenConfigEncapHeadersTest, AChangedPortIsEncodedInSlices) {
    for (std::uint64_t i = 1; i <= 50; ++i) { hop(i, {mpls(0, {100}), udp4(1)}); }
    show();
    take();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    const auto runs = [&] {
        for (const Kiln::TaskStatistics& each : scheduler->tasks()) {
            if (each.name == "GaleNotifyTask") { return each.runs; }
        }
        return std::uint64_t{0};
    };
    const std::uint64_t before = runs();
    guePorts->gueMplsEncapUdpDestPortIs(6635);
    EXPECT_EQ(take().size(), 50U);
    EXPECT_GE(runs() - before, 50U);
}

}  // namespace
}  // namespace Pel::OcApi
