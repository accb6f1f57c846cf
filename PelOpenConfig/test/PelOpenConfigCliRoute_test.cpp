#include "PelOpenConfig/PelOpenConfigCliRoute.h"

#include "PelOpenConfig/test/ShownExport.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

class ShowRoute : public ShownExport {
protected:
    void routeIs(const std::string& vrf,
                 const std::string& prefix,
                 std::uint64_t fec,
                 OriginProtocol origin = OriginProtocol::bgp) {
        const auto key = *Nexo::IpPrefix::parse(prefix);
        tableIs(key.address().family(), vrf).set(key, {FecId{fec}, origin});
    }
    /// A FEC over the next hop of the same number, all of it exported.
    void exportedFecIs(std::uint64_t id) {
        nextHopIs(id);
        fecIs(id);
        exportNextHop(id);
        exportGroup(id);
    }
    static Parameters to(const std::string& prefix) { return {{"PREFIX", prefix}}; }
    static Parameters to(const std::string& prefix, const std::string& vrf) {
        return {{"PREFIX", prefix}, {"VRF", vrf}};
    }
    std::string shown(const std::string& prefix) {
        const Shown result = text(*callback, to(prefix));
        EXPECT_EQ(result.error, "");
        return result.output;
    }
    nlohmann::json json(const Parameters& parameters) {
        return nlohmann::json::parse(structured(*callback, parameters).output);
    }
    /// The first line of what is shown, without the rest of the tree.
    std::string head(const std::string& prefix) {
        const std::string output = shown(prefix);
        return output.substr(0, output.find('\n'));
    }
    static std::string details(const std::string& interface = "eth1") {
        return "\t\t\tIP address: 10.0.0.1\n\t\t\tMAC address: "
               "00:1c:73:00:00:01\n\t\t\tInterface: " +
               interface + "\n\t\t\tLabels: None\n\t\t\tPop top label: false\n";
    }

    Vel::Ref<AsyncCliCallback> callback = Vel::make<ShowRouteAsyncCliCallback>(
        anchor, Vel::make<RouteSources>(vrfTables, helper, *aft));
};

TEST_F(ShowRoute, ARouteIsATreeOfPrefixFecAndNextHops) {
    nextHopIs(7);
    nextHopIs(9, "eth2");
    Stash::FlattenFec fec;
    fec.nextHopIs({nh(9), 1});
    fec.nextHopIs({nh(7), 3});
    fecIs(41, fec, {{}, 1234, true, false});
    for (const std::uint64_t id : {7U, 9U}) { exportNextHop(id); }
    exportGroup(41);
    routeIs("default", "198.51.100.0/24", 41);
    publish();
    EXPECT_EQ(shown("198.51.100.0/24"),
              "VRF: default, prefix: 198.51.100.0/24, origin: BGP\n"
              "\tFEC ID: 41, programmed ID: 1234, number of next hops: 2\n"
              "\t\tNext hop index: 9, weight 1\n" +
                  details("eth2") + "\t\tNext hop index: 7, weight 3\n" + details());
    EXPECT_EQ(
        structured(*callback, to("198.51.100.0/24")).output,
        R"({"vrfs":{"default":{"prefix":"198.51.100.0/24","originProtocol":"BGP","fecs":{"41":{)"
        R"("programmedId":1234,"exported":true,"nextHops":{"9":{"weight":1,"exported":true,)"
        R"("ipAddress":"10.0.0.1","macAddress":"00:1c:73:00:00:01","interface":"eth2","labels":[],)"
        R"("popTopLabel":false},"7":{"weight":3,"exported":true,"ipAddress":"10.0.0.1",)"
        R"("macAddress":"00:1c:73:00:00:01","interface":"eth1","labels":[],)"
        R"("popTopLabel":false}}}}}}})"
        "\n");
}

TEST_F(ShowRoute, APrefixIsLookedUpAsItIs) {
    exportedFecIs(41);
    for (const char* const prefix :
         {"0.0.0.0/0", "10.0.0.0/8", "10.1.0.0/16", "::/0", "2001:db8::/32"}) {
        routeIs("default", prefix, 41);
    }
    publish();
    for (const char* const prefix : {"0.0.0.0/0", "10.0.0.0/8", "::/0", "2001:db8::/32"}) {
        EXPECT_EQ(head(prefix), "VRF: default, prefix: " + std::string{prefix} + ", origin: BGP");
    }
    EXPECT_EQ(head("2001:DB8:0::/32"), "VRF: default, prefix: 2001:db8::/32, origin: BGP");
    EXPECT_EQ(text(*callback, to("10.0.0.0/9")).error, "% No route 10.0.0.0/9 found");
    EXPECT_EQ(text(*callback, to("2001:db8::/33")).error, "% No route 2001:db8::/33 found");
}

TEST_F(ShowRoute, AnAddressFindsItsLongestMatchAndSaysWhichItIs) {
    exportedFecIs(41);
    for (const char* const prefix : {"0.0.0.0/0", "10.0.0.0/8", "10.1.0.0/16", "10.1.2.3/32"}) {
        routeIs("default", prefix, 41);
    }
    for (const char* const prefix : {"2001:db8::/32", "2001:db8:1::/48", "2001:db8:1::1/128"}) {
        routeIs("default", prefix, 41);
    }
    publish();
    const auto matches = [this](const std::string& address, const std::string& prefix) {
        EXPECT_EQ(
            head(address),
            "VRF: default, prefix: " + prefix + ", longest match of " + address + ", origin: BGP");
        const auto vrf = json(to(address))["vrfs"]["default"];
        EXPECT_EQ(vrf["prefix"], prefix);
        EXPECT_EQ(vrf["address"], address);
    };
    matches("10.1.2.3", "10.1.2.3/32");
    matches("10.1.2.4", "10.1.0.0/16");
    matches("10.2.0.0", "10.0.0.0/8");
    matches("11.0.0.1", "0.0.0.0/0");
    matches("2001:db8:1::1", "2001:db8:1::1/128");
    matches("2001:db8:1::2", "2001:db8:1::/48");
    matches("2001:db8:2::1", "2001:db8::/32");
    EXPECT_EQ(text(*callback, to("2001:db9::1")).error, "% No route to 2001:db9::1 found");
}

TEST_F(ShowRoute, EachVrfThatHasItIsShownOrTheOneThatIsAskedFor) {
    exportedFecIs(41);
    exportedFecIs(42);
    vrfIs(1002, "empty");
    routeIs("blue", "10.0.0.0/8", 41, OriginProtocol::staticRoute);
    routeIs("default", "10.0.0.0/8", 42, OriginProtocol::unset);
    routeIs("other", "10.0.0.0/16", 41);
    publish();
    const std::string blue =
        "VRF: blue, prefix: 10.0.0.0/8, origin: STATIC\n"
        "\tFEC ID: 41, programmed ID: 0, number of next hops: 1\n"
        "\t\tNext hop index: 41, weight 1\n" +
        details();
    EXPECT_EQ(shown("10.0.0.0/8"),
              blue +
                  "VRF: default, prefix: 10.0.0.0/8\n"
                  "\tFEC ID: 42, programmed ID: 0, number of next hops: 1\n"
                  "\t\tNext hop index: 42, weight 1\n" +
                  details());
    EXPECT_EQ(text(*callback, to("10.0.0.0/8", "blue")).output, blue);
    EXPECT_EQ(
        json(to("10.0.0.0/8")).dump(),
        nlohmann::json({{"vrfs",
                         {{"blue", json(to("10.0.0.0/8", "blue"))["vrfs"]["blue"]},
                          {"default", json(to("10.0.0.0/8", "default"))["vrfs"]["default"]}}}})
            .dump());
    const std::string none = "% No route 10.0.0.0/8 found in VRF other";
    EXPECT_EQ(text(*callback, to("10.0.0.0/8", "other")).error, none);
    EXPECT_EQ(json(to("10.0.0.0/8", "other")),
              nlohmann::json({{"vrfs", nlohmann::json::object()}, {"errors", {none}}}));
    EXPECT_EQ(text(*callback, to("10.1.0.9", "other")).error,
              "% No route to 10.1.0.9 found in VRF other")
        << "a lookup that nothing answers";
}

TEST_F(ShowRoute, WhatCannotBeLookedUpIsAnError) {
    routeIs("default", "10.0.0.0/8", 41);
    tableIs(Family::ipv4, "unread", false);
    vrfIs(1001, "blue");
    publish();
    const auto error = [this](const Parameters& parameters, const std::string& want) {
        const Shown asText = text(*callback, parameters);
        EXPECT_EQ(asText.output, "");
        EXPECT_EQ(asText.error, want);
        const Shown asJson = structured(*callback, parameters);
        EXPECT_EQ(asJson.error, want);
        EXPECT_EQ(nlohmann::json::parse(asJson.output)["errors"][0], want);
    };
    for (const char* const wrong : {"",
                                    "/",
                                    "10.0.0.0/",
                                    "/8",
                                    "10.0.0/8",
                                    "10.0.0.0/33",
                                    "10.0.0.0/-1",
                                    "10.0.0.0/+8",
                                    "10.0.0.0/8 ",
                                    "10.0.0.0/8/8",
                                    "10.0.0.0/255.0.0.0",
                                    "2001:db8::/129",
                                    "fe80::1%eth0",
                                    "default"}) {
        error(to(wrong), "showRoute: '" + std::string{wrong} + "' is no address and no prefix");
    }
    error(to("10.0.0.1/8"),
          "showRoute: '10.0.0.1/8' has bits set beyond its length: did you mean 10.0.0.0/8?");
    error(
        to("2001:db8::1/64", "default"),
        "showRoute: '2001:db8::1/64' has bits set beyond its length: did you mean 2001:db8::/64?");
    error({}, "showRoute: no PREFIX is given");
    error(to("10.0.0.0/8", "green"), "% No VRF green found");
    error(to("10.0.0.0/8", ""), "% No VRF  found");
    error(to("10.0.0.0/8", "blue"), "% No route table is read in VRF blue");
    error(to("10.0.0.0/8", "unread"), "% No route table is read in VRF unread");
    error(to("::/0"), "% No route table is read");
}

TEST_F(ShowRoute, ARouteThatCannotBeReadOrNamesNoFecIsSaidToBeSo) {
    routeIs("default", "10.0.0.0/8", 0);
    routeIs("default", "11.0.0.0/8", 41);
    writer->put(tableIs(Family::ipv4, "default").table(),
                Store::KeyCodec<Nexo::IpPrefix>::encode(*Nexo::IpPrefix::parse("11.0.0.0/8")),
                "bad");
    publish();
    EXPECT_EQ(shown("10.0.0.0/8"),
              "VRF: default, prefix: 10.0.0.0/8, origin: BGP, PROBLEM: it names no FEC\n");
    EXPECT_EQ(json(to("10.0.0.0/8"))["vrfs"]["default"]["problem"], "it names no FEC");
    EXPECT_EQ(shown("11.0.0.0/8"),
              "VRF: default, prefix: 11.0.0.0/8, PROBLEM: its record cannot be read\n");
    EXPECT_EQ(json(to("11.0.0.0/8"))["vrfs"]["default"]["problem"], "its record cannot be read");
}

/// One route over a FEC with one next hop, of which something is not as it should be.
class ShowRouteProblems : public ShowRoute {
protected:
    static constexpr const char* kNotPublished = "the forwarder does not publish it";
    static constexpr const char* kNotReadable = "its record cannot be read";
    static constexpr const char* kNotTaken = "the export is off or could not take it";
    static constexpr const char* kPending = "it waits to be exported";

    /// What stands below the route, in both forms; `exported` and `problem` are of the FEC.
    void fecShows(const std::string& tree, bool exported, const std::string& problem) {
        shows(tree);
        check(fec(), exported, problem);
    }
    void nextHopShows(const std::string& line, bool exported, const std::string& problem) {
        shows(
            "\tFEC ID: 41, programmed ID: 0, number of next hops: 1\n"
            "\t\tNext hop index: 7, weight 1" +
            line);
        check(fec()["nextHops"]["7"], exported, problem);
    }
    void fecOverNextHop7() {
        Stash::FlattenFec fec;
        fec.nextHopIs({nh(7), 1});
        fecIs(41, fec);
        exportGroup(41);
    }

private:
    void shows(const std::string& tree) {
        routeIs("default", "10.0.0.0/8", 41);
        publish();
        EXPECT_EQ(shown("10.0.0.0/8"), "VRF: default, prefix: 10.0.0.0/8, origin: BGP\n" + tree);
    }
    nlohmann::json fec() { return json(to("10.0.0.0/8"))["vrfs"]["default"]["fecs"]["41"]; }
    static void check(const nlohmann::json& node, bool exported, const std::string& problem) {
        EXPECT_EQ(node["exported"], exported);
        EXPECT_EQ(node.value("problem", ""), problem);
    }
};

TEST_F(ShowRouteProblems, AFecThatIsNotPublished) {
    fecShows(
        "\tFEC ID: 41, NOT exported: the forwarder does not publish it\n", false, kNotPublished);
}

TEST_F(ShowRouteProblems, AFecThatIsNotPublishedAnyMoreAndStillExported) {
    exportGroup(41);
    fecShows(
        "\tFEC ID: 41, exported, but the forwarder does not publish it\n", true, kNotPublished);
}

TEST_F(ShowRouteProblems, AFecThatCannotBeRead) {
    fecs.set(FecId{41}, {{}, 0, true, false}, "rubbish");
    fecShows("\tFEC ID: 41, NOT exported: its record cannot be read\n", false, kNotReadable);
}

TEST_F(ShowRouteProblems, AFecWhoseEntryDoesNotVerify) {
    fecIs(41);
    writer->put(fecs.table(), Store::KeyCodec<FecId>::encode(FecId{41}), "bad");
    exportGroup(41);
    fecShows("\tFEC ID: 41, exported, but its record cannot be read\n", true, kNotReadable);
}

TEST_F(ShowRouteProblems, ABottomFec) {
    fecIs(41, Stash::FlattenFec{}, {{}, 0, false, false});
    fecShows(
        "\tFEC ID: 41, programmed ID: 0, number of next hops: 0, NOT exported: it is a bottom "
        "FEC\n",
        false,
        "it is a bottom FEC");
}

TEST_F(ShowRouteProblems, AFecThatTheExportDidNotTake) {
    fecIs(41, Stash::FlattenFec{});
    fecShows(
        "\tFEC ID: 41, programmed ID: 0, number of next hops: 0, NOT exported: the export is off "
        "or could not take it\n",
        false,
        kNotTaken);
}

TEST_F(ShowRouteProblems, AFecThatWaitsToBeExported) {
    fecIs(41, Stash::FlattenFec{});
    aft->nextHopGroups()->pendingAre([](OcApi::NextHopGroupId id) { return id.value() == 41; });
    fecShows(
        "\tFEC ID: 41, programmed ID: 0, number of next hops: 0, NOT exported: it waits to be "
        "exported\n",
        false,
        kPending);
}

TEST_F(ShowRouteProblems, ANextHopThatIsNotPublished) {
    fecOverNextHop7();
    nextHopShows(", NOT exported: the forwarder does not publish it\n", false, kNotPublished);
}

TEST_F(ShowRouteProblems, ANextHopThatCannotBeRead) {
    fecOverNextHop7();
    nextHopContentIs(7, "rubbish");
    exportNextHop(7);
    nextHopShows(", exported, but its record cannot be read\n", true, kNotReadable);
}

TEST_F(ShowRouteProblems, ANextHopThatTheExportDidNotTake) {
    fecOverNextHop7();
    nextHopIs(7);
    nextHopShows(
        ", NOT exported: the export is off or could not take it\n" + details(), false, kNotTaken);
}

TEST_F(ShowRouteProblems, ANextHopThatWaitsToBeExported) {
    fecOverNextHop7();
    nextHopIs(7);
    aft->nextHops()->pendingAre([](OcApi::NextHopIndex index) { return index.value() == 7; });
    nextHopShows(", NOT exported: it waits to be exported\n" + details(), false, kPending);
}

TEST_F(ShowRouteProblems, ANextHopWithMoreLabelsThanCanBeRead) {
    fecOverNextHop7();
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    for (std::uint32_t i = 0; i < 15; ++i) { nextHop.labels.push(Nexo::MplsLabel{16 + i}); }
    nextHopIs(7, nextHop);
    nextHopShows(
        ", NOT exported: the export is off or could not take it\n"
        "\t\t\tIP address: 10.0.0.1\n\t\t\tMAC address: 00:1c:73:00:00:01\n"
        "\t\t\tInterface: eth1\n"
        "\t\t\tLabels: NOT readable: Nexo::MplsStackEntryIndex::value < "
        "Nexo::MplsStackEntryIndex::min or > Nexo::MplsStackEntryIndex::nullValue not "
        "allowed\n"
        "\t\t\tPop top label: false\n",
        false,
        kNotTaken);
}

TEST_F(ShowRoute, AResumedRequestShowsTheSameAsOneWithoutYields) {
    exportedFecIs(41);
    for (int n = 0; n < 20; ++n) {
        const std::string vrf = "vrf" + std::to_string(n);
        routeIs(vrf, n % 3 == 0 ? "11.0.0.0/8" : "10.0.0.0/8", 41);
    }
    publish();
    const std::string asText = shown("10.0.0.1");
    const std::string asJson = structured(*callback, to("10.0.0.1")).output;
    EXPECT_EQ(keysIn(asJson).size(), 13U);
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    EXPECT_EQ(shown("10.0.0.1"), asText);
    EXPECT_EQ(structured(*callback, to("10.0.0.1")).output, asJson);
    EXPECT_EQ(text(*callback, to("12.0.0.1")).error, "% No route to 12.0.0.1 found");
}

TEST_F(ShowRoute, RequestsThatTakeTurnsShowEachTheirOwn) {
    exportedFecIs(41);
    for (const char* const vrf : {"a", "b", "c"}) { routeIs(vrf, "10.0.0.0/8", 41); }
    publish();
    const std::string asText = shown("10.0.0.0/8");
    const std::string asJson = structured(*callback, to("10.0.0.0/8")).output;
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    const auto one =
        callback->createInstanceSm(request(*callback, OutputFormat::text, to("10.0.0.0/8")));
    const auto two =
        callback->createInstanceSm(request(*callback, OutputFormat::json, to("10.0.0.0/8")));
    while (!one->allOutputProduced()) {
        one->produceOutput();
        two->produceOutput();
        EXPECT_EQ(helper->printer(), nullptr);
    }
    two->printer()->end();
    EXPECT_EQ(one->printer()->takeOutput(), asText);
    EXPECT_EQ(two->printer()->takeOutput(), asJson);
}

TEST_F(ShowRoute, VrfsMayComeAndGoWhileAClientReadsSlowly) {
    exportedFecIs(41);
    for (int n = 10; n < 30; ++n) {
        vrfIs(static_cast<std::uint32_t>(n), "vrf" + std::to_string(n));
        routeIs("vrf" + std::to_string(n), "10.0.0.0/8", 41);
    }
    publish();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    const auto machine =
        callback->createInstanceSm(request(*callback, OutputFormat::json, to("10.0.0.1")));
    for (int step = 0; !machine->allOutputProduced(); ++step) {
        machine->produceOutput();
        if (step >= 5) { continue; }  // of those that come behind it a walk would find no end
        routeIs("ahead" + std::to_string(step), "10.0.0.0/8", 41);
        routeIs("behind" + std::to_string(step), "10.0.0.0/8", 41);
        routeIs("wide" + std::to_string(step), "10.0.0.0/8", 41);
        writer->tableDel(tablePath(Family::ipv4, "ahead" + std::to_string(step - 1)));
        writer->tableDel(tablePath(Family::ipv4, "wide" + std::to_string(step - 1)));
        publish();
    }
    machine->printer()->end();
    const auto printed = keysIn(machine->printer()->takeOutput());
    for (int n = 10; n < 30; ++n) {
        EXPECT_THAT(printed, testing::Contains(Pair("vrf" + std::to_string(n), 1)));
    }
    for (const auto& [vrf, times] : printed) { EXPECT_EQ(times, 1) << vrf; }
}

TEST_F(ShowRoute, AVrfOfAnyNameIsShownWithoutDoingHarm) {
    exportedFecIs(41);
    routeIs("vrfs", "10.0.0.0/8", 41);
    routeIs("a\x1b\"\xFF", "10.0.0.0/8", 41);
    publish();
    EXPECT_THAT(shown("10.0.0.0/8"), StartsWith("VRF: a\\x1b\"\xFF, prefix: "));
    EXPECT_THAT(keysIn(structured(*callback, to("10.0.0.0/8")).output),
                ElementsAre(Pair("a\x1b\"\xEF\xBF\xBD", 1), Pair("vrfs", 1)));
}

}  // namespace
}  // namespace Pel::Oc
