#pragma once

#include <lmdb.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Store/Environment.h"

/// The bytes of the environment's three databases; STORE-FORMAT.md draws them. Only the store's own
/// sources include this.
namespace Store {

inline constexpr TableId kRegistry = 0;
inline constexpr std::size_t kMaxKeyBytes = 511;  // the engine's limit
inline constexpr std::size_t kTableBytes = 4;
inline constexpr std::size_t kSequenceBytes = 8;

template <class Number>
void putBigEndian(char* to, Number value) {
    for (std::size_t i = sizeof value; i-- > 0; value = static_cast<Number>(value >> 8)) {
        to[i] = static_cast<char>(value & 0xFF);
    }
}

template <class Number>
Number getBigEndian(const char* from) {
    Number value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value = static_cast<Number>(value << 8 | static_cast<unsigned char>(from[i]));
    }
    return value;
}

inline std::string_view viewOf(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

/// Table id and key, on the stack: how a record is found.
class RecordKey {
public:
    RecordKey(TableId table, std::string_view key) : size_{kTableBytes + key.size()} {
        putBigEndian(bytes_.data(), table);
        if (fits() && !key.empty()) { std::memcpy(&bytes_[kTableBytes], key.data(), key.size()); }
    }
    bool fits() const { return size_ <= kMaxKeyBytes; }
    MDB_val value() { return {size_, bytes_.data()}; }

private:
    std::size_t size_;
    std::array<char, kMaxKeyBytes + 1> bytes_;  // not initialised: only size_ bytes mean anything
};

/// A record as it stands: where in the order of changes it last changed, and its value.
struct RecordView {
    Sequence sequence = 0;
    std::string_view value;
};

inline std::optional<RecordView> recordOf(const MDB_val& bytes) {
    if (bytes.mv_size < kSequenceBytes) { return std::nullopt; }
    const std::string_view view = viewOf(bytes);
    return RecordView{getBigEndian<Sequence>(view.data()), view.substr(kSequenceBytes)};
}

/// One entry of the log.
struct LogEntry {
    Sequence sequence = 0;
    TableId table = 0;
    std::string_view key;
};

inline std::string encodeTable(const TableInfo& table) {
    std::string bytes(kTableBytes, '\0');
    putBigEndian(bytes.data(), table.id);
    bytes += static_cast<char>(table.kind);
    return bytes += table.type;
}

inline std::optional<TableInfo> decodeTable(std::string_view path, std::string_view bytes) {
    if (bytes.size() < kTableBytes + 1) { return std::nullopt; }
    return TableInfo{getBigEndian<TableId>(bytes.data()),
                     static_cast<TableKind>(bytes[kTableBytes]),
                     std::string{path},
                     std::string{bytes.substr(kTableBytes + 1)}};
}

}  // namespace Store
