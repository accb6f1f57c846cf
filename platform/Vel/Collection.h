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

    /// The value that was there lives until all have been told, like one that is erased.
    void set(const Key& key, Value value) {
        const auto [it, added] = map_.try_emplace(key, std::move(value));
        if (!added) { std::swap(it->second, value); }
        changed_.publish(key);
    }
    /// Answers whether there was one; only then a change is published. The key may be the
    /// collection's own.
    bool erase(const Key& key) {
        const auto it = map_.find(key);
        if (it == map_.end()) { return false; }
        const auto keep = map_.extract(it);
        changed_.publish(keep.key());
        return true;
    }
    /// Erases each entry once, in order; what a reaction puts back stays.
    void clear() {
        for (auto key = nextKey({}); key; key = nextKey(key)) { erase(*key); }
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
    /// Tells subscribers of a key without any change of its entry.
    void publish(const Key& key) const { changed_.publish(key); }

private:
    absl::btree_map<Key, Value> map_;
    mutable Publisher<const Key&> changed_;
};

}  // namespace Vel
