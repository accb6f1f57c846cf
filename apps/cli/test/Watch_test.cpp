#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <proto/gnmi.grpc.pb.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>

#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiText.h"
#include "apps/cli/test/PelProcess.h"

namespace Pel::Cli {
namespace {

using testing::HasSubstr;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr const char* kPackets =
    "/afts/counters/next-hops/next-hop[index=7]/state/packets-forwarded";

/// A gNMI server that answers what the test says: a stream gets each answer that is there or comes,
/// until the test ends the streams.
class SaidServer final : public gnmi::gNMI::Service {
public:
    SaidServer() {
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port_);
        builder.RegisterService(this);
        server_ = builder.BuildAndStart();
    }
    ~SaidServer() override {
        endStreams();
        server_->Shutdown();
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    void say(const gnmi::SubscribeResponse& response) {
        const std::lock_guard lock{mutex_};
        said_.push_back(response);
        changed_.notify_all();
    }
    void endStreams() {
        const std::lock_guard lock{mutex_};
        over_ = true;
        changed_.notify_all();
    }
    gnmi::SubscribeRequest request() {
        std::unique_lock lock{mutex_};
        changed_.wait(lock, [this] { return asked_; });
        return request_;
    }

private:
    using Stream = grpc::ServerReaderWriter<gnmi::SubscribeResponse, gnmi::SubscribeRequest>;
    grpc::Status Subscribe(grpc::ServerContext* /*context*/, Stream* stream) override {
        gnmi::SubscribeRequest request;
        stream->Read(&request);
        std::unique_lock lock{mutex_};
        request_ = request;
        asked_ = true;
        changed_.notify_all();
        for (std::size_t next = 0;; ++next) {
            changed_.wait(lock, [&] { return over_ || next < said_.size(); });
            if (next >= said_.size()) { return grpc::Status::OK; }
            stream->Write(said_[next]);
        }
    }

    int port_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<gnmi::SubscribeResponse> said_;
    gnmi::SubscribeRequest request_;
    bool asked_ = false;
    bool over_ = false;
    std::unique_ptr<grpc::Server> server_;
};

gnmi::Path path(std::string_view text) {
    gnmi::Path result;
    std::string error;
    EXPECT_TRUE(pathFromText(text, result, error)) << error;
    return result;
}

gnmi::SubscribeResponse update(std::string_view at, std::uint64_t value, std::int64_t seconds) {
    gnmi::SubscribeResponse response;
    gnmi::Notification& notification = *response.mutable_update();
    notification.set_timestamp(seconds * kSecond);
    gnmi::Update& item = *notification.add_update();
    *item.mutable_path() = path(at);
    item.mutable_val()->set_uint_val(value);
    return response;
}

gnmi::SubscribeResponse gone(std::string_view at) {
    gnmi::SubscribeResponse response;
    *response.mutable_update()->add_delete_() = path(at);
    return response;
}

gnmi::SubscribeResponse synced() {
    gnmi::SubscribeResponse response;
    response.set_sync_response(true);
    return response;
}

class Watch : public testing::Test {
protected:
    std::vector<std::string> watch(std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments{"watch", "--server", server.address()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    SaidServer server;
};

TEST_F(Watch, ShowsEachLeafEachDeleteAndTheEndOfTheInitialSet) {
    server.say(update("/a/b", 1, 1));
    server.say(synced());
    server.say(gone("/a/b"));
    server.endStreams();
    PelProcess pel{watch()};
    EXPECT_EQ(pel.rest(), "/a/b 1\n-- synced --\ndelete /a/b\n");
    EXPECT_EQ(pel.end(), kDone);
    EXPECT_EQ(server.request().subscribe().subscription(0).mode(), gnmi::ON_CHANGE);
}

TEST_F(Watch, RatesAreOfTheStampsAndComeWithWhatCame) {
    server.say(update(kPackets, 1000, 100));
    server.say(update(kPackets, 1500, 105));
    server.say(gone("/a"));
    server.say(synced());
    server.endStreams();
    PelProcess pel{watch({"--rates=86400"})};
    EXPECT_EQ(pel.rest(),
              std::string{kPackets} + " 1500 100.0/s\n-- 2 updates, 1 deletes, 3 messages --\n");
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(Watch, ForRatesTheServerChoosesWhenItSendsACounter) {
    server.endStreams();
    PelProcess pel{watch({"--rates", "/a", "/b"})};
    EXPECT_EQ(pel.rest(), "-- 0 updates, 0 deletes, 0 messages --\n");
    const gnmi::SubscriptionList list = server.request().subscribe();
    ASSERT_EQ(list.subscription_size(), 2);
    EXPECT_EQ(list.subscription(0).mode(), gnmi::TARGET_DEFINED);
    EXPECT_EQ(list.subscription(1).mode(), gnmi::TARGET_DEFINED);
}

TEST_F(Watch, ASampleIsAskedForWithItsInterval) {
    server.endStreams();
    for (const auto& [span, nanoseconds] : std::map<std::string, std::uint64_t>{
             {"10s", 10'000'000'000}, {"2m", 120'000'000'000}, {"0s", 0}}) {
        PelProcess pel{watch({"--sample", span, "--rates", "/a", "/b"})};
        pel.rest();
        const gnmi::SubscriptionList list = server.request().subscribe();
        ASSERT_EQ(list.subscription_size(), 2) << span;
        for (const gnmi::Subscription& each : list.subscription()) {
            EXPECT_EQ(each.mode(), gnmi::SAMPLE) << span;
            EXPECT_EQ(each.sample_interval(), nanoseconds) << span;
        }
    }
    for (const char* const nonsense : {"10", "10ms", "s", "-1s"}) {
        PelProcess pel{watch({std::string{"--sample="} + nonsense})};
        EXPECT_EQ(pel.end(), kUsage) << nonsense;
    }
}

TEST_F(Watch, EachIntervalEndsWithWhatCameInIt) {
    server.say(update(kPackets, 1000, 100));
    server.say(synced());
    PelProcess pel{watch({"--rates=1"})};
    std::string line = pel.line();
    while (line == "-- 0 updates, 0 deletes, 0 messages --") { line = pel.line(); }
    EXPECT_EQ(line, std::string{kPackets} + " 1000 -");
    EXPECT_EQ(pel.line(), "-- 1 updates, 0 deletes, 1 messages --");
    server.say(update(kPackets, 400, 200));
    do { line = pel.line(); } while (line == "-- 0 updates, 0 deletes, 0 messages --");
    EXPECT_EQ(line, std::string{kPackets} + " 400 - (restarted)");
}

TEST_F(Watch, CtrlCEndsRatesWithTheIntervalThatWasBegun) {
    PelProcess pel{watch({"--rates=86400"})};
    server.request();
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "-- 0 updates, 0 deletes, 0 messages --\n");
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(Watch, RatesAsJsonAreAnObjectALine) {
    server.say(update(kPackets, 1000, 100));
    server.say(update("/counters/x", 7, 100));
    server.say(update(kPackets, 1, 110));
    server.say(update(kPackets, 3, 111));
    server.endStreams();
    PelProcess pel{watch({"--rates=86400", "--json"})};
    EXPECT_EQ(pel.line(),
              "{\"path\":\"" + std::string{kPackets} +
                  "\",\"value\":3,\"perSecond\":2.0,\"restarted\":true}");
    EXPECT_EQ(pel.line(), "{\"path\":\"/counters/x\",\"value\":7,\"perSecond\":null}");
    EXPECT_EQ(pel.line(), "{\"updates\":4,\"deletes\":0,\"messages\":4}");
    EXPECT_EQ(pel.rest(), "");
}

TEST_F(Watch, JsonIsAnObjectALine) {
    gnmi::SubscribeResponse entry = update("/id", 18446744073709551615U, 1);
    *entry.mutable_update()->mutable_prefix() = path("/group[id=7]");
    entry.mutable_update()->set_atomic(true);
    gnmi::Update& labels = *entry.mutable_update()->add_update();
    *labels.mutable_path() = path("/labels");
    labels.mutable_val()->mutable_leaflist_val()->add_element()->set_uint_val(100);
    gnmi::Update& name = *entry.mutable_update()->add_update();
    *name.mutable_path() = path("/name");
    name.mutable_val()->set_string_val("\x1b\"");
    gnmi::Update& tree = *entry.mutable_update()->add_update();
    *tree.mutable_path() = path("/tree");
    tree.mutable_val()->set_json_ietf_val("{\"a\":[true]}");
    server.say(entry);
    server.say(synced());
    server.say(gone("/group[id=7]"));
    server.endStreams();
    PelProcess pel{watch({"--json"})};
    EXPECT_EQ(pel.line(),
              "{\"timestamp\":1000000000,\"atomic\":true,\"prefix\":\"/group[id=7]\",\"update\":["
              "{\"path\":\"/group[id=7]/id\",\"value\":18446744073709551615},"
              "{\"path\":\"/group[id=7]/labels\",\"value\":[100]},"
              "{\"path\":\"/group[id=7]/name\",\"value\":\"\\u001b\\\"\"},"
              "{\"path\":\"/group[id=7]/tree\",\"value\":{\"a\":[true]}}]}");
    EXPECT_EQ(pel.line(), "{\"synced\":true}");
    EXPECT_EQ(pel.line(), "{\"timestamp\":0,\"delete\":[\"/group[id=7]\"]}");
    EXPECT_EQ(pel.rest(), "");
}

TEST_F(Watch, CtrlCEndsItInAPipeAndOnATerminal) {
    server.say(synced());
    for (const auto output : {PelProcess::Output::pipe, PelProcess::Output::terminal}) {
        PelProcess pel{watch(), output};
        EXPECT_EQ(pel.line(), "-- synced --");
        pel.interrupt();
        EXPECT_EQ(pel.rest(), "");
        EXPECT_EQ(pel.end(), kDone);
    }
}

TEST_F(Watch, AMessageThatMakesNoSenseEndsItWithAnErrorThoughTheServerGoesOn) {
    gnmi::SubscribeResponse noText = update("/a", 1, 1);
    noText.mutable_update()->mutable_update(0)->mutable_val()->set_string_val("\xff");
    server.say(noText);
    PelProcess pel{watch()};
    EXPECT_THAT(pel.rest(), HasSubstr("a message that makes no sense"));
    EXPECT_EQ(pel.end(), kFailed);
}

TEST_F(Watch, CtrlCEndsItAlsoBeforeThereIsAServer) {
    PelProcess pel{{"watch", "--server", "127.0.0.1:1"}};  // where nobody listens
    pel.interrupt();
    EXPECT_EQ(pel.rest(), "");
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(Watch, CtrlCEndsItAlsoWhileNobodyTakesWhatItPrints) {
    for (int i = 0; i < 20'000; ++i) { server.say(update("/a/long/path/of/a/leaf", 1, 1)); }
    PelProcess pel{watch()};
    EXPECT_EQ(pel.line(), "/a/long/path/of/a/leaf 1");  // and no more: the pipe fills
    pel.interrupt();
    EXPECT_EQ(pel.end(), kDone);
}

TEST_F(Watch, EndsWhenNobodyReadsAnyMoreThoughNothingComes) {
    server.say(synced());
    for (const char* const view : {"--json", "--rates=86400"}) {
        PelProcess pel{watch({view})};
        server.request();
        pel.stopReading();
        EXPECT_EQ(pel.end(), kDone) << view;
    }
}

class WatchColours : public Watch {
protected:
    /// What a terminal is sent, or a pipe.
    std::string shown(PelProcess::Output output,
                      const std::vector<std::string>& environment,
                      const std::vector<std::string>& more = {}) {
        server.say(update("/a", 1, 1));
        server.say(synced());
        server.say(update("/b", 1, 1));
        server.say(gone("/a"));
        server.endStreams();
        PelProcess pel{watch(more), output, environment};
        return pel.rest();
    }
    const std::string plain = "/a 1\n-- synced --\n/b 1\ndelete /a\n";
    const std::string plainOnTerminal = "/a 1\r\n-- synced --\r\n/b 1\r\ndelete /a\r\n";
};

TEST_F(WatchColours, OnATerminalDeletesAreRedAndWhatComesAfterTheInitialSetIsGreen) {
    EXPECT_EQ(shown(PelProcess::Output::terminal, {"TERM=xterm", "NO_COLOR="}),
              "/a 1\r\n-- synced --\r\n\x1b[32m/b 1\x1b[0m\r\n\x1b[31mdelete /a\x1b[0m\r\n");
}

TEST_F(WatchColours, NoneWithNoColor) {
    EXPECT_EQ(shown(PelProcess::Output::terminal, {"TERM=xterm", "NO_COLOR=1"}), plainOnTerminal);
}

TEST_F(WatchColours, NoneOnATerminalThatHasNone) {
    EXPECT_EQ(shown(PelProcess::Output::terminal, {"TERM=dumb", "NO_COLOR="}), plainOnTerminal);
}

TEST_F(WatchColours, NoneInAPipe) {
    EXPECT_EQ(shown(PelProcess::Output::pipe, {"TERM=xterm", "NO_COLOR="}), plain);
}

}  // namespace
}  // namespace Pel::Cli
