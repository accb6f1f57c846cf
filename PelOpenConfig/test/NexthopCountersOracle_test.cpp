#include <map>
#include <random>
#include <set>

#include "PelOpenConfig/test/CountersFixture.h"

namespace Pel::Oc {
namespace {

/// Random exports, deletions and changes of counter indexes, on few next hops, entries of groups
/// and counters; after each step the counters map and the counters shown are those that the
/// producer's last state gives.
class CountersOracle : public CountersFixture {
protected:
    static constexpr std::uint64_t kNextHops = 8;
    static constexpr std::uint64_t kCounters = 5;

    std::uint64_t upTo(std::uint64_t limit) { return 1 + random() % limit; }

    void step(bool shared) {
        const std::uint64_t id = upTo(kNextHops);
        switch (random() % 10) {
            case 0:
            case 1:
            case 2:
                exportIs(id, shared ? upTo(3) : id);
                break;
            case 3:
                nextHopDel(id);
                claims.erase(id);
                break;
            case 4:
            case 5:
                counterKeyIs(nhgeck(id), indexes[id] = upTo(kCounters));
                break;
            case 6:
                counterKeyIs(nhgeck(id), indexes[id] = 0);
                break;
            case 7:
                counterKeyDel(nhgeck(id));
                indexes[id] = 0;
                break;
            case 8:
                counterIs(upTo(kCounters), random() % 100, 1);
                break;
            default:
                if (random() % 8 == 0) { again(); }
        }
        if (random() % 3 != 0) { publish(); }  // else the next step comes in the same walk
    }
    void exportIs(std::uint64_t id, std::uint64_t entry) {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop, "eth" + std::to_string(random() % 100));
        claims[id] = entry;
        nextHops.set(nh(id),
                     {nh(id), nhgeck(entry).nhgId, nhgeck(entry).entryId, {}},
                     Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
    }
    /// The export is switched off and on.
    void again() {
        commit();
        sut->hasNotificationActiveIs(false);
        sut->handleCleanup();
        sut = nullptr;
        expectMapEmpty();
        settleAfterASecond();
        start();
    }
    void expectInvariant(bool shared) {
        std::map<std::uint64_t, std::uint64_t> owners;  // of entries of groups
        for (const auto& [key, value] : pelOcNextHopCountersMap->nhgeckToOcNextHopId()) {
            owners[key.entryId.value()] = value.ocNextHopId.value();
        }
        std::map<std::uint64_t, std::set<std::uint64_t>> ofPicks;  // that must be
        std::set<std::uint64_t> linked;
        for (const auto& [entry, id] : owners) {
            ASSERT_TRUE(claims.contains(id)) << id << " is gone";
            ASSERT_EQ(claims[id], entry) << "of " << id;
            if (indexes[entry] == 0) { continue; }
            linked.insert(id);
            ofPicks[indexes[entry]].insert(id);
        }
        if (!shared) { ASSERT_EQ(owners.size(), claims.size()); }
        ASSERT_EQ(pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().size(), linked.size());
        for (const auto& [id, links] : pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck()) {
            ASSERT_TRUE(linked.contains(id.value()));
            ASSERT_EQ(links.nhgeck(), nhgeck(claims[id.value()]));
            ASSERT_EQ(links.pick().counterIndex(), indexes[claims[id.value()]]);
            ASSERT_EQ(links.pick().counterType(), 2);
        }
        ASSERT_EQ(pelOcNextHopCountersMap->pickToOcNextHopIds().size(), ofPicks.size());
        for (const auto& [pick, ids] : pelOcNextHopCountersMap->pickToOcNextHopIds()) {
            std::set<std::uint64_t> has;
            for (const auto id : ids.ocNextHopIdSet().ids()) { has.insert(id.value()); }
            ASSERT_EQ(has, ofPicks[pick.counterIndex()]);
        }
        expectCounters(linked);
    }
    /// What is shown is the last that was handed over, and only of who has a counter.
    void expectCounters(const std::set<std::uint64_t>& linked) {
        std::map<std::uint64_t, Passed> last;
        for (const Passed& each : passed) { last[std::get<0>(each)] = each; }
        for (std::uint64_t id = 1; id <= kNextHops; ++id) {
            const auto* const counter = shown(id);
            if (counter == nullptr) { continue; }
            ASSERT_TRUE(linked.contains(id)) << id;
            ASSERT_EQ(Passed(id, counter->packetsForwarded, counter->octetsForwarded), last[id]);
        }
        ASSERT_LE(sut->nhCounters().size(), claims.size());
    }
    void run(std::uint64_t seed, bool shared) {
        random.seed(seed);
        begin();
        for (int i = 0; i < 300; ++i) {
            step(shared);
            publish();
            expectInvariant(shared);
            if (HasFatalFailure()) { FAIL() << "seed " << seed << ", step " << i; }
        }
        for (std::uint64_t id = 1; id <= kNextHops; ++id) { nextHopDel(id); }
        claims.clear();
        publish();
        expectMapEmpty();
        EXPECT_EQ(nextHopCounterSet->size(), 0U);
        EXPECT_EQ(sut->nhCounters().size(), 0U);
    }

    std::mt19937_64 random;
    std::map<std::uint64_t, std::uint64_t> claims;   // next hop to entry of the group
    std::map<std::uint64_t, std::uint64_t> indexes;  // entry of the group to counter; 0: invalid
};

class CountersMapOracle : public CountersOracle, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(, CountersMapOracle, testing::Range(1, 5));

TEST_P(CountersMapOracle, LinksAreThoseOfTheLastStateAfterEveryStep) {
    run(static_cast<std::uint64_t>(GetParam()), false);
}

TEST_P(CountersMapOracle, AlsoWhenNextHopsClaimTheSameEntriesOfAGroup) {
    run(static_cast<std::uint64_t>(GetParam()), true);
}

}  // namespace
}  // namespace Pel::Oc
