#include "forwarder/Flatten/VlanNumbers.h"

#include <gtest/gtest.h>

namespace Pel::Forwarder {
namespace {

TEST(VlanNumbers, StandBehindTheVlansOfTheWire) {
    VlanNumbers numbers;
    EXPECT_EQ(numbers.find(5001), 0U);
    EXPECT_TRUE(numbers.acquire(5001));
    EXPECT_TRUE(numbers.acquire(5002));
    EXPECT_EQ(numbers.find(5001), 4096U);
    EXPECT_EQ(numbers.find(5002), 4097U);
}

TEST(VlanNumbers, StayWhileSomebodyUsesThem) {
    VlanNumbers numbers;
    numbers.acquire(5001);
    numbers.acquire(5001);
    numbers.release(5001);
    EXPECT_EQ(numbers.find(5001), 4096U);
    numbers.release(5001);
    EXPECT_EQ(numbers.find(5001), 0U);
}

TEST(VlanNumbers, AreNotGivenAgainSoon) {
    VlanNumbers numbers;
    numbers.acquire(5001);
    numbers.release(5001);
    numbers.acquire(5002);
    EXPECT_EQ(numbers.find(5002), 4097U);
}

TEST(VlanNumbers, RunOutAndComeBack) {
    VlanNumbers numbers;
    for (std::uint32_t i = 0; i < VlanNumbers::kCount; ++i) { ASSERT_TRUE(numbers.acquire(1 + i)); }
    EXPECT_EQ(numbers.find(VlanNumbers::kCount), VlanNumbers::kLast);
    EXPECT_FALSE(numbers.acquire(900000));
    EXPECT_EQ(numbers.find(900000), 0U);
    EXPECT_TRUE(numbers.acquire(5));
    numbers.release(7);
    EXPECT_TRUE(numbers.acquire(900000));
    EXPECT_EQ(numbers.find(900000), 4096U + 6);
}

TEST(VlanNumbers, RestoredOnesAreKeptForTheirVni) {
    VlanNumbers numbers;
    numbers.restore(4096, 5001);
    numbers.restore(4098, 5003);
    numbers.restore(4098, 5004);   // taken
    numbers.restore(100, 5005);    // the kernel's
    numbers.restore(16384, 5006);  // no VLAN
    EXPECT_EQ(numbers.find(5001), 4096U);
    EXPECT_EQ(numbers.find(5004), 0U);
    EXPECT_EQ(numbers.find(5005), 0U);
    EXPECT_EQ(numbers.find(5006), 0U);
    numbers.acquire(7000);
    EXPECT_EQ(numbers.find(7000), 4099U);
    numbers.acquire(5003);
    EXPECT_EQ(numbers.find(5003), 4098U);
    numbers.forgetRestored();
    EXPECT_EQ(numbers.find(5001), 0U);
    EXPECT_EQ(numbers.find(5003), 4098U);
}

TEST(VlanNumbers, PassedOverOnesComeLast) {
    VlanNumbers numbers;
    numbers.passOver(4100);
    numbers.passOver(20);
    numbers.passOver(16384);
    numbers.acquire(5001);
    EXPECT_EQ(numbers.find(5001), 4101U);
    numbers.restore(4100, 5000);
    numbers.acquire(5002);
    EXPECT_EQ(numbers.find(5000), 4100U);
    EXPECT_EQ(numbers.find(5002), 4102U);
}

}  // namespace
}  // namespace Pel::Forwarder
