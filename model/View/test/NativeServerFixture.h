#pragma once

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <proto/gnmi.grpc.pb.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "model/Aft/AftContainer.h"
#include "model/Aft/StateSyncedContainer.h"
#include "model/Registration.h"
#include "model/Route/RouteStatus.h"
#include "model/View/NativePaths.h"
#include "model/View/NativeView.h"
#include "model/View/OpenConfigView.h"
#include "platform/Gale/test/ServerFixture.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/Writer.h"

namespace Pel::OcApi {

using Leaves = std::map<std::string, std::string>;

/// One Subscribe call of a stock gRPC client, on a thread of its own.
class NativeClient {
public:
    NativeClient(const std::string& address, const gnmi::SubscribeRequest& request)
        : stub_{gnmi::gNMI::NewStub(
              grpc::CreateChannel(address, grpc::InsecureChannelCredentials()))},
          thread_{[this, request] { run(request); }} {}
    ~NativeClient() { leave(); }
    NativeClient(const NativeClient&) = delete;
    NativeClient& operator=(const NativeClient&) = delete;

    void leave() {
        context_.TryCancel();
        if (thread_.joinable()) { thread_.join(); }
    }
    template <class Read>
    auto with(Read read) const {
        const std::lock_guard lock{mutex_};
        return read();
    }
    /// In order: the entry's path, "delete <path>", "sync".
    std::vector<std::string> log() const {
        return with([this] { return log_; });
    }
    std::map<std::string, Leaves> tree() const {
        return with([this] { return tree_; });
    }
    Leaves leaves(const std::string& entry) const {
        return with([&] { return tree_.contains(entry) ? tree_.at(entry) : Leaves{}; });
    }
    bool synced() const {
        return with([this] { return synced_; });
    }
    bool ended() const {
        return with([this] { return ended_; });
    }
    bool accepted() const {
        return with([this] { return accepted_; });
    }
    grpc::Status status() const {
        return with([this] { return status_; });
    }
    void waitALittle() {
        std::unique_lock lock{mutex_};
        news_.wait_for(lock, std::chrono::milliseconds{2});
    }

private:
    void run(const gnmi::SubscribeRequest& request) {
        context_.set_deadline(std::chrono::system_clock::now() + std::chrono::minutes{2});
        const auto stream = stub_->Subscribe(&context_);
        stream->Write(request);
        stream->WaitForInitialMetadata();
        note([this] { accepted_ = true; });
        gnmi::SubscribeResponse response;
        while (stream->Read(&response)) {
            note([&] { take(response); });
        }
        const grpc::Status status = stream->Finish();
        note([&] {
            status_ = status;
            ended_ = true;
        });
    }
    template <class Write>
    void note(Write write) {
        const std::lock_guard lock{mutex_};
        write();
        news_.notify_all();
    }
    void take(const gnmi::SubscribeResponse& response) {
        if (response.sync_response()) {
            synced_ = true;
            log_.emplace_back("sync");
            return;
        }
        const gnmi::Notification& notification = response.update();
        for (const gnmi::Path& path : notification.delete_()) {
            EXPECT_FALSE(notification.atomic());
            EXPECT_EQ(notification.prefix().origin(), "pel");
            log_.push_back("delete " + pathText(path));
            tree_.erase(pathText(path));
        }
        if (notification.update().empty()) { return; }
        EXPECT_TRUE(notification.atomic());
        EXPECT_EQ(notification.prefix().origin(), "pel");
        EXPECT_GT(notification.timestamp(), 0);
        const std::string entry = pathText(notification.prefix());
        log_.push_back(entry);
        Leaves& leaves = tree_[entry];
        leaves.clear();
        for (const gnmi::Update& update : notification.update()) {
            const std::string leaf = pathText(update.path()).substr(1);
            EXPECT_TRUE(leaves.emplace(leaf, textOf(update.val())).second) << "twice: " << leaf;
        }
    }
    static std::string pathText(const gnmi::Path& path) {
        std::string text;
        for (const gnmi::PathElem& elem : path.elem()) {
            text += "/" + elem.name();
            for (const auto& [key, value] : elem.key()) { text += "[" + key + "=" + value + "]"; }
        }
        return text;
    }
    static std::string textOf(const gnmi::TypedValue& value) {
        if (value.has_leaflist_val()) {
            std::string text = "[";
            for (const auto& element : value.leaflist_val().element()) {
                text += (text.size() > 1 ? " " : "") + textOf(element);
            }
            return text + "]";
        }
        if (value.has_uint_val()) { return std::to_string(value.uint_val()); }
        if (value.has_bool_val()) { return value.bool_val() ? "true" : "false"; }
        return "\"" + value.string_val() + "\"";
    }

    grpc::ClientContext context_;
    const std::unique_ptr<gnmi::gNMI::Stub> stub_;
    mutable std::mutex mutex_;
    std::condition_variable news_;
    std::vector<std::string> log_;
    std::map<std::string, Leaves> tree_;
    bool synced_ = false;
    bool ended_ = false;
    bool accepted_ = false;
    grpc::Status status_;
    std::thread thread_;
};

/// Both views on real containers and real tables behind the server that an agent has.
class NativeServerFixture : public testing::Test, protected Gale::ServerFixture {
protected:
    NativeServerFixture() {
        registerModelTypes();
        registerOpenConfigView();
        registerNativeView();
        std::string error;
        const auto environment = Store::Environment::open(
            {.directory = dir.path() / "store"}, Store::Access::write, error);
        EXPECT_EQ(error, "");
        writer = std::make_unique<Store::Writer>(environment);
        root = entityManager->globalDir()->entityIs<Vel::Dir>("agent")->entityIs<Vel::Dir>(
            "AftExport");
        aft = root->entityIs<Vel::Dir>("OpenConfig")
                  ->entityIs<Vel::Dir>("afts")
                  ->entityIs<AftContainer>("aftContainer");
        aft->nextHopGroupsIs();
        aft->nextHopsIs();
        aft->fibReadyIs();
        aft->nextHopCountersIs();
    }
    ~NativeServerFixture() override {
        clients.clear();
        stop();
    }

    /// As the agent does with its toggle on.
    void serve() {
        start({{"FibRoute", [this] {
                    return Vel::make<Gale::TableProvider>(
                        "FibRoute",
                        tables,
                        absl::node_hash_set<std::string>{"/FibRoute/routing/status",
                                                         "/FibRoute/routing/vrf/status",
                                                         "/FibRoute/routing6/status",
                                                         "/FibRoute/routing6/vrf/status"});
                }}});
        EXPECT_TRUE(machine->running()) << machine->error();
    }
    void commit() {
        ASSERT_EQ(writer->commit(), "");
        clock.advance(std::chrono::seconds{1});
        scheduler->runUntilIdle();
    }

    /// "/AftExport/stateSynced[name=blue]"; keys without "/".
    static gnmi::Path path(const std::string& text) {
        gnmi::Path path;
        std::string word;
        for (const char c : text + "/") {
            const bool inKey = word.find('[') != std::string::npos && word.back() != ']';
            if (c != '/' || inKey) {
                word += c;
                continue;
            }
            if (!word.empty()) {
                gnmi::PathElem& elem = *path.add_elem();
                elem.set_name(word.substr(0, word.find('[')));
                if (const auto at = word.find('['); at != std::string::npos) {
                    const auto equals = word.find('=');
                    (*elem.mutable_key())[word.substr(at + 1, equals - at - 1)] =
                        word.substr(equals + 1, word.size() - equals - 2);
                }
            }
            word.clear();
        }
        return path;
    }
    static gnmi::SubscribeRequest request(gnmi::SubscriptionList::Mode mode,
                                          const std::vector<std::string>& paths) {
        gnmi::SubscribeRequest request;
        request.mutable_subscribe()->set_mode(mode);
        request.mutable_subscribe()->set_encoding(gnmi::PROTO);
        request.mutable_subscribe()->mutable_prefix()->set_origin("pel");
        for (const std::string& text : paths) {
            gnmi::Subscription& subscription = *request.mutable_subscribe()->add_subscription();
            subscription.set_mode(gnmi::ON_CHANGE);
            *subscription.mutable_path() = path(text);
        }
        return request;
    }
    /// The scheduler runs until the condition holds.
    template <class Condition>
    void until(NativeClient& client, Condition condition, const char* what) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{60};
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "never: " << what;
            scheduler->runUntilIdle();
            client.waitALittle();
        }
    }
    NativeClient& open(const gnmi::SubscribeRequest& request) {
        clients.push_back(std::make_unique<NativeClient>(address(), request));
        return *clients.back();
    }
    NativeClient& stream(const std::vector<std::string>& paths = {"/"}) {
        NativeClient& client = open(request(gnmi::SubscriptionList::STREAM, paths));
        until(
            client, [&] { return client.synced() || client.ended(); }, "a sync");
        EXPECT_FALSE(client.ended()) << client.status().error_message();
        return client;
    }
    NativeClient& once(const std::vector<std::string>& paths = {"/"}) {
        NativeClient& client = open(request(gnmi::SubscriptionList::ONCE, paths));
        until(
            client, [&] { return client.ended(); }, "the end");
        EXPECT_TRUE(client.status().ok()) << client.status().error_message();
        return client;
    }
    grpc::Status refused(const gnmi::SubscribeRequest& request) {
        NativeClient& client = open(request);
        until(
            client, [&] { return client.ended(); }, "the end");
        return client.status();
    }
    /// Of the native view, as an operator is told.
    Gale::ViewStatus nativeView() {
        std::optional<Gale::ViewStatus> told;
        machine->status([&](const Gale::ServiceStatus& status) {
            for (const Gale::ViewStatus& each : status.views) {
                if (each.origin == "pel") { told = each; }
            }
        });
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{60};
        while (!told && std::chrono::steady_clock::now() < end) { scheduler->runUntilIdle(); }
        EXPECT_TRUE(told);
        return told.value_or(Gale::ViewStatus{});
    }
    /// "filled, next hops 500".
    std::string nativeStatus() {
        const Gale::ViewStatus status = nativeView();
        std::string text = status.demand;
        for (const Gale::KindStatus& kind : status.kinds) {
            if (kind.path != NativePaths::kNextHop) { continue; }
            text += ", next hops " + std::to_string(kind.shown);
        }
        return text;
    }

    static Nexo::IpGenAddr ip(const char* text) { return *Nexo::IpGenAddr::parse(text); }
    static Nexo::IpPrefix prefix(const char* text) { return *Nexo::IpPrefix::parse(text); }
    void nextHop(std::uint64_t index, const char* ipAddress = "192.0.2.1") {
        NextHop hop;
        hop.index = NextHopIndex{index};
        hop.ipAddress = ip(ipAddress);
        hop.interface = Nexo::IntfId{"Ethernet1"};
        aft->nextHops()->nextHopIs(hop);
    }
    void group(std::uint64_t id, const std::vector<NextHopInGroup>& members) {
        NextHopGroup made;
        made.id = NextHopGroupId{id};
        for (const auto& member : members) { made.nextHops.nextHopInGroupIs(member); }
        aft->nextHopGroups()->nextHopGroupIs(made);
    }
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    Routes routes(const char* path) {
        const bool six = std::string_view{path}.starts_with("routing6");
        return {
            *writer, path, six ? Mesa::Fib6::RouteStatus::kType : Mesa::Fib::RouteStatus::kType};
    }

    std::unique_ptr<Store::Writer> writer;
    Vel::Ref<Vel::Dir> root;
    Vel::Ref<AftContainer> aft;
    std::vector<std::unique_ptr<NativeClient>> clients;
};

}  // namespace Pel::OcApi
