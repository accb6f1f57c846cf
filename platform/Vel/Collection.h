#pragma once

#include <absl/container/btree_map.h>

#include <optional>
#include <utility>

#include "platform/Vel/Subscription.h"

namespace Vel {

/// Values by key, in key order; each change is published with the key, after it was made. Values
/// are replaced whole. Fat values stand behind a pointer of the value's own choosing: they move on
/// insert.
template <class Key, class Value>
class Collection {
public:
    /// Null when absent; valid until the collection changes.
    const Value* find(const Key& key) const {
        const auto it = map_.find(key);
        return it == map_.end() ? nullptr : &it->second;
    }
    bool has(const Key& key) const { return map_.contains(key); }
    std::size_t size() const { return map_.size(); }
    bool empty() const { return map_.empty(); }

    using Map = absl::btree_map<Key, Value>;

    /// The value that was there lives until all have been told, like one that is erased; it is
    /// answered.
    std::optional<Value> set(const Key& key, Value value) {
        const auto [it, added] = map_.try_emplace(key, std::move(value));
        if (!added) { std::swap(it->second, value); }
        tell(key);
        return added ? std::nullopt : std::optional<Value>{std::move(value)};
    }
    /// Answers whether there was one; only then a change is published. The key may be the
    /// collection's own.
    bool erase(const Key& key) {
        const auto it = map_.find(key);
        if (it == map_.end()) { return false; }
        const auto keep = map_.extract(it);
        tell(keep.key());
        return true;
    }
    /// Erases all entries at once, and then tells each key in order; what a reaction puts back
    /// stays. Answers what was there: a million entries are not freed in one go.
    Map clear() {
        Map gone = std::exchange(map_, {});
        if (gone.empty()) { return gone; }
        changedOrCleared_.publish(nullptr);
        if (changed_.hasSubscribers()) {
            for (const auto& [key, value] : gone) { changed_.publish(key); }
        }
        return gone;
    }
    /// The first key after the given one, or the first of all: how a walk goes through a collection
    /// that changes under it.
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        const auto it = after ? map_.upper_bound(*after) : map_.begin();
        return it == map_.end() ? std::nullopt : std::optional<Key>{it->first};
    }
    auto begin() const { return map_.begin(); }
    auto end() const { return map_.end(); }

    /// An entry of this key was added, replaced or removed.
    Publisher<const Key&>& onKey() const { return changed_; }
    /// The same for who need not be told of a million keys one by one: null when all entries that
    /// were there have gone at once.
    Publisher<const Key*>& onKeyOrClear() const { return changedOrCleared_; }
    /// Tells subscribers of a key without any change of its entry.
    void publish(const Key& key) const { tell(key); }

private:
    void tell(const Key& key) const {
        changed_.publish(key);
        changedOrCleared_.publish(&key);
    }

    Map map_;
    mutable Publisher<const Key&> changed_;
    mutable Publisher<const Key*> changedOrCleared_;
};

}  // namespace Vel
