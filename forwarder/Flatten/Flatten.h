#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/FlatDiff.h"
#include "forwarder/Flatten/VtiTable.h"

namespace Pel::Forwarder {

/// Turns a Fib into FECs and next hops with lasting identities, and says only what changed.
///
///   input                        worklist           output
///   link, neighbour              adjacencies        next hops whose content changed; members that
///   hide or return nexthop object, path list    FECs               next hops and FECs route routes
///   routes, and FECs that are used first or no longer VRF device                   tables VRF
///   names, all routes of the table
///   VXLAN device, VNI filter, VLANs of a port, encapsulations in use: the tunnel interfaces
///
/// Identity. A FEC is a kernel nexthop or group, or a distinct path list. It is published while a
/// published route uses it, and always as a top FEC. A next hop is a slot of a FEC: the member with
/// one (gateway, interface, encapsulation) keeps its slot and its number for as long as the FEC
/// names it, whatever happens to its weight, its MAC address or its link; a number is never given
/// twice. A slot that a member leaves is free for another member in a later change only, so that
/// two next hops never claim one (FEC, slot) at once.
///
/// A FEC whose source has gone while routes still use it keeps its last content: the routes' own
/// end is on its way (the kernel removes both without a word about the routes).
///
/// Belongs to one thread.
class Flatten {
public:
    /// Borrows the Fib and is the only reader of its changes.
    explicit Flatten(Fib& fib);
    Flatten(const Flatten&) = delete;
    Flatten& operator=(const Flatten&) = delete;
    ~Flatten() = default;

    /// What an earlier run had published, before the first collect(), VRFs before routes. Records
    /// that make no sense (no index, a slot taken twice) come out as deletions.
    void restore(const FlatNextHop& nextHop);
    void restore(const FlatFec& fec);
    void restore(const FlatRoute& route);
    void restore(const FlatVrf& vrf);
    void restore(const Vxlan::VtiStatusDirRecord& vtis) { vtis_.restore(vtis); }
    /// Numbers from here on are free.
    void firstFreeIndexIs(OcNextHopNumber index);
    OcNextHopNumber firstFreeIndex() const { return nextIndex_; }

    /// Fills `diff`, which is empty, with changes since the last call; the work is about `budget`
    /// elements, the diff at most about as long (a FEC is never cut). True when there is more to
    /// do. The first call takes the Fib as it stands for complete: what was restored and is not in
    /// it is deleted.
    bool collect(FlatDiff& diff, std::size_t budget);

    /// The published next hop that the FEC has for an adjacency; 0 none.
    OcNextHopNumber nextHopOf(FecId id, AdjacencyId adjacency) const;
    /// How many next hops name the VNI on a VXLAN device, in FECs of whatever kind.
    std::size_t nextHopsOf(std::uint32_t vtiIfindex, std::uint32_t vni) const {
        return vtis_.nextHopsOf(vtiIfindex, vni);
    }

    std::size_t publishedFecs() const { return fecs_.size(); }
    std::size_t publishedRoutes() const { return routeCount_; }
    /// Routes that cannot be published because the source has not told their FEC.
    std::size_t waitingRoutes() const { return waitsFor_.size(); }

private:
    struct Slot {
        OcNextHopNumber index = 0;  // 0: free
        AdjacencyId adjacency =
            kNoAdjacency;           // none with an index: restored and not yet recognised
        std::uint32_t version = 0;  // of the adjacency, as published
        std::uint32_t weight = 0;
        bool published = false;
    };
    struct Fec {
        absl::InlinedVector<Slot, 1> slots;  // by slot number
        std::uint32_t routes = 0;            // published routes that use it
        bool published = false;
        bool built = false;  // the slots are the source's, not only the store's
        bool dirty = false;
    };
    struct VrfState {
        std::string published;
        bool leaving = false;  // its routes are being withdrawn under the published name
    };
    enum class WalkKind : std::uint8_t { Refresh, Withdraw, WithdrawLast };
    struct TableWalk {
        RouteRef bookmark;
        WalkKind kind;
    };
    static constexpr std::uint32_t kNoSlot = 0xFFFF'FFFFU;

    void takeChanges(FlatDiff& diff);
    void takeEverything(FlatDiff& diff);
    void takeVtis(FlatDiff& diff);
    void refreshLinks(std::size_t& budget);
    void refreshNeighbours(std::size_t& budget);
    void refresh(AdjacencyId id, bool renamed);
    void fecChanged(FecId id);
    void buildDirtyFecs(FlatDiff& diff, std::size_t& budget);

    void processVrf(FlatDiff& diff, std::uint32_t table);
    void walkTables(FlatDiff& diff, std::size_t& budget);
    void endWithdrawal(FlatDiff& diff, std::uint32_t table);
    void refreshTable(std::uint32_t table);
    void processRoutes(FlatDiff& diff, std::size_t& budget);
    void processRoute(FlatDiff& diff, const RouteRef& ref, std::size_t& budget);
    void waitFor(FecId id, const RouteRef& ref, RouteEntry& entry);
    void waitEnd(const RouteRef& ref, RouteEntry& entry);
    void withdraw(FlatDiff& diff, const RouteRef& ref, RouteEntry& entry, const std::string& vrf);
    void routeLeft(FecId id);
    OriginProtocol origin(const RouteRef& ref, const RouteEntry& entry, const Fec& fec) const;

    bool build(FlatDiff& diff, FecId id, Fec& fec, std::size_t& budget);
    void mergeTwins();
    void match(Fec& fec);
    void recognise(FecId id, Fec& fec);
    void place(FecId id, Fec& fec);
    bool emitNextHops(FlatDiff& diff, FecId id, Fec& fec);
    void occupy(FecId id, Slot& slot, AdjacencyId adjacency);
    bool dropLeftSlots(FlatDiff& diff, FecId id, Fec& fec);
    void dropSlot(FlatDiff& diff, FecId id, Slot& slot);
    void emitFec(FlatDiff& diff, FecId id, Fec& fec, bool first);
    void deleteIdleFecs(FlatDiff& diff, std::size_t& budget);
    bool visible(const FecMember& member);
    FlatNextHop render(FecId id,
                       std::uint32_t slot,
                       OcNextHopNumber index,
                       AdjacencyId adjacency) const;
    bool drained() const;

    Fib& fib_;
    AdjacencyTable& adjacencies_;
    VtiTable vtis_{fib_};
    bool settled_ = false;  // everything of the first call has been said
    absl::btree_map<FecId, Fec> fecs_;
    FanOut<AdjacencyId> fecsOf_;  // adjacency -> FECs with a slot for it
    absl::btree_map<std::uint32_t, VrfState> vrfs_;
    OcNextHopNumber nextIndex_ = 1;
    std::size_t routeCount_ = 0;

    // From the store; each goes when its object has been compared with the source, or deleted.
    absl::flat_hash_map<OcNextHopNumber, FlatNextHop> restoredNextHops_;
    absl::flat_hash_map<FecId, FlatFec> restoredFecs_;
    std::vector<FlatRouteKey> homelessRoutes_;  // without a FEC, or in a VRF without a name

    // Worklists, in the order in which they are worked off.
    std::deque<LinkChange> links_;
    std::optional<AdjacencyKey> linkBookmark_;  // how far the front of links_ has been walked
    std::deque<std::pair<std::uint32_t, Nexo::IpGenAddr>> neighbours_;
    std::deque<FecId> dirtyFecs_;
    std::deque<std::uint32_t> dirtyVrfs_;
    std::deque<RouteRef> dirtyRoutes_;
    std::deque<TableWalk> tableWalks_;
    // For a FEC that the source has not told yet, and may never tell. A route waits for one at most.
    absl::btree_set<std::pair<FecId, RouteRef>> waiting_;
    absl::btree_map<RouteRef, FecId> waitsFor_;
    std::deque<FecId> idleFecs_;

    // Scratch of build().
    std::vector<FecMember> members_;
    std::vector<std::uint32_t> slotOf_;                          // by member
    std::vector<std::pair<AdjacencyId, std::uint32_t>> bySlot_;  // sorted
    std::vector<bool> taken_;                                    // by slot
};

}  // namespace Pel::Forwarder
