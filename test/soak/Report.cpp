#include "test/soak/Report.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Soak {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMinute = 60;
constexpr double kSliceMs = 2;  // after which a walk yields

double milliseconds(std::int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

double memoryRatio(const RunResult& run) {
    const double first = static_cast<double>(run.memory.first(kMinute).peak);
    return first == 0 ? 0 : static_cast<double>(run.memory.last(kMinute).peak) / first;
}

Json lagJson(const Checker::LagHistogram& lag) {
    return {{"count", lag.count()},
            {"p50Ms", milliseconds(lag.quantile(0.5))},
            {"p99Ms", milliseconds(lag.quantile(0.99))},
            {"maxMs", milliseconds(lag.max())}};
}

Json memoryJson(const MemoryCourse& memory) {
    const auto part = [](const MemoryCourse::Part& of) {
        return Json{{"peakKiB", of.peak}, {"meanKiB", of.mean}};
    };
    return {{"first", part(memory.first(kMinute))},
            {"last", part(memory.last(kMinute))},
            {"samplesKiB", memory.samples}};
}

Json runJson(const RunResult& run) {
    Json json{
        {"problems", run.problems},
        {"entries", run.entries},
        {"messagesPerSecond", run.churnSeen},
        {"memory", memoryJson(run.memory)},
        {"stampLag", lagJson(run.stampLag)},
        {"dueLag", lagJson(run.dueLag)},
        {"cpu", {{"agent", run.agentCpu}, {"forwarder", run.forwarderCpu}, {"driver", run.ownCpu}}},
        {"settledAfterSeconds", run.settledAfter},
        {"events", run.events}};
    for (const auto& [name, task] : run.tasks) {
        json["tasks"][name] = {
            {"longestMs", task.longestMs}, {"totalMs", task.totalMs}, {"runs", task.runs}};
    }
    for (const SubscriberState& state : run.slow) {
        json["slow"].push_back({{"name", state.name},
                                {"messages", state.messages},
                                {"synced", state.synced},
                                {"ended", state.ended},
                                {"how", state.how},
                                {"endedAfterSeconds", state.endedAfter}});
    }
    for (const Judged& judged : run.judged) {
        json["judged"].push_back({{"name", judged.name},
                                  {"messages", judged.messages},
                                  {"findings", judged.findings},
                                  {"unmetWithinEpochs", judged.unmetWithinEpochs},
                                  {"lines", judged.lines}});
    }
    return json;
}

std::string lagLine(const char* name, const Checker::LagHistogram& lag) {
    return fmt::format("  {:<34} p50 {:8.1f} ms   p99 {:8.1f} ms   longest {:8.1f} ms\n",
                       name,
                       milliseconds(lag.quantile(0.5)),
                       milliseconds(lag.quantile(0.99)),
                       milliseconds(lag.max()));
}

std::string runTable(const char* title, const RunResult& run) {
    std::string text = fmt::format("{}\n", title);
    const auto row = [&](const char* name, const std::string& value) {
        text += fmt::format("  {:<34} {}\n", name, value);
    };
    row("entries at the end", fmt::to_string(run.entries));
    row("messages a second at a fast one", fmt::format("{:.0f}", run.churnSeen));
    const auto first = run.memory.first(kMinute);
    const auto last = run.memory.last(kMinute);
    row("agent's RssAnon, first minute",
        fmt::format("peak {} KiB, mean {:.0f} KiB", first.peak, first.mean));
    row("agent's RssAnon, last minute",
        fmt::format("peak {} KiB, mean {:.0f} KiB", last.peak, last.mean));
    text += lagLine("stamp to arrival, all fast ones", run.stampLag);
    text += lagLine("due to arrival, above the fastest", run.dueLag);
    row("processors: agent, forwarder, driver",
        fmt::format("{:.2f}, {:.2f}, {:.2f}", run.agentCpu, run.forwarderCpu, run.ownCpu));
    row("same state after the last change", fmt::format("{:.1f} s", run.settledAfter));
    for (const SubscriberState& state : run.slow) {
        row(("  " + state.name).c_str(),
            state.ended ? fmt::format("{} messages, ended after {:.1f} s: {}",
                                      state.messages,
                                      state.endedAfter,
                                      state.how)
                        : fmt::format("{} messages, still reads", state.messages));
    }
    for (const Judged& judged : run.judged) {
        row("judged",
            fmt::format("{}: {} messages, {} findings, {} references unmet within epochs",
                        judged.name,
                        judged.messages,
                        judged.findings,
                        judged.unmetWithinEpochs));
        for (const std::string& line : judged.lines) { text += "      " + line + "\n"; }
    }
    for (const std::string& problem : run.problems) { row("PROBLEM", problem); }
    return text;
}

}  // namespace

double SlicePair::ratio() const {
    return std::max(withMs, kSliceMs) / std::max(withoutMs, kSliceMs);
}

std::vector<SlicePair> Report::slices() const {
    std::vector<SlicePair> pairs;
    if (!without) { return pairs; }
    for (const auto& [name, task] : with.tasks) {
        const auto other = without->tasks.find(name);
        pairs.push_back(
            {name, task.longestMs, other == without->tasks.end() ? 0 : other->second.longestMs});
    }
    std::sort(pairs.begin(), pairs.end(), [](const SlicePair& a, const SlicePair& b) {
        return a.withMs > b.withMs;
    });
    return pairs;
}

std::vector<Goal> Report::goals() const {
    std::vector<Goal> goals{
        {"RssAnon, last minute to first", memoryRatio(with), 1.05},
        {"p99 of stamp to arrival, seconds", milliseconds(with.stampLag.quantile(0.99)) / 1e3, 1},
        {"p99 of due to arrival, seconds", milliseconds(with.dueLag.quantile(0.99)) / 1e3, 1}};
    double worst = 0;
    for (const SlicePair& pair : slices()) {
        if (pair.walks()) { worst = std::max(worst, pair.ratio()); }
    }
    if (without) { goals.push_back({"longest slice of a walk, with to without", worst, 2}); }
    return goals;
}

bool Report::good() const {
    const auto all = goals();
    return with.problems.empty() && (!without || without->problems.empty()) &&
           (!timing || std::all_of(all.begin(), all.end(), [](const Goal& g) { return g.met(); }));
}

std::string Report::table() const {
    std::string text = runTable("\nWith the slow subscribers", with);
    if (without) { text += runTable("\nWithout the slow subscribers", *without); }
    const auto pairs = slices();
    if (!pairs.empty()) {
        text += fmt::format("\n{:<44} {:>10} {:>10} {:>8}\n",
                            "longest slice of a task, ms",
                            "with",
                            "without",
                            "ratio");
        for (const SlicePair& pair : pairs) {
            if (std::max(pair.withMs, pair.withoutMs) < kSliceMs / 4) { continue; }
            text += fmt::format("  {:<42} {:>10.2f} {:>10.2f} {:>8.2f}\n",
                                pair.task,
                                pair.withMs,
                                pair.withoutMs,
                                pair.ratio());
        }
        text += fmt::format("  (up to {} ms a slice counts as that)\n", kSliceMs);
    }
    text += "\n";
    for (const Goal& goal : goals()) {
        text += fmt::format("{:<44} {:>10.3f} at most {:>5.2f}  {}\n",
                            goal.name,
                            goal.value,
                            goal.limit,
                            !timing      ? "not asked for"
                            : goal.met() ? "met"
                                         : "NOT MET");
    }
    return text + (good() ? "good\n" : "NOT GOOD\n");
}

std::string Report::json() const {
    Json json{{"with", runJson(with)}, {"timing", timing}, {"good", good()}};
    if (without) { json["without"] = runJson(*without); }
    for (const Goal& goal : goals()) {
        json["goals"].push_back({{"name", goal.name},
                                 {"value", goal.value},
                                 {"limit", goal.limit},
                                 {"met", goal.met()}});
    }
    for (const SlicePair& pair : slices()) {
        json["slices"].push_back({{"task", pair.task},
                                  {"withMs", pair.withMs},
                                  {"withoutMs", pair.withoutMs},
                                  {"ratio", pair.ratio()}});
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Soak
