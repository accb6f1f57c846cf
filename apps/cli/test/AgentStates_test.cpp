#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <proto/gnmi.grpc.pb.h>
#include <proto/gnmi.pb.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apps/cli/ControlClient.h"
#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiStream.h"
#include "apps/cli/test/CliBed.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/AgentHost/RootLock.h"
#include "test/support/LoopbackPort.h"
#include "test/support/TempDir.h"

// `pel` and an agent (or what stands in its place) in any state: it never hangs, and says what is
// the matter.
namespace Pel::Cli {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr const char* kAgentLock = AgentHost::HostConfig::kAgentLock;

/// Every command that asks the agent.
constexpr const char* kAsking[] = {"show status",
                                   "show tasks",
                                   "show fec-export",
                                   "trace set X=9",
                                   "config set aftExportEnabled true"};
class EachCommandThatAsks : public testing::TestWithParam<const char*> {
protected:
    /// How it ends with a patience of 200 ms.
    int ask() {
        return pel(std::string{GetParam()} + " --timeout 200 --root " + root.path().string(),
                   output);
    }
    TestSupport::TempDir root;
    std::string output;
};

TEST_P(EachCommandThatAsks, NamesAnAgentThatTakesItsRequestAndNeverAnswers) {
    const HungHost host{root.path()};
    EXPECT_EQ(ask(), kNoAnswer);
    EXPECT_THAT(output, HasSubstr("did not answer within 200 ms: it hangs"));
}

TEST_P(EachCommandThatAsks, NamesAnAgentWhoseQueueIsFull) {
    const HungHost host{root.path()};
    const FullQueue full{root.path()};
    EXPECT_EQ(ask(), kNoAnswer);
    EXPECT_THAT(output, HasSubstr("takes no requests for 200 ms: it hangs"));
}

TEST_P(EachCommandThatAsks, NamesAStoppedAgentAndWhatLetsItGoOn) {
    const pid_t child = ::fork();
    if (child == 0) {
        const HungHost host{root.path()};
        AgentHost::RootLock lock;
        const bool taken = lock.take(root.path(), kAgentLock).empty();
        ::raise(SIGSTOP);
        ::_exit(taken ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(ask(), kNoAnswer);
    const std::string process = std::to_string(child);
    EXPECT_THAT(output,
                HasSubstr("did not answer within 200 ms: process " + process +
                          " is stopped; kill -CONT " + process + " lets it go on"));
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    EXPECT_EQ(ask(), std::string_view{GetParam()}.starts_with("config") ? kDone : kNobody);
    EXPECT_THAT(output, HasSubstr("no agent runs")) << "its socket is still there";
}

TEST_P(EachCommandThatAsks, NamesAnAgentThatHasNoSocketYet) {
    AgentHost::RootLock lock;
    ASSERT_EQ(lock.take(root.path(), kAgentLock), "");
    EXPECT_EQ(ask(), kNoAnswer);
    EXPECT_THAT(output,
                HasSubstr("does not listen for 200 ms: process " + std::to_string(::getpid()) +
                          " starts or ends"));
}

INSTANTIATE_TEST_SUITE_P(, EachCommandThatAsks, testing::ValuesIn(kAsking), [](const auto& row) {
    std::string name;
    for (const char c : std::string_view{row.param}) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) { name += c; }
    }
    return name;
});

/// Asks with a patience that no test outlasts, on a thread of its own.
class PatientClient {
public:
    explicit PatientClient(const std::filesystem::path& root)
        : thread_{[this, root] {
              threadId_ = ::gettid();
              result_ = ControlClient{root, std::chrono::minutes{2}}.ask("status", false);
              done_ = true;
          }} {}
    PatientClient(const PatientClient&) = delete;
    PatientClient& operator=(const PatientClient&) = delete;
    ~PatientClient() {
        if (thread_.joinable()) { thread_.join(); }
    }

    /// Returns when it sleeps. False when it has given up.
    bool waits() const {
        while (!done_ && (threadId_ == 0 || state() != 'S')) { std::this_thread::yield(); }
        return !done_;
    }
    const ControlResult& result() {
        thread_.join();
        return result_;
    }

private:
    char state() const {
        std::ifstream file{"/proc/self/task/" + std::to_string(threadId_) + "/stat"};
        std::string line;
        std::getline(file, line);
        const std::size_t name = line.rfind(") ");
        return name == std::string::npos ? '?' : line[name + 2];
    }

    std::atomic<pid_t> threadId_{0};
    std::atomic<bool> done_{false};
    ControlResult result_;
    std::thread thread_;  // last: uses all of the above
};

TEST(ControlClientTest, AnAgentThatIsJustStartingIsWaitedFor) {
    const TestSupport::TempDir root;
    AgentHost::RootLock lock;
    ASSERT_EQ(lock.take(root.path(), kAgentLock), "");
    PatientClient client{root.path()};
    ASSERT_TRUE(client.waits());
    const HungHost host{root.path()};
    host.answer("{\"end\":true}\n");
    EXPECT_EQ(client.result().error, "");
}

TEST(ControlClientTest, AQueueThatIsFullForAMomentIsWaitedFor) {
    const TestSupport::TempDir root;
    const HungHost host{root.path()};
    auto full = std::make_unique<FullQueue>(root.path());
    PatientClient client{root.path()};
    ASSERT_TRUE(client.waits());
    const std::size_t others = full->clients();
    full.reset();
    for (std::size_t i = 0; i < others; ++i) { ::close(host.accept()); }
    host.answer("{\"end\":true}\n");
    EXPECT_EQ(client.result().error, "");
}

const auto kTakeAll = [](const gnmi::SubscribeResponse&) { return true; };

TEST(GnmiStreamTest, AServerThatTakesTheConnectionAndSaysNothingIsToldFromNone) {
    const TestSupport::LoopbackPort server;
    GnmiStream::Request request;
    request.server = server.text();
    request.connectTime = milliseconds{200};
    std::string error;
    EXPECT_EQ(GnmiStream{}.run(request, kTakeAll, error), kNobody);
    EXPECT_THAT(error, HasSubstr("no gNMI server answers at " + server.text()));
    server.listen(4);
    EXPECT_EQ(GnmiStream{}.run(request, kTakeAll, error), kNoAnswer);
    EXPECT_THAT(error, HasSubstr(server.text() + " takes the connection and says nothing"));
}

/// Takes calls and never answers.
class DeafService final : public gnmi::gNMI::Service {
    grpc::Status Subscribe(grpc::ServerContext* context,
                           grpc::ServerReaderWriter<gnmi::SubscribeResponse,
                                                    gnmi::SubscribeRequest>* stream) override {
        gnmi::SubscribeRequest request;
        while (stream->Read(&request)) {}
        while (!context->IsCancelled()) { std::this_thread::yield(); }
        return grpc::Status::OK;
    }
};

TEST(GnmiStreamTest, AServerThatNeverAnswersTheCallIsGivenUp) {
    DeafService service;
    grpc::ServerBuilder builder;
    int port = 0;
    builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
    builder.RegisterService(&service);
    const auto server = builder.BuildAndStart();
    GnmiStream::Request request;
    request.server = "127.0.0.1:" + std::to_string(port);
    request.connectTime = std::chrono::minutes{2};
    request.answerTime = milliseconds{200};
    std::string error;
    EXPECT_EQ(GnmiStream{}.run(request, kTakeAll, error), kNoAnswer);
    EXPECT_THAT(error, HasSubstr("says nothing for 200 ms"));
    server->Shutdown();
}

}  // namespace
}  // namespace Pel::Cli
