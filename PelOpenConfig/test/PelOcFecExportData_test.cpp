#include "PelOpenConfig/PelOcFecExportData.h"

#include <absl/hash/hash.h>

#include "PelOpenConfig/test/ExportFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

NhCounters counters(std::uint64_t key, std::uint64_t packets, std::uint64_t octets) {
    return {Stash::OcNextHopIndex{key}, packets, octets};
}

TEST(NhCountersValue, AnyFieldMakesItSet) {
    EXPECT_FALSE(NhCounters{}.isSet());
    EXPECT_TRUE(counters(7, 0, 0).isSet());
    EXPECT_TRUE(counters(0, 1, 0).isSet());
    EXPECT_TRUE(counters(0, 0, 1).isSet());
}

TEST(NhCountersValue, EqualityNeedsAllThree) {
    const NhCounters value = counters(7, 1, 2);
    EXPECT_TRUE(NhCounters::isEq(value, value));
    EXPECT_TRUE(NhCounters::isEq(value, counters(7, 1, 2)));
    EXPECT_FALSE(NhCounters::isEq(value, counters(8, 1, 2)));
    EXPECT_FALSE(NhCounters::isEq(value, counters(7, 3, 2)));
    EXPECT_FALSE(NhCounters::isEq(value, counters(7, 1, 3)));
}

TEST(NhCountersText, RoundTrips) {
    const NhCounters value = counters(UINT64_MAX, 1, 64);
    EXPECT_EQ(value.stringValue(),
              "Pel::Oc::NhCounters{key: 18446744073709551615, packetsForwarded: 1, "
              "octetsForwarded: 64}");
    EXPECT_EQ(strepToValue(value.stringValue()), value);
}

TEST(NhCountersText, WhatIsNotOneFails) {
    const std::string good = counters(7, 1, 2).stringValue();
    EXPECT_THROW(strepToValue(good + " "), Vel::DeserialisationError);
    EXPECT_THROW(strepToValue(good.substr(1)), Vel::DeserialisationError)
        << "the type tag is needed";
    EXPECT_THROW(strepToValue(good.substr(0, good.size() - 1)), Vel::DeserialisationError);
    EXPECT_THROW(strepToValue(""), Vel::DeserialisationError);
    EXPECT_THROW(
        strepToValue("Pel::Oc::NhCounters{packetsForwarded: 1, key: 7, octetsForwarded: 2}"),
        Vel::DeserialisationError);
}

TEST(NhCountersText, AKeyOutOfRangeIsADeserialisationErrorThatNamesIt) {
    try {
        strepToValue(
            "Pel::Oc::NhCounters{key: 18446744073709551616, packetsForwarded: 1, "
            "octetsForwarded: 2}");
        FAIL();
    } catch (const Vel::DeserialisationError& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("\"key\""));
    }
}

class ExportData : public testing::Test {
protected:
    Vel::Ref<PelOcFecExportData> sut = Vel::make<PelOcFecExportData>();
    std::vector<std::uint64_t> previous;
    Vel::Subscription watch = sut->onNhCountersUpdate().subscribe(
        [this](const NhCounters& before) { previous.push_back(before.packetsForwarded); });
};

TEST_F(ExportData, StartsAllZero) {
    EXPECT_FALSE(sut->nhCountersUpdate().isSet());
}

TEST_F(ExportData, PassingEqualValuesTwiceTellsTwice) {
    sut->passTheNhCountersUpdate(counters(7, 5, 6));
    sut->passTheNhCountersUpdate(counters(7, 5, 6));
    EXPECT_THAT(previous, ElementsAre(0, 5));
    EXPECT_EQ(sut->nhCountersUpdate(), counters(7, 5, 6));
}

TEST_F(ExportData, SettingEqualValuesTwiceTellsOnceWithThePreviousValue) {
    sut->nhCountersUpdateIs(counters(7, 5, 6));
    sut->nhCountersUpdateIs(counters(7, 5, 6));
    EXPECT_THAT(previous, ElementsAre(0));
    sut->nhCountersUpdateIs(counters(7, 9, 6));
    EXPECT_THAT(previous, ElementsAre(0, 5));
}

TEST(OcNextHopIndexValue, IsPrintableComparableHashableAndReadsItsTextBack) {
    CharRange range{"42,"};
    const Stash::OcNextHopIndex index{range};
    EXPECT_EQ(index.value(), 42U);
    EXPECT_EQ(index.stringValue(), "42");
    EXPECT_LT(index, Stash::OcNextHopIndex{43});
    EXPECT_EQ(absl::HashOf(index), absl::HashOf(Stash::OcNextHopIndex{42}));
    range.needPre(",");
    EXPECT_NO_THROW(range.needEnd());
}

TEST(CountersMap, CollectionsFindOrCreateAndDelete) {
    const auto sut = Vel::make<PelOcNextHopCountersMap>();
    const auto pick = PelOcNextHopCountersMap::Pick::indexAndTypeToPick(17, 2);
    sut->pickToOcNextHopIdsIs(pick).ocNextHopIdSetIs(Stash::OcNextHopIndex{9});
    sut->pickToOcNextHopIdsIs(pick).ocNextHopIdSetIs(Stash::OcNextHopIndex{7});
    EXPECT_THAT(sut->pickToOcNextHopIds().find(pick)->ocNextHopIdSet().ids(),
                ElementsAre(Stash::OcNextHopIndex{7}, Stash::OcNextHopIndex{9}));
    sut->pickToOcNextHopIdsIs(pick).ocNextHopIdSetDel(Stash::OcNextHopIndex{7});
    EXPECT_EQ(sut->pickToOcNextHopIds().find(pick)->ocNextHopIdSet().size(), 1U);
    sut->pickToOcNextHopIdsDel(pick);
    EXPECT_EQ(sut->pickToOcNextHopIds().find(pick), nullptr);
    EXPECT_EQ(pick.stringValue(), "2:17");
}

using AnchorValidators = ExportFixture;

TEST_F(AnchorValidators, AreThoseThatTheSetsTwoStoresCarry) {
    EXPECT_EQ(anchorValidatorCtx->fecAv(), flattenFecSet->fec().anchorValidator());
    EXPECT_EQ(anchorValidatorCtx->nhAv(), flattenFecSet->nextHop().anchorValidator());
    EXPECT_NE(anchorValidatorCtx->fecAv(), anchorValidatorCtx->nhAv());
}

TEST_F(AnchorValidators, AreTakenAgainWhenTheContextIsInitialisedAgain) {
    anchorValidatorCtx->fecAvIs(nullptr);
    anchorValidatorCtx->nhAvIs(nullptr);
    anchorValidatorCtx->handleInitialized();
    EXPECT_EQ(anchorValidatorCtx->fecAv(), flattenFecSet->fec().anchorValidator());
    EXPECT_EQ(anchorValidatorCtx->nhAv(), flattenFecSet->nextHop().anchorValidator());
}

TEST_F(AnchorValidators, TheContextKeepsTheSetAlive) {
    mesa->entityDel(FlattenFecSet::kPath);
    stashMountGroup = nullptr;
    flattenFecSet = nullptr;
    EXPECT_TRUE(anchorValidatorCtx->fecAv()->valid());
}

TEST(AnchorValidatorsDeathTest, ANullSetIsABrokenPrecondition) {
    EXPECT_DEATH(anchorValidatorContextFactory(nullptr), "flattenFecSet_ != nullptr");
}

}  // namespace
}  // namespace Pel::Oc
