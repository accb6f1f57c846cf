#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "model/Net/AddressFamily.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// "afts/aft-summaries": how many prefixes of each origin protocol an instance shows. One without a
/// protocol is in none. Entries are not atomic; one comes with its first prefix and goes with the
/// last.
class OpenConfigSummaries final : public Gale::ListSource {
public:
    /// `instances` outlives this object.
    explicit OpenConfigSummaries(const OpenConfigInstances& instances);
    ~OpenConfigSummaries() override;

    /// A prefix of the instance shows another value than before (OpenConfigRoutes::pack); nothing:
    /// it is not there.
    void valueIs(std::uint32_t instance,
                 Nexo::AddressFamily family,
                 std::optional<std::uint64_t> before,
                 std::optional<std::uint64_t> now);

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    struct Paths;
    struct Count {
        std::uint64_t prefixes = 0;
        bool marked = false;
    };
    using Counts = std::map<Gale::EntryKey, Count>;
    Count& count(const Gale::EntryKey& key);

    const OpenConfigInstances& instances_;
    const std::unique_ptr<const Paths> paths_;
    Counts counts_;                          // 0: not encoded since
    Counts::iterator last_ = counts_.end();  // counted in last: prefixes come table by table
};

}  // namespace Pel::OcApi
