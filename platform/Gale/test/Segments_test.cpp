#include "platform/Gale/Segments.h"

#include "platform/Gale/PackedNotification.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace Gale {
namespace {

TEST(Segments, AreKeptOnce) {
    const Segment& first = Segments::of("some bytes");
    EXPECT_EQ(&Segments::of(std::string{"some bytes"}), &first);
    EXPECT_EQ(first.bytes, "some bytes");
    EXPECT_EQ(Segments::byNumber()[first.number], "some bytes");
    EXPECT_NE(Segments::of("other bytes").number, first.number);
}

TEST(Segments, MayBeMadeWhileOthersAreRead) {
    const Segment& known = Segments::of("known before");
    std::thread other{[] {
        for (int i = 0; i < 1000; ++i) { Segments::of("made beside " + std::to_string(i)); }
    }};
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(Segments::byNumber()[known.number], "known before");
    }
    other.join();
}

/// Last: afterwards there is no number left in this process.
TEST(Segments, BeyondTheLastNumberBytesAreWrittenOut) {
    std::uint16_t last = 0;
    for (std::size_t i = 0; i < Segments::kMost; ++i) {
        const Segment& segment = Segments::of("segment " + std::to_string(i));
        if (segment.number != 0) { last = segment.number; }
    }
    EXPECT_EQ(last, Segments::kMost);
    const Segment& beyond = Segments::of("one too many");
    EXPECT_EQ(beyond.number, 0U);
    EXPECT_EQ(beyond.bytes, "one too many");
    PackedNotification packed;
    packed.append(beyond);
    packed.append(Segments::of("some bytes"));
    std::string bytes;
    PackedNotification::unpack(packed.bytes(), bytes);
    EXPECT_EQ(bytes.substr(PackedNotification::kStampBytes), "one too manysome bytes");
}

}  // namespace
}  // namespace Gale
