#pragma once

#include <absl/container/btree_set.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Blink/Trace.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Vel/Sm.h"

namespace Kiln {

/// The keys of a collection that changes under a walk: the first one after a key (or of all).
template <class Key>
using KeyCursor = std::function<std::optional<Key>(const std::optional<Key>& after)>;

/// Puts a few keys into a machine's backlog; answers whether it has more.
using BacklogFeed = std::function<bool()>;

/// A set of keys that wait to be processed, in key order from a bookmark onward and round. Besides
/// single keys it takes "everything in this collection" as a cursor: a million keys cost nothing
/// until the walk comes to them. A key that waits more than once, in whatever way, is drawn once a
/// round.
template <class Key>
class Backlog {
public:
    /// Answers whether the key is new to the set.
    bool insert(const Key& key) {
        const std::size_t before = keys_.size();
        keys_.insert(keys_.end(), key);  // most come in order
        return keys_.size() > before;
    }
    void erase(const Key& key) { keys_.erase(key); }
    void clear() {
        keys_.clear();
        sweeps_.clear();
    }
    /// Everything that the collection holds when the walk comes to it, one round from the bookmark.
    void addAll(KeyCursor<Key> nextKey) {
        sweeps_.push_back({std::move(nextKey), bookmark_, false});
    }
    bool has(const Key& key) const { return keys_.contains(key); }
    /// Whether the key is still to be drawn: it waits, or a collection's round has not passed it
    /// yet (whether that collection holds it is not asked).
    bool mayDraw(const Key& key) const {
        if (keys_.contains(key)) { return true; }
        const bool ahead = !bookmark_ || *bookmark_ < key;
        return std::any_of(sweeps_.begin(), sweeps_.end(), [&](const Sweep& sweep) {
            const bool inStart = sweep.start && !(*sweep.start < key);
            return sweep.wrapped ? ahead && inStart : ahead || inStart;
        });
    }
    /// Empty of keys and of collections that have not been drawn to their end.
    bool empty() {
        while (!sweeps_.empty() && keys_.empty()) {
            if (nearest(sweeps_.back())) { return false; }
            sweeps_.pop_back();
        }
        return keys_.empty();
    }
    const std::optional<Key>& bookmark() const { return bookmark_; }
    /// Takes the next key out of the set and sets the bookmark to it.
    std::optional<Key> draw() {
        if (sweeps_.empty()) { return drawKey(); }
        const std::optional<Candidate> key = fromKeys();
        std::optional<Candidate> best = key;
        for (std::size_t i = 0; i < sweeps_.size();) {
            const std::optional<Candidate> candidate = nearest(sweeps_[i]);
            if (!candidate) {
                sweeps_.erase(sweeps_.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            if (!best || *candidate < *best) { best = candidate; }
            ++i;
        }
        if (!best) { return std::nullopt; }
        if (best->wrapped) {
            for (Sweep& sweep : sweeps_) { sweep.wrapped = true; }
        }
        if (key && key->key == best->key) { keys_.erase(best->key); }
        bookmark_ = best->key;
        return best->key;
    }

private:
    struct Candidate {
        bool wrapped;  // beyond the end, from the beginning again
        Key key;
        friend bool operator<(const Candidate& a, const Candidate& b) {
            return a.wrapped != b.wrapped ? b.wrapped : a.key < b.key;
        }
    };
    struct Sweep {
        KeyCursor<Key> nextKey;
        std::optional<Key> start;  // the round ends after this key; nullopt: at the end
        bool wrapped;
    };

    /// The usual case, when nothing but single keys is there.
    std::optional<Key> drawKey() {
        if (keys_.empty()) { return std::nullopt; }
        auto it = bookmark_ ? keys_.upper_bound(*bookmark_) : keys_.begin();
        if (it == keys_.end()) { it = keys_.begin(); }
        bookmark_ = *it;
        keys_.erase(it);
        return bookmark_;
    }
    std::optional<Candidate> fromKeys() const {
        if (keys_.empty()) { return std::nullopt; }
        const auto it = bookmark_ ? keys_.upper_bound(*bookmark_) : keys_.begin();
        return it != keys_.end() ? Candidate{false, *it} : Candidate{true, *keys_.begin()};
    }
    std::optional<Candidate> nearest(const Sweep& sweep) const {
        if (const auto key = sweep.nextKey(bookmark_)) {
            if (sweep.wrapped && *sweep.start < *key) { return std::nullopt; }
            return Candidate{false, *key};
        }
        if (sweep.wrapped || !sweep.start) { return std::nullopt; }
        const auto key = sweep.nextKey(std::nullopt);
        if (!key || *sweep.start < *key) { return std::nullopt; }
        return Candidate{true, *key};
    }

    absl::btree_set<Key> keys_;
    std::vector<Sweep> sweeps_;
    std::optional<Key> bookmark_;
};

/// A machine whose reactions only put keys into a backlog, and whose walk task processes them,
/// element by element, yielding when the scheduler asks for it and resuming at the bookmark.
///
/// An element leaves the backlog before it is processed (processing may put it back). What it
/// throws is caught per element, traced and counted, and the walk goes on. An element may release
/// the machine: the walk then ends there, without its last steps.
template <class Key>
class WalkMachine : public Vel::Sm {
public:
    const std::optional<Key>& backlogBookmark() const { return backlog_.bookmark(); }
    bool backlogHas(const Key& key) const { return backlog_.has(key); }
    bool backlogEmpty() { return !feed_ && backlog_.empty(); }
    /// Elements that ended in an exception since the machine's creation.
    std::uint64_t failedElements() const { return failedElements_; }
    const TaskStatistics& walkStatistics() const { return task_.statistics(); }

protected:
    WalkMachine(Vel::Ref<TaskScheduler> scheduler, std::string taskName, TaskPriority priority)
        : scheduler_{std::move(scheduler)},
          task_{scheduler_, std::move(taskName), priority, [this] { return walk(); }} {}

    bool backlogMayDraw(const Key& key) const { return backlog_.mayDraw(key); }
    TaskScheduler& scheduler() { return *scheduler_; }
    void backlogIs(const Key& key) { backlog_.insert(key); }
    void backlogDel(const Key& key) { backlog_.erase(key); }
    void backlogDelAll() {
        feed_ = nullptr;
        backlog_.clear();
    }
    void backlogAddAll(KeyCursor<Key> nextKey) { backlog_.addAll(std::move(nextKey)); }
    /// Keys that wait elsewhere, too many to be put into the backlog at once: before each element
    /// the feed puts a few into it, or none, and answers whether it has more. The backlog is not
    /// empty before it has none. There is one feed at a time; it must not name another.
    void backlogFeedIs(BacklogFeed feed) { feed_ = std::move(feed); }
    /// If no walk is scheduled, schedules one.
    void scheduleWalk() { task_.schedule(); }

    virtual void backlogProcessElem(const Key& key) = 0;
    /// The element's processing threw.
    virtual void elementFailed(const Key& /*key*/) {}
    /// The last steps of each slice, after the elements.
    virtual void walkEnded() {}

    /// One slice. Answers whether work is still pending.
    bool walk() {
        const Vel::Ref<Vel::Sm> keep = Vel::keepAlive<Vel::Sm>(this);
        for (;;) {
            if (feed_ && !feed_()) { feed_ = nullptr; }
            if (const std::optional<Key> key = backlog_.draw()) {
                if (!guarded("element", [&] { backlogProcessElem(*key); })) {
                    ++failedElements_;
                    guarded("elementFailed", [&] { elementFailed(*key); });
                }
                if (keep.unique()) { return false; }  // released meanwhile
            } else if (!feed_) {
                break;
            }
            if (scheduler_->mustYield()) { break; }
        }
        guarded("walkEnded", [&] { walkEnded(); });
        return !backlogEmpty();
    }

private:
    /// Runs a step; what it throws is traced, so that neither the other elements nor what is still
    /// pending are lost with it.
    template <class Step>
    bool guarded(const char* name, Step step) {
        try {
            step();
            return true;
        } catch (const std::exception& error) { stepFailed(name, error.what()); } catch (...) {
            stepFailed(name, "what is no exception");
        }
        return false;
    }
    void stepFailed(const char* name, const char* what) {
        BLINK_TRACE(
            5, Blink::handle("Kiln"), "{}: {} failed: {}", task_.statistics().name, name, what);
    }

    Vel::Ref<TaskScheduler> scheduler_;
    Backlog<Key> backlog_;
    BacklogFeed feed_;
    std::uint64_t failedElements_ = 0;
    Task task_;
};

}  // namespace Kiln
