#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "model/Aft/NextHopGroupContainer.h"
#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigRoutes.h"
#include "model/View/OpenConfigSummaries.h"
#include "model/View/RouteTables.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// One table of the shared memory as a list of prefixes. A key of another family than the table's is
/// passed over: it would speak for an entry of the other family's table.
class RouteTable : public Gale::ListSource {
public:
    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;

protected:
    RouteTable(Vel::Ref<RouteTables::Table> table,
               Nexo::AddressFamily family,
               std::uint32_t instance);
    std::optional<Mesa::FibRoute> read(const Gale::EntryKey& key) const {
        return table_->read(OpenConfigKeys::prefixOf(key));
    }

private:
    const Vel::Ref<RouteTables::Table> table_;
    const Nexo::AddressFamily family_;
    const std::optional<Nexo::IpPrefix> start_;
    const std::uint32_t instance_;
    Vel::Subscription onKey_;
    Vel::Subscription onPresent_;
};

/// In the OpenConfig view. A route without a FEC is not shown, and none is while there are no groups
/// at all: the export is off then, and what its prefixes would name is gone.
class OpenConfigRouteTable final : public RouteTable {
public:
    /// `routes` and `summaries` outlive this object. Without a container of groups all routes are shown.
    OpenConfigRouteTable(Vel::Ref<RouteTables::Table> table,
                         Nexo::AddressFamily family,
                         std::uint32_t instance,
                         const OpenConfigRoutes& routes,
                         Vel::Ref<const NextHopGroupContainer> groups,
                         OpenConfigSummaries& summaries);

    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;
    void shownIs(const Gale::EntryKey& key,
                 std::optional<std::uint64_t> before,
                 std::optional<std::uint64_t> now) override;

private:
    void handleGroup();

    const OpenConfigRoutes& routes_;
    const Vel::Ref<const NextHopGroupContainer> groups_;
    OpenConfigSummaries& summaries_;
    bool shown_;  // some group is there
    Vel::Subscription onGroup_;
};

}  // namespace Pel::OcApi
