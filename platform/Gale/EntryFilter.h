#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/PathPattern.h"
#include "platform/Gale/Schema.h"
#include "platform/Gale/View.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Gale {

/// What one call's paths select, compiled once: which entries by lane and key, and whether an entry
/// goes out whole. Immutable; outlived by the view.
class EntryFilter final {
public:
    enum class Coverage : std::uint8_t { none, part, whole };

    EntryFilter(const View& view, const Schema& schema, std::vector<PathPattern> patterns);

    Coverage of(Lane lane, const EntryKey& key) const;
    LaneMask lanes() const { return lanes_; }
    /// Of entries that are covered in part, these say leaf by leaf.
    const std::vector<PathPattern>& patterns() const { return patterns_; }

    /// For a cursor; shares ownership of the filter.
    static CursorFilter forCursor(std::shared_ptr<const EntryFilter> filter);

private:
    struct Choice {
        KeyPredicate keys;  // empty: all
        bool whole = false;
    };

    const View& view_;
    std::vector<PathPattern> patterns_;
    std::vector<std::vector<Choice>> byKind_;
    LaneMask lanes_ = 0;
    bool everything_ = false;  // all entries of lanes_, whole
};

}  // namespace Gale
