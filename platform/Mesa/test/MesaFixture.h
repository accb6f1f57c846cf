#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Mesa/EntityManager.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/test/StoreFixture.h"

namespace Mesa {

struct Colour {
    std::string name;
};

/// "c:" and the name.
template <>
struct RecordCodec<Colour> {
    static std::optional<Colour> decode(std::string_view bytes) {
        if (!bytes.starts_with("c:")) { return std::nullopt; }
        return Colour{std::string{bytes.substr(2)}};
    }
    static std::string encode(const Colour& colour) { return "c:" + colour.name; }
};

using ColourTable = TypedTable<std::uint64_t, Colour>;
using ColourPublisher = TablePublisher<std::uint64_t, Colour>;
constexpr const char* kType = "Test::Colours";

/// A producer of tables of colours and an agent that mounts them, over one real store.
class MesaFixture : public Store::StoreFixture {
protected:
    MesaFixture() {
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
    static std::string read(const Vel::Ref<ColourTable>& table, std::uint64_t key) {
        const auto colour = table->read(key);
        return colour ? colour->name : "none";
    }
    /// Lets the agent hear of what was written.
    void publish() {
        ASSERT_EQ(writer->commit(), "");
        settle();
    }

    std::unique_ptr<Store::Writer> writer = makeWriter();
    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<EntityManager> manager = Vel::make<EntityManager>(reader);
};

}  // namespace Mesa
