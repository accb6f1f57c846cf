#include "platform/Store/Snapshot.h"

#include <array>
#include <utility>

namespace Store {

void Snapshot::environmentIs(std::shared_ptr<Environment> environment) {
    const auto close = [](MDB_cursor*& cursor) {
        if (cursor != nullptr) { mdb_cursor_close(std::exchange(cursor, nullptr)); }
    };
    for (RecordCursor& each : recordCursors_) { close(each.cursor); }
    close(scanCursor_);
    close(logCursor_);
    if (txn_ != nullptr) { mdb_txn_abort(std::exchange(txn_, nullptr)); }
    active_ = false;
    error_.clear();
    environment_ = std::move(environment);
}

void Snapshot::reset() {
    if (active_) { mdb_txn_reset(txn_); }
    active_ = false;
}

bool Snapshot::begin() {
    if (active_) { return true; }
    if (environment_ == nullptr || !error_.empty()) { return false; }
    MDB_env* env = environment_->handle();
    const auto take = [&] {
        return txn_ != nullptr ? mdb_txn_renew(txn_)
                               : mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn_);
    };
    int code = take();
    if (code == MDB_MAP_RESIZED) {  // the writer was given more space
        code = mdb_env_set_mapsize(env, 0);
        if (code == 0) { code = take(); }
    }
    if (failed(code)) { return false; }
    active_ = true;
    ++transaction_;
    const auto [meta, records, log] = environment_->databases();
    return renew(scanCursor_, records) && renew(logCursor_, log);
}

bool Snapshot::renew(MDB_cursor*& cursor, unsigned database) {
    return !failed(cursor != nullptr ? mdb_cursor_renew(txn_, cursor)
                                     : mdb_cursor_open(txn_, database, &cursor));
}

/// Null when it cannot be had.
MDB_cursor* Snapshot::recordCursor(TableId table) {
    RecordCursor& at = recordCursors_[table % recordCursors_.size()];
    if (at.transaction != transaction_) {
        if (!renew(at.cursor, environment_->databases().records)) { return nullptr; }
        at.transaction = transaction_;
    }
    return at.cursor;
}

std::optional<RecordView> Snapshot::record(TableId table, std::string_view key) {
    RecordKey recordKey{table, key};
    if (!begin() || !recordKey.fits()) { return std::nullopt; }
    MDB_val keyBytes = recordKey.value();
    MDB_val data{};
    MDB_cursor* const cursor = recordCursor(table);
    if (cursor == nullptr) { return std::nullopt; }
    const int code = mdb_cursor_get(cursor, &keyBytes, &data, MDB_SET);
    if (code == MDB_NOTFOUND || failed(code)) { return std::nullopt; }
    return recordOf(data);
}

bool Snapshot::scan(TableId table,
                    std::string_view from,
                    bool inclusive,
                    absl::FunctionRef<bool(std::string_view, const RecordView&)> visit) {
    RecordKey start{table, from};
    if (!begin() || !start.fits()) { return true; }
    RecordKey prefix{table, {}};
    MDB_val key = start.value();
    MDB_val data{};
    int code = mdb_cursor_get(scanCursor_, &key, &data, MDB_SET_RANGE);
    if (code == 0 && !inclusive && viewOf(key) == viewOf(start.value())) {
        code = mdb_cursor_get(scanCursor_, &key, &data, MDB_NEXT);
    }
    while (code == 0 && viewOf(key).starts_with(viewOf(prefix.value()))) {
        const auto record = recordOf(data);
        if (record && !visit(viewOf(key).substr(kTableBytes), *record)) { return false; }
        code = mdb_cursor_get(scanCursor_, &key, &data, MDB_NEXT);
    }
    if (code != MDB_NOTFOUND) { failed(code); }
    return true;
}

Sequence Snapshot::logEdge(MDB_cursor_op edge) {
    if (!begin()) { return 0; }
    MDB_val key{};
    MDB_val data{};
    const int code = mdb_cursor_get(logCursor_, &key, &data, edge);
    if (code == MDB_NOTFOUND || failed(code) || key.mv_size != sizeof(Sequence)) { return 0; }
    return getBigEndian<Sequence>(viewOf(key).data());
}

bool Snapshot::log(Sequence after, absl::FunctionRef<bool(const LogEntry&)> visit) {
    if (!begin()) { return true; }
    std::array<char, sizeof(Sequence)> start;
    putBigEndian(start.data(), after + 1);
    MDB_val key{start.size(), start.data()};
    MDB_val data{};
    int code = mdb_cursor_get(logCursor_, &key, &data, MDB_SET_RANGE);
    while (code == 0) {
        if (key.mv_size == sizeof(Sequence) && data.mv_size >= kTableBytes) {
            const std::string_view bytes = viewOf(data);
            const LogEntry entry{getBigEndian<Sequence>(viewOf(key).data()),
                                 getBigEndian<TableId>(bytes.data()),
                                 bytes.substr(kTableBytes)};
            if (!visit(entry)) { return false; }
        }
        code = mdb_cursor_get(logCursor_, &key, &data, MDB_NEXT);
    }
    if (code != MDB_NOTFOUND) { failed(code); }
    return true;
}

bool Snapshot::failed(int code) {
    if (code == 0) { return false; }
    error_ = mdb_strerror(code);
    return true;
}

}  // namespace Store
