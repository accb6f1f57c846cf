#include "PelOpenConfig/PelOpenConfigStatusStreams.h"

#include <fmt/format.h>

#include <numeric>

#include "platform/AgentHost/AgeText.h"

namespace Pel::Oc {
namespace {

using AgentHost::ageSeconds;
using AgentHost::ageText;
using AgentHost::CliPrinter;
using Gale::SubscriberStatus;

constexpr std::size_t kShown = 8;
/// A client that takes nothing for a shorter time is just not asked at this moment.
constexpr Kiln::Duration kBlocked = std::chrono::seconds{1};

void printSeconds(CliPrinter& to, std::string_view key, std::optional<Kiln::Duration> age) {
    if (age) { to.number({}, key, ageSeconds(*age)); }
}

void printLag(CliPrinter& to, const SubscriberStatus& call) {
    const bool blocked = call.blocked && *call.blocked >= kBlocked;
    to.boolean({}, "synced", call.synced);
    to.number({}, "lag", call.lag);
    to.number({}, "coalesced", call.coalesced);
    printSeconds(to, "behindSeconds", call.behind);
    to.number({}, "skipped", call.skipped);
    to.boolean({}, "blocked", blocked);
    if (blocked) { printSeconds(to, "blockedSeconds", call.blocked); }
    if (!call.synced) { to.text(", initial set under way"); }
    if (call.synced && call.lag == 0 && !blocked) { to.text(", level"); }
    if (call.skipped > 0) { to.text(fmt::format(", {} samples skipped", call.skipped)); }
    if (call.lag == 0 && !blocked) { return; }
    to.text("\n    ");
    if (call.lag > 0) {
        to.bad({}, {}, fmt::format("{} changes BEHIND", call.lag));
        if (call.behind) { to.text(" for " + ageText(*call.behind)); }
    }
    if (blocked) {
        to.bad(call.lag > 0 ? ", " : "", {}, "BLOCKED");
        to.text(": takes nothing for " + ageText(*call.blocked));
    }
}

void printCall(CliPrinter& to, const SubscriberStatus& call) {
    to.openItem();
    to.string("  ", "peer", call.peer);
    to.string(" ", "mode", call.mode);
    to.number(", ", "paths", call.paths);
    to.text(call.paths == 1 ? " path" : " paths");
    to.text(", for " + ageText(call.age));
    to.number({}, "seconds", ageSeconds(call.age));
    to.number(", ", "messages", call.messages);
    to.text(" sent");
    to.number({}, "bytes", call.bytes);
    to.string({}, "target", call.target);
    printLag(to, call);
    to.endLine();
    to.closeDict();
}

void printFailures(CliPrinter& to,
                   std::string_view label,
                   std::string_view key,
                   const Gale::CallFailures& failures,
                   Kiln::TimePoint now) {
    to.openDict({}, key);
    if (failures.count == 0) {
        to.text(label);
        to.text("none");
    } else {
        to.bad(label, {}, fmt::format("{} calls", failures.count));
    }
    to.number({}, "count", failures.count);
    if (failures.count > 0) {
        to.string(", last ", "peer", failures.peer);
        to.text(" " + ageText(now - failures.at) + " ago:\n");
        to.number({}, "seconds", ageSeconds(now - failures.at));
        to.string("    ", "reason", failures.reason);
    }
    to.endLine();
    to.closeDict();
}

void printCounters(CliPrinter& to, const Gale::Wire::ServerStatus& wire) {
    to.number({}, "connections", wire.connections.size());
    to.number({}, "accepted", wire.accepted);
    to.number({}, "turnedAway", wire.turnedAway);
    to.openDict({}, "counters");
    for (std::size_t i = 0; i < static_cast<std::size_t>(Gale::Wire::Count::Last_); ++i) {
        const auto count = static_cast<Gale::Wire::Count>(i);
        to.number({}, Gale::Wire::name(count), wire.total[count]);
    }
    to.closeDict();
    to.text(fmt::format(", connections {} ({} so far", wire.connections.size(), wire.accepted));
    if (wire.turnedAway > 0) { to.bad(", ", {}, fmt::format("{} turned AWAY", wire.turnedAway)); }
    to.text(")");
}

/// What the journal keeps for those who have not come so far.
void printKept(CliPrinter& to, const Gale::ViewStatus& view) {
    const auto sum = [](const auto& lanes) {
        return std::accumulate(lanes.begin(), lanes.end(), std::size_t{0});
    };
    const std::size_t changes = sum(view.journal.changes);
    const std::size_t deletes = sum(view.journal.tombstones);
    to.openItem();
    to.string({}, "origin", view.origin);
    to.number({}, "changes", changes);
    to.number({}, "deletes", deletes);
    to.number({}, "overtaken", view.journal.overtaken);
    if (changes + deletes > 0) {
        to.text(fmt::format("kept        {}: {} changes, {} of them overtaken, and {} deletes\n",
                            view.origin,
                            changes,
                            view.journal.overtaken,
                            deletes));
    }
    to.closeDict();
}

}  // namespace

void printStreams(CliPrinter& to, const Gale::ServiceStatus& service, Kiln::TimePoint now) {
    to.openDict({}, "streams");
    to.boolean({}, "serving", service.running);
    to.boolean({}, "answered", service.streams.has_value());
    to.text("subscribers ");
    if (!service.running) {
        to.bad({}, {}, "NOT serving");
        to.string(": ", "error", service.error);
        to.endLine();
        to.closeDict();
        return;
    }
    if (!service.streams) {
        to.bad({}, {}, "NOT known: the I/O thread does not answer");
        to.endLine();
        to.closeDict();
        return;
    }
    const Gale::StreamsStatus& streams = *service.streams;
    to.text(fmt::format("{}", streams.subscribers.size()));
    printCounters(to, streams.wire);
    to.endLine();
    to.openList({}, "subscribers");
    const std::size_t count = to.shownOf(streams.subscribers.size(), kShown);
    for (std::size_t i = 0; i < count; ++i) { printCall(to, streams.subscribers[i]); }
    to.closeList();
    to.andMore(streams.subscribers.size(), kShown);
    to.openList({}, "kept");
    for (const Gale::ViewStatus& view : service.views) { printKept(to, view); }
    to.closeList();
    printFailures(to, "refused     ", "refused", streams.refused, now);
    printFailures(to, "terminated  ", "terminated", streams.terminated, now);
    to.closeDict();
}

}  // namespace Pel::Oc
