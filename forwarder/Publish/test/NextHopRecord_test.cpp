#include "forwarder/Publish/NextHopRecord.h"

#include <gtest/gtest.h>

namespace Pel::Forwarder {
namespace {

FlatNextHop throughBytes(const FlatNextHop& nextHop) {
    Stash::FlattenFecNextHop record;
    toRecord(nextHop, record);
    const auto read = Stash::RecordCodec<Stash::FlattenFecNextHop>::decode(
        Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(record));
    return read ? fromRecord(*read) : FlatNextHop{};
}

TEST(NextHopRecord, KeepsIdentityAndContent) {
    FlatEncap encap;
    encap.labels = {16001, 16002};
    FlatNextHop nextHop;
    nextHop.interfaceName = "eth0.100";
    nextHop.parentName = "eth0";
    nextHop.subinterface = 100;
    nextHop.address = *Nexo::IpGenAddr::parse("fe80::1");
    nextHop.mac = Nexo::EthAddr{{2, 0, 0, 0, 0, 1}};
    nextHop.encap = std::make_shared<const FlatEncap>(encap);
    EXPECT_EQ(throughBytes(nextHop), nextHop);
}

TEST(NextHopRecord, KeepsTheTunnelInterfaceAndVlan) {
    FlatEncap encap;
    encap.vxlan = {Nexo::IntfId{"vxe"}, 4096};
    FlatNextHop nextHop;
    nextHop.interfaceName = "br100";
    nextHop.address = *Nexo::IpGenAddr::parse("10.0.1.2");
    nextHop.encap = std::make_shared<const FlatEncap>(encap);
    EXPECT_EQ(throughBytes(nextHop), nextHop);
    Stash::FlattenFecNextHop record;
    toRecord(nextHop, record);
    EXPECT_EQ(record.vxlan, encap.vxlan);
    EXPECT_EQ(record.encapOrder.encaps(), 0);
}

TEST(NextHopRecord, OrdersTheUdpHeaderThatItHasDataOf) {
    FlatEncap encap;
    encap.udp = {1, *Nexo::IpGenAddr::parse("10.0.1.1"), *Nexo::IpGenAddr::parse("10.0.1.2"), 64};
    FlatNextHop nextHop;
    nextHop.encap = std::make_shared<const FlatEncap>(encap);
    EXPECT_EQ(throughBytes(nextHop), nextHop);
    Stash::FlattenFecNextHop record;
    toRecord(nextHop, record);
    EXPECT_EQ(record.gue, encap.udp);
    ASSERT_EQ(record.encapOrder.encaps(), 1);
    EXPECT_EQ(record.encapOrder.encap(0), Tunnel::TunnelTable::EncapType::udp);
}

TEST(NextHopRecord, KeepsWhatIsAbsent) {
    FlatNextHop nextHop;
    nextHop.interfaceName = "eth0";
    EXPECT_EQ(throughBytes(nextHop), nextHop);
    EXPECT_EQ(throughBytes(FlatNextHop{}), FlatNextHop{});
}

}  // namespace
}  // namespace Pel::Forwarder
