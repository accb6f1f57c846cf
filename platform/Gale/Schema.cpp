#include "platform/Gale/Schema.h"

#include <algorithm>

namespace Gale {

namespace {

/// The element's fixed keys are all keys of the list; a node without keys takes none.
bool keysFit(const PathPattern::Element& element, const std::vector<std::string>& keys) {
    return std::all_of(element.keys.begin(), element.keys.end(), [&](const auto& key) {
        return std::binary_search(keys.begin(), keys.end(), key.first);
    });
}

}  // namespace

/// One kind's alignment with a pattern: which element of the path each element of the pattern is.
struct Schema::Alignment {
    const PathPattern& pattern;
    const Kind& kind;
    EntryMatch match;
    std::vector<EntryMatch>& found;

    void add(bool whole) {
        match.whole = whole;
        if (std::find(found.begin(), found.end(), match) == found.end()) { found.push_back(match); }
    }
};

Schema::Schema(const View& view) {
    for (const EntryKind& each : view.kinds()) {
        Kind kind;
        kind.path = parse(each.path);
        const auto depth = static_cast<std::ptrdiff_t>(kind.path.size());
        for (const Leaf& leaf : each.leaves) {
            const Path path = parse(each.path + "/" + leaf.path);
            kind.leaves.push_back(
                {{path.begin() + depth, path.end()}, leaf.type, leaf.identityModule});
            leaves_.push_back(path);
        }
        classify(kind);
        kinds_.push_back(std::move(kind));
    }
    for (const std::string& leaf : view.emptyLeaves()) { leaves_.push_back(parse(leaf)); }
    for (Kind& kind : kinds_) {
        kind.outer = std::any_of(kinds_.begin(), kinds_.end(), [&](const Kind& other) {
            return other.path.size() > kind.path.size() &&
                   std::equal(kind.path.begin(),
                              kind.path.end(),
                              other.path.begin(),
                              [](auto& a, auto& b) { return a.name == b.name; });
        });
    }
}

/// By OpenConfig's convention: what can be configured stands in containers "config". The keys of a
/// list that can be configured are both, all else is state.
void Schema::classify(Kind& kind) {
    for (LeafNode& leaf : kind.leaves) {
        leaf.config = std::any_of(leaf.path.begin(), leaf.path.end(), [](const Element& element) {
            return element.name == "config";
        });
        leaf.state = !leaf.config;
        kind.config = kind.config || leaf.config;
    }
    for (std::size_t i = 0; i < kind.leaves.size(); ++i) {
        LeafNode& leaf = kind.leaves[i];
        if (kind.config && leaf.path.size() == 1) { leaf.config = true; }
        std::string names;
        for (const Element& element : leaf.path) {
            names += (names.empty() ? "" : "/") + element.name;
        }
        kind.leafAt.emplace(std::move(names), i);
    }
}

const Schema::LeafNode& Schema::Kind::leaf(const std::string& names) const {
    static const LeafNode plain;
    const auto found = leafAt.find(names);
    return found != leafAt.end() ? leaves[found->second] : plain;
}

Schema::Path Schema::parse(std::string_view text) {
    Path path;
    std::string module;  // holds until another is named
    while (!text.empty()) {
        std::string_view word = text.substr(0, text.find('/'));
        text.remove_prefix(word.size() < text.size() ? word.size() + 1 : text.size());
        std::string_view name = word.substr(0, word.find('['));
        if (const auto colon = name.find(':'); colon != std::string_view::npos) {
            module = name.substr(0, colon);
            name.remove_prefix(colon + 1);
        }
        Element element{std::string{name}, {}, module};
        while (word.find('[') != std::string_view::npos) {
            word.remove_prefix(word.find('[') + 1);
            element.keys.emplace_back(word.substr(0, word.find(']')));
        }
        path.push_back(std::move(element));
    }
    return path;
}

/// Whether the pattern, come as far as `state`, covers the leaf at the end of `path`; `anyKeys`:
/// with every key that is in order, else only for all values of them.
bool Schema::covers(const PathPattern& pattern,
                    PathPattern::State state,
                    const Path& path,
                    bool anyKeys) {
    for (const Element& element : path) {
        state = pattern.step(state, element.name, [&](const PathPattern::Element& asked) {
            return anyKeys ? keysFit(asked, element.keys) : asked.keys.empty();
        });
    }
    return pattern.covered(state);
}

Schema::Verdict Schema::check(const PathPattern& pattern) const {
    Verdict verdict = Verdict::unknownNode;
    for (const Path& leaf : leaves_) {
        if (covers(pattern, pattern.begin(), leaf, true)) { return Verdict::known; }
        PathPattern::State state = pattern.begin();
        for (const Element& element : leaf) { state = pattern.step(state, element.name); }
        if (pattern.covered(state)) { verdict = Verdict::unknownKey; }
    }
    return verdict;
}

std::vector<EntryMatch> Schema::match(const PathPattern& pattern) const {
    std::vector<EntryMatch> found;
    for (std::size_t i = 0; i < kinds_.size(); ++i) {
        Alignment at{pattern, kinds_[i], {i, {}, false}, found};
        std::size_t slots = 0;
        for (const Element& element : kinds_[i].path) { slots += element.keys.size(); }
        at.match.values.resize(slots);
        align(at, 0, 0, 0);
    }
    return found;
}

/// The pattern's elements before `element` are the first `depth` ones of the path, which have
/// `slot` keys. Few ways: "..." is never next to another, and paths are short.
void Schema::align(Alignment& at, std::size_t element, std::size_t depth, std::size_t slot) {
    const auto& elements = at.pattern.elements();
    if (element == elements.size()) {
        at.add(true);
        return;
    }
    if (depth == at.kind.path.size()) {
        const PathPattern::State state = at.pattern.from(element);
        const auto covered = [&](bool anyKeys) {
            return [&at, state, anyKeys](const LeafNode& leaf) {
                return covers(at.pattern, state, leaf.path, anyKeys);
            };
        };
        const auto& leaves = at.kind.leaves;
        if (std::all_of(leaves.begin(), leaves.end(), covered(false))) {
            at.add(true);
        } else if (std::any_of(leaves.begin(), leaves.end(), covered(true))) {
            at.add(false);
        }
        return;
    }
    const PathPattern::Element& asked = elements[element];
    const Element& node = at.kind.path[depth];
    if (asked.kind == PathPattern::Element::Kind::anyDepth) {
        align(at, element + 1, depth, slot);
        align(at, element, depth + 1, slot + node.keys.size());
        return;
    }
    const bool named = asked.kind == PathPattern::Element::Kind::anyOne || asked.name == node.name;
    if (!named || !keysFit(asked, node.keys)) { return; }
    const auto slotOf = [&](const std::string& key) {
        const auto it = std::lower_bound(node.keys.begin(), node.keys.end(), key);
        return slot + static_cast<std::size_t>(it - node.keys.begin());
    };
    for (const auto& [key, value] : asked.keys) { at.match.values[slotOf(key)] = &value; }
    align(at, element + 1, depth + 1, slot + node.keys.size());
    for (const auto& [key, value] : asked.keys) { at.match.values[slotOf(key)] = nullptr; }
}

}  // namespace Gale
