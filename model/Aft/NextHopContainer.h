#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "model/Aft/NextHop.h"
#include "platform/Vel/Collection.h"
#include "platform/Vel/Entity.h"

namespace Pel::OcApi {

/// The AFT next hops. One writer: the next-hop mapper. Entries are replaced whole; each change is
/// published with the key, after it was made.
class NextHopContainer final : public Vel::Entity {
public:
    using Value = std::unique_ptr<const NextHop>;
    using Vel::Entity::Entity;

    /// Null when absent; valid until the entry is replaced or deleted.
    const NextHop* nextHop(NextHopIndex index) const {
        const Value* const value = nextHops_.find(index);
        return value == nullptr ? nullptr : value->get();
    }
    /// Writes the entry in place of any with its index.
    void nextHopIs(NextHop nextHop) {
        const NextHopIndex index = nextHop.index;
        if (!nextHop.encapHeaders.empty()) { ++encapsulated_; }
        const auto before =
            nextHops_.set(index, std::make_unique<const NextHop>(std::move(nextHop)));
        if (before && !(*before)->encapHeaders.empty()) { --encapsulated_; }
    }
    /// Harmless when there is none.
    void nextHopDel(NextHopIndex index) {
        const NextHop* const before = nextHop(index);
        if (before == nullptr) { return; }
        if (!before->encapHeaders.empty()) { --encapsulated_; }
        nextHops_.erase(index);
    }
    /// Answers what was there, for who has a million entries to free.
    auto nextHopDelAll() {
        encapsulated_ = 0;
        return nextHops_.clear();
    }
    /// Tells that this next hop has been considered and that nothing changed, so that whatever
    /// waits for its entry waits no longer.
    void processedIs(NextHopIndex index) { processed_.publish(index); }

    /// Who writes the entries says which it has still to consider; null: none.
    void pendingAre(std::function<bool(NextHopIndex)> pending) { pending_ = std::move(pending); }
    /// The entry is still to be considered: that it is not there says nothing yet.
    bool pending(NextHopIndex index) const { return pending_ && pending_(index); }

    std::size_t size() const { return nextHops_.size(); }
    /// Those of them that have encapsulation headers.
    std::size_t encapsulated() const { return encapsulated_; }
    std::optional<NextHopIndex> nextKey(const std::optional<NextHopIndex>& after) const {
        return nextHops_.nextKey(after);
    }
    Vel::Publisher<const NextHopIndex&>& onNextHop() const { return nextHops_.onKey(); }
    /// The same, but null when all have gone at once.
    Vel::Publisher<const NextHopIndex*>& onNextHopOrClear() const {
        return nextHops_.onKeyOrClear();
    }
    Vel::Publisher<const NextHopIndex&>& onProcessed() const { return processed_; }

private:
    Vel::Collection<NextHopIndex, Value> nextHops_;
    std::size_t encapsulated_ = 0;
    mutable Vel::Publisher<const NextHopIndex&> processed_;
    std::function<bool(NextHopIndex)> pending_;
};

}  // namespace Pel::OcApi
