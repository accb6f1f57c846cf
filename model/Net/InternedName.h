#pragma once

#include <compare>
#include <string>
#include <string_view>
#include <utility>

namespace Nexo {

/// A name of which there are few and that many records bear (an instance, an interface): eight
/// bytes in a record, equal names are one object. Names are kept for the life of the process.
/// Scheduler's thread.
class InternedName {
public:
    InternedName() = default;
    explicit InternedName(std::string_view text);
    const std::string& stringValue() const;
    bool empty() const { return text_ == nullptr; }
    friend bool operator==(const InternedName& a, const InternedName& b) = default;
    friend std::strong_ordering operator<=>(const InternedName& a, const InternedName& b) {
        return a.stringValue() <=> b.stringValue();
    }
    template <class H>
    friend H AbslHashValue(H h, const InternedName& n) {
        return H::combine(std::move(h), n.text_);
    }

private:
    const std::string* text_ = nullptr;  // null: the empty name
};

}  // namespace Nexo
