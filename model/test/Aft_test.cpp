#include <gmock/gmock.h>

#include <malloc.h>

#include "model/Aft/AftContainer.h"
#include "model/Aft/StateSyncedContainer.h"

namespace Pel::OcApi {
namespace {

using testing::ElementsAre;

NextHop nextHop(std::uint64_t index) {
    NextHop result;
    result.index = NextHopIndex{index};
    result.interface = Nexo::IntfId{"eth1"};
    result.ipAddress = *Nexo::IpGenAddr::parse("10.0.0.1");
    return result;
}

TEST(NextHops, EachChangeIsToldWithItsKeyAfterItWasMade) {
    const auto sut = Vel::make<NextHopContainer>("nextHops");
    std::vector<std::string> told;
    const auto watch = sut->onNextHop().subscribe([&](const NextHopIndex& index) {
        told.push_back(std::to_string(index.value()) + (sut->nextHop(index) ? " there" : " gone"));
    });
    sut->nextHopIs(nextHop(7));
    sut->nextHopIs(nextHop(7));
    sut->nextHopDel(NextHopIndex{7});
    sut->nextHopDel(NextHopIndex{7});
    sut->nextHopIs(nextHop(8));
    sut->nextHopDelAll();
    EXPECT_THAT(told, ElementsAre("7 there", "7 there", "7 gone", "8 there", "8 gone"));
}

TEST(NextHops, TheEncapsulatedOnesAreCounted) {
    const auto sut = Vel::make<NextHopContainer>("nextHops");
    const auto encapsulated = [](std::uint64_t index) {
        NextHop result = nextHop(index);
        EncapHeader header;
        header.type = EncapHeaderType::mpls;
        result.encapHeaders.encapHeaderIs(header);
        return result;
    };
    sut->nextHopIs(nextHop(1));
    EXPECT_EQ(sut->encapsulated(), 0U);
    sut->nextHopIs(encapsulated(1));
    sut->nextHopIs(encapsulated(1));
    sut->nextHopIs(encapsulated(2));
    EXPECT_EQ(sut->encapsulated(), 2U);
    sut->nextHopIs(nextHop(1));
    EXPECT_EQ(sut->encapsulated(), 1U);
    sut->nextHopDel(NextHopIndex{2});
    sut->nextHopDel(NextHopIndex{2});
    EXPECT_EQ(sut->encapsulated(), 0U);
    sut->nextHopIs(encapsulated(3));
    sut->nextHopDelAll();
    EXPECT_EQ(sut->encapsulated(), 0U);
}

TEST(NextHops, ProcessedTellsWithoutAChange) {
    const auto sut = Vel::make<NextHopContainer>("nextHops");
    int changes = 0;
    std::vector<std::uint64_t> processed;
    const auto a = sut->onNextHop().subscribe([&](const NextHopIndex&) { ++changes; });
    const auto b = sut->onProcessed().subscribe(
        [&](const NextHopIndex& index) { processed.push_back(index.value()); });
    sut->processedIs(NextHopIndex{7});
    EXPECT_EQ(changes, 0);
    EXPECT_THAT(processed, ElementsAre(7));
}

TEST(NextHops, AHundredThousandTakeLessThan200BytesEach) {
    constexpr std::uint64_t kCount = 100'000;
    const auto sut = Vel::make<NextHopContainer>("nextHops");
    const auto before = ::mallinfo2();
    for (std::uint64_t i = 1; i <= kCount; ++i) { sut->nextHopIs(nextHop(i)); }
    const auto after = ::mallinfo2();
    const double each =
        static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd) /
        static_cast<double>(kCount);
    RecordProperty("bytesEach", std::to_string(each));
    EXPECT_LT(each, 200);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_GT(each, 64) << "the measurement sees nothing";
#endif
}

TEST(NextHops, EqualityCoversTheHeaders) {
    NextHop a = nextHop(7);
    NextHop b = nextHop(7);
    EXPECT_EQ(a, b);
    b.encapHeaders.encapHeaderIs({0, EncapHeaderType::mpls, MplsState{}});
    EXPECT_FALSE(a == b);
}

TEST(EncapHeaders, AreInIndexOrderWithGaps) {
    EncapHeaderContainer sut;
    MplsState mpls;
    mpls.mplsLabelStackPush(Nexo::MplsLabel{16});
    sut.encapHeaderIs({3, EncapHeaderType::udpv4, UdpState{}});
    sut.encapHeaderIs({1, EncapHeaderType::mpls, mpls});
    sut.encapHeaderIs({3, EncapHeaderType::unset, {}});
    ASSERT_EQ(sut.size(), 2U);
    EXPECT_EQ(sut.begin()->index, 1);
    EXPECT_EQ(sut.encapHeader(0), nullptr);
    EXPECT_EQ(sut.encapHeader(3)->type, EncapHeaderType::unset);
    EXPECT_EQ(sut.encapHeader(1)->stateAs<MplsState>()->mplsLabelStack.size(), 1U);
    EXPECT_EQ(sut.encapHeader(1)->stateAs<UdpState>(), nullptr);
}

TEST(Members, AreInIndexOrderAndTheLastOfOneIndexWins) {
    NextHopInGroupContainer sut;
    sut.nextHopInGroupIs({NextHopIndex{9}, 1});
    sut.nextHopInGroupIs({NextHopIndex{7}, 3});
    sut.nextHopInGroupIs({NextHopIndex{9}, 5});
    ASSERT_EQ(sut.size(), 2U);
    EXPECT_EQ(sut.begin()->index.value(), 7U);
    EXPECT_EQ(sut.nextHopInGroup(NextHopIndex{9})->weight, 5U);
    EXPECT_EQ(sut.nextHopInGroup(NextHopIndex{8}), nullptr);
}

TEST(Flags, TellOnlyChanges) {
    const auto fib = Vel::make<FibReadyContainer>("fibReady");
    int told = 0;
    const auto watch = fib->onFecReady().subscribe([&] { ++told; });
    fib->fecReadyIs(false);
    fib->fecReadyIs(true);
    fib->fecReadyIs(true);
    EXPECT_EQ(told, 1);
    const auto synced = Vel::make<StateSyncedContainer>("red");
    EXPECT_FALSE(synced->ipv4Unicast());
    synced->ipv6UnicastIs(true);
    EXPECT_FALSE(synced->ipv4Unicast());
    EXPECT_TRUE(synced->ipv6Unicast());
}

TEST(Aft, ChildrenBearTheirNames) {
    const auto sut = Vel::make<AftContainer>("aftContainer");
    EXPECT_EQ(sut->nextHops(), nullptr);
    sut->nextHopGroupsIs();
    sut->nextHopsIs();
    sut->fibReadyIs();
    sut->nextHopCountersIs();
    EXPECT_EQ(sut->size(), 4U);
    EXPECT_EQ(sut->entity("nextHops").get(), sut->nextHops().get());
    const auto first = sut->nextHops();
    sut->nextHopsIs();
    EXPECT_EQ(sut->nextHops(), first);
}

}  // namespace
}  // namespace Pel::OcApi
