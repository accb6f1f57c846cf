#include "platform/Vel/Entity.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Leaf final : Vel::Entity {
    using Vel::Entity::Entity;
    explicit Leaf(std::string name, int initial) : Vel::Entity{std::move(name)}, value{initial} {}
    int value = 0;
};
struct Other final : Vel::Entity {
    using Vel::Entity::Entity;
};

using Names = std::vector<std::string>;

class DirTest : public testing::Test {
protected:
    DirTest()
        : onEntity_{dir_->onEntity().subscribe([this](const std::string& name) {
              published_.push_back(name + (dir_ && dir_->has(name) ? " there" : " gone"));
          })},
          onChange_{dir_->onChange().subscribe([this] { ++changes_; })} {}

    Vel::Ref<Vel::Dir> dir_ = Vel::make<Vel::Dir>("dir");
    Names published_;
    int changes_ = 0;
    Vel::Subscription onEntity_;
    Vel::Subscription onChange_;
};

TEST_F(DirTest, CreateMakesTheChildAndPublishesAfterwards) {
    const auto leaf = dir_->entityIs<Leaf>("a", 5);
    EXPECT_EQ(leaf->name(), "a");
    EXPECT_EQ(leaf->value, 5);
    EXPECT_EQ(published_, Names{"a there"});
    EXPECT_EQ(changes_, 1);
}

TEST_F(DirTest, CreateFindsTheChildThatIsThere) {
    const auto leaf = dir_->entityIs<Leaf>("a", 5);
    EXPECT_TRUE(dir_->entityIs<Leaf>("a", 6) == leaf);
    EXPECT_EQ(leaf->value, 5);
    EXPECT_EQ(changes_, 1);
}

TEST_F(DirTest, AChildOfAnotherTypeIsNull) {
    dir_->entityIs<Leaf>("a");
    EXPECT_TRUE(dir_->entityIs<Other>("a") == nullptr);
    EXPECT_TRUE(dir_->entity<Other>("a") == nullptr);
    EXPECT_TRUE(dir_->entity<Leaf>("a") != nullptr);
    EXPECT_TRUE(dir_->entity("b") == nullptr);
}

TEST_F(DirTest, DeletionPublishesOnlyWhatWasThere) {
    dir_->entityIs<Leaf>("a");
    dir_->entityDel("a");
    dir_->entityDel("a");
    EXPECT_EQ(published_, (Names{"a there", "a gone"}));
    EXPECT_EQ(changes_, 2);
}

TEST_F(DirTest, TheNameToDeleteMayBeTheChildsOwn) {
    const Vel::Entity* leaf = dir_->entityIs<Leaf>("a name too long for a small string").get();
    dir_->entityDel(leaf->name());
    EXPECT_EQ(published_.back(), "a name too long for a small string gone");
}

TEST_F(DirTest, AReplacedChildIsPublishedOnceAndTheOldOneEnds) {
    dir_->entityIs<Leaf>("a", 1);
    dir_->insert(Vel::make<Leaf>("a", 2));
    EXPECT_EQ(dir_->entity<Leaf>("a")->value, 2);
    EXPECT_EQ(published_, (Names{"a there", "a there"}));
}

TEST_F(DirTest, DeletingAllGoesInOrderOfNames) {
    for (const char* name : {"c", "a", "b"}) { dir_->entityIs<Leaf>(name); }
    published_.clear();
    dir_->entityDelAll();
    EXPECT_EQ(published_, (Names{"a gone", "b gone", "c gone"}));
    EXPECT_EQ(dir_->size(), 0U);
}

TEST_F(DirTest, DeletingAllEndsThoughAReactionPutsOneBack) {
    dir_->entityIs<Leaf>("a");
    const auto putBack = dir_->onEntity().subscribe([this](const std::string& name) {
        if (!dir_->has(name)) { dir_->entityIs<Leaf>(name); }
    });
    dir_->entityDelAll();
    EXPECT_TRUE(dir_->has("a"));
}

TEST_F(DirTest, AReactionMayLetGoOfTheDirectory) {
    const auto drop = dir_->onEntity().subscribe([this](const std::string&) { dir_ = nullptr; });
    dir_->entityIs<Leaf>("a");
    EXPECT_EQ(published_, Names{"a there"});
    EXPECT_EQ(changes_, 1);
}

TEST_F(DirTest, WhatAChildsReactionThrowsDoesNotHideTheChangeOfTheDirectory) {
    const auto bad =
        dir_->onEntity().subscribe([](const std::string&) { throw std::runtime_error{"bad"}; });
    EXPECT_THROW(dir_->entityIs<Leaf>("a"), std::runtime_error);
    EXPECT_EQ(changes_, 1);
    EXPECT_TRUE(dir_->has("a"));
}

TEST(DirDeathTest, NullIsNoChild) {
    const auto dir = Vel::make<Vel::Dir>("dir");
    EXPECT_DEATH(dir->insert(nullptr), "assertion failed: entity != nullptr");
}

}  // namespace
