#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Aft/NextHopGroupContainer.h"
#include "model/Route/RouteStatus.h"
#include "model/View/NativeLeaves.h"
#include "model/View/OpenConfigInstances.h"
#include "model/View/RouteTable.h"
#include "platform/Gale/PathTemplate.h"

namespace Pel::OcApi {

/// Routes of the native view. In the journal a route is its key and one number, as in the OpenConfig
/// view. Any thread.
class NativeRoutes final {
public:
    /// `instances` outlives this object.
    explicit NativeRoutes(const OpenConfigInstances& instances);

    const NativeLeaves<Mesa::FibRoute>& leaves() const { return leaves_; }

    /// A route names its FEC's group only when `refers`; else its number says so. Null when the FEC
    /// id leaves no room in the number (bits 63 to 59 in use).
    static std::optional<std::uint64_t> pack(const Mesa::FibRoute& route, bool refers);
    /// What a number refers to; an entry that is never there when it refers to nothing.
    static Gale::Reference referenceOf(std::uint64_t value);

    /// Appends prefix, leaves and atomic mark.
    void encode(const Gale::EntryKey& key,
                const Mesa::FibRoute& route,
                Gale::PackedNotification& notification) const;
    void encode(const Gale::EntryKey& key,
                std::uint64_t value,
                Gale::PackedNotification& notification) const;
    void encodeDelete(const Gale::EntryKey& key, Gale::PackedNotification& notification) const;

private:
    struct Paths {
        explicit Paths(const std::string& path);
        Gale::PathTemplate entry;     // with the origin
        Gale::PathTemplate deletion;  // without
    };
    struct Family {
        explicit Family(Nexo::AddressFamily family);
        Paths inDefault;
        Paths inVrf;
    };
    const Paths& paths(const Gale::EntryKey& key) const;

    const OpenConfigInstances& instances_;
    const Family ipv4_;
    const Family ipv6_;
    const Gale::PathTemplate prefix_{"prefix"};
    const NativeLeaves<Mesa::FibRoute> leaves_;
};

/// Path of the routes of the default VRF or of others: "FibRoute/routing/status/route[prefix]",
/// "FibRoute/routing/vrf/status[name]/route[prefix]".
std::string nativeRoutePath(Nexo::AddressFamily family, bool inDefault);

/// In the native view: all that the shared memory holds, also while there are no groups, and routes
/// that have no FEC.
class NativeRouteTable final : public RouteTable {
public:
    /// `routes` outlives this object; `groups` may be null.
    NativeRouteTable(Vel::Ref<RouteTables::Table> table,
                     Nexo::AddressFamily family,
                     std::uint32_t instance,
                     const NativeRoutes& routes,
                     Vel::Ref<const NextHopGroupContainer> groups);

    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    const NativeRoutes& routes_;
    const Vel::Ref<const NextHopGroupContainer> groups_;
};

}  // namespace Pel::OcApi
