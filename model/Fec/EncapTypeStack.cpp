#include "model/Fec/EncapTypeStack.h"

#include "platform/Vel/Errors.h"

namespace Tunnel::TunnelTable {

std::string stringValue(EncapType type) {
    switch (type) {
        case EncapType::unset:
            return "unset";
        case EncapType::mpls:
            return "mpls";
        case EncapType::udp:
            return "udp";
    }
    return std::to_string(static_cast<unsigned>(type));
}

}  // namespace Tunnel::TunnelTable

namespace Pel::Stash {

void EncapTypeStack::push(Tunnel::TunnelTable::EncapType type) {
    if (types_.size() >= kMaxEncaps) {
        throw Vel::RangeError{"Pel::Stash::EncapTypeStack::encaps > 16 not allowed"};
    }
    types_.push_back(type);
}

std::string EncapTypeStack::stringValue() const {
    std::string text = "[";
    for (const auto type : types_) {
        if (text.size() > 1) { text += ", "; }
        text += Tunnel::TunnelTable::stringValue(type);
    }
    return text + "]";
}

}  // namespace Pel::Stash
