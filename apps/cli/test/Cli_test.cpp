#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <proto/gnmi.pb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "apps/cli/ChildProcess.h"
#include "apps/cli/ControlClient.h"
#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiText.h"
#include "apps/cli/test/CliBed.h"
#include "platform/Blink/RingFile.h"
#include "platform/Blink/Trace.h"
#include "test/support/LoopbackPort.h"
#include "test/support/TempDir.h"

namespace Pel::Cli {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

struct UsageCase {
    std::string_view name;
    std::string_view arguments;
    int code;
    std::string_view says;
};
constexpr UsageCase kUsageCases[] = {
    {"NoCommand", "", kUsage, "subcommand is required"},
    {"UnknownCommand", "fly", kUsage, "subcommand is required"},
    {"UnknownOption", "up --fast", kUsage, "--fast"},
    {"Help", "--help", kDone, "Exit codes"},
    {"ShowWhat", "show", kUsage, "subcommand is required"},
    {"ConfigUnknownFlag", "config set speed true", kUsage, "speed"},
    {"ConfigNoBoolean", "config set aftExportEnabled maybe", kUsage, "maybe"},
    {"TraceNothingThere", "trace --root /nowhere", kFailed, "no trace file in /nowhere/trace"},
    {"TraceMissingFile", "trace /nowhere/x.bk", kFailed, "/nowhere/x.bk"},
    {"TraceLevelOutOfRange", "trace x --level 12", kUsage, "--level"},
    {"WatchNoPath", "watch interfaces", kUsage, "begins with /"},
    {"WatchOpenKey", "watch \"/a[b=c\"", kUsage, "no closing ]"},
    {"WatchNoRate", "watch --rates=0", kUsage, "--rates"},
    {"WatchRateNoNumber", "watch --rates=fast", kUsage, "--rates"},
    {"WatchRatesOfAMoment", "watch --rates --once", kUsage, "--once"},
    {"TraceSinceNeither", "trace --since lunch x", kUsage, "lunch"},
    {"TraceFollowMissingFile", "trace --follow /nowhere/x.bk", kFailed, "/nowhere/x.bk"},
    {"CompletionNoShell", "completion tcsh", kUsage, "tcsh"},
    {"ScenarioJson",
     "scenario check --json /dev/null " PEL_TEST_EXAMPLE,
     kFailed,
     "{\"files\":[{\"file\":\"/dev/null\",\"good\":false,\"summary\":\"\",\"problems\":["
     "\"/dev/null: expected a map, not nothing\"]},{"},
    {"WatchMixedOrigins", "watch pel:/a /b", kUsage, "same origin"},
    {"UpNoAddress", "up --listen here", kUsage, "--listen: 'here' is no numeric address"},
    {"UpPortOutOfRange", "up --listen 127.0.0.1:65536", kUsage, "'127.0.0.1:65536' is no"},
    {"UpNoPort", "up --listen 127.0.0.1:0", kFailed, "--listen takes a port from 1"},
    {"UpImpossibleRoot", "up --root /proc/none", kFailed, "/proc/none"},
    {"UpMissingScenario",
     "up --root /nowhere --scenario /nowhere/x.yaml",
     kFailed,
     "/nowhere/x.yaml: cannot be read"},
    {"ScenarioNoFile", "scenario check", kUsage, "files is required"},
    {"ScenarioMissingFile",
     "scenario check /nowhere/x.yaml",
     kFailed,
     "/nowhere/x.yaml: cannot be read"},
    {"ScenarioDirectory", "scenario check /", kFailed, "/: cannot be read"},
    {"ScenarioEmptyFile", "scenario check /dev/null", kFailed, "expected a map, not nothing"},
    {"ScenarioFileWithoutEnd",
     "scenario check /dev/zero",
     kFailed,
     "expected at most 16777216 bytes"},
    {"ScenarioOneOfTwoIsBad",
     "scenario check " PEL_TEST_EXAMPLE " /nowhere",
     kFailed,
     "5 next hops"},
    {"ScenarioGood", "scenario check " PEL_TEST_EXAMPLE, kDone, "5 next hops"},
    {"StatusNobody", "show status --root /nowhere", kNobody, "no agent runs in /nowhere"},
    {"FecExportNobody", "show fec-export --root /nowhere", kNobody, "start one with: pel up"},
    {"FecExportTwoIds", "show fec-export 1 2", kUsage, "2"},
    {"FecExportTimeout", "show fec-export --timeout 0", kUsage, "--timeout"},
    {"NextHopsNobody", "show next-hops --root /nowhere", kNobody, "no agent runs in /nowhere"},
    {"NextHopsTwoIndexes", "show next-hops 1 2", kUsage, "2"},
    {"GroupsNobody", "show groups 41 --root /nowhere", kNobody, "no agent runs in /nowhere"},
    {"VrfsNobody", "show vrfs --root /nowhere", kNobody, "no agent runs in /nowhere"},
    {"RouteNobody", "show route ::/0 --vrf x --root /nowhere", kNobody, "no agent runs"},
    {"RouteWhere", "show route", kUsage, "prefix is required"},
    {"RouteVrfOfNoName", "show route ::/0 --vrf", kUsage, "--vrf"},
    {"VrfsWithVrf", "show vrfs --vrf x", kUsage, "--vrf"},
    {"TraceSetNobody", "trace set X=9 --root /nowhere", kNobody, "pel up"},
};
class CliUsage : public testing::TestWithParam<UsageCase> {};
TEST_P(CliUsage, EndsWithItsCodeAndSaysWhy) {
    std::string output;
    EXPECT_EQ(pel(std::string{GetParam().arguments}, output), GetParam().code) << output;
    EXPECT_THAT(output, HasSubstr(GetParam().says));
}
INSTANTIATE_TEST_SUITE_P(, CliUsage, testing::ValuesIn(kUsageCases), [](const auto& row) {
    return std::string{row.param.name};
});

/// A process that traces one message, and where its file is.
void traceInChild(const std::filesystem::path& root, const char* message) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::unsetenv("BLINKDIR");
        Blink::rootIs(root);
        Blink::init("x-%d.bk", nullptr, nullptr, 0, 16, Blink::Threading::multi, false, 512);
        BLINK_TRACE(5, Blink::handle("CliTest"), "this is {}", message);
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

TEST(CliTest, TraceShowsTheYoungestFileOrAllInTheOrderOfTime) {
    const TestSupport::TempDir root;
    std::string output;
    for (const char* const message : {"one", "two", "three"}) {
        traceInChild(root.path(), message);
    }
    const std::string at = " --root " + root.path().string();
    EXPECT_EQ(pel("trace" + at, output), kDone);
    EXPECT_THAT(output, HasSubstr("this is three"));
    EXPECT_THAT(output, HasSubstr("which has ended"));
    EXPECT_THAT(output, testing::Not(HasSubstr("this is two")));
    EXPECT_EQ(pel("trace --all" + at, output), kDone);
    EXPECT_THAT(output, testing::ContainsRegex("this is one\n.*this is two\n.*this is three\n"));
    EXPECT_EQ(pel("trace " + (root.path() / "trace").string() + "/x-*.bk", output), kDone);
    EXPECT_THAT(output, testing::ContainsRegex("this is one\n.*this is two\n.*this is three\n"));
}

/// What is wrong with its descriptors is its caller's affair: said where it can be said, no crash.
TEST(CliTest, AClosedOrFullOrDeafDescriptorEndsNothingByForce) {
    const TestSupport::TempDir root;
    const std::string trace = "trace --root " + root.path().string();
    for (int i = 0; i < 3; ++i) { traceInChild(root.path(), "much to say"); }
    std::string output;
    EXPECT_EQ(pel(trace + " 2>/dev/null | head -0; exit ${PIPESTATUS[0]}", output), kDone);
    EXPECT_EQ(pel("--help | head -0; exit ${PIPESTATUS[0]}", output), kDone);
    EXPECT_EQ(pel("--help >&-", output), kFailed);
    EXPECT_THAT(output, HasSubstr("standard output: Bad file descriptor"));
    EXPECT_EQ(pel("--help >/dev/full", output), kFailed);
    EXPECT_THAT(output, HasSubstr("standard output: No space left"));
    EXPECT_EQ(pel("show status --root /nowhere 2>&-", output), kNobody);
    EXPECT_EQ(pel("show status --root /nowhere 2>/dev/full", output), kNobody);
    EXPECT_EQ(
        pel("config set aftExportEnabled true <&- >&- 2>&- --root " + root.path().string(), output),
        kFailed);
    EXPECT_EQ(pel("config show --root " + root.path().string(), output), kDone);
    EXPECT_EQ(output, "aftExportEnabled true\n");  // nothing else went into the store
}

TEST(CliTest, AnOccupiedPortIsNamedBeforeAnythingStarts) {
    const TestSupport::TempDir root;
    const TestSupport::LoopbackPort port;
    port.listen(1);
    const std::string listen = port.text();
    std::string output;
    EXPECT_EQ(pel("up --root " + root.path().string() + " --listen " + listen, output), kFailed);
    EXPECT_THAT(output, HasSubstr(listen + " is in use by another process"));
    EXPECT_FALSE(std::filesystem::exists(root.path() / "state"));
}

TEST(CliTest, ASecondUpSaysThatAnAgentRuns) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::string output;
    EXPECT_EQ(pel("up --root " + root.path().string(), output), kFailed);
    EXPECT_THAT(output, HasSubstr("an agent runs in"));
}

TEST(CliTest, ConfigIsWrittenAndShownWithoutAnAgent) {
    const TestSupport::TempDir root;
    const std::string at = " --root " + root.path().string();
    std::string output;
    EXPECT_EQ(pel("config show" + at, output), kDone);
    EXPECT_EQ(output, "aftExportEnabled was never set (false)\n");
    for (const std::string value : {"true", "false"}) {
        EXPECT_EQ(pel("config set aftExportEnabled " + value + at, output), kDone);
        EXPECT_THAT(output, HasSubstr("no agent runs now"));
        EXPECT_EQ(pel("config show" + at, output), kDone);
        EXPECT_EQ(output, "aftExportEnabled " + value + "\n");
        EXPECT_EQ(pel("config show --json" + at, output), kDone);
        EXPECT_EQ(output, "{\"aftExportEnabled\": " + value + "}\n");
    }
}

TEST(CliTest, ConfigSetFailsWhenTheAgentDoesNotReadIt) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::string output;
    EXPECT_EQ(pel("config set aftExportEnabled true --timeout 200 --root " + root.path().string(),
                  output),
              kNoAnswer);
    EXPECT_THAT(output, HasSubstr("written, but the agent has not read it"));
}

TEST(ControlClientTest, AnAnswerThatMakesNoSenseIsAnError) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::thread peer{[&] { host.answer("42\n"); }};
    const ControlResult result =
        ControlClient{root.path(), std::chrono::minutes{2}}.ask("status", false);
    peer.join();
    EXPECT_EQ(result.exitCode(), kFailed);
    EXPECT_EQ(result.error, "the answer makes no sense");
}

TEST(ControlClientTest, AnAnswerThatBreaksOffIsAnError) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::thread peer{[&] { host.answer("{\"output\":\"half\"}\n{\"outp"); }};
    const ControlResult result =
        ControlClient{root.path(), std::chrono::minutes{2}}.ask("status", false);
    peer.join();
    EXPECT_EQ(result.exitCode(), kNoAnswer);
    EXPECT_THAT(result.error, HasSubstr("ended the connection"));
}

void untilGone(int client) {
    for (char byte = 0; ::recv(client, &byte, 1, 0) > 0;) {}
    ::close(client);
}

const ControlClient::Sink kIgnore = [](std::string_view, const auto&) { return true; };

TEST(ControlClientTest, AnAgentThatFallsSilentInMidAnswerIsNamedWithinTheTimeout) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::thread peer{[&] {
        const int client = host.accept();
        ::send(client, "{\"output\":\"half\"}\n", 18, MSG_NOSIGNAL);
        untilGone(client);
    }};
    std::string output;
    const ControlResult result = ControlClient{root.path(), milliseconds{200}}.ask(
        "showFecExport", false, {}, [&output](std::string_view piece, const auto&) {
            output += piece;
            return true;
        });
    peer.join();
    EXPECT_EQ(result.exitCode(), kNoAnswer);
    EXPECT_THAT(result.error, HasSubstr("fell silent in the middle of its answer, for 200 ms"));
    EXPECT_EQ(output, "half");
}

TEST(ControlClientTest, AsLongAsTheAgentGivesSignsOfLifeItIsWaitedForLongerThanTheTimeout) {
    constexpr std::chrono::seconds kTimeout{4};
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::thread peer{[&] {
        const int client = host.accept();
        const auto begun = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() < begun + kTimeout + milliseconds{200}) {
            EXPECT_EQ(::send(client, "{\"heartbeat\":true}\n", 19, MSG_NOSIGNAL), 19);
            ::poll(nullptr, 0, 20);
        }
        ::send(client, "{\"end\":true}\n", 13, MSG_NOSIGNAL);
        untilGone(client);
    }};
    const ControlResult result =
        ControlClient{root.path(), kTimeout}.ask("showFecExport", false, {}, kIgnore);
    peer.join();
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.exitCode(), kDone);
}

TEST(ControlClientTest, AnAgentThatIsKilledInMidAnswerIsSaidToHaveEndedTheConnection) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::thread peer{[&] { host.answer("{\"output\":\"half\"}\n"); }};
    const ControlResult result = ControlClient{root.path(), std::chrono::minutes{2}}.ask(
        "showFecExport", false, {}, kIgnore);
    peer.join();
    EXPECT_EQ(result.exitCode(), kNoAnswer);
    EXPECT_THAT(result.error, HasSubstr("ended the connection before it answered in full"));
}

TEST(ControlClientTest, WhoWantsNoMoreIsDoneAndWhoWaitsForItsReaderSaysSo) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    std::string signs;
    std::thread peer{[&] {
        const int client = host.accept();
        ::send(client, "{\"output\":\"x\"}\n", 15, MSG_NOSIGNAL);
        for (char byte = 0; ::recv(client, &byte, 1, 0) > 0;) { signs += byte; }
        ::close(client);
    }};
    const ControlResult result = ControlClient{root.path(), std::chrono::minutes{2}}.ask(
        "showFecExport", true, {{"FECID", "7"}}, [](std::string_view, const auto& stillHere) {
            stillHere();
            stillHere();
            return false;
        });
    peer.join();
    EXPECT_EQ(result.exitCode(), kDone);
    EXPECT_EQ(
        signs,
        "{\"command\":\"showFecExport\",\"format\":\"json\",\"parameters\":{\"FECID\":\"7\"}}\n  ");
}

struct PathCase {
    std::string_view name;
    std::string_view text;
};
constexpr PathCase kPaths[] = {
    {"Root", "/"},
    {"Plain", "/a/b/c"},
    {"Keys", "/a[x=1][y=2]/b"},
    {"SlashInKey", "/p[prefix=10.0.0.0/8]/q"},
    {"BracketInKey", "/p[name=a\\]b\\\\]"},
    {"Wildcards", "/a/*/.../b[k=*]"},
};
class GnmiPathText : public testing::TestWithParam<PathCase> {};
TEST_P(GnmiPathText, ReadsBack) {
    gnmi::Path path;
    std::string error;
    ASSERT_TRUE(pathFromText(GetParam().text, path, error)) << error;
    EXPECT_EQ(pathText({}, path), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(, GnmiPathText, testing::ValuesIn(kPaths), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(GnmiTextTest, AnOriginStandsInFront) {
    gnmi::Path path;
    std::string error;
    ASSERT_TRUE(pathFromText("pel:/AftExport/x", path, error));
    EXPECT_EQ(path.origin(), "pel");
    EXPECT_EQ(pathText({}, path), "/AftExport/x");
}

TEST(GnmiTextTest, WhatIsNoPathIsRefused) {
    gnmi::Path path;
    std::string error;
    for (const char* const wrong :
         {"", "a", "/a//b", "/a[", "/a[b]", "/a[=c]", "/a[b=c]d", "pel:"}) {
        EXPECT_FALSE(pathFromText(wrong, path, error)) << wrong;
        EXPECT_NE(error, "");
    }
}

TEST(GnmiTextTest, ShowsValuesForPeople) {
    gnmi::TypedValue value;
    value.set_bytes_val(std::string{"\x00\xff", 2});
    EXPECT_EQ(valueText(value), "0x00ff");
    value.set_bool_val(true);
    EXPECT_EQ(valueText(value), "true");
    value.clear_value();
    for (const std::uint64_t label : {100U, 200U}) {
        value.mutable_leaflist_val()->add_element()->set_uint_val(label);
    }
    EXPECT_EQ(valueText(value), "[100, 200]");
}

TEST(ChildProcessTest, AMissingProgramIsAnErrorOfItsStart) {
    ChildProcess child{"none"};
    EXPECT_EQ(child.start({"/nowhere/none"}), "/nowhere/none: No such file or directory");
}

TEST(ChildProcessTest, TellsHowItEnded) {
    ChildProcess child{"sh"};
    ASSERT_EQ(child.start({"/bin/sh", "-c", "exit 7"}), "");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes{2};
    while (!child.ended() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(child.ended(), "ended with 7");
}

TEST(ChildProcessTest, IsKilledWhenItDoesNotEndInTime) {
    ChildProcess child{"sleep"};
    ::signal(SIGTERM, SIG_IGN);  // inherited
    ASSERT_EQ(child.start({"/bin/sleep", "1000"}), "");
    ::signal(SIGTERM, SIG_DFL);
    EXPECT_EQ(child.ended(), std::nullopt);
    EXPECT_THAT(child.end(milliseconds{200}), HasSubstr("was killed"));
}

TEST(ChildProcessTest, EndsWhenAskedTo) {
    ChildProcess child{"sleep"};
    ASSERT_EQ(child.start({"/bin/sleep", "1000"}), "");
    EXPECT_THAT(child.end(std::chrono::minutes{2}), HasSubstr("Terminated"));
}

}  // namespace
}  // namespace Pel::Cli
