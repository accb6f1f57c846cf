#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/JournalLog.h"

#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"

#include <array>

namespace Gale {

/// How far a cursor has come: all that the writer must know to keep what the cursor still needs,
/// and nothing more. Guarded by the journal's mutex.
///
/// The client of a cursor that is not walking knows the entries as they were at `seen`, and is on
/// its way to `target`; at rest both are the same. While walking both are the position at which the
/// walk began. A target is the end of a batch, and is taken at that very end or before the next
/// batch changes anything, because from then on the writer keeps what was there at a target.
class CursorPosition final {
public:
    bool needsChange(Lane lane, const JournalRecord& record) const;
    bool needsTombstone(Lane lane, const JournalRecord& record) const;

    /// The client may hold the life that ends with this tombstone.
    bool mayHold(Lane lane, const JournalRecord& tombstone) const;
    /// An entry of a life that began before the walk has been dealt with by the walk.
    bool walked(Lane lane, const EntryKey& key) const;

    /// The client holds nothing and the walk is to begin, or it knows what there is at `at`.
    void beginAt(Position at);
    /// The writer removes an entry.
    void noteRemoval(Lane lane, const JournalRecord& tombstone);
    /// A content of this entry was sent out of turn in the life that began at `born`.
    bool sentAhead(const Reference& entry, Position born) const;
    /// A cursor at rest has a new target; `counts` are the lanes' counts there.
    void depart(Position head, const std::array<Position, kLanes>& counts);
    /// The client has come to hold the state at `target`.
    void arrive();

    LaneMask lanes = kAllLanes;
    Position seen = 0;
    Position target = 0;
    std::array<Position, kLanes> changesPassed{};
    std::array<Position, kLanes> tombstonesPassed{};

    std::array<Position, kLanes> countAtTarget{};

    bool atRest = true;  ///< has no target: waits for one, or walks
    bool walking = false;
    std::size_t walkLane = 0;  ///< lanes before it are walked
    bool walkDone = false;     ///< still walking, but only for the want of a target
    bool walkBegun = false;    ///< walkKey counts
    EntryKey walkKey;          ///< entries of walkLane up to it are walked

    /// Contents sent out of turn because another entry refers to them or because the walk came
    /// late: which one. Until the end of the epoch.
    absl::flat_hash_map<Reference, Position> ahead;
    /// Removals of entries that the walk had not reached: the client never had them.
    absl::flat_hash_set<Position> unsentRemovals;
};

}  // namespace Gale
