#include "model/View/NativeFlags.h"

#include <array>
#include <utility>

#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::NotificationWriter;

namespace {
constexpr const char* kDirName = "stateSynced";
}

NativeStateSynced::NativeStateSynced(Vel::Ref<Vel::Dir> root,
                                     OpenConfigInstances& instances,
                                     const NativeLeaves<StateSyncedContainer>& leaves)
    : ListSource{Gale::Lane::flags},
      entry_{NativePaths::kStateSynced, NativePaths::kOrigin},
      deletion_{NativePaths::kStateSynced},
      root_{std::move(root)},
      instances_{instances},
      leaves_{leaves} {
    onRoot_ = root_->onEntity().subscribe([this](const std::string& name) {
        if (name == kDirName) { handleDir(); }
    });
    handleDir();
}

void NativeStateSynced::handleDir() {
    dir_ = root_->entity<Vel::Dir>(kDirName);
    onDir_.reset();
    for (const auto& [number, known] : std::exchange(known_, {})) {
        mark(OpenConfigKeys::ofInstance(number));
    }
    if (!dir_) { return; }
    onDir_ = dir_->onEntity().subscribe([this](const std::string& name) { handleEntity(name); });
    for (const auto& [name, entity] : dir_->entities()) { handleEntity(name); }
}

void NativeStateSynced::handleEntity(const std::string& vrf) {
    const std::uint32_t number = instances_.number(vrf);
    const EntryKey key = OpenConfigKeys::ofInstance(number);
    known_.erase(number);
    if (auto entity = dir_->entity<StateSyncedContainer>(vrf)) {
        Known& known = known_[number];
        const auto handleFlag = [this, key] { mark(key); };
        known.onFlag.push_back(entity->onIpv4Unicast().subscribe(handleFlag));
        known.onFlag.push_back(entity->onIpv6Unicast().subscribe(handleFlag));
        known.entity = std::move(entity);
    }
    mark(key);
}

std::optional<EntryKey> NativeStateSynced::nextKey(const std::optional<EntryKey>& after) const {
    const auto it = after ? known_.upper_bound(OpenConfigKeys::instanceOf(*after)) : known_.begin();
    if (it == known_.end()) { return std::nullopt; }
    return OpenConfigKeys::ofInstance(it->first);
}

bool NativeStateSynced::encode(const EntryKey& key, Gale::EncodedEntry& to) {
    const auto known = known_.find(OpenConfigKeys::instanceOf(key));
    if (known == known_.end()) { return false; }
    const std::array<std::string_view, 1> keys{instances_.name(known->first)};
    NotificationWriter writer{to.notification};
    writer.prefix(entry_, keys);
    writer.leaf(name_, {}, keys[0]);
    leaves_.write(writer, *known->second.entity);
    writer.atomic();
    return true;
}

void NativeStateSynced::encodeDelete(const EntryKey& key,
                                     Gale::PackedNotification& notification) const {
    const std::array<std::string_view, 1> keys{instances_.name(OpenConfigKeys::instanceOf(key))};
    NotificationWriter{notification}.deletion(NativePaths::kOrigin, deletion_, keys);
}

}  // namespace Pel::OcApi
