#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gnmi {
class Path;
class PathElem;
class TypedValue;
}  // namespace gnmi

namespace Checker {

/// The AFT lists whose entries the model marks as telemetry-atomic, in the order of references.
enum class List : std::uint8_t { nextHop, group, ipv4, ipv6, label };

/// What a value has to be on the wire.
enum class LeafType : std::uint8_t { number, text, flag, list, bytes, label };

using Elems = std::vector<const gnmi::PathElem*>;

/// Appends a path's elements.
void append(Elems& to, const gnmi::Path& path);
/// "/network-instances/network-instance[name=DEFAULT]/afts" from the element `from` on; without the leading "/" when
/// `from` is not 0.
std::string pathText(const Elems& elems, std::size_t from = 0);
/// A value with its kind: 7, "text", true, [1, 2].
std::string valueText(const gnmi::TypedValue& value);
bool isOfType(const gnmi::TypedValue& value, LeafType type);
/// A number or a text as a list key spells it; empty for what is neither.
std::string keyText(const gnmi::TypedValue& value);

/// Where a path stands with regard to the atomic entries.
struct Place {
    enum class Kind : std::uint8_t {
        elsewhere,  ///< no atomic entry is there, above or below
        above,      ///< covers several, or one without its key
        entry,
        below,
    };
    Kind kind = Kind::elsewhere;
    List list = List::nextHop;  ///< of `entry` and `below`
    std::string_view instance;
    std::string_view key;
};
Place placeOf(const Elems& elems);

/// Elements of an entry's path.
constexpr std::size_t kEntryDepth = 5;

/// /network-instances/network-instance[name=I]/afts/next-hops/next-hop[index=K]
std::string entryPath(List list, std::string_view instance, std::string_view key);
/// Name of the list's key: "index".
std::string_view keyName(List list);
/// "next-hop"
std::string_view listName(List list);

/// The type of a leaf below an entry, its path without keys ("next-hops/next-hop/state/weight"); nullopt when the list
/// has no such leaf.
std::optional<LeafType> leafType(List list, std::string_view path);

/// A next hop's counters, which are no atomic entry: they stand apart from the next hop and name it.
struct CounterPlace {
    std::string_view instance;
    std::string_view index;
};
/// Elements of the path of such counters.
constexpr std::size_t kCounterDepth = 6;
/// Those at or above the path; nullopt when it leads to none, or to more than one's.
std::optional<CounterPlace> counterPlaceOf(const Elems& elems);
/// Whether a next hop's counters have a leaf of this path below them, which is without keys.
bool isCounterLeaf(std::string_view path);

/// The table of prefixes of an instance.
struct TablePlace {
    std::string_view instance;
    List list = List::ipv4;  ///< or ipv6
};
/// Of which this leaf of state-synced speaks; nullopt for every other path.
std::optional<TablePlace> syncedTableOf(const Elems& elems);
/// "/network-instances/network-instance[name=I]/afts/state-synced/state/ipv4-unicast"
std::string syncedPath(const TablePlace& table);
/// Where the summary of those prefixes of a table has its count that are of this protocol.
std::string summaryPath(const TablePlace& table, std::string_view protocol);
bool isSummaryCount(std::string_view path);

/// Lanes in which a server sends: next hops, groups, prefixes and labels, state-synced, counters, summaries; nullopt for
/// what is none of them.
std::optional<int> laneOf(const Elems& elems);

}  // namespace Checker
