// The judge on a stream of the real agent: clean as it was recorded, and every seeded fault is found by its own rule.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <thread>

#include "test/checker/AftSchema.h"
#include "test/checker/Play.h"
#include "test/checker/StockStream.h"
#include "test/checker/test/ChurnScenario.h"
#include "test/checker/test/Faults.h"
#include "test/processes/RunningSystem.h"
#include "test/support/TempDir.h"

namespace Checker {
namespace {

constexpr unsigned kSteps = 200;
constexpr std::size_t kEnough = 2500;  // messages; of 200 steps come about 3,700
constexpr std::chrono::seconds kPatience{120};
constexpr std::chrono::seconds kQuiet{2};

/// The forwarder plays the scenario, the agent exports, a stock client records; then a ONCE. The client is there when
/// everything is, or `fromTheStart`: before anything is.
class Recorded {
public:
    explicit Recorded(bool fromTheStart) {
        const std::string begin = file("begin.yaml", ChurnScenario::beginning());
        const std::string churn = file("churn.yaml", ChurnScenario::withChurn(kSteps));
        require(system_.startAgent());
        if (!fromTheStart) { playBeginning(begin); }
        recordChurn(churn);
        require(system_.stopForwarder());
        end = once();
    }

    Stream live;
    Stream end;

private:
    void playBeginning(const std::string& begin) {
        require(system_.startForwarder({"--scenario", begin}));
        // Everything is there before the recording begins: the prefixes come last.
        const bool published = TestProcesses::waitUntil(kPatience, [this] {
            require(system_.died());
            const Stream so = once();
            const auto entries = std::count_if(
                so.messages.begin(), so.messages.end(), [](const Stream::Message& message) {
                    return message.response.update().atomic();  // flags and summaries are not
                });
            return static_cast<std::size_t>(entries) >= ChurnScenario::entriesAtBeginning();
        });
        require(published ? "" : "the beginning was not exported in time");
        require(system_.stopForwarder());
    }
    /// Ends when nothing has come for a while after the last step: what waits for something else is told after it.
    void recordChurn(const std::string& churn) {
        using Clock = std::chrono::steady_clock;
        std::atomic<Clock::time_point> latest{Clock::now()};
        std::atomic<bool> marked = false;
        StockStream call;
        const std::jthread ender{[&](const std::stop_token& stop) {
            TestProcesses::waitUntil(kPatience, [&] {
                return stop.stop_requested() || (marked && Clock::now() > latest.load() + kQuiet);
            });
            call.cancel();
        }};
        live = record(call, false, [&](const Stream& so) {
            latest = Clock::now();
            const gnmi::SubscribeResponse& last = so.messages.back().response;
            if (last.has_sync_response()) {
                require(system_.startForwarder({"--scenario", churn}));
            }
            if (last.ShortDebugString().find(ChurnScenario::kMarker) != std::string::npos) {
                marked = true;
            }
        });
        require(marked ? "" : "no end of the churn");
    }
    std::string file(const char* name, const std::string& text) {
        const auto path = directory_.path() / name;
        std::ofstream{path} << text;
        return path.string();
    }
    static void require(const std::string& problem) {
        if (!problem.empty()) { throw std::runtime_error{problem}; }
    }
    template <class Take>
    Stream record(StockStream& call, bool isOnce, Take take) {
        Stream stream;
        stream.end = call.run({.server = system_.address(), .paths = {}, .once = isOnce},
                              [&](std::int64_t received, std::string_view bytes) {
                                  Stream::Message& message = stream.messages.emplace_back();
                                  message.received = received;
                                  message.response.ParseFromString(std::string{bytes});
                                  take(stream);
                                  return true;
                              });
        return stream;
    }
    Stream once() {
        StockStream call;
        return record(call, true, [](const Stream&) {});
    }

    TestSupport::TempDir directory_;
    TestProcesses::RunningSystem system_;
};

/// A machine that stood still for seconds has several changes of an entry become one: then once more.
std::unique_ptr<Recorded> makeRecorded(bool fromTheStart) {
    auto attempt = std::make_unique<Recorded>(fromTheStart);
    for (int i = 0; i < 3 && attempt->live.messages.size() < kEnough; ++i) {
        attempt = std::make_unique<Recorded>(fromTheStart);
    }
    return attempt;
}

const Recorded& recorded() {
    static const auto made = makeRecorded(false);
    return *made;
}

const Recorded& recordedFromTheStart() {
    static const auto made = makeRecorded(true);
    return *made;
}

std::string lines(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += finding.line() + "\n";
        if (text.size() > 4000) { break; }
    }
    return text;
}

TEST(RealStream, IsCleanThroughoutAndLeadsToTheTruth) {
    EXPECT_GE(recorded().live.messages.size(), kEnough);
    const auto findings =
        recorded().live.check({.quietEnd = true, .quietStart = true}, recorded().end);
    EXPECT_TRUE(findings.empty()) << lines(findings);
    const auto once = recorded().end.check({.quietEnd = true, .quietStart = true, .once = true});
    EXPECT_TRUE(once.empty()) << lines(once);
}

/// state-synced of IPv4 turns true in it, and its summaries count.
ReplayOptions whole() {
    return {.quietEnd = true, .beforeSynced = ChurnScenario::standing()};
}

TEST(RealStream, FromTheStartItIsCleanToo) {
    const auto findings = recordedFromTheStart().live.check(whole(), recordedFromTheStart().end);
    EXPECT_TRUE(findings.empty()) << lines(findings);
}

/// Index of the first live message with this leaf.
std::size_t messageWith(const Stream& stream, const std::string& path, bool value) {
    for (std::size_t i = 0; i < stream.messages.size(); ++i) {
        const gnmi::Notification& told = stream.messages[i].response.update();
        for (const gnmi::Update& update : told.update()) {
            Elems elems;
            append(elems, told.prefix());
            append(elems, update.path());
            if (pathText(elems) == path && update.val().bool_val() == value) { return i; }
        }
    }
    throw std::runtime_error{"no message with " + path};
}

std::string rulesOfWhole(const Stream& stream) {
    const auto findings = stream.check(whole());
    return rulesOf(findings) + (findings.empty() ? "" : ": " + lines(findings));
}

/// All that says true comes right after the sync: stamped so that only that is wrong with it.
TEST(SeededFaultOfTheWhole, AFlagThatComesTooEarlyIsFound) {
    Stream stream = recordedFromTheStart().live;
    const TablePlace table{"DEFAULT", List::ipv4};
    auto& messages = stream.messages;
    const std::size_t from = messageWith(stream, syncedPath(table), true);
    // Before the last one that it has to wait for.
    std::set<std::string> waited = ChurnScenario::standing();
    std::size_t to = 0;
    for (std::size_t i = 0; i < from && !waited.empty(); ++i) {
        Elems elems;
        append(elems, messages[i].response.update().prefix());
        if (waited.erase(pathText(elems)) > 0) { to = i; }
    }
    ASSERT_TRUE(waited.empty());
    ASSERT_GT(to, 0U);
    std::rotate(messages.begin() + static_cast<std::ptrdiff_t>(to),
                messages.begin() + static_cast<std::ptrdiff_t>(from),
                messages.begin() + static_cast<std::ptrdiff_t>(from) + 1);
    EXPECT_THAT(rulesOfWhole(stream), testing::StartsWith("flag-early: "));
}

TEST(SeededFaultOfTheWhole, AFlagThatNeverComesIsFound) {
    Stream stream = recordedFromTheStart().live;
    const std::size_t at = messageWith(stream, syncedPath({"DEFAULT", List::ipv4}), true);
    for (gnmi::Update& update : *stream.messages[at].response.mutable_update()->mutable_update()) {
        update.mutable_val()->set_bool_val(false);
    }
    EXPECT_THAT(rulesOfWhole(stream), testing::StartsWith("flag-missing: "));
}

TEST(SeededFaultOfTheWhole, ASummaryThatCountsWrongIsFound) {
    Stream stream = recordedFromTheStart().live;
    for (auto message = stream.messages.rbegin(); message != stream.messages.rend(); ++message) {
        if (!message->response.has_update()) { continue; }
        for (gnmi::Update& update : *message->response.mutable_update()->mutable_update()) {
            if (update.path().elem_size() == 0) { continue; }
            if (update.path().elem(update.path().elem_size() - 1).name() != "aft-entries") {
                continue;
            }
            update.mutable_val()->set_uint_val(update.val().uint_val() - 1);
            EXPECT_THAT(rulesOfWhole(stream), testing::StartsWith("summary-count: "));
            return;
        }
    }
    FAIL() << "there is no summary";
}

class SeededFault : public testing::TestWithParam<Fault> {};

TEST_P(SeededFault, IsFoundByItsRuleAlone) {
    Stream stream = recorded().live;
    ASSERT_TRUE(GetParam().seed(stream)) << "the stream has no place for it";
    const auto findings = stream.check({}, recorded().end);
    EXPECT_EQ(rulesOf(findings), ruleName(GetParam().rule)) << lines(findings);
}

INSTANTIATE_TEST_SUITE_P(, SeededFault, testing::ValuesIn(faults()), [](const auto& row) {
    return std::string{row.param.name};
});

}  // namespace
}  // namespace Checker
