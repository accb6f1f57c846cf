#pragma once

#include <string>
#include <vector>

#include "model/Fec/FecId.h"
#include "model/Fec/FlattenFecEntry.h"
#include "model/Fec/FlattenNextHopEntry.h"
#include "platform/Stash/Set.h"

namespace Pel {

/// The flattened FEC set: FECs and next hops, each entry naming its deduplicated record. A producer
/// publishes "<path>/fec" and "<path>/nextHop" under the types below.
class FlattenFecSet final : public Stash::Set {
public:
    static constexpr const char* kType = "Pel::FlattenFecSet";
    static constexpr const char* kPath = "hardware/pel/ocAft";
    static constexpr const char* kFecCollection = "fec";
    static constexpr const char* kFecType = "Pel::FlattenFecEntry";
    static constexpr const char* kNextHopCollection = "nextHop";
    static constexpr const char* kNextHopType = "Pel::FlattenNextHopEntry";
    using FecCollection = Stash::SetCollection<FecId, FlattenFecEntry>;
    using NextHopCollection = Stash::SetCollection<Stash::OcNextHopIndex, FlattenNextHopEntry>;

    explicit FlattenFecSet(std::string path);

    const FecCollection& fec() const { return fec_; }
    const NextHopCollection& nextHop() const { return nextHop_; }

    void mountIs(Store::Reader& reader, const std::vector<std::string>& collections) override;
    bool ready() const override { return ready_; }

private:
    void handlePresent();

    FecCollection fec_;
    NextHopCollection nextHop_;
    bool fecMounted_ = false;
    bool nextHopMounted_ = false;
    bool ready_ = false;
    Vel::Subscription onFecPresent_;
    Vel::Subscription onNextHopPresent_;
};

}  // namespace Pel
