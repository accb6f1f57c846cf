#include "platform/Gale/PackedNotification.h"

#include "platform/Gale/NotificationWriter.h"
#include "test/support/AllocationCount.h"

#include <gtest/gtest.h>
#include <proto/gnmi.pb.h>

#include <array>
#include <string>
#include <vector>

namespace Gale {
namespace {

constexpr std::int64_t kStamp = 1'700'000'000'000'000'000;

/// The stamp's field, then `rest`.
std::string stamped(std::int64_t stamp, const std::string& rest) {
    gnmi::Notification notification;
    notification.set_timestamp(stamp);
    return notification.SerializeAsString() + rest;
}

std::string unpacked(const PackedNotification& packed) {
    std::string bytes;
    PackedNotification::unpack(packed.bytes(), bytes);
    EXPECT_EQ(bytes.size(), PackedNotification::unpackedSize(packed.bytes()));
    return bytes;
}

TEST(PackedNotification, GivesBackWhatWasAppended) {
    PackedNotification packed;
    packed.stampIs(kStamp);
    const Segment& path = Segments::of("a constant path");
    packed.append("first ");
    packed.append(path);
    packed.append(path);
    packed.append(" between ");
    packed.append("two ");
    packed.append(path);
    EXPECT_EQ(unpacked(packed),
              stamped(kStamp, "first a constant patha constant path between two a constant path"));
    packed.append(" last");
    EXPECT_EQ(
        unpacked(packed),
        stamped(kStamp, "first a constant patha constant path between two a constant path last"));
    packed.clear();
    packed.stampIs(kStamp);
    EXPECT_EQ(unpacked(packed), stamped(kStamp, ""));
}

TEST(PackedNotification, TextOfAnyLengthStaysWhole) {
    const Segment& path = Segments::of("a constant path");
    std::vector<std::size_t> sizes{254, 255, 256, 509, 510, 511, 70'000};
    for (std::size_t size = 0; size < 40; ++size) { sizes.push_back(size); }
    for (const std::size_t size : sizes) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i) { text[i] = static_cast<char>(i * 31); }
        PackedNotification packed;
        packed.stampIs(kStamp);
        packed.append(text);
        packed.append(path);
        packed.append("x");
        packed.append(text);
        EXPECT_EQ(unpacked(packed), stamped(kStamp, text + "a constant path" + "x" + text)) << size;
    }
}

TEST(PackedNotification, StampsOfOurTimeAreAsProtobufWritesThem) {
    for (const std::int64_t stamp :
         {std::int64_t{1} << 56, kStamp, (std::int64_t{1} << 62) - 1, std::int64_t{1} << 62}) {
        PackedNotification packed;
        packed.append("rest");
        packed.stampIs(stamp);
        EXPECT_EQ(unpacked(packed), stamped(stamp, "rest"));
    }
}

TEST(PackedNotification, EarlierStampsAreReadByProtobuf) {
    for (const std::int64_t stamp : {std::int64_t{0},
                                     std::int64_t{1},
                                     std::int64_t{127},
                                     std::int64_t{128},
                                     (std::int64_t{1} << 56) - 1}) {
        PackedNotification packed;
        packed.stampIs(stamp);
        const std::string bytes = unpacked(packed);
        EXPECT_EQ(bytes.size(), PackedNotification::kStampBytes);
        gnmi::Notification notification;
        EXPECT_TRUE(notification.ParseFromString(bytes));
        EXPECT_EQ(notification.timestamp(), stamp);
    }
}

TEST(PackedNotification, OnlyTheBytesAtTheFrontTellTwoStampsApart) {
    const auto made = [](std::int64_t stamp, const char* text) {
        PackedNotification packed;
        packed.stampIs(stamp);
        packed.append(Segments::of("a constant path"));
        packed.append(text);
        return std::string{packed.bytes()};
    };
    const std::string early = made(100, "same");
    const std::string late = made(kStamp, "same");
    EXPECT_NE(early, late);
    EXPECT_EQ(early.substr(PackedNotification::kStampBytes),
              late.substr(PackedNotification::kStampBytes));
    EXPECT_NE(early.substr(PackedNotification::kStampBytes),
              made(100, "Same").substr(PackedNotification::kStampBytes));
}

TEST(PackedNotification, ASegmentTakesThreeBytesAndAShortOneItself) {
    PackedNotification packed;
    packed.stampIs(kStamp);
    const std::size_t empty = packed.bytes().size();
    packed.append(Segments::of(std::string(200, 'p')));
    EXPECT_EQ(packed.bytes().size(), empty + 3);
    packed.append(Segments::of("abc"));
    EXPECT_EQ(packed.bytes().size(), empty + 3 + 3);
    EXPECT_EQ(unpacked(packed), stamped(kStamp, std::string(200, 'p') + "abc"));
}

TEST(PackedNotification, UnpackingAllocatesNothing) {
    PackedNotification packed;
    packed.append(Segments::of("a constant path"));
    packed.append("text");
    std::array<char, 64> to{};
    const TestSupport::AllocationCount count;
    for (int i = 0; i < 10'000; ++i) { PackedNotification::unpack(packed.bytes(), to); }
    EXPECT_EQ(count.since(), 0U);
}

TEST(PackedNotification, UnpackingStaysInTheRoomThatItIsGiven) {
    PackedNotification packed;
    packed.stampIs(kStamp);
    packed.append(Segments::of("a constant path"));
    packed.append("text");
    const std::string bytes = unpacked(packed);
    for (std::size_t more = 0; more < 80; ++more) {
        std::string to(bytes.size() + more + 80, '#');
        PackedNotification::unpack(packed.bytes(), {to.data(), bytes.size() + more});
        EXPECT_EQ(to.substr(0, bytes.size()), bytes);
        EXPECT_EQ(to.substr(bytes.size() + more), std::string(80, '#')) << more;
    }
}

TEST(PathTemplate, KeysOfAnyLengthStandWhereProtobufPutsThem) {
    const PathTemplate path{"a/b[k]/c/d[l]/e"};
    for (std::size_t size = 0; size < 200; ++size) {
        const std::string key(size, 'k');
        const std::array<std::string_view, 2> keys{"one", key};
        PackedNotification packed;
        NotificationWriter writer{packed};
        packed.stampIs(kStamp);
        writer.prefix(path, keys);
        writer.leaf(path, keys, std::uint64_t{size});

        gnmi::Notification wanted;
        wanted.set_timestamp(kStamp);
        auto* const update = wanted.add_update();
        for (gnmi::Path* const to : {wanted.mutable_prefix(), update->mutable_path()}) {
            to->add_elem()->set_name("a");
            auto* elem = to->add_elem();
            elem->set_name("b");
            (*elem->mutable_key())["k"] = "one";
            to->add_elem()->set_name("c");
            elem = to->add_elem();
            elem->set_name("d");
            (*elem->mutable_key())["l"] = key;
            to->add_elem()->set_name("e");
        }
        update->mutable_val()->set_uint_val(size);
        EXPECT_EQ(unpacked(packed), wanted.SerializeAsString()) << size;
        EXPECT_EQ(path.size(keys), static_cast<std::size_t>(wanted.prefix().ByteSizeLong()));
    }
}

}  // namespace
}  // namespace Gale
