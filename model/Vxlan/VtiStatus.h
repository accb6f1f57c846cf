#pragma once

#include <cstdint>
#include <map>

#include "model/Net/IntfId.h"
#include "model/Net/IpGenAddr.h"
#include "platform/Vel/Fields.h"

namespace Vxlan {

/// Status of one VXLAN tunnel interface.
struct VtiStatus {
    Nexo::IntfId name;
    Nexo::IpGenAddr vtepAddr;    ///< local, IPv4; none when there is none
    Nexo::IpGenAddr vtepAddrV6;  ///< local, IPv6
    std::map<std::uint32_t, std::uint32_t> vlanVniMap;

    static constexpr auto fields() {
        return Vel::fields(Vel::field("name", &VtiStatus::name),
                           Vel::field("vtepAddr", &VtiStatus::vtepAddr),
                           Vel::field("vtepAddrV6", &VtiStatus::vtepAddrV6),
                           Vel::field("vlanVniMap", &VtiStatus::vlanVniMap));
    }
    friend bool operator==(const VtiStatus& a, const VtiStatus& b) { return Vel::isEq(a, b); }
};

}  // namespace Vxlan
