#include <algorithm>

#include "model/View/test/OpenConfigViewFixture.h"
#include "platform/Gale/LeafFilter.h"

namespace Pel::OcApi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

std::string nextHopEntry(int index) {
    return std::string{kAfts} + "/next-hops/next-hop[index=" + std::to_string(index) + "]";
}
std::string counterEntry(int index) {
    return std::string{kAfts} + "/counters/next-hops/next-hop[index=" + std::to_string(index) + "]";
}

/// Next hop 7 and its counters, shown.
class OpenConfigCountersTest : public OpenConfigViewTest {
protected:
    void showSeven(std::uint64_t packets, std::uint64_t octets) {
        aft->nextHops()->nextHopIs(nextHop(7));
        count(7, packets, octets);
        show();
    }
    /// Without the instance itself.
    std::vector<std::string> takeAft() {
        auto all = takeEntries();
        std::erase_if(all, [](const auto& each) { return each.find("/afts/") == each.npos; });
        return all;
    }
    gnmi::Notification takeCounters(int index = 7) {
        for (const auto& notification : take()) {
            if (entry(notification) == counterEntry(index)) { return notification; }
        }
        ADD_FAILURE() << "no counters";
        return {};
    }
};

TEST_F(OpenConfigCountersTest, StandApartFromTheNextHopAndAreNotAtomic) {
    showSeven(12, 3400);
    const gnmi::Notification counters = takeCounters();
    EXPECT_FALSE(counters.atomic());
    EXPECT_EQ(counters.prefix().origin(), "openconfig");
    EXPECT_EQ(counters.delete__size(), 0);
    EXPECT_THAT(leaves(counters),
                UnorderedElementsAre(Pair("index", "7"),
                                     Pair("state/index", "7"),
                                     Pair("state/packets-forwarded", "12"),
                                     Pair("state/octets-forwarded", "3400")));
    // A count sends the counters and not the next hop.
    count(7, 13, 3500);
    EXPECT_THAT(takeAft(), ElementsAre(counterEntry(7)));
}

TEST_F(OpenConfigCountersTest, PacketsWithoutOctetsHaveNoOctetsLeaf) {
    showSeven(12, 0);
    const gnmi::Notification counters = takeCounters();
    EXPECT_THAT(
        leaves(counters),
        UnorderedElementsAre(
            Pair("index", "7"), Pair("state/index", "7"), Pair("state/packets-forwarded", "12")));
    // Whoever was told of octets before forgets them.
    ASSERT_EQ(counters.delete__size(), 1);
    EXPECT_EQ(pathText(counters.delete_(0)), "/state/octets-forwarded");
}

TEST_F(OpenConfigCountersTest, NothingForwardedIsZeroOctets) {
    showSeven(0, 0);
    const gnmi::Notification counters = takeCounters();
    EXPECT_EQ(leaves(counters).at("state/octets-forwarded"), "0");
    EXPECT_EQ(counters.delete__size(), 0);
}

TEST_F(OpenConfigCountersTest, OfPacketsAloneAreCutDownWithoutTheDelete) {
    showSeven(12, 0);
    const auto cut = [bytes = takeCounters().SerializeAsString()](const char* leaf) {
        std::vector<Gale::PathPattern> patterns(1);
        patterns[0].append("...", {});
        patterns[0].append(leaf, {});
        std::string to;
        gnmi::Notification notification;
        Gale::LeafFilter filter{patterns};
        filter.cut(bytes, to);
        EXPECT_TRUE(notification.ParseFromString(to));
        return notification;
    };
    EXPECT_EQ(cut("packets-forwarded").update_size(), 1);
    EXPECT_EQ(cut("packets-forwarded").delete__size(), 0);
    EXPECT_EQ(cut("state").update_size(), 2);
    EXPECT_EQ(cut("state").delete__size(), 1);
    EXPECT_EQ(cut("octets-forwarded").ByteSizeLong(), 0U) << "there is nothing to tell";
}

TEST_F(OpenConfigCountersTest, AreThereWhileTheirNextHopIs) {
    count(7, 12, 3400);
    show();
    EXPECT_THAT(takeAft(), IsEmpty()) << "counters of no next hop";
    aft->nextHops()->nextHopIs(nextHop(7));
    EXPECT_THAT(takeAft(), ElementsAre(nextHopEntry(7), counterEntry(7)));
    aft->nextHops()->nextHopDel(NextHopIndex{7});
    EXPECT_THAT(takeAft(), ElementsAre("delete " + counterEntry(7), "delete " + nextHopEntry(7)));
    count(7, 13, 3500);
    EXPECT_THAT(takeAft(), IsEmpty());
    aft->nextHops()->nextHopIs(nextHop(7));
    EXPECT_THAT(takeAft(), ElementsAre(nextHopEntry(7), counterEntry(7)));
}

TEST_F(OpenConfigCountersTest, GoFirstWhicheverIsRemovedFirst) {
    for (const bool counterFirst : {true, false}) {
        showSeven(12, 3400);
        take();
        if (counterFirst) { aft->nextHopCounters()->nextHopCounterDel(NextHopIndex{7}); }
        aft->nextHops()->nextHopDel(NextHopIndex{7});
        if (!counterFirst) { aft->nextHopCounters()->nextHopCounterDel(NextHopIndex{7}); }
        EXPECT_THAT(takeAft(),
                    ElementsAre("delete " + counterEntry(7), "delete " + nextHopEntry(7)));
        cursor.reset();
        channel->provider.reset();
    }
}

TEST_F(OpenConfigCountersTest, GoWithAllNextHopsAtOnce) {
    showSeven(12, 3400);
    aft->nextHops()->nextHopIs(nextHop(8));
    count(8, 1, 64);
    take();
    aft->nextHops()->nextHopDelAll();
    EXPECT_THAT(takeAft(),
                ElementsAre("delete " + counterEntry(7),
                            "delete " + counterEntry(8),
                            "delete " + nextHopEntry(7),
                            "delete " + nextHopEntry(8)));
}

TEST_F(OpenConfigCountersTest, ANextHopThatAGroupStillNamesOutlastsItsCounters) {
    showSeven(12, 3400);
    group(41, {{NextHopIndex{7}, 1}});
    take();
    aft->nextHops()->nextHopDel(NextHopIndex{7});
    EXPECT_THAT(takeAft(), ElementsAre("delete " + counterEntry(7)));
}

TEST_F(OpenConfigCountersTest, AreFoundByKeyLeafAndWildcard) {
    showSeven(12, 3400);
    aft->nextHops()->nextHopIs(nextHop(8));
    count(8, 0, 0);
    const auto answer = [this](const char* index, const char* below) {
        const std::string elems =
            std::string{
                "elem { name: '...' } elem { name: 'counters' } elem { name: 'next-hops' } "
                "elem { name: 'next-hop' key { key: 'index' value: '"} +
            index + "' } } " + below;
        return get("path { " + elems + " } encoding: JSON_IETF").notification(0);
    };
    const auto seven = answer("7", "elem { name: 'state' } elem { name: 'packets-forwarded' }");
    ASSERT_EQ(seven.update_size(), 1);
    EXPECT_EQ(seven.update(0).val().json_ietf_val(), R"("12")");
    EXPECT_EQ(pathText(seven.update(0).path()), counterEntry(7) + "/state/packets-forwarded");
    EXPECT_EQ(answer("*", "elem { name: 'state' }").update_size(), 2);
}

TEST_F(OpenConfigCountersTest, AreOfTheDefaultInstanceAlone) {
    Gale::ViewInputs inputs;
    inputs.root = root;
    inputs.defaultInstance = "DEFAULT";
    const OpenConfigView view{inputs};
    const auto kind = view.kindOf(Gale::Lane::counters, {0, 0, 7});
    EXPECT_EQ(plain(view.kinds()[kind].path),
              "network-instances/network-instance[name]/afts/counters/next-hops/next-hop[index]");
    const std::string here = "DEFAULT";
    const std::string there = "blue";
    const std::string seven = "7";
    EXPECT_TRUE(view.keyPredicate(kind, {&here, &seven})({0, 0, 7}));
    EXPECT_FALSE(view.keyPredicate(kind, {&here, &seven})({0, 0, 8}));
    EXPECT_FALSE(view.keyPredicate(kind, {&there, &seven})({0, 0, 7}));
}

}  // namespace
}  // namespace Pel::OcApi
