#include "platform/Blink/Trace.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Blink/RingFile.h"
#include "test/support/AllocationCount.h"
#include "test/support/TraceCapture.h"

BLINK_TRACE_HANDLE("TraceTest");

namespace {

struct StrongId {
    std::uint64_t number;
    std::uint64_t value() const { return number; }
};
struct Named {
    std::string stringValue() const { return "default"; }
};

std::string textOf(const Blink::Arguments& arguments, std::string_view format) {
    return Blink::formatMessage(format, arguments.data(), arguments.size());
}

/// What goes to standard error while the ring is closed.
class TextTrace : public testing::Test {
protected:
    TextTrace() { Blink::shutdown(); }
    ~TextTrace() override { Blink::levelsIs("*=0"); }
    static std::string lines(void (*trace)()) {
        testing::internal::CaptureStderr();
        trace();
        return testing::internal::GetCapturedStderr();
    }
    static void traceAll() {
        TRACE5("five");
        TRACE7("seven");
        TRACE9("nine {}", 9);
    }
};

TEST_F(TextTrace, NothingIsWrittenAtLevelNought) {
    Blink::levelsIs("*=0");
    EXPECT_EQ(lines(traceAll), "");
}

TEST_F(TextTrace, ALevelShowsMessagesUpToIt) {
    Blink::levelsIs("TraceTest=7");
    EXPECT_EQ(lines(traceAll), "TraceTest 5 traceAll: five\nTraceTest 7 traceAll: seven\n");
}

TEST_F(TextTrace, AnotherHandlesLevelIsAnotherMatter) {
    Blink::levelsIs("TraceTestOther=9");
    EXPECT_EQ(lines(traceAll), "");
}

TEST_F(TextTrace, ArgumentsAreNotEvaluatedWhileNobodyWantsTheMessage) {
    static int evaluated = 0;
    const auto trace = [] { TRACE9("{}", ++evaluated); };
    EXPECT_EQ(lines(trace), "");
    EXPECT_EQ(evaluated, 0);
    Blink::levelsIs("TraceTest=9");
    lines(trace);
    EXPECT_EQ(evaluated, 1);
}

TEST_F(TextTrace, ControlCharactersOfArgumentsCannotForgeALine) {
    Blink::levelsIs("TraceTest=9");
    const std::string text = lines([] { TRACE5("name {}", "a\nb\x1b[2J"); });
    EXPECT_EQ(text.substr(text.find("name")), "name a\\x0ab\\x1b[2J\n");
}

TEST_F(TextTrace, ALineAllocatesNothing) {
    Blink::levelsIs("TraceTest=9");
    testing::internal::CaptureStderr();
    traceAll();
    const TestSupport::AllocationCount count;
    for (int i = 0; i < 100; ++i) { traceAll(); }
    const std::uint64_t allocations = count.since();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(allocations, 0U);
}

TEST(Levels, SeveralAreSetAtOnce) {
    EXPECT_TRUE(Blink::levelsIs("LevelsA=9,LevelsB=5"));
    EXPECT_EQ(Blink::handle("LevelsA").level(), 9);
    EXPECT_EQ(Blink::handle("LevelsB").level(), 5);
}

TEST(Levels, TheStarStandsForAllPresentAndFutureHandles) {
    Blink::handle("LevelsPresent").levelIs(1);
    EXPECT_TRUE(Blink::levelsIs("*=7"));
    EXPECT_EQ(Blink::handle("LevelsPresent").level(), 7);
    EXPECT_EQ(Blink::handle("LevelsFuture").level(), 7);
    EXPECT_TRUE(Blink::levelsIs("*=0"));
}

TEST(Levels, ALevelSetBeforeTheHandleExistsHolds) {
    EXPECT_TRUE(Blink::levelsIs("LevelsLater=8"));
    EXPECT_EQ(Blink::handle("LevelsLater").level(), 8);
}

TEST(Levels, AMalformedTextChangesNothing) {
    Blink::handle("LevelsKept").levelIs(3);
    for (const char* text : {"",
                             "LevelsKept",
                             "LevelsKept=",
                             "LevelsKept=x",
                             "LevelsKept=10",
                             "LevelsKept=-1",
                             "=9",
                             "LevelsKept=9,",
                             ",LevelsKept=9",
                             "LevelsKept=9,Other"}) {
        EXPECT_FALSE(Blink::levelsIs(text)) << text;
        EXPECT_EQ(Blink::handle("LevelsKept").level(), 3) << text;
    }
}

TEST(Message, HasEveryKindOfArgument) {
    const TestSupport::TraceCapture trace;
    const std::string name = "eth0";
    TRACE7("{} {} {} {} {} {} {} {}",
           true,
           -5,
           18'446'744'073'709'551'615U,
           1.5,
           name,
           std::string_view{"view"},
           StrongId{41},
           Named{});
    const auto messages = trace.messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].text, "true -5 18446744073709551615 1.5 eth0 view 41 default");
    EXPECT_EQ(messages[0].level, 7);
    EXPECT_EQ(messages[0].handle, "TraceTest");
    EXPECT_EQ(messages[0].function, "TestBody");
    EXPECT_NE(messages[0].file.find("Trace_test.cpp"), std::string::npos);
    EXPECT_GT(messages[0].line, 0);
    EXPECT_GT(messages[0].wallNanoseconds, 0);
}

TEST(Message, MayBeEmpty) {
    const TestSupport::TraceCapture trace;
    TRACE9("");
    EXPECT_EQ(trace.texts("TraceTest"), std::vector<std::string>{""});
}

TEST(Message, DoubledBracesAreLiteral) {
    EXPECT_EQ(Blink::placeholders("{{}} {}"), 1U);
    Blink::Arguments arguments;
    arguments.put(3);
    EXPECT_EQ(textOf(arguments, "{{}} {}"), "{} 3");
}

TEST(Message, ANullOrDefaultTextIsNoFault) {
    Blink::Arguments arguments;
    arguments.put(static_cast<const char*>(nullptr));
    arguments.put(std::string_view{});
    EXPECT_EQ(textOf(arguments, "{}|{}|"), "(null)||");
}

TEST(Message, ALongTextIsCutAtTheSlot) {
    Blink::Arguments arguments;
    arguments.put(std::string(1000, 'x'));
    EXPECT_EQ(arguments.size(), Blink::Arguments::kCapacity);
    EXPECT_EQ(textOf(arguments, "{}"), std::string(Blink::Arguments::kCapacity - 3, 'x'));
}

TEST(Message, WhatDidNotFitTakesAllLaterArgumentsWithIt) {
    Blink::Arguments arguments;
    arguments.put(std::string(Blink::Arguments::kCapacity - 3 - 4, 'x'));
    arguments.put(1234567);  // 9 bytes
    arguments.put(true);     // 2 bytes would have fitted, in the number's place
    const std::string text = textOf(arguments, "{} {} {}");
    EXPECT_EQ(text.substr(text.find(' ')), " {} {} (arguments cut)");
}

TEST(Message, FewerArgumentsThanPlaceholdersShowThePlaceholders) {
    Blink::Arguments arguments;
    arguments.put(1);
    EXPECT_EQ(textOf(arguments, "{} and {}"), "1 and {} (arguments cut)");
}

TEST(RingTrace, ACallAllocatesNothingAfterItsFirst) {
    const TestSupport::TraceCapture trace;
    const std::string name = "a name that does not fit a small string";
    const auto call = [&name](int i) { TRACE9("nhId {} on {}", i, name); };
    call(0);
    const TestSupport::AllocationCount count;
    for (int i = 1; i <= 10'000; ++i) { call(i); }
    EXPECT_EQ(count.since(), 0U);
    EXPECT_EQ(trace.texts("TraceTest").back(), "nhId 10000 on " + name);
}

TEST(RingTrace, TwoThreadsLoseNothingAndKeepTheirOrder) {
    const TestSupport::TraceCapture trace;
    constexpr int kEach = 5000;
    const auto work = [](const char* who) {
        for (int i = 0; i < kEach; ++i) { TRACE9("{} {}", who, i); }
    };
    std::thread a{work, "a"};
    std::thread b{work, "b"};
    a.join();
    b.join();
    int nextOfA = 0;
    int nextOfB = 0;
    for (const Blink::Message& message : trace.messages()) {
        int& next = message.text[0] == 'a' ? nextOfA : nextOfB;
        ASSERT_EQ(message.text, std::string{message.text[0]} + " " + std::to_string(next));
        ++next;
    }
    EXPECT_EQ(nextOfA, kEach);
    EXPECT_EQ(nextOfB, kEach);
}

TEST(RingTrace, HandlesMayBeMadeAndLevelsSetByManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i) {
                Blink::handle("Shared" + std::to_string(i % 50));
                Blink::levelsIs("Shared" + std::to_string(i % 50) + "=0");
            }
        });
    }
    for (std::thread& thread : threads) { thread.join(); }
    EXPECT_EQ(&Blink::handle("Shared7"), &Blink::handle("Shared7"));
}

}  // namespace
