#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/TestService.h"
#include "platform/Gale/Wire/test/WireClient.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

/// A server on its own thread and the machine's clock.
class ThreadTest : public testing::Test {
protected:
    void SetUp() override {
        TestService::addTo(server.router(), service);
        ASSERT_EQ(server.listen(), std::nullopt);
        server.start();
    }
    static bool until(WireClient& client, const std::function<bool()>& reached) {
        const auto end = std::chrono::steady_clock::now() + 2min;
        while (std::chrono::steady_clock::now() < end) {
            client.pump();
            if (reached()) { return true; }
            std::this_thread::yield();
        }
        return false;
    }
    /// Runs on the I/O thread and waits for the answer.
    template <class Fn>
    auto ask(Fn fn) {
        std::promise<decltype(fn())> answer;
        auto future = answer.get_future();
        server.post([&] { answer.set_value(fn()); });
        return future.get();
    }

    Kiln::SteadyClock clock;
    TestService service;
    Server server{{}, clock};
};

TEST_F(ThreadTest, ServesCalls) {
    WireClient client{server.port()};
    for (int i = 0; i < 100; ++i) {
        const auto stream = client.unary("/test.T/Echo", "hello");
        ASSERT_TRUE(until(client, [&] { return client.reply(stream).ended; }));
        EXPECT_EQ(client.reply(stream).messages(), std::vector<std::string>{"hello"});
    }
    EXPECT_EQ(ask([&] { return server.status().total[Count::CallsFinished]; }), 100u);
}

TEST_F(ThreadTest, OtherThreadsReachCallsByPosting) {
    WireClient client{server.port()};
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until(client, [&] { return !client.reply(stream).headers.empty(); }));
    constexpr std::size_t kMessages = 2000;
    const auto produce = [&] {
        for (std::size_t i = 0; i < kMessages / 2; ++i) {
            server.post([&] { service.push("x"); });
        }
    };
    std::thread first{produce};
    std::thread second{produce};
    EXPECT_TRUE(until(client, [&] { return client.reply(stream).messages().size() == kMessages; }));
    first.join();
    second.join();
}

TEST_F(ThreadTest, DeadlineOfOneMillisecondEndsTheCall) {
    WireClient client{server.port()};
    const auto stream = client.unary("/test.T/Sleep", "x", {{"grpc-timeout", "1m"}});
    ASSERT_TRUE(until(client, [&] { return client.reply(stream).ended; }));
    EXPECT_EQ(client.reply(stream).status(), "4");
    EXPECT_EQ(ask([&] { return service.handlers; }), 0u);
}

TEST_F(ThreadTest, StopWaitsForOpenCallsAtMostForTheGrace) {
    WireClient client{server.port()};
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until(client, [&] { return !client.reply(stream).headers.empty(); }));
    std::atomic<bool> done{false};
    std::thread stopper{[&] {
        server.stop(100ms);
        done = true;
    }};
    EXPECT_TRUE(until(client, [&] { return done.load(); }));
    stopper.join();
    client.pump();
    EXPECT_EQ(client.reply(stream).status(), "14");
    EXPECT_EQ(client.goaways().size(), 2u);
    EXPECT_TRUE(server.stopped());
    EXPECT_EQ(service.handlers, 0u);
}

TEST_F(ThreadTest, StopWithoutClientsDoesNotWaitForTheGrace) {
    const auto before = std::chrono::steady_clock::now();
    server.stop(1h);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1h);
}

}  // namespace
}  // namespace Gale::Wire
