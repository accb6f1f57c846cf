#include "PelOpenConfig/PelStateSyncedSm.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/View/test/NativeServerFixture.h"

namespace Pel::Oc {
namespace {

using OcApi::Leaves;
using OcApi::NativeClient;

/// The coordinators' directory behind the server that an agent has.
class StateSyncedStream : public OcApi::NativeServerFixture {
protected:
    void coordinatorsAre() {
        v4 = fibReadyCoordinatorSmFactory(
            entityManager, scheduler, Nexo::AddressFamily::ipv4, tracking, gatedDir);
        v6 = fibReadyCoordinatorSmFactory(
            entityManager, scheduler, Nexo::AddressFamily::ipv6, tracking, gatedDir);
    }
    void gatedIs(const std::string& vrf) {
        const auto ready = Vel::make<GatedReady::FibReady>(vrf);
        ready->recordIs(Mesa::RecordCodec<ReadyRecord>::encode({true}));
        gatedDir->insert(ready);
    }

    Vel::Ref<Vel::Dir> gatedDir = Vel::make<Vel::Dir>("fibReady");
    Vel::Ref<FecReadyTrackingState> tracking = Vel::make<FecReadyTrackingState>();
    Vel::Ref<FibReadyCoordinatorSm> v4;
    Vel::Ref<FibReadyCoordinatorSm> v6;
};

TEST_F(StateSyncedStream, ASubscriberSeesWhatTheCoordinatorsWrite) {
    auto blue4 = routes("routing/vrf/status/blue");
    auto blue6 = routes("routing6/vrf/status/blue");
    commit();
    tracking->nhReadyIs(true);
    tracking->nhgReadyIs(true);
    gatedIs("blue");
    serve();
    NativeClient& client = stream({"/AftExport/stateSynced"});
    const std::string entry = "/AftExport/stateSynced[name=blue]";
    const auto untilShown = [&](const char* ipv4, const char* ipv6) {
        const Leaves expected{{"name", "\"blue\""}, {"ipv4Unicast", ipv4}, {"ipv6Unicast", ipv6}};
        until(
            client, [&] { return client.leaves(entry) == expected; }, "these flags");
    };
    coordinatorsAre();
    untilShown("false", "false");
    blue4.quiescedIs(true);
    commit();
    untilShown("true", "false");
    blue6.quiescedIs(true);
    commit();
    untilShown("true", "true");
    gatedDir->entityDel("blue");
    until(
        client, [&] { return !client.tree().contains(entry); }, "a deletion");
}

}  // namespace
}  // namespace Pel::Oc
