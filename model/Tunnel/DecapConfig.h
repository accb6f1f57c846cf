#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "model/Record/MirroredRecord.h"
#include "model/Tunnel/PayloadType.h"

namespace Tunnel::Decap {

/// A group of tunnels that end here.
struct DecapGroup {
    PayloadType payloadType = PayloadType::none;
    std::uint16_t dPort = 0;  ///< UDP destination port
    static constexpr auto fields() {
        return Vel::fields(Vel::field("payloadType", &DecapGroup::payloadType),
                           Vel::field("dPort", &DecapGroup::dPort));
    }
    friend bool operator==(const DecapGroup&, const DecapGroup&) = default;
};

struct ConfigRecord {
    std::map<std::string, DecapGroup> decapGroup;  ///< by name
    static constexpr auto fields() {
        return Vel::fields(Vel::field("decapGroup", &ConfigRecord::decapGroup));
    }
};

/// Decap groups of one source: the command line, or one dynamic source.
class ConfigInput final : public Pel::MirroredRecord<ConfigRecord> {
public:
    static constexpr const char* kType = "Tunnel::Decap::ConfigInput";
    static constexpr const char* kPath = "routing/tunneldecap/input/cli";
    /// Directory of the dynamic sources.
    static constexpr const char* kDynamicPath = "routing/tunneldecap/input/dynamic";
    using MirroredRecord::MirroredRecord;
};

/// Decap groups of all sources, merged in this process.
class Config final : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    const ConfigRecord& record() const { return record_; }
    void recordIs(ConfigRecord record) {
        if (Vel::isEq(record_, record)) { return; }
        record_ = std::move(record);
        changed_.publish();
    }
    Vel::Publisher<>& onRecord() const { return changed_; }

private:
    ConfigRecord record_;
    mutable Vel::Publisher<> changed_;
};

}  // namespace Tunnel::Decap

template <>
struct Mesa::RecordCodec<Tunnel::Decap::ConfigRecord> {
    static std::optional<Tunnel::Decap::ConfigRecord> decode(std::string_view bytes);
    static std::string encode(const Tunnel::Decap::ConfigRecord& record);
};
