#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Counters/CounterTable.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Route/RouteStatus.h"
#include "model/Vrf/VrfIdMap.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Stash/Manager.h"
#include "platform/Store/Reader.h"

namespace Pel::Forwarder {

/// What an agent sees of the store: its own mounts, brought up to date by look(). Texts, "none" for what is not there.
class StoreView {
public:
    explicit StoreView(const Store::Options& options);
    void look();
    /// The same without the reader's own look once a second: only what the bell told.
    void hear() { scheduler_->runUntilIdle(); }

    std::string nextHop(std::uint64_t index);
    std::string fec(std::uint64_t id);
    std::string route(const std::string& vrf, const std::string& prefix);
    std::string vrfName(std::uint32_t id);
    std::uint64_t counter(std::uint64_t fecId, std::uint32_t slot);
    /// "packets/octets" of a counter, or "none".
    std::string traffic(std::uint64_t index);
    /// How often the agent has been told of the counter.
    std::size_t told(std::uint64_t index) const;
    std::size_t counters() const { return counters_.keys().size(); }
    /// "true", "false" or "none".
    std::string fecReady() { return readyAt("hardware/pel/fecReadyStatus"); }
    std::string fibReady(const std::string& vrf) {
        return readyAt("cell/1/routing/fibReady/" + vrf);
    }
    /// What is said of a route table as a whole: "true", "false" or "none".
    std::string quiesced(const std::string& path);
    /// The tunnel interfaces: "Vxlan1 10.9.0.1/- 10:10010", a line each.
    std::string vtis();
    /// Payload type, port and mode of a source's UDP destination ports: "1:6635/1 3:6080/0".
    std::string udpPorts(const std::string& path);
    /// Name, payload type and port of a source's decap groups: "in:1/6635".
    std::string decapGroups(const std::string& path);
    /// Whether an entity of this path is there.
    bool entity(const std::string& path) { return state_.read(path).has_value(); }
    const Vel::Ref<Store::Reader>& reader() const { return reader_; }
    /// Grows with each change that a reader is told of.
    Store::Sequence position() const { return reader_->position(); }
    /// Everything, a line each.
    std::vector<std::string> everything();
    std::size_t nextHops() const { return set_.nextHop().keys().size(); }
    std::size_t fecs() const { return set_.fec().keys().size(); }
    std::vector<std::string> routeTables();

private:
    struct Ignored final : Store::Sink {
        void keyChanged(std::string_view) override {}
        void sweepBegun() override {}
        void sweepKey(std::string_view) override {}
        void sweepLater(std::string_view) override {}
        void sweepEnded() override {}
        void presentIs(bool) override {}
        void sweepSettled() override {}
    };
    struct Family {
        explicit Family(const std::string& vrf);
        Mesa::Fib::RouteStatus v4;
        Mesa::Fib6::RouteStatus v6;
    };
    std::string readyAt(const std::string& path);
    /// `show` of the record that an entity holds; "none".
    template <class Record, class Show>
    std::string shown(const std::string& path, Show show);

    Kiln::VirtualClock clock_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<Store::Reader> reader_;
    Vel::Ref<Stash::Manager> manager_;
    FlattenFecSet set_{FlattenFecSet::kPath};
    Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable counterKeys_;
    FlexCounters::CounterTable counters_{FlexCounters::CounterTable::kPath};
    std::map<std::uint64_t, std::size_t> told_;
    Vel::Subscription onCounter_;
    Vrf::VrfIdMap::Status vrfs_{Vrf::VrfIdMap::Status::kPath};
    Family default_{"default"};
    Family red_{"red"};
    Ignored ignored_;
    Store::Reader::Mount state_;
    Store::Reader::Mount controls_;
};

}  // namespace Pel::Forwarder
