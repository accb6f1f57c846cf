#include "model/View/OpenConfigRoutes.h"

#include <array>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

namespace {
constexpr unsigned kProtocolShift = 60;
constexpr std::uint64_t kFecMask = (std::uint64_t{1} << kProtocolShift) - 1;
}  // namespace

OpenConfigRoutes::Family::Family(std::string_view entryPath)
    : entry{entryPath, OpenConfigPaths::kOrigin}, deletion{entryPath} {}

OpenConfigRoutes::OpenConfigRoutes(const OpenConfigInstances& instances)
    : instances_{instances},
      ipv4_{OpenConfigPaths::kIpv4Entry},
      ipv6_{OpenConfigPaths::kIpv6Entry},
      prefix_{"prefix"},
      statePrefix_{"state/prefix"},
      group_{"state/next-hop-group"},
      groupInstance_{"state/next-hop-group-network-instance"},
      originProtocol_{"state/origin-protocol"} {}

std::optional<std::uint64_t> OpenConfigRoutes::pack(const Mesa::FibRoute& route) {
    const auto protocol = static_cast<std::uint64_t>(route.originProtocol);
    const std::uint64_t fec = route.fecId.value();
    if (fec > kFecMask || protocol > 0xF) { return std::nullopt; }
    return protocol << kProtocolShift | fec;
}

Mesa::FibRoute OpenConfigRoutes::unpack(std::uint64_t value) {
    return {FecId{value & kFecMask}, static_cast<OriginProtocol>(value >> kProtocolShift)};
}

Gale::Reference OpenConfigRoutes::referenceOf(const Mesa::FibRoute& route) {
    return {Gale::Lane::groups, OpenConfigKeys::ofNumber(route.fecId.value())};
}

const OpenConfigRoutes::Family& OpenConfigRoutes::family(const Gale::EntryKey& key) const {
    return OpenConfigKeys::familyOf(key) == Nexo::AddressFamily::ipv4 ? ipv4_ : ipv6_;
}

void OpenConfigRoutes::encode(const Gale::EntryKey& key,
                              const Mesa::FibRoute& route,
                              Gale::PackedNotification& notification) const {
    const std::uint32_t instance = OpenConfigKeys::instanceOf(key);
    const OpenConfigKeys::PrefixText prefix{OpenConfigKeys::prefixOf(key)};
    const std::array<std::string_view, 2> keys{instances_.name(instance), prefix};
    Gale::NotificationWriter writer{notification};
    writer.prefix(family(key).entry, keys);
    writer.leaf(prefix_, {}, keys[1]);
    writer.leaf(statePrefix_, {}, keys[1]);
    writer.leaf(group_, {}, route.fecId.value());
    // All groups are in the default instance.
    if (instance != OpenConfigInstances::kDefault) {
        writer.leaf(groupInstance_, {}, instances_.name(OpenConfigInstances::kDefault));
    }
    const std::string_view protocol = identityName(route.originProtocol);
    if (!protocol.empty()) { writer.leaf(originProtocol_, {}, protocol); }
    writer.atomic();
}

void OpenConfigRoutes::encodeDelete(const Gale::EntryKey& key,
                                    Gale::PackedNotification& notification) const {
    const OpenConfigKeys::PrefixText prefix{OpenConfigKeys::prefixOf(key)};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigKeys::instanceOf(key)),
                                               prefix};
    Gale::NotificationWriter{notification}.deletion(
        OpenConfigPaths::kOrigin, family(key).deletion, keys);
}

}  // namespace Pel::OcApi
