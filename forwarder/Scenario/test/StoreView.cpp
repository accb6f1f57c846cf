#include "forwarder/Scenario/test/StoreView.h"

#include <fmt/format.h>

#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Readiness/ReadyRecord.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "platform/Hubdb/RecordFrame.h"
#include "platform/Mesa/CollectionControl.h"
#include "platform/Vel/Fields.h"

namespace Pel::Forwarder {

namespace {

/// `show(record)`, or what reading met.
template <class Record, class Show>
std::string destashed(const Stash::Handle& handle, Stash::Manager& manager, Show show) {
    try {
        const auto record = Stash::destash<Record>(handle, manager);
        return record ? show(*record) : "no record";
    } catch (const Stash::CorruptionDetectedException&) { return "corrupt"; }
}

}  // namespace

StoreView::Family::Family(const std::string& vrf)
    : v4{Mesa::fibTableMountPath(Nexo::AddressFamily::ipv4, vrf, "rib")},
      v6{Mesa::fibTableMountPath(Nexo::AddressFamily::ipv6, vrf, "rib")} {}

StoreView::StoreView(const Store::Options& options)
    : reader_{Vel::make<Store::Reader>(scheduler_, options)},
      manager_{Vel::make<Stash::Manager>(reader_)},
      counterKeys_{Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable::kPath} {
    set_.mountIs(*reader_, {"fec", "nextHop"});
    counterKeys_.mountIs(*reader_);
    counters_.mountIs(*reader_);
    onCounter_ = counters_.onKey().subscribe(
        [this](FlexCounters::CounterIndex index) { ++told_[index.value()]; });
    vrfs_.mountIs(*reader_);
    for (Family* family : {&default_, &red_}) {
        family->v4.mountIs(*reader_);
        family->v6.mountIs(*reader_);
    }
    state_ = reader_->mount("hubdb", "hubdb", Store::TableKind::state, ignored_);
    using Mesa::CollectionControls;
    controls_ = reader_->mount(
        CollectionControls::kPath, CollectionControls::kType, Store::TableKind::state, ignored_);
    look();
}

void StoreView::look() {
    clock_.advance(std::chrono::seconds{2});  // the reader looks once a second by itself
    scheduler_->runUntilIdle();
}

std::string StoreView::nextHop(std::uint64_t index) {
    const auto entry = set_.nextHop().entry(Stash::OcNextHopIndex{index});
    if (!entry) { return "none"; }
    const std::string group = std::to_string(entry->nhgId.value() & kFecNumberMask) + "[" +
                              std::to_string(entry->nhgEntryId.value()) + "] ";
    return group + destashed<Stash::FlattenFecNextHop>(
                       entry->handle, *manager_, [](const Stash::FlattenFecNextHop& record) {
                           return Vel::toString(record);
                       });
}

std::string StoreView::fec(std::uint64_t id) {
    const auto entry = set_.fec().entry(Pel::FecId{id});
    if (!entry) { return "none"; }
    std::string text = entry->topFec ? "top" : "bottom";
    if (entry->secondFlag) { text += " second"; }
    text += " programmed " + std::to_string(entry->programmedId) + " ";
    return text +
           destashed<Stash::FlattenFec>(entry->handle, *manager_, [](const Stash::FlattenFec& fec) {
               std::string members =
                   fec.nexthopGroupName() + "/" + std::to_string(fec.groupAttribute()) + ":";
               for (std::uint32_t i = 0; i < fec.nextHops(); ++i) {
                   members += " " + std::to_string(fec.nextHop(i).index.value()) + "w" +
                              std::to_string(fec.nextHop(i).weight);
               }
               return members;
           });
}

std::string StoreView::route(const std::string& vrf, const std::string& text) {
    Family& family = vrf == "red" ? red_ : default_;
    const auto prefix = *Nexo::IpPrefix::parse(text);
    const bool v6 = prefix.address().family() == Nexo::AddressFamily::ipv6;
    const auto route = v6 ? family.v6.read(prefix) : family.v4.read(prefix);
    return route ? std::to_string(fecNumber(route->fecId)) + " " +
                       std::string{identityName(route->originProtocol)}
                 : "none";
}

std::string StoreView::vrfName(std::uint32_t id) {
    const auto entry = vrfs_.read(Vrf::VrfId{id});
    return entry ? entry->vrfName.stringValue() : "none";
}

std::uint64_t StoreView::counter(std::uint64_t fecId, std::uint32_t slot) {
    const auto row = counterKeys_.read({NexthopGroupId{fecId}, NexthopGroupEntryIndex{slot}});
    return row ? row->counterIndex : 0;
}

std::string StoreView::traffic(std::uint64_t index) {
    const auto record = counters_.read(FlexCounters::CounterIndex{index});
    return record ? std::to_string(record->packets) + "/" + std::to_string(record->octets) : "none";
}

std::size_t StoreView::told(std::uint64_t index) const {
    const auto at = told_.find(index);
    return at == told_.end() ? 0 : at->second;
}

template <class Record, class Show>
std::string StoreView::shown(const std::string& path, Show show) {
    const auto bytes = state_.read(path);
    const auto frame = bytes ? Hubdb::RecordFrame::decode(*bytes) : std::nullopt;
    const auto record = frame ? Mesa::RecordCodec<Record>::decode(frame->record) : std::nullopt;
    return record ? show(*record) : "none";
}

std::string StoreView::readyAt(const std::string& path) {
    return shown<ReadyRecord>(
        path, [](const ReadyRecord& record) { return record.ready ? "true" : "false"; });
}

std::string StoreView::quiesced(const std::string& path) {
    const auto bytes = controls_.read(path);
    const auto record = bytes ? Mesa::CollectionControlRecord::decode(*bytes) : std::nullopt;
    return record ? record->quiesced ? "true" : "false" : "none";
}

std::string StoreView::vtis() {
    using Record = Vxlan::VtiStatusDirRecord;
    return shown<Record>(Vxlan::VtiStatusDir::kPath, [](const Record& record) {
        std::string text;
        for (const auto& [name, vti] : record.vti) {
            text += fmt::format("{}{} {}/{}",
                                text.empty() ? "" : "\n",
                                name.stringValue(),
                                vti.vtepAddr.stringValue(),
                                vti.vtepAddrV6.stringValue());
            for (const auto& [vlan, vni] : vti.vlanVniMap) {
                text += fmt::format(" {}:{}", vlan, vni);
            }
        }
        return text;
    });
}

std::string StoreView::udpPorts(const std::string& path) {
    using Record = L3::Tunnel::UdpDestinationPortConfigRecord;
    return shown<Record>(path, [](const Record& record) {
        std::string text;
        for (const auto& [type, port] : record.payloadTypeToPort) {
            text += fmt::format("{}{}:{}/{}",
                                text.empty() ? "" : " ",
                                static_cast<unsigned>(type),
                                port.port,
                                port.configMode);
        }
        return text;
    });
}

std::string StoreView::decapGroups(const std::string& path) {
    using Record = Tunnel::Decap::ConfigRecord;
    return shown<Record>(path, [](const Record& record) {
        std::string text;
        for (const auto& [name, group] : record.decapGroup) {
            text += fmt::format("{}{}:{}/{}",
                                text.empty() ? "" : " ",
                                name,
                                static_cast<unsigned>(group.payloadType),
                                group.dPort);
        }
        return text;
    });
}

std::vector<std::string> StoreView::routeTables() {
    std::vector<std::string> paths;
    for (const char* prefix : {"routing/", "routing6/"}) {
        for (const auto& table : reader_->tables(prefix)) { paths.push_back(table.path); }
    }
    return paths;
}

std::vector<std::string> StoreView::everything() {
    std::vector<std::string> lines;
    for (const auto index : set_.nextHop().keys()) {
        lines.push_back("next hop " + index.stringValue() + " " + nextHop(index.value()));
    }
    for (const auto id : set_.fec().keys()) {
        lines.push_back("FEC " + std::to_string(id.value()) + " " + fec(id.value()));
    }
    for (const std::string vrf : {"default", "red"}) {
        const Family& family = vrf == "red" ? red_ : default_;
        for (const auto& keys : {family.v4.keys(), family.v6.keys()}) {
            for (const auto& prefix : keys) {
                const std::string text = prefix.stringValue();
                lines.push_back(fmt::format("{} {} {}", vrf, text, route(vrf, text)));
            }
        }
    }
    for (const auto& key : counterKeys_.keys()) {
        const auto counted = counter(key.nhgId.value(), key.entryId.value());
        lines.push_back("counter of " + std::to_string(key.nhgId.value()) + "[" +
                        std::to_string(key.entryId.value()) + "] " + std::to_string(counted));
    }
    return lines;
}

}  // namespace Pel::Forwarder
