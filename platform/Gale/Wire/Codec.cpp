#include "platform/Gale/Wire/Codec.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {
namespace {

constexpr std::size_t kMaxStatusMessage = 1024;
constexpr std::string_view kHex = "0123456789ABCDEF";
constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t kNotBase64 = 255;

constexpr std::array<std::uint8_t, 256> base64Values() {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNotBase64);
    for (std::size_t i = 0; i < kBase64.size(); ++i) {
        values[static_cast<unsigned char>(kBase64[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}
constexpr std::array<std::uint8_t, 256> kBase64Values = base64Values();

std::string_view cut(std::string_view message) {
    if (message.size() <= kMaxStatusMessage) { return message; }
    std::size_t end = kMaxStatusMessage;
    while (end > 0 && (static_cast<unsigned char>(message[end]) & 0xC0U) == 0x80U) { --end; }
    return message.substr(0, end);
}

std::optional<Kiln::Duration> timeoutUnit(char letter) {
    switch (letter) {
        case 'H':
            return std::chrono::hours(1);
        case 'M':
            return std::chrono::minutes(1);
        case 'S':
            return std::chrono::seconds(1);
        case 'm':
            return std::chrono::milliseconds(1);
        case 'u':
            return std::chrono::microseconds(1);
        case 'n':
            return std::chrono::nanoseconds(1);
        default:
            return std::nullopt;
    }
}

}  // namespace

std::string percentEncode(std::string_view message) {
    std::string text;
    for (const char c : cut(message)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte <= 0x7E && c != '%') {
            text += c;
        } else {
            text += '%';
            text += kHex[byte >> 4U];
            text += kHex[byte & 0xFU];
        }
    }
    return text;
}

std::string base64Encode(std::string_view bytes) {
    std::string text;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : bytes) {
        bits = (bits << 8U) | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6) { text += kBase64[(bits >> (count - 6)) & 63U]; }
    }
    if (count > 0) { text += kBase64[(bits << (6 - count)) & 63U]; }
    return text;
}

std::optional<std::string> base64Decode(std::string_view text) {
    const std::size_t whole = text.size();
    for (int pad = 0; pad < 2 && !text.empty() && text.back() == '='; ++pad) {
        text.remove_suffix(1);
    }
    const bool padded = text.size() != whole;
    if (text.size() % 4 == 1 || (padded && whole % 4 != 0)) { return std::nullopt; }
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
        if (value == kNotBase64) { return std::nullopt; }
        bits = (bits << 6U) | value;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>((bits >> count) & 0xFFU);
        }
    }
    return bytes;
}

std::optional<Kiln::Duration> parseTimeout(std::string_view text) {
    if (text.size() < 2 || text.size() > 9) { return std::nullopt; }
    const auto unit = timeoutUnit(text.back());
    if (!unit) { return std::nullopt; }
    std::int64_t number = 0;
    for (const char c : text.substr(0, text.size() - 1)) {
        if (c < '0' || c > '9') { return std::nullopt; }
        number = number * 10 + (c - '0');
    }
    // 99,999,999 hours are more than 64 bits of nanoseconds hold; a hundred years stand for ever.
    constexpr Kiln::Duration kForever = std::chrono::hours(24 * 365 * 100);
    return number > kForever / *unit ? kForever : number * *unit;
}

void putPrefix(std::byte* out, std::size_t messageBytes) {
    out[0] = std::byte{0};
    for (unsigned i = 0; i < 4; ++i) {
        out[1 + i] = static_cast<std::byte>((messageBytes >> (24 - 8 * i)) & 0xFFU);
    }
}

}  // namespace Gale::Wire
