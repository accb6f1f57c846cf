#pragma once

#include <optional>
#include <string>
#include <utility>

#include "PelOpenConfig/PelOpenConfigCliCallback.h"
#include "PelOpenConfig/PelVrfTables.h"
#include "model/Aft/AftContainer.h"

namespace Pel::Oc {

/// What "showRoute" goes through: the route tables, the flattened set, and what is exported of it.
class RouteSources final : public Vel::RefCounted, public CliHelper::Remarks {
public:
    RouteSources(Vel::Ref<const VrfTables> vrfTables,
                 Vel::Ref<CliHelper> cliHelper,
                 const OcApi::AftContainer& aft);

    const VrfTables& vrfTables() const { return *vrfTables_; }
    CliHelper& cliHelper() const { return *cliHelper_; }

    /// These say what keeps it from being exported, and whether it is.
    void ofFec(FecId fecId, bool readable, AgentHost::CliPrinter& to) const override;
    void ofNextHop(Stash::OcNextHopIndex index,
                   bool readable,
                   AgentHost::CliPrinter& to) const override;

private:
    Vel::Ref<const VrfTables> vrfTables_;
    Vel::Ref<CliHelper> cliHelper_;
    Vel::Ref<const OcApi::NextHopContainer> nextHops_;
    Vel::Ref<const OcApi::NextHopGroupContainer> groups_;
};

/// "showRoute": where a destination leads, prefix to FEC to next hops, in each VRF that has it or in
/// the one that the parameter "VRF" names. The parameter "PREFIX" is a prefix, which is looked up as
/// it is, or an address, for which the longest match is.
class ShowRouteInstanceSm final : public KeyedShowCommandInstanceSm<std::string> {
public:
    static constexpr const char* kName = "showRoute";

    ShowRouteInstanceSm(const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
                        const AgentHost::CommandRequest& params,
                        Vel::Ref<RouteSources> sources);

    void produceOutput() override;

private:
    struct Destination {
        Nexo::IpPrefix prefix;
        bool address = false;  ///< the prefix is that of a single address, and its match is wanted
    };
    /// Raises a Vel::RangeError that says what is wrong with the text.
    static Destination parse(const std::string& text);
    static std::optional<Nexo::IpPrefix> match(const VrfTables::Table& table,
                                               const Destination& to);

    void showAll() override;
    void showOne(const std::string& text) override;
    void begin() override;
    bool has(const std::string& key) const override;
    std::optional<std::string> nextKey(const std::optional<std::string>& after) const override;
    void show(const std::string& vrf) override;
    void showMatch(const std::string& vrf, VrfTables::Table& table, const Nexo::IpPrefix& prefix);
    /// All VRFs have been looked at.
    void handleEnd(const std::string& where);

    Vel::Ref<RouteSources> sources_;
    std::string text_;
    Destination destination_;
    bool tableRead_ = false;
    bool found_ = false;
};

using ShowRouteAsyncCliCallback = AsyncCliCallbackOf<ShowRouteInstanceSm, RouteSources>;

}  // namespace Pel::Oc
