#include "model/View/OpenConfigView.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <utility>

#include "model/Aft/AftContainer.h"
#include "model/View/OpenConfigGroups.h"
#include "model/View/OpenConfigInstanceList.h"
#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigNextHops.h"
#include "model/View/OpenConfigPaths.h"
#include "model/View/OpenConfigRouteTable.h"
#include "model/Vrf/VrfName.h"
#include "platform/Blink/Trace.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("OpenConfigView");

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::KeyPredicate;

namespace {

/// A list key as the server writes it: "7", not "07" or "+7".
std::optional<std::uint64_t> decimal(const std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    const bool plain = error == std::errc{} && at == end && (text.size() == 1 || text[0] != '0');
    return plain ? std::optional{number} : std::nullopt;
}

KeyPredicate never() {
    return [](const EntryKey& /*key*/) { return false; };
}

KeyPredicate numberIs(const std::string* text) {
    if (text == nullptr) { return {}; }
    const auto number = decimal(*text);
    if (!number) { return never(); }
    return [number = *number](const EntryKey& key) { return key.lo == number; };
}

KeyPredicate prefixIs(const std::string* text, Nexo::AddressFamily family) {
    if (text == nullptr) { return {}; }
    const auto prefix = Nexo::IpPrefix::parse(*text);
    if (!prefix || prefix->address().family() != family) { return never(); }
    return [wanted = OpenConfigKeys::ofPrefix(0, *prefix)](const EntryKey& key) {
        return OpenConfigKeys::samePrefix(key, wanted);
    };
}

/// The second is the cheaper one.
KeyPredicate both(KeyPredicate first, KeyPredicate second) {
    if (!first) { return second; }
    if (!second) { return first; }
    return [first = std::move(first), second = std::move(second)](const EntryKey& key) {
        return second(key) && first(key);
    };
}

const char* tableType(Nexo::AddressFamily family) {
    return family == Nexo::AddressFamily::ipv4 ? Mesa::Fib::RouteStatus::kType
                                               : Mesa::Fib6::RouteStatus::kType;
}

}  // namespace

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
        default:
            return OpenConfigPaths::instances;
    }
}

KeyPredicate OpenConfigView::keyPredicate(std::size_t kind, const Gale::KeyValues& values) const {
    KeyPredicate instance;
    const bool inDefault = kind == OpenConfigPaths::nextHops || kind == OpenConfigPaths::groups;
    if (values[0] != nullptr && inDefault) {
        if (*values[0] != instances_.name(OpenConfigInstances::kDefault)) { return never(); }
        // All of them are.
    } else if (values[0] != nullptr) {
        instance = [this, wanted = *values[0]](const EntryKey& key) {
            return instances_.name(OpenConfigKeys::instanceOf(key)) == wanted;
        };
    }
    switch (kind) {
        case OpenConfigPaths::ipv4Entries:
            return both(instance, prefixIs(values[1], Nexo::AddressFamily::ipv4));
        case OpenConfigPaths::ipv6Entries:
            return both(instance, prefixIs(values[1], Nexo::AddressFamily::ipv6));
        case OpenConfigPaths::instances:
            return instance;
        default:
            return both(instance, numberIs(values[1]));
    }
}

Gale::Reference OpenConfigView::referenceOf(std::uint64_t value) const {
    return OpenConfigRoutes::referenceOf(OpenConfigRoutes::unpack(value));
}

void OpenConfigView::encodeValue(Gale::Lane lane,
                                 const EntryKey& key,
                                 std::uint64_t value,
                                 std::string& notification) const {
    VEL_ASSERT(lane == Gale::Lane::prefixes);
    routes_.encode(key, OpenConfigRoutes::unpack(value), notification);
}

void OpenConfigView::attach(SourceSink sink) {
    sink_ = std::move(sink);
    attachAft();
    auto list = std::make_unique<OpenConfigInstanceList>(instances_);
    instanceList_ = list.get();
    sink_(std::move(list));
    if (inputs_.tables) { attachTables(); }
}

void OpenConfigView::attachAft() {
    Vel::Ref<Vel::Dir> dir = inputs_.root;
    for (const char* const name : {"OpenConfig", "afts"}) {
        dir = dir ? dir->entity<Vel::Dir>(name) : dir;
    }
    const auto aft = dir ? dir->entity<AftContainer>("aftContainer") : Vel::Ref<AftContainer>{};
    if (!aft || !aft->nextHops() || !aft->nextHopGroups()) {
        TRACE5("no AFT container in the streamed tree: next hops and groups are not served");
        return;
    }
    sink_(std::make_unique<OpenConfigNextHops>(aft->nextHops(), instances_));
    groups_ = aft->nextHopGroups();
    sink_(std::make_unique<OpenConfigGroups>(groups_, instances_));
}

void OpenConfigView::attachTables() {
    const auto& reader = inputs_.tables->reader();
    onTable_ = reader->onTable().subscribe([this](const std::string& path) { handleTable(path); });
    for (const std::string& prefix : inputs_.tablePrefixes) {
        // The default VRF's are mounted before a producer has made them.
        handleTable(prefix);
        for (const auto& table : reader->tables(prefix)) { handleTable(table.path); }
    }
}

bool OpenConfigView::servedPrefix(const std::string& path) const {
    return std::any_of(
        inputs_.tablePrefixes.begin(), inputs_.tablePrefixes.end(), [&](const std::string& prefix) {
            return path == prefix || path.starts_with(prefix + "/");
        });
}

void OpenConfigView::handleTable(const std::string& path) {
    if (!servedPrefix(path)) { return; }
    if (std::find(mounted_.begin(), mounted_.end(), path) != mounted_.end()) { return; }
    for (const auto family : {Nexo::AddressFamily::ipv4, Nexo::AddressFamily::ipv6}) {
        const std::string vrf = path.substr(path.rfind('/') + 1);
        for (const std::string& name : {std::string{Vrf::kDefaultVrfName}, vrf}) {
            if (path != Mesa::fibTableMountPath(family, name, "rib")) { continue; }
            mounted_.push_back(path);
            mountTable(family, name);
            return;
        }
    }
}

void OpenConfigView::mountTable(Nexo::AddressFamily family, const std::string& vrf) {
    const std::string path = Mesa::fibTableMountPath(family, vrf, "rib");
    Mesa::MountGroup group{inputs_.tables};
    group.mount(path, tableType(family));
    group.close();
    auto table = inputs_.tables->entity<OpenConfigRouteTable::Table>(path);
    if (!table) {
        TRACE5("table {} is mounted as something else: not served", path);
        return;
    }
    const std::uint32_t instance = instances_.number(vrf);
    instanceList_->tableIs(instance, table);
    sink_(std::make_unique<OpenConfigRouteTable>(table, family, instance, routes_, groups_));
}

void registerOpenConfigView() {
    Gale::viewIs(OpenConfigPaths::kOrigin, [](const Gale::ViewInputs& inputs) {
        return std::make_unique<OpenConfigView>(inputs);
    });
}

}  // namespace Pel::OcApi
