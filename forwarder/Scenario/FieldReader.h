#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "forwarder/Scenario/YamlTree.h"
#include "model/Net/EthAddr.h"
#include "model/Net/IpGenAddr.h"
#include "model/Net/IpPrefix.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Reads single values. What is not as expected is a problem at its place that says what was, and nullopt.
class ValueReader {
public:
    explicit ValueReader(Problems& problems) : problems_{problems} {}

    std::optional<std::string> text(const YamlNode& node, std::size_t maxBytes) const;
    /// Decimal, or hexadecimal after "0x".
    std::optional<std::uint64_t> number(const YamlNode& node,
                                        std::uint64_t min,
                                        std::uint64_t max) const;
    std::optional<bool> flag(const YamlNode& node) const;
    /// "1.5s", "200ms", "2m", "1h"; at most 30 days.
    std::optional<Kiln::Duration> duration(const YamlNode& node) const;
    std::optional<Nexo::IpGenAddr> address(const YamlNode& node) const;
    std::optional<Nexo::IpPrefix> prefix(const YamlNode& node) const;
    std::optional<Nexo::EthAddr> mac(const YamlNode& node) const;
    /// The elements of a list; empty after a problem.
    const std::vector<YamlNode>& list(const YamlNode& node) const;
    /// Reports the keys of a map that come twice.
    void checkKeysOnce(const YamlNode& map) const;
    /// Reports what stands there in place of what was expected; nullopt to return.
    std::nullopt_t expected(const YamlNode& node, const std::string& what) const;

    Problems& problems() const { return problems_; }

private:
    Problems& problems_;
};

/// Reads the fields of a map. Keys that are not known are problems, with the known key that was probably meant, or all of
/// them; so are keys that come twice.
class FieldReader {
public:
    FieldReader(const YamlNode& node,
                std::initializer_list<std::string_view> known,
                const ValueReader& values);

    const YamlNode* find(std::string_view key) const;
    /// A problem when it is not there, else find().
    const YamlNode* need(std::string_view key) const;

    void read(std::string_view key, std::string& to, std::size_t maxBytes) const;
    void read(std::string_view key, bool& to) const;
    template <class Number>
    void read(std::string_view key,
              Number& to,
              std::uint64_t min,
              std::uint64_t max = std::numeric_limits<Number>::max()) const {
        const YamlNode* node = find(key);
        if (const auto value = node != nullptr ? values_.number(*node, min, max) : std::nullopt) {
            to = static_cast<Number>(*value);
        }
    }

private:
    const YamlNode& node_;
    std::vector<std::string_view> known_;
    std::vector<const YamlNode*> found_;  // by known key
    const ValueReader& values_;
};

}  // namespace Pel::Forwarder
