#include "model/View/KeyPredicates.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include "model/Net/IpPrefix.h"
#include "model/Route/OriginProtocol.h"
#include "model/View/OpenConfigKeys.h"

namespace Pel::OcApi::KeyPredicates {

using Gale::EntryKey;
using Gale::KeyPredicate;

namespace {
std::optional<std::uint64_t> decimal(const std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    const bool plain = error == std::errc{} && at == end && (text.size() == 1 || text[0] != '0');
    return plain ? std::optional{number} : std::nullopt;
}
}  // namespace

KeyPredicate never() {
    return [](const EntryKey& /*key*/) { return false; };
}

KeyPredicate numberIs(const std::string* text) {
    if (text == nullptr) { return {}; }
    const auto number = decimal(*text);
    if (!number) { return never(); }
    return [number = *number](const EntryKey& key) { return key.lo == number; };
}

KeyPredicate prefixIs(const std::string* text, Nexo::AddressFamily family) {
    if (text == nullptr) { return {}; }
    const auto prefix = Nexo::IpPrefix::parse(*text);
    if (!prefix || prefix->address().family() != family) { return never(); }
    return [wanted = OpenConfigKeys::ofPrefix(0, *prefix)](const EntryKey& key) {
        return OpenConfigKeys::samePrefix(key, wanted);
    };
}

KeyPredicate instanceIs(const std::string* name, const OpenConfigInstances& instances) {
    if (name == nullptr) { return {}; }
    return [&instances, wanted = *name](const EntryKey& key) {
        return instances.name(OpenConfigKeys::instanceOf(key)) == wanted;
    };
}

KeyPredicate protocolIs(const std::string* text) {
    if (text == nullptr) { return {}; }
    return [name = text->substr(text->find(':') + 1)](const EntryKey& key) {
        return identityName(static_cast<OriginProtocol>(key.lo)) == name;
    };
}

KeyPredicate both(KeyPredicate first, KeyPredicate second) {
    if (!first) { return second; }
    if (!second) { return first; }
    return [first = std::move(first), second = std::move(second)](const EntryKey& key) {
        return second(key) && first(key);
    };
}

}  // namespace Pel::OcApi::KeyPredicates
