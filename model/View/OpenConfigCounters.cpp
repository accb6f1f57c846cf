#include "model/View/OpenConfigCounters.h"

#include <array>
#include <string_view>
#include <utility>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;
using OpenConfigKeys::Decimal;

struct OpenConfigCounters::Paths {
    PathTemplate entry{OpenConfigPaths::kCounter, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kCounter};
    PathTemplate index{"index"};
    PathTemplate stateIndex{"state/index"};
    PathTemplate packets{"state/packets-forwarded"};
    PathTemplate octets{"state/octets-forwarded"};
};

OpenConfigCounters::OpenConfigCounters(Vel::Ref<NextHopCountersContainer> counters,
                                       Vel::Ref<NextHopContainer> nextHops,
                                       const OpenConfigInstances& instances)
    : CounterList{std::move(counters), std::move(nextHops)},
      instances_{instances},
      paths_{std::make_unique<Paths>()} {}

OpenConfigCounters::~OpenConfigCounters() = default;

void OpenConfigCounters::write(const NextHopCounter& counter, Gale::PackedNotification& to) const {
    const std::uint64_t number = counter.index.value();
    const Decimal index{number};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    NotificationWriter writer{to};
    writer.prefix(paths_->entry, keys);
    writer.leaf(paths_->index, {}, number);
    writer.leaf(paths_->stateIndex, {}, number);
    writer.leaf(paths_->packets, {}, counter.packetsForwarded);
    if (counter.packetsForwarded > 0 && counter.octetsForwarded == 0) {
        // Packets without octets: these are not known. What is not atomic does not say by leaving a
        // leaf out that it has gone.
        writer.leafDeletion(paths_->octets, {});
    } else {
        writer.leaf(paths_->octets, {}, counter.octetsForwarded);
    }
}

void OpenConfigCounters::encodeDelete(const Gale::EntryKey& key,
                                      Gale::PackedNotification& notification) const {
    const Decimal index{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    NotificationWriter{notification}.deletion(OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

}  // namespace Pel::OcApi
