#include "platform/Gale/Journal.h"

#include "platform/Gale/Cursor.h"
#include "platform/Gale/test/JournalModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr EntryKey key(std::uint64_t n) {
    return {0, 0, n};
}
constexpr Reference nextHop(std::uint64_t n) {
    return {Lane::nextHops, key(n)};
}
constexpr Reference group(std::uint64_t n) {
    return {Lane::groups, key(n)};
}

std::string inWords(const CursorMessage& message) {
    if (message.kind == CursorMessage::Kind::sync) { return "sync"; }
    const std::string name = toString(Reference{message.lane, message.key});
    if (message.kind == CursorMessage::Kind::remove) { return "-" + name; }
    if (message.content.isValue()) { return name + "=" + std::to_string(message.content.value()); }
    return name + "=" + std::string{message.content.view()};
}

/// The next messages, one by one, at most `limit`.
std::vector<std::string> read(Cursor& cursor, std::size_t limit = 100'000) {
    std::vector<std::string> result;
    CursorMessage message;
    while (result.size() < limit) {
        const Cursor::Result got = cursor.next({&message, 1});
        if (got.count != 0) { result.push_back(inWords(message)); }
        if (got.count == 0 && got.state != Cursor::State::more) { break; }
    }
    return result;
}

std::size_t kept(const Journal& journal) {
    const JournalStatistics s = journal.statistics();
    std::size_t sum = 0;
    for (std::size_t i = 0; i < kLanes; ++i) { sum += s.changes[i] + s.tombstones[i]; }
    return sum;
}

class JournalTest : public testing::Test {
protected:
    void add(const Reference& entry, std::string_view bytes, std::vector<Reference> refs = {}) {
        journal.update(entry.lane, entry.key, bytes, 0, refs);
    }
    void remove(const Reference& entry) { journal.remove(entry.lane, entry.key, "gone"); }

    Journal journal;
};

TEST_F(JournalTest, InitialSetIsTheLanesInOrderEachInKeyOrderThenSync) {
    add({Lane::flags, key(1)}, "f");
    add({Lane::prefixes, key(1)}, "p");
    add(group(2), "g2");
    add(group(1), "g1");
    add(nextHop(9), "n9");
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor), ElementsAre("N9=n9", "G1=g1", "G2=g2", "P1=p", "F1=f", "sync"));
}

TEST_F(JournalTest, SyncIsSentEvenWhenNothingMatches) {
    add(nextHop(1), "n");
    Cursor cursor{journal,
                  {.lanes = kAllLanes, .matches = [](Lane, const EntryKey&) { return false; }}};
    EXPECT_THAT(read(cursor), ElementsAre("sync"));
    add(nextHop(1), "m");
    EXPECT_THAT(read(cursor), IsEmpty());
}

TEST_F(JournalTest, InitialSetEndsWhateverTheChurn) {
    for (std::uint64_t n = 1; n <= 10; ++n) { add(nextHop(n), "n"); }
    Cursor cursor{journal, {}};
    std::uint64_t fresh = 100;
    int messages = 0;
    for (std::vector<std::string> got = {""}; got != std::vector<std::string>{"sync"}; ++messages) {
        ASSERT_LT(messages, 200);
        for (int i = 0; i < 5; ++i) { add(nextHop(fresh++), "n"); }  // faster than the cursor
        got = read(cursor, 1);
        ASSERT_EQ(got.size(), 1U);
    }
}

TEST_F(JournalTest, EntryBornAfterTheWalkPassedGoesOutBeforeTheOneThatRefersToIt) {
    add(nextHop(1), "n1");
    add(group(1), "g", {nextHop(1)});
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor, 1), ElementsAre("N1=n1"));
    add(nextHop(2), "n2");
    add(group(1), "h", {nextHop(2)});
    EXPECT_THAT(read(cursor), ElementsAre("N2=n2", "G1=h", "sync"));
}

TEST_F(JournalTest, WhatChangedBehindTheWalkComesBeforeTheSync) {
    add(nextHop(1), "a");
    add(nextHop(2), "b");
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor, 1), ElementsAre("N1=a"));
    add(nextHop(1), "c");
    EXPECT_THAT(read(cursor), ElementsAre("N2=b", "N1=c", "sync"));
}

TEST_F(JournalTest, WhatWasSentAndRemovedDuringTheWalkIsDeletedBeforeTheSync) {
    add(nextHop(1), "a");
    add(nextHop(2), "b");
    add(nextHop(3), "c");
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor, 1), ElementsAre("N1=a"));
    remove(nextHop(1));
    remove(nextHop(2));  // never sent: no delete
    EXPECT_THAT(read(cursor), ElementsAre("N3=c", "-N1", "sync"));
}

TEST_F(JournalTest, LiveUpdatesGoLaneByLaneThenDeletesInReverse) {
    add(nextHop(1), "n1");
    add(group(1), "g1", {nextHop(1)});
    add(group(2), "g2", {nextHop(1)});
    Cursor cursor{journal, {}};
    read(cursor);
    {
        const Journal::Batch batch{journal};  // in the worst order
        remove(nextHop(1));
        remove(group(2));
        add(group(1), "h1", {nextHop(2)});
        add(nextHop(2), "n2");
    }
    EXPECT_THAT(read(cursor), ElementsAre("N2=n2", "G1=h1", "-G2", "-N1"));
}

TEST_F(JournalTest, OfSeveralRecordsOfAnEntryOnlyTheLastGoesOut) {
    Cursor cursor{journal, {}};
    read(cursor);
    const Journal::Batch* open = new Journal::Batch{journal};
    add(nextHop(1), "a");
    add(nextHop(1), "b");
    add(nextHop(1), "c");
    delete open;
    EXPECT_THAT(read(cursor), ElementsAre("N1=c"));
    EXPECT_EQ(cursor.statistics().coalesced, 2U);
}

TEST_F(JournalTest, AnEpochShowsTheStateAtItsHeadWhateverComesLater) {
    add(nextHop(1), "n1");
    add(group(1), "g", {nextHop(1)});
    Cursor cursor{journal, {}};
    read(cursor);
    {
        const Journal::Batch batch{journal};
        add(nextHop(2), "n2");
        add(group(1), "h", {nextHop(2)});
        remove(nextHop(1));
    }
    EXPECT_THAT(read(cursor, 1), ElementsAre("N2=n2"));
    remove(group(1));
    remove(nextHop(2));
    EXPECT_EQ(journal.statistics().overtaken, 1U);  // the group's content is still due
    EXPECT_THAT(read(cursor), ElementsAre("G1=h", "-N1", "-G1", "-N2"));
    EXPECT_EQ(kept(journal), 0U);
}

TEST_F(JournalTest, DeleteAndAddAgainEndsWithTheNewContent) {
    add(nextHop(1), "old");
    Cursor cursor{journal, {}};
    read(cursor);
    {
        const Journal::Batch batch{journal};
        remove(nextHop(1));
        add(nextHop(1), "new");
    }
    EXPECT_THAT(read(cursor), ElementsAre("N1=new"));
    remove(nextHop(1));
    add(nextHop(1), "new");  // in batches of their own: the delete has a head of its own
    EXPECT_THAT(read(cursor), ElementsAre("-N1", "N1=new"));
}

TEST_F(JournalTest, EntryThatWasNeverSentNeedsNoDelete) {
    Cursor cursor{journal, {}};
    read(cursor);
    {
        const Journal::Batch batch{journal};
        add(nextHop(1), "n");
        remove(nextHop(1));
    }
    EXPECT_EQ(kept(journal), 0U);
    EXPECT_THAT(read(cursor), IsEmpty());
}

TEST_F(JournalTest, EqualBytesAreNoChangeTimeStampAside) {
    int advances = 0;
    Journal counting{{.onAdvance = [&] { ++advances; }, .referenceOf = {}}};
    const auto put = [&](std::uint64_t stamp, std::uint64_t variant, std::vector<Reference> refs) {
        return counting.update(Lane::groups, key(1), encode(stamp, variant), kStampSize, refs);
    };
    EXPECT_TRUE(put(1, 1, {nextHop(1)}));
    EXPECT_FALSE(put(2, 1, {nextHop(1)}));
    EXPECT_EQ(counting.find(Lane::groups, key(1))->view(), encode(1, 1));
    EXPECT_EQ(advances, 1);
    EXPECT_TRUE(put(3, 2, {nextHop(1)}));
    EXPECT_TRUE(put(4, 2, {nextHop(2)}));  // other references are a change
    EXPECT_TRUE(counting.remove(Lane::groups, key(1), "gone"));
    EXPECT_FALSE(counting.remove(Lane::groups, key(1), "gone"));
    EXPECT_TRUE(put(5, 2, {nextHop(2)}));  // added again: new
    EXPECT_EQ(advances, 5);
}

TEST_F(JournalTest, PrefixesKeepKeyAndGroupId) {
    Journal values{{.onAdvance = {}, .referenceOf = [](std::uint64_t id) { return group(id); }}};
    values.update(Lane::groups, key(5), "g5");
    EXPECT_TRUE(values.updateValue(Lane::prefixes, key(1), 5, 1700));
    EXPECT_FALSE(values.updateValue(Lane::prefixes, key(1), 5, 1800));
    Cursor cursor{values, {}};
    EXPECT_THAT(read(cursor, 1), ElementsAre("G5=g5"));
    values.update(Lane::groups, key(6), "g6");
    EXPECT_TRUE(values.updateValue(Lane::prefixes, key(1), 6, 1900));
    EXPECT_THAT(read(cursor), ElementsAre("G6=g6", "P1=6", "sync"));
    EXPECT_EQ(values.find(Lane::prefixes, key(1))->stamp(), 1900);
}

TEST_F(JournalTest, AGroupWhoseMemberIsMissingIsShownAllTheSame) {
    add(group(1), "g", {nextHop(7)});
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor), ElementsAre("G1=g", "sync"));
}

TEST_F(JournalTest, GroupsThatReferToEachOtherInARingAreShown) {
    add(group(1), "a", {group(2)});
    add(group(2), "b", {group(1)});
    Cursor cursor{journal, {}};
    EXPECT_THAT(read(cursor), ElementsAre("G2=b", "G1=a", "sync"));
}

TEST_F(JournalTest, UpdatesOnlySendsSyncFirstThenChanges) {
    add(nextHop(1), "a");
    Cursor cursor{journal, {}, Cursor::Mode::updatesOnly};
    EXPECT_THAT(read(cursor), ElementsAre("sync"));
    add(nextHop(2), "b");
    remove(nextHop(1));
    EXPECT_THAT(read(cursor), ElementsAre("N2=b", "-N1"));
}

TEST_F(JournalTest, OnceEndsAfterSyncAndKeepsNothing) {
    add(nextHop(1), "a");
    Cursor cursor{journal, {}, Cursor::Mode::once};
    EXPECT_THAT(read(cursor), ElementsAre("N1=a", "sync"));
    add(nextHop(1), "b");
    EXPECT_EQ(kept(journal), 0U);
    CursorMessage message;
    EXPECT_EQ(cursor.next({&message, 1}).state, Cursor::State::ended);
    EXPECT_EQ(journal.statistics().cursors, 0U);
}

TEST_F(JournalTest, AFilterOfLanesKeepsNothingForTheOthers) {
    Cursor cursor{journal, {.lanes = maskOf(Lane::groups), .matches = {}}};
    read(cursor);
    add(nextHop(1), "n");
    add(group(1), "g", {nextHop(1)});
    EXPECT_EQ(kept(journal), 1U);
    EXPECT_THAT(read(cursor), ElementsAre("G1=g"));
}

TEST_F(JournalTest, MemoryIsBoundedByWhatWasAliveWhenTheSlowestStoppedReading) {
    constexpr std::uint64_t kEntries = 1000;
    for (std::uint64_t n = 0; n < kEntries; ++n) { add(nextHop(n), "n"); }
    Cursor stalled{journal, {}};
    Cursor live{journal, {}};
    read(stalled, 10);
    read(live);
    const std::int64_t before = SharedBytes::bytesAlive();
    for (std::uint64_t round = 1; round <= 50; ++round) {
        for (std::uint64_t n = 0; n < kEntries; ++n) {
            const std::uint64_t fresh = round * kEntries + n;
            remove(nextHop(fresh - kEntries));  // each key lives once
            add(nextHop(fresh), "n");
        }
        read(live);
    }
    // Alive 1,000, of which half a log may be dead, and a tombstone for each of the ten sent.
    EXPECT_LE(kept(journal), 2 * kEntries + 20 + 2 * LogShape{}.chunk);
    EXPECT_LE(SharedBytes::bytesAlive(), before + 10 * 64);
}

// A sanitizer has an allocator of its own, which does not tell.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
std::size_t heapBytes() {
    const struct mallinfo2 heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

constexpr std::uint64_t kMany = 400'000;

TEST_F(JournalTest, AnEntryOfAFewWordsTakesLittleMoreThanThemInWhateverOrderEntriesCome) {
    std::vector<std::uint64_t> order(kMany);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937_64{1});
    const std::size_t before = heapBytes();
    for (const std::uint64_t n : order) { journal.updateValue(Lane::prefixes, key(n), n, 0); }
    constexpr std::size_t kEntry = sizeof(EntryKey) + sizeof(JournalEntry);
    EXPECT_LE(heapBytes() - before, kMany * (kEntry * 5 / 4));
}

TEST_F(JournalTest, ACursorFarBehindCostsAKeyAndAPositionForEachEntry) {
    for (std::uint64_t n = 0; n < kMany; ++n) { journal.updateValue(Lane::prefixes, key(n), 1, 0); }
    const Cursor stalled{journal, {}, Cursor::Mode::updatesOnly};
    const std::size_t before = heapBytes();
    for (std::uint64_t n = 0; n < kMany; ++n) { journal.updateValue(Lane::prefixes, key(n), 2, 0); }
    EXPECT_EQ(kept(journal), kMany);
    EXPECT_LE(heapBytes() - before, kMany * 40);  // 32, and 64 for the newest 65,536
}
#endif

TEST_F(JournalTest, DroppingACursorFreesAllThatWasKeptOnlyForIt) {
    for (std::uint64_t n = 0; n < 1000; ++n) { add(nextHop(n), "n"); }
    Cursor live{journal, {}};
    read(live);
    {
        Cursor stalled{journal, {}};
        read(stalled);
        for (std::uint64_t n = 0; n < 1000; ++n) {
            n % 2 ? remove(nextHop(n)) : add(nextHop(n), "m");
        }
        read(live);
        EXPECT_EQ(kept(journal), 1000U);
        EXPECT_EQ(stalled.statistics().lag, 1000U);
    }
    EXPECT_EQ(kept(journal), 0U);
}

TEST_F(JournalTest, NoCursorNoLog) {
    add(nextHop(1), "a");
    add(nextHop(1), "b");
    remove(nextHop(1));
    EXPECT_EQ(kept(journal), 0U);
}

TEST_F(JournalTest, OneHoldHandsOutAtMost256Entries) {
    for (std::uint64_t n = 0; n < 1000; ++n) { add(nextHop(n), "n"); }
    Cursor cursor{journal, {}};
    std::vector<CursorMessage> out(1000);
    EXPECT_EQ(cursor.next(out).count, 256U);
    EXPECT_EQ(cursor.next(out).count, 256U);
}

TEST(JournalDeath, ACursorMayNotOutliveItsJournal) {
    EXPECT_DEATH(
        {
            auto* journal = new Journal;
            const Cursor cursor(*journal, {});
            delete journal;
        },
        "readers_.empty\\(\\)");
}

TEST(SharedBytesTest, OneAllocationIsSharedUntilTheLastGoes) {
    const std::int64_t before = SharedBytes::bytesAlive();
    {
        SharedBytes a = SharedBytes::copyOf("content", "annex");
        const std::int64_t one = SharedBytes::bytesAlive();
        const SharedBytes b = a;
        EXPECT_EQ(SharedBytes::bytesAlive(), one);
        a = SharedBytes{};
        EXPECT_EQ(b.view(), "content");
        EXPECT_EQ(b.annex(), "annex");
        EXPECT_FALSE(a);
    }
    EXPECT_EQ(SharedBytes::bytesAlive(), before);
}

/// A cursor that defers the contents of all entries.
class DeferringTest : public JournalTest {
protected:
    static constexpr auto kAll = [](Lane, const EntryKey&) { return true; };
    static CursorFilter deferring() {
        CursorFilter filter;
        filter.deferred = kAll;
        return filter;
    }
};

TEST_F(DeferringTest, ContentsComeWithARoundAndAllElseAtOnce) {
    add(nextHop(1), "a");
    add(nextHop(2), "a");
    Cursor cursor{journal, deferring()};
    read(cursor);
    add(nextHop(1), "b");
    add(nextHop(3), "a");
    remove(nextHop(2));
    EXPECT_THAT(read(cursor), ElementsAre("N3=a", "-N2"));
    cursor.resend({});
    EXPECT_TRUE(cursor.resending());
    EXPECT_THAT(read(cursor), ElementsAre("N1=b", "N3=a"));
    EXPECT_FALSE(cursor.resending());
    EXPECT_EQ(kept(journal), 0U);
}

TEST_F(DeferringTest, ANewReferenceIsToldAtOnceAlsoWhenItsContentWasOvertaken) {
    add(nextHop(1), "n");
    add(group(1), "a", {nextHop(1)});
    Cursor cursor{journal, deferring()};
    read(cursor);
    add(group(1), "b", {nextHop(1)});
    EXPECT_THAT(read(cursor), IsEmpty());
    add(nextHop(2), "n");
    add(group(1), "c", {nextHop(2)});
    add(group(1), "d", {nextHop(2)});
    remove(nextHop(1));
    EXPECT_THAT(read(cursor), ElementsAre("N2=n", "G1=d", "-N1"));
    add(group(1), "e", {nextHop(2)});
    EXPECT_THAT(read(cursor), IsEmpty()) << "told once";
}

TEST_F(DeferringTest, ARoundIsOfItsFilterAndOfWhatChangedAfterAPosition) {
    add(nextHop(1), "a");
    add(nextHop(2), "a");
    add(group(1), "a");
    Cursor cursor{journal, deferring()};
    read(cursor);
    add(nextHop(1), "b");
    add(group(1), "b");
    CursorRound round;
    round.filter.lanes = maskOf(Lane::nextHops);
    round.changedAfter = cursor.told();
    cursor.resend(round);
    EXPECT_THAT(read(cursor), ElementsAre("N1=b"));
    round.changedAfter = cursor.told();
    cursor.resend(round);
    EXPECT_THAT(read(cursor), IsEmpty());
    round.changedAfter.reset();
    round.filter.matches = [](Lane, const EntryKey& k) { return k == key(2); };
    cursor.resend(round);
    EXPECT_THAT(read(cursor), ElementsAre("N2=a"));
}

TEST_F(DeferringTest, ARoundAndEpochsTakeTurns) {
    for (std::uint64_t n = 1; n <= 600; ++n) { add(nextHop(n), "a"); }
    Cursor cursor{journal, {}};
    read(cursor);
    cursor.resend({});
    std::vector<CursorMessage> out(64);
    ASSERT_EQ(cursor.next(out).count, 64U);
    EXPECT_TRUE(out[0].again);
    // One for the epoch, one for the round, and so on, however much there is of either.
    for (int turn = 0; turn < 8; ++turn) {
        add(nextHop(1), std::to_string(turn));
        const Cursor::Result epoch = cursor.next(out);
        ASSERT_EQ(epoch.count, 1U) << turn;
        EXPECT_FALSE(out[0].again);
        const Cursor::Result round = cursor.next(out);
        ASSERT_GT(round.count, 0U) << turn;
        EXPECT_TRUE(out[0].again);
        EXPECT_EQ(round.state, Cursor::State::more);
    }
}

TEST_F(DeferringTest, WhatAnEpochIsAboutToTellIsLeftToIt) {
    add(nextHop(1), "a");
    add(group(1), "a", {nextHop(1)});
    Cursor cursor{journal, {}};
    read(cursor);
    cursor.resend({});
    std::vector<CursorMessage> out(1);
    cursor.next(out);
    EXPECT_EQ(inWords(out[0]), "N1=a") << "the round has begun";
    add(nextHop(2), "a");
    out.resize(64);
    EXPECT_EQ(cursor.next(out).count, 1U);
    EXPECT_EQ(inWords(out[0]), "N2=a");
    // The round's turn: its group names by now what the client might lack.
    add(group(1), "b", {nextHop(2)});
    EXPECT_EQ(cursor.next(out).count, 0U);
    EXPECT_FALSE(cursor.resending());
    EXPECT_THAT(read(cursor), ElementsAre("G1=b"));
}

}  // namespace
}  // namespace Gale
