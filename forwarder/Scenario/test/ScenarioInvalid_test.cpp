#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "forwarder/Scenario/test/ParsedScenario.h"

namespace Pel::Forwarder {
namespace {

struct InvalidCase {
    const char* name;
    std::string text;
    std::vector<std::string> problems;
};
std::ostream& operator<<(std::ostream& to, const InvalidCase& c) {
    return to << c.name;
}

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
     {"f.yaml:3:3: unknown key 'colour'; the keys here are fecReady, fibReady, quiesced"}},
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
    {"ElementNoMap",
     "scenario: 1\n"
     "nextHops: [a]\n",
     {"f.yaml:2:12: expected a map with the key 'name', not 'a'"}},
    {"NameIsAList",
     "scenario: 1\n"
     "nextHops: [{name: [a]}]\n",
     {"f.yaml:2:19: expected a text of 1 to 255 bytes, not a list"}},
    {"NameIsNothing",
     "scenario: 1\n"
     "vrfs: [{name: , id: 1}]\n",
     {"f.yaml:2:15: expected a text of 1 to 255 bytes, not nothing"}},
    {"UnknownKeyOfANextHop",
     "scenario: 1\n"
     "nextHops: [{name: a, vlan: 7}]\n",
     {"f.yaml:2:22: unknown key 'vlan'; did you mean 'vxlan'?"}},
    {"UnknownKeyOfAGue",
     "scenario: 1\n"
     "nextHops: [{name: a, gue: {src: 10.0.0.1}}]\n",
     {"f.yaml:2:27: expected the key 'destination'",
      "f.yaml:2:27: expected the key 'source'",
      "f.yaml:2:28: unknown key 'src'; the keys here are addressFamily, source, destination, ttl"}},
    {"UnknownKeyOfAVti",
     "scenario: 1\n"
     "vtis: [{name: V, vnis: {10: 1}}]\n",
     {"f.yaml:2:18: unknown key 'vnis'; the keys here are name, vtep, vtepV6, vlans"}},
    {"UnknownKeyOfAFec",
     "scenario: 1\n"
     "fecs: [{id: 1, nextHops: []}]\n",
     {"f.yaml:2:16: unknown key 'nextHops'; the keys here are id, name, groupAttribute, "
      "programmedId, top, secondFlag, members, truncate"}},
    {"UnknownKeyOfARoute",
     "scenario: 1\n"
     "routes: [{prefix: 10.0.0.0/8, group: 1}]\n",
     {"f.yaml:2:10: expected the key 'fec'",
      "f.yaml:2:31: unknown key 'group'; the keys here are vrf, prefix, fec, origin"}},
    {"UnknownKeyOfAMember",
     "scenario: 1\n"
     "nextHops: [{name: a}]\n"
     "fecs: [{id: 1, members: [{nextHop: a, wait: 1}]}]\n",
     {"f.yaml:3:39: unknown key 'wait'; the keys here are nextHop, weight"}},
    {"UnknownKeyOfAStep",
     "scenario: 1\n"
     "timeline: [{at: 1s, remove: {}}]\n",
     {"f.yaml:2:21: unknown key 'remove'; the keys here are at, add, change, delete, ready"}},
    {"UnknownListOfAStep",
     "scenario: 1\n"
     "timeline: [{at: 1s, add: {interfaces: []}}]\n",
     {"f.yaml:2:27: unknown key 'interfaces'; the keys here are vrfs, vtis, udpDestinationPorts, "
      "decapGroups, nextHops, fecs, routes, counters"}},
    {"InterfaceTwice",
     "scenario: 1\n"
     "interfaces: [{name: e1}, {name: e1}]\n",
     {"f.yaml:2:26: the interface 'e1' comes twice"}},
    {"NegativeSubinterface",
     "scenario: 1\n"
     "interfaces: [{name: e1.7, parent: e1, subinterface: -7}]\n",
     {"f.yaml:2:53: expected a whole number from 0 to 4294967295, not '-7'"}},
    {"VrfTwice",
     "scenario: 1\n"
     "vrfs: [{name: a, id: 7}, {name: a, id: 7}]\n",
     {"f.yaml:2:26: VRF 'a' is there already"}},
    {"VrfIdZero",
     "scenario: 1\n"
     "vrfs: [{name: a, id: 0}]\n",
     {"f.yaml:2:22: expected a whole number from 1 to 4294967295, not '0'"}},
    {"VrfNameWithSlash",
     "scenario: 1\n"
     "vrfs: [{name: a/b, id: 7}]\n",
     {"f.yaml:2:15: expected a name without '/', not 'a/b'"}},
    {"VrfChanges",
     "scenario: 1\n"
     "timeline: [{at: 1s, change: {vrfs: [{name: default, id: 9}]}}]\n",
     {"f.yaml:2:36: a VRF cannot change; delete it and add another"}},
    {"VtiTwice",
     "scenario: 1\n"
     "vtis: [{name: V}, {name: V}]\n",
     {"f.yaml:2:19: tunnel interface 'V' is there already"}},
    {"VtepOfTheOtherFamily",
     "scenario: 1\n"
     "vtis: [{name: V, vtep: '2001:db8::1'}]\n",
     {"f.yaml:2:24: expected an IPv4 address, not '2001:db8::1'"}},
    {"VtepV6OfTheOtherFamily",
     "scenario: 1\n"
     "vtis: [{name: V, vtepV6: 192.0.2.1}]\n",
     {"f.yaml:2:26: expected an IPv6 address, not '192.0.2.1'"}},
    {"VlansNoMap",
     "scenario: 1\n"
     "vtis: [{name: V, vlans: [10]}]\n",
     {"f.yaml:2:25: expected a map of VLAN to VNI, not a list"}},
    {"VlanOfAVtiOutOfRange",
     "scenario: 1\n"
     "vtis: [{name: V, vlans: {16384: 1}}]\n",
     {"f.yaml:2:26: expected a whole number from 0 to 16383, not '16384'"}},
    {"VniOutOfRange",
     "scenario: 1\n"
     "vtis: [{name: V, vlans: {10: 16777216}}]\n",
     {"f.yaml:2:30: expected a whole number from 0 to 16777215, not '16777216'"}},
    {"VlanTwice",
     "scenario: 1\n"
     "vtis: [{name: V, vlans: {10: 1, 10: 2}}]\n",
     {"f.yaml:2:33: the key '10' comes twice"}},
    {"UdpPortWithoutPayload",
     "scenario: 1\n"
     "udpDestinationPorts: [{port: 7}]\n",
     {"f.yaml:2:23: expected the key 'payload'"}},
    {"UdpPortWithoutPort",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls}]\n",
     {"f.yaml:2:23: expected the key 'port'"}},
    {"UdpPortZero",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls, port: 0}]\n",
     {"f.yaml:2:45: expected a whole number from 1 to 65535, not '0'"}},
    {"UdpPortOutOfRange",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls, port: 65536}]\n",
     {"f.yaml:2:45: expected a whole number from 1 to 65535, not '65536'"}},
    {"UdpPortOfUnknownPayload",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: gre, port: 1}]\n",
     {"f.yaml:2:33: expected mpls, ipv4 or ipv6, not 'gre'"}},
    {"UdpPortOfUnknownMode",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls, port: 1, mode: auto}]\n",
     {"f.yaml:2:54: expected default or configured, not 'auto'"}},
    {"UdpPortTwice",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls, port: 1}, {payload: mpls, port: 2}]\n",
     {"f.yaml:2:49: UDP destination port 'mpls' is there already"}},
    {"UdpPortTwiceInASource",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: ipv6, source: s, port: 1}, {payload: ipv6, source: s, port: "
     "2}]\n",
     {"f.yaml:2:60: UDP destination port 'ipv6' of the source 's' is there already"}},
    {"SourceWithSlash",
     "scenario: 1\n"
     "udpDestinationPorts: [{payload: mpls, source: a/b, port: 1}]\n",
     {"f.yaml:2:47: expected a name without '/', not 'a/b'"}},
    {"DecapGroupWithoutPayload",
     "scenario: 1\n"
     "decapGroups: [{name: g, port: 1}]\n",
     {"f.yaml:2:15: expected the key 'payload'"}},
    {"DecapGroupOfUnknownPayload",
     "scenario: 1\n"
     "decapGroups: [{name: g, payload: udp, port: 1}]\n",
     {"f.yaml:2:34: expected mpls, gre, ipv4 or ipv6, not 'udp'"}},
    {"DecapGroupWithoutPort",
     "scenario: 1\n"
     "decapGroups: [{name: g, payload: ipv4}]\n",
     {"f.yaml:2:15: expected the key 'port'"}},
    {"DecapGroupPortOutOfRange",
     "scenario: 1\n"
     "decapGroups: [{name: g, payload: mpls, port: 70000}]\n",
     {"f.yaml:2:46: expected a whole number from 1 to 65535, not '70000'"}},
    {"DecapGroupTwice",
     "scenario: 1\n"
     "decapGroups: [{name: g, payload: gre}, {name: g, payload: gre}]\n",
     {"f.yaml:2:40: decap group 'g' is there already"}},
    {"ChangeOfNoDecapGroup",
     "scenario: 1\n"
     "timeline: [{at: 1s, change: {decapGroups: [{name: g, source: s}]}}]\n",
     {"f.yaml:2:44: there is no decap group 'g' of the source 's'"}},
    {"DeleteOfNoUdpPort",
     "scenario: 1\n"
     "timeline: [{at: 1s, delete: {udpDestinationPorts: [{payload: ipv4}]}}]\n",
     {"f.yaml:2:52: there is no UDP destination port 'ipv4'"}},
    {"DeleteNamesMoreThanTheKey",
     "scenario: 1\n"
     "decapGroups: [{name: g, payload: gre}]\n"
     "timeline: [{at: 1s, delete: {decapGroups: [{name: g, payload: gre}]}}]\n",
     {"f.yaml:3:54: unknown key 'payload'; the keys here are name, source"}},
    {"NextHopTwice",
     "scenario: 1\n"
     "nextHops: [{name: a}, {name: a}]\n",
     {"f.yaml:2:23: next hop 'a' is there already"}},
    {"IndexOutOfRange",
     "scenario: 1\n"
     "nextHops: [{name: a, index: 140737488355328}]\n",
     {"f.yaml:2:29: expected a whole number from 1 to 140737488355327, not '140737488355328'"}},
    {"IndexZero",
     "scenario: 1\n"
     "nextHops: [{name: a, index: 0}]\n",
     {"f.yaml:2:29: expected a whole number from 1 to 140737488355327, not '0'"}},
    {"LabelsNoList",
     "scenario: 1\n"
     "nextHops: [{name: a, labels: 17}]\n",
     {"f.yaml:2:30: expected a list, not '17'"}},
    {"LabelNoNumber",
     "scenario: 1\n"
     "nextHops: [{name: a, labels: [implicit-null]}]\n",
     {"f.yaml:2:31: expected a whole number from 0 to 1048575, not 'implicit-null'"}},
    {"NegativeLabel",
     "scenario: 1\n"
     "nextHops: [{name: a, labels: [-1]}]\n",
     {"f.yaml:2:31: expected a whole number from 0 to 1048575, not '-1'"}},
    {"FifteenEncapLabels",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [mpls], mplsEncapLabels: "
     "[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]}]\n",
     {"f.yaml:2:59: expected at most 14 labels, not 15"}},
    {"EncapLabelOutOfRange",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [mpls], mplsEncapLabels: [1048576]}]\n",
     {"f.yaml:2:60: expected a whole number from 0 to 1048575, not '1048576'"}},
    {"MplsWithoutLabels",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [mpls]}]\n",
     {"f.yaml:2:12: expected both 'mpls' in 'encapOrder' and 'mplsEncapLabels', or none of them"}},
    {"LabelsWithoutMpls",
     "scenario: 1\n"
     "nextHops: [{name: a, mplsEncapLabels: [300]}]\n",
     {"f.yaml:2:12: expected both 'mpls' in 'encapOrder' and 'mplsEncapLabels', or none of them"}},
    {"SeventeenEncaps",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [mpls, mpls, mpls, mpls, mpls, mpls, mpls, mpls, mpls, "
     "mpls, mpls, mpls, mpls, mpls, mpls, mpls, mpls], mplsEncapLabels: [1]}]\n",
     {"f.yaml:2:34: expected at most 16 encapsulations, not 17"}},
    {"DeleteOfUsedKernelFec",
     "scenario: 1\n"
     "fecs: [{id: kernel/5}]\n"
     "routes: [{prefix: 10.0.0.0/8, fec: kernel/5}]\n"
     "timeline: [{at: 1s, delete: {fecs: [kernel/5]}}]\n",
     {"f.yaml:4:37: the FEC kernel/5 is deleted, but still has 1 route"}},
    {"VxlanIsNoEncapOfTheOrder",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [vxlan]}]\n",
     {"f.yaml:2:35: expected mpls or udp, not 'vxlan'"}},
    {"GueNoMap",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [udp], gue: 10.0.0.1}]\n",
     {"f.yaml:2:46: expected a map, not '10.0.0.1'"}},
    {"GueWithoutDestination",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [udp], gue: {source: 10.0.0.1}}]\n",
     {"f.yaml:2:46: expected the key 'destination'"}},
    {"GueWithoutUdp",
     "scenario: 1\n"
     "nextHops: [{name: a, gue: {source: 10.0.0.1, destination: 10.0.0.2}}]\n",
     {"f.yaml:2:12: expected both 'udp' in 'encapOrder' and 'gue', or none of them"}},
    {"GueOfAnotherFamilyThanSaid",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [udp], gue: {addressFamily: 2, source: 10.0.0.1, "
     "destination: 10.0.0.2}}]\n",
     {"f.yaml:2:46: expected 'source', 'destination' and 'addressFamily' (1 IPv4, 2 IPv6) of one "
      "family"}},
    {"TtlOutOfRange",
     "scenario: 1\n"
     "nextHops: [{name: a, encapOrder: [udp], gue: {source: 10.0.0.1, destination: 10.0.0.2, ttl: "
     "256}}]\n",
     {"f.yaml:2:93: expected a whole number from 0 to 255, not '256'"}},
    {"VxlanWithoutVlan",
     "scenario: 1\n"
     "nextHops: [{name: a, vxlan: {vti: V}}]\n",
     {"f.yaml:2:29: expected the key 'vlan'"}},
    {"VxlanWithoutVti",
     "scenario: 1\n"
     "nextHops: [{name: a, vxlan: {vlan: 1}}]\n",
     {"f.yaml:2:29: expected the key 'vti'"}},
    {"UnknownDecapHeader",
     "scenario: 1\n"
     "nextHops: [{name: a, decapHeader: gue}]\n",
     {"f.yaml:2:35: expected none, gre, mpls, ipv4, vxlan, udpv4, udpv6 or ipv6, not 'gue'"}},
    {"DecapVrfOfNoName",
     "scenario: 1\n"
     "nextHops: [{name: a, decapVrf: blue}]\n",
     {"f.yaml:2:32: there is no VRF 'blue'"}},
    {"DecapVrfOfNoNameWhateverIsAllowed",
     "scenario: 1\ninvalid: allow\nnextHops: [{name: a, decapVrf: blue}]\n",
     {"f.yaml:3:32: there is no VRF 'blue'"}},
    {"DecapVrfOfNoId",
     "scenario: 1\n"
     "nextHops: [{name: a, decapVrf: 77}]\n",
     {"f.yaml:2:32: there is no VRF with the id 77"}},
    {"FallbackVrfOfNoName",
     "scenario: 1\n"
     "nextHops: [{name: a, fallbackVrf: blue}]\n",
     {"f.yaml:2:35: there is no VRF 'blue'"}},
    {"FallbackVrfIsAList",
     "scenario: 1\n"
     "nextHops: [{name: a, fallbackVrf: [blue]}]\n",
     {"f.yaml:2:35: expected a whole number from 0 to 4294967295, not a list"}},
    {"VrfIdOutOfRange",
     "scenario: 1\n"
     "nextHops: [{name: a, decapVrf: 4294967296}]\n",
     {"f.yaml:2:32: expected a whole number from 0 to 4294967295, not '4294967296'"}},
    {"DeleteOfVrfThatNextHopsName",
     "scenario: 1\n"
     "vrfs: [{name: red, id: 7}]\n"
     "nextHops: [{name: a, decapVrf: red, fallbackVrf: 7}]\n"
     "timeline: [{at: 1s, delete: {vrfs: [red]}}]\n",
     {"f.yaml:4:37: the VRF 'red' is deleted, but next hops still name it (2 times)"}},
    {"FecIdZero",
     "scenario: 1\n"
     "fecs: [{id: 0}]\n",
     {"f.yaml:2:13: expected a whole number from 1 to 18446744073709551615, not '0'"}},
    {"FecIdOfUnknownKind",
     "scenario: 1\n"
     "fecs: [{id: 0x0900000000000001}]\n",
     {"f.yaml:2:13: expected a FEC id of kind 0 to 4 (bits 63 to 56), not '0x0900000000000001'"}},
    {"MembersNoList",
     "scenario: 1\n"
     "fecs: [{id: 1, members: a}]\n",
     {"f.yaml:2:25: expected a list, not 'a'"}},
    {"WeightOutOfRange",
     "scenario: 1\n"
     "nextHops: [{name: a}]\n"
     "fecs: [{id: 1, members: [{nextHop: a, weight: 4294967296}]}]\n",
     {"f.yaml:3:47: expected a whole number from 1 to 4294967295, not '4294967296'"}},
    {"GroupAttributeOutOfRange",
     "scenario: 1\n"
     "fecs: [{id: 1, groupAttribute: 256}]\n",
     {"f.yaml:2:32: expected a whole number from 0 to 255, not '256'"}},
    {"RouteTwice",
     "scenario: 1\n"
     "fecs: [{id: 1}]\n"
     "routes: [{prefix: 10.0.0.0/8, fec: 1}, {prefix: 10.0.0.0/8, fec: 1}]\n",
     {"f.yaml:3:40: route '10.0.0.0/8' in 'default' is there already"}},
    {"RouteWithoutFec",
     "scenario: 1\n"
     "routes: [{prefix: 10.0.0.0/8}]\n",
     {"f.yaml:2:10: expected the key 'fec'"}},
    {"PrefixWithHostBits",
     "scenario: 1\n"
     "fecs: [{id: 1}]\n"
     "routes: [{prefix: 10.0.0.1/8, fec: 1}]\n",
     {"f.yaml:3:19: expected 10.0.0.0/8, without bits beyond the length, not '10.0.0.1/8'"}},
    {"UnknownOrigin",
     "scenario: 1\n"
     "fecs: [{id: 1}]\n"
     "routes: [{prefix: 10.0.0.0/8, fec: 1, origin: rip}]\n",
     {"f.yaml:3:47: expected unset, connected, local, static, bgp, isis, ospf or ospf3, not "
      "'rip'"}},
    {"ReadinessNoMap",
     "scenario: 1\n"
     "ready: true\n",
     {"f.yaml:2:8: expected a map, not 'true'"}},
    {"FibReadyNoMap",
     "scenario: 1\n"
     "ready: {fibReady: true}\n",
     {"f.yaml:2:19: expected a map of VRF name to readiness, not 'true'"}},
    {"FibReadyMaybe",
     "scenario: 1\n"
     "ready: {fibReady: {default: maybe}}\n",
     {"f.yaml:2:29: expected true, false or none, not 'maybe'"}},
    {"FibReadyTwice",
     "scenario: 1\n"
     "ready: {fibReady: {default: true, default: false}}\n",
     {"f.yaml:2:35: the key 'default' comes twice"}},
    {"StepWithoutTime",
     "scenario: 1\n"
     "timeline: [{add: {}}]\n",
     {"f.yaml:2:12: expected the key 'at'"}},
    {"RepeatWithoutTime",
     "scenario: 1\n"
     "repeat: {times: 2}\n",
     {"f.yaml:2:9: expected the key 'every'"}},
    {"RepeatNever",
     "scenario: 1\n"
     "repeat: {every: 1s, times: 0}\n",
     {"f.yaml:2:28: expected a whole number from 1 to 18446744073709551615, not '0'"}},
    {"RouteChangesToNoFec",
     "scenario: 1\n"
     "fecs: [{id: 1}]\n"
     "routes: [{prefix: 10.0.0.0/8, fec: 1}]\n"
     "timeline: [{at: 1s, change: {routes: [{prefix: 10.0.0.0/8, fec: 9}]}}]\n",
     {"f.yaml:4:39: there is no FEC 9"}},
    {"InvalidIsNeitherAllowNorRefuse",
     "scenario: 1\n"
     "invalid: maybe\n",
     {"f.yaml:2:10: expected allow or refuse, not 'maybe'"}},
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

}  // namespace
}  // namespace Pel::Forwarder
