#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/AgentProcess.h"

namespace Bench {

using Json = nlohmann::ordered_json;

/// What the figures are measured on.
struct Setting {
    Programs programs;
    std::filesystem::path root;  ///< filled with `nextHops`
    std::uint64_t nextHops = 0;
    int rounds = 3;
};

/// The median, and what 99 % stay at or below. Sorts.
double median(std::vector<double>& values);
double percentile99(std::vector<double>& values);
double least(const std::vector<double>& values);

/// Seconds from the start of an agent on a filled store until a client has everything, the same for
/// a client that comes later, and the same bytes from a server that has them ready in memory; once
/// for a client that only takes bytes, once for a stock client that parses each message. And what
/// memory the agent has in the end.
Json syncFigures(const Setting& setting);

/// Microseconds from a commit to the client, `changes` times, and of the wake-ups alone: a bell, an
/// eventfd, a socket.
Json latencyFigures(const Setting& setting, unsigned changes);

/// The longest slices of the agent's scheduler in each of the sweeps that it may come to.
Json sliceFigures(const Setting& setting);

/// The agent's CPU time for a delivered message, with so many subscribers at a time.
Json subscriberFigures(const Setting& setting, const std::vector<unsigned>& counts);

}  // namespace Bench
