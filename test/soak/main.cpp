#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <fstream>
#include <string>

#include "test/soak/Report.h"
#include "test/soak/SoakRun.h"

// pel-soak: the real forwarder and agent under churn, with fast and slow gNMI clients. Ends with 0 when the goals are
// met, 1 when not or when something failed, 2 when the command line makes no sense.
namespace {

int run(int count, char** values) {
    Soak::RunOptions options;
    std::string json;
    bool onlySlow = false;
    bool noTiming = false;
    CLI::App app{"Churn for a while, with clients that read and clients that do not", "pel-soak"};
    const auto number = [&](const char* name, auto& value, const char* help, std::uint64_t max) {
        app.add_option(name, value, help)
            ->check(CLI::Range(std::uint64_t{0}, max))
            ->capture_default_str();
    };
    number("--next-hops", options.nextHops, "Next hops", 2'000'000);
    number("--groups", options.groups, "Groups", 1'000'000);
    number("--routes", options.routes, "Routes, a quarter of them IPv6", 4'000'000);
    number("--churn",
           options.churn,
           "Changes a second, a fifth (with chains two) of them deletes and adds",
           100'000);
    number("--chains",
           options.chains,
           "Next hops, group and route that come and go as a whole",
           100'000);
    number("--seed", options.seed, "Of the generator", 1'000'000);
    number("--fast", options.fast, "Subscribers that keep up", 256);
    number("--warm-up", options.warmUpSeconds, "Seconds before measuring", 600);
    number("--seconds", options.seconds, "Seconds of measuring", 3600);
    number(
        "--settle", options.settleSeconds, "Seconds until all have to hold the same state", 3600);
    app.add_flag("--only-slow", onlySlow, "Leave out the run without slow subscribers");
    app.add_flag("--no-timing", noTiming, "Figures do not count; states, streams and processes do");
    app.add_option("--json", json, "Write the report to this file too");
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    Soak::Report report;
    report.timing = !noTiming;
    if (!onlySlow) {
        fmt::print("without slow subscribers\n");
        Soak::RunOptions without = options;
        without.slow = false;
        report.without = Soak::SoakRun{without}.run();
    }
    fmt::print("with slow subscribers\n");
    report.with = Soak::SoakRun{options}.run();
    fmt::print("{}", report.table());
    if (!json.empty()) { std::ofstream{json} << report.json(); }
    return report.good() ? 0 : 1;
}

}  // namespace

int main(int count, char** values) {
    ::signal(SIGPIPE, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM}) {
        ::signal(number, [](int) { Soak::SoakRun::interrupted = 1; });
    }
    try {
        return run(count, values);
    } catch (const std::exception& error) {
        fmt::print(stderr, "pel-soak: {}\n", error.what());
        return 1;
    }
}
