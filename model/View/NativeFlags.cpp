#include "model/View/NativeFlags.h"

#include <array>
#include <utility>

#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::NotificationWriter;

NativeStateSynced::NativeStateSynced(Vel::Ref<Vel::Dir> root,
                                     OpenConfigInstances& instances,
                                     const NativeLeaves<StateSyncedContainer>& leaves)
    : ListSource{Gale::Lane::flags},
      entry_{NativePaths::kStateSynced, NativePaths::kOrigin},
      deletion_{NativePaths::kStateSynced},
      instances_{instances},
      leaves_{leaves},
      flags_{std::move(root), instances, [this](std::uint32_t vrf) {
                 mark(OpenConfigKeys::ofInstance(vrf));
             }} {}

std::optional<EntryKey> NativeStateSynced::nextKey(const std::optional<EntryKey>& after) const {
    const auto vrf = flags_.next(after ? std::optional{OpenConfigKeys::instanceOf(*after)}
                                       : std::optional<std::uint32_t>{});
    if (!vrf) { return std::nullopt; }
    return OpenConfigKeys::ofInstance(*vrf);
}

bool NativeStateSynced::encode(const EntryKey& key, Gale::EncodedEntry& to) {
    const std::uint32_t vrf = OpenConfigKeys::instanceOf(key);
    const StateSyncedContainer* const flags = flags_.find(vrf);
    if (flags == nullptr) { return false; }
    const std::array<std::string_view, 1> keys{instances_.name(vrf)};
    NotificationWriter writer{to.notification};
    writer.prefix(entry_, keys);
    writer.leaf(name_, {}, keys[0]);
    leaves_.write(writer, *flags);
    writer.atomic();
    return true;
}

void NativeStateSynced::encodeDelete(const EntryKey& key,
                                     Gale::PackedNotification& notification) const {
    const std::array<std::string_view, 1> keys{instances_.name(OpenConfigKeys::instanceOf(key))};
    NotificationWriter{notification}.deletion(NativePaths::kOrigin, deletion_, keys);
}

}  // namespace Pel::OcApi
