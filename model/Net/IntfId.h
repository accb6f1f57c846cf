#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Nexo {

/// An interface: its name and, for a subinterface, its parent and its number there. Eight bytes,
/// equal interfaces are one object, kept for the life of the process. Scheduler's thread.
class IntfId {
public:
    IntfId() = default;
    /// An interface of its own. An empty name is none.
    explicit IntfId(std::string_view name);
    /// A subinterface; its name need not be made of the parent's.
    IntfId(std::string_view name, std::string_view parent, std::uint32_t subinterface);

    const std::string& stringValue() const;
    bool empty() const { return record_ == nullptr; }
    bool isSubinterface() const { return subinterface().has_value(); }
    /// The interface that a subinterface stands on, else the interface itself.
    IntfId parent() const;
    std::optional<std::uint32_t> subinterface() const;

    friend bool operator==(const IntfId& a, const IntfId& b) = default;
    /// By name, so that walks are repeatable.
    friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
        return order(a, b);
    }
    template <class H>
    friend H AbslHashValue(H h, const IntfId& i) {
        return H::combine(std::move(h), i.record_);
    }

private:
    struct Record;
    struct RecordHash;
    struct RecordEq;
    static std::strong_ordering order(const IntfId& a, const IntfId& b);
    void intern(std::string_view name, const IntfId& parent, std::optional<std::uint32_t> number);
    const Record* record_ = nullptr;
};

}  // namespace Nexo
