#include "model/View/OpenConfigNextHops.h"

#include <algorithm>
#include <array>
#include <utility>

#include "model/View/OpenConfigEncapHeaders.h"
#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigPaths.h"
#include "model/View/OpenConfigValues.h"
#include "platform/Gale/NotificationWriter.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;
using OpenConfigKeys::Decimal;

struct OpenConfigNextHops::Paths {
    PathTemplate entry{OpenConfigPaths::kNextHop, OpenConfigPaths::kOrigin};
    PathTemplate deletion{OpenConfigPaths::kNextHop};
    PathTemplate index{"index"};
    PathTemplate stateIndex{"state/index"};
    PathTemplate ipAddress{"state/ip-address"};
    PathTemplate macAddress{"state/mac-address"};
    PathTemplate popTopLabel{"state/pop-top-label"};
    PathTemplate labels{"state/pushed-mpls-label-stack"};
    PathTemplate decapsulateHeader{"state/decapsulate-header"};
    PathTemplate networkInstance{"state/network-instance"};
    PathTemplate interface { "interface-ref/state/interface" };
    PathTemplate subinterface{"interface-ref/state/subinterface"};
    OpenConfigEncapHeaders encapHeaders;
};

OpenConfigNextHops::OpenConfigNextHops(Vel::Ref<NextHopContainer> nextHops,
                                       const OpenConfigInstances& instances,
                                       Vel::Ref<const GuePorts> guePorts)
    : ListSource{Gale::Lane::nextHops},
      nextHops_{std::move(nextHops)},
      instances_{instances},
      guePorts_{std::move(guePorts)},
      paths_{std::make_unique<Paths>()} {
    const auto markIndex = [this](const NextHopIndex& index) {
        mark(OpenConfigKeys::ofNumber(index.value()));
    };
    onNextHop_ =
        nextHops_->onNextHopOrClear().subscribe([this, markIndex](const NextHopIndex* index) {
            index != nullptr ? markIndex(*index) : markHeld();
        });
    onProcessed_ = nextHops_->onProcessed().subscribe(markIndex);
    if (guePorts_) {
        onMplsPort_ =
            guePorts_->onGueMplsEncapUdpDestPort().subscribe([this] { handleMplsPort(); });
    }
}

OpenConfigNextHops::~OpenConfigNextHops() = default;

std::optional<Gale::EntryKey> OpenConfigNextHops::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto index = nextHops_->nextKey(after ? std::optional{NextHopIndex{after->lo}}
                                                : std::optional<NextHopIndex>{});
    if (!index) { return std::nullopt; }
    return OpenConfigKeys::ofNumber(index->value());
}

/// There may be a million of them: they are gone through as they are encoded.
void OpenConfigNextHops::handleMplsPort() {
    markEach([this](const std::optional<Gale::EntryKey>& after) {
        const auto it = after ? udpOverMpls_.upper_bound(after->lo) : udpOverMpls_.begin();
        return it == udpOverMpls_.end() ? std::optional<Gale::EntryKey>{}
                                        : OpenConfigKeys::ofNumber(*it);
    });
}

void OpenConfigNextHops::noteUdpOverMpls(std::uint64_t index, const NextHop* nextHop) {
    const bool holds =
        nextHop != nullptr && guePorts_ &&
        std::any_of(nextHop->encapHeaders.begin(),
                    nextHop->encapHeaders.end(),
                    [&](const EncapHeader& header) {
                        return OpenConfigEncapHeaders::udpOverMpls(nextHop->encapHeaders, header);
                    });
    if (holds) {
        udpOverMpls_.insert(index);
    } else {
        udpOverMpls_.erase(index);
    }
}

bool OpenConfigNextHops::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const NextHop* const nextHop = nextHops_->nextHop(NextHopIndex{key.lo});
    const bool plain = nextHop == nullptr || nextHop->encapHeaders.empty();
    if (!plain || !udpOverMpls_.empty()) { noteUdpOverMpls(key.lo, nextHop); }
    if (nextHop == nullptr) { return false; }
    const Decimal index{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    NotificationWriter writer{to.notification};
    writer.prefix(paths_->entry, keys);
    writer.leaf(paths_->index, {}, key.lo);
    writer.leaf(paths_->stateIndex, {}, key.lo);
    OpenConfigValues::writeAddress(writer, paths_->ipAddress, {}, nextHop->ipAddress);
    if (!nextHop->macAddress.isZero()) {
        writer.leaf(paths_->macAddress, {}, nextHop->macAddress.stringValue());
    }
    if (nextHop->popTopLabel) { writer.flagLeaf(paths_->popTopLabel, {}, true); }
    if (!nextHop->pushedMplsLabelStack.empty()) {
        OpenConfigValues::writeLabelList(writer, paths_->labels, {}, nextHop->pushedMplsLabelStack);
    }
    if (nextHop->decapsulateHeader != EncapHeaderType::unset) {
        writeDecapsulation(writer, *nextHop);
    }
    if (!nextHop->interface.empty()) {
        writer.leaf(paths_->interface, {}, nextHop->interface.stringValue());
        if (nextHop->subinterface) {
            writer.leaf(paths_->subinterface, {}, std::uint64_t{*nextHop->subinterface});
        }
    }
    if (!plain) {
        const std::uint16_t port = guePorts_ ? guePorts_->gueMplsEncapUdpDestPort() : 0;
        paths_->encapHeaders.write(writer, nextHop->encapHeaders, port);
    }
    writer.atomic();
    return true;
}

/// An instance is said only together with the header that is removed before the look-up in it.
void OpenConfigNextHops::writeDecapsulation(NotificationWriter& to, const NextHop& nextHop) const {
    const std::string_view header = OpenConfigValues::typeName(nextHop.decapsulateHeader);
    if (header.empty()) { return; }
    to.leaf(paths_->decapsulateHeader, {}, header);
    const std::string& vrf = nextHop.decapNetworkInstance.stringValue();
    if (!vrf.empty()) { to.leaf(paths_->networkInstance, {}, instances_.nameOf(vrf)); }
}

void OpenConfigNextHops::encodeDelete(const Gale::EntryKey& key,
                                      Gale::PackedNotification& notification) const {
    const Decimal index{key.lo};
    const std::array<std::string_view, 2> keys{instances_.name(OpenConfigInstances::kDefault),
                                               index};
    NotificationWriter{notification}.deletion(OpenConfigPaths::kOrigin, paths_->deletion, keys);
}

bool OpenConfigNextHops::pending(const Gale::EntryKey& key) const {
    return nextHops_->pending(NextHopIndex{key.lo});
}

}  // namespace Pel::OcApi
