#include "PelOpenConfig/PelOpenConfigCliEntries.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

#include "model/View/OpenConfigValues.h"

namespace Pel::Oc {
namespace {

using AgentHost::CliPrinter;
using Nexo::AddressFamily;
using OcApi::EncapHeader;
using OcApi::EncapHeaderType;
using OcApi::NextHop;
using OcApi::NextHopGroup;

std::vector<std::uint32_t> numbersOf(const auto& ids) {
    std::vector<std::uint32_t> numbers;
    std::transform(ids.begin(), ids.end(), std::back_inserter(numbers), [](const auto& id) {
        return id.value();
    });
    return numbers;
}

/// The schema's name, or the number of a type that has none.
std::string nameOf(EncapHeaderType type) {
    if (type == EncapHeaderType::unset) { return "unset"; }
    const std::string_view name = OcApi::OpenConfigValues::typeName(type);
    return name.empty() ? std::to_string(static_cast<unsigned>(type)) : std::string{name};
}

/// A leaf in a line of its own; one without a value is not shown.
void leaf(CliPrinter& to, std::string_view label, std::string_view key, const std::string& value) {
    if (value.empty()) { return; }
    to.string(label, key, value);
    to.endLine();
}

std::string interfaceOf(const NextHop& nextHop) {
    std::string text = nextHop.interface.stringValue();
    if (nextHop.subinterface) { text += "." + std::to_string(*nextHop.subinterface); }
    return text;
}

/// What becomes of a packet, in short: "push 100 200, MPLS UDPV4", the innermost header first.
std::string encapsulationOf(const NextHop& nextHop) {
    std::vector<std::string> parts;
    if (nextHop.popTopLabel) { parts.emplace_back("pop"); }
    if (!nextHop.pushedMplsLabelStack.empty()) {
        parts.push_back(
            fmt::format("push {}", fmt::join(numbersOf(nextHop.pushedMplsLabelStack), " ")));
    }
    if (nextHop.decapsulateHeader != EncapHeaderType::unset) {
        parts.push_back("decapsulate " + nameOf(nextHop.decapsulateHeader));
    }
    std::vector<std::string> headers;
    for (const EncapHeader& header : nextHop.encapHeaders) {
        headers.push_back(nameOf(header.type));
    }
    if (!headers.empty()) { parts.push_back(fmt::format("{}", fmt::join(headers, " "))); }
    return fmt::format("{}", fmt::join(parts, ", "));
}

/// An address of a header; one that is not known is not shown.
void showAddress(CliPrinter& to,
                 std::string_view label,
                 std::string_view key,
                 const Nexo::IpGenAddr& address) {
    if (!address.isZero()) { to.string(label, key, address.stringValue()); }
}

void showState(const EncapHeader& header, CliPrinter& to) {
    if (const auto* const mpls = header.stateAs<OcApi::MplsState>()) {
        to.numbers(", labels: ", "mplsLabelStack", numbersOf(mpls->mplsLabelStack));
    } else if (const auto* const udp = header.stateAs<OcApi::UdpState>()) {
        showAddress(to, ", source: ", "srcIp", udp->srcIp);
        showAddress(to, ", destination: ", "dstIp", udp->dstIp);
        if (udp->ipTtl) { to.number(", TTL: ", "ipTtl", *udp->ipTtl); }
    } else if (const auto* const vxlan = header.stateAs<OcApi::VxlanState>()) {
        showAddress(to, ", source: ", "tunnelSrcIpAddress", vxlan->tunnelSrcIpAddress);
        if (vxlan->vniLabel) { to.number(", VNI: ", "vniLabel", *vxlan->vniLabel); }
    }
}

void showEncapHeaders(const NextHop& nextHop, CliPrinter& to) {
    to.openDict({}, "encapHeaders");
    for (const EncapHeader& header : nextHop.encapHeaders) {
        to.openDict("\tEncapsulation header ", std::to_string(header.index));
        to.string(", type: ", "type", nameOf(header.type));
        showState(header, to);
        to.endLine();
        to.closeDict();
    }
    to.closeDict();
}

}  // namespace

std::string NextHopEntries::heading() {
    return fmt::format("{:<15} {:<23} {:<17} {:<15} {}",
                       "INDEX",
                       "IP ADDRESS",
                       "MAC ADDRESS",
                       "INTERFACE",
                       "LABELS, HEADERS");
}

std::optional<NextHopEntries::Key> NextHopEntries::find(const std::string& text) const {
    const Key key{CliHelper::decimal(text, "next-hop index")};
    return has(key) ? std::optional{key} : std::nullopt;
}

std::string NextHopEntries::line(Key key) const {
    const NextHop& nextHop = *nextHops_->nextHop(key);
    return fmt::format("{:<15} {:<23} {:<17} {:<15} {}",
                       key.value(),
                       nextHop.ipAddress.stringValue(),
                       nextHop.macAddress.isZero() ? "" : nextHop.macAddress.stringValue(),
                       interfaceOf(nextHop),
                       encapsulationOf(nextHop));
}

void NextHopEntries::show(Key key, CliPrinter& to) const {
    const NextHop& nextHop = *nextHops_->nextHop(key);
    to.openDict("Next hop index: ", std::to_string(key.value()));
    to.endLine();
    leaf(to, "\tIP address: ", "ipAddress", nextHop.ipAddress.stringValue());
    if (!nextHop.macAddress.isZero()) {
        leaf(to, "\tMAC address: ", "macAddress", nextHop.macAddress.stringValue());
    }
    leaf(to, "\tInterface: ", "interface", nextHop.interface.stringValue());
    if (nextHop.subinterface) {
        to.number("\tSubinterface: ", "subinterface", *nextHop.subinterface);
        to.endLine();
    }
    to.numbers("\tLabels: ", "pushedMplsLabelStack", numbersOf(nextHop.pushedMplsLabelStack));
    to.endLine();
    to.boolean("\tPop top label: ", "popTopLabel", nextHop.popTopLabel);
    to.endLine();
    if (nextHop.decapsulateHeader != EncapHeaderType::unset) {
        leaf(to, "\tDecapsulated header: ", "decapsulateHeader", nameOf(nextHop.decapsulateHeader));
    }
    leaf(to,
         "\tVRF of decapsulated packets: ",
         "decapNetworkInstance",
         nextHop.decapNetworkInstance.stringValue());
    leaf(to,
         "\tFallback VRF: ",
         "fallbackNetworkInstance",
         nextHop.fallbackNetworkInstance.stringValue());
    showEncapHeaders(nextHop, to);
    if (const auto* const counter = counters_->nextHopCounter(key)) {
        to.number("\tPackets forwarded: ", "packetsForwarded", counter->packetsForwarded);
        to.number(", octets: ", "octetsForwarded", counter->octetsForwarded);
        to.endLine();
    }
    to.closeDict();
}

std::string GroupEntries::heading() {
    return fmt::format("{:<18} {:<18} {:<8} {}", "ID", "PROGRAMMED ID", "MEMBERS", "NAME");
}

std::optional<GroupEntries::Key> GroupEntries::find(const std::string& text) const {
    const Key key{CliHelper::decimal(text, "group id")};
    return has(key) ? std::optional{key} : std::nullopt;
}

std::string GroupEntries::line(Key key) const {
    const NextHopGroup& group = *groups_->nextHopGroup(key);
    const auto missing = std::count_if(
        group.nextHops.begin(), group.nextHops.end(), [this](const OcApi::NextHopInGroup& member) {
            return nextHops_->nextHop(member.index) == nullptr;
        });
    return fmt::format("{:<18} {:<18} {:<8} {}{}",
                       key.value(),
                       group.programmedId ? std::to_string(*group.programmedId) : "",
                       group.nextHops.size(),
                       group.name.value_or(""),
                       missing == 0 ? "" : fmt::format(" ({} NOT exported)", missing));
}

void GroupEntries::show(Key key, CliPrinter& to) const {
    const NextHopGroup& group = *groups_->nextHopGroup(key);
    to.openDict("Group ID: ", std::to_string(key.value()));
    if (group.programmedId) { to.number(", programmed ID: ", "programmedId", *group.programmedId); }
    to.number(", number of next hops: ", {}, group.nextHops.size());
    to.endLine();
    leaf(to, "\tName: ", "name", group.name.value_or(""));
    if (group.groupAttribute != NextHopGroup::kUnset) {
        to.number("\tGroup attribute: ", "groupAttribute", group.groupAttribute);
        to.endLine();
    }
    if (group.secondFlag != NextHopGroup::kUnset) {
        to.number("\tSecond flag: ", "secondFlag", group.secondFlag);
        to.endLine();
    }
    to.openDict({}, "nextHops");
    for (const OcApi::NextHopInGroup& member : group.nextHops) {
        const bool exported = nextHops_->nextHop(member.index) != nullptr;
        to.openDict("\tNext hop index: ", std::to_string(member.index.value()));
        to.number(", weight ", "weight", member.weight);
        to.boolean({}, "exported", exported);
        if (!exported) { to.string(", NOT exported", {}, {}); }
        to.endLine();
        to.closeDict();
    }
    to.closeDict();
    to.closeDict();
}

std::string VrfEntries::heading() {
    return fmt::format("{:<15} {:>13} {:>13}  {}", "ID", "IPV4 PREFIXES", "IPV6 PREFIXES", "NAME");
}

std::optional<VrfEntries::Key> VrfEntries::find(const std::string& text) const {
    if (has(text)) { return text; }
    std::uint32_t id = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (problem != std::errc{} || end != text.data() + text.size()) { return std::nullopt; }
    for (const auto& [name, vrf] : vrfTables_->vrfs()) {
        if (vrf.ids.contains(Vrf::VrfId{id})) { return name; }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> VrfEntries::prefixes(AddressFamily family, const Key& key) const {
    const auto table = vrfTables_->table(family, key);
    return table ? std::optional{table->keys().size()} : std::nullopt;
}

std::string VrfEntries::line(const Key& key) const {
    const VrfTables::Entry& vrf = vrfTables_->vrfs().at(key);
    const std::vector<std::uint32_t> ids = numbersOf(vrf.ids);
    const auto count = [&](AddressFamily family) -> std::string {
        if (const auto number = prefixes(family, key)) { return std::to_string(*number); }
        return vrf.families.contains(family) ? "not read" : "none";
    };
    return fmt::format("{:<15} {:>13} {:>13}  {}",
                       ids.empty() ? "none" : fmt::format("{}", fmt::join(ids, ",")),
                       count(AddressFamily::ipv4),
                       count(AddressFamily::ipv6),
                       key);
}

void VrfEntries::show(const Key& key, CliPrinter& to) const {
    to.openDict("VRF: ", key);
    to.endLine();
    to.numbers("\tID: ", "ids", numbersOf(vrfTables_->vrfs().at(key).ids));
    to.endLine();
    if (const auto number = prefixes(AddressFamily::ipv4, key)) {
        to.number("\tIPv4 prefixes: ", "ipv4Prefixes", *number);
        to.endLine();
    }
    if (const auto number = prefixes(AddressFamily::ipv6, key)) {
        to.number("\tIPv6 prefixes: ", "ipv6Prefixes", *number);
        to.endLine();
    }
    to.closeDict();
}

template <class Entries>
void ShowEntriesInstanceSm<Entries>::showOne(const std::string& text) {
    const std::optional<Key> key = entries_->find(text);
    CliPrinter& to = *this->printer();
    if (!key) {
        to.cmdErr(Entries::missing(text));
        return;
    }
    to.openDict({}, Entries::kDict);
    entries_->show(*key, to);
}

template <class Entries>
void ShowEntriesInstanceSm<Entries>::begin() {
    CliPrinter& to = *this->printer();
    to.string(Entries::heading(), {}, {});
    to.endLine();
    to.openDict({}, Entries::kDict);
}

template <class Entries>
void ShowEntriesInstanceSm<Entries>::show(const Key& key) {
    CliPrinter& to = *this->printer();
    if (to.format() == AgentHost::OutputFormat::json) {
        entries_->show(key, to);
        return;
    }
    std::string line = entries_->line(key);
    line.erase(line.find_last_not_of(' ') + 1);
    to.string(line.substr(0, 1), {}, line.substr(1));
    to.endLine();
}

template class ShowEntriesInstanceSm<NextHopEntries>;
template class ShowEntriesInstanceSm<GroupEntries>;
template class ShowEntriesInstanceSm<VrfEntries>;

}  // namespace Pel::Oc
