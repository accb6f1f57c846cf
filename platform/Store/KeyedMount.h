#pragma once

#include <absl/container/btree_set.h>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Store/FirstError.h"
#include "platform/Store/KeyCodec.h"
#include "platform/Store/Reader.h"

namespace Store {

/// A mounted table with its sorted key list: which keys there are is known here, records are read
/// from the store on demand. A sweep is merged with the list, so that keys that vanished unseen are
/// reported like any deletion. Keys that cannot be decoded are counted and left out.
template <class Key>
class KeyedMount : public Sink {
public:
    const absl::btree_set<Key>& keys() const { return keys_; }
    bool has(const Key& key) const { return keys_.contains(key); }
    bool present() const { return present_; }
    std::uint64_t badKeys() const { return badKeys_; }
    /// The first key after the given one, or of all.
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        const auto it = after ? keys_.upper_bound(*after) : keys_.begin();
        return it == keys_.end() ? std::nullopt : std::optional<Key>{*it};
    }

protected:
    void mountIs(Reader& reader, std::string_view path, std::string_view type, TableKind kind) {
        mount_ = reader.mount(path, type, kind, *this);
    }
    std::optional<std::string_view> readBytes(const Key& key) const {
        return mount_.read(KeyCodec<Key>::encode(key));
    }
    /// The key was added, changed or deleted; keys() is up to date.
    virtual void changed(const Key& key) = 0;
    virtual void presentChanged() {}
    /// A round of sweeps has ended, see Sink::sweepSettled().
    virtual void settled() {}

private:
    void keyChanged(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        if (mount_.read(bytes)) {
            keys_.insert(*key);
        } else {
            keys_.erase(*key);
        }
        changed(*key);
    }
    void sweepBegun() final { sweptTo_.reset(); }
    void sweepKey(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        takeGone(key);
        keys_.insert(*key);
        sweptTo_ = *key;
        if (!present_) { return; }
        if (gone_.empty()) { return changed(*key); }
        std::vector<Key> untold = std::exchange(gone_, {});
        untold.push_back(*key);
        tell(untold);
    }
    void sweepLater(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        takeGone(key);
        sweptTo_ = *key;
        if (present_) { tell(std::exchange(gone_, {})); }
    }
    void sweepEnded() final {
        takeGone(std::nullopt);
        sweptTo_.reset();
        if (present_) { tell(std::exchange(gone_, {})); }
    }
    void presentIs(bool present) final {
        if (present_ == present) { return; }
        present_ = present;
        presentChanged();
    }
    void sweepSettled() final {
        const std::weak_ptr<const bool> alive = alive_;
        FirstError error;
        error.run([this] { tell(std::exchange(gone_, {})); });
        if (!alive.expired()) {
            error.run([this] { settled(); });
        }
        error.rethrow();
    }
    std::optional<Key> decode(std::string_view bytes) {
        const auto key = KeyCodec<Key>::decode(bytes);
        if (!key) { ++badKeys_; }
        return key;
    }
    /// Takes out the keys between what has been swept and the given one (the end).
    void takeGone(const std::optional<Key>& end) {
        const auto first = sweptTo_ ? keys_.upper_bound(*sweptTo_) : keys_.begin();
        const auto last = end ? keys_.lower_bound(*end) : keys_.end();
        gone_.insert(gone_.end(), first, last);
        keys_.erase(first, last);
    }
    /// Tells all, whatever one of them throws; stops when one of them ends this mount.
    void tell(const std::vector<Key>& keys) {
        const std::weak_ptr<const bool> alive = alive_;
        FirstError error;
        for (const Key& key : keys) {
            if (alive.expired()) { break; }
            error.run([&] { changed(key); });
        }
        error.rethrow();
    }

    absl::btree_set<Key> keys_;
    std::optional<Key> sweptTo_;
    std::vector<Key> gone_;  // vanished and not told: while not present, once all is settled
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    Reader::Mount mount_;
    std::uint64_t badKeys_ = 0;
    bool present_ = false;
};

}  // namespace Store
