#pragma once

#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "model/View/NativeLeaves.h"
#include "model/View/NativePaths.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// The keys of the entities that stand alone, beside those of the instances.
inline constexpr Gale::EntryKey kFibReadyKey{0, 0, 1};
inline constexpr Gale::EntryKey kGueEncapDestPortKey{0, 0, 2};

/// An entity of the tree that stands alone as one entry of the native view, without key values.
template <class T>
class NativeEntity final : public Gale::ListSource {
public:
    /// `leaves` outlive this object. `changes`: what the entity publishes.
    NativeEntity(Gale::EntryKey key,
                 std::string_view path,
                 Vel::Ref<const T> entity,
                 const NativeLeaves<T>& leaves,
                 std::initializer_list<Vel::Publisher<>*> changes)
        : ListSource{Gale::Lane::flags},
          key_{key},
          entry_{path, NativePaths::kOrigin},
          deletion_{path},
          entity_{std::move(entity)},
          leaves_{leaves} {
        for (Vel::Publisher<>* const change : changes) {
            onChange_.push_back(change->subscribe([this] { mark(key_); }));
        }
    }

    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override {
        return !after || *after < key_ ? std::optional{key_} : std::nullopt;
    }
    bool encode(const Gale::EntryKey& /*key*/, Gale::EncodedEntry& to) override {
        Gale::NotificationWriter writer{to.notification};
        writer.prefix(entry_, {});
        leaves_.write(writer, *entity_);
        writer.atomic();
        return true;
    }
    void encodeDelete(const Gale::EntryKey& /*key*/,
                      Gale::PackedNotification& notification) const override {
        Gale::NotificationWriter{notification}.deletion(NativePaths::kOrigin, deletion_, {});
    }

private:
    const Gale::EntryKey key_;
    const Gale::PathTemplate entry_;
    const Gale::PathTemplate deletion_;
    const Vel::Ref<const T> entity_;
    const NativeLeaves<T>& leaves_;
    std::vector<Vel::Subscription> onChange_;
};

}  // namespace Pel::OcApi
