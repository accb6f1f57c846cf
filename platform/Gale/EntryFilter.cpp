#include "platform/Gale/EntryFilter.h"

#include <algorithm>
#include <utility>

namespace Gale {

EntryFilter::EntryFilter(const View& view, const Schema& schema, std::vector<PathPattern> patterns)
    : view_(view), patterns_(std::move(patterns)), byKind_(view.kinds().size()) {
    for (const PathPattern& pattern : patterns_) {
        for (EntryMatch& match : schema.match(pattern)) {
            const auto isOpen = [](const std::string* value) { return value == nullptr; };
            Choice choice;
            choice.whole = match.whole;
            if (!std::all_of(match.values.begin(), match.values.end(), isOpen)) {
                choice.keys = view.keyPredicate(match.kind, match.values);
            }
            byKind_[match.kind].push_back(std::move(choice));
            lanes_ |= maskOf(view.kinds()[match.kind].lane);
        }
    }
    const auto isWhole = [](const auto& choices) {
        return std::any_of(choices.begin(), choices.end(), [](const Choice& choice) {
            return choice.whole && !choice.keys;
        });
    };
    everything_ = true;
    for (std::size_t i = 0; i < byKind_.size(); ++i) {
        if (has(lanes_, view.kinds()[i].lane) && !isWhole(byKind_[i])) { everything_ = false; }
    }
}

EntryFilter::Coverage EntryFilter::of(Lane lane, const EntryKey& key) const {
    if (!has(lanes_, lane)) { return Coverage::none; }
    if (everything_) { return Coverage::whole; }
    Coverage coverage = Coverage::none;
    for (const Choice& choice : byKind_[view_.kindOf(lane, key)]) {
        if (choice.keys && !choice.keys(key)) { continue; }
        if (choice.whole) { return Coverage::whole; }
        coverage = Coverage::part;
    }
    return coverage;
}

CursorFilter EntryFilter::forCursor(std::shared_ptr<const EntryFilter> filter) {
    CursorFilter cursor;
    cursor.lanes = filter->lanes_;
    if (!filter->everything_) {
        cursor.matches = [filter = std::move(filter)](Lane lane, const EntryKey& key) {
            return filter->of(lane, key) != Coverage::none;
        };
    }
    return cursor;
}

}  // namespace Gale
