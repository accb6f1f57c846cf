#pragma once

#include <absl/container/btree_map.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Store/KeyedMount.h"
#include "platform/Store/Writer.h"
#include "platform/Vel/Attribute.h"

namespace Mesa {

/// What a producer says of one of its tables as a whole. Bytes: table id, writer generation (u64
/// each, big-endian), quiesced (u8); more may follow.
struct CollectionControlRecord {
    Store::TableId table = 0;  ///< of which table of the path: one may come after another
    std::uint64_t writerGeneration = 0;
    bool quiesced = false;

    std::string encode() const;
    /// Nullopt when the bytes are too short for a record.
    static std::optional<CollectionControlRecord> decode(std::string_view bytes);
    friend bool operator==(const CollectionControlRecord&,
                           const CollectionControlRecord&) = default;
};

/// The collection control of one mounted table, read-only. Of a table that is not there, or whose
/// producer never said anything, it says nothing either: not quiesced, generation 0.
class CollectionControl final : public Vel::RefCounted {
public:
    /// The producer's changes have paused: what the table holds is complete.
    bool quiesced() const { return record_.get().quiesced; }
    /// Which of the table's producers says so: each one that comes counts one up.
    std::uint64_t writerGeneration() const { return record_.get().writerGeneration; }
    Vel::Publisher<>& onChange() const { return record_.changed(); }

    /// The mounted table's part.
    void recordIs(const CollectionControlRecord& record) { record_.set(record); }

private:
    Vel::Attribute<CollectionControlRecord> record_;
};

/// The control records of all tables of a store, by path, as far as they have been told. They are
/// records of state: each is told after what was committed before it, never earlier.
class CollectionControls final : public Vel::RefCounted, private Store::KeyedMount<std::string> {
public:
    static constexpr const char* kPath = "mesa/collectionControl";
    static constexpr const char* kType = "Mesa::CollectionControl";

    explicit CollectionControls(Store::Reader& reader);
    /// The default record when none was told.
    CollectionControlRecord record(const std::string& path) const;
    /// The record of this path was told, or taken back.
    Vel::Publisher<>& onRecord(const std::string& path) { return onRecord_[path]; }

private:
    void changed(const std::string& path) override;
    void presentChanged() override;
    void take(const std::string& path);

    absl::btree_map<std::string, CollectionControlRecord> told_;
    std::map<std::string, Vel::Publisher<>> onRecord_;  // of mounted tables; stays in place
};

/// The producer's side: writes the control record of a table into the writer's transaction.
/// `generation` is the producer's own, 0 before it has spoken for the first time.
void collectionControlIs(Store::Writer& writer,
                         const std::string& path,
                         Store::TableId table,
                         bool quiesced,
                         std::uint64_t& generation);
/// Removes a table with its records and with what was said of it.
void tableDel(Store::Writer& writer, const std::string& path);

}  // namespace Mesa
