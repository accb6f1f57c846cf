#include "test/checker/AftSchema.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <algorithm>
#include <array>
#include <utility>

namespace Checker {
namespace {

struct ListShape {
    std::string_view container;
    std::string_view name;
    std::string_view key;
};

constexpr std::array<ListShape, 5> kLists{{{"next-hops", "next-hop", "index"},
                                           {"next-hop-groups", "next-hop-group", "id"},
                                           {"ipv4-unicast", "ipv4-entry", "prefix"},
                                           {"ipv6-unicast", "ipv6-entry", "prefix"},
                                           {"mpls", "label-entry", "label"}}};

const ListShape& shapeOf(List list) {
    return kLists.at(static_cast<std::size_t>(list));
}

using Leaves = absl::flat_hash_map<std::string, LeafType>;
using Rows = std::initializer_list<std::pair<std::string_view, LeafType>>;

void add(Leaves& to, std::string_view below, Rows rows) {
    for (const auto& [path, type] : rows) { to.emplace(fmt::format("{}{}", below, path), type); }
}

Leaves nextHopLeaves() {
    using enum LeafType;
    Leaves leaves;
    add(leaves, "", {{"index", number}});
    add(leaves,
        "state/",
        {{"index", number},
         {"programmed-index", number},
         {"ip-address", text},
         {"mac-address", text},
         {"pop-top-label", flag},
         {"pushed-mpls-label-stack", list},
         {"encapsulate-header", text},
         {"decapsulate-header", text},
         {"origin-protocol", text},
         {"lsp-name", text},
         {"counters/packets-forwarded", number},
         {"counters/octets-forwarded", number},
         {"vni-label", number},
         {"tunnel-src-ip-address", text},
         {"network-instance", text}});
    add(leaves, "interface-ref/state/", {{"interface", text}, {"subinterface", number}});
    add(leaves, "ip-in-ip/state/", {{"src-ip", text}, {"dst-ip", text}});
    add(leaves, "gre/state/", {{"src-ip", text}, {"dst-ip", text}, {"ttl", number}});
    const std::string header = "encap-headers/encap-header/";
    add(leaves, header, {{"index", number}, {"state/index", number}, {"state/type", text}});
    add(leaves, header + "gre/state/", {{"src-ip", text}, {"dst-ip", text}, {"ttl", number}});
    for (const char* const family : {"ipv4", "ipv6"}) {
        add(leaves,
            fmt::format("{}{}/state/", header, family),
            {{"src-ip", text}, {"dst-ip", text}});
    }
    add(leaves, header + "mpls/state/", {{"traffic-class", number}, {"mpls-label-stack", list}});
    add(leaves,
        header + "mpls/encap-mpls-label-stacks/encap-mpls-label-stack/",
        {{"id", number}, {"state/id", number}, {"state/label", label}});
    for (const char* const family : {"udp-v4", "udp-v6"}) {
        add(leaves,
            fmt::format("{}{}/state/", header, family),
            {{"src-ip", text},
             {"dst-ip", text},
             {"dscp", number},
             {"src-udp-port", number},
             {"dst-udp-port", number},
             {"ip-ttl", number}});
    }
    add(leaves, header + "vxlan/state/", {{"vni-label", number}, {"tunnel-src-ip-address", text}});
    return leaves;
}

Leaves groupLeaves() {
    using enum LeafType;
    Leaves leaves;
    add(leaves, "", {{"id", number}});
    add(leaves,
        "state/",
        {{"id", number},
         {"next-hop-group-name", text},
         {"programmed-id", number},
         {"color", number},
         {"backup-next-hop-group", number},
         {"backup-active", flag}});
    add(leaves,
        "next-hops/next-hop/",
        {{"index", number}, {"state/index", number}, {"state/weight", number}});
    add(leaves,
        "conditional/condition/",
        {{"id", number},
         {"state/id", number},
         {"state/dscp", list},
         {"state/next-hop-group", number}});
    add(leaves,
        "conditional/condition/input-interfaces/input-interface/",
        {{"id", text},
         {"state/id", text},
         {"state/interface", text},
         {"state/subinterface", number}});
    return leaves;
}

Leaves prefixLeaves() {
    using enum LeafType;
    Leaves leaves;
    add(leaves, "", {{"prefix", text}});
    add(leaves,
        "state/",
        {{"prefix", text},
         {"next-hop-group", number},
         {"next-hop-group-network-instance", text},
         {"origin-network-instance", text},
         {"origin-protocol", text},
         {"decapsulate-header", text},
         {"entry-metadata", bytes},
         {"counters/packets-forwarded", number},
         {"counters/octets-forwarded", number},
         {"counters/packets-forwarded-backup", number},
         {"counters/octets-forwarded-backup", number}});
    return leaves;
}

Leaves labelLeaves() {
    using enum LeafType;
    Leaves leaves;
    add(leaves, "", {{"label", label}});
    add(leaves,
        "state/",
        {{"label", label},
         {"next-hop-group", number},
         {"next-hop-group-network-instance", text},
         {"entry-metadata", bytes},
         {"popped-mpls-label-stack", list},
         {"counters/packets-forwarded", number},
         {"counters/octets-forwarded", number}});
    add(leaves,
        "decap-mpls-label-stacks/decap-mpls-label-stack/",
        {{"id", number}, {"state/id", number}, {"state/label", label}});
    return leaves;
}

const Leaves& leavesOf(List list) {
    static const std::array<Leaves, 5> all{
        nextHopLeaves(), groupLeaves(), prefixLeaves(), prefixLeaves(), labelLeaves()};
    return all.at(static_cast<std::size_t>(list));
}

void appendElem(std::string& to, const gnmi::PathElem& elem) {
    to += elem.name();
    if (elem.key().empty()) { return; }
    std::vector<std::pair<std::string_view, std::string_view>> keys;
    for (const auto& [name, value] : elem.key()) { keys.emplace_back(name, value); }
    std::sort(keys.begin(), keys.end());
    for (const auto& [name, value] : keys) {
        to.append("[").append(name).append("=").append(value).append("]");
    }
}

bool isAny(std::string_view name) {
    return name == "*" || name == "...";
}

/// The only key's value; empty when there is none, another one besides, or a wildcard.
std::string_view onlyKey(const gnmi::PathElem& elem, std::string_view name) {
    const auto found = elem.key().find(std::string{name});
    if (found == elem.key().end() || elem.key().size() != 1 || found->second == "*") { return {}; }
    return found->second;
}

}  // namespace

void append(Elems& to, const gnmi::Path& path) {
    for (const gnmi::PathElem& elem : path.elem()) { to.push_back(&elem); }
}

std::string pathText(const Elems& elems, std::size_t from) {
    std::string text;
    for (std::size_t i = from; i < elems.size(); ++i) {
        if (i != from || from == 0) { text += '/'; }
        appendElem(text, *elems[i]);
    }
    return text;
}

std::string valueText(const gnmi::TypedValue& value) {
    switch (value.value_case()) {
        case gnmi::TypedValue::kStringVal:
            return '"' + value.string_val() + '"';
        case gnmi::TypedValue::kUintVal:
            return std::to_string(value.uint_val());
        case gnmi::TypedValue::kBoolVal:
            return value.bool_val() ? "true" : "false";
        case gnmi::TypedValue::kBytesVal:
            return "bytes " + value.bytes_val();
        case gnmi::TypedValue::kLeaflistVal: {
            std::string text = "[";
            for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
                if (text.size() > 1) { text += ", "; }
                text += valueText(element);
            }
            return text + "]";
        }
        default:
            return value.ShortDebugString();
    }
}

bool isOfType(const gnmi::TypedValue& value, LeafType type) {
    using V = gnmi::TypedValue;
    switch (type) {
        case LeafType::number:
            return value.value_case() == V::kUintVal;
        case LeafType::text:
            return value.value_case() == V::kStringVal;
        case LeafType::flag:
            return value.value_case() == V::kBoolVal;
        case LeafType::list:
            return value.value_case() == V::kLeaflistVal;
        case LeafType::bytes:
            return value.value_case() == V::kBytesVal;
        case LeafType::label:
            return value.value_case() == V::kUintVal || value.value_case() == V::kStringVal;
    }
    return false;
}

std::string keyText(const gnmi::TypedValue& value) {
    if (value.value_case() == gnmi::TypedValue::kUintVal) {
        return std::to_string(value.uint_val());
    }
    return value.string_val();
}

Place placeOf(const Elems& elems) {
    constexpr std::array<std::string_view, 3> kRoot{
        "network-instances", "network-instance", "afts"};
    const std::size_t known = std::min(elems.size(), kRoot.size());
    bool keyed = true;
    for (std::size_t i = 0; i < known; ++i) {
        const std::string_view name = elems[i]->name();
        if (name == "...") { return {Place::Kind::above, {}, {}, {}}; }
        if (name != kRoot[i] && name != "*") { return {}; }
        keyed = keyed && name == kRoot[i];
    }
    if (elems.size() <= kRoot.size()) { return {Place::Kind::above, {}, {}, {}}; }
    for (std::size_t i = 0; i < kLists.size(); ++i) {
        const ListShape& shape = kLists[i];
        if (isAny(elems[3]->name())) { return {Place::Kind::above, {}, {}, {}}; }
        if (elems[3]->name() != shape.container) { continue; }
        if (elems.size() == 4) { return {Place::Kind::above, {}, {}, {}}; }
        if (isAny(elems[4]->name())) { return {Place::Kind::above, {}, {}, {}}; }
        if (elems[4]->name() != shape.name) { return {}; }
        const std::string_view instance = onlyKey(*elems[1], "name");
        const std::string_view key = onlyKey(*elems[4], shape.key);
        if (!keyed || instance.empty() || key.empty()) { return {Place::Kind::above, {}, {}, {}}; }
        return {elems.size() == kEntryDepth ? Place::Kind::entry : Place::Kind::below,
                static_cast<List>(i),
                instance,
                key};
    }
    return {};
}

std::optional<CounterPlace> counterPlaceOf(const Elems& elems) {
    constexpr std::array<std::string_view, kCounterDepth> kPath{
        "network-instances", "network-instance", "afts", "counters", "next-hops", "next-hop"};
    if (elems.size() < kPath.size()) { return std::nullopt; }
    for (std::size_t i = 0; i < kPath.size(); ++i) {
        if (elems[i]->name() != kPath[i]) { return std::nullopt; }
    }
    const CounterPlace place{onlyKey(*elems[1], "name"), onlyKey(*elems[5], "index")};
    if (place.instance.empty() || place.index.empty()) { return std::nullopt; }
    return place;
}

bool isCounterLeaf(std::string_view path) {
    return path == "index" || path == "state/index" || path == "state/packets-forwarded" ||
           path == "state/octets-forwarded";
}

std::optional<TablePlace> syncedTableOf(const Elems& elems) {
    constexpr std::array<std::string_view, 5> kPath{
        "network-instances", "network-instance", "afts", "state-synced", "state"};
    if (elems.size() != kPath.size() + 1) { return std::nullopt; }
    for (std::size_t i = 0; i < kPath.size(); ++i) {
        if (elems[i]->name() != kPath[i]) { return std::nullopt; }
    }
    const std::string_view instance = onlyKey(*elems[1], "name");
    for (const List list : {List::ipv4, List::ipv6}) {
        if (elems.back()->name() == shapeOf(list).container) { return TablePlace{instance, list}; }
    }
    return std::nullopt;
}

std::string syncedPath(const TablePlace& table) {
    return fmt::format("/network-instances/network-instance[name={}]/afts/state-synced/state/{}",
                       table.instance,
                       shapeOf(table.list).container);
}

std::string summaryPath(const TablePlace& table, std::string_view protocol) {
    return fmt::format(
        "/network-instances/network-instance[name={}]/afts/aft-summaries/{}/protocols/"
        "protocol[origin-protocol={}]/state/counters/aft-entries",
        table.instance,
        shapeOf(table.list).container,
        protocol);
}

bool isSummaryCount(std::string_view path) {
    return path.find("/afts/aft-summaries/") != std::string_view::npos &&
           path.ends_with("/state/counters/aft-entries");
}

std::string entryPath(List list, std::string_view instance, std::string_view key) {
    const ListShape& shape = shapeOf(list);
    std::string text = "/network-instances/network-instance[name=";
    text.append(instance).append("]/afts/").append(shape.container).append("/").append(shape.name);
    return text.append("[").append(shape.key).append("=").append(key).append("]");
}

std::string_view keyName(List list) {
    return shapeOf(list).key;
}

std::string_view listName(List list) {
    return shapeOf(list).name;
}

std::optional<LeafType> leafType(List list, std::string_view path) {
    const Leaves& leaves = leavesOf(list);
    const auto found = leaves.find(absl::string_view{path.data(), path.size()});
    return found == leaves.end() ? std::nullopt : std::optional{found->second};
}

std::optional<int> laneOf(const Elems& elems) {
    if (elems.size() < 4 || elems[2]->name() != "afts") { return std::nullopt; }
    constexpr std::array<std::pair<std::string_view, int>, 8> kLanes{{{"next-hops", 0},
                                                                      {"next-hop-groups", 1},
                                                                      {"ipv4-unicast", 2},
                                                                      {"ipv6-unicast", 2},
                                                                      {"mpls", 2},
                                                                      {"state-synced", 3},
                                                                      {"counters", 4},
                                                                      {"aft-summaries", 5}}};
    for (const auto& [name, lane] : kLanes) {
        if (elems[3]->name() == name) { return lane; }
    }
    return std::nullopt;
}

}  // namespace Checker
