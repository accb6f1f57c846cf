#include "forwarder/Publish/JoinedDiff.h"

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace Pel::Forwarder {
namespace {

/// Takes the elements that are numbered below `written` off the front; `written` counts on after
/// the list.
template <class List>
void dropWritten(List& list, std::size_t& written) {
    const std::size_t gone = std::min(list.size(), written);
    list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(gone));
    written -= gone;
}

enum class Deletions { last, first, firstAndKept };

/// The last word on each thing of one kind: what it is, or that it goes; `order` is that of the
/// deletions within a batch. Kept: a deletion stands although the thing has come again.
template <class Element, class KeyOf>
void join(std::vector<FlatDiff>& batches,
          std::vector<Element> FlatDiff::*changes,
          auto FlatDiff::*deletes,
          KeyOf keyOf,
          Deletions order,
          FlatDiff& to) {
    using Key = typename std::decay_t<decltype(to.*deletes)>::value_type;
    struct Word {
        bool went = false;
        std::optional<Element> element;
    };
    absl::btree_map<Key, Word> last;
    const auto takeDeletes = [&](const FlatDiff& batch) {
        for (const Key& key : batch.*deletes) { last[key] = {true, std::nullopt}; }
    };
    for (FlatDiff& batch : batches) {
        if (order != Deletions::last) { takeDeletes(batch); }
        for (Element& element : batch.*changes) {
            const Key key = keyOf(element);
            last[key].element = std::move(element);
        }
        if (order == Deletions::last) { takeDeletes(batch); }
    }
    for (auto& [key, word] : last) {
        if (word.went && (!word.element || order == Deletions::firstAndKept)) {
            (to.*deletes).push_back(key);
        }
        if (word.element) { (to.*changes).push_back(std::move(*word.element)); }
    }
}

/// Moves the elements that `goes` to the end of `to`.
template <class Element, class Goes>
void move(std::vector<Element>& from, std::vector<Element>& to, Goes goes) {
    const auto taken = std::stable_partition(
        from.begin(), from.end(), [&](const Element& element) { return !goes(element); });
    to.insert(to.end(), taken, from.end());
    from.erase(taken, from.end());
}

}  // namespace

FlatDiff joined(std::vector<FlatDiff>& batches, std::size_t written) {
    FlatDiff& first = batches.front();
    dropWritten(first.routeDeletes, written);
    dropWritten(first.vrfDeletes, written);
    dropWritten(first.vrfs, written);
    dropWritten(first.vtis, written);
    dropWritten(first.nextHops, written);
    dropWritten(first.fecs, written);
    dropWritten(first.routes, written);
    dropWritten(first.fecDeletes, written);
    dropWritten(first.nextHopDeletes, written);
    const bool vrfsGo = std::any_of(batches.begin(), batches.end(), [](const FlatDiff& batch) {
        return !batch.vrfDeletes.empty();
    });
    FlatDiff result;
    for (FlatDiff& batch : batches) {
        if (!batch.vtis.empty()) { result.vtis = std::move(batch.vtis); }
    }
    join(
        batches,
        &FlatDiff::vrfs,
        &FlatDiff::vrfDeletes,
        [](const FlatVrf& vrf) { return vrf.table; },
        Deletions::firstAndKept,
        result);
    join(
        batches,
        &FlatDiff::nextHops,
        &FlatDiff::nextHopDeletes,
        [](const FlatNextHop& nextHop) { return nextHop.index; },
        Deletions::last,
        result);
    join(
        batches,
        &FlatDiff::fecs,
        &FlatDiff::fecDeletes,
        [](const FlatFec& fec) { return fec.id; },
        Deletions::last,
        result);
    join(
        batches,
        &FlatDiff::routes,
        &FlatDiff::routeDeletes,
        [](const FlatRoute& route) { return route.key; },
        vrfsGo ? Deletions::firstAndKept : Deletions::first,
        result);
    return result;
}

FlatDiff takeRoom(FlatDiff& joined, FlatStore& store) {
    FlatDiff room;
    room.routeDeletes = std::exchange(joined.routeDeletes, {});
    room.vrfDeletes = std::exchange(joined.vrfDeletes, {});
    absl::btree_set<FecId> named;
    for (const FlatRoute& route : joined.routes) {
        if (joined.fecDeletes.empty()) { break; }
        if (const auto fec = store.fecOf(route.key)) { named.insert(*fec); }
    }
    move(joined.fecDeletes, room.fecDeletes, [&](FecId id) { return !named.contains(id); });
    const absl::btree_set<FecId> gone{room.fecDeletes.begin(), room.fecDeletes.end()};
    move(joined.nextHopDeletes, room.nextHopDeletes, [&](OcNextHopNumber index) {
        const auto fec = store.fecOf(index);
        return fec && (gone.contains(*fec) || !store.hasFec(*fec));
    });
    return room;
}

}  // namespace Pel::Forwarder
