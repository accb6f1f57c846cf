#include "model/View/test/OpenConfigViewFixture.h"

namespace Pel::OcApi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST_F(OpenConfigViewTest, DefaultInstanceIsAlwaysThere) {
    show();
    const auto all = take();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(entry(all[0]), "/network-instances/network-instance[name=DEFAULT]");
    EXPECT_EQ(all[0].prefix().origin(), "openconfig");
    EXPECT_FALSE(all[0].atomic());
    EXPECT_THAT(leaves(all[0]),
                UnorderedElementsAre(Pair("name", "DEFAULT"),
                                     Pair("config/name", "DEFAULT"),
                                     Pair("config/type", "DEFAULT_INSTANCE"),
                                     Pair("state/name", "DEFAULT"),
                                     Pair("state/type", "DEFAULT_INSTANCE")));
}

TEST_F(OpenConfigViewTest, NextHopWithAllItsPlainLeaves) {
    NextHop hop = nextHop(7);
    hop.macAddress = Nexo::EthAddr{{0, 0x1c, 0x73, 0, 0, 1}};
    hop.subinterface = 20;
    hop.pushedMplsLabelStack.push(Nexo::MplsLabel{100});  // top
    hop.pushedMplsLabelStack.push(Nexo::MplsLabel{3});
    hop.popTopLabel = true;
    aft->nextHops()->nextHopIs(hop);
    show();
    const auto all = take();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(entry(all[0]), std::string{kAfts} + "/next-hops/next-hop[index=7]");
    EXPECT_TRUE(all[0].atomic());
    EXPECT_THAT(leaves(all[0]),
                UnorderedElementsAre(Pair("index", "7"),
                                     Pair("state/index", "7"),
                                     Pair("state/ip-address", "192.0.2.1"),
                                     Pair("state/mac-address", "00:1c:73:00:00:01"),
                                     Pair("state/pop-top-label", "true"),
                                     Pair("state/pushed-mpls-label-stack", "[IMPLICIT_NULL 100 ]"),
                                     Pair("interface-ref/state/interface", "Ethernet1"),
                                     Pair("interface-ref/state/subinterface", "20")));
}

TEST_F(OpenConfigViewTest, NextHopLeavesOutWhatItDoesNotHave) {
    NextHop hop;
    hop.index = NextHopIndex{7};
    hop.ipAddress = address("0.0.0.0");
    hop.decapNetworkInstance = Nexo::InternedName{"blue"};  // without the header: native view only
    hop.pushedMplsLabelStack.push(Nexo::MplsLabel{100});
    hop.pushedMplsLabelStack.push(Nexo::MplsLabel{5});  // no name, no number in the schema
    aft->nextHops()->nextHopIs(hop);
    show();
    EXPECT_THAT(takeLeaves(std::string{kAfts} + "/next-hops/next-hop[index=7]"),
                UnorderedElementsAre(Pair("index", "7"), Pair("state/index", "7")));
}

TEST_F(OpenConfigViewTest, DecapsulationNamesTheInstance) {
    NextHop hop = nextHop(7);
    hop.decapsulateHeader = EncapHeaderType::udpv6;
    hop.decapNetworkInstance = Nexo::InternedName{"default"};
    aft->nextHops()->nextHopIs(hop);
    show();
    EXPECT_THAT(takeLeaves(std::string{kAfts} + "/next-hops/next-hop[index=7]"),
                IsSupersetOf(Leaves{{"state/decapsulate-header", "UDPV6"},
                                    {"state/network-instance", "DEFAULT"}}));
}

TEST_F(OpenConfigViewTest, EncapHeadersByTypeName) {
    NextHop hop = nextHop(7);
    EncapHeader mpls{0, EncapHeaderType::mpls, MplsState{}};
    std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{17});
    std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{16});
    hop.encapHeaders.encapHeaderIs(mpls);
    hop.encapHeaders.encapHeaderIs(
        {1, EncapHeaderType::udpv6, UdpState{address("2001:db8::1"), address("2001:db8::2"), 0}});
    hop.encapHeaders.encapHeaderIs(
        {2, EncapHeaderType::udpv4, UdpState{address("10.0.0.1"), address("10.0.0.2"), 64}});
    hop.encapHeaders.encapHeaderIs(
        {3, EncapHeaderType::vxlan, VxlanState{address("10.0.0.3"), 5000}});
    hop.encapHeaders.encapHeaderIs({4, EncapHeaderType::unset, {}});
    aft->nextHops()->nextHopIs(hop);
    show();
    const Leaves got = takeLeaves(std::string{kAfts} + "/next-hops/next-hop[index=7]");
    const auto header = [&](const std::string& index) {
        Leaves some;
        const std::string path = "encap-headers/encap-header[index=" + index + "]/";
        for (const auto& [leaf, value] : got) {
            if (leaf.starts_with(path)) { some.emplace(leaf.substr(path.size()), value); }
        }
        return some;
    };
    const std::string label = "mpls/encap-mpls-label-stacks/encap-mpls-label-stack";
    EXPECT_THAT(header("0"),
                UnorderedElementsAre(Pair("index", "0"),
                                     Pair("state/index", "0"),
                                     Pair("state/type", "MPLS"),
                                     Pair("mpls/state/mpls-label-stack", "[16 17 ]"),
                                     Pair(label + "[id=0]/id", "0"),
                                     Pair(label + "[id=0]/state/id", "0"),
                                     Pair(label + "[id=0]/state/label", "16"),
                                     Pair(label + "[id=1]/id", "1"),
                                     Pair(label + "[id=1]/state/id", "1"),
                                     Pair(label + "[id=1]/state/label", "17")));
    EXPECT_THAT(header("1"),
                UnorderedElementsAre(Pair("index", "1"),
                                     Pair("state/index", "1"),
                                     Pair("state/type", "UDPV6"),
                                     Pair("udp-v6/state/src-ip", "2001:db8::1"),
                                     Pair("udp-v6/state/dst-ip", "2001:db8::2")));
    EXPECT_THAT(header("2"),
                UnorderedElementsAre(Pair("index", "2"),
                                     Pair("state/index", "2"),
                                     Pair("state/type", "UDPV4"),
                                     Pair("udp-v4/state/src-ip", "10.0.0.1"),
                                     Pair("udp-v4/state/dst-ip", "10.0.0.2"),
                                     Pair("udp-v4/state/ip-ttl", "64")));
    EXPECT_THAT(header("3"),
                UnorderedElementsAre(Pair("index", "3"),
                                     Pair("state/index", "3"),
                                     Pair("state/type", "VXLAN"),
                                     Pair("vxlan/state/vni-label", "5000"),
                                     Pair("vxlan/state/tunnel-src-ip-address", "10.0.0.3")));
    EXPECT_THAT(header("4"), UnorderedElementsAre(Pair("index", "4"), Pair("state/index", "4")));
    EXPECT_EQ(got.at("state/vni-label"), "5000");
    EXPECT_EQ(got.at("state/tunnel-src-ip-address"), "10.0.0.3");
}

TEST_F(OpenConfigViewTest, GroupWaitsForMembersAndComesAfterThem) {
    show();
    take();
    group(41, {{NextHopIndex{9}, 1}, {NextHopIndex{7}, 3}});
    EXPECT_THAT(takeEntries(), ElementsAre());
    aft->nextHops()->nextHopIs(nextHop(7));
    aft->nextHops()->processedIs(NextHopIndex{9});
    const auto all = take();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(entry(all[0]), std::string{kAfts} + "/next-hops/next-hop[index=7]");
    EXPECT_EQ(entry(all[1]), std::string{kAfts} + "/next-hop-groups/next-hop-group[id=41]");
    EXPECT_TRUE(all[1].atomic());
    EXPECT_THAT(leaves(all[1]),
                UnorderedElementsAre(Pair("id", "41"),
                                     Pair("state/id", "41"),
                                     Pair("next-hops/next-hop[index=7]/index", "7"),
                                     Pair("next-hops/next-hop[index=7]/state/index", "7"),
                                     Pair("next-hops/next-hop[index=7]/state/weight", "3"),
                                     Pair("next-hops/next-hop[index=9]/index", "9"),
                                     Pair("next-hops/next-hop[index=9]/state/index", "9"),
                                     Pair("next-hops/next-hop[index=9]/state/weight", "1")));
}

TEST_F(OpenConfigViewTest, GroupNameAndProgrammedIdOnlyWhenThereAreSome) {
    NextHopGroup made;
    made.id = NextHopGroupId{41};
    made.programmedId = 0;
    made.name.emplace();
    aft->nextHopGroups()->nextHopGroupIs(made);
    made.id = NextHopGroupId{42};
    made.programmedId = 4711;
    made.name.emplace("west");
    aft->nextHopGroups()->nextHopGroupIs(made);
    show();
    const auto all = take();
    ASSERT_GE(all.size(), 2U);
    EXPECT_THAT(leaves(all[0]), UnorderedElementsAre(Pair("id", "41"), Pair("state/id", "41")));
    EXPECT_THAT(leaves(all[1]),
                UnorderedElementsAre(Pair("id", "42"),
                                     Pair("state/id", "42"),
                                     Pair("state/programmed-id", "4711"),
                                     Pair("state/next-hop-group-name", "west")));
}

TEST_F(OpenConfigViewTest, PrefixesOfEveryVrfAndFamily) {
    group(41, {});
    using V4 = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    V4 rib{*writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    V4 blue{*writer, "routing6/vrf/status/blue", Mesa::Fib6::RouteStatus::kType};
    rib.set(prefix("0.0.0.0/0"), {FecId{41}, OriginProtocol::staticRoute});
    rib.set(prefix("255.255.255.255/32"), {FecId{41}, OriginProtocol::unset});
    blue.set(prefix("2001:db8::/32"), {FecId{41}, OriginProtocol::bgp});
    blue.set(prefix("::/0"), {FecId{41}, OriginProtocol::bgp});
    rib.set(prefix("10.0.0.0/8"), {FecId{}, OriginProtocol::bgp});  // no FEC: nothing to show
    ASSERT_EQ(writer->commit(), "");
    show();
    const auto all = take();
    std::map<std::string, Leaves> byEntry;
    for (const auto& notification : all) { byEntry[entry(notification)] = leaves(notification); }
    const std::string blueEntry = "/network-instances/network-instance[name=blue]";
    EXPECT_EQ(all.size(), 7U);
    EXPECT_THAT(byEntry[std::string{kAfts} + "/ipv4-unicast/ipv4-entry[prefix=0.0.0.0/0]"],
                UnorderedElementsAre(Pair("prefix", "0.0.0.0/0"),
                                     Pair("state/prefix", "0.0.0.0/0"),
                                     Pair("state/next-hop-group", "41"),
                                     Pair("state/origin-protocol", "STATIC")));
    EXPECT_THAT(byEntry[std::string{kAfts} + "/ipv4-unicast/ipv4-entry[prefix=255.255.255.255/32]"],
                UnorderedElementsAre(Pair("prefix", "255.255.255.255/32"),
                                     Pair("state/prefix", "255.255.255.255/32"),
                                     Pair("state/next-hop-group", "41")));
    EXPECT_THAT(byEntry[blueEntry + "/afts/ipv6-unicast/ipv6-entry[prefix=2001:db8::/32]"],
                UnorderedElementsAre(Pair("prefix", "2001:db8::/32"),
                                     Pair("state/prefix", "2001:db8::/32"),
                                     Pair("state/next-hop-group", "41"),
                                     Pair("state/next-hop-group-network-instance", "DEFAULT"),
                                     Pair("state/origin-protocol", "BGP")));
    EXPECT_EQ(byEntry[blueEntry].at("state/type"), "L3VRF");
    EXPECT_TRUE(byEntry.contains(blueEntry + "/afts/ipv6-unicast/ipv6-entry[prefix=::/0]"));
}

TEST_F(OpenConfigViewTest, TablesThatAppearLaterAndRoutesThatGo) {
    group(41, {});
    show();
    take();
    Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute> red{
        *writer, "routing/vrf/status/red", Mesa::Fib::RouteStatus::kType};
    red.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    const std::string instance = "/network-instances/network-instance[name=red]";
    const std::string route = instance + "/afts/ipv4-unicast/ipv4-entry[prefix=10.0.0.0/8]";
    EXPECT_THAT(takeEntries(), UnorderedElementsAre(instance, route));
    red.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::isis});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_EQ(takeLeaves(route).at("state/origin-protocol"), "ISIS");
    red.erase(prefix("10.0.0.0/8"));
    ASSERT_EQ(writer->commit(), "");
    const auto all = take();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(entry(all[0]), "delete " + route);
    EXPECT_FALSE(all[0].atomic());
    EXPECT_EQ(all[0].prefix().elem_size(), 0);
    EXPECT_EQ(all[0].prefix().origin(), "openconfig");
}

TEST_F(OpenConfigViewTest, AKeyOfTheOtherFamilySaysNothingOfTheOtherTablesEntry) {
    group(41, {});
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    Routes four{*writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    Routes six{*writer, "routing6/status", Mesa::Fib6::RouteStatus::kType};
    const auto put = [this](Routes& table, const char* key, std::uint64_t fec) {
        table.set(prefix(key), {fec == 0 ? FecId{} : FecId{fec}, OriginProtocol::bgp});
        ASSERT_EQ(writer->commit(), "");
    };
    // Each where it belongs, then in the other table without a FEC: that would not be shown.
    put(four, "10.0.0.0/8", 41);
    put(six, "10.0.0.0/8", 0);
    put(six, "2001:db8::/32", 41);
    put(four, "2001:db8::/32", 0);
    show();
    const std::string here = std::string{kAfts} + "/ipv4-unicast/ipv4-entry[prefix=10.0.0.0/8]";
    const std::string there = std::string{kAfts} + "/ipv6-unicast/ipv6-entry[prefix=2001:db8::/32]";
    EXPECT_THAT(takeEntries(), IsSupersetOf({here, there}));
    put(six, "10.0.0.0/8", 42);
    six.erase(prefix("10.0.0.0/8"));
    put(four, "2001:db8::/32", 42);
    four.erase(prefix("2001:db8::/32"));
    ASSERT_EQ(writer->commit(), "");
    EXPECT_THAT(takeEntries(), IsEmpty());
}

TEST_F(OpenConfigViewTest, AFecIdWithHighBitsIsHeldAsBytes) {
    const std::uint64_t id = 0xF123'4567'89AB'CDEFU;
    group(id, {});
    Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute> rib{
        *writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    rib.set(prefix("10.0.0.0/8"), {FecId{id}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    show();
    const Leaves got =
        takeLeaves(std::string{kAfts} + "/ipv4-unicast/ipv4-entry[prefix=10.0.0.0/8]");
    EXPECT_EQ(got.at("state/next-hop-group"), std::to_string(id));
    EXPECT_EQ(got.at("state/origin-protocol"), "BGP");
}

TEST_F(OpenConfigViewTest, TablesOutsideThePrefixesAreNotShown) {
    group(41, {});
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    Routes rib{*writer, "routing/status", Mesa::Fib::RouteStatus::kType};
    Routes six{*writer, "routing6/status", Mesa::Fib6::RouteStatus::kType};
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    six.set(prefix("2001:db8::/32"), {FecId{41}, OriginProtocol::bgp});
    ASSERT_EQ(writer->commit(), "");
    show({"routing6/status"});
    EXPECT_THAT(takeEntries(),
                ElementsAre(std::string{kAfts} + "/next-hop-groups/next-hop-group[id=41]",
                            std::string{kAfts} + "/ipv6-unicast/ipv6-entry[prefix=2001:db8::/32]",
                            "/network-instances/network-instance[name=DEFAULT]"));
}

struct KeyCase {
    const char* name;
    std::size_t kind;
    const char* instance;  // null: open
    const char* key;
    bool wanted;
};
constexpr KeyCase kKeys[] = {
    {"PrefixHere", 2, nullptr, "10.0.0.0/8", true},
    {"OtherPrefix", 2, nullptr, "10.0.0.0/9", false},
    {"PrefixOfDefault", 2, "DEFAULT", "10.0.0.0/8", true},
    {"PrefixOfAnother", 2, "blue", "10.0.0.0/8", false},
    {"InstanceOnly", 2, "DEFAULT", nullptr, true},
    {"NoPrefixAtAll", 2, nullptr, "ten", false},
    {"OtherFamily", 2, nullptr, "::/0", false},
};
class KeyPredicate : public testing::TestWithParam<KeyCase> {};
TEST_P(KeyPredicate, Decides) {
    Gale::ViewInputs inputs;
    inputs.root = Vel::make<Vel::Dir>("AftExport");
    inputs.defaultInstance = "DEFAULT";
    const OpenConfigView view{inputs};
    const KeyCase& c = GetParam();
    const std::string instance = c.instance == nullptr ? "" : c.instance;
    const std::string key = c.key == nullptr ? "" : c.key;
    const auto predicate = view.keyPredicate(
        c.kind, {c.instance == nullptr ? nullptr : &instance, c.key == nullptr ? nullptr : &key});
    ASSERT_TRUE(predicate);
    // 10.0.0.0/8 of the default instance.
    EXPECT_EQ(predicate({std::uint64_t{1} << 16U | 0x0A00U, 0, 8}), c.wanted);
}
INSTANTIATE_TEST_SUITE_P(, KeyPredicate, testing::ValuesIn(kKeys), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(KeyPredicates, NumbersMustBeWrittenAsTheServerDoes) {
    Gale::ViewInputs inputs;
    inputs.root = Vel::make<Vel::Dir>("AftExport");
    inputs.defaultInstance = "DEFAULT";
    const OpenConfigView view{inputs};
    for (const auto& [text, wanted] :
         std::map<std::string, bool>{{"7", true},
                                     {"07", false},
                                     {"+7", false},
                                     {"7 ", false},
                                     {"", false},
                                     {"18446744073709551623", false}}) {
        const auto predicate = view.keyPredicate(0, {nullptr, &text});
        ASSERT_TRUE(predicate);
        EXPECT_EQ(predicate({0, 0, 7}), wanted) << text;
    }
}

}  // namespace
}  // namespace Pel::OcApi
