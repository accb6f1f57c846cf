#include "forwarder/Publish/JoinedDiff.h"

#include <absl/container/btree_map.h>

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

/// The last word on each thing of one kind: what it is, or that it goes.
template <class Element, class KeyOf>
void join(std::vector<FlatDiff>& batches,
          std::vector<Element> FlatDiff::*changes,
          auto FlatDiff::*deletes,
          KeyOf keyOf,
          FlatDiff& to) {
    using Key = typename std::decay_t<decltype(to.*deletes)>::value_type;
    absl::btree_map<Key, std::optional<Element>> last;
    for (FlatDiff& batch : batches) {
        for (Element& element : batch.*changes) {
            const Key key = keyOf(element);
            last[key] = std::move(element);
        }
        for (const Key& key : batch.*deletes) { last[key] = std::nullopt; }
    }
    for (auto& [key, element] : last) {
        if (element) {
            (to.*changes).push_back(std::move(*element));
        } else {
            (to.*deletes).push_back(key);
        }
    }
}

}  // namespace

FlatDiff joined(std::vector<FlatDiff>& batches, std::size_t written) {
    FlatDiff& first = batches.front();
    dropWritten(first.routeDeletes, written);
    dropWritten(first.vrfs, written);
    dropWritten(first.nextHops, written);
    dropWritten(first.fecs, written);
    dropWritten(first.routes, written);
    dropWritten(first.fecDeletes, written);
    dropWritten(first.nextHopDeletes, written);
    dropWritten(first.vrfDeletes, written);
    FlatDiff result;
    join(
        batches,
        &FlatDiff::vrfs,
        &FlatDiff::vrfDeletes,
        [](const FlatVrf& vrf) { return vrf.table; },
        result);
    join(
        batches,
        &FlatDiff::nextHops,
        &FlatDiff::nextHopDeletes,
        [](const FlatNextHop& nextHop) { return nextHop.index; },
        result);
    join(
        batches,
        &FlatDiff::fecs,
        &FlatDiff::fecDeletes,
        [](const FlatFec& fec) { return fec.id; },
        result);
    join(
        batches,
        &FlatDiff::routes,
        &FlatDiff::routeDeletes,
        [](const FlatRoute& route) { return route.key; },
        result);
    return result;
}

}  // namespace Pel::Forwarder
