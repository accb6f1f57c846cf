#pragma once

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "model/Registration.h"
#include "model/Tolo/Config.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Store/test/StoreFixture.h"
#include "test/support/TraceCapture.h"

namespace Pel::Oc {

using Ports = std::map<Tunnel::PayloadType, L3::Tunnel::DestinationPort>;
using Groups = std::map<std::string, Tunnel::Decap::DecapGroup>;
using Tunnel::PayloadType;

/// Producers of the tunnel configuration, and the agent's mounts of it.
class TunnelConfigFixture : public Store::StoreFixture, private Hubdb::Mounter {
protected:
    static constexpr const char* kUdpDynamic = "routing/nexthopgroup/input/config";
    static constexpr const char* kDecapDynamic = "routing/tunneldecap/input/dynamic";

    TunnelConfigFixture() {
        registerModelTypes();
        const auto reader = makeReader();
        entityManager = Vel::make<Hubdb::EntityManager>(
            "agent", 1, scheduler, reader, reader, Vel::make<Mesa::EntityManager>(reader));
        const auto group = entityManager->mountGroup(*this);
        group->mount(UdpConfig::kPath, UdpConfig::kType, "r");
        group->mount(kUdpDynamic, "Vel::Dir", "ri");
        group->mount(DecapInput::kPath, DecapInput::kType, "r");
        group->mount(kDecapDynamic, "Vel::Dir", "rD");
        group->close(false, "", Kiln::Duration{});
        settle();
    }

    using UdpConfig = L3::Tunnel::UdpDestinationPortConfig;
    using DecapInput = Tunnel::Decap::ConfigInput;

    void udp(const std::string& path, const Ports& ports) {
        L3::Tunnel::UdpDestinationPortConfigRecord record;
        record.payloadTypeToPort = ports;
        using Codec = Mesa::RecordCodec<L3::Tunnel::UdpDestinationPortConfigRecord>;
        publisher.entityIs(path, UdpConfig::kType, Codec::encode(record));
        told();
    }
    void decap(const std::string& path, const Groups& groups) {
        Tunnel::Decap::ConfigRecord record;
        record.decapGroup = groups;
        using Codec = Mesa::RecordCodec<Tunnel::Decap::ConfigRecord>;
        publisher.entityIs(path, DecapInput::kType, Codec::encode(record));
        told();
    }
    void foreign(const std::string& path) {
        publisher.entityIs(
            path, Tolo::Config::kType, Mesa::RecordCodec<Tolo::ConfigRecord>::encode({true}));
        told();
    }
    void withdraw(const std::string& path) {
        publisher.entityDel(path);
        told();
    }
    Vel::Ref<UdpConfig> udpConfig() const {
        return entityManager->entity<UdpConfig>(UdpConfig::kPath);
    }
    Vel::Ref<DecapInput> cli() const {
        return entityManager->entity<DecapInput>(DecapInput::kPath);
    }
    Vel::Ref<Vel::Dir> dirOf(const char* path) const {
        return entityManager->entity<Vel::Dir>(path);
    }

    TestSupport::TraceCapture traces;
    std::unique_ptr<Store::Writer> writer = makeWriter();
    Hubdb::Publisher publisher{*writer};
    Vel::Ref<Hubdb::EntityManager> entityManager;

private:
    void doMountsComplete(Hubdb::MountStatus status,
                          const Vel::Ref<Hubdb::EntityManager>& /*entityManager*/) override {
        EXPECT_EQ(status, Hubdb::mountSuccess_);
    }
    void told() {
        ASSERT_EQ(writer->commit(), "");
        settleAfterASecond();
    }
};

}  // namespace Pel::Oc
