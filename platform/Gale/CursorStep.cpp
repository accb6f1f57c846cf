#include "platform/Gale/CursorStep.h"

#include "platform/Vel/Assert.h"

#include "absl/container/inlined_vector.h"

#include <algorithm>

namespace Gale {

Cursor::Step::Step(Cursor& cursor, std::span<CursorMessage> out)
    : cursor_(cursor),
      at_(cursor.position_),
      journal_(cursor.journal_),
      out_(out),
      lock_(cursor.journal_.mutex_) {}

Cursor::Result Cursor::Step::run() {
    // A hold is for the one or for the other: who reads knows before it which one it may be.
    const bool round = roundsTurn();
    bool able = true;
    while (able && count_ < out_.size() && budget_ > 0) { able = round ? resend() : step(); }
    cursor_.roundsTurn_ = !round;
    for (std::size_t i = 0; i < kLanes; ++i) { journal_.trim(laneAt(i)); }
    if (cursor_.phase_ == Phase::ended) { return {count_, State::ended}; }
    return {count_, able || round || cursor_.round_ ? State::more : State::idle};
}

bool Cursor::Step::step() {
    --budget_;
    switch (cursor_.phase_) {
        case Phase::walk:
            if (at_.walkDone) { return beginEpoch(); }
            walk();
            return true;
        case Phase::updates:
            updates();
            return true;
        case Phase::deletes:
            deletes();
            return true;
        case Phase::sync:
            sync();
            return true;
        case Phase::idle:
            return beginEpoch();
        case Phase::ended:
            return false;
    }
    return false;
}

// ---- initial set ----

void Cursor::Step::walk() {
    if (at_.walkLane == kLanes) {
        at_.walkDone = true;
        return;
    }
    const Lane lane = laneAt(at_.walkLane);
    const auto& entries = journal_.lane(lane).entries;
    if (!walkNext_) {
        walkNext_ = at_.walkBegun ? entries.upper_bound(at_.walkKey) : entries.begin();
    }
    if (!has(at_.lanes, lane) || *walkNext_ == entries.end()) {
        ++at_.walkLane;
        at_.walkBegun = false;
        walkNext_.reset();
        return;
    }
    const auto& [key, here] = **walkNext_;
    const Reference self{lane, key};
    // What was born since the walk began comes with the log, unless another entry refers to it.
    if (here.born > at_.target || at_.sentAhead(self, here.born) || !shown(lane, key)) {
        walkPast(key);
        return;
    }
    const auto waiting = [this](const Reference& each) { return unsentInWalk(each); };
    if (firstWaiting(here.content, waiting)) {
        const Reference first = firstOut(self, true);
        if (first != self) {
            const JournalEntry& out = *entry(first);
            emit(CursorMessage::Kind::update, first, out.content);
            at_.ahead[first] = out.changed;
            return;
        }
    }
    emit(CursorMessage::Kind::update, self, here.content);
    // The log need not repeat what has come with the walk.
    if (here.changed > at_.target) { at_.ahead[self] = here.changed; }
    walkPast(key);
}

void Cursor::Step::walkPast(const EntryKey& key) {
    at_.walkKey = key;
    at_.walkBegun = true;
    ++*walkNext_;
}

bool Cursor::Step::unsentInWalk(const Reference& of) const {
    // The usual case, without looking for the entry.
    const bool bornBefore = journal_.lane(of.lane).lastBorn <= at_.target;
    if (bornBefore && at_.walked(of.lane, of.key)) { return false; }
    const JournalEntry* there = entry(of);
    if (there == nullptr || !shown(of.lane, of.key) || at_.sentAhead(of, there->born)) {
        return false;
    }
    return there->born > at_.target || !at_.walked(of.lane, of.key);
}

// ---- epochs ----

/// The log after a walk is an epoch as well, even when it is empty: it ends with the sync.
bool Cursor::Step::beginEpoch() {
    journal_.departIfReady(at_);
    if (at_.atRest) { return false; }
    cursor_.phase_ = Phase::updates;
    cursor_.lane_ = 0;
    return true;
}

void Cursor::Step::updates() {
    if (cursor_.lane_ == kLanes) {
        cursor_.phase_ = Phase::deletes;
        inSequence_ = false;
        return;
    }
    const Lane lane = laneAt(cursor_.lane_);
    Position& passed = at_.changesPassed[cursor_.lane_];
    JournalLog& log = journal_.lane(lane).changes;
    const JournalRecord* record = nullptr;
    if (has(at_.lanes, lane)) { record = inSequence_ ? log.next() : log.after(passed); }
    if (record == nullptr || record->at > at_.target) {
        passed = at_.target;
        ++cursor_.lane_;
        inSequence_ = false;
        return;
    }
    inSequence_ = true;
    // Of several records of one entry only the last goes out.
    if (record->dead() || record->until <= at_.target) {
        passed = record->at;
        return;
    }
    const Reference self{lane, record->key};
    const bool visible = shown(lane, self.key);
    if (visible && journal_.lane(lane).tombstones.keeps(self.key)) { cursor_.alive_.insert(self); }
    const auto sent = at_.ahead.find(self);
    if (!visible || (sent != at_.ahead.end() && sent->second == record->at) ||
        deferred(lane, *record)) {
        pass(lane, *record);
        return;
    }
    const auto waiting = [this](const Reference& each) { return unsentInEpoch(each); };
    if (firstWaiting(*record->content, waiting)) {
        const Reference first = firstOut(self, false);
        if (first != self) {
            const JournalRecord& out = *atTarget(first);
            emit(CursorMessage::Kind::update, first, *out.content);
            at_.ahead[first] = out.at;
            return;
        }
    }
    emit(CursorMessage::Kind::update, self, *record->content);
    pass(lane, *record);
}

void Cursor::Step::pass(Lane lane, const JournalRecord& record) {
    ++cursor_.met_;
    at_.changesPassed[index(lane)] = record.at;
    if (record.until != kNever && !journal_.changeNeeded(lane, record)) {
        journal_.lane(lane).changes.kill(record.at);
        inSequence_ = false;
    }
}

/// The content of an entry at the epoch's target, if it came in this epoch and is still to pass.
const JournalRecord* Cursor::Step::atTarget(const Reference& of) {
    inSequence_ = false;
    JournalLog& log = journal_.lane(of.lane).changes;
    const JournalEntry* there = entry(of);
    const JournalRecord* record = there != nullptr && there->changed <= at_.target
                                      ? log.find(there->changed)
                                      : log.keptAt(of.key, at_.target);
    return record != nullptr && record->at > at_.changesPassed[index(of.lane)] ? record : nullptr;
}

bool Cursor::Step::unsentInEpoch(const Reference& of) {
    // Lanes before this one have been done in full.
    if (index(of.lane) < cursor_.lane_ || !shown(of.lane, of.key)) { return false; }
    const JournalRecord* record = atTarget(of);
    return record != nullptr && record->born > at_.seen && !at_.sentAhead(of, record->at);
}

void Cursor::Step::deletes() {
    if (cursor_.lane_ == 0) {
        endEpoch();
        return;
    }
    const Lane lane = laneAt(cursor_.lane_ - 1);
    Position& passed = at_.tombstonesPassed[index(lane)];
    JournalLog& log = journal_.lane(lane).tombstones;
    const JournalRecord* record = nullptr;
    if (has(at_.lanes, lane)) { record = inSequence_ ? log.next() : log.after(passed); }
    if (record == nullptr || record->at > at_.target) {
        passed = at_.target;
        --cursor_.lane_;
        inSequence_ = false;
        return;
    }
    inSequence_ = true;
    const Reference self{lane, record->key};
    if (!record->dead() && at_.mayHold(lane, *record) && shown(lane, record->key) &&
        !cursor_.alive_.contains(self)) {
        emit(CursorMessage::Kind::remove, self, *record->content);
        ++cursor_.met_;
    }
    passTombstone(lane, *record);
}

void Cursor::Step::passTombstone(Lane lane, const JournalRecord& record) {
    at_.tombstonesPassed[index(lane)] = record.at;
    if (!record.dead() && !journal_.tombstoneNeeded(lane, record)) {
        journal_.lane(lane).tombstones.kill(record.at);
        inSequence_ = false;
    }
}

void Cursor::Step::endEpoch() {
    at_.arrive();
    cursor_.alive_ = {};
    std::uint64_t changes = 0;
    for (std::size_t i = 0; i < kLanes; ++i) {
        if (has(at_.lanes, laneAt(i))) { changes += at_.countAtTarget[i] - cursor_.counted_[i]; }
    }
    cursor_.statistics_.coalesced += changes - std::min(changes, cursor_.met_);
    cursor_.counted_ = at_.countAtTarget;
    cursor_.met_ = 0;
    cursor_.phase_ = cursor_.synced_ ? Phase::idle : Phase::sync;
}

void Cursor::Step::sync() {
    out_[count_++] = {.kind = CursorMessage::Kind::sync, .lane = {}, .key = {}, .content = {}};
    cursor_.synced_ = true;
    cursor_.phase_ = cursor_.mode_ == Mode::once ? Phase::ended : Phase::idle;
}

// ---- rounds ----

/// Between epochs, in turn with them.
bool Cursor::Step::roundsTurn() {
    if (!cursor_.round_ || cursor_.phase_ != Phase::idle) { return false; }
    if (cursor_.roundsTurn_) { return true; }
    journal_.departIfReady(at_);
    return at_.atRest;
}

bool Cursor::Step::resend() {
    Round& round = *cursor_.round_;
    if (!round.begun) {
        round.begun = at_.seen;
        cursor_.told_ = at_.seen;
    }
    if (round.lane == kLanes) {
        cursor_.round_.reset();
        return false;
    }
    const Lane lane = laneAt(round.lane);
    const auto& entries = journal_.lane(lane).entries;
    if (!walkNext_) { walkNext_ = round.key ? entries.upper_bound(*round.key) : entries.begin(); }
    if (!has(round.wanted.filter.lanes, lane) || *walkNext_ == entries.end()) {
        ++round.lane;
        round.key.reset();
        walkNext_.reset();
        return true;
    }
    const auto& [key, here] = **walkNext_;
    if (wanted(lane, key, here)) {
        emit(CursorMessage::Kind::update, {lane, key}, here.content);
        out_[count_ - 1].again = true;
    }
    round.key = key;
    ++*walkNext_;
    return true;
}

bool Cursor::Step::wanted(Lane lane, const EntryKey& key, const JournalEntry& here) {
    const Round& round = *cursor_.round_;
    const auto& after = round.wanted.changedAfter;
    if (here.born > *round.begun) { return false; }  // told when it came
    if (after && (here.changed <= *after || here.changed == here.born)) { return false; }
    const auto& matches = round.wanted.filter.matches;
    if (!shown(lane, key) || (matches && !matches(lane, key))) { return false; }
    // What an epoch will tell may name what the client does not have yet.
    if (here.changed <= at_.seen) { return true; }
    const JournalRecord* const record = journal_.lane(lane).changes.find(here.changed);
    return record != nullptr && deferred(lane, *record);
}

/// Not told by an epoch: the client has the entry, and what the new content names.
bool Cursor::Step::deferred(Lane lane, const JournalRecord& record) const {
    return cursor_.filter_.deferred && record.born <= at_.seen && !record.renames &&
           cursor_.filter_.deferred(lane, record.key);
}

// ---- both ----

const JournalEntry* Cursor::Step::entry(const Reference& of) const {
    const auto& entries = journal_.lane(of.lane).entries;
    const auto found = entries.find(of.key);
    return found != entries.end() ? &found->second : nullptr;
}

bool Cursor::Step::shown(Lane lane, const EntryKey& key) const {
    const CursorFilter& filter = cursor_.filter_;
    return has(filter.lanes, lane) && (!filter.matches || filter.matches(lane, key));
}

std::optional<Reference> Cursor::Step::firstWaiting(const Content& content, Waiting waiting) {
    if (content.isValue()) {
        if (!journal_.options_.referenceOf) { return std::nullopt; }
        const Reference group = journal_.options_.referenceOf(content.value());
        return waiting(group) ? std::optional{group} : std::nullopt;
    }
    for (const Reference& each : content.references()) {
        --budget_;
        if (waiting(each)) { return each; }
    }
    return std::nullopt;
}

/// What must go out before `wanted` may: an entry that it refers to and that the client does not
/// have, or one that that one refers to, and so on; `wanted` itself when there is none. Entries
/// that refer to each other in a ring go out all the same.
Reference Cursor::Step::firstOut(const Reference& wanted, bool walking) {
    absl::InlinedVector<Reference, 4> path{wanted};
    const auto waiting = [&](const Reference& each) {
        if (std::find(path.begin(), path.end(), each) != path.end()) { return false; }
        return walking ? unsentInWalk(each) : unsentInEpoch(each);
    };
    while (true) {
        const Reference& last = path.back();
        const JournalEntry* present = walking ? entry(last) : nullptr;
        const JournalRecord* record = walking ? nullptr : atTarget(last);
        VEL_ASSERT(present != nullptr || record != nullptr);  // it was waiting a moment ago
        const Content& content = present != nullptr ? present->content : *record->content;
        const std::optional<Reference> before = firstWaiting(content, waiting);
        if (!before) { return last; }
        path.push_back(*before);
    }
}

void Cursor::Step::emit(CursorMessage::Kind kind, const Reference& entry, const Content& content) {
    out_[count_++] = {.kind = kind, .lane = entry.lane, .key = entry.key, .content = content};
    ++cursor_.statistics_.sent;
}

}  // namespace Gale
