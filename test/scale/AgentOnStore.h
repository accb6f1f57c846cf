#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "PelOpenConfig/PelOpenConfigAgent.h"
#include "forwarder/Scenario/Generator.h"
#include "forwarder/Scenario/ScenarioPublish.h"
#include "model/Registration.h"
#include "model/Tolo/Config.h"
#include "model/View/OpenConfigView.h"
#include "platform/AgentHost/Host.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Pel::Scale {

/// The agent in its host, on the test's thread, over a store that a test fills before it starts it.
class AgentOnStore : public testing::Test {
protected:
    AgentOnStore() {
        registerModelTypes();
        OcApi::registerOpenConfigView();
        config.root = dir.path();
        config.gnmi.wire.port = 0;
    }
    void TearDown() override {
        if (host) { host->stop(); }
    }

    std::unique_ptr<Store::Writer> writer(const std::filesystem::path& directory) const {
        Store::Options options;
        options.directory = directory;
        options.mapBytes = config.stateMapBytes;
        std::string error;
        auto environment = Store::Environment::open(options, Store::Access::write, error);
        EXPECT_EQ(error, "");
        return std::make_unique<Store::Writer>(std::move(environment));
    }
    /// What a forwarder does that starts, brings the store to this state, and ends.
    void publish(const Forwarder::GeneratorOptions& options) {
        const auto to = writer(config.stateDirectory());
        Forwarder::Generator generator{options};
        Forwarder::ScenarioPublish publisher{generator, *to, clock};
        ASSERT_EQ(publisher.open(), "");
        while (publisher.run([] { return false; })) {}
        ASSERT_TRUE(publisher.ready()) << publisher.failure();
    }
    /// As in the configuration's store; a running agent is to be told.
    void exportIs(bool enabled) const {
        const auto to = writer(config.configurationDirectory());
        Hubdb::Publisher{*to}.entityIs(Tolo::Config::kPath,
                                       Tolo::Config::kType,
                                       Mesa::RecordCodec<Tolo::ConfigRecord>::encode({enabled}));
        ASSERT_EQ(to->commit(), "");
    }
    void start() {
        host =
            std::make_unique<AgentHost::Host>(config, clock, std::make_unique<Kiln::YieldByTime>());
        ASSERT_EQ(host->open(), "");
        ASSERT_EQ(host->start(agentFactory), "");
    }

    TestSupport::TempDir dir;
    AgentHost::HostConfig config;
    Kiln::SteadyClock clock;
    std::unique_ptr<AgentHost::Host> host;
};

}  // namespace Pel::Scale
