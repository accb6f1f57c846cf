#include "platform/Gale/test/TestView.h"

#include <array>
#include <memory>
#include <stdexcept>

namespace Gale {

namespace {

constexpr const char* kOrigin = "openconfig";
constexpr const char* kPaths[] = {"zoo-main:zoo[name]/beasts/beast[index]",
                                  "zoo-main:zoo[name]/herds/herd[id]",
                                  "zoo-main:zoo[name]/fields/field[id]",
                                  "zoo-main:zoo[name]",
                                  "zoo-main:zoo[name]/counters/visits[index]"};

/// A collection keyed by number as a source; what an entry holds is the function's.
template <class Value>
class Source final : public ListSource {
public:
    using Encode = std::function<void(std::uint64_t, const Value&, EncodedEntry&)>;
    Source(Lane lane,
           const Vel::Collection<std::uint64_t, Value>& from,
           Encode encode,
           const std::set<std::uint64_t>* pendingKeys = nullptr)
        : ListSource(lane), from_(from), encode_(std::move(encode)), pending_(pendingKeys) {
        onKey_ = from_.onKeyOrClear().subscribe([this](const std::uint64_t* key) {
            key != nullptr ? mark({0, 0, *key}) : markHeld();
        });
    }
    std::optional<EntryKey> nextKey(const std::optional<EntryKey>& after) const override {
        const auto key = from_.nextKey(after ? std::optional{after->lo} : std::nullopt);
        if (!key) { return std::nullopt; }
        return EntryKey{0, 0, *key};
    }
    bool encode(const EntryKey& key, EncodedEntry& to) override {
        const Value* const value = from_.find(key.lo);
        if (value == nullptr) { return false; }
        encode_(key.lo, *value, to);
        return true;
    }
    void encodeDelete(const EntryKey& key, PackedNotification& notification) const override {
        const std::string id = std::to_string(key.lo);
        const std::array<std::string_view, 2> keys{"main", id};
        NotificationWriter{notification}.deletion(
            kOrigin, PathTemplate{kPaths[index(lane())]}, keys);
    }
    bool pending(const EntryKey& key) const override {
        return pending_ != nullptr && pending_->contains(key.lo);
    }

private:
    const Vel::Collection<std::uint64_t, Value>& from_;
    const Encode encode_;
    const std::set<std::uint64_t>* const pending_;
    Vel::Subscription onKey_;
};

class Zoo final : public ListSource {
public:
    Zoo(const Vel::Collection<std::uint64_t, bool>& open, bool& saidOpen)
        : ListSource(Lane::flags), open_(open), saidOpen_(saidOpen) {
        onOpen_ = open_.onKey().subscribe([this](const std::uint64_t& /*key*/) { mark({}); });
    }
    std::optional<EntryKey> nextKey(const std::optional<EntryKey>& after) const override {
        return after ? std::nullopt : std::optional{EntryKey{}};
    }
    bool encode(const EntryKey& /*key*/, EncodedEntry& to) override {
        const std::array<std::string_view, 1> keys{"main"};
        NotificationWriter writer{to.notification};
        writer.prefix(PathTemplate{kPaths[3], kOrigin}, keys);
        writer.leaf(PathTemplate{"name"}, {}, std::string_view{"main"});
        if (open_.find(0) == nullptr) { return true; }
        to.askLast = !to.last;
        saidOpen_ = to.last;
        if (saidOpen_) { writer.flagLeaf(PathTemplate{"open"}, {}, true); }
        return true;
    }
    void encodeDelete(const EntryKey& /*key*/, PackedNotification& /*to*/) const override {}

private:
    const Vel::Collection<std::uint64_t, bool>& open_;
    bool& saidOpen_;
    Vel::Subscription onOpen_;
};

void begin(NotificationWriter& writer, Lane lane, std::uint64_t number) {
    const std::string id = std::to_string(number);
    const std::array<std::string_view, 2> keys{"main", id};
    writer.prefix(PathTemplate{kPaths[index(lane)], kOrigin}, keys);
}

}  // namespace

const std::vector<ModelData>& TestView::models() const {
    static const std::vector<ModelData> all{{"zoo", "Keepers", "1.2.3"}};
    return all;
}

const std::vector<EntryKind>& TestView::kinds() const {
    static const std::vector<EntryKind> all{
        {Lane::nextHops,
         kPaths[0],
         {{"index", Leaf::Type::number64},
          {"state/index", Leaf::Type::number64},
          {"state/zoo-colours:colour", Leaf::Type::identity, "paint"}}},
        {Lane::groups,
         kPaths[1],
         {{"id", Leaf::Type::number64}, {"members/member[index]/index", Leaf::Type::number64}}},
        {Lane::prefixes, kPaths[2], {{"id"}, {"state/herd", Leaf::Type::number64}}},
        {Lane::flags, kPaths[3], {{"name"}, {"open"}}},
        {Lane::counters,
         kPaths[4],
         {{"index", Leaf::Type::number64}, {"state/count", Leaf::Type::number64}}},
    };
    return all;
}

const std::vector<std::string>& TestView::emptyLeaves() const {
    static const std::vector<std::string> all{"zoo[name]/visitors/count",
                                              "zoo[name]/beasts/beast[index]/state/weight"};
    return all;
}

std::size_t TestView::kindOf(Lane lane, const EntryKey& /*key*/) const {
    return index(lane);
}

KeyPredicate TestView::keyPredicate(std::size_t /*kind*/, const KeyValues& values) const {
    const bool here = values[0] == nullptr || *values[0] == "main";
    const std::string* const number = values.size() > 1 ? values[1] : nullptr;
    return [here, wanted = number == nullptr ? std::string{} : *number](const EntryKey& key) {
        return here && (wanted.empty() || std::to_string(key.lo) == wanted);
    };
}

void TestView::encodeValue(Lane lane,
                           const EntryKey& key,
                           std::uint64_t value,
                           PackedNotification& notification) const {
    NotificationWriter writer{notification};
    begin(writer, lane, key.lo);
    writer.leaf(PathTemplate{"id"}, {}, key.lo);
    writer.leaf(PathTemplate{"state/herd"}, {}, value);
    writer.atomic();
}

void TestView::attach(SourceSink sink) {
    sink(std::make_unique<Source<std::string>>(
        Lane::nextHops,
        beasts,
        [this](std::uint64_t number, const auto& colour, auto& to) {
            if (encoderFails > 0) {
                --encoderFails;
                throw std::runtime_error{"beast is asleep"};
            }
            NotificationWriter writer{to.notification};
            begin(writer, Lane::nextHops, number);
            writer.leaf(PathTemplate{"index"}, {}, number);
            writer.leaf(PathTemplate{"state/index"}, {}, number);
            if (!colour.empty()) {
                writer.leaf(PathTemplate{"state/colour"}, {}, std::string_view{colour});
            }
            writer.atomic();
        },
        &pendingBeasts));
    sink(std::make_unique<Source<Herd>>(
        Lane::groups,
        herds,
        [](std::uint64_t number, const Herd& herd, auto& to) {
            NotificationWriter writer{to.notification};
            begin(writer, Lane::groups, number);
            writer.leaf(PathTemplate{"id"}, {}, number);
            for (const std::uint64_t member : herd.members) {
                const std::string text = std::to_string(member);
                const std::array<std::string_view, 1> keys{text};
                writer.leaf(PathTemplate{"members/member[index]/index"}, keys, member);
                to.references.push_back({Lane::nextHops, {0, 0, member}});
            }
            writer.atomic();
        },
        &pendingHerds));
    sink(std::make_unique<Source<std::uint64_t>>(
        Lane::prefixes, fields, [](std::uint64_t /*number*/, std::uint64_t herd, auto& to) {
            to.value = herd;
        }));
    sink(std::make_unique<Zoo>(open, saidOpen));
    sink(std::make_unique<Source<std::uint64_t>>(
        Lane::counters, visits, [](std::uint64_t number, std::uint64_t count, auto& to) {
            NotificationWriter writer{to.notification};
            begin(writer, Lane::counters, number);
            writer.leaf(PathTemplate{"index"}, {}, number);
            writer.leaf(PathTemplate{"state/count"}, {}, count);
            to.references.push_back({Lane::nextHops, {0, 0, number}});
        }));
}

}  // namespace Gale
