#pragma once

#include <string>
#include <utility>
#include <vector>

#include "test/checker/AftSchema.h"
#include "test/checker/Finding.h"

namespace gnmi {
class Notification;
}

namespace Checker {

/// What an atomic Notification says of its entry.
struct EntryContent {
    std::string text;  ///< "leaf = value" line by line, sorted: equal texts are equal contents
    std::vector<std::string> nextHops;  ///< paths of the entries referred to
    std::vector<std::string> groups;
    std::string protocol;  ///< of a prefix: where it comes from; empty: it does not say
    std::vector<std::pair<Rule, std::string>> problems;
};

/// Reads and judges the leaves of one entry: known, typed, once, complete, of this key.
EntryContent readContent(const Place& place, const gnmi::Notification& notification);

}  // namespace Checker
