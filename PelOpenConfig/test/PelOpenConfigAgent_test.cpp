#include "PelOpenConfig/PelOpenConfigAgent.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "PelOpenConfig/test/AgentFixture.h"
#include "platform/Gale/RunnabilitySm.h"
#include "platform/Hubdb/Publisher.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

TEST_F(AgentFixture, ConstructionSetsTheNameAndNothingElse) {
    create();
    EXPECT_EQ(sut().name(), "PelOpenConfig");
    EXPECT_FALSE(sut().mountsComplete());
    EXPECT_EQ(sut().notifyTaskGroup(), nullptr);
    EXPECT_EQ(sut().aftContainer(), nullptr);
    EXPECT_EQ(sut().aftExportRootSm(), nullptr);
    EXPECT_EQ(sut().gnmiPort(), 0);
}

TEST_F(AgentFixture, TheStartUpIsTracedInItsOrder) {
    configure(true);
    start();
    std::vector<std::string> order;
    for (const Blink::Message& message : ring()) {
        const bool machine =
            message.handle.starts_with("Pel") || message.handle.ends_with("MergeSm");
        if (machine && message.handle != "PelFibReadyMapperSm" &&
            message.function != "handleDecapGroupDestPortConfig" &&
            (message.handle != "PelStateSyncedSm" || message.function == "handleInitialized") &&
            !message.text.starts_with("StashMountGroup")) {
            order.push_back(message.handle + "." + message.function + ": " + message.text);
        }
    }
    ASSERT_GE(order.size(), 16U);
    order.resize(16);
    EXPECT_THAT(order,
                ElementsAre("PelOpenConfigAgent.doInit: Mounting Hubdb",
                            "PelOpenConfigAgent.doMountsComplete: Hubdb Mounts Completed",
                            "PelOpenConfigAgent.createServerObjects: Create streamed objects",
                            "NexthopGroupCliDynamicConfigUdpDestPortMergeSm."
                            "NexthopGroupCliDynamicConfigUdpDestPortMergeSm: Starting",
                            "DecapGroupConfigMergeSm.DecapGroupConfigMergeSm: Starting",
                            "PelNexthopGuePortSm.handleInitialized: Starting",
                            "PelAftExportRootSm.handleInitialized: ",
                            "PelAftExportRootSm.handleInitialized: Enabled",
                            "PelNexthopMapperSm.handleInitialized: Starting",
                            "PelNexthopGroupMapperSm.handleInitialized: Starting",
                            "PelStateSyncedSm.handleInitialized: addressFamily: ipv4",
                            "PelStateSyncedSm.handleInitialized: addressFamily: ipv6",
                            "PelCountersMapperStatusManagerSm.handleInitialized: Handle init",
                            "PelCountersMapperStatusManagerSm.mountMesaTable: Start mounting",
                            "PelCountersMapperStatusManagerSm.mountMesa: Mount the mesa "
                            "flexCounters/counterTable/Nexthop/4294967295 table",
                            "PelOpenConfigAgent.createStreamServer: Create the stream server"));
}

TEST_F(AgentFixture, TheShowCommandsAreThereFromTheStartToTheStop) {
    create();
    const auto commands = agent->cmdRequestDirSm();
    EXPECT_THAT(commands->commands(), ElementsAre());
    agent->doInit();
    settleAfterASecond();
    const std::pair<std::string, std::string> empty[] = {
        {"showFecExport", "{\"fecs\":{}}\n"},
        {"showGroups", "{\"nextHopGroups\":{}}\n"},
        {"showNextHops", "{\"nextHops\":{}}\n"},
        {"showRoute", "{\"vrfs\":{},\"errors\":[\"% No route table is read\"]}\n"},
        {"showVrfs", "{\"vrfs\":{}}\n"}};
    EXPECT_THAT(
        commands->commands(),
        ElementsAre("showFecExport", "showGroups", "showNextHops", "showRoute", "showVrfs"));
    EXPECT_EQ(sut().cliHelper()->flattenFecSet(), sut().flattenFecSet());
    for (const auto& [command, output] : empty) {
        AgentHost::CommandRequest request;
        request.command = command;
        request.format = AgentHost::OutputFormat::json;
        request.parameters["PREFIX"] = "::/0";
        const auto machine = commands->requestIs(request, [](const auto&) { FAIL(); });
        ASSERT_NE(machine, nullptr) << command;
        EXPECT_EQ(sut().asyncShowCommandAnchor()->instances(), 1U);
        machine->produceOutput();
        EXPECT_TRUE(machine->allOutputProduced());
        machine->printer()->end();
        EXPECT_EQ(machine->printer()->takeOutput(), output);
    }
    agent->doStop();
    EXPECT_THAT(commands->commands(), ElementsAre());
}

TEST_F(AgentFixture, TheCountersMapperLivesWhetherTheExportIsOnOrOff) {
    start();
    ASSERT_FALSE(sut().aftExportRootSm()->smsInitialized());
    ASSERT_NE(sut().countersMapperStatusManagerSm(), nullptr);
    const auto mapper = sut().countersMapperStatusManagerSm()->countersMapperSm();
    ASSERT_NE(mapper, nullptr);
    configure(true);
    settleAfterASecond();
    agent->doReinitialize();
    EXPECT_TRUE(sut().aftExportRootSm()->smsInitialized());
    EXPECT_EQ(sut().countersMapperStatusManagerSm()->countersMapperSm(), mapper);
}

TEST_F(AgentFixture, LetGoOfBeforeItsMountsAreCompleteItIsNeverTold) {
    create();
    agent->doInit();
    agent->doStop();
    agent->doCleanup();
    agent = nullptr;
    settleAfterASecond();
    const auto messages = ring();
    EXPECT_TRUE(std::none_of(messages.begin(), messages.end(), [](const Blink::Message& message) {
        return message.text == "Hubdb Mounts Completed";
    }));
}

TEST_F(AgentFixture, TheNotifyTaskGroupHasItsNamePriorityAndEnforcement) {
    start();
    EXPECT_EQ(sut().notifyTaskGroup()->name(), "PelOpenConfig-GnmiNotify");
    EXPECT_EQ(sut().notifyTaskGroup()->priority(), 3);
    EXPECT_EQ(sut().notifyTaskGroup()->priorityEnforcement(), 2);
}

TEST_F(AgentFixture, EveryInputIsMounted) {
    start();
    EXPECT_TRUE(sut().mountsComplete());
    for (const char* path : {"interface/status/eth/vxlan",
                             "cell/1/routing/fibReady",
                             "hardware/pel/fecReadyStatus",
                             "mgmt/tolo/config",
                             "l3/tunnel/udpDestinationPortConfig",
                             "routing/nexthopgroup/input/config",
                             "routing/tunneldecap/input/cli",
                             "routing/tunneldecap/input/dynamic"}) {
        EXPECT_NE(entityManager->entity(path), nullptr) << path;
    }
    for (const char* path :
         {"tunnel/nexthop/counterkeyinfo", "vrf/vrfIdMapStatus", "hardware/pel/ocAft"}) {
        EXPECT_NE(mesa->entity(path), nullptr) << path;
    }
}

TEST_F(AgentFixture, TheAftTreeStandsWithItsFourContainers) {
    start();
    const auto afts = agentDir()
                          ->entity<Vel::Dir>("AftExport")
                          ->entity<Vel::Dir>("OpenConfig")
                          ->entity<Vel::Dir>("afts");
    const auto container = afts->entity<OcApi::AftContainer>("aftContainer");
    ASSERT_NE(container, nullptr);
    EXPECT_EQ(container, sut().aftContainer());
    EXPECT_NE(container->nextHopGroups(), nullptr);
    EXPECT_NE(container->nextHops(), nullptr);
    EXPECT_NE(container->fibReady(), nullptr);
    EXPECT_NE(container->nextHopCounters(), nullptr);
}

TEST_F(AgentFixture, GuePortsComeFromTheConfiguredPortsAndTheMergedDecapGroups) {
    using Tunnel::PayloadType;
    const auto writer = makeWriter();
    Hubdb::Publisher publisher{*writer};
    const auto udp = [&](const std::string& path, PayloadType type, std::uint16_t port) {
        L3::Tunnel::UdpDestinationPortConfigRecord record;
        record.payloadTypeToPort[type] = {port, 1};
        publisher.entityIs(path,
                           L3::Tunnel::UdpDestinationPortConfig::kType,
                           Mesa::RecordCodec<decltype(record)>::encode(record));
    };
    const auto decap = [&](const std::string& path, const char* group, std::uint16_t port) {
        Tunnel::Decap::ConfigRecord record;
        record.decapGroup[group] = {PayloadType::mpls, port};
        publisher.entityIs(path,
                           Tunnel::Decap::ConfigInput::kType,
                           Mesa::RecordCodec<Tunnel::Decap::ConfigRecord>::encode(record));
    };
    udp(L3::Tunnel::UdpDestinationPortConfig::kPath, PayloadType::ipv4, 6080);
    udp("routing/nexthopgroup/input/config/bgp", PayloadType::ipv6, 6081);
    decap("routing/tunneldecap/input/dynamic/bgp", "west", 6635);
    ASSERT_EQ(writer->commit(), "");
    start();
    const auto ports = agentDir()
                           ->entity<Vel::Dir>("AftExport")
                           ->entity<PelNexthopGueEncapDestPort>("gueEncapDestPort");
    ASSERT_NE(ports, nullptr);
    EXPECT_EQ(ports, sut().gueEncapDestPort());
    EXPECT_EQ(ports->gueMplsEncapUdpDestPort(), 6635);
    EXPECT_EQ(ports->gueIPv4EncapUdpDestPort(), 6080);
    EXPECT_EQ(ports->gueIPv6EncapUdpDestPort(), 0) << "of the mounted ports only";
    EXPECT_EQ(sut().udpDestPortConfigLocal()->name(), "udpDestPort");
    EXPECT_EQ(sut().udpDestPortConfigLocal()->record().payloadTypeToPort.size(), 2U);

    decap(Tunnel::Decap::ConfigInput::kPath, "west", 6636);
    ASSERT_EQ(writer->commit(), "");
    settleAfterASecond();
    EXPECT_EQ(sut().dgConfigLocal()->record().decapGroup.at("west").dPort, 6636);
    EXPECT_EQ(ports->gueMplsEncapUdpDestPort(), 6636);
}

TEST_F(AgentFixture, WithoutAConfigurationTheExportIsOffUntilTheHostAsksAgain) {
    configure(false);
    start();
    EXPECT_FALSE(sut().aftExportRootSm()->smsInitialized());
    configure(true);
    settleAfterASecond();
    EXPECT_FALSE(sut().aftExportRootSm()->smsInitialized());
    agent->doReinitialize();
    EXPECT_TRUE(sut().aftExportRootSm()->smsInitialized());
}

TEST_F(AgentFixture, CleanupRemovesTheTreeEvenWithoutAnyMapper) {
    start();
    ASSERT_TRUE(agentDir()->has("AftExport"));
    EXPECT_FALSE(sut().aftExportRootSm()->smsInitialized());
    agent->doStop();
    agent->doCleanup();
    EXPECT_FALSE(agentDir()->has("AftExport"));
}

TEST_F(AgentFixture, CleanupBeforeTheMountsCompleteIsHarmless) {
    create();
    agent->doInit();
    agent->doStop();
    agent->doCleanup();
    agent->doReinitialize();
    EXPECT_FALSE(sut().mountsComplete());
}

TEST_F(AgentFixture, TheStreamServerRuns) {
    start();
    ASSERT_NE(sut().galeRunnabilitySm(), nullptr);
    EXPECT_EQ(sut().galeRunnabilitySm()->error(), "");
    EXPECT_NE(agent->gnmiPort(), 0);
}

TEST_F(AgentFixture, TheRouteTablesAreStreamedUnderExactlyFourPrefixes) {
    start();
    const auto providers = sut().extraProviders();
    ASSERT_EQ(providers.size(), 1U);
    EXPECT_EQ(providers[0].name, "FibRoute");
    const auto provider = providers[0].make();
    EXPECT_EQ(provider->name(), "FibRoute");
    EXPECT_EQ(provider->tables(), mesa);
    EXPECT_THAT(provider->prefixes(),
                testing::UnorderedElementsAre("/FibRoute/routing/status",
                                              "/FibRoute/routing/vrf/status",
                                              "/FibRoute/routing6/status",
                                              "/FibRoute/routing6/vrf/status"));
}

TEST_F(AgentFixture, WithTheToggleOffThereIsNoExtraProvider) {
    std::ofstream{dir.path() / "Gale.json"} << R"({"GaleTarnServer": false})";
    start();
    EXPECT_TRUE(sut().extraProviders().empty());
}

TEST_F(AgentFixture, WithBlinkDisableNoTraceFileIsMadeAndTheRestRuns) {
    ::setenv("BLINK_DISABLE", "1", 1);
    start();
    EXPECT_EQ(Blink::defaultHandle(), nullptr);
    EXPECT_TRUE(sut().mountsComplete());
    EXPECT_NE(sut().aftExportRootSm(), nullptr);
}

TEST_F(AgentFixture, TheTraceFileIsNamedAfterTheProcessNumber) {
    start();
    const std::string name = Blink::defaultHandle()->path().filename();
    EXPECT_THAT(name, testing::EndsWith("-" + std::to_string(::getpid()) + ".bk"));
}

TEST_F(AgentFixture, WithBlinkdirTheNameCarriesNoNumber) {
    ::setenv("BLINKDIR", dir.path().c_str(), 1);
    start();
    const std::filesystem::path path = Blink::defaultHandle()->path();
    EXPECT_EQ(path.parent_path(), dir.path());
    EXPECT_THAT(path.filename().string(),
                testing::Not(testing::HasSubstr(std::to_string(::getpid()))));
    EXPECT_EQ(path.extension(), ".bk");
}

TEST_F(AgentFixture, ATraceFacilityThatIsSetUpIsKept) {
    Blink::init("-mine.bk", nullptr, nullptr, 0, 20, Blink::Threading::multi, true, 512);
    start();
    EXPECT_THAT(Blink::defaultHandle()->path().string(), testing::EndsWith("-mine.bk"));
}

using AgentDeathTest = AgentFixture;

TEST_F(AgentDeathTest, AFailedMountStopsTheProcess) {
    create();
    EXPECT_DEATH(sut().doMountsComplete(Hubdb::mountFailure_, entityManager),
                 "status == Hubdb::mountSuccess_");
}

}  // namespace
}  // namespace Pel::Oc
