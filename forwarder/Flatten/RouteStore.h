#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/inlined_vector.h>
#include <absl/functional/function_ref.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "forwarder/Flatten/OriginProtocol.h"
#include "model/Fec/FecId.h"
#include "model/Net/IpPrefix.h"

namespace Pel::Forwarder {

struct TableKey {
    Nexo::AddressFamily family = Nexo::AddressFamily::none;
    std::uint32_t table = 0;
    auto operator<=>(const TableKey&) const = default;
};

struct RouteRef {
    TableKey table;
    Nexo::IpPrefix prefix;
    auto operator<=>(const RouteRef&) const = default;
};

/// What a source says about one prefix at one metric.
struct RouteVariant {
    FecId target;
    std::uint32_t metric = 0;
    std::uint8_t protocol = 0;    ///< the kernel's number
    std::uint8_t generation = 0;  ///< of the dump that saw it last
};

/// One prefix: the variant that forwards (lowest metric), and what has been published of it.
/// Millions of these.
struct RouteEntry {
    FecId target;  ///< of the variant that forwards; none: no source has the prefix any more
    FecId published;
    std::uint32_t metric = 0;
    std::uint8_t protocol = 0;
    std::uint8_t generation = 0;
    OriginProtocol publishedOrigin = OriginProtocol::unset;
    bool dirty : 1 = false;     ///< queued for Flatten
    bool shadowed : 1 = false;  ///< has variants of a higher metric
    bool waiting : 1 = false;   ///< Flatten waits for the FEC of it

    RouteVariant variant() const { return {target, metric, protocol, generation}; }
    void variantIs(const RouteVariant& v) {
        target = v.target;
        metric = v.metric;
        protocol = v.protocol;
        generation = v.generation;
    }
};
static_assert(sizeof(RouteEntry) == 24);

/// The routes of all tables, in prefix order, so that a walk over millions of them can stop and go
/// on.
class RouteStore {
public:
    /// Finds or makes it. Valid until the next insertion or removal.
    RouteEntry& entry(const RouteRef& ref);
    /// Null when there is none. Valid until the next insertion or removal.
    RouteEntry* find(const RouteRef& ref);
    void erase(const RouteRef& ref);

    /// The variant of that metric, if the prefix has one. Target none: not there.
    RouteVariant variant(const RouteRef& ref, std::uint32_t metric);
    /// Adds or replaces the variant of its metric. True when the variant that forwards, or what it
    /// says, changed.
    bool variantIs(const RouteRef& ref, const RouteVariant& variant);
    /// True when the variant that forwards changed.
    bool variantDel(const RouteRef& ref, std::uint32_t metric);
    /// All variants of one prefix, the one that forwards first.
    absl::InlinedVector<RouteVariant, 2> variants(const RouteRef& ref);

    /// Visits entries of `family` (all tables) or of one table behind `bookmark`, which it moves;
    /// each costs one of `budget`. The visitor must not insert or erase. False when the end was
    /// reached.
    bool walk(RouteRef& bookmark,
              bool wholeFamily,
              std::size_t& budget,
              absl::FunctionRef<void(const RouteRef&, RouteEntry&)> visitor);

    /// Keys of all tables that hold anything.
    absl::InlinedVector<TableKey, 4> tables() const;
    std::size_t size() const;

private:
    struct Table {
        absl::btree_map<Nexo::IpPrefix, RouteEntry> routes;
        absl::btree_map<Nexo::IpPrefix, absl::InlinedVector<RouteVariant, 2>> shadows;
    };
    Table* table(const TableKey& key);

    absl::btree_map<TableKey, std::unique_ptr<Table>> tables_;
};

}  // namespace Pel::Forwarder
