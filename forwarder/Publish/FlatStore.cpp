#include "forwarder/Publish/FlatStore.h"

#include <absl/container/btree_set.h>

#include <utility>

#include "forwarder/Publish/NextHopRecord.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Record/FlatBytes.h"
#include "model/Vrf/VrfIdMap_generated.h"
#include "platform/Blink/Trace.h"
#include "platform/Stash/ContentLayout.h"

BLINK_TRACE_HANDLE("ForwarderPublish");

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

using CounterKeyEntry = Routing::NexthopGroup::CounterKeyEntry;
using CounterKeyTable = Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;
using NumberCodec = Store::KeyCodec<std::uint64_t>;

constexpr const char* kIdentityPath = "forwarder/identity";
constexpr const char* kIdentityType = "Pel::Forwarder::Identity";
constexpr std::string_view kFirstFreeIndex = "firstFreeIndex";
constexpr std::string_view kSource = "source";

std::string collectionPath(const char* collection) {
    return std::string{FlattenFecSet::kPath} + "/" + collection;
}

NexthopGroupEntryCounterKey counterKey(const FlattenNextHopEntry& entry) {
    return {entry.nhgId, entry.nhgEntryId};
}

constexpr Store::TableId kRegistryTable = 0;  // table paths

template <class Key, class Visit>
void forEachKey(Store::Writer& writer, Store::TableId table, Visit visit) {
    writer.forEach(table, [&](std::string_view bytes, std::string_view) {
        if (const auto key = Store::KeyCodec<Key>::decode(bytes)) { visit(*key); }
        return true;
    });
}

/// Where the tunnel configuration of a source stands: the device's own, or that of a dynamic source.
template <class Entity>
std::string sourcePath(const std::string& source) {
    return source.empty() ? Entity::kPath : std::string{Entity::kDynamicPath} + "/" + source;
}

std::string routePath(const std::string& vrf, AddressFamily family) {
    return Mesa::fibTableMountPath(family, vrf, "rib");
}

const char* routeType(AddressFamily family) {
    return family == AddressFamily::ipv6 ? Mesa::Fib6::RouteStatus::kType
                                         : Mesa::Fib::RouteStatus::kType;
}

}  // namespace

FlatStore::FlatStore(Store::Writer& writer, unsigned cellId)
    : writer_{writer},
      cellId_{cellId},
      contents_{writer},
      fecs_{writer,
            contents_,
            collectionPath(FlattenFecSet::kFecCollection),
            FlattenFecSet::kFecType},
      nextHops_{writer,
                contents_,
                collectionPath(FlattenFecSet::kNextHopCollection),
                FlattenFecSet::kNextHopType},
      counterKeys_{writer, CounterKeyTable::kPath, CounterKeyTable::kType},
      counters_{writer},
      vrfMap_{writer, Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType},
      state_{writer},
      contentTable_{
          writer.tableIs(Stash::kContentPath, Stash::kContentType, Store::TableKind::content)},
      controls_{writer.tableIs(Mesa::CollectionControls::kPath,
                               Mesa::CollectionControls::kType,
                               Store::TableKind::state)},
      identity_{writer.tableIs(kIdentityPath, kIdentityType, Store::TableKind::content)} {}

bool FlatStore::valid() const {
    return contents_.valid() && fecs_.valid() && nextHops_.valid() && counterKeys_.valid() &&
           counters_.valid() && vrfMap_.valid() && state_.valid() && contentTable_ != 0 &&
           controls_ != 0 && identity_ != 0;
}

std::string FlatStore::sourceIs(std::string_view source) {
    const auto present = writer_.get(identity_, kSource);
    if (!present) {
        writer_.put(identity_, kSource, source);
        return {};
    }
    if (*present == source) { return {}; }
    const std::string store = writer_.environment().options().directory.string();
    return "the store " + store + " belongs to the source '" + std::string{*present} + "', not '" +
           std::string{source} +
           "': their next-hop numbers must not mix. Use another root, or "
           "remove " +
           store;
}

// Reading back

void FlatStore::readBack(Flatten& flatten) {
    flatten.firstFreeIndexIs(firstFreeIndex());
    for (const auto& [table, name] : vrfNames()) { flatten.restore(FlatVrf{table, name}); }
    using Dir = Vxlan::VtiStatusDir;
    const auto vtis = state_.entity(Dir::kPath, Dir::kType);
    const auto record =
        vtis ? Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::decode(*vtis) : std::nullopt;
    if (record) { flatten.restore(*record); }
    readBackNextHops(flatten);
    readBackFecs(flatten);
    for (const auto& [table, name] : vrfNames()) {
        readBackRoutes(flatten, name, AddressFamily::ipv4);
        readBackRoutes(flatten, name, AddressFamily::ipv6);
    }
}

absl::btree_map<std::uint32_t, std::string> FlatStore::vrfNames() {
    absl::btree_map<std::uint32_t, std::string> names;
    writer_.forEach(vrfMap_.table(), [&](std::string_view key, std::string_view value) {
        const auto id = Store::KeyCodec<Vrf::VrfId>::decode(key);
        const auto entry = Mesa::RecordCodec<Vrf::VrfIdMap::Entry>::decode(value);
        if (id && entry) { names[id->value()] = entry->vrfName.stringValue(); }
        return true;
    });
    return names;
}

std::string FlatStore::content(const Stash::Handle& handle) {
    const auto bytes = writer_.get(contentTable_, NumberCodec::encode(handle.record));
    const auto frame = bytes ? Stash::ContentFrame::decode(*bytes) : std::nullopt;
    const bool same = frame && frame->version == handle.version;
    return same ? std::string{frame->content} : std::string{};
}

bool FlatStore::holds(const Stash::Handle& handle, std::string_view content) {
    const auto bytes = writer_.get(contentTable_, NumberCodec::encode(handle.record));
    const auto frame = bytes ? Stash::ContentFrame::decode(*bytes) : std::nullopt;
    return frame && frame->version == handle.version && frame->content == content;
}

void FlatStore::readBackNextHops(Flatten& flatten) {
    std::vector<FlattenNextHopEntry>
        entries;  // first: a visit must not be disturbed by other reads
    writer_.forEach(nextHops_.table(), [&](std::string_view key, std::string_view value) {
        const auto index = Store::KeyCodec<Stash::OcNextHopIndex>::decode(key);
        auto entry = Mesa::RecordCodec<FlattenNextHopEntry>::decode(value);
        if (!index) { return true; }
        if (!entry) { entry = FlattenNextHopEntry{}; }  // known by its key only: will be deleted
        entry->index = *index;
        entries.push_back(*entry);
        return true;
    });
    for (const FlattenNextHopEntry& entry : entries) {
        FlatNextHop nextHop;
        const auto record =
            Stash::RecordCodec<Stash::FlattenFecNextHop>::decode(content(entry.handle));
        if (record) { nextHop = fromRecord(*record); }
        nextHop.index = entry.index.value();
        nextHop.fecId = FecId{entry.nhgId.value()};
        nextHop.slot = entry.nhgEntryId.value();
        flatten.restore(nextHop);
    }
    TRACE7("{} next hops read back", entries.size());
}

void FlatStore::readBackFecs(Flatten& flatten) {
    std::vector<std::pair<FecId, FlattenFecEntry>> entries;
    writer_.forEach(fecs_.table(), [&](std::string_view key, std::string_view value) {
        const auto id = Store::KeyCodec<FecId>::decode(key);
        const auto entry = Mesa::RecordCodec<FlattenFecEntry>::decode(value);
        if (id) { entries.emplace_back(*id, entry.value_or(FlattenFecEntry{})); }
        return true;
    });
    for (const auto& [id, entry] : entries) {
        FlatFec fec;
        fec.id = id;
        fec.top = entry.topFec;
        fec.programmedId = entry.programmedId;
        const auto record = Stash::RecordCodec<Stash::FlattenFec>::decode(content(entry.handle));
        for (std::uint32_t i = 0; record && i < record->nextHops(); ++i) {
            const Stash::FlattenFecMember& member = record->nextHop(i);
            fec.members.push_back({member.index.value(), member.weight});
        }
        if (record) { fec.name = record->nexthopGroupName(); }
        fec.top = fec.top && record;  // without its record it equals nothing and is written anew
        flatten.restore(fec);
    }
    TRACE7("{} FECs read back", entries.size());
}

void FlatStore::readBackRoutes(Flatten& flatten, const std::string& vrf, AddressFamily family) {
    const Store::TableId table = routeTable(vrf, family).table();
    writer_.forEach(table, [&](std::string_view key, std::string_view value) {
        const auto prefix = Store::KeyCodec<Nexo::IpPrefix>::decode(key);
        const auto route = Mesa::RecordCodec<Mesa::FibRoute>::decode(value);
        if (prefix) {
            const Mesa::FibRoute present = route.value_or(Mesa::FibRoute{});
            flatten.restore(FlatRoute{{vrf, *prefix}, present.fecId, present.originProtocol});
        }
        return true;
    });
}

// Writing

void FlatStore::firstFreeIndexIs(OcNextHopNumber index) {
    writer_.put(identity_, kFirstFreeIndex, NumberCodec::encode(index));
}

FlatStore::RouteTable& FlatStore::routeTable(const std::string& vrf, AddressFamily family) {
    const auto found = routes_.find({vrf, family});
    if (found != routes_.end() && found->second.valid()) { return found->second; }
    return routes_
        .insert_or_assign({vrf, family},
                          RouteTable{writer_, routePath(vrf, family), routeType(family)})
        .first->second;
}

FlatStore::RouteTable& FlatStore::routeTable(const std::string& vrf, const Nexo::IpPrefix& prefix) {
    return routeTable(vrf, prefix.address().family());
}

void FlatStore::vrfIs(const FlatVrf& vrf) {
    // A name beyond its length goes in as it is: readers refuse the record, and nothing else.
    const std::string row = Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Wire::CreateVrfIdMapEntry(to, to.CreateString(vrf.name));
    });
    writer_.put(vrfMap_.table(), Store::KeyCodec<Vrf::VrfId>::encode(Vrf::VrfId{vrf.table}), row);
    routeTable(vrf.name, AddressFamily::ipv4);
    routeTable(vrf.name, AddressFamily::ipv6);
}

void FlatStore::nextHopIs(const FlatNextHop& nextHop) {
    Stash::FlattenFecNextHop record;
    toRecord(nextHop, record);
    FlattenNextHopEntry entry;
    entry.index = Stash::OcNextHopIndex{nextHop.index};
    entry.nhgId = NexthopGroupId{nextHop.fecId.value()};
    entry.nhgEntryId = NexthopGroupEntryIndex{nextHop.slot};
    nextHopIs(entry, Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(record));
}

void FlatStore::nextHopIs(FlattenNextHopEntry entry, std::string_view content) {
    const NexthopGroupEntryCounterKey slot = counterKey(entry);
    const auto present = nextHop(entry.index);
    const bool sameSlot = present && slot == counterKey(*present);
    if (present && !sameSlot) { counterKeyDel(*present); }
    // The counter key first: whoever hears of the next hop finds it.
    if (entry.nhgId) {
        counterKeys_.set(slot, CounterKeyEntry{entry.index.value()});
    } else if (present && present->nhgId) {
        counters_.erase(StoredCounters::Index{entry.index.value()});
    }
    if (sameSlot && holds(present->handle, content)) { return; }
    nextHops_.set(entry.index, entry, content);
}

void FlatStore::fecIs(const FlatFec& fec) {
    Stash::FlattenFec record;
    for (const FlatMember& member : fec.members) {
        record.nextHopIs({Stash::OcNextHopIndex{member.index}, member.weight});
    }
    record.nexthopGroupNameIs(fec.name, 0);
    FlattenFecEntry entry;
    entry.programmedId = fec.programmedId;
    entry.topFec = fec.top;
    fecIs(fec.id, entry, Stash::RecordCodec<Stash::FlattenFec>::encode(record));
}

void FlatStore::fecIs(FecId id, FlattenFecEntry entry, std::string_view content) {
    const auto bytes = writer_.get(fecs_.table(), Store::KeyCodec<FecId>::encode(id));
    const auto present = bytes ? Mesa::RecordCodec<FlattenFecEntry>::decode(*bytes) : std::nullopt;
    if (present) {
        entry.handle = present->handle;
        if (FlattenFecEntry::isEq(*present, entry) && holds(entry.handle, content)) { return; }
    }
    fecs_.set(id, entry, content);
}

void FlatStore::routeIs(const FlatRoute& route) {
    Mesa::FibRoute record;
    record.fecId = route.fecId;
    record.originProtocol = route.origin;
    routeIs(route.key.vrf, route.key.prefix, record);
}

void FlatStore::routeIs(const std::string& vrf,
                        const Nexo::IpPrefix& prefix,
                        const Mesa::FibRoute& route) {
    routeTable(vrf, prefix).set(prefix, route);
}

void FlatStore::routeDel(const FlatRouteKey& key) {
    // Without its VRF's table there is nothing to delete, and none is to be made for it.
    if (hasRouteTable(key)) { routeDel(key.vrf, key.prefix); }
}

bool FlatStore::hasRouteTable(const FlatRouteKey& key) {
    return hasRouteTable(key.vrf, key.prefix.address().family());
}

bool FlatStore::hasRouteTable(const std::string& vrf, AddressFamily family) {
    return routes_.contains({vrf, family}) || writer_.get(kRegistryTable, routePath(vrf, family));
}

void FlatStore::routeDel(const std::string& vrf, const Nexo::IpPrefix& prefix) {
    routeTable(vrf, prefix).erase(prefix);
}

void FlatStore::fecDel(FecId id) {
    fecs_.erase(id);
    if (const auto counter = tunnelCounter(id)) { counters_.erase(*counter); }
}

std::optional<FlattenNextHopEntry> FlatStore::nextHop(Stash::OcNextHopIndex index) {
    const auto bytes =
        writer_.get(nextHops_.table(), Store::KeyCodec<Stash::OcNextHopIndex>::encode(index));
    auto entry = bytes ? Mesa::RecordCodec<FlattenNextHopEntry>::decode(*bytes) : std::nullopt;
    if (entry) { entry->index = index; }
    return entry;
}

void FlatStore::nextHopDel(OcNextHopNumber index) {
    const Stash::OcNextHopIndex key{index};
    const auto entry = nextHop(key);
    nextHops_.erase(key);
    counters_.erase(StoredCounters::Index{index});
    if (entry) { counterKeyDel(*entry); }
}

void FlatStore::counterKeyDel(const FlattenNextHopEntry& entry) {
    const NexthopGroupEntryCounterKey slot = counterKey(entry);
    const auto row = writer_.get(counterKeys_.table(),
                                 Store::KeyCodec<NexthopGroupEntryCounterKey>::encode(slot));
    const auto present = row ? Mesa::RecordCodec<CounterKeyEntry>::decode(*row) : std::nullopt;
    // The slot may already be another next hop's.
    if (present && present->counterIndex == entry.index.value()) { counterKeys_.erase(slot); }
}

std::string FlatStore::vrfDel(std::uint32_t table) {
    const Vrf::VrfId id{table};
    const auto bytes = writer_.get(vrfMap_.table(), Store::KeyCodec<Vrf::VrfId>::encode(id));
    const auto entry =
        bytes ? Mesa::RecordCodec<Vrf::VrfIdMap::Entry>::decode(*bytes) : std::nullopt;
    vrfIdDel(id);
    if (!entry) { return {}; }
    std::string name = entry->vrfName.stringValue();
    vrfTablesDel(name);
    return name;
}

void FlatStore::vrfIdDel(Vrf::VrfId id) {
    vrfMap_.erase(id);
}

void FlatStore::vrfTablesDel(const std::string& vrf) {
    state_.entityDel(readyPath(vrf));
    for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
        Mesa::tableDel(writer_, routePath(vrf, family));
        routes_.erase({vrf, family});
    }
}

void FlatStore::vtisIs(const Vxlan::VtiStatusDirRecord& vtis) {
    using Dir = Vxlan::VtiStatusDir;
    if (vtis.vti.empty()) { return state_.entityDel(Dir::kPath); }
    state_.entityIs(
        Dir::kPath, Dir::kType, Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::encode(vtis));
}

void FlatStore::udpPortsIs(const std::string& source,
                           const L3::Tunnel::UdpDestinationPortConfigRecord& ports) {
    using Config = L3::Tunnel::UdpDestinationPortConfig;
    const std::string path = sourcePath<Config>(source);
    if (ports.payloadTypeToPort.empty()) { return state_.entityDel(path); }
    state_.entityIs(path,
                    Config::kType,
                    Mesa::RecordCodec<L3::Tunnel::UdpDestinationPortConfigRecord>::encode(ports));
}

void FlatStore::decapGroupsIs(const std::string& source,
                              const Tunnel::Decap::ConfigRecord& groups) {
    using Config = Tunnel::Decap::ConfigInput;
    const std::string path = sourcePath<Config>(source);
    if (groups.decapGroup.empty()) { return state_.entityDel(path); }
    state_.entityIs(
        path, Config::kType, Mesa::RecordCodec<Tunnel::Decap::ConfigRecord>::encode(groups));
}

// What is there

OcNextHopNumber FlatStore::firstFreeIndex() {
    const auto bytes = writer_.get(identity_, kFirstFreeIndex);
    return bytes ? NumberCodec::decode(*bytes).value_or(1) : 1;
}

std::optional<FecId> FlatStore::fecOf(const FlatRouteKey& key) {
    if (!hasRouteTable(key)) { return {}; }
    const auto bytes = writer_.get(routeTable(key.vrf, key.prefix).table(),
                                   Store::KeyCodec<Nexo::IpPrefix>::encode(key.prefix));
    const auto route = bytes ? Mesa::RecordCodec<Mesa::FibRoute>::decode(*bytes) : std::nullopt;
    return route ? std::optional{route->fecId} : std::nullopt;
}

std::optional<FecId> FlatStore::fecOf(OcNextHopNumber index) {
    const auto entry = nextHop(Stash::OcNextHopIndex{index});
    return entry ? std::optional{FecId{entry->nhgId.value()}} : std::nullopt;
}

bool FlatStore::hasFec(FecId id) {
    return writer_.get(fecs_.table(), Store::KeyCodec<FecId>::encode(id)).has_value();
}

void FlatStore::forEachNextHop(absl::FunctionRef<void(Stash::OcNextHopIndex)> visit) {
    forEachKey<Stash::OcNextHopIndex>(writer_, nextHops_.table(), visit);
}

void FlatStore::forEachFec(absl::FunctionRef<void(FecId)> visit) {
    forEachKey<FecId>(writer_, fecs_.table(), visit);
}

void FlatStore::forEachVrfId(absl::FunctionRef<void(Vrf::VrfId)> visit) {
    forEachKey<Vrf::VrfId>(writer_, vrfMap_.table(), visit);
}

std::vector<std::string> FlatStore::routeVrfs() {
    absl::btree_set<std::string> names;
    writer_.forEach(kRegistryTable, [&](std::string_view path, std::string_view) {
        for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
            if (path == routePath(Vrf::kDefaultVrfName, family)) {
                names.emplace(Vrf::kDefaultVrfName);
            }
            const std::string prefix = routePath("", family);
            if (path.starts_with(prefix)) { names.emplace(path.substr(prefix.size())); }
        }
        return true;
    });
    return {names.begin(), names.end()};
}

void FlatStore::forEachRoute(const std::string& vrf,
                             absl::FunctionRef<void(const Nexo::IpPrefix&)> visit) {
    for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
        forEachKey<Nexo::IpPrefix>(writer_, routeTable(vrf, family).table(), visit);
    }
}

std::vector<std::string> FlatStore::udpPortSources() {
    using Config = L3::Tunnel::UdpDestinationPortConfig;
    return sourcesAt(Config::kPath, Config::kDynamicPath);
}

std::vector<std::string> FlatStore::decapGroupSources() {
    using Config = Tunnel::Decap::ConfigInput;
    return sourcesAt(Config::kPath, Config::kDynamicPath);
}

std::vector<std::string> FlatStore::sourcesAt(std::string_view own, std::string_view dynamic) {
    std::vector<std::string> sources;
    const std::string directory = std::string{dynamic} + "/";
    state_.forEachPath([&](std::string_view path) {
        if (path == own) { sources.emplace_back(); }
        if (path.starts_with(directory)) { sources.emplace_back(path.substr(directory.size())); }
    });
    return sources;
}

// Readiness

std::string FlatStore::readyPath(const std::string& vrf) const {
    return "cell/" + std::to_string(cellId_) + "/" + GatedReady::FibReady::kDirPath + "/" + vrf;
}

void FlatStore::readyIs() {
    for (const auto& [table, name] : vrfNames()) { fibReadyIs(name, true); }
    fecReadyIs(true);
}

void FlatStore::fecReadyIs(bool ready) {
    using Status = FlattenFecSetReadyStatus;
    state_.entityIs(
        Status::kPath, Status::kType, Mesa::RecordCodec<ReadyRecord>::encode(ReadyRecord{ready}));
}

void FlatStore::fibReadyIs(const std::string& vrf, std::optional<bool> ready) {
    if (!ready) { return state_.entityDel(readyPath(vrf)); }
    state_.entityIs(readyPath(vrf),
                    GatedReady::FibReady::kType,
                    Mesa::RecordCodec<ReadyRecord>::encode(ReadyRecord{*ready}));
}

void FlatStore::quiescedIs(const std::string& vrf, AddressFamily family, bool quiesced) {
    if (!hasRouteTable(vrf, family)) { return; }
    RouteTable& table = routeTable(vrf, family);
    const auto bytes = writer_.get(controls_, routePath(vrf, family));
    const auto said = bytes ? Mesa::CollectionControlRecord::decode(*bytes) : std::nullopt;
    // What was said of a table that stood there before does not count.
    if (said && said->table == table.table() && said->quiesced == quiesced) { return; }
    table.quiescedIs(quiesced);
}

}  // namespace Pel::Forwarder
