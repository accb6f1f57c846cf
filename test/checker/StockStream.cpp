#include "test/checker/StockStream.h"

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <proto/gnmi.pb.h>

namespace Checker {
namespace {

std::shared_ptr<grpc::Channel> channelTo(const std::string& server) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(server, grpc::InsecureChannelCredentials(), arguments);
}

grpc::ByteBuffer subscription(const StockStream::Request& request) {
    gnmi::SubscribeRequest message;
    gnmi::SubscriptionList& list = *message.mutable_subscribe();
    list.set_mode(request.once ? gnmi::SubscriptionList::ONCE : gnmi::SubscriptionList::STREAM);
    list.set_encoding(gnmi::PROTO);
    list.mutable_prefix()->set_origin("openconfig");
    for (const gnmi::Path& path : request.paths) {
        gnmi::Subscription& entry = *list.add_subscription();
        entry.set_mode(gnmi::ON_CHANGE);
        *entry.mutable_path() = path;
        entry.mutable_path()->clear_origin();
    }
    if (request.paths.empty()) {
        gnmi::Subscription& entry = *list.add_subscription();
        entry.set_mode(gnmi::ON_CHANGE);
        for (const char* const name : {"network-instances", "network-instance", "afts"}) {
            entry.mutable_path()->add_elem()->set_name(name);
        }
    }
    const grpc::Slice slice{message.SerializeAsString()};
    return {&slice, 1};
}

}  // namespace

std::int64_t wallClockNs() {
    return std::chrono::nanoseconds{std::chrono::system_clock::now().time_since_epoch()}.count();
}

struct StockStream::Call {
    grpc::ClientContext context;
    grpc::CompletionQueue queue;

    /// One operation at a time: waits for the one that was begun.
    bool done() {
        void* tag = nullptr;
        bool ok = false;
        return queue.Next(&tag, &ok) && ok;
    }
};

StockStream::StockStream() : call_{std::make_unique<Call>()} {}

StockStream::~StockStream() = default;

void StockStream::cancel() {
    call_->context.TryCancel();
}

StreamEnd StockStream::run(const Request& request,
                           const std::function<bool(std::int64_t, std::string_view)>& take) {
    const auto channel = channelTo(request.server);
    if (!channel->WaitForConnected(std::chrono::system_clock::now() + request.connectTime)) {
        return {static_cast<std::uint32_t>(grpc::StatusCode::UNAVAILABLE),
                "no gNMI server answers at " + request.server};
    }
    grpc::GenericStub stub{channel};
    void* const tag = this;
    const auto stream = stub.PrepareCall(&call_->context, "/gnmi.gNMI/Subscribe", &call_->queue);
    stream->StartCall(tag);
    bool going = call_->done();
    if (going) {
        stream->Write(subscription(request), tag);
        going = call_->done();
    }
    grpc::ByteBuffer reply;
    std::vector<grpc::Slice> slices;
    std::string joined;
    while (going) {
        stream->Read(&reply, tag);
        going = call_->done();
        if (!going) { break; }
        const std::int64_t received = wallClockNs();
        reply.Dump(&slices);
        joined.clear();
        for (const grpc::Slice& slice : slices) {
            joined.append(reinterpret_cast<const char*>(slice.begin()), slice.size());
        }
        going = take(received, joined);
        if (!going) { call_->context.TryCancel(); }  // else the status is the server's
    }
    grpc::Status status;
    stream->Finish(&status, tag);
    call_->done();
    return {static_cast<std::uint32_t>(status.error_code()), status.error_message()};
}

}  // namespace Checker
