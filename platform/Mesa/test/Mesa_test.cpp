#include <gmock/gmock.h>

#include "platform/Mesa/EntityManager.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/test/StoreFixture.h"
#include "test/support/TraceCapture.h"

namespace Mesa {
namespace {

struct Colour {
    std::string name;
};

}  // namespace

/// "c:" and the name.
template <>
struct RecordCodec<Colour> {
    static std::optional<Colour> decode(std::string_view bytes) {
        if (!bytes.starts_with("c:")) { return std::nullopt; }
        return Colour{std::string{bytes.substr(2)}};
    }
    static std::string encode(const Colour& colour) { return "c:" + colour.name; }
};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ColourTable = TypedTable<std::uint64_t, Colour>;
constexpr const char* kType = "Test::Colours";

class MesaTest : public Store::StoreFixture {
protected:
    void SetUp() override {
        tableTypeIs(kType, [](const std::string& path) -> Vel::Ref<Vel::Entity> {
            return Vel::make<ColourTable>(path, kType);
        });
    }
    Vel::Ref<ColourTable> mount(const std::string& path) {
        MountGroup group{manager};
        group.mount(path, kType);
        group.close();
        return manager->entity<ColourTable>(path);
    }
    std::string read(const Vel::Ref<ColourTable>& table, std::uint64_t key) {
        const auto colour = table->read(key);
        return colour ? colour->name : "none";
    }
    std::unique_ptr<Store::Writer> writer = makeWriter();
    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<EntityManager> manager = Vel::make<EntityManager>(reader);
};

TEST_F(MesaTest, ATableIsReadByKeyAndTellsChangesByKey) {
    TablePublisher<std::uint64_t, Colour> publisher{*writer, "colours", kType};
    ASSERT_TRUE(publisher.valid());
    publisher.set(256, {"red"});
    publisher.set(1, {"green"});
    ASSERT_EQ(writer->commit(), "");
    const auto table = mount("colours");
    ASSERT_TRUE(table);
    EXPECT_FALSE(table->present());
    int present = 0;
    const auto onPresent = table->onPresent().subscribe([&] { ++present; });
    std::vector<std::uint64_t> told;
    const auto onKey = table->onKey().subscribe([&](std::uint64_t key) { told.push_back(key); });
    settle();
    EXPECT_TRUE(table->present());
    EXPECT_EQ(present, 1);
    EXPECT_THAT(table->keys(), ElementsAre(1u, 256u)) << "in key order";
    EXPECT_THAT(told, IsEmpty()) << "what was there is not a change";
    EXPECT_EQ(read(table, 1), "green");
    EXPECT_EQ(read(table, 2), "none");
    publisher.set(2, {"blue"});
    publisher.erase(1);
    publisher.set(256, {"red"});
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(told, ElementsAre(2u, 1u));
    EXPECT_EQ(read(table, 2), "blue");
    publisher.set(256, {"red"}, true);
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(told, ElementsAre(2u, 1u, 256u)) << "rewritten";
}

TEST_F(MesaTest, ATableThatNoProducerHasMadeYetIsMountedEmptyAndFills) {
    const auto table = mount("colours");
    settle();
    EXPECT_FALSE(table->present());
    EXPECT_THAT(table->keys(), IsEmpty());
    EXPECT_EQ(read(table, 1), "none");
    TablePublisher<std::uint64_t, Colour>{*writer, "colours", kType}.set(1, {"red"});
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_TRUE(table->present());
    EXPECT_EQ(read(table, 1), "red");
}

TEST_F(MesaTest, ACorruptRecordCostsOnlyItself) {
    const Store::TableId id = writer->tableIs("colours", kType, Store::TableKind::table);
    writer->put(id, Store::KeyCodec<std::uint64_t>::encode(1), "no record");
    writer->put(id, Store::KeyCodec<std::uint64_t>::encode(2), "c:red");
    ASSERT_EQ(writer->commit(), "");
    const auto table = mount("colours");
    settle();
    const TestSupport::TraceCapture traces;
    EXPECT_EQ(read(table, 1), "none");
    EXPECT_EQ(table->corruptions(), 1u);
    EXPECT_EQ(traces.count("table colours: corruption: colours"), 1u);
    EXPECT_EQ(read(table, 2), "red");
    EXPECT_EQ(table->corruptions(), 1u);
    EXPECT_EQ(read(table, 3), "none");
    EXPECT_EQ(table->corruptions(), 1u) << "absent is not corrupt";
}

TEST_F(MesaTest, TwoGroupsThatMountAPathShareItsTable) {
    const auto first = mount("colours");
    EXPECT_EQ(mount("colours"), first);
    EXPECT_NE(mount("other"), first);
    EXPECT_EQ(manager->entity("never mounted"), nullptr);
    manager->entityDel("colours");
    EXPECT_EQ(manager->entity("colours"), nullptr);
}

TEST_F(MesaTest, APublisherOfAnotherTypeIsRefused) {
    ASSERT_NE(writer->tableIs("colours", "other", Store::TableKind::table), 0u);
    EXPECT_FALSE((TablePublisher<std::uint64_t, Colour>{*writer, "colours", kType}.valid()));
}

TEST_F(MesaTest, AnUnknownTypeIsABrokenPrecondition) {
    EXPECT_EQ(makeTable("Test::Nobody", "x"), nullptr);
    MountGroup group{manager};
    group.mount("x", "Test::Nobody");
    EXPECT_DEATH(group.close(), "the type of a mounted table is not registered");
}

}  // namespace
}  // namespace Mesa
