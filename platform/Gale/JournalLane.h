#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/JournalLog.h"

#include "absl/container/btree_map.h"

namespace Gale {

/// An entry that is alive.
struct JournalEntry {
    Content content;
    Position born = 0;     ///< when it was added; a removal ends the life
    Position changed = 0;  ///< when it got its present content
};

/// The entries of one lane in key order, and its two logs.
struct JournalLane {
    absl::btree_map<EntryKey, JournalEntry> entries;
    JournalLog changes;
    JournalLog tombstones;
    Position count = 0;  ///< changes and removals so far
};

}  // namespace Gale
