#include "model/View/NativeRoutes.h"

#include <array>
#include <utility>

#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "model/Vrf/VrfName.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

namespace {
constexpr unsigned kProtocolShift = 60;
constexpr std::uint64_t kRefersNot = std::uint64_t{1} << 59U;
constexpr std::uint64_t kFecMask = kRefersNot - 1;
}  // namespace

std::string nativeRoutePath(Nexo::AddressFamily family, bool inDefault) {
    std::string table =
        Mesa::fibTableMountPath(family, inDefault ? Vrf::kDefaultVrfName : "", "rib");
    if (!inDefault) { table.pop_back(); }
    return NativePaths::kTables + table +
           (inDefault ? NativePaths::kDefaultRoute : NativePaths::kVrfRoute);
}

NativeRoutes::Paths::Paths(const std::string& path)
    : entry{path, NativePaths::kOrigin}, deletion{path} {}

NativeRoutes::Family::Family(Nexo::AddressFamily family)
    : inDefault{nativeRoutePath(family, true)}, inVrf{nativeRoutePath(family, false)} {}

NativeRoutes::NativeRoutes(const OpenConfigInstances& instances)
    : instances_{instances}, ipv4_{Nexo::AddressFamily::ipv4}, ipv6_{Nexo::AddressFamily::ipv6} {}

std::optional<std::uint64_t> NativeRoutes::pack(const Mesa::FibRoute& route, bool refers) {
    const auto protocol = static_cast<std::uint64_t>(route.originProtocol);
    const std::uint64_t fec = route.fecId.value();
    if (fec > kFecMask || protocol > 0xF) { return std::nullopt; }
    return protocol << kProtocolShift | (refers ? 0 : kRefersNot) | fec;
}

Gale::Reference NativeRoutes::referenceOf(std::uint64_t value) {
    if ((value & kRefersNot) != 0) { return {Gale::Lane::summaries, {}}; }
    return {Gale::Lane::groups, OpenConfigKeys::ofNumber(value & kFecMask)};
}

const NativeRoutes::Paths& NativeRoutes::paths(const Gale::EntryKey& key) const {
    const Family& family =
        OpenConfigKeys::familyOf(key) == Nexo::AddressFamily::ipv4 ? ipv4_ : ipv6_;
    return OpenConfigKeys::instanceOf(key) == OpenConfigInstances::kDefault ? family.inDefault
                                                                            : family.inVrf;
}

void NativeRoutes::encode(const Gale::EntryKey& key,
                          const Mesa::FibRoute& route,
                          Gale::PackedNotification& notification) const {
    const std::uint32_t instance = OpenConfigKeys::instanceOf(key);
    const OpenConfigKeys::PrefixText prefix{OpenConfigKeys::prefixOf(key)};
    const std::array<std::string_view, 2> keys{instances_.name(instance), prefix};
    Gale::NotificationWriter writer{notification};
    writer.prefix(paths(key).entry,
                  instance == OpenConfigInstances::kDefault ? std::span{keys}.subspan(1) : keys);
    writer.leaf(prefix_, {}, keys[1]);
    leaves_.write(writer, route);
    writer.atomic();
}

void NativeRoutes::encode(const Gale::EntryKey& key,
                          std::uint64_t value,
                          Gale::PackedNotification& notification) const {
    const Mesa::FibRoute route{FecId{value & kFecMask},
                               static_cast<OriginProtocol>(value >> kProtocolShift)};
    encode(key, route, notification);
}

void NativeRoutes::encodeDelete(const Gale::EntryKey& key,
                                Gale::PackedNotification& notification) const {
    const std::uint32_t instance = OpenConfigKeys::instanceOf(key);
    const OpenConfigKeys::PrefixText prefix{OpenConfigKeys::prefixOf(key)};
    const std::array<std::string_view, 2> keys{instances_.name(instance), prefix};
    Gale::NotificationWriter{notification}.deletion(
        NativePaths::kOrigin,
        paths(key).deletion,
        instance == OpenConfigInstances::kDefault ? std::span{keys}.subspan(1) : keys);
}

NativeRouteTable::NativeRouteTable(Vel::Ref<RouteTables::Table> table,
                                   Nexo::AddressFamily family,
                                   std::uint32_t instance,
                                   const NativeRoutes& routes,
                                   Vel::Ref<const NextHopGroupContainer> groups)
    : RouteTable{std::move(table), family, instance}, routes_{routes}, groups_{std::move(groups)} {}

bool NativeRouteTable::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const auto route = read(key);
    if (!route) { return false; }
    // Without any groups (the export is off) a million routes would wait for theirs in vain.
    const bool refers = route->fecId && groups_ && groups_->size() > 0;
    to.value = NativeRoutes::pack(*route, refers);
    if (to.value) { return true; }
    routes_.encode(key, *route, to.notification);
    if (refers) {
        to.references.push_back(
            {Gale::Lane::groups, OpenConfigKeys::ofNumber(route->fecId.value())});
    }
    return true;
}

void NativeRouteTable::encodeDelete(const Gale::EntryKey& key,
                                    Gale::PackedNotification& notification) const {
    routes_.encodeDelete(key, notification);
}

}  // namespace Pel::OcApi
