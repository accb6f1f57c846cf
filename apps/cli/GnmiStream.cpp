#include "apps/cli/GnmiStream.h"

#include <grpcpp/grpcpp.h>
#include <proto/gnmi.grpc.pb.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "apps/cli/ExitCode.h"
#include "platform/AgentHost/ListenAddress.h"

namespace Pel::Cli {
namespace {

constexpr std::chrono::seconds kEndTime{2};

std::shared_ptr<grpc::Channel> channelTo(const std::string& server) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    // A stream that is silent by right is told from a machine that has gone.
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 30'000);
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 10'000);
    arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    // A connection of its own: a new stream does not wait for another one's reconnect.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(server, grpc::InsecureChannelCredentials(), arguments);
}

gnmi::SubscribeRequest subscription(const GnmiStream::Request& request) {
    gnmi::SubscribeRequest message;
    gnmi::SubscriptionList& list = *message.mutable_subscribe();
    list.set_mode(request.once ? gnmi::SubscriptionList::ONCE : gnmi::SubscriptionList::STREAM);
    list.set_encoding(gnmi::PROTO);
    list.mutable_prefix()->set_origin(request.paths.empty() ? "" : request.paths[0].origin());
    const auto add = [&]() -> gnmi::Subscription& {
        gnmi::Subscription& entry = *list.add_subscription();
        entry.set_mode(request.serverChooses ? gnmi::TARGET_DEFINED : gnmi::ON_CHANGE);
        if (request.sample) {
            entry.set_mode(gnmi::SAMPLE);
            entry.set_sample_interval(static_cast<std::uint64_t>(request.sample->count()));
        }
        return entry;
    };
    for (const gnmi::Path& path : request.paths) {
        gnmi::Path& mine = *add().mutable_path();
        mine = path;
        mine.clear_origin();
    }
    if (request.paths.empty()) { add(); }
    return message;
}

/// Nobody takes connections there, as far as can be told: a name is not looked up once more.
bool refused(const std::string& server) {
    const auto address = AgentHost::ListenAddress::parse(server);
    return !address || !address->takesConnections();
}

std::string silent(const std::string& server, std::chrono::milliseconds time) {
    return server + " takes the connection and says nothing for " + std::to_string(time.count()) +
           " ms: the agent there hangs (pel show status), or it is no gNMI server";
}

int unconnected(const GnmiStream::Request& request, std::string& error) {
    if (!refused(request.server)) {
        error = silent(request.server, request.connectTime);
        return kNoAnswer;
    }
    error = "no gNMI server answers at " + request.server + "; is an agent running? (pel up)";
    return kNobody;
}

/// Cancels a call unless what is waited for comes in time.
class Patience {
public:
    Patience(grpc::ClientContext& context, std::chrono::milliseconds time)
        : thread_{[this, &context, time] {
              std::unique_lock lock{mutex_};
              if (came_.wait_for(lock, time, [this] { return met_; })) { return; }
              exhausted_ = true;
              context.TryCancel();
          }} {}
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;
    ~Patience() {
        met();
        thread_.join();
    }

    void met() {
        const std::lock_guard lock{mutex_};
        met_ = true;
        came_.notify_one();
    }
    bool exhausted() const {
        const std::lock_guard lock{mutex_};
        return exhausted_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable came_;
    bool met_ = false;
    bool exhausted_ = false;
    std::thread thread_;  // last: uses all of the above
};

}  // namespace

struct GnmiStream::Call {
    /// Waits until there is a server, or for the time, in steps in which cancel() is noticed.
    bool connected(grpc::Channel& channel, std::chrono::milliseconds time) const {
        constexpr std::chrono::milliseconds kStep{100};
        const auto deadline = std::chrono::system_clock::now() + time;
        while (!cancelled) {
            const auto now = std::chrono::system_clock::now();
            if (channel.WaitForConnected(std::min(deadline, now + kStep))) { return true; }
            if (now >= deadline) { return false; }
        }
        return false;
    }

    grpc::ClientContext context;
    std::atomic<bool> cancelled{false};
};

GnmiStream::GnmiStream() : call_{std::make_unique<Call>()} {}

GnmiStream::~GnmiStream() = default;

void GnmiStream::cancel() {
    call_->cancelled = true;
    call_->context.TryCancel();
}

int GnmiStream::run(const Request& request,
                    const std::function<bool(const gnmi::SubscribeResponse&)>& take,
                    std::string& error) {
    const auto channel = channelTo(request.server);
    if (!call_->connected(*channel, request.connectTime)) {
        if (call_->cancelled) { return kDone; }
        return unconnected(request, error);
    }
    grpc::ClientContext& context = call_->context;
    if (request.once) { context.set_deadline(std::chrono::system_clock::now() + request.callTime); }
    const auto stub = gnmi::gNMI::NewStub(channel);
    const auto stream = stub->Subscribe(&context);
    stream->Write(subscription(request));
    bool wanted = true;
    Patience first{context, request.answerTime};
    gnmi::SubscribeResponse response;
    while (wanted && !call_->cancelled && stream->Read(&response)) {
        first.met();
        wanted = take(response);
    }
    if (!wanted) { call_->cancelled = true; }
    if (call_->cancelled) { context.TryCancel(); }
    first.met();
    // A message that cannot be read ends the reading, but not the server's stream.
    Patience end{context, kEndTime};
    const grpc::Status status = stream->Finish();
    end.met();
    if (call_->cancelled || status.ok()) { return kDone; }
    if (first.exhausted()) {
        error = silent(request.server, request.answerTime);
        return kNoAnswer;
    }
    if (end.exhausted()) {
        error = request.server + ": the server sent a message that makes no sense";
        return kFailed;
    }
    error = request.server + ": " + status.error_message();
    return status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED ? kNoAnswer : kFailed;
}

}  // namespace Pel::Cli
