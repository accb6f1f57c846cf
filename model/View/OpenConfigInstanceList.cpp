#include "model/View/OpenConfigInstanceList.h"

#include <algorithm>
#include <array>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;

struct OpenConfigInstanceList::Paths {
    PathTemplate entry{OpenConfigPaths::kInstance, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kInstance};
    PathTemplate name{"name"};
    PathTemplate configName{"config/name"};
    PathTemplate configType{"config/type"};
    PathTemplate stateName{"state/name"};
    PathTemplate stateType{"state/type"};
};

OpenConfigInstanceList::OpenConfigInstanceList(const OpenConfigInstances& instances)
    : ListSource{Gale::Lane::flags}, instances_{instances}, paths_{std::make_unique<Paths>()} {
    known_.try_emplace(OpenConfigInstances::kDefault);
}

OpenConfigInstanceList::~OpenConfigInstanceList() = default;

void OpenConfigInstanceList::tableIs(std::uint32_t instance, const Vel::Ref<Mesa::Table>& table) {
    Known& known = known_[instance];
    known.tables.push_back(table);
    known.onPresent.push_back(table->onPresent().subscribe(
        [this, instance] { mark(OpenConfigKeys::ofInstance(instance)); }));
    mark(OpenConfigKeys::ofInstance(instance));
}

bool OpenConfigInstanceList::shown(std::uint32_t instance) const {
    if (instance == OpenConfigInstances::kDefault) { return true; }
    const auto it = known_.find(instance);
    return it != known_.end() && std::any_of(it->second.tables.begin(),
                                             it->second.tables.end(),
                                             [](const auto& table) { return table->present(); });
}

std::optional<Gale::EntryKey> OpenConfigInstanceList::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto it = after ? known_.upper_bound(OpenConfigKeys::instanceOf(*after)) : known_.begin();
    if (it == known_.end()) { return std::nullopt; }
    return OpenConfigKeys::ofInstance(it->first);
}

bool OpenConfigInstanceList::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const std::uint32_t instance = OpenConfigKeys::instanceOf(key);
    if (!shown(instance)) { return false; }
    const std::array<std::string_view, 1> keys{instances_.name(instance)};
    const std::string_view type =
        instance == OpenConfigInstances::kDefault ? "DEFAULT_INSTANCE" : "L3VRF";
    NotificationWriter writer{to.notification};
    writer.prefix(paths_->entry, keys);
    writer.leaf(paths_->name, {}, keys[0]);
    writer.leaf(paths_->configName, {}, keys[0]);
    writer.leaf(paths_->configType, {}, type);
    writer.leaf(paths_->stateName, {}, keys[0]);
    writer.leaf(paths_->stateType, {}, type);
    return true;
}

void OpenConfigInstanceList::encodeDelete(const Gale::EntryKey& key,
                                          Gale::PackedNotification& notification) const {
    const std::array<std::string_view, 1> keys{instances_.name(OpenConfigKeys::instanceOf(key))};
    NotificationWriter{notification}.deletion(OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

}  // namespace Pel::OcApi
