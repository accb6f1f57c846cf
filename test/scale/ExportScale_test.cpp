// The whole agent and a client over a store of any size.

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "forwarder/Publish/FlatStore.h"
#include "platform/Gale/Wire/test/WireClient.h"
#include "proto/gnmi.pb.h"
#include "test/scale/AgentOnStore.h"
#include "test/scale/Collector.h"
#include "test/support/Scale.h"

namespace Pel::Scale {
namespace {

const Forwarder::GeneratorOptions kNothing{};

/// As many next hops as the scale says, a quarter as many groups, and as many routes.
Forwarder::GeneratorOptions wholeScale() {
    return {TestSupport::scale(), TestSupport::scale() / 4, TestSupport::scale() / 4, 0, 1};
}

/// Agent and client on the test's thread, by turns; a task of the agent's scheduler keeps the client
/// talking while the agent works, so that it is never taken for dead. Waits have no bound but the test's own.
class ExportScale : public AgentOnStore {
protected:
    void SetUp() override {
        exportIs(true);
        publish(wholeScale());
        Forwarder::Generator generator{wholeScale()};
        for (Forwarder::Changes some; generator.describe(some, 512); some.clear()) {
            for (const auto& change : some) { expect(change, wanted); }
        }
        ASSERT_EQ(wanted.size(), TestSupport::scale() + TestSupport::scale() / 4 * 2);

        ASSERT_NO_FATAL_FAILURE(start());
        talk = std::make_unique<Kiln::Task>(host->scheduler(), "Client", 1, [this] {
            if (client) { (void)client->pump(); }
            talk->scheduleAfter(std::chrono::milliseconds{5});
            return false;
        });
        talk->schedule();
        while (host->agent()->gnmiPort() == 0) { host->scheduler()->runUntilIdle(); }
        constexpr std::uint16_t kInitialWindow = 4;
        client = std::make_unique<Gale::Wire::WireClient>(
            host->agent()->gnmiPort(), true, std::vector{setting(kInitialWindow, 0x7FFF'FFFF)});
        gnmi::SubscribeRequest request;
        request.mutable_subscribe()->set_mode(gnmi::SubscriptionList::STREAM);
        request.mutable_subscribe()->set_encoding(gnmi::PROTO);
        request.mutable_subscribe()->add_subscription()->set_mode(gnmi::ON_CHANGE);
        stream = client->open(Gale::Wire::WireClient::head("/gnmi.gNMI/Subscribe"));
        client->send(stream, request.SerializeAsString());
    }
    void TearDown() override {
        talk.reset();
        AgentOnStore::TearDown();
    }

    void exportChanges(bool enabled) {
        exportIs(enabled);
        bool read = false;
        AgentHost::CommandRequest request;
        request.command = "config reload";
        host->commands()->requestIs(request, [&read](const auto& /*answer*/) { read = true; });
        while (!read) { host->scheduler()->runUntilIdle(); }
    }

    void turn() {
        host->scheduler()->runUntilIdle();
        ASSERT_TRUE(client->pump());
        std::string& data = client->reply(stream).data;
        const std::size_t used = collector.take(data);
        data.erase(0, used);
        ASSERT_EQ(collector.fault, "");
        ASSERT_FALSE(client->reply(stream).ended) << client->reply(stream).trailer("grpc-message");
        if (used == 0) { return; }
        client->window(0, static_cast<std::uint32_t>(used));
        client->window(stream, static_cast<std::uint32_t>(used));
    }
    template <class Condition>
    void until(Condition reached) {
        while (!reached()) { ASSERT_NO_FATAL_FAILURE(turn()); }
    }
    void untilEverythingIsThere() {
        until([this] { return collector.synced && collector.entries.size() == wanted.size(); });
        EXPECT_EQ(difference(collector.entries, wanted), "");
    }
    static std::string contentOfTheFirst() {
        Forwarder::Generator generator{wholeScale()};
        Forwarder::Changes first;
        generator.describe(first, 3);
        return std::get<Forwarder::NextHopItem>(first[2]).content;
    }
    void untilNothingIsLeft() {
        until([this] { return collector.entries.empty(); });
    }

    static Gale::Wire::WireClient::Setting setting(std::uint16_t name, std::uint32_t value) {
        return {name, value};
    }

    Entries wanted;
    std::unique_ptr<Kiln::Task> talk;
    std::unique_ptr<Gale::Wire::WireClient> client;
    std::uint32_t stream = 0;
    Collector collector;
};

TEST_F(ExportScale, AClientHoldsWhatWasProgrammedThroughDisablingAndRemoval) {
    ASSERT_NO_FATAL_FAILURE(untilEverythingIsThere());
    exportChanges(false);
    ASSERT_NO_FATAL_FAILURE(untilNothingIsLeft());
    exportChanges(true);
    ASSERT_NO_FATAL_FAILURE(untilEverythingIsThere());
    publish(kNothing);
    ASSERT_NO_FATAL_FAILURE(untilNothingIsLeft());
    publish(wholeScale());
    ASSERT_NO_FATAL_FAILURE(untilEverythingIsThere());
}

TEST_F(ExportScale, AForwarderThatStartsAgainOverTheSameStateTellsNothing) {
    ASSERT_NO_FATAL_FAILURE(untilEverythingIsThere());
    const std::uint64_t before = collector.messages;
    publish(wholeScale());
    // What is told after it: the first next hop gets the second one's content.
    Forwarder::Generator generator{wholeScale()};
    Forwarder::Changes first;
    generator.describe(first, 4);
    const auto& one = std::get<Forwarder::NextHopItem>(first[2]);
    const auto& two = std::get<Forwarder::NextHopItem>(first[3]);
    {
        const auto to = writer(config.stateDirectory());
        Forwarder::FlatStore{*to, config.cellId}.nextHopIs(one.entry, two.content);
        ASSERT_EQ(to->commit(), "");
    }
    wanted["next-hop 1"] = wanted["next-hop 2"];
    ASSERT_NO_FATAL_FAILURE(
        until([this] { return collector.entries["next-hop 1"] == wanted["next-hop 1"]; }));
    EXPECT_EQ(collector.messages, before + 1);
    EXPECT_EQ(difference(collector.entries, wanted), "");
}

/// Next hops with counters, each with an id that no other ever had.
TEST_F(ExportScale, AsManyIdsAsThereAreComeAndGoAndTheAgentDoesNotGrow) {
    ASSERT_NO_FATAL_FAILURE(untilEverythingIsThere());
    constexpr std::uint64_t kRounds = 20;
    constexpr std::uint64_t kRemembered = 1U << 18U;  // latest entries that have gone, by the view
    const std::uint64_t inARound =
        std::max<std::uint64_t>(TestSupport::scale(), 2 * kRemembered) / kRounds;
    const std::string content = contentOfTheFirst();
    const auto to = writer(config.stateDirectory());
    Forwarder::FlatStore store{*to, config.cellId};
    std::vector<std::size_t> allocated;  // at the end of each round
    for (std::uint64_t round = 0; round < kRounds; ++round) {
        const std::uint64_t first = 2 * TestSupport::scale() + round * inARound;
        const auto forEach = [&](auto change) {
            for (std::uint64_t i = 0; i < inARound; ++i) {
                change(first + i);
                if (i % 128 == 127 || i + 1 == inARound) { ASSERT_EQ(to->commit(), ""); }
            }
        };
        ASSERT_NO_FATAL_FAILURE(forEach([&](std::uint64_t id) {
            const Stash::OcNextHopIndex index{id};
            store.nextHopIs({index, NexthopGroupId{id}, NexthopGroupEntryIndex{0}, {}}, content);
        }));
        ASSERT_NO_FATAL_FAILURE(
            until([&] { return collector.entries.size() == wanted.size() + inARound; }));
        const std::uint64_t before = collector.counters;
        ASSERT_NO_FATAL_FAILURE(forEach([&](std::uint64_t id) {
            store.counters().set(Forwarder::StoredCounters::Index{id}, {{id, 64 * id}, {}});
        }));
        ASSERT_NO_FATAL_FAILURE(until([&] { return collector.counters == before + inARound; }));
        ASSERT_NO_FATAL_FAILURE(forEach([&](std::uint64_t id) { store.nextHopDel(id); }));
        ASSERT_NO_FATAL_FAILURE(
            until([this] { return collector.entries.size() == wanted.size(); }));
        allocated.push_back(mallinfo2().uordblks);
    }
    EXPECT_EQ(difference(collector.entries, wanted), "");
    const std::uint64_t half = kRounds * 11 / 20;
    ASSERT_GE((half + 1) * inARound, kRemembered);
    const std::uint64_t since = (kRounds - half - 1) * inARound;
    std::printf("%lu ids: allocated %zu bytes after half of them, %zu after the last\n",
                kRounds * inARound,
                allocated[half],
                allocated.back());
    EXPECT_LE(allocated.back(), allocated[half] + since) << "less than a byte of each";
}

}  // namespace
}  // namespace Pel::Scale
