#include "model/View/OpenConfigPaths.h"
#include "model/View/test/OpenConfigViewFixture.h"

namespace Pel::OcApi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class OpenConfigSummariesTest : public OpenConfigViewTest {
protected:
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;

    OpenConfigSummariesTest() {
        summaries = true;
        group(41, {});
    }
    void put(Routes& table, const char* key, OriginProtocol protocol) {
        table.set(prefix(key), {FecId{41}, protocol});
        ASSERT_EQ(writer->commit(), "");
    }
    /// "DEFAULT/ipv4-unicast BGP 2", "delete DEFAULT/ipv4-unicast BGP".
    std::vector<std::string> takeSummaries() {
        std::vector<std::string> all;
        for (const auto& notification : take()) {
            const bool gone = notification.delete__size() > 0;
            const gnmi::Path& path = gone ? notification.delete_(0) : notification.prefix();
            if (path.elem_size() < 4 || path.elem(3).name() != "aft-summaries") { continue; }
            std::string text = path.elem(1).key().at("name") + "/" + path.elem(4).name() + " " +
                               path.elem(6).key().at("origin-protocol");
            if (!gone) {
                EXPECT_FALSE(notification.atomic());
                const Leaves all3 = leaves(notification);
                EXPECT_EQ(all3.size(), 3U);
                EXPECT_EQ(all3.at("origin-protocol"), all3.at("state/origin-protocol"));
                text += " " + all3.at("state/counters/aft-entries");
            }
            all.push_back(gone ? "delete " + text : text);
        }
        return all;
    }

    Routes rib{*writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    Routes six{*writer, "routing6/status", Mesa::Fib6::RouteStatus::kType};
    Routes blue{*writer, "routing/vrf/status/blue", Mesa::Fib::RouteStatus::kType};
};

TEST_F(OpenConfigSummariesTest, CountPrefixesByInstanceFamilyAndProtocol) {
    put(rib, "10.0.0.0/8", OriginProtocol::bgp);
    put(rib, "11.0.0.0/8", OriginProtocol::bgp);
    put(rib, "12.0.0.0/8", OriginProtocol::isis);
    put(rib, "13.0.0.0/8", OriginProtocol::unset);
    put(six, "2001:db8::/32", OriginProtocol::bgp);
    put(blue, "10.0.0.0/8", OriginProtocol::staticRoute);
    show();
    EXPECT_THAT(takeSummaries(),
                UnorderedElementsAre("DEFAULT/ipv4-unicast BGP 2",
                                     "DEFAULT/ipv4-unicast ISIS 1",
                                     "DEFAULT/ipv6-unicast BGP 1",
                                     "blue/ipv4-unicast STATIC 1"));
}

TEST_F(OpenConfigSummariesTest, FollowWhatIsShown) {
    put(rib, "10.0.0.0/8", OriginProtocol::bgp);
    put(rib, "11.0.0.0/8", OriginProtocol::bgp);
    show();
    take();
    put(rib, "12.0.0.0/8", OriginProtocol::bgp);
    EXPECT_THAT(takeSummaries(), ElementsAre("DEFAULT/ipv4-unicast BGP 3"));
    put(rib, "12.0.0.0/8", OriginProtocol::isis);
    EXPECT_THAT(takeSummaries(),
                UnorderedElementsAre("DEFAULT/ipv4-unicast BGP 2", "DEFAULT/ipv4-unicast ISIS 1"));
    group(42, {});
    rib.set(prefix("12.0.0.0/8"), {FecId{42}, OriginProtocol::isis});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(takeSummaries(), IsEmpty()) << "another group is no other protocol";
    rib.erase(prefix("12.0.0.0/8"));
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(takeSummaries(), ElementsAre("delete DEFAULT/ipv4-unicast ISIS"));
    // Without groups no prefix is shown.
    aft->nextHopGroups()->nextHopGroupDelAll();
    EXPECT_THAT(takeSummaries(), ElementsAre("delete DEFAULT/ipv4-unicast BGP"));
    group(41, {});
    EXPECT_THAT(takeSummaries(), ElementsAre("DEFAULT/ipv4-unicast BGP 2"));
}

TEST_F(OpenConfigSummariesTest, APrefixThatWaitsForItsGroupIsNotCountedYet) {
    show();
    take();
    aft->nextHopGroups()->pendingAre([](NextHopGroupId id) { return id == NextHopGroupId{42}; });
    rib.set(prefix("10.0.0.0/8"), {FecId{42}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(takeSummaries(), IsEmpty());
    aft->nextHopGroups()->pendingAre({});
    group(42, {});
    EXPECT_THAT(takeSummaries(), ElementsAre("DEFAULT/ipv4-unicast BGP 1"));
}

TEST_F(OpenConfigSummariesTest, OneIsToldOnceForAllPrefixesOfASlice) {
    put(rib, "11.0.0.0/8", OriginProtocol::bgp);
    show();
    const auto before = channel->provider->statistics();
    for (int i = 0; i < 200; ++i) {
        rib.set(prefix(("10.0." + std::to_string(i) + ".0/24").c_str()),
                {FecId{41}, OriginProtocol::bgp});
    }
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_EQ(channel->provider->statistics().encoded - before.encoded, 200U + 1U);
    EXPECT_EQ(channel->provider->statistics().changed - before.changed, 200U + 1U);
}

TEST_F(OpenConfigSummariesTest, AreFoundByTheirKeys) {
    put(rib, "10.0.0.0/8", OriginProtocol::bgp);
    put(six, "2001:db8::/32", OriginProtocol::bgp);
    put(blue, "10.0.0.0/8", OriginProtocol::isis);
    show();
    const auto view = [this](const char* instance, const char* protocol, bool four) {
        const std::string name = instance;
        const std::string key = protocol;
        const auto kind = four ? OpenConfigPaths::ipv4Summaries : OpenConfigPaths::ipv6Summaries;
        const auto wanted = channel->view->keyPredicate(kind, {&name, &key});
        int found = 0;
        for (auto at = channel->journal.firstKey(Gale::Lane::summaries); at;
             at = channel->journal.nextKey(Gale::Lane::summaries, at)) {
            const bool same = channel->view->kindOf(Gale::Lane::summaries, *at) == kind;
            found += same && wanted(*at) ? 1 : 0;
        }
        return found;
    };
    EXPECT_EQ(view("DEFAULT", "BGP", true), 1);
    EXPECT_EQ(view("DEFAULT", "openconfig-policy-types:BGP", false), 1);
    EXPECT_EQ(view("blue", "BGP", true), 0);
    EXPECT_EQ(view("blue", "ISIS", true), 1);
    EXPECT_EQ(view("DEFAULT", "bgp", true), 0);
}

TEST_F(OpenConfigSummariesTest, WithoutRouteTablesThereAreNone) {
    put(rib, "10.0.0.0/8", OriginProtocol::bgp);
    tables = nullptr;
    show();
    EXPECT_THAT(takeEntries(),
                ElementsAre(std::string{kAfts} + "/next-hop-groups/next-hop-group[id=41]",
                            "/network-instances/network-instance[name=DEFAULT]"));
}

}  // namespace
}  // namespace Pel::OcApi
