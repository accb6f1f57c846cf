#include "model/View/RouteTable.h"

#include <utility>

namespace Pel::OcApi {
namespace {

/// The key after which those of this family begin: prefixes are ordered by family.
std::optional<Nexo::IpPrefix> startOf(Nexo::AddressFamily family) {
    if (family == Nexo::AddressFamily::ipv4) { return std::nullopt; }
    return Nexo::IpPrefix::parse("255.255.255.255/32");
}

}  // namespace

RouteTable::RouteTable(Vel::Ref<RouteTables::Table> table,
                       Nexo::AddressFamily family,
                       std::uint32_t instance)
    : ListSource{Gale::Lane::prefixes},
      table_{std::move(table)},
      family_{family},
      start_{startOf(family)},
      instance_{instance} {
    onKey_ = table_->onKey().subscribe([this](const Nexo::IpPrefix& prefix) {
        if (prefix.address().family() == family_) {
            mark(OpenConfigKeys::ofPrefix(instance_, prefix));
        }
    });
    // What was swept in before is told as one.
    onPresent_ = table_->onPresent().subscribe([this] {
        if (table_->present()) { markAll(); }
    });
}

std::optional<Gale::EntryKey> RouteTable::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto prefix = table_->nextKey(after ? OpenConfigKeys::prefixOf(*after) : start_);
    if (!prefix || prefix->address().family() != family_) { return std::nullopt; }
    return OpenConfigKeys::ofPrefix(instance_, *prefix);
}

OpenConfigRouteTable::OpenConfigRouteTable(Vel::Ref<RouteTables::Table> table,
                                           Nexo::AddressFamily family,
                                           std::uint32_t instance,
                                           const OpenConfigRoutes& routes,
                                           Vel::Ref<const NextHopGroupContainer> groups,
                                           OpenConfigSummaries& summaries)
    : RouteTable{std::move(table), family, instance},
      routes_{routes},
      groups_{std::move(groups)},
      summaries_{summaries},
      shown_{!groups_ || groups_->size() > 0} {
    if (groups_) {
        onGroup_ = groups_->onNextHopGroupOrClear().subscribe(
            [this](const NextHopGroupId* /*id*/) { handleGroup(); });
    }
}

void OpenConfigRouteTable::handleGroup() {
    const bool shown = groups_->size() > 0;
    if (std::exchange(shown_, shown) != shown) { markAll(); }
}

bool OpenConfigRouteTable::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    if (!shown_) { return false; }
    const auto route = read(key);
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

void OpenConfigRouteTable::shownIs(const Gale::EntryKey& key,
                                   std::optional<std::uint64_t> before,
                                   std::optional<std::uint64_t> now) {
    summaries_.valueIs(OpenConfigKeys::instanceOf(key), OpenConfigKeys::familyOf(key), before, now);
}

}  // namespace Pel::OcApi
