#include <dlfcn.h>
#include <gtest/gtest.h>

#include "platform/AgentHost/AgentBase.h"
#include "platform/AgentHost/PluginLoader.h"

// Linked with the shared platform only, like a host.
namespace {

TEST(Plugin, IsLoadedAndMakesAnAgentOfTheHostsOwnType) {
    std::string error;
    const AgentHost::AgentFactory factory = AgentHost::PluginLoader::load(PEL_TEST_PLUGIN, error);
    ASSERT_NE(factory, nullptr) << error;
    const Vel::Ref<AgentHost::AgentBase> agent{factory("PelOpenConfig")};
    ASSERT_NE(agent, nullptr);
    EXPECT_EQ(agent->name(), "PelOpenConfig");
    EXPECT_EQ(agent->gnmiPort(), 0);
}

TEST(Plugin, ShowsItsFactoryAndItsRevisionAndNothingElse) {
    void* const plugin = ::dlopen(PEL_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << ::dlerror();
    const auto* const revision = static_cast<const char*>(::dlsym(plugin, "pelAgentRevision"));
    ASSERT_NE(revision, nullptr);
    EXPECT_STREQ(revision, PEL_REVISION);
    EXPECT_NE(::dlsym(plugin, "agentFactory"), nullptr);
    EXPECT_EQ(::dlsym(plugin, "_ZN3Pel2Oc5Agent6doInitEv"), nullptr);
    EXPECT_EQ(::dlsym(plugin, "_ZN3Pel2Oc5AgentD1Ev"), nullptr);
}

}  // namespace
