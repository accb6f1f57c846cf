#include "platform/Mesa/CollectionControl.h"

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("Mesa");

namespace Mesa {
namespace {

constexpr Store::TableId kRegistryTable = 0;

/// 0 when the store cannot take it, or holds something else at its path.
Store::TableId controlTable(Store::Writer& writer) {
    return writer.tableIs(
        CollectionControls::kPath, CollectionControls::kType, Store::TableKind::state);
}

}  // namespace

std::string CollectionControlRecord::encode() const {
    std::string bytes;
    Store::appendBigEndian(bytes, table);
    Store::appendBigEndian(bytes, writerGeneration);
    bytes += static_cast<char>(quiesced);
    return bytes;
}

std::optional<CollectionControlRecord> CollectionControlRecord::decode(std::string_view bytes) {
    const auto table = Store::takeBigEndian(bytes);
    const auto generation = Store::takeBigEndian(bytes);
    if (!table || !generation || bytes.empty()) { return std::nullopt; }
    return CollectionControlRecord{
        static_cast<Store::TableId>(*table), *generation, bytes.front() != 0};
}

CollectionControls::CollectionControls(Store::Reader& reader) {
    KeyedMount::mountIs(reader, kPath, kType, Store::TableKind::state);
}

CollectionControlRecord CollectionControls::record(const std::string& path) const {
    const auto told = told_.find(path);
    return told == told_.end() ? CollectionControlRecord{} : told->second;
}

void CollectionControls::changed(const std::string& path) {
    take(path);
    const auto found = onRecord_.find(path);
    if (found != onRecord_.end()) { found->second.publish(); }
}

/// What was swept is told as one; what has changed since is still to come.
void CollectionControls::presentChanged() {
    told_.clear();
    if (present()) {
        for (const std::string& path : keys()) {
            if (!toldLater(path)) { take(path); }
        }
    }
    Store::FirstError error;
    for (const auto& [path, onRecord] : onRecord_) {
        error.run([&to = onRecord] { to.publish(); });
    }
    error.rethrow();
}

void CollectionControls::take(const std::string& path) {
    told_.erase(path);
    const auto bytes = has(path) ? readBytes(path) : std::nullopt;
    if (!bytes) { return; }
    if (const auto record = CollectionControlRecord::decode(*bytes)) {
        told_[path] = *record;
    } else {
        TRACE5("table {}: malformed collection control", path);
    }
}

void collectionControlIs(Store::Writer& writer,
                         const std::string& path,
                         Store::TableId table,
                         bool quiesced,
                         std::uint64_t& generation) {
    const Store::TableId controls = controlTable(writer);
    if (controls == 0) { return; }  // commit() says why
    if (generation == 0) {
        const auto bytes = writer.get(controls, path);
        const auto before = bytes ? CollectionControlRecord::decode(*bytes) : std::nullopt;
        generation = (before ? before->writerGeneration : 0) + 1;
    }
    writer.put(controls, path, CollectionControlRecord{table, generation, quiesced}.encode());
}

void tableDel(Store::Writer& writer, const std::string& path) {
    writer.tableDel(path);
    // A full store takes deletions: nothing is to be registered here.
    if (!writer.get(kRegistryTable, CollectionControls::kPath)) { return; }
    const Store::TableId controls = controlTable(writer);
    if (controls != 0) { writer.erase(controls, path); }
}

}  // namespace Mesa
