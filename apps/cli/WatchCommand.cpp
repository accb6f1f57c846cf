#include "apps/cli/WatchCommand.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <cstdio>

#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiStream.h"
#include "apps/cli/GnmiText.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

/// What a device says could move the cursor or worse: control characters are shown, not sent.
std::string harmless(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result += byte < 0x20 || byte == 0x7f ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return result;
}

/// False when nobody reads any more.
bool print(const gnmi::SubscribeResponse& response) {
    std::string text;
    const gnmi::Notification& notification = response.update();
    for (const gnmi::Path& gone : notification.delete_()) {
        text += "delete " + harmless(pathText(notification.prefix(), gone)) + "\n";
    }
    for (const gnmi::Update& update : notification.update()) {
        text += harmless(pathText(notification.prefix(), update.path()));
        text += ' ';
        text += harmless(valueText(update.val()));
        text += '\n';
    }
    if (response.sync_response()) { text += "-- synced --\n"; }
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
           std::fflush(stdout) == 0;
}

int usage(const std::string& problem) {
    AgentHost::tell("pel watch", problem);
    return kUsage;
}

}  // namespace

int WatchCommand::run(const Options& options) {
    GnmiStream::Request request;
    request.server = options.server;
    request.once = options.once;
    request.callTime = options.timeout;
    std::string error;
    for (const std::string& text : options.paths) {
        gnmi::Path path;
        if (!pathFromText(text, path, error)) { return usage(fmt::format("{}: {}", text, error)); }
        if (!request.paths.empty() && request.paths[0].origin() != path.origin()) {
            return usage("all paths must have the same origin");
        }
        request.paths.push_back(path);
    }
    GnmiStream stream;
    const int code = stream.run(request, print, error);
    if (code != kDone) { AgentHost::tell("pel watch", error); }
    return code;
}

}  // namespace Pel::Cli
