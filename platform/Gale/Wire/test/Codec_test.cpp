#include "platform/Gale/Wire/Codec.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;

TEST(PercentEncode, KeepsPrintableAsciiButPercent) {
    EXPECT_EQ(percentEncode("no such key ~!\"#"), "no such key ~!\"#");
    EXPECT_EQ(percentEncode("100%"), "100%25");
}

TEST(PercentEncode, EscapesAllElseInUpperCase) {
    EXPECT_EQ(percentEncode("\t\r\n\x7f"), "%09%0D%0A%7F");
    EXPECT_EQ(percentEncode("\xC3\xBC\xF0\x9F\x98\x88"), "%C3%BC%F0%9F%98%88");
}

TEST(PercentEncode, CutsLongTextAtACharacter) {
    EXPECT_EQ(percentEncode(std::string(5000, 'a')), std::string(1024, 'a'));
    EXPECT_EQ(percentEncode(std::string(1023, 'a') + "\xC3\xBC"), std::string(1023, 'a'));
}

struct Base64Case {
    std::string_view bytes, text, padded;
};
constexpr Base64Case kBase64Cases[] = {
    {"", "", ""},
    {"f", "Zg", "Zg=="},
    {"fo", "Zm8", "Zm8="},
    {"foo", "Zm9v", "Zm9v"},
    {"\xab\xab\xab", "q6ur", "q6ur"},
    {"\xff\xef", "/+8", "/+8="},
};

TEST(Base64, GoesBothWaysWithAndWithoutPadding) {
    for (const Base64Case& c : kBase64Cases) {
        EXPECT_EQ(base64Encode(c.bytes), c.text);
        EXPECT_EQ(base64Decode(c.text), c.bytes);
        EXPECT_EQ(base64Decode(c.padded), c.bytes);
    }
}

TEST(Base64, RefusesWhatIsNotBase64) {
    for (const std::string_view bad : {"Z", "Zm9vZ", "Zm-v", "Zg=", "Zg===", "=", "Z===", "Zm 8"}) {
        EXPECT_EQ(base64Decode(bad), std::nullopt) << bad;
    }
}

TEST(ParseTimeout, KnowsEachUnit) {
    EXPECT_EQ(parseTimeout("2H"), 2h);
    EXPECT_EQ(parseTimeout("3M"), 3min);
    EXPECT_EQ(parseTimeout("4S"), 4s);
    EXPECT_EQ(parseTimeout("5m"), 5ms);
    EXPECT_EQ(parseTimeout("6u"), 6us);
    EXPECT_EQ(parseTimeout("7n"), 7ns);
    EXPECT_EQ(parseTimeout("0S"), 0s);
}

TEST(ParseTimeout, SaturatesInsteadOfOverflowing) {
    EXPECT_GT(parseTimeout("99999999H"), 24h * 365 * 99);
    EXPECT_EQ(parseTimeout("99999999M"), parseTimeout("99999999H"));
}

TEST(ParseTimeout, RefusesWhatIsMalformed) {
    for (const std::string_view bad :
         {"", "S", "5", "123456789S", "-1S", "1 S", "1s", "1x", "+1S"}) {
        EXPECT_EQ(parseTimeout(bad), std::nullopt) << bad;
    }
}

TEST(PutPrefix, IsAZeroFlagAndABigEndianLength) {
    std::array<std::byte, 5> out{};
    out.fill(std::byte{0xEE});
    putPrefix(out.data(), 0x01020304);
    const std::array<std::byte, 5> want{
        std::byte{0}, std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}};
    EXPECT_EQ(out, want);
}

}  // namespace
}  // namespace Gale::Wire
