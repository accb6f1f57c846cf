#include "platform/Gale/test/ServerFixture.h"

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <proto/gnmi.grpc.pb.h>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A stock gRPC client; every call has a deadline, so that a fault is a failure and no hang.
class Runnability : public testing::Test, protected ServerFixture {
protected:
    void connect() {
        stub =
            gnmi::gNMI::NewStub(grpc::CreateChannel(address(), grpc::InsecureChannelCredentials()));
    }
    static void limit(grpc::ClientContext& context) {
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::minutes(2));
    }
    static gnmi::SubscribeRequest request(gnmi::SubscriptionList::Mode mode) {
        gnmi::SubscribeRequest request;
        request.mutable_subscribe()->set_mode(mode);
        request.mutable_subscribe()->set_encoding(gnmi::PROTO);
        request.mutable_subscribe()->mutable_prefix()->set_target("router-7");
        request.mutable_subscribe()->add_subscription()->set_mode(gnmi::ON_CHANGE);
        return request;
    }
    ServiceStatus status() {
        std::optional<ServiceStatus> told;
        machine->status([&](const ServiceStatus& status) { told = status; });
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (!told && std::chrono::steady_clock::now() < end) { scheduler->runUntilIdle(); }
        EXPECT_TRUE(told);
        return told.value_or(ServiceStatus{});
    }

    std::unique_ptr<gnmi::gNMI::Stub> stub;
};

TEST_F(Runnability, StockClientGetsCapabilitiesDataAndRefusals) {
    start();
    ASSERT_TRUE(machine->running()) << machine->error();
    EXPECT_TRUE(runnabilityDir->has("server"));
    connect();
    {
        grpc::ClientContext context;
        limit(context);
        gnmi::CapabilityResponse response;
        const auto status = stub->Capabilities(&context, {}, &response);
        ASSERT_TRUE(status.ok()) << status.error_message();
        EXPECT_EQ(response.gnmi_version(), "0.10.0");
        EXPECT_EQ(response.supported_models_size(), 1);
    }
    view->beasts.set(1, "red");
    scheduler->runUntilIdle();
    gnmi::GetRequest request;
    gnmi::Path& path = *request.add_path();
    for (const char* const name : {"zoo", "beasts"}) { path.add_elem()->set_name(name); }
    {
        grpc::ClientContext context;
        limit(context);
        gnmi::GetResponse response;
        const auto status = stub->Get(&context, request, &response);
        ASSERT_TRUE(status.ok()) << status.error_message();
        ASSERT_EQ(response.notification_size(), 1);
        EXPECT_EQ(response.notification(0).update(0).val().json_val(),
                  R"({"beast":[{"index":1,"state":{"index":1,"colour":"red"}}]})");
    }
    path.add_elem()->set_name("fish");
    grpc::ClientContext context;
    limit(context);
    gnmi::GetResponse response;
    const auto status = stub->Get(&context, request, &response);
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
    EXPECT_THAT(status.error_message(), HasSubstr("/zoo/beasts/fish"));
}

TEST_F(Runnability, StockClientPolls) {
    start();
    view->beasts.set(1, "red");
    scheduler->runUntilIdle();
    connect();
    grpc::ClientContext context;
    limit(context);
    const auto stream = stub->Subscribe(&context);
    gnmi::SubscribeRequest subscribe = request(gnmi::SubscriptionList::POLL);
    subscribe.mutable_subscribe()->set_encoding(gnmi::JSON_IETF);
    ASSERT_TRUE(stream->Write(subscribe));
    gnmi::SubscribeRequest poll;
    poll.mutable_poll();
    for (int round = 0; round < 3; ++round) {
        gnmi::SubscribeResponse response;
        ASSERT_TRUE(stream->Read(&response));
        EXPECT_EQ(response.update().update(2).val().json_ietf_val(), "\"paint:red\"");
        ASSERT_TRUE(stream->Read(&response));
        EXPECT_EQ(response.update().update(0).val().json_ietf_val(), "\"main\"");
        ASSERT_TRUE(stream->Read(&response));
        EXPECT_TRUE(response.sync_response());
        if (round < 2) { ASSERT_TRUE(stream->Write(poll)); }
    }
    stream->WritesDone();
    EXPECT_TRUE(stream->Finish().ok());
}

TEST_F(Runnability, StockClientStreamsWithTargetUntilTheServerStops) {
    start();
    view->beasts.set(1, "red");
    scheduler->runUntilIdle();
    connect();
    grpc::ClientContext context;
    limit(context);
    const auto stream = stub->Subscribe(&context);
    ASSERT_TRUE(stream->Write(request(gnmi::SubscriptionList::STREAM)));
    std::vector<gnmi::SubscribeResponse> responses(4);
    for (std::size_t i = 0; i < 3; ++i) { ASSERT_TRUE(stream->Read(&responses[i])); }
    EXPECT_TRUE(responses[2].sync_response());
    view->beasts.set(1, "green");
    scheduler->runUntilIdle();
    ASSERT_TRUE(stream->Read(&responses[3]));
    for (const std::size_t i : {0U, 1U, 3U}) {
        const gnmi::Path& prefix = responses[i].update().prefix();
        EXPECT_EQ(prefix.target(), "router-7");
        EXPECT_EQ(prefix.origin(), "openconfig");
        EXPECT_EQ(prefix.elem(0).name(), "zoo");
        EXPECT_EQ(prefix.elem_size(), i == 1 ? 1 : 3);
    }
    EXPECT_EQ(responses[3].update().update(2).val().string_val(), "green");
    const ServiceStatus told = status();
    EXPECT_TRUE(told.running);
    EXPECT_EQ(told.address, "127.0.0.1");
    EXPECT_EQ(told.port, machine->port());
    ASSERT_EQ(told.views.size(), 1U);
    EXPECT_EQ(told.views[0].origin, "openconfig");
    EXPECT_EQ(told.views[0].demand, "");
    EXPECT_EQ(told.views[0].kinds.at(0).path, view->kinds()[0].path);
    EXPECT_EQ(told.views[0].kinds.at(0).shown, 1U);
    ASSERT_TRUE(told.streams);
    EXPECT_EQ(told.streams->wire.connections.size(), 1U);
    ASSERT_EQ(told.streams->subscribers.size(), 1U);
    EXPECT_EQ(told.streams->subscribers[0].target, "router-7");
    EXPECT_EQ(told.streams->subscribers[0].messages, 3U);
    stop();
    gnmi::SubscribeResponse none;
    EXPECT_FALSE(stream->Read(&none));
    EXPECT_EQ(stream->Finish().error_code(), grpc::StatusCode::UNAVAILABLE);
    EXPECT_FALSE(runnabilityDir->has("server"));
}

TEST_F(Runnability, OnceEndsWithOk) {
    start();
    connect();
    grpc::ClientContext context;
    limit(context);
    const auto stream = stub->Subscribe(&context);
    ASSERT_TRUE(stream->Write(request(gnmi::SubscriptionList::ONCE)));
    gnmi::SubscribeResponse response;
    int count = 0;
    while (stream->Read(&response)) { ++count; }
    EXPECT_EQ(count, 2);
    EXPECT_TRUE(response.sync_response());
    EXPECT_TRUE(stream->Finish().ok());
}

TEST_F(Runnability, AnOccupiedPortIsSaidAndTriedAgain) {
    ServerFixture other;
    other.start();
    config.wire.port = other.machine->port();
    start();
    EXPECT_FALSE(machine->running());
    EXPECT_FALSE(runnabilityDir->has("server"));
    EXPECT_THAT(machine->error(), HasSubstr(std::to_string(config.wire.port)));
    EXPECT_FALSE(status().running);
    EXPECT_EQ(status().error, machine->error());
    EXPECT_FALSE(status().streams);
    other.stop();
    clock.advance(std::chrono::seconds(5));
    scheduler->runUntilIdle();
    EXPECT_TRUE(machine->running()) << machine->error();
    EXPECT_EQ(machine->error(), "");
}

TEST_F(Runnability, ClearTextBeyondLoopbackMustBeAllowedInSoManyWords) {
    config.wire.address = "0.0.0.0";
    start();
    EXPECT_FALSE(machine->running());
    EXPECT_THAT(machine->error(), HasSubstr("clear text"));
    stop();
    config.clearTextOnAnyAddress = true;
    start();
    EXPECT_TRUE(machine->running()) << machine->error();
}

TEST_F(Runnability, TheExtraProviderGivesTheTablesAndTheirPrefixes) {
    start({{"FibRoute", [this] {
                return Vel::make<TableProvider>(
                    "FibRoute",
                    tables,
                    absl::node_hash_set<std::string>{"/FibRoute/routing/status",
                                                     "/FibRoute/routing6/vrf/status",
                                                     "/Other/thing"});
            }}});
    EXPECT_EQ(viewInputs.tables, tables);
    EXPECT_THAT(viewInputs.tablePrefixes, ElementsAre("routing/status", "routing6/vrf/status"));
    EXPECT_EQ(viewInputs.root->name(), "AftExport");
    EXPECT_EQ(viewInputs.defaultInstance, "DEFAULT");
}

TEST_F(Runnability, WithoutExtraProvidersThereAreNoTables) {
    start();
    EXPECT_FALSE(viewInputs.tables);
    EXPECT_TRUE(viewInputs.tablePrefixes.empty());
}

TEST_F(Runnability, StampsGoOnOverARestart) {
    config.stampFile = dir.path() / "stamp";
    const auto stampOfZoo = [&] {
        connect();
        grpc::ClientContext context;
        limit(context);
        const auto stream = stub->Subscribe(&context);
        EXPECT_TRUE(stream->Write(request(gnmi::SubscriptionList::ONCE)));
        gnmi::SubscribeResponse response;
        std::int64_t stamp = 0;
        while (stream->Read(&response)) { stamp = std::max(stamp, response.update().timestamp()); }
        return stamp;
    };
    clock.advance(std::chrono::hours(1));
    start();
    const std::int64_t before = stampOfZoo();
    stop();
    clock.advance(-std::chrono::hours(1));  // the wall clock was set back
    start();
    EXPECT_GT(stampOfZoo(), before);
}

TEST_F(Runnability, ATreeThatIsNotThereIsABrokenPrecondition) {
    entityManager->globalDir()->entityDel("agent");
    EXPECT_DEATH(start(), "the streamed tree is there");
}

}  // namespace
}  // namespace Gale
