#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <exception>
#include <string>
#include <system_error>
#include <vector>

#include "apps/cli/ConfigStore.h"
#include "apps/cli/ControlClient.h"
#include "apps/cli/ExitCode.h"
#include "apps/cli/ScenarioCommand.h"
#include "apps/cli/ShowCommands.h"
#include "apps/cli/SinceTime.h"
#include "apps/cli/TraceCommand.h"
#include "apps/cli/UpCommand.h"
#include "apps/cli/WatchCommand.h"
#include "apps/tree/Completion.h"
#include "apps/tree/ManualPage.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

constexpr const char* kFooter =
    "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 nobody is there, 4 no answer in time.";

/// The command line: options, and what the chosen command does.
class CommandLine {
public:
    int run(int count, char** arguments);

private:
    void addUp();
    void addWatch();
    void addTrace();
    void addConfig();
    void addScenario();
    void addCompletion();
    void rootOption(CLI::App& command) {
        command.add_option("--root", root_, "Directory of the agent and its stores")
            ->type_name("DIR")
            ->capture_default_str();
    }
    void timeoutOption(CLI::App& command) {
        command.add_option("--timeout", timeoutMs_, "How long the agent has to answer, in ms")
            ->check(CLI::Range(1, 3'600'000))
            ->capture_default_str();
    }
    int setExport() const;
    int showConfig() const;

    CLI::App app_{"Forwarding state of this machine as OpenConfig AFT over gNMI", "pel"};
    std::string root_ = AgentHost::HostConfig{}.root.string();
    int timeoutMs_ = 5000;
    bool json_ = false;
    UpCommand::Options up_;
    WatchCommand::Options watch_;
    TraceCommand::Options trace_;
    std::string since_;
    std::string levels_;
    std::string flag_;
    int waitSeconds_ = 660;
    int watchSeconds_ = 60;
    std::string ratesSeconds_;
    std::string sample_;
    std::string value_;
    std::vector<std::string> files_;
    int code_ = kDone;
};

int CommandLine::setExport() const {
    if (const std::string problem = ConfigStore{root_}.aftExportEnabledIs(value_ == "true");
        !problem.empty()) {
        AgentHost::tell("pel", problem);
        return kFailed;
    }
    const ControlResult result =
        ControlClient{root_, std::chrono::milliseconds{timeoutMs_}}.ask("config reload", false);
    if (result.outcome == ControlResult::Outcome::nobody) {
        fmt::print("aftExportEnabled {}: written; no agent runs now, the next one reads it\n",
                   value_);
        return kDone;
    }
    if (result.outcome != ControlResult::Outcome::answered) {
        AgentHost::tell("pel", "written, but the agent has not read it: " + result.error);
        return result.exitCode();
    }
    fmt::print("aftExportEnabled {}\n", value_);
    return kDone;
}

int CommandLine::showConfig() const {
    std::string error;
    const auto enabled = ConfigStore{root_}.aftExportEnabled(error);
    if (!error.empty()) {
        AgentHost::tell("pel", error);
        return kFailed;
    }
    const std::string text = !enabled ? "" : *enabled ? "true" : "false";
    if (json_) {
        fmt::print("{{\"aftExportEnabled\": {}}}\n", enabled ? text : "null");
    } else {
        fmt::print("aftExportEnabled {}\n", enabled ? text : "was never set (false)");
    }
    return kDone;
}

void CommandLine::addUp() {
    CLI::App& up = *app_.add_subcommand("up", "Start forwarder and agent in the foreground");
    rootOption(up);
    up.add_option("--scenario",
                  up_.scenario,
                  "Export what this file describes, not this machine's state (root then: the "
                  "default one with \"-scenario\")")
        ->type_name("FILE");
    up_.listen = "127.0.0.1:9339";
    up.add_option("--listen", up_.listen, "Where gNMI clients connect")
        ->check(AgentHost::ListenAddress::problem)
        ->capture_default_str();
    up.add_option("--plugin", up_.plugin, "The agent (default: the one beside this program)")
        ->type_name("FILE");
    up.add_option("--counter-interval",
                  up_.counterSeconds,
                  "How often the kernel's counters are read, in seconds; 0: never (default: 10)")
        ->check(CLI::Range(0U, 86'400U));
    up.add_flag("--once", up_.once, "End after the summary of the first export");
    up.add_option("--wait", waitSeconds_, "How long the first export may take, in seconds")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    up.add_flag("--clear-text-on-any-address",
                up_.clearTextAnywhere,
                "Serve other addresses than loopback without encryption");
    up.callback([this, &up] {
        up_.root = root_;
        // A store belongs to one kind of source.
        if (!up_.scenario.empty() && up.count("--root") == 0) { up_.root += "-scenario"; }
        up_.wait = std::chrono::seconds{waitSeconds_};
        code_ = UpCommand{up_}.run();
    });
}

void CommandLine::addWatch() {
    CLI::App& watch = *app_.add_subcommand("watch", "Show what a gNMI client is sent");
    watch_.server = "127.0.0.1:9339";
    watch.add_option("paths", watch_.paths, "/a/b[key=value] or origin:/a/b; none: everything");
    watch.add_option("--server", watch_.server, "Address and port")->capture_default_str();
    CLI::Option* const once = watch.add_flag("--once", watch_.once, "End after the present state");
    watch.add_option("--timeout", watchSeconds_, "With --once: of the whole call, in seconds")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    watch.add_flag("--json", watch_.json, "As JSON, an object a line");
    watch
        .add_flag("--rates{5}",
                  ratesSeconds_,
                  "Counters and how much they change in a second, at the end of each interval of "
                  "so many seconds (1 to 86400)")
        ->check(CLI::Range(1, 86'400).description(""))
        ->excludes(once);
    watch
        .add_option("--sample",
                    sample_,
                    "Each value once an interval (10s, 5m, 1h; 0s: the server's shortest), changed "
                    "or not, in place of when it changes")
        ->check([](const std::string& text) -> std::string {
            return timeSpan(text) ? "" : "'" + text + "' is no time span (10s, 5m, 1h)";
        })
        ->type_name("SPAN")
        ->excludes(once);
    watch.callback([this] {
        if (!sample_.empty()) { watch_.sample = timeSpan(sample_); }
        watch_.timeout = std::chrono::seconds{watchSeconds_};
        if (!ratesSeconds_.empty()) {
            watch_.rates = std::chrono::seconds{std::stoi(ratesSeconds_)};
        }
        code_ = WatchCommand::run(watch_);
    });
}

void CommandLine::addTrace() {
    CLI::App& trace = *app_.add_subcommand(
        "trace", "Show what the agent traced, or set levels: pel trace set Name=9,Other=5");
    trace.add_option("files", trace_.files, "Trace files (default: the agent's, in <root>/trace)")
        ->type_name("FILE");
    rootOption(trace);
    trace.add_flag("--all", trace_.all, "Earlier runs' too, in the order of time");
    trace.add_flag("--follow", trace_.follow, "Go on with what is traced later");
    trace.add_flag("--json", trace_.json, "As JSON, an object a line");
    trace
        .add_option(
            "--since",
            since_,
            "Only messages from then on: 90s, 10m, 2h or 1d ago, or a time as it is printed")
        ->check([](const std::string& text) -> std::string {
            if (sinceTime(text, std::chrono::system_clock::now())) { return {}; }
            return "'" + text +
                   "' is neither an age (30s, 10m, 2h, 1d) nor a time "
                   "(2026-01-31T08:15:00Z)";
        });
    trace.add_option("--handle", trace_.handle, "Only messages of this handle");
    trace.add_option("--level", trace_.level, "Only messages up to this level")
        ->check(CLI::Range(0, 9))
        ->capture_default_str();
    CLI::App& set = *trace.add_subcommand("set", "Set text trace levels of the running agent");
    set.add_option("levels", levels_, "Name=9,Other=5; * for all")->required();
    rootOption(set);
    timeoutOption(set);
    set.callback([this] {
        code_ = AskCommand::run(
            {root_, std::chrono::milliseconds{timeoutMs_}, "trace", {{"levels", levels_}}, false});
    });
    trace.callback([this, &trace] {
        if (!trace.get_subcommands().empty()) { return; }
        trace_.root = root_;
        if (const auto since = sinceTime(since_, std::chrono::system_clock::now())) {
            trace_.since = *since;
        }
        code_ = TraceCommand::run(trace_);
    });
}

void CommandLine::addConfig() {
    CLI::App& config = *app_.add_subcommand("config", "The management configuration");
    config.require_subcommand(1);
    CLI::App& set = *config.add_subcommand("set", "Write a flag, and have the agent read it");
    set.add_option("name", flag_, "aftExportEnabled")
        ->required()
        ->check(CLI::IsMember({"aftExportEnabled"}));
    set.add_option("value", value_, "true or false")
        ->required()
        ->check(CLI::IsMember({"true", "false"}));
    rootOption(set);
    timeoutOption(set);
    set.callback([this] { code_ = setExport(); });
    CLI::App& show = *config.add_subcommand("show", "Show all flags");
    rootOption(show);
    show.add_flag("--json", json_, "As JSON");
    show.callback([this] { code_ = showConfig(); });
}

void CommandLine::addScenario() {
    CLI::App& scenario =
        *app_.add_subcommand("scenario", "Files for pel-forwarderd --source scenario");
    scenario.require_subcommand(1);
    CLI::App& check = *scenario.add_subcommand("check", "Say all that is wrong with a file");
    check.add_option("files", files_, "The files")->required()->type_name("FILE");
    check.add_flag("--json", json_, "As JSON");
    check.callback([this] { code_ = ScenarioCommand::check(files_, json_); });
}

void CommandLine::addCompletion() {
    CLI::App& completion = *app_.add_subcommand(
        "completion",
        "Print a script that completes this command line: source <(pel completion bash)");
    completion.add_option("shell", value_, "The shell")->required()->check(CLI::IsMember({"bash"}));
    completion.callback(
        [this] { fmt::print("{}", CommandTree::bashCompletion(CommandTree::of(app_))); });
}

int CommandLine::run(int count, char** arguments) {
    app_.require_subcommand(1);
    app_.footer(kFooter);
    addUp();
    addWatch();
    addTrace();
    addConfig();
    addScenario();
    const ShowCommands show{app_, code_};
    addCompletion();
    CommandTree::addManualOption(app_);
    try {
        app_.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        // CLI11 has a number for each way to be wrong; ours says only that it is the usage.
        return app_.exit(error) == 0 ? kDone : kUsage;
    }
    return code_;
}

}  // namespace
}  // namespace Pel::Cli

int main(int count, char** arguments) {
    AgentHost::standardStreamsAreTaken();
    int code = Pel::Cli::kFailed;
    try {
        code = Pel::Cli::CommandLine{}.run(count, arguments);
    } catch (const std::exception& error) {
        const auto* const printing = dynamic_cast<const std::system_error*>(&error);
        if (printing != nullptr && printing->code() == std::errc::broken_pipe) { return 0; }
        AgentHost::tell("pel", error.what());
    }
    const std::string problem = AgentHost::outputProblem();
    if (problem.empty() || code != Pel::Cli::kDone) { return code; }
    AgentHost::tell("pel", problem);
    return Pel::Cli::kFailed;
}
