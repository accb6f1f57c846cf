#pragma once

#include "platform/Gale/JournalEntries.h"
#include "platform/Gale/JournalLog.h"

namespace Gale {

/// The entries of one lane in key order, and its two logs.
struct JournalLane {
    explicit JournalLane(LogShape shape) : changes{&entries, shape}, tombstones{nullptr, shape} {}
    JournalLane(const JournalLane&) = delete;
    JournalLane& operator=(const JournalLane&) = delete;

    JournalEntries entries;
    JournalLog changes;
    JournalLog tombstones;
    Position count = 0;     ///< changes and removals so far
    Position lastBorn = 0;  ///< when an entry was added last
};

}  // namespace Gale
