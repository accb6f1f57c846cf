#include "test/soak/DueLag.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "test/checker/Recording.h"

namespace Soak {
namespace {

/// Number of the change that a next hop's update shows.
std::optional<std::uint64_t> changeOf(const gnmi::Notification& notification) {
    for (const gnmi::Update& update : notification.update()) {
        const auto& elems = update.path().elem();
        if (elems.size() != 2 || elems[1].name() != "mac-address") { continue; }
        // "02:" and 40 bits, the first of which says that it was a change.
        std::string digits = update.val().string_val();
        digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());
        if (digits.size() != 12) { return std::nullopt; }
        const std::uint64_t bits = std::stoull(digits.substr(2), nullptr, 16);
        constexpr std::uint64_t kChanged = 0x80'0000'0000;
        if ((bits & kChanged) == 0) { return std::nullopt; }
        return bits & (kChanged - 1);
    }
    return std::nullopt;
}

}  // namespace

Checker::LagHistogram dueLag(const std::filesystem::path& recording,
                             std::uint64_t churn,
                             std::int64_t from,
                             std::int64_t until) {
    std::vector<std::int64_t> offsets;
    Checker::RecordReader reader;
    if (churn == 0 || !reader.open(recording).empty()) { return {}; }
    gnmi::SubscribeResponse response;
    while (reader.next() == Checker::RecordReader::Next::message) {
        if (reader.received() < from || reader.received() > until) { continue; }
        response.ParseFromArray(reader.message().data(), static_cast<int>(reader.message().size()));
        const auto change = changeOf(response.update());
        if (!change) { continue; }
        constexpr std::int64_t kSecond = 1'000'000'000;
        const auto number = static_cast<std::int64_t>(*change);
        const auto rate = static_cast<std::int64_t>(churn);
        const std::int64_t due = number / rate * kSecond + number % rate * kSecond / rate;
        offsets.push_back(reader.received() - due);
    }
    Checker::LagHistogram lag;
    if (offsets.empty()) { return lag; }
    const std::int64_t fastest = *std::min_element(offsets.begin(), offsets.end());
    for (const std::int64_t offset : offsets) { lag.add(offset - fastest); }
    return lag;
}

}  // namespace Soak
