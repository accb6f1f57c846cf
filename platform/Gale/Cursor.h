#pragma once

#include "platform/Gale/CursorPosition.h"
#include "platform/Gale/JournalEntry.h"

#include "absl/container/flat_hash_set.h"

#include <array>
#include <cstdint>
#include <functional>
#include <span>

namespace Gale {

class Journal;

/// Which entries a cursor shows. `matches` is asked under the journal's mutex, for each entry that
/// comes by: it must be quick, always give the same answer and not call the journal. Empty: all.
struct CursorFilter {
    LaneMask lanes = kAllLanes;
    std::function<bool(Lane, const EntryKey&)> matches;
};

/// One message to the client.
struct CursorMessage {
    enum class Kind : std::uint8_t { update, remove, sync };

    Kind kind = Kind::update;
    Lane lane = Lane::nextHops;
    EntryKey key;
    Content content;  ///< update: bytes or value; remove: bytes; sync: empty
};

struct CursorStatistics {
    std::uint64_t sent = 0;       ///< updates and deletes handed out
    std::uint64_t coalesced = 0;  ///< changes overtaken by later ones before they were handed out
    std::uint64_t lag =
        0;  ///< changes, of any lane, since the last state that the client has in full
};

/// One subscriber's way through the journal: the initial set, one sync, then live epochs.
/// JOURNAL.md has the protocol. Reader's thread only. Holds the journal back from forgetting what
/// it has still to send, so a cursor that does not move must be dropped by its owner; dropping it
/// frees all that was kept only for it.
class Cursor final {
public:
    enum class Mode : std::uint8_t {
        stream,       ///< initial set, sync, changes for ever
        updatesOnly,  ///< sync, changes for ever; the client is taken to know what is there now
        once,         ///< initial set, sync, end. A poll is one such cursor for each request
    };
    enum class State : std::uint8_t {
        more,   ///< call again
        idle,   ///< nothing now; call again after Journal's onAdvance
        ended,  ///< `once` has had its sync
    };
    struct Result {
        std::size_t count = 0;  ///< messages written to the front of `out`
        State state = State::idle;
    };

    /// `journal` outlives the cursor.
    Cursor(Journal& journal, CursorFilter filter, Mode mode = Mode::stream);
    ~Cursor();
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    /// Hands out the next messages, as many as fit and as 256 steps yield; `more` with a count of 0
    /// is possible when a filter hides much.
    Result next(std::span<CursorMessage> out);

    CursorStatistics statistics() const;

private:
    enum class Phase : std::uint8_t { walk, updates, deletes, sync, idle, ended };
    friend struct JournalPeek;  // the model check compares whole states
    class Step;                 // what is done under one hold of the journal's mutex
    friend class Step;

    const Mode mode_;
    const CursorFilter filter_;
    Journal& journal_;
    Phase phase_;
    std::size_t lane_ = 0;  // of the epoch's current pass; of the deletes: lanes still to do
    bool synced_ = false;
    bool attached_ = true;
    CursorPosition position_;
    absl::flat_hash_set<Reference> alive_;    // have tombstones but are alive at the epoch's target
    std::array<Position, kLanes> counted_{};  // the lanes' counts at `seen`
    std::uint64_t met_ = 0;                   // records of this epoch that came by
    CursorStatistics statistics_;
};

}  // namespace Gale
