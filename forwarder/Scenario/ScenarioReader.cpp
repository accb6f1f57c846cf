#include "forwarder/Scenario/ScenarioReader.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <utility>

#include "model/Vrf/VrfName.h"

namespace Pel::Forwarder {

namespace {

constexpr std::uint32_t kDefaultVrfId = 254;  // as the kernel numbers its main table
constexpr Kiln::Duration kShortestRound = std::chrono::milliseconds{1};

std::string ofSource(const std::string& source) {
    return source.empty() ? std::string{} : " of the source " + inQuotes(source);
}

std::string shown(const std::string& name) {
    return inQuotes(name);
}
std::string shown(const RouteKey& key) {
    return inQuotes(key.prefix.stringValue()) + " in " + inQuotes(key.vrf);
}
std::string shown(const CounterKey& key) {
    if (!key.nextHop.empty()) { return "of the next hop " + inQuotes(key.nextHop); }
    return key.fec ? "of the tunnel " + Forwarder::shown(key.fec) : std::to_string(key.index);
}
std::string shown(const UdpPortKey& key) {
    return inQuotes(ElementReader::payloadName(key.name)) + ofSource(key.source);
}
std::string shown(const DecapGroupKey& key) {
    return inQuotes(key.name) + ofSource(key.source);
}
}  // namespace

Scenario ScenarioReader::read() {
    const FieldReader fields{root_,
                             {"scenario",
                              "invalid",
                              "interfaces",
                              "vrfs",
                              "vtis",
                              "udpDestinationPorts",
                              "decapGroups",
                              "nextHops",
                              "fecs",
                              "routes",
                              "counters",
                              "ready",
                              "timeline",
                              "repeat"},
                             elements_.values()};
    std::uint32_t version = 0;
    if (fields.need("scenario") != nullptr) { fields.read("scenario", version, 1, 1); }
    if (const YamlNode* list = fields.find("interfaces")) {
        for (const YamlNode& node : elements_.values().list(*list)) { elements_.interfaceIs(node); }
    }
    vrfs(fields.find("vrfs"), Verb::add);
    const std::string defaultVrf{Vrf::kDefaultVrfName};
    if (state_.vrf(defaultVrf) == nullptr) {
        state_.put(DescribedVrf{{}, defaultVrf, Vrf::VrfId{kDefaultVrfId}});
    }
    elementsInVrfs(fields, Verb::add);
    readiness(fields.find("ready"));

    Scenario scenario;
    auto beginning = state_.takeChanges();
    scenario.initial = std::move(beginning.data);
    scenario.ready = std::move(beginning.ready);
    timeline(fields.find("timeline"), scenario.firstRound);
    repetition(fields, scenario);
    if (scenario.rounds != 1 && problems_.empty()) {
        again_ = true;
        timeline(fields.find("timeline"), scenario.laterRounds);
    }
    scenario.firstFreeIndex = state_.firstFreeIndex();
    return scenario;
}

void ScenarioReader::elementsInVrfs(const FieldReader& fields, Verb verb) {
    // They would go with what they count, and then not be there any more.
    if (verb == Verb::del) { counters(fields.find("counters"), verb); }
    vtis(fields.find("vtis"), verb);
    udpPorts(fields.find("udpDestinationPorts"), verb);
    decapGroups(fields.find("decapGroups"), verb);
    nextHops(fields.find("nextHops"), verb);
    fecs(fields.find("fecs"), verb);
    routes(fields.find("routes"), verb);
    if (verb != Verb::del) { counters(fields.find("counters"), verb); }
}

template <class Key, class Element>
void ScenarioReader::each(const YamlNode* list, Verb verb, const Kind<Key, Element>& kind) {
    if (list == nullptr) { return; }
    for (const YamlNode& node : elements_.values().list(*list)) {
        const std::optional<Key> key = kind.key(node);
        if (!key) { continue; }
        const Element* present = kind.find(*key);
        const auto named = [&] { return std::string{kind.what} + " " + shown(*key); };
        if (verb == Verb::add && present != nullptr && !again_) {
            problems_.add(node.place, named() + " is there already");
        } else if (verb != Verb::add && present == nullptr && (verb == Verb::change || !again_)) {
            problems_.add(node.place,
                          "there is no " + named() + (again_ ? " when the timeline repeats" : ""));
        } else if (verb == Verb::del) {
            kind.del(*key, node.place);
        } else {
            Element element = verb == Verb::change ? *present : Element{};
            kind.put(node, *key, element);
        }
    }
}

void ScenarioReader::vrfs(const YamlNode* list, Verb verb) {
    if (verb == Verb::change && list != nullptr) {
        problems_.add(list->place, "a VRF cannot change; delete it and add another");
        return;
    }
    each<std::string, DescribedVrf>(
        list,
        verb,
        {"VRF",
         [&](const YamlNode& node) {
             return verb == Verb::del ? elements_.nameText(node) : elements_.name(node);
         },
         [&](const std::string& name) { return state_.vrf(name); },
         [&](const YamlNode& node, const std::string& name, DescribedVrf& vrf) {
             vrf.name = name;
             elements_.vrf(node, vrf);
             if (vrf.id) { state_.put(vrf); }
         },
         [&](const std::string& name, Place place) { state_.vrfDel(name, place); }});
}

void ScenarioReader::vtis(const YamlNode* list, Verb verb) {
    each<std::string, Vxlan::VtiStatus>(
        list,
        verb,
        {"tunnel interface",
         [&](const YamlNode& node) {
             return verb == Verb::del ? elements_.nameText(node) : elements_.name(node);
         },
         [&](const std::string& name) { return state_.vti(name); },
         [&](const YamlNode& node, const std::string& name, Vxlan::VtiStatus& vti) {
             elements_.vti(node, vti);
             state_.put(name, vti);
         },
         [&](const std::string& name, Place) { state_.vtiDel(name); }});
}

void ScenarioReader::udpPorts(const YamlNode* list, Verb verb) {
    each<UdpPortKey, ScenarioState::UdpPort>(
        list,
        verb,
        {"UDP destination port",
         [&](const YamlNode& node) {
             if (verb == Verb::del) {
                 FieldReader{node, {"payload", "source"}, elements_.values()};
             }
             return elements_.udpPortKey(node);
         },
         [&](const UdpPortKey& key) { return state_.udpPort(key); },
         [&](const YamlNode& node, const UdpPortKey& key, ScenarioState::UdpPort& port) {
             elements_.udpPort(node, port, verb == Verb::add);
             state_.put(key, port);
         },
         [&](const UdpPortKey& key, Place) { state_.udpPortDel(key); }});
}

void ScenarioReader::decapGroups(const YamlNode* list, Verb verb) {
    each<DecapGroupKey, ScenarioState::DecapGroup>(
        list,
        verb,
        {"decap group",
         [&](const YamlNode& node) {
             if (verb == Verb::del) { FieldReader{node, {"name", "source"}, elements_.values()}; }
             return elements_.decapGroupKey(node);
         },
         [&](const DecapGroupKey& key) { return state_.decapGroup(key); },
         [&](const YamlNode& node, const DecapGroupKey& key, ScenarioState::DecapGroup& group) {
             elements_.decapGroup(node, group, verb == Verb::add);
             state_.put(key, group);
         },
         [&](const DecapGroupKey& key, Place) { state_.decapGroupDel(key); }});
}

void ScenarioReader::nextHops(const YamlNode* list, Verb verb) {
    each<std::string, DescribedNextHop>(
        list,
        verb,
        {"next hop",
         [&](const YamlNode& node) {
             return verb == Verb::del ? elements_.nameText(node) : elements_.name(node);
         },
         [&](const std::string& name) { return state_.nextHop(name); },
         [&](const YamlNode& node, const std::string& name, DescribedNextHop& nextHop) {
             nextHop.name = name;
             elements_.nextHop(node, nextHop);
             state_.put(nextHop);
         },
         [&](const std::string& name, Place place) { state_.nextHopDel(name, place); }});
}

void ScenarioReader::fecs(const YamlNode* list, Verb verb) {
    each<Pel::FecId, DescribedFec>(
        list,
        verb,
        {"FEC",
         [&](const YamlNode& node) {
             return verb == Verb::del ? elements_.fecIdText(node) : elements_.fecId(node);
         },
         [&](const Pel::FecId& id) { return state_.fec(id); },
         [&](const YamlNode& node, const Pel::FecId& id, DescribedFec& fec) {
             fec.id = id;
             elements_.fec(node, fec);
             state_.put(fec);
         },
         [&](const Pel::FecId& id, Place place) { state_.fecDel(id, place); }});
}

void ScenarioReader::routes(const YamlNode* list, Verb verb) {
    each<RouteKey, DescribedRoute>(
        list,
        verb,
        {"route",
         [&](const YamlNode& node) -> std::optional<RouteKey> {
             if (verb == Verb::del) { FieldReader{node, {"vrf", "prefix"}, elements_.values()}; }
             return elements_.routeKey(node);
         },
         [&](const RouteKey& key) { return state_.route(key); },
         [&](const YamlNode& node, const RouteKey& key, DescribedRoute& route) {
             elements_.route(node, route);
             state_.put(key, route);
         },
         [&](const RouteKey& key, Place place) { state_.routeDel(key, place); }});
}

void ScenarioReader::counters(const YamlNode* list, Verb verb) {
    each<CounterKey, DescribedCounter>(
        list,
        verb,
        {"counter",
         [&](const YamlNode& node) {
             if (verb == Verb::del) {
                 FieldReader{node, {"nextHop", "fec", "index"}, elements_.values()};
             }
             return elements_.counterKey(node);
         },
         [&](const CounterKey& key) { return state_.counter(key); },
         [&](const YamlNode& node, const CounterKey& key, DescribedCounter& counter) {
             elements_.counter(node, counter, verb == Verb::add);
             state_.put(key, counter);
         },
         [&](const CounterKey& key, Place) { state_.counterDel(key); }});
}

void ScenarioReader::readiness(const YamlNode* node) {
    if (node == nullptr) { return; }
    const FieldReader fields{*node, {"fecReady", "fibReady", "quiesced"}, elements_.values()};
    if (const YamlNode* at = fields.find("fecReady")) {
        if (const auto ready = elements_.values().flag(*at)) { state_.fecReadyIs(*ready); }
    }
    forEachVrf(fields.find("fibReady"), [&](const YamlNode& vrf, const YamlNode& value) {
        std::optional<bool> ready;
        if (elements_.readiness(value, ready)) { state_.fibReadyIs(vrf.text, ready, vrf.place); }
    });
    forEachVrf(fields.find("quiesced"), [&](const YamlNode& vrf, const YamlNode& value) {
        const FieldReader families{value, {"ipv4", "ipv6"}, elements_.values()};
        for (const auto& [word, family] :
             {std::pair{"ipv4", Nexo::AddressFamily::ipv4}, {"ipv6", Nexo::AddressFamily::ipv6}}) {
            const YamlNode* at = families.find(word);
            std::optional<bool> quiesced;
            if (at == nullptr || !elements_.quiesced(*at, quiesced)) { continue; }
            state_.quiescedIs({vrf.text, family}, quiesced, vrf.place);
        }
    });
}

void ScenarioReader::forEachVrf(const YamlNode* map,
                                absl::FunctionRef<void(const YamlNode&, const YamlNode&)> visit) {
    if (map == nullptr) { return; }
    if (map->kind != YamlNode::Kind::map) {
        elements_.values().expected(*map, "a map of VRF name to readiness");
        return;
    }
    elements_.values().checkKeysOnce(*map);
    for (std::size_t i = 0; i + 1 < map->items.size(); i += 2) {
        visit(map->items[i], map->items[i + 1]);
    }
}

void ScenarioReader::repetition(const FieldReader& fields, Scenario& to) {
    const YamlNode* node = fields.find("repeat");
    if (node == nullptr) { return; }
    const FieldReader repeat{*node, {"every", "times"}, elements_.values()};
    const YamlNode* every = repeat.need("every");
    const auto period = every != nullptr ? elements_.values().duration(*every) : std::nullopt;
    if (!period) { return; }
    const Kiln::Duration last = to.firstRound.empty() ? Kiln::Duration{} : to.firstRound.back().at;
    if (*period < std::max(last, kShortestRound)) {
        elements_.values().expected(*every, "at least 1ms, and the time of the last step");
    }
    to.every = *period;
    to.rounds.reset();
    if (repeat.find("times") != nullptr) {
        std::uint64_t times = 1;
        repeat.read("times", times, 1);
        to.rounds = times;
    }
}

void ScenarioReader::timeline(const YamlNode* list, std::vector<Scenario::Step>& to) {
    if (list == nullptr) { return; }
    for (const YamlNode& node : elements_.values().list(*list)) {
        Scenario::Step next = step(node);
        if (!to.empty() && next.at < to.back().at) {
            problems_.add(node.place, "expected the steps in the order of their times");
        }
        to.push_back(std::move(next));
    }
}

Scenario::Step ScenarioReader::step(const YamlNode& node) {
    const FieldReader fields{node, {"at", "add", "change", "delete", "ready"}, elements_.values()};
    Scenario::Step step;
    if (const YamlNode* at = fields.need("at")) {
        step.at = elements_.values().duration(*at).value_or(Kiln::Duration{});
    }
    const std::pair<std::string_view, Verb> verbs[] = {
        {"add", Verb::add}, {"change", Verb::change}, {"delete", Verb::del}};
    for (const auto& [key, verb] : verbs) {
        const YamlNode* what = fields.find(key);
        if (what == nullptr) { continue; }
        const FieldReader lists{*what,
                                {"vrfs",
                                 "vtis",
                                 "udpDestinationPorts",
                                 "decapGroups",
                                 "nextHops",
                                 "fecs",
                                 "routes",
                                 "counters"},
                                elements_.values()};
        vrfs(lists.find("vrfs"), verb);
        elementsInVrfs(lists, verb);
    }
    readiness(fields.find("ready"));
    auto changes = state_.takeChanges();
    step.changes = std::move(changes.data);
    std::move(changes.ready.begin(), changes.ready.end(), std::back_inserter(step.changes));
    return step;
}

}  // namespace Pel::Forwarder
