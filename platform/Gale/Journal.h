#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/JournalLane.h"
#include "platform/Gale/TurnMutex.h"

#include "absl/container/btree_map.h"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace Gale {

class CursorPosition;

/// What the journal holds, for the CLI and for tests.
struct JournalStatistics {
    std::array<std::size_t, kLanes> entries{};     ///< alive
    std::array<std::size_t, kLanes> changes{};     ///< log records, dead ones included
    std::array<std::size_t, kLanes> tombstones{};  ///< log records, dead ones included
    std::size_t overtaken = 0;  ///< superseded contents that a cursor still needs
    std::size_t cursors = 0;
};

/// All entries that the server shows, and what changed in them: written once, read by any number of
/// cursors, each at its own pace. JOURNAL.md has the protocol and why it is right.
///
/// One thread writes (the scheduler's); cursors live on the I/O thread. One mutex, held for at most
/// 256 entries by a cursor and for one by the writer, who has its turn before any cursor that comes later. A batch is seen by live cursors as a whole: they step from the end
/// of a batch to the end of a later one, so the writer may change entries inside it in any order.
/// An initial set may run through the middle of a batch: for its sake the writer should add and
/// change first, in the order of lanes, and remove afterwards, in reverse.
class Journal final {
public:
    struct Options {
        /// Writer's thread, after a batch that changed something, outside the mutex.
        std::function<void()> onAdvance;
        /// What the value of an entry refers to (a prefix: its group). Any thread, under the mutex:
        /// must be quick and must not call the journal. Empty: values refer to nothing.
        std::function<Reference(std::uint64_t value)> referenceOf;
        LogShape log{};
    };

    /// Groups the changes made while it lives into one step. Batches nest: the outermost counts.
    /// Should not outlive the writer's slice: cursors wait for its end.
    class [[nodiscard]] Batch final {
    public:
        explicit Batch(Journal& journal);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        Journal& journal_;
    };

    explicit Journal(Options options);
    Journal();
    ~Journal();  // every cursor has gone before
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// Adds or changes an entry; false when it held the same already. The same means: the same
    /// size, the same bytes from `contentOffset` on, and the same references. The first
    /// `contentOffset` bytes hold the time stamp, which alone is no change.
    bool update(Lane lane,
                const EntryKey& key,
                std::string_view bytes,
                std::size_t contentOffset = 0,
                std::span<const Reference> references = {});

    /// As above for an entry that is encoded when it is sent; the stamp alone is no change.
    bool updateValue(Lane lane, const EntryKey& key, std::uint64_t value, std::int64_t stamp);

    /// Whether the latest update that changed something added its entry. Writer's thread.
    bool added() const { return added_; }
    /// The value that the latest update or removal that changed something has replaced; nothing when
    /// it added its entry or replaced bytes. Writer's thread.
    std::optional<std::uint64_t> replaced() const { return replaced_; }

    /// Removes an entry; `deleteBytes` is the message that says so, copied only if a cursor needs
    /// it. False when there was no such entry.
    bool remove(Lane lane, const EntryKey& key, std::string_view deleteBytes);

    /// What the entry holds now, null when it is not there. Writer's thread; valid until its next
    /// change.
    const Content* find(Lane lane, const EntryKey& key);

    /// So many entries hold a content that refers to this one, be it there or not. Writer's thread.
    std::size_t namedBy(const Reference& entry);

    /// Calls f with each entry that the content refers to.
    template <class F>
    void eachNamed(const Content& content, F f) const {
        if (content.isValue()) {
            if (options_.referenceOf) { f(options_.referenceOf(content.value())); }
        } else {
            for (const Reference& reference : content.references()) { f(reference); }
        }
    }

    /// The first entry of the lane. Writer's thread.
    std::optional<EntryKey> firstKey(Lane lane) const;

    /// The lane's first entry after the key, or its first. Writer's thread.
    std::optional<EntryKey> nextKey(Lane lane, const std::optional<EntryKey>& after) const;

    /// The last position that cursors may see. Any thread.
    Position head() const;
    /// Any thread.
    JournalStatistics statistics() const;

private:
    friend struct JournalPeek;  // the model check compares whole states
    friend class Cursor;        // the reader's half of the protocol, under mutex_

    void put(Lane lane, const EntryKey& key, JournalEntries::iterator entry, Content content);
    JournalEntry* entryOf(const Reference& named);
    void namedMore(const Content& by, int more);
    void endBatch();

    // Under mutex_.
    JournalLane& lane(Lane l) { return lanes_[index(l)]; }
    bool changeNeeded(Lane lane, const JournalRecord& record) const;
    bool tombstoneNeeded(Lane lane, const JournalRecord& record) const;
    bool overtake(Lane lane, Position at, Position by);
    void trim(Lane lane);
    void attach(CursorPosition& reader);
    void departIfReady(CursorPosition& reader);

    /// Frees what was kept only for this reader. Takes mutex_, again and again.
    void detach(CursorPosition& reader);

    const Options options_;
    mutable TurnMutex mutex_;  // the writer is First
    std::array<JournalLane, kLanes> lanes_;
    std::vector<CursorPosition*> readers_;
    Position last_ = 0;  ///< of the latest change
    Position head_ = 0;  ///< of the latest change of a finished batch
    int batches_ = 0;    ///< nesting; writer's thread only
    bool added_ = false;
    std::optional<std::uint64_t> replaced_;
    // Writer's thread only. What was looked for last, while its lane's entries have not moved: who
    // names an entry asks for it first.
    Reference soughtLast_;
    JournalEntry* foundLast_ = nullptr;  // null: look
    // namedBy of what is not there.
    absl::btree_map<Reference, std::uint32_t> absentNamedBy_;
};

}  // namespace Gale
