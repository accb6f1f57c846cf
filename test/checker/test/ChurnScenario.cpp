#include "test/checker/test/ChurnScenario.h"

#include <fmt/format.h>

#include <vector>

namespace Checker {
namespace {

constexpr unsigned kStanding = 40;  // next hops; half as many groups; as many routes
constexpr unsigned kGroups = kStanding / 2;
constexpr unsigned kChains = 12;  // at a time; each has ids of its own
constexpr unsigned kSpare = 8;
constexpr unsigned kStepMs = 10;

std::string mac(unsigned number) {
    return fmt::format("\"02:00:00:00:{:02x}:{:02x}\"", number >> 8U & 0xFFU, number & 0xFFU);
}

/// The elements of a part of a scenario by section, as flow items.
struct Items {
    std::vector<std::string> nextHops;
    std::vector<std::string> fecs;
    std::vector<std::string> routes;

    std::string text(const std::string& indent) const {
        std::string made;
        const auto section = [&](const char* name, const std::vector<std::string>& items) {
            if (items.empty()) { return; }
            made += fmt::format("{}{}:\n", indent, name);
            for (const std::string& item : items) {
                made += fmt::format("{}  - {}\n", indent, item);
            }
        };
        section("nextHops", nextHops);
        section("fecs", fecs);
        section("routes", routes);
        return made;
    }
};

std::string nextHop(const std::string& name, unsigned index, unsigned hardware) {
    return fmt::format(
        "{{name: {}, index: {}, interface: Ethernet1, address: 10.0.{}.{}, mac: {}}}",
        name,
        index,
        index / 250,
        1 + index % 250,
        mac(hardware));
}

void addChain(Items& to, unsigned chain) {
    const unsigned index = 1000 + 2 * chain;
    to.nextHops.push_back(nextHop(fmt::format("chain{}a", chain), index, index));
    to.nextHops.push_back(nextHop(fmt::format("chain{}b", chain), index + 1, index + 1));
    to.fecs.push_back(
        fmt::format("{{id: {0}, members: [chain{1}a, {{nextHop: chain{1}b, weight: 3}}]}}",
                    1000 + chain,
                    chain));
    to.routes.push_back(fmt::format(
        "{{prefix: 198.{}.{}.0/24, fec: {}}}", 18 + chain / 256, chain % 256, 1000 + chain));
    to.routes.push_back(
        fmt::format("{{prefix: \"2001:db8:{:x}::/48\", fec: {}}}", chain + 1, 1000 + chain));
}

void deleteChain(Items& to, unsigned chain) {
    to.nextHops.push_back(fmt::format("chain{}a", chain));
    to.nextHops.push_back(fmt::format("chain{}b", chain));
    to.fecs.push_back(fmt::to_string(1000 + chain));
    to.routes.push_back(fmt::format("{{prefix: 198.{}.{}.0/24}}", 18 + chain / 256, chain % 256));
    to.routes.push_back(fmt::format("{{prefix: \"2001:db8:{:x}::/48\"}}", chain + 1));
}

std::string standingGroup(unsigned group, unsigned weight) {
    return fmt::format("{{id: {}, members: [{{nextHop: hop{}, weight: {}}}, hop{}]}}",
                       1 + group,
                       2 * group,
                       weight,
                       2 * group + 1);
}

std::string standingRoute(unsigned route, unsigned group) {
    return fmt::format("{{prefix: 192.0.{}.0/24, fec: {}}}", route, 1 + group);
}

std::string spareHop(unsigned spare) {
    return nextHop(fmt::format("spare{}", spare), 800 + spare, 800 + spare);
}

class Churn {
public:
    std::string step(unsigned number) {
        Items added;
        Items changed;
        Items deleted;
        for (unsigned i = 0; i < 2; ++i) {
            addChain(added, kChains + number * 2 + i);
            deleteChain(deleted, number * 2 + i);
        }
        // A next hop of no group goes and, when its turn is again, comes back.
        const unsigned spare = number % kSpare;
        if (number / kSpare % 2 == 0) {
            deleted.nextHops.push_back(fmt::format("spare{}", spare));
        } else {
            added.nextHops.push_back(spareHop(spare));
        }
        for (unsigned i = 0; i < 4; ++i) {
            const unsigned hop = (number * 4 + i) % kStanding;
            changed.nextHops.push_back(
                fmt::format("{{name: hop{}, mac: {}}}", hop, mac(0x4000 + number * 4 + i)));
        }
        // One next hop changes once only, at the very beginning.
        if (number == 0) { changed.nextHops.push_back("{name: rare, mac: " + mac(0x8000) + "}"); }
        for (unsigned i = 0; i < 2; ++i) {
            const unsigned group = (number * 2 + i) % kGroups;
            changed.fecs.push_back(standingGroup(group, 2 + number % 50));
            const unsigned route = (number * 2 + i) % kStanding;
            changed.routes.push_back(
                standingRoute(route, (route + number + number / kGroups) % kGroups));
        }
        std::string text = fmt::format("  - at: {}ms\n", (number + 1) * kStepMs);
        const auto part = [&](const char* name, const Items& items) {
            const std::string below = items.text("      ");
            if (!below.empty()) { text += fmt::format("    {}:\n{}", name, below); }
        };
        part("add", added);
        part("change", changed);
        part("delete", deleted);
        return text;
    }
};

}  // namespace

namespace {

Items itemsAtBeginning() {
    Items items;
    for (unsigned i = 0; i < kStanding; ++i) {
        items.nextHops.push_back(nextHop(fmt::format("hop{}", i), 1 + i, i));
    }
    items.nextHops.push_back(nextHop("rare", 900, 900));
    for (unsigned i = 0; i < kGroups; ++i) { items.fecs.push_back(standingGroup(i, 1)); }
    for (unsigned i = 0; i < kStanding; ++i) {
        items.routes.push_back(standingRoute(i, i % kGroups));
    }
    items.routes.push_back("{prefix: 203.0.113.0/32, fec: 1}");  // never changes
    for (unsigned i = 0; i < kChains; ++i) { addChain(items, i); }
    for (unsigned i = 0; i < kSpare; ++i) { items.nextHops.push_back(spareHop(i)); }
    return items;
}

}  // namespace

std::size_t ChurnScenario::entriesAtBeginning() {
    const Items items = itemsAtBeginning();
    return items.nextHops.size() + items.fecs.size() + items.routes.size();
}

std::string ChurnScenario::beginning() {
    return "scenario: 1\ninterfaces:\n  - {name: Ethernet1}\n" + itemsAtBeginning().text("");
}

std::string ChurnScenario::withChurn(unsigned steps) {
    std::string text = beginning() + "timeline:\n";
    Churn churn;
    for (unsigned i = 0; i < steps; ++i) { text += churn.step(i); }
    return text + fmt::format("  - at: {}ms\n    add: {{routes: [{{prefix: {}, fec: 1}}]}}\n",
                              (steps + 1) * kStepMs,
                              kMarker);
}

}  // namespace Checker
