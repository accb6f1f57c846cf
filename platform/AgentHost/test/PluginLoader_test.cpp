#include "platform/AgentHost/PluginLoader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "test/support/TempDir.h"

namespace AgentHost {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::filesystem::path kPlugins{PEL_TEST_PLUGINS};

std::string errorOf(const std::filesystem::path& plugin) {
    std::string error;
    EXPECT_EQ(PluginLoader::load(plugin, error), nullptr);
    return error;
}

TEST(PluginLoaderTest, FindsTheFactory) {
    std::string error;
    EXPECT_NE(PluginLoader::load(kPlugins / "libGoodPlugin.so", error), nullptr);
    EXPECT_EQ(error, "");
}

TEST(PluginLoaderTest, LoadsOnceHoweverOftenAsked) {
    std::string error;
    const auto factory = PluginLoader::load(kPlugins / "libGoodPlugin.so", error);
    EXPECT_EQ(PluginLoader::load(kPlugins / "libGoodPlugin.so", error), factory);
}

TEST(PluginLoaderTest, AMissingFileIsNamed) {
    EXPECT_THAT(errorOf("/nowhere/libX.so"),
                AllOf(HasSubstr("/nowhere/libX.so"), HasSubstr("no such file")));
    EXPECT_THAT(errorOf("libGone.so"), HasSubstr("libGone.so: no such file"));
    EXPECT_THAT(errorOf(kPlugins), HasSubstr("no such file"));  // a directory
}

TEST(PluginLoaderTest, AFileThatIsNoLibraryIsNamed) {
    const TestSupport::TempDir directory;
    const auto file = directory.path() / "libText.so";
    std::ofstream{file} << "not a library";
    EXPECT_THAT(errorOf(file), AllOf(HasSubstr(file.string()), HasSubstr("cannot be loaded")));
}

TEST(PluginLoaderTest, AnEmptyFileIsNamed) {
    const TestSupport::TempDir directory;
    const auto file = directory.path() / "libEmpty.so";
    std::ofstream{file}.close();
    EXPECT_THAT(errorOf(file), AllOf(HasSubstr(file.string()), HasSubstr("cannot be loaded")));
}

TEST(PluginLoaderTest, ACopyThatBrokeOffIsRefusedBeforeItIsTouched) {
    const TestSupport::TempDir directory;
    const auto whole = kPlugins / "libGoodPlugin.so";
    const std::uintmax_t bytes = std::filesystem::file_size(whole);
    for (const std::uintmax_t left : {std::uintmax_t{1000}, bytes / 8, bytes / 2, bytes - 1}) {
        const auto file = directory.path() / ("lib" + std::to_string(left) + ".so");
        std::filesystem::copy_file(whole, file);
        std::filesystem::resize_file(file, left);
        EXPECT_THAT(errorOf(file),
                    AllOf(HasSubstr(file.string()),
                          HasSubstr("is cut short: " + std::to_string(left) + " of at least ")));
    }
}

TEST(PluginLoaderTest, AFileThatMayNotBeReadIsNamed) {
    const TestSupport::TempDir directory;
    const auto file = directory.path() / "libSelf.so";
    std::filesystem::create_symlink(file, file);  // for root, too, there is no way to read it
    EXPECT_THAT(errorOf(file), HasSubstr(file.string() + ": no such file (Too many levels"));
}

TEST(PluginLoaderTest, AnUnresolvedSymbolIsNamedWhenThePluginIsLoaded) {
    EXPECT_THAT(
        errorOf(kPlugins / "libUnresolvedPlugin.so"),
        AllOf(HasSubstr("libUnresolvedPlugin.so: cannot be loaded"), HasSubstr("nobodyHasThis")));
}

TEST(PluginLoaderTest, AMissingSymbolIsNamed) {
    EXPECT_THAT(errorOf(kPlugins / "libNoFactoryPlugin.so"),
                AllOf(HasSubstr("libNoFactoryPlugin.so"), HasSubstr("'agentFactory'")));
    EXPECT_THAT(errorOf(kPlugins / "libNoRevisionPlugin.so"),
                AllOf(HasSubstr("libNoRevisionPlugin.so"), HasSubstr("'pelAgentRevision'")));
}

TEST(PluginLoaderTest, AnotherRevisionIsRefusedWithBothNamed) {
    EXPECT_THAT(errorOf(kPlugins / "libOtherRevisionPlugin.so"),
                AllOf(HasSubstr("libOtherRevisionPlugin.so"),
                      HasSubstr("against revision 0.0.0-other"),
                      HasSubstr("this host is revision " PEL_REVISION)));
}

}  // namespace
}  // namespace AgentHost
