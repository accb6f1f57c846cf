#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "forwarder/Publish/test/PublishBed.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenFecSet.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Stash/Manager.h"
#include "platform/Store/Reader.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using CounterKeyTable = Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;

/// What an agent sees of the store: its own mounts, brought up to date by look().
class View {
public:
    explicit View(const Store::Options& options)
        : reader{Vel::make<Store::Reader>(scheduler, options)},
          manager{Vel::make<Stash::Manager>(reader)} {
        set.mountIs(*reader, {"fec", "nextHop"});
        counterKeys.mountIs(*reader);
        vrfs.mountIs(*reader);
        defaultV4.mountIs(*reader);
        defaultV6.mountIs(*reader);
        red.mountIs(*reader);
        state = reader->mount("hubdb", "hubdb", Store::TableKind::state, ignored);
        look();
    }
    void look() {
        clock.advance(std::chrono::seconds{2});  // the reader looks once a second by itself
        scheduler->runUntilIdle();
    }
    std::string nextHop(std::uint64_t index) {
        const auto entry = set.nextHop().entry(Stash::OcNextHopIndex{index});
        if (!entry) { return "none"; }
        const auto record = Stash::destash<Stash::FlattenFecNextHop>(entry->handle, *manager);
        if (!record) { return "no record"; }
        return std::to_string(entry->nhgId.value()) + "[" +
               std::to_string(entry->nhgEntryId.value()) + "] " + record->address.stringValue() +
               "@" + record->interface.stringValue() + " " + record->mac.stringValue();
    }
    std::string fec(std::uint64_t id) {
        const auto entry = set.fec().entry(FecId{id});
        if (!entry) { return "none"; }
        const auto record = Stash::destash<Stash::FlattenFec>(entry->handle, *manager);
        std::string text = entry->topFec ? "top" : "bottom";
        text += " programmed " + std::to_string(entry->programmedId) + ":";
        for (std::uint32_t i = 0; record && i < record->nextHops(); ++i) {
            text += " " + std::to_string(record->nextHop(i).index.value()) + "w" +
                    std::to_string(record->nextHop(i).weight);
        }
        return text;
    }
    template <class Table>
    std::uint64_t route(Table& table, const std::string& prefix) {
        const auto record = table.read(*Nexo::IpPrefix::parse(prefix));
        return record ? record->fecId.value() : 0;
    }
    std::uint64_t counter(std::uint64_t fecId, std::uint32_t slot) {
        const auto row = counterKeys.read({NexthopGroupId{fecId}, NexthopGroupEntryIndex{slot}});
        return row ? row->counterIndex : 0;
    }

private:
    struct Ignored final : Store::Sink {
        void keyChanged(std::string_view) override {}
        void sweepBegun() override {}
        void sweepKey(std::string_view) override {}
        void sweepLater(std::string_view) override {}
        void sweepEnded() override {}
        void presentIs(bool) override {}
        void sweepSettled() override {}
    };
    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<Store::Reader> reader;
    Ignored ignored;

public:
    Vel::Ref<Stash::Manager> manager;
    FlattenFecSet set{FlattenFecSet::kPath};
    CounterKeyTable counterKeys{CounterKeyTable::kPath};
    Vrf::VrfIdMap::Status vrfs{Vrf::VrfIdMap::Status::kPath};
    Mesa::Fib::RouteStatus defaultV4{"routing/status"};
    Mesa::Fib6::RouteStatus defaultV6{"routing6/status"};
    Mesa::Fib::RouteStatus red{"routing/vrf/status/red"};
    Store::Reader::Mount state;
};

class PublishTest : public PublishBed {
protected:
    void describe() {
        bed->link(1, "e1");
        bed->link(2, "e2");
        bed->vrf(9, "red", 1001);
        bed->neighbour(1, "10.0.1.2", 0x12);
        bed->nexthop(101, "10.0.1.2", 1);
        bed->nexthop(102, "10.0.2.2", 2);
        bed->group(200, {{101, 3}, {102, 1}});
        bed->add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
        bed->add(FlattenBed::nhidRoute("2001:db8::/32", 200));
        Route red = FlattenBed::nhidRoute("192.0.9.0/24", 101);
        red.table = 1001;
        bed->add(red);
    }
};

TEST_F(PublishTest, AgentSeesFecsNextHopsRoutesAndVrfs) {
    describe();
    settle();
    View view{options};
    ASSERT_TRUE(view.set.ready());
    EXPECT_EQ(view.fec(200), "top programmed 200: 1w3 2w1");
    EXPECT_EQ(view.nextHop(1), "200[0] 10.0.1.2@e1 02:00:00:00:00:12");
    EXPECT_EQ(view.nextHop(2), "200[1] 10.0.2.2@e2 00:00:00:00:00:00");
    EXPECT_EQ(view.fec(101), "top programmed 101: 3w1");
    EXPECT_EQ(view.route(view.defaultV4, "192.0.2.0/24"), 200U);
    EXPECT_EQ(view.route(view.defaultV6, "2001:db8::/32"), 200U);
    EXPECT_EQ(view.route(view.red, "192.0.9.0/24"), 101U);
    EXPECT_EQ(view.vrfs.read(Vrf::VrfId{254})->vrfName.stringValue(), "default");
    EXPECT_EQ(view.vrfs.read(Vrf::VrfId{1001})->vrfName.stringValue(), "red");
}

TEST_F(PublishTest, EachNextHopHasAValidCounterIndexOfItsOwn) {
    describe();
    settle();
    View view{options};
    EXPECT_EQ(view.counter(200, 0), 1U);
    EXPECT_EQ(view.counter(200, 1), 2U);
    EXPECT_EQ(view.counter(101, 0), 3U);
    EXPECT_THAT(view.counterKeys.keys(), SizeIs(3));
}

TEST_F(PublishTest, CounterIndexIsNeverUsedAgain) {
    describe();
    settle();
    bed->group(200, {{101, 3}});
    settle();
    start();  // what the deleted next hop had must not come back even now
    describe();
    settle();
    View view{options};
    EXPECT_EQ(view.counter(200, 1), 4U);
    EXPECT_EQ(view.nextHop(2), "none");
    EXPECT_EQ(view.fec(200), "top programmed 200: 1w3 4w1");
}

TEST_F(PublishTest, DeletionsLeaveNothingBehind) {
    describe();
    settle();
    View view{options};
    bed->del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed->del(FlattenBed::nhidRoute("2001:db8::/32", 200));
    bed->fib.linkDel(9);
    settle();
    view.look();
    EXPECT_THAT(view.set.fec().keys(), IsEmpty());
    EXPECT_THAT(view.set.nextHop().keys(), IsEmpty());
    EXPECT_THAT(view.counterKeys.keys(), IsEmpty());
    EXPECT_THAT(view.defaultV4.keys(), IsEmpty());
    EXPECT_FALSE(view.red.present());
    EXPECT_EQ(view.vrfs.read(Vrf::VrfId{1001}), std::nullopt);
}

TEST_F(PublishTest, ReadinessComesAfterTheData) {
    describe();
    EXPECT_FALSE(publish->ready());
    bool more = true;
    for (int i = 0; more && i < 1000; ++i) {
        more = publish->run([] { return true; });
        if (publish->ready()) { break; }
        View view{options};
        EXPECT_EQ(view.state.read("hardware/pel/fecReadyStatus"), std::nullopt);
    }
    EXPECT_TRUE(publish->ready());
    EXPECT_FALSE(more);
    View view{options};
    for (const char* path : {"hardware/pel/fecReadyStatus",
                             "cell/1/routing/fibReady/default",
                             "cell/1/routing/fibReady/red"}) {
        EXPECT_NE(view.state.read(path), std::nullopt) << path;
    }
}

TEST_F(PublishTest, RestartWithTheSameFibWritesNothing) {
    describe();
    settle();
    start();
    describe();
    settle();
    EXPECT_EQ(publish->statistics().records, 0U);
    EXPECT_TRUE(publish->ready());
}

TEST_F(PublishTest, RestartWithLessDeletesOnlyThat) {
    describe();
    settle();
    start();
    describe();
    bed->del(FlattenBed::nhidRoute("2001:db8::/32", 200));
    settle();
    EXPECT_EQ(publish->statistics().records, 1U);
    View view{options};
    EXPECT_EQ(view.route(view.defaultV6, "2001:db8::/32"), 0U);
    EXPECT_EQ(view.fec(200), "top programmed 200: 1w3 2w1");
}

TEST_F(PublishTest, RestartBetweenTwoTransactionsIsMadeGood) {
    describe();
    for (int i = 0; i < 40; ++i) {
        bed->nexthop(1000 + i, "10.0.1." + std::to_string(10 + i), 1);
        bed->add(FlattenBed::nhidRoute("198.51." + std::to_string(i) + ".0/24", 1000 + i));
    }
    (void)publish->run([] { return true; });  // collected
    (void)publish->run([] { return true; });  // one transaction
    start();
    describe();
    settle();
    View view{options};
    EXPECT_THAT(view.set.fec().keys(), SizeIs(2));
    EXPECT_THAT(view.set.nextHop().keys(), SizeIs(3));
    EXPECT_THAT(view.counterKeys.keys(), SizeIs(3));
    EXPECT_THAT(view.defaultV4.keys(), SizeIs(1));
}

TEST_F(PublishTest, LargeSetsComeInTransactionsOfBoundedSize) {
    describe();
    settle();
    const auto before = publish->statistics().transactions;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        bed->nexthop(
            1000 + i, "10." + std::to_string(i / 250) + ".1." + std::to_string(i % 250), 1);
        bed->add(FlattenBed::nhidRoute(
            "198." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24", 1000 + i));
    }
    settle();
    EXPECT_EQ(publish->statistics().records, 3000 + 10U);
    EXPECT_GT(publish->statistics().transactions - before,
              9U);  // 3,000 elements are over 9 * 1,024 records
    View view{options};
    EXPECT_THAT(view.set.nextHop().keys(), SizeIs(1003));
}

TEST_F(PublishTest, FullStoreStopsSaysSoAndGoesOn) {
    options.directory = dir.path() / "small";
    start(std::size_t{3} << 20);
    describe();
    settle();
    ASSERT_TRUE(publish->ready());
    const auto filler = writer->tableIs("filler", "filler", Store::TableKind::content);
    for (int i = 0; i < 300; ++i) {
        writer->put(filler, std::to_string(i), std::string(8000, 'x'));
    }
    ASSERT_EQ(writer->commit(), "");
    for (std::uint32_t i = 0; i < 500; ++i) {
        bed->add(FlattenBed::route(
            "198." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24",
            {FlattenBed::path("10." + std::to_string(i / 250) + ".1." + std::to_string(i % 250),
                              1)}));
    }
    settle();
    EXPECT_THAT(publish->failure(), HasSubstr("full"));
    ASSERT_TRUE(publish->wakeAt().has_value());
    EXPECT_EQ(View{options}.fec(200), "top programmed 200: 1w3 2w1");  // what was there is served
    const auto failures = publish->statistics().failures;
    settle();
    EXPECT_EQ(publish->statistics().failures, failures);  // not before its time
    clock.advance(std::chrono::seconds{1});
    settle();
    EXPECT_GT(publish->statistics().failures, failures);
    EXPECT_LE(publish->statistics().failures, failures + 2) << "once more, that twice";

    writer->tableDel("filler");
    ASSERT_EQ(writer->commit(), "");
    clock.advance(std::chrono::seconds{1});
    settle();
    EXPECT_EQ(publish->failure(), "");
    View view{options};
    EXPECT_THAT(view.defaultV4.keys(), SizeIs(501));
    EXPECT_THAT(view.set.fec().keys(), SizeIs(502));
}

}  // namespace
}  // namespace Pel::Forwarder
