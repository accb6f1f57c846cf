#include "PelOpenConfig/PelOpenConfigStatus.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "PelOpenConfig/PelOpenConfigStatusStreams.h"
#include "PelOpenConfig/PelOpenConfigStatusVrfs.h"
#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/AgentHost/AgeText.h"
#include "platform/Stash/Set.h"

namespace Pel::Oc {
namespace {

using AgentHost::CliPrinter;
namespace Paths = OcApi::OpenConfigPaths;

constexpr std::size_t kShownTables = 3;

void printState(CliPrinter& to, std::string_view label, bool ready) {
    if (ready) {
        to.string(label, {}, "ready");
    } else {
        to.bad(label, {}, "NOT ready");
    }
}

void printHalf(CliPrinter& to,
               std::string_view label,
               std::string_view key,
               bool ready,
               const std::string& waitsFor) {
    to.openDict({}, key);
    to.boolean({}, "ready", ready);
    printState(to, label, ready);
    if (!ready) { to.string(": ", "waitsFor", waitsFor); }
    to.endLine();
    to.closeDict();
}

std::string nameOf(const Gale::Reference& entry) {
    switch (entry.lane) {
        case Gale::Lane::nextHops:
            return fmt::format("next hop {}", entry.key.lo);
        case Gale::Lane::groups:
            return fmt::format("group {}", entry.key.lo);
        case Gale::Lane::prefixes:
            return OcApi::OpenConfigKeys::prefixOf(entry.key).stringValue();
        default:
            return "an entry";
    }
}

void printCounts(CliPrinter& to,
                 std::string_view label,
                 std::string_view key,
                 std::size_t held,
                 std::size_t shown) {
    to.openDict({}, key);
    to.number(label, "held", held);
    to.number(" held, ", "shown", shown);
    to.text(" shown");
}

}  // namespace

Status::Status(StatusInputs inputs, const Gale::ServiceStatus& service, Kiln::TimePoint now)
    : inputs_{std::move(inputs)}, service_{service}, now_{now} {}

void Status::print(CliPrinter& to) const {
    printExport(to);
    printMounts(to);
    if (!inputs_.mountsComplete) { return; }
    printReadiness(to);
    const std::vector<VrfState> vrfs = vrfStates(inputs_);
    printVrfs(to, vrfs, enabled());
    printEntries(to, routeCounts(vrfs));
    printWaiting(to);
    printStreams(to, service_, now_);
}

bool Status::enabled() const {
    return inputs_.exportRoot && inputs_.exportRoot->smsInitialized();
}

std::string Status::whyOff() const {
    if (!inputs_.mountsComplete) { return "the configuration is not read yet"; }
    const bool wanted = inputs_.toloConfig && inputs_.toloConfig->aftExportEnabled();
    const std::string command = "pel config set aftExportEnabled true ";
    return wanted ? "the configuration wants it; " + command + "has it read"
                  : command + "switches it on";
}

void Status::printExport(CliPrinter& to) const {
    to.openDict({}, "export");
    to.boolean({}, "enabled", enabled());
    to.text("export      ");
    if (enabled()) {
        to.text("on");
    } else {
        to.bad({}, {}, "OFF");
        to.string(": ", "reason", whyOff());
    }
    to.endLine();
    to.closeDict();
}

void Status::printMounts(CliPrinter& to) const {
    const bool stash = inputs_.stash && inputs_.stash->ready();
    std::size_t mounted = 0;
    std::vector<std::string> absent;
    if (inputs_.mountsComplete) {
        for (const auto& [path, entity] : inputs_.tables->entities()) {
            const auto table = Vel::refCast<Mesa::Table>(entity);
            if (!table) { continue; }
            ++mounted;
            if (!table->present()) { absent.push_back(path); }
        }
    }
    to.openDict({}, "mounts");
    to.boolean({}, "stateDatabase", inputs_.mountsComplete);
    to.boolean({}, "stash", stash);
    to.number({}, "tables", mounted);
    to.text("mounts      state database ");
    if (inputs_.mountsComplete) {
        printState(to, "complete, stash ", stash);
        to.text(fmt::format(", {} tables", mounted));
    } else {
        to.bad({}, {}, "NOT complete: waits for the stores to be read");
    }
    to.endLine();
    to.openList({}, "absentTables");
    for (std::size_t i = 0; i < to.shownOf(absent.size(), kShownTables); ++i) {
        to.openItem();
        to.string("  not published: ", "path", absent[i]);
        to.endLine();
        to.closeDict();
    }
    to.closeList();
    to.andMore(absent.size(), kShownTables);
    to.closeDict();
}

template <class Mapper>
std::string Status::waitsFor(const Vel::Ref<Mapper>& mapper) const {
    if (!mapper) { return "the export is off"; }
    if (!inputs_.stash->ready()) { return "the flattened set is not there"; }
    if (!inputs_.forwarderReady || !inputs_.forwarderReady->fecReady()) {
        return "the forwarder has not declared its FECs complete";
    }
    if (!mapper->backlogEmpty()) { return "not all are mapped yet"; }
    return "the next change of the flattened set";
}

void Status::printReadiness(CliPrinter& to) const {
    const bool fecReady = inputs_.aft->fibReady()->fecReady();
    const auto& root = *inputs_.exportRoot;
    const auto& halves = root.fecReadyState();
    to.openDict({}, "readiness");
    to.boolean({}, "fecReady", fecReady);
    printState(to, "FECs        ", fecReady);
    to.endLine();
    printHalf(to,
              "  next hops ",
              "nextHops",
              halves && halves->nhReady(),
              waitsFor(root.nextHopMapperSm()));
    printHalf(to,
              "  groups    ",
              "groups",
              halves && halves->nhgReady(),
              waitsFor(root.nextHopGroupMapperSm()));
    to.closeDict();
}

const Gale::ViewStatus* Status::view(std::string_view origin) const {
    const auto it = std::find_if(service_.views.begin(),
                                 service_.views.end(),
                                 [&](const auto& each) { return each.origin == origin; });
    return it == service_.views.end() ? nullptr : &*it;
}

void Status::printEntries(CliPrinter& to, const RouteCounts& routes) const {
    const Gale::ViewStatus* const shown = view(Paths::kOrigin);
    const auto count = [shown](Paths::Kind kind) {
        return shown == nullptr ? std::size_t{0} : shown->kinds.at(kind).shown;
    };
    const auto& root = *inputs_.exportRoot;
    to.openDict({}, "entries");
    printCounts(
        to, "next hops   ", "nextHops", inputs_.aft->nextHops()->size(), count(Paths::nextHops));
    to.number("; ", "encapsulated", inputs_.aft->nextHops()->encapsulated());
    to.text(" encapsulated");
    to.endLine();
    to.closeDict();
    printCounts(
        to, "groups      ", "groups", inputs_.aft->nextHopGroups()->size(), count(Paths::groups));
    to.endLine();
    to.closeDict();
    printCounts(to, "IPv4        ", "ipv4Prefixes", routes.ipv4, count(Paths::ipv4Entries));
    to.endLine();
    to.closeDict();
    printCounts(to, "IPv6        ", "ipv6Prefixes", routes.ipv6, count(Paths::ipv6Entries));
    to.endLine();
    to.closeDict();
    printCounters(to);
    const std::uint64_t unmapped =
        (root.nextHopMapperSm() ? root.nextHopMapperSm()->failedElements() : 0) +
        (root.nextHopGroupMapperSm() ? root.nextHopGroupMapperSm()->failedElements() : 0) +
        (inputs_.counters ? inputs_.counters->failedElements() : 0);
    const std::uint64_t unencoded = shown == nullptr ? 0 : shown->provider.failed;
    to.number({}, "mappingsFailed", unmapped);
    to.number({}, "encodingsFailed", unencoded);
    if (unmapped + unencoded > 0) {
        to.bad("            ", {}, fmt::format("{} FAILED", unmapped + unencoded));
        to.text(" since the start: pel trace says which");
        to.endLine();
    }
    to.closeDict();
}

/// For machines only: what clients are shown of counters goes with the next hops.
void Status::printCounters(CliPrinter& to) const {
    const auto& mapper = inputs_.exportRoot->nextHopMapperSm();
    to.openDict({}, "nextHopCounters");
    to.number({}, "held", inputs_.aft->nextHopCounters()->size());
    to.number({}, "waitForNextHop", mapper ? mapper->nhCounters().size() : 0);
    to.number(
        {}, "tunnelsWithoutWeight", inputs_.counters ? inputs_.counters->unweightedSprays() : 0);
    to.closeDict();
}

void Status::printWaiting(CliPrinter& to) const {
    const Gale::ViewStatus* const shown = view(Paths::kOrigin);
    if (shown == nullptr) { return; }
    const Gale::ProviderStatistics& provider = shown->provider;
    to.openDict({}, "waiting");
    if (provider.waiting == 0) {
        to.text("waiting     none");
    } else {
        to.bad("waiting     ", {}, fmt::format("{} NOT shown", provider.waiting));
    }
    to.number({}, "forNextHop", provider.waitingForNextHop);
    to.number({}, "forGroup", provider.waitingForGroup);
    if (provider.waiting > 0) {
        to.text(fmt::format(": {} for a next hop, {} for a group",
                            provider.waitingForNextHop,
                            provider.waitingForGroup));
    }
    to.number({}, "released", provider.released);
    if (provider.released > 0) { to.text(fmt::format("; {} gave up", provider.released)); }
    to.number({}, "kept", provider.kept);
    if (provider.kept > 0) { to.text(fmt::format("; {} leaving", provider.kept)); }
    to.endLine();
    to.openList({}, "first");
    for (const Gale::Waiting::Held& held : shown->held) {
        const Kiln::Duration age = now_ - held.since;
        to.openItem();
        to.string("  ", "waiter", nameOf(held.waiter));
        const bool forItself = held.missing == held.waiter;
        to.string(forItself ? " waits for what comes of " : " waits for ",
                  "missing",
                  nameOf(held.missing));
        to.text(", " + AgentHost::ageText(age));
        to.number({}, "seconds", AgentHost::ageSeconds(age));
        to.endLine();
        to.closeDict();
    }
    to.closeList();
    to.andMore(provider.waiting, shown->held.size());
    to.closeDict();
}

}  // namespace Pel::Oc
