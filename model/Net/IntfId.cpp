#include "model/Net/IntfId.h"

#include <absl/container/node_hash_set.h>
#include <absl/hash/hash.h>

#include <tuple>

namespace Nexo {

struct IntfId::Record {
    std::string name;
    IntfId parent;
    std::optional<std::uint32_t> subinterface;
};

namespace {
struct RecordView {
    std::string_view name;
    const void* parent;
    std::optional<std::uint32_t> subinterface;
    friend bool operator==(const RecordView&, const RecordView&) = default;
};
}  // namespace

struct IntfId::RecordHash {
    using is_transparent = void;
    static RecordView view(const Record& r) { return {r.name, r.parent.record_, r.subinterface}; }
    static const RecordView& view(const RecordView& v) { return v; }
    template <class T>
    std::size_t operator()(const T& record) const {
        const RecordView v = view(record);
        return absl::HashOf(
            absl::string_view{v.name.data(), v.name.size()}, v.parent, v.subinterface.value_or(0));
    }
};

struct IntfId::RecordEq {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return RecordHash::view(a) == RecordHash::view(b);
    }
};

IntfId::IntfId(std::string_view name) {
    intern(name, IntfId{}, std::nullopt);
}

IntfId::IntfId(std::string_view name, std::string_view parent, std::uint32_t subinterface) {
    intern(name, IntfId{parent}, subinterface);
}

void IntfId::intern(std::string_view name,
                    const IntfId& parent,
                    std::optional<std::uint32_t> number) {
    static auto& records = *new absl::node_hash_set<Record, RecordHash, RecordEq>;
    if (name.empty()) { return; }
    auto it = records.find(RecordView{name, parent.record_, number});
    if (it == records.end()) {
        it = records.insert(Record{std::string{name}, parent, number}).first;
    }
    record_ = &*it;
}

const std::string& IntfId::stringValue() const {
    static const std::string none;
    return record_ == nullptr ? none : record_->name;
}

IntfId IntfId::parent() const {
    return isSubinterface() ? record_->parent : *this;
}

std::optional<std::uint32_t> IntfId::subinterface() const {
    return record_ == nullptr ? std::nullopt : record_->subinterface;
}

std::strong_ordering IntfId::order(const IntfId& a, const IntfId& b) {
    if (a.record_ == b.record_) { return std::strong_ordering::equal; }
    if (const auto byName = a.stringValue() <=> b.stringValue(); byName != 0) { return byName; }
    const auto rest = [](const IntfId& i) {
        return std::tuple{i.parent().stringValue(), i.subinterface()};
    };
    return rest(a) <=> rest(b);
}

}  // namespace Nexo
