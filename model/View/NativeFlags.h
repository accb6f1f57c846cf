#pragma once

#include <optional>

#include "model/Aft/StateSyncedContainer.h"
#include "model/View/NativeLeaves.h"
#include "model/View/OpenConfigInstances.h"
#include "model/View/StateSyncedFlags.h"
#include "platform/Gale/ListSource.h"
#include "platform/Gale/PathTemplate.h"

namespace Pel::OcApi {

/// Whether a VRF's state is synced: the entities of the tree's directory "stateSynced", which comes
/// when the export is switched on.
class NativeStateSynced final : public Gale::ListSource {
public:
    /// `root` holds the directory; `instances` and `leaves` outlive this object.
    NativeStateSynced(Vel::Ref<Vel::Dir> root,
                      OpenConfigInstances& instances,
                      const NativeLeaves<StateSyncedContainer>& leaves);

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    const Gale::PathTemplate entry_;
    const Gale::PathTemplate deletion_;
    const Gale::PathTemplate name_{"name"};
    const OpenConfigInstances& instances_;
    const NativeLeaves<StateSyncedContainer>& leaves_;
    const StateSyncedFlags flags_;
};

}  // namespace Pel::OcApi
