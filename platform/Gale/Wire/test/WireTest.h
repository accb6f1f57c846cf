#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/TestService.h"
#include "platform/Gale/Wire/test/WireClient.h"

namespace Gale::Wire {

/// A server, its service and clients on the test's thread, with time standing still.
class WireTest : public testing::Test {
protected:
    void serve(const Options& options = {}) {
        server = std::make_unique<Server>(options, clock);
        TestService::addTo(server->router(), service);
        ASSERT_EQ(server->listen(), std::nullopt);
    }
    void SetUp() override { serve(); }

    WireClient& connect(std::vector<WireClient::Setting> settings = {}) {
        clients.push_back(std::make_unique<WireClient>(server->port(), true, std::move(settings)));
        return *clients.back();
    }

    void turn() {
        for (auto& client : clients) { client->pump(); }
        server->runOnce();
    }
    /// Turns until `reached`; false when that does not come within two minutes.
    [[nodiscard]] bool until(const std::function<bool()>& reached) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (std::chrono::steady_clock::now() < end) {
            turn();
            if (reached()) { return true; }
        }
        return false;
    }
    /// Turns until no byte has moved for some milliseconds (the kernel may deliver late).
    void settle() {
        const auto moved = [this] {
            const ServerStatus status = server->status();
            return status.total[Count::BytesReceived] + status.total[Count::BytesSent];
        };
        using Steady = std::chrono::steady_clock;
        auto last = moved();
        auto since = Steady::now();
        for (int quiet = 0; quiet < 20 || Steady::now() - since < std::chrono::milliseconds(3);) {
            turn();
            ++quiet;
            if (moved() == last) { continue; }
            last = moved();
            since = Steady::now();
            quiet = 0;
        }
    }
    void advance(Kiln::Duration by) {
        clock.advance(by);
        settle();
    }
    [[nodiscard]] bool ended(WireClient& client, std::uint32_t stream) {
        return until([&] { return client.reply(stream).ended; });
    }
    std::uint64_t count(Count what) const { return server->status().total[what]; }
    /// The connection serves an ordinary call.
    void expectAlive(WireClient& client) {
        const auto stream = client.unary("/test.T/Echo", "alive?");
        ASSERT_TRUE(ended(client, stream)) << "connection is dead";
        EXPECT_EQ(client.reply(stream).status(), "0");
        EXPECT_EQ(client.reply(stream).messages(), std::vector<std::string>{"alive?"});
    }

    Kiln::VirtualClock clock;
    TestService service;
    std::unique_ptr<Server> server;
    std::vector<std::unique_ptr<WireClient>> clients;
};

}  // namespace Gale::Wire
