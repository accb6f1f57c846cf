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
    auto encap = std::make_shared<Encap>();
    encap->kind = EncapKind::Mpls;
    encap->labels = {16001, 16002};
    FlatNextHop nextHop;
    nextHop.interfaceName = "eth0.100";
    nextHop.parentName = "eth0";
    nextHop.subinterface = 100;
    nextHop.address = *Nexo::IpGenAddr::parse("fe80::1");
    nextHop.mac = Nexo::EthAddr{{2, 0, 0, 0, 0, 1}};
    nextHop.encap = encap;
    EXPECT_EQ(throughBytes(nextHop), nextHop);
}

TEST(NextHopRecord, KeepsWhatIsAbsent) {
    FlatNextHop nextHop;
    nextHop.interfaceName = "eth0";
    EXPECT_EQ(throughBytes(nextHop), nextHop);
    EXPECT_EQ(throughBytes(FlatNextHop{}), FlatNextHop{});
}

}  // namespace
}  // namespace Pel::Forwarder
