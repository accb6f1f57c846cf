#include "model/View/NativeView.h"

#include <algorithm>
#include <utility>

#include "model/Aft/AftContainer.h"
#include "model/View/KeyPredicates.h"
#include "model/View/NativeCounters.h"
#include "model/View/NativeEntity.h"
#include "model/View/NativeList.h"
#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "model/Vrf/VrfName.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("NativeView");

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::KeyPredicate;
using Gale::Lane;
using Nexo::AddressFamily;

namespace {
/// With the key that stands beside the record.
std::vector<Gale::Leaf> keyed(std::string key, std::vector<Gale::Leaf> leaves) {
    leaves.insert(leaves.begin(), Gale::Leaf{std::move(key)});
    return leaves;
}
}  // namespace

NativeView::NativeView(Gale::ViewInputs inputs)
    : inputs_{std::move(inputs)}, instances_{Vrf::kDefaultVrfName}, routes_{instances_} {
    addKind(Kind::nextHops, Lane::nextHops, NativePaths::kNextHop, nextHop_.leaves());
    addKind(Kind::groups, Lane::groups, NativePaths::kGroup, group_.leaves());
    addKind(Kind::counters, Lane::counters, NativePaths::kCounter, counter_.leaves());
    addKind(Kind::fibReady, Lane::flags, NativePaths::kFibReady, fibReady_.leaves());
    addKind(Kind::gueEncapDestPort,
            Lane::flags,
            NativePaths::kGueEncapDestPort,
            gueEncapDestPort_.leaves());
    addKind(Kind::stateSynced,
            Lane::flags,
            NativePaths::kStateSynced,
            keyed("name", stateSynced_.leaves()));
    if (!inputs_.tables) { return; }
    addRouteKind(Kind::ipv4Default, AddressFamily::ipv4, true);
    addRouteKind(Kind::ipv4Vrf, AddressFamily::ipv4, false);
    addRouteKind(Kind::ipv6Default, AddressFamily::ipv6, true);
    addRouteKind(Kind::ipv6Vrf, AddressFamily::ipv6, false);
}

NativeView::~NativeView() = default;

void NativeView::addKind(Kind kind, Lane lane, std::string path, std::vector<Gale::Leaf> leaves) {
    indexOf_[static_cast<std::size_t>(kind)] = kinds_.size();
    served_.push_back(kind);
    kinds_.push_back({lane, std::move(path), std::move(leaves)});
}

void NativeView::addRouteKind(Kind kind, AddressFamily family, bool inDefault) {
    const std::string path = nativeRoutePath(family, inDefault);
    const bool served = std::any_of(
        inputs_.tablePrefixes.begin(), inputs_.tablePrefixes.end(), [&](const auto& prefix) {
            const std::string begin = NativePaths::kTables + prefix;
            return path.starts_with(begin + "/") || path.starts_with(begin + "[");
        });
    if (served) { addKind(kind, Lane::prefixes, path, keyed("prefix", routes_.leaves().leaves())); }
}

const std::vector<Gale::ModelData>& NativeView::models() const {
    static const std::vector<Gale::ModelData> none;
    return none;
}

const std::vector<std::string>& NativeView::emptyLeaves() const {
    static const std::vector<std::string> none;
    return none;
}

std::size_t NativeView::kindOf(Lane lane, const EntryKey& key) const {
    const auto kind = [&] {
        switch (lane) {
            case Lane::nextHops:
                return Kind::nextHops;
            case Lane::groups:
                return Kind::groups;
            case Lane::prefixes: {
                const bool inDefault =
                    OpenConfigKeys::instanceOf(key) == OpenConfigInstances::kDefault;
                if (OpenConfigKeys::familyOf(key) == AddressFamily::ipv4) {
                    return inDefault ? Kind::ipv4Default : Kind::ipv4Vrf;
                }
                return inDefault ? Kind::ipv6Default : Kind::ipv6Vrf;
            }
            case Lane::counters:
                return Kind::counters;
            case Lane::flags:
            case Lane::summaries:
                break;
        }
        if (key == kFibReadyKey) { return Kind::fibReady; }
        return key == kGueEncapDestPortKey ? Kind::gueEncapDestPort : Kind::stateSynced;
    };
    return indexOf_[static_cast<std::size_t>(kind())];
}

KeyPredicate NativeView::keyPredicate(std::size_t kind, const Gale::KeyValues& values) const {
    using namespace KeyPredicates;
    switch (served_[kind]) {
        case Kind::nextHops:
        case Kind::groups:
        case Kind::counters:
            return numberIs(values[0]);
        case Kind::fibReady:
        case Kind::gueEncapDestPort:
            break;  // have no key
        case Kind::stateSynced:
            return both(instanceIs(values[0], instances_), [](const EntryKey& key) {
                return key != kFibReadyKey && key != kGueEncapDestPortKey;
            });
        case Kind::ipv4Default:
            return prefixIs(values[0], AddressFamily::ipv4);
        case Kind::ipv6Default:
            return prefixIs(values[0], AddressFamily::ipv6);
        case Kind::ipv4Vrf:
            return both(instanceIs(values[0], instances_),
                        prefixIs(values[1], AddressFamily::ipv4));
        case Kind::ipv6Vrf:
            return both(instanceIs(values[0], instances_),
                        prefixIs(values[1], AddressFamily::ipv6));
    }
    return never();
}

Gale::Reference NativeView::referenceOf(std::uint64_t value) const {
    return NativeRoutes::referenceOf(value);
}

void NativeView::encodeValue(Lane lane,
                             const EntryKey& key,
                             std::uint64_t value,
                             Gale::PackedNotification& notification) const {
    VEL_ASSERT(lane == Lane::prefixes);
    routes_.encode(key, value, notification);
}

void NativeView::attach(SourceSink sink) {
    sink_ = std::move(sink);
    attachAft();
    attachGueEncapDestPort();
    sink_(std::make_unique<NativeStateSynced>(inputs_.root, instances_, stateSynced_));
    if (!inputs_.tables) { return; }
    tables_ = std::make_unique<RouteTables>(
        inputs_.tables,
        inputs_.tablePrefixes,
        [this](AddressFamily family, const std::string& vrf, const auto& table) {
            sink_(std::make_unique<NativeRouteTable>(
                table, family, instances_.number(vrf), routes_, groups_));
        });
    tables_->start();
}

void NativeView::attachAft() {
    Vel::Ref<Vel::Dir> dir = inputs_.root;
    for (const char* const name : {"OpenConfig", "afts"}) {
        dir = dir ? dir->entity<Vel::Dir>(name) : dir;
    }
    const auto aft = dir ? dir->entity<AftContainer>("aftContainer") : Vel::Ref<AftContainer>{};
    if (!aft) {
        TRACE5("no AFT container in the streamed tree: next hops and groups are not served");
        return;
    }
    const auto nextHops = aft->nextHops();
    if (nextHops) {
        sink_(std::make_unique<NativeList<NextHopContainer, NextHop, NextHopIndex>>(
            Lane::nextHops,
            NativePaths::kNextHop,
            nextHop_,
            nextHops,
            &NextHopContainer::nextHop,
            &NextHopContainer::onNextHopOrClear,
            &NextHopContainer::onProcessed));
    }
    groups_ = aft->nextHopGroups();
    if (groups_) {
        sink_(std::make_unique<NativeList<NextHopGroupContainer, NextHopGroup, NextHopGroupId>>(
            Lane::groups,
            NativePaths::kGroup,
            group_,
            groups_,
            &NextHopGroupContainer::nextHopGroup,
            &NextHopGroupContainer::onNextHopGroupOrClear,
            &NextHopGroupContainer::onProcessed));
    }
    if (auto counters = aft->nextHopCounters(); counters && nextHops) {
        sink_(std::make_unique<NativeCounters>(std::move(counters), nextHops, counter_));
    }
    if (auto fibReady = aft->fibReady()) {
        sink_(std::make_unique<NativeEntity<FibReadyContainer>>(
            kFibReadyKey,
            NativePaths::kFibReady,
            fibReady,
            fibReady_,
            std::initializer_list{&fibReady->onFecReady()}));
    }
}

void NativeView::attachGueEncapDestPort() {
    using Ports = Oc::PelNexthopGueEncapDestPort;
    const auto ports = inputs_.root->entity<Ports>(Ports::kName);
    if (!ports) { return; }
    sink_(std::make_unique<NativeEntity<Ports>>(
        kGueEncapDestPortKey,
        NativePaths::kGueEncapDestPort,
        ports,
        gueEncapDestPort_,
        std::initializer_list{&ports->onGueMplsEncapUdpDestPort(),
                              &ports->onGueIPv4EncapUdpDestPort(),
                              &ports->onGueIPv6EncapUdpDestPort()}));
}

void NativeView::detach() {
    tables_.reset();
    groups_ = nullptr;
    sink_ = nullptr;
}

void registerNativeView() {
    Gale::viewIs(NativePaths::kOrigin, [](const Gale::ViewInputs& inputs) {
        return std::make_unique<NativeView>(inputs);
    });
}

}  // namespace Pel::OcApi
