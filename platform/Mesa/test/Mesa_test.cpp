#include "platform/Mesa/test/MesaFixture.h"
#include "test/support/TraceCapture.h"

namespace Mesa {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MesaTest : public MesaFixture {};

TEST_F(MesaTest, ATableIsReadByKeyAndTellsChangesByKey) {
    ColourPublisher publisher{*writer, "colours", kType};
    ASSERT_TRUE(publisher.valid());
    publisher.set(256, {"red"});
    publisher.set(1, {"green"});
    ASSERT_EQ(writer->commit(), "");
    const auto table = mount("colours");
    ASSERT_TRUE(table);
    EXPECT_FALSE(table->present());
    int present = 0;
    const auto onPresent = table->onPresent().subscribe([&] { ++present; });
    std::vector<std::uint64_t> told;
    const auto onKey = table->onKey().subscribe([&](std::uint64_t key) { told.push_back(key); });
    settle();
    EXPECT_TRUE(table->present());
    EXPECT_EQ(present, 1);
    EXPECT_THAT(table->keys(), ElementsAre(1u, 256u)) << "in key order";
    EXPECT_THAT(told, IsEmpty()) << "what was there is not a change";
    EXPECT_EQ(read(table, 1), "green");
    EXPECT_EQ(read(table, 2), "none");
    publisher.set(2, {"blue"});
    publisher.erase(1);
    publisher.set(256, {"red"});
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(told, ElementsAre(2u, 1u));
    EXPECT_EQ(read(table, 2), "blue");
    publisher.set(256, {"red"}, true);
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(told, ElementsAre(2u, 1u, 256u)) << "rewritten";
}

TEST_F(MesaTest, ATableThatNoProducerHasMadeYetIsMountedEmptyAndFills) {
    const auto table = mount("colours");
    settle();
    EXPECT_FALSE(table->present());
    EXPECT_THAT(table->keys(), IsEmpty());
    EXPECT_EQ(read(table, 1), "none");
    ColourPublisher{*writer, "colours", kType}.set(1, {"red"});
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_TRUE(table->present());
    EXPECT_EQ(read(table, 1), "red");
}

TEST_F(MesaTest, ACorruptRecordCostsOnlyItself) {
    const Store::TableId id = writer->tableIs("colours", kType, Store::TableKind::table);
    writer->put(id, Store::KeyCodec<std::uint64_t>::encode(1), "no record");
    writer->put(id, Store::KeyCodec<std::uint64_t>::encode(2), "c:red");
    ASSERT_EQ(writer->commit(), "");
    const auto table = mount("colours");
    settle();
    const TestSupport::TraceCapture traces;
    EXPECT_EQ(read(table, 1), "none");
    EXPECT_EQ(table->corruptions(), 1u);
    EXPECT_EQ(traces.count("table colours: corruption: colours"), 1u);
    EXPECT_EQ(read(table, 2), "red");
    EXPECT_EQ(table->corruptions(), 1u);
    EXPECT_EQ(read(table, 3), "none");
    EXPECT_EQ(table->corruptions(), 1u) << "absent is not corrupt";
}

TEST_F(MesaTest, TwoGroupsThatMountAPathShareItsTable) {
    const auto first = mount("colours");
    EXPECT_EQ(mount("colours"), first);
    EXPECT_NE(mount("other"), first);
    EXPECT_EQ(manager->entity("never mounted"), nullptr);
    manager->entityDel("colours");
    EXPECT_EQ(manager->entity("colours"), nullptr);
}

TEST_F(MesaTest, AGroupTellsThatItHasMountedAndOfEachTableThatIsReadInOrGoesIfItIsAskedTo) {
    ColourPublisher{*writer, "there", kType}.set(1, {"red"});
    ASSERT_EQ(writer->commit(), "");
    for (const bool notify : {false, true}) {
        manager = Vel::make<EntityManager>(reader);
        MountGroup group{manager};
        std::vector<std::string> told;
        const auto onChange = group.onChange().subscribe([&] {
            std::string text;
            for (const char* const path : {"there", "late"}) {
                const auto table = manager->entity<ColourTable>(path);
                text += table && table->present() ? '1' : '0';
            }
            told.push_back(text);
        });
        group.mount("there", kType);
        group.mount("late", kType);
        group.notifyOnSyncIs(notify);
        group.close();
        EXPECT_THAT(told, ElementsAre("00"));
        settle();
        ColourPublisher{*writer, "late", kType}.set(1, {"red"});
        publish();
        tableDel(*writer, "there");
        publish();
        if (notify) {
            EXPECT_THAT(told, ElementsAre("00", "10", "11", "01"));
        } else {
            EXPECT_THAT(told, ElementsAre("00"));
            ColourPublisher{*writer, "there", kType}.set(1, {"red"});
            tableDel(*writer, "late");
            publish();
        }
    }
}

TEST_F(MesaTest, APublisherOfAnotherTypeIsRefused) {
    ASSERT_NE(writer->tableIs("colours", "other", Store::TableKind::table), 0u);
    EXPECT_FALSE((ColourPublisher{*writer, "colours", kType}.valid()));
}

TEST_F(MesaTest, AnUnknownTypeIsABrokenPrecondition) {
    EXPECT_EQ(makeTable("Test::Nobody", "x"), nullptr);
    MountGroup group{manager};
    group.mount("x", "Test::Nobody");
    EXPECT_DEATH(group.close(), "the type of a mounted table is not registered");
}

}  // namespace
}  // namespace Mesa
