#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/ListSource.h"
#include "platform/Mesa/Table.h"

namespace Pel::OcApi {

/// The network instances themselves: the default one always, another while one of its route tables
/// is there. Their names and types are ordinary, non-atomic leaves.
class OpenConfigInstanceList final : public Gale::ListSource {
public:
    /// `instances` outlives this object.
    explicit OpenConfigInstanceList(const OpenConfigInstances& instances);
    ~OpenConfigInstanceList() override;

    /// The instance has this table.
    void tableIs(std::uint32_t instance, const Vel::Ref<Mesa::Table>& table);
    bool shown(std::uint32_t instance) const;

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    struct Paths;
    struct Known {
        std::vector<Vel::Ref<Mesa::Table>> tables;
        std::vector<Vel::Subscription> onPresent;
    };

    const OpenConfigInstances& instances_;
    const std::unique_ptr<const Paths> paths_;
    std::map<std::uint32_t, Known> known_;
};

}  // namespace Pel::OcApi
