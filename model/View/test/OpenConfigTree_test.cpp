#include "model/Tunnel/PelNexthopGueEncapDestPort.h"
#include "model/View/test/OpenConfigViewFixture.h"

namespace Pel::OcApi {
namespace {

/// One of everything: a next hop with all its leaves, a group, routes in two instances.
class OpenConfigTree : public OpenConfigViewTest {
protected:
    OpenConfigTree() {
        const auto guePorts = Oc::pelNexthopGueEncapDestPortFactory("gueEncapDestPort");
        guePorts->gueMplsEncapUdpDestPortIs(6635);
        root->insert(guePorts);
        NextHop hop = nextHop(7);
        hop.macAddress = Nexo::EthAddr{{0, 0x1c, 0x73, 0, 0, 1}};
        hop.subinterface = 20;
        hop.pushedMplsLabelStack.push(Nexo::MplsLabel{100});
        hop.pushedMplsLabelStack.push(Nexo::MplsLabel{3});
        hop.popTopLabel = true;
        hop.decapsulateHeader = EncapHeaderType::udpv6;
        hop.decapNetworkInstance = Nexo::InternedName{"blue"};
        EncapHeader mpls{0, EncapHeaderType::mpls, MplsState{}};
        std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{17});
        std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{0});
        hop.encapHeaders.encapHeaderIs(mpls);
        hop.encapHeaders.encapHeaderIs(
            {1,
             EncapHeaderType::udpv6,
             UdpState{address("2001:db8::1"), address("2001:db8::2"), 0}});
        hop.encapHeaders.encapHeaderIs(
            {2, EncapHeaderType::udpv4, UdpState{address("10.0.0.1"), address("10.0.0.2"), 64}});
        hop.encapHeaders.encapHeaderIs(
            {3, EncapHeaderType::vxlan, VxlanState{address("10.0.0.3"), 5000}});
        aft->nextHops()->nextHopIs(hop);
        NextHopGroup made;
        made.id = NextHopGroupId{41};
        made.programmedId = 4711;
        made.name.emplace("west \"1\"");
        made.nextHops.nextHopInGroupIs({NextHopIndex{7}, 3});
        aft->nextHopGroups()->nextHopGroupIs(made);
        Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute> rib{
            *writer, "routing/status", Mesa::Fib::RouteStatus::kType};
        Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute> blue{
            *writer, "routing6/vrf/status/blue", Mesa::Fib6::RouteStatus::kType};
        rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::staticRoute});
        blue.set(prefix("2001:db8::/32"), {FecId{41}, OriginProtocol::bgp});
        EXPECT_EQ(writer->commit(), "");
        count(7, 12, 3400);
        show();
    }
    std::string tree(const std::string& request) {
        const gnmi::GetResponse response = get(request);
        return response.notification(0).update(0).val().json_ietf_val();
    }
    /// Without the line breaks and what lines begin with.
    static std::string joined(const std::string& lines) {
        std::string text;
        bool begin = true;
        for (const char c : lines) {
            begin = c == '\n' || (begin && c == ' ');
            if (!begin) { text += c; }
        }
        return text;
    }
};

// yanglint (libyang 2.1.30, -t get) finds both trees valid against the published models, once the
// "when" statements of the encapsulation headers compare with names that an enumeration can have.
TEST_F(OpenConfigTree, InJsonIetf) {
    EXPECT_EQ(tree("path {} encoding: JSON_IETF"), joined(R"(
{
 "openconfig-network-instance:network-instances":{
  "network-instance":[
   {
    "afts":{
     "next-hops":{
      "next-hop":[
       {
        "index":"7",
        "state":{
         "index":"7",
         "ip-address":"192.0.2.1",
         "mac-address":"00:1c:73:00:00:01",
         "pop-top-label":true,
         "pushed-mpls-label-stack":["IMPLICIT_NULL",100],
         "decapsulate-header":"UDPV6",
         "openconfig-aft-network-instance:network-instance":"blue",
         "encapsulate-header":"VXLAN",
         "vni-label":5000,
         "tunnel-src-ip-address":"10.0.0.3"},
        "interface-ref":{"state":{"interface":"Ethernet1","subinterface":20}},
        "encap-headers":{
         "encap-header":[
          {
           "index":0,
           "state":{"index":0,"type":"MPLS"},
           "mpls":{
            "state":{"mpls-label-stack":["IPV4_EXPLICIT_NULL",17]},
            "encap-mpls-label-stacks":{
             "encap-mpls-label-stack":[
              {"id":0,"state":{"id":0,"label":"IPV4_EXPLICIT_NULL"}},
              {"id":1,"state":{"id":1,"label":17}}]}}},
          {
           "index":1,
           "state":{"index":1,"type":"UDPV6"},
           "udp-v6":{
            "state":{"src-ip":"2001:db8::1","dst-ip":"2001:db8::2","dst-udp-port":6635}}},
          {
           "index":2,
           "state":{"index":2,"type":"UDPV4"},
           "udp-v4":{"state":{"src-ip":"10.0.0.1","dst-ip":"10.0.0.2","ip-ttl":64}}},
          {
           "index":3,
           "state":{"index":3,"type":"VXLAN"},
           "vxlan":{"state":{"vni-label":5000,"tunnel-src-ip-address":"10.0.0.3"}}}]}}]},
     "next-hop-groups":{
      "next-hop-group":[
       {
        "id":"41",
        "state":{"id":"41","programmed-id":"4711","next-hop-group-name":"west \"1\""},
        "next-hops":{"next-hop":[{"index":"7","state":{"index":"7","weight":"3"}}]}}]},
     "ipv4-unicast":{
      "ipv4-entry":[
       {
        "prefix":"10.0.0.0/8",
        "state":{
         "prefix":"10.0.0.0/8",
         "openconfig-aft-network-instance:next-hop-group":"41",
         "origin-protocol":"openconfig-policy-types:STATIC"}}]},
     "openconfig-aft-counters:counters":{
      "next-hops":{
       "next-hop":[
        {
         "index":"7",
         "state":{"index":"7","packets-forwarded":"12","octets-forwarded":"3400"}}]}},
     "openconfig-aft-summary:aft-summaries":{
      "ipv4-unicast":{
       "protocols":{
        "protocol":[
         {
          "origin-protocol":"openconfig-policy-types:STATIC",
          "state":{
           "origin-protocol":"openconfig-policy-types:STATIC",
           "counters":{"aft-entries":"1"}}}]}}}},
    "name":"DEFAULT",
    "config":{"name":"DEFAULT","type":"openconfig-network-instance-types:DEFAULT_INSTANCE"},
    "state":{"name":"DEFAULT","type":"openconfig-network-instance-types:DEFAULT_INSTANCE"}},
   {
    "afts":{
     "ipv6-unicast":{
      "ipv6-entry":[
       {
        "prefix":"2001:db8::/32",
        "state":{
         "prefix":"2001:db8::/32",
         "openconfig-aft-network-instance:next-hop-group":"41",
         "openconfig-aft-network-instance:next-hop-group-network-instance":"DEFAULT",
         "origin-protocol":"openconfig-policy-types:BGP"}}]},
     "openconfig-aft-summary:aft-summaries":{
      "ipv6-unicast":{
       "protocols":{
        "protocol":[
         {
          "origin-protocol":"openconfig-policy-types:BGP",
          "state":{
           "origin-protocol":"openconfig-policy-types:BGP",
           "counters":{"aft-entries":"1"}}}]}}}},
    "name":"blue",
    "config":{"name":"blue","type":"openconfig-network-instance-types:L3VRF"},
    "state":{"name":"blue","type":"openconfig-network-instance-types:L3VRF"}}]}})"));
}

TEST_F(OpenConfigTree, OfConfigurationHoldsInstancesWithTheirKeysOnly) {
    EXPECT_EQ(tree("path {} encoding: JSON_IETF type: CONFIG"), joined(R"(
{
 "openconfig-network-instance:network-instances":{
  "network-instance":[
   {
    "name":"DEFAULT",
    "config":{"name":"DEFAULT","type":"openconfig-network-instance-types:DEFAULT_INSTANCE"}},
   {"name":"blue","config":{"name":"blue","type":"openconfig-network-instance-types:L3VRF"}}]}})"));
}

TEST_F(OpenConfigTree, OfStateHoldsNoConfiguration) {
    const std::string state = tree("path {} encoding: JSON_IETF type: STATE");
    EXPECT_THAT(state, testing::Not(testing::HasSubstr("\"config\"")));
    EXPECT_THAT(state, testing::HasSubstr(R"("name":"blue","state":{"name":"blue",)"));
    EXPECT_EQ(tree("path {} encoding: JSON_IETF type: OPERATIONAL"), state);
}

TEST_F(OpenConfigTree, APrefixMayBeWrittenInAnotherWay) {
    EXPECT_EQ(tree("encoding: JSON_IETF path { elem { name: '...' } elem { name: 'ipv6-entry' "
                   "key { key: 'prefix' value: '2001:0DB8:0::/32' } } elem { name: 'prefix' } }"),
              R"("2001:db8::/32")");
}

TEST_F(OpenConfigTree, NodeOfAnAugmentingModuleNamesItAtTheTop) {
    EXPECT_EQ(tree("encoding: JSON_IETF path { elem { name: '...' } elem { name: 'ipv4-entry' } "
                   "elem { name: 'state' } }"),
              R"({"openconfig-network-instance:prefix":"10.0.0.0/8",)"
              R"("openconfig-aft-network-instance:next-hop-group":"41",)"
              R"("openconfig-network-instance:origin-protocol":"openconfig-policy-types:STATIC"})");
}

}  // namespace
}  // namespace Pel::OcApi
