#include "PelOpenConfig/PelOpenConfigStatus.h"

#include <nlohmann/json.hpp>

#include "PelOpenConfig/PelOpenConfigStatusStreams.h"
#include "PelOpenConfig/PelOpenConfigStatusVrfs.h"
#include "PelOpenConfig/test/AgentFixture.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Route/RouteStatus.h"
#include "model/View/OpenConfigView.h"
#include "platform/Mesa/Publisher.h"

namespace Pel::Oc {
namespace {

using AgentHost::CliPrinter;
using AgentHost::OutputFormat;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The agent with the OpenConfig view, and a forwarder that publishes what the test says.
class StatusTest : public AgentFixture {
protected:
    StatusTest() { OcApi::registerOpenConfigView(); }
    ~StatusTest() override = default;

    std::string status(OutputFormat format) {
        std::string output;
        agent->status([&](const AgentHost::StatusSection& section) {
            CliPrinter printer{format};
            section(printer);
            printer.end();
            output = printer.takeOutput();
        });
        // The I/O thread is a real one.
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (output.empty() && std::chrono::steady_clock::now() < end) {
            scheduler->runUntilIdle();
        }
        return output;
    }
    std::string text() { return status(OutputFormat::text); }
    nlohmann::json json() { return nlohmann::json::parse(status(OutputFormat::json)); }

    void readyIs(const std::string& path, const char* type) {
        Hubdb::Publisher{*writer}.entityIs(
            path, type, Mesa::RecordCodec<ReadyRecord>::encode({true}));
    }
    /// FEC 41 by way of next hop 41.
    void fecIs() {
        Stash::FlattenFecNextHop nextHop;
        nextHop.address = *Nexo::IpGenAddr::parse("10.0.0.1");
        nextHops.set(Stash::OcNextHopIndex{41},
                     {Stash::OcNextHopIndex{41}, NexthopGroupId{1}, NexthopGroupEntryIndex{0}, {}},
                     Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
        Stash::FlattenFec fec;
        fec.nextHopIs({Stash::OcNextHopIndex{41}, 1});
        fecs.set(
            FecId{41}, {{}, 0, true, false}, Stash::RecordCodec<Stash::FlattenFec>::encode(fec));
    }
    void routeIs(const std::string& vrf, const char* prefix) {
        Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute> table{
            *writer,
            Mesa::fibTableMountPath(Nexo::AddressFamily::ipv4, vrf, "rib"),
            Mesa::Fib::RouteStatus::kType};
        table.set(*Nexo::IpPrefix::parse(prefix), {FecId{41}, OriginProtocol::unset});
    }
    void publish() {
        ASSERT_EQ(writer->commit(), "");
        settleAfterASecond();
    }

    std::unique_ptr<Store::Writer> writer = makeWriter();
    Stash::ContentPublisher contents{*writer};
    Stash::CollectionPublisher<FecId, FlattenFecEntry> fecs{
        *writer, contents, "hardware/pel/ocAft/fec", FlattenFecSet::kFecType};
    Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> nextHops{
        *writer, contents, "hardware/pel/ocAft/nextHop", FlattenFecSet::kNextHopType};
};

TEST_F(StatusTest, BeforeTheMountsAreCompleteItSaysWhatIsWaitedFor) {
    create();
    agent->doInit();
    EXPECT_EQ(text(),
              "export      OFF: the configuration is not read yet\n"
              "mounts      state database NOT complete: waits for the stores to be read\n");
    EXPECT_EQ(json()["mounts"]["stateDatabase"], false);
    std::string error;
    agent->cmdRequestDirSm()->requestIs({"showFecExport", OutputFormat::text, {}, -1},
                                        [&](const auto& reply) { error = reply.error; });
    EXPECT_EQ(error,
              "no command 'showFecExport' now: the agent waits for its mounts; see: pel show "
              "status");
}

TEST_F(StatusTest, AnExportThatIsOffSaysHowItIsSwitchedOn) {
    configure(false);
    start();
    EXPECT_THAT(
        text(),
        StartsWith("export      OFF: pel config set aftExportEnabled true switches it on\n"));
    EXPECT_THAT(text(), HasSubstr("\n  next hops NOT ready: the export is off\n"));
    EXPECT_THAT(text(),
                HasSubstr("\nVRFs        nobody keeps their state-synced while the export is "
                          "off\n"));
    configure(true);
    settleAfterASecond();
    EXPECT_THAT(text(), StartsWith("export      OFF: the configuration wants it; "));
    EXPECT_EQ(json()["export"]["enabled"], false);
}

TEST_F(StatusTest, EachHalfOfTheReadinessSaysWhatItWaitsFor) {
    configure(true);
    start();
    EXPECT_THAT(text(),
                HasSubstr("\nFECs        NOT ready\n"
                          "  next hops NOT ready: the flattened set is not there\n"
                          "  groups    NOT ready: the flattened set is not there\n"));
    fecIs();
    publish();
    const auto waits = "the forwarder has not declared its FECs complete";
    EXPECT_EQ(json()["readiness"]["nextHops"]["waitsFor"], waits);
    EXPECT_EQ(json()["readiness"]["groups"]["waitsFor"], waits);
    readyIs(FlattenFecSetReadyStatus::kPath, FlattenFecSetReadyStatus::kType);
    publish();
    EXPECT_THAT(text(), HasSubstr("\nFECs        ready\n  next hops ready\n  groups    ready\n"));
    EXPECT_EQ(json()["readiness"]["fecReady"], true);
    EXPECT_FALSE(json()["readiness"]["groups"].contains("waitsFor"));
}

TEST_F(StatusTest, WhatIsNotMappedYetIsSaid) {
    configure(true);
    start();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    publish();
    sut().aftExportRootSm()->nextHopGroupMapperSm()->backlogIs(FecId{7});
    readyIs(FlattenFecSetReadyStatus::kPath, FlattenFecSetReadyStatus::kType);
    const Gale::ServiceStatus service;
    const auto ready = Vel::make<FlattenFecSetReadyStatus>("x");
    ready->recordIs(Mesa::RecordCodec<ReadyRecord>::encode({true}));
    StatusInputs inputs;
    inputs.mountsComplete = true;
    inputs.exportRoot = sut().aftExportRootSm();
    inputs.aft = sut().aftContainer();
    inputs.stash = sut().stashMountGroup();
    inputs.forwarderReady = ready;
    inputs.tables = mesa;
    ASSERT_TRUE(inputs.stash->ready());
    CliPrinter printer{OutputFormat::text};
    Status{inputs, service, clock.now()}.print(printer);
    const std::string said = printer.takeOutput();
    EXPECT_THAT(said, HasSubstr("\n  next hops NOT ready: the next change of the flattened set\n"));
    EXPECT_THAT(said, HasSubstr("\n  groups    NOT ready: not all are mapped yet\n"));
}

TEST_F(StatusTest, EntriesAreCountedAsTheyAreHeldAndAsTheyAreShown) {
    configure(true);
    start();
    fecIs();
    routeIs("default", "10.1.0.0/16");
    routeIs("blue", "10.2.0.0/16");
    routeIs("blue", "10.3.0.0/16");
    publish();
    EXPECT_THAT(text(),
                HasSubstr("\nnext hops   1 held, 1 shown; 0 encapsulated\n"
                          "groups      1 held, 1 shown\n"
                          "IPv4        3 held, 3 shown\n"
                          "IPv6        0 held, 0 shown\n"
                          "waiting     none\n"));
    EXPECT_EQ(json()["entries"]["ipv4Prefixes"]["shown"], 3);
}

TEST_F(StatusTest, CountersAreCountedForMachines) {
    configure(true);
    start();
    fecIs();
    Stash::FlattenFec unweighted;
    unweighted.nextHopIs({Stash::OcNextHopIndex{41}, 0});
    const FecId tunnel = makeFecId(FecKind::ipInIpTunnel, 5);
    fecs.set(
        tunnel, {{}, 0, true, false}, Stash::RecordCodec<Stash::FlattenFec>::encode(unweighted));
    using FlexCounters::CounterTable;
    Mesa::TablePublisher<FlexCounters::CounterIndex, FlexCounters::MesaFlexCounter>{
        *writer, CounterTable::kPath, CounterTable::kType}
        .set(FlexCounters::makeCounterIndex(FecId::fecIdToTunnelId(tunnel)), {1, 1});
    publish();
    for (const std::uint64_t id : {41U, 42U}) {
        sut().pelOcFecExportData()->passTheNhCountersUpdate({Stash::OcNextHopIndex{id}, 1, 2});
    }
    const auto said = json()["entries"]["nextHopCounters"];
    EXPECT_EQ(said["held"], 1);
    EXPECT_EQ(said["waitForNextHop"], 1);
    EXPECT_GE(said["tunnelsWithoutWeight"], 1);
}

TEST_F(StatusTest, AVrfSaysWhatItHasAndWhatIsMissing) {
    configure(true);
    start();
    routeIs("default", "10.1.0.0/16");
    readyIs("cell/1/routing/fibReady/default", GatedReady::FibReady::kType);
    Mesa::TablePublisher<Vrf::VrfId, Vrf::VrfIdMap::Entry> ids{
        *writer, Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType};
    ids.set(Vrf::VrfId{3}, {Vrf::VrfName{"blue"}});
    publish();
    EXPECT_THAT(text(),
                HasSubstr("\nVRFs\n"
                          "  blue: FIB NOT ready, IPv4 NO table, IPv6 NO table\n"
                          "  default: FIB ready, IPv4 1 routes not synced yet, IPv6 NO table not "
                          "synced yet\n"));
    const auto vrfs = json()["vrfs"];
    EXPECT_EQ(vrfs[0]["id"], 3);
    EXPECT_EQ(vrfs[1]["ipv4"]["routes"], 1);
    EXPECT_FALSE(vrfs[0]["ipv4"].contains("synced"));
    EXPECT_EQ(vrfs[1]["ipv4"]["synced"], false);
    fecIs();
    readyIs(FlattenFecSetReadyStatus::kPath, FlattenFecSetReadyStatus::kType);
    Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>{
        *writer,
        Mesa::fibTableMountPath(Nexo::AddressFamily::ipv4, "default", "rib"),
        Mesa::Fib::RouteStatus::kType}
        .quiescedIs(true);
    publish();
    EXPECT_THAT(text(),
                HasSubstr("\n  default: FIB ready, IPv4 1 routes synced, IPv6 NO table not "
                          "synced yet\n"));
    EXPECT_EQ(json()["vrfs"][1]["ipv4"]["synced"], true);
    configure(false);
    settleAfterASecond();
    agent->doReinitialize();
    EXPECT_FALSE(json()["vrfs"][1]["ipv4"].contains("synced")) << "nobody keeps it any more";
}

TEST_F(StatusTest, OfManyVrfsThoseWithSomethingWrongStandInFront) {
    std::vector<VrfState> vrfs;
    for (int i = 0; i < 10; ++i) {
        VrfState vrf;
        vrf.name = "v" + std::to_string(i);
        vrf.fibReady = true;
        vrf.ipv4.routes = vrf.ipv6.routes = 1;
        vrfs.push_back(vrf);
    }
    CliPrinter printer{OutputFormat::text};
    printVrfs(printer, vrfs, true);
    const std::string said = printer.takeOutput();
    EXPECT_THAT(said, HasSubstr("  v7: "));
    EXPECT_THAT(said, Not(HasSubstr("  v8: ")));
    EXPECT_THAT(said, testing::EndsWith("  and 2 more\n"));
    StatusInputs inputs;
    const auto ready = Vel::make<Vel::Dir>("fibReady");
    ready->entityIs<GatedReady::FibReady>("zebra");
    inputs.fibReadyDir = ready;
    const auto states = vrfStates(inputs);
    ASSERT_EQ(states.size(), 2U);
    EXPECT_EQ(states[0].name, "default");
    EXPECT_EQ(states[1].name, "zebra");
}

TEST_F(StatusTest, WhoWaitsForWhomIsSaidForTheFirstFew) {
    configure(true);
    start();
    Gale::ServiceStatus service;
    service.running = true;
    service.views.push_back({.origin = "openconfig",
                             .demand = {},
                             .kinds = std::vector<Gale::KindStatus>(5),
                             .provider = {},
                             .journal = {},
                             .held = {}});
    Gale::ViewStatus& view = service.views[0];
    view.provider.waiting = 7;
    view.provider.waitingForNextHop = 1;
    view.provider.waitingForGroup = 6;
    view.provider.released = 2;
    view.provider.kept = 4;
    view.provider.failed = 3;
    const Gale::Reference group{Gale::Lane::groups, {0, 0, 41}};
    const Gale::Reference nextHop{Gale::Lane::nextHops, {0, 0, 9}};
    view.held.push_back({group, nextHop, clock.now() - std::chrono::seconds{12}});
    StatusInputs inputs;
    inputs.mountsComplete = true;
    inputs.exportRoot = sut().aftExportRootSm();
    inputs.aft = sut().aftContainer();
    inputs.stash = sut().stashMountGroup();
    inputs.tables = mesa;
    CliPrinter printer{OutputFormat::text};
    Status{inputs, service, clock.now()}.print(printer);
    const std::string said = printer.takeOutput();
    EXPECT_THAT(
        said,
        HasSubstr(
            "\nwaiting     7 NOT shown: 1 for a next hop, 6 for a group; 2 gave up; 4 leaving\n"
            "  group 41 waits for next hop 9, 12 s\n"
            "  and 6 more\n"));
    EXPECT_THAT(said, HasSubstr("\n            3 FAILED since the start: pel trace says which\n"));
}

/// What the screen says of the streams.
std::string said(const Gale::ServiceStatus& service, Kiln::TimePoint now, OutputFormat format) {
    CliPrinter printer{format};
    printStreams(printer, service, now);
    printer.end();
    return printer.takeOutput();
}

TEST(StatusStreams, AServerThatDoesNotServeSaysWhy) {
    Gale::ServiceStatus service;
    service.error = "127.0.0.1 port 9339: address in use";
    EXPECT_EQ(said(service, {}, OutputFormat::text),
              "subscribers NOT serving: 127.0.0.1 port 9339: address in use\n");
}

TEST(StatusStreams, AnIoThreadThatDoesNotAnswerIsSaid) {
    Gale::ServiceStatus service;
    service.running = true;
    EXPECT_EQ(said(service, {}, OutputFormat::text),
              "subscribers NOT known: the I/O thread does not answer\n");
    EXPECT_EQ(said(service, {}, OutputFormat::json),
              "{\"streams\":{\"serving\":true,\"answered\":false}}\n");
}

TEST(StatusStreams, EachSubscriberIsToldWithItsLagAndWhetherItIsBlocked) {
    using std::chrono::seconds;
    Gale::ServiceStatus service;
    service.running = true;
    Gale::StreamsStatus& streams = service.streams.emplace();
    streams.wire.accepted = 9;
    streams.wire.turnedAway = 2;
    streams.wire.connections.resize(2);
    Gale::SubscriberStatus level;
    level.peer = "127.0.0.1:1";
    level.mode = "STREAM";
    level.paths = 1;
    level.age = seconds{65};
    level.messages = 200;
    level.synced = true;
    level.blocked = std::chrono::milliseconds{999};  // it is just not asked
    Gale::SubscriberStatus behind = level;
    behind.peer = "[::1]:2\x1b";
    behind.paths = 2;
    behind.lag = 1200;
    behind.skipped = 3;
    behind.behind = seconds{14};
    behind.blocked = seconds{12};
    Gale::SubscriberStatus begun = level;
    begun.synced = false;
    streams.subscribers = {level, behind, begun};
    streams.refused = {3, "127.0.0.1:4", "no \"node\" here", Kiln::TimePoint{seconds{70}}};
    service.views.resize(2);
    service.views[0].origin = "openconfig";
    service.views[0].journal.changes = {1000, 200, 30};
    service.views[0].journal.tombstones = {4, 5};
    service.views[0].journal.overtaken = 600;
    service.views[1].origin = "pel";  // nobody is behind
    const Kiln::TimePoint now{seconds{100}};
    EXPECT_EQ(said(service, now, OutputFormat::text),
              "subscribers 3, connections 2 (9 so far, 2 turned AWAY)\n"
              "  127.0.0.1:1 STREAM, 1 path, for 1 min 5 s, 200 sent, level\n"
              "  [::1]:2\\x1b STREAM, 2 paths, for 1 min 5 s, 200 sent, 3 samples skipped\n"
              "    1200 changes BEHIND for 14 s, BLOCKED: takes nothing for 12 s\n"
              "  127.0.0.1:1 STREAM, 1 path, for 1 min 5 s, 200 sent, initial set under way\n"
              "kept        openconfig: 1230 changes, 600 of them overtaken, and 9 deletes\n"
              "refused     3 calls, last 127.0.0.1:4 30 s ago:\n"
              "    no \"node\" here\n"
              "terminated  none\n");
    const auto json = nlohmann::json::parse(said(service, now, OutputFormat::json))["streams"];
    EXPECT_EQ(json["subscribers"][1]["lag"], 1200);
    EXPECT_EQ(json["subscribers"][1]["skipped"], 3);
    EXPECT_EQ(json["subscribers"][1]["behindSeconds"], 14);
    EXPECT_EQ(json["subscribers"][1]["blockedSeconds"], 12);
    EXPECT_EQ(json["subscribers"][0]["blocked"], false);
    EXPECT_EQ(json["kept"],
              nlohmann::json::parse(
                  R"([{"origin": "openconfig", "changes": 1230, "deletes": 9, "overtaken": 600},
                      {"origin": "pel", "changes": 0, "deletes": 0, "overtaken": 0}])"));
    EXPECT_EQ(json["turnedAway"], 2);
    EXPECT_EQ(json["refused"]["reason"], "no \"node\" here");
    streams.subscribers.assign(20, level);
    EXPECT_THAT(said(service, now, OutputFormat::text), HasSubstr("\n  and 12 more\nkept "));
    EXPECT_EQ(
        nlohmann::json::parse(said(service, now, OutputFormat::json))["streams"]["subscribers"]
            .size(),
        20U);
}

}  // namespace
}  // namespace Pel::Oc
