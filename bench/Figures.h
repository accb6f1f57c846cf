#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/AgentProcess.h"
#include "bench/PrefixSource.h"

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
/// The same of any store with so many groups, of which "like" below the root has another one, and
/// "empty" one with nothing in it.
Json sweptSlices(const Setting& setting, std::uint64_t groups);

/// The agent's CPU time for a delivered message, with so many subscribers at a time.
Json subscriberFigures(const Setting& setting, const std::vector<unsigned>& counts);

/// Two stock clients that parse, at once, and very many prefixes: seconds from the agent's start on a
/// filled store until both have all; from the first record on with clients that are there before it; until
/// they know of another MAC address of half of the next hops; and until they know that all prefixes
/// are gone. Beside them two raw clients, the same bytes ready in memory, and what the writer
/// takes by itself; and the agent's memory and longest slice. Makes stores of its own.
Json prefixFigures(const Setting& setting, const PrefixCounts& counts);

}  // namespace Bench
