#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "PelOpenConfig/PelStateSyncedSm.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Registration.h"
#include "model/Route/RouteStatus.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/test/StoreFixture.h"
#include "test/support/TraceCapture.h"

namespace Pel::Oc {

/// A forwarder that declares VRFs ready and publishes their route tables, and an agent's mounts of
/// that, over one real store.
class StateSyncedFixture : public Store::StoreFixture, private Hubdb::Mounter {
protected:
    using Family = Nexo::AddressFamily;

    StateSyncedFixture() {
        registerModelTypes();
        configurationOptions.directory = dir.path() / "config";
        hubdb = Vel::make<Hubdb::EntityManager>(
            "PelOpenConfig",
            1,
            scheduler,
            reader,
            Vel::make<Store::Reader>(scheduler, configurationOptions),
            mesa);
        const auto group = hubdb->mountGroup(*this);
        group->mount(hubdb->cellPath(GatedReady::FibReady::kDirPath), "Vel::Dir", "ri", 0);
        group->close(false, "", {});
        publish();
        gatedDir = hubdb->entity<Vel::Dir>(hubdb->cellPath(GatedReady::FibReady::kDirPath));
    }

    // The forwarder

    void gatedIs(const std::string& vrf, bool ready) {
        state.entityIs(gatedPath(vrf),
                       GatedReady::FibReady::kType,
                       Mesa::RecordCodec<ReadyRecord>::encode({ready}));
    }
    void gatedDel(const std::string& vrf) { state.entityDel(gatedPath(vrf)); }
    using RouteTable = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    /// Finds or makes the VRF's table.
    RouteTable table(Family family, const std::string& vrf) {
        return {*writer,
                Mesa::fibTableMountPath(family, vrf, "rib"),
                family == Family::ipv4 ? Mesa::Fib::RouteStatus::kType
                                       : Mesa::Fib6::RouteStatus::kType};
    }
    /// Lets the agent hear of what was written.
    void publish() {
        ASSERT_EQ(writer->commit(), "");
        settleAfterASecond();
    }

    // The agent

    void halvesReadyAre() {
        tracking->nhReadyIs(true);
        tracking->nhgReadyIs(true);
    }
    Vel::Ref<FibReadyCoordinatorSm> coordinator(Family family) {
        return fibReadyCoordinatorSmFactory(hubdb, scheduler, family, tracking, gatedDir);
    }
    Vel::Ref<Vel::Dir> stateSyncedDir() const {
        return hubdb->globalDir()
            ->entityIs<Vel::Dir>("PelOpenConfig")
            ->entityIs<Vel::Dir>("AftExport")
            ->entityIs<Vel::Dir>("stateSynced");
    }
    Vel::Ref<OcApi::StateSyncedContainer> container(const std::string& vrf) const {
        return stateSyncedDir()->entity<OcApi::StateSyncedContainer>(vrf);
    }
    /// "-" without a container, else both flags, IPv4's first: "01".
    std::string flags(const std::string& vrf) const {
        const auto synced = container(vrf);
        if (!synced) { return "-"; }
        return std::string{synced->ipv4Unicast() ? "1" : "0"} + (synced->ipv6Unicast() ? "1" : "0");
    }
    void advance(std::chrono::seconds by) {
        clock.advance(by);
        scheduler->runUntilIdle();
    }
    std::optional<Kiln::TaskStatistics> task(const std::string& name) const {
        const auto tasks = scheduler->tasks();
        const auto found = std::find_if(
            tasks.begin(), tasks.end(), [&](const auto& each) { return each.name == name; });
        return found == tasks.end() ? std::nullopt : std::optional{*found};
    }

    Store::Options configurationOptions{.directory = {}, .mapBytes = std::size_t{16} << 20};
    std::unique_ptr<Store::Writer> writer = makeWriter();
    Hubdb::Publisher state{*writer};
    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<Mesa::EntityManager> mesa = Vel::make<Mesa::EntityManager>(reader);
    Vel::Ref<Hubdb::EntityManager> hubdb;
    Vel::Ref<Vel::Dir> gatedDir;
    Vel::Ref<FecReadyTrackingState> tracking = Vel::make<FecReadyTrackingState>();

private:
    void doMountsComplete(Hubdb::MountStatus status,
                          const Vel::Ref<Hubdb::EntityManager>& /*entityManager*/) override {
        EXPECT_EQ(status, Hubdb::mountSuccess_);
    }
    std::string gatedPath(const std::string& vrf) const {
        return hubdb->cellPath(GatedReady::FibReady::kDirPath) + "/" + vrf;
    }
};

inline const char* familyName(Nexo::AddressFamily family) {
    return family == Nexo::AddressFamily::ipv4 ? "ipv4" : "ipv6";
}

/// One family's coordinator.
class FibReadyCoordinator : public StateSyncedFixture,
                            public testing::WithParamInterface<Nexo::AddressFamily> {
protected:
    void start() { sut = coordinator(GetParam()); }
    RouteTable table(const std::string& vrf) { return StateSyncedFixture::table(GetParam(), vrf); }
    /// A VRF that lacks nothing; its table has not quiesced.
    void vrfIs(const std::string& vrf) {
        gatedIs(vrf, true);
        EXPECT_TRUE(table(vrf).valid());
        publish();
    }
    /// The same until it is declared synced, after a wait for its table.
    void syncedIs(const std::string& vrf) {
        vrfIs(vrf);
        EXPECT_EQ(flag(vrf), "0");
        EXPECT_TRUE(machine(vrf));
        auto routes = table(vrf);
        routes.quiescedIs(true);
        publish();
        ASSERT_EQ(flag(vrf), "1");
    }
    /// "-" without a container, else this family's flag; the other one's is always down.
    std::string flag(const std::string& vrf) const {
        const std::string both = flags(vrf);
        if (both == "-") { return both; }
        const bool four = GetParam() == Family::ipv4;
        EXPECT_EQ(both[four ? 1 : 0], '0');
        return both.substr(four ? 0 : 1, 1);
    }
    bool machine(const std::string& vrf) const {
        return sut->quiescedCoordinatorSm().contains(vrf);
    }
    std::string family() const { return familyName(GetParam()); }
    std::string considered(const std::string& vrf) const {
        return "addressFamily: " + family() + ", vrfName: " + vrf;
    }
    std::vector<std::string> texts(const TestSupport::TraceCapture& from) const {
        return from.texts("PelStateSyncedSm");
    }

    Vel::Ref<FibReadyCoordinatorSm> sut;
};

}  // namespace Pel::Oc
