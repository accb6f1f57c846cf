#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "forwarder/Scenario/Change.h"
#include "forwarder/Scenario/Description.h"
#include "forwarder/Scenario/FieldReader.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vxlan/VtiStatus.h"

namespace Pel::Forwarder {

/// Reads the elements of a scenario. Each function fills what the node gives and leaves the rest of `to` as it is, so that
/// a change names only what changes. With `lax` values are accepted that a healthy producer never publishes, as far as a
/// record can carry them.
class ElementReader {
public:
    ElementReader(Problems& problems, bool lax) : values_{problems}, lax_{lax} {}

    void interfaceIs(const YamlNode& node);

    // What names an element; nullopt after a problem.
    std::optional<std::string> name(const YamlNode& element) const;
    std::optional<Pel::FecId> fecId(const YamlNode& element) const;
    std::optional<RouteKey> routeKey(const YamlNode& element) const;
    std::optional<UdpPortKey> udpPortKey(const YamlNode& element) const;
    std::optional<DecapGroupKey> decapGroupKey(const YamlNode& element) const;
    std::optional<CounterKey> counterKey(const YamlNode& element) const;
    std::optional<std::string> nameText(const YamlNode& node) const;
    /// 41 (kind scenario), kernel/41, or a number with the kind in its upper byte.
    std::optional<Pel::FecId> fecIdText(const YamlNode& node) const;

    void vrf(const YamlNode& node, DescribedVrf& to) const;
    void vti(const YamlNode& node, Vxlan::VtiStatus& to) const;
    // `whole`: nothing of it is there yet.
    void udpPort(const YamlNode& node, L3::Tunnel::DestinationPort& to, bool whole) const;
    void decapGroup(const YamlNode& node, Tunnel::Decap::DecapGroup& to, bool whole) const;
    void nextHop(const YamlNode& node, DescribedNextHop& to) const;
    void fec(const YamlNode& node, DescribedFec& to) const;
    void route(const YamlNode& node, DescribedRoute& to) const;
    /// `whole`: nothing of it is there yet.
    void counter(const YamlNode& node, DescribedCounter& to, bool whole) const;
    /// true, false or none; false after a problem.
    bool readiness(const YamlNode& node, std::optional<bool>& to) const;
    /// true, false or never; false after a problem.
    bool quiesced(const YamlNode& node, std::optional<bool>& to) const;

    /// "mpls", or the number of a payload type without a word.
    static std::string payloadName(Tunnel::PayloadType type);

    const ValueReader& values() const { return values_; }
    bool lax() const { return lax_; }

private:
    void labels(const YamlNode* node, std::size_t max, std::vector<Nexo::MplsLabel>& to) const;
    void encapOrder(const YamlNode& node, std::vector<std::uint8_t>& to) const;
    void gue(const YamlNode& node, std::optional<Stash::GueEncap>& to) const;
    void vxlan(const YamlNode& node, std::optional<Stash::VxlanEncap>& to) const;
    void interface(const YamlNode& node, Nexo::IntfId& to) const;
    void members(const YamlNode& node, std::vector<DescribedMember>& to) const;
    void checkEncaps(const DescribedNextHop& nextHop) const;
    bool flagOr(std::string_view neither, const YamlNode& node, std::optional<bool>& to) const;
    void truncation(const FieldReader& fields, std::optional<std::uint32_t>& to) const;
    void address(const FieldReader& fields, std::string_view key, Nexo::IpGenAddr& to) const;
    void addressOf(const FieldReader& fields,
                   std::string_view key,
                   Nexo::AddressFamily family,
                   Nexo::IpGenAddr& to) const;
    void vrfReference(const FieldReader& fields, std::string_view key, VrfReference& to) const;
    void port(const FieldReader& fields, std::uint16_t& to, bool whole) const;
    std::optional<std::string> sourceOf(const YamlNode& element) const;

    ValueReader values_;
    bool lax_;
    std::map<std::string, Nexo::IntfId, std::less<>> interfaces_;
};

}  // namespace Pel::Forwarder
