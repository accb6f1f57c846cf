#include "model/View/NativeCounters.h"

#include <array>
#include <string_view>
#include <utility>

#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

NativeCounters::NativeCounters(Vel::Ref<NextHopCountersContainer> counters,
                               Vel::Ref<NextHopContainer> nextHops,
                               const NativeLeaves<NextHopCounter>& leaves)
    : CounterList{std::move(counters), std::move(nextHops)},
      entry_{NativePaths::kCounter, NativePaths::kOrigin},
      deletion_{NativePaths::kCounter},
      leaves_{leaves} {}

void NativeCounters::write(const NextHopCounter& counter, Gale::PackedNotification& to) const {
    const OpenConfigKeys::Decimal index{counter.index.value()};
    const std::array<std::string_view, 1> keys{index};
    Gale::NotificationWriter writer{to};
    writer.prefix(entry_, keys);
    leaves_.write(writer, counter);
    writer.atomic();
}

void NativeCounters::encodeDelete(const Gale::EntryKey& key,
                                  Gale::PackedNotification& notification) const {
    const OpenConfigKeys::Decimal index{key.lo};
    const std::array<std::string_view, 1> keys{index};
    Gale::NotificationWriter{notification}.deletion(NativePaths::kOrigin, deletion_, keys);
}

}  // namespace Pel::OcApi
