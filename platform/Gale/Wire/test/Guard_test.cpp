#include "platform/Gale/Wire/Guard.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/Gale/Wire/Deadlines.h"
#include "platform/Gale/Wire/Keepalive.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

/// How many charges pass before the budget is used up.
std::size_t passes(Guard& guard, Offence offence, double cost = 1) {
    std::size_t n = 0;
    while (n < 1'000'000 && guard.charge(offence, cost)) { ++n; }
    return n;
}

TEST(Guard, EachOffenceHasItsBudget) {
    const Kiln::VirtualClock clock;
    Guard guard{clock};
    EXPECT_EQ(passes(guard, Offence::Frame), 10'000u);
    EXPECT_EQ(passes(guard, Offence::StreamReset), 200u);
    EXPECT_EQ(passes(guard, Offence::ProvokedReset), 200u);
    EXPECT_EQ(passes(guard, Offence::Settings), 10u);
    EXPECT_EQ(passes(guard, Offence::HeaderOverflow), 1u);
}

TEST(Guard, RefusedStreamsCostATenth) {
    const Kiln::VirtualClock clock;
    Guard guard{clock};
    EXPECT_NEAR(static_cast<double>(passes(guard, Offence::ProvokedReset, 0.1)), 2000, 1);
}

TEST(Guard, BudgetsRefillWithTime) {
    Kiln::VirtualClock clock;
    Guard guard{clock};
    passes(guard, Offence::StreamReset);
    clock.advance(3s);
    EXPECT_EQ(passes(guard, Offence::StreamReset), 29u);  // 30, less the one that broke it
    clock.advance(1h);
    EXPECT_EQ(passes(guard, Offence::StreamReset), 200u);
}

TEST(Guard, OurProgressRefillsFramesOnly) {
    const Kiln::VirtualClock clock;
    Guard guard{clock};
    passes(guard, Offence::Frame);
    passes(guard, Offence::Settings);
    guard.progress();
    EXPECT_EQ(passes(guard, Offence::Frame), 10'000u);
    EXPECT_FALSE(guard.charge(Offence::Settings));
}

class KeepaliveTest : public testing::Test {
protected:
    Kiln::TimePoint now{};
    Keepalive keepalive{{60s, 20s, 5s}, now};
};

TEST_F(KeepaliveTest, AsksAfterSilenceAndClosesWithoutAnswer) {
    EXPECT_EQ(keepalive.tick(now + 59s), Keepalive::Action::None);
    EXPECT_EQ(keepalive.tick(now + 60s), Keepalive::Action::SendPing);
    EXPECT_EQ(keepalive.tick(now + 79s), Keepalive::Action::None);
    EXPECT_EQ(keepalive.tick(now + 80s), Keepalive::Action::Close);
}

TEST_F(KeepaliveTest, AnyByteIsLife) {
    EXPECT_EQ(keepalive.tick(now + 60s), Keepalive::Action::SendPing);
    keepalive.received(now + 79s);
    EXPECT_EQ(keepalive.tick(now + 80s), Keepalive::Action::None);
    EXPECT_EQ(keepalive.tick(now + 138s), Keepalive::Action::None);
    EXPECT_EQ(keepalive.tick(now + 139s), Keepalive::Action::SendPing);
}

TEST_F(KeepaliveTest, APatientClientNeverGetsAStrike) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(keepalive.ping(now + i * 5s), Keepalive::Verdict::Fine);
    }
}

TEST_F(KeepaliveTest, TheThirdStrikeIsTooMany) {
    EXPECT_EQ(keepalive.ping(now), Keepalive::Verdict::Fine);
    EXPECT_EQ(keepalive.ping(now + 1s), Keepalive::Verdict::Strike);
    EXPECT_EQ(keepalive.ping(now + 2s), Keepalive::Verdict::Strike);
    EXPECT_EQ(keepalive.ping(now + 3s), Keepalive::Verdict::TooMany);
}

TEST_F(KeepaliveTest, BandwidthProbesWhileDataFlowsAreFine) {
    for (int i = 0; i < 10'000; ++i) {
        keepalive.progress();
        EXPECT_EQ(keepalive.ping(now), Keepalive::Verdict::Fine);
    }
}

TEST(Deadlines, FireInOrderOnceAndNotWhenDisarmed) {
    Deadlines deadlines;
    std::vector<int> fired;
    Deadlines::Timer a{deadlines, [&] { fired.push_back(1); }};
    Deadlines::Timer b{deadlines, [&] { fired.push_back(2); }};
    Deadlines::Timer c{deadlines, [&] { fired.push_back(3); }};
    const Kiln::TimePoint start{};
    a.arm(start + 2s);
    b.arm(start + 1s);
    c.arm(start + 1s);
    c.disarm();
    EXPECT_EQ(deadlines.next(), start + 1s);
    deadlines.expire(start + 999ms);
    EXPECT_TRUE(fired.empty());
    deadlines.expire(start + 5s);
    deadlines.expire(start + 9s);
    EXPECT_EQ(fired, (std::vector<int>{2, 1}));
    EXPECT_EQ(deadlines.next(), std::nullopt);
}

TEST(Deadlines, ATimerMayDestroyItselfAndOthers) {
    Deadlines deadlines;
    std::unique_ptr<Deadlines::Timer> a;
    std::unique_ptr<Deadlines::Timer> b;
    int fired = 0;
    const auto fire = [&] {
        ++fired;
        a.reset();
        b.reset();
    };
    a = std::make_unique<Deadlines::Timer>(deadlines, fire);
    b = std::make_unique<Deadlines::Timer>(deadlines, fire);
    a->arm({});
    b->arm({});
    deadlines.expire(Kiln::TimePoint{} + 1s);
    EXPECT_EQ(fired, 1);
}

}  // namespace
}  // namespace Gale::Wire
