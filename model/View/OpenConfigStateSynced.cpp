#include "model/View/OpenConfigStateSynced.h"

#include <array>
#include <string_view>
#include <utility>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::EntryKey;
using Gale::PathTemplate;
using Nexo::AddressFamily;

namespace {
constexpr std::array<AddressFamily, 2> kFamilies{AddressFamily::ipv4, AddressFamily::ipv6};
}

struct OpenConfigStateSynced::Paths {
    PathTemplate entry{OpenConfigPaths::kStateSynced, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kStateSynced};
    PathTemplate ipv4{"state/ipv4-unicast"};
    PathTemplate ipv6{"state/ipv6-unicast"};
};

OpenConfigStateSynced::OpenConfigStateSynced(Inputs inputs,
                                             OpenConfigInstances& instances,
                                             const OpenConfigInstanceList& list)
    : ListSource{Gale::Lane::flags},
      inputs_{std::move(inputs)},
      instances_{instances},
      list_{list},
      paths_{std::make_unique<Paths>()} {
    flags_.emplace(
        inputs_.root, instances_, [this](std::uint32_t instance) { handleInstance(instance); });
    if (inputs_.gated) {
        onGated_ = inputs_.gated->onEntity().subscribe(
            [this](const std::string& vrf) { handleInstance(instances_.number(vrf)); });
        for (const auto& [vrf, entity] : inputs_.gated->entities()) {
            handleInstance(instances_.number(vrf));
        }
    }
    if (inputs_.ready) {
        onReady_ = inputs_.ready->onFecReady().subscribe([this] { handleReady(); });
    }
}

OpenConfigStateSynced::~OpenConfigStateSynced() = default;

void OpenConfigStateSynced::tableIs(std::uint32_t instance,
                                    AddressFamily family,
                                    const Vel::Ref<Mesa::Table>& table) {
    Shown& shown = tables_[{instance, family}];
    shown.table = table;
    shown.onPresent = table->onPresent().subscribe([this, instance] { handleInstance(instance); });
    handleInstance(instance);
}

void OpenConfigStateSynced::handleInstance(std::uint32_t instance) {
    known_.insert(instance);
    revoke(instance);
    mark(OpenConfigKeys::ofStateSynced(instance));
}

void OpenConfigStateSynced::handleReady() {
    for (const std::uint32_t instance : known_) { revoke(instance); }
    markAll();  // at once: false of none of them comes a round later
}

/// What is false now has to be told anew, also when it is true again before anybody looks.
void OpenConfigStateSynced::revoke(std::uint32_t instance) {
    for (const AddressFamily family : kFamilies) {
        if (!synced({instance, family})) { told_.erase({instance, family}); }
    }
}

bool OpenConfigStateSynced::synced(const Key& key) const {
    const auto& [instance, family] = key;
    const StateSyncedContainer* const flags = flags_ ? flags_->find(instance) : nullptr;
    if (flags == nullptr || !inputs_.ready || !inputs_.ready->fecReady()) { return false; }
    if (!(family == AddressFamily::ipv4 ? flags->ipv4Unicast() : flags->ipv6Unicast())) {
        return false;
    }
    if (!inputs_.gated || !inputs_.gated->entity(instances_.vrf(instance))) { return false; }
    const auto shown = tables_.find(key);
    return !inputs_.tables || (shown != tables_.end() && shown->second.table->present());
}

/// What to tell now.
bool OpenConfigStateSynced::told(const Key& key, Gale::EncodedEntry& to) {
    if (!synced(key)) {
        told_.erase(key);
        return false;
    }
    Told& told = told_[key];
    if (to.last && told == Told::asked) { told = Told::yes; }
    if (told == Told::yes) { return true; }
    if (!to.last) {
        told = Told::asked;
        to.askLast = true;
    }
    return false;
}

std::optional<EntryKey> OpenConfigStateSynced::nextKey(const std::optional<EntryKey>& after) const {
    auto it = known_.begin();
    if (after) {
        const std::uint32_t instance = OpenConfigKeys::instanceOf(*after);
        it = *after < OpenConfigKeys::ofStateSynced(instance) ? known_.lower_bound(instance)
                                                              : known_.upper_bound(instance);
    }
    if (it == known_.end()) { return std::nullopt; }
    return OpenConfigKeys::ofStateSynced(*it);
}

bool OpenConfigStateSynced::encode(const EntryKey& key, Gale::EncodedEntry& to) {
    const std::uint32_t instance = OpenConfigKeys::instanceOf(key);
    const bool gated = inputs_.gated && inputs_.gated->entity(instances_.vrf(instance));
    if (!list_.shown(instance) || (!gated && !shown_.contains(instance))) {
        shown_.erase(instance);
        return false;
    }
    shown_.insert(instance);
    const std::array<std::string_view, 1> keys{instances_.name(instance)};
    Gale::NotificationWriter writer{to.notification};
    writer.prefix(paths_->entry, keys);
    writer.flagLeaf(paths_->ipv4, {}, told({instance, AddressFamily::ipv4}, to));
    writer.flagLeaf(paths_->ipv6, {}, told({instance, AddressFamily::ipv6}, to));
    return true;
}

void OpenConfigStateSynced::encodeDelete(const EntryKey& key,
                                         Gale::PackedNotification& notification) const {
    const std::array<std::string_view, 1> keys{instances_.name(OpenConfigKeys::instanceOf(key))};
    Gale::NotificationWriter{notification}.deletion(
        OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

}  // namespace Pel::OcApi
