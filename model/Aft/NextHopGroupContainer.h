#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "model/Aft/NextHopGroup.h"
#include "platform/Vel/Collection.h"
#include "platform/Vel/Entity.h"

namespace Pel::OcApi {

/// The AFT next-hop groups. One writer: the next-hop group mapper. Entries are replaced whole; each
/// change is published with the key, after it was made.
class NextHopGroupContainer final : public Vel::Entity {
public:
    using Value = std::unique_ptr<const NextHopGroup>;
    using Vel::Entity::Entity;

    /// Null when absent; valid until the entry is replaced or deleted.
    const NextHopGroup* nextHopGroup(NextHopGroupId id) const {
        const Value* const value = groups_.find(id);
        return value == nullptr ? nullptr : value->get();
    }
    /// Writes the entry in place of any with its id.
    void nextHopGroupIs(NextHopGroup group) {
        const NextHopGroupId id = group.id;
        groups_.set(id, std::make_unique<const NextHopGroup>(std::move(group)));
    }
    /// Harmless when there is none.
    void nextHopGroupDel(NextHopGroupId id) { groups_.erase(id); }
    /// Answers what was there, for who has a million entries to free.
    auto nextHopGroupDelAll() { return groups_.clear(); }

    /// Tells that this group has been considered and that nothing changed, so that whatever waits
    /// for its entry waits no longer.
    void processedIs(NextHopGroupId id) { processed_.publish(id); }
    /// Who writes the entries says which it has still to consider; null: none.
    void pendingAre(std::function<bool(NextHopGroupId)> pending) { pending_ = std::move(pending); }
    /// The entry is still to be considered: that it is not there says nothing yet.
    bool pending(NextHopGroupId id) const { return pending_ && pending_(id); }

    std::size_t size() const { return groups_.size(); }
    std::optional<NextHopGroupId> nextKey(const std::optional<NextHopGroupId>& after) const {
        return groups_.nextKey(after);
    }
    Vel::Publisher<const NextHopGroupId&>& onNextHopGroup() const { return groups_.onKey(); }
    /// The same, but null when all have gone at once.
    Vel::Publisher<const NextHopGroupId*>& onNextHopGroupOrClear() const {
        return groups_.onKeyOrClear();
    }
    Vel::Publisher<const NextHopGroupId&>& onProcessed() const { return processed_; }

private:
    Vel::Collection<NextHopGroupId, Value> groups_;
    mutable Vel::Publisher<const NextHopGroupId&> processed_;
    std::function<bool(NextHopGroupId)> pending_;
};

}  // namespace Pel::OcApi
