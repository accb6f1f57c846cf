#include "PelOpenConfig/PelOpenConfigCliEntries.h"

#include <sstream>

#include "PelOpenConfig/test/ShownExport.h"

namespace Pel::Oc {
namespace {

using OcApi::EncapHeader;
using OcApi::EncapHeaderType;
using OcApi::NextHopGroupId;
using OcApi::NextHopIndex;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

class ShowEntries : public ShownExport {
protected:
    /// One with all that a next hop can have.
    static OcApi::NextHop fullNextHop() {
        OcApi::NextHop nextHop;
        nextHop.index = NextHopIndex{7};
        nextHop.interface = Nexo::IntfId{"Ethernet2"};
        nextHop.subinterface = 100;
        nextHop.ipAddress = *Nexo::IpGenAddr::parse("2001:db8::1");
        nextHop.macAddress = Nexo::EthAddr{{0x00, 0x1c, 0x73, 0, 0, 1}};
        nextHop.popTopLabel = true;
        nextHop.decapsulateHeader = EncapHeaderType::udpv6;
        nextHop.pushedMplsLabelStack.push(Nexo::MplsLabel{100});
        nextHop.pushedMplsLabelStack.push(Nexo::MplsLabel{200});
        const auto header =
            [&](std::uint8_t index, EncapHeaderType type, EncapHeader::State state) {
                nextHop.encapHeaders.encapHeaderIs({index, type, std::move(state)});
            };
        header(
            0, EncapHeaderType::mpls, OcApi::MplsState{{Nexo::MplsLabel{16}, Nexo::MplsLabel{17}}});
        header(1,
               EncapHeaderType::udpv4,
               OcApi::UdpState{
                   *Nexo::IpGenAddr::parse("10.0.0.1"), *Nexo::IpGenAddr::parse("10.0.0.2"), 64});
        header(3,
               EncapHeaderType::vxlan,
               OcApi::VxlanState{*Nexo::IpGenAddr::parse("10.0.0.3"), 5000});
        header(4, EncapHeaderType::unset, {});
        header(5, EncapHeaderType{77}, {});
        nextHop.decapNetworkInstance = Nexo::InternedName{"blue"};
        nextHop.fallbackNetworkInstance = Nexo::InternedName{"red"};
        return nextHop;
    }
    static OcApi::NextHopGroup fullGroup() {
        OcApi::NextHopGroup group;
        group.id = NextHopGroupId{41};
        group.programmedId = 18446744073709551615U;
        group.name = "spines";
        group.groupAttribute = 3;
        group.secondFlag = 1;
        group.nextHops.nextHopInGroupIs({NextHopIndex{9}, 4294967295U});
        group.nextHops.nextHopInGroupIs({NextHopIndex{7}, 1});
        return group;
    }
    void prefixesAre(Family family, const std::string& vrf, unsigned prefixes, bool read = true) {
        RoutePublisher table = tableIs(family, vrf, read);
        const auto address =
            *Nexo::IpGenAddr::parse(family == Family::ipv4 ? "128.0.0.0" : "8000::");
        for (unsigned length = 1; length <= prefixes; ++length) {
            table.set(Nexo::IpPrefix{address, length}, {FecId{1}});
        }
    }
    static std::vector<std::string> lines(const std::string& output) {
        std::vector<std::string> result;
        std::istringstream stream{output};
        for (std::string line; std::getline(stream, line);) { result.push_back(line); }
        return result;
    }

    Vel::Ref<AsyncCliCallback> nextHopEntries =
        Vel::make<ShowEntriesAsyncCliCallback<NextHopEntries>>(anchor,
                                                               Vel::make<NextHopEntries>(*aft));
    Vel::Ref<AsyncCliCallback> groupEntries =
        Vel::make<ShowEntriesAsyncCliCallback<GroupEntries>>(anchor, Vel::make<GroupEntries>(*aft));
    Vel::Ref<AsyncCliCallback> vrfEntries = Vel::make<ShowEntriesAsyncCliCallback<VrfEntries>>(
        anchor, Vel::make<VrfEntries>(vrfTables));
};

TEST_F(ShowEntries, NextHopsAreALineEachInTheOrderOfTheirIndexes) {
    aft->nextHops()->nextHopIs(fullNextHop());
    exportNextHop(18446744073709551615U);
    OcApi::NextHop plain;
    plain.index = NextHopIndex{2};
    plain.ipAddress = *Nexo::IpGenAddr::parse("192.0.2.1");
    plain.interface = Nexo::IntfId{"eth1"};
    aft->nextHops()->nextHopIs(plain);
    EXPECT_EQ(text(*nextHopEntries).output,
              "INDEX           IP ADDRESS              MAC ADDRESS       INTERFACE       LABELS, "
              "HEADERS\n"
              "2               192.0.2.1                                 eth1\n"
              "7               2001:db8::1             00:1c:73:00:00:01 Ethernet2.100   "
              "pop, push 100 200, decapsulate UDPV6, MPLS UDPV4 VXLAN unset 77\n"
              "18446744073709551615\n");
}

TEST_F(ShowEntries, ANextHopIsShownWhole) {
    aft->nextHops()->nextHopIs(fullNextHop());
    aft->nextHopCounters()->nextHopCounterIs({NextHopIndex{7}, 12, 18446744073709551615U});
    EXPECT_EQ(text(*nextHopEntries, {{"INDEX", "7"}}).output,
              "Next hop index: 7\n"
              "\tIP address: 2001:db8::1\n"
              "\tMAC address: 00:1c:73:00:00:01\n"
              "\tInterface: Ethernet2\n"
              "\tSubinterface: 100\n"
              "\tLabels: 100 200\n"
              "\tPop top label: true\n"
              "\tDecapsulated header: UDPV6\n"
              "\tVRF of decapsulated packets: blue\n"
              "\tFallback VRF: red\n"
              "\tEncapsulation header 0, type: MPLS, labels: 16 17\n"
              "\tEncapsulation header 1, type: UDPV4, source: 10.0.0.1, destination: 10.0.0.2, "
              "TTL: 64\n"
              "\tEncapsulation header 3, type: VXLAN, source: 10.0.0.3, VNI: 5000\n"
              "\tEncapsulation header 4, type: unset\n"
              "\tEncapsulation header 5, type: 77\n"
              "\tPackets forwarded: 12, octets: 18446744073709551615\n");
    const std::string want =
        R"({"nextHops":{"7":{"ipAddress":"2001:db8::1","macAddress":"00:1c:73:00:00:01",)"
        R"("interface":"Ethernet2","subinterface":100,"pushedMplsLabelStack":[100,200],)"
        R"("popTopLabel":true,"decapsulateHeader":"UDPV6","decapNetworkInstance":"blue",)"
        R"("fallbackNetworkInstance":"red","encapHeaders":{"0":{"type":"MPLS",)"
        R"("mplsLabelStack":[16,17]},"1":{"type":"UDPV4","srcIp":"10.0.0.1","dstIp":"10.0.0.2",)"
        R"("ipTtl":64},"3":{"type":"VXLAN","tunnelSrcIpAddress":"10.0.0.3","vniLabel":5000},)"
        R"("4":{"type":"unset"},"5":{"type":"77"}},"packetsForwarded":12,)"
        R"("octetsForwarded":18446744073709551615}}})"
        "\n";
    EXPECT_EQ(structured(*nextHopEntries, {{"INDEX", "7"}}).output, want);
    EXPECT_EQ(structured(*nextHopEntries).output, want) << "the list holds whole entries";
}

TEST_F(ShowEntries, OfANextHopThatHasNothingOnlyWhatIsAlwaysThereIsShown) {
    exportNextHop(7);
    EXPECT_EQ(text(*nextHopEntries, {{"INDEX", "7"}}).output,
              "Next hop index: 7\n\tLabels: None\n\tPop top label: false\n");
    EXPECT_EQ(structured(*nextHopEntries).output,
              R"({"nextHops":{"7":{"pushedMplsLabelStack":[],"popTopLabel":false,)"
              R"("encapHeaders":{}}}})"
              "\n");
}

TEST_F(ShowEntries, WhatAHeaderDoesNotHaveIsNotShown) {
    OcApi::NextHop nextHop;
    nextHop.index = NextHopIndex{7};
    nextHop.encapHeaders.encapHeaderIs({0, EncapHeaderType::mpls, OcApi::MplsState{}});
    nextHop.encapHeaders.encapHeaderIs({1, EncapHeaderType::udpv6, OcApi::UdpState{}});
    nextHop.encapHeaders.encapHeaderIs({2, EncapHeaderType::vxlan, OcApi::VxlanState{}});
    aft->nextHops()->nextHopIs(nextHop);
    EXPECT_THAT(text(*nextHopEntries, {{"INDEX", "7"}}).output,
                HasSubstr("\tEncapsulation header 0, type: MPLS, labels: None\n"
                          "\tEncapsulation header 1, type: UDPV6\n"
                          "\tEncapsulation header 2, type: VXLAN\n"));
    EXPECT_THAT(structured(*nextHopEntries).output,
                HasSubstr(R"("encapHeaders":{"0":{"type":"MPLS","mplsLabelStack":[]},)"
                          R"("1":{"type":"UDPV6"},"2":{"type":"VXLAN"}})"));
}

/// Each field of the record but its key, which is the dictionary's.
template <class T>
void everyFieldIsIn(const nlohmann::json& shown, const T& record) {
    bool key = true;
    Vel::forEachField(record, [&](std::string_view name, const auto&) {
        EXPECT_TRUE(key || shown.contains(std::string{name})) << name;
        key = false;
    });
}

TEST_F(ShowEntries, AnEntryShowsEveryFieldOfItsRecord) {
    aft->nextHops()->nextHopIs(fullNextHop());
    aft->nextHopGroups()->nextHopGroupIs(fullGroup());
    const OcApi::NextHopCounter counter{NextHopIndex{7}, 1, 2};
    aft->nextHopCounters()->nextHopCounterIs(counter);
    const auto shown = nlohmann::json::parse(structured(*nextHopEntries).output)["nextHops"]["7"];
    everyFieldIsIn(shown, fullNextHop());
    everyFieldIsIn(shown, counter);
    everyFieldIsIn(nlohmann::json::parse(structured(*groupEntries).output)["nextHopGroups"]["41"],
                   fullGroup());
}

TEST_F(ShowEntries, GroupsAreALineEachAndSayHowManyMembersAreNotExported) {
    exportNextHop(7);
    aft->nextHopGroups()->nextHopGroupIs(fullGroup());
    exportGroup(288230376151711785U);
    EXPECT_EQ(text(*groupEntries).output,
              "ID                 PROGRAMMED ID      MEMBERS  NAME\n"
              "41                 18446744073709551615 2        spines (1 NOT exported)\n"
              "288230376151711785                    0\n");
}

TEST_F(ShowEntries, AGroupIsShownWholeAndSaysWhichMembersAreNotExported) {
    exportNextHop(7);
    aft->nextHopGroups()->nextHopGroupIs(fullGroup());
    EXPECT_EQ(text(*groupEntries, {{"ID", "41"}}).output,
              "Group ID: 41, programmed ID: 18446744073709551615, number of next hops: 2\n"
              "\tName: spines\n"
              "\tGroup attribute: 3\n"
              "\tSecond flag: 1\n"
              "\tNext hop index: 7, weight 1\n"
              "\tNext hop index: 9, weight 4294967295, NOT exported\n");
    const std::string want =
        R"({"nextHopGroups":{"41":{"programmedId":18446744073709551615,"name":"spines",)"
        R"("groupAttribute":3,"secondFlag":1,"nextHops":{"7":{"weight":1,"exported":true},)"
        R"("9":{"weight":4294967295,"exported":false}}}}})"
        "\n";
    EXPECT_EQ(structured(*groupEntries, {{"ID", "41"}}).output, want);
    EXPECT_EQ(structured(*groupEntries).output, want);
}

TEST_F(ShowEntries, OfAGroupThatHasNothingOnlyItsIdIsShown) {
    exportGroup(41);
    EXPECT_EQ(text(*groupEntries, {{"ID", "41"}}).output, "Group ID: 41, number of next hops: 0\n");
    EXPECT_EQ(structured(*groupEntries).output, "{\"nextHopGroups\":{\"41\":{\"nextHops\":{}}}}\n");
}

TEST_F(ShowEntries, WithoutEntriesThereAreTheHeadingsAndAnEmptyDictionary) {
    EXPECT_THAT(lines(text(*nextHopEntries).output), ElementsAre(testing::StartsWith("INDEX ")));
    EXPECT_THAT(lines(text(*groupEntries).output), ElementsAre(testing::StartsWith("ID ")));
    EXPECT_THAT(lines(text(*vrfEntries).output), ElementsAre(testing::StartsWith("ID ")));
    EXPECT_EQ(structured(*nextHopEntries).output, "{\"nextHops\":{}}\n");
    EXPECT_EQ(structured(*groupEntries).output, "{\"nextHopGroups\":{}}\n");
    EXPECT_EQ(structured(*vrfEntries).output, "{\"vrfs\":{}}\n");
}

TEST_F(ShowEntries, WhatIsNotThereAndWhatIsNoIdAreErrors) {
    exportNextHop(7);
    exportGroup(41);
    struct Case {
        AsyncCliCallback* callback;
        const char* parameter;
        const char* value;
        std::string error;
    };
    const std::string range = ": a decimal number from 0 to 18446744073709551615";
    std::vector<Case> cases{
        {nextHopEntries.get(), "INDEX", "8", "% No next hop 8 found"},
        {groupEntries.get(), "ID", "7", "% No group 7 found"},
        {vrfEntries.get(), "VRF", "blue", "% No VRF blue found"},
        {vrfEntries.get(), "VRF", "-1", "% No VRF -1 found"},
        {vrfEntries.get(), "VRF", "4294967296", "% No VRF 4294967296 found"},
        {vrfEntries.get(), "VRF", "", "% No VRF  found"},
    };
    for (const char* const wrong : {"", "-1", "seven", "7 ", "18446744073709551616"}) {
        cases.push_back(
            {nextHopEntries.get(),
             "INDEX",
             wrong,
             "showNextHops: '" + std::string{wrong} + "' is no next-hop index" + range});
        cases.push_back({groupEntries.get(),
                         "ID",
                         wrong,
                         "showGroups: '" + std::string{wrong} + "' is no group id" + range});
    }
    for (const auto& [callback, parameter, value, error] : cases) {
        const Shown asText = text(*callback, {{parameter, value}});
        EXPECT_EQ(asText.output, "");
        EXPECT_EQ(asText.error, error);
        const Shown asJson = structured(*callback, {{parameter, value}});
        EXPECT_EQ(asJson.error, error);
        EXPECT_EQ(nlohmann::json::parse(asJson.output),
                  (nlohmann::json{{"errors", nlohmann::json::array({error})}}));
    }
}

TEST_F(ShowEntries, VrfsAreALineEachWithTheirPrefixes) {
    vrfIs(1, "default");
    vrfIs(1001, "blue");
    vrfIs(1002, "blue");
    prefixesAre(Family::ipv4, "default", 3);
    prefixesAre(Family::ipv6, "default", 2);
    prefixesAre(Family::ipv4, "blue", 1);
    prefixesAre(Family::ipv6, "blue", 1, false);
    prefixesAre(Family::ipv6, "nameless", 1);
    publish();
    EXPECT_EQ(text(*vrfEntries).output,
              "ID              IPV4 PREFIXES IPV6 PREFIXES  NAME\n"
              "1001,1002                   1      not read  blue\n"
              "1                           3             2  default\n"
              "none                     none             1  nameless\n");
    EXPECT_EQ(structured(*vrfEntries).output,
              R"({"vrfs":{"blue":{"ids":[1001,1002],"ipv4Prefixes":1},)"
              R"("default":{"ids":[1],"ipv4Prefixes":3,"ipv6Prefixes":2},)"
              R"("nameless":{"ids":[],"ipv6Prefixes":1}}})"
              "\n");
}

TEST_F(ShowEntries, AVrfIsFoundByItsNameAndByEachOfItsIds) {
    vrfIs(1001, "blue");
    vrfIs(1002, "blue");
    vrfIs(7, "1001");
    prefixesAre(Family::ipv4, "blue", 1);
    publish();
    const std::string blue = "VRF: blue\n\tID: 1001 1002\n\tIPv4 prefixes: 1\n";
    EXPECT_EQ(text(*vrfEntries, {{"VRF", "blue"}}).output, blue);
    EXPECT_EQ(text(*vrfEntries, {{"VRF", "1002"}}).output, blue);
    EXPECT_EQ(text(*vrfEntries, {{"VRF", "1001"}}).output, "VRF: 1001\n\tID: 7\n") << "names first";
}

TEST_F(ShowEntries, VrfsFollowTheirIdsAndTheirTables) {
    vrfIs(1001, "blue");
    vrfIs(1002, "red");
    prefixesAre(Family::ipv4, "red", 1);
    publish();
    EXPECT_THAT(keysIn(structured(*vrfEntries).output),
                ElementsAre(Pair("blue", 1), Pair("red", 1)));
    vrfIs(1001, "green");
    vrfDel(1002);
    prefixesAre(Family::ipv6, "white", 1);
    publish();
    EXPECT_THAT(keysIn(structured(*vrfEntries).output),
                ElementsAre(Pair("green", 1), Pair("red", 1), Pair("white", 1)));
    EXPECT_THAT(text(*vrfEntries).output,
                HasSubstr("none                        1          none  red\n"));
    writer->tableDel(tablePath(Family::ipv4, "red"));
    publish();
    EXPECT_THAT(keysIn(structured(*vrfEntries).output),
                ElementsAre(Pair("green", 1), Pair("white", 1)));
}

TEST_F(ShowEntries, VrfsThatWereThereBeforeTheAgentLookedAreKnown) {
    vrfIs(1001, "blue");
    prefixesAre(Family::ipv4, "red", 1);
    publish();
    const auto later = Vel::make<VrfTables>(
        mesa, mesa->entity<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::kPath));
    ASSERT_EQ(later->vrfs().size(), 2U);
    EXPECT_TRUE(later->vrfs().at("blue").ids.contains(Vrf::VrfId{1001}));
    EXPECT_TRUE(later->vrfs().at("red").families.contains(Family::ipv4));
    EXPECT_EQ(Vel::make<VrfTables>(mesa, nullptr)->vrfs().size(), 1U)
        << "without a map only tables";
}

TEST_F(ShowEntries, NamesOfAnyBytesAreShownWithoutDoingHarm) {
    OcApi::NextHopGroup group = fullGroup();
    group.name = "\x1b[2J\"\n\xFF";
    aft->nextHopGroups()->nextHopGroupIs(group);
    vrfIs(1, "vrfs");  // as the dictionary around them
    vrfIs(2, "a\x1b\"\n\xFF");
    publish();
    EXPECT_THAT(text(*groupEntries).output, HasSubstr("\\x1b[2J\"\\x0a\xFF (2 NOT exported)\n"));
    EXPECT_THAT(text(*vrfEntries).output, HasSubstr("a\\x1b\"\\x0a\xFF\n"));
    EXPECT_THAT(text(*vrfEntries, {{"VRF", "2"}}).output, HasSubstr("VRF: a\\x1b\"\\x0a\xFF\n"));
    EXPECT_EQ(
        nlohmann::json::parse(structured(*groupEntries).output)["nextHopGroups"]["41"]["name"],
        "\x1b[2J\"\n\xEF\xBF\xBD");
    EXPECT_EQ(
        structured(*vrfEntries).output,
        "{\"vrfs\":{\"a\\u001b\\\"\\n\xEF\xBF\xBD\":{\"ids\":[2]},\"vrfs\":{\"ids\":[1]}}}\n");
}

/// The entries n * 10 live throughout; before each slice some come and some go.
class ShowEntriesSlowly : public ShowEntries {
protected:
    static constexpr std::uint64_t kEntries = 40;

    void check(const std::map<std::string, int>& shown) {
        for (std::uint64_t n = 1; n <= kEntries; ++n) {
            EXPECT_THAT(shown, Contains(Pair(name(n * 10), 1)));
        }
        for (const auto& [key, times] : shown) { EXPECT_LE(times, 1) << key; }
        EXPECT_GT(shown.size(), kEntries) << "none of those that came was met";
    }
    static std::string name(std::uint64_t n) { return std::to_string(n); }
    /// Calls one of both for what comes and goes, over the whole range, at each step.
    template <class Come, class Go>
    auto churn(const Come& come, const Go& go) {
        return [this, come, go] {
            for (std::uint64_t n = 0; n <= kEntries; ++n) {
                (n + step) % 3 != 0 ? come(n * 10 + 5) : go(n * 10 + 5);
            }
            ++step;
        };
    }
    std::uint64_t step = 0;
};

TEST_F(ShowEntriesSlowly, EachNextHopThatLivesThroughoutIsShownOnce) {
    for (std::uint64_t n = 1; n <= kEntries; ++n) { exportNextHop(n * 10); }
    check(keysIn(
        slowly(*nextHopEntries,
               OutputFormat::json,
               churn([this](std::uint64_t n) { exportNextHop(n); },
                     [this](std::uint64_t n) { aft->nextHops()->nextHopDel(NextHopIndex{n}); }))));
}

TEST_F(ShowEntriesSlowly, EachGroupThatLivesThroughoutIsShownOnce) {
    for (std::uint64_t n = 1; n <= kEntries; ++n) { exportGroup(n * 10); }
    check(keysIn(slowly(*groupEntries,
                        OutputFormat::json,
                        churn([this](std::uint64_t n) { exportGroup(n); },
                              [this](std::uint64_t n) {
                                  aft->nextHopGroups()->nextHopGroupDel(NextHopGroupId{n});
                              }))));
}

TEST_F(ShowEntriesSlowly, EachVrfThatLivesThroughoutIsShownOnce) {
    for (std::uint32_t n = 1; n <= kEntries; ++n) { vrfIs(n * 10, name(n * 10)); }
    publish();
    const auto change =
        churn([this](std::uint64_t n) { vrfIs(static_cast<std::uint32_t>(n), name(n)); },
              [this](std::uint64_t n) { vrfDel(static_cast<std::uint32_t>(n)); });
    check(keysIn(slowly(*vrfEntries, OutputFormat::json, [&] {
        change();
        publish();
    })));
}

TEST_F(ShowEntries, AllMayGoBetweenTwoSlices) {
    for (std::uint64_t n = 1; n <= 3; ++n) { exportNextHop(n); }
    const std::string output = slowly(*nextHopEntries, OutputFormat::text, [this] {
        for (std::uint64_t n = 1; n <= 3; ++n) { aft->nextHops()->nextHopDel(NextHopIndex{n}); }
    });
    EXPECT_THAT(lines(output), ElementsAre(testing::StartsWith("INDEX "), "1"));
}

TEST_F(ShowEntries, ResumedRequestsThatTakeTurnsShowTheSameAsOneWithoutYields) {
    for (std::uint64_t n = 1; n <= 20; ++n) {
        exportNextHop(n);
        exportGroup(n);
    }
    const std::string asText = text(*nextHopEntries).output;
    const std::string asJson = structured(*groupEntries).output;
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    const auto one = nextHopEntries->createInstanceSm(request(*nextHopEntries, OutputFormat::text));
    const auto two = groupEntries->createInstanceSm(request(*groupEntries, OutputFormat::json));
    EXPECT_EQ(anchor->instances(), 2U);
    for (int slice = 1; slice <= 20; ++slice) {
        EXPECT_FALSE(one->allOutputProduced() || two->allOutputProduced()) << slice;
        one->produceOutput();
        two->produceOutput();
    }
    EXPECT_TRUE(one->allOutputProduced() && two->allOutputProduced());
    two->printer()->end();
    EXPECT_EQ(one->printer()->takeOutput(), asText);
    EXPECT_EQ(two->printer()->takeOutput(), asJson);
}

TEST_F(ShowEntries, ASliceEndsWhenThePrinterIsFull) {
    for (std::uint64_t n = 1; n <= 10'000; ++n) { exportNextHop(n); }
    const auto machine =
        nextHopEntries->createInstanceSm(request(*nextHopEntries, OutputFormat::text));
    machine->produceOutput();
    EXPECT_FALSE(machine->allOutputProduced());
    EXPECT_TRUE(machine->printer()->full());
    EXPECT_LT(machine->printer()->buffered(), AgentHost::CliPrinter::kFull + 200);
}

}  // namespace
}  // namespace Pel::Oc
