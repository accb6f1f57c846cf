#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Gale {
namespace {

struct ErrorCase {
    const char* name;
    const char* list;
    int status;
    const char* text;  // part of the message
};

constexpr ErrorCase kErrors[] = {
    {"EmptyList", "", 3, "no subscriptions"},
    {"UnknownMode", "mode: 7 subscription {}", 3, "unknown mode 7"},
    {"AsciiIsNamed", "encoding: ASCII subscription {}", 12, "encoding ASCII"},
    {"BytesIsNamed", "encoding: BYTES mode: ONCE subscription {}", 12, "encoding BYTES"},
    {"UnknownEncoding", "encoding: 77 subscription {}", 12, "encoding 77"},
    {"TooMany",
     "subscription {} subscription {} subscription {} subscription {} subscription {}",
     8,
     "at most 4"},
    {"SampleTooShort",
     "subscription { mode: SAMPLE sample_interval: 999999999 }",
     3,
     "sample_interval 999999999 (/) is too short: the shortest is 1000000000"},
    {"UnknownSubscriptionMode", "subscription { mode: 9 }", 3, "unknown subscription mode 9"},
    {"IntervalWithTargetDefined", "subscription { sample_interval: 5 }", 3, "sample_interval"},
    {"HeartbeatTooShort",
     "subscription { mode: ON_CHANGE heartbeat_interval: 5 }",
     3,
     "heartbeat_interval 5 (/) is too short"},
    {"HeartbeatOfSuppressedSampleTooShort",
     "subscription { mode: SAMPLE suppress_redundant: true heartbeat_interval: 5 }",
     3,
     "heartbeat_interval 5 (/) is too short"},
    {"OneBadIntervalAmongGoodOnes",
     "subscription { mode: SAMPLE } subscription { mode: SAMPLE sample_interval: 1 }",
     3,
     "sample_interval 1 "},
    {"UnknownNode", "subscription { path { elem { name: 'garden' } } }", 12, "/garden"},
    {"UnknownNodeBelowKnownOne",
     "subscription { path { elem { name: 'zoo' } elem { name: 'bar' } } }",
     12,
     "/zoo/bar"},
    {"OneBadAmongGoodOnes",
     "subscription {} subscription { path { elem { name: 'garden' } } }",
     12,
     "/garden"},
    {"BelowALeaf",
     "subscription { path { elem { name: 'zoo' } elem { name: 'name' } elem { name: 'x' } } }",
     12,
     "/zoo/name/x"},
    {"UnknownKey",
     "subscription { path { elem { name: 'zoo' key { key: 'id' value: 'x' } } } }",
     3,
     "key"},
    {"KeyOnAContainer",
     "subscription { path { elem { name: 'zoo' } "
     "elem { name: 'beasts' key { key: 'index' value: '1' } } } }",
     3,
     "key"},
    {"EmptyElementName",
     "subscription { path { elem { name: 'zoo' } elem {} } }",
     3,
     "without a name after /zoo"},
    {"EmptyElementNameInPrefix", "prefix { elem {} } subscription {}", 3, "without a name"},
    {"OldElementField", "subscription { path { element: 'zoo' } }", 3, "deprecated"},
    {"TargetInPath", "subscription { path { target: 'me' } }", 3, "target"},
    {"OriginTwice",
     "prefix { origin: 'openconfig' } subscription { path { origin: 'openconfig' } }",
     3,
     "both"},
    {"OriginInPathBelowPrefix",
     "prefix { elem { name: 'zoo' } } subscription { path { origin: 'openconfig' } }",
     3,
     "prefix"},
    {"UnknownOrigin", "prefix { origin: 'elsewhere' } subscription {}", 12, "elsewhere"},
    {"KeysOnAnyDepth",
     "subscription { path { elem { name: '...' key { key: 'a' value: 'b' } } } }",
     3,
     "takes no keys"},
    {"TooDeep",
     "prefix { elem { name: '*' } elem { name: '*' } elem { name: '*' } elem { name: '*' } } "
     "subscription { path { elem { name: '*' } elem { name: '*' } elem { name: '*' } "
     "elem { name: '*' } elem { name: '*' } } }",
     3,
     "at most 8"},
    {"TooLong",
     "subscription { path { elem { name: 'zoo' key { key: 'name' value: "
     "'0123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890"
     "123456789' } } } }",
     3,
     "at most 100"},
};

class SubscribeErrors : public ServiceFixture, public testing::WithParamInterface<ErrorCase> {};
TEST_P(SubscribeErrors, EndTheCall) {
    const Rpc rpc = subscribe(GetParam().list);
    EXPECT_EQ(rpc.status(), std::to_string(GetParam().status)) << rpc.text();
    EXPECT_NE(rpc.text().find(GetParam().text), std::string::npos) << rpc.text();
    EXPECT_TRUE(rpc.responses().empty());
    EXPECT_EQ(service->subscribers().size(), 0U);
}
INSTANTIATE_TEST_SUITE_P(, SubscribeErrors, testing::ValuesIn(kErrors), [](const auto& row) {
    return std::string{row.param.name};
});

using SubscribeOrder = ServiceFixture;

TEST_F(SubscribeOrder, FirstMessageMustHoldSubscribe) {
    EXPECT_EQ(call("Subscribe", bytes<gnmi::SubscribeRequest>("poll {}")).status(), "3");
    EXPECT_EQ(call("Subscribe", "").status(), "3");
    EXPECT_EQ(call("Subscribe", "\xff\xff rubbish").status(), "3");
}

TEST_F(SubscribeOrder, SecondSubscribeEndsThisCallOnly) {
    const Rpc other = subscribe("subscription {}");
    const Rpc rpc = subscribe("subscription {}");
    EXPECT_EQ(rpc.status(), "");
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("subscribe { subscription {} }"));
    settle();
    EXPECT_EQ(rpc.status(), "3");
    EXPECT_NE(rpc.text().find("one subscribe"), std::string::npos);
    EXPECT_EQ(other.status(), "");
    EXPECT_EQ(service->subscribers().size(), 1U);
}

TEST_F(SubscribeOrder, PollOutsidePollModeEndsTheCall) {
    const Rpc rpc = subscribe("subscription {}");
    rpc.client->send(rpc.stream, bytes<gnmi::SubscribeRequest>("poll {}"));
    settle();
    EXPECT_EQ(rpc.status(), "3");
}

TEST_F(SubscribeOrder, HalfCloseBeforeSubscribeIsAnErrorAndAfterItIsNot) {
    clients.push_back(std::make_unique<Wire::WireClient>(
        server->port(), true, std::vector<Wire::WireClient::Setting>{}));
    const auto stream = clients.back()->open(Wire::WireClient::head("/gnmi.gNMI/Subscribe"));
    clients.back()->halfClose(stream);
    settle();
    EXPECT_EQ(clients.back()->reply(stream).status(), "3");

    const Rpc rpc = subscribe("subscription {}", true);
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(rpc.status(), "");
    EXPECT_EQ(brief(rpc).back(),
              "/zoo[name=main]/beasts/beast[index=1]: index=1 state/index=1 "
              "state/colour=red");
}

TEST_F(SubscribeOrder, SubscribersAreLimitedAndComeBackWithACancel) {
    std::vector<Rpc> all;
    for (int i = 0; i < 3; ++i) { all.push_back(subscribe("subscription {}")); }
    EXPECT_EQ(subscribe("subscription {}").status(), "8");
    all[1].client->reset(all[1].stream);
    settle();
    EXPECT_EQ(service->subscribers().size(), 2U);
    EXPECT_EQ(subscribe("subscription {}").status(), "");
}

TEST_F(SubscribeOrder, ExtensionsWhoseNeglectGivesWrongDataAreRefused) {
    const std::string list = " subscribe { encoding: PROTO subscription {} }";
    const auto status = [&](const std::string& extension) {
        return call("Subscribe",
                    bytes<gnmi::SubscribeRequest>("extension { " + extension + " }" + list),
                    false)
            .status();
    };
    EXPECT_EQ(status("history { snapshot_time: 1 }"), "12");
    EXPECT_EQ(status("commit { id: 'a' }"), "12");
    EXPECT_EQ(status("config_subscription { start {} }"), "12");
    EXPECT_EQ(status("depth { level: 1 }"), "12");
    EXPECT_EQ(status("master_arbitration {}"), "");
    EXPECT_EQ(status("registered_ext { id: EID_EXPERIMENTAL msg: 'x' }"), "");
}

using OtherRpcs = ServiceFixture;

TEST_F(OtherRpcs, CapabilitiesNamesVersionModelsAndWhatIsServed) {
    const Rpc rpc = call("Capabilities", "");
    ASSERT_EQ(rpc.status(), "0");
    gnmi::CapabilityResponse response;
    ASSERT_TRUE(response.ParseFromString(rpc.reply().messages().at(0)));
    EXPECT_EQ(response.gnmi_version(), "0.10.0");
    ASSERT_EQ(response.supported_models_size(), 1);
    EXPECT_EQ(response.supported_models(0).name(), "zoo");
    EXPECT_EQ(response.supported_models(0).organization(), "Keepers");
    EXPECT_EQ(response.supported_models(0).version(), "1.2.3");
    EXPECT_THAT(response.supported_encodings(),
                testing::UnorderedElementsAre(gnmi::JSON, gnmi::PROTO, gnmi::JSON_IETF));
    EXPECT_EQ(
        call("Capabilities", bytes<gnmi::CapabilityRequest>("extension { depth {} }")).status(),
        "3");
}

TEST_F(OtherRpcs, SetWithoutPathsIsFineAndWithOneIsRefused) {
    const Rpc empty = call("Set", "");
    ASSERT_EQ(empty.status(), "0");
    gnmi::SetResponse response;
    ASSERT_TRUE(response.ParseFromString(empty.reply().messages().at(0)));
    EXPECT_EQ(response.timestamp(), clock.wallNanoseconds());
    EXPECT_EQ(response.response_size(), 0);
    EXPECT_EQ(call("Set", bytes<gnmi::SetRequest>("delete {}")).status(), "7");
    EXPECT_EQ(call("Set", bytes<gnmi::SetRequest>("update {}")).status(), "7");
    EXPECT_EQ(call("Set", bytes<gnmi::SetRequest>("union_replace {}")).status(), "7");
    EXPECT_EQ(call("Set", bytes<gnmi::SetRequest>("union_replace {} update {}")).status(), "3");
    EXPECT_EQ(call("Set", bytes<gnmi::SetRequest>("extension { depth {} }")).status(), "3");
    EXPECT_EQ(call("Set", "\xff\xff").status(), "3");
}

}  // namespace
}  // namespace Gale
