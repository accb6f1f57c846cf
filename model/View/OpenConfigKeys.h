#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "model/Net/IpPrefix.h"
#include "platform/Gale/JournalEntry.h"

/// How the entries of the OpenConfig view are named in the journal.
namespace Pel::OcApi::OpenConfigKeys {

/// A next hop or a group.
constexpr Gale::EntryKey ofNumber(std::uint64_t number) {
    return {0, 0, number};
}

/// A prefix of an instance, in the order of instance, then of Nexo::IpPrefix: the first 16 bits of
/// the address stand in the scope after instance and family, the others and the length in hi, lo.
Gale::EntryKey ofPrefix(std::uint32_t instance, const Nexo::IpPrefix& prefix);
Nexo::IpPrefix prefixOf(const Gale::EntryKey& key);
constexpr std::uint32_t instanceOf(const Gale::EntryKey& key) {
    return static_cast<std::uint32_t>(key.scope >> 24U);
}
constexpr Nexo::AddressFamily familyOf(const Gale::EntryKey& key) {
    return static_cast<Nexo::AddressFamily>(key.scope >> 16U & 0xFFU);
}
/// Whether both name the same prefix, whatever the instance.
constexpr bool samePrefix(const Gale::EntryKey& a, const Gale::EntryKey& b) {
    return (a.scope & 0xFF'FFFFU) == (b.scope & 0xFF'FFFFU) && a.hi == b.hi && a.lo == b.lo;
}

/// A network instance itself.
constexpr Gale::EntryKey ofInstance(std::uint32_t instance) {
    return {static_cast<std::uint64_t>(instance) << 24U, 0, 0};
}

/// What an instance says of the state of its routes.
constexpr Gale::EntryKey ofStateSynced(std::uint32_t instance) {
    return {static_cast<std::uint64_t>(instance) << 24U, 0, 1};
}
constexpr bool isStateSynced(const Gale::EntryKey& key) {
    return key.lo == 1;
}

/// The routes of one protocol in one table, together.
constexpr Gale::EntryKey ofSummary(std::uint32_t instance,
                                   Nexo::AddressFamily family,
                                   std::uint8_t protocol) {
    return {static_cast<std::uint64_t>(instance) << 24U | static_cast<std::uint64_t>(family) << 16U,
            0,
            protocol};
}

/// A number as a list key.
class Decimal {
public:
    explicit Decimal(std::uint64_t number)
        : end_{std::to_chars(text_.begin(), text_.end(), number).ptr} {}
    Decimal(const Decimal&) = delete;
    Decimal& operator=(const Decimal&) = delete;
    operator std::string_view() const {  // NOLINT(google-explicit-constructor): it is a text
        return {text_.data(), static_cast<std::size_t>(end_ - text_.data())};
    }

private:
    std::array<char, 20> text_;
    const char* end_;
};

/// A prefix as a list key, without allocation.
class PrefixText {
public:
    explicit PrefixText(const Nexo::IpPrefix& prefix);
    PrefixText(const PrefixText&) = delete;
    PrefixText& operator=(const PrefixText&) = delete;
    operator std::string_view() const {  // NOLINT(google-explicit-constructor): it is a text
        return {text_.data(), size_};
    }

private:
    std::array<char, 48> text_;
    std::size_t size_ = 0;
};

}  // namespace Pel::OcApi::OpenConfigKeys
