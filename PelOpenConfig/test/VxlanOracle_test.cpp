#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "PelOpenConfig/test/HeaderTexts.h"
#include "PelOpenConfig/test/MapperFixture.h"

namespace Pel::Oc {
namespace {

// Long random sequences of what producers do, against an oracle that knows what must be exported and
// indexed of the last state alone. Also run with all toggles off, in a process of its own.

constexpr std::uint64_t kNextHops = 30;
constexpr int kSteps = 400;
const std::vector<std::string> kVtis{"vxlan1", "vxlan2", "vxlan3", "vxlan4"};
constexpr std::uint32_t kVlans[] = {0, 100, 101, 16383, 16384, 70000};

std::uint32_t vlanOf(const Stash::FlattenFecNextHop& from) {
    return from.vxlan->vlan > 16383 ? 0 : from.vxlan->vlan;
}

std::string orNone(const Nexo::IpGenAddr& address, Nexo::AddressFamily family) {
    return address.family() == family ? address.stringValue() : "-";
}

std::string wantedHeader(int index, int type, const Stash::FlattenFecNextHop& from) {
    const std::string at = std::to_string(index);
    if (type == 4) {
        std::string labels;
        for (const auto label : from.mplsEncapLabels) {
            labels += (labels.empty() ? "" : ", ") + std::to_string(label.value());
        }
        return at + " mpls [" + labels + "]";
    }
    if (type != 9 || !from.gue) { return ""; }
    const int family = from.gue->addressFamily;
    if (family != 1 && family != 2) { return at + " unset"; }
    const auto of = family == 1 ? Nexo::AddressFamily::ipv4 : Nexo::AddressFamily::ipv6;
    return at + (family == 1 ? " udpv4 " : " udpv6 ") + orNone(from.gue->source, of) + " " +
           orNone(from.gue->destination, of) + " " +
           (toggleOCNHGContentStreamingTtlTosEnabled() ? std::to_string(from.gue->ipTtl) : "-");
}

std::string wantedHeaders(const Stash::FlattenFecNextHop& from,
                          const Vxlan::VtiStatusDirRecord& vtis) {
    if (from.vxlan && toggleOCNextHopAftVxlanEncapHeaderEnabled()) {
        const auto it = vtis.vti.find(from.vxlan->vti);
        if (it == vtis.vti.end()) { return "0 vxlan - -"; }
        const Vxlan::VtiStatus& vti = it->second;
        const std::string v6 = vti.vtepAddrV6.isZero() ? "" : vti.vtepAddrV6.stringValue();
        const std::string v4 = vti.vtepAddr.isZero() ? "-" : vti.vtepAddr.stringValue();
        const auto vni = vti.vlanVniMap.find(vlanOf(from));
        const bool known = vni != vti.vlanVniMap.end() && vni->second > 0;
        return "0 vxlan " + (v6.empty() ? v4 : v6) + " " +
               (known ? std::to_string(vni->second) : "-");
    }
    std::string all;
    for (std::uint8_t i = 0; i < from.encapOrder.encaps(); ++i) {
        const std::string one = wantedHeader(i, static_cast<int>(from.encapOrder.encap(i)), from);
        if (!one.empty()) { all += (all.empty() ? "" : "; ") + one; }
    }
    return all;
}

class OracleFixture : public MapperFixture {
protected:
    struct Given {
        Vel::Ref<Stash::FlattenFecNextHop> nextHop;
        bool mappable = false;
    };
    struct Wanted {
        std::string headers;
        std::optional<std::pair<std::string, std::uint32_t>> info;  // VTI and VLAN
        friend bool operator==(const Wanted&, const Wanted&) = default;
        friend void PrintTo(const Wanted& w, std::ostream* to) {
            *to << w.headers;
            if (w.info) { *to << " | " << w.info->first << " " << w.info->second; }
        }
    };

    std::uint32_t random(std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>{0, below - 1}(numbers);
    }
    bool oneIn(std::uint32_t n) { return random(n) == 0; }
    Nexo::IpGenAddr randomAddress() {
        const char* const all[] = {"192.0.2.1", "192.0.2.2", "2001:db8::1", "2001:db8::2"};
        return *Nexo::IpGenAddr::parse(all[random(4)]);
    }
    Vel::Ref<Stash::FlattenFecNextHop> randomNextHop(bool mappable) {
        const auto to = encapsulated({});
        to->gue.reset();
        const int types[] = {0, 4, 7, 9, 9, 12};
        for (std::uint32_t i = random(5); i > 0; --i) {
            to->encapOrder.push(static_cast<Tunnel::TunnelTable::EncapType>(types[random(6)]));
        }
        to->mplsEncapLabels.resize(random(4), Nexo::MplsLabel{16 + random(100)});
        if (!oneIn(3)) {
            to->gue = Stash::GueEncap{static_cast<std::uint8_t>(random(4)),
                                      randomAddress(),
                                      randomAddress(),
                                      static_cast<std::uint8_t>(random(3))};
        }
        if (!oneIn(3)) {
            to->vxlan = Stash::VxlanEncap{Nexo::IntfId{kVtis[random(4)]}, kVlans[random(6)]};
        }
        for (int i = 0; !mappable && i < 15; ++i) { to->labels.push(Nexo::MplsLabel{16}); }
        return to;
    }
    void changeANextHop() {
        const std::uint64_t id = 1 + random(kNextHops);
        if (oneIn(4)) {
            nextHopDel(id);
            given.erase(id);
            return;
        }
        const bool mappable = !oneIn(8);
        const Given next{randomNextHop(mappable), mappable};
        nextHopIs(id, *next.nextHop);
        given[id] = next;
    }
    void changeAVti() {
        const Nexo::IntfId id{kVtis[random(4)]};
        if (oneIn(6)) {
            vtis.vti.erase(id);
        } else {
            Vxlan::VtiStatus& status = vtis.vti[id];
            status.name = id;
            const char* const v4[] = {"", "0.0.0.0", "192.0.2.7", "192.0.2.8"};
            const char* const v6[] = {"", "::", "", "2001:db8::7"};
            if (oneIn(2)) {
                status.vtepAddr = Nexo::IpGenAddr::parse(v4[random(4)]).value_or(Nexo::IpGenAddr{});
            }
            if (oneIn(2)) {
                status.vtepAddrV6 =
                    Nexo::IpGenAddr::parse(v6[random(4)]).value_or(Nexo::IpGenAddr{});
            }
            if (oneIn(2)) { status.vlanVniMap[kVlans[random(6)]] = random(3) * 5000; }
            if (oneIn(4)) { status.vlanVniMap.erase(kVlans[random(6)]); }
        }
        vtisAre(vtis);
    }
    void change() {
        switch (random(8)) {
            case 0:
            case 1:
            case 2:
                return changeAVti();
            case 3:
                if (oneIn(5)) { sut->handleStashReady(); }
                return;
            default:
                return changeANextHop();
        }
    }

    /// What stays of a next hop that cannot be mapped as it is now is what was exported before.
    void work() {
        publish();
        for (auto it = wanted.begin(); it != wanted.end();) {
            it = given.contains(it->first) ? std::next(it) : wanted.erase(it);
        }
        for (const auto& [id, from] : given) {
            if (!from.mappable) { continue; }
            Wanted& to = wanted[id];
            to.headers = wantedHeaders(*from.nextHop, vtis);
            to.info.reset();
            if (from.nextHop->vxlan && toggleOCNextHopAftVxlanEncapHeaderEnabled()) {
                to.info.emplace(from.nextHop->vxlan->vti.stringValue(), vlanOf(*from.nextHop));
            }
        }
    }
    std::map<std::uint64_t, Wanted> got() const {
        std::map<std::uint64_t, Wanted> all;
        for (std::uint64_t id = 1; id <= kNextHops; ++id) {
            const NextHopVxlanInfo* const info = sut->vxlanIndexes().nextHopVxlanInfo(nh(id));
            if (entry(id) == nullptr) {
                EXPECT_EQ(info, nullptr) << id << " is indexed and not exported";
                continue;
            }
            Wanted& to = all[id];
            to.headers = headerTexts(entry(id)->encapHeaders);
            if (info != nullptr) {
                to.info.emplace(info->vtiId.stringValue(), info->vlanId.value());
            }
        }
        return all;
    }
    /// The indexes made anew from what is wanted.
    void expectIndexes() const {
        std::map<std::string, std::set<std::uint64_t>> ofVti;
        std::map<std::uint32_t, std::set<std::uint64_t>> ofVlan;
        for (const auto& [id, to] : wanted) {
            if (!to.info) { continue; }
            ofVti[to.info->first].insert(id);
            ofVlan[to.info->second].insert(id);
        }
        std::map<std::string, std::set<std::uint64_t>> gotOfVti;
        std::map<std::uint32_t, std::set<std::uint64_t>> gotOfVlan;
        for (const auto& [vti, map] : sut->vxlanIndexes().vtiToNextHopIdMap()) {
            auto& ids = gotOfVti[vti.stringValue()];
            for (const auto id : map.nextHopId()) { ids.insert(id.value()); }
        }
        for (const auto& [vlan, map] : sut->vxlanIndexes().vlanToNextHopIdMap()) {
            auto& ids = gotOfVlan[vlan.value()];
            for (const auto id : map.nextHopId()) { ids.insert(id.value()); }
        }
        EXPECT_EQ(gotOfVti, ofVti);
        EXPECT_EQ(gotOfVlan, ofVlan);
    }

    std::mt19937 numbers{1};
    Vxlan::VtiStatusDirRecord vtis;
    std::map<std::uint64_t, Given> given;
    std::map<std::uint64_t, Wanted> wanted;
};

using VxlanOracle = UnderBothPolicies<OracleFixture>;
INSTANTIATE_TEST_SUITE_P(, VxlanOracle, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(VxlanOracle, HeadersAndIndexesAreThoseOfTheLastStateAfterEveryStep) {
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        numbers.seed(seed);
        if (!sut) { start(); }
        // Tunnel interfaces also change while the walk is under way.
        const auto inWalk = nextHopSet->onNextHop().subscribe([&](const OcApi::NextHopIndex&) {
            if (oneIn(40)) { changeAVti(); }
        });
        for (int step = 0; step < kSteps; ++step) {
            for (std::uint32_t i = 1 + random(4); i > 0; --i) { change(); }
            work();
            ASSERT_EQ(got(), wanted) << "step " << step;
            expectIndexes();
            if (HasFailure()) { FAIL() << "step " << step; }
        }
    }
    EXPECT_GT(wanted.size(), kNextHops / 3) << "the sequence exports something";
}

}  // namespace
}  // namespace Pel::Oc
