#pragma once

#include <cstdint>
#include <optional>

#include "model/Aft/EncapHeaderContainer.h"
#include "model/Aft/NextHopIndex.h"
#include "model/Net/EthAddr.h"
#include "model/Net/InternedName.h"
#include "model/Net/IntfId.h"
#include "model/Net/IpGenAddr.h"
#include "model/Net/MplsLabelStack.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

/// One AFT next hop with its state. There may be a million: no strings inside.
struct NextHop {
    NextHopIndex index;
    Nexo::IntfId interface;  ///< of a subinterface: the parent
    std::optional<std::uint32_t> subinterface;
    Nexo::IpGenAddr ipAddress;  ///< none: not shown
    Nexo::EthAddr macAddress;   ///< zero: not shown
    bool popTopLabel = false;
    EncapHeaderType decapsulateHeader = EncapHeaderType::unset;
    Nexo::MplsLabelStack pushedMplsLabelStack;
    EncapHeaderContainer encapHeaders;
    Nexo::InternedName decapNetworkInstance;     ///< VRF name; empty: not shown
    Nexo::InternedName fallbackNetworkInstance;  ///< VRF name; empty: not shown

    static constexpr auto fields() {
        return Vel::fields(
            Vel::field("index", &NextHop::index),
            Vel::field("interface", &NextHop::interface),
            Vel::field("subinterface", &NextHop::subinterface),
            Vel::field("ipAddress", &NextHop::ipAddress),
            Vel::field("macAddress", &NextHop::macAddress),
            Vel::field("popTopLabel", &NextHop::popTopLabel),
            Vel::field("decapsulateHeader", &NextHop::decapsulateHeader),
            Vel::field("pushedMplsLabelStack", &NextHop::pushedMplsLabelStack),
            Vel::field("encapHeaders", &NextHop::encapHeaders),
            Vel::field("decapNetworkInstance", &NextHop::decapNetworkInstance),
            Vel::field("fallbackNetworkInstance", &NextHop::fallbackNetworkInstance));
    }
    friend bool operator==(const NextHop& a, const NextHop& b) { return Vel::isEq(a, b); }
};

}  // namespace Pel::OcApi
