#include "forwarder/Scenario/ScenarioPublish.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

#include "platform/Blink/Trace.h"
#include "platform/Store/Writer.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("ForwarderScenario");

namespace Pel::Forwarder {

namespace {

constexpr std::size_t kBatch = 512;  // elements asked of the source at once

/// Writes one change.
struct Put {
    FlatStore& store;
    void operator()(const VrfItem& item) { store.vrfIs(FlatVrf{item.id.value(), item.name}); }
    void operator()(const VtisItem& item) { store.vtisIs(item.record); }
    void operator()(const UdpPortsItem& item) { store.udpPortsIs(item.source, item.record); }
    void operator()(const DecapGroupsItem& item) { store.decapGroupsIs(item.source, item.record); }
    void operator()(const NextHopItem& item) { store.nextHopIs(item.entry, item.content); }
    void operator()(const FecItem& item) { store.fecIs(item.id, item.entry, item.content); }
    void operator()(const RouteItem& item) {
        store.routeIs(item.key.vrf, item.key.prefix, item.route);
    }
    void operator()(const CounterItem& item) {
        const Traffic traffic{item.packets.value_or(0), item.octets.value_or(0)};
        store.counters().set(item.index, {traffic, {}});
    }
    void operator()(const CounterDel& item) { store.counters().erase(item.index); }
    void operator()(const RouteDel& item) { store.routeDel(item.key.vrf, item.key.prefix); }
    void operator()(const FecDel& item) { store.fecDel(item.id); }
    void operator()(const NextHopDel& item) { store.nextHopDel(item.index.value()); }
    void operator()(const VrfIdDel& item) { store.vrfIdDel(item.id); }
    void operator()(const VrfTablesDel& item) { store.vrfTablesDel(item.name); }
    void operator()(const FecReadyItem& item) { store.fecReadyIs(item.ready); }
    void operator()(const QuiescedItem& item) {
        store.quiescedIs(item.vrf, item.family, item.quiesced);
    }
    void operator()(const FibReadyItem& item) { store.fibReadyIs(item.vrf, item.ready); }
};

}  // namespace

ScenarioPublish::ScenarioPublish(ChangeSource& source,
                                 Store::Writer& writer,
                                 const Kiln::Clock& clock,
                                 unsigned cellId)
    : source_{source},
      writer_{writer},
      clock_{clock},
      commit_{writer, clock},
      refresh_{clock},
      cellId_{cellId} {}

std::string ScenarioPublish::open() {
    VEL_ASSERT(store_ == nullptr);
    auto store = std::make_unique<FlatStore>(writer_, cellId_);
    const bool valid = store->valid();
    std::string error = writer_.commit();
    if (!error.empty()) { return error; }
    if (!valid) { return "a table of the store is of another type"; }
    if (error = store->sourceIs("scenario"); !error.empty()) { return error; }
    store_ = std::move(store);
    compare();
    const std::uint64_t firstFree = source_.firstFreeIndex();
    if (store_->firstFreeIndex() < firstFree) { store_->firstFreeIndexIs(firstFree); }
    error = writer_.commit();
    if (!error.empty()) { store_.reset(); }
    return error;
}

/// Finds what has to go. It is deleted after the description has been published, when nothing refers to it any more.
void ScenarioPublish::compare() {
    store_->forEachVrfId([this](Vrf::VrfId id) {
        if (!source_.hasVrfId(id)) { stale_.emplace_back(VrfIdDel{id}); }
    });
    const std::vector<std::string> vrfs = store_->routeVrfs();
    for (const std::string& vrf : vrfs) {
        if (!source_.hasVrf(vrf)) { stale_.emplace_back(VrfTablesDel{vrf}); }
    }
    for (const std::string& source : store_->udpPortSources()) {
        if (!source_.hasUdpPorts(source)) { stale_.emplace_back(UdpPortsItem{source, {}}); }
    }
    for (const std::string& source : store_->decapGroupSources()) {
        if (!source_.hasDecapGroups(source)) { stale_.emplace_back(DecapGroupsItem{source, {}}); }
    }
    store_->forEachNextHop([this](Stash::OcNextHopIndex index) {
        if (!source_.hasNextHop(index)) { stale_.emplace_back(NextHopDel{index}); }
    });
    store_->forEachFec([this](Pel::FecId id) {
        if (!source_.hasFec(id)) { stale_.emplace_back(FecDel{id}); }
    });
    store_->counters().forEach([this](FlexCounters::CounterIndex index) {
        if (!source_.hasCounter(index)) { stale_.emplace_back(CounterDel{index}); }
    });
    for (const std::string& vrf : vrfs) {
        RouteKey key{vrf, {}};
        store_->forEachRoute(vrf, [&](const Nexo::IpPrefix& prefix) {
            key.prefix = prefix;
            if (!source_.hasRoute(key)) { stale_.emplace_back(RouteDel{key}); }
        });
    }
    TRACE7("{} elements of the store are not in the scenario", stale_.size());
}

std::optional<Kiln::TimePoint> ScenarioPublish::wakeAt() const {
    if (commit_.wakeAt()) { return commit_.wakeAt(); }
    if (phase_ != Phase::changes || done_ < batch_.size()) { return clock_.now(); }
    const auto next = source_.nextDue();
    return next ? std::min(began_ + *next, refresh_.wakeAt()) : refresh_.wakeAt();
}

bool ScenarioPublish::run(absl::FunctionRef<bool()> mustYield) {
    VEL_ASSERT(store_ != nullptr);
    if (commit_.mustWait()) { return false; }
    for (;;) {
        const bool again = phase_ == Phase::changes && refresh_.due();
        const bool any = done_ < batch_.size() || fill();
        if (!any && !again) { return false; }
        if (done_ < batch_.size() && !writeSome()) { return false; }
        if (again && !refresh_.write(store_->counters(), commit_, kBatch)) { return false; }
        if (mustYield()) { return true; }
    }
}

/// The next elements to write. False when there are none for now; an empty batch means to ask again.
bool ScenarioPublish::fill() {
    batch_.clear();
    done_ = 0;
    switch (phase_) {
        case Phase::description:
            if (!source_.describe(batch_, kBatch)) { phase_ = Phase::removal; }
            return true;
        case Phase::removal: {
            const std::size_t count = std::min(kBatch, stale_.size());
            for (std::size_t i = 0; i < count; ++i) {
                batch_.push_back(std::move(stale_.back()));
                stale_.pop_back();
            }
            if (count > 0) { return true; }
            stale_ = {};
            phase_ = Phase::readiness;
            source_.describeReadiness(batch_);
            return true;
        }
        case Phase::readiness:
            TRACE7("the beginning is published");
            phase_ = Phase::changes;
            began_ = clock_.now();
            return true;
        case Phase::changes:
            source_.due(clock_.now() - began_, batch_, kBatch);
            return !batch_.empty();
    }
    return false;
}

/// One transaction's worth of the batch. False when it failed.
bool ScenarioPublish::writeSome() {
    std::size_t next = done_;
    while (next < batch_.size() && !commit_.full()) { std::visit(Put{*store_}, batch_[next++]); }
    if (!commit_.commit(next - done_)) { return false; }
    done_ = next;
    return true;
}

}  // namespace Pel::Forwarder
