#include "forwarder/Flatten/IpAddress.h"

#include <gtest/gtest.h>

namespace Pel::Forwarder {
namespace {

TEST(IpAddress, ReadsAndPrintsBothFamilies) {
    EXPECT_EQ(toString(IpAddress::parse("10.0.1.2")), "10.0.1.2");
    EXPECT_EQ(toString(IpAddress::parse("2001:db8::1")), "2001:db8::1");
    EXPECT_TRUE(IpAddress::parse("10.0.1").isNone());
    EXPECT_EQ(toString(IpAddress{}), "");
}

TEST(IpAddress, BytesOfNoFamilyAreNoAddress) {
    const std::byte bytes[5] = {};
    EXPECT_TRUE(IpAddress::fromBytes(bytes).isNone());
}

TEST(IpPrefix, ClearsWhatLiesBeyondItsLength) {
    EXPECT_EQ(toString(IpPrefix::parse("10.1.255.3/9")), "10.0.0.0/9");
    EXPECT_EQ(toString(IpPrefix::parse("2001:db8:ffff::/33")), "2001:db8:8000::/33");
    EXPECT_EQ(toString(IpPrefix::parse("1.2.3.4/32")), "1.2.3.4/32");
    EXPECT_EQ(toString(IpPrefix::parse("1.2.3.4/0")), "0.0.0.0/0");
}

TEST(IpPrefix, RefusesWhatIsNone) {
    for (const char* text :
         {"10.0.0.0", "10.0.0.0/33", "10.0.0.0/", "x/8", "::/129", "10.0.0.0/8x"}) {
        EXPECT_TRUE(IpPrefix::parse(text).address.isNone()) << text;
    }
}

TEST(IpPrefix, KnowsLinkLocal) {
    EXPECT_TRUE(IpPrefix::parse("fe80::/64").isLinkLocal());
    EXPECT_TRUE(IpPrefix::parse("febf::/10").isLinkLocal());
    EXPECT_FALSE(IpPrefix::parse("fec0::/10").isLinkLocal());
    EXPECT_FALSE(IpPrefix::parse("fe80::/9").isLinkLocal());
    EXPECT_FALSE(IpPrefix::parse("254.128.0.0/16").isLinkLocal());
}

}  // namespace
}  // namespace Pel::Forwarder
