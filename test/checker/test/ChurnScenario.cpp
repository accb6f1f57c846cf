#include "test/checker/test/ChurnScenario.h"

#include <fmt/format.h>

#include <vector>

#include "test/checker/AftSchema.h"

namespace Checker {
namespace {

constexpr unsigned kStanding = 40;  // next hops; half as many groups; as many routes
constexpr unsigned kGroups = kStanding / 2;
constexpr unsigned kChains = 12;  // at a time; each has ids of its own
constexpr unsigned kSpare = 8;
constexpr std::uint64_t kScenarioFec = 4ULL
                                       << 56U;  // id of a FEC that a scenario gives the number 0
constexpr unsigned kStepMs = 10;
constexpr unsigned kMoving = 4;      // routes of one group that is replaced at each step
constexpr unsigned kHerd = 100;      // chains of a next hop, a group and a route
constexpr unsigned kHerdGoes = 100;  // the step at which all of them go
constexpr unsigned kHerdComes = 150;

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
    to.routes.push_back(fmt::format(
        "{{prefix: \"2001:db8:{:x}::/48\", fec: {}, origin: ospf3}}", chain + 1, 1000 + chain));
}

void deleteChain(Items& to, unsigned chain) {
    to.nextHops.push_back(fmt::format("chain{}a", chain));
    to.nextHops.push_back(fmt::format("chain{}b", chain));
    to.fecs.push_back(fmt::to_string(1000 + chain));
    to.routes.push_back(fmt::format("{{prefix: 198.{}.{}.0/24}}", 18 + chain / 256, chain % 256));
    to.routes.push_back(fmt::format("{{prefix: \"2001:db8:{:x}::/48\"}}", chain + 1));
}

std::string movingHop(unsigned number) {
    return nextHop(fmt::format("moving{}", number), 4000 + number, 0x6000 + number);
}

std::string movingGroup(unsigned number) {
    return fmt::format("{{id: {}, members: [moving{}]}}", 4000 + number, number);
}

std::string movingRoute(unsigned route, unsigned number) {
    return fmt::format("{{prefix: 192.1.{}.0/24, fec: {}, origin: bgp}}", route, 4000 + number);
}

void addHerd(Items& to) {
    for (unsigned i = 0; i < kHerd; ++i) {
        to.nextHops.push_back(nextHop(fmt::format("herd{}", i), 3000 + i, 0x7000 + i));
        to.fecs.push_back(fmt::format("{{id: {}, members: [herd{}]}}", 3000 + i, i));
        to.routes.push_back(
            fmt::format("{{prefix: 192.2.{}.0/24, fec: {}, origin: static}}", i, 3000 + i));
    }
}

void deleteHerd(Items& from) {
    for (unsigned i = 0; i < kHerd; ++i) {
        from.nextHops.push_back(fmt::format("herd{}", i));
        from.fecs.push_back(fmt::to_string(3000 + i));
        from.routes.push_back(fmt::format("{{prefix: 192.2.{}.0/24}}", i));
    }
}

std::string standingGroup(unsigned group, unsigned weight) {
    return fmt::format("{{id: {}, members: [{{nextHop: hop{}, weight: {}}}, hop{}]}}",
                       1 + group,
                       2 * group,
                       weight,
                       2 * group + 1);
}

std::string standingRoute(unsigned route, unsigned group) {
    // Another group, often another origin.
    const char* const origin = group % 3 == 0 ? "isis" : "bgp";
    return fmt::format("{{prefix: 192.0.{}.0/24, fec: {}, origin: {}}}", route, 1 + group, origin);
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
        added.nextHops.push_back(movingHop(number + 1));
        added.fecs.push_back(movingGroup(number + 1));
        for (unsigned i = 0; i < kMoving; ++i) {
            changed.routes.push_back(movingRoute(i, number + 1));
        }
        deleted.fecs.push_back(fmt::to_string(4000 + number));
        deleted.nextHops.push_back(fmt::format("moving{}", number));
        if (number == kHerdGoes) { deleteHerd(deleted); }
        if (number == kHerdComes) { addHerd(added); }
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
    items.nextHops.push_back(movingHop(0));
    items.fecs.push_back(movingGroup(0));
    for (unsigned i = 0; i < kMoving; ++i) { items.routes.push_back(movingRoute(i, 0)); }
    addHerd(items);
    return items;
}

}  // namespace

std::size_t ChurnScenario::entriesAtBeginning() {
    const Items items = itemsAtBeginning();
    return items.nextHops.size() + items.fecs.size() + items.routes.size();
}

std::set<std::string> ChurnScenario::standing() {
    std::set<std::string> paths;
    const auto add = [&](List list, const std::string& key) {
        paths.insert(entryPath(list, "DEFAULT", key));
    };
    for (unsigned i = 0; i < kStanding; ++i) {
        add(List::nextHop, std::to_string(1 + i));
        add(List::ipv4, fmt::format("192.0.{}.0/24", i));
    }
    for (unsigned i = 0; i < kGroups; ++i) {
        add(List::group, std::to_string(kScenarioFec + 1 + i));
    }
    add(List::ipv4, "203.0.113.0/32");
    return paths;
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
