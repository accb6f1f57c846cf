#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Environment.h"
#include "platform/Vel/Subscription.h"

namespace Store {

/// What the keeper of a mounted table is told, on the scheduler's thread. Keys are bytes.
class Sink {
public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;

    /// A record was added, changed or deleted; read it back.
    virtual void keyChanged(std::string_view key) = 0;
    /// All keys follow, in key order, by sweepKey(); what the keeper knew and does not see again is
    /// gone. Comes first for each mount, and again when the reader fell behind the log.
    virtual void sweepBegun() = 0;
    virtual void sweepKey(std::string_view key) = 0;
    /// In the place of sweepKey(): the key is there, but it changed after the position from which
    /// the log will follow. Its change is still to come and must not be anticipated.
    virtual void sweepLater(std::string_view key) = 0;
    virtual void sweepEnded() = 0;
    /// The store and this table in it are there and swept (true; told to all mounts, kind by kind,
    /// once the sweeps of all of them have ended), or the store or the table went away (false).
    virtual void presentIs(bool present) = 0;
    /// All mounts have been told that they are present; the log follows.
    virtual void sweepSettled() = 0;
    /// What sweepEnded() or sweepSettled() left to be done, a little at a time: asked after each of
    /// the two, slice by slice, until it answers that nothing is left.
    virtual bool sweepRest() { return false; }
};

/// The reading side of an environment for one scheduler: opens it as soon as it is there, and pumps
/// its changes to the mounted tables, strictly in the store's order over all of them, in the task
/// "StorePump" of priority 2 (at most 256 keys and 1 ms a run).
///
/// Sweeps go first, kind by kind as TableKind orders them, and hold back the log. A state record
/// that has a later change in the log is not told at the earlier one: its value would speak of data
/// that has not been told yet. A table that is registered later is empty at that point of the log,
/// and present from there on. What a sink throws is traced and counted, and the pump goes on. The
/// bell wakes the pump; it also looks once a second by itself, for
/// a writer killed between commit and bell, and then looks whether the store was replaced: if so,
/// all mounts are told that it is gone and are swept from the new one.
class Reader final : public Vel::RefCounted {
public:
    Reader(Vel::Ref<Kiln::TaskScheduler> scheduler, Options options);
    ~Reader() override;

    /// The right to be told of one table; unmounts when it dies. The sink outlives it.
    class [[nodiscard]] Mount {
    public:
        struct Impl;
        Mount();
        explicit Mount(std::shared_ptr<Impl> impl);
        Mount(Mount&&) noexcept;
        Mount& operator=(Mount&&) noexcept;
        Mount(const Mount&) = delete;
        Mount& operator=(const Mount&) = delete;
        ~Mount();
        /// The record's bytes, or nullopt; the view holds until the end of the scheduler's slice.
        std::optional<std::string_view> read(std::string_view key) const;
        /// The record is of a change that has not been told yet: reads are not held back.
        bool toldLater(std::string_view key) const;
        bool present() const;
        /// The table that serves it now, which may be another one than before; 0: none.
        TableId table() const;

    private:
        std::shared_ptr<Impl> impl_;
    };
    /// Mounts the table of this path, whether it exists yet or not. `type` is compared when it is
    /// there; a table of another type is traced and stays absent.
    Mount mount(std::string_view path, std::string_view type, TableKind kind, Sink& sink);

    /// Reads any table by id, e.g. records of a content table.
    std::optional<std::string_view> read(TableId table, std::string_view key);
    std::optional<TableInfo> table(std::string_view path);
    /// Tables whose path starts with the prefix, in path order.
    std::vector<TableInfo> tables(std::string_view prefix);
    /// A table of this path was registered or removed.
    Vel::Publisher<const std::string&>& onTable() const { return onTable_; }

    bool open() const { return environment_ != nullptr; }
    /// Whether all mounts are swept and the log was consumed up to the head when the pump last ran.
    bool caughtUp() const;
    Vel::Publisher<>& onCaughtUp() const { return onCaughtUp_; }
    /// The store's position up to which changes have been told.
    Sequence position() const { return position_; }
    /// Identity of the open store; changes when it is replaced; 0 when none is open.
    std::uint64_t generation() const;
    Environment* environment() const { return environment_.get(); }
    /// Calls of sinks and table subscribers that ended in an exception.
    std::uint64_t sinkFailures() const;
    /// Why the store is not open; empty when it is.
    const std::string& lastError() const { return lastError_; }
    /// How often an open store went away, and why it did the last time.
    std::uint64_t losses() const { return losses_; }
    const std::string& lastLoss() const { return lastLoss_; }

private:
    struct State;
    friend struct Mount::Impl;
    std::unique_ptr<State> state_;
    Options options_;
    std::shared_ptr<Environment> environment_;
    Sequence position_ = 0;
    std::string lastError_;
    std::uint64_t losses_ = 0;
    std::string lastLoss_;
    mutable Vel::Publisher<const std::string&> onTable_;
    mutable Vel::Publisher<> onCaughtUp_;
};

}  // namespace Store
