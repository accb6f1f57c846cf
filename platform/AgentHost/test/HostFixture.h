#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/AgentHost/Host.h"
#include "platform/AgentHost/PluginLoader.h"
#include "platform/AgentHost/test/ControlPeer.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace AgentHost {

inline AgentFactory goodPlugin() {
    std::string error;
    const AgentFactory factory =
        PluginLoader::load(std::filesystem::path{PEL_TEST_PLUGINS} / "libGoodPlugin.so", error);
    EXPECT_EQ(error, "");
    return factory;
}

/// A host of the good plug-in in a directory of its own, on a virtual clock.
class HostTest : public testing::Test {
protected:
    std::unique_ptr<Host> host(const std::string& name = "good") {
        HostConfig config;
        config.root = directory_.path() / "root";
        config.agentName = name;
        return std::make_unique<Host>(config, clock_, std::make_unique<Kiln::AlwaysYield>());
    }
    std::unique_ptr<Host> running() {
        auto result = host();
        EXPECT_EQ(result->open(), "");
        EXPECT_EQ(result->start(goodPlugin()), "");
        result->scheduler()->runUntilIdle();
        return result;
    }
    /// What the agent has noted, step by step.
    std::vector<std::string> steps() const {
        std::ifstream file{directory_.path() / "root" / "steps"};
        std::vector<std::string> result;
        for (std::string line; std::getline(file, line);) { result.push_back(line); }
        return result;
    }
    std::vector<nlohmann::json> ask(Host& host, const std::string& request) {
        ControlPeer peer{host.config().controlSocket()};
        peer.send(request + "\n");
        for (int i = 0; i < 10; ++i) { host.scheduler()->runUntilIdle(); }
        peer.receive();
        std::vector<nlohmann::json> result;
        for (const auto& line : peer.lines()) { result.push_back(nlohmann::json::parse(line)); }
        return result;
    }
    void writeConfiguration(Host& host, const std::string& record) {
        std::filesystem::create_directories(host.config().configurationDirectory());
        Store::Options options;
        options.directory = host.config().configurationDirectory();
        std::string error;
        Store::Writer writer{Store::Environment::open(options, Store::Access::write, error)};
        Hubdb::Publisher publisher{writer};
        publisher.entityIs("mgmt/test", "Test", record);
        EXPECT_EQ(writer.commit(), "");
    }

    TestSupport::TempDir directory_;
    Kiln::VirtualClock clock_;
};

}  // namespace AgentHost
