#include <gmock/gmock.h>

#include "model/Counters/CounterTable.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Fec/Fec_generated.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecEntry.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenNextHopEntry.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Route/RouteStatus.h"
#include "model/Tolo/Config.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vrf/VrfIdMap.h"
#include "model/Vrf/VrfIdMap_generated.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Pel {
namespace {

using testing::ElementsAre;

/// Every cut and every flipped byte is either refused or read as some record; nothing crashes.
template <class Codec>
void expectHostileBytesAreHarmless(const std::string& good) {
    for (std::size_t cut = 0; cut < good.size(); ++cut) {
        (void)Codec::decode(std::string_view{good}.substr(0, cut));
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const int bit : {1, 0x80}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ bit);
            (void)Codec::decode(bad);
        }
    }
    EXPECT_FALSE(Codec::decode(""));
    EXPECT_FALSE(Codec::decode("no record"));
}

template <class Record>
void expectRoundTrip(const Record& record) {
    using Codec = Mesa::RecordCodec<Record>;
    const std::string bytes = Codec::encode(record);
    const std::string shifted = "x" + bytes;  // the store's records lie at any address
    const auto read = Codec::decode(std::string_view{shifted}.substr(1));
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(Vel::isEq(*read, record)) << Vel::toString(*read);
    expectHostileBytesAreHarmless<Codec>(bytes);
}

TEST(Records, RoundTrip) {
    expectRoundTrip(FlattenFecEntry{{7, 2}, 99, true, true});
    expectRoundTrip(FlattenNextHopEntry{
        Stash::OcNextHopIndex{7}, NexthopGroupId{8}, NexthopGroupEntryIndex{9}, {7, 2}});
    expectRoundTrip(ReadyRecord{true});
    expectRoundTrip(Tolo::ConfigRecord{true});
    expectRoundTrip(Vrf::VrfIdMap::Entry{Vrf::VrfName{"red"}});
    expectRoundTrip(Routing::NexthopGroup::CounterKeyEntry{1234567});
    expectRoundTrip(FlexCounters::MesaFlexCounter{UINT64_MAX, 1});
    expectRoundTrip(FlexCounters::MesaFlexCounter{});
    expectRoundTrip(Mesa::FibRoute{FecId{41}, OriginProtocol::bgp});
}

TEST(Records, RoundTripOfTunnelConfigurations) {
    L3::Tunnel::UdpDestinationPortConfigRecord ports;
    ports.payloadTypeToPort[Tunnel::PayloadType::ipv4] = {6080, 1};
    const auto bytes = Mesa::RecordCodec<decltype(ports)>::encode(ports);
    EXPECT_EQ(Mesa::RecordCodec<decltype(ports)>::decode(bytes)->payloadTypeToPort,
              ports.payloadTypeToPort);
    expectHostileBytesAreHarmless<Mesa::RecordCodec<decltype(ports)>>(bytes);
    Tunnel::Decap::ConfigRecord groups;
    groups.decapGroup["dg1"] = {Tunnel::PayloadType::mpls, 6635};
    const auto groupBytes = Mesa::RecordCodec<decltype(groups)>::encode(groups);
    EXPECT_EQ(Mesa::RecordCodec<decltype(groups)>::decode(groupBytes)->decapGroup,
              groups.decapGroup);
    expectHostileBytesAreHarmless<Mesa::RecordCodec<decltype(groups)>>(groupBytes);
}

TEST(Records, TheHandleTravels) {
    const auto read = Mesa::RecordCodec<FlattenFecEntry>::decode(
        Mesa::RecordCodec<FlattenFecEntry>::encode({{7, 2}, 0, true, false}));
    EXPECT_EQ(read->fecDedupedRawPtr(), (Stash::Handle{7, 2}));
    EXPECT_FALSE(FlattenFecEntry::isEq(*read, FlattenFecEntry{}));
    EXPECT_TRUE(FlattenFecEntry::isEq(FlattenFecEntry{}, FlattenFecEntry{}));
}

TEST(Records, AVrfNameTooLongDoesNotVerify) {
    flatbuffers::FlatBufferBuilder to;
    to.Finish(Wire::CreateVrfIdMapEntry(to, to.CreateString(std::string(101, 'x'))));
    const std::string bytes(to.GetBufferPointer(), to.GetBufferPointer() + to.GetSize());
    EXPECT_EQ(Mesa::RecordCodec<Vrf::VrfIdMap::Entry>::decode(bytes), std::nullopt);
}

class NextHopRecord : public testing::Test {
protected:
    using Codec = Stash::RecordCodec<Stash::FlattenFecNextHop>;
    NextHopRecord() {
        record.interface = Nexo::IntfId{"vlan7", "eth1", 7};
        record.address = *Nexo::IpGenAddr::parse("2001:db8::1");
        record.mac = Nexo::EthAddr{{0, 1, 2, 3, 4, 5}};
        for (std::uint32_t i = 0; i < 20; ++i) { record.labels.push(Nexo::MplsLabel{1000 + i}); }
        record.encapOrder.push(Tunnel::TunnelTable::EncapType::mpls);
        record.encapOrder.push(Tunnel::TunnelTable::EncapType::udp);
        record.mplsEncapLabels = {Nexo::MplsLabel{16}, Nexo::MplsLabel{17}};
        record.gue = Stash::GueEncap{
            1, *Nexo::IpGenAddr::parse("10.0.0.1"), *Nexo::IpGenAddr::parse("10.0.0.2"), 64};
        record.vxlan = Stash::VxlanEncap{Nexo::IntfId{"vxlan1"}, 16384};
        record.decapVrfId = Vrf::VrfId{10};
        record.decapHeader = 5;
        record.fallbackVrfId = Vrf::VrfId{11};
        record.popTopLabel = true;
    }
    Stash::FlattenFecNextHop record;
};

TEST_F(NextHopRecord, RoundTripsWithAllItsParts) {
    const std::string bytes = Codec::encode(record);
    const auto read = Codec::decode(bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(Vel::isEq(*read, record)) << Vel::toString(*read);
    EXPECT_EQ(Codec::encode(*read), bytes) << "equal records are equal bytes, so they share one";
    expectHostileBytesAreHarmless<Codec>(bytes);
}

TEST_F(NextHopRecord, AnEmptyOneRoundTrips) {
    const Stash::FlattenFecNextHop empty;
    const auto read = Codec::decode(Codec::encode(empty));
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(Vel::isEq(*read, empty));
}

TEST_F(NextHopRecord, OutOfRangePartsDoNotVerify) {
    const auto bytesWith = [](std::size_t encaps, std::size_t labels, std::uint32_t label) {
        flatbuffers::FlatBufferBuilder to;
        const auto order = to.CreateVector(std::vector<std::uint8_t>(encaps, 4));
        const auto stack = to.CreateVector(std::vector<std::uint32_t>(labels, label));
        Wire::FlattenFecNextHopBuilder table{to};
        table.add_encap_order(order);
        table.add_labels(stack);
        to.Finish(table.Finish());
        return std::string(to.GetBufferPointer(), to.GetBufferPointer() + to.GetSize());
    };
    EXPECT_NE(Codec::decode(bytesWith(16, 255, 0xFFFFF)), nullptr);
    EXPECT_EQ(Codec::decode(bytesWith(17, 1, 16)), nullptr);
    EXPECT_EQ(Codec::decode(bytesWith(1, 256, 16)), nullptr);
    EXPECT_EQ(Codec::decode(bytesWith(1, 1, 0x100000)), nullptr);
}

TEST_F(NextHopRecord, SixteenEncapsulationsAreTheMost) {
    while (record.encapOrder.encaps() < 16) {
        record.encapOrder.push(Tunnel::TunnelTable::EncapType::mpls);
    }
    EXPECT_NE(Codec::decode(Codec::encode(record)), nullptr);
    EXPECT_THROW(record.encapOrder.push(Tunnel::TunnelTable::EncapType::mpls), Vel::RangeError);
}

TEST(FecRecord, RoundTrips) {
    using Codec = Stash::RecordCodec<Stash::FlattenFec>;
    Stash::FlattenFec fec;
    for (std::uint64_t i = 1; i <= 64; ++i) {
        fec.nextHopIs({Stash::OcNextHopIndex{i}, static_cast<std::uint32_t>(i * 2)});
    }
    fec.nexthopGroupNameIs("gold", 3);
    const std::string bytes = Codec::encode(fec);
    const auto read = Codec::decode(bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(Vel::isEq(*read, fec));
    EXPECT_EQ(read->nextHop(63).weight, 128U);
    expectHostileBytesAreHarmless<Codec>(bytes);
}

TEST(VtiDir, TellsWhatChanged) {
    using Codec = Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>;
    const auto dir = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    std::vector<std::string> told;
    const auto a = dir->onVtepAddr().subscribe([&](const Nexo::IntfId& vti, Nexo::AddressFamily f) {
        told.push_back(vti.stringValue() + (f == Nexo::AddressFamily::ipv4 ? " v4" : " v6"));
    });
    const auto b = dir->onVlanVni().subscribe([&](const Nexo::IntfId& vti, std::uint32_t vlan) {
        told.push_back(vti.stringValue() + " vlan " + std::to_string(vlan));
    });
    const Nexo::IntfId vti{"vxlan1"};
    Vxlan::VtiStatusDirRecord record;
    record.vti[vti] = {vti, *Nexo::IpGenAddr::parse("10.0.0.1"), {}, {{100, 10100}, {200, 10200}}};
    EXPECT_TRUE(dir->recordIs(Codec::encode(record)));
    EXPECT_THAT(told, ElementsAre("vxlan1 v4", "vxlan1 v6", "vxlan1 vlan 100", "vxlan1 vlan 200"));
    EXPECT_EQ(dir->vtiStatus(vti)->vlanVniMap.at(200), 10200U);
    told.clear();
    EXPECT_TRUE(dir->recordIs(Codec::encode(record)));
    EXPECT_THAT(told, ElementsAre());
    record.vti[vti].vlanVniMap[200] = 1;
    record.vti[vti].vtepAddrV6 = *Nexo::IpGenAddr::parse("2001:db8::1");
    dir->recordIs(Codec::encode(record));
    EXPECT_THAT(told, ElementsAre("vxlan1 v6", "vxlan1 vlan 200"));
    told.clear();
    dir->recordDel();
    EXPECT_THAT(told, ElementsAre("vxlan1 v4", "vxlan1 v6", "vxlan1 vlan 100", "vxlan1 vlan 200"));
    EXPECT_EQ(dir->vtiStatus(vti), nullptr);
    expectHostileBytesAreHarmless<Codec>(Codec::encode(record));
}

TEST(VtiDir, OneThatComesOrGoesChangesBothFamiliesAndNoOther) {
    using Codec = Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>;
    const auto dir = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    const Nexo::IntfId stays{"vxlan1"};
    const Nexo::IntfId comes{"vxlan2"};
    Vxlan::VtiStatusDirRecord record;
    record.vti[stays] = {stays, *Nexo::IpGenAddr::parse("10.0.0.1"), {}, {{100, 10100}}};
    dir->recordIs(Codec::encode(record));
    std::vector<std::string> told;
    const auto a = dir->onVtepAddr().subscribe([&](const Nexo::IntfId& vti, Nexo::V4V6 f) {
        told.push_back(vti.stringValue() + (f == Nexo::V4V6::ipv4 ? " v4" : " v6"));
    });
    record.vti[comes] = {comes, {}, {}, {}};
    dir->recordIs(Codec::encode(record));
    EXPECT_THAT(told, ElementsAre("vxlan2 v4", "vxlan2 v6"));
    record.vti.erase(comes);
    dir->recordIs(Codec::encode(record));
    EXPECT_THAT(told, ElementsAre("vxlan2 v4", "vxlan2 v6", "vxlan2 v4", "vxlan2 v6"));
}

TEST(Mirrored, BadBytesChangeNothing) {
    const auto status = Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus");
    int changes = 0;
    const auto watch = status->onFecReady().subscribe([&] { ++changes; });
    const std::string ready = Mesa::RecordCodec<ReadyRecord>::encode({true});
    EXPECT_TRUE(status->recordIs(ready));
    EXPECT_TRUE(status->recordIs(ready));
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(status->recordIs("bad"));
    EXPECT_TRUE(status->fecReady());
    status->recordDel();
    EXPECT_FALSE(status->fecReady());
    EXPECT_EQ(changes, 2);
}

TEST(UdpDestinationPorts, EachEntryThatDiffersIsTold) {
    using Tunnel::PayloadType;
    L3::Tunnel::UdpDestinationPortConfig sut{"udpDestPort"};
    std::vector<PayloadType> told;
    const auto onEntry =
        sut.onPayloadTypeToPort().subscribe([&](PayloadType type) { told.push_back(type); });
    sut.recordIs({{{PayloadType::ipv4, {6080, 1}}, {PayloadType::ipv6, {6081, 1}}}});
    EXPECT_THAT(told, ElementsAre(PayloadType::ipv4, PayloadType::ipv6));
    told.clear();
    // One stays, one changes its mode only, one comes.
    sut.recordIs({{{PayloadType::mpls, {6635, 1}},
                   {PayloadType::ipv4, {6080, 0}},
                   {PayloadType::ipv6, {6081, 1}}}});
    EXPECT_THAT(told, ElementsAre(PayloadType::mpls, PayloadType::ipv4));
    told.clear();
    sut.recordDel();
    EXPECT_THAT(told, ElementsAre(PayloadType::mpls, PayloadType::ipv4, PayloadType::ipv6));
}

TEST(PayloadTypes, HaveNamesOrTheirNumber) {
    using Tunnel::PayloadType;
    using Tunnel::stringValue;
    EXPECT_EQ(stringValue(PayloadType::none), "none");
    EXPECT_EQ(stringValue(PayloadType::mpls), "mpls");
    EXPECT_EQ(stringValue(PayloadType::gre), "gre");
    EXPECT_EQ(stringValue(PayloadType::ipv4), "ipv4");
    EXPECT_EQ(stringValue(PayloadType::ipv6), "ipv6");
    EXPECT_EQ(stringValue(PayloadType{200}), "200");
}

}  // namespace
}  // namespace Pel
