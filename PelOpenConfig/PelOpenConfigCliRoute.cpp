#include "PelOpenConfig/PelOpenConfigCliRoute.h"

#include <string_view>

#include "model/Route/OriginProtocol.h"
#include "platform/Vel/Errors.h"

namespace Pel::Oc {
namespace {

using AgentHost::CliPrinter;
using Nexo::IpGenAddr;
using Nexo::IpPrefix;

/// How an element stands on its way from the forwarder to a client.
struct Standing {
    bool published;  // the flattened set has it
    bool readable;   // and its record
    bool exported;   // the AFT has it
    bool pending;    // it is still to be looked at
};

std::string_view problemOf(const Standing& it) {
    if (!it.published) { return "the forwarder does not publish it"; }
    if (!it.readable) { return "its record cannot be read"; }
    if (it.exported) { return {}; }
    return it.pending ? "it waits to be exported" : "the export is off or could not take it";
}

void showProblem(std::string_view problem, bool exported, CliPrinter& to) {
    to.boolean({}, "exported", exported);
    if (problem.empty()) { return; }
    to.string(exported ? ", exported, but " : ", NOT exported: ", "problem", problem);
}

}  // namespace

RouteSources::RouteSources(Vel::Ref<const VrfTables> vrfTables,
                           Vel::Ref<CliHelper> cliHelper,
                           const OcApi::AftContainer& aft)
    : vrfTables_{std::move(vrfTables)},
      cliHelper_{std::move(cliHelper)},
      nextHops_{aft.nextHops()},
      groups_{aft.nextHopGroups()} {}

void RouteSources::ofFec(FecId fecId, bool readable, CliPrinter& to) const {
    const auto& fecs = cliHelper_->flattenFecSet()->fec();
    const OcApi::NextHopGroupId id{fecId.value()};
    const bool exported = groups_->nextHopGroup(id) != nullptr;
    const auto entry = fecs.entry(fecId);
    const bool bottom = entry && !entry->topFec;
    showProblem(bottom ? "it is a bottom FEC"
                       : problemOf({fecs.has(fecId), readable, exported, groups_->pending(id)}),
                exported,
                to);
}

void RouteSources::ofNextHop(Stash::OcNextHopIndex index, bool readable, CliPrinter& to) const {
    const OcApi::NextHopIndex id{index.value()};
    const bool exported = nextHops_->nextHop(id) != nullptr;
    const bool published = cliHelper_->flattenFecSet()->nextHop().has(index);
    showProblem(problemOf({published, readable, exported, nextHops_->pending(id)}), exported, to);
}

ShowRouteInstanceSm::ShowRouteInstanceSm(const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
                                         const AgentHost::CommandRequest& params,
                                         Vel::Ref<RouteSources> sources)
    : KeyedShowCommandInstanceSm{anchor, params, "VRF"}, sources_{std::move(sources)} {}

ShowRouteInstanceSm::Destination ShowRouteInstanceSm::parse(const std::string& text) {
    if (const auto address = IpGenAddr::parse(text)) {
        return {IpPrefix{*address, address->width() * 8}, true};
    }
    const auto prefix = IpPrefix::parse(text);
    if (!prefix) { throw Vel::RangeError{"'" + text + "' is no address and no prefix"}; }
    const auto address = IpGenAddr::parse(std::string_view{text}.substr(0, text.find('/')));
    if (address != prefix->address()) {
        throw Vel::RangeError{"'" + text + "' has bits set beyond its length: did you mean " +
                              prefix->stringValue() + "?"};
    }
    return {*prefix, false};
}

std::optional<IpPrefix> ShowRouteInstanceSm::match(const VrfTables::Table& table,
                                                   const Destination& to) {
    if (!to.address) { return table.has(to.prefix) ? std::optional{to.prefix} : std::nullopt; }
    for (unsigned length = to.prefix.length() + 1; length-- > 0;) {
        const IpPrefix prefix{to.prefix.address(), length};
        if (table.has(prefix)) { return prefix; }
    }
    return std::nullopt;
}

void ShowRouteInstanceSm::produceOutput() {
    if (text_.empty()) {
        const auto text = params().parameters.find("PREFIX");
        if (text == params().parameters.end()) { throw Vel::RangeError{"no PREFIX is given"}; }
        destination_ = parse(text->second);
        text_ = text->second;
    }
    const CliHelper::PrinterGuard guard{sources_->cliHelper(), *printer()};
    KeyedShowCommandInstanceSm::produceOutput();
}

void ShowRouteInstanceSm::showAll() {
    KeyedShowCommandInstanceSm::showAll();
    if (allOutputProduced()) { handleEnd({}); }
}

void ShowRouteInstanceSm::showOne(const std::string& text) {
    if (!has(text)) {
        printer()->cmdErr("% No VRF " + text + " found");
        return;
    }
    begin();
    show(text);
    handleEnd(" in VRF " + text);
}

void ShowRouteInstanceSm::handleEnd(const std::string& where) {
    if (found_) { return; }
    printer()->cmdErr(tableRead_ ? "% No route " + std::string{destination_.address ? "to " : ""} +
                                       text_ + " found" + where
                                 : "% No route table is read" + where);
}

void ShowRouteInstanceSm::begin() {
    printer()->openDict({}, "vrfs");
}

bool ShowRouteInstanceSm::has(const std::string& key) const {
    return sources_->vrfTables().vrfs().contains(key);
}

std::optional<std::string> ShowRouteInstanceSm::nextKey(
    const std::optional<std::string>& after) const {
    return sources_->vrfTables().nextName(after);
}

void ShowRouteInstanceSm::show(const std::string& vrf) {
    const auto table = sources_->vrfTables().table(destination_.prefix.address().family(), vrf);
    if (!table) { return; }
    tableRead_ = true;
    if (const auto prefix = match(*table, destination_)) { showMatch(vrf, *table, *prefix); }
}

void ShowRouteInstanceSm::showMatch(const std::string& vrf,
                                    VrfTables::Table& table,
                                    const IpPrefix& prefix) {
    found_ = true;
    CliPrinter& to = *printer();
    to.openDict("VRF: ", vrf);
    to.string(", prefix: ", "prefix", prefix.stringValue());
    if (destination_.address) { to.string(", longest match of ", "address", text_); }
    const auto route = table.read(prefix);
    if (!route) {
        to.string(", PROBLEM: ", "problem", "its record cannot be read");
    } else {
        const std::string_view origin = identityName(route->originProtocol);
        if (!origin.empty()) { to.string(", origin: ", "originProtocol", origin); }
        if (!route->fecId) { to.string(", PROBLEM: ", "problem", "it names no FEC"); }
    }
    to.endLine();
    if (route && route->fecId) {
        to.indentIs(1);
        to.openDict({}, "fecs");
        sources_->cliHelper().showFec(route->fecId, *sources_);
        to.closeDict();
        to.indentIs(0);
    }
    to.closeDict();
}

}  // namespace Pel::Oc
