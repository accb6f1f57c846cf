#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/Record/MirroredRecord.h"

namespace Tolo {

struct ConfigRecord {
    bool aftExportEnabled = false;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("aftExportEnabled", &ConfigRecord::aftExportEnabled));
    }
};

/// Management configuration of the export.
class Config final : public Pel::MirroredRecord<ConfigRecord> {
public:
    static constexpr const char* kType = "Tolo::Config";
    static constexpr const char* kPath = "mgmt/tolo/config";
    using MirroredRecord::MirroredRecord;
    bool aftExportEnabled() const { return record().aftExportEnabled; }
};

}  // namespace Tolo

template <>
struct Mesa::RecordCodec<Tolo::ConfigRecord> {
    static std::optional<Tolo::ConfigRecord> decode(std::string_view bytes);
    static std::string encode(const Tolo::ConfigRecord& record);
};
