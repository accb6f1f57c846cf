#pragma once

#include <absl/container/btree_set.h>

#include <cstddef>
#include <memory>
#include <variant>
#include <vector>

#include "model/Fec/OcNextHopIndex.h"

namespace Pel {

/// A set of next hops in the order of their ids. There may be a million such sets with nearly
/// always one next hop: that one takes no memory of its own.
class OcNextHopIdSet {
public:
    std::size_t size() const {
        if (const Many* const several = many()) { return several->size(); }
        return std::size_t{one() != nullptr};
    }
    bool empty() const { return size() == 0; }
    bool contains(Stash::OcNextHopIndex id) const {
        if (const Many* const several = many()) { return several->contains(id); }
        return one() != nullptr && *one() == id;
    }
    /// Not of an empty set.
    Stash::OcNextHopIndex first() const {
        const Many* const several = many();
        return several != nullptr ? *several->begin() : std::get<Stash::OcNextHopIndex>(ids_);
    }
    std::vector<Stash::OcNextHopIndex> ids() const {
        if (const Many* const several = many()) { return {several->begin(), several->end()}; }
        return one() != nullptr ? std::vector{*one()} : std::vector<Stash::OcNextHopIndex>{};
    }
    void insert(Stash::OcNextHopIndex id) {
        if (Many* const several = many()) {
            several->insert(id);
        } else if (one() == nullptr) {
            ids_ = id;
        } else if (*one() != id) {
            ids_ = std::make_unique<Many>(Many{*one(), id});
        }
    }
    void erase(Stash::OcNextHopIndex id) {
        if (Many* const several = many()) {
            several->erase(id);
            if (several->size() == 1) { ids_ = Stash::OcNextHopIndex{*several->begin()}; }
        } else if (contains(id)) {
            ids_ = {};
        }
    }

private:
    using Many = absl::btree_set<Stash::OcNextHopIndex>;
    const Stash::OcNextHopIndex* one() const { return std::get_if<Stash::OcNextHopIndex>(&ids_); }
    Many* many() const {
        const auto* const several = std::get_if<std::unique_ptr<Many>>(&ids_);
        return several == nullptr ? nullptr : several->get();
    }

    /// None, one, or two at least.
    std::variant<std::monostate, Stash::OcNextHopIndex, std::unique_ptr<Many>> ids_;
};

}  // namespace Pel
