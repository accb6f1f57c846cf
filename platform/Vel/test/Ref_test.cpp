#include "platform/Vel/Ref.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

#include "platform/Vel/Assert.h"

// Known to other sources: what nobody else can call is compiled in another way.
namespace Unwound {

struct Held : Vel::RefCounted {};
struct Holder {
    Vel::Ref<Held> held;
};
struct HoldFor {
    HoldFor(Holder& h, const Vel::Ref<Held>& object) : holder{h} { holder.held = object; }
    HoldFor(const HoldFor&) = delete;
    HoldFor& operator=(const HoldFor&) = delete;
    ~HoldFor() { holder.held = nullptr; }
    Holder& holder;
};
[[gnu::noinline]] void maybeThrow(bool throws) {
    if (throws) { throw std::runtime_error{"thrown"}; }
}
[[gnu::noinline]] void hold(Holder& holder, const Vel::Ref<Held>& object, bool throws) {
    const HoldFor guard{holder, object};
    maybeThrow(throws);
}

}  // namespace Unwound

namespace {

struct Base : Vel::RefCounted {};
struct Counted final : Base {
    explicit Counted(int& count) : alive{count} { ++alive; }
    ~Counted() override { --alive; }
    int& alive;
};
struct Other final : Base {};

TEST(Ref, TheLastReferenceDeletes) {
    int alive = 0;
    Vel::Ref<Counted> first = Vel::make<Counted>(alive);
    Vel::Ref<Counted> second = first;
    first = nullptr;
    EXPECT_EQ(alive, 1);
    second = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(Ref, AMovedReferenceIsNull) {
    int alive = 0;
    Vel::Ref<Counted> from = Vel::make<Counted>(alive);
    const Vel::Ref<Counted> to = std::move(from);
    EXPECT_TRUE(from == nullptr);  // NOLINT(bugprone-use-after-move): that is the question
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(to.unique());
}

TEST(Ref, AssigningToItselfKeeps) {
    int alive = 0;
    Vel::Ref<Counted> ref = Vel::make<Counted>(alive);
    const Vel::Ref<Counted>& same = ref;
    ref = same;
    EXPECT_EQ(alive, 1);
}

TEST(Ref, ConvertsToItsBaseAndToConstOnly) {
    int alive = 0;
    const Vel::Ref<Counted> ref = Vel::make<Counted>(alive);
    const Vel::Ref<Base> base = ref;
    const Vel::Ref<const Counted> constant = ref;
    EXPECT_EQ(base.get(), ref.get());
    EXPECT_EQ(constant.get(), ref.get());
    static_assert(!std::is_convertible_v<Vel::Ref<Base>, Vel::Ref<Counted>>);
    static_assert(!std::is_convertible_v<Vel::Ref<const Counted>, Vel::Ref<Counted>>);
}

TEST(Ref, ACastToWhatTheObjectIsNotIsNull) {
    int alive = 0;
    const Vel::Ref<Base> base = Vel::make<Counted>(alive);
    EXPECT_TRUE(Vel::refCast<Counted>(base) != nullptr);
    EXPECT_TRUE(Vel::refCast<Other>(base) == nullptr);
    EXPECT_TRUE(Vel::refCast<Counted>(Vel::Ref<Base>{}) == nullptr);
}

TEST(Ref, NobodyKeepsAliveWhatNoReferenceOwns) {
    int alive = 0;
    Counted onStack{alive};
    EXPECT_TRUE(Vel::keepAlive(&onStack) == nullptr);
    EXPECT_TRUE(Vel::keepAlive<Counted>(nullptr) == nullptr);
    const Vel::Ref<Counted> owned = Vel::make<Counted>(alive);
    EXPECT_TRUE(Vel::keepAlive(owned.get()) == owned);
    EXPECT_FALSE(Vel::keepAlive(onStack.alive > 0 ? owned.get() : nullptr).unique());
}

struct RefersToItselfAtItsEnd final : Vel::RefCounted {
    explicit RefersToItselfAtItsEnd(int& count) : ends{count} {}
    ~RefersToItselfAtItsEnd() override {
        ++ends;
        const Vel::Ref<RefersToItselfAtItsEnd> self{this};
    }
    int& ends;
};

TEST(Ref, AReferenceTakenInTheDestructorDoesNotDeleteAgain) {
    int ends = 0;
    Vel::make<RefersToItselfAtItsEnd>(ends);
    EXPECT_EQ(ends, 1);
}

TEST(Ref, WhatAnExceptionUnwindsIsGivenBack) {
    const Vel::Ref<Unwound::Held> object = Vel::make<Unwound::Held>();
    Unwound::Holder holder;
    hold(holder, object, false);
    EXPECT_TRUE(object.unique());
    EXPECT_THROW(hold(holder, object, true), std::runtime_error);
    EXPECT_EQ(holder.held, nullptr);
    EXPECT_TRUE(object.unique());
}

TEST(RefDeathTest, ANullReferenceIsNotFollowed) {
    const Vel::Ref<Counted> none;
    EXPECT_DEATH(none->alive = 1, "assertion failed: object_ != nullptr");
    EXPECT_DEATH((*none).alive = 1, "assertion failed: object_ != nullptr");
}

TEST(AssertDeathTest, PrintsItsConditionAsWritten) {
    const int one = 1;
    EXPECT_DEATH(VEL_ASSERT(one == 2), "Ref_test.cpp:[0-9]+: assertion failed: one == 2");
    EXPECT_DEATH(VEL_ASSERT_TEXT(one == 2, "one of two"), "assertion failed: one of two");
}

TEST(Assert, EvaluatesItsConditionOnceAndGoesOn) {
    int asked = 0;
    VEL_ASSERT(++asked == 1);
    EXPECT_EQ(asked, 1);
}

TEST(EntityThreadDeathTest, AnotherThreadThanTheFirstIsRefusedUntilReleased) {
    Vel::releaseEntityThread();
    Vel::assertEntityThread();
    Vel::assertEntityThread();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Vel::assertEntityThread();
            std::thread{[] { Vel::assertEntityThread(); }}.join();
        },
        "assertion failed: none == std::this_thread::get_id\\(\\)");
    Vel::releaseEntityThread();
    std::thread{[] {
        Vel::assertEntityThread();
        Vel::releaseEntityThread();
    }}.join();
    Vel::assertEntityThread();
}

}  // namespace
