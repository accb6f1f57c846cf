#include "apps/cli/TraceCommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>

#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiText.h"
#include "apps/cli/LiveOutput.h"
#include "apps/cli/TraceStream.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

constexpr std::chrono::milliseconds kFollowInterval{200};
constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::size_t kPiece = 65536;

using Files = std::vector<std::filesystem::path>;
using Json = nlohmann::ordered_json;

std::string timeText(const Blink::Message& message) {
    const std::time_t seconds = message.wallNanoseconds / kNanoseconds;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z",
                       fmt::gmtime(seconds),
                       message.wallNanoseconds % kNanoseconds / 1000);
}

std::string fileName(const Blink::Message& message) {
    return std::filesystem::path{message.file}.filename().string();
}

std::string line(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string messageText(const Blink::Message& message) {
    return fmt::format("{} {} {} {} {}:{} {}: {}\n",
                       timeText(message),
                       message.thread,
                       message.handle,
                       message.level,
                       fileName(message),
                       message.line,
                       message.function,
                       message.text);
}

std::string messageJson(const Blink::Message& message) {
    return line({{"time", timeText(message)},
                 {"thread", message.thread},
                 {"handle", message.handle},
                 {"level", message.level},
                 {"file", fileName(message)},
                 {"line", message.line},
                 {"function", message.function},
                 {"text", message.text}});
}

std::string noticeText(const TraceStream::Notice& notice) {
    const std::string file = harmless(notice.file.string());
    return notice.what == TraceStream::Notice::What::began
               ? fmt::format("-- a process began to trace: {} --\n", file)
               : fmt::format(
                     "-- {} messages lost, written faster than read: {} --\n", notice.lost, file);
}

std::string noticeJson(const TraceStream::Notice& notice) {
    const std::string file = notice.file.string();
    return notice.what == TraceStream::Notice::What::began
               ? line({{"began", file}})
               : line({{"lost", notice.lost}, {"file", file}});
}

class Trace {
public:
    explicit Trace(const TraceCommand::Options& options)
        : options_{options}, directory_{Blink::traceDirectory(options.root)} {}

    int run() {
        if (!begin()) { return kFailed; }
        if (!options_.follow) {
            showNew();
            return kDone;
        }
        while (true) {
            const Files fresh = stream_.newOf(options_.files.empty() ? there() : options_.files);
            if (!showNew()) { break; }
            const auto began = stream_.openNew(fresh);
            if (!show(began)) { break; }
            if (began.empty() && output_.wait(kFollowInterval) != LiveOutput::Reason::time) {
                break;
            }
        }
        return kDone;
    }

private:
    /// The directory's files, the oldest first.
    Files there() const {
        Files files;
        for (const Blink::TraceFileInfo& info : Blink::traceFiles(directory_)) {
            files.insert(files.begin(), info.path);
        }
        return files;
    }
    bool begin();
    Files found();
    bool showNew();
    bool show(const std::vector<TraceStream::Notice>& notices);
    bool wanted(const Blink::Message& message) const {
        return message.level <= options_.level && message.wallNanoseconds >= options_.since &&
               (options_.handle.empty() || message.handle == options_.handle);
    }

    TraceCommand::Options options_;
    std::filesystem::path directory_;
    LiveOutput output_;
    TraceStream stream_{options_.follow};
};

/// What to show when no file is named. Empty when there is nothing.
Files Trace::found() {
    Files files;
    for (const Blink::TraceFileInfo& info : Blink::traceFiles(directory_)) {
        stream_.isKnown(info.path);
        if (!files.empty() && !options_.all) { continue; }
        AgentHost::tell("pel trace",
                        fmt::format("{}, of process {}, which {}",
                                    info.path.string(),
                                    info.pid,
                                    info.alive ? "runs" : "has ended"));
        files.push_back(info.path);
    }
    if (files.empty()) {
        AgentHost::tell("pel trace",
                        "no trace file in " + directory_.string() +
                            (options_.follow ? "; waits until an agent makes one"
                                             : "; an agent makes one when it starts. Elsewhere: "
                                               "--root DIR, or FILE"));
    }
    return files;
}

/// False, which has been said, when there is nothing to read.
bool Trace::begin() {
    const Files files = options_.files.empty() ? found() : options_.files;
    for (const std::filesystem::path& file : files) {
        if (const std::string problem = stream_.open(file); !problem.empty()) {
            AgentHost::tell("pel trace", problem);
            return false;
        }
    }
    return !files.empty() || options_.follow;
}

bool Trace::show(const std::vector<TraceStream::Notice>& notices) {
    std::string text;
    for (const TraceStream::Notice& notice : notices) {
        text += options_.json ? noticeJson(notice) : noticeText(notice);
    }
    return output_.print(text);
}

/// False when it is over.
bool Trace::showNew() {
    std::vector<TraceStream::Notice> lost;
    const auto messages = stream_.read(lost);
    if (!show(lost)) { return false; }
    std::string text;
    for (const Blink::Message& message : messages) {
        if (!wanted(message)) { continue; }
        text += options_.json ? messageJson(message) : messageText(message);
        if (text.size() < kPiece) { continue; }
        if (!output_.print(text)) { return false; }
        text.clear();
    }
    return output_.print(text);
}

}  // namespace

int TraceCommand::run(const Options& options) {
    return Trace{options}.run();
}

}  // namespace Pel::Cli
