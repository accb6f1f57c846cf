#include "platform/AgentHost/CommandServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/AgentHost/test/ControlPeer.h"
#include "test/support/TempDir.h"

namespace AgentHost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kEnd = R"({"end":true})";

class CommandServerTest : public testing::Test {
protected:
    CommandServerTest() {
        limits_.connections = 3;
        limits_.requestBytes = 1000;
        server_ = std::make_unique<CommandServer>(scheduler_, commands_, limits_);
        EXPECT_EQ(server_->listen(socket_), "");
        commands_->agentCommandCallbackIs("echo", [](const CommandRequest& request) {
            return CommandReply{request.parameters.at("text"), {}};
        });
        commands_->agentCommandCallbackIs("big", [](const CommandRequest&) {
            return CommandReply{std::string(kBig, 'x'), {}};
        });
        commands_->agentDeferredCommandCallbackIs(
            "later", [this](const CommandRequest&, CommandAnswer answer) {
                answers_.push_back(std::move(answer));
            });
    }

    void run() { scheduler_->runUntilIdle(); }
    /// What a new client is answered to these bytes.
    std::vector<std::string> ask(std::string_view request) {
        ControlPeer peer{socket_};
        peer.send(request);
        run();
        peer.receive();
        return peer.lines();
    }

    static constexpr std::size_t kBig = 3'000'000;
    TestSupport::TempDir directory_;
    std::filesystem::path socket_ = directory_.path() / "control.sock";
    Kiln::VirtualClock clock_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::AlwaysYield>());
    Vel::Ref<CmdRequestDirSm> commands_ = Vel::make<CmdRequestDirSm>();
    CommandServer::Limits limits_;
    std::vector<CommandAnswer> answers_;
    std::unique_ptr<CommandServer> server_;
};

TEST_F(CommandServerTest, AnswersInOutputAndEnd) {
    EXPECT_THAT(ask("{\"command\":\"echo\",\"parameters\":{\"text\":\"a\\nb\"}}\n"),
                ElementsAre(R"({"output":"a\nb"})", kEnd));
}

TEST_F(CommandServerTest, AnswersSeveralRequestsInOrder) {
    EXPECT_THAT(ask("{\"command\":\"echo\",\"parameters\":{\"text\":\"1\"}}\n"
                    "{\"command\":\"echo\",\"parameters\":{\"text\":\"2\"}}\n"),
                ElementsAre(R"({"output":"1"})", kEnd, R"({"output":"2"})", kEnd));
}

TEST_F(CommandServerTest, ARequestMayComeByteByByte) {
    ControlPeer peer{socket_};
    for (const char byte : std::string_view{"{\"command\":\"nonsense\"}\n"}) {
        peer.send({&byte, 1});
        run();
    }
    peer.receive();
    EXPECT_THAT(peer.lines(), ElementsAre(R"({"end":true,"error":"no command 'nonsense'"})"));
}

struct GarbageCase {
    std::string_view name;
    std::string_view bytes;
    std::string_view want;
};
constexpr GarbageCase kGarbage[] = {
    {"NoJson", "hello\n", "a request is a line"},
    {"Binary", "\x01\x02\xff\xfe\n", "a request is a line"},
    {"Array", "[1,2]\n", "a request is a line"},
    {"NoCommand", "{\"format\":\"json\"}\n", "a request is a line"},
    {"CommandNoString", "{\"command\":7}\n", "a request is a line"},
    {"UnknownFormat", "{\"command\":\"echo\",\"format\":\"xml\"}\n", "\\\"format\\\" is"},
    {"ParametersNoObject", "{\"command\":\"echo\",\"parameters\":[]}\n", "is an object of strings"},
    {"ParameterNoString", "{\"command\":\"echo\",\"parameters\":{\"a\":1}}\n", "parameter a is no"},
    {"ThrowingCommand", "{\"command\":\"echo\"}\n", "echo: "},
    {"Nothing", "\n", "a request is a line"},
    {"Null", "null\n", "a request is a line"},
    {"ZeroBytes", std::string_view{"\0\0\0\n", 4}, "a request is a line"},
    {"FormatNoString", "{\"command\":\"echo\",\"format\":{}}\n", "\\\"format\\\" is"},
    {"ParametersNull", "{\"command\":\"echo\",\"parameters\":null}\n", "is an object of strings"},
    {"UnknownCommand", "{\"command\":\"fly\"}\n", "no command 'fly'"},
    {"InvalidUtf8Command", "{\"command\":\"\xff\"}\n", "a request is a line"},
};
class CommandServerGarbage : public CommandServerTest,
                             public testing::WithParamInterface<GarbageCase> {};
TEST_P(CommandServerGarbage, GetsOneErrorAndTheConnectionLivesOn) {
    const std::string after = "{\"command\":\"echo\",\"parameters\":{\"text\":\"still here\"}}\n";
    const auto lines = ask(std::string{GetParam().bytes} + after);
    ASSERT_EQ(lines.size(), 3U) << testing::PrintToString(lines);
    EXPECT_THAT(lines[0], HasSubstr(GetParam().want));
    EXPECT_THAT(lines[0], HasSubstr("\"error\""));
    EXPECT_EQ(lines[1], R"({"output":"still here"})");
}
INSTANTIATE_TEST_SUITE_P(, CommandServerGarbage, testing::ValuesIn(kGarbage), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(CommandServerTest, ATooLongRequestIsRefusedAndEndsTheConnection) {
    ControlPeer peer{socket_};
    peer.send(std::string(2000, 'x'));
    run();
    EXPECT_TRUE(peer.receive());
    EXPECT_THAT(peer.lines(),
                ElementsAre(R"({"end":true,"error":"a request has at most 1000 bytes"})"));
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, AnUnknownCommandIsToldWhyItMayBeMissing) {
    EXPECT_THAT(ask("{\"command\":\"fly\"}\n"),
                ElementsAre(R"({"end":true,"error":"no command 'fly'"})"));
    commands_->absenceIs("it is early");
    EXPECT_THAT(ask("{\"command\":\"fly\"}\n"),
                ElementsAre(R"({"end":true,"error":"no command 'fly' now: it is early"})"));
}

TEST_F(CommandServerTest, ASlowReaderHoldsUpNobodyAndGetsAll) {
    ControlPeer slow{socket_};
    slow.send("{\"command\":\"big\"}\n");
    run();  // ends: the answer waits in the session, nobody turns in circles
    EXPECT_THAT(ask("{\"command\":\"echo\",\"parameters\":{\"text\":\"quick\"}}\n"),
                ElementsAre(R"({"output":"quick"})", kEnd));
    for (int i = 0; i < 100'000 && slow.lines().empty(); ++i) { slow.receiveSome(100); }
    while (slow.receiveSome(60'000) > 0) { run(); }
    std::string output;
    for (const auto& line : slow.lines()) {
        const auto json = nlohmann::json::parse(line);
        if (json.contains("output")) { output += json["output"].get<std::string>(); }
    }
    EXPECT_EQ(output.size(), kBig);
    EXPECT_EQ(slow.lines().back(), kEnd);
}

TEST_F(CommandServerTest, AClientThatStopsReadingIsDroppedAfterTheIdleTime) {
    ControlPeer stuck{socket_};
    stuck.send("{\"command\":\"big\"}\n");
    run();
    clock_.advance(limits_.idleTime - std::chrono::seconds{1});
    run();
    EXPECT_EQ(server_->sessions(), 1U);
    clock_.advance(std::chrono::seconds{1});
    run();
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, HalfARequestAndThenSilenceIsDroppedAfterTheIdleTime) {
    ControlPeer half{socket_};
    half.send("{\"command\":");
    run();
    clock_.advance(limits_.idleTime);
    run();
    EXPECT_TRUE(half.receive());
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, ARequestThatTricklesInHasTheIdleTimeFromItsFirstByte) {
    ControlPeer slow{socket_};
    for (int second = 0; second < 30; ++second) {
        slow.send("x");
        run();
        clock_.advance(std::chrono::seconds{1});
    }
    run();
    EXPECT_TRUE(slow.receive());
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, AVanishedClientIsForgotten) {
    {
        ControlPeer silent{socket_};
        ControlPeer reading{socket_};
        reading.send("{\"command\":\"big\"}\n");
        run();
        EXPECT_EQ(server_->sessions(), 2U);
    }
    run();
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, AnAnswerMayComeLater) {
    ControlPeer peer{socket_};
    peer.send(
        "{\"command\":\"later\"}\n{\"command\":\"echo\",\"parameters\":{\"text\":\"next\"}}\n");
    run();
    peer.receive();
    EXPECT_EQ(peer.received(), "");
    ASSERT_EQ(answers_.size(), 1U);
    answers_[0]({"at last", {}});
    run();
    answers_[0]({"twice", {}});  // the second one is nobody's
    run();
    peer.receive();
    EXPECT_THAT(peer.lines(),
                ElementsAre(R"({"output":"at last"})", kEnd, R"({"output":"next"})", kEnd));
}

TEST_F(CommandServerTest, AnAnswerAfterTheClientWentIsDropped) {
    {
        ControlPeer peer{socket_};
        peer.send("{\"command\":\"later\"}\n");
        run();
    }
    clock_.advance(limits_.idleTime);
    run();
    EXPECT_EQ(server_->sessions(), 0U);
    ASSERT_EQ(answers_.size(), 1U);
    answers_[0]({"for nobody", {}});
    run();
    EXPECT_EQ(server_->sessions(), 0U);
}

TEST_F(CommandServerTest, TooManyClientsAreClosedAtOnceAndTheOthersStay) {
    std::vector<std::unique_ptr<ControlPeer>> peers;
    for (int i = 0; i < 4; ++i) { peers.push_back(std::make_unique<ControlPeer>(socket_)); }
    run();
    EXPECT_EQ(server_->sessions(), 3U);
    EXPECT_TRUE(peers[3]->receive());
    EXPECT_THAT(peers[3]->lines(),
                ElementsAre(R"({"end":true,"error":"3 clients are being answered already"})"));
    EXPECT_FALSE(peers[0]->receive());
    peers[0]->close();
    run();
    EXPECT_THAT(ask("{\"command\":\"echo\",\"parameters\":{\"text\":\"room again\"}}\n"),
                ElementsAre(R"({"output":"room again"})", kEnd));
}

TEST_F(CommandServerTest, HundredsOfClientsCostNoMoreThanTheLimitAndLeaveNothing) {
    for (int i = 0; i < 400; ++i) {
        ControlPeer peer{socket_};
        peer.send(i % 2 == 0 ? "{\"command\":\"big\"}\n" : "half a li");
        if (i % 4 == 0) { run(); }
        EXPECT_LE(server_->sessions(), limits_.connections);
    }
    clock_.advance(limits_.idleTime);
    run();
    EXPECT_EQ(server_->sessions(), 0U);
    EXPECT_THAT(ask("{\"command\":\"echo\",\"parameters\":{\"text\":\"still here\"}}\n"),
                ElementsAre(R"({"output":"still here"})", kEnd));
}

TEST_F(CommandServerTest, NestingToTheLimitIsOneError) {
    limits_.requestBytes = 64U << 10U;
    CommandServer roomy{scheduler_, commands_, limits_};
    const auto path = directory_.path() / "roomy.sock";
    ASSERT_EQ(roomy.listen(path), "");
    for (const std::string& nested :
         {std::string(60'000, '['), std::string(30'000, '[') + std::string(30'000, ']')}) {
        ControlPeer peer{path};
        peer.send("{\"command\":\"echo\",\"parameters\":" + nested + "}\n");
        for (int i = 0; i < 5; ++i) { run(); }
        peer.receive();
        ASSERT_EQ(peer.lines().size(), 1U);
        EXPECT_THAT(peer.lines()[0], HasSubstr("\"error\""));
    }
}

TEST_F(CommandServerTest, TheSocketIsForOwnerAndGroupAndGoesWithTheServer) {
    struct stat status {};
    ASSERT_EQ(::stat(socket_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
    server_.reset();
    EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(CommandServerTest, TheSocketOfAKilledProcessIsReplaced) {
    const auto stale = directory_.path() / "stale.sock";
    const pid_t child = ::fork();
    if (child == 0) {
        const auto own =
            Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::AlwaysYield>());
        CommandServer server{own, commands_};
        ::_exit(server.listen(stale).empty() ? 0 : 1);  // as SIGKILL ends it
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    ASSERT_TRUE(std::filesystem::is_socket(stale));
    CommandServer other{scheduler_, commands_};
    EXPECT_EQ(other.listen(stale), "");
    EXPECT_TRUE(ControlPeer{stale}.connected());
}

TEST_F(CommandServerTest, WhatIsNoSocketStaysAndIsAnError) {
    const auto file = directory_.path() / "file.sock";
    std::ofstream{file} << "somebody's";
    const auto folder = directory_.path() / "folder.sock";
    std::filesystem::create_directory(folder);
    const auto link = directory_.path() / "link.sock";
    std::filesystem::create_symlink(socket_, link);
    for (const auto& path : {file, folder, link}) {
        CommandServer other{scheduler_, commands_};
        EXPECT_EQ(
            other.listen(path),
            "control socket " + path.string() + ": something that is no socket is in its place");
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(file));
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(CommandServerTest, AnImpossiblePathIsAnError) {
    CommandServer other{scheduler_, commands_};
    EXPECT_THAT(other.listen("/nowhere/control.sock"), HasSubstr("No such file"));
    EXPECT_THAT(other.listen(directory_.path() / std::string(200, 'x')), HasSubstr("longer than"));
}

}  // namespace
}  // namespace AgentHost
