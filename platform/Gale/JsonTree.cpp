#include "platform/Gale/JsonTree.h"

#include "platform/Vel/Assert.h"

#include <algorithm>
#include <utility>

namespace Gale {

/// What was added last is looked for first: leaves come entry by entry.
JsonTree::Node& JsonTree::child(Node& of, const Schema::Element& element) {
    const auto found =
        std::find_if(of.children.rbegin(), of.children.rend(), [&](const Node& each) {
            return each.element->name == element.name;
        });
    if (found != of.children.rend()) { return *found; }
    of.children.push_back({&element, {}, {}, {}, {}, !element.keys.empty()});
    return of.children.back();
}

JsonTree::Node& JsonTree::entry(Node& of, std::string_view wire) {
    std::string key{wire};
    const auto [at, isNew] = of.entryAt.try_emplace(key, of.children.size());
    if (isNew) { of.children.push_back({of.element, std::move(key), {}, {}, {}, false}); }
    return of.children[at->second];
}

void JsonTree::add(std::span<const Step> path, std::string_view value) {
    Node* node = &root_;
    for (const Step& step : path) {
        node = &child(*node, *step.element);
        if (node->list) { node = &entry(*node, step.wire); }
    }
    node->text = value;
}

void JsonTree::close(std::span<const Step> path) {
    // An entry that no list holds is the only one of its kind, and takes no more room than this.
    if (path.empty() || path.back().element->keys.empty()) { return; }
    Node* node = &root_;
    Node* list = nullptr;
    for (const Step& step : path) {
        node = &child(*node, *step.element);
        if (!node->list) { continue; }
        list = node;
        node = &entry(*node, step.wire);
    }
    VEL_ASSERT(list != nullptr && node == &list->children.back());
    if (!list->text.empty()) { list->text += ','; }
    print(*node, list->element->module, list->text);
    list->entryAt.erase(node->entry);
    list->children.pop_back();
}

void JsonTree::print(std::string& to) const {
    // The names of the outermost members are always qualified.
    print(root_, {}, to);
}

void JsonTree::print(const Node& node, std::string_view module, std::string& to) const {
    if (node.list) {
        to += '[';
        to += node.text;
        bool first = node.text.empty();
        for (const Node& each : node.children) {
            if (!first) { to += ','; }
            first = false;
            print(each, module, to);
        }
        to += ']';
    } else if (node.children.empty()) {
        to += node.text;
    } else {
        printMembers(node, module, to);
    }
}

/// `module`: of the node itself; a member says its own only when it is another.
void JsonTree::printMembers(const Node& node, std::string_view module, std::string& to) const {
    char before = '{';
    for (const Node& each : node.children) {
        to += before;
        before = ',';
        to += '"';
        if (ietf_ && each.element->module != module) {
            to += each.element->module;
            to += ':';
        }
        to += each.element->name;
        to += "\":";
        print(each, each.element->module, to);
    }
    to += '}';
}

}  // namespace Gale
