#pragma once

#include <optional>
#include <string>
#include <vector>

#include "test/soak/SoakRun.h"

namespace Soak {

/// A figure beside what it should be.
struct Goal {
    std::string name;
    double value = 0;
    double limit = 0;  ///< at most
    bool met() const { return value <= limit; }
};

/// A task whose longest slice matters: with the slow subscribers, and without.
struct SlicePair {
    std::string task;
    double withMs = 0;
    double withoutMs = 0;
    /// Slices within the scheduler's own bound are as good as none.
    double ratio() const;
    /// A walk of a mapper: what slow subscribers must not make longer.
    bool walks() const { return task.ends_with("MapperSmTask"); }
};

struct Report {
    RunResult with;
    std::optional<RunResult> without;  ///< the run without the slow subscribers
    bool timing = true;                ///< whether figures count

    std::vector<SlicePair> slices() const;
    std::vector<Goal> goals() const;
    bool good() const;
    std::string table() const;
    std::string json() const;
};

}  // namespace Soak
