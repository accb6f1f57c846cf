#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/Aft/AftContainer.h"
#include "model/View/OpenConfigInstances.h"
#include "model/View/OpenConfigRoutes.h"
#include "model/View/RouteTables.h"
#include "platform/Gale/View.h"

namespace Pel::OcApi {

class OpenConfigInstanceList;
class OpenConfigStateSynced;
class OpenConfigSummaries;

/// The AFT as the OpenConfig models show it: next hops and groups of the tree's AftContainer, all
/// in the default network instance; the prefixes of each VRF's route tables in that VRF's instance,
/// with their summaries and whether they are synced.
///
/// The streamed tree ("AftExport") must hold its AftContainer when the view is attached. Route
/// tables come and go with the store: those below the given prefixes are mounted as they appear.
class OpenConfigView final : public Gale::View {
public:
    explicit OpenConfigView(Gale::ViewInputs inputs);
    ~OpenConfigView() override;

    const std::vector<Gale::ModelData>& models() const override;
    const std::vector<Gale::EntryKind>& kinds() const override;
    const std::vector<std::string>& emptyLeaves() const override;
    std::size_t kindOf(Gale::Lane lane, const Gale::EntryKey& key) const override;
    Gale::KeyPredicate keyPredicate(std::size_t kind, const Gale::KeyValues& values) const override;
    Gale::Reference referenceOf(std::uint64_t value) const override;
    void encodeValue(Gale::Lane lane,
                     const Gale::EntryKey& key,
                     std::uint64_t value,
                     Gale::PackedNotification& notification) const override;
    void attach(SourceSink sink) override;

private:
    void attachAft();
    void attachInstances();
    Vel::Ref<AftContainer> aft() const;
    template <class Source>
    Source* hand(std::unique_ptr<Source> source);

    const Gale::ViewInputs inputs_;
    OpenConfigInstances instances_;
    const OpenConfigRoutes routes_;
    SourceSink sink_;
    Vel::Ref<NextHopGroupContainer> groups_;          // null when the tree has none
    OpenConfigInstanceList* instanceList_ = nullptr;  // the provider's
    OpenConfigStateSynced* stateSynced_ = nullptr;    // the provider's
    OpenConfigSummaries* summaries_ = nullptr;        // the provider's
    std::unique_ptr<RouteTables> tables_;             // null when none are served
};

/// Registers the view with Gale under the origin "openconfig".
void registerOpenConfigView();

}  // namespace Pel::OcApi
