#include "platform/Gale/Waiting.h"

namespace Gale {

void Waiting::add(const Reference& missing, const Waiter& waiter, Kiln::TimePoint now) {
    const auto [it, isNew] = missing_.try_emplace(missing);
    if (isNew) {
        it->second.since = now;
        it->second.number = ++begun_;
        waits_.emplace_hint(waits_.end(), begun_, missing);
    }
    if (!it->second.waiters.insert(waiter).second) { return; }
    ++size_;
    ++sizes_[index(missing.lane)];
}

Waiting::Waiters Waiting::appeared(const Reference& entry) {
    absent_.erase(entry);
    return take(entry);
}

bool Waiting::longGivenUp(const Reference& missing, Kiln::TimePoint now) const {
    const auto it = absent_.find(missing);
    return it != absent_.end() && it->second + patience_ <= now;
}

Waiting::Waiters Waiting::absent(const Reference& entry, Kiln::TimePoint now) {
    if (absent_.try_emplace(entry, now).second) { absentInOrder_.push_back(entry); }
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
    waits_.erase(it->second.number);
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

bool Waiting::lasts(std::uint64_t begun) const {
    return !waits_.empty() && waits_.begin()->first <= begun;
}

std::optional<Reference> Waiting::overdue(Kiln::TimePoint now) const {
    const auto due = nextDue();
    return due && *due <= now ? std::optional{waits_.begin()->second} : std::nullopt;
}

std::optional<Kiln::TimePoint> Waiting::nextDue() const {
    if (waits_.empty()) { return std::nullopt; }
    return missing_.at(waits_.begin()->second).since + patience_;
}

}  // namespace Gale
