#include "apps/cli/SinceTime.h"

#include <gtest/gtest.h>

#include <string>

namespace Pel::Cli {
namespace {

using std::chrono::system_clock;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kNow = 1'000'000 * kSecond;

struct SinceCase {
    std::string_view name;
    std::string_view text;
    std::optional<std::int64_t> want;
};
constexpr SinceCase kCases[] = {
    {"Seconds", "90s", kNow - 90 * kSecond},
    {"Minutes", "10m", kNow - 600 * kSecond},
    {"Hours", "2h", kNow - 7200 * kSecond},
    {"Days", "1d", kNow - 86'400 * kSecond},
    {"Now", "0s", kNow},
    {"Time", "1970-01-02T00:00:01Z", 86'401 * kSecond},
    {"WithoutZ", "1970-01-02T00:00:01", 86'401 * kSecond},
    {"Microseconds", "1970-01-01T00:00:01.000025Z", kSecond + 25'000},
    {"Nanoseconds", "1970-01-01T00:00:00.123456789Z", 123'456'789},
    {"Nothing", "", std::nullopt},
    {"NoUnit", "90", std::nullopt},
    {"UnknownUnit", "90w", std::nullopt},
    {"Negative", "-5m", std::nullopt},
    {"MoreThanTenYears", "3651d", std::nullopt},
    {"ManyDigits", "99999999999999999999s", std::nullopt},
    {"DayOnly", "1970-01-02", std::nullopt},
    {"NoFraction", "1970-01-02T00:00:01.Z", std::nullopt},
    {"TooFine", "1970-01-02T00:00:01.1234567891Z", std::nullopt},
    {"FarYear", "9999-01-02T00:00:01Z", std::nullopt},
    {"OtherText", "yesterday", std::nullopt},
};
class SinceTime : public testing::TestWithParam<SinceCase> {};
TEST_P(SinceTime, IsAnAgeOrATimeAsItIsPrinted) {
    const system_clock::time_point now{std::chrono::nanoseconds{kNow}};
    EXPECT_EQ(sinceTime(GetParam().text, now), GetParam().want);
}
INSTANTIATE_TEST_SUITE_P(, SinceTime, testing::ValuesIn(kCases), [](const auto& row) {
    return std::string{row.param.name};
});

}  // namespace
}  // namespace Pel::Cli
