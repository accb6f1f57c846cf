#pragma once

#include <optional>
#include <string>

#include "PelOpenConfig/PelOpenConfigCliCallback.h"
#include "PelOpenConfig/PelVrfTables.h"
#include "model/Aft/AftContainer.h"

namespace Pel::Oc {

/// The next hops of the AFT, as "showNextHops" shows them.
class NextHopEntries final : public Vel::RefCounted {
public:
    using Key = OcApi::NextHopIndex;
    static constexpr const char* kCommand = "showNextHops";
    static constexpr const char* kParameter = "INDEX";
    static constexpr const char* kDict = "nextHops";

    explicit NextHopEntries(const OcApi::AftContainer& aft)
        : nextHops_{aft.nextHops()}, counters_{aft.nextHopCounters()} {}

    static std::string heading();
    /// What the parameter names, or nothing when it is not there; a text that can name nothing
    /// raises a Vel::RangeError.
    std::optional<Key> find(const std::string& text) const;
    static std::string missing(const std::string& text) {
        return "% No next hop " + text + " found";
    }
    bool has(Key key) const { return nextHops_->nextHop(key) != nullptr; }
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        return nextHops_->nextKey(after);
    }
    /// Of an entry that is there: one line, for people.
    std::string line(Key key) const;
    /// The same entry whole.
    void show(Key key, AgentHost::CliPrinter& to) const;

private:
    Vel::Ref<const OcApi::NextHopContainer> nextHops_;
    Vel::Ref<const OcApi::NextHopCountersContainer> counters_;
};

/// The next-hop groups of the AFT, as "showGroups" shows them.
class GroupEntries final : public Vel::RefCounted {
public:
    using Key = OcApi::NextHopGroupId;
    static constexpr const char* kCommand = "showGroups";
    static constexpr const char* kParameter = "ID";
    static constexpr const char* kDict = "nextHopGroups";

    explicit GroupEntries(const OcApi::AftContainer& aft)
        : groups_{aft.nextHopGroups()}, nextHops_{aft.nextHops()} {}

    static std::string heading();
    std::optional<Key> find(const std::string& text) const;
    static std::string missing(const std::string& text) { return "% No group " + text + " found"; }
    bool has(Key key) const { return groups_->nextHopGroup(key) != nullptr; }
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        return groups_->nextKey(after);
    }
    std::string line(Key key) const;
    void show(Key key, AgentHost::CliPrinter& to) const;

private:
    Vel::Ref<const OcApi::NextHopGroupContainer> groups_;
    Vel::Ref<const OcApi::NextHopContainer> nextHops_;
};

/// The VRFs with their route tables, as "showVrfs" shows them.
class VrfEntries final : public Vel::RefCounted {
public:
    using Key = std::string;
    static constexpr const char* kCommand = "showVrfs";
    static constexpr const char* kParameter = "VRF";
    static constexpr const char* kDict = "vrfs";

    explicit VrfEntries(Vel::Ref<const VrfTables> vrfTables) : vrfTables_{std::move(vrfTables)} {}

    static std::string heading();
    /// By name, else by id.
    std::optional<Key> find(const std::string& text) const;
    static std::string missing(const std::string& text) { return "% No VRF " + text + " found"; }
    bool has(const Key& key) const { return vrfTables_->vrfs().contains(key); }
    std::optional<Key> nextKey(const std::optional<Key>& after) const {
        return vrfTables_->nextName(after);
    }
    std::string line(const Key& key) const;
    void show(const Key& key, AgentHost::CliPrinter& to) const;

private:
    /// Null when the agent does not read the table.
    std::optional<std::uint64_t> prefixes(Nexo::AddressFamily family, const Key& key) const;

    Vel::Ref<const VrfTables> vrfTables_;
};

/// Serves a request for entries: a table in the text form, a line each; whole entries in the
/// structured form, or where one is asked for.
template <class Entries>
class ShowEntriesInstanceSm final : public KeyedShowCommandInstanceSm<typename Entries::Key> {
public:
    using Key = typename Entries::Key;
    static constexpr const char* kName = Entries::kCommand;

    ShowEntriesInstanceSm(const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
                          const AgentHost::CommandRequest& params,
                          Vel::Ref<const Entries> entries)
        : KeyedShowCommandInstanceSm<Key>{anchor, params, Entries::kParameter},
          entries_{std::move(entries)} {}

private:
    void showOne(const std::string& text) override;
    void begin() override;
    bool has(const Key& key) const override { return entries_->has(key); }
    std::optional<Key> nextKey(const std::optional<Key>& after) const override {
        return entries_->nextKey(after);
    }
    void show(const Key& key) override;

    Vel::Ref<const Entries> entries_;
};

template <class Entries>
using ShowEntriesAsyncCliCallback =
    AsyncCliCallbackOf<ShowEntriesInstanceSm<Entries>, const Entries>;

}  // namespace Pel::Oc
