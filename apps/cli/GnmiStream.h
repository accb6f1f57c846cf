#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gnmi {
class Path;
class SubscribeResponse;
}  // namespace gnmi

namespace Pel::Cli {

/// One Subscribe call of a stock gRPC client, in clear text.
class GnmiStream {
public:
    struct Request {
        std::string server;             ///< "127.0.0.1:9339"
        std::vector<gnmi::Path> paths;  ///< of one origin; none: everything
        bool once = false;              ///< else STREAM
        /// Each leaf when the server thinks fit (counters now and then), else on change.
        bool serverChooses = false;
        /// Each leaf once such an interval in place of that; zero: as short as the server allows.
        std::optional<std::chrono::nanoseconds> sample;
        std::chrono::milliseconds connectTime{5000};
        /// For the first answer: what a server has to show is on its way by then.
        std::chrono::milliseconds answerTime{std::chrono::minutes{1}};
        /// The whole call, with `once` only.
        std::chrono::milliseconds callTime{std::chrono::minutes{10}};
    };

    GnmiStream();
    GnmiStream(const GnmiStream&) = delete;
    GnmiStream& operator=(const GnmiStream&) = delete;
    ~GnmiStream();

    /// Runs the call and hands over each answer, until the server ends it, cancel() is called or
    /// `take` answers false. An ExitCode; `error` says why it is not kDone.
    int run(const Request& request,
            const std::function<bool(const gnmi::SubscribeResponse&)>& take,
            std::string& error);
    /// Ends run() from another thread; run() then answers kDone. Also before it has begun.
    void cancel();

private:
    struct Call;
    std::unique_ptr<Call> call_;
};

}  // namespace Pel::Cli
