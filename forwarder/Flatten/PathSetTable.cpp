#include "forwarder/Flatten/PathSetTable.h"

#include <algorithm>
#include <cstring>

#include "platform/Vel/Assert.h"

namespace Pel::Forwarder {

namespace {

/// FNV-1a over the content. Not absl's hash: that one is seeded per process, and the number has to
/// be the same after a restart.
class ContentHash {
public:
    void add(std::span<const std::byte> bytes) {
        for (const std::byte b : bytes) {
            state_ = (state_ ^ static_cast<std::uint8_t>(b)) * 0x100000001B3U;
        }
    }
    void add(std::uint64_t number) {
        for (int shift = 0; shift < 64; shift += 8) {
            state_ = (state_ ^ (number >> shift & 0xFFU)) * 0x100000001B3U;
        }
    }
    void add(const Nexo::IpGenAddr& address) {
        add(static_cast<std::uint64_t>(address.family()));
        add(std::as_bytes(address.bytes()));
    }
    /// Folded, so that all bits of the state reach the 56 that are used.
    std::uint64_t number() const { return (state_ ^ state_ >> 56) & kFecNumberMask; }

private:
    std::uint64_t state_ = 0xCBF29CE484222325U;
};

void addEncap(ContentHash& hash, const Encap& encap) {
    hash.add(static_cast<std::uint64_t>(encap.kind));
    hash.add(encap.wireType);
    hash.add(encap.ttl);
    hash.add(encap.tos);
    hash.add(encap.tunnelId);
    hash.add(encap.local);
    hash.add(encap.remote);
    for (const std::uint32_t label : encap.labels) { hash.add(label); }
    hash.add(encap.opaque);
}

}  // namespace

void PathSetTable::sortedMembers(std::span<const Path> paths) {
    scratch_.clear();
    for (const Path& path : paths) {
        const AdjacencyKey key{path.ifindex, path.gateway, path.encap};
        scratch_.push_back({adjacencies_.acquire(key), path.weight, path.dead});
    }
    std::sort(scratch_.begin(), scratch_.end(), [this](const PathMember& a, const PathMember& b) {
        const auto order = adjacencies_[a.adjacency].key <=> adjacencies_[b.adjacency].key;
        return std::is_eq(order) ? a.weight < b.weight : std::is_lt(order);
    });
}

FecId PathSetTable::contentNumber() const {
    ContentHash hash;
    for (const PathMember& member : scratch_) {
        const AdjacencyKey& key = adjacencies_[member.adjacency].key;
        hash.add(key.ifindex);
        hash.add(key.gateway);
        hash.add(member.weight);
        if (key.encap != nullptr) { addEncap(hash, *key.encap); }
    }
    return makeFecId(FecKind::memberSet, hash.number());
}

bool PathSetTable::sameMembers(const PathSet& set) const {
    return std::equal(set.members.begin(),
                      set.members.end(),
                      scratch_.begin(),
                      scratch_.end(),
                      [](const PathMember& a, const PathMember& b) {
                          return a.adjacency == b.adjacency && a.weight == b.weight;
                      });
}

bool PathSetTable::updateDead(PathSet& set) const {
    bool changed = false;
    for (std::size_t i = 0; i < set.members.size(); ++i) {
        changed = changed || set.members[i].dead != scratch_[i].dead;
        set.members[i].dead = scratch_[i].dead;
    }
    return changed;
}

PathSetTable::Acquired PathSetTable::acquire(std::span<const Path> paths) {
    sortedMembers(paths);
    for (FecId id = contentNumber();; id = makeFecId(FecKind::memberSet, fecNumber(id) + 1)) {
        const auto [entry, isNew] = sets_.try_emplace(id);
        PathSet& set = entry->second;
        if (isNew) {
            set.members = scratch_;  // with the counts taken above
            set.users = 1;
            return {id, true};
        }
        if (!sameMembers(set)) { continue; }
        for (const PathMember& member : scratch_) { adjacencies_.release(member.adjacency); }
        ++set.users;
        return {id, updateDead(set)};
    }
}

void PathSetTable::acquire(FecId id) {
    const auto entry = sets_.find(id);
    VEL_ASSERT(entry != sets_.end());
    ++entry->second.users;
}

void PathSetTable::release(FecId id) {
    const auto entry = sets_.find(id);
    VEL_ASSERT(entry != sets_.end());
    if (--entry->second.users > 0) { return; }
    for (const PathMember& member : entry->second.members) {
        adjacencies_.release(member.adjacency);
    }
    sets_.erase(entry);
}

const absl::InlinedVector<PathMember, 2>* PathSetTable::find(FecId id) const {
    const auto entry = sets_.find(id);
    return entry == sets_.end() ? nullptr : &entry->second.members;
}

}  // namespace Pel::Forwarder
