#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Mesa/Table.h"
#include "platform/Vel/Fields.h"

namespace Pel {

/// What a producer says when something is complete.
struct ReadyRecord {
    bool ready = false;
    static constexpr auto fields() { return Vel::fields(Vel::field("ready", &ReadyRecord::ready)); }
};

}  // namespace Pel

template <>
struct Mesa::RecordCodec<Pel::ReadyRecord> {
    static std::optional<Pel::ReadyRecord> decode(std::string_view bytes);
    static std::string encode(const Pel::ReadyRecord& record);
};
