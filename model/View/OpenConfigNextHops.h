#pragma once

#include <absl/container/btree_set.h>

#include <cstdint>
#include <memory>

#include "model/Aft/NextHopContainer.h"
#include "model/Tunnel/PelNexthopGueEncapDestPort.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/ListSource.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

/// The AFT's next hops as entries of the OpenConfig view, all of them in the default instance.
class OpenConfigNextHops final : public Gale::ListSource {
public:
    using GuePorts = Oc::PelNexthopGueEncapDestPort;

    /// `instances` outlives this object. `guePorts` may be null: no port is known.
    OpenConfigNextHops(Vel::Ref<NextHopContainer> nextHops,
                       const OpenConfigInstances& instances,
                       Vel::Ref<const GuePorts> guePorts);
    ~OpenConfigNextHops() override;

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override;
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;
    bool pending(const Gale::EntryKey& key) const override;

private:
    struct Paths;

    void handleMplsPort();
    void noteUdpOverMpls(std::uint64_t index, const NextHop* nextHop);
    void writeDecapsulation(Gale::NotificationWriter& to, const NextHop& nextHop) const;

    const Vel::Ref<NextHopContainer> nextHops_;
    const OpenConfigInstances& instances_;
    const Vel::Ref<const GuePorts> guePorts_;
    const std::unique_ptr<const Paths> paths_;
    absl::btree_set<std::uint64_t> udpOverMpls_;  // next hops whose entry holds the MPLS port
    Vel::Subscription onNextHop_;
    Vel::Subscription onProcessed_;
    Vel::Subscription onMplsPort_;
};

}  // namespace Pel::OcApi
