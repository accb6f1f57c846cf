#include "model/View/StateSyncedFlags.h"

#include <utility>

namespace Pel::OcApi {

namespace {
constexpr const char* kDirName = "stateSynced";
}

StateSyncedFlags::StateSyncedFlags(Vel::Ref<Vel::Dir> root,
                                   OpenConfigInstances& instances,
                                   Changed changed)
    : root_{std::move(root)}, instances_{instances}, changed_{std::move(changed)} {
    onRoot_ = root_->onEntity().subscribe([this](const std::string& name) {
        if (name == kDirName) { handleDir(); }
    });
    handleDir();
}

void StateSyncedFlags::handleDir() {
    dir_ = root_->entity<Vel::Dir>(kDirName);
    onDir_.reset();
    for (const auto& [vrf, known] : std::exchange(known_, {})) { changed_(vrf); }
    if (!dir_) { return; }
    onDir_ = dir_->onEntity().subscribe([this](const std::string& name) { handleEntity(name); });
    for (const auto& [name, entity] : dir_->entities()) { handleEntity(name); }
}

void StateSyncedFlags::handleEntity(const std::string& vrf) {
    const std::uint32_t number = instances_.number(vrf);
    known_.erase(number);
    if (auto entity = dir_->entity<StateSyncedContainer>(vrf)) {
        Known& known = known_[number];
        const auto handleFlag = [this, number] { changed_(number); };
        known.onFlag.push_back(entity->onIpv4Unicast().subscribe(handleFlag));
        known.onFlag.push_back(entity->onIpv6Unicast().subscribe(handleFlag));
        known.entity = std::move(entity);
    }
    changed_(number);
}

const StateSyncedContainer* StateSyncedFlags::find(std::uint32_t vrf) const {
    const auto it = known_.find(vrf);
    return it == known_.end() ? nullptr : &*it->second.entity;
}

std::optional<std::uint32_t> StateSyncedFlags::next(std::optional<std::uint32_t> after) const {
    const auto it = after ? known_.upper_bound(*after) : known_.begin();
    return it == known_.end() ? std::nullopt : std::optional{it->first};
}

}  // namespace Pel::OcApi
