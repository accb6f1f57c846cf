#pragma once

#include <absl/functional/function_ref.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Store/RecordLayout.h"

namespace Store {

/// One read transaction over an environment, taken when something is first read in a slice and
/// given back at its end: log and records are always of the same moment. Views hold until reset().
class Snapshot {
public:
    Snapshot() = default;
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    ~Snapshot() { environmentIs(nullptr); }

    void environmentIs(std::shared_ptr<Environment> environment);
    /// Gives the transaction back; the next read takes a newer one.
    void reset();

    std::optional<RecordView> record(TableId table, std::string_view key);
    /// Visits a table's records in key order, from the given key (inclusive or not) until the
    /// visitor answers false. Answers whether the table's end was reached.
    bool scan(TableId table,
              std::string_view from,
              bool inclusive,
              absl::FunctionRef<bool(std::string_view key, const RecordView& record)> visit);
    /// Sequence of the oldest and of the newest entry of the log; 0 when it is empty.
    Sequence logFirst() { return logEdge(MDB_FIRST); }
    Sequence logLast() { return logEdge(MDB_LAST); }
    /// Visits the log's entries after the given one until the visitor answers false. Answers
    /// whether the end was reached.
    bool log(Sequence after, absl::FunctionRef<bool(const LogEntry&)> visit);

    /// What went wrong since the environment was set; empty when nothing.
    const std::string& error() const { return error_; }

private:
    bool begin();
    bool renew(MDB_cursor*& cursor, unsigned database);
    MDB_cursor* recordCursor(TableId table);
    bool failed(int code);
    Sequence logEdge(MDB_cursor_op edge);

    std::shared_ptr<Environment> environment_;
    MDB_txn* txn_ = nullptr;
    std::uint64_t transaction_ = 0;  // counts them
    // Of its own each, so that a visitor of the one may use the others. One for each of the tables
    // that are read by turns: keys that are read in order are then found where the last one was.
    struct RecordCursor {
        MDB_cursor* cursor = nullptr;
        std::uint64_t transaction = 0;  // for which it was renewed
    };
    std::array<RecordCursor, 16> recordCursors_{};
    MDB_cursor* scanCursor_ = nullptr;
    MDB_cursor* logCursor_ = nullptr;
    bool active_ = false;
    std::string error_;
};

}  // namespace Store
