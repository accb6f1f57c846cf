#include "PelOpenConfig/test/HeaderTexts.h"
#include "PelOpenConfig/test/MapperFixture.h"
#include "test/support/AllocationCount.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

constexpr int kMpls = 4;
constexpr int kUdp = 9;
constexpr int kForeign = 7;

class EncapFixture : public MapperFixture {
protected:
    /// The headers of what is exported for this next hop, and what is traced on the way.
    std::string headersOf(const Vel::Ref<Stash::FlattenFecNextHop>& nextHop) {
        nextHopIs(7, *nextHop);
        if (!sut) { start(); }
        later.emplace();
        publish();
        return entry(7) == nullptr ? "no entry" : headerTexts(entry(7)->encapHeaders);
    }
    /// The messages between the element's first and those of its counter.
    std::vector<std::string> told() const {
        std::vector<std::string> all;
        for (const std::string& text : later->texts("PelNexthopMapperSm")) {
            if (text.starts_with("nextHopId 7 with")) { break; }
            if (text.starts_with("nhId to process")) {
                all.clear();
            } else {
                all.push_back(text);
            }
        }
        return all;
    }
    std::optional<TestSupport::TraceCapture> later;
};

using NexthopEncap = UnderBothPolicies<EncapFixture>;
INSTANTIATE_TEST_SUITE_P(, NexthopEncap, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(NexthopEncap, MplsInUdpV4IsHeaders0And1) {
    EXPECT_EQ(headersOf(encapsulated({kMpls, kUdp})),
              "0 mpls [17, 16]; 1 udpv4 192.0.2.1 192.0.2.2 64");
    EXPECT_THAT(told(),
                ElementsAre("Processing encapOrder stack",
                            "2 encap headers to process",
                            "Encap type = mpls",
                            "Added 2 mpls labels",
                            "Encap type = udp",
                            "Added the following UDPv4 attributes: srcIp=192.0.2.1, "
                            "dstIp=192.0.2.2, ipTtl=64",
                            "Adding the encapHeaders to the next hop object"));
}

TEST_P(NexthopEncap, UdpV6) {
    auto nextHop = encapsulated({kUdp});
    nextHop->gue = Stash::GueEncap{
        2, *Nexo::IpGenAddr::parse("2001:db8::1"), *Nexo::IpGenAddr::parse("2001:db8::2"), 0};
    EXPECT_EQ(headersOf(nextHop), "0 udpv6 2001:db8::1 2001:db8::2 0");
    EXPECT_TRUE(
        later->has("Added the following UDPv6 attributes: srcIp=2001:db8::1, "
                   "dstIp=2001:db8::2, ipTtl=0"));
}

TEST_P(NexthopEncap, AnUnsupportedTypeLeavesAGapThatIsNotClosed) {
    EXPECT_EQ(headersOf(encapsulated({kForeign, kMpls})), "1 mpls [17, 16]");
    EXPECT_THAT(told(),
                ElementsAre("Processing encapOrder stack",
                            "2 encap headers to process",
                            "Encap type = 7",
                            "Encountered unsupported encap type 7",
                            "Encap type = mpls",
                            "Added 2 mpls labels",
                            "Adding the encapHeaders to the next hop object"));
    EXPECT_EQ(headersOf(encapsulated({0})), "");
    EXPECT_TRUE(later->has("Encountered unsupported encap type unset"));
}

TEST_P(NexthopEncap, UdpWithoutItsDataLeavesAGap) {
    auto nextHop = encapsulated({kUdp, kMpls});
    nextHop->gue.reset();
    EXPECT_EQ(headersOf(nextHop), "1 mpls [17, 16]");
    EXPECT_TRUE(later->has("ERROR: No gue encap info provided, skipping"));
}

TEST_P(NexthopEncap, AForeignAddressFamilyGivesAHeaderWithoutType) {
    for (const int family : {0, 3, 255}) {
        auto nextHop = encapsulated({kMpls, kUdp});
        nextHop->gue->addressFamily = static_cast<std::uint8_t>(family);
        EXPECT_EQ(headersOf(nextHop), "0 mpls [17, 16]; 1 unset");
        EXPECT_TRUE(later->has("Unsupported AF " + std::to_string(family)));
        const auto* const header = entry(7)->encapHeaders.encapHeader(1);
        ASSERT_NE(header, nullptr);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(header->state));
    }
}

TEST_P(NexthopEncap, AnAddressOfTheOtherFamilyIsLeftOut) {
    auto nextHop = encapsulated({kUdp});
    nextHop->gue->source = *Nexo::IpGenAddr::parse("2001:db8::1");
    EXPECT_EQ(headersOf(nextHop), "0 udpv4 - 192.0.2.2 64");
    nextHop = encapsulated({kUdp});
    nextHop->gue->addressFamily = 2;
    nextHop->gue->source = *Nexo::IpGenAddr::parse("2001:db8::1");
    EXPECT_EQ(headersOf(nextHop), "0 udpv6 2001:db8::1 - 64");
}

TEST_P(NexthopEncap, AnEmptyOrderReplacesTheHeadersThatWere) {
    EXPECT_NE(headersOf(encapsulated({kMpls})), "");
    EXPECT_EQ(headersOf(encapsulated({})), "");
    EXPECT_THAT(told(),
                ElementsAre("Processing encapOrder stack",
                            "encapOrder is empty",
                            "Adding the encapHeaders to the next hop object"));
}

TEST_P(NexthopEncap, EveryChangeOfTheOrderReplacesAllHeaders) {
    EXPECT_EQ(headersOf(encapsulated({kMpls, kMpls})), "0 mpls [17, 16]; 1 mpls [17, 16]");
    EXPECT_EQ(headersOf(encapsulated({kForeign, kUdp})), "1 udpv4 192.0.2.1 192.0.2.2 64");
}

TEST_P(NexthopEncap, SixteenEncapsulationsAreSixteenHeaders) {
    const auto nextHop = encapsulated({});
    for (int i = 0; i < 16; ++i) {
        nextHop->encapOrder.push(static_cast<Tunnel::TunnelTable::EncapType>(kMpls));
    }
    headersOf(nextHop);
    ASSERT_NE(entry(7), nullptr);
    EXPECT_EQ(entry(7)->encapHeaders.size(), 16U);
    EXPECT_NE(entry(7)->encapHeaders.encapHeader(15), nullptr);
}

TEST_P(NexthopEncap, AnMplsEncapsulationWithoutLabelsIsAHeaderWithoutLabels) {
    auto nextHop = encapsulated({kMpls});
    nextHop->mplsEncapLabels.clear();
    EXPECT_EQ(headersOf(nextHop), "0 mpls []");
    EXPECT_TRUE(later->has("Added 0 mpls labels"));
}

TEST_P(NexthopEncap, MessagesAreTheElementsOwnAtTheirLevels) {
    auto nextHop = encapsulated({kMpls, kUdp, kForeign});
    headersOf(nextHop);
    nextHop->gue->addressFamily = 2;
    headersOf(nextHop);
    nextHop->gue->addressFamily = 9;
    headersOf(nextHop);
    nextHop->gue.reset();
    headersOf(nextHop);
    nextHop = encapsulated({});
    nextHop->vxlan = Stash::VxlanEncap{Nexo::IntfId{"vxlan1"}, 16384};
    headersOf(nextHop);
    headersOf(encapsulated({}));
    using Where = std::pair<std::string, int>;
    std::map<std::string, Where> seen;
    for (const Blink::Message& message : traces.messages()) {
        if (message.handle == "PelNexthopMapperSm") {
            seen[message.text] = {message.function, message.level};
        }
    }
    for (const auto& [text, level] : std::map<std::string, int>{
             {"Processing encapOrder stack", 9},
             {"encapOrder is empty", 9},
             {"3 encap headers to process", 7},
             {"Encap type = mpls", 7},
             {"Added 2 mpls labels", 7},
             {"ERROR: No gue encap info provided, skipping", 5},
             {"Added the following UDPv4 attributes: srcIp=192.0.2.1, dstIp=192.0.2.2, ipTtl=64",
              7},
             {"Added the following UDPv6 attributes: srcIp=, dstIp=, ipTtl=64", 7},
             {"Unsupported AF 9", 5},
             {"Encountered unsupported encap type 7", 5},
             {"Adding the encapHeaders to the next hop object", 7},
             {"VxLAN Encap to process, VLAN: 16384, VTI: vxlan1", 7},
             {"Detected VxLAN Encap info to remove from supporting collections: nhID: 7, VTI ID: "
              "vxlan1, VLAN ID: 0",
              7}}) {
        EXPECT_EQ(seen[text], (Where{"backlogProcessElem", level})) << text;
    }
    EXPECT_EQ(seen["Extended VLAN ID is out of bound, setting to default."],
              (Where{"operator()", 5}));
}

using NexthopEncapAllocations = EncapFixture;

/// Besides what any next hop takes, the record and the entry: the record's labels, the headers, and
/// the header's labels.
TEST_F(NexthopEncapAllocations, HeadersAreMadeWithOneAllocationAndOneForEachLabelStack) {
    constexpr std::uint64_t kCount = 500;
    auto nextHop = encapsulated({kMpls, kUdp, kUdp, kUdp});
    for (std::uint64_t id = 1; id <= kCount; ++id) {
        nextHop->mplsEncapLabels.assign(8, Nexo::MplsLabel{static_cast<std::uint32_t>(id)});
        nextHopIs(id, *nextHop);
    }
    publish();
    start();
    settle();
    sut->handleStashReady();
    const TestSupport::AllocationCount count;
    settle();
    RecordProperty("allocationsPerElement", std::to_string(double(count.since()) / kCount));
    // As of any element, and three for headers and labels; and a few per walk.
    EXPECT_LE(count.since(), kCount * (3 + 3) + 50);
}

}  // namespace
}  // namespace Pel::Oc
