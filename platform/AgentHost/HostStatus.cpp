#include "platform/AgentHost/HostStatus.h"

#include <fmt/format.h>
#include <unistd.h>

#include <vector>

#include "platform/AgentHost/AgeText.h"
#include "platform/AgentHost/Host.h"
#include "platform/AgentHost/ListenAddress.h"
#include "platform/AgentHost/RootLock.h"
#include "platform/Store/Writer.h"

namespace AgentHost {
namespace {

constexpr std::size_t kNearlyFull = 90;  // percent
constexpr std::size_t kShownTasks = 3;

double mebibytes(std::size_t bytes) {
    return static_cast<double>(bytes) / (1U << 20U);
}

void printRoom(CliPrinter& to, const Store::Environment& store) {
    const std::size_t used = store.usedBytes();
    const std::size_t limit = store.options().mapBytes;
    const std::size_t percent = limit == 0 ? 100 : used * 100 / limit;
    to.number({}, "usedBytes", used);
    to.number({}, "limitBytes", limit);
    to.number({}, "usedPercent", percent);
    // What is kept back for deletions cannot be used by anything that grows.
    const std::size_t usable = limit - Store::Writer::reserveBytes(limit);
    const bool nearlyFull = used >= usable / 100 * kNearlyFull;
    to.boolean({}, "nearlyFull", nearlyFull);
    const std::string room =
        fmt::format("{:.1f} of {:.0f} MiB ({} %)", mebibytes(used), mebibytes(limit), percent);
    if (nearlyFull) {
        to.bad("; ", {}, "nearly FULL: " + room);
    } else {
        to.string("; ", {}, room);
    }
}

void printStore(CliPrinter& to,
                std::string_view label,
                std::string_view key,
                const Store::Reader& reader) {
    to.text(label);
    to.openDict({}, key);
    to.boolean({}, "open", reader.open());
    if (reader.open()) {
        to.boolean({}, "caughtUp", reader.caughtUp());
        if (reader.caughtUp()) {
            to.text("open, caught up ");
        } else {
            to.bad("open, ", {}, "NOT caught up");
            to.text(" ");
        }
        to.number("at ", "position", reader.position());
        printRoom(to, *reader.environment());
    } else {
        to.bad({}, {}, "NOT open");
        to.string(": ", "reason", reader.lastError());
    }
    to.endLine();
    to.number({}, "losses", reader.losses());
    if (reader.losses() > 0) {
        to.bad("            ", {}, fmt::format("went away {} times", reader.losses()));
        to.string(", last: ", "lastLoss", reader.lastLoss());
        to.endLine();
    }
    to.number({}, "failures", reader.sinkFailures());
    if (reader.sinkFailures() > 0) {
        to.bad("            ", {}, fmt::format("{} changes FAILED", reader.sinkFailures()));
        to.text(" in who was told of them: pel trace says which");
        to.endLine();
    }
    to.closeDict();
}

}  // namespace

void HostStatus::print(CliPrinter& to) const {
    printWho(to);
    printStore(to, "state       ", "state", host_.stateReader());
    printStore(to, "config      ", "configuration", host_.configurationReader());
    printWriter(to);
}

void HostStatus::printWho(CliPrinter& to) const {
    const HostConfig& config = host_.config();
    to.string("agent       ", "agent", config.agentName);
    to.string(", revision ", "revision", PEL_REVISION);
    to.number(", process ", "pid", static_cast<std::uint64_t>(::getpid()));
    const Kiln::Duration up = host_.scheduler()->clock().now() - host_.started();
    to.text(", up " + ageText(up));
    to.number({}, "upSeconds", ageSeconds(up));
    to.endLine();
    to.string("root        ", "root", config.root.string());
    to.endLine();
    to.boolean({}, "running", host_.agent() != nullptr);
    const std::uint16_t port = host_.agent() ? host_.agent()->gnmiPort() : std::uint16_t{0};
    const std::string& address = config.gnmi.wire.address;
    to.openDict({}, "gnmi");
    to.string({}, "address", address);
    to.number({}, "port", port);
    to.closeDict();
    to.text("gNMI        ");
    if (port != 0) {
        to.text(ListenAddress{address, port}.text());
    } else {
        to.bad({}, {}, "NOT serving");
    }
    to.endLine();
}

/// Whoever writes the state holds a lock while he lives; what he commits leaves its time.
void HostStatus::printWriter(CliPrinter& to) const {
    const auto holder = RootLock::holder(host_.config().root, HostConfig::kForwarderLock);
    to.text("forwarder   ");
    to.openDict({}, "forwarder");
    if (holder) { to.boolean({}, "running", holder->process != 0); }
    if (!holder) {
        to.text("not known whether it runs");
    } else if (holder->process == 0) {
        to.bad({}, {}, "NOT running");
    } else {
        to.number("process ", "pid", static_cast<std::uint64_t>(holder->process));
        to.boolean({}, "stopped", holder->stopped);
        if (holder->stopped) { to.bad(", ", {}, "STOPPED"); }
    }
    const Store::Environment* const store = host_.stateReader().environment();
    if (const auto last = store != nullptr ? store->lastCommit() : std::nullopt) {
        const Kiln::Duration age{host_.scheduler()->clock().wallNanoseconds() - *last};
        to.text(", last commit " + ageText(age) + " ago");
        to.number({}, "lastCommitSeconds", ageSeconds(age));
    }
    to.endLine();
    to.closeDict();
}

void HostStatus::printTasks(CliPrinter& to) const {
    std::vector<Kiln::TaskStatistics> failed = host_.scheduler()->tasks();
    std::erase_if(failed, [](const auto& task) { return task.exceptions == 0; });
    if (failed.empty()) {
        to.text("tasks       none has failed");
    } else {
        to.bad("tasks       ", {}, fmt::format("{} FAILED", failed.size()));
    }
    to.endLine();
    to.openList({}, "failedTasks");
    for (std::size_t i = 0; i < to.shownOf(failed.size(), kShownTasks); ++i) {
        to.openItem();
        to.string("  ", "name", failed[i].name);
        to.number(", times: ", "exceptions", failed[i].exceptions);
        to.string(", last: ", "lastException", failed[i].lastException);
        to.endLine();
        to.closeDict();
    }
    to.closeList();
    to.andMore(failed.size(), kShownTasks);
}

}  // namespace AgentHost
