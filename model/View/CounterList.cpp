#include "model/View/CounterList.h"

#include <utility>

#include "model/View/OpenConfigKeys.h"

namespace Pel::OcApi {

CounterList::CounterList(Vel::Ref<NextHopCountersContainer> counters,
                         Vel::Ref<NextHopContainer> nextHops)
    : ListSource{Gale::Lane::counters},
      counters_{std::move(counters)},
      nextHops_{std::move(nextHops)} {
    onCounter_ = counters_->onNextHopCounterOrClear().subscribe([this](const NextHopIndex* index) {
        index != nullptr ? mark(OpenConfigKeys::ofNumber(index->value())) : markHeld();
    });
    onNextHop_ = nextHops_->onNextHopOrClear().subscribe([this](const NextHopIndex* index) {
        if (index == nullptr) {
            markHeld();
        } else if (counters_->nextHopCounter(*index) != nullptr) {
            mark(OpenConfigKeys::ofNumber(index->value()));
        }
    });
}

std::optional<Gale::EntryKey> CounterList::nextKey(
    const std::optional<Gale::EntryKey>& after) const {
    const auto index = counters_->nextKey(after ? std::optional{NextHopIndex{after->lo}}
                                                : std::optional<NextHopIndex>{});
    if (!index) { return std::nullopt; }
    return OpenConfigKeys::ofNumber(index->value());
}

bool CounterList::encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) {
    const NextHopIndex index{key.lo};
    const NextHopCounter* const counter = counters_->nextHopCounter(index);
    if (counter == nullptr || nextHops_->nextHop(index) == nullptr) { return false; }
    write(*counter, to.notification);
    to.references.push_back({Gale::Lane::nextHops, key});
    return true;
}

}  // namespace Pel::OcApi
