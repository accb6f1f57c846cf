#include "model/View/OpenConfigRouteTable.h"

#include <utility>

#include "model/View/OpenConfigKeys.h"

namespace Pel::OcApi {

OpenConfigRouteTable::OpenConfigRouteTable(Vel::Ref<Table> table,
                                           Nexo::AddressFamily family,
                                           std::uint32_t instance,
                                           const OpenConfigRoutes& routes,
                                           Vel::Ref<const NextHopGroupContainer> groups)
    : ListSource{Gale::Lane::prefixes},
      table_{std::move(table)},
      family_{family},
      instance_{instance},
      routes_{routes},
      groups_{std::move(groups)},
      shown_{!groups_ || groups_->size() > 0} {
    if (groups_) {
        onGroup_ = groups_->onNextHopGroupOrClear().subscribe(
            [this](const NextHopGroupId* /*id*/) { handleGroup(); });
    }
    onKey_ = table_->onKey().subscribe([this](const Nexo::IpPrefix& prefix) {
        mark(OpenConfigKeys::ofPrefix(instance_, prefix));
    });
    // What was swept in before is told as one.
    onPresent_ = table_->onPresent().subscribe([this] {
        if (table_->present()) { markAll(); }
    });
}

void OpenConfigRouteTable::handleGroup() {
    const bool shown = groups_->size() > 0;
    if (std::exchange(shown_, shown) != shown) { markAll(); }
}

std::optional<Gale::EntryKey> OpenConfigRouteTable::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto prefix = table_->nextKey(after ? std::optional{OpenConfigKeys::prefixOf(*after)}
                                              : std::optional<Nexo::IpPrefix>{});
    if (!prefix) { return std::nullopt; }
    return OpenConfigKeys::ofPrefix(instance_, *prefix);
}

bool OpenConfigRouteTable::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    if (!shown_ || OpenConfigKeys::familyOf(key) != family_) { return false; }
    const auto route = table_->read(OpenConfigKeys::prefixOf(key));
    if (!route || !route->fecId) { return false; }
    to.value = OpenConfigRoutes::pack(*route);
    if (!to.value) {
        routes_.encode(key, *route, to.notification);
        to.references.push_back(OpenConfigRoutes::referenceOf(*route));
    }
    return true;
}

void OpenConfigRouteTable::encodeDelete(const Gale::EntryKey& key,
                                        Gale::PackedNotification& notification) const {
    routes_.encodeDelete(key, notification);
}

}  // namespace Pel::OcApi
