#include "platform/Gale/Waiting.h"

namespace Gale {

void Waiting::add(const Reference& missing, const Waiter& waiter, Kiln::TimePoint now) {
    const auto [it, isNew] = missing_.try_emplace(missing);
    if (isNew) {
        it->second.since = now;
        bySince_.emplace_back(now, missing);
    }
    if (!it->second.waiters.insert(waiter).second) { return; }
    ++size_;
    ++sizes_[index(missing.lane)];
}

Waiting::Waiters Waiting::appeared(const Reference& entry) {
    absent_.erase(entry);
    return take(entry);
}

Waiting::Waiters Waiting::absent(const Reference& entry) {
    if (absent_.insert(entry).second) { absentInOrder_.push_back(entry); }
    if (absentInOrder_.size() > kRemembered) {
        absent_.erase(absentInOrder_.front());
        absentInOrder_.pop_front();
    }
    return take(entry);
}

Waiting::Waiters Waiting::take(const Reference& entry) {
    const auto it = missing_.find(entry);
    if (it == missing_.end()) { return {}; }
    Waiters waiters = std::move(it->second.waiters);
    missing_.erase(it);
    size_ -= waiters.size();
    sizes_[index(entry.lane)] -= waiters.size();
    return waiters;
}

std::vector<Waiting::Held> Waiting::held(std::size_t most) const {
    std::vector<Held> all;
    for (const auto& [missing, wait] : missing_) {
        for (const auto& [source, key] : wait.waiters) {
            if (all.size() == most) { return all; }
            all.push_back({{source->lane(), key}, missing, wait.since});
        }
    }
    return all;
}

std::optional<Reference> Waiting::overdue(Kiln::TimePoint now) {
    while (!bySince_.empty()) {
        const auto [since, missing] = bySince_.front();
        const auto it = missing_.find(missing);
        const bool waiting = it != missing_.end() && it->second.since == since;
        if (waiting && since + patience_ > now) { return std::nullopt; }
        bySince_.pop_front();
        if (waiting) { return missing; }
    }
    return std::nullopt;
}

std::optional<Kiln::TimePoint> Waiting::nextDue() const {
    if (missing_.empty() || bySince_.empty()) { return std::nullopt; }
    return bySince_.front().first + patience_;
}

}  // namespace Gale
