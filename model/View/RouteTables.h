#pragma once

#include <functional>
#include <string>
#include <vector>

#include "model/Net/AddressFamily.h"
#include "model/Route/RouteStatus.h"
#include "platform/Mesa/DirMounter.h"
#include "platform/Vel/Subscription.h"

namespace Pel::OcApi {

/// The route tables below given prefixes of the shared memory: mounts each as it appears and tells
/// of it once. The default VRF's are told of before a producer has made them.
class RouteTables final {
public:
    using Table = Mesa::TypedTable<Nexo::IpPrefix, Mesa::FibRoute>;
    using Found = std::function<void(
        Nexo::AddressFamily family, const std::string& vrf, const Vel::Ref<Table>& table)>;

    /// `prefixes`: "routing/status" and the like for the table itself, "routing/vrf/status" and the
    /// like for all below it; others serve nothing. What is there already is told of by start().
    RouteTables(Vel::Ref<Mesa::EntityManager> tables,
                std::vector<std::string> prefixes,
                Found found);
    void start();

private:
    void startFamily(Nexo::AddressFamily family, const std::string& prefix);
    void handlePath(Nexo::AddressFamily family, const std::string& path);
    void tell(Nexo::AddressFamily family, const std::string& vrf, const std::string& path);

    const Vel::Ref<Mesa::EntityManager> tables_;
    const std::vector<std::string> prefixes_;
    const Found found_;
    std::vector<Vel::Ref<Mesa::DirMounter>> mounters_;
    std::vector<Vel::Subscription> onPath_;
};

}  // namespace Pel::OcApi
