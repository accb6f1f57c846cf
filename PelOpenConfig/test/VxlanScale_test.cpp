#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "PelOpenConfig/test/PublishedExport.h"
#include "test/support/Scale.h"

namespace Pel::Oc {
namespace {

constexpr std::uint64_t kVtis = 1'000;

std::string vtiName(std::uint64_t vti) {
    return "vxlan" + std::to_string(vti);
}

/// The next hops of one tunnel interface are spread over all ids, on 100 VLANs that all share.
void fillVxlan(std::uint64_t id, Stash::FlattenFecNextHop& to) {
    fillPlain(id, to);
    to.vxlan = Stash::VxlanEncap{Nexo::IntfId{vtiName(id % kVtis)},
                                 static_cast<std::uint32_t>(id / kVtis % 100)};
}

class VxlanScale : public testing::Test {
protected:
    VxlanScale() {
        for (std::uint64_t vti = 0; vti < kVtis; ++vti) {
            const Nexo::IntfId name{vtiName(vti)};
            record.vti[name] = {name, *Nexo::IpGenAddr::parse("192.0.2.1"), {}, {}};
        }
        tell();
        sut = from.mapper(nextHops, vtis);
        from.scheduler->runUntilIdle();
        onNextHop = nextHops->onNextHop().subscribe(
            [this](const OcApi::NextHopIndex& id) { exported.push_back(id.value()); });
    }
    void tell() {
        vtis->recordIs(Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::encode(record));
        from.scheduler->runUntilIdle();
        std::sort(exported.begin(), exported.end());
    }

    PublishedExport from{TestSupport::scale(), fillVxlan};
    Vel::Ref<OcApi::NextHopContainer> nextHops = Vel::make<OcApi::NextHopContainer>("nextHops");
    Vel::Ref<Vxlan::VtiStatusDir> vtis = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    Vxlan::VtiStatusDirRecord record;
    Vel::Ref<NexthopMapperSm> sut;
    std::vector<std::uint64_t> exported;
    Vel::Subscription onNextHop;
};

TEST_F(VxlanScale, AChangeOfOneOfAThousandInterfacesExportsExactlyItsNextHopsAgain) {
    ASSERT_EQ(nextHops->size(), TestSupport::scale());
    ASSERT_EQ(sut->vxlanIndexes().vtiToNextHopIdMap().size(), kVtis);
    std::vector<std::uint64_t> wanted;
    for (std::uint64_t id = 7; id <= TestSupport::scale(); id += kVtis) { wanted.push_back(id); }
    const Nexo::IntfId vti{vtiName(7)};
    record.vti[vti].vtepAddr = *Nexo::IpGenAddr::parse("192.0.2.7");
    tell();
    EXPECT_EQ(exported, wanted);
    for (const std::uint64_t id : wanted) {
        const auto& headers = nextHops->nextHop(OcApi::NextHopIndex{id})->encapHeaders;
        EXPECT_EQ(headers.begin()->stateAs<OcApi::VxlanState>()->tunnelSrcIpAddress.stringValue(),
                  "192.0.2.7");
    }

    exported.clear();
    wanted.clear();
    for (std::uint64_t id = 5 * kVtis + 7; id <= TestSupport::scale(); id += 100 * kVtis) {
        wanted.push_back(id);
    }
    record.vti[vti].vlanVniMap[5] = 10005;
    tell();
    EXPECT_EQ(exported, wanted) << "of a VLAN that all interfaces share";
}

}  // namespace
}  // namespace Pel::Oc
