#include "forwarder/Scenario/ElementReader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "forwarder/Publish/StoredCounters.h"
#include "model/Net/MplsStackEntryIndex.h"

namespace Pel::Forwarder {

namespace {

using Tunnel::TunnelTable::EncapType;

constexpr std::size_t kMaxNameBytes = 255;
constexpr std::size_t kMaxLaxLabels = 1000;
constexpr std::size_t kMaxVrfNameBytes = 100;
constexpr std::size_t kMaxLaxVrfNameBytes = 200;  // more does not fit a table's path
constexpr std::uint32_t kMaxVlan = 16383;

constexpr std::array<Word, 2> kEncapTypes = {{{"mpls", 4}, {"udp", 9}}};
constexpr std::array<Word, 8> kDecapHeaders = {{{"none", 0},
                                                {"gre", 1},
                                                {"mpls", 2},
                                                {"ipv4", 3},
                                                {"vxlan", 4},
                                                {"udpv4", 5},
                                                {"udpv6", 6},
                                                {"ipv6", 7}}};
constexpr std::array<Word, 8> kOrigins = {{{"unset", 0},
                                           {"connected", 1},
                                           {"local", 2},
                                           {"static", 3},
                                           {"bgp", 4},
                                           {"isis", 5},
                                           {"ospf", 6},
                                           {"ospf3", 7}}};
constexpr std::array<Word, 3> kUdpPayloads = {{{"mpls", 1}, {"ipv4", 3}, {"ipv6", 4}}};
constexpr std::array<Word, 4> kDecapPayloads = {
    {{"mpls", 1}, {"gre", 2}, {"ipv4", 3}, {"ipv6", 4}}};
constexpr std::array<Word, 2> kConfigModes = {{{"default", 0}, {"configured", 1}}};

template <std::size_t N>
std::string listed(const std::array<Word, N>& words) {
    std::string text;
    for (const Word& word : words) {
        text += (text.empty() ? "" : word == words.back() ? " or " : ", ");
        text += word.first;
    }
    return text;
}

/// One of the words; with `lax` any number of a byte too.
template <std::size_t N>
std::optional<std::uint8_t> wordOf(const YamlNode& node,
                                   const std::array<Word, N>& words,
                                   const ValueReader& values,
                                   bool lax) {
    for (const auto& [word, number] : words) {
        if (node.kind == YamlNode::Kind::scalar && node.text == word) { return number; }
    }
    if (!lax) { return values.expected(node, listed(words)); }
    const auto number = values.number(node, 0, std::numeric_limits<std::uint8_t>::max());
    return number ? std::optional{static_cast<std::uint8_t>(*number)} : std::nullopt;
}

}  // namespace

void ElementReader::interfaceIs(const YamlNode& node) {
    const FieldReader fields{node, {"name", "parent", "subinterface"}, values_};
    const YamlNode* nameNode = fields.need("name");
    const auto text = nameNode != nullptr ? values_.text(*nameNode, kMaxNameBytes) : std::nullopt;
    if (!text) { return; }
    std::string parent;
    std::uint32_t number = 0;
    fields.read("parent", parent, kMaxNameBytes);
    fields.read("subinterface", number, 0);
    if ((fields.find("parent") == nullptr) != (fields.find("subinterface") == nullptr)) {
        values_.problems().add(node.place,
                               "expected both 'parent' and 'subinterface', or none of them");
    }
    const Nexo::IntfId id =
        parent.empty() ? Nexo::IntfId{*text} : Nexo::IntfId{*text, parent, number};
    if (!interfaces_.emplace(*text, id).second) {
        values_.problems().add(node.place, "the interface " + inQuotes(*text) + " comes twice");
    }
}

std::optional<std::string> ElementReader::nameText(const YamlNode& node) const {
    return values_.text(node, kMaxNameBytes);
}

namespace {

/// The value of one key, whatever else the element has; those who read the rest report on it.
const YamlNode* valueOf(const YamlNode& element, std::string_view key) {
    if (element.kind != YamlNode::Kind::map) { return nullptr; }
    for (std::size_t i = 0; i + 1 < element.items.size(); i += 2) {
        if (element.items[i].text == key) { return &element.items[i + 1]; }
    }
    return nullptr;
}

const YamlNode* needed(const YamlNode& element, std::string_view key, const ValueReader& values) {
    const YamlNode* found = valueOf(element, key);
    if (element.kind != YamlNode::Kind::map) {
        values.expected(element, "a map with the key " + inQuotes(key));
    } else if (found == nullptr) {
        values.problems().add(element.place, "expected the key " + inQuotes(key));
    }
    return found;
}

}  // namespace

std::optional<std::string> ElementReader::name(const YamlNode& element) const {
    const YamlNode* node = needed(element, "name", values_);
    return node != nullptr ? nameText(*node) : std::nullopt;
}

std::optional<Pel::FecId> ElementReader::fecId(const YamlNode& element) const {
    const YamlNode* node = needed(element, "id", values_);
    return node != nullptr ? fecIdText(*node) : std::nullopt;
}

std::optional<Pel::FecId> ElementReader::fecIdText(const YamlNode& node) const {
    YamlNode number = node;
    if (const auto slash = node.text.find('/'); slash != std::string::npos) {
        YamlNode word = node;
        word.text.resize(slash);
        const auto known = wordOf(word, kFecKindWords, values_, false);
        if (!known) { return std::nullopt; }
        number.text.erase(0, slash + 1);
        const auto value = values_.number(number, 1, kFecNumberMask);
        return value ? std::optional{makeFecId(static_cast<FecKind>(*known), *value)}
                     : std::nullopt;
    }
    const auto value = values_.number(number, 1, std::numeric_limits<std::uint64_t>::max());
    if (!value) { return std::nullopt; }
    if (*value <= kFecNumberMask) { return makeFecId(FecKind::scenario, *value); }
    if (!lax_ && *value >> 56U > static_cast<unsigned>(FecKind::scenario)) {
        return values_.expected(node, "a FEC id of kind 0 to 4 (bits 63 to 56)");
    }
    return Pel::FecId{*value};
}

std::optional<RouteKey> ElementReader::routeKey(const YamlNode& element) const {
    const YamlNode* node = needed(element, "prefix", values_);
    const auto prefix = node != nullptr ? values_.prefix(*node) : std::nullopt;
    const YamlNode* vrfNode = valueOf(element, "vrf");
    const auto vrf = vrfNode != nullptr ? values_.text(*vrfNode, kMaxLaxVrfNameBytes)
                                        : std::optional<std::string>{"default"};
    return prefix && vrf ? std::optional{RouteKey{*vrf, *prefix}} : std::nullopt;
}

std::optional<CounterKey> ElementReader::counterKey(const YamlNode& element) const {
    const YamlNode* const nextHop = valueOf(element, "nextHop");
    const YamlNode* const fec = valueOf(element, "fec");
    const YamlNode* const index = valueOf(element, "index");
    const int given =
        (nextHop != nullptr ? 1 : 0) + (fec != nullptr ? 1 : 0) + (index != nullptr ? 1 : 0);
    if (element.kind != YamlNode::Kind::map || given != 1) {
        return values_.expected(element, "a map with one of the keys nextHop and fec");
    }
    CounterKey key;
    if (nextHop != nullptr) {
        const auto text = nameText(*nextHop);
        if (!text) { return std::nullopt; }
        key.nextHop = *text;
    } else if (fec != nullptr) {
        const auto id = fecIdText(*fec);
        if (!id) { return std::nullopt; }
        if (!tunnelCounter(*id)) {
            return values_.expected(*fec, "a tunnel, ipInIpTunnel/1 to ipInIpTunnel/4095");
        }
        key.fec = *id;
    } else {
        if (!lax_) {
            values_.problems().add(index->place, "'index' of a counter needs 'invalid: allow'");
            return std::nullopt;
        }
        const auto number = values_.number(*index, 0, std::numeric_limits<std::uint64_t>::max());
        if (!number) { return std::nullopt; }
        key.index = *number;
    }
    return key;
}

void ElementReader::counter(const YamlNode& node, DescribedCounter& to, bool whole) const {
    const FieldReader fields{
        node,
        {"nextHop", "fec", "index", "packets", "octets", "packetRate", "octetRate", "wrap"},
        values_};
    const auto read = [&](std::string_view key, std::optional<std::uint64_t>& value) {
        std::uint64_t number = value.value_or(0);
        fields.read(key, number, 0);
        if (whole || fields.find(key) != nullptr) { value = number; }
    };
    to.place = node.place;
    read("packets", to.packets);
    read("octets", to.octets);
    fields.read("packetRate", to.packetRate, 0);
    fields.read("octetRate", to.octetRate, 0);
    fields.read("wrap", to.wrap, 1);
}

void ElementReader::vrf(const YamlNode& node, DescribedVrf& to) const {
    const FieldReader fields{node, {"name", "id"}, values_};
    to.place = node.place;
    if (fields.need("id") != nullptr) {
        std::uint32_t id = to.id.value();
        fields.read("id", id, 1);
        to.id = Vrf::VrfId{id};
    }
    fields.read("name", to.name, lax_ ? kMaxLaxVrfNameBytes : kMaxVrfNameBytes);
    if (to.name.find('/') != std::string::npos) {
        values_.expected(*fields.find("name"), "a name without '/'");
    }
}

void ElementReader::vti(const YamlNode& node, Vxlan::VtiStatus& to) const {
    const FieldReader fields{node, {"name", "vtep", "vtepV6", "vlans"}, values_};
    if (const auto text = name(node)) { to.name = Nexo::IntfId{*text}; }
    addressOf(fields, "vtep", Nexo::AddressFamily::ipv4, to.vtepAddr);
    addressOf(fields, "vtepV6", Nexo::AddressFamily::ipv6, to.vtepAddrV6);
    const YamlNode* vlans = fields.find("vlans");
    if (vlans == nullptr) { return; }
    if (vlans->kind != YamlNode::Kind::map) {
        values_.expected(*vlans, "a map of VLAN to VNI");
        return;
    }
    values_.checkKeysOnce(*vlans);
    to.vlanVniMap.clear();
    for (std::size_t i = 0; i + 1 < vlans->items.size(); i += 2) {
        const std::uint64_t all = std::numeric_limits<std::uint32_t>::max();
        const auto vlan = values_.number(vlans->items[i], 0, lax_ ? all : kMaxVlan);
        const auto vni = values_.number(vlans->items[i + 1], 0, lax_ ? all : kMaxVni);
        if (vlan && vni) {
            to.vlanVniMap[static_cast<std::uint32_t>(*vlan)] = static_cast<std::uint32_t>(*vni);
        }
    }
}

std::string ElementReader::payloadName(Tunnel::PayloadType type) {
    const auto number = static_cast<std::uint8_t>(type);
    for (const auto& [word, value] : kDecapPayloads) {
        if (value == number) { return std::string{word}; }
    }
    return std::to_string(number);
}

/// A source's name is an element of a path.
std::optional<std::string> ElementReader::sourceOf(const YamlNode& element) const {
    const YamlNode* node = valueOf(element, "source");
    if (node == nullptr) { return std::string{}; }
    auto text = values_.text(*node, kMaxNameBytes);
    if (text && text->find('/') != std::string::npos) {
        return values_.expected(*node, "a name without '/'");
    }
    return text;
}

std::optional<UdpPortKey> ElementReader::udpPortKey(const YamlNode& element) const {
    const YamlNode* node = needed(element, "payload", values_);
    const auto payload =
        node != nullptr ? wordOf(*node, kUdpPayloads, values_, lax_) : std::nullopt;
    const auto source = sourceOf(element);
    if (!payload || !source) { return std::nullopt; }
    return UdpPortKey{*source, static_cast<Tunnel::PayloadType>(*payload)};
}

std::optional<DecapGroupKey> ElementReader::decapGroupKey(const YamlNode& element) const {
    const auto group = name(element);
    const auto source = sourceOf(element);
    if (!group || !source) { return std::nullopt; }
    return DecapGroupKey{*source, *group};
}

void ElementReader::port(const FieldReader& fields, std::uint16_t& to, bool whole) const {
    if (whole) { fields.need("port"); }
    fields.read("port", to, lax_ ? 0 : 1);
}

void ElementReader::udpPort(const YamlNode& node,
                            L3::Tunnel::DestinationPort& to,
                            bool whole) const {
    const FieldReader fields{node, {"payload", "source", "port", "mode"}, values_};
    if (whole) { to.configMode = 1; }
    port(fields, to.port, whole);
    if (const YamlNode* at = fields.find("mode")) {
        to.configMode = wordOf(*at, kConfigModes, values_, lax_).value_or(to.configMode);
    }
}

void ElementReader::decapGroup(const YamlNode& node,
                               Tunnel::Decap::DecapGroup& to,
                               bool whole) const {
    const FieldReader fields{node, {"name", "source", "payload", "port"}, values_};
    if (whole) { fields.need("payload"); }
    if (const YamlNode* at = fields.find("payload")) {
        if (const auto payload = wordOf(*at, kDecapPayloads, values_, lax_)) {
            to.payloadType = static_cast<Tunnel::PayloadType>(*payload);
        }
    }
    const bool overUdp = to.payloadType != Tunnel::PayloadType::gre;
    port(fields, to.dPort, whole && overUdp);
}

void ElementReader::nextHop(const YamlNode& node, DescribedNextHop& to) const {
    const FieldReader fields{node,
                             {"name",
                              "index",
                              "interface",
                              "address",
                              "mac",
                              "labels",
                              "pop",
                              "encapOrder",
                              "mplsEncapLabels",
                              "gue",
                              "vxlan",
                              "decapVrf",
                              "decapHeader",
                              "fallbackVrf",
                              "truncate"},
                             values_};
    const std::size_t problems = values_.problems().count();
    to.place = node.place;
    fields.read("name", to.name, kMaxNameBytes);
    if (to.index == Stash::OcNextHopIndex{}) { to.index = derivedIndex(to.name); }
    std::uint64_t index = to.index.value();
    fields.read("index", index, 1, kFirstDerivedIndex - 1);
    to.index = Stash::OcNextHopIndex{index};
    if (const YamlNode* at = fields.find("interface")) { interface(*at, to.interface); }
    address(fields, "address", to.address);
    if (const YamlNode* at = fields.find("mac")) { to.mac = values_.mac(*at).value_or(to.mac); }
    const std::size_t maxLabels = lax_ ? kMaxLaxLabels : Nexo::MplsStackEntryIndex::kNullValue;
    labels(fields.find("labels"), maxLabels, to.labels);
    fields.read("pop", to.pop);
    if (const YamlNode* at = fields.find("encapOrder")) { encapOrder(*at, to.encapOrder); }
    labels(fields.find("mplsEncapLabels"), maxLabels, to.mplsEncapLabels);
    if (const YamlNode* at = fields.find("gue")) { gue(*at, to.gue); }
    if (const YamlNode* at = fields.find("vxlan")) { vxlan(*at, to.vxlan); }
    vrfReference(fields, "decapVrf", to.decapVrf);
    vrfReference(fields, "fallbackVrf", to.fallbackVrf);
    if (const YamlNode* at = fields.find("decapHeader")) {
        to.decapHeader = wordOf(*at, kDecapHeaders, values_, lax_).value_or(to.decapHeader);
    }
    truncation(fields, to.truncate);
    // Of what could not be read there is nothing to say about how it fits.
    if (!lax_ && values_.problems().count() == problems) { checkEncaps(to); }
}

/// A healthy producer gives the data of each encapsulation that it orders, and of no other.
void ElementReader::checkEncaps(const DescribedNextHop& nextHop) const {
    const auto ordered = [&](EncapType type) {
        return std::count(nextHop.encapOrder.begin(),
                          nextHop.encapOrder.end(),
                          static_cast<std::uint8_t>(type)) > 0;
    };
    if (ordered(EncapType::mpls) == nextHop.mplsEncapLabels.empty()) {
        values_.problems().add(nextHop.place,
                               "expected both 'mpls' in 'encapOrder' and 'mplsEncapLabels', or "
                               "none of them");
    }
    if (ordered(EncapType::udp) != nextHop.gue.has_value()) {
        values_.problems().add(nextHop.place,
                               "expected both 'udp' in 'encapOrder' and 'gue', or none of them");
    }
}

void ElementReader::labels(const YamlNode* node,
                           std::size_t max,
                           std::vector<Nexo::MplsLabel>& to) const {
    if (node == nullptr) { return; }
    to.clear();
    const auto& items = values_.list(*node);
    if (items.size() > max) {
        values_.problems().add(node->place,
                               "expected at most " + std::to_string(max) + " labels, not " +
                                   std::to_string(items.size()));
        return;
    }
    for (const YamlNode& item : items) {
        if (const auto label = values_.number(item, 0, Nexo::MplsLabel::kMax)) {
            to.emplace_back(static_cast<std::uint32_t>(*label));
        }
    }
}

void ElementReader::encapOrder(const YamlNode& node, std::vector<std::uint8_t>& to) const {
    to.clear();
    const auto& items = values_.list(node);
    if (items.size() > Stash::EncapTypeStack::kMaxEncaps) {
        values_.problems().add(node.place,
                               "expected at most " +
                                   std::to_string(Stash::EncapTypeStack::kMaxEncaps) +
                                   " encapsulations, not " + std::to_string(items.size()));
        return;
    }
    for (const YamlNode& item : items) {
        if (const auto type = wordOf(item, kEncapTypes, values_, lax_)) { to.push_back(*type); }
    }
}

void ElementReader::gue(const YamlNode& node, std::optional<Stash::GueEncap>& to) const {
    if (node.kind == YamlNode::Kind::null) { return to.reset(); }
    const FieldReader fields{node, {"addressFamily", "source", "destination", "ttl"}, values_};
    const std::size_t problems = values_.problems().count();
    Stash::GueEncap gue = to.value_or(Stash::GueEncap{});
    fields.need("source");
    fields.need("destination");
    address(fields, "source", gue.source);
    address(fields, "destination", gue.destination);
    fields.read("ttl", gue.ipTtl, 0);
    gue.addressFamily = static_cast<std::uint8_t>(gue.source.family());
    fields.read("addressFamily", gue.addressFamily, 0);
    const auto family = static_cast<std::uint8_t>(gue.source.family());
    const bool oneFamily =
        gue.destination.family() == gue.source.family() && gue.addressFamily == family;
    if (!lax_ && !oneFamily && values_.problems().count() == problems) {
        values_.problems().add(node.place,
                               "expected 'source', 'destination' and 'addressFamily' (1 IPv4, 2 "
                               "IPv6) of one family");
    }
    to = gue;
}

void ElementReader::vxlan(const YamlNode& node, std::optional<Stash::VxlanEncap>& to) const {
    if (node.kind == YamlNode::Kind::null) { return to.reset(); }
    const FieldReader fields{node, {"vti", "vlan"}, values_};
    Stash::VxlanEncap vxlan = to.value_or(Stash::VxlanEncap{});
    const YamlNode* vti = fields.need("vti");
    const auto text = vti != nullptr ? values_.text(*vti, kMaxNameBytes) : std::nullopt;
    if (text) { vxlan.vti = Nexo::IntfId{*text}; }
    if (fields.need("vlan") != nullptr) {
        fields.read(
            "vlan", vxlan.vlan, 0, lax_ ? std::numeric_limits<std::uint32_t>::max() : kMaxVlan);
    }
    to = vxlan;
}

void ElementReader::interface(const YamlNode& node, Nexo::IntfId& to) const {
    const auto found = interfaces_.find(node.text);
    if (found != interfaces_.end()) {
        to = found->second;
        return;
    }
    std::vector<std::string_view> names;
    for (const auto& [known, id] : interfaces_) { names.push_back(known); }
    const std::string_view meant = nearest(node.text, names);
    values_.expected(node,
                     "the name of an interface" +
                         (meant.empty() ? std::string{} : " (such as " + inQuotes(meant) + ")"));
}

void ElementReader::fec(const YamlNode& node, DescribedFec& to) const {
    const FieldReader fields{node,
                             {"id",
                              "name",
                              "groupAttribute",
                              "programmedId",
                              "top",
                              "secondFlag",
                              "members",
                              "truncate"},
                             values_};
    to.place = node.place;
    fields.read("name", to.name, kMaxNameBytes);
    fields.read("groupAttribute", to.groupAttribute, 0);
    fields.read("programmedId", to.programmedId, 0);
    fields.read("top", to.top);
    fields.read("secondFlag", to.secondFlag);
    if (const YamlNode* at = fields.find("members")) { members(*at, to.members); }
    truncation(fields, to.truncate);
}

void ElementReader::members(const YamlNode& node, std::vector<DescribedMember>& to) const {
    to.clear();
    std::map<std::string_view, Place> seen;
    for (const YamlNode& item : values_.list(node)) {
        DescribedMember member;
        member.place = item.place;
        const YamlNode* at = &item;
        if (item.kind == YamlNode::Kind::map) {
            const FieldReader fields{item, {"nextHop", "weight"}, values_};
            fields.read("weight", member.weight, lax_ ? 0 : 1);
            at = fields.need("nextHop");
        }
        const auto text = at != nullptr ? nameText(*at) : std::nullopt;
        if (!text) { continue; }
        member.nextHop = *text;
        if (!seen.emplace(at->text, at->place).second && !lax_) {
            values_.problems().add(at->place, "the member " + inQuotes(*text) + " comes twice");
        }
        to.push_back(std::move(member));
    }
}

void ElementReader::route(const YamlNode& node, DescribedRoute& to) const {
    const FieldReader fields{node, {"vrf", "prefix", "fec", "origin"}, values_};
    to.place = node.place;
    if (const YamlNode* at = fields.find("fec")) { to.fec = fecIdText(*at).value_or(to.fec); }
    if (!to.fec && fields.find("fec") == nullptr) { fields.need("fec"); }
    if (const YamlNode* at = fields.find("origin")) {
        if (const auto origin = wordOf(*at, kOrigins, values_, lax_)) {
            to.origin = static_cast<OriginProtocol>(*origin);
        }
    }
}

bool ElementReader::readiness(const YamlNode& node, std::optional<bool>& to) const {
    return flagOr("none", node, to);
}

bool ElementReader::quiesced(const YamlNode& node, std::optional<bool>& to) const {
    return flagOr("never", node, to);
}

bool ElementReader::flagOr(std::string_view neither,
                           const YamlNode& node,
                           std::optional<bool>& to) const {
    if (node.text == neither) {
        to.reset();
    } else if (node.text == "true" || node.text == "false") {
        to = node.text == "true";
    } else {
        values_.expected(node, "true, false or " + std::string{neither});
        return false;
    }
    return true;
}

void ElementReader::truncation(const FieldReader& fields, std::optional<std::uint32_t>& to) const {
    const YamlNode* at = fields.find("truncate");
    if (at == nullptr) { return; }
    if (!lax_) {
        values_.problems().add(at->place, "'truncate' needs 'invalid: allow'");
        return;
    }
    to = 0;
    fields.read("truncate", *to, 0);
}

void ElementReader::address(const FieldReader& fields,
                            std::string_view key,
                            Nexo::IpGenAddr& to) const {
    const YamlNode* at = fields.find(key);
    if (at != nullptr) { to = values_.address(*at).value_or(to); }
}

void ElementReader::addressOf(const FieldReader& fields,
                              std::string_view key,
                              Nexo::AddressFamily family,
                              Nexo::IpGenAddr& to) const {
    address(fields, key, to);
    const YamlNode* at = fields.find(key);
    if (at == nullptr || lax_ || to.family() == family || to == Nexo::IpGenAddr{}) { return; }
    values_.expected(*at,
                     family == Nexo::AddressFamily::ipv4 ? "an IPv4 address" : "an IPv6 address");
}

/// What can be a number is an id.
void ElementReader::vrfReference(const FieldReader& fields,
                                 std::string_view key,
                                 VrfReference& to) const {
    const YamlNode* at = fields.find(key);
    if (at == nullptr) { return; }
    const bool number =
        at->text.find_first_not_of("0123456789") == std::string::npos || at->text.starts_with("0x");
    if (at->kind == YamlNode::Kind::scalar && !number) {
        to = VrfReference{at->place, at->text, 0};
    } else if (const auto id = values_.number(*at, 0, std::numeric_limits<std::uint32_t>::max())) {
        to = VrfReference{at->place, {}, static_cast<std::uint32_t>(*id)};
    }
}

}  // namespace Pel::Forwarder
