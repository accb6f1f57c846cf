#include "PelOpenConfig/PelNexthopVxlanRequeue.h"
#include "PelOpenConfig/test/HeaderTexts.h"
#include "PelOpenConfig/test/MapperFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VxlanFixture : public MapperFixture {
protected:
    static Nexo::IntfId vti(const std::string& name) { return Nexo::IntfId{name}; }
    static Nexo::ExtendedVlanId vlan(std::uint32_t id) { return Nexo::ExtendedVlanId{id}; }
    void vtepIs(const std::string& name, const std::string& v4, const std::string& v6 = "") {
        Vxlan::VtiStatus& status = statusOf(name);
        status.vtepAddr = Nexo::IpGenAddr::parse(v4).value_or(Nexo::IpGenAddr{});
        status.vtepAddrV6 = Nexo::IpGenAddr::parse(v6).value_or(Nexo::IpGenAddr{});
        vtisAre(vtis);
    }
    void vniIs(const std::string& name, std::uint32_t ofVlan, std::uint32_t vni) {
        statusOf(name).vlanVniMap[ofVlan] = vni;
        vtisAre(vtis);
    }
    Vxlan::VtiStatus& statusOf(const std::string& name) {
        Vxlan::VtiStatus& status = vtis.vti[vti(name)];
        status.name = vti(name);
        return status;
    }
    void vxlanIs(std::uint64_t id, const std::string& name, std::uint32_t onVlan) {
        nextHopIs(id, *vxlanNextHop(name, onVlan));
    }
    /// Next hops 1 and 2 over vxlan1, 3 over vxlan2, all on VLAN 100, are exported.
    void startWithThree() {
        vxlanIs(1, "vxlan1", 100);
        vxlanIs(2, "vxlan1", 100);
        vxlanIs(3, "vxlan2", 100);
        publish();
        vtepIs("vxlan1", "192.0.2.1");
        vtepIs("vxlan2", "192.0.2.2");
        start();
        settle();
        later.emplace();
        onNextHop = nextHopSet->onNextHop().subscribe(
            [this](const OcApi::NextHopIndex& id) { exported.push_back(id.value()); });
    }
    std::string headers(std::uint64_t id) const {
        return entry(id) == nullptr ? "no entry" : headerTexts(entry(id)->encapHeaders);
    }
    std::vector<std::string> told() const { return later->texts("PelNexthopMapperSm"); }
    std::vector<std::uint64_t> overVti(const std::string& name) const {
        return idsOf(sut->vxlanIndexes().vtiToNextHopIdMap(), vti(name));
    }
    std::vector<std::uint64_t> onVlan(std::uint32_t id) const {
        return idsOf(sut->vxlanIndexes().vlanToNextHopIdMap(), vlan(id));
    }
    const NextHopVxlanInfo* shadow(std::uint64_t id) const {
        return sut->vxlanIndexes().nextHopVxlanInfo(nh(id));
    }

    Vxlan::VtiStatusDirRecord vtis;
    std::vector<std::uint64_t> exported;
    std::optional<TestSupport::TraceCapture> later;
    Vel::Subscription onNextHop;

private:
    template <class Map, class Key>
    static std::vector<std::uint64_t> idsOf(const Map& map, const Key& key) {
        std::vector<std::uint64_t> ids;
        const auto it = map.find(key);
        if (it == map.end()) { return ids; }
        EXPECT_EQ(it->second.id(), key);
        EXPECT_FALSE(it->second.nextHopId().empty()) << "an empty entry is no entry";
        for (const auto id : it->second.nextHopId()) { ids.push_back(id.value()); }
        return ids;
    }
};

using NexthopVxlan = UnderBothPolicies<VxlanFixture>;
INSTANTIATE_TEST_SUITE_P(, NexthopVxlan, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(NexthopVxlan, OneVxlanHeaderAtIndex0WhateverTheOrderHolds) {
    const auto nextHop = encapsulated({4, 9, 7});
    nextHop->vxlan = Stash::VxlanEncap{vti("vxlan1"), 100};
    nextHopIs(7, *nextHop);
    publish();
    vtepIs("vxlan1", "192.0.2.1");
    vniIs("vxlan1", 100, 10100);
    start();
    settle();
    EXPECT_EQ(headers(7), "0 vxlan 192.0.2.1 10100");
    const auto all = texts();
    const auto at = [&](const std::string& text) {
        return std::find(all.begin(), all.end(), text) - all.begin();
    };
    EXPECT_LT(at("Encountered unsupported encap type 7"),
              at("Adding the encapHeaders to the next hop object"));
    EXPECT_EQ(at("Adding the encapHeaders to the next hop object") + 1,
              at("VxLAN Encap to process, VLAN: 100, VTI: vxlan1"));
    EXPECT_EQ(at("VxLAN Encap to process, VLAN: 100, VTI: vxlan1") + 1,
              at("nextHopId 7 with nhgId 1, entryId 7 to add to map"));
}

TEST_P(NexthopVxlan, AVxlanNextHopIsIndexedByVtiAndVlan) {
    startWithThree();
    vxlanIs(4, "vxlan1", 200);
    publish();
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(1, 2, 4));
    EXPECT_THAT(overVti("vxlan2"), ElementsAre(3));
    EXPECT_THAT(onVlan(100), ElementsAre(1, 2, 3));
    EXPECT_THAT(onVlan(200), ElementsAre(4));
    ASSERT_NE(shadow(4), nullptr);
    EXPECT_EQ(*shadow(4), (NextHopVxlanInfo{vti("vxlan1"), vlan(200)}));
    EXPECT_EQ(sut->vxlanIndexes().nextHopVxlanInfoShadowMap().size(), 4U);
}

TEST_P(NexthopVxlan, APlainNextHopIsNotIndexed) {
    nextHopIs(7);
    publish();
    start();
    settle();
    EXPECT_TRUE(sut->vxlanIndexes().vtiToNextHopIdMap().empty());
    EXPECT_TRUE(sut->vxlanIndexes().vlanToNextHopIdMap().empty());
    EXPECT_EQ(shadow(7), nullptr);
}

TEST_P(NexthopVxlan, AVlanBeyond16383IsIndexedUnderVlan0) {
    vxlanIs(1, "vxlan1", 16383);
    vxlanIs(2, "vxlan1", 16384);
    vxlanIs(3, "vxlan1", 0xffffffff);
    publish();
    vniIs("vxlan1", 0, 5000);
    vniIs("vxlan1", 16383, 6000);
    start();
    settle();
    EXPECT_THAT(onVlan(16383), ElementsAre(1));
    EXPECT_THAT(onVlan(0), ElementsAre(2, 3));
    EXPECT_EQ(headers(1), "0 vxlan - 6000");
    EXPECT_EQ(headers(2), "0 vxlan - 5000");
    EXPECT_EQ(traces.count("Extended VLAN ID is out of bound, setting to default."), 2U);
    EXPECT_TRUE(traces.has("VxLAN Encap to process, VLAN: 16384, VTI: vxlan1"));
}

TEST_P(NexthopVxlan, TheLocalEndIsTheIpv6AddressUnlessItIsAllZero) {
    startWithThree();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 -");
    vtepIs("vxlan1", "192.0.2.1", "2001:db8::1");
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 2001:db8::1 -");
    vtepIs("vxlan1", "192.0.2.1", "::");
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 -");
    vtepIs("vxlan1", "0.0.0.0", "::");
    settle();
    EXPECT_EQ(headers(1), "0 vxlan - -") << "an address that is not known is left out";
}

TEST_P(NexthopVxlan, AVniThatIsNotKnownIsLeftOutAndNever0) {
    startWithThree();
    vniIs("vxlan1", 200, 10200);
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 -");
    vniIs("vxlan1", 100, 0);
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 -");
    vniIs("vxlan1", 100, 16777215);
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 16777215");
    statusOf("vxlan1").vlanVniMap.erase(100);
    vtisAre(vtis);
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 -");
}

TEST_P(NexthopVxlan, AStatusThatComesAfterItsNextHopsOrGoesMapsThemAgain) {
    vxlanIs(1, "vxlan1", 100);
    publish();
    start();
    settle();
    EXPECT_EQ(headers(1), "0 vxlan - -");
    statusOf("vxlan1").vlanVniMap[100] = 10100;
    vtepIs("vxlan1", "192.0.2.1");
    settle();
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.1 10100");
    EXPECT_EQ(traces.count("vtiId to process vxlan1"), 2U) << "both families";
    vtis.vti.clear();
    vtisAre(vtis);
    settle();
    EXPECT_EQ(headers(1), "0 vxlan - -");
}

TEST_P(NexthopVxlan, AVtepChangeMapsTheNextHopsOfItsVtiAgainAndNoOther) {
    startWithThree();
    vtepIs("vxlan1", "192.0.2.9");
    EXPECT_THAT(exported, IsEmpty()) << "a reaction only records";
    EXPECT_FALSE(sut->backlogEmpty());
    settle();
    EXPECT_THAT(exported, ElementsAre(1, 2));
    EXPECT_EQ(headers(2), "0 vxlan 192.0.2.9 -");
    EXPECT_THAT(told()[0], "vtiId to process vxlan1");
    EXPECT_THAT(told()[1], "NH ID to process 1");
    EXPECT_THAT(told()[2], "NH ID to process 2");
    EXPECT_THAT(told()[3], "nhId to process 1");
}

TEST_P(NexthopVxlan, BothFamiliesAtOnceMapEachNextHopOnce) {
    startWithThree();
    vtepIs("vxlan1", "192.0.2.9", "2001:db8::9");
    settle();
    EXPECT_THAT(exported, ElementsAre(1, 2));
    EXPECT_EQ(later->count("vtiId to process vxlan1"), 2U);
}

TEST_P(NexthopVxlan, ChangesOfSeveralVtisAtOnceMapTheNextHopsOfAll) {
    startWithThree();
    statusOf("vxlan1").vtepAddr = *Nexo::IpGenAddr::parse("192.0.2.9");
    vtepIs("vxlan2", "192.0.2.10");
    settle();
    EXPECT_THAT(exported, testing::UnorderedElementsAre(1, 2, 3));
    EXPECT_EQ(headers(3), "0 vxlan 192.0.2.10 -");
}

TEST_P(NexthopVxlan, AVtepChangeWithoutNextHopsOnlyTraces) {
    startWithThree();
    const auto runs = sut->walkStatistics().runs;
    vtepIs("vxlan1", "192.0.2.1");
    EXPECT_THAT(told(), IsEmpty()) << "no change";
    vtepIs("vxlan9", "192.0.2.9");
    settle();
    EXPECT_THAT(told(),
                ElementsAre("vtiId to process vxlan9",
                            "vtiToNextHopIdMap does not contain this vtiId, bailing out",
                            "vtiId to process vxlan9",
                            "vtiToNextHopIdMap does not contain this vtiId, bailing out"));
    EXPECT_EQ(sut->walkStatistics().runs, runs) << "no walk";
}

TEST_P(NexthopVxlan, AVniChangeOnASharedVlanMapsOnlyTheNextHopsOfItsVtiAgain) {
    startWithThree();
    vxlanIs(4, "vxlan1", 200);
    publish();
    exported.clear();
    later.emplace();
    vniIs("vxlan1", 100, 10100);
    settle();
    EXPECT_THAT(exported, ElementsAre(1, 2));
    EXPECT_THAT(told()[0], "vtiId, vlanId to process vxlan1; 100");
    EXPECT_THAT(told()[1], "NH ID to process 1");
    EXPECT_THAT(told()[2], "NH ID to process 2");
    EXPECT_FALSE(later->has("NH ID to process 3"));
    EXPECT_FALSE(later->has("NH ID to process 4"));
    vniIs("vxlan2", 100, 10100);
    settle();
    EXPECT_THAT(exported, ElementsAre(1, 2, 3));
}

TEST_P(NexthopVxlan, AVniChangeWithoutNextHopsOnlyTraces) {
    startWithThree();
    const auto runs = sut->walkStatistics().runs;
    vniIs("vxlan1", 300, 10300);
    settle();
    EXPECT_THAT(told(),
                ElementsAre("vtiId, vlanId to process vxlan1; 300",
                            "vlanToNextHopIdMap does not contain this vtiId, bailing out"));
    EXPECT_EQ(sut->walkStatistics().runs, runs) << "no walk";
}

TEST_P(NexthopVxlan, AVniChangeBeyondTheVlansConcernsNobody) {
    startWithThree();
    vniIs("vxlan1", 16384, 5000);
    settle();
    EXPECT_THAT(told(), ElementsAre("vxlan1: 16384 is no VLAN, the change of its VNI is left out"));
}

TEST_P(NexthopVxlan, DeletingTheLastNextHopOfAVtiRemovesItsEntry) {
    startWithThree();
    nextHopDel(3);
    publish();
    EXPECT_THAT(told(),
                ElementsAre("nhId 3",
                            "nhId to process 3",
                            "Detected VxLAN Encap info to remove from supporting collections: "
                            "nhID: 3, VTI ID: vxlan2, VLAN ID: 100",
                            "nextHopId 3 not present in map",
                            "Deleted",
                            "FlattenFecSet fecReady: false"));
    EXPECT_THAT(overVti("vxlan2"), IsEmpty());
    EXPECT_THAT(onVlan(100), ElementsAre(1, 2));
    EXPECT_EQ(shadow(3), nullptr);
    later.emplace();
    vtepIs("vxlan2", "192.0.2.9");
    settle();
    EXPECT_THAT(told(),
                ElementsAre("vtiId to process vxlan2",
                            "vtiToNextHopIdMap does not contain this vtiId, bailing out"));
    nextHopDel(1);
    nextHopDel(2);
    publish();
    EXPECT_TRUE(sut->vxlanIndexes().vtiToNextHopIdMap().empty());
    EXPECT_TRUE(sut->vxlanIndexes().vlanToNextHopIdMap().empty());
    EXPECT_TRUE(sut->vxlanIndexes().nextHopVxlanInfoShadowMap().empty());
}

TEST_P(NexthopVxlan, ANextHopThatMovesLeavesItsOldEntries) {
    startWithThree();
    vxlanIs(1, "vxlan2", 200);
    publish();
    EXPECT_TRUE(later->has(
        "Detected VxLAN Encap info to remove from supporting collections: nhID: 1, VTI ID: vxlan1, "
        "VLAN ID: 100"));
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(2));
    EXPECT_THAT(overVti("vxlan2"), ElementsAre(1, 3));
    EXPECT_THAT(onVlan(100), ElementsAre(2, 3));
    EXPECT_THAT(onVlan(200), ElementsAre(1));
    EXPECT_EQ(headers(1), "0 vxlan 192.0.2.2 -");
    vxlanIs(1, "vxlan2", 300);  // the VLAN only
    publish();
    EXPECT_THAT(overVti("vxlan2"), ElementsAre(1, 3));
    EXPECT_THAT(onVlan(200), IsEmpty());
    EXPECT_THAT(onVlan(300), ElementsAre(1));
}

TEST_P(NexthopVxlan, ANextHopThatIsMappedAgainAsItWasStaysWhereItIs) {
    startWithThree();
    sut->handleNextHop(nh(1));
    settle();
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(1, 2));
    for (const std::string& text : told()) { EXPECT_FALSE(text.starts_with("Detected")); }
}

TEST_P(NexthopVxlan, ANextHopThatCarriesVxlanNoLongerLeavesTheIndexes) {
    startWithThree();
    nextHopIs(3, *encapsulated({4}));
    publish();
    EXPECT_EQ(headers(3), "0 mpls [17, 16]");
    EXPECT_TRUE(later->has(
        "Detected VxLAN Encap info to remove from supporting collections: nhID: 3, VTI ID: vxlan2, "
        "VLAN ID: 100"));
    EXPECT_THAT(overVti("vxlan2"), IsEmpty());
    EXPECT_THAT(onVlan(100), ElementsAre(1, 2));
    EXPECT_EQ(shadow(3), nullptr);
}

TEST_P(NexthopVxlan, WhatCannotBeReadOrBuiltStaysIndexedAsItIsExported) {
    startWithThree();
    nextHopContentIs(1, "rubbish");
    const auto tooDeep = vxlanNextHop("vxlan2", 200);
    for (std::uint32_t i = 0; i < 15; ++i) { tooDeep->labels.push(Nexo::MplsLabel{100 + i}); }
    nextHopIs(2, *tooDeep);
    publish();
    EXPECT_EQ(sut->failedElements(), 1U);
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(1, 2));
    EXPECT_THAT(overVti("vxlan2"), ElementsAre(3));
    EXPECT_EQ(headers(2), "0 vxlan 192.0.2.1 -");
}

TEST_P(NexthopVxlan, CleaningUpDoesNotClearTheIndexes) {
    startWithThree();
    sut->handleCleanup();
    EXPECT_EQ(nextHopSet->size(), 0U);
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(1, 2));
}

TEST_P(NexthopVxlan, NhReadyWaitsForTheNextHopsOfAChange) {
    startWithThree();
    vtepIs("vxlan1", "192.0.2.9");
    fecReadyIs(true);
    EXPECT_FALSE(fecReadyState->nhReady());
    std::string then;
    const auto watch = fecReadyState->onNhReady().subscribe([&] { then = headers(2); });
    settle();
    EXPECT_TRUE(fecReadyState->nhReady());
    EXPECT_EQ(then, "0 vxlan 192.0.2.9 -");
}

TEST_P(NexthopVxlan, AChangeInTheMiddleOfItsOwnWalkIsMappedToTheEnd) {
    constexpr std::uint64_t kCount = 100;
    for (std::uint64_t id = 1; id <= kCount; ++id) { vxlanIs(id, "vxlan1", 100); }
    publish();
    start();
    settle();
    int changes = 0;
    onNextHop = nextHopSet->onNextHop().subscribe([&](const OcApi::NextHopIndex& id) {
        if (id.value() == 50 && ++changes <= 2) {
            vtepIs("vxlan1", "192.0.2." + std::to_string(100 + changes));
        }
    });
    vtepIs("vxlan1", "192.0.2.1");
    settle();
    for (std::uint64_t id = 1; id <= kCount; ++id) {
        EXPECT_EQ(headers(id), "0 vxlan 192.0.2.102 -") << id;
    }
}

TEST_P(NexthopVxlan, WithoutAVtiDirectoryTheHeaderHasNoState) {
    vxlanVtiStatusDir = nullptr;
    vxlanIs(1, "vxlan1", 100);
    publish();
    start();
    settle();
    EXPECT_EQ(headers(1), "0 vxlan - -");
    EXPECT_THAT(overVti("vxlan1"), ElementsAre(1));
}

TEST_P(NexthopVxlan, MessagesCarryTheFunctionNamesAndLevelsOfTheirHandlers) {
    startWithThree();
    vniIs("vxlan1", 100, 10100);
    vniIs("vxlan1", 300, 10300);
    settle();
    using Where = std::pair<std::string, int>;
    std::map<std::string, std::vector<Where>> seen;
    const auto look = [&] {
        seen.clear();
        for (const Blink::Message& message : later->messages()) {
            seen[message.text].push_back({message.function, message.level});
        }
    };
    look();
    const std::string function = "handleVlanVniMapChange";
    EXPECT_THAT(seen["vtiId, vlanId to process vxlan1; 100"], ElementsAre(Where{function, 9}));
    EXPECT_THAT(seen["NH ID to process 1"], ElementsAre(Where{function, 9}));
    EXPECT_THAT(seen["vlanToNextHopIdMap does not contain this vtiId, bailing out"],
                ElementsAre(Where{function, 9}));
    later.emplace();
    vtepIs("vxlan1", "192.0.2.9");
    vtepIs("vxlan9", "192.0.2.9");
    settle();
    look();
    EXPECT_THAT(seen["vtiId to process vxlan1"], ElementsAre(Where{"handleVtepAddrChange", 9}));
    EXPECT_THAT(seen["NH ID to process 1"], ElementsAre(Where{"handleVtepAddrChange", 9}));
    EXPECT_EQ(seen["vtiToNextHopIdMap does not contain this vtiId, bailing out"][0],
              (Where{"handleVtepAddrChange", 9}));
}

class VxlanRequeue : public testing::Test {
protected:
    VxlanRequeue() {
        for (std::uint64_t id = 1; id <= 100; ++id) {
            indexes.nextHopIs(Stash::OcNextHopIndex{id}, {big, vlan});
        }
        indexes.nextHopIs(Stash::OcNextHopIndex{200}, {small, vlan});
        indexes.nextHopIs(Stash::OcNextHopIndex{201}, {small, other});
    }
    /// One step; answers its next hops.
    std::vector<std::uint64_t> step() {
        std::vector<std::uint64_t> ids;
        more = sut.step(
            [&](const VxlanChange&, Stash::OcNextHopIndex id) { ids.push_back(id.value()); });
        return ids;
    }

    const Nexo::IntfId big{"vxlan1"};
    const Nexo::IntfId small{"vxlan2"};
    const Nexo::ExtendedVlanId vlan{100};
    const Nexo::ExtendedVlanId other{200};
    NexthopVxlanIndexes indexes;
    NexthopVxlanRequeue sut{indexes};
    bool more = false;
};

TEST_F(VxlanRequeue, AStepIsAFewNextHops) {
    EXPECT_THAT(step(), IsEmpty());
    EXPECT_FALSE(more);
    sut.changeIs({big, std::nullopt});
    std::vector<std::uint64_t> all;
    int steps = 0;
    do {
        const auto some = step();
        EXPECT_LE(some.size(), 16U);
        all.insert(all.end(), some.begin(), some.end());
        ++steps;
    } while (more && steps < 100);
    EXPECT_EQ(all.size(), 100U);
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(steps, 7);
}

TEST_F(VxlanRequeue, AnInterfaceThatNeverRestsHoldsUpNobody) {
    sut.changeIs({big, std::nullopt});
    sut.changeIs({small, std::nullopt});
    std::set<std::uint64_t> all;
    for (int i = 0; i < 10; ++i) {
        for (const std::uint64_t id : step()) { all.insert(id); }
        sut.changeIs({big, std::nullopt});
    }
    EXPECT_EQ(all.size(), 102U) << "its own last ones, and the other interface's";
}

TEST_F(VxlanRequeue, AChangeThatComesAgainBeforeItsTurnIsOne) {
    for (int i = 0; i < 3; ++i) { sut.changeIs({small, std::nullopt}); }
    EXPECT_THAT(step(), ElementsAre(200, 201));
    EXPECT_FALSE(more);
}

TEST_F(VxlanRequeue, OfAVlanOnlyTheInterfacesOwnAreHandedOnFromWhicheverSetIsSmaller) {
    sut.changeIs({small, vlan});
    EXPECT_THAT(step(), ElementsAre(200));
    EXPECT_FALSE(more) << "two next hops of the interface are looked at, not 101 of the VLAN";
    indexes.nextHopIs(Stash::OcNextHopIndex{202}, {big, other});
    sut.changeIs({big, other});
    EXPECT_THAT(step(), ElementsAre(202));
    EXPECT_FALSE(more) << "two next hops of the VLAN are looked at, not 101 of the interface";
}

TEST_F(VxlanRequeue, AnIndexThatIsGoneBeforeItsTurnIsNothing) {
    sut.changeIs({small, std::nullopt});
    sut.changeIs({small, vlan});
    sut.changeIs({small, other});
    indexes.nextHopDel(Stash::OcNextHopIndex{200});
    indexes.nextHopDel(Stash::OcNextHopIndex{201});
    for (int i = 0; i < 3; ++i) { EXPECT_THAT(step(), IsEmpty()); }
    EXPECT_FALSE(more);
}

TEST_F(VxlanRequeue, NextHopsMayLeaveBetweenTwoSteps) {
    sut.changeIs({big, std::nullopt});
    EXPECT_EQ(step().back(), 16U);
    for (std::uint64_t id = 10; id <= 20; ++id) { indexes.nextHopDel(Stash::OcNextHopIndex{id}); }
    EXPECT_EQ(step().front(), 21U);
}

}  // namespace
}  // namespace Pel::Oc
