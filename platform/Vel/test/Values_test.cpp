#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Vel/Attribute.h"
#include "platform/Vel/BoundedString.h"
#include "platform/Vel/Collection.h"
#include "platform/Vel/Fields.h"

namespace {

TEST(Attribute, SettingTheSameValuePublishesNothing) {
    Vel::Attribute<int> value{3};
    int calls = 0;
    const auto on = value.changed().subscribe([&] { ++calls; });
    EXPECT_FALSE(value.set(3));
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(value.set(4));
    EXPECT_EQ(calls, 1);
}

TEST(Attribute, PassingTheSameValuePublishesEachTime) {
    Vel::Attribute<int> value{3};
    std::vector<int> seen;
    const auto on = value.changed().subscribe([&] { seen.push_back(value.get()); });
    value.pass(3);
    value.pass(3);
    value.pass(4);
    EXPECT_EQ(seen, (std::vector<int>{3, 3, 4}));
}

TEST(Attribute, PublishesAfterTheChange) {
    Vel::Attribute<std::string> value{"old"};
    std::string seen;
    const auto on = value.changed().subscribe([&] { seen = value.get(); });
    value.set("new");
    EXPECT_EQ(seen, "new");
}

TEST(Collection, EachChangeIsPublishedWithItsKeyAfterwards) {
    Vel::Collection<int, std::string> values;
    std::vector<std::string> seen;
    const auto on = values.onKey().subscribe([&](const int& key) {
        const std::string* value = values.find(key);
        seen.push_back(std::to_string(key) + "=" + (value != nullptr ? *value : "gone"));
    });
    values.set(1, "a");
    values.set(1, "b");
    values.set(1, "b");  // a collection does not compare
    EXPECT_TRUE(values.erase(1));
    EXPECT_FALSE(values.erase(1));
    EXPECT_EQ(seen, (std::vector<std::string>{"1=a", "1=b", "1=b", "1=gone"}));
}

TEST(Collection, SettingAnswersWhatWasThere) {
    Vel::Collection<int, std::string> values;
    EXPECT_EQ(values.set(1, "a"), std::nullopt);
    EXPECT_EQ(values.set(1, "b"), "a");
    EXPECT_EQ(*values.find(1), "b");
}

TEST(Collection, TheKeyToEraseMayBeItsOwn) {
    Vel::Collection<std::string, int> values;
    values.set("a key too long for a small string", 1);
    std::string seen;
    const auto on = values.onKey().subscribe([&](const std::string& key) { seen = key; });
    values.erase(values.begin()->first);
    EXPECT_EQ(seen, "a key too long for a small string");
}

TEST(Collection, AReplacedOrErasedValueLivesUntilAllHaveBeenTold) {
    Vel::Collection<int, std::shared_ptr<int>> values;
    values.set(1, std::make_shared<int>(1));
    std::weak_ptr<int> old = *values.find(1);
    bool lived = false;
    const auto on = values.onKey().subscribe([&](const int&) { lived = !old.expired(); });
    values.set(1, std::make_shared<int>(2));
    EXPECT_TRUE(lived);
    EXPECT_TRUE(old.expired());
    old = *values.find(1);
    values.erase(1);
    EXPECT_TRUE(lived);
    EXPECT_TRUE(old.expired());
}

TEST(Collection, ClearingErasesEachOnceInOrderAndEndsThoughOneIsPutBack) {
    Vel::Collection<int, int> values;
    for (const int key : {3, 1, 2}) { values.set(key, key); }
    std::vector<int> seen;
    const auto on = values.onKey().subscribe([&](const int& key) {
        seen.push_back(key);
        if (key == 2 && !values.has(2)) { values.set(2, 20); }
    });
    values.clear();
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 2, 3}));
    ASSERT_EQ(values.size(), 1U);
    EXPECT_EQ(*values.find(2), 20);
}

TEST(Collection, ClearingHandsOverWhatWasThereAndTellsOnceWhoWantsNoMore) {
    Vel::Collection<int, int> values;
    std::vector<std::string> seen;
    const auto on = values.onKeyOrClear().subscribe([&](const int* key) {
        seen.push_back((key != nullptr ? std::to_string(*key) : "all") + " of " +
                       std::to_string(values.size()));
    });
    values.clear();
    for (const int key : {3, 1, 2}) { values.set(key, key); }
    values.erase(2);
    const auto gone = values.clear();
    EXPECT_EQ(seen, (std::vector<std::string>{"3 of 1", "1 of 2", "2 of 3", "2 of 2", "all of 0"}));
    EXPECT_EQ(gone.size(), 2U);
    EXPECT_TRUE(gone.contains(3));
}

TEST(Collection, NextKeyGoesThroughACollectionThatChanges) {
    Vel::Collection<int, int> values;
    EXPECT_EQ(values.nextKey(std::nullopt), std::nullopt);
    for (const int key : {10, 20, 30}) { values.set(key, 0); }
    EXPECT_EQ(values.nextKey(std::nullopt), 10);
    EXPECT_EQ(values.nextKey(10), 20);
    values.erase(20);
    values.set(25, 0);
    EXPECT_EQ(values.nextKey(20), 25);
    EXPECT_EQ(values.nextKey(30), std::nullopt);
}

TEST(BoundedString, TheLongestFitsAndOneByteMoreDoesNot) {
    EXPECT_EQ(Vel::BoundedString<100>{std::string(100, 'x')}.stringValue(), std::string(100, 'x'));
    try {
        const Vel::BoundedString<100> tooLong{std::string(101, 'x')};
        FAIL();
    } catch (const Vel::RangeError& error) {
        EXPECT_STREQ(error.what(), "Vel::String::bytes > maxLength() not allowed");
    }
}

TEST(BoundedString, ComparesAsItsText) {
    EXPECT_LT(Vel::BoundedString<4>{"a"}, Vel::BoundedString<4>{"b"});
    EXPECT_EQ(Vel::BoundedString<4>{"a"}, Vel::BoundedString<4>{"a"});
    EXPECT_TRUE(Vel::BoundedString<4>{}.empty());
}

enum class Color : std::uint8_t { red = 1 };
struct Inner {
    int a = 1;
    static constexpr auto fields() { return Vel::fields(Vel::field("a", &Inner::a)); }
    friend bool operator==(const Inner& x, const Inner& y) { return Vel::isEq(x, y); }
};
struct Record {
    bool flag = false;
    std::uint8_t small = 7;
    std::string text = "eth0";
    Color color = Color::red;
    Inner inner;
    std::optional<int> maybe;
    std::vector<int> list;
    Vel::BoundedString<8> name{"default"};
    static constexpr auto fields() {
        return Vel::fields(Vel::field("flag", &Record::flag),
                           Vel::field("small", &Record::small),
                           Vel::field("text", &Record::text),
                           Vel::field("color", &Record::color),
                           Vel::field("inner", &Record::inner),
                           Vel::field("maybe", &Record::maybe),
                           Vel::field("list", &Record::list),
                           Vel::field("name", &Record::name));
    }
};

TEST(Fields, TheStringFormNamesEveryField) {
    Record record;
    EXPECT_EQ(Vel::toString(record),
              "{flag: false, small: 7, text: \"eth0\", color: 1, inner: {a: 1}, maybe: none, "
              "list: [], name: default}");
    record.maybe = -3;
    record.list = {1, 2};
    record.flag = true;
    EXPECT_EQ(Vel::toString(record),
              "{flag: true, small: 7, text: \"eth0\", color: 1, inner: {a: 1}, maybe: -3, "
              "list: [1, 2], name: default}");
}

struct Change {
    const char* name;
    void (*apply)(Record&);
};
class FieldsEquality : public testing::TestWithParam<Change> {};

TEST_P(FieldsEquality, ADifferenceMakesUnequal) {
    const Record same;
    Record record;
    EXPECT_TRUE(Vel::isEq(record, same));
    GetParam().apply(record);
    EXPECT_FALSE(Vel::isEq(record, same));
    EXPECT_TRUE(Vel::isEq(record, record));
}
INSTANTIATE_TEST_SUITE_P(
    ,
    FieldsEquality,
    testing::Values(Change{"Flag", [](Record& r) { r.flag = true; }},
                    Change{"Small", [](Record& r) { r.small = 8; }},
                    Change{"Text", [](Record& r) { r.text = "eth1"; }},
                    Change{"Color", [](Record& r) { r.color = Color{2}; }},
                    Change{"Inner", [](Record& r) { r.inner.a = 2; }},
                    Change{"Maybe", [](Record& r) { r.maybe = 0; }},
                    Change{"List", [](Record& r) { r.list = {0}; }},
                    Change{"Name", [](Record& r) { r.name = Vel::BoundedString<8>{"x"}; }}),
    [](const auto& row) { return std::string{row.param.name}; });

}  // namespace
