#include "platform/Store/Writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/Store/Identity.h"
#include "platform/Store/RecordLayout.h"
#include "platform/Vel/Assert.h"

namespace Store {
namespace {

constexpr std::string_view kLastTableKey = "lastTable";
constexpr std::chrono::seconds kReaderCheckInterval{1};
constexpr mode_t kBellMode = 0640;

}  // namespace

struct Writer::Transaction {
    MDB_txn* txn = nullptr;
    MDB_cursor* records = nullptr;
    MDB_cursor* log = nullptr;
    Sequence last = 0;        // of the log
    Sequence lastBefore = 0;  // when the transaction began
    std::int64_t grown = 0;   // bytes that the records have become more
    bool logged = false;
};

namespace {

std::size_t pagesOf(MDB_txn* txn, MDB_dbi database) {
    MDB_stat status{};
    if (mdb_stat(txn, database, &status) != 0) { return 0; }
    return status.ms_branch_pages + status.ms_leaf_pages + status.ms_overflow_pages;
}

/// A line of the engine's table of readers: process, thread, transaction ("-": none).
struct OldestReader {
    pid_t process = 0;
    std::size_t transaction = SIZE_MAX;
};

int takeReader(const char* line, void* context) {
    auto& oldest = *static_cast<OldestReader*>(context);
    int process = 0;
    std::size_t transaction = 0;
    if (std::sscanf(line, "%d %*x %zu", &process, &transaction) == 2 &&
        transaction < oldest.transaction) {
        oldest = {process, transaction};
    }
    return 0;
}

}  // namespace

Writer::Writer(std::shared_ptr<Environment> environment) : environment_{std::move(environment)} {
    VEL_ASSERT(environment_ != nullptr);
    bell_ = ::open(environment_->bellPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kBellMode);
}

Writer::~Writer() {
    abort();
    if (bell_ >= 0) { ::close(bell_); }
}

bool Writer::begin() {
    if (!error_.empty()) { return false; }
    if (transaction_ != nullptr) { return true; }
    auto made = std::make_unique<Transaction>();
    int code = mdb_txn_begin(environment_->handle(), nullptr, 0, &made->txn);
    if (code == MDB_MAP_RESIZED) {  // another writer was given more space
        mdb_env_set_mapsize(environment_->handle(), 0);
        code = mdb_txn_begin(environment_->handle(), nullptr, 0, &made->txn);
    }
    if (failed(code)) { return false; }
    transaction_ = std::move(made);
    Transaction& t = *transaction_;
    if (failed(mdb_cursor_open(t.txn, environment_->databases().records, &t.records)) ||
        failed(mdb_cursor_open(t.txn, environment_->databases().log, &t.log))) {
        return false;
    }
    MDB_val key{};
    MDB_val value{};
    code = mdb_cursor_get(t.log, &key, &value, MDB_LAST);
    if (code == 0) { t.last = t.lastBefore = getBigEndian<Sequence>(viewOf(key).data()); }
    if (code != MDB_NOTFOUND && failed(code)) { return false; }
    for (const auto& [id, table] : tables_) {
        if (!table.committed && !adopt(table)) { return false; }
    }
    return true;
}

/// Registers a table, again if its first transaction was aborted.
bool Writer::adopt(const Known& table) {
    std::string last(kTableBytes, '\0');
    putBigEndian(last.data(), table.info.id);
    std::string keyBytes{kLastTableKey};
    MDB_val key{keyBytes.size(), keyBytes.data()};
    MDB_val value{last.size(), last.data()};
    if (newTableId() <= table.info.id &&
        failed(mdb_put(transaction_->txn, environment_->databases().meta, &key, &value, 0))) {
        return false;
    }
    const TableInfo registry{kRegistry, TableKind::registry, {}, {}};
    write(registry, table.info.path, encodeTable(table.info), false);
    return error_.empty();
}

TableId Writer::newTableId() {
    std::string keyBytes{kLastTableKey};
    MDB_val key{keyBytes.size(), keyBytes.data()};
    MDB_val value{};
    const int code = mdb_get(transaction_->txn, environment_->databases().meta, &key, &value);
    const bool found = code == 0 && value.mv_size == kTableBytes;
    return found ? getBigEndian<TableId>(viewOf(value).data()) + 1 : kRegistry + 1;
}

TableId Writer::tableIs(std::string_view path, std::string_view type, TableKind kind) {
    if (!begin()) { return 0; }
    if (const auto bytes = get(kRegistry, path)) {
        const auto present = decodeTable(path, *bytes);
        if (!present || present->type != type || present->kind != kind) { return 0; }
        tables_.try_emplace(present->id, Known{*present, true});
        return present->id;
    }
    const Known made{{newTableId(), kind, std::string{path}, std::string{type}}, false};
    if (!adopt(made)) { return 0; }
    tables_[made.info.id] = made;
    return made.info.id;
}

void Writer::tableDel(std::string_view path) {
    const auto bytes = get(kRegistry, path);
    const auto table = bytes ? decodeTable(path, *bytes) : std::nullopt;
    if (!table) { return; }
    remove({kRegistry, TableKind::registry, {}, {}}, path);
    RecordKey first{table->id, {}};
    while (error_.empty()) {
        MDB_val key = first.value();
        MDB_val value{};
        const int code = mdb_cursor_get(transaction_->records, &key, &value, MDB_SET_RANGE);
        if (code == MDB_NOTFOUND ||
            (code == 0 && !viewOf(key).starts_with(viewOf(first.value())))) {
            break;
        }
        if (failed(code)) { return; }
        transaction_->grown -= static_cast<std::int64_t>(key.mv_size + value.mv_size);
        if (failed(mdb_cursor_del(transaction_->records, 0))) { return; }
    }
    tables_.erase(table->id);
}

void Writer::put(TableId table, std::string_view key, std::string_view value, bool rewrite) {
    if (!begin()) { return; }
    const auto known = tables_.find(table);
    if (known == tables_.end()) { return fail("a record of a table that is not registered"); }
    write(known->second.info, key, value, rewrite);
}

void Writer::write(const TableInfo& table,
                   std::string_view key,
                   std::string_view value,
                   bool rewrite) {
    RecordKey recordKey{table.id, key};
    if (!recordKey.fits()) {
        return fail("a key of " + std::to_string(key.size()) + " bytes; the limit is " +
                    std::to_string(kMaxKeyBytes - kTableBytes));
    }
    MDB_val keyBytes = recordKey.value();
    MDB_val data{};
    const int found = mdb_cursor_get(transaction_->records, &keyBytes, &data, MDB_SET);
    if (found != MDB_NOTFOUND && failed(found)) { return; }
    if (found == 0 && !rewrite) {
        const auto present = recordOf(data);
        if (present && present->value == value) { return; }
    }
    const bool content = table.kind == TableKind::content;
    const std::size_t before = found == 0 ? keyBytes.mv_size + data.mv_size : 0;
    data = {kSequenceBytes + value.size(), nullptr};
    transaction_->grown += static_cast<std::int64_t>(keyBytes.mv_size + data.mv_size) -
                           static_cast<std::int64_t>(before);
    keyBytes = recordKey.value();
    if (failed(mdb_cursor_put(transaction_->records,
                              &keyBytes,
                              &data,
                              MDB_RESERVE | (found == 0 ? MDB_CURRENT : 0U)))) {
        return;
    }
    char* to = static_cast<char*>(data.mv_data);
    putBigEndian(to, content ? Sequence{0} : transaction_->last + 1);
    if (!value.empty()) { std::memcpy(to + kSequenceBytes, value.data(), value.size()); }
    ++pending_;
    if (!content) { log(table.id, key); }
}

void Writer::erase(TableId table, std::string_view key) {
    if (!begin()) { return; }
    const auto known = tables_.find(table);
    if (known == tables_.end()) { return fail("a record of a table that is not registered"); }
    remove(known->second.info, key);
}

void Writer::remove(const TableInfo& table, std::string_view key) {
    RecordKey recordKey{table.id, key};
    if (!recordKey.fits()) { return; }  // none was ever written
    MDB_val keyBytes = recordKey.value();
    MDB_val data{};
    const int found = mdb_cursor_get(transaction_->records, &keyBytes, &data, MDB_SET);
    if (found == MDB_NOTFOUND || failed(found)) { return; }
    transaction_->grown -= static_cast<std::int64_t>(keyBytes.mv_size + data.mv_size);
    if (failed(mdb_cursor_del(transaction_->records, 0))) { return; }
    ++pending_;
    if (table.kind != TableKind::content) { log(table.id, key); }
}

void Writer::log(TableId table, std::string_view key) {
    std::array<char, sizeof(Sequence)> sequence;
    putBigEndian(sequence.data(), transaction_->last + 1);
    MDB_val keyBytes{sequence.size(), sequence.data()};
    MDB_val data{kTableBytes + key.size(), nullptr};
    if (failed(mdb_cursor_put(transaction_->log, &keyBytes, &data, MDB_APPEND | MDB_RESERVE))) {
        return;
    }
    char* to = static_cast<char*>(data.mv_data);
    putBigEndian(to, table);
    if (!key.empty()) { std::memcpy(to + kTableBytes, key.data(), key.size()); }
    ++transaction_->last;
    transaction_->logged = true;
}

std::optional<std::string_view> Writer::get(TableId table, std::string_view key) {
    if (!begin()) { return std::nullopt; }
    RecordKey recordKey{table, key};
    if (!recordKey.fits()) { return std::nullopt; }
    MDB_val keyBytes = recordKey.value();
    MDB_val data{};
    const int code = mdb_cursor_get(transaction_->records, &keyBytes, &data, MDB_SET);
    if (code == MDB_NOTFOUND || failed(code)) { return std::nullopt; }
    const auto record = recordOf(data);
    return record ? std::optional{record->value} : std::nullopt;
}

void Writer::forEach(TableId table,
                     const std::function<bool(std::string_view, std::string_view)>& visit,
                     std::string_view from) {
    if (!begin()) { return; }
    RecordKey first{table, from};
    MDB_val key = first.value();
    MDB_val data{};
    const std::string_view prefix = viewOf(first.value()).substr(0, kTableBytes);
    int code = mdb_cursor_get(transaction_->records, &key, &data, MDB_SET_RANGE);
    while (code == 0 && viewOf(key).starts_with(prefix)) {
        const auto record = recordOf(data);
        if (record && !visit(viewOf(key).substr(kTableBytes), record->value)) { return; }
        code = mdb_cursor_get(transaction_->records, &key, &data, MDB_NEXT);
    }
    if (code != 0 && code != MDB_NOTFOUND) { failed(code); }
}

std::string Writer::commit() {
    if (transaction_ != nullptr && pending_ == 0) { abort(); }
    if (transaction_ != nullptr) {
        clearDeadReaders();
        trimLog();
    }
    if (transaction_ != nullptr && transaction_->grown > 0 && nearlyFull()) {
        failed(MDB_MAP_FULL);
    }
    if (transaction_ != nullptr) {  // the log was trimmed without failure
        const std::unique_ptr<Transaction> ended = std::move(transaction_);
        pending_ = 0;
        if (!failed(mdb_txn_commit(ended->txn))) {
            for (auto& [id, table] : tables_) { table.committed = true; }
            if (ended->logged) { ringBell(); }
        }
    }
    return std::exchange(error_, {});
}

void Writer::trimLog() {
    std::uint64_t capacity = std::max<std::uint64_t>(1, environment_->options().logCapacity);
    bool frozen = nearlyFull();
    while (transaction_ != nullptr) {
        MDB_val key{};
        MDB_val value{};
        const int code = mdb_cursor_get(transaction_->log, &key, &value, MDB_FIRST);
        if (code == MDB_NOTFOUND || failed(code)) { return; }
        const auto first = getBigEndian<Sequence>(viewOf(key).data());
        if (std::exchange(frozen, false) && first <= transaction_->lastBefore) {
            capacity = std::min(capacity, transaction_->lastBefore - first + 1);
        }
        if (transaction_->last - first < capacity) { return; }
        if (failed(mdb_cursor_del(transaction_->log, 0))) { return; }
    }
}

void Writer::abort() {
    if (transaction_ != nullptr) { mdb_txn_abort(transaction_->txn); }
    transaction_.reset();
    pending_ = 0;
}

/// Whether what the transaction leaves in use touches the reserve.
bool Writer::nearlyFull() const {
    constexpr std::size_t kMetaPages = 2;
    constexpr MDB_dbi kFreeList = 0;
    constexpr MDB_dbi kMain = 1;
    const auto [meta, records, log] = environment_->databases();
    std::size_t pages = kMetaPages;
    for (const MDB_dbi database : {kFreeList, kMain, MDB_dbi{meta}, records, log}) {
        pages += pagesOf(transaction_->txn, database);
    }
    MDB_envinfo info{};
    MDB_stat status{};
    mdb_env_info(environment_->handle(), &info);
    mdb_env_stat(environment_->handle(), &status);
    return pages * status.ms_psize > info.me_mapsize - reserveBytes(info.me_mapsize);
}

/// Says that the store is full, and which reader's fault it is, if one has stood still for long.
std::string Writer::fullText() const {
    constexpr std::size_t kLong = 100;  // transactions; one in use lasts a slice
    MDB_envinfo info{};
    mdb_env_info(environment_->handle(), &info);
    std::string text =
        "full: its limit of " + std::to_string(info.me_mapsize) + " bytes is reached";
    OldestReader oldest;
    mdb_reader_list(environment_->handle(), takeReader, &oldest);
    if (oldest.process != 0 && info.me_last_txnid > oldest.transaction + kLong) {
        text += "; process " + std::to_string(oldest.process) +
                " stands still while it reads and holds back what came free in " +
                std::to_string(info.me_last_txnid - oldest.transaction) + " transactions";
    }
    return text;
}

/// Two transactions that change nothing: what the last ones let go of can be used after them.
void Writer::recyclePages() {
    std::string keyBytes{kIdentityKey};
    for (int i = 0; i < 2; ++i) {
        MDB_txn* txn = nullptr;
        if (mdb_txn_begin(environment_->handle(), nullptr, 0, &txn) != 0) { return; }
        const MDB_dbi meta = environment_->databases().meta;
        MDB_val key{keyBytes.size(), keyBytes.data()};
        MDB_val present{};
        int code = mdb_get(txn, meta, &key, &present);
        std::string identity{code == 0 ? viewOf(present) : std::string_view{}};
        MDB_val value{identity.size(), identity.data()};
        if (code == 0) { code = mdb_put(txn, meta, &key, &value, 0); }
        if (code != 0) { return mdb_txn_abort(txn); }
        if (mdb_txn_commit(txn) != 0) { return; }
    }
}

bool Writer::failed(int code) {
    if (code == 0) { return false; }
    std::string text = mdb_strerror(code);
    if (code == MDB_MAP_FULL) {
        abort();
        text = fullText();
        recyclePages();
    } else if (code == EIO || code == ENOSPC) {
        text += " (is the file system full?)";
    }
    fail(std::move(text));
    return true;
}

void Writer::fail(std::string text) {
    error_ = "store " + environment_->options().directory.string() + ": " + std::move(text);
    abort();
}

void Writer::ringBell() {
    // One byte over itself: needs no space, and wakes who watches the file. Who misses it looks
    // once a second.
    if (bell_ >= 0 && ::pwrite(bell_, "!", 1, 0) != 1) { return; }
}

/// A reader that died with a transaction open would keep old pages from being used again.
void Writer::clearDeadReaders() {
    const auto now = std::chrono::steady_clock::now();
    if (now - readersChecked_ < kReaderCheckInterval) { return; }
    readersChecked_ = now;
    int dead = 0;
    mdb_reader_check(environment_->handle(), &dead);
}

}  // namespace Store
