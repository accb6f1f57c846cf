#pragma once

#include <absl/container/btree_set.h>
#include <absl/functional/function_ref.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>

#include "model/Fec/FecId.h"

namespace Pel::Forwarder {

/// Which FECs depend on a thing (a nexthop object, an adjacency), and a queue of things that
/// changed. A thing with a hundred thousand FECs is visited in slices: the walk keeps its place
/// between calls.
template <class Key>
class FanOut {
public:
    void add(Key key, FecId fec) { edges_.insert({key, fec}); }
    void remove(Key key, FecId fec) { edges_.erase({key, fec}); }

    /// Queues the FECs of `key` for a visit.
    void changed(Key key) { queue_.push_back(key); }
    bool idle() const { return queue_.empty(); }

    /// Visits queued FECs, each costing one of `budget`; stops when either is used up.
    void visit(std::size_t& budget, absl::FunctionRef<void(FecId)> visitor) {
        while (!queue_.empty() && budget > 0) {
            --budget;
            const Key key = queue_.front();
            const auto edge = edges_.upper_bound({key, bookmark_});
            if (edge == edges_.end() || edge->first != key) {
                queue_.pop_front();
                bookmark_ = {};
                continue;
            }
            bookmark_ = edge->second;
            visitor(bookmark_);
        }
    }

private:
    absl::btree_set<std::pair<Key, FecId>> edges_;
    std::deque<Key> queue_;
    FecId bookmark_;  // last FEC visited for the front of the queue
};

}  // namespace Pel::Forwarder
