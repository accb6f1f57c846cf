#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace Soak {

/// Resident memory of a process that no file backs, in KiB; 0 when there is no such process.
std::uint64_t anonymousKiB(pid_t process);
/// Processor time that a process has used, in seconds.
double processorSeconds(pid_t process);
/// Open sockets of a process.
std::size_t socketsOf(pid_t process);

/// Resident memory over the time of a run, a sample a second.
struct MemoryCourse {
    std::vector<std::uint64_t> samples;

    struct Part {
        std::uint64_t peak = 0;
        double mean = 0;
    };
    /// Of `seconds` samples at the beginning or at the end; of half of all when there are less than twice as many.
    Part first(std::size_t seconds) const;
    Part last(std::size_t seconds) const;
};

}  // namespace Soak
