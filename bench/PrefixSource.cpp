#include "bench/PrefixSource.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "model/Fec/FlattenFecNextHop.h"
#include "platform/Vel/Assert.h"

namespace Bench {

using Pel::Forwarder::Change;
using Pel::Forwarder::Changes;
using Pel::Forwarder::NextHopItem;
using Pel::Forwarder::RouteItem;

namespace {

/// One in four of a generator's routes is IPv6.
Pel::Forwarder::GeneratorOptions optionsOf(const PrefixCounts& counts) {
    Pel::Forwarder::GeneratorOptions options;
    options.nextHops = counts.nextHops;
    options.groups = counts.groups();
    options.routes = std::max(counts.ipv6 * 4, counts.ipv4 + (counts.ipv4 + 2) / 3);
    return options;
}

NextHopItem changed(NextHopItem item) {
    using Codec = Pel::Stash::RecordCodec<Pel::Stash::FlattenFecNextHop>;
    const auto before = Codec::decode(item.content);
    VEL_ASSERT(before);
    Pel::Stash::FlattenFecNextHop nextHop;  // with all that a generator gives one
    nextHop.interface = before->interface;
    nextHop.address = before->address;
    nextHop.labels = before->labels;
    nextHop.encapOrder = before->encapOrder;
    nextHop.gue = before->gue;
    auto mac = before->mac.bytes();
    mac[0] ^= 0x40U;
    nextHop.mac = Nexo::EthAddr{mac};
    item.content = Codec::encode(nextHop);
    return item;
}

}  // namespace

PrefixSource::PrefixSource(const PrefixCounts& counts)
    : counts_{counts}, options_{optionsOf(counts)}, source_{options_}, left_{counts} {}

bool PrefixSource::wanted(const Pel::Forwarder::RouteKey& key) {
    const bool ipv6 = key.prefix.address().family() == Nexo::AddressFamily::ipv6;
    std::uint64_t& left = ipv6 ? left_.ipv6 : left_.ipv4;
    if (left == 0) { return false; }
    --left;
    return true;
}

bool PrefixSource::describe(Changes& to, std::size_t limit) {
    Changes some;
    if (!source_.describe(some, limit)) { return false; }
    for (Change& change : some) {
        const auto* route = std::get_if<RouteItem>(&change);
        if (route == nullptr || wanted(route->key)) { to.push_back(std::move(change)); }
    }
    return true;
}

void PrefixSource::begin(Order order) {
    order_ = order;
    again_.emplace(options_);
    left_ = counts_;
}

void PrefixSource::changeNextHops() {
    begin(Order::changeNextHops);
}

void PrefixSource::deletePrefixes() {
    begin(Order::deletePrefixes);
}

void PrefixSource::due(Kiln::Duration /*now*/, Changes& to, std::size_t limit) {
    for (Changes some; to.empty() && again_; some.clear()) {
        if (!again_->describe(some, limit)) {
            again_.reset();
            return;
        }
        for (Change& change : some) {
            const auto* route = std::get_if<RouteItem>(&change);
            auto* nextHop = std::get_if<NextHopItem>(&change);
            if (order_ == Order::deletePrefixes && route != nullptr && wanted(route->key)) {
                to.emplace_back(Pel::Forwarder::RouteDel{route->key});
            } else if (order_ == Order::changeNextHops && nextHop != nullptr &&
                       nextHop->entry.index.value() % 2 == 0) {
                to.emplace_back(changed(std::move(*nextHop)));
            }
        }
    }
}

}  // namespace Bench
