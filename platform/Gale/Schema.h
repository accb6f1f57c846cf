#pragma once

#include "platform/Gale/PathPattern.h"
#include "platform/Gale/View.h"

#include "absl/container/flat_hash_map.h"

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
    struct Element {
        std::string name;
        std::vector<std::string> keys;  ///< names, sorted
        std::string module;             ///< empty where the view names none
    };
    using Path = std::vector<Element>;
    struct LeafNode {
        Path path;  ///< relative to the entry
        Leaf::Type type = Leaf::Type::plain;
        std::string identityModule;  ///< empty: not shown
        bool config = false;         ///< part of the configuration
        bool state = true;           ///< part of the state
    };
    struct Kind {
        Path path;
        std::vector<LeafNode> leaves;
        bool config = false;  ///< some leaf is
        bool outer = false;   ///< entries of other kinds stand below its entries

        /// By the names of its path below the entry, with "/" between them. A leaf that the view
        /// did not name is plain.
        const LeafNode& leaf(const std::string& names) const;

        absl::flat_hash_map<std::string, std::size_t> leafAt;
    };

    explicit Schema(const View& view);

    /// As View::kinds().
    const std::vector<Kind>& kinds() const { return kinds_; }

    enum class Verdict {
        known,
        unknownNode,  ///< no node of the schema bears such a path
        unknownKey,   ///< the nodes are there, but not with such keys
    };
    Verdict check(const PathPattern& pattern) const;

    /// All ways in which the pattern covers entries; empty for a known path that is never there.
    std::vector<EntryMatch> match(const PathPattern& pattern) const;

private:
    struct Alignment;

    static Path parse(std::string_view text);
    static void classify(Kind& kind);
    static bool covers(const PathPattern& pattern,
                       PathPattern::State state,
                       const Path& path,
                       bool anyKeys);
    static void align(Alignment& at, std::size_t element, std::size_t depth, std::size_t slot);

    std::vector<Path> leaves_;  // absolute, of all kinds and those never there
    std::vector<Kind> kinds_;
};

}  // namespace Gale
