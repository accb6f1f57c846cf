#include "platform/Mesa/DirMounter.h"

#include "platform/Mesa/test/MesaFixture.h"

namespace Mesa {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DirMounterTest : public MesaFixture {
protected:
    void start(bool notifyOnSync, bool neverUnmount) {
        sut = Vel::make<DirMounter>(manager, "dir", kType);
        sut->notifyOnSyncIs(notifyOnSync);
        sut->neverUnmountIs(neverUnmount);
        onAdded = sut->mountedPaths()->onPathAdded().subscribe([this](const std::string& path) {
            EXPECT_TRUE(sut->mountedPaths()->pathHas(path));
            const auto table = manager->entity<ColourTable>(path);
            ASSERT_TRUE(table);
            journal.push_back("+" + path + (table->present() ? " present" : ""));
        });
        onRemoved = sut->mountedPaths()->onPathRemoved().subscribe([this](const std::string& path) {
            EXPECT_FALSE(sut->mountedPaths()->pathHas(path));
            journal.push_back("-" + path);
        });
        sut->initialize();
    }
    void tableIs(const std::string& path) {
        EXPECT_TRUE((ColourPublisher{*writer, path, kType}.valid()));
    }

    Vel::Ref<DirMounter> sut;
    Vel::Subscription onAdded;
    Vel::Subscription onRemoved;
};

TEST_F(DirMounterTest, MountsWhatIsThereAndWhatComes) {
    tableIs("dir/red");
    ASSERT_EQ(writer->commit(), "");
    start(false, false);
    EXPECT_THAT(journal, ElementsAre("+dir/red"));
    tableIs("dir/blue");
    publish();
    EXPECT_THAT(journal, ElementsAre("+dir/red", "+dir/blue"));
    EXPECT_TRUE(manager->entity<ColourTable>("dir/blue")->present());
    EXPECT_THAT(sut->mountedPaths()->paths(), ElementsAre("dir/blue", "dir/red"));
}

TEST_F(DirMounterTest, OnlyWhatStandsImmediatelyBelowItsDirectory) {
    for (const char* const path : {"dir", "dir/", "dir/a/b", "dirt/c", "other/dir/d", "dir/e"}) {
        tableIs(path);
    }
    ASSERT_EQ(writer->commit(), "");
    start(false, false);
    settle();
    EXPECT_THAT(sut->mountedPaths()->paths(), ElementsAre("dir/e"));
}

TEST_F(DirMounterTest, NotifiedOnSyncAPathIsThereOnceItsTableHasBeenReadIn) {
    tableIs("dir/red");
    ASSERT_EQ(writer->commit(), "");
    start(true, false);
    EXPECT_NE(manager->entity("dir/red"), nullptr);
    EXPECT_THAT(journal, IsEmpty());
    settle();
    tableIs("dir/blue");
    publish();
    EXPECT_THAT(journal, ElementsAre("+dir/red present", "+dir/blue present"));
}

TEST_F(DirMounterTest, ATableThatSomebodyElseHasReadInIsThereAtOnce) {
    tableIs("dir/red");
    const auto table = mount("dir/red");
    publish();
    start(true, false);
    EXPECT_THAT(journal, ElementsAre("+dir/red present"));
    EXPECT_EQ(manager->entity<ColourTable>("dir/red"), table);
}

TEST_F(DirMounterTest, ATableOfAnotherTypeIsNeverReadIn) {
    ASSERT_NE(writer->tableIs("dir/red", "other", Store::TableKind::table), 0u);
    start(true, false);
    publish();
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(DirMounterTest, WhatItsProducerRemovesIsUnmounted) {
    start(true, false);
    tableIs("dir/red");
    publish();
    tableDel(*writer, "dir/red");
    publish();
    EXPECT_EQ(manager->entity("dir/red"), nullptr);
    tableIs("dir/red");
    publish();
    EXPECT_THAT(journal, ElementsAre("+dir/red present", "-dir/red", "+dir/red present"));
}

TEST_F(DirMounterTest, NeverUnmountedItStaysForWhenItComesAgain) {
    start(true, true);
    tableIs("dir/red");
    publish();
    const auto table = manager->entity<ColourTable>("dir/red");
    tableDel(*writer, "dir/red");
    publish();
    EXPECT_FALSE(table->present());
    EXPECT_TRUE(sut->mountedPaths()->pathHas("dir/red"));
    tableIs("dir/red");
    publish();
    EXPECT_TRUE(table->present());
    EXPECT_EQ(manager->entity<ColourTable>("dir/red"), table);
    EXPECT_THAT(journal, ElementsAre("+dir/red present"));
}

TEST_F(DirMounterTest, AReplacedStoreKeepsWhatIsMounted) {
    start(true, true);
    tableIs("dir/red");
    publish();
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    writer = makeWriter();
    tableIs("dir/red");
    tableIs("dir/blue");
    ASSERT_EQ(writer->commit(), "");
    settleAfterASecond();
    EXPECT_THAT(journal, ElementsAre("+dir/red present", "+dir/blue present"));
    EXPECT_TRUE(manager->entity<ColourTable>("dir/red")->present());
}

TEST_F(DirMounterTest, ItHearsNothingOnceItIsGone) {
    start(true, true);
    tableIs("dir/red");
    ASSERT_EQ(writer->commit(), "");
    const auto paths = sut->mountedPaths();
    sut = nullptr;
    settle();
    EXPECT_THAT(paths->paths(), IsEmpty());
}

}  // namespace
}  // namespace Mesa
