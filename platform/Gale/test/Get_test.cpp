#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kRedJson =
    R"({"index":"1","state":{"index":"1","zoo-colours:colour":"paint:red"}})";
constexpr const char* kBlueJson =
    R"({"index":"2","state":{"index":"2","zoo-colours:colour":"paint:blue"}})";

class Get : public ServiceFixture {
protected:
    /// "/path=value" of each update, in order.
    static std::vector<std::string> leaves(const gnmi::Notification& notification) {
        std::vector<std::string> all;
        for (const gnmi::Update& update : notification.update()) {
            EXPECT_TRUE(update.has_path());
            all.push_back(pathText(notification.prefix(), update.path()) + "=" +
                          valueText(update.val()));
        }
        return all;
    }
    std::vector<std::string> leavesOf(const std::string& request) {
        const gnmi::GetResponse response = answer(get(request));
        EXPECT_EQ(response.notification_size(), 1);
        return response.notification_size() == 1 ? leaves(response.notification(0))
                                                 : std::vector<std::string>{};
    }
    /// As many beasts as make a Get of many slices.
    void crowd(std::uint64_t beasts) {
        for (std::uint64_t n = 1; n <= beasts; ++n) { view->beasts.set(n, "grey"); }
        settle();
    }
};

TEST_F(Get, OneNotificationForEachPathInTheOrderOfTheRequest) {
    populate();
    const auto response = answer(get(path("zoo[name=main]/herds") +
                                     path("zoo[name=main]/beasts/beast[index=2]/state/colour") +
                                     path("zoo[name=main]/herds")));
    ASSERT_EQ(response.notification_size(), 3);
    const std::vector<std::string> herd{
        "/zoo[name=main]/herds/herd[id=7]/id=7",
        "/zoo[name=main]/herds/herd[id=7]/members/member[index=1]/index=1"};
    EXPECT_EQ(leaves(response.notification(0)), herd);
    EXPECT_THAT(leaves(response.notification(1)),
                ElementsAre("/zoo[name=main]/beasts/beast[index=2]/state/colour=blue"));
    EXPECT_EQ(leaves(response.notification(2)), herd);
    for (const gnmi::Notification& notification : response.notification()) {
        EXPECT_EQ(notification.timestamp(), clock.wallNanoseconds());
        EXPECT_FALSE(notification.atomic());
        EXPECT_EQ(notification.delete__size(), 0);
    }
}

TEST_F(Get, ProtoGivesEveryLeafBelowThePathWithEntriesThatAreEncodedWhenSent) {
    populate();
    EXPECT_THAT(leavesOf(path("")),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]/index=1",
                            "/zoo[name=main]/beasts/beast[index=1]/state/index=1",
                            "/zoo[name=main]/beasts/beast[index=1]/state/colour=red",
                            "/zoo[name=main]/beasts/beast[index=2]/index=2",
                            "/zoo[name=main]/beasts/beast[index=2]/state/index=2",
                            "/zoo[name=main]/beasts/beast[index=2]/state/colour=blue",
                            "/zoo[name=main]/herds/herd[id=7]/id=7",
                            "/zoo[name=main]/herds/herd[id=7]/members/member[index=1]/index=1",
                            "/zoo[name=main]/fields/field[id=5]/id=5",
                            "/zoo[name=main]/fields/field[id=5]/state/herd=7",
                            "/zoo[name=main]/name=main"));
}

TEST_F(Get, EverySplitBetweenPrefixAndPathGivesTheSameAnswer) {
    populate();
    const std::string whole = "zoo[name=main]/beasts/beast[index=1]/state";
    const auto expected = leavesOf(path(whole));
    EXPECT_EQ(expected.size(), 2U);
    for (std::size_t at = 0; at != std::string::npos; at = whole.find('/', at + 1)) {
        const std::string prefix = "prefix" + path(whole.substr(0, at)).substr(5);
        const std::string rest = at == 0 ? whole : whole.substr(at + 1);
        EXPECT_EQ(leavesOf(prefix + path(rest)), expected) << prefix;
    }
    EXPECT_EQ(leavesOf("prefix" + path(whole).substr(5) + path("")), expected);
}

TEST_F(Get, TargetIsEchoedAndNeverInventedAndTheOriginIsNamed) {
    populate();
    const auto with = answer(get("prefix { target: 'router-7' }" + path("zoo") + path("zoo")));
    ASSERT_EQ(with.notification_size(), 2);
    EXPECT_EQ(with.notification(0).prefix().target(), "router-7");
    EXPECT_EQ(with.notification(1).prefix().target(), "router-7");
    EXPECT_EQ(with.notification(1).prefix().origin(), "openconfig");
    const auto without = answer(get(path("zoo")));
    EXPECT_EQ(without.notification(0).prefix().target(), "");
    EXPECT_EQ(without.notification(0).prefix().origin(), "openconfig");
    EXPECT_EQ(leavesOf("path { origin: 'openconfig' }").size(), 11U);
}

TEST_F(Get, WildcardsAreAnsweredWithNamedEntries) {
    populate();
    EXPECT_THAT(leavesOf(path("zoo/beasts/beast/state/colour")),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]/state/colour=red",
                            "/zoo[name=main]/beasts/beast[index=2]/state/colour=blue"));
    EXPECT_EQ(leavesOf(path("zoo[name=*]/*/beast[index=*]/state/colour")).size(), 2U);
    EXPECT_THAT(leavesOf(path(".../herd[id=7]/.../index")),
                ElementsAre("/zoo[name=main]/herds/herd[id=7]/members/member[index=1]/index=1"));
    EXPECT_THAT(leavesOf("encoding: JSON_IETF" + path("zoo/beasts/beast")),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]=ietf " +
                                std::string{R"({"zoo-main:index":"1","zoo-main:state":)"} +
                                R"({"index":"1","zoo-colours:colour":"paint:red"}})",
                            "/zoo[name=main]/beasts/beast[index=2]=ietf " +
                                std::string{R"({"zoo-main:index":"2","zoo-main:state":)"} +
                                R"({"index":"2","zoo-colours:colour":"paint:blue"}})"));
    EXPECT_THAT(leavesOf("encoding: JSON_IETF" + path(".../state/index")),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]/state/index=ietf \"1\"",
                            "/zoo[name=main]/beasts/beast[index=2]/state/index=ietf \"2\""));
}

struct TreeCase {
    const char* name;
    const char* path;
    const char* ietf;
    const char* json;
};
constexpr TreeCase kTrees[] = {
    {"LeafIsABareValue", "zoo[name=main]/beasts/beast[index=1]/index", R"("1")", "1"},
    {"IdentityNamesItsModule",
     "zoo[name=main]/beasts/beast[index=1]/state/colour",
     R"("paint:red")",
     R"("red")"},
    {"SmallNumberIsNotQuoted", "zoo[name=main]/fields/field[id=5]/id", "5", "5"},
    {"ContainerIsItsContent",
     "zoo[name=main]/beasts/beast[index=1]/state",
     R"({"zoo-main:index":"1","zoo-colours:colour":"paint:red"})",
     R"({"index":1,"colour":"red"})"},
    {"ContainerAboveAList",
     "zoo[name=main]/herds",
     R"({"zoo-main:herd":[{"id":"7","members":{"member":[{"index":"1"}]}}]})",
     R"({"herd":[{"id":7,"members":{"member":[{"index":1}]}}]})"},
    {"ListInsideAnEntry",
     "zoo[name=main]/herds/herd[id=7]/members",
     R"({"zoo-main:member":[{"index":"1"}]})",
     R"({"member":[{"index":1}]})"},
};
class GetTree : public Get, public testing::WithParamInterface<TreeCase> {};
TEST_P(GetTree, IsJsonOfTheNode) {
    populate();
    const std::string node = "/" + std::string{GetParam().path} + "=";
    EXPECT_THAT(leavesOf("encoding: JSON_IETF" + path(GetParam().path)),
                ElementsAre(node + "ietf " + GetParam().ietf));
    EXPECT_THAT(leavesOf("encoding: JSON" + path(GetParam().path)),
                ElementsAre(node + "json " + GetParam().json));
}
INSTANTIATE_TEST_SUITE_P(, GetTree, testing::ValuesIn(kTrees), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(Get, TheRootIsOneTreeOfAllEntriesWhereverTheyStand) {
    populate();
    const std::string main =
        std::string{R"({"beasts":{"beast":[)"} + kRedJson + "," + kBlueJson +
        R"(]},"herds":{"herd":[{"id":"7","members":{"member":[{"index":"1"}]}}]},)" +
        R"("fields":{"field":[{"id":5,"state":{"herd":"7"}}]},"name":"main"})";
    EXPECT_THAT(leavesOf("encoding: JSON_IETF" + path("")),
                ElementsAre("=ietf {\"zoo-main:zoo\":[" + main + "]}"));
    EXPECT_THAT(leavesOf("encoding: JSON_IETF" + path("zoo[name=main]/beasts")),
                ElementsAre("/zoo[name=main]/beasts=ietf {\"zoo-main:beast\":[" +
                            std::string{kRedJson} + "," + kBlueJson + "]}"));
}

TEST_F(Get, JsonIsTheEncodingWhenNoneIsNamed) {
    populate();
    const Rpc rpc = call("Get", bytes<gnmi::GetRequest>(path("zoo[name=main]/name")));
    EXPECT_THAT(leaves(answer(rpc).notification(0)),
                ElementsAre("/zoo[name=main]/name=json \"main\""));
}

TEST_F(Get, AllOfAZooIsStateAndNothingConfiguration) {
    populate();
    for (const char* const type : {"ALL", "STATE", "OPERATIONAL"}) {
        EXPECT_EQ(leavesOf("type: " + std::string{type} + path("")).size(), 11U) << type;
    }
    for (const char* const encoding : {"PROTO", "JSON_IETF"}) {
        const std::string some = "type: CONFIG encoding: " + std::string{encoding};
        EXPECT_THAT(leavesOf(some + path("")), ElementsAre());
        EXPECT_THAT(leavesOf(some + path("zoo/herds/herd")), ElementsAre());
        EXPECT_EQ(get(some + path("zoo/herds/herd[id=8]")).status(), "5") << "it is not there";
    }
}

TEST_F(Get, ModelsThatAreNotServedHideEverything) {
    populate();
    EXPECT_THAT(leavesOf("use_models { name: 'farm' }" + path("")), ElementsAre());
    EXPECT_EQ(leavesOf("use_models { name: 'zoo' }" + path("")).size(), 11U);
}

struct GetErrorCase {
    const char* name;
    const char* request;
    int status;
    const char* text;
};
constexpr GetErrorCase kErrors[] = {
    {"NoPaths", "", 3, "no paths"},
    {"TooManyPaths", "path {} path {} path {} path {} path {}", 8, "5 paths, at most 4"},
    {"TooManyModels",
     "path {} use_models {} use_models {} use_models {} use_models {} use_models {}",
     8,
     "5 use_models, at most 4"},
    {"ALongTarget",
     "prefix { target: '"
     "0123456789012345678901234567890123456789012345678901234567890123456789"
     "0123456789012345678901234567890123456789' } path {}",
     3,
     "110 bytes, at most 100"},
    {"UnknownType", "type: 9 path {}", 3, "unknown type 9"},
    {"Ascii", "encoding: ASCII path {}", 12, "encoding ASCII"},
    {"UnknownEncoding", "encoding: 77 path {}", 12, "encoding 77"},
    {"Missing",
     "path { elem { name: 'zoo' key { key: 'name' value: 'sea' } } }",
     5,
     "/zoo[name=sea]"},
    {"MissingAmongOthers",
     "path {} path { elem { name: 'zoo' } elem { name: 'visitors' } }",
     5,
     "/zoo/visitors"},
    {"WildcardWithoutMatch",
     "path { elem { name: 'zoo' } elem { name: '*' } elem { name: 'beast' "
     "key { key: 'index' value: '9' } } }",
     5,
     "/zoo/*/beast[index=9]"},
    {"MissingAsJson",
     "encoding: JSON_IETF path { elem { name: 'zoo' } elem { name: 'visitors' } }",
     5,
     "/zoo/visitors"},
    {"UnknownNode", "path {} path { elem { name: 'garden' } }", 12, "/garden"},
    {"UnknownKey",
     "path { elem { name: 'zoo' key { key: 'id' value: 'x' } } }",
     3,
     "/zoo[id=x] has a key"},
    {"KeyOnAContainer",
     "path { elem { name: 'zoo' } elem { name: 'beasts' key { key: 'index' value: '1' } } }",
     3,
     "/zoo/beasts[index=1] has a key"},
    {"BelowALeaf",
     "path { elem { name: 'zoo' } elem { name: 'name' } elem { name: 'x' } }",
     12,
     "/zoo/name/x"},
    {"EmptyElementName", "path { elem { name: 'zoo' } elem {} }", 3, "without a name after /zoo"},
    {"OldElementField", "path { element: 'zoo' }", 3, "\"element\""},
    {"TargetInPath", "path { target: 'me' }", 3, "target"},
    {"OriginTwice", "prefix { origin: 'openconfig' } path { origin: 'openconfig' }", 3, "both"},
    {"OriginBelowPrefix",
     "prefix { elem { name: 'zoo' } } path { origin: 'openconfig' }",
     3,
     "prefix"},
    {"UnknownOrigin", "path { origin: 'elsewhere' }", 12, "\"elsewhere\""},
    {"TooDeep",
     "path { elem { name: '*' } elem { name: '*' } elem { name: '*' } elem { name: '*' } "
     "elem { name: '*' } elem { name: '*' } elem { name: '*' } elem { name: '*' } "
     "elem { name: '*' } }",
     3,
     "9 elements, at most 8"},
    {"TooLong",
     "path { elem { name: '0123456789012345678901234567890123456789012345678901234567890123456789"
     "0123456789012345678901234567890123456789' } }",
     3,
     "110 bytes, at most 100"},
    {"Depth", "extension { depth { level: 1 } } path {}", 12, "depth"},
    {"History", "extension { history { snapshot_time: 1 } } path {}", 12, "history"},
};
class GetErrors : public Get, public testing::WithParamInterface<GetErrorCase> {};
TEST_P(GetErrors, EndTheCallWithTheirNames) {
    populate();
    const Rpc rpc = get(GetParam().request);
    EXPECT_EQ(rpc.status(), std::to_string(GetParam().status)) << rpc.text();
    EXPECT_THAT(rpc.text(), HasSubstr(GetParam().text));
    EXPECT_TRUE(rpc.reply().messages().empty());
    EXPECT_EQ(service->context().gets, 0U);
}
INSTANTIATE_TEST_SUITE_P(, GetErrors, testing::ValuesIn(kErrors), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(Get, GarbageIsNoRequest) {
    const Rpc rpc = call("Get", "\xff\xff rubbish");
    EXPECT_EQ(rpc.status(), "3");
    EXPECT_THAT(rpc.text(), HasSubstr("gnmi.GetRequest"));
}

TEST_F(Get, TooLargeAnAnswerIsRefusedWithAnAdvice) {
    crowd(8000);
    for (const char* const encoding : {"PROTO", "JSON_IETF"}) {
        const Rpc rpc = get("encoding: " + std::string{encoding} + path(""));
        finish(rpc);
        EXPECT_EQ(rpc.status(), "8") << encoding;
        EXPECT_THAT(rpc.text(), HasSubstr("more than 400000 bytes"));
        EXPECT_THAT(rpc.text(), HasSubstr("Subscribe with mode ONCE"));
    }
    EXPECT_EQ(service->context().gets, 0U);
    EXPECT_EQ(channel().journal.statistics().cursors, 0U);
}

TEST_F(Get, SoManyEntriesThatTheirKeysAloneAreTooMuchAreRefusedWhileTheyAreCollected) {
    crowd(9000);
    const Rpc rpc = get(path("zoo/beasts/beast/state/colour"));
    finish(rpc);
    EXPECT_EQ(rpc.status(), "8");
    const Rpc one = get(path("zoo/beasts/beast[index=9000]/state/colour"));
    finish(one);
    EXPECT_EQ(one.status(), "0");
}

TEST_F(Get, OthersAreServedBetweenTheSlicesOfALargeOne) {
    service->context().limits.getBytes = 100U << 20U;
    crowd(10000);
    clients.push_back(std::make_unique<Wire::WireClient>(
        server->port(), true, std::vector<Wire::WireClient::Setting>{{4, 1U << 30U}}));
    Wire::WireClient& large = *clients.back();
    const auto stream = large.open(Wire::WireClient::head("/gnmi.gNMI/Get"));
    large.send(stream, bytes<gnmi::GetRequest>("encoding: JSON_IETF" + path("")), true);
    for (int i = 0; i < 1000 && service->context().gets == 0; ++i) {
        large.pump();
        server->runOnce();
    }
    ASSERT_EQ(service->context().gets, 1U);
    // The other one asks when the large one has begun, and is done first.
    EXPECT_EQ(call("Capabilities", "").status(), "0");
    EXPECT_EQ(large.reply(stream).status(), "");
    finish({&large, stream});
    ASSERT_EQ(large.reply(stream).status(), "0");
    gnmi::GetResponse response;
    ASSERT_TRUE(response.ParseFromString(large.reply(stream).messages().at(0)));
    const std::string tree = response.notification(0).update(0).val().json_ietf_val();
    EXPECT_THAT(tree, HasSubstr(R"({"index":"10000","state":{"index":"10000",)"));
}

TEST_F(Get, AClientThatGoesAwayFreesAllOfIt) {
    populate();
    Journal::Batch batch{channel().journal};
    channel().journal.updateValue(Lane::prefixes, {0, 0, 9}, 7, 1);
    const Rpc rpc = get(path(""));
    EXPECT_EQ(rpc.status(), "") << "the snapshot waits for the end of the batch";
    EXPECT_EQ(service->context().gets, 1U);
    rpc.client->reset(rpc.stream);
    settle();
    EXPECT_EQ(service->context().gets, 0U);
    EXPECT_EQ(service->subscribers().size(), 0U);
    EXPECT_EQ(channel().journal.statistics().cursors, 0U);
}

TEST_F(Get, TheSnapshotIsTakenBetweenBatchesAndHoldsWhatChangedMeanwhile) {
    populate();
    Rpc rpc;
    {
        Journal::Batch batch{channel().journal};
        channel().journal.updateValue(Lane::prefixes, {0, 0, 5}, 8, 1);
        channel().journal.remove(Lane::nextHops, {0, 0, 2}, "");
        rpc = get(path("zoo/beasts/beast/index") + path("zoo/fields"));
        EXPECT_EQ(rpc.status(), "");
        channel().journal.updateValue(Lane::prefixes, {0, 0, 6}, 7, 1);
        channel().journal.updateValue(Lane::prefixes, {0, 0, 5}, 7, 1);
    }
    settle();
    const auto response = answer(rpc);
    EXPECT_THAT(leaves(response.notification(0)),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]/index=1"));
    EXPECT_THAT(leaves(response.notification(1)),
                ElementsAre("/zoo[name=main]/fields/field[id=5]/id=5",
                            "/zoo[name=main]/fields/field[id=5]/state/herd=7",
                            "/zoo[name=main]/fields/field[id=6]/id=6",
                            "/zoo[name=main]/fields/field[id=6]/state/herd=7"));
}

TEST_F(Get, CallsAtATimeAreLimited) {
    populate();
    std::vector<Rpc> waiting;
    {
        Journal::Batch batch{channel().journal};
        channel().journal.updateValue(Lane::prefixes, {0, 0, 9}, 7, 1);
        waiting.push_back(get(path("")));
        waiting.push_back(get(path("")));
        const Rpc third = get(path(""));
        EXPECT_EQ(third.status(), "8");
        EXPECT_THAT(third.text(), HasSubstr("2 Get calls"));
    }
    settle();
    for (const Rpc& rpc : waiting) { EXPECT_EQ(rpc.status(), "0"); }
    EXPECT_EQ(get(path("")).status(), "0");
}

/// Over a view whose entries are made on demand.
class LazyGet : public ServiceFixture {
protected:
    LazyGet() : ServiceFixture(true) {}
};

TEST_F(LazyGet, WaitsUntilTheEntriesAreThere) {
    populate();
    const gnmi::GetResponse response =
        answer(get("encoding: JSON" + path("zoo[name=main]/fields") + path("zoo[name=main]/name")));
    ASSERT_EQ(response.notification_size(), 2);
    EXPECT_EQ(response.notification(0).update(0).val().json_val(),
              R"({"field":[{"id":5,"state":{"herd":7}}]})");
    EXPECT_EQ(response.notification(1).update(0).val().json_val(), "\"main\"");
    advance(std::chrono::hours(1));
    EXPECT_EQ(channel().lazyFill->state(), LazyFill::State::empty);
    EXPECT_EQ(get(path("zoo[name=main]/name")).status(), "0");
}

TEST_F(LazyGet, APollKeepsItsEntriesBetweenPolls) {
    populate();
    const Rpc rpc = subscribe("mode: POLL subscription {}");
    const auto first = brief(rpc);
    EXPECT_EQ(first.size(), 6U);
    advance(std::chrono::hours(1));
    EXPECT_EQ(channel().lazyFill->state(), LazyFill::State::filled);
    rpc.reply().data.clear();
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"), true);
    settle();
    EXPECT_EQ(brief(rpc), first);
    EXPECT_EQ(rpc.status(), "0");
}

}  // namespace
}  // namespace Gale
