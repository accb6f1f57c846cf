#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "test/checker/LagHistogram.h"
#include "test/processes/RunningSystem.h"
#include "test/soak/ProcessFigures.h"
#include "test/soak/SubscriberPool.h"

namespace Soak {

struct RunOptions {
    std::uint64_t nextHops = 40'000;
    std::uint64_t groups = 10'000;
    std::uint64_t routes = 50'000;
    std::uint64_t churn = 10'000;  ///< changes a second
    std::uint64_t chains = 0;      ///< of next hops, group and route that come and go as a whole
    std::uint64_t seed = 1;
    unsigned fast = 64;
    bool slow = true;
    unsigned warmUpSeconds = 120;  // until a client that stands holds back nearly all it can
    unsigned seconds = 120;
    /// How long all may take to hold the same state once nothing changes any more.
    unsigned settleSeconds = 120;
};

struct TaskFigures {
    double longestMs = 0;
    double totalMs = 0;
    std::uint64_t runs = 0;
};

/// What the judge said of one recorded stream.
struct Judged {
    std::string name;
    std::uint64_t messages = 0;
    std::size_t findings = 0;
    /// References unmet after some message, of a client that was behind: told, and no fault.
    std::size_t unmetWithinEpochs = 0;
    std::vector<std::string> lines;  ///< the first ones
};

struct RunResult {
    std::vector<std::string> problems;  ///< what makes the run a failure, figures apart
    std::uint64_t entries = 0;
    double churnSeen = 0;  ///< messages a second at a fast subscriber
    MemoryCourse memory;
    Checker::LagHistogram stampLag;
    Checker::LagHistogram dueLag;
    std::map<std::string, TaskFigures> tasks;
    double agentCpu = 0;  ///< share of one processor
    double forwarderCpu = 0;
    double ownCpu = 0;
    std::vector<SubscriberState> slow;
    std::vector<std::string> events;
    double settledAfter = 0;  ///< seconds after the last change
    std::vector<Judged> judged;
};

/// One run: the system under churn with its subscribers, and the judgement on what they got.
class SoakRun {
public:
    explicit SoakRun(const RunOptions& options) : options_{options} {}
    SoakRun(const SoakRun&) = delete;
    SoakRun& operator=(const SoakRun&) = delete;

    /// Throws std::runtime_error when it cannot go on, or was interrupted.
    RunResult run();

    /// Set by a signal: a run ends as soon as it looks, with all that it started.
    static inline volatile std::sig_atomic_t interrupted = 0;

private:
    void require(const std::string& problem) const;
    void requireAlive();
    void startSystem();
    void subscribe();
    void watch(unsigned seconds, bool measured);
    void replaceEndedNeverReaders();
    void measure();
    void readTasks();
    void settle();
    bool settled();
    std::uint64_t truth();
    void recorder(std::unique_ptr<Pel::Cli::ChildProcess>& process,
                  const char* file,
                  std::vector<std::string> more);
    void judge();
    void judge(const std::string& name, const char* file, bool laggard, bool complete);
    void event(const std::string& text);
    std::string file(const char* name) const { return (system_.root() / name).string(); }

    RunOptions options_;
    RunResult result_;
    TestProcesses::RunningSystem system_;
    std::unique_ptr<SubscriberPool> fast_;
    std::unique_ptr<SubscriberPool> slow_;
    std::unique_ptr<Pel::Cli::ChildProcess> stock_;
    std::unique_ptr<Pel::Cli::ChildProcess> stockSlow_;
    std::chrono::steady_clock::time_point begun_;
    std::int64_t from_ = 0;
    std::int64_t until_ = 0;
    std::size_t sockets_ = 0;
    unsigned neverReaders_ = 0;
};

}  // namespace Soak
