#pragma once

#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/PathTemplate.h"
#include "platform/Gale/View.h"
#include "platform/Vel/Collection.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Gale {

/// A small state and its view, all in the hands of the test:
///
///   zoo[name]                                  name, open: told last (not atomic)
///   zoo[name]/beasts/beast[index]              index, state/index, state/colour (if there is one)
///   zoo[name]/herds/herd[id]                   id, members/member[index]/index
///   zoo[name]/fields/field[id]                 id, state/herd: encoded when it is sent
///   zoo[name]/counters/visits[index]           index, state/count of a beast (not atomic)
///
/// All of it in module zoo-main, but the colour, which is an identity of module "paint", in
/// zoo-colours. All numbers have 64 bits, but a field's id.
class TestView final : public View {
public:
    explicit TestView(bool onDemand = false) : lazy_(onDemand) {}

    struct Herd {
        std::vector<std::uint64_t> members;
    };

    // The state. Anything is encoded again when it is published.
    Vel::Collection<std::uint64_t, std::string> beasts;  // colour
    Vel::Collection<std::uint64_t, Herd> herds;
    Vel::Collection<std::uint64_t, std::uint64_t> fields;  // herd
    Vel::Collection<std::uint64_t, std::uint64_t> visits;  // count
    std::set<std::uint64_t> pendingBeasts, pendingHerds;   // told, not yet considered
    Vel::Collection<std::uint64_t, bool> open;             // of the zoo: key 0
    bool saidOpen = false;                                 ///< it was encoded as such
    int encoderFails = 0;  ///< so many next encodings of a beast throw

    const std::vector<ModelData>& models() const override;
    const std::vector<EntryKind>& kinds() const override;
    const std::vector<std::string>& emptyLeaves() const override;
    std::size_t kindOf(Lane lane, const EntryKey& key) const override;
    KeyPredicate keyPredicate(std::size_t kind, const KeyValues& values) const override;
    Reference referenceOf(std::uint64_t value) const override {
        return {Lane::groups, {0, 0, value}};
    }
    void encodeValue(Lane lane,
                     const EntryKey& key,
                     std::uint64_t value,
                     PackedNotification& notification) const override;
    bool lazy() const override { return lazy_; }
    void attach(SourceSink sink) override;

private:
    const bool lazy_;
};

}  // namespace Gale
