#include <random>

#include "PelOpenConfig/test/CountersFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using TunnelCounters = UnderBothPolicies<CountersFixture>;
INSTANTIATE_TEST_SUITE_P(, TunnelCounters, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(TunnelCounters, ATunnelsCounterIsSharedOutByWeight) {
    exported();
    tunnelIs(5, {3, 1, 2}, 7);
    publish();
    EXPECT_THAT(
        tracesOf([this] {
            counterIs(tunnelIndex(5), {10, 6000});
            commit();
        }),
        ElementsAre("counterIndex 422233939902464 pick 2:422233939902464",
                    "counters to process for the counterIndex 422233939902464 pick "
                    "2:422233939902464",
                    "Update NextHop Counters for tunnelId 98309",
                    " total weight 6 counters: pkts 10 octets 6000 counters after spraying: pkts 1 "
                    "octets 1000 leftOverPkts 4 leftOverOctets 0",
                    "Update nhCounters collection nhId 7 with pkts 6 octets 3000",
                    "Update nhCounters collection nhId 8 with pkts 2 octets 1000",
                    "Update nhCounters collection nhId 9 with pkts 2 octets 2000"));
    EXPECT_THAT(passed, ElementsAre(Passed(7, 6, 3000), Passed(8, 2, 1000), Passed(9, 2, 2000)));
    EXPECT_EQ(packets(7), 6U);
}

TEST_P(TunnelCounters, SharesAreTakenInTheOrderOfTheFec) {
    struct Case {
        std::vector<std::uint32_t> weights;
        std::uint64_t packets;
        std::vector<std::uint64_t> wanted;
    };
    const Case cases[] = {
        {{5}, 7, {7}},
        {{2, 2}, 5, {3, 2}},
        {{4, 4, 4}, 7, {4, 3, 0}},
        {{1, 0, 1}, 3, {2, 0, 1}},
        {{0, 3}, 2, {0, 2}},
        {{1, 1}, UINT64_MAX, {UINT64_MAX / 2 + 1, UINT64_MAX / 2}},
    };
    exported();
    for (const Case& c : cases) {
        passed.clear();
        tunnelIs(5, c.weights);
        counterIs(tunnelIndex(5), {c.packets, 1});
        publish();
        ASSERT_EQ(passed.size(), c.wanted.size());
        for (std::size_t i = 0; i < c.wanted.size(); ++i) {
            EXPECT_EQ(std::get<1>(passed[i]), c.wanted[i]) << i;
        }
    }
}

TEST_P(TunnelCounters, PacketsAndOctetsAreSharedOutEachByItself) {
    exported();
    tunnelIs(5, {1, 2});
    counterIs(tunnelIndex(5), {4, 5});
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(1, 2, 2), Passed(2, 2, 3)));
}

TEST_P(TunnelCounters, AChangeOfItsFecSharesATunnelsCounterOutAgain) {
    exported();
    tunnelIs(5, {1, 1});
    counterIs(tunnelIndex(5), {8, 0});
    publish();
    passed.clear();
    const auto texts = tracesOf([this] {
        tunnelIs(5, {3, 1});
        commit();
    });
    EXPECT_EQ(texts.at(0), "fecId " + std::to_string(tunnelFec(5).value()));
    EXPECT_THAT(passed, ElementsAre(Passed(1, 6, 0), Passed(2, 2, 0)));
}

TEST_P(TunnelCounters, ATunnelThatIsGoneUnreadableOrWithoutNextHopsIsLeftOutSilently) {
    exported();
    counterIs(tunnelIndex(5), {8, 0});
    const auto expectSilent = [](const std::vector<std::string>& texts) {
        ASSERT_FALSE(texts.empty());
        EXPECT_EQ(texts.back(), "Update NextHop Counters for tunnelId 98309");
    };
    expectSilent(tracesOf([this] { commit(); }));
    expectSilent(tracesOf([this] {
        tunnelIs(5, {});
        commit();
    }));
    expectSilent(tracesOf([this] {
        fecs.set(tunnelFec(5), {{}, 0, true, false}, "rubbish");
        commit();
    }));
    EXPECT_TRUE(traces.has("Hit CorruptionDetectedException destashing writerFec"));
    EXPECT_THAT(passed, IsEmpty());
}

TEST_P(TunnelCounters, ATunnelWhoseWeightsAddUpToZeroIsLeftOutAndCounted) {
    exported();
    tunnelIs(5, {0, 0});
    tunnelIs(6, {0x8000'0000U, 0x8000'0000U}, 100);
    counterIs(tunnelIndex(5), {8, 0});
    counterIs(tunnelIndex(6), {8, 0});
    publish();
    EXPECT_THAT(passed, IsEmpty());
    EXPECT_EQ(counters->unweightedSprays(), 2U);
    EXPECT_EQ(counters->failedElements(), 0U);
}

TEST_P(TunnelCounters, TheTotalWeightHas32Bits) {
    exported();
    tunnelIs(5, {0xFFFF'FFFFU, 3}, 100);  // 2 in 32 bits
    counterIs(tunnelIndex(5), {5, 0});
    publish();
    EXPECT_TRUE(traces.has(
        " total weight 2 counters: pkts 5 octets 0 counters after spraying: pkts 2 octets 0 "
        "leftOverPkts 1 leftOverOctets 0"));
    EXPECT_THAT(passed, ElementsAre(Passed(100, 2 * 0xFFFF'FFFFULL + 1, 0), Passed(101, 6, 0)));
}

TEST_P(TunnelCounters, AnIndexOfAnotherTypeOfTunnelIsAnEntryOfAGroups) {
    exported();
    const std::uint64_t other = FlexCounters::makeCounterIndex(0x19001, 0).value();
    nextHopIs(9);
    counterKeyIs(nhgeck(9), other);
    publish();
    counterIs(other, 5, 6);
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(9, 5, 6)));
}

TEST_P(TunnelCounters, ATunnelsIndexIsNeverAnEntryOfAGroups) {
    exported();
    nextHopIs(9);
    counterKeyIs(nhgeck(9), tunnelIndex(5).value());
    tunnelIs(5, {1}, 7);
    publish();
    counterIs(tunnelIndex(5), {5, 6});
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(7, 5, 6)));
}

TEST_P(TunnelCounters, ATunnelWhoseNumberNeedsMoreBitsIsSweptToo) {
    fecIs(tunnelFec(0x5001).value());
    tunnelIs(0x6000, {1});
    publish();
    startCounters();
    settle();
    EXPECT_TRUE(traces.has("Update NextHop Counters for tunnelId 98304"));
    EXPECT_TRUE(traces.has("Update NextHop Counters for tunnelId 98305"));
}

TEST_P(TunnelCounters, ManyTunnelsAreSweptToTheLast) {
    for (std::uint64_t number = 0; number < 100; ++number) {
        tunnelIs(number, {1}, 1000 + number);
        counterIs(tunnelIndex(static_cast<std::uint32_t>(number)), {number + 1, 0});
    }
    publish();
    startCounters();
    settle();
    ASSERT_EQ(passed.size(), 100U);
    EXPECT_EQ(passed.front(), Passed(1000, 1, 0));
    EXPECT_EQ(passed.back(), Passed(1099, 100, 0));
}

TEST_P(TunnelCounters, EachTimeTheStashBecomesReadyTheyAreSweptFromTheFirst) {
    tunnelIs(5, {1});
    counterIs(tunnelIndex(5), {9, 0});
    publish();
    startCounters();
    settle();
    counters->handleStashReady();
    settle();
    EXPECT_THAT(passed, ElementsAre(Passed(1, 9, 0), Passed(1, 9, 0)));
}

/// What the shares of a counter must be, worked out the slow way: the multiple of each, then what
/// is left over one by one to the first that has not got its weight of it yet.
std::vector<std::uint64_t> sharesOf(std::uint64_t counter,
                                    const std::vector<std::uint32_t>& weights,
                                    std::uint64_t total) {
    std::vector<std::uint64_t> shares;
    for (const std::uint32_t weight : weights) { shares.push_back(counter / total * weight); }
    std::uint64_t given = 0;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        std::uint32_t left = weights[i];
        for (; left > 0 && given < counter % total; --left, ++given) { ++shares[i]; }
    }
    return shares;
}

TEST(CounterSprayValue, SharesAddUpToTheCounterAndTheFirstTakeWhatIsLeftOver) {
    std::mt19937_64 random{20};
    const auto upTo = [&](std::uint64_t limit) { return random() % (limit + 1); };
    for (int round = 0; round < 5000; ++round) {
        std::vector<std::uint32_t> weights(1 + upTo(15));
        std::uint64_t total = 0;
        for (std::uint32_t& weight : weights) {
            weight = static_cast<std::uint32_t>(upTo(upTo(1) == 0 ? 3 : 50));
            total += weight;
        }
        if (total == 0) { continue; }
        const std::uint64_t counter = random() >> upTo(63);
        CounterSpray sut{counter, total};
        std::vector<std::uint64_t> shares;
        std::uint64_t sum = 0;
        for (const std::uint32_t weight : weights) { sum += shares.emplace_back(sut.take(weight)); }
        ASSERT_EQ(sum, counter);
        ASSERT_EQ(shares, sharesOf(counter, weights, total));
        ASSERT_EQ(sut.leftOver(), 0U);
    }
}

TEST(CounterSprayValue, WithATotalThatWrappedEachShareIsStillItsWeightsMultiple) {
    std::mt19937_64 random{21};
    for (int round = 0; round < 5000; ++round) {
        std::vector<std::uint32_t> weights(2 + random() % 6);
        std::uint32_t total = 0;
        std::uint64_t whole = 0;
        for (std::uint32_t& weight : weights) {
            weight = static_cast<std::uint32_t>(random()) | 0x4000'0000U;
            total += weight;
            whole += weight;
        }
        if (total == 0) { continue; }
        const std::uint64_t counter = random();
        CounterSpray sut{counter, total};
        std::uint64_t sum = 0;
        for (const std::uint32_t weight : weights) { sum += sut.take(weight); }
        // Left over is less than the total that wrapped, so all of it is given away.
        ASSERT_EQ(sum, counter / total * whole + counter % total);
    }
}

}  // namespace
}  // namespace Pel::Oc
