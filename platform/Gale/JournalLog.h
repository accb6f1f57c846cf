#pragma once

#include "platform/Gale/JournalEntries.h"
#include "platform/Gale/JournalEntry.h"

#include "absl/container/btree_map.h"
#include "absl/functional/function_ref.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

namespace Gale {

/// What a line of a log says. In the log of changes: the content that an entry has in [at, until). In
/// the log of tombstones: the message that ends, at `at`, the life that began at `born`.
struct JournalRecord {
    EntryKey key;
    const Content* content = nullptr;  ///< null when dead
    Position at = 0;
    Position born = 0;
    Position until = kNever;  ///< == at: dead, nobody needs it
    /// Change: it names others than the content before it, or one before that of which somebody may
    /// not know yet did.
    bool renames = false;

    bool dead() const { return until == at; }
};

/// How a log stands in memory; nothing else depends on it.
struct LogShape {
    std::size_t chunk = 256;  ///< records of a chunk, at most
    std::size_t whole = 256;  ///< chunks at the end whose records are whole, at least 1
};

/// Append-only log in order of position, in chunks. A chunk is compacted when half of it is dead, so
/// that the work of any call is bounded by a chunk.
///
/// The newest records stand here whole, so that who keeps up finds all in one place. Of older ones
/// only key and position do: the content is the entry's own for as long as that holds it, so that
/// a reader who is millions of entries behind costs little. What cannot be found there is kept here:
/// overtaken contents, and tombstones.
class JournalLog final {
public:
    /// `entries` hold the contents that are not kept; null: there are none such.
    JournalLog(const JournalEntries* entries, LogShape shape) : entries_(entries), shape_(shape) {}

    /// A record whose content is present in its entry, or will be kept: `record.at` is above all
    /// earlier ones, `until` is not looked at. Copies the content. What was answered before is no longer
    /// valid.
    void append(const JournalRecord& record);
    /// The first record above `at`, dead ones included; null at the end. Valid until the next call
    /// of after, next or one that changes the log or the entries.
    const JournalRecord* after(Position at);
    /// The record that follows, null at the end; the place is that of the latest after, next or find.
    const JournalRecord* next();
    /// The record at exactly `at` if it is there and not dead. Valid as above, or until the next call
    /// of find or keptAt.
    const JournalRecord* find(Position at);

    /// The record at `record.at`, which is there and not dead, cannot be found through its entry, but
    /// is still needed: copies the content, and what is valid until when.
    void keep(const JournalRecord& record);
    /// The kept record of `key` that is valid at `at`; null if none. Valid as with find.
    const JournalRecord* keptAt(const EntryKey& key, Position at);
    bool keeps(const EntryKey& key) const;
    std::size_t kept() const { return kept_.size(); }

    /// Nobody needs the record at `at` any more. May move records.
    void kill(Position at);
    /// Drops at most two chunks in front that lie wholly at or below `at`.
    void trim(Position at);
    /// Kills what `needed` denies among as many records after `from` as a chunk has; returns where to
    /// go on, or kNever at the end.
    Position sweep(Position from, absl::FunctionRef<bool(const JournalRecord&)> needed);

    std::size_t size() const { return size_; }  ///< dead records included

private:
    enum class State : std::uint8_t { present, kept, dead };
    struct Line {
        EntryKey key;
        Position at : 61;
        State state : 2;
        bool renames : 1;
    };
    static_assert(sizeof(Line) == 32);
    struct Held {
        Content content;
        Position born;
        Position until;
    };
    struct Chunk {
        bool whole() const { return !held.empty(); }

        std::vector<Line> lines;
        std::vector<Held> held;  // one for each line, or none
        std::size_t dead = 0;
    };

    bool seek(Position at);
    Line* lineAt(Position at);
    const JournalRecord* say(JournalRecord& in) const;
    void compact(std::size_t at);
    void join(std::size_t at);
    void dropFront();

    const JournalEntries* const entries_;
    const LogShape shape_;
    std::deque<Chunk> chunks_;
    absl::btree_map<std::pair<EntryKey, Position>, Held> kept_;
    std::size_t size_ = 0;
    std::size_t chunk_ = 0;  // of the latest result of after, next or find
    std::size_t line_ = 0;
    JournalRecord current_;  // after, next
    JournalRecord found_;    // find, keptAt
};

}  // namespace Gale
