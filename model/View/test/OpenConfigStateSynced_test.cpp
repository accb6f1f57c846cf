#include <algorithm>
#include <array>
#include <set>

#include "model/Aft/StateSyncedContainer.h"
#include "model/View/test/OpenConfigViewFixture.h"

namespace Pel::OcApi {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

/// The default VRF and VRF "blue" with their tables; both have a gate unless it is taken away.
class OpenConfigStateSyncedTest : public OpenConfigViewTest {
protected:
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;

    OpenConfigStateSyncedTest() {
        group(41, {});
        rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
        blue.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
        EXPECT_EQ(writer->commit(), "");
        gate("default");
        gate("blue");
    }
    void gate(const char* vrf) { gated->entityIs<GatedReady::FibReady>(vrf); }
    Vel::Ref<StateSyncedContainer> flags(const char* vrf) {
        return root->entityIs<Vel::Dir>("stateSynced")->entityIs<StateSyncedContainer>(vrf);
    }
    /// "DEFAULT true false", or the path of what is not state-synced.
    std::string text(const gnmi::Notification& notification) {
        const std::string path = entry(notification);
        if (path.find("/state-synced") == std::string::npos || path.starts_with("delete ")) {
            return path;
        }
        EXPECT_FALSE(notification.atomic());
        const Leaves both = leaves(notification);
        return notification.prefix().elem(1).key().at("name") + " " +
               both.at("state/ipv4-unicast") + " " + both.at("state/ipv6-unicast");
    }
    /// What is told of state-synced, in order.
    std::vector<std::string> takeFlags() {
        std::vector<std::string> all;
        for (const auto& notification : take()) {
            if (entry(notification).find("/state-synced") == std::string::npos) { continue; }
            all.push_back(text(notification));
        }
        return all;
    }
    /// What is told a client that keeps up: it takes each batch as it comes.
    std::vector<std::string> takeEachBatch() {
        std::vector<std::string> all;
        onAdvance = [&] {
            std::array<Gale::CursorMessage, 64> messages;
            auto state = Gale::Cursor::State::more;
            while (state == Gale::Cursor::State::more) {
                const auto result = cursor->next(messages);
                state = result.state;
                for (std::size_t i = 0; i < result.count; ++i) {
                    gnmi::Notification notification;
                    EXPECT_TRUE(notification.ParseFromString(bytesOf(messages[i])));
                    const std::string told = text(notification);
                    if (told.find("/aft-summaries/") == std::string::npos) { all.push_back(told); }
                }
            }
        };
        settle();
        onAdvance = {};
        return all;
    }

    Routes rib{*writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    Routes blue{*writer, "routing/vrf/status/blue", Mesa::Fib::RouteStatus::kType};
};

TEST_F(OpenConfigStateSyncedTest, IsFalseUntilTheAgentSaysSoAndAllNextHopsAndGroupsAreExported) {
    show();
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT false false", "blue false false"));
    flags("blue")->ipv4UnicastIs(true);
    EXPECT_THAT(takeFlags(), IsEmpty()) << "next hops and groups are not ready";
    aft->fibReady()->fecReadyIs(true);
    EXPECT_THAT(takeFlags(), ElementsAre("blue true false"));
    flags("default")->ipv4UnicastIs(true);
    EXPECT_THAT(takeFlags(), ElementsAre("DEFAULT true false"));
}

TEST_F(OpenConfigStateSyncedTest, BackToFalseIsAnUpdate) {
    aft->fibReady()->fecReadyIs(true);
    flags("default")->ipv4UnicastIs(true);
    flags("blue")->ipv4UnicastIs(true);
    show();
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT true false", "blue true false"));
    aft->fibReady()->fecReadyIs(false);
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT false false", "blue false false"));
    aft->fibReady()->fecReadyIs(true);
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT true false", "blue true false"));
    // The agent forgets what it said of the one, and of all.
    root->entity<Vel::Dir>("stateSynced")->entityDel("blue");
    EXPECT_THAT(takeFlags(), ElementsAre("blue false false"));
    root->entityDel("stateSynced");
    EXPECT_THAT(takeFlags(), ElementsAre("DEFAULT false false"));
}

TEST_F(OpenConfigStateSyncedTest, IsOfVrfsWithAGateOnly) {
    gated->entityDel("blue");
    aft->fibReady()->fecReadyIs(true);
    flags("blue")->ipv4UnicastIs(true);
    show();
    EXPECT_THAT(takeFlags(), ElementsAre("DEFAULT false false"));
    gate("blue");
    EXPECT_THAT(takeFlags(), ElementsAre("blue false false", "blue true false"));
    // A client that has seen it true is told that it is not.
    gated->entityDel("blue");
    EXPECT_THAT(takeFlags(), ElementsAre("blue false false"));
}

TEST_F(OpenConfigStateSyncedTest, AGateOfAVrfThatHasNoTablesShowsNothing) {
    gate("red");
    show();
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT false false", "blue false false"));
}

TEST_F(OpenConfigStateSyncedTest, WaitsForTheTableOfItsFamilyInTheView) {
    aft->fibReady()->fecReadyIs(true);
    flags("blue")->ipv4UnicastIs(true);
    flags("blue")->ipv6UnicastIs(true);
    show();
    EXPECT_THAT(takeFlags(), UnorderedElementsAre("DEFAULT false false", "blue true false"));
    Routes six{*writer, "routing6/vrf/status/blue", Mesa::Fib6::RouteStatus::kType};
    six.set(prefix("2001:db8::/32"), {FecId{41}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(takeFlags(), ElementsAre("blue true true"));
}

TEST_F(OpenConfigStateSyncedTest, TurnsTrueAfterAllThatTheStoreHeldUntilThen) {
    show();
    take();
    for (int i = 0; i < 500; ++i) {
        rib.set(prefix(("10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24")
                           .c_str()),
                {FecId{41}, OriginProtocol::bgp});
    }
    rib.erase(prefix("10.0.0.0/8"));
    ASSERT_EQ(writer->commit(), "");
    aft->fibReady()->fecReadyIs(true);
    // The agent hears of it as the view does, which encodes later.
    int turns = 0;
    Kiln::Task agent{scheduler, "Agent", 2, [&] {
                         if (++turns < 10) { return true; }
                         EXPECT_EQ(channel->journal.statistics().entries[2], 2U);
                         flags("default")->ipv4UnicastIs(true);
                         return false;
                     }};
    agent.schedule();
    const std::vector<std::string> all = takeEachBatch();
    const auto at = [&](const std::string& wanted) {
        return std::find(all.begin(), all.end(), wanted) - all.begin();
    };
    const std::string ipv4 = std::string{kAfts} + "/ipv4-unicast/ipv4-entry[prefix=";
    const auto flag = at("DEFAULT true false");
    EXPECT_LT(flag, static_cast<std::ptrdiff_t>(all.size()));
    EXPECT_LT(at(ipv4 + "10.1.249.0/24]"), flag);
    EXPECT_LT(at("delete " + ipv4 + "10.0.0.0/8]"), flag) << "what has gone is gone by then";
}

TEST_F(OpenConfigStateSyncedTest, TurnsFalseBeforeWhatItSpokeOfGoes) {
    aft->fibReady()->fecReadyIs(true);
    flags("default")->ipv4UnicastIs(true);
    flags("blue")->ipv4UnicastIs(true);
    show();
    take();
    aft->nextHopGroups()->nextHopGroupDelAll();  // in whatever order they come
    aft->fibReady()->fecReadyIs(false);
    const std::vector<std::string> all = takeEachBatch();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_THAT((std::vector{all[0], all[1]}),
                UnorderedElementsAre("DEFAULT false false", "blue false false"));
    EXPECT_THAT((std::vector{all[2], all[3], all[4]}), Each(StartsWith("delete ")));
}

TEST_F(OpenConfigStateSyncedTest, IsToldAnewWhenItWasFalseBetween) {
    aft->fibReady()->fecReadyIs(true);
    flags("default")->ipv4UnicastIs(true);
    show();
    take();
    aft->fibReady()->fecReadyIs(false);
    aft->fibReady()->fecReadyIs(true);
    EXPECT_THAT(takeEachBatch(), ElementsAre("DEFAULT false false", "DEFAULT true false"));
}

TEST_F(OpenConfigStateSyncedTest, WaitsForRoutesThatWaitForTheirGroup) {
    aft->fibReady()->fecReadyIs(true);
    show();
    take();
    const auto pending = [this](std::set<std::uint64_t> ids) {
        aft->nextHopGroups()->pendingAre(
            [ids](NextHopGroupId id) { return ids.contains(id.value()); });
    };
    pending({42, 43});
    blue.set(prefix("11.0.0.0/8"), {FecId{42}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    settle();
    flags("blue")->ipv4UnicastIs(true);
    EXPECT_THAT(takeFlags(), IsEmpty());
    Routes six{*writer, "routing6/vrf/status/blue", Mesa::Fib6::RouteStatus::kType};
    six.set(prefix("2001:db8::/32"), {FecId{43}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    settle();
    flags("blue")->ipv6UnicastIs(true);
    flags("default")->ipv4UnicastIs(true);
    settle();
    pending({43});
    group(42, {});
    EXPECT_THAT(takeFlags(), IsEmpty()) << "one entry has both flags: the later one counts";
    pending({});
    group(43, {});
    const std::vector<std::string> all = takeEachBatch();
    const std::string six6 = "/network-instances/network-instance[name=blue]/afts/ipv6-unicast";
    EXPECT_THAT(all,
                ElementsAre(HasSubstr("/next-hop-group[id=43]"),
                            six6 + "/ipv6-entry[prefix=2001:db8::/32]",
                            "DEFAULT true false",
                            "blue true true"));
}

TEST_F(OpenConfigStateSyncedTest, IsReadByGetWithItsLeaves) {
    aft->fibReady()->fecReadyIs(true);
    flags("default")->ipv4UnicastIs(true);
    show();
    const auto answer =
        get("path { elem { name: '...' } elem { name: 'state-synced' } } "
            "encoding: JSON_IETF");
    ASSERT_EQ(answer.notification(0).update_size(), 2);
    EXPECT_EQ(
        answer.notification(0).update(0).val().json_ietf_val(),
        R"({"openconfig-network-instance:state":{"ipv4-unicast":true,"ipv6-unicast":false}})");
}

TEST_F(OpenConfigStateSyncedTest, WithoutRouteTablesItIsWhatTheAgentSays) {
    aft->fibReady()->fecReadyIs(true);
    flags("default")->ipv4UnicastIs(true);
    tables = nullptr;  // they are not served
    show();
    EXPECT_THAT(takeFlags(), ElementsAre("DEFAULT true false"));
}

}  // namespace
}  // namespace Pel::OcApi
