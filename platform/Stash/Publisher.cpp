#include "platform/Stash/Publisher.h"

#include "platform/Stash/ContentLayout.h"

namespace Pel::Stash {
namespace {

using NumberCodec = Store::KeyCodec<std::uint64_t>;

constexpr std::uint64_t kHighestId = 0;  // key of the free table

std::uint64_t firstNumber(std::string_view bytes) {
    return Store::takeBigEndian(bytes).value_or(0);
}

}  // namespace

ContentPublisher::ContentPublisher(Store::Writer& writer)
    : writer_{&writer},
      records_{writer.tableIs(kContentPath, kContentType, Store::TableKind::content)},
      byHash_{writer.tableIs(kHashPath, kHashType, Store::TableKind::content)},
      free_{writer.tableIs(kFreePath, kFreeType, Store::TableKind::content)} {}

bool ContentPublisher::valid() const {
    return records_ != 0 && byHash_ != 0 && free_ != 0;
}

Handle ContentPublisher::contentIs(std::string_view content) {
    const std::uint64_t hash = contentHash(content);
    std::string sameHash = numbersOf(byHash_, hash);
    for (std::string_view ids = sameHash; const auto id = Store::takeBigEndian(ids);) {
        const std::string key = NumberCodec::encode(*id);
        const auto bytes = writer_->get(records_, key);
        auto frame = bytes ? ContentFrame::decode(*bytes) : std::nullopt;
        if (!frame || frame->content != content) { continue; }
        ++frame->users;
        const std::uint32_t version = frame->version;
        writer_->put(records_, key, frame->encode());
        return {*id, version};
    }
    const Id made = newId();
    writer_->put(records_,
                 NumberCodec::encode(made.record),
                 ContentFrame{made.version, 1, hash, content}.encode());
    Store::appendBigEndian(sameHash, made.record);
    writer_->put(byHash_, NumberCodec::encode(hash), sameHash);
    return {made.record, made.version};
}

void ContentPublisher::contentDel(const Handle& handle) {
    if (!handle) { return; }
    const std::string key = NumberCodec::encode(handle.record);
    const auto bytes = writer_->get(records_, key);
    auto frame = bytes ? ContentFrame::decode(*bytes) : std::nullopt;
    if (!frame || frame->version != handle.version) { return; }
    if (frame->users > 1) {
        --frame->users;
        writer_->put(records_, key, frame->encode());
        return;
    }
    const std::uint64_t hash = frame->hash;  // the frame's view ends with the next operation
    writer_->erase(records_, key);
    hashDel(hash, handle.record);
    writer_->put(free_, key, NumberCodec::encode(handle.version));
}

/// The smallest recycled id with its next version, or one never used.
ContentPublisher::Id ContentPublisher::newId() {
    std::optional<Id> recycled;
    writer_->forEach(free_, [&](std::string_view key, std::string_view value) {
        const std::uint64_t record = firstNumber(key);
        if (record == kHighestId) { return true; }
        recycled = Id{record, static_cast<std::uint32_t>(firstNumber(value)) + 1};
        return false;
    });
    if (recycled) {
        writer_->erase(free_, NumberCodec::encode(recycled->record));
        return *recycled;
    }
    const std::uint64_t record = firstNumber(numbersOf(free_, kHighestId)) + 1;
    writer_->put(free_, NumberCodec::encode(kHighestId), NumberCodec::encode(record));
    return {record, 1};
}

void ContentPublisher::hashDel(std::uint64_t hash, std::uint64_t record) {
    const std::string present = numbersOf(byHash_, hash);
    std::string left;
    for (std::string_view ids = present; const auto id = Store::takeBigEndian(ids);) {
        if (*id != record) { Store::appendBigEndian(left, *id); }
    }
    if (left.empty()) {
        writer_->erase(byHash_, NumberCodec::encode(hash));
    } else {
        writer_->put(byHash_, NumberCodec::encode(hash), left);
    }
}

std::string ContentPublisher::numbersOf(Store::TableId table, std::uint64_t key) {
    const auto bytes = writer_->get(table, NumberCodec::encode(key));
    return bytes ? std::string{*bytes} : std::string{};
}

}  // namespace Pel::Stash
