#include "forwarder/Scenario/Scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "forwarder/Scenario/YamlTree.h"
#include "forwarder/Scenario/test/ParsedScenario.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST(ScenarioFile, ValidIsCounted) {
    const Parsed parsed =
        parse(kBase + "timeline: [{at: 1s, delete: {routes: [{prefix: 10.1.0.0/16}]}}]\n");
    EXPECT_THAT(parsed.problems, IsEmpty());
    ASSERT_TRUE(parsed.scenario.has_value());
    EXPECT_EQ(parsed.scenario->summary(), "2 VRFs, 2 next hops, 1 FEC, 2 routes, 1 step");
}

/// Each value that only `invalid: allow` lets through.
TEST(ScenarioFile, InvalidAllowedIsRead) {
    const std::string text =
        "scenario: 1\n"
        "vrfs: [{name: " +
        std::string(150, 'v') +
        ", id: 5}]\n"
        "nextHops:\n"
        "  - {name: a, labels: [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15], encapOrder: [17, udp]}\n"
        "  - {name: b, vxlan: {vti: Vxlan1, vlan: 16384}, truncate: 10}\n"
        "  - {name: c, gue: {addressFamily: 9, source: 10.0.0.1, destination: '::1'}, decapHeader: "
        "99}\n"
        "  - {name: d, decapVrf: 77, fallbackVrf: 78}\n"
        "udpDestinationPorts: [{payload: 2, port: 0, mode: 9}]\n"
        "decapGroups: [{name: in, payload: 99, port: 0}]\n"
        "vtis: [{name: V, vtep: '2001:db8::9', vtepV6: 10.9.0.1, vlans: {16384: 16777216}}]\n"
        "fecs: [{id: 0x0900000000000001, members: [{nextHop: nobody, weight: 0}, a, a], truncate: "
        "4}]\n"
        "routes: [{prefix: 10.0.0.0/8, fec: 77, origin: 200}]\n";
    EXPECT_THAT(parse("invalid: allow\n" + text).problems, IsEmpty());
    EXPECT_THAT(parse(text).problems, SizeIs(testing::Gt(17U)));
}

TEST(ScenarioFile, ProblemsAreKeptUpToANumberAndCounted) {
    std::string text = "scenario: 1\n";
    for (int i = 0; i < 250; ++i) { text += "unknown" + std::to_string(i) + ": 1\n"; }
    const auto problems = parse(text).problems;
    ASSERT_THAT(problems, SizeIs(Problems::kMaxKept + 1));
    EXPECT_EQ(problems.back(), "f.yaml: and 150 more problems");
}

TEST(ScenarioFile, FilesThatCannotBeReadAreProblems) {
    const TestSupport::TempDir dir;
    std::vector<std::string> lines;
    EXPECT_FALSE(loadScenario(dir.path() / "missing", lines));
    EXPECT_THAT(lines, ElementsAre(HasSubstr("missing: cannot be read")));
    EXPECT_FALSE(loadScenario(dir.path(), lines));
    EXPECT_THAT(lines, ElementsAre(HasSubstr(": cannot be read")));
    EXPECT_FALSE(loadScenario("/dev/zero", lines));  // has no end
    EXPECT_THAT(lines, ElementsAre(HasSubstr("expected at most 16777216 bytes")));
}

/// A megabyte of each: whatever the parser does with it must not grow with its square, or this test never ends.
class RepeatedText : public testing::TestWithParam<const char*> {};
TEST_P(RepeatedText, IsRefusedInTime) {
    const std::string piece{GetParam()};
    std::string text;
    while (text.size() < (std::size_t{1} << 20U)) { text += piece; }
    const Parsed parsed = parse(text);
    EXPECT_FALSE(parsed.scenario.has_value());
    EXPECT_THAT(parsed.problems, Not(IsEmpty()));
}
INSTANTIATE_TEST_SUITE_P(,
                         RepeatedText,
                         testing::Values("x",
                                         "[",
                                         "{",
                                         "- ",
                                         "a: ",
                                         "? ",
                                         "&a ",
                                         "!x ",
                                         "*a ",
                                         "'",
                                         "\"\\x41",
                                         "a,",
                                         "[a],",
                                         "- a\n",
                                         "a: b\n",
                                         "- |\n  x\n",
                                         "---\n",
                                         "\t",
                                         "{a: b}, ",
                                         "]",
                                         "%YAML 1.2\n",
                                         "\xFF\xFE"));

TEST(ScenarioFile, ExampleIsGood) {
    std::vector<std::string> lines;
    EXPECT_TRUE(loadScenario(PEL_TEST_EXAMPLE, lines));
    EXPECT_THAT(lines, IsEmpty());
}

TEST(ScenarioFile, GoodFileIsLoaded) {
    const TestSupport::TempDir dir;
    std::ofstream{dir.path() / "f"} << kBase;
    std::vector<std::string> lines;
    EXPECT_TRUE(loadScenario(dir.path() / "f", lines));
    EXPECT_THAT(lines, IsEmpty());
}

}  // namespace
}  // namespace Pel::Forwarder
