#include "platform/Store/Reader.h"

#include <gmock/gmock.h>

#include "platform/Store/test/StoreFixture.h"

namespace Store {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class ReaderTest : public StoreFixture {
protected:
    void commit() { ASSERT_EQ(writer->commit(), ""); }
    TableId tableIs(const std::string& path, TableKind kind = TableKind::table) {
        return writer->tableIs(path, "t", kind);
    }
    std::unique_ptr<Writer> writer = makeWriter();
};

TEST_F(ReaderTest, SweepsThenTellsChanges) {
    const TableId a = tableIs("a");
    writer->put(a, "1", "one");
    writer->put(a, "2", "two");
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    EXPECT_THAT(journal, IsEmpty()) << "never inside the call";
    settle();
    EXPECT_THAT(journal,
                ElementsAre("a begun", "a key 1", "a key 2", "a ended", "a present", "a settled"));
    journal.clear();
    writer->put(a, "3", "three");
    writer->erase(a, "1");
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("a 3=three", "a 1=gone")) << "woken by the bell alone";
}

TEST_F(ReaderTest, ChangesShowOnlyWithTheCommit) {
    const TableId a = tableIs("a");
    commit();
    auto reader = makeReader();
    settle();
    writer->put(a, "1", "one");
    settleAfterASecond();
    EXPECT_EQ(reader->read(a, "1"), std::nullopt);
    settle();
    commit();
    settle();
    EXPECT_EQ(reader->read(a, "1"), "one");
}

TEST_F(ReaderTest, AReadHoldsUntilTheEndOfTheSlice) {
    const TableId a = tableIs("a");
    writer->put(a, "1", "one");
    commit();
    auto reader = makeReader();
    settle();
    std::string first;
    std::string second;
    Kiln::Task task{scheduler, "test", 5, [&] {
                        const auto view = reader->read(a, "1");
                        writer->put(a, "1", "two");
                        EXPECT_EQ(writer->commit(), "");
                        first = view.value_or("");
                        second = reader->read(a, "1").value_or("");
                        return false;
                    }};
    task.schedule();
    settle();
    EXPECT_EQ(first, "one");
    EXPECT_EQ(second, "one") << "all reads of a slice are of one moment";
    EXPECT_EQ(reader->read(a, "1"), "two");
}

TEST_F(ReaderTest, AReadGoesAheadOfWhatIsToldAndSaysSo) {
    tableIs("a");
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    settle();
    writer->put(reader->table("a")->id, "1", "one");
    ASSERT_EQ(writer->commit(), "");
    Kiln::Task beforeThePump{scheduler, "test", 0, [&] {
                                 EXPECT_EQ(sink.mount.read("1"), "one");
                                 EXPECT_TRUE(sink.mount.toldLater("1"));
                                 EXPECT_FALSE(sink.mount.toldLater("2"));
                                 return false;
                             }};
    beforeThePump.schedule();
    settleAfterASecond();
    EXPECT_FALSE(sink.mount.toldLater("1"));
}

TEST_F(ReaderTest, EqualPutIsNoChangeUnlessRewritten) {
    const TableId a = tableIs("a");
    writer->put(a, "1", "one");
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    settle();
    journal.clear();
    writer->put(a, "1", "one");
    commit();
    settleAfterASecond();
    EXPECT_THAT(journal, IsEmpty());
    writer->put(a, "1", "one", true);
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("a 1=one"));
}

TEST_F(ReaderTest, LogOrderHoldsOverAllMounts) {
    const TableId a = tableIs("a");
    const TableId b = tableIs("b", TableKind::stash);
    commit();
    auto reader = makeReader();
    NotingSink sinkA{"a", journal};
    NotingSink sinkB{"b", journal};
    sinkB.mountIs(*reader, "b", TableKind::stash);
    sinkA.mountIs(*reader, "a", TableKind::table);
    settle();
    journal.clear();
    writer->put(b, "1", "x");
    writer->put(a, "1", "x");
    commit();
    writer->put(b, "2", "x");
    writer->put(a, "2", "x");
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("b 1=x", "a 1=x", "b 2=x", "a 2=x"));
}

TEST_F(ReaderTest, KindsAreSweptAndBecomePresentInOrder) {
    writer->put(tableIs("s", TableKind::state), "1", "x");
    writer->put(tableIs("k", TableKind::stash), "1", "x");
    writer->put(tableIs("t"), "1", "x");
    commit();
    auto reader = makeReader();
    NotingSink s{"s", journal};
    NotingSink k{"k", journal};
    NotingSink t{"t", journal};
    s.mountIs(*reader, "s", TableKind::state);
    k.mountIs(*reader, "k", TableKind::stash);
    t.mountIs(*reader, "t", TableKind::table);
    settle();
    EXPECT_THAT(journal,
                ElementsAre("t begun",
                            "t key 1",
                            "t ended",
                            "k begun",
                            "k key 1",
                            "k ended",
                            "s begun",
                            "s key 1",
                            "s ended",
                            "t present",
                            "k present",
                            "s present",
                            "s settled",
                            "k settled",
                            "t settled"));
}

TEST_F(ReaderTest, ALateStateRecordIsToldAtItsLastChangeOnly) {
    const TableId s = tableIs("s", TableKind::state);
    const TableId a = tableIs("a");
    commit();
    auto reader = makeReader();
    NotingSink sinkA{"a", journal};
    NotingSink sinkS{"s", journal};
    sinkA.mountIs(*reader, "a", TableKind::table);
    sinkS.mountIs(*reader, "s", TableKind::state);
    settle();
    journal.clear();
    writer->put(s, "ready", "false");
    writer->put(a, "1", "x");
    writer->put(s, "ready", "true");
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("a 1=x", "s ready=true"));
}

TEST_F(ReaderTest, ASweepDoesNotAnticipateStateThatChangedMeanwhile) {
    const TableId s = tableIs("s", TableKind::state);
    const TableId a = tableIs("a");
    writer->put(a, "1", "x");
    writer->put(s, "old", "x");
    commit();
    auto reader = makeReader();
    NotingSink sinkA{"a", journal};
    NotingSink sinkS{"s", journal};
    sinkA.mountIs(*reader, "a", TableKind::table);
    sinkS.mountIs(*reader, "s", TableKind::state);
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());  // a slice is one key
    sinkA.reaction = [&](const std::string& text) {
        if (text != "key 1") { return; }
        writer->put(a, "0", "x");  // behind the sweep
        writer->put(s, "ready", "true");
        commit();
    };
    settle();
    EXPECT_THAT(journal,
                ElementsAre("a begun",
                            "a key 1",
                            "a ended",
                            "s begun",
                            "s key old",
                            "s later ready",
                            "s ended",
                            "a present",
                            "s present",
                            "a settled",
                            "s settled",
                            "a 0=x",
                            "s ready=true"));
}

TEST_F(ReaderTest, EachSliceIsBounded) {
    const TableId a = tableIs("a");
    for (int i = 0; i < 1000; ++i) { writer->put(a, std::to_string(i), "x"); }
    commit();
    auto reader = makeReader();
    std::size_t inSlice = 0;
    std::size_t longest = 0;
    NotingSink sink{"a", journal};
    sink.reaction = [&](const std::string&) { longest = std::max(longest, ++inSlice); };
    const auto sliceEnd = scheduler->onSliceEnd().subscribe([&] { inSlice = 0; });
    sink.mountIs(*reader, "a", TableKind::table);
    settle();
    EXPECT_EQ(journal.size(), 1004u);
    EXPECT_LE(longest, 259u) << "256 keys, and begun, ended and the like";
    for (int i = 0; i < 1000; ++i) { writer->put(a, std::to_string(i), "y"); }
    commit();
    longest = 0;
    settle();
    EXPECT_EQ(journal.size(), 2004u);
    EXPECT_EQ(longest, 256u);
    clock.advance(std::chrono::seconds{1});
    sink.reaction = [&](const std::string&) {
        longest = std::max(longest, ++inSlice);
        clock.advance(std::chrono::microseconds{100});
    };
    for (int i = 0; i < 1000; ++i) { writer->put(a, std::to_string(i), "z"); }
    commit();
    longest = 0;
    settle();
    EXPECT_EQ(longest, 16u) << "a millisecond is over, looked at every 16 keys";
}

TEST_F(ReaderTest, EverySlicingTellsTheSame) {
    std::vector<Strings> journals;
    for (const bool always : {false, true}) {
        if (always) { scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>()); }
        std::filesystem::remove_all(options.directory);
        writer = makeWriter();
        const TableId a = tableIs("a");
        const TableId b = tableIs("b", TableKind::state);
        for (int i = 0; i < 20; ++i) {
            writer->put(a, std::to_string(i), "x");
            writer->put(b, std::to_string(i), "x");
        }
        commit();
        auto reader = makeReader();
        NotingSink sinkA{"a", journal};
        NotingSink sinkB{"b", journal};
        sinkA.mountIs(*reader, "a", TableKind::table);
        sinkB.mountIs(*reader, "b", TableKind::state);
        settle();
        for (int i = 0; i < 20; ++i) {
            writer->put(a, std::to_string(i), "y");
            writer->put(b, std::to_string(i), "y");
        }
        commit();
        settle();
        journals.push_back(std::exchange(journal, {}));
    }
    EXPECT_EQ(journals[0].size(), 88u);
    EXPECT_EQ(journals[0], journals[1]);
}

TEST_F(ReaderTest, TellsWhenItHasCaughtUpAndWhere) {
    const TableId a = tableIs("a");
    for (int i = 0; i < 300; ++i) { writer->put(a, std::to_string(i), "x"); }
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    EXPECT_FALSE(reader->caughtUp());
    int caughtUp = 0;
    const auto subscription = reader->onCaughtUp().subscribe([&] { ++caughtUp; });
    settle();
    EXPECT_TRUE(reader->caughtUp());
    EXPECT_EQ(caughtUp, 1);
    EXPECT_EQ(reader->position(), 301u) << "one registration, 300 records";
    sink.reaction = [&](const std::string&) { EXPECT_FALSE(reader->caughtUp()); };
    for (int i = 0; i < 300; ++i) { writer->put(a, std::to_string(i), "y"); }
    commit();
    settle();
    EXPECT_EQ(caughtUp, 2);
    EXPECT_EQ(reader->position(), 601u);
    settleAfterASecond();
    EXPECT_EQ(caughtUp, 2) << "nothing new";
}

TEST_F(ReaderTest, AMountMadeLaterIsSweptBeforeTheLogGoesOn) {
    const TableId a = tableIs("a");
    const TableId b = tableIs("b");
    writer->put(b, "1", "x");
    commit();
    auto reader = makeReader();
    NotingSink sinkA{"a", journal};
    NotingSink sinkB{"b", journal};
    sinkA.mountIs(*reader, "a", TableKind::table);
    settle();
    journal.clear();
    sinkA.reaction = [&](const std::string& text) {
        if (text == "1=x") { sinkB.mountIs(*reader, "b", TableKind::table); }
    };
    writer->put(a, "1", "x");
    writer->put(a, "2", "x");
    commit();
    settle();
    EXPECT_THAT(journal,
                ElementsAre("a 1=x",
                            "b begun",
                            "b key 1",
                            "b ended",
                            "b present",
                            "a settled",
                            "b settled",
                            "a 2=x"));
}

TEST_F(ReaderTest, ATableRegisteredLaterIsPresentFromThereOn) {
    commit();
    auto reader = makeReader();
    NotingSink sinkA{"a", journal};
    NotingSink sinkS{"s", journal};
    sinkA.mountIs(*reader, "a", TableKind::table);
    sinkS.mountIs(*reader, "s", TableKind::state);
    settle();
    EXPECT_THAT(journal, Not(Contains("a present")));
    journal.clear();
    const TableId s = tableIs("s", TableKind::state);
    const TableId a = tableIs("a");
    writer->put(a, "1", "x");
    writer->put(s, "ready", "true");
    commit();
    settle();
    EXPECT_THAT(journal,
                ElementsAre("s begun",
                            "s ended",
                            "s present",
                            "s settled",
                            "a begun",
                            "a ended",
                            "a present",
                            "a settled",
                            "a 1=x",
                            "s ready=true"));
}

TEST_F(ReaderTest, ATableRemovedAndMadeAgain) {
    const TableId a = tableIs("a");
    writer->put(a, "1", "x");
    commit();
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    writer->tableDel("a");
    commit();
    settle();
    EXPECT_THAT(mount.notes, ElementsAre("1 gone", "absent"));
    EXPECT_EQ(mount.value("1"), "gone");
    mount.notes.clear();
    writer->put(tableIs("a"), "2", "y");
    commit();
    settle();
    EXPECT_THAT(mount.notes, ElementsAre("present", "2 there"));
    EXPECT_EQ(mount.value("2"), "y");
}

TEST_F(ReaderTest, ATableOfAnotherTypeOrKindStaysAbsent) {
    writer->put(writer->tableIs("a", "other", TableKind::table), "1", "x");
    writer->put(tableIs("b", TableKind::stash), "1", "x");
    commit();
    auto reader = makeReader();
    NotingMount a;
    NotingMount b;
    a.mountIs(*reader, "a");
    b.mountIs(*reader, "b");
    settle();
    EXPECT_FALSE(a.present());
    EXPECT_FALSE(b.present());
    EXPECT_THAT(a.keys(), IsEmpty());
    EXPECT_EQ(a.value("1"), "gone");
}

TEST_F(ReaderTest, TablesAreListedByPrefixAndTold) {
    tableIs("x/2");
    tableIs("x/1");
    tableIs("y");
    commit();
    auto reader = makeReader();
    Strings told;
    const auto subscription =
        reader->onTable().subscribe([&](const std::string& path) { told.push_back(path); });
    settle();
    EXPECT_THAT(told, ElementsAre("x/1", "x/2", "y"));
    told.clear();
    tableIs("x/3");
    writer->tableDel("x/1");
    commit();
    settle();
    EXPECT_THAT(told, ElementsAre("x/3", "x/1"));
    const std::vector<TableInfo> tables = reader->tables("x/");
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables[0].path, "x/2");
    EXPECT_EQ(tables[1].path, "x/3");
    EXPECT_EQ(tables[1].type, "t");
    EXPECT_EQ(tables[1].kind, TableKind::table);
}

TEST_F(ReaderTest, FallingBehindTheLogSweepsAndReportsDeletions) {
    options.logCapacity = 10;
    writer = makeWriter();
    const TableId a = tableIs("a");
    for (const char* key : {"1", "2", "3"}) { writer->put(a, key, "x"); }
    commit();
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    writer->erase(a, "2");
    for (int i = 0; i < 20; ++i) { writer->put(a, "3", std::to_string(i)); }
    writer->put(a, "4", "x");
    commit();
    settle();
    EXPECT_THAT(mount.notes, ElementsAre("1 there", "2 gone", "3 there", "4 there"));
    EXPECT_THAT(mount.keys(), ElementsAre("1", "3", "4"));
    EXPECT_TRUE(mount.present()) << "all the time";
    EXPECT_TRUE(reader->caughtUp());
}

TEST_F(ReaderTest, AContentTableIsReadableButNotLogged) {
    const TableId c = tableIs("c", TableKind::content);
    commit();
    auto reader = makeReader();
    settle();
    const Sequence before = reader->position();
    writer->put(c, "1", "x");
    commit();
    settleAfterASecond();
    EXPECT_EQ(reader->read(c, "1"), "x");
    EXPECT_EQ(reader->position(), before);
}

TEST_F(ReaderTest, UnmountingInsideACallbackEndsIt) {
    const TableId a = tableIs("a");
    for (const char* key : {"1", "2", "3"}) { writer->put(a, key, "x"); }
    commit();
    auto reader = makeReader();
    NotingSink first{"first", journal};
    auto second = std::make_unique<NotingSink>("second", journal);
    first.mountIs(*reader, "a", TableKind::table);
    second->mountIs(*reader, "a", TableKind::table);
    first.reaction = [&](const std::string& text) {
        if (text == "key 2") { first.mount = {}; }
        if (text == "1=y") { second.reset(); }
    };
    settle();
    EXPECT_THAT(journal,
                ElementsAre("first begun",
                            "first key 1",
                            "first key 2",
                            "second begun",
                            "second key 1",
                            "second key 2",
                            "second key 3",
                            "second ended",
                            "second present",
                            "second settled"));
    first.mountIs(*reader, "a", TableKind::table);
    second->reaction = [&](const std::string& text) {
        if (text == "1=y") { first.mount = {}; }
    };
    settle();
    journal.clear();
    writer->put(a, "1", "y");
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("second 1=y")) << "the other one's was still to come";
}

TEST_F(ReaderTest, AMountMayOutliveTheReader) {
    tableIs("a");
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    settle();
    reader = nullptr;
    EXPECT_EQ(sink.mount.read("1"), std::nullopt);
    sink.mount = {};
}

TEST_F(ReaderTest, AReaderMayBeReleasedInsideACallback) {
    writer->put(tableIs("a"), "1", "x");
    commit();
    auto reader = makeReader();
    NotingSink sink{"a", journal};
    sink.mountIs(*reader, "a", TableKind::table);
    sink.reaction = [&](const std::string& text) {
        if (text == "key 1") { reader = nullptr; }
    };
    settle();
    settleAfterASecond();
    EXPECT_THAT(journal, Contains("a key 1"));
}

TEST_F(ReaderTest, ASinkThatThrowsKeepsNobodyElseFromBeingTold) {
    const TableId a = tableIs("a");
    writer->put(a, "1", "x");
    commit();
    auto reader = makeReader();
    NotingSink bad{"bad", journal};
    NotingSink good{"good", journal};
    bad.mountIs(*reader, "a", TableKind::table);
    good.mountIs(*reader, "a", TableKind::table);
    bad.reaction = [](const std::string&) { throw std::runtime_error{"on purpose"}; };
    settle();
    EXPECT_EQ(reader->sinkFailures(), 5u) << "begun, key, ended, present, settled";
    EXPECT_THAT(journal, Contains("good settled"));
    journal.clear();
    writer->put(a, "2", "x");
    writer->put(a, "3", "x");
    commit();
    settle();
    EXPECT_THAT(journal, ElementsAre("bad 2=x", "good 2=x", "bad 3=x", "good 3=x"));
    EXPECT_EQ(reader->sinkFailures(), 7u);
    EXPECT_TRUE(reader->caughtUp());
}

}  // namespace
}  // namespace Store
