#include <utility>

#include "PelOpenConfig/test/CountersFixture.h"
#include "test/support/Scale.h"

namespace Pel::Oc {
namespace {

class CountersManyIds : public CountersFixture {};

/// Every next hop lives for a moment only, with links and counters; nothing may be left of it.
TEST_F(CountersManyIds, ManyIdsThatComeAndGoLeaveNothingBehind) {
    begin();
    const std::uint64_t ids = TestSupport::scale();
    constexpr std::uint64_t kAtOnce = 200;
    std::size_t handedOver = 0;
    for (std::uint64_t first = 1; first <= ids; first += kAtOnce) {
        for (std::uint64_t id = first; id < first + kAtOnce; ++id) {
            nextHopIs(id);
            if (id % 5 != 0) { counterKeyIs(nhgeck(id), id); }
        }
        publish();
        for (std::uint64_t id = first; id < first + kAtOnce; ++id) { counterIs(id, id, 1); }
        tunnelIs(5, {1, 1}, first + kAtOnce);  // of next hops that come, and one that never does
        counterIs(tunnelIndex(5), {first, 1});
        publish();
        ASSERT_EQ(nextHopCounterSet->size(), kAtOnce * 4 / 5);
        for (std::uint64_t id = first; id < first + kAtOnce; ++id) {
            nextHopDel(id);
            counterKeyDel(nhgeck(id));
            counterDel(id);
        }
        publish();
        handedOver += std::exchange(passed, {}).size();
    }
    EXPECT_GE(handedOver, ids * 4 / 5);
    expectMapEmpty();
    EXPECT_EQ(nextHopSet->size(), 0U);
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
    EXPECT_LE(sut->nhCounters().size(), 2U) << "of next hops that have not come";
    EXPECT_TRUE(counters->backlogEmpty());
    EXPECT_EQ(counterTable->keys().size(), 1U);
}

}  // namespace
}  // namespace Pel::Oc
