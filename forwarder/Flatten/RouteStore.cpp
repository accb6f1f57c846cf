#include "forwarder/Flatten/RouteStore.h"

#include <algorithm>
#include <utility>

namespace Pel::Forwarder {

using Nexo::AddressFamily;

RouteStore::Table* RouteStore::table(const TableKey& key) {
    const auto found = tables_.find(key);
    return found == tables_.end() ? nullptr : found->second.get();
}

RouteEntry& RouteStore::entry(const RouteRef& ref) {
    auto& table = tables_[ref.table];
    if (table == nullptr) { table = std::make_unique<Table>(); }
    return table->routes[ref.prefix];
}

RouteEntry* RouteStore::find(const RouteRef& ref) {
    Table* const in = table(ref.table);
    if (in == nullptr) { return nullptr; }
    const auto found = in->routes.find(ref.prefix);
    return found == in->routes.end() ? nullptr : &found->second;
}

void RouteStore::erase(const RouteRef& ref) {
    Table* const in = table(ref.table);
    if (in == nullptr) { return; }
    in->routes.erase(ref.prefix);
    in->shadows.erase(ref.prefix);
}

absl::InlinedVector<RouteVariant, 2> RouteStore::variants(const RouteRef& ref) {
    absl::InlinedVector<RouteVariant, 2> result;
    const RouteEntry* const entry = find(ref);
    if (entry == nullptr || !entry->target) { return result; }
    result.push_back(entry->variant());
    if (!entry->shadowed) { return result; }
    const auto& shadows = table(ref.table)->shadows[ref.prefix];
    result.insert(result.end(), shadows.begin(), shadows.end());
    return result;
}

RouteVariant RouteStore::variant(const RouteRef& ref, std::uint32_t metric) {
    for (const RouteVariant& v : variants(ref)) {
        if (v.metric == metric) { return v; }
    }
    return {};
}

bool RouteStore::variantIs(const RouteRef& ref, const RouteVariant& variant) {
    RouteEntry& route = entry(ref);
    if (!route.target || route.metric == variant.metric) {
        const bool changed = route.target != variant.target || route.protocol != variant.protocol;
        route.variantIs(variant);
        return changed;
    }
    auto& shadows = table(ref.table)->shadows[ref.prefix];
    route.shadowed = true;
    if (variant.metric < route.metric) {
        shadows.push_back(route.variant());
        route.variantIs(variant);
        return true;
    }
    const auto same = std::find_if(shadows.begin(), shadows.end(), [&variant](const auto& v) {
        return v.metric == variant.metric;
    });
    if (same == shadows.end()) {
        shadows.push_back(variant);
    } else {
        *same = variant;
    }
    return false;
}

bool RouteStore::variantDel(const RouteRef& ref, std::uint32_t metric) {
    RouteEntry* const route = find(ref);
    if (route == nullptr || !route->target) { return false; }
    const bool forwards = route->metric == metric;
    if (!route->shadowed) {
        if (forwards) { route->variantIs({}); }
        return forwards;
    }
    auto& all = table(ref.table)->shadows;
    auto& shadows = all[ref.prefix];
    const auto gone =
        forwards
            ? std::min_element(shadows.begin(),
                               shadows.end(),
                               [](const auto& a, const auto& b) { return a.metric < b.metric; })
            : std::find_if(shadows.begin(), shadows.end(), [metric](const auto& v) {
                  return v.metric == metric;
              });
    if (gone == shadows.end()) { return false; }
    if (forwards) { route->variantIs(*gone); }  // the next best steps forward
    shadows.erase(gone);
    route->shadowed = !shadows.empty();
    if (shadows.empty()) { all.erase(ref.prefix); }
    return forwards;
}

bool RouteStore::walk(RouteRef& bookmark,
                      bool wholeFamily,
                      std::size_t& budget,
                      absl::FunctionRef<void(const RouteRef&, RouteEntry&)> visitor) {
    const AddressFamily family = bookmark.table.family;
    for (auto in = tables_.lower_bound(bookmark.table); in != tables_.end(); ++in) {
        const bool wanted = wholeFamily ? in->first.family == family : in->first == bookmark.table;
        if (!wanted) { break; }
        if (in->first != bookmark.table) { bookmark = {in->first, {}}; }
        auto& routes = in->second->routes;
        for (auto at = routes.upper_bound(bookmark.prefix); at != routes.end(); ++at) {
            if (budget == 0) { return true; }
            --budget;
            bookmark.prefix = at->first;
            visitor(bookmark, at->second);
        }
    }
    return false;
}

absl::InlinedVector<TableKey, 4> RouteStore::tables() const {
    absl::InlinedVector<TableKey, 4> result;
    for (const auto& [key, table] : tables_) {
        if (!table->routes.empty()) { result.push_back(key); }
    }
    return result;
}

std::size_t RouteStore::size() const {
    std::size_t total = 0;
    for (const auto& [key, table] : tables_) { total += table->routes.size(); }
    return total;
}

}  // namespace Pel::Forwarder
