#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/Aft/FibReadyContainer.h"
#include "model/Net/AddressFamily.h"
#include "model/View/OpenConfigInstanceList.h"
#include "model/View/StateSyncedFlags.h"
#include "platform/Gale/ListSource.h"
#include "platform/Mesa/Table.h"

namespace Pel::OcApi {

/// "afts/state-synced" of each instance: that its routes of a family, and what they name, are shown as
/// the device has them. True is what the agent says of the VRF, once all next hops and groups are
/// exported and the view has the VRF's route table.
///
/// True is told when all that was marked before it is shown, false with all else: it does not wait
/// for the removals that it is the cause of.
///
/// An instance has it that is shown and whose VRF has a gated FIB. It keeps it, as false, when the
/// gate goes: that a state is not synced any more is told by an update. Entries are not atomic.
class OpenConfigStateSynced final : public Gale::ListSource {
public:
    struct Inputs {
        Vel::Ref<Vel::Dir> root;                  ///< holds "stateSynced"
        Vel::Ref<const Vel::Dir> gated;           ///< entities by VRF; null: there are none
        Vel::Ref<const FibReadyContainer> ready;  ///< null: never
        bool tables = false;                      ///< route tables are served
    };
    /// `instances` and `list` outlive this object.
    OpenConfigStateSynced(Inputs inputs,
                          OpenConfigInstances& instances,
                          const OpenConfigInstanceList& list);
    ~OpenConfigStateSynced() override;

    /// The view shows this table's routes in the instance.
    void tableIs(std::uint32_t instance,
                 Nexo::AddressFamily family,
                 const Vel::Ref<Mesa::Table>& table);

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    struct Paths;
    using Key = std::pair<std::uint32_t, Nexo::AddressFamily>;
    struct Shown {
        Vel::Ref<Mesa::Table> table;
        Vel::Subscription onPresent;
    };
    /// What is told: false, false until all that was marked is shown, true.
    enum class Told { no, asked, yes };
    void handleInstance(std::uint32_t instance);
    void handleReady();
    void revoke(std::uint32_t instance);
    bool synced(const Key& key) const;
    bool told(const Key& key, Gale::EncodedEntry& to);

    const Inputs inputs_;
    OpenConfigInstances& instances_;
    const OpenConfigInstanceList& list_;
    const std::unique_ptr<const Paths> paths_;
    std::set<std::uint32_t> known_;  // instances that have it, or may have it yet
    std::set<std::uint32_t> shown_;  // of these: a client may know of it
    std::map<Key, Told> told_;       // what is missing is no
    std::map<Key, Shown> tables_;
    std::optional<StateSyncedFlags> flags_;
    Vel::Subscription onGated_;
    Vel::Subscription onReady_;
};

}  // namespace Pel::OcApi
