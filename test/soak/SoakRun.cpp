#include "test/soak/SoakRun.h"

#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include "test/checker/Play.h"
#include "test/checker/StockStream.h"
#include "test/soak/DueLag.h"

namespace Soak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;
using TestProcesses::waitUntil;

constexpr std::uint64_t kMostAway = 64;  // elements that the generator has deleted at a time
constexpr milliseconds kPublishTime{600'000};

double since(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

void SoakRun::require(const std::string& problem) const {
    if (!problem.empty()) { throw std::runtime_error{problem}; }
}

void SoakRun::requireAlive() {
    require(interrupted ? "interrupted" : system_.died());
}

void SoakRun::event(const std::string& text) {
    result_.events.push_back(fmt::format("{:6.1f} s  {}", since(begun_), text));
    fmt::print("  {}\n", result_.events.back());
    std::fflush(stdout);
}

RunResult SoakRun::run() {
    begun_ = Clock::now();
    startSystem();
    subscribe();
    watch(options_.warmUpSeconds, false);
    measure();
    settle();
    judge();
    return std::move(result_);
}

void SoakRun::startSystem() {
    require(system_.startAgent());
    fast_ = std::make_unique<SubscriberPool>();
    slow_ = std::make_unique<SubscriberPool>();
    fast_->add("fast 0", system_.port(), Pace::fast);
    require(system_.startForwarder(
        {"--generate",
         fmt::format("next-hops={} groups={} routes={} churn={}/s chains={} seed={}",
                     options_.nextHops,
                     options_.groups,
                     options_.routes,
                     options_.churn,
                     options_.chains,
                     options_.seed)}));
    // Chains come and go from then on.
    const std::uint64_t all = options_.nextHops + options_.groups + options_.routes;
    const bool published = waitUntil(kPublishTime, [&] {
        requireAlive();
        const auto states = fast_->states();
        require(states[0].ended ? "the first subscriber: " + states[0].how : "");
        return states[0].entries + kMostAway >= all;
    });
    require(published ? "" : "the beginning was not exported in time");
    event(fmt::format("{} entries exported", fast_->states()[0].entries));
}

void SoakRun::recorder(std::unique_ptr<Pel::Cli::ChildProcess>& process,
                       const char* name,
                       std::vector<std::string> more) {
    process = std::make_unique<Pel::Cli::ChildProcess>("pel-recorder");
    std::vector<std::string> arguments{
        (TestProcesses::programDirectory() / "pel-recorder").string(),
        "--address",
        system_.address(),
        "--out",
        file(name)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    require(process->start(arguments));
}

void SoakRun::subscribe() {
    for (unsigned i = 1; i < options_.fast; ++i) {
        fast_->add(fmt::format("fast {}", i), system_.port(), Pace::fast);
    }
    recorder(stock_, "fast.rec", {});
    if (options_.slow) {
        slow_->add("one a second", system_.port(), Pace::eachSecond, file("walking.rec"));
        slow_->add(
            "one a second, once synced", system_.port(), Pace::liveEachSecond, file("live.rec"));
        slow_->add("never, window full", system_.port(), Pace::neverWindow);
        slow_->add("never, socket full", system_.port(), Pace::neverSocket);
        neverReaders_ = 2;
        recorder(stockSlow_, "stock-slow.rec", {"--delay-per-message", "1000"});
    }
    const bool synced = waitUntil(seconds{300}, [&] {
        requireAlive();
        bool all = true;
        for (const SubscriberState& state : fast_->states()) { all = all && state.synced; }
        return all;
    });
    require(synced ? "" : "not all fast subscribers were synced in time");
    sockets_ = socketsOf(system_.agentPid());
    event(fmt::format("{} fast subscribers synced", options_.fast));
}

/// The server ends them after a minute; there is always one.
void SoakRun::replaceEndedNeverReaders() {
    const std::size_t sockets = socketsOf(system_.agentPid());
    if (sockets == sockets_) { return; }
    event(fmt::format("the agent's sockets: {} before, {} now", sockets_, sockets));
    if (sockets < sockets_ && neverReaders_ > 0 && neverReaders_ < 20) {
        const bool window = neverReaders_++ % 2 == 0;
        slow_->add(
            fmt::format("never, {} full, number {}", window ? "window" : "socket", neverReaders_),
            system_.port(),
            window ? Pace::neverWindow : Pace::neverSocket);
        TestProcesses::pauseBriefly();
        event("another one that never reads");
    }
    sockets_ = socketsOf(system_.agentPid());
}

void SoakRun::watch(unsigned forSeconds, bool measured) {
    const auto begin = Clock::now();
    for (unsigned second = 1; second <= forSeconds; ++second) {
        std::this_thread::sleep_until(begin + seconds{second});
        requireAlive();
        if (measured) { result_.memory.samples.push_back(anonymousKiB(system_.agentPid())); }
        if (options_.slow) { replaceEndedNeverReaders(); }
    }
}

void SoakRun::measure() {
    const auto messages = [this] { return fast_->states()[0].messages; };
    const auto measuring = [this](bool on) {
        fast_->forEach([on](RawSubscriber& subscriber) { subscriber.measuringIs(on); });
    };
    struct Figures {
        double agent, forwarder, own;
        std::uint64_t messages;
        Clock::time_point at;
    };
    const auto figures = [&]() -> Figures {
        return {processorSeconds(system_.agentPid()),
                processorSeconds(system_.forwarderPid()),
                processorSeconds(::getpid()),
                messages(),
                Clock::now()};
    };
    event("measuring begins");
    const Figures before = figures();
    from_ = Checker::wallClockNs();
    measuring(true);
    watch(options_.seconds, true);
    measuring(false);
    until_ = Checker::wallClockNs();
    const Figures after = figures();
    const double taken = std::chrono::duration<double>(after.at - before.at).count();
    result_.agentCpu = (after.agent - before.agent) / taken;
    result_.forwarderCpu = (after.forwarder - before.forwarder) / taken;
    result_.ownCpu = (after.own - before.own) / taken;
    result_.churnSeen = static_cast<double>(after.messages - before.messages) / taken;
    fast_->forEach([this](RawSubscriber& subscriber) { result_.stampLag.add(subscriber.lag()); });
    readTasks();
    event("measuring ends");
}

void SoakRun::readTasks() {
    const auto tasks = nlohmann::json::parse(system_.ask("tasks"), nullptr, false);
    if (!tasks.is_array()) {
        result_.problems.emplace_back("the agent does not answer about its tasks");
        return;
    }
    for (const auto& task : tasks) {
        TaskFigures& figures = result_.tasks[task.value("name", std::string{})];
        figures.longestMs = std::max(figures.longestMs, task.value("longestMs", 0.0));
        figures.totalMs += task.value("totalMs", 0.0);
        figures.runs += task.value("runs", std::uint64_t{0});
    }
}

// The end: nothing changes any more, and whoever still reads has to hold the truth

std::uint64_t SoakRun::truth() {
    std::unique_ptr<Pel::Cli::ChildProcess> once;
    recorder(once, "once.rec", {"--once"});
    const bool ended = waitUntil(seconds{options_.settleSeconds}, [&] { return once->ended(); });
    require(ended ? "" : "a ONCE does not end");
    StreamDigest digest;
    Checker::RecordReader reader;
    require(reader.open(file("once.rec")));
    while (true) {
        const auto next = reader.next();
        if (next == Checker::RecordReader::Next::broken) {
            throw std::runtime_error{reader.error()};
        }
        if (next == Checker::RecordReader::Next::end) { break; }
        digest.take(reader.message(), 0);
    }
    require(digest.synced() ? "" : "a ONCE ended without its sync");
    result_.entries = digest.entries();
    return digest.digest();
}

bool SoakRun::settled() {
    const std::uint64_t wanted = truth();
    for (SubscriberPool* const pool : {fast_.get(), slow_.get()}) {
        for (const SubscriberState& state : pool->states()) {
            if (!state.ended && state.digest != wanted) { return false; }
        }
    }
    return true;
}

void SoakRun::settle() {
    require(system_.stopForwarder());
    event("the forwarder was ended");
    const auto begin = Clock::now();
    result_.slow = slow_->states();  // as they stood, before they hurry
    slow_->hurry();
    if (stockSlow_ != nullptr && !stockSlow_->ended()) { ::kill(stockSlow_->pid(), SIGUSR1); }
    const bool all = waitUntil(seconds{options_.settleSeconds}, [&] {
        requireAlive();
        return settled();
    });
    result_.settledAfter = since(begin);
    const std::uint64_t wanted = truth();
    for (SubscriberPool* const pool : {fast_.get(), slow_.get()}) {
        for (const SubscriberState& state : pool->states()) {
            const bool isFast = pool == fast_.get();
            if (isFast && state.ended) {
                result_.problems.push_back(state.name + " was ended: " + state.how);
            } else if (!state.ended && state.digest != wanted) {
                result_.problems.push_back(
                    fmt::format("{} holds another state: {} entries, the truth has {}",
                                state.name,
                                state.entries,
                                result_.entries));
            }
        }
    }
    if (options_.slow) { result_.slow = slow_->states(); }
    event(all ? "all that read hold the same state" : "NOT all hold the same state");
}

void SoakRun::judge() {
    // What is under way to the recorders is theirs before they are ended.
    std::this_thread::sleep_for(milliseconds{500});
    const std::string stockEnd = stock_->end(seconds{30});
    if (stockEnd != "ended with 0") { result_.problems.push_back("the recorder " + stockEnd); }
    bool stockSlowComplete = false;
    if (stockSlow_ != nullptr) {
        stockSlowComplete = stockSlow_->end(seconds{30}) == "ended with 0";
        if (!stockSlowComplete) { event("the stock client with a pause of 1 s had been ended"); }
    }
    slow_->forEach([this](RawSubscriber& subscriber) {
        if (const std::string error = subscriber.finish(); !error.empty()) {
            result_.problems.push_back(error);
        }
    });
    judge("fast, stock client", "fast.rec", false, true);
    if (options_.slow) {
        const auto states = slow_->states();
        judge(states[0].name, "walking.rec", true, !states[0].ended);
        judge(states[1].name, "live.rec", true, !states[1].ended);
        judge("stock client with a pause of 1 s", "stock-slow.rec", true, stockSlowComplete);
    }
    result_.dueLag = dueLag(file("fast.rec"), options_.churn, from_, until_);
}

void SoakRun::judge(const std::string& name, const char* recording, bool laggard, bool complete) {
    Checker::Replay replay{{.laggard = laggard, .quietEnd = complete}};
    Checker::Played played;
    Judged judged;
    judged.name = name;
    std::string error = play(file(recording), replay, played);
    if (error.empty() && complete) {
        Checker::Replay once{{.quietEnd = true, .quietStart = true, .once = true}};
        Checker::Played end;
        error = play(file("once.rec"), once, end);
        for (const auto& finding : once.findings()) {
            judged.lines.push_back("in the ONCE: " + finding.line());
        }
        replay.compareWith(once);
    }
    if (!error.empty()) { judged.lines.push_back(error); }
    for (const auto& finding : replay.findings()) {
        // A stream that was ended early need not have come as far as its sync.
        if (!complete && finding.rule == Checker::Rule::noSync) { continue; }
        judged.lines.push_back(finding.line());
    }
    judged.messages = replay.statistics().messages;
    if (laggard && error.empty()) {
        Checker::Replay strict{{}};
        play(file(recording), strict, played);
        for (const auto& finding : strict.findings()) {
            judged.unmetWithinEpochs += finding.rule == Checker::Rule::danglingNextHop ||
                                        finding.rule == Checker::Rule::danglingGroup;
        }
    }
    judged.findings = judged.lines.size();
    if (judged.findings > 0) {
        result_.problems.push_back(fmt::format("{}: {} findings", name, judged.findings));
    }
    judged.lines.resize(std::min<std::size_t>(judged.lines.size(), 20));
    result_.judged.push_back(std::move(judged));
}

}  // namespace Soak
