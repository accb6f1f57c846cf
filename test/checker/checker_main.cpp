#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <string>

#include "test/checker/Play.h"

// pel-checker: holds a recorded stream of the AFT view against the rules of README.md. Ends with 0 when it keeps to
// all, 1 with findings, 2 when the command line or a recording cannot be used.
namespace {

using Checker::Finding;
using Checker::List;
using Checker::Replay;

struct Arguments {
    std::string recording;
    std::string endState;
    Checker::ReplayOptions options;
    std::uint64_t limit = 20;
};

int unusable(const std::string& why) {
    fmt::print(stderr, "pel-checker: {}\n", why);
    return 2;
}

double milliseconds(std::int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

void printStatistics(const Replay& replay, const Checker::Played& played) {
    const auto& seen = replay.statistics();
    fmt::print(
        "{} messages: {} atomic updates ({} before the sync), {} deletes, {} other leaves; {} "
        "ends of epochs\n",
        seen.messages,
        seen.updates,
        seen.initial,
        seen.deletes,
        seen.leaves,
        seen.epochs);
    fmt::print(
        "held at the end: {} next hops, {} groups, {} IPv4 and {} IPv6 prefixes, {} labels, {} "
        "leaves\n",
        replay.entries(List::nextHop),
        replay.entries(List::group),
        replay.entries(List::ipv4),
        replay.entries(List::ipv6),
        replay.entries(List::label),
        replay.leaves());
    fmt::print("stamp to arrival after the sync: p50 {:.1f} ms, p99 {:.1f} ms, longest {:.1f} ms\n",
               milliseconds(played.lag.quantile(0.5)),
               milliseconds(played.lag.quantile(0.99)),
               milliseconds(played.lag.max()));
    fmt::print("ended with status {}{}{}\n",
               played.end.code,
               played.end.text.empty() ? "" : ": ",
               played.end.text);
}

/// Up to `limit` of each rule, then how many there were.
void printFindings(const std::vector<Finding>& findings, std::uint64_t limit) {
    std::map<Checker::Rule, std::uint64_t> counts;
    for (const Finding& finding : findings) {
        if (counts[finding.rule]++ < limit) { fmt::print("{}\n", finding.line()); }
    }
    for (const auto& [rule, count] : counts) {
        fmt::print("{:8} {}\n", count, Checker::ruleName(rule));
    }
    fmt::print("{}\n", findings.empty() ? "clean" : "NOT CLEAN");
}

int check(const Arguments& arguments) {
    Replay replay{arguments.options};
    Checker::Played played;
    if (const std::string error = play(arguments.recording, replay, played); !error.empty()) {
        return unusable(error);
    }
    bool truthIsClean = true;
    if (!arguments.endState.empty()) {
        Replay truth{{.quietEnd = true, .quietStart = true, .once = true}};
        Checker::Played once;
        if (const std::string error = play(arguments.endState, truth, once); !error.empty()) {
            return unusable(error);
        }
        if (!truth.findings().empty()) {
            fmt::print("the end state itself, {}:\n", arguments.endState);
            printFindings(truth.findings(), arguments.limit);
            truthIsClean = false;
        }
        replay.compareWith(truth);
    }
    printStatistics(replay, played);
    printFindings(replay.findings(), arguments.limit);
    return replay.findings().empty() && truthIsClean ? 0 : 1;
}

int run(int count, char** values) {
    Arguments arguments;
    bool partial = false;
    std::string beforeSynced;
    CLI::App app{"Holds a recorded gNMI stream of the AFT view against its rules", "pel-checker"};
    app.add_option("recording", arguments.recording, "What pel-recorder wrote")->required();
    app.add_option("--end-state", arguments.endState, "A ONCE recorded after the last change");
    app.add_flag("--laggard",
                 arguments.options.laggard,
                 "Look at references where an epoch is seen to end, not after each message");
    app.add_flag("--quiet-end",
                 arguments.options.quietEnd,
                 "Nothing was under way at the end of the recording (--end-state says so too)");
    app.add_flag("--quiet-start",
                 arguments.options.quietStart,
                 "Nothing changed before the sync: no entry comes twice in the initial set");
    app.add_flag("--once", arguments.options.once, "The call was a ONCE");
    app.add_flag(
        "--partial", partial, "The stream shows a part of the AFT: references are left out");
    app.add_option("--before-synced",
                   beforeSynced,
                   "File of entry paths, one a line: those of a table (and all next hops and "
                   "groups) come before state-synced says true of it");
    app.add_option("--limit", arguments.limit, "Findings printed of each rule")
        ->capture_default_str();
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    arguments.options.references = !partial;
    if (!beforeSynced.empty()) {
        std::ifstream file{beforeSynced};
        for (std::string line; std::getline(file, line);) {
            if (!line.empty()) { arguments.options.beforeSynced.insert(line); }
        }
        if (arguments.options.beforeSynced.empty()) {
            return unusable(beforeSynced + ": no paths");
        }
    }
    if (!arguments.endState.empty()) { arguments.options.quietEnd = true; }
    return check(arguments);
}

}  // namespace

int main(int count, char** values) {
    try {
        return run(count, values);
    } catch (const std::exception& error) { return unusable(error.what()); }
}
