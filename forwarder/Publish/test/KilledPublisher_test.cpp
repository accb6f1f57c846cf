#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "forwarder/Flatten/test/FlattenBed.h"
#include "forwarder/Publish/Publish.h"
#include "forwarder/Scenario/test/StoreView.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Writer.h"
#include "test/support/KillPoint.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {
namespace {

namespace KillPoint = TestSupport::KillPoint;
using KillPoint::Fate;

/// The publishing run that is killed: links, VRFs, groups, routes of both families come, change and
/// go, in several transactions.
class PublishingRun {
public:
    static constexpr int kSteps = 5;

    explicit PublishingRun(const Store::Options& options) {
        std::string error;
        auto environment = Store::Environment::open(options, Store::Access::write, error);
        if (environment == nullptr) { return; }
        writer_ = std::make_unique<Store::Writer>(std::move(environment));
        publish_ = std::make_unique<Publish>(bed_.flatten, *writer_, clock_);
    }
    bool open() { return publish_ != nullptr && publish_->open().empty(); }
    /// Publishes until nothing is left; `committed` comes after each transaction.
    template <class Committed>
    void publish(Committed committed) {
        bool more = true;
        while (more) {
            const auto before = publish_->statistics().transactions;
            more = publish_->run([] { return true; });
            if (publish_->statistics().transactions != before) { committed(); }
        }
    }
    void publish() {
        publish([] {});
    }
    void step(int number) {
        switch (number) {
            case 0:
                bed_.link(1, "e1");
                bed_.link(2, "e2");
                bed_.neighbour(1, "10.0.1.2", 0x12);
                bed_.nexthop(101, "10.0.1.2", 1);
                bed_.nexthop(102, "10.0.2.2", 2);
                bed_.group(200, {{101, 3}, {102, 1}});
                bed_.add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
                bed_.add(FlattenBed::nhidRoute("2001:db8::/32", 200));
                break;
            case 1:
                bed_.vrf(9, "red", 1001);
                red("192.0.9.0/24", 101);
                red("192.0.10.0/24", 102);
                bed_.neighbour(2, "10.0.2.2", 0x22);
                break;
            case 2:
                bed_.group(200, {{102, 7}});
                bed_.del(FlattenBed::nhidRoute("2001:db8::/32", 200));
                bed_.neighbour(1, "10.0.1.2", 0x13);
                break;
            case 3:
                for (std::uint32_t i = 0; i < 4; ++i) {
                    const std::string text = std::to_string(i);
                    bed_.add(FlattenBed::route("198.51." + text + ".0/24",
                                               {FlattenBed::path("10.0.1." + text, 1, i + 1)}));
                }
                break;
            default:
                bed_.fib.linkDel(9);
                bed_.del(FlattenBed::route("198.51.0.0/24", {}));
                bed_.group(200, {{101, 1}, {102, 7}});
                break;
        }
    }
    /// All of it, from an empty model.
    void all() {
        for (int number = 0; number < kSteps; ++number) {
            step(number);
            publish();
        }
    }

private:
    void red(const std::string& prefix, std::uint32_t nexthop) {
        Route route = FlattenBed::nhidRoute(prefix, nexthop);
        route.table = 1001;
        bed_.add(route);
    }
    FlattenBed bed_;
    Kiln::VirtualClock clock_;
    std::unique_ptr<Store::Writer> writer_;
    std::unique_ptr<Publish> publish_;
};

using Lines = std::vector<std::string>;

/// A commit ends with the bell, which is one byte; everything else that is written is longer.
bool isBell(const KillPoint::Write& write) {
    return write.bytes == 1;
}

/// Everything that a reader sees, readiness included.
Lines everything(StoreView& view) {
    Lines lines = view.everything();
    lines.push_back("FECs ready: " + view.fecReady());
    for (const char* vrf : {"default", "red"}) {
        lines.push_back(vrf + (" ready: " + view.fibReady(vrf)));
    }
    for (const std::uint32_t id : {254U, 1001U}) {
        lines.push_back("VRF " + std::to_string(id) + ": " + view.vrfName(id));
    }
    return lines;
}

/// The same with next hops named by what they are, since numbers and slots depend on the past.
Lines withoutNumbers(StoreView& view) {
    std::map<std::string, std::string> nextHops;  // number to record
    Lines lines;
    for (std::string line : everything(view)) {
        if (line.starts_with("next hop ")) {
            const auto number = line.substr(9, line.find(' ', 9) - 9);
            const auto group = line.substr(10 + number.size());
            const auto record = group.substr(group.find("] ") + 2);
            nextHops[number] = record;
            lines.push_back("next hop of " + group.substr(0, group.find('[')) + ": " + record);
        } else if (line.starts_with("FEC ")) {
            Lines members;
            std::string rest = line.substr(line.find(": ") + 2) + " ";
            for (auto end = rest.find(' '); end != std::string::npos; end = rest.find(' ')) {
                const std::string member = rest.substr(0, end);
                const auto weight = member.find('w');
                members.push_back(nextHops[member.substr(0, weight)] + member.substr(weight));
                rest.erase(0, end + 1);
            }
            std::sort(members.begin(), members.end());
            line.erase(line.find(": "));
            for (const std::string& member : members) { line += " | " + member; }
            lines.push_back(line);
        } else if (line.starts_with("counter of ")) {
            const auto number = line.substr(line.rfind(' ') + 1);
            lines.push_back(line.substr(0, line.find('[')) + ": " + nextHops[number]);
        } else {
            lines.push_back(line);
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class KilledPublisherTest : public testing::Test {
protected:
    Store::Options optionsOf(const std::string& name) const {
        Store::Options options;
        options.directory = dir.path() / name;
        options.mapBytes = std::size_t{16} << 20;
        return options;
    }
    /// What a reader may ever see, by the position of the change log: the store after each
    /// transaction of an undisturbed run.
    std::map<Store::Sequence, Lines> committedStates() {
        std::map<Store::Sequence, Lines> states;
        const Store::Options options = optionsOf("reference");
        PublishingRun run{options};
        StoreView view{options};
        const auto note = [&] {
            view.look();
            states[view.position()] = everything(view);
        };
        note();
        EXPECT_TRUE(run.open());
        note();
        for (int number = 0; number < PublishingRun::kSteps; ++number) {
            run.step(number);
            run.publish(note);
        }
        final = withoutNumbers(view);
        return states;
    }
    /// A forwarder in a process of its own, which dies at a write or ends with 0. Its process.
    static pid_t start(const Store::Options& options,
                       const std::function<Fate(const KillPoint::Write&)>& fate) {
        const pid_t child = ::fork();
        if (child != 0) { return child; }
        KillPoint::onWriteIs(fate);
        PublishingRun run{options};
        if (!run.open()) { ::_exit(1); }
        run.all();
        ::_exit(0);
    }
    static int endOf(pid_t child) {
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    TestSupport::TempDir dir;
    Lines final;
};

/// Where a run is killed: before each write, and halfway in each system call that writes.
struct Point {
    std::string_view name;
    Fate fate;
    bool records;  // whether those put into a transaction count
};
void PrintTo(const Point& point, std::ostream* to) {
    *to << point.name;
}

class AtEveryWrite : public KilledPublisherTest, public testing::WithParamInterface<Point> {
protected:
    static bool counts(const KillPoint::Write& write) {
        return GetParam().records || write.bytes > 0;
    }
    /// Kills at a write, from 1, of the commit after this many; none, if that has fewer.
    static pid_t startAndKillAt(const Store::Options& options, int commits, int number) {
        return start(options, [commits, number](const auto& write) mutable {
            const bool hit = commits == 0 && counts(write) && --number == 0;
            if (isBell(write)) { --commits; }
            return hit ? GetParam().fate : Fate::goOn;
        });
    }
};

TEST_P(AtEveryWrite, ReadersSeeCommittedStatesOnlyAndTheNextForwarderMakesItGood) {
    const auto states = committedStates();
    ASSERT_GT(states.size(), 8U);
    std::map<Store::Sequence, Lines> seen;
    // How many writes a commit takes is not fixed: pages that a reader holds are not used again.
    // So they count from the commit before.
    int runs = 0;
    for (int commits = 0, number = 1;; ++number) {
        ++runs;
        SCOPED_TRACE("killed at write " + std::to_string(number) + " after commit " +
                     std::to_string(commits));
        const Store::Options options = optionsOf(std::to_string(runs));
        StoreView view{options};
        Store::Sequence last = 0;
        // Called in the slice that has told everything: keys and records of one moment.
        Vel::Subscription onCaughtUp = view.reader()->onCaughtUp().subscribe([&] {
            EXPECT_GE(view.position(), last) << "goes back";
            last = view.position();
            seen[last] = everything(view);
            EXPECT_TRUE(states.contains(last)) << "a state inside a transaction, at " << last;
            if (states.contains(last)) { EXPECT_EQ(seen[last], states.at(last)); }
        });
        const pid_t child = startAndKillAt(options, commits, number);
        int status = 0;
        while (::waitpid(child, &status, WNOHANG) == 0) { view.look(); }
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        ASSERT_TRUE(killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
        view.look();
        // As far as another one gets that comes only now.
        StoreView late{options};
        ASSERT_EQ(late.position(), view.position());
        ASSERT_EQ(everything(late), everything(view));
        onCaughtUp = Vel::Subscription{};  // what follows is another run
        ASSERT_EQ(endOf(start(options, nullptr)), 0) << "the next one";
        view.look();
        ASSERT_EQ(withoutNumbers(view), final);
        std::filesystem::remove_all(options.directory);
        if (testing::Test::HasFailure() || (!killed && number == 1)) { break; }
        if (!killed) {
            ++commits;
            number = 0;
        }
    }
    EXPECT_GT(runs, GetParam().records ? 100 : 20);
    EXPECT_EQ(seen, states) << "each of them was the last one of some run";
}

INSTANTIATE_TEST_SUITE_P(,
                         AtEveryWrite,
                         testing::Values(Point{"Before", Fate::dieBefore, true},
                                         Point{"Halfway", Fate::dieHalfway, false}),
                         [](const auto& row) { return std::string{row.param.name}; });

TEST_F(KilledPublisherTest, BetweenCommitAndBellTheChangeIsSeenByTheLookOfOnceASecond) {
    const Store::Options options = optionsOf("store");
    const auto states = committedStates();
    {
        PublishingRun run{options};
        ASSERT_TRUE(run.open());
    }
    StoreView view{options};
    const Store::Sequence before = view.position();
    ASSERT_EQ(endOf(start(options,
                          [](const KillPoint::Write& write) {
                              return isBell(write) ? Fate::dieBefore : Fate::goOn;
                          })),
              -SIGKILL);
    view.hear();
    EXPECT_EQ(view.position(), before) << "nobody has rung";
    view.look();
    EXPECT_GT(view.position(), before);
    ASSERT_TRUE(states.contains(view.position()));
    EXPECT_EQ(everything(view), states.at(view.position()));
}

}  // namespace
}  // namespace Pel::Forwarder
