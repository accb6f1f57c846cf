#include "model/View/OpenConfigInstances.h"

#include <utility>

#include "model/Vrf/VrfName.h"
#include "platform/Vel/Assert.h"

namespace Pel::OcApi {

OpenConfigInstances::OpenConfigInstances(std::string defaultName) {
    names_.push_back(std::move(defaultName));
    numbers_.emplace(Vrf::kDefaultVrfName, kDefault);
}

std::uint32_t OpenConfigInstances::number(std::string_view vrf) {
    if (const auto it = numbers_.find(vrf); it != numbers_.end()) { return it->second; }
    const auto number = static_cast<std::uint32_t>(numbers_.size());
    numbers_.emplace(vrf, number);
    const std::lock_guard lock{mutex_};
    names_.emplace_back(vrf);
    return number;
}

std::string_view OpenConfigInstances::name(std::uint32_t number) const {
    const std::lock_guard lock{mutex_};
    VEL_ASSERT(number < names_.size());
    return names_[number];
}

std::string_view OpenConfigInstances::vrf(std::uint32_t number) const {
    return number == kDefault ? std::string_view{Vrf::kDefaultVrfName} : name(number);
}

std::string_view OpenConfigInstances::nameOf(std::string_view vrf) const {
    return vrf == Vrf::kDefaultVrfName ? name(kDefault) : vrf;
}

}  // namespace Pel::OcApi
