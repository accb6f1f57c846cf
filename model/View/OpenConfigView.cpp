#include "model/View/OpenConfigView.h"

#include <memory>
#include <utility>

#include "model/Aft/AftContainer.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/View/KeyPredicates.h"
#include "model/View/OpenConfigCounters.h"
#include "model/View/OpenConfigGroups.h"
#include "model/View/OpenConfigInstanceList.h"
#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigNextHops.h"
#include "model/View/OpenConfigPaths.h"
#include "model/View/OpenConfigStateSynced.h"
#include "model/View/OpenConfigSummaries.h"
#include "model/View/RouteTable.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("OpenConfigView");

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::KeyPredicate;

OpenConfigView::OpenConfigView(Gale::ViewInputs inputs)
    : inputs_{std::move(inputs)}, instances_{inputs_.defaultInstance}, routes_{instances_} {}

OpenConfigView::~OpenConfigView() = default;

const std::vector<Gale::ModelData>& OpenConfigView::models() const {
    return OpenConfigPaths::models();
}

const std::vector<Gale::EntryKind>& OpenConfigView::kinds() const {
    return OpenConfigPaths::kinds();
}

const std::vector<std::string>& OpenConfigView::emptyLeaves() const {
    return OpenConfigPaths::emptyLeaves();
}

std::size_t OpenConfigView::kindOf(Gale::Lane lane, const EntryKey& key) const {
    switch (lane) {
        case Gale::Lane::nextHops:
            return OpenConfigPaths::nextHops;
        case Gale::Lane::groups:
            return OpenConfigPaths::groups;
        case Gale::Lane::prefixes:
            return OpenConfigKeys::familyOf(key) == Nexo::AddressFamily::ipv4
                       ? OpenConfigPaths::ipv4Entries
                       : OpenConfigPaths::ipv6Entries;
        case Gale::Lane::counters:
            return OpenConfigPaths::counters;
        case Gale::Lane::summaries:
            return OpenConfigKeys::familyOf(key) == Nexo::AddressFamily::ipv4
                       ? OpenConfigPaths::ipv4Summaries
                       : OpenConfigPaths::ipv6Summaries;
        case Gale::Lane::flags:
            break;
    }
    return OpenConfigKeys::isStateSynced(key) ? OpenConfigPaths::stateSynced
                                              : OpenConfigPaths::instances;
}

KeyPredicate OpenConfigView::keyPredicate(std::size_t kind, const Gale::KeyValues& values) const {
    using namespace KeyPredicates;
    switch (kind) {
        case OpenConfigPaths::ipv4Entries:
            return both(instanceIs(values[0], instances_),
                        prefixIs(values[1], Nexo::AddressFamily::ipv4));
        case OpenConfigPaths::ipv6Entries:
            return both(instanceIs(values[0], instances_),
                        prefixIs(values[1], Nexo::AddressFamily::ipv6));
        case OpenConfigPaths::instances:
        case OpenConfigPaths::stateSynced:
            return instanceIs(values[0], instances_);
        case OpenConfigPaths::ipv4Summaries:
        case OpenConfigPaths::ipv6Summaries:
            return both(instanceIs(values[0], instances_), protocolIs(values[1]));
        default:
            break;
    }
    // All of the others are in the default one.
    if (values[0] != nullptr && *values[0] != instances_.name(OpenConfigInstances::kDefault)) {
        return never();
    }
    return numberIs(values[1]);
}

Gale::Reference OpenConfigView::referenceOf(std::uint64_t value) const {
    return OpenConfigRoutes::referenceOf(OpenConfigRoutes::unpack(value));
}

void OpenConfigView::encodeValue(Gale::Lane lane,
                                 const EntryKey& key,
                                 std::uint64_t value,
                                 Gale::PackedNotification& notification) const {
    VEL_ASSERT(lane == Gale::Lane::prefixes);
    routes_.encode(key, OpenConfigRoutes::unpack(value), notification);
}

/// Hands the source over, and answers where it is.
template <class Source>
Source* OpenConfigView::hand(std::unique_ptr<Source> source) {
    Source* const there = source.get();
    sink_(std::move(source));
    return there;
}

void OpenConfigView::attach(SourceSink sink) {
    sink_ = std::move(sink);
    attachAft();
    attachInstances();
    if (!inputs_.tables) { return; }
    summaries_ = hand(std::make_unique<OpenConfigSummaries>(instances_));
    tables_ = std::make_unique<RouteTables>(
        inputs_.tables,
        inputs_.tablePrefixes,
        [this](Nexo::AddressFamily family, const std::string& vrf, const auto& table) {
            const std::uint32_t number = instances_.number(vrf);
            // Marks its routes before the others mark what is said of them.
            sink_(std::make_unique<OpenConfigRouteTable>(
                table, family, number, routes_, groups_, *summaries_));
            instanceList_->tableIs(number, table);
            stateSynced_->tableIs(number, family, table);
        });
    tables_->start();
}

Vel::Ref<AftContainer> OpenConfigView::aft() const {
    Vel::Ref<Vel::Dir> dir = inputs_.root;
    for (const char* const name : {"OpenConfig", "afts"}) {
        dir = dir ? dir->entity<Vel::Dir>(name) : dir;
    }
    return dir ? dir->entity<AftContainer>("aftContainer") : Vel::Ref<AftContainer>{};
}

void OpenConfigView::attachAft() {
    const auto aft = this->aft();
    if (!aft || !aft->nextHops() || !aft->nextHopGroups()) {
        TRACE5("no AFT container in the streamed tree: next hops and groups are not served");
        return;
    }
    using GuePorts = OpenConfigNextHops::GuePorts;
    sink_(std::make_unique<OpenConfigNextHops>(
        aft->nextHops(), instances_, inputs_.root->entity<GuePorts>(GuePorts::kName)));
    groups_ = aft->nextHopGroups();
    sink_(std::make_unique<OpenConfigGroups>(groups_, instances_));
    if (auto counters = aft->nextHopCounters()) {
        sink_(
            std::make_unique<OpenConfigCounters>(std::move(counters), aft->nextHops(), instances_));
    }
}

void OpenConfigView::attachInstances() {
    instanceList_ = hand(std::make_unique<OpenConfigInstanceList>(instances_));
    OpenConfigStateSynced::Inputs inputs;
    inputs.root = inputs_.root;
    if (inputs_.mounted) {
        inputs.gated = Vel::refCast<Vel::Dir>(inputs_.mounted(GatedReady::FibReady::kDirPath));
    }
    if (const auto aft = this->aft()) { inputs.ready = aft->fibReady(); }
    inputs.tables = static_cast<bool>(inputs_.tables);
    stateSynced_ = hand(
        std::make_unique<OpenConfigStateSynced>(std::move(inputs), instances_, *instanceList_));
}

void registerOpenConfigView() {
    Gale::viewIs(OpenConfigPaths::kOrigin, [](const Gale::ViewInputs& inputs) {
        return std::make_unique<OpenConfigView>(inputs);
    });
}

}  // namespace Pel::OcApi
