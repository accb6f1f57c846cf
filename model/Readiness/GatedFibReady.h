#pragma once

#include "model/Readiness/ReadyRecord.h"
#include "model/Record/MirroredRecord.h"

namespace GatedReady {

/// Says that the FIB of one VRF, whose name the entity bears, is complete. Record: ReadyRecord, at
/// the cell-specific path of "routing/fibReady" + "/" + VRF name.
class FibReady final : public Pel::MirroredRecord<Pel::ReadyRecord> {
public:
    static constexpr const char* kType = "GatedReady::FibReady";
    static constexpr const char* kDirPath = "routing/fibReady";
    using MirroredRecord::MirroredRecord;
    bool ready() const { return record().ready; }
    Vel::Publisher<>& onReady() const { return onRecord(); }
};

}  // namespace GatedReady
