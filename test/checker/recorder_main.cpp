#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <exception>
#include <string>
#include <thread>

#include "apps/cli/GnmiText.h"
#include "test/checker/Recording.h"
#include "test/checker/StockStream.h"

// pel-recorder: writes what one Subscribe call of a stock gRPC client answers to a file. SIGINT and SIGTERM end the
// call in order; SIGUSR1 ends --delay-per-message. Ends with 0 when the recording is whole, 1 when there is
// none or the server ended the call with an error, 2 when the command line makes no sense.
namespace {

struct Arguments {
    Checker::StockStream::Request request;
    std::vector<std::string> paths;
    std::string out;
    int delayMs = 0;
    std::uint64_t messages = 0;
};

int failed(const std::string& why) {
    fmt::print(stderr, "pel-recorder: {}\n", why);
    return 1;
}

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) { sigaddset(&set, number); }
    return set;
}

/// Takes the signals in a thread of its own.
class Signals {
public:
    explicit Signals(Checker::StockStream& stream) : thread_{[this, &stream] { serve(stream); }} {}
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals() {
        over_ = true;
        thread_.join();
    }
    /// Waits; not at all once the delay was ended.
    void delay(std::chrono::milliseconds time) const {
        const auto until = std::chrono::steady_clock::now() + time;
        while (!hurry_ && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(std::min(time, std::chrono::milliseconds{20}));
        }
    }

private:
    void serve(Checker::StockStream& stream) {
        const sigset_t set = handledSignals();
        const timespec wait{0, 50'000'000};
        while (!over_) {
            const int number = ::sigtimedwait(&set, nullptr, &wait);
            if (number <= 0) { continue; }
            hurry_ = true;
            if (number != SIGUSR1) { stream.cancel(); }
        }
    }

    std::atomic<bool> over_{false};
    std::atomic<bool> hurry_{false};
    std::thread thread_;
};

int record(Arguments& arguments) {
    std::string error;
    for (const std::string& text : arguments.paths) {
        gnmi::Path path;
        if (!Pel::Cli::pathFromText(text, path, error)) { return failed(text + ": " + error); }
        arguments.request.paths.push_back(path);
    }
    const sigset_t set = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    Checker::RecordWriter writer;
    if (error = writer.open(arguments.out); !error.empty()) { return failed(error); }
    Checker::StockStream stream;
    const Signals signals{stream};
    std::uint64_t messages = 0;
    const Checker::StreamEnd end =
        stream.run(arguments.request, [&](std::int64_t received, std::string_view bytes) {
            writer.message(received, bytes);
            ++messages;
            if (arguments.delayMs > 0) {
                signals.delay(std::chrono::milliseconds{arguments.delayMs});
            }
            return messages != arguments.messages;
        });
    if (error = writer.end(Checker::wallClockNs(), end); !error.empty()) { return failed(error); }
    fmt::print("{}: {} messages, status {}{}{}\n",
               arguments.out,
               messages,
               end.code,
               end.text.empty() ? "" : ": ",
               end.text);
    constexpr std::uint32_t kCancelled = 1;
    return end.code <= kCancelled ? 0 : 1;
}

int run(int count, char** values) {
    Arguments arguments;
    CLI::App app{"Records a gNMI stream", "pel-recorder"};
    app.add_option("--address", arguments.request.server, "Address and port of the server")
        ->required();
    app.add_option("--paths", arguments.paths, "What to subscribe to; none: the whole AFT");
    app.add_option("--out", arguments.out, "The file")->required();
    app.add_flag("--once", arguments.request.once, "Mode ONCE, else STREAM");
    app.add_option("--delay-per-message", arguments.delayMs, "Pause after each message, in ms")
        ->check(CLI::Range(0, 3'600'000));
    app.add_option("--messages", arguments.messages, "End the call after so many; 0: never");
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    return record(arguments);
}

}  // namespace

int main(int count, char** values) {
    try {
        return run(count, values);
    } catch (const std::exception& error) { return failed(error.what()); }
}
