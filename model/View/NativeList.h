#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/Aft/NextHopGroup.h"
#include "model/View/NativeLeaves.h"
#include "model/View/NativePaths.h"
#include "model/View/OpenConfigKeys.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// A container's records as entries of the native view, keyed by number.
template <class Container, class Record, class Id>
class NativeList final : public Gale::ListSource {
public:
    using Find = const Record* (Container::*)(Id) const;
    using OnKeyOrClear = Vel::Publisher<const Id*>& (Container::*)() const;
    using OnKey = Vel::Publisher<const Id&>& (Container::*)() const;

    /// `leaves` outlive this object. `onProcessed`: the record was looked at and nothing changed.
    NativeList(Gale::Lane lane,
               std::string_view path,
               const NativeLeaves<Record>& leaves,
               Vel::Ref<Container> container,
               Find find,
               OnKeyOrClear onKeyOrClear,
               OnKey onProcessed)
        : ListSource{lane},
          entry_{path, NativePaths::kOrigin},
          deletion_{path},
          leaves_{leaves},
          container_{std::move(container)},
          find_{find} {
        const auto markId = [this](const Id& id) { mark(OpenConfigKeys::ofNumber(id.value())); };
        onKeyOrClear_ = ((*container_).*onKeyOrClear)().subscribe(
            [this, markId](const Id* id) { id != nullptr ? markId(*id) : markHeld(); });
        onProcessed_ = ((*container_).*onProcessed)().subscribe(markId);
    }

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override {
        const auto id = container_->nextKey(after ? std::optional{Id{after->lo}} : std::nullopt);
        if (!id) { return std::nullopt; }
        return OpenConfigKeys::ofNumber(id->value());
    }
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) override {
        const Record* const record = ((*container_).*find_)(Id{key.lo});
        if (record == nullptr) { return false; }
        const OpenConfigKeys::Decimal id{key.lo};
        const std::array<std::string_view, 1> keys{id};
        Gale::NotificationWriter writer{to.notification};
        writer.prefix(entry_, keys);
        leaves_.write(writer, *record);
        writer.atomic();
        if constexpr (std::same_as<Record, NextHopGroup>) {
            for (const NextHopInGroup& member : record->nextHops) {
                to.references.push_back(
                    {Gale::Lane::nextHops, OpenConfigKeys::ofNumber(member.index.value())});
            }
        }
        return true;
    }
    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override {
        const OpenConfigKeys::Decimal id{key.lo};
        const std::array<std::string_view, 1> keys{id};
        Gale::NotificationWriter{notification}.deletion(NativePaths::kOrigin, deletion_, keys);
    }
    bool pending(const Gale::EntryKey& key) const override {
        return container_->pending(Id{key.lo});
    }

private:
    const Gale::PathTemplate entry_;
    const Gale::PathTemplate deletion_;
    const NativeLeaves<Record>& leaves_;
    const Vel::Ref<Container> container_;
    const Find find_;
    Vel::Subscription onKeyOrClear_;
    Vel::Subscription onProcessed_;
};

}  // namespace Pel::OcApi
