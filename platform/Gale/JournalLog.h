#pragma once

#include "platform/Gale/JournalEntry.h"

#include "absl/container/btree_set.h"
#include "absl/functional/function_ref.h"

#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace Gale {

/// One line of a log. In the log of changes: the content that an entry has in [at, until). In the
/// log of tombstones: the message that ends, at `at`, the life that began at `born`.
struct JournalRecord {
    EntryKey key;
    Content content;
    Position at = 0;
    Position born = 0;
    Position until = kNever;  ///< == at: dead, nobody needs it
    /// Change: it names others than the content before it, or one before that of which somebody may
    /// not know yet did.
    bool renames = false;

    bool dead() const { return until == at; }
};

/// Append-only log in order of position, in chunks of at most 256 records. A chunk is compacted
/// when half of it is dead, so that the work of any call is bounded by a chunk.
///
/// `kept` names the records that cannot be found through the lane's entries: overtaken contents,
/// and tombstones.
class JournalLog final {
public:
    static constexpr std::size_t kChunk = 256;

    /// `record.at` is above all earlier ones. Pointers from before are no longer valid.
    void append(JournalRecord record);
    /// The first record above `at`, dead ones included; null at the end.
    JournalRecord* after(Position at);
    /// The record that follows, null at the end; `record` is the latest result of after or next.
    JournalRecord* next();
    /// The record at exactly `at` if it is there and not dead.
    JournalRecord* find(Position at);

    /// The record cannot be found through an entry any more but is still needed.
    void keep(const JournalRecord& record) { kept_.insert({record.key, record.at}); }
    /// The kept record of `key` that is valid at `at`; null if none.
    JournalRecord* keptAt(const EntryKey& key, Position at);
    bool keeps(const EntryKey& key) const;
    std::size_t kept() const { return kept_.size(); }

    /// Nobody needs the record at `at` any more. May move records.
    void kill(Position at);
    /// Drops at most two chunks in front that lie wholly at or below `at`.
    void trim(Position at);
    /// Kills what `needed` denies among the 256 records after `from`; returns where to go on, or
    /// kNever at the end.
    Position sweep(Position from, absl::FunctionRef<bool(const JournalRecord&)> needed);

    std::size_t size() const { return size_; }  ///< dead records included

private:
    struct Chunk {
        std::vector<JournalRecord> records;
        std::size_t dead = 0;
    };

    std::size_t chunkAfter(Position at) const;
    void compact(std::size_t at);
    void join(std::size_t at);
    void dropFront();

    std::deque<Chunk> chunks_;
    absl::btree_set<std::pair<EntryKey, Position>> kept_;
    std::size_t size_ = 0;
    std::size_t chunk_ = 0;  // of the latest result of after or next
    std::size_t record_ = 0;
};

}  // namespace Gale
