#pragma once

#include <absl/container/flat_hash_map.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Store/BellWatch.h"
#include "platform/Store/FirstError.h"
#include "platform/Store/Reader.h"
#include "platform/Store/Snapshot.h"

namespace Store {

/// A mount as the pump sees it.
struct Reader::Mount::Impl {
    std::optional<RecordView> record(std::string_view key) const;

    Reader::State* state = nullptr;  // null once the reader is gone
    Sink* sink = nullptr;            // null once unmounted
    std::string path;
    std::string type;
    TableKind kind = TableKind::table;
    TableId table = 0;  // 0: not there, or of another type
    bool present = false;
    bool needsSweep = true;
    bool sweeping = false;
    bool settling = false;  // swept, and to be told that all are
    bool told = false;      // sweeping: sweepEnded(); settling: sweepSettled(); the rest follows
    std::string sweptTo;
};

/// The reader's inside: the open store, its mounts, and the pump.
///
/// Invariants: position_ of the reader counts all log entries told; while a mount needs a sweep no
/// log entry is told; mounts_ and byTable_ only grow inside a run (callbacks mount and unmount).
struct Reader::State {
    using Impl = Reader::Mount::Impl;
    enum class Next { again, yield, idle };

    State(Reader& owner, const Vel::Ref<Kiln::TaskScheduler>& taskScheduler);
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State();

    // Reader.cpp: the store comes and goes
    void openStore();
    void listen();
    void storeGone(std::string reason);
    bool look();
    void unmount(Impl& mount);
    std::optional<TableInfo> table(std::string_view path);
    std::vector<TableInfo> tables(std::string_view prefix);

    // Pump.cpp: what the mounts are told
    bool run();
    bool sliceOver();
    void beginFresh();
    void publishTable(const std::string& path);
    std::shared_ptr<Impl> nextToSweep() const;
    bool sweep(Impl& mount);
    bool settle();
    void presentAll();
    bool rest(Impl& mount);
    void restAtOnce(Impl& mount);
    Next followLog();
    void tellEntry(const LogEntry& entry);
    void tableChanged(const std::string& path);
    void attach(Impl& mount);
    void detach(Impl& mount);
    void compact();
    void guarded(absl::FunctionRef<void()> call);
    void tell(Impl& mount, absl::FunctionRef<void(Sink&)> call);

    Reader& reader;
    Vel::Ref<Kiln::TaskScheduler> scheduler;
    Snapshot snapshot;
    std::shared_ptr<bool> closing;  // the store that went is being closed
    std::vector<std::shared_ptr<Impl>> mounts;
    absl::flat_hash_map<TableId, std::vector<std::shared_ptr<Impl>>> byTable;
    std::set<std::string> knownTables;  // that subscribers have been told of
    bool fresh = true;                  // everything is to be swept from the present head
    bool unsettled = true;
    bool presented = false;  // unsettled: all mounts have been told that they are present
    bool mounted = false;    // since the log was last looked at
    bool caughtUp = false;
    std::uint64_t sinkFailures = 0;
    unsigned keys = 0;  // of this slice
    Kiln::TimePoint sliceEnds{};
    Kiln::Task pump;
    Kiln::Task watch;
    std::unique_ptr<BellWatch> bell;
    bool deaf = false;  // and said so
    Vel::Subscription onSliceEnd;
};

}  // namespace Store
