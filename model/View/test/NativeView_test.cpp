#include "model/View/NativeView.h"

#include "model/View/test/NativeServerFixture.h"

#include <future>

namespace Pel::OcApi {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

const std::string kAft = "/AftExport/OpenConfig/afts/aftContainer";

class NativeViewTest : public NativeServerFixture {};

std::string hop(int index) {
    return kAft + "/nextHops[index=" + std::to_string(index) + "]";
}
std::string groupPath(int id) {
    return kAft + "/nextHopGroups[id=" + std::to_string(id) + "]";
}

TEST_F(NativeViewTest, NextHopHasTheFieldsOfItsRecord) {
    NextHop next;
    next.index = NextHopIndex{7};
    next.ipAddress = ip("192.0.2.1");
    next.interface = Nexo::IntfId{"Ethernet1"};
    next.subinterface = 20;
    next.macAddress = Nexo::EthAddr{{0, 0x1c, 0x73, 0, 0, 1}};
    next.popTopLabel = true;
    next.decapsulateHeader = EncapHeaderType::udpv6;
    next.pushedMplsLabelStack.push(Nexo::MplsLabel{100});  // top
    next.pushedMplsLabelStack.push(Nexo::MplsLabel{3});
    next.decapNetworkInstance = Nexo::InternedName{"blue"};
    next.fallbackNetworkInstance = Nexo::InternedName{"default"};
    EncapHeader mpls{0, EncapHeaderType::mpls, MplsState{}};
    std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{17});
    std::get<MplsState>(mpls.state).mplsLabelStackPush(Nexo::MplsLabel{16});
    next.encapHeaders.encapHeaderIs(mpls);
    next.encapHeaders.encapHeaderIs(
        {2, EncapHeaderType::udpv4, UdpState{ip("10.0.0.1"), ip("10.0.0.2"), 64}});
    next.encapHeaders.encapHeaderIs({3, EncapHeaderType::vxlan, VxlanState{ip("10.0.0.3"), 5000}});
    next.encapHeaders.encapHeaderIs({4, EncapHeaderType::unset, {}});
    aft->nextHops()->nextHopIs(next);
    serve();
    EXPECT_THAT(
        once().leaves(hop(7)),
        UnorderedElementsAre(Pair("index", "7"),
                             Pair("interface", "\"Ethernet1\""),
                             Pair("subinterface", "20"),
                             Pair("ipAddress", "\"192.0.2.1\""),
                             Pair("macAddress", "\"00:1c:73:00:00:01\""),
                             Pair("popTopLabel", "true"),
                             Pair("decapsulateHeader", "6"),
                             Pair("pushedMplsLabelStack", "[100 3]"),
                             Pair("encapHeaders[index=0]/index", "0"),
                             Pair("encapHeaders[index=0]/type", "2"),
                             Pair("encapHeaders[index=0]/state/mplsLabelStack", "[17 16]"),
                             Pair("encapHeaders[index=2]/index", "2"),
                             Pair("encapHeaders[index=2]/type", "5"),
                             Pair("encapHeaders[index=2]/state/srcIp", "\"10.0.0.1\""),
                             Pair("encapHeaders[index=2]/state/dstIp", "\"10.0.0.2\""),
                             Pair("encapHeaders[index=2]/state/ipTtl", "64"),
                             Pair("encapHeaders[index=3]/index", "3"),
                             Pair("encapHeaders[index=3]/type", "4"),
                             Pair("encapHeaders[index=3]/state/tunnelSrcIpAddress", "\"10.0.0.3\""),
                             Pair("encapHeaders[index=3]/state/vniLabel", "5000"),
                             Pair("encapHeaders[index=4]/index", "4"),
                             Pair("encapHeaders[index=4]/type", "0"),
                             Pair("decapNetworkInstance", "\"blue\""),
                             Pair("fallbackNetworkInstance", "\"default\"")));
}

TEST_F(NativeViewTest, WhatTheRecordDoesNotHaveHasNoLeaf) {
    NextHop next;
    next.index = NextHopIndex{7};
    aft->nextHops()->nextHopIs(next);
    serve();
    EXPECT_THAT(
        once().leaves(hop(7)),
        UnorderedElementsAre(
            Pair("index", "7"), Pair("popTopLabel", "false"), Pair("decapsulateHeader", "0")));
}

TEST_F(NativeViewTest, TheSchemasLeavesAreTheRecordsFields) {
    Gale::ViewInputs inputs;
    inputs.root = root;
    const NativeView native{inputs};
    std::map<std::string, std::vector<std::string>> leaves;
    std::vector<std::string> numbers64;
    for (const Gale::EntryKind& kind : native.kinds()) {
        for (const Gale::Leaf& leaf : kind.leaves) {
            leaves["/" + kind.path].push_back(leaf.path);
            if (leaf.type == Gale::Leaf::Type::number64) { numbers64.push_back(leaf.path); }
        }
    }
    EXPECT_THAT(
        leaves,
        UnorderedElementsAre(Pair(kAft + "/nextHops[index]",
                                  ElementsAre("index",
                                              "interface",
                                              "subinterface",
                                              "ipAddress",
                                              "macAddress",
                                              "popTopLabel",
                                              "decapsulateHeader",
                                              "pushedMplsLabelStack",
                                              "encapHeaders[index]/index",
                                              "encapHeaders[index]/type",
                                              "encapHeaders[index]/state/mplsLabelStack",
                                              "encapHeaders[index]/state/srcIp",
                                              "encapHeaders[index]/state/dstIp",
                                              "encapHeaders[index]/state/ipTtl",
                                              "encapHeaders[index]/state/tunnelSrcIpAddress",
                                              "encapHeaders[index]/state/vniLabel",
                                              "decapNetworkInstance",
                                              "fallbackNetworkInstance")),
                             Pair(kAft + "/nextHopGroups[id]",
                                  ElementsAre("id",
                                              "programmedId",
                                              "name",
                                              "groupAttribute",
                                              "secondFlag",
                                              "nextHops[index]/index",
                                              "nextHops[index]/weight")),
                             Pair(kAft + "/nextHopCounters[index]",
                                  ElementsAre("index", "packetsForwarded", "octetsForwarded")),
                             Pair(kAft + "/fibReady", ElementsAre("fecReady")),
                             Pair("/AftExport/gueEncapDestPort",
                                  ElementsAre("gueMplsEncapUdpDestPort",
                                              "gueIPv4EncapUdpDestPort",
                                              "gueIPv6EncapUdpDestPort")),
                             Pair("/AftExport/stateSynced[name]",
                                  ElementsAre("name", "ipv4Unicast", "ipv6Unicast"))));
    EXPECT_THAT(numbers64,
                ElementsAre("index",
                            "id",
                            "programmedId",
                            "nextHops[index]/index",
                            "index",
                            "packetsForwarded",
                            "octetsForwarded"));
}

TEST_F(NativeViewTest, GroupsCountersFlagsAndRoutes) {
    nextHop(7);
    nextHop(9);
    NextHopGroup made;
    made.id = NextHopGroupId{41};
    made.programmedId = 4711;
    made.name = "west";
    made.secondFlag = 1;
    made.nextHops.nextHopInGroupIs({NextHopIndex{9}, 1});
    made.nextHops.nextHopInGroupIs({NextHopIndex{7}, 3});
    aft->nextHopGroups()->nextHopGroupIs(made);
    aft->nextHopCounters()->nextHopCounterIs({NextHopIndex{7}, 12, 3400});
    aft->fibReady()->fecReadyIs(true);
    root->entityIs<Vel::Dir>("stateSynced")
        ->entityIs<StateSyncedContainer>("blue")
        ->ipv6UnicastIs(true);
    auto rib = routes("routing/status");
    auto blue6 = routes("routing6/vrf/status/blue");
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    blue6.set(prefix("2001:db8::/32"), {FecId{41}, OriginProtocol::unset});
    commit();
    serve();
    EXPECT_THAT(once().tree(),
                UnorderedElementsAre(
                    Pair(hop(7), testing::Contains(Pair("index", "7"))),
                    Pair(hop(9), testing::Contains(Pair("index", "9"))),
                    Pair(groupPath(41),
                         UnorderedElementsAre(Pair("id", "41"),
                                              Pair("programmedId", "4711"),
                                              Pair("name", "\"west\""),
                                              Pair("groupAttribute", "255"),
                                              Pair("secondFlag", "1"),
                                              Pair("nextHops[index=7]/index", "7"),
                                              Pair("nextHops[index=7]/weight", "3"),
                                              Pair("nextHops[index=9]/index", "9"),
                                              Pair("nextHops[index=9]/weight", "1"))),
                    Pair(kAft + "/nextHopCounters[index=7]",
                         UnorderedElementsAre(Pair("index", "7"),
                                              Pair("packetsForwarded", "12"),
                                              Pair("octetsForwarded", "3400"))),
                    Pair(kAft + "/fibReady", UnorderedElementsAre(Pair("fecReady", "true"))),
                    Pair("/AftExport/stateSynced[name=blue]",
                         UnorderedElementsAre(Pair("name", "\"blue\""),
                                              Pair("ipv4Unicast", "false"),
                                              Pair("ipv6Unicast", "true"))),
                    Pair("/FibRoute/routing/status/route[prefix=10.0.0.0/8]",
                         UnorderedElementsAre(Pair("prefix", "\"10.0.0.0/8\""),
                                              Pair("fecId", "41"),
                                              Pair("originProtocol", "4"))),
                    Pair("/FibRoute/routing6/vrf/status[name=blue]/route[prefix=2001:db8::/32]",
                         UnorderedElementsAre(Pair("prefix", "\"2001:db8::/32\""),
                                              Pair("fecId", "41"),
                                              Pair("originProtocol", "0")))));
}

TEST_F(NativeViewTest, AChangeOfAnEntryIsOneUpdate) {
    nextHop(7);
    group(41, {{NextHopIndex{7}, 1}});
    serve();
    NativeClient& client = stream();
    EXPECT_THAT(client.log(), ElementsAre(hop(7), groupPath(41), kAft + "/fibReady", "sync"));
    nextHop(7, "192.0.2.2");
    nextHop(7, "192.0.2.2");
    aft->fibReady()->fecReadyIs(true);
    until(
        client, [&] { return client.log().size() >= 6; }, "two changes");
    EXPECT_THAT(
        client.log(),
        ElementsAre(hop(7), groupPath(41), kAft + "/fibReady", "sync", hop(7), kAft + "/fibReady"));
    EXPECT_EQ(client.leaves(hop(7)).at("ipAddress"), "\"192.0.2.2\"");
    EXPECT_EQ(client.leaves(kAft + "/fibReady").at("fecReady"), "true");
}

TEST_F(NativeViewTest, CountersAreThereWhileTheirNextHopIs) {
    const std::string counters = kAft + "/nextHopCounters[index=7]";
    aft->nextHopCounters()->nextHopCounterIs({NextHopIndex{7}, 12, 3400});
    serve();
    NativeClient& client = stream({kAft + "/nextHops", kAft + "/nextHopCounters"});
    EXPECT_THAT(client.log(), ElementsAre("sync"));
    nextHop(7);
    until(
        client, [&] { return client.log().size() >= 3; }, "both");
    aft->nextHops()->nextHopDel(NextHopIndex{7});
    until(
        client, [&] { return client.log().size() >= 5; }, "neither");
    EXPECT_THAT(client.log(),
                ElementsAre("sync", hop(7), counters, "delete " + counters, "delete " + hop(7)));
}

TEST_F(NativeViewTest, GuePortsAreAnEntryOfTheirOwn) {
    const auto ports = Oc::pelNexthopGueEncapDestPortFactory("gueEncapDestPort");
    root->insert(ports);
    root->entityIs<Vel::Dir>("stateSynced")->entityIs<StateSyncedContainer>("default");
    ports->gueMplsEncapUdpDestPortIs(6635);
    serve();
    const std::string path = "/AftExport/gueEncapDestPort";
    const std::string synced = "/AftExport/stateSynced[name=default]";
    EXPECT_THAT(once({synced}).log(), ElementsAre(synced, "sync"));
    NativeClient& client = stream({path});
    EXPECT_THAT(client.log(), ElementsAre(path, "sync"));
    EXPECT_THAT(client.leaves(path),
                UnorderedElementsAre(Pair("gueMplsEncapUdpDestPort", "6635"),
                                     Pair("gueIPv4EncapUdpDestPort", "0"),
                                     Pair("gueIPv6EncapUdpDestPort", "0")));
    const auto changes = [&](const char* leaf, const char* port) {
        until(
            client, [&] { return client.leaves(path).at(leaf) == port; }, leaf);
    };
    ports->gueMplsEncapUdpDestPortIs(6636);
    changes("gueMplsEncapUdpDestPort", "6636");
    ports->gueIPv4EncapUdpDestPortIs(6080);
    changes("gueIPv4EncapUdpDestPort", "6080");
    ports->gueIPv6EncapUdpDestPortIs(6081);
    changes("gueIPv6EncapUdpDestPort", "6081");
    EXPECT_THAT(client.log(), ElementsAre(path, "sync", path, path, path));
}

TEST_F(NativeViewTest, NothingDanglesWhenEntriesComeAndGo) {
    aft->fibReady()->fecReadyIs(true);
    auto rib = routes("routing/status");
    commit();
    group(40, {});  // there are groups
    serve();
    NativeClient& client = stream({"/AftExport/OpenConfig", "/FibRoute"});
    const auto before = client.log().size();
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    commit();
    group(41, {{NextHopIndex{7}, 1}});
    nextHop(7);
    const std::string route = "/FibRoute/routing/status/route[prefix=10.0.0.0/8]";
    until(
        client, [&] { return client.tree().contains(route); }, "the route");
    aft->nextHops()->nextHopDel(NextHopIndex{7});
    aft->nextHopGroups()->nextHopGroupDel(NextHopGroupId{41});
    rib.erase(prefix("10.0.0.0/8"));
    commit();
    until(
        client, [&] { return client.log().size() >= before + 6; }, "the deletes");
    auto log = client.log();
    log.erase(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(log,
                ElementsAre(hop(7),
                            groupPath(41),
                            route,
                            "delete " + route,
                            "delete " + groupPath(41),
                            "delete " + hop(7)));
}

TEST_F(NativeViewTest, PathsSelectByTheAgentsNames) {
    nextHop(7);
    nextHop(9);
    root->entityIs<Vel::Dir>("stateSynced")->entityIs<StateSyncedContainer>("default");
    root->entityIs<Vel::Dir>("stateSynced")->entityIs<StateSyncedContainer>("blue");
    auto rib = routes("routing/status");
    auto blue = routes("routing/vrf/status/blue");
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    rib.set(prefix("11.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    blue.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    commit();
    serve();
    const std::string inRib = "/FibRoute/routing/status/route[prefix=10.0.0.0/8]";
    const std::string inBlue = "/FibRoute/routing/vrf/status[name=blue]/route[prefix=10.0.0.0/8]";
    EXPECT_THAT(once({hop(7)}).log(), ElementsAre(hop(7), "sync"));
    EXPECT_THAT(once({"/AftExport/stateSynced[name=default]"}).log(),
                ElementsAre("/AftExport/stateSynced[name=default]", "sync"));
    EXPECT_THAT(once({kAft + "/fibReady"}).log(), ElementsAre(kAft + "/fibReady", "sync"));
    EXPECT_THAT(once({inRib}).log(), ElementsAre(inRib, "sync"));
    EXPECT_THAT(once({"/FibRoute/routing/vrf"}).log(), ElementsAre(inBlue, "sync"));
    EXPECT_THAT(once({"/FibRoute/routing/vrf/status[name=red]"}).log(), ElementsAre("sync"));
    EXPECT_THAT(once({"/FibRoute/.../route[prefix=10.0.0.0/8]"}).log(),
                UnorderedElementsAre(inRib, inBlue, "sync"));
    NativeClient& leaf = once({kAft + "/nextHops[index=*]/ipAddress"});
    EXPECT_THAT(
        leaf.tree(),
        UnorderedElementsAre(Pair(hop(7), ElementsAre(Pair("ipAddress", "\"192.0.2.1\""))),
                             Pair(hop(9), ElementsAre(Pair("ipAddress", "\"192.0.2.1\"")))));
}

TEST_F(NativeViewTest, StateSyncedComesAndGoesWithTheExport) {
    serve();
    NativeClient& client = stream({"/AftExport/stateSynced"});
    EXPECT_THAT(client.log(), ElementsAre("sync"));
    const auto synced = root->entityIs<Vel::Dir>("stateSynced");
    const auto blue = synced->entityIs<StateSyncedContainer>("blue");
    const std::string entry = "/AftExport/stateSynced[name=blue]";
    until(
        client, [&] { return client.tree().contains(entry); }, "the VRF");
    blue->ipv4UnicastIs(true);
    until(
        client, [&] { return client.leaves(entry).at("ipv4Unicast") == "true"; }, "the flag");
    synced->entityDel("blue");
    until(
        client, [&] { return client.tree().empty(); }, "the delete");
    synced->entityIs<StateSyncedContainer>("blue");
    until(
        client, [&] { return client.tree().contains(entry); }, "the VRF again");
    EXPECT_EQ(client.leaves(entry).at("ipv4Unicast"), "false");
    root->entityDel("stateSynced");
    until(
        client, [&] { return client.tree().empty(); }, "the delete with the directory");
    EXPECT_THAT(client.log(),
                ElementsAre("sync", entry, entry, "delete " + entry, entry, "delete " + entry));
}

TEST_F(NativeViewTest, TablesAreShownAsTheyAreAlsoWhileTheExportIsOff) {
    const std::uint64_t odd = 0xF123'4567'89AB'CDEFU;  // leaves no room for the protocol
    auto rib = routes("routing/status");
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    rib.set(prefix("11.0.0.0/8"), {FecId{}, OriginProtocol::local});
    rib.set(prefix("12.0.0.0/8"), {FecId{odd}, OriginProtocol::isis});
    commit();
    serve();
    NativeClient& client = once({"/FibRoute"});
    EXPECT_EQ(nativeView().provider.waiting, 0U);
    EXPECT_EQ(nativeView().provider.released, 0U) << "nothing is waited for";
    const auto fec = [&](const char* text) {
        return client.leaves("/FibRoute/routing/status/route[prefix=" + std::string{text} + "]");
    };
    EXPECT_EQ(fec("10.0.0.0/8")["fecId"], "41");
    EXPECT_EQ(fec("10.0.0.0/8")["originProtocol"], "4");
    EXPECT_EQ(fec("11.0.0.0/8")["fecId"], "0");
    EXPECT_EQ(fec("11.0.0.0/8")["originProtocol"], "2");
    EXPECT_EQ(fec("12.0.0.0/8")["fecId"], std::to_string(odd));
    EXPECT_EQ(fec("12.0.0.0/8")["originProtocol"], "5");
}

TEST_F(NativeViewTest, TablesThatAppearLater) {
    serve();
    NativeClient& client = stream({"/FibRoute"});
    auto red = routes("routing/vrf/status/red");
    red.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    commit();
    const std::string route = "/FibRoute/routing/vrf/status[name=red]/route[prefix=10.0.0.0/8]";
    until(
        client, [&] { return client.tree().contains(route); }, "the route");
}

TEST_F(NativeViewTest, GetInJsonShowsEntriesWithKeysAndWithout) {
    nextHop(7);
    aft->fibReady()->fecReadyIs(true);
    serve();
    const auto stub =
        gnmi::gNMI::NewStub(grpc::CreateChannel(address(), grpc::InsecureChannelCredentials()));
    for (const std::string text : {"/", "/AftExport", "/AftExport/OpenConfig/afts/aftContainer"}) {
        gnmi::GetRequest request;
        request.mutable_prefix()->set_origin("pel");
        *request.add_path() = path(text);
        request.set_encoding(gnmi::JSON_IETF);
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::minutes{1});
        gnmi::GetResponse response;
        auto call =
            std::async(std::launch::async, [&] { return stub->Get(&context, request, &response); });
        while (call.wait_for(std::chrono::milliseconds{2}) != std::future_status::ready) {
            scheduler->runUntilIdle();
        }
        const grpc::Status status = call.get();
        ASSERT_TRUE(status.ok()) << status.error_message();
        const std::string json = response.notification(0).update(0).val().json_ietf_val();
        EXPECT_THAT(json, HasSubstr(R"("fibReady":{"fecReady":true})"));
        EXPECT_THAT(json, HasSubstr(R"("nextHops":[{"index":"7","interface":"Ethernet1")"));
    }
}

TEST_F(NativeViewTest, WithTheToggleOffThereIsNoFibRoute) {
    nextHop(7);
    auto rib = routes("routing/status");
    rib.set(prefix("10.0.0.0/8"), {FecId{41}, OriginProtocol::bgp});
    commit();
    start();
    EXPECT_THAT(once().log(), ElementsAre(hop(7), kAft + "/fibReady", "sync"));
    const grpc::Status status =
        refused(request(gnmi::SubscriptionList::ONCE, {"/FibRoute/routing/status"}));
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
    EXPECT_THAT(status.error_message(), HasSubstr("/FibRoute/routing/status"));
}

TEST_F(NativeViewTest, AnUnknownPathIsNamedAndCausesNothing) {
    serve();
    for (const std::string text : {"/AftExport/OpenConfig/nextHops",
                                   "/AftExport/OpenConfig/afts/aftContainer/nextHops/state",
                                   "/FibRoute/routing/mpls"}) {
        const grpc::Status status = refused(request(gnmi::SubscriptionList::STREAM, {text}));
        EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
        EXPECT_THAT(status.error_message(), HasSubstr(text));
    }
    EXPECT_EQ(nativeStatus(), "idle, next hops 0");
}

TEST_F(NativeViewTest, OneCallCannotReadBothOrigins) {
    serve();
    auto both = request(gnmi::SubscriptionList::STREAM, {"/AftExport", "/network-instances"});
    both.mutable_subscribe()->clear_prefix();
    both.mutable_subscribe()->mutable_subscription(0)->mutable_path()->set_origin("pel");
    const grpc::Status status = refused(both);
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
    EXPECT_THAT(status.error_message(), HasSubstr("several origins"));
}

TEST_F(NativeViewTest, BytesExistOnlyWhileSomebodyReads) {
    for (std::uint64_t i = 1; i <= 500; ++i) { nextHop(i); }
    serve();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    nextHop(1, "192.0.2.2");
    scheduler->runUntilIdle();
    EXPECT_EQ(nativeStatus(), "idle, next hops 0");
    NativeClient& client = stream();
    EXPECT_EQ(client.log().size(), 502U);
    EXPECT_EQ(client.log().back(), "sync");
    EXPECT_EQ(nativeStatus(), "filled, next hops 500");
    client.leave();
    // The server learns of the leaving some time; from then on the linger runs.
    until(
        client, [&] { return nativeStatus() == "lingering, next hops 500"; }, "leaving");
    clock.advance(std::chrono::seconds{30});
    scheduler->runUntilIdle();
    EXPECT_EQ(nativeStatus(), "lingering, next hops 500");
    clock.advance(std::chrono::seconds{30});
    scheduler->runUntilIdle();
    EXPECT_EQ(nativeStatus(), "idle, next hops 0");
    EXPECT_EQ(once().log().size(), 502U);
}

TEST_F(NativeViewTest, AServerThatStopsTellsWhoWaits) {
    nextHop(7);
    serve();
    NativeClient& client = open(request(gnmi::SubscriptionList::STREAM, {"/"}));
    // Without a turn of the scheduler the entries cannot come.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{60};
    while (!client.accepted() && std::chrono::steady_clock::now() < end) { client.waitALittle(); }
    ASSERT_TRUE(client.accepted());
    stop();
    until(
        client, [&] { return client.ended(); }, "the end");
    EXPECT_EQ(client.status().error_code(), grpc::StatusCode::UNAVAILABLE);
    EXPECT_THAT(client.log(), IsEmpty());
}

}  // namespace
}  // namespace Pel::OcApi
