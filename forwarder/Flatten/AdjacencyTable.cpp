#include "forwarder/Flatten/AdjacencyTable.h"

#include "platform/Vel/Assert.h"

namespace Pel::Forwarder {

std::strong_ordering AdjacencyKey::operator<=>(const AdjacencyKey& other) const {
    if (const auto order = ifindex <=> other.ifindex; std::is_neq(order)) { return order; }
    if (const auto order = gateway <=> other.gateway; std::is_neq(order)) { return order; }
    if (encap == other.encap) { return std::strong_ordering::equal; }
    if (encap == nullptr) { return std::strong_ordering::less; }
    if (other.encap == nullptr) { return std::strong_ordering::greater; }
    return *encap <=> *other.encap;
}

AdjacencyTable::AdjacencyTable() : order_{Less{&adjacencies_}} {}

AdjacencyId AdjacencyTable::acquire(const AdjacencyKey& key) {
    if (const auto found = order_.find(key); found != order_.end()) {
        acquire(*found);
        return *found;
    }
    AdjacencyId id = 0;
    if (free_.empty()) {
        id = static_cast<AdjacencyId>(adjacencies_.size());
        adjacencies_.emplace_back();
    } else {
        id = free_.back();
        free_.pop_back();
    }
    adjacencies_[id].key = key;
    adjacencies_[id].users = 1;
    order_.insert(id);
    return id;
}

void AdjacencyTable::release(AdjacencyId id) {
    VEL_ASSERT(adjacencies_[id].users > 0);
    if (--adjacencies_[id].users > 0) { return; }
    order_.erase(id);
    adjacencies_[id] = Adjacency{};
    free_.push_back(id);
}

AdjacencyId AdjacencyTable::next(const AdjacencyKey& key, bool after) const {
    const auto found = after ? order_.upper_bound(key) : order_.lower_bound(key);
    return found == order_.end() ? kNoAdjacency : *found;
}

}  // namespace Pel::Forwarder
