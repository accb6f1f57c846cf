#include "platform/Vel/Subscription.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/Vel/Attribute.h"
#include "platform/Vel/Sm.h"
#include "test/support/AllocationCount.h"

namespace {

using Seen = std::vector<std::string>;

class SubscriptionTest : public testing::Test {
protected:
    auto note(std::string text) {
        return [this, text = std::move(text)] { seen_.push_back(text); };
    }
    Vel::Publisher<> publisher_;
    Seen seen_;
};

TEST_F(SubscriptionTest, ReactionsRunInsideThePublicationInTheOrderOfRegistration) {
    const auto a = publisher_.subscribe(note("a"));
    const auto b = publisher_.subscribe(note("b"));
    const auto c = publisher_.subscribe(note("c"));
    publisher_.publish();
    EXPECT_EQ(seen_, (Seen{"a", "b", "c"}));
}

TEST_F(SubscriptionTest, OneThatDiedIsNotTold) {
    auto a = std::make_optional(publisher_.subscribe(note("a")));
    const auto b = publisher_.subscribe(note("b"));
    a.reset();
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"b"});
    EXPECT_TRUE(publisher_.hasSubscribers());
}

TEST_F(SubscriptionTest, AfterResetNeverAgain) {
    auto a = publisher_.subscribe(note("a"));
    a.reset();
    a.reset();
    publisher_.publish();
    EXPECT_TRUE(seen_.empty());
    EXPECT_FALSE(publisher_.hasSubscribers());
}

TEST_F(SubscriptionTest, AMovedOneStillHoldsAndAnAssignedOverOneIsLost) {
    auto a = publisher_.subscribe(note("a"));
    auto b = publisher_.subscribe(note("b"));
    b = std::move(a);
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"a"});
    static_assert(!std::is_copy_constructible_v<Vel::Subscription>);
}

TEST_F(SubscriptionTest, MayOutliveThePublisher) {
    auto short_ = std::make_unique<Vel::Publisher<>>();
    auto a = short_->subscribe(note("a"));
    short_.reset();
    a.reset();
}

TEST_F(SubscriptionTest, AChangeInsideAReactionIsPublishedAtOnceNested) {
    Vel::Attribute<int> value{0};
    const auto first = value.changed().subscribe([&] {
        seen_.push_back("first " + std::to_string(value.get()));
        if (value.get() < 2) { value.set(value.get() + 1); }
    });
    const auto second = value.changed().subscribe(
        [&] { seen_.push_back("second " + std::to_string(value.get())); });
    value.set(1);
    EXPECT_EQ(seen_, (Seen{"first 1", "first 2", "second 2", "second 2"}));
}

TEST_F(SubscriptionTest, WhoSubscribesInsideAReactionIsNotToldOfThePublicationUnderWay) {
    std::vector<Vel::Subscription> added;
    const auto a = publisher_.subscribe([&] {
        seen_.push_back("a");
        // More than the list has room for, so that it moves under the publication.
        while (added.size() < 20) { added.push_back(publisher_.subscribe(note("new"))); }
    });
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"a"});
    publisher_.publish();
    EXPECT_EQ(seen_.size(), 1U + 1U + 20U);
}

TEST_F(SubscriptionTest, AReactionMayDropItsOwnSubscription) {
    Vel::Subscription own;
    own = publisher_.subscribe([&] {
        seen_.push_back("own");
        own.reset();
    });
    publisher_.publish();
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"own"});
}

TEST_F(SubscriptionTest, AReactionMayDropALaterOneWhichThenIsNotReached) {
    Vel::Subscription later;
    const auto a = publisher_.subscribe([&] { later.reset(); });
    later = publisher_.subscribe(note("later"));
    const auto c = publisher_.subscribe(note("c"));
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"c"});
}

TEST_F(SubscriptionTest, AReactionMayDropAnEarlierOne) {
    Vel::Subscription earlier = publisher_.subscribe(note("earlier"));
    const auto b = publisher_.subscribe([&] { earlier.reset(); });
    const auto c = publisher_.subscribe(note("c"));
    publisher_.publish();
    publisher_.publish();
    EXPECT_EQ(seen_, (Seen{"earlier", "c", "c"}));
}

TEST_F(SubscriptionTest, AReactionMayDropThePublisher) {
    auto owned = std::make_unique<Vel::Publisher<>>();
    const auto a = owned->subscribe([&] { owned.reset(); });
    const auto b = owned->subscribe(note("b"));
    owned->publish();
    EXPECT_EQ(seen_, Seen{"b"});
}

TEST_F(SubscriptionTest, OneThatDropsAnotherOfTheListWhenItDiesLeavesTheListWhole) {
    auto inner = std::make_shared<Vel::Subscription>(publisher_.subscribe(note("inner")));
    auto outer = publisher_.subscribe([held = std::move(inner)] {});
    const auto last = publisher_.subscribe(note("last"));
    outer.reset();  // the closure dies, and with it the subscription that it holds
    publisher_.publish();
    EXPECT_EQ(seen_, Seen{"last"});
}

TEST_F(SubscriptionTest, WhatOneReactionThrowsDoesNotKeepTheOthersFromRunning) {
    const auto a = publisher_.subscribe([] { throw std::runtime_error{"first"}; });
    const auto b = publisher_.subscribe(note("b"));
    const auto c = publisher_.subscribe([] { throw std::runtime_error{"second"}; });
    const auto d = publisher_.subscribe(note("d"));
    try {
        publisher_.publish();
        FAIL() << "the publisher's caller is told";
    } catch (const std::runtime_error& error) { EXPECT_STREQ(error.what(), "first"); }
    EXPECT_EQ(seen_, (Seen{"b", "d"}));
    EXPECT_THROW(publisher_.publish(), std::runtime_error);
    EXPECT_EQ(seen_, (Seen{"b", "d", "b", "d"}));
}

TEST_F(SubscriptionTest, PublishingAllocatesNothing) {
    const auto a = publisher_.subscribe([] {});
    const auto b = publisher_.subscribe([] {});
    publisher_.publish();
    const TestSupport::AllocationCount count;
    for (int i = 0; i < 10'000; ++i) { publisher_.publish(); }
    EXPECT_EQ(count.since(), 0U);
}

struct Machine final : Vel::Sm {
    Machine(Vel::Publisher<int>& publisher, std::vector<int>& to)
        : input{publisher}, seen{to}, on{publisher.subscribe(this, &Machine::handle)} {}
    ~Machine() override { ++ended; }
    void handle(int value) {
        seen.push_back(value);
        if (release != nullptr) {
            *release = nullptr;
            seen.push_back(-value);  // still alive
        }
    }
    Vel::Publisher<int>& input;
    std::vector<int>& seen;
    Vel::Ref<Machine>* release = nullptr;
    inline static int ended = 0;
    Vel::Subscription on;
};

class MachineReaction : public testing::Test {
protected:
    MachineReaction() { Machine::ended = 0; }
    Vel::Publisher<int> publisher_;
    std::vector<int> seen_;
};

TEST_F(MachineReaction, IsSkippedWhileItsNotificationsAreOff) {
    const auto machine = Vel::make<Machine>(publisher_, seen_);
    publisher_.publish(1);
    machine->hasNotificationActiveIs(false);
    publisher_.publish(2);
    machine->hasNotificationActiveIs(true);
    publisher_.publish(3);
    EXPECT_EQ(seen_, (std::vector<int>{1, 3}));
}

TEST_F(MachineReaction, IsSkippedWhenAnEarlierReactionSwitchesItsNotificationsOff) {
    Vel::Ref<Machine> machine;
    const auto earlier =
        publisher_.subscribe([&](int) { machine->hasNotificationActiveIs(false); });
    machine = Vel::make<Machine>(publisher_, seen_);
    publisher_.publish(1);
    EXPECT_TRUE(seen_.empty());
}

TEST_F(MachineReaction, MayReleaseItsMachine) {
    auto machine = Vel::make<Machine>(publisher_, seen_);
    machine->release = &machine;
    publisher_.publish(1);
    EXPECT_EQ(seen_, (std::vector<int>{1, -1}));
    EXPECT_EQ(Machine::ended, 1);
    publisher_.publish(2);
    EXPECT_EQ(seen_, (std::vector<int>{1, -1}));
}

TEST_F(MachineReaction, RunsOnAStackToo) {
    {
        Machine machine{publisher_, seen_};
        publisher_.publish(1);
        EXPECT_EQ(Machine::ended, 0);
    }
    EXPECT_EQ(Machine::ended, 1);
    EXPECT_EQ(seen_, std::vector<int>{1});
}

struct PublishesInConstruction final : Vel::Sm {
    PublishesInConstruction(Vel::Publisher<>& publisher, int& count)
        : calls{count}, on{publisher.subscribe(this, &PublishesInConstruction::handle)} {
        publisher.publish();  // as an output does that comes back as an input
    }
    void handle() { ++calls; }
    int& calls;
    Vel::Subscription on;
};

TEST(MachineInConstruction, IsToldAndSurvives) {
    Vel::Publisher<> publisher;
    int calls = 0;
    const auto machine = Vel::make<PublishesInConstruction>(publisher, calls);
    publisher.publish();
    EXPECT_EQ(calls, 2);
}

struct PublishesAtItsEnd final : Vel::Sm {
    PublishesAtItsEnd(Vel::Publisher<>& publisher, int& count)
        : input{publisher},
          ends{count},
          on{publisher.subscribe(this, &PublishesAtItsEnd::handle)} {}
    ~PublishesAtItsEnd() override {
        ++ends;
        hasNotificationActiveIs(false);
        input.publish();
    }
    void handle() { FAIL() << "silenced"; }
    Vel::Publisher<>& input;
    int& ends;
    Vel::Subscription on;
};

TEST(MachineInDestruction, MayPublishWhatItSubscribesTo) {
    Vel::Publisher<> publisher;
    int ends = 0;
    Vel::make<PublishesAtItsEnd>(publisher, ends);
    EXPECT_EQ(ends, 1);
}

}  // namespace
