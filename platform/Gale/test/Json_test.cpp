#include "platform/Gale/JsonValue.h"
#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kRed = "/zoo[name=main]/beasts/beast[index=1]: ";

class SubscribeJson : public ServiceFixture {
protected:
    /// What was made for all subscribers in JSON_IETF; there must be one.
    JsonForms::Statistics forms() {
        return service->context().jsonForms(ValueEncoding::jsonIetf)->statistics();
    }
    static std::string beastsOf(const std::string& encoding) {
        return "encoding: " + encoding +
               " subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } } }";
    }
};

TEST_F(SubscribeJson, EveryUpdateIsOneLeafWithItsValue) {
    populate();
    const std::string all = "mode: ONCE subscription {} encoding: ";
    EXPECT_THAT(brief(subscribe(all + "JSON_IETF")),
                ElementsAre(kRed + std::string{"index=ietf \"1\" state/index=ietf \"1\" "} +
                                "state/colour=ietf \"paint:red\"",
                            "/zoo[name=main]/beasts/beast[index=2]: index=ietf \"2\" "
                            "state/index=ietf \"2\" state/colour=ietf \"paint:blue\"",
                            "/zoo[name=main]/herds/herd[id=7]: id=ietf \"7\" "
                            "members/member[index=1]/index=ietf \"1\"",
                            "/zoo[name=main]/fields/field[id=5]: id=ietf 5 state/herd=ietf \"7\"",
                            "/zoo[name=main]: name=ietf \"main\"",
                            "sync"));
    EXPECT_THAT(brief(subscribe(all + "JSON")),
                ElementsAre(kRed + std::string{"index=json 1 state/index=json 1 "} +
                                "state/colour=json \"red\"",
                            "/zoo[name=main]/beasts/beast[index=2]: index=json 2 "
                            "state/index=json 2 state/colour=json \"blue\"",
                            "/zoo[name=main]/herds/herd[id=7]: id=json 7 "
                            "members/member[index=1]/index=json 1",
                            "/zoo[name=main]/fields/field[id=5]: id=json 5 state/herd=json 7",
                            "/zoo[name=main]: name=json \"main\"",
                            "sync"));
}

TEST_F(SubscribeJson, AllButTheValuesIsAsInProto) {
    populate();
    const Rpc proto = subscribe("prefix { target: 'r' } subscription {}");
    const Rpc json = subscribe("encoding: JSON_IETF prefix { target: 'r' } subscription {}");
    view->fields.erase(5);
    settle();
    const auto expected = proto.responses();
    auto got = json.responses();
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i].update().update_size(), expected[i].update().update_size());
        for (int leaf = 0; leaf < got[i].update().update_size(); ++leaf) {
            EXPECT_TRUE(got[i].update().update(leaf).val().has_json_ietf_val());
            *got[i].mutable_update()->mutable_update(leaf)->mutable_val() =
                expected[i].update().update(leaf).val();
        }
        EXPECT_EQ(got[i].SerializeAsString(), expected[i].SerializeAsString());
    }
}

TEST_F(SubscribeJson, PartOfAnEntryAndItsEnd) {
    populate();
    const Rpc rpc = subscribe(
        "encoding: JSON_IETF subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
        "elem { name: 'beast' key { key: 'index' value: '1' } } elem { name: 'state' } "
        "elem { name: 'colour' } } }");
    EXPECT_THAT(brief(rpc),
                ElementsAre(kRed + std::string{"state/colour=ietf \"paint:red\""}, "sync"));
    rpc.reply().data.clear();
    view->beasts.set(1, "");
    settle();
    EXPECT_THAT(brief(rpc), ElementsAre("delete /zoo[name=main]/beasts/beast[index=1]"));
}

TEST_F(SubscribeJson, AFormIsMadeOnceForAllAndGoesWithTheLastOfThem) {
    populate();
    const std::int64_t before = SharedBytes::bytesAlive();
    subscribe("subscription {}");
    EXPECT_EQ(SharedBytes::bytesAlive(), before) << "PROTO costs nothing";
    const Rpc first = subscribe(beastsOf("JSON_IETF"));
    const Rpc second = subscribe(beastsOf("JSON_IETF"));
    EXPECT_EQ(brief(first), brief(second));
    EXPECT_EQ(forms().made, 2U);
    EXPECT_GT(SharedBytes::bytesAlive(), before);
    view->beasts.set(1, "green");
    settle();
    EXPECT_EQ(brief(first).size(), 4U);
    EXPECT_EQ(brief(first), brief(second));
    EXPECT_EQ(forms().made, 3U);

    first.client->reset(first.stream);
    settle();
    EXPECT_EQ(forms().made, 3U) << "the second has them still";
    second.client->reset(second.stream);
    view->beasts.set(1, "red");  // as it was
    settle();
    EXPECT_EQ(forms().made, 0U);
    EXPECT_EQ(SharedBytes::bytesAlive(), before);
}

TEST_F(SubscribeJson, WhatIsKeptIsBoundedHoweverManyEntriesThereAre) {
    for (std::uint64_t n = 1; n <= 200; ++n) { view->beasts.set(n, "grey"); }
    settle();
    const Rpc first = subscribe(beastsOf("JSON_IETF"));
    EXPECT_EQ(forms().made, 200U);
    EXPECT_LE(forms().bytes, 10'000U);
    EXPECT_GT(forms().bytes, 5'000U);
    // The last ones are shared by who comes a little later.
    const Rpc second = subscribe(beastsOf("JSON_IETF"));
    EXPECT_EQ(brief(first), brief(second));
    EXPECT_EQ(brief(second).size(), 201U);
    EXPECT_LE(forms().bytes, 10'000U);
}

TEST_F(SubscribeJson, PollGivesItToo) {
    populate();
    const Rpc rpc = subscribe("mode: POLL " + beastsOf("JSON"));
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"), true);
    settle();
    const auto all = brief(rpc);
    ASSERT_EQ(all.size(), 6U);
    EXPECT_THAT(all[3], HasSubstr("state/colour=json \"red\""));
    EXPECT_EQ(rpc.status(), "0");
}

class JsonValueTest : public testing::Test {
protected:
    static std::string text(const std::string& typedValue,
                            ValueEncoding encoding,
                            Leaf::Type type = Leaf::Type::plain,
                            const std::string& module = {}) {
        gnmi::TypedValue value;
        EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(typedValue, &value));
        std::string to;
        JsonValue::append(value.SerializeAsString(), {{}, type, module}, encoding, to);
        return to;
    }
};

TEST_F(JsonValueTest, TextIsEscaped) {
    EXPECT_EQ(text(R"(string_val: "a\"b\\c\n\001/\303\274")", ValueEncoding::jsonIetf),
              "\"a\\\"b\\\\c\\u000a\\u0001/\xc3\xbc\"");
    EXPECT_EQ(text("string_val: ''", ValueEncoding::json), "\"\"");
}

TEST_F(JsonValueTest, NumbersOf64BitsAreQuotedInIetfOnly) {
    const std::string most = "uint_val: 18446744073709551615";
    EXPECT_EQ(text(most, ValueEncoding::jsonIetf, Leaf::Type::number64),
              "\"18446744073709551615\"");
    EXPECT_EQ(text(most, ValueEncoding::json, Leaf::Type::number64), "18446744073709551615");
    EXPECT_EQ(text("uint_val: 0", ValueEncoding::jsonIetf), "0");
}

TEST_F(JsonValueTest, IdentitiesNameTheirModuleInIetfOnly) {
    const auto name = [](ValueEncoding encoding, const char* module) {
        return text("string_val: 'BGP'", encoding, Leaf::Type::identity, module);
    };
    EXPECT_EQ(name(ValueEncoding::jsonIetf, "types"), "\"types:BGP\"");
    EXPECT_EQ(name(ValueEncoding::jsonIetf, ""), "\"BGP\"");
    EXPECT_EQ(name(ValueEncoding::json, "types"), "\"BGP\"");
}

TEST_F(JsonValueTest, FlagsAndListsOfMixedElements) {
    EXPECT_EQ(text("bool_val: true", ValueEncoding::jsonIetf), "true");
    EXPECT_EQ(text("bool_val: false", ValueEncoding::json), "false");
    EXPECT_EQ(
        text("leaflist_val { element { string_val: 'IMPLICIT_NULL' } element { uint_val: 100 } }",
             ValueEncoding::jsonIetf),
        R"(["IMPLICIT_NULL",100])");
    EXPECT_EQ(text("leaflist_val { element { uint_val: 1 } }",
                   ValueEncoding::jsonIetf,
                   Leaf::Type::number64),
              R"(["1"])");
    EXPECT_EQ(text("leaflist_val {}", ValueEncoding::json), "[]");
}

}  // namespace
}  // namespace Gale
