#include "forwarder/Scenario/Generator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <span>
#include <vector>

#include "forwarder/Scenario/Description.h"
#include "model/Vrf/VrfName.h"

namespace Pel::Forwarder {

namespace {

constexpr std::uint32_t kDefaultVrfId = 254;
constexpr std::uint64_t kInterfaces = 64;
constexpr std::uint64_t kSpare = 16;        // one of so many is spare
constexpr std::uint64_t kOfChain = 4;       // elements
constexpr std::uint64_t kDefaultTurn = 10;  // seconds from one change of a counter to the next
constexpr std::uint64_t kRates = 16;        // of counters, the multiples of the given one
constexpr std::uint64_t kSizes = 1437;      // of packets, in octets, from 64 on
constexpr std::uint64_t kPreamble = 2;      // the VRF, and that there are no tunnel interfaces

// Streams of random numbers.
enum Stream : std::uint64_t { kForeignMember, kWeight, kFecOfRoute, kChurn, kChurnKind };

std::uint64_t mixed(std::uint64_t value) {
    value += 0x9E37'79B9'7F4A'7C15U;
    value = (value ^ (value >> 30U)) * 0xBF58'476D'1CE4'E5B9U;
    value = (value ^ (value >> 27U)) * 0x94D0'49BB'1331'11EBU;
    return value ^ (value >> 31U);
}

Nexo::IpGenAddr ipv4(std::uint32_t number) {
    const std::array<std::uint8_t, 4> bytes{static_cast<std::uint8_t>(number >> 24U),
                                            static_cast<std::uint8_t>(number >> 16U),
                                            static_cast<std::uint8_t>(number >> 8U),
                                            static_cast<std::uint8_t>(number)};
    return Nexo::IpGenAddr{bytes};
}

constexpr std::uint32_t kFirstV4Network = 0x0100'00U;  // 1.0.0.0/24

Nexo::IpPrefix v4Prefix(std::uint64_t number) {
    return {ipv4(static_cast<std::uint32_t>(kFirstV4Network + number) << 8U), 24};
}

Nexo::IpPrefix v6Prefix(std::uint64_t number) {  // 2400::/16 and the number make a /48
    std::array<std::uint8_t, 16> bytes{0x24, 0x00};
    for (unsigned i = 0; i < 4; ++i) {
        bytes[2 + i] = static_cast<std::uint8_t>(number >> (24U - 8U * i));
    }
    return {Nexo::IpGenAddr{bytes}, 48};
}

/// Every fourth route is IPv6.
Nexo::IpPrefix prefixOf(std::uint64_t route) {
    return route % 4 == 3 ? v6Prefix(route / 4) : v4Prefix(route - route / 4);
}

/// The number that the bytes spell.
std::uint64_t spelt(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes) { value = value << 8U | byte; }
    return value;
}

/// The only route that can have this prefix.
std::optional<std::uint64_t> routeOf(const Nexo::IpPrefix& prefix) {
    const auto bytes = prefix.address().bytes();
    std::uint64_t route = 0;
    if (bytes.size() == 16) {
        route = spelt(bytes.subspan(2, 4)) * 4 + 3;
    } else if (bytes.size() == 4) {
        const std::uint64_t number = spelt(bytes.first(3)) - kFirstV4Network;
        route = number + number / 3;
    }
    return prefixOf(route) == prefix ? std::optional{route} : std::nullopt;
}

Pel::FecId fecOf(std::uint64_t group) {
    return makeFecId(FecKind::scenario, group + 1);
}

}  // namespace

Generator::Generator(const GeneratorOptions& options)
    : options_{options},
      membered_{options.nextHops - options.nextHops / kSpare},
      routed_{options.groups - options.groups / kSpare},
      maxAway_{0},
      churn_{options.churn},
      counterChanges_{options.counters == 0         ? 0
                      : options.counterChanges == 0 ? counted() / kDefaultTurn + 1
                                                    : options.counterChanges} {
    const std::uint64_t deletable =
        (options.nextHops - membered_) + (options.groups - routed_) + options.routes;
    maxAway_ = std::min<std::uint64_t>(kMaxAway, deletable / 4);
}

std::uint64_t Generator::random(std::uint64_t stream, std::uint64_t number) const {
    return mixed(mixed(options_.seed * 8 + stream) ^ mixed(number));
}

// The elements

std::uint64_t Generator::firstMember(std::uint64_t group) const {
    return group * membered_ / options_.groups;
}

/// The group that a next hop is counted in, and its place there.
std::optional<std::pair<std::uint64_t, std::uint32_t>> Generator::slotOf(
    std::uint64_t nextHop) const {
    if (options_.groups == 0 || nextHop >= membered_) { return std::nullopt; }
    std::uint64_t group = nextHop * options_.groups / membered_;
    while (group + 1 < options_.groups && firstMember(group + 1) <= nextHop) { ++group; }
    const std::uint64_t slot = nextHop - firstMember(group);
    if (slot >= kMaxMembers) { return std::nullopt; }
    return std::pair{group, static_cast<std::uint32_t>(slot)};
}

NextHopItem Generator::nextHop(std::uint64_t number, std::uint64_t salt) const {
    static const std::vector<Nexo::IntfId> interfaces = [] {
        std::vector<Nexo::IntfId> made;
        for (std::uint64_t i = 0; i < kInterfaces; ++i) {
            const std::string parent = "Ethernet" + std::to_string(i + 1);
            made.push_back(i % 8 == 7 ? Nexo::IntfId{parent + ".100", parent, 100}
                                      : Nexo::IntfId{parent});
        }
        return made;
    }();
    DescribedNextHop made;
    made.interface = interfaces[number % kInterfaces];
    made.address = ipv4(0x0A00'0000U + static_cast<std::uint32_t>(number));  // in 10.0.0.0/8
    // The change is in the MAC, so that no change is without effect.
    const std::uint64_t mac = salt == 0 ? number : 0x80'0000'0000U | (salt & 0x7F'FFFF'FFFFU);
    made.mac = Nexo::EthAddr{std::array<std::uint8_t, 6>{2,
                                                         static_cast<std::uint8_t>(mac >> 32U),
                                                         static_cast<std::uint8_t>(mac >> 24U),
                                                         static_cast<std::uint8_t>(mac >> 16U),
                                                         static_cast<std::uint8_t>(mac >> 8U),
                                                         static_cast<std::uint8_t>(mac)}};
    if (number % 8 == 3) {
        made.labels.emplace_back(static_cast<std::uint32_t>(16'000 + number % 10'000));
    }
    if (number % 16 == 5) {
        made.encapOrder = {9};
        made.gue = Stash::GueEncap{1,
                                   ipv4(0xC000'0201U),
                                   ipv4(0xC612'0000U + static_cast<std::uint32_t>(number % 65'536)),
                                   64};
    }
    NextHopItem item;
    item.entry.index = Stash::OcNextHopIndex{number + 1};
    if (const auto slot = slotOf(number)) {
        item.entry.nhgId = NexthopGroupId{fecOf(slot->first).value()};
        item.entry.nhgEntryId = NexthopGroupEntryIndex{slot->second};
    }
    item.content = recordBytes(made);
    return item;
}

std::vector<Stash::OcNextHopIndex> Generator::membersOf(std::uint64_t number) const {
    if (number >= options_.groups) {
        const std::uint64_t first = options_.nextHops + 2 * (number - options_.groups);
        return {Stash::OcNextHopIndex{first + 1}, Stash::OcNextHopIndex{first + 2}};
    }
    const std::uint64_t begin = firstMember(number);
    const std::uint64_t end = std::min(firstMember(number + 1), begin + kMaxMembers);
    std::vector<Stash::OcNextHopIndex> indexes;
    for (std::uint64_t i = begin; i < end; ++i) { indexes.emplace_back(i + 1); }
    const std::uint64_t foreign = random(kForeignMember, number);
    const std::uint64_t other = (foreign >> 2U) % membered_;
    const bool known = other >= begin && other < end;
    if (begin == end || (foreign % 4 == 0 && !known)) { indexes.emplace_back(other + 1); }
    return indexes;
}

FecItem Generator::group(std::uint64_t number, std::uint64_t salt) const {
    const std::vector<Stash::OcNextHopIndex> indexes = membersOf(number);
    DescribedFec made;
    for (std::uint64_t i = 0; i < indexes.size(); ++i) {
        const std::uint64_t weight = random(kWeight, number * kMaxMembers + i) % 16 + 1;
        made.members.push_back({{}, {}, static_cast<std::uint32_t>(weight)});
    }
    // The change is in the first weight; by turns of a prime, so that it is hardly ever the one before.
    if (salt != 0) { made.members[0].weight = static_cast<std::uint32_t>(17 + salt % 997); }
    made.name = "group-" + std::to_string(number + 1);
    FecItem item;
    item.id = fecOf(number);
    item.entry.programmedId = number + 1;
    item.entry.topFec = true;
    item.content = recordBytes(made, indexes);
    return item;
}

RouteItem Generator::route(std::uint64_t number, std::uint64_t salt) const {
    // Moved on by the change: another one than before, unless two changes of a route are a multiple of all groups apart.
    const std::uint64_t group = number >= options_.routes
                                    ? options_.groups + (number - options_.routes)
                                    : (random(kFecOfRoute, number) + salt) % routed_;
    return {{std::string{Vrf::kDefaultVrfName}, prefixOf(number)},
            {fecOf(group), number % 8 == 0 ? OriginProtocol::isis : OriginProtocol::bgp}};
}

Change Generator::make(Element element, std::uint64_t salt) const {
    switch (element.first) {
        case Kind::nextHop:
            return nextHop(element.second, salt);
        case Kind::group:
            return group(element.second, salt);
        case Kind::route:
            return route(element.second, salt);
    }
    return FecReadyItem{};
}

Change Generator::deletion(Element element) {
    switch (element.first) {
        case Kind::nextHop:
            return NextHopDel{Stash::OcNextHopIndex{element.second + 1}};
        case Kind::group:
            return FecDel{fecOf(element.second)};
        case Kind::route:
            return RouteDel{{std::string{Vrf::kDefaultVrfName}, prefixOf(element.second)}};
    }
    return FecReadyItem{};
}

// The beginning

std::uint64_t Generator::count(Kind kind) const {
    return standing(kind) + options_.chains * (kind == Kind::nextHop ? 2 : 1);
}

/// An element of a chain, in the order of references.
Generator::Element Generator::ofChain(std::uint64_t chain, std::uint64_t place) const {
    if (place < 2) { return {Kind::nextHop, options_.nextHops + 2 * chain + place}; }
    return place == 2 ? Element{Kind::group, options_.groups + chain}
                      : Element{Kind::route, options_.routes + chain};
}

std::uint64_t Generator::standing(Kind kind) const {
    switch (kind) {
        case Kind::nextHop:
            return options_.nextHops;
        case Kind::group:
            return options_.groups;
        case Kind::route:
            return options_.routes;
    }
    return 0;
}

bool Generator::describe(Changes& to, std::size_t limit) {
    const std::uint64_t all =
        kPreamble + count(Kind::nextHop) + count(Kind::group) + count(Kind::route);
    const std::uint64_t end = std::min<std::uint64_t>(all, described_ + limit);
    const bool any = described_ < end;
    for (; described_ < end; ++described_) {
        if (described_ == 0) {
            to.emplace_back(VrfItem{Vrf::VrfId{kDefaultVrfId}, std::string{Vrf::kDefaultVrfName}});
        } else if (described_ == 1) {
            to.emplace_back(VtisItem{});
        } else {
            std::uint64_t number = described_ - kPreamble;
            Kind kind = Kind::nextHop;
            for (; number >= count(kind); kind = static_cast<Kind>(static_cast<int>(kind) + 1)) {
                number -= count(kind);
            }
            to.push_back(make({kind, number}, 0));
        }
    }
    return any;
}

void Generator::describeReadiness(Changes& to) {
    to.emplace_back(FibReadyItem{std::string{Vrf::kDefaultVrfName}, true});
    to.emplace_back(FecReadyItem{true});
    if (options_.churn > 0) { return; }
    for (const auto family : {Nexo::AddressFamily::ipv4, Nexo::AddressFamily::ipv6}) {
        to.emplace_back(QuiescedItem{std::string{Vrf::kDefaultVrfName}, family, true});
    }
}

bool Generator::hasVrfId(Vrf::VrfId id) const {
    return id == Vrf::VrfId{kDefaultVrfId};
}

bool Generator::hasVrf(const std::string& name) const {
    return name == Vrf::kDefaultVrfName;
}

bool Generator::hasNextHop(Stash::OcNextHopIndex index) const {
    return index.value() >= 1 && index.value() <= count(Kind::nextHop);
}

bool Generator::hasFec(Pel::FecId id) const {
    return fecKind(id) == FecKind::scenario && fecNumber(id) >= 1 &&
           fecNumber(id) <= count(Kind::group);
}

bool Generator::hasRoute(const RouteKey& key) const {
    const auto number = hasVrf(key.vrf) ? routeOf(key.prefix) : std::nullopt;
    return number && *number < count(Kind::route);
}

// Churn

std::optional<Kiln::Duration> Generator::nextDue() const {
    const auto churn = churn_.nextDue();
    const auto counters = counterChanges_.nextDue();
    return churn && counters ? std::min(*churn, *counters) : churn ? churn : counters;
}

void Generator::due(Kiln::Duration now, Changes& to, std::size_t limit) {
    churn_.dropLate(now);
    counterChanges_.dropLate(now);
    // Both have their share, also when either alone is more than can be published.
    const std::size_t half = to.size() + (limit - to.size()) / 2;
    while (to.size() < half && counterChanges_.due(now)) {
        to.emplace_back(counter(counterChanges_.take(), now));
    }
    while (to.size() < limit && churn_.due(now)) {
        if (auto made = change(churn_.take())) { to.push_back(std::move(*made)); }
    }
}

// Counters

/// How many next hops are counted.
std::uint64_t Generator::counted() const {
    return std::min(membered_, options_.groups * kMaxMembers);
}

CounterItem Generator::counter(std::uint64_t turn, Kiln::Duration now) const {
    const std::uint64_t place = turn % counted();
    const bool all = counted() == membered_;  // else as many of each group as are members
    const std::uint64_t number =
        all ? place : firstMember(place / kMaxMembers) + place % kMaxMembers;
    const auto milliseconds = static_cast<std::uint64_t>(now / std::chrono::milliseconds{1});
    CounterItem item;
    item.index = FlexCounters::CounterIndex{number + 1};
    item.packets = options_.counters * (1 + number % kRates) * milliseconds / 1000;
    item.octets = *item.packets * (64 + number % kSizes);
    return item;
}

bool Generator::hasCounter(FlexCounters::CounterIndex index) const {
    return options_.counters != 0 && index.value() >= 1 && slotOf(index.value() - 1).has_value();
}

/// What a change does to the chains, when it is one of those: they take turns, all are deleted, then all come back.
std::optional<Change> Generator::chainChange(std::uint64_t number) const {
    constexpr std::uint64_t kTurn = 20;
    constexpr std::uint64_t kFirst = 10;
    const std::uint64_t place = number % kTurn - kFirst;
    if (options_.chains == 0 || number % kTurn < kFirst || place >= kOfChain) {
        return std::nullopt;
    }
    const std::uint64_t chain = number / kTurn % options_.chains;
    const bool back = number / kTurn / options_.chains % 2 == 1;
    return back ? make(ofChain(chain, place), number + 1)
                : deletion(ofChain(chain, kOfChain - 1 - place));
}

/// Change number `number`. Only from 0 upward: what is away decides with it.
std::optional<Change> Generator::change(std::uint64_t number) {
    if (auto made = chainChange(number)) { return made; }
    const std::uint64_t chance = random(kChurn, number);
    const std::uint64_t salt = number + 1;
    if (number % 5 != 4 || maxAway_ == 0) {
        const auto element = pick(random(kChurnKind, number), chance, false);
        return element ? std::optional{make(*element, salt)} : std::nullopt;
    }
    if (away_.size() >= maxAway_) {
        const Element back = away_.front();
        away_.pop_front();
        isAway_.erase(back);
        return make(back, salt);
    }
    const auto element = pick(random(kChurnKind, number), chance, true);
    if (!element) { return std::nullopt; }
    away_.push_back(*element);
    isAway_.insert(*element);
    return deletion(*element);
}

/// An element that is there: of a kind that `random` says, the first from `from` on.
std::optional<Generator::Element> Generator::pick(std::uint64_t random,
                                                  std::uint64_t from,
                                                  bool deletable) const {
    for (unsigned turn = 0; turn < 3; ++turn) {
        const Kind kind = static_cast<Kind>((random + turn) % 3);
        const std::uint64_t first = !deletable || kind == Kind::route ? 0
                                    : kind == Kind::nextHop           ? membered_
                                                                      : routed_;
        // With one group to lead to, a route cannot change.
        const bool fixed = !deletable && kind == Kind::route && routed_ < 2;
        const std::uint64_t choice = fixed ? 0 : standing(kind) - first;
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(choice, kMaxAway + 1); ++i) {
            const Element element{kind, first + (from + i) % choice};
            if (!isAway_.contains(element)) { return element; }
        }
    }
    return std::nullopt;
}

}  // namespace Pel::Forwarder
