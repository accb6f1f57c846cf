#include "platform/Mesa/CollectionControl.h"

#include "platform/Mesa/test/MesaFixture.h"
#include "test/support/TraceCapture.h"

namespace Mesa {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Notes the keys of a table and its control in one journal.
class Noted {
public:
    Noted(const Vel::Ref<ColourTable>& table, std::vector<std::string>& journal)
        : onPresent_{table->onPresent().subscribe([table = table.get(), &journal] {
              journal.push_back(table->present() ? "present" : "absent");
          })},
          onKey_{table->onKey().subscribe(
              [&journal](std::uint64_t key) { journal.push_back(std::to_string(key)); })},
          onControl_{table->collectionControl()->onChange().subscribe(
              [control = table->collectionControl(), &journal] {
                  journal.push_back((control->quiesced() ? "quiesced " : "busy ") +
                                    std::to_string(control->writerGeneration()));
              })} {}

private:
    Vel::Subscription onPresent_;
    Vel::Subscription onKey_;
    Vel::Subscription onControl_;
};

class CollectionControlTest : public MesaFixture {
protected:
    ColourPublisher colours{*writer, "colours", kType};
};

TEST_F(CollectionControlTest, ATableOfWhichNobodySaidAnythingHasNotQuiesced) {
    colours.set(1, {"red"});
    const auto table = mount("colours");
    ASSERT_TRUE(table->collectionControl());
    publish();
    EXPECT_TRUE(table->present());
    EXPECT_FALSE(table->collectionControl()->quiesced());
    EXPECT_EQ(table->collectionControl()->writerGeneration(), 0u);
    EXPECT_FALSE(mount("never made")->collectionControl()->quiesced());
}

TEST_F(CollectionControlTest, AChangeOfItComesAfterTheRecordsThatWereCommittedBeforeIt) {
    const auto table = mount("colours");
    publish();
    const Noted noted{table, journal};
    colours.set(1, {"red"});
    colours.quiescedIs(true);
    colours.set(2, {"red"});
    publish();
    EXPECT_THAT(journal, ElementsAre("1", "quiesced 1", "2"));
    journal.clear();
    colours.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, IsEmpty()) << "no change";
    colours.quiescedIs(false);
    ASSERT_EQ(writer->commit(), "");
    colours.set(3, {"red"});
    ASSERT_EQ(writer->commit(), "");
    colours.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, ElementsAre("3")) << "told at its last change only";
}

TEST_F(CollectionControlTest, EachProducerThatTakesOverCountsOneUp) {
    const auto table = mount("colours");
    const Noted noted{table, journal};
    colours.quiescedIs(true);
    publish();
    ColourPublisher next{*writer, "colours", kType};
    publish();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1")) << "it has not spoken";
    next.quiescedIs(false);
    publish();
    next.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1", "busy 2", "quiesced 2"));
}

TEST_F(CollectionControlTest, AnAbortedTransactionIsRepeatedWithTheSameGeneration) {
    const auto table = mount("colours");
    publish();
    colours.quiescedIs(true);
    writer->abort();
    colours.quiescedIs(true);
    publish();
    EXPECT_EQ(table->collectionControl()->writerGeneration(), 1u);
    EXPECT_TRUE(table->collectionControl()->quiesced());
}

TEST_F(CollectionControlTest, AMountFromScratchHearsOfItAfterItsTable) {
    colours.set(1, {"red"});
    colours.quiescedIs(true);
    ASSERT_EQ(writer->commit(), "");
    const auto table = mount("colours");
    const Noted noted{table, journal};
    settle();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1"));
    // Whose control has been known for long, too.
    ColourPublisher other{*writer, "other", kType};
    other.set(1, {"red"});
    other.quiescedIs(true);
    publish();
    journal.clear();
    const auto late = mount("other");
    const Noted notedLate{late, journal};
    EXPECT_FALSE(late->collectionControl()->quiesced());
    settle();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1"));
}

TEST_F(CollectionControlTest, ASweepDoesNotAnticipateWhatIsSaidMeanwhile) {
    colours.set(2, {"red"});
    colours.quiescedIs(false);
    ASSERT_EQ(writer->commit(), "");
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());  // a slice is one key
    const auto table = mount("colours");
    const Noted noted{table, journal};
    bool said = false;
    const auto onSliceEnd = scheduler->onSliceEnd().subscribe([&] {
        if (!table->has(2) || std::exchange(said, true)) { return; }
        colours.set(1, {"red"});  // behind the sweep
        colours.quiescedIs(true);
        ASSERT_EQ(writer->commit(), "");
    });
    settle();
    EXPECT_THAT(journal, ElementsAre("present", "1", "quiesced 1"));
}

TEST_F(CollectionControlTest, WhatIsSaidWhileALateMountIsSweptIsNotAnticipatedEither) {
    const auto first = mount("first");
    colours.set(2, {"red"});
    colours.quiescedIs(false);
    publish();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    const auto table = mount("colours");
    const Noted noted{table, journal};
    bool said = false;
    const auto onSliceEnd = scheduler->onSliceEnd().subscribe([&] {
        if (!table->has(2) || std::exchange(said, true)) { return; }
        colours.set(1, {"red"});
        colours.quiescedIs(true);
        ASSERT_EQ(writer->commit(), "");
    });
    settle();
    EXPECT_THAT(journal, ElementsAre("present", "busy 1", "1", "quiesced 1"));
}

TEST_F(CollectionControlTest, ATableThatGoesTakesItAlong) {
    const auto table = mount("colours");
    colours.set(1, {"red"});
    colours.quiescedIs(true);
    publish();
    const Noted noted{table, journal};
    tableDel(*writer, "colours");
    publish();
    EXPECT_THAT(journal, ElementsAre("1", "busy 0", "absent"));
    journal.clear();
    ColourPublisher again{*writer, "colours", kType};
    publish();
    EXPECT_FALSE(table->collectionControl()->quiesced());
    again.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1"));
}

TEST_F(CollectionControlTest, WhatWasSaidOfATableDoesNotCountForTheNextOneAtItsPath) {
    const auto table = mount("colours");
    colours.quiescedIs(true);
    publish();
    const Noted noted{table, journal};
    // Its producer forgets to take it back, and all of it comes at once.
    writer->tableDel("colours");
    ColourPublisher again{*writer, "colours", kType};
    again.set(1, {"red"});
    publish();
    EXPECT_THAT(journal, ElementsAre("busy 0", "1"));
    again.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, ElementsAre("busy 0", "1", "quiesced 2"));
}

TEST_F(CollectionControlTest, RemovingATableOfWhichNobodySaidAnythingNeedsNoRoom) {
    colours.set(1, {"red"});
    publish();
    tableDel(*writer, "colours");
    publish();
    EXPECT_FALSE(reader->table(CollectionControls::kPath));
}

TEST_F(CollectionControlTest, AReplacedStoreSaysItAnew) {
    const auto table = mount("colours");
    colours.quiescedIs(true);
    publish();
    const Noted noted{table, journal};
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    EXPECT_THAT(journal, ElementsAre("busy 0", "absent"));
    journal.clear();
    writer = makeWriter();
    ColourPublisher again{*writer, "colours", kType};
    again.set(1, {"red"});
    ASSERT_EQ(writer->commit(), "");
    settleAfterASecond();
    EXPECT_THAT(journal, ElementsAre("present"));
    again.quiescedIs(true);
    publish();
    EXPECT_THAT(journal, ElementsAre("present", "quiesced 1"));
}

TEST_F(CollectionControlTest, WhoFellBehindTheLogHearsWhatWasSaidLast) {
    options.logCapacity = 10;
    std::filesystem::remove_all(options.directory);
    writer = makeWriter();
    reader = makeReader();
    manager = Vel::make<EntityManager>(reader);
    ColourPublisher table{*writer, "colours", kType};
    const auto mounted = mount("colours");
    table.quiescedIs(true);
    publish();
    const Noted noted{mounted, journal};
    for (std::uint64_t key = 1; key <= 20; ++key) {
        table.set(key, {"red"});
        ASSERT_EQ(writer->commit(), "");
    }
    table.quiescedIs(false);
    publish();
    ASSERT_EQ(journal.size(), 21u);
    EXPECT_EQ(journal.back(), "busy 1");
}

TEST_F(CollectionControlTest, BytesThatAreNoRecordReadAsNothingSaidAndAreTraced) {
    const auto table = mount("colours");
    colours.quiescedIs(true);
    publish();
    const Store::TableId controls = writer->tableIs(
        CollectionControls::kPath, CollectionControls::kType, Store::TableKind::state);
    const TestSupport::TraceCapture traces;
    writer->put(controls, "colours", std::string(16, '\x01'));
    publish();
    EXPECT_FALSE(table->collectionControl()->quiesced());
    EXPECT_EQ(traces.count("table colours: malformed collection control"), 1u);
    const CollectionControlRecord record{colours.table(), 7, true};
    writer->put(controls, "colours", record.encode() + "of a later version");
    publish();
    EXPECT_TRUE(table->collectionControl()->quiesced());
    EXPECT_EQ(table->collectionControl()->writerGeneration(), 7u);
}

TEST_F(CollectionControlTest, ARecordIsReadBackAsItWasWritten) {
    const CollectionControlRecord record{0xFFFFFFFE, 0x123456789ABCDEF0, true};
    EXPECT_EQ(CollectionControlRecord::decode(record.encode()), record);
    EXPECT_EQ(CollectionControlRecord::decode(CollectionControlRecord{}.encode()),
              CollectionControlRecord{});
    EXPECT_EQ(CollectionControlRecord::decode(""), std::nullopt);
}

TEST_F(CollectionControlTest, AStoreThatHoldsSomethingElseThereRefusesIt) {
    ASSERT_NE(writer->tableIs(CollectionControls::kPath, "other", Store::TableKind::table), 0u);
    colours.quiescedIs(true);
    colours.set(1, {"red"});
    const auto table = mount("colours");
    publish();
    EXPECT_FALSE(table->collectionControl()->quiesced());
    EXPECT_TRUE(table->has(1));
    tableDel(*writer, "colours");
    publish();
    EXPECT_FALSE(table->present());
}

}  // namespace
}  // namespace Mesa
