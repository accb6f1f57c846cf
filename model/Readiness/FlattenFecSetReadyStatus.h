#pragma once

#include "model/Readiness/ReadyRecord.h"
#include "model/Record/MirroredRecord.h"

namespace Pel {

/// Says that the producer has published the whole flattened FEC set. Record: ReadyRecord.
class FlattenFecSetReadyStatus final : public MirroredRecord<ReadyRecord> {
public:
    static constexpr const char* kType = "Pel::FlattenFecSetReadyStatus";
    static constexpr const char* kPath = "hardware/pel/fecReadyStatus";
    using MirroredRecord::MirroredRecord;
    bool fecReady() const { return record().ready; }
    Vel::Publisher<>& onFecReady() const { return onRecord(); }
};

}  // namespace Pel
