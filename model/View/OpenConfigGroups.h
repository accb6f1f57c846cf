#pragma once

#include <memory>

#include "model/Aft/NextHopGroupContainer.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// The AFT's next-hop groups as entries of the OpenConfig view, all of them in the default instance.
class OpenConfigGroups final : public Gale::ListSource {
public:
    /// `instances` outlives this object.
    OpenConfigGroups(Vel::Ref<NextHopGroupContainer> groups, const OpenConfigInstances& instances);
    ~OpenConfigGroups() override;

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;
    bool pending(const Gale::EntryKey& key) const override;

private:
    struct Paths;

    const Vel::Ref<NextHopGroupContainer> groups_;
    const OpenConfigInstances& instances_;
    const std::unique_ptr<const Paths> paths_;
    Vel::Subscription onGroup_;
    Vel::Subscription onProcessed_;
};

}  // namespace Pel::OcApi
