#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/Kiln/WalkMachine.h"

namespace {

using Set = std::set<int>;

Kiln::KeyCursor<int> cursor(const Set& set) {
    return [&set](const std::optional<int>& after) -> std::optional<int> {
        const auto it = after ? set.upper_bound(*after) : set.begin();
        return it == set.end() ? std::nullopt : std::optional<int>{*it};
    };
}

std::vector<int> drawAll(Kiln::Backlog<int>& backlog) {
    std::vector<int> keys;
    while (const auto key = backlog.draw()) { keys.push_back(*key); }
    return keys;
}

TEST(Backlog, AnEmptyOneDrawsNothingAndHasNoBookmark) {
    Kiln::Backlog<int> backlog;
    EXPECT_TRUE(backlog.empty());
    EXPECT_EQ(backlog.draw(), std::nullopt);
    EXPECT_EQ(backlog.bookmark(), std::nullopt);
}

TEST(Backlog, AnEmptyCollectionIsNothingToDo) {
    Kiln::Backlog<int> backlog;
    const Set none;
    backlog.addAll(cursor(none));
    EXPECT_TRUE(backlog.empty());
}

TEST(Backlog, InsertSaysWhetherTheKeyIsNew) {
    Kiln::Backlog<int> backlog;
    EXPECT_TRUE(backlog.insert(1));
    EXPECT_FALSE(backlog.insert(1));
    EXPECT_TRUE(backlog.has(1));
    backlog.erase(1);
    EXPECT_FALSE(backlog.has(1));
    EXPECT_TRUE(backlog.empty());
}

TEST(Backlog, ACollectionAddedInTheMiddleIsDrawnOneWholeRound) {
    Kiln::Backlog<int> backlog;
    const Set all{10, 20, 30, 40};
    backlog.insert(20);
    backlog.draw();
    backlog.addAll(cursor(all));
    EXPECT_EQ(drawAll(backlog), (std::vector<int>{30, 40, 10, 20}));
}

TEST(Backlog, TwoCollectionsAddedAtDifferentPlacesEndWhereEachBegan) {
    Kiln::Backlog<int> backlog;
    const Set tens{10, 20, 30, 40};
    const Set fives{5, 15, 25, 35};
    backlog.addAll(cursor(tens));
    EXPECT_EQ(backlog.draw(), 10);
    EXPECT_EQ(backlog.draw(), 20);
    backlog.addAll(cursor(fives));
    EXPECT_EQ(drawAll(backlog), (std::vector<int>{25, 30, 35, 40, 5, 15}));
}

TEST(Backlog, IsNotEmptyBeforeACollectionHasBeenDrawnToItsEnd) {
    Kiln::Backlog<int> backlog;
    const Set all{1, 2};
    backlog.addAll(cursor(all));
    EXPECT_FALSE(backlog.empty());
    backlog.draw();
    EXPECT_FALSE(backlog.empty());
    backlog.draw();
    EXPECT_TRUE(backlog.empty());
}

TEST(Backlog, ClearForgetsCollectionsTooAndKeepsTheBookmark) {
    Kiln::Backlog<int> backlog;
    const Set all{1, 2};
    backlog.addAll(cursor(all));
    backlog.draw();
    backlog.insert(7);
    backlog.clear();
    EXPECT_TRUE(backlog.empty());
    EXPECT_EQ(backlog.bookmark(), 1);
}

/// The same as words: a key waits singly, or because a sweep has still to come by it. A sweep comes
/// by every key once, beginning behind the bookmark.
class Oracle {
public:
    static constexpr int kKeys = 24;

    void insert(int key) { keys_.insert(key); }
    void erase(int key) { keys_.erase(key); }
    void clear() {
        keys_.clear();
        sweeps_.clear();
    }
    void addAll(const Set& set) {
        Sweep sweep{&set, {}};
        for (int key = 0; key < kKeys; ++key) { sweep.toCome.insert(key); }
        sweeps_.push_back(sweep);
    }
    bool waits(int key) const {
        return keys_.contains(key) ||
               std::any_of(sweeps_.begin(), sweeps_.end(), [key](const Sweep& sweep) {
                   return sweep.toCome.contains(key) && sweep.set->contains(key);
               });
    }
    bool empty() const {
        for (int key = 0; key < kKeys; ++key) {
            if (waits(key)) { return false; }
        }
        return true;
    }
    std::optional<int> draw() {
        const int begin = bookmark_ ? *bookmark_ + 1 : 0;
        for (int i = 0; i < kKeys; ++i) {
            const int key = (begin + i) % kKeys;
            if (!waits(key)) { continue; }
            for (int passed = 0; passed <= i; ++passed) {
                for (Sweep& sweep : sweeps_) { sweep.toCome.erase((begin + passed) % kKeys); }
            }
            keys_.erase(key);
            bookmark_ = key;
            return key;
        }
        sweeps_.clear();
        return std::nullopt;
    }

private:
    struct Sweep {
        const Set* set;
        Set toCome;
    };
    Set keys_;
    std::vector<Sweep> sweeps_;
    std::optional<int> bookmark_;
};

class BacklogOracle : public testing::TestWithParam<unsigned> {};

TEST_P(BacklogOracle, DrawsWhatWaitsInCircularOrderWhateverHappensUnderTheWalk) {
    std::mt19937 random{GetParam()};
    const auto pick = [&random](int below) {
        return static_cast<int>(random() % static_cast<unsigned>(below));
    };
    Kiln::Backlog<int> backlog;
    Oracle oracle;
    Set collections[3];
    for (int step = 0; step < 4000; ++step) {
        const int key = pick(Oracle::kKeys);
        Set& collection = collections[pick(3)];
        switch (pick(20)) {
            case 0:
                backlog.addAll(cursor(collection));
                oracle.addAll(collection);
                break;
            case 1:
            case 2:
                backlog.insert(key);
                oracle.insert(key);
                break;
            case 3:
                backlog.erase(key);
                oracle.erase(key);
                break;
            case 4:
            case 5:
            case 6:
                // As in life: a key that comes is told, and so waits by itself too.
                collection.insert(key);
                backlog.insert(key);
                oracle.insert(key);
                break;
            case 7:
            case 8:
                collection.erase(key);
                break;
            case 9:
                if (pick(20) == 0) {
                    backlog.clear();
                    oracle.clear();
                }
                break;
            default:
                ASSERT_EQ(backlog.draw(), oracle.draw()) << "step " << step;
        }
        if (pick(2) == 0) { ASSERT_EQ(backlog.empty(), oracle.empty()) << "step " << step; }
    }
    std::vector<int> rest;
    while (const auto key = oracle.draw()) { rest.push_back(*key); }
    EXPECT_EQ(drawAll(backlog), rest);
    EXPECT_TRUE(backlog.empty());
}

INSTANTIATE_TEST_SUITE_P(, BacklogOracle, testing::Range(1U, 51U));

}  // namespace
