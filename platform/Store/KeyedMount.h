#pragma once

#include <absl/container/btree_set.h>

#include <algorithm>
#include <deque>
#include <iterator>
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
    /// What can be read now, or that nothing can, is of a change that will be told yet.
    bool toldLater(const Key& key) const {
        const auto bytes = KeyCodec<Key>::encode(key);
        return mount_.toldLater(bytes) || (has(key) && !mount_.read(bytes));
    }
    /// The first key after the given one, or of all.
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        const auto it = after ? following(*after) : keys_.begin();
        if (it == keys_.end()) { return std::nullopt; }
        answered_ = it;
        return *it;
    }

protected:
    void mountIs(Reader& reader, std::string_view path, std::string_view type, TableKind kind) {
        mount_ = reader.mount(path, type, kind, *this);
    }
    std::optional<std::string_view> readBytes(const Key& key) const {
        return mount_.read(KeyCodec<Key>::encode(key));
    }
    /// The table that is mounted now; 0: it is not there.
    TableId storeTable() const { return mount_.table(); }
    /// The key was added, changed or deleted; keys() is up to date.
    virtual void changed(const Key& key) = 0;
    virtual void presentChanged() {}
    /// A round of sweeps has ended, see Sink::sweepSettled().
    virtual void settled() {}

private:
    using Iterator = typename absl::btree_set<Key>::const_iterator;

    /// Who walks asks with the last answer, or once more as for that.
    Iterator following(const Key& after) const {
        if (answered_ && **answered_ == after) { return std::next(*answered_); }
        if (answered_ && *answered_ != keys_.begin() && *std::prev(*answered_) == after) {
            return *answered_;
        }
        return keys_.upper_bound(after);
    }
    void keyChanged(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        const bool moved = mount_.read(bytes) ? keys_.insert(*key).second : keys_.erase(*key) > 0;
        if (moved) { answered_.reset(); }
        changed(*key);
    }
    /// Keys between two that were swept next to each other.
    struct Gap {
        std::optional<Key> after;  // nullopt: from the first of all
        std::optional<Key> end;    // nullopt: to the last
    };
    static constexpr std::size_t kShare = 256;  // vanished keys that are dealt with at once

    void sweepBegun() final {
        sweptTo_.reset();
        gaps_.clear();
        settling_ = false;  // of a round that this one interrupts: what it told is told
    }
    void sweepKey(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        takeGone({sweptTo_, key});
        answered_.reset();
        keys_.insert(keys_.end(), *key);  // the usual place in a first sweep
        sweptTo_ = *key;
        if (!present_) { return; }
        if (gone_.empty()) { return changed(*key); }
        std::vector<Key> untold = takeUntold(gone_.size());
        untold.push_back(*key);
        tell(untold);
    }
    void sweepLater(std::string_view bytes) final {
        const auto key = decode(bytes);
        if (!key) { return; }
        takeGone({sweptTo_, key});
        sweptTo_ = *key;
        if (present_) { tell(takeUntold(gone_.size())); }
    }
    void sweepEnded() final {
        takeGone({sweptTo_, std::nullopt});
        sweptTo_.reset();
        if (present_) { tell(takeUntold(gone_.size())); }
    }
    void presentIs(bool present) final {
        if (present_ == present) { return; }
        present_ = present;
        presentChanged();
    }
    void sweepSettled() final {
        settling_ = true;
        settleSome();
    }
    bool sweepRest() final {
        if (settling_) {
            settleSome();
        } else if (!gaps_.empty()) {
            const Gap gap = std::move(gaps_.front());
            gaps_.pop_front();
            takeGone(gap);
            if (present_) { tell(takeUntold(gone_.size())); }
        } else {
            return false;
        }
        return true;
    }
    /// Tells a share of what had to wait; after the last one all is settled.
    void settleSome() {
        const std::weak_ptr<const bool> alive = alive_;
        const std::vector<Key> share = takeUntold(std::min(kShare, gone_.size()));
        const bool last = gone_.empty();
        if (last) { settling_ = false; }
        FirstError error;
        error.run([&] { tell(share); });
        if (last && !alive.expired()) {
            error.run([this] { settled(); });
        }
        error.rethrow();
    }
    /// The first ones that vanished and are not told; they are as good as told.
    std::vector<Key> takeUntold(std::size_t count) {
        const auto end = gone_.begin() + static_cast<std::ptrdiff_t>(count);
        std::vector<Key> taken{gone_.begin(), end};
        gone_.erase(gone_.begin(), end);
        return taken;
    }
    std::optional<Key> decode(std::string_view bytes) {
        auto key = KeyCodec<Key>::decode(bytes);
        if (!key) { ++badKeys_; }
        return key;
    }
    /// Takes out the keys of a gap, a share of them now and the rest later.
    void takeGone(const Gap& gap) {
        const bool atEnd = gap.after && !keys_.empty() && !(*gap.after < *keys_.rbegin());
        if (atEnd) { return; }  // as in a first sweep
        const auto first = gap.after ? keys_.upper_bound(*gap.after) : keys_.begin();
        auto last = first;
        for (std::size_t i = 0; i < kShare && inGap(last, gap); ++i) { ++last; }
        if (first == last) { return; }
        const bool rest = inGap(last, gap);
        answered_.reset();
        gone_.insert(gone_.end(), first, last);
        keys_.erase(first, last);
        if (rest) { gaps_.push_back(gap); }
    }
    bool inGap(typename absl::btree_set<Key>::const_iterator at, const Gap& gap) const {
        return at != keys_.end() && (!gap.end || *at < *gap.end);
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
    // The key that nextKey() answered last, while no key has come or gone since.
    mutable std::optional<Iterator> answered_;
    std::optional<Key> sweptTo_;
    std::deque<Gap> gaps_;  // with vanished keys that are still in the list
    // Vanished and not told: while not present, once all is settled. There may be millions, so they
    // neither move as they become more nor go all at once.
    std::deque<Key> gone_;
    bool settling_ = false;
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    Reader::Mount mount_;
    std::uint64_t badKeys_ = 0;
    bool present_ = false;
};

}  // namespace Store
