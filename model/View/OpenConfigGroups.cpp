#include "model/View/OpenConfigGroups.h"

#include <array>
#include <utility>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;
using OpenConfigKeys::Decimal;

struct OpenConfigGroups::Paths {
    PathTemplate entry{OpenConfigPaths::kGroup, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kGroup};
    PathTemplate id{"id"};
    PathTemplate stateId{"state/id"};
    PathTemplate programmedId{"state/programmed-id"};
    PathTemplate name{"state/next-hop-group-name"};
    PathTemplate memberIndex{"next-hops/next-hop[index]/index"};
    PathTemplate memberStateIndex{"next-hops/next-hop[index]/state/index"};
    PathTemplate memberWeight{"next-hops/next-hop[index]/state/weight"};
};

OpenConfigGroups::OpenConfigGroups(Vel::Ref<NextHopGroupContainer> groups,
                                   const OpenConfigInstances& instances)
    : ListSource{Gale::Lane::groups},
      groups_{std::move(groups)},
      instances_{instances},
      paths_{std::make_unique<Paths>()} {
    onGroup_ = groups_->onNextHopGroupOrClear().subscribe([this](const NextHopGroupId* id) {
        id != nullptr ? mark(OpenConfigKeys::ofNumber(id->value())) : markHeld();
    });
    onProcessed_ = groups_->onProcessed().subscribe(
        [this](const NextHopGroupId& id) { mark(OpenConfigKeys::ofNumber(id.value())); });
}

OpenConfigGroups::~OpenConfigGroups() = default;

std::optional<Gale::EntryKey> OpenConfigGroups::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto id = groups_->nextKey(after ? std::optional{NextHopGroupId{after->lo}}
                                           : std::optional<NextHopGroupId>{});
    if (!id) { return std::nullopt; }
    return OpenConfigKeys::ofNumber(id->value());
}

bool OpenConfigGroups::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const NextHopGroup* const group = groups_->nextHopGroup(NextHopGroupId{key.lo});
    if (group == nullptr) { return false; }
    const Decimal id{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault), id};
    NotificationWriter writer{to.notification};
    writer.prefix(paths_->entry, keys);
    writer.leaf(paths_->id, {}, key.lo);
    writer.leaf(paths_->stateId, {}, key.lo);
    if (group->programmedId.value_or(0) != 0) {
        writer.leaf(paths_->programmedId, {}, *group->programmedId);
    }
    if (group->name && !group->name->empty()) {
        writer.leaf(paths_->name, {}, std::string_view{*group->name});
    }
    for (const NextHopInGroup& member : group->nextHops) {
        const Decimal index{member.index.value()};
        const std::array<std::string_view, 1> memberKeys{index};
        writer.leaf(paths_->memberIndex, memberKeys, member.index.value());
        writer.leaf(paths_->memberStateIndex, memberKeys, member.index.value());
        writer.leaf(paths_->memberWeight, memberKeys, std::uint64_t{member.weight});
        to.references.push_back(
            {Gale::Lane::nextHops, OpenConfigKeys::ofNumber(member.index.value())});
    }
    writer.atomic();
    return true;
}

void OpenConfigGroups::encodeDelete(const Gale::EntryKey& key,
                                    Gale::PackedNotification& notification) const {
    const Decimal id{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault), id};
    NotificationWriter{notification}.deletion(OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

bool OpenConfigGroups::pending(const Gale::EntryKey& key) const {
    return groups_->pending(NextHopGroupId{key.lo});
}

}  // namespace Pel::OcApi
