#include "apps/cli/TraceCommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <deque>
#include <filesystem>
#include <iterator>
#include <thread>

#include "apps/cli/ExitCode.h"
#include "platform/AgentHost/StandardStreams.h"
#include "platform/Blink/RingFile.h"
#include "platform/Blink/TraceFiles.h"

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

/// What to show when no file is named. Empty when there is nothing.
std::vector<std::filesystem::path> found(const TraceCommand::Options& options) {
    std::vector<std::filesystem::path> files;
    const std::filesystem::path directory = Blink::traceDirectory(options.root);
    for (const Blink::TraceFileInfo& info : Blink::traceFiles(directory)) {
        if (!files.empty() && !options.all) { break; }
        AgentHost::tell("pel trace",
                        fmt::format("{}, of process {}, which {}",
                                    info.path.string(),
                                    info.pid,
                                    info.alive ? "runs" : "has ended"));
        files.push_back(info.path);
    }
    if (files.empty()) {
        AgentHost::tell("pel trace",
                        "no trace file in " + directory.string() +
                            "; an agent makes one when it starts. Elsewhere: --root DIR, or FILE");
    }
    return files;
}

/// Several files' messages from where each was left, in the order of their times.
class Merged {
public:
    /// Empty, or why one of them cannot be read.
    std::string open(const std::vector<std::filesystem::path>& files) {
        for (const auto& file : files) {
            Source& source = sources_.emplace_back();
            std::string problem = source.reader.open(file);
            if (!problem.empty()) { return problem; }
        }
        return {};
    }
    std::vector<Blink::Message> read() {
        std::vector<Blink::Message> all;
        for (Source& source : sources_) {
            auto messages = source.reader.read(source.next);
            if (!messages.empty()) { source.next = messages.back().number + 1; }
            std::move(messages.begin(), messages.end(), std::back_inserter(all));
        }
        const auto earlier = [](const Blink::Message& a, const Blink::Message& b) {
            return a.wallNanoseconds < b.wallNanoseconds;
        };
        if (sources_.size() > 1) { std::stable_sort(all.begin(), all.end(), earlier); }
        return all;
    }

private:
    struct Source {
        Blink::RingReader reader;
        std::uint64_t next = 0;
    };
    std::deque<Source> sources_;  // a reader stays where it is
};

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
    const auto files = options.files.empty() ? found(options) : options.files;
    if (files.empty()) { return kFailed; }
    Merged merged;
    if (const std::string problem = merged.open(files); !problem.empty()) {
        AgentHost::tell("pel trace", problem);
        return kFailed;
    }
    while (true) {
        if (!show(merged.read(), options)) { return kDone; }
        if (!options.follow) { return kDone; }
        std::this_thread::sleep_for(kFollowInterval);
    }
}

}  // namespace Pel::Cli
