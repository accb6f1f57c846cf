#include <proto/gnmi.pb.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "apps/cli/GnmiStream.h"
#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "bench/RawStream.h"
#include "forwarder/Scenario/ScenarioPublish.h"
#include "platform/AgentHost/HostConfig.h"

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begun) {
    return std::chrono::duration<double>(Clock::now() - begun).count();
}

/// Writes the source's state and changes, as a forwarder does, on the caller's thread.
class Feed {
public:
    Feed(const std::filesystem::path& root, const PrefixCounts& counts) : source{counts} {
        AgentHost::HostConfig config;
        config.root = root;
        writer_ = openWriter(config.stateDirectory());
        publish_ = std::make_unique<Pel::Forwarder::ScenarioPublish>(source, *writer_, clock_);
        if (const std::string error = publish_->open(); !error.empty()) {
            throw std::runtime_error{error};
        }
    }
    /// All that is due. In seconds.
    double run() {
        const auto begun = Clock::now();
        while (publish_->run([] { return false; })) {}
        if (!publish_->failure().empty()) { throw std::runtime_error{publish_->failure()}; }
        return secondsSince(begun);
    }

    PrefixSource source;

private:
    const Kiln::SteadyClock clock_;
    std::unique_ptr<Store::Writer> writer_;
    std::unique_ptr<Pel::Forwarder::ScenarioPublish> publish_;
};

/// A stock client that parses each message, on a thread of its own, and what it has seen so far.
class ParsingClient {
public:
    explicit ParsingClient(std::uint16_t port, bool once = false)
        : thread_{[this, port, once] { run(port, once); }} {}
    ParsingClient(const ParsingClient&) = delete;
    ParsingClient& operator=(const ParsingClient&) = delete;
    ~ParsingClient() { stream_.cancel(); }

    bool synced() const { return synced_; }
    bool ended() const { return ended_; }
    std::uint64_t nextHops() const { return nextHops_; }
    std::uint64_t prefixes() const { return prefixes_; }
    std::uint64_t deleted() const { return deleted_; }

private:
    void run(std::uint16_t port, bool once) {
        Pel::Cli::GnmiStream::Request request;
        request.server = "127.0.0.1:" + std::to_string(port);
        request.once = once;
        std::string error;
        (void)stream_.run(
            request,
            [this](const gnmi::SubscribeResponse& response) {
                take(response.update());
                return true;
            },
            error);
        ended_ = true;
    }
    void take(const gnmi::Notification& message) {
        const auto isPrefix = [](const std::string& name) {
            return name == "ipv4-entry" || name == "ipv6-entry";
        };
        for (const gnmi::Path& path : message.delete_()) {
            const bool prefix = path.elem_size() > 0 && isPrefix(path.elem().rbegin()->name());
            deleted_ += prefix ? 1 : 0;
        }
        if (message.update_size() == 0 || message.prefix().elem_size() == 0) { return; }
        const std::string& name = message.prefix().elem().rbegin()->name();
        if (isPrefix(name)) {
            ++prefixes_;
        } else if (name == "next-hop") {
            ++nextHops_;
        } else if (name == "state-synced") {
            synced_ = std::all_of(message.update().begin(),
                                  message.update().end(),
                                  [](const auto& update) { return update.val().bool_val(); });
        }
    }

    std::atomic<bool> synced_ = false;
    std::atomic<bool> ended_ = false;
    std::atomic<std::uint64_t> nextHops_ = 0;
    std::atomic<std::uint64_t> prefixes_ = 0;
    std::atomic<std::uint64_t> deleted_ = 0;
    Pel::Cli::GnmiStream stream_;
    std::jthread thread_;
};

/// An agent with two clients that parse.
class Watched {
public:
    Watched(const Setting& setting, const PrefixCounts& counts)
        : counts_{counts}, agent_{setting.programs, setting.root} {
        const std::uint16_t port = agent_.waitForPort();
        for (auto& client : clients_) { client = std::make_unique<ParsingClient>(port); }
    }

    /// Until both clients are told that they have all prefixes; they then have to have them.
    void waitUntilSynced() {
        waitUntil([](const ParsingClient& client) { return client.synced(); });
        for (const auto& client : clients_) {
            if (client->prefixes() < counts_.prefixes()) {
                throw std::runtime_error{"synced, but not all prefixes have come"};
            }
        }
    }
    void waitUntil(const std::function<bool(const ParsingClient&)>& done) {
        for (int i = 0;; ++i) {
            bool all = true;
            for (const auto& client : clients_) {
                if (client->ended()) { throw std::runtime_error{"a client's call has ended"}; }
                all = all && done(*client);
            }
            if (i % 20 == 0 || all) { peak_ = std::max(peak_, agent_.rssAnonBytes()); }
            if (all) { return; }
            std::this_thread::sleep_for(std::chrono::milliseconds{5});
        }
    }
    std::uint64_t nextHops(std::size_t client) const { return clients_[client]->nextHops(); }
    const AgentProcess& agent() const { return agent_; }
    void clientsGo() {
        for (auto& client : clients_) { client.reset(); }
    }

    /// Of the agent, from its start on.
    Json figures() const {
        return {{"rss_anon_bytes", agent_.rssAnonBytes()},
                {"rss_anon_peak_bytes", peak_},
                {"agent_cpu_s", static_cast<double>(agent_.cpuNanoseconds()) / 1e9}};
    }

private:
    PrefixCounts counts_;
    AgentProcess agent_;
    std::array<std::unique_ptr<ParsingClient>, 2> clients_;
    std::uint64_t peak_ = 0;
};

/// Two of them at once, to the end of their calls.
template <class Call>
double both(Call call) {
    const auto begun = Clock::now();
    {
        const std::jthread first{call};
        const std::jthread second{call};
    }
    return secondsSince(begun);
}

double parsedByTwo(std::uint16_t port) {
    const auto begun = Clock::now();
    std::array<std::unique_ptr<ParsingClient>, 2> clients;
    for (auto& client : clients) { client = std::make_unique<ParsingClient>(port, true); }
    for (const auto& client : clients) {
        while (!client->ended()) { std::this_thread::sleep_for(std::chrono::milliseconds{1}); }
    }
    return secondsSince(begun);
}

Json rawFigures(const Setting& setting, const PrefixCounts& counts) {
    const auto begun = Clock::now();
    const AgentProcess agent{setting.programs, setting.root};
    const std::uint16_t port = agent.waitForPort();
    both([&] { subscribeUntil(port, counts.entries()); });
    Json figures{{"start_raw_s", secondsSince(begun)}, {"rss_anon_bytes", agent.rssAnonBytes()}};
    const RawReply settled = subscribeOnce(port);
    const ReplayServer server{settled.bytes};
    figures["limit_raw_s"] = both([&] { subscribeOnce(server.port()); });
    figures["limit_parsing_s"] = parsedByTwo(server.port());
    figures["messages"] = settled.messages;
    figures["bytes"] = settled.bytes.size();
    return figures;
}

/// The agent starts on a filled store; then half of the next hops change, then all prefixes go.
Json filledFigures(const Setting& setting, const PrefixCounts& counts, Feed& feed) {
    Json figures;
    auto begun = Clock::now();
    Watched watched{setting, counts};
    watched.waitUntilSynced();
    figures["start_s"] = secondsSince(begun);
    figures["full"] = watched.figures();

    const std::array before{watched.nextHops(0), watched.nextHops(1)};
    const std::uint64_t seen = std::max(before[0], before[1]);
    feed.source.changeNextHops();
    begun = Clock::now();
    figures["change_write_s"] = feed.run();
    watched.waitUntil([&](const ParsingClient& client) {
        return client.nextHops() >= seen + counts.nextHops / 2;
    });
    figures["change_s"] = secondsSince(begun);

    feed.source.deletePrefixes();
    begun = Clock::now();
    figures["delete_write_s"] = feed.run();
    watched.waitUntil(
        [&](const ParsingClient& client) { return client.deleted() >= counts.prefixes(); });
    figures["delete_s"] = secondsSince(begun);
    figures["emptied"] = watched.figures();
    return figures;
}

/// The clients are there before the first record.
Json liveFigures(const Setting& setting, const PrefixCounts& counts) {
    Watched watched{setting, counts};
    Feed feed{setting.root, counts};
    const auto begun = Clock::now();
    Json figures{{"live_write_s", feed.run()}};
    watched.waitUntilSynced();
    figures["live_s"] = secondsSince(begun);
    figures["full"] = watched.figures();
    return figures;
}

}  // namespace

Json prefixFigures(const Setting& setting, const PrefixCounts& counts) {
    Setting filled = setting;
    filled.root = setting.root / "filled";
    Setting live = setting;
    live.root = setting.root / "live";
    enableExport(filled.root);
    enableExport(live.root);
    Json figures{{"ipv4", counts.ipv4},
                 {"ipv6", counts.ipv6},
                 {"next_hops", counts.nextHops},
                 {"groups", counts.groups()}};
    {
        Feed feed{filled.root, counts};
        figures["fill_s"] = feed.run();
        figures["raw"] = rawFigures(filled, counts);
        figures["filled"] = filledFigures(filled, counts, feed);
    }
    figures["live"] = liveFigures(live, counts);
    (void)Feed{live.root / "like", counts}.run();
    (void)Feed{live.root / "empty", {}}.run();
    figures["slices"] = sweptSlices(live, counts.groups());
    return figures;
}

}  // namespace Bench
