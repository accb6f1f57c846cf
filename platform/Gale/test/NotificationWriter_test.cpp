#include "platform/Gale/NotificationWriter.h"

#include "platform/Gale/LeafFilter.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <proto/gnmi.pb.h>

#include <array>

namespace Gale {
namespace {

using Keys = std::array<std::string_view, 2>;

std::string unpacked(const PackedNotification& notification) {
    std::string bytes;
    PackedNotification::unpack(notification.bytes(), bytes);
    EXPECT_EQ(bytes.size(), PackedNotification::unpackedSize(notification.bytes()));
    return bytes;
}

gnmi::Notification parsed(const std::string& bytes) {
    gnmi::Notification notification;
    EXPECT_TRUE(notification.ParseFromString(bytes));
    return notification;
}

void expectIs(const PackedNotification& notification, const char* text) {
    const std::string bytes = unpacked(notification);
    gnmi::Notification wanted;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &wanted));
    const gnmi::Notification got = parsed(bytes);
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(got, wanted))
        << got.DebugString() << "\nwanted\n"
        << wanted.DebugString();
    EXPECT_EQ(got.SerializeAsString(), bytes) << "and nothing beside it";
}

TEST(NotificationWriter, WritesWhatProtobufReads) {
    PackedNotification notification;
    NotificationWriter writer{notification};
    const std::string longValue(300, 'v');
    notification.stampIs(1'700'000'000'000'000'000);
    writer.prefix(PathTemplate{"a/b[k]/c/d[l]", "openconfig"}, Keys{"one", "two"});
    writer.leaf(PathTemplate{"state/n"}, {}, std::uint64_t{300});
    writer.leaf(
        PathTemplate{"m[i]/s"}, std::array<std::string_view, 1>{"7"}, std::string_view{"x"});
    writer.leaf(PathTemplate{"long"}, {}, std::string_view{longValue});
    writer.flagLeaf(PathTemplate{"on"}, {}, true);
    writer.flagLeaf(PathTemplate{"off"}, {}, false);
    const std::array<NotificationWriter::Element, 2> stack{{{16, {}}, {3, "IMPLICIT_NULL"}}};
    writer.leafList(PathTemplate{"labels"}, {}, stack);
    writer.atomic();
    const std::string text = R"(
        timestamp: 1700000000000000000
        prefix { origin: 'openconfig' elem { name: 'a' } elem { name: 'b' key { key: 'k' value: 'one' } }
                 elem { name: 'c' } elem { name: 'd' key { key: 'l' value: 'two' } } }
        update { path { elem { name: 'state' } elem { name: 'n' } } val { uint_val: 300 } }
        update { path { elem { name: 'm' key { key: 'i' value: '7' } } elem { name: 's' } }
                 val { string_val: 'x' } }
        update { path { elem { name: 'long' } } val { string_val: ')" +
                             longValue + R"(' } }
        update { path { elem { name: 'on' } } val { bool_val: true } }
        update { path { elem { name: 'off' } } val { bool_val: false } }
        update { path { elem { name: 'labels' } }
                 val { leaflist_val { element { uint_val: 16 } element { string_val: 'IMPLICIT_NULL' } } } }
        atomic: true)";
    expectIs(notification, text.c_str());
}

TEST(NotificationWriter, DeletesWithAnAbsolutePath) {
    PackedNotification notification;
    NotificationWriter writer{notification};
    notification.stampIs(1'700'000'000'000'000'000);
    writer.deletion("openconfig", PathTemplate{"a/b[k]"}, Keys{"one", "unused"});
    expectIs(notification, R"(timestamp: 1700000000000000000 prefix { origin: 'openconfig' }
                       delete { elem { name: 'a' } elem { name: 'b' key { key: 'k' value: 'one' } } })");
}

TEST(LeafFilter, KeepsWhatIsCovered) {
    PackedNotification notification;
    NotificationWriter writer{notification};
    notification.stampIs(1'700'000'000'000'000'000);
    writer.prefix(PathTemplate{"a/b[k]", "openconfig"}, Keys{"one", ""});
    writer.leaf(PathTemplate{"x"}, {}, std::uint64_t{1});
    writer.leaf(PathTemplate{"y"}, {}, std::uint64_t{2});
    writer.atomic();
    const std::string bytes = unpacked(notification);
    const auto cutBy = [&](const char* key, const char* leaf) {
        std::vector<PathPattern> patterns(1);
        patterns[0].append("a", {});
        patterns[0].append("b", {{"k", key}});
        patterns[0].append(leaf, {});
        std::string out;
        LeafFilter filter{patterns};
        return filter.cut(bytes, out) ? parsed(out).ShortDebugString() : "";
    };
    EXPECT_EQ(cutBy("two", "x"), "");
    EXPECT_EQ(cutBy("one", "z"), "");
    EXPECT_NE(cutBy("one", "y").find("uint_val: 2"), std::string::npos);
    EXPECT_EQ(cutBy("one", "y").find("uint_val: 1"), std::string::npos);
    EXPECT_NE(cutBy("*", "x").find("atomic: true"), std::string::npos);
}

}  // namespace
}  // namespace Gale
