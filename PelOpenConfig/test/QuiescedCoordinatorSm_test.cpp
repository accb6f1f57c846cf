#include "PelOpenConfig/PelStateSyncedSm.h"
#include "model/Registration.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Kiln/YieldPolicy.h"
#include "platform/Vel/Errors.h"
#include "test/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Family = Nexo::AddressFamily;
using std::chrono::seconds;

class QuiescedCoordinator : public testing::TestWithParam<Family> {
protected:
    void start(const std::string& name = "red", bool disableNotifyQuiesced = false) {
        sut = Vel::make<QuiescedCoordinatorSm>(
            name, GetParam(), scheduler, dir, control, seconds{600}, disableNotifyQuiesced);
    }
    void quiescedIs(bool quiesced) { control->recordIs({1, 1, quiesced}); }
    void advance(seconds by) {
        clock.advance(by);
        scheduler->runUntilIdle();
    }
    Vel::Ref<OcApi::StateSyncedContainer> red() const {
        return dir->entity<OcApi::StateSyncedContainer>("red");
    }
    /// Of this family, and the other one's is down.
    bool synced() const {
        if (!red()) { return false; }
        const bool four = GetParam() == Family::ipv4;
        EXPECT_FALSE(four ? red()->ipv6Unicast() : red()->ipv4Unicast());
        return four ? red()->ipv4Unicast() : red()->ipv6Unicast();
    }
    std::string text() const {
        return std::string{"addressFamily: "} + (GetParam() == Family::ipv4 ? "ipv4" : "ipv6") +
               ", vrfName: red";
    }

    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<Vel::Dir> dir = Vel::make<Vel::Dir>("stateSynced");
    Vel::Ref<Mesa::CollectionControl> control = Vel::make<Mesa::CollectionControl>();
    Vel::Ref<QuiescedCoordinatorSm> sut;
    TestSupport::TraceCapture traces;
};

TEST_P(QuiescedCoordinator, ATimerTaskOfItsNameAndPriorityWaitsForTheDelay) {
    start();
    ASSERT_EQ(scheduler->tasks().size(), 1u);
    EXPECT_EQ(scheduler->tasks()[0].name, "stateSyncedTimerTask-red");
    EXPECT_EQ(scheduler->tasks()[0].priority, 3);
    EXPECT_TRUE(sut->armed());
    advance(seconds{599});
    EXPECT_EQ(red(), nullptr) << "nothing is written before";
    advance(seconds{1});
    EXPECT_TRUE(synced());
    EXPECT_FALSE(sut->armed());
}

TEST_P(QuiescedCoordinator, TheTimerRunsOnce) {
    start();
    advance(seconds{600});
    dir->entityDelAll();
    advance(seconds{6000});
    EXPECT_EQ(red(), nullptr);
    EXPECT_EQ(scheduler->tasks()[0].runs, 1u);
}

TEST_P(QuiescedCoordinator, ATableThatHasQuiescedAlreadyIsTakenAtOnce) {
    quiescedIs(true);
    start();
    EXPECT_TRUE(synced());
    EXPECT_FALSE(sut->armed());
}

TEST_P(QuiescedCoordinator, ATableThatQuiescesStopsTheTimerWhichNeverWrites) {
    start();
    control->recordIs({1, 2, false});
    EXPECT_EQ(red(), nullptr) << "a change, but not this one";
    EXPECT_TRUE(sut->armed());
    bool stopped = false;
    const auto onRed =
        dir->onEntity().subscribe([&](const std::string& /*name*/) { stopped = !sut->armed(); });
    quiescedIs(true);
    EXPECT_TRUE(stopped) << "before anything is written";
    EXPECT_TRUE(synced());
    dir->entityDelAll();
    advance(seconds{6000});
    EXPECT_EQ(red(), nullptr);
}

TEST_P(QuiescedCoordinator, ToldNotToListenItWaitsForTheTimer) {
    quiescedIs(true);
    start("red", true);
    quiescedIs(false);
    quiescedIs(true);
    EXPECT_EQ(red(), nullptr);
    EXPECT_THAT(traces.texts("PelStateSyncedSm"), IsEmpty());
    advance(seconds{599});
    EXPECT_EQ(red(), nullptr);
    advance(seconds{1});
    EXPECT_TRUE(synced());
}

TEST_P(QuiescedCoordinator, OnlyItsOwnRunningTimerDoesAnything) {
    start();
    sut->handleTimerTaskRun();
    EXPECT_EQ(red(), nullptr);
    EXPECT_TRUE(sut->armed());
    EXPECT_THAT(traces.texts("PelStateSyncedSm"), IsEmpty());
}

TEST_P(QuiescedCoordinator, DeletedItLeavesNoTimerAndListensNoMore) {
    start();
    sut = nullptr;
    EXPECT_THAT(scheduler->tasks(), IsEmpty());
    quiescedIs(true);
    advance(seconds{600});
    EXPECT_EQ(red(), nullptr);
}

TEST_P(QuiescedCoordinator, MayBeDeletedByWhoSeesItsFlag) {
    for (const bool byTimer : {false, true}) {
        quiescedIs(false);
        start();
        const auto onRed =
            dir->onEntity().subscribe([&](const std::string& /*name*/) { sut = nullptr; });
        if (byTimer) {
            advance(seconds{600});
        } else {
            quiescedIs(true);
        }
        EXPECT_EQ(sut, nullptr);
        EXPECT_TRUE(synced());
        dir->entityDelAll();
    }
}

TEST_P(QuiescedCoordinator, BothHandlersTraceFamilyAndName) {
    start();
    advance(seconds{600});
    quiescedIs(true);
    const auto messages = traces.messages();
    ASSERT_EQ(messages.size(), 2u);
    const char* const functions[] = {"handleTimerTaskRun", "handleVrfQuiesced"};
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(messages[i].handle, "PelStateSyncedSm");
        EXPECT_EQ(messages[i].function, functions[i]);
        EXPECT_EQ(messages[i].level, 9);
        EXPECT_EQ(messages[i].text, text());
    }
}

TEST_P(QuiescedCoordinator, ANameOf100BytesIsDeclaredAndOneOf101RaisesInItsPlace) {
    quiescedIs(true);
    start(std::string(100, 'v'));
    EXPECT_TRUE(dir->has(std::string(100, 'v')));
    dir->entityDelAll();
    const std::string long_(101, 'v');
    try {
        start(long_);
        FAIL() << "no range error";
    } catch (const Vel::RangeError& error) {
        EXPECT_STREQ(error.what(), "Vel::String::bytes > maxLength() not allowed");
    }
    quiescedIs(false);
    start(long_);
    advance(seconds{600});
    EXPECT_EQ(dir->size(), 0u);
    ASSERT_EQ(scheduler->tasks().size(), 1u);
    EXPECT_EQ(scheduler->tasks()[0].lastException, "Vel::String::bytes > maxLength() not allowed");
}

INSTANTIATE_TEST_SUITE_P(,
                         QuiescedCoordinator,
                         testing::Values(Family::ipv4, Family::ipv6),
                         [](const auto& row) {
                             return std::string{row.param == Family::ipv4 ? "Ipv4" : "Ipv6"};
                         });

TEST(SetSyncedState, MakesTheContainerAndSetsOneFamily) {
    const auto dir = Vel::make<Vel::Dir>("stateSynced");
    setSyncedState(dir, Family::ipv6, Vrf::VrfName{"red"});
    const auto red = dir->entity<OcApi::StateSyncedContainer>("red");
    ASSERT_TRUE(red);
    EXPECT_FALSE(red->ipv4Unicast());
    EXPECT_TRUE(red->ipv6Unicast());
    setSyncedState(dir, Family::ipv4, Vrf::VrfName{"red"});
    EXPECT_EQ(dir->entity<OcApi::StateSyncedContainer>("red"), red);
    EXPECT_TRUE(red->ipv4Unicast());
    EXPECT_TRUE(red->ipv6Unicast());
}

}  // namespace
}  // namespace Pel::Oc
