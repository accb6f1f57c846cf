#include "platform/Gale/PathPattern.h"

#include <algorithm>

#include "platform/Vel/Assert.h"

namespace Gale {

void PathPattern::append(std::string name, std::vector<std::pair<std::string, std::string>> keys) {
    VEL_ASSERT(elements_.size() < kMaxElements);
    Element element;
    if (name == "...") {
        element.kind = Element::Kind::anyDepth;
        // Two in a row say what one says, and would only make matching slower.
        if (!elements_.empty() && elements_.back().kind == element.kind) { return; }
    } else if (name == "*") {
        element.kind = Element::Kind::anyOne;
    }
    element.name = std::move(name);
    std::erase_if(keys, [](const auto& key) { return key.second == "*"; });
    std::sort(keys.begin(), keys.end());
    element.keys = std::move(keys);
    elements_.push_back(std::move(element));
}

PathPattern::State PathPattern::close(State state) const {
    for (std::size_t i = 0; i < elements_.size(); ++i) {
        if ((state >> i & 1U) != 0 && elements_[i].kind == Element::Kind::anyDepth) {
            state |= State{1} << (i + 1);
        }
    }
    return state;
}

std::string PathPattern::text() const {
    if (elements_.empty()) { return "/"; }
    std::string text;
    for (const Element& element : elements_) {
        text += '/';
        text += element.name;
        for (const auto& [key, value] : element.keys) {
            text += '[';
            text += key;
            text += '=';
            for (const char c : value) {
                if (c == ']' || c == '\\') { text += '\\'; }
                text += c;
            }
            text += ']';
        }
    }
    return text;
}

}  // namespace Gale
