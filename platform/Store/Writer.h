#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Store/Environment.h"

namespace Store {

/// The writing side of an environment. Operations gather in a transaction that the first of them
/// begins; commit() makes them visible all at once and rings the bell. Keep transactions at or
/// below kMaxRecords records. One thread.
///
/// Room to delete. The last part of the map (reserveBytes()) is for transactions that do not make
/// the records larger: others fail as if the store were full, and the log stops growing there. So
/// a full store takes deletions and equal replacements, and gets room by them. Pages come free two
/// transactions after the one that let go of them; when none is left the writer brings these about
/// itself, and what failed may be repeated at once. A reader that stands still inside a transaction
/// holds back all pages that come free meanwhile; the text of the failure names its process.
///
/// A failure (no space, I/O, a key beyond the engine's 507 bytes) aborts the transaction and is
/// told by commit(); until then further operations do nothing. Nothing of an aborted transaction is
/// ever seen; the caller repeats it. Ids that tableIs() gave out stay good: the tables of an
/// aborted transaction are registered again by the next one.
class Writer {
public:
    static constexpr std::size_t kMaxRecords = 1024;

    explicit Writer(std::shared_ptr<Environment> environment);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer();  ///< aborts what was not committed

    /// Finds the table of this path or registers it. 0 on failure, also when the path is of another
    /// type or kind.
    TableId tableIs(std::string_view path, std::string_view type, TableKind kind);
    /// Removes the table with all its records.
    void tableDel(std::string_view path);

    /// Writes a record. `rewrite` logs the change even when the value is equal to the present one;
    /// else an equal value is no change.
    void put(TableId table, std::string_view key, std::string_view value, bool rewrite = false);
    void erase(TableId table, std::string_view key);

    /// Reads inside the transaction; the view holds until the next operation.
    std::optional<std::string_view> get(TableId table, std::string_view key);
    /// Visits the records of a table in key order, from the first at or behind `from`; the visitor
    /// must not write, and answers whether to go on.
    void forEach(TableId table,
                 const std::function<bool(std::string_view key, std::string_view value)>& visit,
                 std::string_view from = {});

    /// Records changed (tables included) since the last commit.
    std::size_t pending() const { return pending_; }
    /// Ends the transaction and rings the bell. Empty, or what went wrong.
    std::string commit();
    void abort();

    Environment& environment() { return *environment_; }
    /// What is kept back of a map of so many bytes: an eighth, at most 16 MB.
    static constexpr std::size_t reserveBytes(std::size_t mapBytes) {
        return std::min(mapBytes / 8, std::size_t{16} << 20);
    }

private:
    struct Transaction;
    struct Known {
        TableInfo info;
        bool committed = false;
    };
    bool begin();
    bool adopt(const Known& table);
    void write(const TableInfo& table, std::string_view key, std::string_view value, bool rewrite);
    void remove(const TableInfo& table, std::string_view key);
    void log(TableId table, std::string_view key);
    TableId newTableId();
    void trimLog();
    bool nearlyFull() const;
    std::string fullText() const;
    void recyclePages();
    bool failed(int code);
    void fail(std::string text);
    void ringBell();
    void clearDeadReaders();

    std::shared_ptr<Environment> environment_;
    std::unique_ptr<Transaction> transaction_;
    std::map<TableId, Known> tables_;  // that this writer has been asked for
    std::string error_;
    std::size_t pending_ = 0;
    int bell_ = -1;
    std::chrono::steady_clock::time_point readersChecked_;
};

}  // namespace Store
