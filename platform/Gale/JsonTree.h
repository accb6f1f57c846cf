#pragma once

#include "platform/Gale/Schema.h"
#include "platform/Gale/ValueEncoding.h"

#include "absl/container/flat_hash_map.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Gale {

/// The JSON value of one node of the schema, put together from its leaves in any order: a leaf's
/// value, an object, or a list's entry.
class JsonTree final {
public:
    /// One element below the node.
    struct Step {
        const Schema::Element* element = nullptr;  ///< outlives the tree
        std::string_view wire;                     ///< its PathElem, whose keys name the list entry
    };

    /// `encoding` is json or jsonIetf.
    explicit JsonTree(ValueEncoding encoding) : ietf_(encoding == ValueEncoding::jsonIetf) {}

    /// The leaf at the end of `path` has this value; an empty path: the node itself is the leaf.
    void add(std::span<const Step> path, std::string_view value);
    /// Nothing more will be added below the entry that `path` leads to, and it was the last to which
    /// something was added: writes a list's entry down, which takes less room.
    void close(std::span<const Step> path);
    void print(std::string& to) const;

private:
    struct Node {
        const Schema::Element* element = nullptr;
        std::string entry;  // of a list's entry: its PathElem
        std::string text;   // of a leaf: its value; of a list: the closed entries
        std::vector<Node> children;
        absl::flat_hash_map<std::string, std::size_t> entryAt;  // of a list: its open entries
        bool list = false;
    };

    static Node& child(Node& of, const Schema::Element& element);
    static Node& entry(Node& of, std::string_view wire);
    void print(const Node& node, std::string_view module, std::string& to) const;
    void printMembers(const Node& node, std::string_view module, std::string& to) const;

    const bool ietf_;
    Node root_;
};

}  // namespace Gale
