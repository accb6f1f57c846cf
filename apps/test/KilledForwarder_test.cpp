#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "PelOpenConfig/PelOpenConfigAgent.h"
#include "forwarder/Flatten/test/FlattenBed.h"
#include "forwarder/Publish/Publish.h"
#include "model/Registration.h"
#include "model/Tolo/Config.h"
#include "platform/AgentHost/Host.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Store/Writer.h"
#include "test/support/KillPoint.h"
#include "test/support/TempDir.h"

// The whole of it: an agent in this process over a store whose forwarder is killed again and again.

namespace {

namespace KillPoint = TestSupport::KillPoint;
using Pel::Forwarder::FlattenBed;

constexpr int kKills = 20;
constexpr int kRoutes = 60;

/// The routing state of a round: routes and groups that come, go and change their next hops.
void describe(FlattenBed& bed, int round) {
    std::mt19937 random{static_cast<unsigned>(round)};
    const auto below = [&random](unsigned limit) {
        return static_cast<unsigned>(random() % limit);
    };
    for (unsigned link = 1; link <= 4; ++link) {
        bed.link(link, "e" + std::to_string(link), below(8) != 0, true);
    }
    for (unsigned i = 0; i < 12; ++i) {
        bed.neighbour(
            1 + i % 4, "10.0.0." + std::to_string(i), static_cast<std::uint8_t>(below(3)));
    }
    for (int i = 0; i < kRoutes; ++i) {
        std::vector<Pel::Forwarder::Path> paths;
        const unsigned first = below(12);
        for (unsigned path = 0; path <= below(3); ++path) {
            const unsigned gateway = (first + path) % 12;
            paths.push_back(FlattenBed::path(
                "10.0.0." + std::to_string(gateway), 1 + gateway % 4, 1 + below(4)));
        }
        const auto route = FlattenBed::route("192.0." + std::to_string(i) + ".0/24", paths);
        below(3) != 0 ? bed.add(route) : bed.del(route);
    }
}

/// A group as "address@interface MAC weight" of each member.
using Groups = std::vector<std::vector<std::string>>;

std::string member(const std::string& address,
                   const std::string& interface,
                   const Nexo::EthAddr& mac,
                   std::uint32_t weight) {
    return address + "@" + interface + " " + mac.stringValue() + " w" + std::to_string(weight);
}

Groups sorted(Groups groups) {
    for (auto& group : groups) { std::sort(group.begin(), group.end()); }
    std::sort(groups.begin(), groups.end());
    return groups;
}

Groups groupsOf(FlattenBed& bed) {
    bed.settle();
    Groups groups;
    for (const auto& [id, fec] : bed.fecs) {
        auto& group = groups.emplace_back();
        for (const auto& each : fec.members) {
            const auto& nextHop = bed.nextHops.at(each.index);
            const Nexo::EthAddr mac = nextHop.mac.value_or(Nexo::EthAddr{});
            group.push_back(
                member(nextHop.address.stringValue(), nextHop.interfaceName, mac, each.weight));
        }
    }
    return sorted(groups);
}

/// Starts forwarders on request, each in a process of its own: forked before this process has any
/// thread but one.
class Forwarders {
public:
    struct Order {
        int round = 0;
        std::uint64_t killAt = 0;  // write; 0: ends by itself
    };
    explicit Forwarders(const Store::Options& options) {
        std::array<int, 2> orders{};
        std::array<int, 2> ends{};
        if (::pipe(orders.data()) != 0 || ::pipe2(ends.data(), O_NONBLOCK) != 0) { return; }
        supervisor_ = ::fork();
        if (supervisor_ == 0) {
            ::close(orders[1]);
            supervise(options, orders[0], ends[1]);
        }
        ::close(orders[0]);
        ::close(ends[1]);
        orders_ = orders[1];
        ends_ = ends[0];
    }
    Forwarders(const Forwarders&) = delete;
    Forwarders& operator=(const Forwarders&) = delete;
    ~Forwarders() {
        ::close(orders_);
        ::waitpid(supervisor_, nullptr, 0);
        ::close(ends_);
    }
    /// Starts one, and calls `meanwhile` until it has ended. How: exit status, or minus the signal.
    template <class Meanwhile>
    int run(const Order& order, Meanwhile meanwhile) {
        if (::write(orders_, &order, sizeof order) != ssize_t{sizeof order}) { return -1000; }
        int end = 0;
        while (::read(ends_, &end, sizeof end) < 0) { meanwhile(); }
        return end;
    }

private:
    [[noreturn]] static void supervise(const Store::Options& options, int orders, int ends) {
        Order order;
        while (::read(orders, &order, sizeof order) == ssize_t{sizeof order}) {
            const pid_t child = ::fork();
            if (child == 0) { forward(options, order); }
            int status = -1;
            ::waitpid(child, &status, 0);
            const int end = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
            if (::write(ends, &end, sizeof end) != ssize_t{sizeof end}) { break; }
        }
        ::_exit(0);
    }
    /// Publishes the state of the round, and then that of the next one if it is to be killed.
    [[noreturn]] static void forward(const Store::Options& options, const Order& order) {
        KillPoint::killAtIs(order.killAt);
        std::string error;
        Store::Writer writer{Store::Environment::open(options, Store::Access::write, error)};
        FlattenBed bed;
        const Kiln::VirtualClock clock;
        Pel::Forwarder::Publish publish{bed.flatten, writer, clock};
        if (!publish.open().empty()) { ::_exit(1); }
        for (int round = order.round;; ++round) {
            describe(bed, round);
            while (publish.run([] { return true; })) {}
            if (order.killAt == 0) { ::_exit(publish.ready() ? 0 : 2); }
        }
    }

    pid_t supervisor_ = -1;
    int orders_ = -1;
    int ends_ = -1;
};

class KilledForwarderTest : public testing::Test {
protected:
    KilledForwarderTest() {
        config.root = dir.path();
        config.gnmi.wire.port = 0;
        Store::Options configuration;
        configuration.directory = config.configurationDirectory();
        std::string error;
        Store::Writer writer{Store::Environment::open(configuration, Store::Access::write, error)};
        Hubdb::Publisher{writer}.entityIs(Tolo::Config::kPath,
                                          Tolo::Config::kType,
                                          Mesa::RecordCodec<Tolo::ConfigRecord>::encode({true}));
        EXPECT_EQ(writer.commit(), "");
        options.directory = config.stateDirectory();
        options.mapBytes = std::size_t{64} << 20;
        options.logCapacity = 500;  // the agent also falls behind now and then
    }
    const Pel::OcApi::AftContainer& exported() const {
        return *dynamic_cast<Pel::Oc::Agent&>(*host->agent()).aftContainer();
    }
    /// What the agent exports; a member without its next hop shows as such.
    Groups groups() const {
        Groups all;
        const auto& container = *exported().nextHopGroups();
        for (auto id = container.nextKey({}); id; id = container.nextKey(id)) {
            auto& group = all.emplace_back();
            for (const auto& each : container.nextHopGroup(*id)->nextHops) {
                const auto* const nextHop = exported().nextHops()->nextHop(each.index);
                group.push_back(nextHop == nullptr ? "dangling"
                                                   : member(nextHop->ipAddress.stringValue(),
                                                            nextHop->interface.stringValue(),
                                                            nextHop->macAddress,
                                                            each.weight));
            }
        }
        return sorted(all);
    }
    void pass(Kiln::Duration time) {
        clock.advance(time);
        host->scheduler()->runUntilIdle();
    }

    TestSupport::TempDir dir;
    AgentHost::HostConfig config;
    Store::Options options;
    Kiln::VirtualClock clock;
    std::unique_ptr<AgentHost::Host> host;
};

TEST_F(KilledForwarderTest, TheExportEqualsTheFinalStateAfterTwentyKills) {
    Forwarders forwarders{options};
    Pel::registerModelTypes();
    host = std::make_unique<AgentHost::Host>(config, clock, std::make_unique<Kiln::NeverYield>());
    ASSERT_EQ(host->open(), "");
    ASSERT_EQ(host->start(agentFactory), "");
    std::mt19937 random{2024};
    for (int kill = 0; kill < kKills; ++kill) {
        const std::uint64_t killAt = 1 + random() % 1500;
        SCOPED_TRACE("kill " + std::to_string(kill) + " at write " + std::to_string(killAt));
        ASSERT_EQ(forwarders.run({kill, killAt}, [this] { pass(std::chrono::milliseconds{10}); }),
                  -SIGKILL);
        pass(std::chrono::seconds{1});
        for (const auto& group : groups()) {
            EXPECT_EQ(std::count(group.begin(), group.end(), "dangling"), 0);
        }
    }
    ASSERT_EQ(forwarders.run({kKills, 0}, [this] { pass(std::chrono::milliseconds{10}); }), 0);
    pass(std::chrono::seconds{1});
    FlattenBed bed;
    describe(bed, kKills);
    const Groups expected = groupsOf(bed);
    EXPECT_GT(expected.size(), 10U);
    EXPECT_EQ(groups(), expected);
    EXPECT_EQ(exported().nextHops()->size(), bed.nextHops.size()) << "and none besides";
    host->stop();
    host.reset();
}

}  // namespace
