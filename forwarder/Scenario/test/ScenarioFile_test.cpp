#include "forwarder/Scenario/Scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "forwarder/Scenario/YamlTree.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

struct Parsed {
    std::optional<Scenario> scenario;
    std::vector<std::string> problems;
};

Parsed parse(const std::string& text) {
    Problems problems{"f.yaml"};
    Parsed parsed{parseScenario(text, problems), {}};
    parsed.problems = problems.lines();
    return parsed;
}

struct InvalidCase {
    const char* name;
    std::string text;
    std::vector<std::string> problems;
};
std::ostream& operator<<(std::ostream& to, const InvalidCase& c) {
    return to << c.name;
}

const std::string kBase =
    "scenario: 1\n"
    "interfaces: [{name: e1}, {name: e1.7, parent: e1, subinterface: 7}]\n"
    "vrfs: [{name: red, id: 1001}]\n"                      // line 3
    "nextHops:\n"                                          // line 4
    "  - {name: a, interface: e1, address: 10.0.0.1}\n"    // line 5
    "  - {name: b, interface: e1.7, address: 10.0.0.2}\n"  // line 6
    "fecs:\n"                                              // line 7
    "  - {id: 41, members: [a, {nextHop: b, weight: 3}]}\n"
    "routes:\n"                                        // line 9
    "  - {prefix: 10.1.0.0/16, fec: 41}\n"             // line 10
    "  - {vrf: red, prefix: 10.2.0.0/16, fec: 41}\n";  // line 11

const InvalidCase kInvalid[] = {
    {"NoMap", "- a\n", {"f.yaml:1:1: expected a map, not a list"}},
    {"Empty", "", {"f.yaml: expected a map, not nothing"}},
    {"NoVersion", "routes: []\n", {"f.yaml:1:1: expected the key 'scenario'"}},
    {"OtherVersion",
     "scenario: 2\n",
     {"f.yaml:1:11: expected a whole number from 1 to 1, not '2'"}},
    {"UnknownKey",
     "scenario: 1\nnexthop: []\n",
     {"f.yaml:2:1: unknown key 'nexthop'; did you mean 'nextHops'?"}},
    {"UnknownKeyFarFromAll",
     "scenario: 1\nready:\n  colour: []\n",
     {"f.yaml:3:3: unknown key 'colour'; the keys here are fecReady, fibReady"}},
    {"KeyTwice",
     "scenario: 1\nroutes: []\nroutes: []\n",
     {"f.yaml:3:1: the key 'routes' comes twice"}},
    {"NoList", "scenario: 1\nroutes: 7\n", {"f.yaml:2:9: expected a list, not '7'"}},
    {"NoName",
     "scenario: 1\nnextHops:\n  - {address: 10.0.0.1}\n",
     {"f.yaml:3:5: expected the key 'name'"}},
    {"BadAddress",
     "scenario: 1\nnextHops:\n  - {name: a, address: 10.0.0}\n",
     {"f.yaml:3:24: expected an IPv4 or IPv6 address, not '10.0.0'"}},
    {"BadMac",
     "scenario: 1\nnextHops:\n  - {name: a, mac: 02-00-00-00-00-01}\n",
     {"f.yaml:3:20: expected a MAC address such as 02:00:00:00:00:01, not '02-00-00-00-00-01'"}},
    {"BadPrefix",
     kBase + "  - {prefix: 10.0.0.0/33, fec: 41}\n",
     {"f.yaml:12:14: expected a prefix such as 10.0.0.0/8 or 2001:db8::/32, not '10.0.0.0/33'"}},
    {"UnknownInterface",
     "scenario: 1\ninterfaces: [{name: e1}]\nnextHops: [{name: a, interface: e2}]\n",
     {"f.yaml:3:33: expected the name of an interface (such as 'e1'), not 'e2'"}},
    {"ParentWithoutNumber",
     "scenario: 1\ninterfaces: [{name: e1.7, parent: e1}]\n",
     {"f.yaml:2:14: expected both 'parent' and 'subinterface', or none of them"}},
    {"UnknownMember",
     kBase + "vtis: []\nready: {}\n" +
         "timeline: [{at: 1s, add: {fecs: [{id: 42, members: [c]}]}}]\n",
     {"f.yaml:14:53: there is no next hop 'c'"}},
    {"MemberTwice",
     "scenario: 1\nnextHops: [{name: a}]\nfecs: [{id: 1, members: [a, a]}]\n",
     {"f.yaml:3:29: the member 'a' comes twice"}},
    {"WeightZero",
     "scenario: 1\nnextHops: [{name: a}]\nfecs: [{id: 1, members: [{nextHop: a, weight: 0}]}]\n",
     {"f.yaml:3:47: expected a whole number from 1 to 4294967295, not '0'"}},
    {"FecTwice",
     "scenario: 1\nfecs: [{id: 1}, {id: 1}]\n",
     {"f.yaml:2:17: FEC 1 is there already"}},
    {"FecOfUnknownKind",
     "scenario: 1\nfecs: [{id: cernel/1}]\n",
     {"f.yaml:2:13: expected kernel, memberSet, ipInIpTunnel, bottom or scenario, not 'cernel'"}},
    {"RouteToNoFec",
     "scenario: 1\nroutes: [{prefix: 10.0.0.0/8, fec: 9}]\n",
     {"f.yaml:2:10: there is no FEC 9"}},
    {"RouteInNoVrf",
     kBase + "  - {vrf: blue, prefix: 10.0.0.0/8, fec: 41}\n",
     {"f.yaml:12:5: there is no VRF 'blue'"}},
    {"IndexTwice",
     "scenario: 1\nnextHops: [{name: a, index: 7}, {name: b, index: 7}]\n",
     {"f.yaml:2:33: the index 7 is that of the next hop 'a' already"}},
    {"VrfIdTwice",
     "scenario: 1\nvrfs: [{name: a, id: 7}, {name: b, id: 7}]\n",
     {"f.yaml:2:26: the id 7 is that of the VRF 'a' already"}},
    {"FifteenLabels",
     "scenario: 1\nnextHops: [{name: a, labels: [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]}]\n",
     {"f.yaml:2:30: expected at most 14 labels, not 15"}},
    {"LargeLabel",
     "scenario: 1\nnextHops: [{name: a, labels: [1048576]}]\n",
     {"f.yaml:2:31: expected a whole number from 0 to 1048575, not '1048576'"}},
    {"LargeVlan",
     "scenario: 1\nnextHops: [{name: a, vxlan: {vti: Vxlan1, vlan: 16384}}]\n",
     {"f.yaml:2:49: expected a whole number from 0 to 16383, not '16384'"}},
    {"UnknownEncap",
     "scenario: 1\nnextHops: [{name: a, encapOrder: [17]}]\n",
     {"f.yaml:2:35: expected mpls or udp, not '17'"}},
    {"UdpWithoutGue",
     "scenario: 1\nnextHops: [{name: a, encapOrder: [udp]}]\n",
     {"f.yaml:2:12: expected both 'udp' in 'encapOrder' and 'gue', or none of them"}},
    {"GueOfTwoFamilies",
     "scenario: 1\nnextHops: [{name: a, encapOrder: [udp], gue: {source: 10.0.0.1, destination: "
     "'::1'}}]\n",
     {"f.yaml:2:46: expected 'source', 'destination' and 'addressFamily' (1 IPv4, 2 IPv6) of one "
      "family"}},
    {"Truncation",
     "scenario: 1\nnextHops: [{name: a, truncate: 3}]\n",
     {"f.yaml:2:32: 'truncate' needs 'invalid: allow'"}},
    {"LongVrfName",
     "scenario: 1\nvrfs: [{name: " + std::string(101, 'v') + ", id: 1}]\n",
     {"f.yaml:2:15: expected a text of 1 to 100 bytes, not '" + std::string(60, 'v') + "...'"}},
    {"ReadinessOfNoVrf",
     "scenario: 1\nready: {fibReady: {blue: true}}\n",
     {"f.yaml:2:20: there is no VRF 'blue'"}},
    {"BadTime",
     "scenario: 1\ntimeline: [{at: 5}]\n",
     {"f.yaml:2:17: expected a time such as 1.5s, 200ms, 2m or 1h, at most 720h, not '5'"}},
    {"TimesBackwards",
     "scenario: 1\ntimeline:\n  - at: 2s\n  - at: 1s\n",
     {"f.yaml:4:5: expected the steps in the order of their times"}},
    {"ChangeOfNothing",
     "scenario: 1\ntimeline: [{at: 1s, change: {nextHops: [{name: a}]}}]\n",
     {"f.yaml:2:41: there is no next hop 'a'"}},
    {"DeleteOfUsedNextHop",
     kBase + "timeline: [{at: 1s, delete: {nextHops: [a]}}]\n",
     {"f.yaml:12:41: the next hop 'a' is deleted, but still in 1 FEC (41)"}},
    {"DeleteOfUsedFec",
     kBase + "timeline: [{at: 1s, delete: {fecs: [41]}}]\n",
     {"f.yaml:12:37: the FEC 41 is deleted, but still has 2 routes"}},
    {"DeleteOfUsedVrf",
     kBase + "timeline: [{at: 1s, delete: {vrfs: [red]}}]\n",
     {"f.yaml:12:37: the VRF 'red' is deleted, but still has 1 route"}},
    {"ChangeGoneInTheSecondRound",
     kBase + "repeat: {every: 3s}\n"
             "timeline:\n"
             "  - {at: 1s, change: {routes: [{prefix: 10.1.0.0/16, origin: bgp}]}}\n"
             "  - {at: 2s, delete: {routes: [{prefix: 10.1.0.0/16}]}}\n",
     {"f.yaml:14:32: there is no route '10.1.0.0/16' in 'default' when the timeline repeats"}},
    {"RoundTooShort",
     "scenario: 1\nrepeat: {every: 1s}\ntimeline: [{at: 2s}]\n",
     {"f.yaml:2:17: expected at least 1ms, and the time of the last step, not '1s'"}},
    {"SeveralAtOnce",
     "scenario: 1\nroute: 1\nnextHops: [{name: a, pop: yes}]\n",
     {"f.yaml:2:1: unknown key 'route'; did you mean 'routes'?",
      "f.yaml:3:27: expected true or false, not 'yes'"}},
    {"RouteNoMap",
     "scenario: 1\nroutes: [10.0.0.0/8]\n",
     {"f.yaml:2:10: expected a map with the key 'prefix', not '10.0.0.0/8'"}},
    {"Binary",
     std::string{"\x7f\x02\x01\x01\0\0\0\0", 8},
     {"f.yaml:1:7: not well-formed: unknown escape character: ?"}},
    {"ControlCharactersAreNotRepeated",
     "scenario: \"\\\x1b[31m\"\n",
     {"f.yaml:1:14: not well-formed: unknown escape character: ?"}},
    {"AliasBomb",
     "a: &a [x,x,x,x]\nb: &b [*a,*a,*a,*a]\nc: [*b,*b,*b,*b]\n",
     {"f.yaml:2:8: not well-formed: aliases are not accepted; write the value out"}},
    {"NumberBeyondAll",
     "scenario: 1\nvrfs: [{name: a, id: 99999999999999999999}]\n",
     {"f.yaml:2:22: expected a whole number from 1 to 4294967295, not '99999999999999999999'"}},
    {"NotYaml",
     "scenario: 1\nroutes: [\n",
     {"f.yaml:3:1: not well-formed: end of sequence flow not found"}},
    {"Alias",
     "a: &a [x, x]\nb: [*a, *a]\n",
     {"f.yaml:2:5: not well-formed: aliases are not accepted; write the value out"}},
    {"TwoDocuments",
     "scenario: 1\n---\nscenario: 1\n",
     {"f.yaml:2:1: not well-formed: expected one document only"}},
    {"TooDeep",
     std::string(17, '[') + std::string(17, ']'),
     {"f.yaml:1:17: not well-formed: nested too deep; the limit is 16"}},
};

class InvalidScenario : public testing::TestWithParam<InvalidCase> {};
TEST_P(InvalidScenario, SaysWhereAndWhatWasExpected) {
    const Parsed parsed = parse(GetParam().text);
    EXPECT_EQ(parsed.problems, GetParam().problems);
    EXPECT_FALSE(parsed.scenario.has_value());
}
INSTANTIATE_TEST_SUITE_P(, InvalidScenario, testing::ValuesIn(kInvalid), [](const auto& row) {
    return std::string{row.param.name};
});

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
        "fecs: [{id: 0x0900000000000001, members: [{nextHop: nobody, weight: 0}, a, a], truncate: "
        "4}]\n"
        "routes: [{prefix: 10.0.0.0/8, fec: 77, origin: 200}]\n";
    EXPECT_THAT(parse("invalid: allow\n" + text).problems, IsEmpty());
    EXPECT_THAT(parse(text).problems, SizeIs(testing::Gt(8U)));
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
