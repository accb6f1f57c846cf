#pragma once

#include <absl/container/inlined_vector.h>

#include <string>

#include "model/Net/MplsLabel.h"
#include "model/Net/MplsStackEntryIndex.h"

namespace Nexo {

/// Labels, position 0 the top of the stack, as on the wire. A stack as it was received may be
/// deeper than can be read: only the positions of MplsStackEntryIndex can.
class MplsLabelStack {
public:
    std::uint32_t labels() const { return static_cast<std::uint32_t>(labels_.size()); }
    bool empty() const { return labels_.empty(); }
    /// The label at a position below labels(); null raises the index's RangeError.
    MplsLabel label(MplsStackEntryIndex index) const {
        if (index.isNull() || index.value() >= labels()) { MplsStackEntryIndex::raise(); }
        return labels_[index.value()];
    }
    /// Adds a label below all others.
    void push(MplsLabel label) { labels_.push_back(label); }
    void clear() { labels_.clear(); }
    auto begin() const { return labels_.begin(); }
    auto end() const { return labels_.end(); }
    /// "[100, 200]", top first.
    std::string stringValue() const;
    friend bool operator==(const MplsLabelStack&, const MplsLabelStack&) = default;

private:
    absl::InlinedVector<MplsLabel, 4> labels_;
};

}  // namespace Nexo
