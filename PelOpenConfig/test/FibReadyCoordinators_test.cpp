#include "PelOpenConfig/test/StateSyncedFixture.h"

namespace Pel::Oc {
namespace {

using testing::IsEmpty;

/// Both families', as the export root starts them.
class FibReadyCoordinators : public StateSyncedFixture {
protected:
    void start() {
        v4 = coordinator(Family::ipv4);
        v6 = coordinator(Family::ipv6);
    }
    void vrfIs(const std::string& vrf) {
        gatedIs(vrf, true);
        for (const Family family : {Family::ipv4, Family::ipv6}) {
            EXPECT_TRUE(table(family, vrf).valid());
        }
    }
    void quiescedIs(Family family, const std::string& vrf) {
        auto routes = table(family, vrf);
        routes.quiescedIs(true);
    }

    Vel::Ref<FibReadyCoordinatorSm> v4;
    Vel::Ref<FibReadyCoordinatorSm> v6;
};

TEST_F(FibReadyCoordinators, WhatTheSecondStartEmptiesComesBackWithoutTheLossOfAFlag) {
    halvesReadyAre();
    for (const char* const vrf : {"blue", "red"}) {
        vrfIs(vrf);
        for (const Family family : {Family::ipv4, Family::ipv6}) {
            const auto routes = table(family, vrf);
            mesa->tableIs(Mesa::fibTableMountPath(family, vrf, "rib"),
                          family == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                                 : Mesa::Fib6::RouteStatus::kType);
        }
    }
    quiescedIs(Family::ipv4, "red");
    publish();
    v4 = coordinator(Family::ipv4);
    ASSERT_EQ(flags("red"), "10");
    ASSERT_EQ(flags("blue"), "00");
    const auto waiting = v4->quiescedCoordinatorSm().at("blue");
    v6 = coordinator(Family::ipv6);
    EXPECT_EQ(flags("red"), "10");
    EXPECT_EQ(flags("blue"), "00");
    EXPECT_EQ(v4->quiescedCoordinatorSm().at("blue"), waiting);
    EXPECT_FALSE(v4->quiescedCoordinatorSm().contains("red"));
    advance(std::chrono::seconds{600});
    EXPECT_EQ(flags("red"), "11");
    EXPECT_EQ(flags("blue"), "11");
}

TEST_F(FibReadyCoordinators, BeforeTheHalvesAreReadyTheContainersAreThere) {
    gatedIs("red", true);
    gatedIs("blue", false);
    publish();
    start();
    EXPECT_EQ(flags("red"), "00");
    EXPECT_EQ(flags("blue"), "00");
    EXPECT_EQ(stateSyncedDir()->size(), 2u);
}

TEST_F(FibReadyCoordinators, EachFamilyIsDeclaredByItself) {
    halvesReadyAre();
    start();
    vrfIs("red");
    publish();
    EXPECT_EQ(flags("red"), "00");
    quiescedIs(Family::ipv6, "red");
    publish();
    EXPECT_EQ(flags("red"), "01");
    EXPECT_TRUE(v4->quiescedCoordinatorSm().contains("red"));
    EXPECT_FALSE(v6->quiescedCoordinatorSm().contains("red"));
    advance(std::chrono::seconds{600});
    EXPECT_EQ(flags("red"), "11");
}

TEST_F(FibReadyCoordinators, ARemovedVrfIsForgottenByBothAndStaysSo) {
    halvesReadyAre();
    start();
    vrfIs("red");
    quiescedIs(Family::ipv4, "red");
    publish();
    ASSERT_EQ(flags("red"), "10");
    gatedDel("red");
    publish();
    EXPECT_EQ(flags("red"), "-");
    EXPECT_THAT(v4->quiescedCoordinatorSm(), IsEmpty());
    EXPECT_THAT(v6->quiescedCoordinatorSm(), IsEmpty());
}

}  // namespace
}  // namespace Pel::Oc
