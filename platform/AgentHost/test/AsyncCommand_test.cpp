#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <nlohmann/json.hpp>

#include "platform/AgentHost/AsyncCommandCallback.h"
#include "platform/AgentHost/CommandServer.h"
#include "platform/AgentHost/test/ControlPeer.h"
#include "platform/Vel/Errors.h"
#include "test/support/TempDir.h"

namespace AgentHost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kEnd = R"({"end":true})";
constexpr std::string_view kHeartbeat = R"({"heartbeat":true})";

using Produce = std::function<bool(CliPrinter&, std::uint64_t element)>;

/// Prints elements 0, 1, 2, ... until the function that prints one says that it was the last.
class CountingSm final : public AsyncShowCommandInstanceSm {
public:
    CountingSm(Vel::Ref<AsyncShowCommandAnchor> anchor,
               const CommandRequest& params,
               Produce element)
        : AsyncShowCommandInstanceSm{std::move(anchor), params}, element_{std::move(element)} {}
    void produceOutput() override {
        do {
            if (element_(*printer(), next_++)) { return allOutputProducedIs(true); }
        } while (!mustYield());
    }

private:
    Produce element_;
    std::uint64_t next_ = 0;
};

class CountingCallback final : public AsyncCommandCallback {
public:
    CountingCallback(Vel::Ref<AsyncShowCommandAnchor> anchor, Produce element)
        : anchor_{std::move(anchor)}, element_{std::move(element)} {}
    Vel::Ref<AsyncShowCommandInstanceSm> createInstanceSm(const CommandRequest& params) override {
        return Vel::make<CountingSm>(anchor_, params, element_);
    }

private:
    Vel::Ref<AsyncShowCommandAnchor> anchor_;
    Produce element_;
};

class RefusingCallback final : public AsyncCommandCallback {
public:
    Vel::Ref<AsyncShowCommandInstanceSm> createInstanceSm(const CommandRequest&) override {
        throw Vel::RangeError{"not like this"};
    }
};

class AsyncCommandTest : public testing::Test {
protected:
    AsyncCommandTest() { EXPECT_EQ(server_.listen(socket_), ""); }

    void commandIs(const std::string& name, Produce element) {
        commands_->agentCommandCallbackWithHeartbeatIs(
            name, Vel::make<CountingCallback>(anchor_, std::move(element)));
    }
    /// As many lines as wanted, each "<name> <number>".
    void linesIs(const std::string& name, std::uint64_t lines) {
        commandIs(name, [name, lines](CliPrinter& to, std::uint64_t line) {
            to.number(name + " ", std::to_string(line), line);
            to.endLine();
            return line + 1 == lines;
        });
    }
    /// A command that has nothing to print until `ready_`, and is never idle.
    void waitingIs(const std::string& name) {
        scheduler_->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
        commandIs(name, [this](CliPrinter& to, std::uint64_t) {
            if (ready_) { to.string("ready", "ready", ""); }
            return ready_;
        });
    }
    void run() { scheduler_->runUntilIdle(); }
    /// A few rounds of all there is to do, which may never end.
    void runSome() {
        for (int i = 0; i < 5; ++i) {
            scheduler_->stop();
            scheduler_->run();
        }
    }
    static std::string request(const std::string& command, const std::string& format = "text") {
        return R"({"command":")" + command + R"(","format":")" + format + "\"}\n";
    }
    static std::string joined(const std::vector<std::string>& lines) {
        std::string output;
        for (const auto& line : lines) {
            const auto json = nlohmann::json::parse(line);
            if (json.contains("output")) { output += json["output"].get<std::string>(); }
        }
        return output;
    }
    static std::string expected(const std::string& name, std::uint64_t lines) {
        std::string text;
        for (std::uint64_t i = 0; i < lines; ++i) { text += name + " " + std::to_string(i) + "\n"; }
        return text;
    }
    /// Reads to the end of one answer, a little at a time.
    void drain(ControlPeer& peer) {
        do { run(); } while (peer.receiveSome(10'000) > 0);
    }

    TestSupport::TempDir directory_;
    std::filesystem::path socket_ = directory_.path() / "control.sock";
    Kiln::VirtualClock clock_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<CmdRequestDirSm> commands_ = Vel::make<CmdRequestDirSm>();
    Vel::Ref<AsyncShowCommandAnchor> anchor_ =
        Vel::make<AsyncShowCommandAnchor>("anchor", scheduler_);
    CommandServer::Limits limits_;
    CommandServer server_{scheduler_, commands_, limits_};
    bool ready_ = false;
};

TEST_F(AsyncCommandTest, OutputComesInPiecesAndEnds) {
    for (const bool always : {false, true}) {
        if (always) { scheduler_->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>()); }
        linesIs("line", 10'000);
        ControlPeer peer{socket_};
        peer.send(request("line"));
        drain(peer);
        EXPECT_GT(peer.lines().size(), 3U);
        EXPECT_EQ(peer.lines().back(), kEnd);
        EXPECT_TRUE(joined(peer.lines()) == expected("line", 10'000));
        EXPECT_EQ(anchor_->instances(), 0U) << "the machine goes with its request";
    }
}

TEST_F(AsyncCommandTest, TheStructuredFormIsOneDocumentHoweverOftenItWasResumed) {
    scheduler_->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    commandIs("tree", [](CliPrinter& to, std::uint64_t line) {
        if (line == 0) { to.openDict({}, "all"); }
        to.openDict({}, std::to_string(line));
        to.string({}, "text", "\xFF\"");
        to.closeDict();
        return line == 2;
    });
    ControlPeer peer{socket_};
    peer.send(request("tree", "json"));
    drain(peer);
    EXPECT_EQ(
        joined(peer.lines()),
        "{\"all\":{\"0\":{\"text\":\"\xEF\xBF\xBD\\\"\"},\"1\":{\"text\":\"\xEF\xBF\xBD\\\"\"},"
        "\"2\":{\"text\":\"\xEF\xBF\xBD\\\"\"}}}\n");
}

TEST_F(AsyncCommandTest, AClientThatDoesNotReadStopsTheOutputAtOneSlice) {
    std::uint64_t produced = 0;
    commandIs("endless", [&produced](CliPrinter& to, std::uint64_t) {
        ++produced;
        to.string("x", "x", std::string(99, 'x'));
        return false;
    });
    ControlPeer stuck{socket_};
    stuck.send(request("endless"));
    run();  // ends: nobody turns in circles
    const std::uint64_t before = produced;
    EXPECT_GT(server_.bufferedBytes(), 0U);
    EXPECT_LE(server_.bufferedBytes(), 2 * CliPrinter::kFull);
    for (int second = 0; second < 20; ++second) {
        clock_.advance(std::chrono::seconds{1});
        run();
        EXPECT_LE(server_.bufferedBytes(), 2 * CliPrinter::kFull);
    }
    EXPECT_EQ(produced, before);
    EXPECT_EQ(server_.sessions(), 1U);

    std::size_t most = 0;
    std::size_t received = 0;
    while (received < 3'000'000) {  // what it takes makes room
        const std::size_t size = stuck.receiveSome(10'000);
        ASSERT_GT(size, 0U);
        received += size;
        run();
        most = std::max(most, server_.bufferedBytes());
    }
    EXPECT_GT(produced, before);
    EXPECT_LE(most, 2 * CliPrinter::kFull);
}

TEST_F(AsyncCommandTest, AClientThatDoesNotReadIsDroppedAfterTheIdleTime) {
    linesIs("line", 1'000'000);
    ControlPeer stuck{socket_};
    stuck.send(request("line"));
    run();
    clock_.advance(limits_.idleTime - std::chrono::seconds{1});
    run();
    EXPECT_EQ(anchor_->instances(), 1U);
    clock_.advance(std::chrono::seconds{1});
    run();
    EXPECT_EQ(server_.sessions(), 0U);
    EXPECT_EQ(anchor_->instances(), 0U);
}

TEST_F(AsyncCommandTest, ASpaceIsASignOfLifeOfAClientWhoseOwnReaderIsSlow) {
    linesIs("line", 1'000'000);
    ControlPeer slow{socket_};
    slow.send(request("line"));
    for (int i = 0; i < 10; ++i) {
        run();
        clock_.advance(limits_.idleTime - std::chrono::seconds{1});
        slow.send(std::string(10'000, ' '));  // more than a request may have, in all
    }
    run();
    EXPECT_EQ(server_.sessions(), 1U);
    EXPECT_LE(server_.bufferedBytes(), 2 * CliPrinter::kFull);
    drain(slow);
    EXPECT_TRUE(joined(slow.lines()) == expected("line", 1'000'000));
    slow.send(request("nonsense"));  // the spaces are no part of it
    run();
    slow.receive();
    EXPECT_EQ(slow.lines().back(), R"({"end":true,"error":"no command 'nonsense'"})");
}

TEST_F(AsyncCommandTest, AFloodDuringTheAnswerIsReadUpToTheLimitOfARequest) {
    linesIs("line", 1'000'000);
    ControlPeer flood{socket_};
    flood.send(request("line"));
    std::size_t taken = 0;
    for (int i = 0; i < 100; ++i) {
        taken += flood.send(std::string(100'000, 'x'));
        run();
    }
    EXPECT_LT(taken, 1'000'000U);
    EXPECT_EQ(anchor_->instances(), 1U);
}

TEST_F(AsyncCommandTest, AClientThatGoesInMidOutputCancelsItsRequestAtOnce) {
    linesIs("line", 1'000'000);
    {
        ControlPeer peer{socket_};
        peer.send(request("line"));
        run();
        EXPECT_EQ(anchor_->instances(), 1U);
        peer.receiveSome(1000);
    }
    run();
    EXPECT_EQ(anchor_->instances(), 0U);
    EXPECT_EQ(server_.sessions(), 0U);
}

TEST_F(AsyncCommandTest, AClientThatGoesBeforeAnyOutputCancelsItsRequestAtOnce) {
    waitingIs("wait");
    {
        ControlPeer peer{socket_};
        peer.send(request("wait"));
        runSome();
        EXPECT_EQ(anchor_->instances(), 1U);
    }
    runSome();
    EXPECT_EQ(anchor_->instances(), 0U);
    EXPECT_EQ(server_.sessions(), 0U);
}

TEST_F(AsyncCommandTest, AClientThatHasSaidAllItHasToSayGetsItsAnswer) {
    linesIs("line", 100'000);
    ControlPeer peer{socket_};
    peer.send(request("line"));
    peer.shutdown();
    drain(peer);
    EXPECT_TRUE(joined(peer.lines()) == expected("line", 100'000));
    run();
    EXPECT_EQ(server_.sessions(), 0U);
}

TEST_F(AsyncCommandTest, WhileThereIsNothingToSendTheClientIsToldThatItsRequestIsServed) {
    waitingIs("wait");
    ControlPeer peer{socket_};
    peer.send(request("wait"));
    for (int second = 0; second < 100; ++second) {
        runSome();
        clock_.advance(limits_.heartbeat);
        peer.receive();
    }
    runSome();
    peer.receive();
    ASSERT_THAT(peer.lines(), testing::SizeIs(100));
    EXPECT_THAT(peer.lines(), testing::Each(kHeartbeat));
    ready_ = true;
    run();
    peer.receive();
    EXPECT_EQ(peer.lines()[100], R"({"output":"ready"})");
    EXPECT_EQ(peer.lines()[101], kEnd);
    clock_.advance(limits_.heartbeat);
    run();
    peer.receive();
    EXPECT_EQ(peer.lines().size(), 102U) << "no heartbeat after the end";
}

TEST_F(AsyncCommandTest, AHeartbeatComesInFrontOfMoreUrgentWork) {
    linesIs("line", 1);
    Kiln::Task busy{scheduler_, "Busy", 3, [] { return true; }};
    busy.schedule();
    ControlPeer peer{socket_};
    peer.send(request("line"));
    runSome();
    clock_.advance(limits_.heartbeat);
    runSome();
    peer.receive();
    EXPECT_THAT(peer.lines(), ElementsAre(kHeartbeat));
    busy.unschedule();
}

TEST_F(AsyncCommandTest, HeartbeatsAreNotHeapedUpForAClientThatDoesNotRead) {
    linesIs("line", 1'000'000);
    ControlPeer stuck{socket_};
    stuck.send(request("line"));
    run();
    const std::size_t before = server_.bufferedBytes();
    for (int second = 0; second < 20; ++second) {
        clock_.advance(limits_.heartbeat);
        run();
    }
    EXPECT_EQ(server_.bufferedBytes(), before);
    drain(stuck);
    EXPECT_THAT(stuck.lines(), testing::Not(testing::Contains(kHeartbeat)));
}

TEST_F(AsyncCommandTest, ManyAtOnceGetEachTheirOwn) {
    constexpr std::size_t kClients = 30;
    scheduler_->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    std::deque<ControlPeer> peers;
    for (std::size_t i = 0; i < kClients; ++i) {
        linesIs("line" + std::to_string(i), 1000 + i);
        peers.emplace_back(socket_).send(request("line" + std::to_string(i)));
        run();
    }
    EXPECT_EQ(anchor_->instances(), kClients);
    for (std::size_t i = 0; i < kClients; ++i) {
        drain(peers[i]);
        EXPECT_TRUE(joined(peers[i].lines()) == expected("line" + std::to_string(i), 1000 + i));
    }
}

TEST_F(AsyncCommandTest, TheNextRequestOfAClientWaitsForTheAnswer) {
    linesIs("one", 10'000);
    linesIs("two", 2);
    ControlPeer peer{socket_};
    peer.send(request("one") + request("two"));
    for (int i = 0; i < 100; ++i) {
        run();
        peer.receiveSome(50'000);
    }
    EXPECT_TRUE(joined(peer.lines()) == expected("one", 10'000) + expected("two", 2));
}

TEST_F(AsyncCommandTest, ANextRequestThatComesDuringTheAnswerIsTakenAfterIt) {
    linesIs("one", 100'000);
    linesIs("two", 2);
    ControlPeer peer{socket_};
    peer.send(request("one"));
    run();
    peer.send(request("two"));
    for (int i = 0; i < 1000; ++i) {
        run();
        peer.receiveSome(50'000);
    }
    EXPECT_TRUE(joined(peer.lines()) == expected("one", 100'000) + expected("two", 2));
}

TEST_F(AsyncCommandTest, WhatACommandThrowsIsItsErrorAndTheStructuredFormStaysWhole) {
    commandIs("half", [](CliPrinter& to, std::uint64_t line) {
        if (line == 0) { to.openDict({}, "all"); }
        to.openDict("at ", std::to_string(line));
        if (line == 1) { throw Vel::RangeError{"one too many"}; }
        to.endLine();
        to.closeDict();
        return false;
    });
    for (const auto& [format, output] :
         {std::pair{"text", "at 0\nat 1"},
          std::pair{"json",
                    "{\"all\":{\"0\":{},\"1\":{}},\"errors\":[\"half: one too many\"]}\n"}}) {
        ControlPeer peer{socket_};
        peer.send(request("half", format));
        run();
        peer.receive();
        EXPECT_EQ(joined(peer.lines()), output);
        EXPECT_EQ(peer.lines().back(), R"({"end":true,"error":"half: one too many"})");
        EXPECT_EQ(anchor_->instances(), 0U);
    }
}

TEST_F(AsyncCommandTest, WhatIsThrownInOtherWaysIsAnErrorToo) {
    commandIs("number", [](CliPrinter&, std::uint64_t) -> bool { throw 42; });
    commands_->agentCommandCallbackWithHeartbeatIs("refuse", Vel::make<RefusingCallback>());
    ControlPeer peer{socket_};
    peer.send(request("number") + request("refuse"));
    run();
    peer.receive();
    EXPECT_THAT(peer.lines(),
                ElementsAre(R"({"end":true,"error":"number: threw what is no exception"})",
                            R"({"end":true,"error":"refuse: not like this"})"));
}

TEST_F(AsyncCommandTest, ACommandThatIsTakenBackServesWhatItHasBegun) {
    linesIs("line", 100'000);
    ControlPeer peer{socket_};
    peer.send(request("line"));
    run();
    commands_->agentCommandCallbackDel("line");
    drain(peer);
    EXPECT_TRUE(joined(peer.lines()) == expected("line", 100'000));
    peer.send(request("line"));
    run();
    peer.receive();
    EXPECT_THAT(peer.lines().back(), HasSubstr("no command 'line'"));
}

TEST_F(AsyncCommandTest, OneElementLargerThanAllRoomComesWhole) {
    std::string big;
    for (int i = 0; big.size() < 1'000'000; ++i) { big += i % 3 == 0 ? "\xC3\xA9" : "x"; }
    commandIs("big", [&big](CliPrinter& to, std::uint64_t) {
        to.string("is ", "is", big);
        return true;
    });
    ControlPeer peer{socket_};
    peer.send(request("big"));
    drain(peer);
    EXPECT_EQ(joined(peer.lines()), "is " + big);
}

TEST_F(AsyncCommandTest, ItsCommandsAreListedWithTheOthers) {
    linesIs("line", 1);
    commands_->agentCommandCallbackIs("plain", [](const auto&) { return CommandReply{}; });
    EXPECT_THAT(commands_->commands(), ElementsAre("line", "plain"));
}

}  // namespace
}  // namespace AgentHost
