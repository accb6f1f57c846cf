#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>

namespace Pel::Forwarder {

/// Internal VLAN numbers for VNIs whose device tells no VLAN: one a VNI, counted, from behind the
/// 4,094 of the wire to the largest extended VLAN id. A number that nobody uses any more is given
/// to another VNI as late as possible.
class VlanNumbers {
public:
    static constexpr std::uint32_t kFirst = 4096;
    static constexpr std::uint32_t kLast = 16383;
    static constexpr std::uint32_t kCount = kLast - kFirst + 1;

    /// What an earlier run had given, if it is one of ours and still free: kept for the VNI until
    /// forgetRestored().
    void restore(std::uint32_t vlan, std::uint32_t vni);
    void forgetRestored();
    /// Gives the number to nobody new before all behind it; whose it was is not known.
    void passOver(std::uint32_t vlan);

    /// Counts one user, who releases it. False when no number is left.
    bool acquire(std::uint32_t vni);
    void release(std::uint32_t vni);
    /// Of a VNI that is used, or was restored; 0: none.
    std::uint32_t find(std::uint32_t vni) const;

private:
    struct Number {
        std::uint32_t vlan = 0;
        std::uint32_t users = 0;
    };
    std::uint32_t takeFree();

    absl::btree_map<std::uint32_t, Number> numbers_;  // by VNI
    absl::btree_set<std::uint32_t> taken_;            // VLANs of numbers_
    std::uint32_t next_ = kFirst;
};

}  // namespace Pel::Forwarder
