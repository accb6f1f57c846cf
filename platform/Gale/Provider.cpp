#include "platform/Gale/Provider.h"

#include "platform/Blink/Trace.h"
#include "platform/Gale/StampClock.h"
#include "platform/Vel/Assert.h"

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

BLINK_TRACE_HANDLE("GaleProvider");

namespace Gale {

namespace {
constexpr Kiln::TaskPriority kNotifyPriority = 3;

Vel::Ref<Kiln::TaskGroup> orDefault(const Vel::Ref<Kiln::TaskGroup>& group,
                                    const Vel::Ref<Kiln::TaskScheduler>& scheduler) {
    return group ? group : scheduler->taskGroupIs("GaleNotify", kNotifyPriority, 0);
}
}  // namespace

Provider::Provider(View& view,
                   Journal& journal,
                   StampClock& stamps,
                   const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                   const Vel::Ref<Kiln::TaskGroup>& group,
                   Kiln::Duration patience,
                   std::function<void()> onFilled)
    : view_(view),
      journal_(journal),
      stamps_(stamps),
      scheduler_(scheduler),
      patience_(patience),
      waiting_(patience),
      onFilled_(std::move(onFilled)),
      task_(scheduler, "GaleNotifyTask", orDefault(group, scheduler), [this] { return drain(); }),
      releaseTask_(
          scheduler, "GaleReleaseTask", orDefault(group, scheduler), [this] { return release(); }) {
    statistics_.shown.resize(view_.kinds().size());
    view_.attach([this](std::unique_ptr<ListSource> source) { take(std::move(source)); });
    task_.schedule();  // also a view without sources has its first pass
}

Provider::~Provider() {
    view_.detach();
}

void Provider::take(std::unique_ptr<ListSource> source) {
    ListSource& taken = *source;
    auto& lane = lanes_[index(taken.lane())];
    lane.push_back(std::make_unique<Marked>());
    lane.back()->source = std::move(source);
    bySource_[&taken] = lane.back().get();
    taken.sinkIs(*this);
    markEach(taken,
             [&taken](const std::optional<EntryKey>& after) { return taken.nextKey(after); });
}

Provider::Marked& Provider::marked(ListSource& source) {
    const auto it = bySource_.find(&source);
    VEL_ASSERT(it != bySource_.end());
    return *it->second;
}

/// Where a mark goes. What the provider itself causes belongs to the round in which it does.
Kiln::Backlog<EntryKey>& Provider::backlogFor(Marked& marked) {
    const bool next = round_ && !draining_;
    // A flag ends the round: what comes after it must not put it off.
    if (marked.source->lane() == Lane::flags) { round_ = true; }
    return next ? marked.nextRound : marked.backlog;
}

void Provider::mark(ListSource& source, const EntryKey& key) {
    backlogFor(marked(source)).insert(key);
    task_.schedule();
}

void Provider::markEach(ListSource& source, NextKey nextKey) {
    backlogFor(marked(source)).addAll(std::move(nextKey));
    task_.schedule();
}

/// What of it has not been shown yet is not known here, and nobody may wait for it any longer than
/// for anything else.
void Provider::markHeld(ListSource& source) {
    const Lane lane = source.lane();
    VEL_ASSERT(lanes_[index(lane)].size() == 1);
    Marked& held = marked(source);
    if (!std::exchange(held.cleared, true)) { ++cleared_; }
    backlogFor(held).addAll([this, lane](const std::optional<EntryKey>& after) {
        return journal_.nextKey(lane, after);
    });
    task_.schedule();
}

/// The first one with marks of the round, or with any, in the order of lanes. Flags keep to rounds.
Provider::Next Provider::nextMarked(bool any) {
    for (auto& lane : lanes_) {
        for (auto& each : lane) {
            if (!each->backlog.empty()) { return {each.get(), &each->backlog}; }
            if (any && each->source->lane() != Lane::flags && !each->nextRound.empty()) {
                return {each.get(), &each->nextRound};
            }
        }
    }
    return {};
}

Provider::Marked* Provider::lastWithRemovals() {
    for (auto lane = lanes_.rbegin(); lane != lanes_.rend(); ++lane) {
        for (auto& each : *lane) {
            if (!each->removals.empty()) { return each.get(); }
        }
    }
    return nullptr;
}

bool Provider::drain() {
    if (drainSome()) { return true; }
    noteFilled();
    return false;
}

/// What was held back and has come meanwhile belongs to the first pass. What never comes ends it.
void Provider::noteFilled() {
    if (!onFilled_) { return; }
    const Kiln::TimePoint now = scheduler_->clock().now();
    if (!firstPass_) { firstPass_ = now; }
    const Kiln::TimePoint end = *firstPass_ + patience_;
    if (waiting_.size() > 0 && now < end) {
        task_.scheduleAfter(end - now);
        return;
    }
    std::exchange(onFilled_, {})();
}

/// One slice; whether work is left.
bool Provider::drainSome() {
    const Journal::Batch batch{journal_};
    const StampClock::Turn turn{stamps_};  // ends before the batch: nobody is told before
    draining_ = true;
    // Told to the end in a batch after that of the round: a batch shows before it takes away.
    const bool left = (telling_ && drainAsked()) || drainMarked() || drainRemovals() ||
                      nextMarked(false).marked != nullptr;  // whom the removals have woken
    draining_ = false;
    return left || endRound();
}

/// True: the slice is over. A round may be long: what has come since it began has every other slice,
/// in the order of lanes with the round's own, so that a change of a next hop need not wait for all
/// prefixes and these do not wait in vain for groups that have come.
bool Provider::drainMarked() {
    any_ = round_ && !any_;
    for (Next next = nextMarked(any_); next.marked != nullptr; next = nextMarked(any_)) {
        while (const auto key = next.backlog->draw()) {
            processMarked(*next.marked, *key);
            if (scheduler_->mustYield()) { return true; }
            // What was just shown may have woken an entry of an earlier lane: not before its turn.
        }
    }
    return false;
}

/// True: the slice is over.
bool Provider::drainRemovals() {
    // Whoever referred to what goes has been shown without it, or goes first.
    while (Marked* const last = lastWithRemovals()) {
        const auto key = last->removals.draw();
        --leaving_;
        if (!process(*last->source, *key)) { removeUnlessNamed(*last->source, *key); }
        if (scheduler_->mustYield()) { return true; }
    }
    return false;
}

/// True: the slice is over.
bool Provider::drainAsked() {
    while (!asked_.empty()) {
        const auto [source, key] = *asked_.begin();
        asked_.erase(asked_.begin());
        entry_.last = true;
        const bool there = process(*source, key);
        entry_.last = false;
        if (!there) { marked(*source).backlog.insert(key); }
        if (scheduler_->mustYield()) { return true; }
    }
    telling_ = false;
    return false;
}

/// Nothing that was marked in the round is left. Whether there is more to do.
bool Provider::endRound() {
    if (!round_) { return false; }
    if (asked_.empty()) {
        asked_.swap(askedMeanwhile_);
        waitsBegun_.reset();
    }
    if (!asked_.empty()) {
        // What was held back in the round waits for what may be marked in a later one.
        if (!waitsBegun_) { waitsBegun_ = waiting_.begun(); }
        telling_ = !waiting_.lasts(*waitsBegun_);
    }
    for (auto& lane : lanes_) {
        for (auto& each : lane) { std::swap(each->backlog, each->nextRound); }
    }
    const auto& flags = lanes_[index(Lane::flags)];
    round_ = !asked_.empty() || std::any_of(flags.begin(), flags.end(), [](const auto& each) {
        return !each->backlog.empty();
    });
    return telling_ || nextMarked(false).marked != nullptr;
}

void Provider::processMarked(Marked& from, const EntryKey& key) {
    entry_.askLast = false;
    if (!process(*from.source, key) && from.removals.insert(key)) { ++leaving_; }
    if (from.source->lane() != Lane::flags) { return; }
    // It may ask for more than before: that takes this round, or the next one when it is marked in
    // that, too.
    const Waiting::Waiter entry{from.source.get(), key};
    asked_.erase(entry);
    askedMeanwhile_.erase(entry);
    if (!entry_.askLast || from.nextRound.mayDraw(key)) { return; }
    (waitsBegun_ ? askedMeanwhile_ : asked_).insert(entry);
}

/// Shows the entry as it is now. False when it is gone and a client may still hold it: to be removed.
bool Provider::process(ListSource& source, const EntryKey& key) {
    ++statistics_.encoded;
    entry_.notification.clear();
    entry_.references.clear();
    entry_.value.reset();
    stamp_ = stamps_.next();
    entry_.notification.stampIs(stamp_);
    try {
        if (source.encode(key, entry_)) {
            show(source, key);
        } else if (present({source.lane(), key})) {
            return false;
        } else if (Waiting::awaited(source.lane())) {
            wake(waiting_.absent({source.lane(), key}, scheduler_->clock().now()));
        }
    } catch (const std::exception& error) {
        ++statistics_.failed;
        TRACE5("lane {} entry {}/{}/{} cannot be encoded: {}",
               index(source.lane()),
               key.scope,
               key.hi,
               key.lo,
               error.what());
    }
    return true;
}

bool Provider::present(const Reference& entry) const {
    return journal_.find(entry.lane, entry.key) != nullptr;
}

/// About to be removed, unless it has come back until then.
bool Provider::leaving(const Reference& entry) const {
    if (postponed_.contains(entry)) { return true; }
    const auto& lane = lanes_[index(entry.lane)];
    return leaving_ > 0 && std::any_of(lane.begin(), lane.end(), [&](const auto& each) {
               return each->removals.has(entry.key);
           });
}

/// Whether there may be more of it than was seen: never looked at, or told anew since.
bool Provider::mayCome(const Reference& entry) const {
    const auto& lane = lanes_[index(entry.lane)];
    return !waiting_.givenUp(entry) || std::any_of(lane.begin(), lane.end(), [&](const auto& each) {
        return each->nextRound.mayDraw(entry.key) || each->source->pending(entry.key);
    });
}

/// Whether the encoded entry names one that may still come, or is itself to be considered anew, perhaps
/// because what it names went. References to what is not there are dropped on the way.
bool Provider::heldBack(ListSource& source, const EntryKey& key) {
    if (entry_.value) { entry_.references.push_back(view_.referenceOf(*entry_.value)); }
    std::size_t kept = 0;
    for (const Reference& reference : entry_.references) {
        if (present(reference) && !leaving(reference)) {
            entry_.references[kept++] = reference;
            continue;
        }
        const Kiln::TimePoint now = scheduler_->clock().now();
        const bool awaited = Waiting::awaited(reference.lane);
        const bool comes = awaited && mayCome(reference);
        if (comes || (awaited && source.pending(key) && !waiting_.longGivenUp(reference, now))) {
            waiting_.add(comes ? reference : Reference{source.lane(), key}, {&source, key}, now);
            waiting_.notGivenUp({source.lane(), key});
            scheduleRelease();
            return true;
        } else {
            confirm(reference, {source.lane(), key});
        }
    }
    entry_.references.resize(kept);
    return false;
}

/// Does what may change an entry or remove it, and sees to those that were kept only for its old
/// content. Answers whether anything changed, as `change` does.
template <class Change>
bool Provider::changing(const Reference& entry, Change change) {
    absl::InlinedVector<Reference, 4> kept;
    const Content* const old = postponed_.empty() ? nullptr : journal_.find(entry.lane, entry.key);
    if (old != nullptr) {
        journal_.eachNamed(*old, [&](const Reference& named) {
            if (postponed_.contains(named)) { kept.push_back(named); }
        });
    }
    if (!change()) { return false; }
    for (const Reference& named : kept) {
        postponed_.at(named).confirmedBy.erase(entry);
        noLongerKept(named);
    }
    return true;
}

/// Lets a postponed removal happen if nobody is left for whom to wait.
void Provider::noLongerKept(const Reference& entry) {
    const auto it = postponed_.find(entry);
    if (it->second.confirmedBy.size() < journal_.namedBy(entry)) { return; }
    ListSource& source = *it->second.source;
    mark(source, entry.key);
}

/// Who names an entry that is gone was looked at, and does so still.
void Provider::confirm(const Reference& named, const Reference& by) {
    const auto it = postponed_.find(named);
    if (it == postponed_.end() || !present(by)) { return; }
    it->second.confirmedBy.insert(by);
    noLongerKept(named);
}

void Provider::show(ListSource& source, const EntryKey& key) {
    if (heldBack(source, key)) { return; }
    const Lane lane = source.lane();
    const Reference self{lane, key};
    noLongerPostponed(self);
    if (cleared_ > 0 && std::exchange(marked(source).cleared, false)) { --cleared_; }
    const bool changed = changing(self, [&] {
        return entry_.value ? journal_.updateValue(lane, key, *entry_.value, stamp_)
                            : journal_.update(lane,
                                              key,
                                              entry_.notification.bytes(),
                                              PackedNotification::kStampBytes,
                                              entry_.references);
    });
    const bool isNew = changed && journal_.added();
    if (isNew) { ++statistics_.shown[view_.kindOf(lane, key)]; }
    // Who waits for a present one saw it leaving.
    if (Waiting::awaited(lane) && (isNew || waiting_.size() > 0)) { wake(waiting_.appeared(self)); }
    if (!changed) {
        ++statistics_.unchanged;
        return;
    }
    ++statistics_.changed;
    stamps_.used(stamp_);
    source.shownIs(key, journal_.replaced(), entry_.value);
}

void Provider::noLongerPostponed(const Reference& entry) {
    const auto it = postponed_.find(entry);
    if (it == postponed_.end()) { return; }
    postponedByDue_.erase({it->second.due, entry});
    postponed_.erase(it);
}

void Provider::removeUnlessNamed(ListSource& source, const EntryKey& key) {
    const Reference self{source.lane(), key};
    const Kiln::TimePoint now = scheduler_->clock().now();
    const auto it = postponed_.find(self);
    const bool postponed = it != postponed_.end();
    const std::size_t confirmed = postponed ? it->second.confirmedBy.size() : 0;
    if ((cleared_ > 0 && marked(source).cleared) || confirmed >= journal_.namedBy(self) ||
        (postponed && it->second.due <= now)) {
        noLongerPostponed(self);
        return remove(source, key);
    }
    if (postponed) { return; }
    postponed_.insert({self, {&source, now + patience_, {}}});
    postponedByDue_.emplace(now + patience_, self);
    scheduleRelease();
    // Who names it still may be who waits for it.
    if (Waiting::awaited(self.lane)) { wake(waiting_.absent(self, now)); }
}

void Provider::remove(ListSource& source, const EntryKey& key) {
    const Reference self{source.lane(), key};
    const std::int64_t stamp = stamps_.next();
    entry_.notification.clear();
    entry_.notification.stampIs(stamp);
    source.encodeDelete(key, entry_.notification);
    const bool removed = changing(
        self, [&] { return journal_.remove(self.lane, key, entry_.notification.bytes()); });
    if (removed) {
        --statistics_.shown[view_.kindOf(self.lane, key)];
        source.shownIs(key, journal_.replaced(), std::nullopt);
    }
    stamps_.used(stamp);
    ++statistics_.removed;
    if (Waiting::awaited(self.lane)) { wake(waiting_.absent(self, scheduler_->clock().now())); }
}

/// Into this round: what is told last waits for them.
void Provider::wake(Waiting::Waiters waiters) {
    constexpr std::size_t kFew = 256;
    if (waiters.size() <= kFew) {
        for (const auto& [source, key] : waiters) { marked(*source).backlog.insert(key); }
        task_.schedule();
        return;
    }
    std::set<ListSource*> sources;
    for (auto it = waiters.begin(); it != waiters.end();) {
        sources.insert(it->first);
        it = waiters.upper_bound({it->first, EntryKey{kNever, kNever, kNever}});
    }
    // Drawn as the walk comes to them: a group may have a million prefixes.
    const auto shared = std::make_shared<const Waiting::Waiters>(std::move(waiters));
    for (ListSource* const source : sources) {
        marked(*source).backlog.addAll(
            [shared, source](const std::optional<EntryKey>& after) -> std::optional<EntryKey> {
                const auto it = after ? shared->upper_bound({source, *after})
                                      : shared->lower_bound({source, EntryKey{}});
                if (it == shared->end() || it->first != source) { return std::nullopt; }
                return it->second;
            });
    }
    task_.schedule();
}

/// Removes one whose patience is over, if there is one.
bool Provider::releasePostponed() {
    if (postponedByDue_.empty()) { return false; }
    const auto [due, entry] = *postponedByDue_.begin();
    if (due > scheduler_->clock().now()) { return false; }
    postponedByDue_.erase(postponedByDue_.begin());
    TRACE5("lane {} entry {}/{}/{} is removed, though {} others name it",
           index(entry.lane),
           entry.key.scope,
           entry.key.hi,
           entry.key.lo,
           journal_.namedBy(entry));
    mark(*postponed_.at(entry).source, entry.key);
    return true;
}

bool Provider::release() {
    if (releasePostponed()) { return true; }
    const auto missing = waiting_.overdue(scheduler_->clock().now());
    if (missing) {
        auto waiters = waiting_.absent(*missing, scheduler_->clock().now());
        statistics_.released += waiters.size();
        TRACE5("lane {} entry {}/{}/{} did not come: {} entries that name it are shown",
               index(missing->lane),
               missing->key.scope,
               missing->key.hi,
               missing->key.lo,
               waiters.size());
        wake(std::move(waiters));
        return true;
    }
    scheduleRelease();
    return false;
}

void Provider::scheduleRelease() {
    if (releaseTask_.scheduled()) { return; }
    std::optional<Kiln::TimePoint> due = waiting_.nextDue();
    if (!postponedByDue_.empty()) {
        const Kiln::TimePoint first = postponedByDue_.begin()->first;
        due = due ? std::min(*due, first) : first;
    }
    if (!due) { return; }
    const auto now = scheduler_->clock().now();
    releaseTask_.scheduleAfter(*due > now ? *due - now : Kiln::Duration::zero());
}

ProviderStatistics Provider::statistics() const {
    ProviderStatistics all = statistics_;
    all.waiting = waiting_.size();
    all.waitingForNextHop = waiting_.size(Lane::nextHops);
    all.waitingForGroup = waiting_.size(Lane::groups);
    all.kept = postponed_.size();
    return all;
}

}  // namespace Gale
