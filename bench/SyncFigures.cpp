#include <proto/gnmi.pb.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "apps/cli/GnmiStream.h"
#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "bench/RawStream.h"

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begun) {
    return std::chrono::duration<double>(Clock::now() - begun).count();
}

/// A stock client that parses each message. Until as many updates have come, or until the sync.
double parsingClient(std::uint16_t port, std::uint64_t entries) {
    const bool once = entries == 0;
    const auto begun = Clock::now();
    Pel::Cli::GnmiStream stream;
    Pel::Cli::GnmiStream::Request request;
    request.server = "127.0.0.1:" + std::to_string(port);
    request.once = once;
    std::uint64_t updates = 0;
    double taken = 0;
    std::string error;
    const int code = stream.run(
        request,
        [&](const gnmi::SubscribeResponse& response) {
            if (response.has_update()) { ++updates; }
            taken = secondsSince(begun);
            return once || updates < entries;
        },
        error);
    if (code != 0) { throw std::runtime_error{error}; }
    return taken;
}

struct Round {
    double raw;
    double parsing;
    RawReply settled;
    double settledParsing;
    double limit;
    double limitParsing;
    std::uint64_t memory;
    double cpu;
};

Round once(const Setting& setting) {
    const std::uint64_t entries = entriesOf(setting.nextHops);
    Round round{};
    {
        const auto begun = Clock::now();
        AgentProcess agent{setting.programs, setting.root};
        const std::uint16_t port = agent.waitForPort();
        subscribeUntil(port, entries);
        round.raw = secondsSince(begun);
        round.cpu = static_cast<double>(agent.cpuNanoseconds()) / 1e9;
        round.settled = subscribeOnce(port);
        round.memory = agent.rssAnonBytes();
        round.settledParsing = parsingClient(port, 0);
    }
    {
        const auto begun = Clock::now();
        AgentProcess agent{setting.programs, setting.root};
        parsingClient(agent.waitForPort(), entries);
        round.parsing = secondsSince(begun);
    }
    round.limit = replay(round.settled).seconds;
    const ReplayServer server{round.settled.bytes};
    round.limitParsing = parsingClient(server.port(), 0);
    return round;
}

}  // namespace

Json syncFigures(const Setting& setting) {
    std::vector<Round> rounds;
    for (int i = 0; i < setting.rounds; ++i) {
        rounds.push_back(once(setting));
        if (i > 0) { rounds[rounds.size() - 2].settled.bytes = {}; }
    }
    const auto best = [&](auto value) {
        double result = value(rounds[0]);
        for (const Round& round : rounds) { result = std::min<double>(result, value(round)); }
        return result;
    };
    return {{"raw_s", best([](const Round& r) { return r.raw; })},
            {"parsing_s", best([](const Round& r) { return r.parsing; })},
            {"settled_s", best([](const Round& r) { return r.settled.seconds; })},
            {"settled_parsing_s", best([](const Round& r) { return r.settledParsing; })},
            {"limit_s", best([](const Round& r) { return r.limit; })},
            {"limit_parsing_s", best([](const Round& r) { return r.limitParsing; })},
            {"agent_cpu_s", best([](const Round& r) { return r.cpu; })},
            {"rss_anon_bytes", best([](const Round& r) { return static_cast<double>(r.memory); })},
            {"messages", rounds.back().settled.messages},
            {"bytes", rounds.back().settled.bytes.size()}};
}

}  // namespace Bench
