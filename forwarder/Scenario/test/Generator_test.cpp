#include "forwarder/Scenario/Generator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "forwarder/Scenario/test/FeedBed.h"
#include "model/Fec/FlattenFec.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

GeneratorOptions options(const std::string& text) {
    std::string error;
    const auto parsed = GeneratorOptions::parse(text, error);
    EXPECT_EQ(error, "");
    return parsed.value_or(GeneratorOptions{});
}

constexpr const char* kSmall = "next-hops=320 groups=64 routes=400 churn=100/s seed=7";

Changes described(ChangeSource& source) {
    Changes all;
    while (source.describe(all, all.size() + 7)) {}
    return all;
}

/// A change in a line, content included.
std::string shown(const Change& change) {
    if (const auto* item = std::get_if<NextHopItem>(&change)) {
        return "hop " + item->entry.index.stringValue() + " " +
               std::to_string(item->entry.nhgId.value()) + " " + item->content;
    }
    if (const auto* item = std::get_if<FecItem>(&change)) {
        return "fec " + std::to_string(item->id.value()) + " " + item->content;
    }
    if (const auto* item = std::get_if<RouteItem>(&change)) {
        return "route " + item->key.prefix.stringValue() + " " +
               std::to_string(item->route.fecId.value());
    }
    if (const auto* item = std::get_if<NextHopDel>(&change)) {
        return "del hop " + item->index.stringValue();
    }
    if (const auto* item = std::get_if<FecDel>(&change)) {
        return "del fec " + std::to_string(item->id.value());
    }
    if (const auto* item = std::get_if<RouteDel>(&change)) {
        return "del route " + item->key.prefix.stringValue();
    }
    return "other";
}

std::vector<std::string> history(const GeneratorOptions& of, Kiln::Duration until) {
    Generator generator{of};
    std::vector<std::string> lines;
    for (const Change& change : described(generator)) { lines.push_back(shown(change)); }
    for (Kiln::Duration now{}; now <= until; now += 10ms) {
        Changes due;
        generator.due(now, due, 1000);
        for (const Change& change : due) { lines.push_back(shown(change)); }
    }
    return lines;
}

TEST(GeneratorOptions, WordsInAnyOrder) {
    const auto parsed = options("churn=10000/s,seed=3 groups=250 next-hops=1000");
    EXPECT_EQ(parsed, (GeneratorOptions{1000, 250, 0, 10'000, 3}));
}

TEST(GeneratorOptions, WhatIsWrongIsNamed) {
    const std::pair<const char*, const char*> cases[] = {
        {"nexthops=1", "unknown word 'nexthops=1'; did you mean 'next-hops'?"},
        {"next-hops=x",
         "expected next-hops= and a whole number from 0 to 10000000, not 'next-hops=x'"},
        {"next-hops", "expected next-hops= and a whole number from 0 to 10000000, not 'next-hops'"},
        {"next-hops=10000001",
         "expected next-hops= and a whole number from 0 to 10000000, not 'next-hops=10000001'"},
        {"groups=1", "groups need next-hops"},
        {"next-hops=1 routes=1", "routes need groups"},
        {"churn=5", "churn needs next-hops"},
        {"next-hops=1 counters=5", "counters need groups"},
        {"next-hops=1 groups=1 counter-changes=5/s", "counter-changes need counters"},
    };
    for (const auto& [text, message] : cases) {
        std::string error;
        EXPECT_EQ(GeneratorOptions::parse(text, error), std::nullopt) << text;
        EXPECT_EQ(error, message);
    }
}

TEST(Generator, SameSeedSameStateAndSameSequence) {
    EXPECT_EQ(history(options(kSmall), 30s), history(options(kSmall), 30s));
    auto other = options(kSmall);
    other.seed = 8;
    EXPECT_NE(history(options(kSmall), 0s), history(other, 0s));
}

TEST(Generator, StateHasAsMuchAsIsAsked) {
    Generator generator{options(kSmall)};
    std::map<std::size_t, std::size_t> counts;
    std::set<std::string> different;
    for (const Change& change : described(generator)) {
        ++counts[change.index()];
        different.insert(shown(change));
    }
    EXPECT_EQ(counts[Change{NextHopItem{}}.index()], 320U);
    EXPECT_EQ(counts[Change{FecItem{}}.index()], 64U);
    EXPECT_EQ(counts[Change{RouteItem{}}.index()], 400U);
    EXPECT_EQ(different.size(), 320U + 64U + 400U + 1U);  // VRF and tunnels are both "other"
}

TEST(Generator, KnowsWhatItHas) {
    Generator generator{options(kSmall)};
    for (const Change& change : described(generator)) {
        if (const auto* hop = std::get_if<NextHopItem>(&change)) {
            EXPECT_TRUE(generator.hasNextHop(hop->entry.index));
        } else if (const auto* fec = std::get_if<FecItem>(&change)) {
            EXPECT_TRUE(generator.hasFec(fec->id));
        } else if (const auto* route = std::get_if<RouteItem>(&change)) {
            EXPECT_TRUE(generator.hasRoute(route->key)) << shown(change);
        }
    }
    EXPECT_FALSE(generator.hasNextHop(Stash::OcNextHopIndex{321}));
    EXPECT_FALSE(generator.hasNextHop(Stash::OcNextHopIndex{0}));
    EXPECT_FALSE(generator.hasFec(Pel::FecId{1}));
    for (const char* prefix : {"0.0.0.0/0",
                               "0.1.0.0/24",
                               "1.0.0.0/25",
                               "1.1.44.0/24",
                               "::/0",
                               "2400:0:64::/48",
                               "2400::/47",
                               "2401::/48"}) {
        EXPECT_FALSE(generator.hasRoute({"default", *Nexo::IpPrefix::parse(prefix)})) << prefix;
    }
    EXPECT_FALSE(generator.hasRoute({"red", *Nexo::IpPrefix::parse("1.0.0.0/24")}));
}

/// Each reference and each owner fits, at every size: a change may only speak of what is there.
class GeneratorSize : public testing::TestWithParam<const char*> {};
TEST_P(GeneratorSize, NeverRefersToWhatIsNotThere) {
    Generator generator{options(GetParam())};
    std::map<std::uint64_t, NextHopItem> hops;
    std::map<std::uint64_t, std::vector<std::uint64_t>> fecs;
    std::map<RouteKey, std::uint64_t> routes;
    const auto apply = [&](const Change& change) {
        if (const auto* hop = std::get_if<NextHopItem>(&change)) {
            hops[hop->entry.index.value()] = *hop;
        } else if (const auto* fec = std::get_if<FecItem>(&change)) {
            const auto record = Stash::RecordCodec<Stash::FlattenFec>::decode(fec->content);
            ASSERT_TRUE(record);
            auto& members = fecs[fec->id.value()];
            members.clear();
            for (std::uint32_t i = 0; i < record->nextHops(); ++i) {
                members.push_back(record->nextHop(i).index.value());
                ASSERT_TRUE(hops.contains(members.back()));
                ASSERT_GT(record->nextHop(i).weight, 0U);
            }
            ASSERT_GT(members.size(), 0U);
            ASSERT_LE(members.size(), Generator::kMaxMembers + 1);
        } else if (const auto* route = std::get_if<RouteItem>(&change)) {
            ASSERT_TRUE(fecs.contains(route->route.fecId.value()));
            routes[route->key] = route->route.fecId.value();
        } else if (const auto* del = std::get_if<RouteDel>(&change)) {
            ASSERT_EQ(routes.erase(del->key), 1U);
        } else if (const auto* fecDel = std::get_if<FecDel>(&change)) {
            for (const auto& [key, id] : routes) { ASSERT_NE(id, fecDel->id.value()); }
            ASSERT_EQ(fecs.erase(fecDel->id.value()), 1U);
        } else if (const auto* hopDel = std::get_if<NextHopDel>(&change)) {
            for (const auto& [id, members] : fecs) {
                ASSERT_THAT(members, testing::Not(testing::Contains(hopDel->index.value())));
            }
            ASSERT_EQ(hops.erase(hopDel->index.value()), 1U);
        }
    };
    for (const Change& change : described(generator)) { apply(change); }
    for (const auto& [index, hop] : hops) {
        if (!hop.entry.nhgId) { continue; }
        const auto& members = fecs.at(hop.entry.nhgId.value());
        ASSERT_LT(hop.entry.nhgEntryId.value(), members.size());
        EXPECT_EQ(members[hop.entry.nhgEntryId.value()], index);
    }
    for (Kiln::Duration now{}; now < 20s; now += 500ms) {
        Changes due;
        generator.due(now, due, 10'000);
        for (const Change& change : due) { apply(change); }
    }
}
INSTANTIATE_TEST_SUITE_P(,
                         GeneratorSize,
                         testing::Values(kSmall,
                                         "next-hops=1 groups=1 routes=1 churn=50",
                                         "next-hops=3 groups=40 routes=17 churn=50",
                                         "next-hops=900 groups=2 routes=5 churn=50",
                                         "next-hops=40 churn=50",
                                         "next-hops=17 groups=5 churn=50",
                                         "next-hops=40 groups=9 routes=30 churn=50 chains=3"));

TEST(Generator, AFifthOfTheChurnDeletesAndAddsAgain) {
    Generator generator{options(kSmall)};
    (void)described(generator);
    std::set<std::string> away;
    std::size_t all = 0;
    std::size_t deletes = 0;
    std::size_t backs = 0;
    std::map<std::string, std::size_t> kinds;
    for (Kiln::Duration now{}; now <= 60s; now += 100ms) {
        Changes due;
        generator.due(now, due, 10'000);
        for (const Change& change : due) {
            ++all;
            std::string text = shown(change);
            const bool del = text.starts_with("del ");
            if (del) { text = text.substr(4); }
            const std::string name = text.substr(0, text.find(' ', text.find(' ') + 1));
            if (del) {
                EXPECT_TRUE(away.insert(name).second);
                ++deletes;
            } else if (away.erase(name) > 0) {
                ++backs;
            } else {
                ++kinds[name.substr(0, name.find(' '))];
            }
        }
    }
    EXPECT_EQ(all, 6000U);
    EXPECT_EQ(deletes + backs, 1200U);
    EXPECT_EQ(deletes - backs, away.size());
    EXPECT_LE(away.size(), Generator::kMaxAway);
    EXPECT_GT(away.size(), 0U);
    for (const char* kind : {"hop", "fec", "route"}) { EXPECT_GT(kinds[kind], 1000U) << kind; }
}

TEST(Generator, ChainsComeAndGoAsAWholeInTheOrderOfReferences) {
    Generator generator{options("next-hops=16 groups=4 routes=8 churn=100 chains=2")};
    (void)described(generator);
    EXPECT_TRUE(generator.hasNextHop(Stash::OcNextHopIndex{20}));
    EXPECT_FALSE(generator.hasNextHop(Stash::OcNextHopIndex{21}));
    EXPECT_EQ(generator.firstFreeIndex(), 21U);
    Changes due;
    generator.due(1s, due, 10'000);
    std::vector<std::string> ofChains;
    for (std::size_t i = 0; i + 1 < due.size(); ++i) {
        if (i % 20 < 10 || i % 20 >= 14) { continue; }
        const std::string text = shown(due[i]);
        ofChains.push_back(text.substr(0, text.starts_with("del ") ? 9 : 5));
    }
    ASSERT_GE(ofChains.size(), 16U);
    ofChains.resize(16);
    EXPECT_EQ(ofChains[0], "del route");
    EXPECT_TRUE(ofChains[1].starts_with("del fec"));
    EXPECT_TRUE(ofChains[2].starts_with("del hop"));
    EXPECT_TRUE(ofChains[3].starts_with("del hop"));
    EXPECT_EQ(ofChains[4], "del route") << "then the other chain";
    EXPECT_TRUE(ofChains[8].starts_with("hop"));
    EXPECT_TRUE(ofChains[9].starts_with("hop"));
    EXPECT_TRUE(ofChains[10].starts_with("fec"));
    EXPECT_EQ(ofChains[11], "route");
}

TEST(Generator, LostTimeIsNotMadeUpFor) {
    Generator generator{options(kSmall)};
    Changes due;
    generator.due(3600s, due, 1'000'000);
    EXPECT_GE(due.size(), 100U);
    EXPECT_LE(due.size(), 101U);
    due.clear();
    generator.due(3601s, due, 1'000'000);
    EXPECT_EQ(due.size(), 100U);
}

// Counters

/// Value of each counter that is due at the times, one after the other.
std::map<std::uint64_t, std::vector<std::uint64_t>> counted(Generator& generator,
                                                            std::vector<Kiln::Duration> times) {
    std::map<std::uint64_t, std::vector<std::uint64_t>> values;
    for (const Kiln::Duration time : times) {
        Changes due;
        generator.due(time, due, 1'000'000);
        for (const Change& change : due) {
            const auto* const item = std::get_if<CounterItem>(&change);
            if (item == nullptr) { continue; }
            EXPECT_TRUE(generator.hasCounter(item->index));
            values[item->index.value()].push_back(item->packets.value_or(0));
        }
    }
    return values;
}

TEST(GeneratorCounters, EveryNextHopOfAGroupCountsAtARateOfItsOwn) {
    Generator generator{options("next-hops=320 groups=64 counters=10/s counter-changes=300/s")};
    const auto values = counted(generator, {1s, 2s});
    EXPECT_EQ(values.size(), 300U) << "the last sixteenth is in no group";
    EXPECT_EQ(values.at(1), (std::vector<std::uint64_t>{10, 20}));
    EXPECT_EQ(values.at(2), (std::vector<std::uint64_t>{20, 40}));
    EXPECT_EQ(values.at(16), (std::vector<std::uint64_t>{160, 320}));
    EXPECT_EQ(values.at(17), (std::vector<std::uint64_t>{10, 20}));
    EXPECT_FALSE(generator.hasCounter(FlexCounters::CounterIndex{0}));
    EXPECT_FALSE(generator.hasCounter(FlexCounters::CounterIndex{301}));
}

TEST(GeneratorCounters, OfLargeGroupsThoseWithACounterKeyCount) {
    Generator generator{options("next-hops=1600 groups=10 counters=1 counter-changes=640/s")};
    std::set<std::uint64_t> keyed;
    for (const Change& change : described(generator)) {
        const auto* hop = std::get_if<NextHopItem>(&change);
        if (hop != nullptr && hop->entry.nhgId) { keyed.insert(hop->entry.index.value()); }
    }
    std::set<std::uint64_t> counters;
    for (const auto& [index, values] : counted(generator, {1s})) { counters.insert(index); }
    EXPECT_EQ(counters, keyed);
}

TEST(GeneratorCounters, AsManyChangeASecondAsIsAsked) {
    Generator some{options("next-hops=320 groups=64 counters=1 counter-changes=20/s")};
    EXPECT_EQ(counted(some, {1s}).size(), 20U);
    EXPECT_EQ(counted(some, {2s}).size(), 20U);
    Generator usual{options("next-hops=320 groups=64 counters=1")};
    EXPECT_EQ(counted(usual, {1s, 2s, 3s, 4s, 5s, 6s, 7s, 8s, 9s, 10s}).size(), 300U)
        << "each within ten seconds";
    Generator none{options("next-hops=320 groups=64")};
    EXPECT_TRUE(counted(none, {1s}).empty());
    EXPECT_FALSE(none.hasCounter(FlexCounters::CounterIndex{1}));
}

TEST(GeneratorCounters, ChurnAndCountersBothHaveTheirShare) {
    Generator generator{options(
        "next-hops=320 groups=64 routes=400 churn=100000/s counters=1 counter-changes=100000/s")};
    Changes due;
    generator.due(1s, due, 512);
    std::size_t counters = 0;
    for (const Change& change : due) { counters += std::get_if<CounterItem>(&change) ? 1U : 0U; }
    EXPECT_EQ(due.size(), 512U);
    EXPECT_EQ(counters, 256U);
}

class GeneratorFeedTest : public FeedBed {};

TEST_F(GeneratorFeedTest, AgentSeesCountersRunAndThoseOfBeforeGo) {
    start(std::make_unique<Generator>(
        Forwarder::options("next-hops=320 groups=64 counters=10 counter-changes=300/s")));
    settle();
    EXPECT_EQ(view().counters(), 0U);
    pass(1s);
    EXPECT_EQ(view().counters(), 300U);
    EXPECT_EQ(view().traffic(1), "10/640");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "20/1280");
    start(std::make_unique<Generator>(Forwarder::options("next-hops=320 groups=64")));
    settle();
    EXPECT_EQ(view().counters(), 0U);
}

TEST_F(GeneratorFeedTest, AgentSeesItAllAndARestartIsSilent) {
    const auto wanted = Forwarder::options("next-hops=2000 groups=500 routes=3000 seed=7");
    start(std::make_unique<Generator>(wanted));
    settle();
    EXPECT_EQ(view().nextHops(), 2000U);
    EXPECT_EQ(view().fecs(), 500U);
    EXPECT_EQ(view().fecReady(), "true");
    EXPECT_THAT(view().fec((std::uint64_t{4} << 56U) | 3), HasSubstr("group-3/0: "));
    const auto everything = view().everything();
    EXPECT_EQ(everything.size(), 2000U + 500U + 3000U + (2000U - 125U));  // counters of members
    const auto before = view().position();
    start(std::make_unique<Generator>(wanted));
    settle();
    EXPECT_EQ(view().position(), before);
    EXPECT_EQ(view().everything(), everything);
}

TEST_F(GeneratorFeedTest, ChurnIsPublishedAtItsPaceAndARestartBeginsAnew) {
    start(std::make_unique<Generator>(Forwarder::options(kSmall)));
    settle();
    const auto everything = view().everything();
    const auto before = feed->publish().statistics().records;
    for (int i = 0; i < 100; ++i) { pass(100ms); }
    EXPECT_EQ(feed->publish().statistics().records - before, 1000U);
    EXPECT_NE(view().everything(), everything);
    start(std::make_unique<Generator>(Forwarder::options(kSmall)));
    settle();
    EXPECT_EQ(view().everything(), everything);
}

TEST_F(GeneratorFeedTest, LessThanBeforeLeavesNothingBehind) {
    start(std::make_unique<Generator>(Forwarder::options(kSmall)));
    settle();
    start(
        std::make_unique<Generator>(Forwarder::options("next-hops=20 groups=5 routes=10 seed=7")));
    settle();
    EXPECT_EQ(view().nextHops(), 20U);
    EXPECT_EQ(view().fecs(), 5U);
    EXPECT_EQ(view().everything().size(), 20U + 5U + 10U + 19U);
}

}  // namespace
}  // namespace Pel::Forwarder
