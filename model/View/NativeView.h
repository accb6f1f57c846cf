#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "model/Aft/FibReadyContainer.h"
#include "model/Aft/NextHop.h"
#include "model/Aft/NextHopCountersContainer.h"
#include "model/Aft/NextHopGroupContainer.h"
#include "model/Tunnel/PelNexthopGueEncapDestPort.h"
#include "model/View/NativeFlags.h"
#include "model/View/NativeLeaves.h"
#include "model/View/NativeRoutes.h"
#include "model/View/OpenConfigInstances.h"
#include "model/View/RouteTables.h"
#include "platform/Gale/View.h"

namespace Pel::OcApi {

/// The agent's tree and the route tables by their own names: /AftExport/... and /FibRoute/..., see
/// README.md. What is not there is not served: without tables there is no FibRoute.
///
/// Entries are made on demand only. The tree must hold its AftContainer when the view is attached.
class NativeView final : public Gale::View {
public:
    explicit NativeView(Gale::ViewInputs inputs);
    ~NativeView() override;

    const std::vector<Gale::ModelData>& models() const override;
    const std::vector<Gale::EntryKind>& kinds() const override { return kinds_; }
    const std::vector<std::string>& emptyLeaves() const override;
    std::size_t kindOf(Gale::Lane lane, const Gale::EntryKey& key) const override;
    Gale::KeyPredicate keyPredicate(std::size_t kind, const Gale::KeyValues& values) const override;
    Gale::Reference referenceOf(std::uint64_t value) const override;
    void encodeValue(Gale::Lane lane,
                     const Gale::EntryKey& key,
                     std::uint64_t value,
                     Gale::PackedNotification& notification) const override;
    bool lazy() const override { return true; }
    void attach(SourceSink sink) override;
    void detach() override;

private:
    /// Of what an entry can be.
    enum class Kind : std::size_t {
        nextHops,
        groups,
        counters,
        fibReady,
        gueEncapDestPort,
        stateSynced,
        ipv4Default,
        ipv4Vrf,
        ipv6Default,
        ipv6Vrf,
    };
    static constexpr std::size_t kKinds = 10;

    void addKind(Kind kind, Gale::Lane lane, std::string path, std::vector<Gale::Leaf> leaves);
    void addRouteKind(Kind kind, Nexo::AddressFamily family, bool inDefault);
    void attachAft();
    void attachGueEncapDestPort();

    const Gale::ViewInputs inputs_;
    OpenConfigInstances instances_;
    const NativeLeaves<NextHop> nextHop_;
    const NativeLeaves<NextHopGroup> group_;
    const NativeLeaves<NextHopCounter> counter_;
    const NativeLeaves<FibReadyContainer> fibReady_;
    const NativeLeaves<Oc::PelNexthopGueEncapDestPort> gueEncapDestPort_;
    const NativeLeaves<StateSyncedContainer> stateSynced_;
    const NativeRoutes routes_;
    std::vector<Gale::EntryKind> kinds_;
    std::vector<Kind> served_;                   // what kinds_ are
    std::array<std::size_t, kKinds> indexOf_{};  // in kinds_, of those that are served
    SourceSink sink_;                            // empty: detached
    Vel::Ref<NextHopGroupContainer> groups_;     // null when the tree has none
    std::unique_ptr<RouteTables> tables_;        // null when none are served
};

/// Registers the view with Gale under the origin "pel".
void registerNativeView();

}  // namespace Pel::OcApi
