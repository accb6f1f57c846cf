#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace Pel::OcApi {

/// The network instances of the view: a number for each VRF name ever seen, so that millions of
/// entries need not hold the name. 0 is the default VRF, whose name in the view is a setting.
/// Numbers are given on the scheduler's thread and never taken back; read on any.
class OpenConfigInstances final {
public:
    static constexpr std::uint32_t kDefault = 0;

    explicit OpenConfigInstances(std::string defaultName);

    /// Of a VRF by its own name ("default").
    std::uint32_t number(std::string_view vrf);
    /// The name in the view; valid as long as this object.
    std::string_view name(std::uint32_t number) const;
    /// The VRF's own name; valid as long as this object.
    std::string_view vrf(std::uint32_t number) const;
    /// What the VRF is called in the view.
    std::string_view nameOf(std::string_view vrf) const;

private:
    mutable std::mutex mutex_;
    std::deque<std::string> names_;  // by number; elements stay in place
    std::map<std::string, std::uint32_t, std::less<>> numbers_;  // by VRF; scheduler's thread
};

}  // namespace Pel::OcApi
