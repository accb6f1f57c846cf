#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "test/checker/Recording.h"

namespace gnmi {
class Path;
}

namespace Checker {

/// One Subscribe call of a stock gRPC client that hands over the messages as the bytes that came.
class StockStream {
public:
    struct Request {
        std::string server;             ///< "127.0.0.1:9339"
        std::vector<gnmi::Path> paths;  ///< none: the whole AFT of all instances
        bool once = false;              ///< else STREAM, on change
        std::chrono::milliseconds connectTime{60000};
    };

    StockStream();
    StockStream(const StockStream&) = delete;
    StockStream& operator=(const StockStream&) = delete;
    ~StockStream();

    /// Runs the call until the server ends it, cancel() is called or `take` answers false. How it ended.
    StreamEnd run(const Request& request,
                  const std::function<bool(std::int64_t received, std::string_view bytes)>& take);
    /// Ends run() from another thread; also before it has begun.
    void cancel();

private:
    struct Call;
    std::unique_ptr<Call> call_;
};

/// The wall clock, as stamps have it.
std::int64_t wallClockNs();

}  // namespace Checker
