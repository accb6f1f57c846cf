#include "test/scale/Collector.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "proto/gnmi.pb.h"

namespace Pel::Scale {
namespace {

constexpr std::size_t kPrefixBytes = 5;

/// "next-hop 17"; "" for what is no entry of the AFT's lists.
std::string entryName(const std::vector<const gnmi::PathElem*>& path) {
    static const std::map<std::string_view, const char*> kKeys{{"next-hop", "index"},
                                                               {"next-hop-group", "id"},
                                                               {"ipv4-entry", "prefix"},
                                                               {"ipv6-entry", "prefix"}};
    if (path.size() != 5) { return {}; }
    const auto key = kKeys.find(path.back()->name());
    if (key == kKeys.end()) { return {}; }
    const auto value = path.back()->key().find(key->second);
    return value == path.back()->key().end() ? std::string{}
                                             : path.back()->name() + " " + value->second;
}

std::vector<const gnmi::PathElem*> joined(const gnmi::Path& prefix, const gnmi::Path& path) {
    std::vector<const gnmi::PathElem*> result;
    for (const auto& elem : prefix.elem()) { result.push_back(&elem); }
    for (const auto& elem : path.elem()) { result.push_back(&elem); }
    return result;
}

std::string nextHopText(std::string_view address,
                        std::string_view mac,
                        std::string_view interface,
                        std::string_view subinterface) {
    std::string text{address};
    for (const std::string_view part : {mac, interface, subinterface}) {
        text += ' ';
        text += part;
    }
    return text;
}

std::string groupText(const std::map<std::uint64_t, std::uint64_t>& weights) {
    std::string text;
    for (const auto& [index, weight] : weights) {
        text += std::to_string(index) + ":" + std::to_string(weight) + " ";
    }
    return text;
}

/// What tells the entry of a notification from another.
std::string entryText(const gnmi::Notification& notification) {
    std::array<std::string, 4> hop;
    std::map<std::uint64_t, std::uint64_t> weights;
    std::string group;
    bool isHop = false;
    for (const gnmi::Update& update : notification.update()) {
        const auto& path = update.path().elem();
        const std::string& leaf = path.rbegin()->name();
        if (leaf == "next-hop-group") { group = std::to_string(update.val().uint_val()); }
        if (leaf == "weight") {
            weights[std::stoull(path[1].key().at("index"))] = update.val().uint_val();
        }
        constexpr std::array<std::string_view, 4> kLeaves{
            "ip-address", "mac-address", "interface", "subinterface"};
        for (std::size_t i = 0; i < kLeaves.size(); ++i) {
            if (leaf != kLeaves[i]) { continue; }
            isHop = true;
            hop[i] = i == 3 ? std::to_string(update.val().uint_val()) : update.val().string_val();
        }
    }
    if (isHop) { return nextHopText(hop[0], hop[1], hop[2], hop[3]); }
    return group.empty() ? groupText(weights) : group;
}

}  // namespace

void expect(const Forwarder::Change& change, Entries& entries) {
    if (const auto* item = std::get_if<Forwarder::NextHopItem>(&change)) {
        const auto record = Stash::RecordCodec<Stash::FlattenFecNextHop>::decode(item->content);
        const auto subinterface = record->interface.subinterface();
        entries["next-hop " + std::to_string(item->entry.index.value())] =
            nextHopText(record->address.stringValue(),
                        record->mac.stringValue(),
                        record->interface.parent().stringValue(),
                        subinterface ? std::to_string(*subinterface) : "");
    } else if (const auto* fec = std::get_if<Forwarder::FecItem>(&change)) {
        const auto record = Stash::RecordCodec<Stash::FlattenFec>::decode(fec->content);
        std::map<std::uint64_t, std::uint64_t> weights;
        for (std::uint32_t i = 0; i < record->nextHops(); ++i) {
            weights[record->nextHop(i).index.value()] = record->nextHop(i).weight;
        }
        entries["next-hop-group " + std::to_string(fec->id.value())] = groupText(weights);
    } else if (const auto* route = std::get_if<Forwarder::RouteItem>(&change)) {
        const bool ipv4 = route->key.prefix.address().width() == 4;
        entries[(ipv4 ? "ipv4-entry " : "ipv6-entry ") + route->key.prefix.stringValue()] =
            std::to_string(route->route.fecId.value());
    }
}

std::string difference(const Entries& got, const Entries& wanted) {
    for (const auto& [name, text] : wanted) {
        const auto found = got.find(name);
        if (found == got.end()) { return name + " is missing"; }
        if (found->second != text) {
            return name + " is '" + found->second + "' and should be '" + text + "'";
        }
    }
    for (const auto& [name, text] : got) {
        if (!wanted.contains(name)) { return name + " should not be there"; }
    }
    return {};
}

std::size_t Collector::take(std::string_view bytes) {
    std::size_t used = 0;
    gnmi::SubscribeResponse response;
    while (bytes.size() - used >= kPrefixBytes) {
        std::uint32_t length = 0;
        std::memcpy(&length, bytes.data() + used + 1, sizeof length);
        length = ntohl(length);
        if (bytes.size() - used - kPrefixBytes < length) { break; }
        if (!response.ParseFromArray(bytes.data() + used + kPrefixBytes,
                                     static_cast<int>(length))) {
            fault = "a message that does not parse";
        }
        used += kPrefixBytes + length;
        ++messages;
        if (response.sync_response()) { synced = true; }
        if (response.has_update()) { take(response.update()); }
    }
    return used;
}

void Collector::take(const gnmi::Notification& notification) {
    for (const gnmi::Path& path : notification.delete_()) {
        const std::string name = entryName(joined(notification.prefix(), path));
        if (!name.empty() && entries.erase(name) == 0) {
            fault = "a delete of what was not there: " + name;
        }
    }
    if (notification.update_size() == 0) { return; }
    const auto path = joined(notification.prefix(), {});
    const std::string name = entryName(path);
    if (!name.empty()) {
        entries[name] = entryText(notification);
    } else if (path.size() == 6 && path[3]->name() == "counters") {
        ++counters;
    }
}

}  // namespace Pel::Scale
