#include "model/Net/InternedName.h"

#include <absl/container/node_hash_set.h>

namespace Nexo {

InternedName::InternedName(std::string_view text) {
    static auto& names = *new absl::node_hash_set<std::string>;
    if (text.empty()) { return; }
    const absl::string_view key{text.data(), text.size()};
    auto it = names.find(key);
    if (it == names.end()) { it = names.emplace(text).first; }
    text_ = &*it;
}

const std::string& InternedName::stringValue() const {
    static const std::string none;
    return text_ == nullptr ? none : *text_;
}

}  // namespace Nexo
