#include "model/View/OpenConfigSummaries.h"

#include <array>
#include <string_view>
#include <utility>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "model/View/OpenConfigRoutes.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Vel/Assert.h"

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::PathTemplate;
using Nexo::AddressFamily;

namespace {

OriginProtocol protocolOf(std::optional<std::uint64_t> value) {
    return value ? OpenConfigRoutes::unpack(*value).originProtocol : OriginProtocol::unset;
}

}  // namespace

struct OpenConfigSummaries::Paths {
    struct Family {
        explicit Family(std::string_view path)
            : entry{path, OpenConfigPaths::kOrigin}, deletion{path} {}
        PathTemplate entry;
        PathTemplate deletion;
    };
    const Family& of(const EntryKey& key) const {
        return OpenConfigKeys::familyOf(key) == AddressFamily::ipv4 ? ipv4 : ipv6;
    }

    Family ipv4{OpenConfigPaths::kIpv4Summary};
    Family ipv6{OpenConfigPaths::kIpv6Summary};
    PathTemplate protocol{"origin-protocol"};
    PathTemplate stateProtocol{"state/origin-protocol"};
    PathTemplate entries{"state/counters/aft-entries"};
};

OpenConfigSummaries::OpenConfigSummaries(const OpenConfigInstances& instances)
    : ListSource{Gale::Lane::summaries}, instances_{instances}, paths_{std::make_unique<Paths>()} {}

OpenConfigSummaries::~OpenConfigSummaries() = default;

void OpenConfigSummaries::valueIs(std::uint32_t instance,
                                  AddressFamily family,
                                  std::optional<std::uint64_t> before,
                                  std::optional<std::uint64_t> now) {
    const OriginProtocol old = protocolOf(before);
    const OriginProtocol fresh = protocolOf(now);
    if (old == fresh) { return; }
    const auto keyOf = [&](OriginProtocol protocol) {
        return OpenConfigKeys::ofSummary(instance, family, static_cast<std::uint8_t>(protocol));
    };
    if (!identityName(old).empty()) {
        Count& less = count(keyOf(old));
        VEL_ASSERT(less.prefixes > 0);
        --less.prefixes;
    }
    if (!identityName(fresh).empty()) { ++count(keyOf(fresh)).prefixes; }
}

/// Marks it: it is about to change.
OpenConfigSummaries::Count& OpenConfigSummaries::count(const EntryKey& key) {
    if (last_ == counts_.end() || last_->first != key) { last_ = counts_.try_emplace(key).first; }
    Count& count = last_->second;
    if (!std::exchange(count.marked, true)) { mark(key); }
    return count;
}

std::optional<EntryKey> OpenConfigSummaries::nextKey(const std::optional<EntryKey>& after) const {
    const auto it = after ? counts_.upper_bound(*after) : counts_.begin();
    return it == counts_.end() ? std::nullopt : std::optional{it->first};
}

bool OpenConfigSummaries::encode(const EntryKey& key, Gale::EncodedEntry& to) {
    const auto counted = counts_.find(key);
    if (counted == counts_.end()) { return false; }
    counted->second.marked = false;
    if (counted->second.prefixes == 0) {
        counts_.erase(counted);
        last_ = counts_.end();
        return false;
    }
    const std::string_view protocol = identityName(static_cast<OriginProtocol>(key.lo));
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigKeys::instanceOf(key)),
                                               protocol};
    Gale::NotificationWriter writer{to.notification};
    writer.prefix(paths_->of(key).entry, keys);
    writer.leaf(paths_->protocol, {}, protocol);
    writer.leaf(paths_->stateProtocol, {}, protocol);
    writer.leaf(paths_->entries, {}, counted->second.prefixes);
    return true;
}

void OpenConfigSummaries::encodeDelete(const EntryKey& key,
                                       Gale::PackedNotification& notification) const {
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigKeys::instanceOf(key)),
                                               identityName(static_cast<OriginProtocol>(key.lo))};
    Gale::NotificationWriter{notification}.deletion(
        OpenConfigPaths::kOrigin, paths_->of(key).deletion, keys);
}

}  // namespace Pel::OcApi
