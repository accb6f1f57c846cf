#include "forwarder/Flatten/MemberCounters.h"

#include <algorithm>

namespace Pel::Forwarder {

namespace {

/// Whether `now` is `then` or more, of numbers that may have wrapped.
bool reaches(std::uint64_t now, std::uint64_t then) {
    return static_cast<std::int64_t>(now - then) >= 0;
}

}  // namespace

std::uint64_t MemberCounters::State::packets() const {
    std::uint64_t sum = offset.packets;
    for (const auto& [id, counted] : members) { sum += counted; }
    return sum;
}

// A poll

void MemberCounters::beginPoll() {
    ++poll_;
    bookmark_ = 0;
    vnis_.clear();
}

void MemberCounters::apply(std::uint32_t ifindex, const VniCount& count) {
    if (flatten_.nextHopsOf(ifindex, count.vni) == 1) { vnis_[{ifindex, count.vni}] = count; }
}

void MemberCounters::apply(const Nexthop& group) {
    if (!group.isGroup || !group.hasStatistics) { return; }
    const FecId fec = makeFecId(FecKind::kernel, group.id);
    scratch_.clear();
    for (const NexthopGroupEntry& entry : group.group) {
        const AdjacencyId adjacency = fib_.adjacencyOf(entry.id);
        const OcNextHopNumber nextHop = flatten_.nextHopOf(fec, adjacency);
        if (nextHop != 0) { scratch_.push_back({nextHop, adjacency, entry.id, entry.packets}); }
    }
    std::sort(scratch_.begin(), scratch_.end(), [](const Counted& a, const Counted& b) {
        return std::pair{a.nextHop, a.id} < std::pair{b.nextHop, b.id};
    });
    for (std::size_t i = 0; i < scratch_.size();) {
        const Counted& first = scratch_[i];
        Members members;
        for (; i < scratch_.size() && scratch_[i].nextHop == first.nextHop; ++i) {
            members.emplace_back(scratch_[i].id, scratch_[i].packets);
        }
        count(first.nextHop, std::move(members), first.adjacency);
    }
}

void MemberCounters::count(OcNextHopNumber nextHop, Members members, AdjacencyId adjacency) {
    const auto [at, isNew] = states_.try_emplace(nextHop);
    State& state = at->second;
    state.poll = poll_;
    const bool packets = take(state, std::move(members));
    const bool octets = take(state, vniOf(adjacency));
    const bool any = state.packets() != 0 || state.octets() != 0;
    if (isNew ? any : packets || octets) { state.published = false; }
    if (isNew && !any) { state.published = true; }
    if (state.published || state.changed) { return; }
    state.changed = true;
    changed_.push_back(nextHop);
}

/// What is counted of the members; true when that is something else than before.
bool MemberCounters::take(State& state, Members members) {
    if (members == state.members) { return false; }
    for (const auto& [id, counted] : state.members) {
        const auto now = std::find_if(
            members.begin(), members.end(), [id = id](const auto& m) { return m.first == id; });
        if (now == members.end() || now->second < counted) { state.offset.packets += counted; }
    }
    state.members = std::move(members);
    return true;
}

bool MemberCounters::take(State& state, const VniCount& vni) {
    if (vni == state.vni) { return false; }
    if (vni.vni == 0) {
        state.offset.octets = 0;
        state.octetsFounded = false;
    } else if (vni.octets < state.vni.octets) {
        state.offset.octets += state.vni.octets;
    }
    state.vni = vni;
    return true;
}

/// Number 0: none that is the adjacency's alone.
VniCount MemberCounters::vniOf(AdjacencyId adjacency) const {
    const AdjacencyKey& key = fib_.adjacencies()[adjacency].key;
    if (key.encap == nullptr || key.encap->kind != EncapKind::Ip || vnis_.empty()) { return {}; }
    const auto at =
        vnis_.find({key.ifindex, static_cast<std::uint32_t>(key.encap->tunnelId & kMaxVni)});
    return at == vnis_.end() ? VniCount{} : at->second;
}

bool MemberCounters::forget(std::size_t& budget) {
    auto at = states_.lower_bound(bookmark_);
    for (; at != states_.end() && budget > 0; --budget) {
        bookmark_ = at->first + 1;
        at = at->second.poll == poll_ ? std::next(at) : states_.erase(at);
    }
    return at != states_.end();
}

// What is to be published

std::optional<OcNextHopNumber> MemberCounters::takeChanged() {
    while (!changed_.empty()) {
        const OcNextHopNumber nextHop = changed_.front();
        changed_.pop_front();
        const auto at = states_.find(nextHop);
        if (at == states_.end() || !at->second.changed) { continue; }
        at->second.changed = false;
        at->second.published = true;
        return nextHop;
    }
    return std::nullopt;
}

void MemberCounters::notPublished(OcNextHopNumber nextHop) {
    const auto at = states_.find(nextHop);
    if (at != states_.end()) { at->second.published = false; }
}

bool MemberCounters::wantsPublished(OcNextHopNumber nextHop) const {
    const auto at = states_.find(nextHop);
    if (at == states_.end()) { return false; }
    const State& state = at->second;
    return !state.packetsFounded || (state.vni.vni != 0 && !state.octetsFounded);
}

void MemberCounters::publishedIs(OcNextHopNumber nextHop, const CountedTraffic& published) {
    const auto at = states_.find(nextHop);
    if (at == states_.end()) { return; }
    State& state = at->second;
    const auto floor = [](std::uint64_t now, std::uint64_t then, std::uint64_t offset) {
        return reaches(now + offset, then) ? offset : then;
    };
    if (!state.packetsFounded) {
        state.offset.packets +=
            floor(state.packets(), published.traffic.packets, published.offset.packets);
        state.packetsFounded = true;
    }
    if (state.vni.vni == 0 || state.octetsFounded) { return; }
    state.octetsFounded = true;
    if (published.traffic.octets != 0) {
        state.offset.octets +=
            floor(state.octets(), published.traffic.octets, published.offset.octets);
    } else if (state.vni.packets != state.packets()) {
        state.offset.octets = 0 - state.vni.octets;
    }
}

std::optional<CountedTraffic> MemberCounters::traffic(OcNextHopNumber nextHop) const {
    const auto at = states_.find(nextHop);
    if (at == states_.end()) { return std::nullopt; }
    const State& state = at->second;
    return CountedTraffic{{state.packets(), state.octets()}, state.offset};
}

}  // namespace Pel::Forwarder
