#include "apps/cli/WatchCommand.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "apps/cli/ExitCode.h"
#include "apps/cli/GnmiJson.h"
#include "apps/cli/GnmiStream.h"
#include "apps/cli/GnmiText.h"
#include "apps/cli/LiveOutput.h"
#include "apps/cli/RateMeter.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

constexpr const char* kRed = "\x1b[31m";
constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kPlain = "\x1b[0m";

/// The answers as lines. With colours what is deleted is red, and green what comes or changes after
/// the initial set.
class LineView {
public:
    explicit LineView(bool coloured) : coloured_{coloured} {}

    std::string text(const gnmi::SubscribeResponse& response) {
        std::string text;
        const gnmi::Notification& notification = response.update();
        for (const gnmi::Path& gone : notification.delete_()) {
            append("delete " + pathText(notification.prefix(), gone), coloured_ ? kRed : "", text);
        }
        for (const gnmi::Update& update : notification.update()) {
            append(pathText(notification.prefix(), update.path()) + ' ' + valueText(update.val()),
                   coloured_ && synced_ ? kGreen : "",
                   text);
        }
        if (response.sync_response()) {
            text += "-- synced --\n";
            synced_ = true;
        }
        return text;
    }

private:
    static void append(const std::string& line, std::string_view colour, std::string& text) {
        text += colour;
        text += harmless(line);
        if (!colour.empty()) { text += kPlain; }
        text += '\n';
    }

    bool coloured_;
    bool synced_ = false;
};

std::string rowText(const RateMeter::Row& row) {
    return fmt::format("{} {} {}{}\n",
                       harmless(row.path),
                       row.value,
                       row.perSecond ? fmt::format("{:.1f}/s", *row.perSecond) : "-",
                       row.restarted ? " (restarted)" : "");
}

std::string rowJson(const RateMeter::Row& row) {
    nlohmann::ordered_json json{{"path", row.path}, {"value", row.value}, {"perSecond", nullptr}};
    if (row.perSecond) { json["perSecond"] = *row.perSecond; }
    if (row.restarted) { json["restarted"] = true; }
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string reportText(const RateMeter::Report& report, bool json) {
    std::string text;
    for (const RateMeter::Row& row : report.rows) { text += json ? rowJson(row) : rowText(row); }
    const std::string counts = json ? R"({{"updates":{},"deletes":{},"messages":{}}})"
                                    : "-- {} updates, {} deletes, {} messages --";
    return text +
           fmt::format(fmt::runtime(counts), report.updates, report.deletes, report.messages) +
           "\n";
}

/// One call of the command: the stream on the caller's thread, and one thread that ends it and that
/// knows the intervals.
class Watch {
public:
    explicit Watch(const WatchCommand::Options& options)
        : options_{options}, view_{!options.json && output_.coloured()} {}

    int run(GnmiStream::Request request) {
        request.serverChooses = options_.rates.has_value();
        std::thread side{[this] { watchTheEnd(); }};
        std::string error;
        int code = stream_.run(
            request,
            [this](const gnmi::SubscribeResponse& response) { return take(response); },
            error);
        output_.wake();
        side.join();
        if (options_.rates && code != kNobody) { report(); }  // of the interval that was begun
        if (code != kDone) { AgentHost::tell("pel watch", error); }
        return code;
    }

private:
    bool take(const gnmi::SubscribeResponse& response) {
        if (options_.rates) {
            const std::lock_guard lock{mutex_};
            if (response.has_update()) { meter_.take(response.update()); }
            return true;
        }
        return output_.print(options_.json ? jsonLine(response) : view_.text(response));
    }
    bool report() {
        RateMeter::Report report;
        {
            const std::lock_guard lock{mutex_};
            report = meter_.report();
        }
        return output_.print(reportText(report, options_.json));
    }
    void watchTheEnd() {
        while (true) {
            const LiveOutput::Reason reason = output_.wait(options_.rates);
            if (reason == LiveOutput::Reason::woken) { return; }
            if (reason == LiveOutput::Reason::over || !report()) { break; }
        }
        stream_.cancel();
    }

    WatchCommand::Options options_;
    LiveOutput output_;  // before the stream, which has threads
    LineView view_;
    GnmiStream stream_;
    std::mutex mutex_;  // of the meter
    RateMeter meter_;
};

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
    request.sample = options.sample;
    std::string error;
    for (const std::string& text : options.paths) {
        gnmi::Path path;
        if (!pathFromText(text, path, error)) { return usage(fmt::format("{}: {}", text, error)); }
        if (!request.paths.empty() && request.paths[0].origin() != path.origin()) {
            return usage("all paths must have the same origin");
        }
        request.paths.push_back(path);
    }
    return Watch{options}.run(std::move(request));
}

}  // namespace Pel::Cli
