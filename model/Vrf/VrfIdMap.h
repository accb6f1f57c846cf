#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/Vrf/VrfId.h"
#include "model/Vrf/VrfName.h"
#include "platform/Mesa/Table.h"
#include "platform/Vel/Fields.h"

namespace Vrf::VrfIdMap {

struct Entry {
    VrfName vrfName;
    static constexpr auto fields() { return Vel::fields(Vel::field("vrfName", &Entry::vrfName)); }
};

/// VRF id to VRF name, a shared-memory table.
class Status final : public Mesa::TypedTable<VrfId, Entry> {
public:
    static constexpr const char* kType = "Vrf::VrfIdMap::Status";
    static constexpr const char* kPath = "vrf/vrfIdMapStatus";
    explicit Status(const std::string& path) : TypedTable{path, kType} {}
};

}  // namespace Vrf::VrfIdMap

/// A name beyond VrfName's length does not verify.
template <>
struct Mesa::RecordCodec<Vrf::VrfIdMap::Entry> {
    static std::optional<Vrf::VrfIdMap::Entry> decode(std::string_view bytes);
    static std::string encode(const Vrf::VrfIdMap::Entry& record);
};
