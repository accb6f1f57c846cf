#pragma once

#include "platform/Gale/PathPattern.h"
#include "platform/Gale/View.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Gale {

/// One way in which a path covers entries of a kind: those that bear the key values, wholly or in
/// some of their leaves.
struct EntryMatch {
    std::size_t kind = 0;
    KeyValues values;    ///< point into the pattern; all null: every entry
    bool whole = false;  ///< else the pattern decides leaf by leaf

    bool operator==(const EntryMatch&) const = default;
};

/// The nodes of a view's schema by name; what a path means in it. Immutable, any thread.
class Schema final {
public:
    explicit Schema(const View& view);

    enum class Verdict {
        known,
        unknownNode,  ///< no node of the schema bears such a path
        unknownKey,   ///< the nodes are there, but not with such keys
    };
    Verdict check(const PathPattern& pattern) const;

    /// All ways in which the pattern covers entries; empty for a known path that is never there.
    std::vector<EntryMatch> match(const PathPattern& pattern) const;

private:
    struct Element {
        std::string name;
        std::vector<std::string> keys;  // sorted
    };
    using Path = std::vector<Element>;
    struct Kind {
        Path path;
        std::vector<Path> leaves;
    };
    struct Alignment;

    static Path parse(std::string_view text);
    static bool covers(const PathPattern& pattern,
                       PathPattern::State state,
                       const Path& path,
                       bool anyKeys);
    static void align(Alignment& at, std::size_t element, std::size_t depth, std::size_t slot);

    std::vector<Path> leaves_;  // absolute, of all kinds and those never there
    std::vector<Kind> kinds_;
};

}  // namespace Gale
