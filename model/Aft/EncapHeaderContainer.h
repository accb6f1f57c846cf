#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "model/Aft/EncapHeader.h"

namespace Pel::OcApi {

/// The encapsulation headers of a next hop, in the order of their indexes, which may have gaps.
class EncapHeaderContainer {
public:
    bool empty() const { return headers_.empty(); }
    std::size_t size() const { return headers_.size(); }
    /// Makes room for this many headers in all.
    void reserve(std::size_t headers) { headers_.reserve(headers); }
    /// Null when no header has this index.
    const EncapHeader* encapHeader(std::uint8_t index) const {
        const auto it = at(index);
        return it != headers_.end() && it->index == index ? &*it : nullptr;
    }
    /// Adds a header, in place of any of its index.
    void encapHeaderIs(EncapHeader header) {
        const auto it = at(header.index);
        if (it != headers_.end() && it->index == header.index) {
            headers_[static_cast<std::size_t>(it - headers_.begin())] = std::move(header);
        } else {
            headers_.insert(it, std::move(header));
        }
    }
    auto begin() const { return headers_.begin(); }
    auto end() const { return headers_.end(); }
    friend bool operator==(const EncapHeaderContainer&, const EncapHeaderContainer&) = default;

private:
    std::vector<EncapHeader>::const_iterator at(std::uint8_t index) const {
        auto it = headers_.begin();
        while (it != headers_.end() && it->index < index) { ++it; }
        return it;
    }
    std::vector<EncapHeader> headers_;
};

}  // namespace Pel::OcApi
