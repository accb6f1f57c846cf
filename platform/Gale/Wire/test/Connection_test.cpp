#include <chrono>

#include "platform/Gale/Wire/test/WireTest.h"
#include "test/support/NoMoreDescriptors.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

class ConnectionTest : public WireTest {};

TEST_F(ConnectionTest, AnOccupiedPortIsAnErrorThatNamesIt) {
    Options options;
    options.port = server->port();
    Server second{options, clock};
    const auto failure = second.listen();
    ASSERT_TRUE(failure);
    EXPECT_EQ(
        *failure,
        "cannot listen on 127.0.0.1:" + std::to_string(options.port) + ": Address already in use");
    EXPECT_EQ(second.port(), 0);
    server.reset();
    EXPECT_EQ(second.listen(), std::nullopt);
    EXPECT_EQ(second.port(), options.port);
}

TEST_F(ConnectionTest, ABadAddressIsAnError) {
    Options options;
    options.address = "router.example";
    Server bad{options, clock};
    EXPECT_EQ(bad.listen(),
              "cannot listen on router.example:0: not a numeric IPv4 or IPv6 address");
}

TEST_F(ConnectionTest, ListensOnIpv6) {
    Options options;
    options.address = "::1";
    Server six{options, clock};
    const auto failure = six.listen();
    if (failure) { GTEST_SKIP() << *failure; }  // no IPv6 on this machine
    EXPECT_NE(six.port(), 0);
}

TEST_F(ConnectionTest, OverTheLimitIsClosedAtOnce) {
    Options options;
    options.maxConnections = 2;
    serve(options);
    auto& first = connect();
    connect();
    auto& third = connect();
    ASSERT_TRUE(until([&] { return third.closed(); }));
    EXPECT_EQ(server->status().turnedAway, 1u);
    EXPECT_EQ(server->status().connections.size(), 2u);
    expectAlive(first);
}

TEST_F(ConnectionTest, OnePeerCannotTakeAllConnections) {
    Options options;
    options.maxConnectionsPerPeer = 1;
    serve(options);
    auto& first = connect();
    auto& second = connect();
    ASSERT_TRUE(until([&] { return second.closed(); }));
    expectAlive(first);
}

TEST_F(ConnectionTest, WithoutDescriptorsClientsAreTurnedAwayAndServiceReturns) {
    auto& first = connect();
    expectAlive(first);
    auto waiting = std::make_unique<WireClient>(server->port());
    auto second = std::make_unique<WireClient>(server->port());
    {
        const TestSupport::NoMoreDescriptors none;
        settle();
    }
    EXPECT_EQ(server->status().turnedAway, 1u);  // then it paused: no spinning
    expectAlive(first);
    advance(1s);
    clients.push_back(std::move(waiting));
    clients.push_back(std::move(second));
    EXPECT_TRUE(until([&] { return server->status().connections.size() >= 2; }));
    expectAlive(connect());
}

TEST_F(ConnectionTest, AClientThatSaysNothingIsClosedAfterTheOpeningTime) {
    clients.push_back(std::make_unique<WireClient>(server->port(), false));
    ASSERT_TRUE(until([&] { return server->status().connections.size() == 1; }));
    advance(9s);
    EXPECT_EQ(server->status().connections.size(), 1u);
    advance(1s);
    EXPECT_EQ(server->status().connections.size(), 0u);
}

TEST_F(ConnectionTest, ADeadPeerIsFoundByPing) {
    auto& client = connect();
    client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.handlers == 1; }));
    settle();
    client.answerPings = false;
    for (int i = 0; i < 60; ++i) { advance(1s); }
    EXPECT_EQ(client.pings, 1u);
    for (int i = 0; i < 19; ++i) { advance(1s); }
    EXPECT_EQ(service.handlers, 1u);
    advance(1s);
    EXPECT_EQ(service.handlers, 0u);
    EXPECT_EQ(count(Count::KeepaliveTimeouts), 1u);
}

TEST_F(ConnectionTest, AnAnsweringPeerLivesInSilence) {
    auto& client = connect();
    client.unary("/test.T/Live", "go");
    for (int i = 0; i < 600; ++i) { advance(1s); }
    EXPECT_GE(client.pings, 9u);
    EXPECT_EQ(service.handlers, 1u);
}

TEST_F(ConnectionTest, GracefulStopLetsOpenCallsEnd) {
    auto& client = connect();
    const auto open = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
    server->beginStop(30s);
    ASSERT_TRUE(until([&] { return client.goaways().size() == 2; }));
    EXPECT_EQ(client.goaways()[0].lastStream, 0x7FFFFFFFu);
    EXPECT_EQ(client.goaways()[0].code, 0u);
    EXPECT_EQ(client.goaways()[1].lastStream, open);
    service.push("still served");
    ASSERT_TRUE(until([&] { return client.reply(open).messages().size() == 1; }));
    service.endLive({});
    ASSERT_TRUE(ended(client, open));
    EXPECT_EQ(client.reply(open).status(), "0");
    ASSERT_TRUE(until([&] { return client.closed(); }));
    clients.clear();
    EXPECT_TRUE(until([&] { return server->stopped(); }));
}

TEST_F(ConnectionTest, CallsOnTheirWayDuringTheFirstGoawayAreServed) {
    auto& client = connect();
    client.answerPings = false;
    settle();
    server->beginStop(30s);
    ASSERT_TRUE(until([&] { return client.goaways().size() == 1; }));
    expectAlive(client);
    for (int i = 0; i < 6; ++i) { advance(1s); }
    EXPECT_EQ(client.goaways().size(), 2u);  // after 5 s without the answer to our PING
    ASSERT_TRUE(until([&] { return client.closed(); }));
}

TEST_F(ConnectionTest, AtTheEndOfGraceCallsEndUnavailable) {
    auto& client = connect();
    const auto open = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
    server->beginStop(3s);
    settle();
    advance(2999ms);
    EXPECT_FALSE(client.reply(open).ended);
    advance(1ms);
    ASSERT_TRUE(ended(client, open));
    EXPECT_EQ(client.reply(open).status(), "14");
    ASSERT_EQ(service.cancelled.size(), 1u);
    EXPECT_EQ(service.cancelled[0].code, Code::Unavailable);
    ASSERT_TRUE(until([&] { return client.closed(); }));
    clients.clear();
    EXPECT_TRUE(until([&] { return server->stopped(); }));
}

TEST_F(ConnectionTest, AStoppedServerTakesNoMoreConnections) {
    server->beginStop(0s);
    ASSERT_TRUE(until([&] { return server->stopped(); }));
    const WireClient late{server->port()};
    EXPECT_TRUE(late.closed());
}

TEST_F(ConnectionTest, StopWithAClientThatNeverReadsEnds) {
    auto& client = connect({{4, 0x7FFFFFFF}});
    client.unary("/test.T/Numbers", "10000000 340");
    client.stopReading();
    settle();
    server->beginStop(1s);
    for (int i = 0; i < 5; ++i) { advance(1s); }
    EXPECT_TRUE(server->stopped());
    EXPECT_EQ(service.handlers, 0u);
}

TEST_F(ConnectionTest, DestructionEndsOpenCalls) {
    connect().unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.handlers == 1; }));
    server.reset();
    EXPECT_EQ(service.handlers, 0u);
    EXPECT_EQ(service.cancelled.size(), 1u);
}

TEST_F(ConnectionTest, PostedFunctionsRunInOrderInTheNextTurn) {
    std::string order;
    server->post([&] {
        order += 'a';
        server->post([&] { order += 'c'; });
    });
    server->post([&] { order += 'b'; });
    EXPECT_EQ(order, "");
    server->runOnce();
    EXPECT_EQ(order, "ab");
    server->runOnce();
    EXPECT_EQ(order, "abc");
}

TEST_F(ConnectionTest, StatusShowsConnectionsAndTotals) {
    auto& client = connect();
    client.unary("/test.T/Live", "go");
    expectAlive(client);
    const ServerStatus status = server->status();
    ASSERT_EQ(status.connections.size(), 1u);
    EXPECT_EQ(status.accepted, 1u);
    EXPECT_EQ(status.connections[0].openCalls, 1u);
    EXPECT_EQ(status.connections[0].peer.substr(0, 10), "127.0.0.1:");
    EXPECT_EQ(status.connections[0].counters[Count::CallsStarted], 2u);
    EXPECT_EQ(status.total[Count::CallsStarted], 2u);
    clients.clear();
    ASSERT_TRUE(until([&] { return server->status().connections.empty(); }));
    EXPECT_EQ(count(Count::CallsStarted), 2u);
    EXPECT_EQ(name(Count::CallsStarted), "callsStarted");
    EXPECT_EQ(name(Count::GuardTrips), "guardTrips");
}

}  // namespace
}  // namespace Gale::Wire
