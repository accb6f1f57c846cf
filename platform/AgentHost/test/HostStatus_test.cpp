#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/AgentHost/HostStatus.h"
#include "platform/AgentHost/RootLock.h"
#include "platform/AgentHost/test/HostFixture.h"
#include "platform/Vel/Errors.h"

namespace AgentHost {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class HostStatusTest : public HostTest {
protected:
    std::string text(Host& host, const std::string& parameters = "{}") {
        return ask(host, R"({"command":"status","parameters":)" + parameters + "}")
            .at(0)["output"]
            .get<std::string>();
    }
    nlohmann::json json(Host& host) {
        return nlohmann::json::parse(ask(host, R"({"command":"status","format":"json"})")
                                         .at(0)["output"]
                                         .get<std::string>());
    }
    std::unique_ptr<Store::Writer> writeState(Host& host,
                                              std::size_t mapBytes,
                                              std::size_t valueBytes = 1) {
        Store::Options options;
        options.directory = host.config().stateDirectory();
        options.mapBytes = mapBytes;
        std::string error;
        auto writer = std::make_unique<Store::Writer>(
            Store::Environment::open(options, Store::Access::write, error));
        writer->put(writer->tableIs("things", "Thing", Store::TableKind::table),
                    "key",
                    std::string(valueBytes, 'x'));
        EXPECT_EQ(writer->commit(), "");
        return writer;
    }
    void aSecondPasses(Host& host) {
        clock_.advance(std::chrono::seconds{1});
        host.scheduler()->runUntilIdle();
    }
    /// What was committed now was committed at this age of the host's clock.
    void commitWasAgo(Host& host, std::chrono::seconds age) {
        const std::int64_t at = clock_.wallNanoseconds() - Kiln::Duration{age}.count();
        const timespec time{at / 1'000'000'000, at % 1'000'000'000};
        const timespec times[] = {time, time};
        const auto bell = host.config().stateDirectory() / "bell";
        ASSERT_EQ(::utimensat(AT_FDCWD, bell.c_str(), times, 0), 0);
    }
};

TEST_F(HostStatusTest, TellsWhoRunsAndWhereClientsConnect) {
    auto host = running();
    clock_.advance(std::chrono::seconds{61});
    const auto status = json(*host);
    EXPECT_EQ(status["agent"], "good");
    EXPECT_EQ(status["pid"], ::getpid());
    EXPECT_EQ(status["upSeconds"], 61);
    EXPECT_EQ(status["running"], true);
    EXPECT_EQ(status["gnmi"]["address"], "127.0.0.1");
    EXPECT_EQ(status["gnmi"]["port"], 4711);
    const std::string pid = std::to_string(::getpid());
    EXPECT_THAT(text(*host),
                StartsWith("agent       good, revision " + std::string{PEL_REVISION} +
                           ", process " + pid + ", up 1 min 1 s\nroot        " +
                           host->config().root.string() + "\ngNMI        127.0.0.1:4711\n"));
}

TEST_F(HostStatusTest, AStoreThatIsNotThereIsSaidWithItsReason) {
    auto host = running();
    const auto status = json(*host);
    EXPECT_EQ(status["state"]["open"], false);  // no forwarder yet, and that is no error
    EXPECT_THAT(status["state"]["reason"].get<std::string>(), HasSubstr("state"));
    EXPECT_THAT(text(*host), HasSubstr("\nstate       NOT open: "));
    EXPECT_THAT(text(*host), HasSubstr("\nconfig      NOT open: "));
}

TEST_F(HostStatusTest, AnOpenStoreIsToldWithPositionAndRoom) {
    auto host = running();
    const auto writer = writeState(*host, std::size_t{4} << 30);
    aSecondPasses(*host);
    const auto state = json(*host)["state"];
    EXPECT_EQ(state["open"], true);
    EXPECT_EQ(state["caughtUp"], true);
    EXPECT_EQ(state["position"], 2);  // the table and its record
    EXPECT_EQ(state["limitBytes"], std::size_t{4} << 30);
    EXPECT_EQ(state["usedBytes"], host->stateReader().environment()->usedBytes());
    EXPECT_EQ(state["usedPercent"], 0);
    EXPECT_EQ(state["nearlyFull"], false);
    EXPECT_THAT(
        text(*host),
        testing::ContainsRegex("\nstate       open, caught up at 2; 0.[0-9] of 4096 MiB .0 %.\n"));
}

TEST_F(HostStatusTest, AStoreThatIsNotReadToItsEndAndChangesThatFailedAreSaid) {
    class Unwilling final : public Store::Sink {
        void keyChanged(std::string_view /*key*/) override {}
        void sweepBegun() override {}
        void sweepKey(std::string_view /*key*/) override { throw Vel::RangeError{"unwanted"}; }
        void sweepLater(std::string_view /*key*/) override {}
        void sweepEnded() override {}
        void presentIs(bool /*present*/) override {}
        void sweepSettled() override {}
    };
    auto host = running();
    const auto writer = writeState(*host, std::size_t{4} << 30);
    aSecondPasses(*host);
    Unwilling sink;
    const auto mount = host->entityManager()->sharedMemory()->reader()->mount(
        "things", "Thing", Store::TableKind::table, sink);
    CliPrinter printer{OutputFormat::text};
    HostStatus{*host}.print(printer);
    EXPECT_THAT(printer.takeOutput(), HasSubstr("\nstate       open, NOT caught up at 2; "));
    host->scheduler()->runUntilIdle();
    EXPECT_THAT(text(*host), HasSubstr("\n            1 changes FAILED in who was told of them"));
    EXPECT_EQ(json(*host)["state"]["failures"], 1);
}

TEST_F(HostStatusTest, AStoreThatIsNearlyFullIsSaid) {
    auto host = running();
    const auto writer = writeState(*host, std::size_t{2} << 20, std::size_t{1600} << 10);
    aSecondPasses(*host);
    EXPECT_THAT(text(*host), HasSubstr("; nearly FULL: 1.6 of 2 MiB (80 %)\n"));
    EXPECT_EQ(json(*host)["state"]["nearlyFull"], true);
}

TEST_F(HostStatusTest, AStoreThatWentAwayIsCountedWithItsReason) {
    auto host = running();
    auto writer = writeState(*host, std::size_t{4} << 30);
    aSecondPasses(*host);
    ASSERT_TRUE(host->stateReader().open());
    writer.reset();
    std::filesystem::remove_all(host->config().stateDirectory());
    aSecondPasses(*host);
    EXPECT_EQ(json(*host)["state"]["losses"], 1);
    EXPECT_EQ(json(*host)["state"]["lastLoss"], "its files were replaced, removed or cut off");
    EXPECT_THAT(text(*host), HasSubstr("\n            went away 1 times, last: its files"));
}

TEST_F(HostStatusTest, AForwarderIsToldWithItsProcessAndItsLastCommit) {
    auto host = running();
    EXPECT_THAT(text(*host), HasSubstr("\nforwarder   NOT running\n"));
    RootLock lock;
    ASSERT_EQ(lock.take(host->config().root, HostConfig::kForwarderLock), "");
    const std::string pid = std::to_string(::getpid());
    EXPECT_THAT(text(*host), HasSubstr("\nforwarder   process " + pid + "\n"));
    const auto writer = writeState(*host, std::size_t{4} << 30);
    aSecondPasses(*host);
    commitWasAgo(*host, std::chrono::seconds{42});
    EXPECT_THAT(text(*host),
                HasSubstr("\nforwarder   process " + pid + ", last commit 42 s ago\n"));
    const auto forwarder = json(*host)["forwarder"];
    EXPECT_EQ(forwarder["running"], true);
    EXPECT_EQ(forwarder["stopped"], false);
    EXPECT_EQ(forwarder["pid"], ::getpid());
    EXPECT_EQ(forwarder["lastCommitSeconds"], 42);
}

TEST_F(HostStatusTest, ADeadForwarderIsSaidWithTheAgeOfWhatItLeft) {
    auto host = running();
    const auto writer = writeState(*host, std::size_t{4} << 30);
    aSecondPasses(*host);
    commitWasAgo(*host, std::chrono::hours{2});
    EXPECT_THAT(text(*host), HasSubstr("\nforwarder   NOT running, last commit 2 h 0 min ago\n"));
    EXPECT_EQ(json(*host)["forwarder"]["running"], false);
}

TEST_F(HostStatusTest, TheAgentsPartStandsBetweenTheHostsAndMayComeLater) {
    auto host = running();
    const auto all = text(*host);
    EXPECT_THAT(all, HasSubstr("\nmood        NOT bad\ntasks       none has failed\n"));
    EXPECT_EQ(json(*host)["mood"], "NOT bad");
    EXPECT_EQ(all.find('\x1b'), std::string::npos);
    EXPECT_THAT(text(*host, R"({"colour":"yes"})"),
                HasSubstr("\nmood        \x1b[31mNOT bad\x1b[0m\n"));
}

TEST_F(HostStatusTest, WhatTheAgentsPartThrowsIsTheRequestsError) {
    auto host = this->host("throws in status");
    ASSERT_EQ(host->open(), "");
    ASSERT_EQ(host->start(goodPlugin()), "");
    host->scheduler()->runUntilIdle();
    EXPECT_EQ(ask(*host, R"({"command":"status"})").at(0)["error"], "status: no status today");
}

TEST_F(HostStatusTest, WithoutAnAgentTheHostAnswersAlone) {
    auto host = this->host("none");
    ASSERT_EQ(host->open(), "");
    EXPECT_EQ(json(*host)["running"], false);
    EXPECT_THAT(text(*host), HasSubstr("\ngNMI        NOT serving\n"));
}

TEST_F(HostStatusTest, FailedTasksAreToldTheFirstFewInWords) {
    auto host = running();
    std::vector<std::unique_ptr<Kiln::Task>> tasks;
    for (const char* const name : {"A", "B", "C", "D"}) {
        tasks.push_back(std::make_unique<Kiln::Task>(
            host->scheduler(), name, 3, []() -> bool { throw Vel::RangeError{"bad luck"}; }));
        tasks.back()->schedule();
    }
    host->scheduler()->runUntilIdle();
    EXPECT_THAT(text(*host),
                HasSubstr("\ntasks       4 FAILED\n"
                          "  A, times: 1, last: bad luck\n"
                          "  B, times: 1, last: bad luck\n"
                          "  C, times: 1, last: bad luck\n"
                          "  and 1 more\n"));
    EXPECT_EQ(json(*host)["failedTasks"].size(), 4U);
}

}  // namespace
}  // namespace AgentHost
