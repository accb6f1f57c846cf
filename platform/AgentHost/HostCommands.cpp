#include "platform/AgentHost/HostCommands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "platform/AgentHost/Host.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("HostCommands");

namespace AgentHost {
namespace {

using Json = nlohmann::ordered_json;

constexpr Kiln::TaskPriority kReloadPriority = 6;

std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

double milliseconds(Kiln::Duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

Json storeStatus(const Store::Reader& reader) {
    Json json{{"open", reader.open()}};
    if (!reader.open()) {
        json["reason"] = reader.lastError();
        return json;
    }
    json["caughtUp"] = reader.caughtUp();
    json["position"] = reader.position();
    json["usedBytes"] = reader.environment()->usedBytes();
    json["limitBytes"] = reader.environment()->options().mapBytes;
    return json;
}

/// Two levels of an object as lines "name: value" and "name member: value".
std::string lines(const Json& json, const std::string& prefix = {}) {
    std::string text;
    for (const auto& [name, value] : json.items()) {
        if (value.is_object()) {
            text += lines(value, fmt::format("{}{} ", prefix, name));
        } else {
            const std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
            text += fmt::format("{}{}: {}\n", prefix, name, shown);
        }
    }
    return text;
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
    machine.agentCommandCallbackIs("status",
                                   [this](const auto& request) { return status(request); });
    machine.agentCommandCallbackIs("tasks", [this](const auto& request) { return tasks(request); });
    machine.agentCommandCallbackIs("trace", [this](const auto& request) { return trace(request); });
    machine.agentDeferredCommandCallbackIs(
        "config reload",
        [this](const auto& /*request*/, const auto& answer) { configReload(answer); });
    machine.agentCommandCallbackIs("commands",
                                   [this](const auto& request) { return commands(request); });
}

CommandReply HostCommands::status(const CommandRequest& request) const {
    const HostConfig& config = host_.config();
    Json json{{"agent", config.agentName},
              {"revision", PEL_REVISION},
              {"pid", ::getpid()},
              {"root", config.root.string()}};
    const Kiln::Duration up = host_.scheduler()->clock().now() - host_.started();
    json["upSeconds"] = std::chrono::duration_cast<std::chrono::seconds>(up).count();
    json["running"] = host_.agent() != nullptr;
    const std::uint16_t port = host_.agent() ? host_.agent()->gnmiPort() : std::uint16_t{0};
    json["gnmi"] = {{"address", config.gnmi.wire.address}, {"port", port}};
    json["state"] = storeStatus(host_.stateReader());
    json["configuration"] = storeStatus(host_.configurationReader());
    return {request.format == OutputFormat::json ? dump(json) : lines(json), {}};
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
                            task.name,
                            task.priority,
                            task.runs,
                            milliseconds(task.total),
                            milliseconds(task.longestSlice),
                            task.exceptions,
                            task.exceptions == 0 ? "" : "  last: " + task.lastException);
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
