#include "forwarder/Kernel/AttributeReader.h"

#include <algorithm>

namespace Pel::Forwarder {

namespace {
constexpr std::size_t kHeader = 4;
constexpr std::uint16_t kTypeMask = 0x3FFF;  // without "nested" and "network byte order"
}  // namespace

std::optional<Attribute> AttributeReader::next() {
    if (rest_.empty() || broken_) { return std::nullopt; }
    const auto length = readValue<std::uint16_t>(rest_);
    const auto type = readValue<std::uint16_t>(rest_, 2);
    if (!length || !type || *length < kHeader || *length > rest_.size()) {
        broken_ = true;
        return std::nullopt;
    }
    const Attribute result{static_cast<std::uint16_t>(*type & kTypeMask),
                           rest_.subspan(kHeader, *length - kHeader)};
    const std::size_t padded = (std::size_t{*length} + 3) & ~std::size_t{3};
    rest_ = rest_.subspan(std::min(padded, rest_.size()));  // the last one may lack its padding
    return result;
}

AttributeTable::AttributeTable(Bytes bytes) {
    AttributeReader reader{bytes};
    while (const auto attribute = reader.next()) {
        if (attribute->type >= kTypes || present_[attribute->type]) { continue; }
        payloads_[attribute->type] = attribute->payload;
        present_[attribute->type] = true;
    }
    broken_ = reader.broken();
}

std::uint64_t AttributeTable::number(std::uint16_t type) const {
    const Bytes bytes = (*this)[type];
    switch (bytes.size()) {
        case 1:
            return readValue<std::uint8_t>(bytes).value_or(0);
        case 2:
            return readValue<std::uint16_t>(bytes).value_or(0);
        case 4:
            return readValue<std::uint32_t>(bytes).value_or(0);
        case 8:
            return readValue<std::uint64_t>(bytes).value_or(0);
        default:
            return 0;
    }
}

}  // namespace Pel::Forwarder
