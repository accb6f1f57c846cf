#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "forwarder/Flatten/test/FlattenBed.h"
#include "forwarder/Publish/Publish.h"
#include "forwarder/Scenario/test/StoreView.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A forwarder whose store has no room for what the source has to say.
class FullStoreTest : public testing::Test {
protected:
    explicit FullStoreTest(std::size_t mapBytes = std::size_t{2} << 20) {
        options.directory = dir.path() / "store";
        options.mapBytes = mapBytes;
    }
    void start() {
        std::string error;
        auto environment = Store::Environment::open(options, Store::Access::write, error);
        ASSERT_NE(environment, nullptr) << error;
        writer = std::make_unique<Store::Writer>(std::move(environment));
        publish = std::make_unique<Publish>(bed.flatten, *writer, clock);
        ASSERT_EQ(publish->open(), "");
        bed.link(1, "e1");
    }
    void settle() {
        while (publish->run([] { return false; })) {}
    }
    void settleAfterASecond() {
        clock.advance(std::chrono::seconds{1});
        settle();
    }
    /// Each has a FEC and a next hop of its own.
    void routes(int first, int count, bool there) {
        for (int i = first; i < first + count; ++i) {
            const std::string middle = std::to_string(i / 250) + "." + std::to_string(i % 250);
            const Route route = FlattenBed::route("198." + middle + ".0/24",
                                                  {FlattenBed::path("10." + middle + ".1", 1)});
            there ? bed.add(route) : bed.del(route);
        }
    }
    void red(std::uint32_t table, const std::string& prefix, const std::string& gateway) {
        Route route = FlattenBed::route(prefix, {FlattenBed::path(gateway, 1)});
        route.table = table;
        bed.add(route);
    }
    /// Whoever reads now finds the group of each route, and the next hops of each group.
    void expectWhole() {
        StoreView view{options};
        std::set<std::string> fecs;
        std::set<std::string> nextHops;
        std::set<std::string> named;
        for (const std::string& line : view.everything()) {
            std::istringstream words{line};
            std::vector<std::string> word{std::istream_iterator<std::string>{words}, {}};
            if (line.starts_with("next hop ")) { nextHops.insert(word[2]); }
            if (line.starts_with("default ")) { named.insert(word[2]); }
            if (!line.starts_with("FEC ")) { continue; }
            fecs.insert(std::to_string(std::stoull(word[1]) & kFecNumberMask));
            const std::string& member = word.back();
            EXPECT_TRUE(nextHops.contains(member.substr(0, member.find('w')))) << line;
        }
        EXPECT_TRUE(std::includes(fecs.begin(), fecs.end(), named.begin(), named.end()));
    }
    std::size_t published() {
        StoreView view{options};
        std::size_t lines = 0;
        for (const std::string& line : view.everything()) {
            lines += line.starts_with("default 198.") ? 1 : 0;
        }
        return lines;
    }

    TestSupport::TempDir dir;
    Store::Options options;
    Kiln::VirtualClock clock;
    FlattenBed bed;
    std::unique_ptr<Store::Writer> writer;
    std::unique_ptr<Publish> publish;
};

TEST_F(FullStoreTest, RoutesWithdrawnWhileItStandsStillMakeRoomForTheOthers) {
    start();
    routes(0, 6000, true);
    settle();
    EXPECT_THAT(publish->failure(), HasSubstr("full: its limit of 2097152 bytes is reached"));
    EXPECT_FALSE(publish->ready()) << "not all has been said";
    const std::size_t before = published();
    EXPECT_GT(before, 0U);
    EXPECT_LT(before, 6000U);
    routes(1000, 5000, false);
    for (int seconds = 0; seconds < 60 && !publish->ready(); ++seconds) { settleAfterASecond(); }
    EXPECT_EQ(publish->failure(), "");
    EXPECT_TRUE(publish->ready());
    EXPECT_EQ(published(), 1000U);
    StoreView view{options};
    EXPECT_EQ(view.fecs(), 1000U);
    EXPECT_EQ(view.nextHops(), 1000U);
}

TEST_F(FullStoreTest, AllThatCameAndWentWhileItStoodStillLeavesNothing) {
    start();
    settle();
    ASSERT_TRUE(publish->ready());
    routes(0, 6000, true);
    settle();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    bed.vrf(9, "red", 1001);
    settleAfterASecond();
    bed.fib.linkDel(9);
    routes(0, 6000, false);
    for (int seconds = 0; seconds < 60; ++seconds) { settleAfterASecond(); }
    EXPECT_EQ(publish->failure(), "");
    StoreView view{options};
    EXPECT_THAT(view.everything(), IsEmpty());
    EXPECT_EQ(view.routeTables().size(), 2U) << "of the default VRF only";
}

TEST_F(FullStoreTest, WhatIsThereKeepsChangingWhileMoreDoesNotFit) {
    start();
    bed.neighbour(1, "10.0.0.1", 0x11);
    routes(0, 1, true);
    settle();
    routes(1, 6000, true);
    settle();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    routes(0, 1, false);
    for (int seconds = 0; seconds < 5; ++seconds) { settleAfterASecond(); }
    EXPECT_THAT(publish->failure(), HasSubstr("full"));
    EXPECT_EQ(StoreView{options}.route("default", "198.0.0.0/24"), "none")
        << "a withdrawn route does not wait for what does not fit";
}

TEST_F(FullStoreTest, AVrfWhoseTableChangesWhileItStandsStillHasTheRoutesOfTheNewTable) {
    start();
    bed.vrf(9, "red", 1001);
    red(1001, "203.0.113.0/24", "10.255.0.1");
    red(1001, "203.0.114.0/24", "10.255.0.1");
    settle();
    ASSERT_NE(StoreView{options}.route("red", "203.0.113.0/24"), "none");
    routes(0, 6000, true);
    settle();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    bed.fib.linkDel(9);
    bed.vrf(10, "red", 1002);
    red(1002, "203.0.113.0/24", "10.255.0.2");
    red(1002, "203.0.115.0/24", "10.255.0.2");
    settleAfterASecond();
    routes(0, 6000, false);
    for (int seconds = 0; seconds < 60; ++seconds) { settleAfterASecond(); }
    EXPECT_EQ(publish->failure(), "");
    StoreView view{options};
    EXPECT_EQ(view.vrfName(1001), "none");
    EXPECT_EQ(view.vrfName(1002), "red");
    EXPECT_NE(view.route("red", "203.0.113.0/24"), "none");
    EXPECT_EQ(view.route("red", "203.0.114.0/24"), "none");
    EXPECT_NE(view.route("red", "203.0.115.0/24"), "none");
    EXPECT_EQ(view.fibReady("red"), "true");
    EXPECT_EQ(view.fecs(), 1U);
}

TEST_F(FullStoreTest, AVrfRenamedWhileItStandsStillLeavesNothingOfItsOldName) {
    start();
    bed.vrf(9, "red", 1001);
    red(1001, "203.0.113.0/24", "10.255.0.1");
    settle();
    ASSERT_EQ(StoreView{options}.fibReady("red"), "true");
    routes(0, 6000, true);
    settle();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    bed.vrf(9, "blue", 1001);
    settleAfterASecond();
    routes(0, 6000, false);
    for (int seconds = 0; seconds < 60; ++seconds) { settleAfterASecond(); }
    EXPECT_EQ(publish->failure(), "");
    StoreView view{options};
    EXPECT_EQ(view.vrfName(1001), "blue");
    EXPECT_EQ(view.fibReady("red"), "none");
    EXPECT_EQ(view.fibReady("blue"), "true");
    EXPECT_THAT(view.routeTables(), Each(Not(HasSubstr("red"))));
    EXPECT_THAT(view.routeTables(), Contains("routing/vrf/status/blue"));
}

TEST_F(FullStoreTest, AVrfThatCameWhileItStoodStillIsSaidToBeReady) {
    start();
    settle();
    routes(0, 6000, true);
    settle();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    bed.vrf(9, "red", 1001);
    settleAfterASecond();
    EXPECT_NE(StoreView{options}.fibReady("red"), "true") << "not all has been said";
    routes(0, 6000, false);
    for (int seconds = 0; seconds < 60; ++seconds) { settleAfterASecond(); }
    EXPECT_EQ(publish->failure(), "");
    EXPECT_EQ(StoreView{options}.fibReady("red"), "true");
}

TEST_F(FullStoreTest, WithdrawnRoutesMakeRoomWithTheirGroupsAndNothingNamesWhatIsGone) {
    start();
    int there = 0;
    for (; publish->failure().empty() && there < 6000; there += 100) {
        routes(there, 100, true);
        settle();
    }
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    routes(there, there / 2, true);
    const std::string moves = "198.0.0.0/24";  // to a group that has to wait
    bed.add(FlattenBed::route(moves, {FlattenBed::path("10.255.0.1", 1)}));
    settleAfterASecond();
    ASSERT_THAT(publish->failure(), HasSubstr("full"));
    const int stay = there / 10;
    routes(stay, there - stay, false);
    for (int seconds = 0; seconds < 60 && !publish->failure().empty(); ++seconds) {
        clock.advance(std::chrono::seconds{1});
        for (int i = 1; publish->run([] { return true; }); ++i) {
            if (i % 20 == 0) {
                expectWhole();
            }  // a name of what is gone would last until all is written
        }
        expectWhole();
    }
    EXPECT_EQ(publish->failure(), "");
    expectWhole();
    StoreView view{options};
    EXPECT_EQ(published(), static_cast<std::size_t>(stay + there / 2));
    EXPECT_EQ(view.fecs(), static_cast<std::size_t>(stay + there / 2));
    EXPECT_EQ(view.nextHops(), static_cast<std::size_t>(stay + there / 2));
}

/// Runs in a child with a file system of its own, of 2 MB. The child's exit status; 99: not permitted.
int onSmallFileSystem(const std::filesystem::path& directory, const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=2m") != 0) {
            ::_exit(99);
        }
        ::_exit(body());
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class FullFileSystemTest : public FullStoreTest {
protected:
    FullFileSystemTest() : FullStoreTest{std::size_t{64} << 20} {}
};

TEST_F(FullFileSystemTest, IsToldAndServedFromAndPublishingGoesOnOnceThereIsSpace) {
    const int result = onSmallFileSystem(dir.path(), [this] {
        start();
        routes(0, 20, true);
        settle();
        if (!publish->ready() || published() != 20) { return 1; }
        const std::filesystem::path filler = dir.path() / "filler";
        const int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT, 0600);
        const std::string page(4096, 'x');
        while (::write(fd, page.data(), page.size()) > 0) {}
        ::close(fd);
        routes(20, 400, true);
        settle();
        if (publish->failure().find("file system full") == std::string::npos) { return 2; }
        if (!publish->wakeAt()) { return 3; }
        settleAfterASecond();
        if (publish->failure().empty()) { return 4; }
        if (published() < 20) { return 5; }
        std::filesystem::remove(filler);
        for (int seconds = 0; seconds < 5; ++seconds) { settleAfterASecond(); }
        if (!publish->failure().empty()) { return 6; }
        return published() == 420 ? 0 : 7;
    });
    if (result == 99) { GTEST_SKIP() << "needs the right to mount"; }
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace Pel::Forwarder
