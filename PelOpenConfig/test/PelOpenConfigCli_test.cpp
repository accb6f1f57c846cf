#include "PelOpenConfig/test/CliFixture.h"
#include "platform/Vel/Errors.h"

namespace Pel::Oc {
namespace {

using AgentHost::OutputFormat;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kRangeError =
    "Nexo::MplsStackEntryIndex::value < Nexo::MplsStackEntryIndex::min or > "
    "Nexo::MplsStackEntryIndex::nullValue not allowed";

class ShowFecExport : public CliFixture {
protected:
    using Sm = ShowFecExportAsyncShowCommandInstanceSm;

    AgentHost::CommandRequest request(OutputFormat format) const {
        return CliFixture::request(*callback, format);
    }
    AgentHost::CommandRequest request(OutputFormat format, const std::string& fecId) const {
        return CliFixture::request(*callback, format, {{"FECID", fecId}});
    }
    Vel::Ref<Sm> instance(const AgentHost::CommandRequest& params) {
        return Vel::refCast<Sm>(callback->createInstanceSm(params));
    }
    Shown serve(const AgentHost::CommandRequest& params) {
        return CliFixture::serve(*callback, params);
    }
    std::string text() { return serve(request(OutputFormat::text)).output; }
    std::string structured() { return serve(request(OutputFormat::json)).output; }

    /// FEC 41 over the next hops 9 and 7, of which 7 has all that a next hop can have.
    void fec41Is() {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop, "eth1.100");
        nextHop.address = *Nexo::IpGenAddr::parse("2001:db8::1");
        nextHop.labels.push(Nexo::MplsLabel{100});
        nextHop.labels.push(Nexo::MplsLabel{1048575});
        nextHop.popTopLabel = true;
        nextHopIs(7, nextHop);
        nextHopIs(9, "eth2");
        Stash::FlattenFec fec;
        fec.nextHopIs({nh(9), 1});
        fec.nextHopIs({nh(7), 4294967295U});
        fecIs(41, fec, {{}, 1234, true, false});
    }
    void bottomFecIs(std::uint64_t id) { fecIs(id, Stash::FlattenFec{}, {{}, 0, false, false}); }
    void fecWithLabelsIs(std::uint64_t id, std::uint32_t labels) {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop);
        for (std::uint32_t i = 0; i < labels; ++i) { nextHop.labels.push(Nexo::MplsLabel{16 + i}); }
        nextHopIs(id, nextHop);
        fecIs(id);
    }
    static std::string shownFec(std::uint64_t id) {
        return "FEC ID: " + std::to_string(id) + ", programmed ID: 0, number of next hops: 1\n";
    }
    int levelOf(const std::string& message) const {
        for (const Blink::Message& each : traces.messages()) {
            if (each.text == message) { return each.level; }
        }
        return 0;
    }

    Vel::Ref<ShowFecExportAsyncCliCallback> callback =
        Vel::make<ShowFecExportAsyncCliCallback>(anchor, helper);
};

TEST_F(ShowFecExport, TheCallbackBearsTheNameAndMakesAMachineForEachRequest) {
    EXPECT_EQ(callback->name(), "showFecExport");
    EXPECT_EQ(callback->anchor(), anchor);
    const auto one = instance(request(OutputFormat::text));
    const auto two = instance(request(OutputFormat::json, "7"));
    EXPECT_EQ(anchor->instances(), 2U);
    EXPECT_EQ(one->params().socket, 17);
    EXPECT_EQ(two->params().parameters.at("FECID"), "7");
    EXPECT_EQ(two->printer()->format(), OutputFormat::json);
    EXPECT_EQ(one->bookmark(), FecId{});
    EXPECT_EQ(one->yieldCount(), 0U);
}

TEST_F(ShowFecExport, TextOfAFecIsAsItHasAlwaysBeen) {
    fec41Is();
    publish();
    const std::string want =
        "FEC ID: 41, programmed ID: 1234, number of next hops: 2\n"
        "\tNext hop index: 9, weight 1\n"
        "\t\tIP address: 10.0.0.1\n"
        "\t\tMAC address: 00:1c:73:00:00:01\n"
        "\t\tInterface: eth2\n"
        "\t\tLabels: None\n"
        "\t\tPop top label: false\n"
        "\tNext hop index: 7, weight 4294967295\n"
        "\t\tIP address: 2001:db8::1\n"
        "\t\tMAC address: 00:1c:73:00:00:01\n"
        "\t\tInterface: eth1.100\n"
        "\t\tLabels: 100 1048575\n"
        "\t\tPop top label: true\n";
    EXPECT_EQ(text(), want);
    EXPECT_EQ(serve(request(OutputFormat::text, "41")).output, want);
}

TEST_F(ShowFecExport, StructuredFormOfAFecIsAsItHasAlwaysBeen) {
    fec41Is();
    publish();
    const std::string want =
        R"({"fecs":{"41":{"programmedId":1234,"nextHops":{)"
        R"("9":{"weight":1,"ipAddress":"10.0.0.1","macAddress":"00:1c:73:00:00:01",)"
        R"("interface":"eth2","labels":[],"popTopLabel":false},)"
        R"("7":{"weight":4294967295,"ipAddress":"2001:db8::1","macAddress":"00:1c:73:00:00:01",)"
        R"("interface":"eth1.100","labels":[100,1048575],"popTopLabel":true}}}}})"
        "\n";
    EXPECT_EQ(structured(), want);
    EXPECT_EQ(serve(request(OutputFormat::json, "41")).output, want);
}

TEST_F(ShowFecExport, AFecWithoutNextHopsAndAnEmptySetArePrintedAsSuch) {
    EXPECT_EQ(text(), "");
    EXPECT_EQ(structured(), "{\"fecs\":{}}\n");
    fecIs(41, Stash::FlattenFec{});
    publish();
    EXPECT_EQ(text(), "FEC ID: 41, programmed ID: 0, number of next hops: 0\n");
    EXPECT_EQ(structured(), "{\"fecs\":{\"41\":{\"programmedId\":0,\"nextHops\":{}}}}\n");
}

TEST_F(ShowFecExport, AMissingFecIsTheCommandError) {
    fecIs(41);
    publish();
    for (const char* const id : {"42", "0", "18446744073709551615"}) {
        const std::string error = std::string{"% No FEC ID "} + id + " found";
        const Shown asText = serve(request(OutputFormat::text, id));
        EXPECT_EQ(asText.output, "");
        EXPECT_EQ(asText.error, error);
        const Shown asJson = serve(request(OutputFormat::json, id));
        EXPECT_EQ(asJson.output, "{\"errors\":[\"" + error + "\"]}\n");
        EXPECT_EQ(asJson.error, error);
    }
}

TEST_F(ShowFecExport, ABottomFecPrintsNothing) {
    nextHopIs(41);
    fecIs(41);
    bottomFecIs(42);
    publish();
    EXPECT_EQ(serve(request(OutputFormat::text, "42")).output, "");
    EXPECT_TRUE(traces.has("Do not export bottom FEC ID: 42, startDict true"));
    EXPECT_EQ(serve(request(OutputFormat::json, "42")).output, "{}\n");
    EXPECT_EQ(serve(request(OutputFormat::json, "42")).error, "");
    EXPECT_THAT(text(), HasSubstr(shownFec(41)));
    EXPECT_TRUE(traces.has("Do not export bottom FEC ID: 42, startDict false"));
    EXPECT_THAT(text(), Not(HasSubstr("42")));
}

TEST_F(ShowFecExport, AFecIdIsDecimalAndHas64Bits) {
    EXPECT_EQ(CliHelper::stringToNum("0"), FecId{0});
    EXPECT_EQ(CliHelper::stringToNum("007"), FecId{7});
    EXPECT_EQ(CliHelper::stringToNum("18446744073709551615"), FecId{UINT64_MAX});
    for (const char* const wrong : {"",
                                    " ",
                                    "-1",
                                    "+1",
                                    "1 ",
                                    " 1",
                                    "0x1",
                                    "1.5",
                                    "one",
                                    "1e3",
                                    "18446744073709551616",
                                    "99999999999999999999999"}) {
        EXPECT_THROW(CliHelper::stringToNum(wrong), Vel::RangeError) << wrong;
        const std::string error = "showFecExport: '" + std::string{wrong} +
                                  "' is no FEC id: a decimal number from 0 to 18446744073709551615";
        EXPECT_EQ(serve(request(OutputFormat::text, wrong)).error, error);
        const Shown shown = serve(request(OutputFormat::json, wrong));
        EXPECT_EQ(nlohmann::json::parse(shown.output)["errors"][0], error);
    }
}

TEST_F(ShowFecExport, WhatCannotBeReadIsLeftOutAndTheRestIsPrinted) {
    fec41Is();
    fecs.set(FecId{42}, {{}, 0, true, false}, "rubbish");
    fecIs(43);                        // over a next hop that is not there
    nextHopContentIs(44, "rubbish");  // over one that does not verify
    fecIs(44);
    fecIs(45);
    nextHopIs(46);
    fecIs(46);
    writer->put(fecs.table(), Store::KeyCodec<FecId>::encode(FecId{45}), "bad");
    publish();
    const std::string output = text();
    for (const std::uint64_t id : {43U, 44U, 46U}) { EXPECT_THAT(output, HasSubstr(shownFec(id))); }
    EXPECT_THAT(output, HasSubstr("Next hop index: 7,"));
    EXPECT_THAT(output, HasSubstr("Next hop index: 46,"));
    for (const char* const left : {"FEC ID: 42", "index: 43", "index: 44", "FEC ID: 45"}) {
        EXPECT_THAT(output, Not(HasSubstr(left)));
    }
    EXPECT_EQ(traces.count("dedupedFec is null"), 2U);
    EXPECT_EQ(levelOf("dedupedFec is null"), 5);
    EXPECT_EQ(traces.count("dedupedNextHop is null"), 2U);
    EXPECT_EQ(levelOf("dedupedNextHop is null"), 5);
    EXPECT_TRUE(traces.has("Hit CorruptionDetectedException destashing writerFec"));
    EXPECT_TRUE(traces.has("destashFec: writerFec is null"));
    EXPECT_TRUE(traces.has("writerNextHop is null"));
    const auto json = nlohmann::json::parse(structured());
    EXPECT_EQ(json["fecs"].size(), 4U);
    EXPECT_EQ(json["fecs"]["43"]["nextHops"].size(), 0U);
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
}

TEST_F(ShowFecExport, FourteenLabelsArePrintedTopFirst) {
    fecWithLabelsIs(41, 14);
    publish();
    EXPECT_THAT(text(), HasSubstr("\t\tLabels: 16 17 18 19 20 21 22 23 24 25 26 27 28 29\n"));
}

TEST_F(ShowFecExport, FifteenLabelsEndTheRequestWithTheRangeErrorAndWhatWasPrintedStays) {
    nextHopIs(40);
    fecIs(40);
    fecWithLabelsIs(41, 15);
    nextHopIs(42);
    fecIs(42);
    publish();
    const std::string error = std::string{"showFecExport: "} + kRangeError;
    const Shown asText = serve(request(OutputFormat::text));
    EXPECT_EQ(asText.error, error);
    EXPECT_THAT(asText.output, HasSubstr(shownFec(40)));
    EXPECT_THAT(asText.output,
                testing::EndsWith("\tNext hop index: 41, weight 1\n"
                                  "\t\tIP address: 10.0.0.1\n"
                                  "\t\tMAC address: 00:1c:73:00:00:01\n"
                                  "\t\tInterface: eth1\n"));
    const Shown asJson = serve(request(OutputFormat::json));
    EXPECT_EQ(asJson.error, error);
    const auto json = nlohmann::json::parse(asJson.output);
    EXPECT_EQ(json["fecs"]["40"]["nextHops"]["40"]["popTopLabel"], false);
    EXPECT_EQ(json["fecs"]["41"]["nextHops"]["41"]["interface"], "eth1");
    EXPECT_FALSE(json["fecs"].contains("42"));
    EXPECT_EQ(json["errors"][0], error);
    EXPECT_EQ(stashManager->anchorValidator(), nullptr);
    EXPECT_EQ(serve(request(OutputFormat::text, "42")).error, "") << "the next one is served";
}

TEST_F(ShowFecExport, StringsOfAnyBytesArePrintedWithoutDoingHarm) {
    nextHopIs(41, "\"\xFF\\\x1b\n\xC3");
    fecIs(41);
    publish();
    const auto json = nlohmann::json::parse(structured());
    EXPECT_EQ(json["fecs"]["41"]["nextHops"]["41"]["interface"],
              "\"\xEF\xBF\xBD\\\x1b\n\xEF\xBF\xBD");
    EXPECT_THAT(text(), HasSubstr("\t\tInterface: \"\xFF\\\\x1b\\x0a\xC3\n"));
}

TEST_F(ShowFecExport, AWalkTracesItsStepsInOrder) {
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    fecIs(41, Stash::FlattenFec{});
    bottomFecIs(42);
    publish();
    const TestSupport::TraceCapture walk;
    serve(request(OutputFormat::text));
    std::vector<std::string> seen;
    for (const Blink::Message& each : walk.messages()) {
        if (each.handle.starts_with("PelOpenConfigCli")) {
            seen.push_back(each.function + " " + std::to_string(each.level) + " " + each.text);
        }
    }
    EXPECT_THAT(
        seen,
        ElementsAre("produceOutput 9 Socket: 17, command: showFecExport, outputFormat: text, "
                    "allOutputProduced: false, yieldCount: 0",
                    "showAll 7 Flatten fec have 2 fecs, which includes top & bottom fecs",
                    "showAll 7 Current bookmark: 0",
                    "showPelAdjExport 9 FEC ID: 41, startDict false",
                    "showAll 7 Yielding, yieldCount: 1",
                    "showAll 7 Setting bookmark: 42",
                    "produceOutput 9 Socket: 17, command: showFecExport, outputFormat: text, "
                    "allOutputProduced: false, yieldCount: 1",
                    "showAll 7 Flatten fec have 2 fecs, which includes top & bottom fecs",
                    "showAll 7 Current bookmark: 42",
                    "showPelAdjExport 9 FEC ID: 42, startDict false",
                    "showPelAdjExport 7 Do not export bottom FEC ID: 42, startDict false"));
    EXPECT_EQ(helper->yieldCount(), 1U);
}

TEST_F(ShowFecExport, ARequestOfOneFecTracesItsStepsInOrder) {
    fecIs(41, Stash::FlattenFec{});
    publish();
    const TestSupport::TraceCapture one;
    serve(request(OutputFormat::json, "41"));
    EXPECT_THAT(one.texts("PelOpenConfigCliCallback"),
                ElementsAre("Socket: 17, command: showFecExport, outputFormat: json, "
                            "allOutputProduced: false, yieldCount: 0",
                            "FEC ID string: 41"));
    EXPECT_THAT(one.texts("PelOpenConfigCliHelper"), ElementsAre("FEC ID: 41, startDict true"));
}

TEST_F(ShowFecExport, AResumedRequestGoesOnAtItsBookmarkAndPrintsTheSameAsOneWithoutYields) {
    for (std::uint64_t id = 1; id <= 50; ++id) {
        nextHopIs(id);
        fecIs(id);
    }
    publish();
    const std::string asText = text();
    const std::string asJson = structured();
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    EXPECT_EQ(text(), asText);
    EXPECT_EQ(structured(), asJson);
    const auto slices = instance(request(OutputFormat::text));
    slices->produceOutput();
    EXPECT_FALSE(slices->allOutputProduced());
    EXPECT_EQ(slices->bookmark(), FecId{2});
    EXPECT_EQ(slices->yieldCount(), 1U);
    std::uint64_t calls = 1;
    for (; !slices->allOutputProduced(); ++calls) { slices->produceOutput(); }
    EXPECT_EQ(calls, 50U);
    EXPECT_EQ(slices->yieldCount(), 49U);
    EXPECT_EQ(slices->printer()->takeOutput(), asText);
}

TEST_F(ShowFecExport, AFullPrinterYieldsWhateverTheScheduleSays) {
    for (std::uint64_t id = 1; id <= 1000; ++id) { fecIs(id, Stash::FlattenFec{}); }
    publish();
    const auto slices = instance(request(OutputFormat::text));
    slices->produceOutput();
    EXPECT_FALSE(slices->allOutputProduced());
    EXPECT_TRUE(slices->printer()->full());
    EXPECT_LT(slices->printer()->buffered(), AgentHost::CliPrinter::kFull + 100);
}

/// Before each slice the FEC of the bookmark goes, one behind it and one ahead come, and one of each
/// kind of those that came goes again.
TEST_F(ShowFecExport, EachFecThatLivesThroughoutIsPrintedOnceWhileOthersComeAndGo) {
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    constexpr std::uint64_t kStep = 10;
    constexpr std::uint64_t kFecs = 60;
    for (std::uint64_t n = 1; n <= kFecs; ++n) {
        fecIs(n * kStep);      // lives throughout
        fecIs(n * kStep + 5);  // goes when it is next
    }
    publish();
    const auto slices = instance(request(OutputFormat::json));
    while (!slices->allOutputProduced()) {
        slices->produceOutput();
        const std::uint64_t at = slices->bookmark().value();
        if (at % kStep == 5) { fecs.erase(FecId{at}); }
        fecIs(at / kStep * kStep + 7);
        fecIs(at > kStep ? at - kStep + 3 : 3);
        fecs.erase(FecId{at / kStep * kStep - kStep + 7});
        publish();
    }
    slices->printer()->end();
    auto printed = keysIn(slices->printer()->takeOutput());
    for (std::uint64_t n = 1; n <= kFecs; ++n) {
        EXPECT_EQ(printed[std::to_string(n * kStep)], 1) << n * kStep;
    }
    for (const auto& [id, times] : printed) { EXPECT_LE(times, 1) << id; }
}

TEST_F(ShowFecExport, AFecThatGoesBetweenTwoSlicesEndsNothing) {
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    for (const std::uint64_t id : {41U, 42U, 43U}) { fecIs(id); }
    publish();
    const auto slices = instance(request(OutputFormat::text));
    slices->produceOutput();
    for (const std::uint64_t id : {42U, 43U}) { fecs.erase(FecId{id}); }
    publish();
    slices->produceOutput();
    EXPECT_TRUE(slices->allOutputProduced());
    EXPECT_EQ(slices->printer()->takeOutput(), shownFec(41));
    EXPECT_EQ(slices->printer()->error(), "");
}

TEST_F(ShowFecExport, RequestsThatTakeTurnsPrintEachTheirOwn) {
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    for (std::uint64_t id = 1; id <= 20; ++id) {
        nextHopIs(id);
        fecIs(id);
    }
    publish();
    const std::string asText = text();
    const std::string asJson = structured();
    const auto one = instance(request(OutputFormat::text));
    const auto two = instance(request(OutputFormat::json));
    while (!one->allOutputProduced()) {
        one->produceOutput();
        two->produceOutput();
    }
    two->printer()->end();
    EXPECT_EQ(one->printer()->takeOutput(), asText);
    EXPECT_EQ(two->printer()->takeOutput(), asJson);
}

TEST_F(ShowFecExport, TheHelperLetsGoOfTheRequestsPrinterAlsoAfterAnError) {
    for (const char* const id : {"41", "x"}) {
        const auto one = instance(request(OutputFormat::text, id));
        try {
            one->produceOutput();
        } catch (const Vel::RangeError&) {}
        EXPECT_EQ(helper->printer(), nullptr) << id;
    }
}

using ShowFecExportDeathTest = ShowFecExport;

TEST_F(ShowFecExportDeathTest, RenderingWithoutAPrinterIsABrokenPrecondition) {
    EXPECT_DEATH(helper->showPelAdjExport(FecId{41}, true), "printer_ != nullptr");
}

}  // namespace
}  // namespace Pel::Oc
