#pragma once

#include "platform/Gale/Channel.h"
#include "platform/Gale/GnmiService.h"
#include "platform/Gale/StampClock.h"
#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/WireClient.h"
#include "platform/Gale/test/TestView.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Kiln/YieldPolicy.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <google/protobuf/text_format.h>
#include <proto/gnmi.pb.h>

namespace Gale {

/// The whole service over a TestView on the test's thread: scheduler, wire and clients take turns,
/// and time stands still.
class ServiceFixture : public testing::Test {
protected:
    explicit ServiceFixture(bool lazy = false) {
        auto made = std::make_unique<TestView>(lazy);
        view = made.get();
        server = std::make_unique<Wire::Server>(Wire::Options{}, clock);
        channels.push_back(std::make_unique<Channel>(
            "openconfig", std::move(made), [this] { service->subscribers().wake(); }));
        service = std::make_unique<GnmiService>(
            clock, stamps, channels, limits, [this](std::function<void()> work) {
                server->post(std::move(work));
            });
        service->addTo(server->router());
        EXPECT_EQ(server->listen(), std::nullopt);
        const auto makeProvider = [this](std::function<void()> onFilled) {
            return std::make_unique<Provider>(*view,
                                              channel().journal,
                                              stamps,
                                              scheduler,
                                              nullptr,
                                              std::chrono::seconds(30),
                                              std::move(onFilled));
        };
        if (lazy) {
            const auto post = [this](std::function<void()> work) { server->post(std::move(work)); };
            channel().lazyFill = LazyFill::make(channel(),
                                                {makeProvider, post, std::chrono::seconds(60)},
                                                scheduler,
                                                scheduler->taskGroupIs("notify", 3, 0));
        } else {
            channel().provider = makeProvider({});
        }
        settle();
    }
    ~ServiceFixture() override {
        clients.clear();
        channel().lazyFill.reset();
        channel().provider.reset();
        server.reset();
    }

    Channel& channel() { return *channels[0]; }
    /// The usual animals.
    void populate() {
        view->beasts.set(2, "blue");
        view->beasts.set(1, "red");
        view->herds.set(7, {{1}});
        view->fields.set(5, 7);
        settle();
    }

    void settle() {
        for (int i = 0; i < 20; ++i) {
            scheduler->runUntilIdle();
            server->runOnce();
            for (auto& client : clients) { client->pump(); }
        }
    }
    void advance(Kiln::Duration by) {
        clock.advance(by);
        settle();
    }

    /// One RPC of a client of its own.
    struct Rpc {
        Wire::WireClient* client = nullptr;
        std::uint32_t stream = 0;

        Wire::WireClient::Reply& reply() const { return client->reply(stream); }
        std::string status() const { return reply().status(); }
        std::string text() const { return reply().trailer("grpc-message"); }
        std::vector<gnmi::SubscribeResponse> responses() const {
            std::vector<gnmi::SubscribeResponse> all;
            for (const std::string& bytes : reply().messages()) {
                EXPECT_TRUE(all.emplace_back().ParseFromString(bytes));
            }
            return all;
        }
    };
    Rpc call(const std::string& method,
             const std::string& message,
             bool end = true,
             const std::vector<Wire::WireClient::Setting>& settings = {}) {
        clients.push_back(std::make_unique<Wire::WireClient>(server->port(), true, settings));
        auto& client = *clients.back();
        const auto stream = client.open(Wire::WireClient::head("/gnmi.gNMI/" + method));
        client.send(stream, message, end);
        settle();
        return {&client, stream};
    }
    /// What takes many turns.
    void finish(const Rpc& rpc) {
        for (int i = 0; i < 1000 && rpc.status().empty(); ++i) { settle(); }
    }
    template <class Request>
    static std::string bytes(const std::string& text) {
        Request request;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &request)) << text;
        return request.SerializeAsString();
    }
    /// `text`: fields of the SubscriptionList; PROTO unless it says otherwise.
    Rpc subscribe(const std::string& text, bool end = false) {
        const bool encoding = text.find("encoding") != std::string::npos;
        return call("Subscribe",
                    bytes<gnmi::SubscribeRequest>("subscribe { " + text +
                                                  (encoding ? "" : " encoding: PROTO") + " }"),
                    end);
    }
    /// To all there is, by a client that lets the server send it `window` bytes.
    Rpc subscribeToAll(std::uint32_t window) {
        constexpr std::uint16_t kInitialWindow = 4;
        return call("Subscribe",
                    bytes<gnmi::SubscribeRequest>("subscribe { encoding: PROTO subscription {} }"),
                    false,
                    {{kInitialWindow, window}});
    }

    /// `text`: fields of the GetRequest; PROTO unless it says otherwise.
    Rpc get(const std::string& text) {
        const bool encoding = text.find("encoding") != std::string::npos;
        return call("Get", bytes<gnmi::GetRequest>(text + (encoding ? "" : " encoding: PROTO")));
    }
    static gnmi::GetResponse answer(const Rpc& rpc) {
        gnmi::GetResponse response;
        EXPECT_EQ(rpc.status(), "0") << rpc.text();
        const auto messages = rpc.reply().messages();
        EXPECT_EQ(messages.size(), 1U);
        if (messages.size() == 1) { EXPECT_TRUE(response.ParseFromString(messages[0])); }
        return response;
    }

    /// A path of a request as text: "zoo[name=main]/beasts"; no escapes.
    static std::string path(std::string_view text) {
        std::string fields;
        while (!text.empty()) {
            std::string_view word = text.substr(0, text.find('/'));
            text.remove_prefix(word.size() < text.size() ? word.size() + 1 : text.size());
            fields += " elem { name: '" + std::string{word.substr(0, word.find('['))} + "'";
            while (word.find('[') != std::string_view::npos) {
                word.remove_prefix(word.find('[') + 1);
                const std::string_view key = word.substr(0, word.find(']'));
                const auto equals = key.find('=');
                fields += " key { key: '" + std::string{key.substr(0, equals)} + "' value: '" +
                          std::string{key.substr(equals + 1)} + "' }";
            }
            fields += " }";
        }
        return " path {" + fields + " } ";
    }

    /// "/zoo[name=main]/..." of prefix and path together.
    static std::string pathText(const gnmi::Path& prefix, const gnmi::Path& path) {
        std::string text;
        for (const gnmi::Path* const part : {&prefix, &path}) {
            for (const gnmi::PathElem& elem : part->elem()) {
                text += "/" + elem.name();
                for (const auto& [key, value] : elem.key()) {
                    text += "[" + key + "=" + value + "]";
                }
            }
        }
        return text;
    }
    /// A response in short: "sync", "delete /p", "/entry: leaf=value ...".
    static std::string brief(const gnmi::SubscribeResponse& response) {
        if (response.sync_response()) { return "sync"; }
        const gnmi::Notification& update = response.update();
        for (const gnmi::Path& path : update.delete_()) {
            return "delete " + pathText(update.prefix(), path);
        }
        std::string text = pathText(update.prefix(), {}) + ":";
        for (const gnmi::Update& leaf : update.update()) {
            text += " " + pathText({}, leaf.path()).substr(1) + "=";
            text += valueText(leaf.val());
        }
        return text;
    }
    static std::string valueText(const gnmi::TypedValue& value) {
        switch (value.value_case()) {
            case gnmi::TypedValue::kUintVal:
                return std::to_string(value.uint_val());
            case gnmi::TypedValue::kStringVal:
                return value.string_val();
            case gnmi::TypedValue::kJsonVal:
                return "json " + value.json_val();
            case gnmi::TypedValue::kJsonIetfVal:
                return "ietf " + value.json_ietf_val();
            default:
                return "?";
        }
    }
    static std::vector<std::string> brief(const Rpc& rpc) {
        std::vector<std::string> all;
        for (const auto& response : rpc.responses()) { all.push_back(brief(response)); }
        return all;
    }

    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    StampClock stamps{clock, {}};
    Limits limits{.subscriptionsPerCall = 4,
                  .pathElements = 8,
                  .pathBytes = 100,
                  .subscribers = 3,
                  .waitingPolls = 2,
                  .gets = 2,
                  .getBytes = 400'000,
                  .jsonBytes = 10'000};
    TestView* view = nullptr;
    std::vector<std::unique_ptr<Channel>> channels;
    std::unique_ptr<GnmiService> service;
    std::unique_ptr<Wire::Server> server;
    std::vector<std::unique_ptr<Wire::WireClient>> clients;
};

}  // namespace Gale
