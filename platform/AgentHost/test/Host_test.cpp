#include "platform/AgentHost/test/HostFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/AgentHost/ListenAddress.h"
#include "platform/AgentHost/RootLock.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Errors.h"
#include "test/support/LoopbackPort.h"

namespace AgentHost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(HostTest, RunsTheAgentsLifeInOrder) {
    auto host = running();
    EXPECT_THAT(steps(), ElementsAre("doInit", "mounted"));
    host->stop();
    EXPECT_EQ(host->agent(), nullptr);
    EXPECT_THAT(steps(), ElementsAre("doInit", "mounted", "doStop", "doCleanup", "gone"));
    host->stop();  // once is enough
    host.reset();
    EXPECT_EQ(steps().size(), 5U);
}

TEST_F(HostTest, ASignalEndsTheRunAndTakesTheAgentDown) {
    auto host = running();
    host->stopOnSignals();
    ::raise(SIGTERM);
    host->run();
    EXPECT_EQ(steps().back(), "gone");
}

TEST_F(HostTest, AnAgentThatThrowsInItsStartIsAnError) {
    auto host = this->host("throws");
    ASSERT_EQ(host->open(), "");
    EXPECT_EQ(host->start(goodPlugin()), "doInit: no start today");
}

TEST_F(HostTest, AFactoryThatThrowsIsAnErrorWhateverItThrows) {
    for (const auto& [name, said] :
         {std::pair{"factory throws", "no agent today"},
          std::pair{"factory throws a number", "threw what is no exception"}}) {
        auto host = this->host(name);
        ASSERT_EQ(host->open(), "");
        EXPECT_EQ(host->start(goodPlugin()), std::string{"agentFactory: "} + said);
        EXPECT_EQ(host->agent(), nullptr);
    }
}

TEST_F(HostTest, AFactoryThatMakesNothingIsAnError) {
    auto host = this->host("none");
    ASSERT_EQ(host->open(), "");
    EXPECT_EQ(host->start(goodPlugin()), "the plug-in made no agent");
}

TEST_F(HostTest, ASecondHostInTheSameRootIsRefusedAndTheFirstGoesOn) {
    auto first = running();
    auto second = host();
    EXPECT_THAT(second->open(),
                HasSubstr("agent.lock: held by process " + std::to_string(::getpid())));
    second.reset();
    EXPECT_EQ(ask(*first, R"({"command":"good"})")[0]["output"], "good good\n");
}

TEST_F(HostTest, StartsAgainAfterACrash) {
    // The child dies with its socket and its lock file in place.
    const pid_t child = ::fork();
    if (child == 0) {
        auto host = this->host();
        const bool opened = host->open().empty();
        ::_exit(opened && std::filesystem::exists(host->config().controlSocket()) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    ASSERT_TRUE(std::filesystem::exists(directory_.path() / "root" / "control.sock"));
    auto host = running();
    EXPECT_EQ(ask(*host, R"({"command":"good"})")[0]["output"], "good good\n");
}

TEST_F(HostTest, AnUnusableRootIsAnError) {
    std::ofstream{directory_.path() / "root"} << "a file";
    EXPECT_THAT(host()->open(), HasSubstr("root"));
}

TEST_F(HostTest, ListsItsTasksWithTheirRuns) {
    auto host = running();
    Kiln::Task task{host->scheduler(), "Counted", 3, [] { return false; }};
    task.schedule();
    host->scheduler()->runUntilIdle();
    const auto answer = ask(*host, R"({"command":"tasks","format":"json"})");
    const auto tasks = nlohmann::json::parse(answer.at(0)["output"].get<std::string>());
    const auto counted = std::find_if(
        tasks.begin(), tasks.end(), [](const auto& each) { return each["name"] == "Counted"; });
    ASSERT_NE(counted, tasks.end());
    EXPECT_EQ((*counted)["runs"], 1);
    EXPECT_EQ((*counted)["priority"], 3);
}

TEST_F(HostTest, ATasksNameMayHoldAnything) {
    auto host = running();
    Kiln::Task task{host->scheduler(), "a\"b\\\x1b[2J\xff", 3, []() -> bool {
                        throw Vel::RangeError{"c\x1b\n\xfe"};
                    }};
    task.schedule();
    host->scheduler()->runUntilIdle();
    const auto json = nlohmann::json::parse(
        ask(*host, R"({"command":"tasks","format":"json"})").at(0)["output"].get<std::string>());
    EXPECT_THAT(
        json,
        testing::Contains(testing::ResultOf([](const nlohmann::json& each) { return each["name"]; },
                                            "a\"b\\\x1b[2J\xEF\xBF\xBD")));
    const auto text = ask(*host, R"({"command":"tasks"})").at(0)["output"].get<std::string>();
    EXPECT_THAT(text, HasSubstr("a\"b\\\\x1b[2J"));
    EXPECT_THAT(text, HasSubstr("last: c\\x1b\\x0a"));
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

TEST_F(HostTest, SetsTraceLevels) {
    auto host = running();
    ask(*host, R"({"command":"trace","parameters":{"levels":"HostTestHandle=7"}})");
    EXPECT_EQ(Blink::handle("HostTestHandle").level(), 7);
    const auto wrong = ask(*host, R"({"command":"trace","parameters":{"levels":"loud"}})");
    EXPECT_THAT(wrong.at(0)["error"].get<std::string>(), HasSubstr("loud"));
    EXPECT_EQ(Blink::handle("HostTestHandle").level(), 7);
}

TEST_F(HostTest, ACommandThatThrowsIsAnErrorOfItsClientOnly) {
    auto host = running();
    EXPECT_EQ(ask(*host, R"({"command":"bad"})").at(0)["error"], "bad: bad luck");
    EXPECT_EQ(ask(*host, R"({"command":"good"})").at(0)["output"], "good good\n");
}

TEST_F(HostTest, AReloadIsAnsweredOnceTheAgentWasTold) {
    auto host = this->host();
    ASSERT_EQ(host->open(), "");
    writeConfiguration(*host, "one");
    ASSERT_EQ(host->start(goodPlugin()), "");
    for (int i = 0; i < 5; ++i) {
        clock_.advance(std::chrono::seconds{1});
        host->scheduler()->runUntilIdle();
    }
    ASSERT_TRUE(host->configurationReader().caughtUp());
    const auto position = host->configurationReader().position();
    writeConfiguration(*host, "two");  // its bell has rung; nobody has looked yet
    const auto answer = ask(*host, R"({"command":"config reload"})");
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_EQ(answer[0]["output"], "configuration read\n");
    EXPECT_EQ(steps().back(), "doReinitialize");
    EXPECT_GT(host->configurationReader().position(), position);
}

TEST_F(HostTest, AReloadWaitsForAStoreThatIsNotThereYet) {
    auto host = running();
    ControlPeer peer{host->config().controlSocket()};
    peer.send("{\"command\":\"config reload\"}\n");
    host->scheduler()->runUntilIdle();
    peer.receive();
    EXPECT_EQ(peer.received(), "");
    EXPECT_EQ(steps().back(), "mounted");
    writeConfiguration(*host, "one");
    clock_.advance(std::chrono::seconds{2});
    host->scheduler()->runUntilIdle();
    peer.receive();
    EXPECT_THAT(peer.received(), HasSubstr("configuration read"));
    EXPECT_EQ(steps().back(), "doReinitialize");
}

TEST(RootLockTest, IsFreeAgainWhenItsHolderIsGone) {
    const TestSupport::TempDir directory;
    {
        RootLock first;
        EXPECT_EQ(first.take(directory.path(), "x.lock"), "");
        RootLock second;
        EXPECT_THAT(second.take(directory.path(), "x.lock"), HasSubstr("held by process"));
    }
    RootLock third;
    EXPECT_EQ(third.take(directory.path(), "x.lock"), "");
}

TEST(RootLockTest, ItsHolderCanBeAskedForWithoutTakingIt) {
    const TestSupport::TempDir directory;
    const auto holder = [&] { return RootLock::holder(directory.path(), "x.lock"); };
    ASSERT_TRUE(holder());
    EXPECT_EQ(holder()->process, 0);  // there is no such file
    const pid_t child = ::fork();
    if (child == 0) {
        RootLock lock;
        const bool taken = lock.take(directory.path(), "x.lock").empty();
        ::raise(SIGSTOP);
        ::_exit(taken ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(holder()->process, child);
    EXPECT_TRUE(holder()->stopped);
    ::kill(child, SIGCONT);
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(holder()->process, 0) << "the file stays, the lock does not";
    RootLock own;
    ASSERT_EQ(own.take(directory.path(), "x.lock"), "");
    EXPECT_EQ(holder()->process, ::getpid());
    EXPECT_FALSE(holder()->stopped);
}

TEST(RootLockTest, RootTrustsNoDirectoryOfSomebodyElse) {
    if (::geteuid() != 0) { GTEST_SKIP() << "needs root"; }
    const TestSupport::TempDir directory;
    ASSERT_EQ(::chown(directory.path().c_str(), 12345, 12345), 0);
    RootLock lock;
    EXPECT_THAT(lock.take(directory.path(), "x.lock"), HasSubstr("belongs to user 12345"));
}

TEST(ListenAddressTest, ReadsBothFamilies) {
    EXPECT_EQ(ListenAddress::parse("127.0.0.1:9339")->text(), "127.0.0.1:9339");
    EXPECT_EQ(ListenAddress::parse("[::1]:1")->text(), "[::1]:1");
    EXPECT_EQ(ListenAddress::parse("0.0.0.0:5")->reachable().text(), "127.0.0.1:5");
    EXPECT_EQ(ListenAddress::parse("[::]:5")->reachable().text(), "[::1]:5");
    for (const char* const wrong : {"",
                                    ":",
                                    "9339",
                                    "localhost:1",
                                    "127.0.0.1",
                                    "127.0.0.1:",
                                    "127.0.0.1:65536",
                                    "::1:1",
                                    "127.0.0.1:-1",
                                    "127.0.0.1:1x",
                                    "[127.0.0.1:1",
                                    "[::1]",
                                    "1.2.3:4"}) {
        EXPECT_FALSE(ListenAddress::parse(wrong)) << wrong;
    }
}

TEST(ListenAddressTest, SaysWhatAnAddressLooksLikeAndWhatWasGiven) {
    EXPECT_EQ(ListenAddress::problem("[::]:0"), "");
    for (const char* const wrong : {"here", "127.0.0.1:65536", "127.0.0.1:-1", ""}) {
        EXPECT_THAT(ListenAddress::problem(wrong),
                    testing::AllOf(StartsWith("'" + std::string{wrong} + "' is no numeric"),
                                   HasSubstr("0 to 65535"),
                                   HasSubstr("127.0.0.1:9339")));
    }
}

TEST(ListenAddressTest, TellsWhetherSomebodyListensThere) {
    auto port = std::make_unique<TestSupport::LoopbackPort>();
    const ListenAddress there{"127.0.0.1", port->port()};
    EXPECT_FALSE(there.takesConnections()) << "bound, and not listening";
    port->listen(0);
    EXPECT_TRUE(there.takesConnections()) << "though nobody accepts";
    for (int i = 0; i < 4; ++i) { EXPECT_TRUE(there.takesConnections()) << "nor is there room"; }
    port.reset();
    EXPECT_FALSE(there.takesConnections());
}

TEST(ListenAddressTest, NamesAnOccupiedPort) {
    auto port = std::make_unique<TestSupport::LoopbackPort>();
    port->listen(1);
    const ListenAddress listen{"127.0.0.1", port->port()};
    EXPECT_EQ(listen.unusable(),
              listen.text() + " is in use by another process; choose another with --listen");
    port.reset();
    EXPECT_EQ(listen.unusable(), "");
    EXPECT_THAT((ListenAddress{"203.0.113.7", 1}).unusable(), StartsWith("203.0.113.7:1: "));
}

}  // namespace
}  // namespace AgentHost
