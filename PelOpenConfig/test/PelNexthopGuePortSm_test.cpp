#include "PelOpenConfig/PelNexthopGuePortSm.h"

#include "PelOpenConfig/test/TunnelConfigFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kMpls = PayloadType::mpls;
constexpr auto kGre = PayloadType::gre;
constexpr auto kIpv4 = PayloadType::ipv4;
constexpr auto kIpv6 = PayloadType::ipv6;

/// Notes what the record publishes: "mpls=6635".
class GuePort : public TunnelConfigFixture {
protected:
    GuePort() {
        onMpls = record->onGueMplsEncapUdpDestPort().subscribe(
            [this] { note("mpls", record->gueMplsEncapUdpDestPort()); });
        onIpv4 = record->onGueIPv4EncapUdpDestPort().subscribe(
            [this] { note("ipv4", record->gueIPv4EncapUdpDestPort()); });
        onIpv6 = record->onGueIPv6EncapUdpDestPort().subscribe(
            [this] { note("ipv6", record->gueIPv6EncapUdpDestPort()); });
    }
    /// What is published from now on counts.
    void start() {
        sut = PelNexthopGuePortSmIs(dgConfig, udpConfig(), record);
        published.clear();
    }
    void groups(const Groups& groups) { dgConfig->recordIs({groups}); }
    void ports(const Ports& ports) { udp(UdpConfig::kPath, ports); }
    std::vector<std::string> taken() { return std::exchange(published, {}); }

    Vel::Ref<Tunnel::Decap::Config> dgConfig = Vel::make<Tunnel::Decap::Config>("dgConfig");
    Vel::Ref<PelNexthopGueEncapDestPort> record =
        pelNexthopGueEncapDestPortFactory("gueEncapDestPort");
    Vel::Ref<PelNexthopGuePortSm> sut;
    std::vector<std::string> published;
    Vel::Subscription onMpls;
    Vel::Subscription onIpv4;
    Vel::Subscription onIpv6;

private:
    void note(const char* field, std::uint16_t port) {
        published.push_back(std::string{field} + "=" + std::to_string(port));
    }
};

TEST_F(GuePort, TheRecordIsNamedAndStartsWithoutPorts) {
    EXPECT_EQ(record->name(), "gueEncapDestPort");
    EXPECT_EQ(record->gueMplsEncapUdpDestPort(), 0);
    EXPECT_EQ(record->gueIPv4EncapUdpDestPort(), 0);
    EXPECT_EQ(record->gueIPv6EncapUdpDestPort(), 0);
}

TEST_F(GuePort, InitialisationPublishesTheFieldsThenTakesThePayloadTypesThenTheGroups) {
    ports({{kGre, {47, 1}}, {kIpv4, {6080, 1}}, {kIpv6, {6081, 1}}});
    groups({{"g", {kMpls, 6635}}});
    record->gueIPv4EncapUdpDestPortIs(1);
    published.clear();
    sut = PelNexthopGuePortSmIs(dgConfig, udpConfig(), record);
    EXPECT_THAT(published,
                ElementsAre("mpls=0", "ipv4=1", "ipv6=0", "ipv4=6080", "ipv6=6081", "mpls=6635"));
    EXPECT_TRUE(traces.has("Invalid PayloadType: gre, Port: 47"));
}

TEST_F(GuePort, IpPortsFollowTheConfiguration) {
    start();
    ports({{kIpv4, {6080, 1}}, {kIpv6, {6081, 0}}});
    EXPECT_THAT(taken(), ElementsAre("ipv4=6080", "ipv6=6081"));
    ports({{kIpv4, {6080, 1}}, {kIpv6, {6082, 0}}});
    EXPECT_THAT(taken(), ElementsAre("ipv6=6082"));
}

TEST_F(GuePort, RemovingTheIpv4EntrySetsItsPortToZeroAndPublishesOnce) {
    ports({{kIpv4, {6080, 1}}, {kIpv6, {6081, 1}}});
    start();
    ports({{kIpv6, {6081, 1}}});
    EXPECT_THAT(taken(), ElementsAre("ipv4=0"));
    withdraw(UdpConfig::kPath);
    EXPECT_THAT(taken(), ElementsAre("ipv6=0"));
}

TEST_F(GuePort, APortThatItHoldsAlreadyPublishesNothing) {
    ports({{kIpv4, {6080, 0}}});
    groups({{"g", {kMpls, 6635}}});
    start();
    ports({{kIpv4, {6080, 1}}});  // another mode, the same port
    groups({{"g", {kMpls, 6635}}, {"h", {kIpv4, 7}}});
    sut->handleGueDestPortConfig(kIpv4);
    sut->handleGueDestPortConfig(kMpls);
    sut->setGueMplsEncapUdpDestPortViaDecapGroup(6635);
    EXPECT_THAT(published, IsEmpty());
}

TEST_F(GuePort, PayloadTypeTwoIsInvalidAndChangesNothing) {
    start();
    ports({{kGre, {47, 1}}});
    EXPECT_EQ(traces.count("Invalid PayloadType: gre, Port: 47"), 1U);
    withdraw(UdpConfig::kPath);
    EXPECT_EQ(traces.count("Invalid PayloadType: gre, Port: 0"), 1U);
    sut->handleGueDestPortConfig(PayloadType{9});
    sut->handleGueDestPortConfig(PayloadType::none);
    EXPECT_TRUE(traces.has("Invalid PayloadType: 9, Port: 0"));
    EXPECT_TRUE(traces.has("Invalid PayloadType: none, Port: 0"));
    EXPECT_THAT(published, IsEmpty());
    for (const Blink::Message& message : traces.messages()) {
        if (!message.text.starts_with("Invalid PayloadType")) { continue; }
        EXPECT_EQ(message.handle, "PelNexthopGuePortSm");
        EXPECT_EQ(message.function, "handleGueDestPortConfig");
        EXPECT_EQ(message.level, 5);
    }
}

TEST_F(GuePort, TheMplsPortIsThatOfTheDecapGroupForMpls) {
    start();
    groups({{"a", {kIpv4, 1}}, {"b", {kMpls, 6635}}, {"c", {kIpv6, 2}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=6635"));
    groups({{"b", {kMpls, 6636}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=6636"));
}

TEST_F(GuePort, WithoutAnyDecapGroupForMplsThePortGoesBackToZero) {
    groups({{"g", {kMpls, 6635}}});
    start();
    groups({{"g", {kIpv4, 6635}}});  // its payload type changes away
    EXPECT_THAT(taken(), ElementsAre("mpls=0"));
    groups({{"g", {kMpls, 6635}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=6635"));
    groups({});
    EXPECT_THAT(taken(), ElementsAre("mpls=0"));
    groups({{"h", {kIpv6, 1}}});
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(GuePort, OfSeveralGroupsTheLastByNameWinsAndIsPublishedOnce) {
    start();
    groups({{"a", {kMpls, 1}}, {"b", {kMpls, 2}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=2"));
    groups({{"a", {kMpls, 3}}, {"b", {kMpls, 2}}});
    EXPECT_THAT(taken(), IsEmpty());
    groups({{"a", {kMpls, 3}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=3"));
}

TEST_F(GuePort, APortThatIsConfiguredForAnotherPayloadIsPassedOver) {
    ports({{kIpv4, {6080, 1}}});
    groups({{"a", {kMpls, 6635}}, {"b", {kMpls, 6080}}});
    start();
    EXPECT_EQ(record->gueMplsEncapUdpDestPort(), 6635);
    sut->setGueMplsEncapUdpDestPortViaDecapGroup(6080);
    groups({{"b", {kMpls, 6080}}});  // all are passed over: the port stays
    EXPECT_THAT(taken(), IsEmpty());
    EXPECT_EQ(record->gueMplsEncapUdpDestPort(), 6635);
    sut->setGueMplsEncapUdpDestPortViaDecapGroup(6636);
    EXPECT_THAT(taken(), ElementsAre("mpls=6636"));
}

TEST_F(GuePort, APortThatIsConfiguredForMplsTooIsTaken) {
    ports({{kIpv4, {6635, 1}}});
    groups({{"g", {kMpls, 6635}}});
    start();
    EXPECT_EQ(record->gueMplsEncapUdpDestPort(), 0);
    ports({{kMpls, {6635, 1}}, {kIpv4, {6635, 1}}});
    EXPECT_THAT(taken(), ElementsAre("mpls=6635"));
}

TEST_F(GuePort, WithoutInputsThePortsAreZero) {
    sut = PelNexthopGuePortSmIs(nullptr, nullptr, record);
    EXPECT_THAT(published, ElementsAre("mpls=0", "ipv4=0", "ipv6=0"));
    sut->handleGueDestPortConfig(kIpv4);
    sut->handleGueDestPortConfig(kMpls);
    EXPECT_EQ(published.size(), 3U);
}

TEST_F(GuePort, ASwitchedOffMachineWritesNothing) {
    start();
    sut->hasNotificationActiveIs(false);
    ports({{kIpv4, {6080, 1}}});
    groups({{"g", {kMpls, 6635}}});
    EXPECT_THAT(published, IsEmpty());
}

}  // namespace
}  // namespace Pel::Oc
