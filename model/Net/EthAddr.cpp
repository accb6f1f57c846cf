#include "model/Net/EthAddr.h"

namespace Nexo {

std::string EthAddr::stringValue() const {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes_) {
        if (!text.empty()) { text += ':'; }
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

}  // namespace Nexo
