#include "apps/cli/TraceCommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <thread>

#include "apps/cli/ExitCode.h"
#include "platform/Blink/RingFile.h"

namespace Pel::Cli {
namespace {

constexpr std::chrono::milliseconds kFollowInterval{200};
constexpr std::int64_t kNanoseconds = 1'000'000'000;

std::string line(const Blink::Message& message) {
    const std::time_t seconds = message.wallNanoseconds / kNanoseconds;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z {} {} {} {}:{} {}: {}\n",
                       fmt::gmtime(seconds),
                       message.wallNanoseconds % kNanoseconds / 1000,
                       message.thread,
                       message.handle,
                       message.level,
                       std::filesystem::path{message.file}.filename().string(),
                       message.line,
                       message.function,
                       message.text);
}

/// False when nobody reads any more.
bool show(const std::vector<Blink::Message>& messages, const TraceCommand::Options& options) {
    for (const Blink::Message& message : messages) {
        if (message.level > options.level) { continue; }
        if (!options.handle.empty() && message.handle != options.handle) { continue; }
        const std::string text = line(message);
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) { return false; }
    }
    return std::fflush(stdout) == 0;
}

}  // namespace

int TraceCommand::run(const Options& options) {
    Blink::RingReader reader;
    if (const std::string problem = reader.open(options.file); !problem.empty()) {
        fmt::print(stderr, "pel trace: {}\n", problem);
        return kFailed;
    }
    std::uint64_t next = 0;
    while (true) {
        const auto messages = reader.read(next);
        if (!show(messages, options)) { return kFailed; }
        if (!messages.empty()) { next = messages.back().number + 1; }
        if (!options.follow) { return kDone; }
        std::this_thread::sleep_for(kFollowInterval);
    }
}

}  // namespace Pel::Cli
