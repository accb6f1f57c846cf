#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "apps/cli/ExitCode.h"
#include "apps/cli/test/PelProcess.h"
#include "platform/Blink/RingFile.h"
#include "platform/Blink/Trace.h"
#include "test/support/TempDir.h"

namespace Pel::Cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// Trace files are written by this process, under a name that says which run it stands for.
class TraceFollow : public testing::Test {
protected:
    TraceFollow() {
        Blink::shutdown();
        ::unsetenv("BLINKDIR");
        Blink::rootIs(root_.path());
    }
    ~TraceFollow() override { Blink::shutdown(); }

    static void starts(const std::string& name) {
        ASSERT_TRUE(
            Blink::init(name, nullptr, nullptr, 0, 16, Blink::Threading::multi, false, 512));
    }
    static void traces(std::string_view text, int from = 0, int to = 1) {
        for (int i = from; i < to; ++i) {
            BLINK_TRACE(5, Blink::handle("TraceFollow"), "{} {}", text, i);
        }
    }
    std::string file(const std::string& name) const { return root_.path() / "trace" / name; }
    std::vector<std::string> follow(std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments{"trace", "--follow", "--root", root_.path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

private:
    TestSupport::TempDir root_;
};

constexpr int kSlots = (1 << 16) / 512;

TEST_F(TraceFollow, GoesOnWithWhatComesUntilCtrlC) {
    starts("one.bk");
    traces("early");
    PelProcess pel{follow()};
    EXPECT_THAT(pel.line(), HasSubstr("one.bk, of process"));
    EXPECT_THAT(pel.line(), EndsWith("early 0"));
    traces("later");
    EXPECT_THAT(pel.line(), EndsWith("later 0"));
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "");
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(TraceFollow, EndsWhenNobodyReadsAnyMoreThoughNothingComes) {
    starts("one.bk");
    traces("early");
    PelProcess pel{follow()};
    pel.line();
    pel.line();
    pel.stopReading();
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(TraceFollow, AnAgentThatStartsAgainIsFollowedOnAndThatIsSaid) {
    starts("one.bk");
    traces("of the first run");
    PelProcess pel{follow()};
    pel.line();
    EXPECT_THAT(pel.line(), EndsWith("of the first run 0"));
    traces("its last words");
    starts("two.bk");
    traces("of the second run");
    EXPECT_THAT(pel.line(), EndsWith("its last words 0"));
    EXPECT_EQ(pel.line(), "-- a process began to trace: " + file("two.bk") + " --");
    EXPECT_THAT(pel.line(), EndsWith("of the second run 0"));
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "");
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(TraceFollow, ANamedFileIsFollowedOnWhenItIsMadeAnew) {
    starts("same.bk");
    traces("of the first run");
    PelProcess pel{{"trace", "--follow", file("same.bk")}};
    EXPECT_THAT(pel.line(), EndsWith("of the first run 0"));
    for (const char* const run : {"of the second run", "of the third run"}) {
        starts("same.bk");
        traces(run);
        EXPECT_EQ(pel.line(), "-- a process began to trace: " + file("same.bk") + " --");
        EXPECT_THAT(pel.line(), EndsWith(std::string{run} + " 0"));
    }
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "");
}

TEST_F(TraceFollow, WaitsForTheFirstFileAndSaysSo) {
    PelProcess pel{follow()};
    EXPECT_THAT(pel.line(), HasSubstr("waits until an agent makes one"));
    starts("one.bk");
    traces("hello");
    EXPECT_THAT(pel.line(), HasSubstr("began to trace"));
    EXPECT_THAT(pel.line(), EndsWith("hello 0"));
}

TEST_F(TraceFollow, EarlierRunsAreNotReadUnlessAskedFor) {
    starts("one.bk");
    traces("of the first run");
    starts("two.bk");
    traces("of the second run");
    PelProcess pel{follow({"--all"})};
    EXPECT_THAT(pel.line(), HasSubstr(", of process"));
    EXPECT_THAT(pel.line(), HasSubstr(", of process"));
    EXPECT_THAT(pel.line(), EndsWith("of the first run 0"));
    EXPECT_THAT(pel.line(), EndsWith("of the second run 0"));
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "");
}

TEST_F(TraceFollow, WhatIsWrittenFasterThanReadIsCounted) {
    starts("one.bk");
    traces("early");
    PelProcess pel{follow()};
    pel.line();
    EXPECT_THAT(pel.line(), EndsWith("early 0"));
    pel.pause();
    traces("fast", 0, kSlots + 44);
    pel.goOn();
    EXPECT_EQ(pel.line(),
              "-- 44 messages lost, written faster than read: " + file("one.bk") + " --");
    EXPECT_THAT(pel.line(), EndsWith("fast 44"));
    for (int i = 45; i < kSlots + 44; ++i) {
        EXPECT_THAT(pel.line(), EndsWith("fast " + std::to_string(i)));
    }
}

TEST_F(TraceFollow, WhatARingLostBeforeItIsFollowedIsNoLoss) {
    starts("one.bk");
    traces("fast", 0, kSlots + 44);
    PelProcess pel{follow()};
    pel.line();
    EXPECT_THAT(pel.line(), EndsWith("fast 44"));
}

TEST_F(TraceFollow, JsonIsAnObjectALine) {
    starts("one.bk");
    traces("say \"hello\"");
    PelProcess pel{follow({"--json"})};
    pel.line();
    auto shown = nlohmann::json::parse(pel.line());
    EXPECT_EQ(shown["text"], "say \"hello\" 0");
    EXPECT_EQ(shown["handle"], "TraceFollow");
    EXPECT_EQ(shown["level"], 5);
    EXPECT_EQ(shown["file"], "TraceFollow_test.cpp");
    EXPECT_THAT(shown["time"], testing::MatchesRegex("....-..-..T..:..:..\\.......Z"));
    pel.pause();
    traces("fast", 0, kSlots + 3);
    starts("two.bk");
    pel.goOn();
    EXPECT_EQ(nlohmann::json::parse(pel.line()),
              (nlohmann::json{{"lost", 3}, {"file", file("one.bk")}}));
    for (int i = 3; i < kSlots + 3; ++i) {
        EXPECT_EQ(nlohmann::json::parse(pel.line())["text"], "fast " + std::to_string(i));
    }
    EXPECT_EQ(nlohmann::json::parse(pel.line()), (nlohmann::json{{"began", file("two.bk")}}));
}

TEST_F(TraceFollow, SinceLeavesOutWhatIsEarlier) {
    starts("one.bk");
    traces("early");
    traces("late");
    PelProcess all{{"trace", "--json", file("one.bk")}};
    const std::string early = nlohmann::json::parse(all.line())["time"];
    // Some later microsecond: until the clock has one, the next message has this time, too.
    std::string late = nlohmann::json::parse(all.line())["time"];
    for (int i = 1; late == early; ++i) {
        traces("late", i, i + 1);
        PelProcess again{{"trace", "--json", file("one.bk")}};
        const std::string lines = again.rest();
        const std::size_t last = lines.rfind('{');
        late = nlohmann::json::parse(lines.substr(last))["time"];
    }
    PelProcess since{{"trace", "--since", late, file("one.bk")}};
    const std::string shown = since.rest();
    EXPECT_THAT(shown, HasSubstr("late"));
    EXPECT_THAT(shown, testing::Not(HasSubstr("early")));
    EXPECT_EQ(since.end(), kDone);
    PelProcess hour{{"trace", "--since", "1h", file("one.bk")}};
    EXPECT_THAT(hour.rest(), HasSubstr("early"));
}

TEST_F(TraceFollow, ASignalThatItsStarterIgnoresIsIgnored) {
    starts("one.bk");
    traces("early");
    ::signal(SIGINT, SIG_IGN);  // inherited
    PelProcess pel{follow()};
    ::signal(SIGINT, SIG_DFL);
    pel.line();
    EXPECT_THAT(pel.line(), EndsWith("early 0"));
    pel.interruptNow();
    traces("later");
    EXPECT_THAT(pel.line(), EndsWith("later 0"));
}

}  // namespace
}  // namespace Pel::Cli
