#include <chrono>

#include "platform/Gale/Wire/test/WireTest.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t kInitialWindow = 4;

class FlowTest : public WireTest {};

TEST_F(FlowTest, NothingIsTakenFromTheSourceWithoutWindow) {
    auto& client = connect({{kInitialWindow, 0}});
    const auto stream = client.unary("/test.T/Numbers", "1000 100");
    ASSERT_TRUE(until([&] { return !client.reply(stream).headers.empty(); }));
    settle();
    EXPECT_EQ(service.fills, 0u);
    client.window(stream, 1050);  // ten messages of 105
    ASSERT_TRUE(until([&] { return client.reply(stream).messages().size() == 10; }));
    settle();
    EXPECT_EQ(client.reply(stream).data.size(), 1050u);
    EXPECT_LE(service.pulled, 11u);
}

TEST_F(FlowTest, AMessageStraddlesWindows) {
    auto& client = connect({{kInitialWindow, 0}});
    const auto stream = client.unary("/test.T/Numbers", "1 3000");
    settle();
    client.window(stream, 2000);
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 2000; }));
    client.window(stream, 2000);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).data.size(), 3005u);
    EXPECT_EQ(client.reply(stream).status(), "0");
}

TEST_F(FlowTest, TinyWindowsAreSavedUpUntilWorthAFrame) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Numbers", "100000 100");
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 65535; }));
    const auto frames = client.reply(stream).dataFrames;
    for (int i = 0; i < 1023; ++i) {
        client.window(stream, 1);
        turn();
    }
    settle();
    EXPECT_LE(client.reply(stream).dataFrames, frames + 1);  // the end of the message in progress
    EXPECT_LE(client.reply(stream).data.size(), 65535u + 105);
    client.window(stream, 1024);
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 65535 + 2047; }));
    EXPECT_LE(client.reply(stream).dataFrames, frames + 2);
}

TEST_F(FlowTest, AClientWithAOneByteWindowGetsItsBytes) {
    auto& client = connect({{kInitialWindow, 1}});
    const auto stream = client.unary("/test.T/Numbers", "1 10");
    for (std::size_t have = 1; have < 15; ++have) {
        ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == have; }));
        client.window(stream, 1);
    }
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).data.size(), 15u);
}

TEST_F(FlowTest, WindowShrunkBelowZeroBySettingsRecovers) {
    auto& client = connect({{kInitialWindow, 10'000}});
    const auto stream = client.unary("/test.T/Numbers", "1000 100");
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 10'000; }));
    client.settings({{kInitialWindow, 1'000}});  // now -9,000
    client.window(stream, 9'000);
    settle();
    EXPECT_EQ(client.reply(stream).data.size(), 10'000u);
    client.window(stream, 1'000'000);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).messages().size(), 1000u);
}

TEST_F(FlowTest, AStalledCallDoesNotStarveAnother) {
    auto& client = connect();
    const auto stalled = client.unary("/test.T/Numbers", "100000 100");
    ASSERT_TRUE(until([&] { return client.reply(stalled).data.size() == 65535; }));
    const auto fast = client.open(WireClient::head("/test.T/Numbers"));
    client.window(fast, 1U << 30U);
    client.send(fast, "20000 100", true);
    ASSERT_TRUE(ended(client, fast));
    EXPECT_EQ(client.reply(fast).messages().size(), 20'000u);
    EXPECT_EQ(client.reply(stalled).data.size(), 65535u);
}

TEST_F(FlowTest, ResumeAfterIdleTakesWhatIsThere) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
    settle();
    const auto writes = count(Count::Writes);
    for (int i = 0; i < 40; ++i) { service.push("message " + std::to_string(i)); }
    ASSERT_TRUE(until([&] { return client.reply(stream).messages().size() == 40; }));
    EXPECT_EQ(client.reply(stream).dataFrames, 1u);
    EXPECT_EQ(count(Count::Writes), writes + 1);  // forty messages, one system call
}

TEST_F(FlowTest, ManyCallsOfAConnectionShareOneWriteATurn) {
    auto& client = connect();
    for (int i = 0; i < 50; ++i) { client.unary("/test.T/Live", "go"); }
    ASSERT_TRUE(until([&] { return service.liveCalls() == 50; }));
    settle();
    const auto writes = count(Count::Writes);
    service.push("to all");
    server->runOnce();
    EXPECT_EQ(count(Count::Writes), writes + 1);
    EXPECT_EQ(count(Count::DataFramesSent), 50u);
}

TEST_F(FlowTest, BulkPacksManyMessagesIntoEachWrite) {
    auto& client = connect({{kInitialWindow, 0x7FFFFFFF}});
    const auto stream = client.unary("/test.T/Numbers", "100000 340");
    ASSERT_TRUE(ended(client, stream));
    const double writes = static_cast<double>(count(Count::Writes));
    EXPECT_LT(writes / 100'000, 0.02);  // 64 KiB are 190 messages; flush per message would be 1
}

TEST_F(FlowTest, ASocketThatIsNotReadHoldsTheSourceBack) {
    auto& client = connect({{kInitialWindow, 0x7FFFFFFF}});
    const auto stream = client.unary("/test.T/Numbers", "10000000 340");
    ASSERT_TRUE(until([&] { return !client.reply(stream).headers.empty(); }));
    client.stopReading();
    std::uint64_t pulled = 0;
    do {
        pulled = service.pulled;
        settle();
    } while (service.pulled != pulled);
    // Besides the kernel's buffers of both sides there is one output buffer of 64 KiB.
    const std::uint64_t taken = service.pulled * 345;
    EXPECT_LE(taken, count(Count::BytesSent) + (64U << 10U) + 16384 + 345);
    // What can no longer be made newer when the client returns.
    EXPECT_LE(taken - client.reply(stream).data.size(), 600'000u);
    client.startReading();
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() > taken; }));
}

TEST_F(FlowTest, ACallWithoutProgressForTheStallTimeEndsUnavailable) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Numbers", "100000 100");
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 65535; }));
    for (int i = 0; i < 59; ++i) { advance(1s); }
    EXPECT_EQ(service.handlers, 1u);
    advance(1s);
    EXPECT_EQ(service.handlers, 0u);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "14");
    EXPECT_EQ(count(Count::CallsStalled), 1u);
    ASSERT_EQ(service.cancelled.size(), 1u);
    EXPECT_EQ(service.cancelled[0].code, Code::Unavailable);
    expectAlive(client);
}

TEST_F(FlowTest, AnIdleSourceIsNoStall) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
    for (int i = 0; i < 300; ++i) { advance(1s); }
    EXPECT_EQ(service.liveCalls(), 1u);
    service.push("still here");
    ASSERT_TRUE(until([&] { return client.reply(stream).messages().size() == 1; }));
}

TEST_F(FlowTest, ASlowButMovingReaderIsNoStall) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Numbers", "100000 100");
    ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 65535; }));
    for (std::size_t i = 1; i <= 5; ++i) {
        advance(50s);
        client.window(stream, 2000);
        ASSERT_TRUE(until([&] { return client.reply(stream).data.size() == 65535 + i * 2000; }));
    }
    EXPECT_EQ(count(Count::CallsStalled), 0u);
}

TEST_F(FlowTest, AConnectionThatIsNotReadEndsAfterTheStallTime) {
    auto& client = connect({{kInitialWindow, 0x7FFFFFFF}});
    client.unary("/test.T/Numbers", "10000000 340");
    client.stopReading();
    settle();
    ASSERT_EQ(service.handlers, 1u);
    client.answerPings = false;
    for (int i = 0; i < 62; ++i) {
        advance(1s);
        client.ping();  // alive, but not reading
    }
    EXPECT_EQ(service.handlers, 0u);
    EXPECT_TRUE(server->status().connections.empty());
}

}  // namespace
}  // namespace Gale::Wire
