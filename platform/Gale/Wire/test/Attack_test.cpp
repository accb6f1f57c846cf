#include <chrono>
#include <fstream>

#include "platform/Gale/Wire/test/WireTest.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kCalm = 11;

/// Each attack runs beside an honest client on its own connection, which must not notice.
class AttackTest : public WireTest {
protected:
    void SetUp() override {
        serve();
        honest = &connect();
        honestCall = honest->unary("/test.T/Live", "go");
        ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
        attacker = &connect();
        settle();
    }
    void TearDown() override {
        service.push("for the honest");
        EXPECT_TRUE(until([&] {
            const auto messages = honest->reply(honestCall).messages();
            return !messages.empty() && messages.back() == "for the honest";
        }));
        expectAlive(*honest);
    }
    /// Runs `step` until the attacker is closed; how often that took, at most `limit`.
    std::size_t attack(std::size_t limit, const std::function<void()>& step) {
        std::size_t steps = 0;
        for (; steps < limit && attacker->goaways().empty() && !attacker->closed(); ++steps) {
            step();
            turn();
        }
        settle();
        return steps;
    }
    void expectShutOut(std::string_view text) {
        ASSERT_TRUE(until([&] { return attacker->closed(); }));
        ASSERT_EQ(attacker->goaways().size(), 1u);
        EXPECT_EQ(attacker->goaways()[0].code, kCalm);
        EXPECT_EQ(attacker->goaways()[0].text, text);
        EXPECT_EQ(count(Count::GuardTrips), 1u);
    }
    static std::size_t residentKiB() {
        std::ifstream file{"/proc/self/status"};
        for (std::string word; file >> word;) {
            if (word == "VmRSS:") {
                std::size_t kib = 0;
                file >> kib;
                return kib;
            }
        }
        return 0;
    }

    WireClient* honest = nullptr;
    WireClient* attacker = nullptr;
    std::uint32_t honestCall = 0;
};

TEST_F(AttackTest, RapidReset) {
    const std::size_t steps =
        attack(10'000, [&] { attacker->reset(attacker->open(WireClient::head("/test.T/Chat"))); });
    EXPECT_GE(steps, 200u);
    EXPECT_LE(steps, 300u);
    expectShutOut("too many stream resets");
    EXPECT_EQ(service.handlers, 1u);
}

TEST_F(AttackTest, AnHonestRateOfCancelsIsFine) {
    for (int i = 0; i < 1000; ++i) {
        attacker->reset(attacker->open(WireClient::head("/test.T/Chat")));
        clock.advance(100ms);
        turn();
    }
    settle();
    expectAlive(*attacker);
}

TEST_F(AttackTest, MadeYouReset) {
    const std::size_t steps = attack(10'000, [&] {
        attacker->window(attacker->open(WireClient::head("/test.T/Chat")), 0x7FFFFFFF);
    });
    EXPECT_GE(steps, 200u);
    EXPECT_LE(steps, 300u);
    expectShutOut("too many stream errors");
}

TEST_F(AttackTest, ContinuationFlood) {
    const auto block = WireClient::block(WireClient::head("/test.T/Echo"));
    attacker->frame(WireClient::Headers, 0, 1, block);
    const std::size_t steps =
        attack(2000, [&] { attacker->frame(WireClient::Continuation, 0, 1, ""); });
    EXPECT_TRUE(attacker->closed());
    EXPECT_LT(steps, 100u);
    EXPECT_EQ(count(Count::CallsStarted), 1u);  // the honest one
}

TEST_F(AttackTest, BigHeadIsResetOnceAndShutOutTheSecondTime) {
    const Metadata big = WireClient::head("/test.T/Chat", {{"big", std::string(16'100, 'x')}});
    const auto first = attacker->open(big);
    ASSERT_TRUE(until([&] { return attacker->reply(first).reset.has_value(); }));
    EXPECT_EQ(*attacker->reply(first).reset, 2u);
    expectAlive(*attacker);
    attacker->open(big);
    expectShutOut("too large headers");
    EXPECT_EQ(count(Count::HeaderOverflows), 2u);
}

TEST_F(AttackTest, AHeadBelowTheLimitIsServed) {
    const auto stream = attacker->unary("/test.T/Echo", "x", {{"big", std::string(15'000, 'x')}});
    ASSERT_TRUE(ended(*attacker, stream));
    EXPECT_EQ(attacker->reply(stream).status(), "0");
}

TEST_F(AttackTest, HpackBomb) {
    // One entry of 3.9 KB in the dynamic table, then as many one-byte references as a frame holds.
    std::string block = WireClient::block(WireClient::head("/test.T/Chat"));
    std::string entry = WireClient::block({{"bomb", std::string(3900, 'x')}});
    entry[0] = '\x40';                             // literal with incremental indexing
    block += entry + std::string(12'000, '\xBE');  // index 62: the newest entry
    const std::size_t before = residentKiB();
    attacker->frame(WireClient::Headers, WireClient::kEndHeaders, 1, block);
    ASSERT_TRUE(until([&] { return attacker->reply(1).reset.has_value(); }));
    EXPECT_LT(residentKiB(), before + 4096);  // 47 MB of fields were referred to
    EXPECT_EQ(count(Count::HeaderOverflows), 1u);
}

TEST_F(AttackTest, PingFloodWithoutReading) {
    attacker->stopReading();
    const std::size_t pings = attack(1000, [&] {
        for (int i = 0; i < 100; ++i) { attacker->ping(); }
    });
    EXPECT_LT(pings, 100u * 1000u);
    attacker->startReading();
    ASSERT_TRUE(until([&] { return attacker->closed(); }));
}

TEST_F(AttackTest, PacedPingsOnAnIdleConnection) {
    const std::size_t steps = attack(1000, [&] {
        attacker->ping();
        clock.advance(100ms);
    });
    EXPECT_LE(steps, 10u);
    expectShutOut("too_many_pings");
    EXPECT_EQ(count(Count::PingStrikes), 3u);
}

TEST_F(AttackTest, KeepaliveOfAnIdleSubscriptionIsFine) {
    attacker->unary("/test.T/Live", "go");
    for (int i = 0; i < 100; ++i) {
        attacker->ping();
        advance(10s);
    }
    EXPECT_EQ(attacker->pongs, 100u);
    expectAlive(*attacker);
}

TEST_F(AttackTest, BandwidthProbesDuringABulkStreamAreFine) {
    const auto stream = attacker->open(WireClient::head("/test.T/Numbers"));
    attacker->send(stream, "100000 340", true);
    std::size_t seen = 0;
    ASSERT_TRUE(until([&] {  // a probe for each read that brought data, as stock clients do
        const auto& reply = attacker->reply(stream);
        if (reply.data.size() > seen) {
            attacker->ping();
            attacker->window(stream, static_cast<std::uint32_t>(reply.data.size() - seen));
            seen = reply.data.size();
        }
        return reply.ended;
    }));
    EXPECT_GT(count(Count::PingsReceived), 100u);
    EXPECT_TRUE(attacker->goaways().empty());
}

TEST_F(AttackTest, SettingsFlood) {
    const std::size_t steps = attack(1000, [&] { attacker->settings({{4, 65535}}); });
    EXPECT_GE(steps, 11u);
    EXPECT_LE(steps, 12u);  // the GOAWAY is read one turn later
    expectShutOut("too many SETTINGS");
}

TEST_F(AttackTest, TooManyEntriesInSettings) {
    attacker->settings(std::vector<WireClient::Setting>(33, {4, 65535}));
    ASSERT_TRUE(until([&] { return attacker->closed(); }));
}

TEST_F(AttackTest, EmptyData) {
    const auto stream = attacker->open(WireClient::head("/test.T/Chat"));
    for (int i = 0; i < 100; ++i) { attacker->frame(WireClient::Data, 0, stream, ""); }
    settle();
    EXPECT_FALSE(attacker->reply(stream).reset);
    attacker->frame(WireClient::Data, 0, stream, "");
    ASSERT_TRUE(until([&] { return attacker->reply(stream).reset.has_value(); }));
    EXPECT_EQ(*attacker->reply(stream).reset, kCalm);
    EXPECT_EQ(service.handlers, 1u);
}

TEST_F(AttackTest, PaddingOnlyDataCountsAsEmpty) {
    const auto stream = attacker->open(WireClient::head("/test.T/Chat"));
    const std::string padding = '\xFF' + std::string(255, '\0');
    for (int i = 0; i < 101; ++i) {
        attacker->frame(WireClient::Data, WireClient::kPadded, stream, padding);
    }
    ASSERT_TRUE(until([&] { return attacker->reply(stream).reset.has_value(); }));
    EXPECT_EQ(*attacker->reply(stream).reset, kCalm);
    EXPECT_EQ(count(Count::EmptyData), 101u);
}

struct FloodCase {
    std::string_view name;
    std::uint8_t type;
    std::string_view payload;
};
const FloodCase kFloods[] = {
    {"Priority", WireClient::Priority, std::string_view{"\0\0\0\0\1", 5}},
    {"UnknownType", 0xEE, "what"},
};

TEST_F(AttackTest, FramesThatNobodyAskedFor) {
    for (const FloodCase& flood : kFloods) {
        attacker = &connect();
        const auto trips = count(Count::GuardTrips);
        const std::size_t steps = attack(300, [&] {
            for (int i = 0; i < 1000; ++i) { attacker->frame(flood.type, 0, 99, flood.payload); }
        });
        EXPECT_LE(steps, 50u) << flood.name;
        ASSERT_TRUE(until([&] { return attacker->closed(); })) << flood.name;
        EXPECT_EQ(count(Count::GuardTrips), trips + 1) << flood.name;
    }
}

TEST_F(AttackTest, WindowUpdateFlood) {
    attacker->unary("/test.T/Live", "go");
    attack(300, [&] {
        for (int i = 0; i < 1000; ++i) { attacker->window(1, 1); }
    });
    expectShutOut("too many frames");
}

TEST_F(AttackTest, ZeroWindowCallsEndAfterTheStallTime) {
    attacker = &connect({{4, 0}});
    for (int i = 0; i < 100; ++i) { attacker->unary("/test.T/Numbers", "1000 100"); }
    ASSERT_TRUE(until([&] { return service.handlers == 101; }));
    for (int i = 0; i < 61; ++i) { advance(1s); }
    EXPECT_EQ(service.handlers, 1u);
    EXPECT_EQ(count(Count::CallsStalled), 100u);
}

TEST_F(AttackTest, TooManyStreamsBreakTheConnectionOnly) {
    for (int i = 0; i < 300; ++i) { attacker->open(WireClient::head("/test.T/Sleep")); }
    ASSERT_TRUE(until([&] { return attacker->closed(); }));
    EXPECT_EQ(attacker->goaways().at(0).code, 1u);
    EXPECT_EQ(service.handlers, 1u);
}

TEST_F(AttackTest, StreamsAheadOfOurSettingsAreRefusedNotPunished) {
    attacker = &connect();
    for (int i = 0; i < 150; ++i) { attacker->open(WireClient::head("/test.T/Chat")); }
    ASSERT_TRUE(until([&] { return attacker->reply(299).reset.has_value(); }));
    EXPECT_EQ(*attacker->reply(299).reset, 7u);
    EXPECT_TRUE(attacker->goaways().empty());
    EXPECT_EQ(service.handlers, 101u);
}

TEST_F(AttackTest, HugeMessageLengthsHoldNoMemory) {
    const std::size_t before = residentKiB();
    for (int i = 0; i < 90; ++i) {
        const auto stream = attacker->open(WireClient::head("/test.T/Chat"));
        attacker->frame(WireClient::Data, 0, stream, std::string_view{"\0\0\x3F\xFF\xFF", 5});
    }
    settle();
    EXPECT_LT(residentKiB(), before + 4096);
    EXPECT_EQ(count(Count::CallsRefused), 0u);  // within the limit: waiting for the rest
    const auto stream = attacker->open(WireClient::head("/test.T/Chat"));
    attacker->frame(WireClient::Data, 0, stream, "\xFF\xFF\xFF\xFF\xFF");
    ASSERT_TRUE(ended(*attacker, stream));
}

TEST_F(AttackTest, BufferedRequestsOfAConnectionAreCapped) {
    std::vector<std::uint32_t> streams;
    const std::string piece(16'000, 'x');
    for (int i = 0; i < 3; ++i) {  // three messages of 4 MiB, none ever completed
        streams.push_back(attacker->open(WireClient::head("/test.T/Chat")));
        attacker->frame(WireClient::Data, 0, streams.back(), std::string_view{"\0\0\x40\0\0", 5});
    }
    for (int i = 0; i < 262; ++i) {
        for (const auto stream : streams) { attacker->frame(WireClient::Data, 0, stream, piece); }
        settle();
        if (count(Count::CallsRefused) > 0) { break; }
    }
    EXPECT_EQ(count(Count::CallsRefused), 1u);
    std::size_t refused = 0;
    for (const auto stream : streams) { refused += attacker->reply(stream).status() == "8"; }
    EXPECT_EQ(refused, 1u);
}

TEST_F(AttackTest, BrokenFramingClosesTheConnectionOnly) {
    struct Broken {
        std::string_view name;
        std::function<void(WireClient&)> send;
    };
    const Broken cases[] = {
        {"oversized frame", [](auto& c) { c.frame(0, 0, 1, std::string(16'385, 'x')); }},
        {"DATA on an idle stream", [](auto& c) { c.frame(0, 0, 1, "x"); }},
        {"short PING", [](auto& c) { c.frame(WireClient::Ping, 0, 0, "x"); }},
        {"SETTINGS on a stream", [](auto& c) { c.frame(WireClient::Settings, 0, 1, ""); }},
        {"even stream",
         [](auto& c) {
             c.frame(WireClient::Headers, 4, 2, WireClient::block(WireClient::head("/x/y")));
         }},
        {"bad HPACK", [](auto& c) { c.frame(WireClient::Headers, 4, 1, "\xFF\xFF\xFF\xFF\xFF"); }},
        {"window over the top", [](auto& c) { c.window(0, 0x7FFFFFFF); }},
        {"push promise", [](auto& c) { c.frame(WireClient::Push, 4, 1, std::string(4, '\2')); }},
    };
    for (const Broken& broken : cases) {
        auto& client = connect();
        settle();
        broken.send(client);
        EXPECT_TRUE(until([&] { return client.closed(); })) << broken.name;
        EXPECT_EQ(client.goaways().size(), 1u) << broken.name;
    }
}

TEST_F(AttackTest, BadPreface) {
    for (const std::string_view preface :
         {"GET / HTTP/1.1\r\nHost: x\r\n\r\n", "\x16\x03\x01\x02"}) {
        clients.push_back(std::make_unique<WireClient>(server->port(), false));
        WireClient& client = *clients.back();
        client.raw(preface);
        client.raw(std::string(30, '\0'));
        EXPECT_TRUE(until([&] { return client.closed(); }));
    }
}

TEST_F(AttackTest, RandomBytesAfterThePreface) {
    std::uint32_t seed = 1;
    for (int round = 0; round < 200; ++round) {
        auto& client = connect();
        std::string noise;
        for (int i = 0; i < 200; ++i) {
            seed = seed * 1664525U + 1013904223U;
            noise += static_cast<char>(seed >> 24U);
        }
        if (round % 2 == 0) {  // plausible frames with random content
            client.frame(static_cast<std::uint8_t>(seed % 10),
                         static_cast<std::uint8_t>(seed >> 8U),
                         seed >> 30U,
                         noise);
        } else {
            client.raw(noise);
        }
        client.unary("/test.T/Echo", "x");
        turn();
        turn();
        clients.pop_back();
    }
    settle();
    EXPECT_EQ(service.handlers, 1u);
}

}  // namespace
}  // namespace Gale::Wire
