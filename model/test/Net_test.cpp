#include <gmock/gmock.h>

#include "model/Counters/CounterTable.h"
#include "model/Fec/CharRange.h"
#include "model/Fec/FecId.h"
#include "model/Fec/NexthopGroupEntry.h"
#include "model/Fec/OcNextHopIndex.h"
#include "model/Net/EthAddr.h"
#include "model/Net/ExtendedVlanId.h"
#include "model/Net/InternedName.h"
#include "model/Net/IntfId.h"
#include "model/Net/IpPrefix.h"
#include "model/Net/MplsLabelStack.h"
#include "model/Route/RouteStatus.h"
#include "model/Vrf/VrfName.h"

namespace Nexo {
namespace {

struct TextCase {
    const char* name;
    const char* given;
    const char* wanted;
};
constexpr TextCase kTexts[] = {
    {"Ipv4", "10.0.0.1", "10.0.0.1"},
    {"Ipv4Zero", "0.0.0.0", "0.0.0.0"},
    {"Ipv6Zero", "::", "::"},
    {"Loopback", "::1", "::1"},
    {"TrailingZeros", "2001:db8::", "2001:db8::"},
    {"LeadingZerosGo", "2001:0db8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
    {"OneZeroGroupStays", "2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
    {"LongestRun", "2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
    {"FirstOfEqualRuns", "2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
    {"LowerCase", "2001:DB8::ABCD", "2001:db8::abcd"},
    {"NoDottedTail", "::ffff:10.0.0.1", "::ffff:a00:1"},
};
class AddressText : public testing::TestWithParam<TextCase> {};
TEST_P(AddressText, IsCanonical) {
    const auto address = IpGenAddr::parse(GetParam().given);
    ASSERT_TRUE(address.has_value());
    EXPECT_EQ(address->stringValue(), GetParam().wanted);
}
INSTANTIATE_TEST_SUITE_P(, AddressText, testing::ValuesIn(kTexts), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(Address, WhatIsNoAddressIsNotRead) {
    for (const char* text : {"", "10.0.0", "10.0.0.256", "fe80::1%eth0", "::/0", "::1::", "x"}) {
        EXPECT_EQ(IpGenAddr::parse(text), std::nullopt) << text;
    }
}

TEST(Address, ZeroIsZeroOfItsOwnFamily) {
    EXPECT_TRUE(IpGenAddr::parse("0.0.0.0")->isZero());
    EXPECT_TRUE(IpGenAddr::parse("::")->isZero());
    EXPECT_FALSE(IpGenAddr::parse("0.0.0.1")->isZero());
    EXPECT_NE(IpGenAddr::parse("0.0.0.0"), IpGenAddr::parse("::"));
    EXPECT_EQ(sizeof(IpGenAddr), 17U);
}

TEST(Prefix, HostBitsAreCleared) {
    EXPECT_EQ(IpPrefix(*IpGenAddr::parse("10.255.255.255"), 9).stringValue(), "10.128.0.0/9");
    EXPECT_EQ(IpPrefix(*IpGenAddr::parse("10.1.2.3"), 0).stringValue(), "0.0.0.0/0");
    EXPECT_EQ(IpPrefix(*IpGenAddr::parse("10.1.2.3"), 32).stringValue(), "10.1.2.3/32");
    EXPECT_EQ(IpPrefix(*IpGenAddr::parse("2001:db8::ff"), 127).stringValue(), "2001:db8::fe/127");
    EXPECT_THROW(IpPrefix(*IpGenAddr::parse("10.1.2.3"), 33), Vel::RangeError);
    EXPECT_EQ(IpPrefix::parse("10.0.0.0/33"), std::nullopt);
    EXPECT_EQ(IpPrefix::parse("10.0.0.0/"), std::nullopt);
}

TEST(Prefix, KeysKeepTheOrderAndForeignBytesAreRefused) {
    using Codec = Store::KeyCodec<IpPrefix>;
    const char* const inOrder[] = {
        "0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/9", "10.128.0.0/9", "::/0", "2001:db8::/32"};
    std::string last;
    for (const char* text : inOrder) {
        const IpPrefix prefix = *IpPrefix::parse(text);
        const std::string key = Codec::encode(prefix);
        EXPECT_LT(last, key) << text;
        EXPECT_EQ(Codec::decode(key), prefix);
        last = key;
    }
    const std::string good = Codec::encode(*IpPrefix::parse("10.0.0.0/8"));
    EXPECT_EQ(Codec::decode(good.substr(1)), std::nullopt);
    EXPECT_EQ(Codec::decode(""), std::nullopt);
    std::string hostBits = good;
    hostBits[4] = 1;
    EXPECT_EQ(Codec::decode(hostBits), std::nullopt);
    std::string family = good;
    family[0] = 2;
    EXPECT_EQ(Codec::decode(family), std::nullopt);
    std::string length = good;
    length[5] = 33;
    EXPECT_EQ(Codec::decode(length), std::nullopt);
}

TEST(Interface, IsEightBytesAndEqualOnesAreOneObject) {
    EXPECT_EQ(sizeof(IntfId), 8U);
    EXPECT_EQ(IntfId{"eth1"}, IntfId{"eth1"});
    EXPECT_NE(IntfId{"eth1"}, IntfId{"eth2"});
    EXPECT_LT(IntfId{"eth1"}, IntfId{"eth2"});
    EXPECT_TRUE(IntfId{""}.empty());
    EXPECT_EQ(IntfId{"eth1"}.parent(), IntfId{"eth1"});
}

TEST(Interface, ASubinterfaceKnowsParentAndNumber) {
    const IntfId sub{"vlan7", "eth1", 7};
    EXPECT_TRUE(sub.isSubinterface());
    EXPECT_EQ(sub.stringValue(), "vlan7");
    EXPECT_EQ(sub.parent(), IntfId{"eth1"});
    EXPECT_EQ(sub.subinterface(), 7U);
    EXPECT_EQ(sub, (IntfId{"vlan7", "eth1", 7}));
    EXPECT_NE(sub, (IntfId{"vlan7", "eth1", 8}));
    EXPECT_NE(sub, IntfId{"vlan7"});
    EXPECT_NE(sub <=> IntfId{"vlan7"}, std::strong_ordering::equal);
    EXPECT_EQ((IntfId{"eth1.0", "eth1", 0}).subinterface(), 0U);
}

TEST(Name, EqualOnesAreOneObject) {
    EXPECT_EQ(InternedName{"red"}, InternedName{"red"});
    EXPECT_NE(InternedName{"red"}, InternedName{"blue"});
    EXPECT_TRUE(InternedName{""}.empty());
    EXPECT_EQ(InternedName{}.stringValue(), "");
}

TEST(StackEntryIndex, HoldsZeroToThirteenAndNull) {
    EXPECT_EQ(MplsStackEntryIndex{13}.value(), 13U);
    EXPECT_TRUE(MplsStackEntryIndex{14}.isNull());
    try {
        MplsStackEntryIndex{15};
        FAIL();
    } catch (const Vel::RangeError& error) {
        EXPECT_STREQ(error.what(),
                     "Nexo::MplsStackEntryIndex::value < Nexo::MplsStackEntryIndex::min or > "
                     "Nexo::MplsStackEntryIndex::nullValue not allowed");
    }
}

TEST(LabelStack, ReadingAtNullRaises) {
    MplsLabelStack stack;
    for (std::uint32_t i = 0; i < 15; ++i) { stack.push(MplsLabel{i}); }
    EXPECT_EQ(stack.label(MplsStackEntryIndex{13}).value(), 13U);
    EXPECT_THROW(stack.label(MplsStackEntryIndex{14}), Vel::RangeError);
    stack.clear();
    EXPECT_THROW(stack.label(MplsStackEntryIndex{0}), Vel::RangeError);
    EXPECT_THROW(MplsLabel{1U << 20U}, Vel::RangeError);
}

TEST(Keys, KeepTheOrderOfNumbersAndRefuseForeignBytes) {
    using FecCodec = Store::KeyCodec<Pel::FecId>;
    EXPECT_LT(FecCodec::encode(Pel::FecId{255}), FecCodec::encode(Pel::FecId{256}));
    EXPECT_EQ(FecCodec::decode(FecCodec::encode(Pel::FecId{7})), Pel::FecId{7});
    EXPECT_EQ(FecCodec::decode("short"), std::nullopt);
    using EntryCodec = Store::KeyCodec<Pel::NexthopGroupEntryCounterKey>;
    const Pel::NexthopGroupEntryCounterKey key{Pel::NexthopGroupId{1},
                                               Pel::NexthopGroupEntryIndex{2}};
    EXPECT_EQ(EntryCodec::decode(EntryCodec::encode(key)), key);
    EXPECT_EQ(EntryCodec::decode("short"), std::nullopt);
    std::string tooLarge;
    Store::appendBigEndian(tooLarge, 1);
    Store::appendBigEndian(tooLarge, 1ULL << 32U);
    EXPECT_EQ(EntryCodec::decode(tooLarge), std::nullopt);
    EXPECT_EQ((Store::KeyCodec<Nexo::Id<struct SmallTag, std::uint32_t>>::decode(
                  Store::KeyCodec<std::uint64_t>::encode(1ULL << 32U))),
              std::nullopt);
}

TEST(FecIds, KindAndNumberShareTheBits) {
    const Pel::FecId id = Pel::makeFecId(Pel::FecKind::memberSet, 42);
    EXPECT_EQ(id.value(), 0x0100'0000'0000'002AU);
    EXPECT_EQ(Pel::fecKind(id), Pel::FecKind::memberSet);
    EXPECT_EQ(Pel::fecNumber(id), 42U);
    EXPECT_EQ(Pel::makeFecId(Pel::FecKind::kernel, 42).value(), 42U);
}

using Tunnel::TunnelTable::TunnelId;

TEST(TunnelIds, HaveEighteenBits) {
    EXPECT_EQ(TunnelId{TunnelId::minValue}.value(), 0U);
    EXPECT_EQ(TunnelId{TunnelId::maxValue}.value(), 0x3FFFFU);
    for (const std::uint32_t beyond : {0x40000U, UINT32_MAX}) {
        try {
            TunnelId{beyond};
            FAIL() << beyond;
        } catch (const Vel::RangeError& error) {
            EXPECT_STREQ(error.what(),
                         "Tunnel::TunnelTable::TunnelId::value < "
                         "Tunnel::TunnelTable::TunnelId::minValue or > "
                         "Tunnel::TunnelTable::TunnelId::maxValue not allowed");
        }
    }
}

TEST(TunnelIds, TheBitsFrom12UpSayWhetherItIsIpInIp) {
    EXPECT_FALSE(TunnelId{0x17FFF}.isIpInIp());
    EXPECT_TRUE(TunnelId{0x18000}.isIpInIp());
    EXPECT_TRUE(TunnelId{0x18FFF}.isIpInIp());
    EXPECT_FALSE(TunnelId{0x19000}.isIpInIp());
    EXPECT_FALSE(TunnelId{0x38000}.isIpInIp());
}

TEST(FecIds, OfIpInIpTunnelsBecomeTunnelIdsAndBack) {
    using Pel::FecId;
    using Pel::FecKind;
    using Pel::makeFecId;
    for (const std::uint32_t number : {0U, 1U, 0xFFFU}) {
        const FecId tunnel = makeFecId(FecKind::ipInIpTunnel, number);
        EXPECT_EQ(FecId::fecIdToTunnelId(tunnel), TunnelId{0x18000 + number});
        EXPECT_EQ(FecId::tunnelIdToFecId(TunnelId{0x18000 + number}), tunnel);
    }
    EXPECT_EQ(FecId::fecIdToTunnelId(makeFecId(FecKind::ipInIpTunnel, 0xABC'D123)),
              TunnelId{0x18123});
}

TEST(FecIds, AllOthersAreTunnelNumberZeroAndNothingRaises) {
    using Pel::FecId;
    for (unsigned kind = 0; kind < 256; ++kind) {
        if (kind == 2) { continue; }
        const FecId fecId = Pel::makeFecId(static_cast<Pel::FecKind>(kind), UINT64_MAX);
        EXPECT_EQ(FecId::fecIdToTunnelId(fecId), TunnelId{}) << kind;
    }
    for (const std::uint32_t other : {0U, 1U, 0x17FFFU, 0x19000U, TunnelId::maxValue}) {
        EXPECT_EQ(FecId::tunnelIdToFecId(TunnelId{other}), FecId{}) << other;
    }
}

TEST(CounterIndexes, AreTwoWords) {
    using FlexCounters::CounterIndex;
    const CounterIndex index{0x0001'8007'0000'0009U};
    EXPECT_EQ(FlexCounters::highWord(index), 0x18007U);
    EXPECT_EQ(FlexCounters::lowWord(index), 9U);
    EXPECT_EQ(FlexCounters::makeCounterIndex(0x18007, 9), index);
    EXPECT_EQ(FlexCounters::makeCounterIndex(TunnelId{0x18007}).value(), 0x0001'8007'0000'0000U);
    EXPECT_FALSE(CounterIndex{}) << "0 is none";
    EXPECT_TRUE(index);
}

TEST(FlexCounterRecords, AreEqualInBothCounts) {
    using FlexCounters::MesaFlexCounter;
    EXPECT_TRUE(MesaFlexCounter::isEq({}, {0, 0}));
    EXPECT_FALSE(MesaFlexCounter::isEq({1, 0}, {}));
    EXPECT_FALSE(MesaFlexCounter::isEq({0, 1}, {}));
    EXPECT_STREQ(FlexCounters::CounterTable::kType, "FlexCounters::CounterTable");
    EXPECT_STREQ(FlexCounters::CounterTable::kPath, "flexCounters/counterTable/Nexthop/4294967295");
}

TEST(CharRanges, RangeAndFormErrorsDiffer) {
    Pel::CharRange tooLarge{"18446744073709551616"};
    EXPECT_THROW(Pel::Stash::OcNextHopIndex{tooLarge}, Vel::RangeError);
    Pel::CharRange none{"x"};
    EXPECT_THROW(Pel::Stash::OcNextHopIndex{none}, Vel::DeserialisationError);
}

TEST(FibTablePath, NamesFamilyAndVrf) {
    EXPECT_EQ(Mesa::fibTableMountPath(AddressFamily::ipv4, "default", "rib"), "routing/status");
    EXPECT_EQ(Mesa::fibTableMountPath(AddressFamily::ipv4, "red", "rib"), "routing/vrf/status/red");
    EXPECT_EQ(Mesa::fibTableDirPath(AddressFamily::ipv4), "routing/vrf/status");
    EXPECT_EQ(Mesa::fibTableDirPath(AddressFamily::ipv6), "routing6/vrf/status");
    EXPECT_EQ(Mesa::fibTableMountPath(AddressFamily::ipv6, "default", "rib"), "routing6/status");
    EXPECT_EQ(Mesa::fibTableMountPath(AddressFamily::ipv6, "red", "rib"),
              "routing6/vrf/status/red");
}

TEST(VrfNames, HaveAtMostAHundredBytes) {
    EXPECT_NO_THROW(Vrf::VrfName(std::string(100, 'x')));
    try {
        Vrf::VrfName name(std::string(101, 'x'));
        FAIL();
    } catch (const Vel::RangeError& error) {
        EXPECT_STREQ(error.what(), "Vel::String::bytes > maxLength() not allowed");
    }
}

TEST(ExtendedVlan, IsAtMost16383) {
    EXPECT_EQ(ExtendedVlanId{}.value(), 0U);
    EXPECT_EQ(ExtendedVlanId{16383}.value(), 16383U);
    for (const std::uint32_t beyond : {16384U, 65536U, 0xffffffffU}) {
        EXPECT_THROW(ExtendedVlanId{beyond}, Vel::RangeError) << beyond;
    }
}

}  // namespace
}  // namespace Nexo
