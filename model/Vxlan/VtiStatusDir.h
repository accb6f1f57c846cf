#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "model/Net/AddressFamily.h"
#include "model/Record/MirroredRecord.h"
#include "model/Vxlan/VtiStatus.h"

namespace Vxlan {

struct VtiStatusDirRecord {
    std::map<Nexo::IntfId, VtiStatus> vti;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("vti", &VtiStatusDirRecord::vti));
    }
};

/// All VXLAN tunnel interfaces of the device: few, so one record holds them, and this entity tells
/// what in it changed. A tunnel interface that comes or goes counts as a change of both its
/// addresses, set or not, and of all VLANs that it has.
class VtiStatusDir final : public Pel::MirroredRecord<VtiStatusDirRecord> {
public:
    static constexpr const char* kType = "Vxlan::VtiStatusDir";
    static constexpr const char* kPath = "interface/status/eth/vxlan";
    using MirroredRecord::MirroredRecord;

    /// Null when absent; valid until the record changes.
    const VtiStatus* vtiStatus(const Nexo::IntfId& vti) const;
    /// The local VTEP address of this family changed.
    Vel::Publisher<const Nexo::IntfId&, Nexo::V4V6>& onVtepAddr() const { return onVtepAddr_; }
    /// The VNI of this VLAN changed.
    Vel::Publisher<const Nexo::IntfId&, std::uint32_t>& onVlanVni() const { return onVlanVni_; }

private:
    void recordChanged(const VtiStatusDirRecord& previous) override;
    /// Null: there was, or is, no such interface.
    void publishDifference(const Nexo::IntfId& vti, const VtiStatus* before, const VtiStatus* now);
    mutable Vel::Publisher<const Nexo::IntfId&, Nexo::V4V6> onVtepAddr_;
    mutable Vel::Publisher<const Nexo::IntfId&, std::uint32_t> onVlanVni_;
};

}  // namespace Vxlan

template <>
struct Mesa::RecordCodec<Vxlan::VtiStatusDirRecord> {
    static std::optional<Vxlan::VtiStatusDirRecord> decode(std::string_view bytes);
    static std::string encode(const Vxlan::VtiStatusDirRecord& record);
};
