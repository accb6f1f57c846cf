#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "forwarder/Kernel/test/Messages.h"
#include "forwarder/Publish/test/PublishBed.h"
#include "forwarder/Scenario/test/StoreView.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;

constexpr const char* kDefault4 = "routing/status";
constexpr const char* kDefault6 = "routing6/status";
constexpr const char* kRed4 = "routing/vrf/status/red";
constexpr const char* kRed6 = "routing6/vrf/status/red";

/// A kernel's state with the VRF red, and an agent's view of what is said of its route tables.
class QuiescedTest : public PublishBed {
protected:
    QuiescedTest() { tell(); }
    void tell() {
        bed->link(1, "e1");
        bed->vrf(9, "red", 1001);
        route("10.1.0.0/16");
        route("10.2.0.0/16", 1001);
        settle();
    }
    void route(const std::string& prefix, std::uint32_t table = 254) {
        Route route = FlattenBed::route(prefix, {FlattenBed::path("10.0.0.1", 1)});
        route.table = table;
        bed->add(route);
    }
    void pass(Kiln::Duration time) {
        clock.advance(time);
        settle();
    }
    /// The forwarder's process again, on the same store.
    void restart() {
        view_.reset();
        start();
        tell();
    }
    std::string said(const std::string& path) {
        if (view_ == nullptr) { view_ = std::make_unique<StoreView>(options); }
        view_->look();
        return view_->quiesced(path);
    }
    std::unique_ptr<StoreView> view_;
};

TEST_F(QuiescedTest, ATableIsQuiescedWhenNothingInItHasChangedForTheQuietTime) {
    ASSERT_TRUE(publish->ready());
    EXPECT_EQ(said(kDefault4), "none");
    pass(4999ms);
    EXPECT_EQ(said(kDefault4), "none");
    ASSERT_TRUE(publish->wakeAt().has_value());
    EXPECT_EQ(*publish->wakeAt() - clock.now(), 1ms);
    pass(1ms);
    for (const char* table : {kDefault4, kDefault6, kRed4, kRed6}) {
        EXPECT_EQ(said(table), "true") << table;
    }
    EXPECT_EQ(publish->wakeAt(), std::nullopt) << "nothing more to say";
}

TEST_F(QuiescedTest, AChangeMakesItsOwnTableWaitAndNoOther) {
    pass(4s);
    route("10.3.0.0/16", 1001);
    settle();
    pass(1s);
    EXPECT_EQ(said(kDefault4), "true");
    EXPECT_EQ(said(kDefault6), "true");
    EXPECT_EQ(said(kRed6), "true");
    EXPECT_EQ(said(kRed4), "none");
    pass(4s);
    EXPECT_EQ(said(kRed4), "true");
}

TEST_F(QuiescedTest, AWithdrawalIsAChange) {
    pass(4s);
    bed->del(FlattenBed::route("10.1.0.0/16", {FlattenBed::path("10.0.0.1", 1)}));
    pass(1s);
    EXPECT_EQ(said(kDefault4), "none");
    EXPECT_EQ(said(kRed4), "true");
}

TEST_F(QuiescedTest, ATableThatKeepsChangingIsNotSaidToBe) {
    for (int i = 0; i < 30; ++i) {
        route("10." + std::to_string(10 + i) + ".0.0/16");
        pass(1s);
        ASSERT_TRUE(publish->wakeAt().has_value());
        EXPECT_GT(*publish->wakeAt(), clock.now()) << "it is not waited for at every moment";
    }
    EXPECT_EQ(said(kDefault4), "none");
    EXPECT_EQ(said(kDefault6), "true");
    pass(5s);
    EXPECT_EQ(said(kDefault4), "true");
}

TEST_F(QuiescedTest, ChangesAfterItWasSaidDoNotTakeItBack) {
    pass(5s);
    ASSERT_EQ(said(kDefault4), "true");
    route("10.3.0.0/16");
    settle();
    EXPECT_EQ(said(kDefault4), "true");
}

TEST_F(QuiescedTest, WithoutAQuietTimeItIsSaidWhenAllHasBeenPublished) {
    view_.reset();
    quietTime = 0s;
    start();
    tell();
    EXPECT_TRUE(publish->ready());
    EXPECT_EQ(said(kDefault4), "true");
    EXPECT_EQ(said(kRed6), "true");
}

TEST_F(QuiescedTest, ManyTablesAreToldInTransactionsOfTheirOwnWithinOneRun) {
    for (std::uint32_t i = 0; i < 600; ++i) {
        bed->vrf(100 + i, "v" + std::to_string(i), 2000 + i);
    }
    settle();
    const auto before = publish->statistics().transactions;
    pass(5s);
    EXPECT_EQ(publish->statistics().transactions - before, 3U) << "of 512 tables at most";
    EXPECT_EQ(said(kDefault4), "true");
    for (int i = 0; i < 600; ++i) {
        const std::string name = std::to_string(i);
        EXPECT_EQ(said("routing/vrf/status/v" + name), "true") << i;
        EXPECT_EQ(said("routing6/vrf/status/v" + name), "true") << i;
    }
    EXPECT_EQ(publish->wakeAt(), std::nullopt);
}

TEST_F(QuiescedTest, WhatCouldNotBeWrittenIsTriedAgainASecondLaterAndNotBefore) {
    clock.advance(5s);
    writer->put(1, std::string(600, 'k'), "a key beyond what the store takes");
    settle();
    EXPECT_NE(publish->failure(), "");
    EXPECT_EQ(said(kDefault4), "none");
    ASSERT_TRUE(publish->wakeAt().has_value());
    EXPECT_EQ(*publish->wakeAt() - clock.now(), 1s);
    const auto transactions = publish->statistics().transactions;
    pass(999ms);
    EXPECT_EQ(publish->statistics().transactions, transactions);
    pass(1ms);
    EXPECT_EQ(publish->failure(), "");
    for (const char* table : {kDefault4, kDefault6, kRed4, kRed6}) {
        EXPECT_EQ(said(table), "true") << table;
    }
    EXPECT_EQ(publish->wakeAt(), std::nullopt);
}

TEST_F(QuiescedTest, ARestartLeavesItAsItIsAndWritesNothing) {
    pass(5s);
    ASSERT_EQ(said(kDefault4), "true");
    const auto before = view_->position();
    restart();
    pass(10s);
    EXPECT_EQ(said(kDefault4), "true");
    EXPECT_EQ(view_->position(), before);
}

TEST_F(QuiescedTest, ARestartBeforeItWasSaidBeginsToWaitAnew) {
    pass(4s);
    restart();
    pass(4s);
    EXPECT_EQ(said(kDefault4), "none");
    pass(1s);
    EXPECT_EQ(said(kDefault4), "true");
}

TEST_F(QuiescedTest, AVrfThatGoesAndComesAgainBeginsAnew) {
    pass(5s);
    bed->fib.linkDel(9);
    settle();
    EXPECT_EQ(said(kRed4), "none");
    bed->vrf(9, "red", 1001);
    pass(1s);
    EXPECT_EQ(said(kRed4), "none");
    pass(5s);
    EXPECT_EQ(said(kRed4), "true");
}

TEST_F(QuiescedTest, AVrfThatWentWhileItWaitedIsNotSpokenOf) {
    pass(4s);
    route("10.3.0.0/16", 1001);
    settle();
    bed->fib.linkDel(9);
    pass(1s);
    EXPECT_EQ(said(kDefault4), "true");
    EXPECT_EQ(publish->wakeAt(), std::nullopt) << "nobody waits for a table that has gone";
    pass(5s);
    EXPECT_EQ(said(kRed4), "none");
}

/// As an IPv4 route of a kernel with VRF devices: by the device with that number.
std::vector<std::byte> routeMessage(std::uint8_t secondByte, std::uint32_t table) {
    rtmsg header{};
    header.rtm_family = AF_INET;
    header.rtm_dst_len = 16;
    header.rtm_table = RT_TABLE_COMPAT;
    header.rtm_protocol = RTPROT_STATIC;
    header.rtm_type = RTN_UNICAST;
    return MessageBuilder(RTM_NEWROUTE, header)
        .put(RTA_TABLE, table)
        .put(RTA_DST, std::array<std::uint8_t, 4>{10, secondByte, 0, 0})
        .put(RTA_OIF, std::uint32_t{1})
        .bytes();
}

std::vector<std::byte> vrfMessage(int ifindex, const std::string& name, std::uint32_t table) {
    return MessageBuilder(RTM_NEWLINK, linkHeader(ifindex, IFF_UP))
        .text(IFLA_IFNAME, name)
        .begin(IFLA_LINKINFO)
        .text(IFLA_INFO_KIND, "vrf")
        .begin(IFLA_INFO_DATA)
        .put(1, table)
        .end()
        .end()
        .bytes();
}

TEST_F(QuiescedTest, TwoVrfsOfTheKernelAreReadyWithTheirRoutesAndQuiescedLater) {
    const std::vector<std::vector<std::byte>> download = {vrfMessage(20, "blue", 1002),
                                                          vrfMessage(21, "green", 1003),
                                                          routeMessage(7, 1002),
                                                          routeMessage(8, 1003)};
    for (const auto& datagram : download) {
        for (const RtMessage& message : decodeAll(datagram)) {
            if (const auto* link = std::get_if<Link>(&message.body)) { bed->fib.apply(*link); }
            if (const auto* route = std::get_if<Route>(&message.body)) { bed->add(*route); }
        }
    }
    settle();
    for (const char* vrf : {"blue", "green"}) {
        const std::string tail = std::string{"/vrf/status/"} + vrf;
        EXPECT_EQ(said("routing" + tail), "none");
        EXPECT_EQ(view_->fibReady(vrf), "true");
    }
    pass(4s);
    for (const RtMessage& message : decodeAll(routeMessage(9, 1003))) {
        bed->add(std::get<Route>(message.body));
    }
    settle();
    pass(1s);
    EXPECT_EQ(said("routing/vrf/status/blue"), "true");
    EXPECT_EQ(said("routing/vrf/status/green"), "none");
    EXPECT_EQ(said("routing6/vrf/status/green"), "true");
    pass(4s);
    EXPECT_EQ(said("routing/vrf/status/green"), "true");
}

/// A forwarder whose store has no room for what the source has to say.
class FullStoreQuiescedTest : public QuiescedTest {};

TEST_F(FullStoreQuiescedTest, NothingIsSaidBeforeAllHasBeenPublished) {
    view_.reset();
    start(std::size_t{1} << 20);
    for (int i = 0; i < 4000; ++i) {
        bed->add(FlattenBed::route(
            "198." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24",
            {FlattenBed::path(
                "10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".1", 1)}));
    }
    tell();
    ASSERT_NE(publish->failure(), "");
    for (int i = 0; i < 20; ++i) {
        pass(1s);
        ASSERT_TRUE(publish->wakeAt().has_value());
        EXPECT_EQ(*publish->wakeAt() - clock.now(), 1s) << "a table that is due is no reason";
    }
    EXPECT_FALSE(publish->ready());
    EXPECT_EQ(said(kDefault6), "none");
}

}  // namespace
}  // namespace Pel::Forwarder
