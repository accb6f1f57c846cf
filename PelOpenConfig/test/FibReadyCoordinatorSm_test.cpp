#include "PelOpenConfig/test/StateSyncedFixture.h"
#include "platform/Kiln/YieldPolicy.h"
#include "platform/Vel/Errors.h"

namespace Pel::Oc {
namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr seconds kDelay{600};

TEST_P(FibReadyCoordinator, StartsWithItsDirectoryItsMountsAndAQuestionForReadiness) {
    const TestSupport::TraceCapture from;
    start();
    EXPECT_TRUE(sut->initialized());
    EXPECT_EQ(sut->timerTaskDelay(), kDelay);
    EXPECT_FALSE(sut->disableNotifyQuiesced());
    EXPECT_EQ(sut->stateSyncedDirPtr(), stateSyncedDir());
    EXPECT_EQ(stateSyncedDir()->size(), 0u);
    EXPECT_THAT(sut->mountedPaths()->paths(), IsEmpty());
    EXPECT_EQ(sut->defaultRouteStatusCollectionControl(), nullptr);
    EXPECT_THAT(texts(from),
                ElementsAre("addressFamily: " + family(),
                            "Default VRF mount not ready",
                            "nhgNhFecReady condition not met"));
}

TEST_P(FibReadyCoordinator, KnowsThePathsOfItsFamilysTables) {
    start();
    const std::string root = GetParam() == Family::ipv4 ? "routing/" : "routing6/";
    EXPECT_EQ(sut->getEntityPath(""), root + "vrf/status");
    EXPECT_EQ(sut->getEntityPath("default"), root + "status");
    EXPECT_EQ(sut->getEntityPath("red"), root + "vrf/status/red");
    EXPECT_EQ(sut->getEntityPath(std::string(100, 'v')),
              root + "vrf/status/" + std::string(100, 'v'));
    EXPECT_THROW(sut->getEntityPath(std::string(101, 'v')), Vel::RangeError);
}

TEST_P(FibReadyCoordinator, WhatIsLeftInTheDirectoryIsDeletedAtTheStart) {
    for (const char* const vrf : {"gone", "red"}) {
        setSyncedState(stateSyncedDir(), Family::ipv4, Vrf::VrfName{vrf});
        setSyncedState(stateSyncedDir(), Family::ipv6, Vrf::VrfName{vrf});
    }
    stateSyncedDir()->entityIs<Vel::Dir>("foreign");
    gatedIs("red", true);
    publish();
    start();
    EXPECT_EQ(flags("gone"), "-");
    EXPECT_EQ(flags("red"), "00") << "of this run";
    EXPECT_EQ(stateSyncedDir()->size(), 1u);
}

TEST_P(FibReadyCoordinator, AVrfThatIsNotDeclaredReadyHasItsContainerAndNoMachine) {
    halvesReadyAre();
    start();
    vrfIs("red");
    gatedIs("blue", false);
    table("blue");
    publish();
    EXPECT_EQ(flag("blue"), "0");
    EXPECT_FALSE(machine("blue"));
    EXPECT_TRUE(machine("red"));
    gatedIs("blue", true);
    publish();
    EXPECT_TRUE(machine("blue")) << "a changed entity is a change of the directory";
}

TEST_P(FibReadyCoordinator, UntilBothHalvesAreReadyThereAreContainersAndNoMachines) {
    start();
    vrfIs("red");
    vrfIs("default");
    const auto none = [&] {
        EXPECT_EQ(flag("red"), "0");
        EXPECT_EQ(flag("default"), "0");
        EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    };
    none();
    const TestSupport::TraceCapture from;
    tracking->nhgReadyIs(true);
    EXPECT_THAT(texts(from), ElementsAre("nhgNhFecReady condition not met"));
    none();
    tracking->nhReadyIs(true);
    EXPECT_TRUE(machine("red"));
    EXPECT_TRUE(machine("default"));
}

TEST_P(FibReadyCoordinator, EitherHalfMayComeFirst) {
    start();
    vrfIs("red");
    tracking->nhReadyIs(true);
    EXPECT_FALSE(machine("red"));
    tracking->nhgReadyIs(true);
    EXPECT_TRUE(machine("red"));
}

TEST_P(FibReadyCoordinator, WhatWasThereBeforeTheStartIsConsideredAtTheStart) {
    halvesReadyAre();
    vrfIs("red");
    vrfIs("default");
    {
        Mesa::DirMounter others{mesa,
                                Mesa::fibTableDirPath(GetParam()),
                                GetParam() == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                                           : Mesa::Fib6::RouteStatus::kType};
        others.neverUnmountIs(true);
        others.initialize();
        settle();
    }
    start();
    EXPECT_TRUE(machine("red")) << "its table had been read in";
    settle();
    EXPECT_TRUE(machine("default"));
    EXPECT_EQ(flag("red"), "0");
}

TEST_P(FibReadyCoordinator, ADefaultVrfsTableThatHasBeenReadInIsTakenAtTheStart) {
    const auto published = table("default");
    mesa->tableIs(Mesa::fibTableMountPath(GetParam(), "default", "rib"),
                  GetParam() == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                             : Mesa::Fib6::RouteStatus::kType);
    publish();
    const TestSupport::TraceCapture from;
    start();
    EXPECT_NE(sut->defaultRouteStatusCollectionControl(), nullptr);
    EXPECT_THAT(texts(from),
                ElementsAre("addressFamily: " + family(),
                            "Default VRF mount ready",
                            "nhgNhFecReady condition not met"));
}

TEST_P(FibReadyCoordinator, ATableCountsAsMountedOnceItHasBeenReadIn) {
    halvesReadyAre();
    vrfIs("red");
    start();
    EXPECT_FALSE(machine("red"));
    EXPECT_THAT(sut->mountedPaths()->paths(), IsEmpty());
    settle();
    EXPECT_TRUE(machine("red"));
}

TEST_P(FibReadyCoordinator, AVrfThatNobodyDeclaresReadyIsTraced) {
    halvesReadyAre();
    start();
    const TestSupport::TraceCapture from;
    EXPECT_TRUE(table("red").valid());
    publish();
    EXPECT_THAT(texts(from),
                ElementsAre("addressFamily: " + family() + ", path: " + sut->getEntityPath("red"),
                            considered("red"),
                            "No entity found for vrfName: red"));
    EXPECT_EQ(flag("red"), "0");
}

TEST_P(FibReadyCoordinator, AVrfWithoutItsTableIsTracedAndWaitsForIt) {
    halvesReadyAre();
    start();
    const TestSupport::TraceCapture from;
    gatedIs("red", true);
    publish();
    const auto traced = texts(from);
    ASSERT_GE(traced.size(), 3u);
    EXPECT_EQ(traced[0], "Added vrfName: red");
    EXPECT_EQ(traced[1], considered("red"));
    EXPECT_EQ(traced[2], "vrfName: red not in mountedPaths::pathHas");
    EXPECT_FALSE(machine("red"));
    EXPECT_TRUE(table("red").valid());
    publish();
    EXPECT_TRUE(machine("red"));
}

TEST_P(FibReadyCoordinator, ATableOfTheOtherFamilyIsNotWaitedFor) {
    halvesReadyAre();
    start();
    gatedIs("red", true);
    const Family other = GetParam() == Family::ipv4 ? Family::ipv6 : Family::ipv4;
    EXPECT_TRUE(StateSyncedFixture::table(other, "red").valid());
    EXPECT_TRUE(StateSyncedFixture::table(other, "default").valid());
    gatedIs("default", true);
    publish();
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
}

TEST_P(FibReadyCoordinator, TheDefaultVrfHasItsOwnMount) {
    halvesReadyAre();
    start();
    gatedIs("default", true);
    // A table that bears its name among those of the other VRFs is none of its.
    const std::string inDirectory = Mesa::fibTableDirPath(GetParam()) + "/default";
    ASSERT_NE(writer->tableIs(inDirectory,
                              GetParam() == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                                         : Mesa::Fib6::RouteStatus::kType,
                              Store::TableKind::table),
              0u);
    publish();
    ASSERT_TRUE(sut->mountedPaths()->pathHas(inDirectory));
    EXPECT_FALSE(machine("default"));
    const TestSupport::TraceCapture from;
    EXPECT_TRUE(table("default").valid());
    publish();
    EXPECT_TRUE(machine("default"));
    EXPECT_EQ(sut->defaultRouteStatusCollectionControl(),
              mesa->entity<Mesa::Table>(sut->getEntityPath("default"))->collectionControl());
    EXPECT_THAT(texts(from), ElementsAre("Default VRF mount ready", considered("default")));
}

TEST_P(FibReadyCoordinator, ADefaultVrfsTableThatGoesIsNoLongerMounted) {
    halvesReadyAre();
    start();
    EXPECT_TRUE(table("default").valid());
    publish();
    ASSERT_NE(sut->defaultRouteStatusCollectionControl(), nullptr);
    const TestSupport::TraceCapture from;
    Mesa::tableDel(*writer, sut->getEntityPath("default"));
    publish();
    EXPECT_EQ(sut->defaultRouteStatusCollectionControl(), nullptr);
    EXPECT_THAT(texts(from), ElementsAre("Default VRF mount not ready"));
    gatedIs("default", true);
    publish();
    EXPECT_FALSE(machine("default"));
    EXPECT_TRUE(table("default").valid());
    publish();
    EXPECT_TRUE(machine("default"));
}

TEST_P(FibReadyCoordinator, WhatIsMountedAsSomethingElseIsNoRouteTable) {
    halvesReadyAre();
    const char* const other =
        GetParam() == Family::ipv4 ? Mesa::Fib6::RouteStatus::kType : Mesa::Fib::RouteStatus::kType;
    for (const char* const vrf : {"default", "red"}) {
        const std::string path = Mesa::fibTableMountPath(GetParam(), vrf, "rib");
        ASSERT_NE(writer->tableIs(path, other, Store::TableKind::table), 0u);
        mesa->tableIs(path, other);
        gatedIs(vrf, true);
    }
    publish();
    start();
    settle();
    ASSERT_TRUE(sut->mountedPaths()->pathHas(sut->getEntityPath("red")));
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    EXPECT_EQ(flag("red"), "0");
    EXPECT_EQ(flag("default"), "0");
}

TEST_P(FibReadyCoordinator, ATableThatHasQuiescedBeforeItsMachineLeavesNoMachineBehind) {
    halvesReadyAre();
    start();
    for (const char* const vrf : {"default", "red"}) {
        auto routes = table(vrf);
        routes.quiescedIs(true);
        publish();
        EXPECT_EQ(flag(vrf), "0");
        gatedIs(vrf, true);
        publish();
        EXPECT_EQ(flag(vrf), "1");
        EXPECT_FALSE(machine(vrf));
        EXPECT_EQ(task(std::string{"stateSyncedTimerTask-"} + vrf), std::nullopt);
    }
}

TEST_P(FibReadyCoordinator, ATableThatQuiescesIsDeclaredSyncedAndItsMachineGoes) {
    halvesReadyAre();
    start();
    vrfIs("red");
    const auto waiting = task("stateSyncedTimerTask-red");
    ASSERT_TRUE(waiting);
    EXPECT_EQ(waiting->priority, 3);
    auto routes = table("red");
    routes.quiescedIs(true);
    publish();
    EXPECT_EQ(flag("red"), "1");
    EXPECT_FALSE(machine("red"));
    EXPECT_EQ(task("stateSyncedTimerTask-red"), std::nullopt);
    const TestSupport::TraceCapture from;
    sut->handleGatedFibReady("red");
    EXPECT_THAT(texts(from), ElementsAre("Added vrfName: red", considered("red")))
        << "no second machine that declares it again";
}

TEST_P(FibReadyCoordinator, ATableThatNeverQuiescesIsDeclaredSyncedByTheTimer) {
    halvesReadyAre();
    start();
    vrfIs("red");
    advance(kDelay - seconds{1});
    EXPECT_EQ(flag("red"), "0");
    advance(seconds{1});
    EXPECT_EQ(flag("red"), "1");
    EXPECT_FALSE(machine("red"));
    EXPECT_EQ(task("stateSyncedTimerTask-red"), std::nullopt);
    auto routes = table("red");
    routes.quiescedIs(true);
    publish();
    EXPECT_EQ(flag("red"), "1");
    EXPECT_FALSE(machine("red"));
}

TEST_P(FibReadyCoordinator, ASecondQualifyingEventChangesNothing) {
    halvesReadyAre();
    start();
    vrfIs("red");
    const auto first = sut->quiescedCoordinatorSm().at("red");
    advance(seconds{300});
    sut->handleNhgNhReadyState();
    sut->handleGatedFibReady("red");
    sut->handlePath(sut->getEntityPath("red"));
    gatedIs("red", false);
    publish();
    gatedIs("red", true);
    publish();
    EXPECT_EQ(sut->quiescedCoordinatorSm().at("red"), first);
    advance(seconds{300});
    EXPECT_EQ(flag("red"), "1") << "since the first event";
}

TEST_P(FibReadyCoordinator, OnceAVrfIsSyncedFurtherEventsChangeNothing) {
    halvesReadyAre();
    start();
    vrfIs("red");
    advance(kDelay);
    ASSERT_EQ(flag("red"), "1");
    const auto red = container("red");
    const TestSupport::TraceCapture from;
    sut->handleNhgNhReadyState();
    sut->handleGatedFibReady("red");
    sut->handlePath(sut->getEntityPath("red"));
    EXPECT_THAT(texts(from),
                ElementsAre(considered("default"),
                            "No entity found for vrfName: default",
                            considered("red"),
                            "Added vrfName: red",
                            considered("red"),
                            "addressFamily: " + family() + ", path: " + sut->getEntityPath("red"),
                            considered("red")));
    EXPECT_EQ(container("red"), red);
    EXPECT_EQ(flag("red"), "1");
    EXPECT_FALSE(machine("red"));
    gatedIs("red", false);
    publish();
    EXPECT_EQ(flag("red"), "1") << "never lowered";
}

TEST_P(FibReadyCoordinator, OneFamilysFlagDoesNotCountForTheOther) {
    halvesReadyAre();
    start();
    const Family other = GetParam() == Family::ipv4 ? Family::ipv6 : Family::ipv4;
    setSyncedState(stateSyncedDir(), other, Vrf::VrfName{"red"});
    vrfIs("red");
    EXPECT_TRUE(machine("red"));
    advance(kDelay);
    EXPECT_EQ(flags("red"), "11");
}

TEST_P(FibReadyCoordinator, AVrfThatIsRemovedWhileItWaitsStartsAfreshWhenItComesAgain) {
    halvesReadyAre();
    start();
    vrfIs("red");
    advance(seconds{500});
    gatedDel("red");
    const TestSupport::TraceCapture from;
    publish();
    EXPECT_THAT(texts(from), Contains("Deleted vrfName: red"));
    EXPECT_FALSE(machine("red"));
    EXPECT_EQ(flag("red"), "-");
    EXPECT_EQ(task("stateSyncedTimerTask-red"), std::nullopt);
    ASSERT_TRUE(sut->mountedPaths()->pathHas(sut->getEntityPath("red")));
    sut->handleNhgNhReadyState();
    EXPECT_EQ(flag("red"), "-") << "although its table is still there";
    advance(seconds{200});
    EXPECT_EQ(flag("red"), "-") << "the old timer is gone";
    gatedIs("red", false);
    publish();
    EXPECT_EQ(flag("red"), "0");
    EXPECT_FALSE(machine("red"));
    vrfIs("red");
    EXPECT_EQ(flag("red"), "0");
    advance(kDelay - seconds{1});
    EXPECT_EQ(flag("red"), "0");
    advance(seconds{1});
    EXPECT_EQ(flag("red"), "1");
}

TEST_P(FibReadyCoordinator, AVrfThatIsRemovedWithItsTableWaitsForTheNewOneToQuiesce) {
    halvesReadyAre();
    start();
    ASSERT_NO_FATAL_FAILURE(syncedIs("red"));
    gatedDel("red");
    Mesa::tableDel(*writer, sut->getEntityPath("red"));
    publish();
    EXPECT_EQ(flag("red"), "-");
    EXPECT_TRUE(sut->mountedPaths()->pathHas(sut->getEntityPath("red"))) << "never unmounted";
    ASSERT_NO_FATAL_FAILURE(syncedIs("red"));
}

TEST_P(FibReadyCoordinator, APathThatHasGoneAgainIsOnlyTraced) {
    halvesReadyAre();
    start();
    const TestSupport::TraceCapture from;
    sut->handlePath("red");
    EXPECT_THAT(texts(from), ElementsAre("addressFamily: " + family() + ", path: red"));
    EXPECT_EQ(flag("red"), "-");
}

TEST_P(FibReadyCoordinator, AnOverlongNameCostsOnlyItself) {
    halvesReadyAre();
    start();
    const std::string fits(100, 'm');
    const std::string tooLong(101, 'm');
    for (const std::string& vrf : {std::string{"a"}, fits, tooLong, std::string{"z"}}) {
        gatedIs(vrf, false);
        ASSERT_NE(writer->tableIs(Mesa::fibTableDirPath(GetParam()) + "/" + vrf,
                                  GetParam() == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                                             : Mesa::Fib6::RouteStatus::kType,
                                  Store::TableKind::table),
                  0u);
    }
    publish();
    const auto failures = reader->sinkFailures();
    for (const std::string& vrf : {std::string{"a"}, fits, tooLong, std::string{"z"}}) {
        gatedIs(vrf, true);
    }
    const TestSupport::TraceCapture from;
    publish();
    EXPECT_TRUE(machine("a"));
    EXPECT_TRUE(machine(fits));
    EXPECT_FALSE(machine(tooLong));
    EXPECT_TRUE(machine("z")) << "behind it";
    EXPECT_EQ(flag(tooLong), "0");
    EXPECT_THAT(texts(from),
                Contains("vrfName: " + tooLong + ": Vel::String::bytes > maxLength() not allowed"));
    EXPECT_EQ(reader->sinkFailures(), failures);
    sut = nullptr;
    start();
    EXPECT_TRUE(machine("z")) << "nor does it at the start";
    advance(kDelay);
    EXPECT_EQ(flag("a"), "1");
    EXPECT_EQ(flag(fits), "1");
    EXPECT_EQ(flag(tooLong), "0");
}

TEST_P(FibReadyCoordinator, WithoutADirectoryOfGatedEntitiesNoVrfIsReady) {
    halvesReadyAre();
    EXPECT_TRUE(table("red").valid());
    EXPECT_TRUE(table("default").valid());
    gatedDir = nullptr;
    start();
    publish();
    EXPECT_EQ(flag("red"), "0");
    EXPECT_EQ(flag("default"), "0");
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    sut->handleGatedFibReady("red");
    EXPECT_EQ(flag("red"), "-");
}

TEST_P(FibReadyCoordinator, LetGoOfItTakesItsMachinesAlongAndLeavesTheFlags) {
    halvesReadyAre();
    start();
    vrfIs("red");
    advance(kDelay);
    vrfIs("blue");
    ASSERT_TRUE(machine("blue"));
    auto blue = sut->quiescedCoordinatorSm().at("blue");
    sut->hasNotificationActiveIs(false);
    sut->handleCleanup();
    EXPECT_FALSE(blue->hasNotificationActive());
    blue = nullptr;
    EXPECT_EQ(task("stateSyncedTimerTask-blue"), std::nullopt);
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    const TestSupport::TraceCapture from;
    tracking->nhReadyIs(false);
    vrfIs("green");
    vrfIs("default");
    gatedDel("blue");
    publish();
    EXPECT_THAT(texts(from), IsEmpty()) << "it is switched off";
    EXPECT_EQ(flag("red"), "1");
    EXPECT_EQ(flag("blue"), "0");
    sut = nullptr;
    advance(kDelay);
    EXPECT_EQ(flag("blue"), "0");
}

TEST_P(FibReadyCoordinator, StartedAgainEverythingComesBack) {
    halvesReadyAre();
    start();
    vrfIs("red");
    vrfIs("blue");
    auto routes = table("red");
    routes.quiescedIs(true);
    publish();
    sut = nullptr;
    gatedDel("blue");
    Mesa::tableDel(*writer, Mesa::fibTableMountPath(GetParam(), "blue", "rib"));
    publish();
    start();
    EXPECT_EQ(flag("red"), "1") << "it has quiesced";
    EXPECT_EQ(flag("blue"), "-");
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
}

TEST_P(FibReadyCoordinator, AReplacedStoreSaysEverythingAnew) {
    halvesReadyAre();
    start();
    ASSERT_NO_FATAL_FAILURE(syncedIs("red"));
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    writer = makeWriter();
    state = Hubdb::Publisher{*writer};
    publish();
    EXPECT_EQ(flag("red"), "-") << "its entity went";
    ASSERT_NO_FATAL_FAILURE(syncedIs("red"));
}

TEST_P(FibReadyCoordinator, AFlagIsNotAheadOfTheRecordsThatItSpeaksOf) {
    halvesReadyAre();
    start();
    vrfIs("red");
    auto routes = table("red");
    const auto red = Mesa::fibTableMountPath(GetParam(), "red", "rib");
    const auto mounted = mesa->entity<Mesa::TypedTable<Nexo::IpPrefix, Mesa::FibRoute>>(red);
    std::vector<std::string> order;
    const auto onKey = mounted->onKey().subscribe(
        [&](const Nexo::IpPrefix& /*prefix*/) { order.push_back("route " + flag("red")); });
    const auto prefix =
        *Nexo::IpPrefix::parse(GetParam() == Family::ipv4 ? "10.0.0.0/8" : "2001:db8::/32");
    routes.set(prefix, {FecId{41}, OriginProtocol::unset});
    routes.quiescedIs(true);
    publish();
    EXPECT_THAT(order, ElementsAre("route 0"));
    EXPECT_EQ(flag("red"), "1");
}

TEST_P(FibReadyCoordinator, MessagesCarryTheFunctionNamesAndLevelsOfTheirHandlers) {
    const TestSupport::TraceCapture from;
    start();
    halvesReadyAre();
    gatedIs("red", true);
    publish();
    EXPECT_TRUE(table("red").valid());
    EXPECT_TRUE(table("default").valid());
    publish();
    gatedDel("red");
    publish();
    std::map<std::string, std::string> functions;
    for (const Blink::Message& message : from.messages()) {
        if (message.handle != "PelStateSyncedSm") { continue; }
        EXPECT_EQ(message.level, 9) << message.text;
        functions[message.text] = message.function;
    }
    const std::map<std::string, std::string> expected{
        {"addressFamily: " + family(), "handleInitialized"},
        {"nhgNhFecReady condition not met", "handleNhgNhReadyState"},
        {"Default VRF mount not ready", "handleDefaultVrfMount"},
        {"Default VRF mount ready", "handleDefaultVrfMount"},
        {"addressFamily: " + family() + ", path: " + sut->getEntityPath("red"), "handlePath"},
        {"Added vrfName: red", "handleGatedFibReady"},
        {"Deleted vrfName: red", "handleGatedFibReady"},
        {considered("default"), "maybeSetSyncedState"},
        {considered("red"), "maybeSetSyncedState"},
        {"No entity found for vrfName: default", "maybeSetSyncedState"},
        {"vrfName: red not in mountedPaths::pathHas", "maybeSetSyncedState"},
    };
    EXPECT_EQ(functions, expected);
}

TEST_P(FibReadyCoordinator, AThousandVrfsAreDeclaredSyncedEachByItself) {
    constexpr int kVrfs = 1000;
    const auto name = [](int i) { return "vrf" + std::to_string(i); };
    halvesReadyAre();
    start();
    for (int i = 0; i < kVrfs; ++i) {
        gatedIs(name(i), false);
        EXPECT_TRUE(table(name(i)).valid());
    }
    publish();
    EXPECT_EQ(stateSyncedDir()->size(), kVrfs + 1u);
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    for (int i = 0; i < kVrfs; ++i) { gatedIs(name(i), true); }
    publish();
    EXPECT_EQ(sut->quiescedCoordinatorSm().size(), std::size_t{kVrfs});
    for (int i = 0; i < kVrfs; i += 2) {
        auto routes = table(name(i));
        routes.quiescedIs(true);
    }
    publish();
    EXPECT_EQ(sut->quiescedCoordinatorSm().size(), std::size_t{kVrfs / 2});
    EXPECT_EQ(flag(name(0)), "1");
    EXPECT_EQ(flag(name(1)), "0");
    advance(kDelay);
    EXPECT_THAT(sut->quiescedCoordinatorSm(), IsEmpty());
    for (int i = 0; i < kVrfs; ++i) { EXPECT_EQ(flag(name(i)), "1") << i; }
}

INSTANTIATE_TEST_SUITE_P(,
                         FibReadyCoordinator,
                         testing::Values(Nexo::AddressFamily::ipv4, Nexo::AddressFamily::ipv6),
                         [](const auto& row) {
                             return std::string{row.param == Nexo::AddressFamily::ipv4 ? "Ipv4"
                                                                                       : "Ipv6"};
                         });

}  // namespace
}  // namespace Pel::Oc
