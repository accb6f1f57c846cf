#include "forwarder/Publish/QuietTables.h"

namespace Pel::Forwarder {

using Nexo::AddressFamily;

void QuietTables::vrfIs(const std::string& vrf) {
    const Times times{clock_.now(), clock_.now() + quietTime_};
    for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
        const Table table{vrf, family};
        if (waiting_.try_emplace(table, times).second) { lookAt_.emplace(times.lookAt, table); }
    }
}

void QuietTables::vrfDel(const std::string& vrf) {
    told({vrf, AddressFamily::ipv4});
    told({vrf, AddressFamily::ipv6});
}

/// Only takes down the time: tables that change all the time are looked at once a quiet time.
void QuietTables::changed(const std::string& vrf, AddressFamily family) {
    if (waiting_.empty()) { return; }  // soon, and then for ever, while routes come by the million
    const auto at = waiting_.find(Table{vrf, family});
    if (at != waiting_.end()) { at->second.lastChange = clock_.now(); }
}

std::vector<QuietTables::Table> QuietTables::due(std::size_t limit) {
    std::vector<Table> quiet;
    std::vector<std::pair<Kiln::TimePoint, Table>> later;
    auto at = lookAt_.begin();
    while (at != lookAt_.end() && at->first <= clock_.now() && quiet.size() < limit) {
        Times& times = waiting_.at(at->second);
        const Kiln::TimePoint quietAt = times.lastChange + quietTime_;
        if (quietAt <= clock_.now()) {
            quiet.push_back((at++)->second);
            continue;
        }
        times.lookAt = quietAt;
        later.emplace_back(quietAt, at->second);
        at = lookAt_.erase(at);
    }
    lookAt_.insert(later.begin(), later.end());
    return quiet;
}

void QuietTables::told(const Table& table) {
    const auto at = waiting_.find(table);
    if (at == waiting_.end()) { return; }
    lookAt_.erase({at->second.lookAt, table});
    waiting_.erase(at);
}

std::optional<Kiln::TimePoint> QuietTables::wakeAt() const {
    return lookAt_.empty() ? std::nullopt : std::optional{lookAt_.begin()->first};
}

}  // namespace Pel::Forwarder
