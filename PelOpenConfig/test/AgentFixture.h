#pragma once

#include <cstdlib>
#include <memory>
#include <vector>

#include "PelOpenConfig/PelOpenConfigAgent.h"
#include "PelOpenConfig/test/ExportFixture.h"
#include "platform/Gale/RunnabilitySm.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Toggle/Toggle.h"

namespace Pel::Oc {

/// The agent over stores that the test writes, as a host has it.
class AgentFixture : public Store::StoreFixture {
protected:
    AgentFixture() {
        configurationOptions.directory = dir.path() / "config";
        Gale::HostConfig host;
        host.wire.port = 0;
        Gale::hostConfigIs(host);
        Blink::rootIs(dir.path());
        ::unsetenv("BLINKDIR");
        ::unsetenv("BLINK_DISABLE");
        Toggle::directoryIs(dir.path());
        Toggle::forgetAll();
    }
    ~AgentFixture() override {
        if (agent) { agent->doStop(); }
        agent = nullptr;
        Blink::shutdown();
    }
    AgentFixture(const AgentFixture&) = delete;
    AgentFixture& operator=(const AgentFixture&) = delete;

    void configure(bool enabled) {
        if (!configurationWriter) {
            std::string error;
            configurationWriter = std::make_unique<Store::Writer>(
                Store::Environment::open(configurationOptions, Store::Access::write, error));
            ASSERT_EQ(error, "");
        }
        Hubdb::Publisher{*configurationWriter}.entityIs(
            Tolo::Config::kPath,
            Tolo::Config::kType,
            Mesa::RecordCodec<Tolo::ConfigRecord>::encode({enabled}));
        ASSERT_EQ(configurationWriter->commit(), "");
    }
    void create() {
        const auto reader = makeReader();
        mesa = Vel::make<Mesa::EntityManager>(reader);
        entityManager = Vel::make<Hubdb::EntityManager>(
            "PelOpenConfig",
            1,
            scheduler,
            reader,
            Vel::make<Store::Reader>(scheduler, configurationOptions),
            mesa);
        agent = Vel::Ref<AgentHost::AgentBase>{agentFactory("PelOpenConfig")};
        AgentHost::HostServices services;
        services.scheduler = scheduler;
        services.entityManager = entityManager;
        services.sharedMemoryEntityManager = mesa;
        services.cmdRequestDirSm = Vel::make<AgentHost::CmdRequestDirSm>();
        services.config.root = dir.path();
        agent->servicesIs(services);
    }
    void start() {
        create();
        agent->doInit();
        settleAfterASecond();
    }
    Agent& sut() const { return dynamic_cast<Agent&>(*agent); }
    /// What the start-up wrote into its own ring file.
    std::vector<Blink::Message> ring() const {
        Blink::RingReader ringReader;
        EXPECT_EQ(ringReader.open(Blink::defaultHandle()->path()), "");
        return ringReader.read();
    }
    Vel::Ref<Vel::Dir> agentDir() const {
        return entityManager->globalDir()->entity<Vel::Dir>("PelOpenConfig");
    }

    Store::Options configurationOptions{.directory = {}, .mapBytes = std::size_t{16} << 20};
    std::unique_ptr<Store::Writer> configurationWriter;
    Vel::Ref<Mesa::EntityManager> mesa;
    Vel::Ref<Hubdb::EntityManager> entityManager;
    Vel::Ref<AgentHost::AgentBase> agent;
};

}  // namespace Pel::Oc
