#pragma once

#include "platform/Stash/Publisher.h"
#include "platform/Stash/Set.h"
#include "platform/Store/test/StoreFixture.h"

namespace Pel::Stash {

/// An entry of the test's collections: a note and the handle.
struct Entry {
    std::uint64_t note = 0;
    Handle handle;
};

}  // namespace Pel::Stash

template <>
struct Mesa::RecordCodec<Pel::Stash::Entry> {
    static std::optional<Pel::Stash::Entry> decode(std::string_view bytes) {
        const auto note = Store::takeBigEndian(bytes);
        const auto record = Store::takeBigEndian(bytes);
        const auto version = Store::takeBigEndian(bytes);
        if (!version || !bytes.empty()) { return std::nullopt; }
        return Pel::Stash::Entry{*note, {*record, static_cast<std::uint32_t>(*version)}};
    }
    static std::string encode(const Pel::Stash::Entry& entry) {
        std::string bytes;
        Store::appendBigEndian(bytes, entry.note);
        Store::appendBigEndian(bytes, entry.handle.record);
        Store::appendBigEndian(bytes, entry.handle.version);
        return bytes;
    }
};

namespace Pel::Stash {

/// A record of the test: any text that does not begin with "bad".
class Text final : public Vel::RefCounted {
public:
    explicit Text(std::string_view value) : text{value} {}
    const std::string text;
};

template <>
struct RecordCodec<Text> {
    static Vel::Ref<const Text> decode(std::string_view bytes) {
        return bytes.starts_with("bad") ? nullptr : Vel::Ref<const Text>{Vel::make<Text>(bytes)};
    }
    static std::string encode(const Text& record) { return record.text; }
};

/// A set with the collections "fec" and "nextHop".
class PairSet final : public Set {
public:
    using Collection = SetCollection<std::uint64_t, Entry>;
    explicit PairSet(const std::string& path) : Set{path} {
        for (Collection* collection : {&fec, &nextHop}) {
            subscriptions_.push_back(
                collection->onPresent().subscribe([this] { onReady_.publish(); }));
        }
    }
    void mountIs(Store::Reader& reader, const std::vector<std::string>& collections) override {
        for (const std::string& collection : collections) {
            VEL_ASSERT(collection == "fec" || collection == "nextHop");
            (collection == "fec" ? fec : nextHop)
                .mountIs(reader, name() + "/" + collection, "Test::Entry");
        }
    }
    bool ready() const override { return fec.present() && nextHop.present(); }

    Collection fec;
    Collection nextHop;

private:
    std::vector<Vel::Subscription> subscriptions_;
};

}  // namespace Pel::Stash
