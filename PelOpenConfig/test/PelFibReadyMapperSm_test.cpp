#include "PelOpenConfig/PelFibReadyMapperSm.h"

#include <gmock/gmock.h>

#include "test/support/TraceCapture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

class FibReadyMapper : public testing::TestWithParam<Lmo::Synchronous> {
protected:
    void start() { start(GetParam()); }
    void start(Lmo::Synchronous mode) {
        Lmo::SmControl control;
        control.scheduler = scheduler;
        control.synchronous = mode;
        sut = fibReadyMapperSmFactory(frtc, frc, control);
    }
    void settle() { scheduler->runUntilIdle(); }
    std::vector<std::string> texts() const { return traces.texts("PelFibReadyMapperSm"); }

    TestSupport::TraceCapture traces;
    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<FecReadyTrackingState> frtc = Vel::make<FecReadyTrackingState>();
    Vel::Ref<OcApi::FibReadyContainer> frc = Vel::make<OcApi::FibReadyContainer>("fibReady");
    Vel::Ref<FibReadyMapperSm> sut;
};

std::string modeName(const testing::TestParamInfo<Lmo::Synchronous>& row) {
    switch (row.param) {
        case Lmo::Synchronous::byDefault:
            return "ByDefault";
        case Lmo::Synchronous::synchronous:
            return "Synchronous";
        case Lmo::Synchronous::asynchronous:
            return "Asynchronous";
    }
    return {};
}
INSTANTIATE_TEST_SUITE_P(,
                         FibReadyMapper,
                         testing::Values(Lmo::Synchronous::byDefault,
                                         Lmo::Synchronous::synchronous,
                                         Lmo::Synchronous::asynchronous),
                         modeName);

TEST_P(FibReadyMapper, OneHalfLeavesTheFlagDownAndTheOtherRaisesIt) {
    start();
    settle();
    frtc->nhReadyIs(true);
    EXPECT_FALSE(frc->fecReady());
    frtc->nhgReadyIs(true);
    EXPECT_TRUE(frc->fecReady());
}

TEST_P(FibReadyMapper, TheFlagLatches) {
    start();
    settle();
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    frtc->nhReadyIs(false);
    EXPECT_TRUE(frc->fecReady());
    frtc->nhgReadyIs(false);
    EXPECT_TRUE(frc->fecReady());
}

TEST_P(FibReadyMapper, DeletingIsTheOnlyWayDown) {
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    start();
    settle();
    EXPECT_TRUE(frc->fecReady());
    sut->hasNotificationActiveIs(false);
    sut->handleCleanup();
    EXPECT_FALSE(frc->fecReady());
    EXPECT_TRUE(traces.has("Line 25: from( this.deleting ):"));
    EXPECT_TRUE(traces.has("into( frc.fecReady ): inserting value=false"));
    EXPECT_EQ(sut->frtcSm0(), nullptr);
    EXPECT_EQ(sut->builtinSmAttrNdeletingSm1(), nullptr);
    EXPECT_EQ(sut->inputSmScanState(), nullptr);
    EXPECT_EQ(sut->outputState(), nullptr);
}

TEST_P(FibReadyMapper, TheOutputIsReadyAndTheMachineIdleOnceBothInputsAreScanned) {
    start();
    settle();
    EXPECT_TRUE(sut->initialized());
    EXPECT_TRUE(sut->initialScanDone());
    EXPECT_TRUE(sut->outputState()->frcFecReadyOutputReady());
    EXPECT_TRUE(sut->ready());
    EXPECT_TRUE(sut->idle());
    EXPECT_EQ(sut->frtcSm0()->inputScanComplete().value,
              LumoCode::FibReadyMapperSm::InputWatcher::ScanState::complete);
    EXPECT_TRUE(sut->builtinSmAttrNdeletingSm1()->inputScanComplete().done);
    EXPECT_FALSE(sut->frtcSm0()->hasScanTask());
    EXPECT_FALSE(sut->frtcSm0()->shouldYield());
}

TEST_P(FibReadyMapper, ASecondReconciliationOnlyTraces) {
    start();
    settle();
    const TestSupport::TraceCapture later;
    sut->handleFrcFecReadyOutputInputReady();
    EXPECT_THAT(later.texts("PelFibReadyMapperSm"),
                ElementsAre("", " already ready, not reconciling."));
}

TEST_P(FibReadyMapper, HandleInitializedRunsOnce) {
    start();
    settle();
    const auto child = sut->frtcSm0();
    sut->handleInitialized();
    EXPECT_EQ(sut->frtcSm0(), child);
}

TEST_P(FibReadyMapper, TheFlagIsWrittenAlsoWhenUnchanged) {
    start();
    settle();
    const TestSupport::TraceCapture later;
    frtc->nhReadyIs(true);
    EXPECT_THAT(later.texts("PelFibReadyMapperSm"),
                ElementsAre(testing::StartsWith(
                                "Line 20: from( frtc.{ nhReady, nhgReady } ): trackingState="),
                            "into( frc.fecReady ): inserting value=false"));
    for (const Blink::Message& message : later.messages()) { EXPECT_EQ(message.level, 7); }
}

using FibReadyMapperScan = FibReadyMapper;
INSTANTIATE_TEST_SUITE_P(, FibReadyMapperScan, testing::Values(Lmo::Synchronous::byDefault));

TEST_P(FibReadyMapperScan, BothReadyAtTheStartRaisesTheFlagOnlyWhenTheScanEnds) {
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    start();
    EXPECT_FALSE(frc->fecReady());
    EXPECT_FALSE(sut->ready());
    settle();
    EXPECT_TRUE(frc->fecReady());
}

TEST_P(FibReadyMapperScan, EventsBeforeTheScanAreLeftToIt) {
    start();
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    EXPECT_FALSE(frc->fecReady());
    EXPECT_TRUE(sut->frtcSm0()->hasScanTask());
    settle();
    EXPECT_TRUE(frc->fecReady());
}

TEST_P(FibReadyMapperScan, DeletingBeforeTheScanIsOverWritesNothing) {
    frc->fecReadyIs(true);
    start();
    sut->deletingIs(true);
    EXPECT_TRUE(sut->deleting());
    EXPECT_TRUE(frc->fecReady());
    settle();
    EXPECT_FALSE(frc->fecReady()) << "the scan applies it";
}

TEST_P(FibReadyMapperScan, TheTwoPassesTraceInOrder) {
    start();
    settle();
    EXPECT_THAT(texts(),
                ElementsAre("create local SMs",
                            "create non-public arg SMs",
                            "",  // scan tasks queued
                            "",
                            "initialized",
                            "",  // output asked
                            "",  // pass one
                            "",
                            "FrtcSm0 initial scan, and parent scan, complete.",
                            "",
                            "",
                            "Initial scan done for child SMs. Now scanning with events triggered.",
                            "",  // both flags taken back
                            "",
                            "",  // scan tasks queued again
                            "",
                            "",  // output asked
                            "BuiltinSmAttrNdeletingSm1 initial scan, and parent scan, complete.",
                            "",  // pass two
                            testing::StartsWith("Line 20: "),
                            "into( frc.fecReady ): inserting value=false",
                            "",
                            "FrtcSm0 scan, and parent scan, complete.",
                            "",
                            "",
                            "Input scans for frcFecReadyOutput complete",
                            "BuiltinSmAttrNdeletingSm1 scan, and parent scan, complete."));
}

TEST_P(FibReadyMapperScan, TheScanTasksHaveTheirNamesAndTheControlRecordsPriority) {
    Lmo::SmControl control;
    control.scheduler = scheduler;
    control.taskPriority = 7;
    sut = fibReadyMapperSmFactory(frtc, frc, control);
    std::vector<std::string> names;
    for (const Kiln::TaskStatistics& task : scheduler->tasks()) {
        names.push_back(task.name);
        EXPECT_EQ(task.priority, 7);
    }
    EXPECT_THAT(names,
                testing::UnorderedElementsAre(
                    "Pel::Oc::FibReadyMapperSm-FrtcSm0InputScanTask0",
                    "Pel::Oc::FibReadyMapperSm-BuiltinSmAttrNdeletingSm1InputScanTask1"));
}

TEST_P(FibReadyMapperScan, HandleInitialScanDoneWaitsForEachPipeline) {
    start();
    sut->handleInitialScanDone();
    EXPECT_TRUE(traces.has(" lmo_pipeline1 scan is false"));
    sut->inputSmScanState()->lmo_pipeline1ScanIs(true);
    sut->handleInitialScanDone();
    EXPECT_TRUE(traces.has("Initial scan yielding for child SM FibReadyMapperSm."));
    EXPECT_TRUE(traces.has(" lmo_pipeline0 scan is false"));
    EXPECT_FALSE(sut->initialScanDone());
}

TEST_P(FibReadyMapperScan, ASwitchedOffMachineDoesNotScanOrWrite) {
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    start();
    sut->hasNotificationActiveIs(false);
    settle();
    EXPECT_FALSE(sut->initialScanDone());
    EXPECT_FALSE(frc->fecReady());
}

TEST_P(FibReadyMapperScan, AMachineReleasedByWhatItsOwnScanWritesIsSafe) {
    frtc->nhReadyIs(true);
    frtc->nhgReadyIs(true);
    const auto watch = frc->onFecReady().subscribe([this] {
        if (sut) {
            sut->hasNotificationActiveIs(false);
            const auto going = std::exchange(sut, nullptr);
            going->handleCleanup();
        }
    });
    start();
    settle();
    EXPECT_FALSE(frc->fecReady());
}

TEST_P(FibReadyMapperScan, SetterOfTheScanStatePublishesOnlyOnAChange) {
    start();
    int idle = 0;
    const auto watch = sut->inputSmScanState()->onIdle().subscribe([&] { ++idle; });
    sut->inputSmScanState()->handleIdle();
    sut->inputSmScanState()->handleIdle();
    EXPECT_EQ(idle, 1);
}

using FibReadyMapperDeathTest = FibReadyMapper;
INSTANTIATE_TEST_SUITE_P(, FibReadyMapperDeathTest, testing::Values(Lmo::Synchronous::byDefault));

TEST_P(FibReadyMapperDeathTest, ANullOutputIsABrokenPrecondition) {
    frc = nullptr;
    EXPECT_DEATH(start(),
                 "frc\\(\\) && \"Pointer SM args cannot be null unless they are marked Optional\"");
}

TEST_P(FibReadyMapperDeathTest, ANullInputIsABrokenPrecondition) {
    frtc = nullptr;
    EXPECT_DEATH(
        start(),
        "frtc\\(\\) && \"Pointer SM args cannot be null unless they are marked Optional\"");
}

TEST_P(FibReadyMapperDeathTest, AMissingInputInTheScanIsABrokenPrecondition) {
    start(Lmo::Synchronous::asynchronous);
    sut->frtcSm0()->doDeleteAll();
    EXPECT_DEATH(sut->frtcSm0()->doInputScan0(),
                 "en\\(\\) && \"Sm args can only be null if marked as Optional in the SM type "
                 "declaration\"");
}

}  // namespace
}  // namespace Pel::Oc
