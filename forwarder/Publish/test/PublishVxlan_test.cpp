#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "forwarder/Publish/JoinedDiff.h"
#include "forwarder/Publish/test/PublishBed.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "platform/Hubdb/Publisher.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Dir = Vxlan::VtiStatusDir;

class PublishVxlan : public PublishBed {
protected:
    void describe() {
        Link link = FlattenBed::vxlan(10, "vxb", 0);
        link.vniFilter = true;
        link.vxlanLocal = *Nexo::IpGenAddr::parse("10.0.1.1");
        bed->fib.apply(link);
        bed->fib.apply(VniFilter{10, {{5001, 5002}}});
        bed->add(FlattenBed::route("198.51.1.0/24",
                                   {FlattenBed::tunnel("10.9.0.2", 10, 7002, "10.0.1.2")}));
    }
    /// "name address vlan=vni ..." of each tunnel interface in the store.
    std::vector<std::string> vtis() {
        Hubdb::Publisher state{*writer};
        const auto bytes = state.entity(Dir::kPath, Dir::kType);
        EXPECT_FALSE(state.entity(Dir::kPath, "another type"));
        const auto record =
            bytes ? Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::decode(*bytes) : std::nullopt;
        std::vector<std::string> result;
        if (!record) { return result; }
        for (const auto& [name, status] : record->vti) {
            result.push_back(name.stringValue() + " " + status.vtepAddr.stringValue());
            for (const auto& [vlan, vni] : status.vlanVniMap) {
                result.back() += " " + std::to_string(vlan) + "=" + std::to_string(vni);
            }
        }
        return result;
    }
};

TEST_F(PublishVxlan, TunnelInterfacesAreInTheStoreWhileThereAreSome) {
    settle();
    EXPECT_THAT(vtis(), IsEmpty());
    describe();
    settle();
    EXPECT_THAT(vtis(), ElementsAre("vxb 10.0.1.1 4096=5001 4097=5002"));
    bed->fib.vniFilterDel({10, {{5001, 5001}}});
    settle();
    EXPECT_THAT(vtis(), ElementsAre("vxb 10.0.1.1 4097=5002"));
    bed->fib.linkDel(10);
    settle();
    EXPECT_THAT(vtis(), IsEmpty());
}

TEST_F(PublishVxlan, RestartWithTheSameDevicesWritesNothing) {
    describe();
    settle();
    const auto before = vtis();
    start();
    describe();
    const auto records = publish->statistics().records;
    settle();
    EXPECT_EQ(vtis(), before);
    EXPECT_EQ(publish->statistics().records, records);
}

TEST_F(PublishVxlan, RestartWithoutTheDeviceRemovesItsTunnelInterface) {
    describe();
    settle();
    start();
    settle();
    EXPECT_THAT(vtis(), IsEmpty());
}

Vxlan::VtiStatusDirRecord directory(const std::string& name) {
    Vxlan::VtiStatusDirRecord record;
    record.vti[Nexo::IntfId{name}].name = Nexo::IntfId{name};
    return record;
}

TEST(JoinedDiff, LastTunnelInterfacesCount) {
    std::vector<FlatDiff> batches(3);
    batches[0].vtis = {directory("a")};
    batches[1].vtis = {directory("b")};
    const FlatDiff both = joined(batches, 0);
    ASSERT_THAT(both.vtis, SizeIs(1));
    EXPECT_TRUE(both.vtis[0].vti.contains(Nexo::IntfId{"b"}));
}

TEST(JoinedDiff, WrittenTunnelInterfacesAreLeftOut) {
    std::vector<FlatDiff> batches(1);
    batches[0].vrfs = {FlatVrf{254, "default"}};
    batches[0].vtis = {directory("a")};
    batches[0].fecDeletes = {FecId{7}};
    const FlatDiff rest = joined(batches, 2);
    EXPECT_THAT(rest.vtis, IsEmpty());
    EXPECT_THAT(rest.fecDeletes, SizeIs(1));
    batches[0] = {};
    batches[0].vrfs = {FlatVrf{254, "default"}};
    batches[0].vtis = {directory("a")};
    EXPECT_THAT(joined(batches, 1).vtis, SizeIs(1));
}

}  // namespace
}  // namespace Pel::Forwarder
