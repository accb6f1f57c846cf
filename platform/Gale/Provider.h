#pragma once

#include "absl/container/btree_map.h"
#include "absl/container/btree_set.h"
#include "platform/Gale/Journal.h"
#include "platform/Gale/ListSource.h"
#include "platform/Gale/View.h"
#include "platform/Gale/Waiting.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Kiln/WalkMachine.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Gale {

class StampClock;

struct ProviderStatistics {
    std::uint64_t encoded = 0;    ///< entries looked at
    std::uint64_t changed = 0;    ///< of these: new content
    std::uint64_t unchanged = 0;  ///< the same bytes as before
    std::uint64_t removed = 0;
    std::uint64_t failed = 0;           ///< encoders that threw
    std::uint64_t released = 0;         ///< entries awaited in vain for the whole patience
    std::size_t waiting = 0;            ///< entries that wait for one they name
    std::size_t waitingForNextHop = 0;  ///< of these
    std::size_t waitingForGroup = 0;    ///< of these
    std::size_t kept = 0;               ///< gone, but shown until nobody names them
    std::vector<std::size_t> shown;     ///< entries in the journal, by View::kinds()
};

/// Carries a view's entries into its journal: notes which entries changed, and encodes each once,
/// in slices of a task of the given group, lanes in order of reference.
///
/// Marks go in rounds. A round that a flag is marked in takes no more marks from outside, so that it
/// ends however much goes on changing; those that come meanwhile make up the next one, though what
/// they are about may be told earlier. An entry that asks to be told last (EncodedEntry::askLast) is
/// encoded once more in a batch of its own when all of the round has been shown or removed, and
/// nothing waits any more that it held back.
///
/// An entry that names a missing one is held back (its earlier content stays shown) until the missing
/// one appears, or was looked at and is not there, or patience is over. One that is leaving counts as
/// missing, a look that its source was told after as none: neither is a look at the one that names it,
/// which may be about to go as well. The journal's references name present entries only.
///
/// An entry that is gone stays shown while a shown content names it, whoever is to be told that it
/// changes: until nobody names it, or all who do were looked at since, or patience is over. What goes
/// with all of its source waits for nobody. Scheduler's thread.
class Provider final : public MarkSink {
public:
    /// All references outlive the provider. `group` null: priority 3. `onFilled`: all that was there
    /// at the beginning is in the journal; not called from the constructor. Entries that are held
    /// back count as missing until the patience after the first pass is over.
    Provider(View& view,
             Journal& journal,
             StampClock& stamps,
             const Vel::Ref<Kiln::TaskScheduler>& scheduler,
             const Vel::Ref<Kiln::TaskGroup>& group,
             Kiln::Duration patience,
             std::function<void()> onFilled = {});
    ~Provider() override;

    void mark(ListSource& source, const EntryKey& key) override;
    void markEach(ListSource& source, NextKey nextKey) override;
    void markHeld(ListSource& source) override;

    ProviderStatistics statistics() const;
    /// Some of those that wait for one they name, so many at most.
    std::vector<Waiting::Held> held(std::size_t most) const { return waiting_.held(most); }

private:
    struct Marked {
        std::unique_ptr<ListSource> source;
        Kiln::Backlog<EntryKey> backlog;
        Kiln::Backlog<EntryKey> nextRound;
        Kiln::Backlog<EntryKey> removals;  // gone; taken out once nothing is left to show
        bool cleared = false;              // all went at once, and nothing has come since
    };

    void take(std::unique_ptr<ListSource> source);
    Marked& marked(ListSource& source);
    struct Next {
        Marked* marked = nullptr;
        Kiln::Backlog<EntryKey>* backlog = nullptr;
    };
    Next nextMarked(bool any);
    Marked* lastWithRemovals();
    bool drain();
    bool drainSome();
    bool drainMarked();
    bool drainRemovals();
    bool drainAsked();
    bool endRound();
    void processMarked(Marked& from, const EntryKey& key);
    Kiln::Backlog<EntryKey>& backlogFor(Marked& marked);
    void noteFilled();
    bool process(ListSource& source, const EntryKey& key);
    void show(ListSource& source, const EntryKey& key);
    void remove(ListSource& source, const EntryKey& key);
    bool present(const Reference& entry) const;
    bool leaving(const Reference& entry) const;
    template <class Change>
    bool changing(const Reference& entry, Change change);
    void noLongerKept(const Reference& entry);
    void noLongerPostponed(const Reference& entry);
    void confirm(const Reference& named, const Reference& by);
    void removeUnlessNamed(ListSource& source, const EntryKey& key);
    bool mayCome(const Reference& entry) const;
    bool heldBack(ListSource& source, const EntryKey& key);
    void wake(Waiting::Waiters waiters);
    bool release();
    bool releasePostponed();
    void scheduleRelease();

    View& view_;
    Journal& journal_;
    StampClock& stamps_;
    const Vel::Ref<Kiln::TaskScheduler> scheduler_;
    std::array<std::vector<std::unique_ptr<Marked>>, kLanes> lanes_;
    std::unordered_map<ListSource*, Marked*> bySource_;
    const Kiln::Duration patience_;
    Waiting waiting_;
    bool round_ = false;               // takes no more marks from outside
    bool any_ = false;                 // this slice is for all marks, not the round's alone
    bool draining_ = false;            // what is marked now is the provider's own doing
    std::set<Waiting::Waiter> asked_;  // to be told last
    std::set<Waiting::Waiter> askedMeanwhile_;  // when the round of those was over already
    std::optional<std::uint64_t> waitsBegun_;   // until the end of the round of asked_
    bool telling_ = false;                      // asked_, now
    std::size_t leaving_ = 0;                   // keys in removals
    std::size_t cleared_ = 0;                   // sources
    /// An entry that is gone, but named by what is shown. Trees: there may be as many as entries, and a
    /// hash map of that size takes longer than a slice whenever it is made anew.
    struct Postponed {
        ListSource* source = nullptr;
        Kiln::TimePoint due;                     // when patience is over
        absl::btree_set<Reference> confirmedBy;  // of those who name it: looked at since
    };
    absl::btree_map<Reference, Postponed> postponed_;
    absl::btree_set<std::pair<Kiln::TimePoint, Reference>> postponedByDue_;
    std::function<void()> onFilled_;            // empty: told
    std::optional<Kiln::TimePoint> firstPass_;  // when it ended
    ProviderStatistics statistics_;
    EncodedEntry entry_;      // scratch
    std::int64_t stamp_ = 0;  // of it
    Kiln::Task task_;
    Kiln::Task releaseTask_;
};

}  // namespace Gale
