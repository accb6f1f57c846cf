// export-figures: one figure of the export at a time, as a line of JSON. bench/report runs it and
// makes the page.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "platform/AgentHost/Allocator.h"
#include "test/support/TempDir.h"

namespace Bench {

double median(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double percentile99(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    return values[values.size() * 99 / 100];
}

double least(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

}  // namespace Bench

namespace {

int run(int count, char** values) {
    const TestSupport::TempDir directory;
    Bench::Setting setting;
    setting.root = directory.path();
    unsigned changes = 2000;
    std::vector<unsigned> subscribers{1, 8, 64};
    CLI::App app{"Figures of the whole export"};
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--agentd", setting.programs.agentd)->required();
    app.add_option("--plugin", setting.programs.plugin)->required();
    app.add_option("--next-hops", setting.nextHops)->required();
    app.add_option("--rounds", setting.rounds);
    Bench::PrefixCounts prefixes;
    CLI::App* const withPrefixes = app.add_subcommand("prefixes", "very many prefixes");
    withPrefixes->add_option("--ipv4", prefixes.ipv4)->required();
    withPrefixes->add_option("--ipv6", prefixes.ipv6)->required();
    app.add_subcommand("sync", "store to client");
    app.add_subcommand("latency", "one change")->add_option("--changes", changes);
    app.add_subcommand("slices", "longest slices of the scheduler");
    app.add_subcommand("subscribers", "CPU of a delivered message")
        ->add_option("--counts", subscribers);
    CLI11_PARSE(app, count, values);
    Bench::Json result;
    if (withPrefixes->parsed()) {
        prefixes.nextHops = setting.nextHops;
        result = Bench::prefixFigures(setting, prefixes);
    } else {
        Bench::fillStore(setting.root, setting.nextHops);
    }
    if (app.got_subcommand("sync")) { result = Bench::syncFigures(setting); }
    if (app.got_subcommand("latency")) { result = Bench::latencyFigures(setting, changes); }
    if (app.got_subcommand("slices")) { result = Bench::sliceFigures(setting); }
    if (app.got_subcommand("subscribers")) {
        result = Bench::subscriberFigures(setting, subscribers);
    }
    std::cout << result.dump() << "\n";
    return 0;
}

}  // namespace

int main(int count, char** values) {
    ::signal(SIGPIPE, SIG_IGN);
    AgentHost::allocatorWorksEvenly();
    try {
        return run(count, values);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "export-figures: %s\n", error.what());
        return 1;
    }
}
