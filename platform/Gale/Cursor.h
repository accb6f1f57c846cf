#pragma once

#include "platform/Gale/CursorPosition.h"
#include "platform/Gale/JournalEntry.h"

#include "absl/container/flat_hash_set.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace Gale {

class Journal;

/// Which entries a cursor shows. `matches` is asked under the journal's mutex, for each entry that
/// comes by: it must be quick, always give the same answer and not call the journal. Empty: all.
struct CursorFilter {
    LaneMask lanes = kAllLanes;
    std::function<bool(Lane, const EntryKey&)> matches;
    /// Of those shown, in the same way, those of which a new content is not handed out when it
    /// comes, but by Cursor::resend. That they come, go, or name others than before is told at once
    /// all the same, so that no reference dangles. Empty: none.
    std::function<bool(Lane, const EntryKey&)> deferred = {};
};

/// What a cursor hands out once more, see Cursor::resend.
struct CursorRound {
    CursorFilter filter;  ///< of those that the cursor shows; `deferred` means nothing
    /// Only what has changed after this position, and not only by being added.
    std::optional<Position> changedAfter = {};
};

/// One message to the client.
struct CursorMessage {
    enum class Kind : std::uint8_t { update, remove, sync };

    Kind kind = Kind::update;
    Lane lane = Lane::nextHops;
    EntryKey key;
    Content content;     ///< update: bytes or value; remove: bytes; sync: empty
    bool again = false;  ///< update: by Cursor::resend
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

    /// Hands out with next(), between epochs and in turn with them, each entry that the client holds
    /// when the round's first turn comes, with the content that it has when its own does; what an
    /// epoch is about to tell is left to that. After the sync, one round at a time.
    void resend(CursorRound round);
    bool resending() const { return round_.has_value(); }
    /// CursorRound::changedAfter for a round that is to hand out what the latest one could not know,
    /// or the initial set where there was none.
    Position told() const { return told_; }

    CursorStatistics statistics() const;

private:
    struct Round {
        CursorRound wanted;
        std::optional<Position> begun;  // what was born later is none of its business
        std::size_t lane = 0;
        std::optional<EntryKey> key;  // of `lane`: up to it all is done
    };
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
    std::optional<Round> round_;
    bool roundsTurn_ = false;  // the last hold was for the epochs
    Position told_ = 0;
    CursorStatistics statistics_;
};

}  // namespace Gale
