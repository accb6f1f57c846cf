#include "platform/AgentHost/HostCommands.h"

#include <fmt/format.h>

#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "platform/AgentHost/Host.h"
#include "platform/AgentHost/HostStatus.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("HostCommands");

namespace AgentHost {
namespace {

using Json = nlohmann::ordered_json;

constexpr Kiln::TaskPriority kReloadPriority = 6;
constexpr const char* kColourParameter = "colour";

std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

double milliseconds(Kiln::Duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

Json taskStatus(const Kiln::TaskStatistics& task) {
    return {{"name", task.name},
            {"priority", task.priority},
            {"runs", task.runs},
            {"totalMs", milliseconds(task.total)},
            {"longestMs", milliseconds(task.longestSlice)},
            {"exceptions", task.exceptions},
            {"lastException", task.lastException}};
}

}  // namespace

HostCommands::HostCommands(Host& host)
    : host_{host}, reload_{host.scheduler(), "ConfigReload", kReloadPriority, [this] {
                               reloadWhenRead();
                               return false;
                           }} {
    CmdRequestDirSm& machine = *host.commands();
    machine.agentDeferredCommandCallbackIs(
        "status", [this](const auto& request, const auto& answer) { status(request, answer); });
    machine.agentCommandCallbackIs("tasks", [this](const auto& request) { return tasks(request); });
    machine.agentCommandCallbackIs("trace", [this](const auto& request) { return trace(request); });
    machine.agentDeferredCommandCallbackIs(
        "config reload",
        [this](const auto& /*request*/, const auto& answer) { configReload(answer); });
    machine.agentCommandCallbackIs("commands",
                                   [this](const auto& request) { return commands(request); });
}

void HostCommands::status(const CommandRequest& request, const CommandAnswer& answer) {
    const bool colours = request.parameters.contains(kColourParameter);
    const auto finish =
        [this, format = request.format, colours, answer](const StatusSection& agentsPart) {
            try {
                CliPrinter printer{format};
                printer.coloursAre(colours);
                const HostStatus host{host_};
                host.print(printer);
                if (agentsPart) { agentsPart(printer); }
                host.printTasks(printer);
                printer.end();
                answer({printer.takeOutput(), {}});
            } catch (const std::exception& error) {
                answer({{}, std::string{"status: "} + error.what()});
            }
        };
    if (host_.agent()) {
        host_.agent()->status(finish);
    } else {
        finish({});
    }
}

CommandReply HostCommands::tasks(const CommandRequest& request) const {
    const auto all = host_.scheduler()->tasks();
    if (request.format == OutputFormat::json) {
        Json json = Json::array();
        for (const auto& task : all) { json.push_back(taskStatus(task)); }
        return {dump(json), {}};
    }
    std::string text = fmt::format("{:<40} {:>8} {:>10} {:>12} {:>12} {:>10}\n",
                                   "task",
                                   "priority",
                                   "runs",
                                   "total ms",
                                   "longest ms",
                                   "exceptions");
    for (const auto& task : all) {
        text += fmt::format("{:<40} {:>8} {:>10} {:>12.3f} {:>12.3f} {:>10}{}\n",
                            printable(task.name),
                            task.priority,
                            task.runs,
                            milliseconds(task.total),
                            milliseconds(task.longestSlice),
                            task.exceptions,
                            task.exceptions == 0 ? "" : "  last: " + printable(task.lastException));
    }
    return {text, {}};
}

CommandReply HostCommands::trace(const CommandRequest& request) const {
    const auto levels = request.parameters.find("levels");
    if (levels == request.parameters.end()) { return {{}, "trace needs the parameter \"levels\""}; }
    if (!Blink::levelsIs(levels->second)) {
        return {{}, "trace levels look like Name=9,Other=5 or *=0, not '" + levels->second + "'"};
    }
    return {"trace levels set: " + levels->second + "\n", {}};
}

// What the operator wrote a moment ago is on its way, and the agent must not read before it is
// here. Its bell rang before the request came: a task less urgent than the pump runs after the
// pump.
void HostCommands::configReload(const CommandAnswer& answer) {
    waiting_.push_back(answer);
    reload_.schedule();
}

void HostCommands::reloadWhenRead() {
    const Store::Reader& configuration = host_.configurationReader();
    if (!configuration.caughtUp()) {
        onConfigurationRead_ = configuration.onCaughtUp().subscribe([this] { reload_.schedule(); });
        return;
    }
    onConfigurationRead_.reset();
    for (const auto& answer : std::exchange(waiting_, {})) { reinitialize(answer); }
}

void HostCommands::reinitialize(const CommandAnswer& answer) {
    TRACE9("configuration is read again");
    if (!host_.agent()) {
        answer({{}, "no agent runs"});
        return;
    }
    host_.agent()->doReinitialize();
    answer({"configuration read\n", {}});
}

CommandReply HostCommands::commands(const CommandRequest& request) const {
    const auto names = host_.commands()->commands();
    if (request.format == OutputFormat::json) { return {dump(Json(names)), {}}; }
    std::string text;
    for (const auto& name : names) { text += name + "\n"; }
    return {text, {}};
}

}  // namespace AgentHost
