#include "apps/cli/RateMeter.h"

#include <proto/gnmi.pb.h>

#include <iterator>
#include <utility>

#include "apps/cli/GnmiText.h"

namespace Pel::Cli {
namespace {

constexpr double kNanoseconds = 1e9;

bool namesCounters(std::string_view element) {
    return element == "counters" || element.ends_with("Counters");
}

bool isCounter(const gnmi::Path& prefix, const gnmi::Update& update) {
    if (update.val().value_case() != gnmi::TypedValue::kUintVal) { return false; }
    const gnmi::Path& below = update.path();
    const std::string* const leaf =
        below.elem_size() > 0 ? &below.elem(below.elem_size() - 1).name() : nullptr;
    bool counters = false;
    bool key = false;
    for (const gnmi::Path* const path : {&prefix, &below}) {
        for (const gnmi::PathElem& element : path->elem()) {
            counters = counters || namesCounters(element.name());
            key = key || (leaf != nullptr && element.key().count(*leaf) > 0);
        }
    }
    return counters && !key;
}

}  // namespace

void RateMeter::take(const gnmi::Notification& notification) {
    ++now_.messages;
    now_.deletes += static_cast<std::uint64_t>(notification.delete__size());
    now_.updates += static_cast<std::uint64_t>(notification.update_size());
    for (const gnmi::Path& gone : notification.delete_()) {
        eraseBelow(pathText(notification.prefix(), gone), [](const Counter&) { return true; });
    }
    // All there is at an atomic notification's path: what it does not have is gone.
    const std::string whole = notification.atomic() ? pathText(notification.prefix(), {}) : "";
    if (notification.atomic()) {
        eraseBelow(whole, [](Counter& counter) { return counter.renewed = false; });
    }
    for (const gnmi::Update& update : notification.update()) {
        if (!isCounter(notification.prefix(), update)) { continue; }
        takeSample(pathText(notification.prefix(), update.path()),
                   {update.val().uint_val(), notification.timestamp()});
    }
    if (notification.atomic()) {
        eraseBelow(whole, [](const Counter& counter) { return !counter.renewed; });
    }
}

void RateMeter::takeSample(const std::string& path, Sample sample) {
    const auto [at, isNew] = counters_.try_emplace(path);
    Counter& counter = at->second;
    const bool back =
        sample.value < counter.last.value || sample.nanoseconds < counter.last.nanoseconds;
    if (isNew || back) { counter.base = sample; }
    counter.restarted = counter.restarted || (back && !isNew);
    counter.last = sample;
    counter.sampled = true;
    counter.renewed = true;
}

void RateMeter::eraseBelow(std::string_view path, const std::function<bool(Counter&)>& erase) {
    if (path == "/") { path = ""; }
    for (auto at = counters_.lower_bound(path);
         at != counters_.end() && at->first.starts_with(path);) {
        const bool whole = at->first.size() == path.size() || at->first[path.size()] == '/' ||
                           at->first[path.size()] == '[';
        at = whole && erase(at->second) ? counters_.erase(at) : std::next(at);
    }
}

RateMeter::Row RateMeter::row(const std::string& path, Counter& counter) {
    Row result{path, counter.last.value, std::nullopt, counter.restarted};
    const std::uint64_t elapsed = static_cast<std::uint64_t>(counter.last.nanoseconds) -
                                  static_cast<std::uint64_t>(counter.base.nanoseconds);
    if (elapsed > 0) {
        result.perSecond = static_cast<double>(counter.last.value - counter.base.value) /
                           (static_cast<double>(elapsed) / kNanoseconds);
        counter.base = counter.last;
    }
    counter.sampled = false;
    counter.restarted = false;
    return result;
}

RateMeter::Report RateMeter::report() {
    Report result = std::exchange(now_, {});
    for (auto& [path, counter] : counters_) {
        if (counter.sampled) { result.rows.push_back(row(path, counter)); }
    }
    return result;
}

}  // namespace Pel::Cli
