#pragma once

#include <map>
#include <set>
#include <string>

#include "forwarder/Scenario/Description.h"

namespace Pel::Forwarder {

/// Pieces of tunnel configuration, gathered by their source: each source has one record.
template <class Name, class Value>
class SourcedRecords {
public:
    using Record = std::map<Name, Value>;

    /// Null when there is none; holds until the next change.
    const Value* find(const SourcedKey<Name>& key) const {
        const auto source = records_.find(key.source);
        if (source == records_.end()) { return nullptr; }
        const auto value = source->second.find(key.name);
        return value == source->second.end() ? nullptr : &value->second;
    }
    void put(const SourcedKey<Name>& key, const Value& value) {
        records_[key.source].insert_or_assign(key.name, value);
        touched_.insert(key.source);
    }
    /// Without effect when it is not there.
    void del(const SourcedKey<Name>& key) {
        const auto source = records_.find(key.source);
        if (source == records_.end() || source->second.erase(key.name) == 0) { return; }
        touched_.insert(key.source);
        if (source->second.empty()) { records_.erase(source); }
    }
    /// Visits the sources that changed since the last time, each with all that it has.
    template <class Visit>
    void take(Visit visit) {
        for (const std::string& source : touched_) {
            const auto found = records_.find(source);
            visit(source, found == records_.end() ? Record{} : found->second);
        }
        touched_.clear();
    }

private:
    std::map<std::string, Record> records_;  // none of them is empty
    std::set<std::string> touched_;
};

}  // namespace Pel::Forwarder
