#pragma once

#include <cstdint>

#include "model/Aft/NextHopGroupContainer.h"
#include "model/Net/AddressFamily.h"
#include "model/Route/RouteStatus.h"
#include "model/View/OpenConfigRoutes.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// The programmed routes of one VRF and family as prefix entries of the OpenConfig view. A route
/// without a FEC, or of another family than its table's, is not shown, and none is while there are no
/// groups at all: the export is off then, and what its prefixes would name is gone.
class OpenConfigRouteTable final : public Gale::ListSource {
public:
    using Table = Mesa::TypedTable<Nexo::IpPrefix, Mesa::FibRoute>;

    /// `routes` outlives this object. Without a container of groups all routes are shown.
    OpenConfigRouteTable(Vel::Ref<Table> table,
                         Nexo::AddressFamily family,
                         std::uint32_t instance,
                         const OpenConfigRoutes& routes,
                         Vel::Ref<const NextHopGroupContainer> groups);

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    const Vel::Ref<Table> table_;
    const Nexo::AddressFamily family_;
    const std::uint32_t instance_;
    void handleGroup();

    const OpenConfigRoutes& routes_;
    const Vel::Ref<const NextHopGroupContainer> groups_;
    bool shown_;  // some group is there
    Vel::Subscription onGroup_;
    Vel::Subscription onKey_;
    Vel::Subscription onPresent_;
};

}  // namespace Pel::OcApi
