#include "platform/Gale/Wire/MessageReader.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/Gale/Wire/FrameCounter.h"

namespace Gale::Wire {
namespace {

using namespace std::string_literals;

class MessageReaderTest : public testing::Test {
protected:
    std::optional<Status> feed(std::string_view bytes) {
        return reader.feed(std::as_bytes(std::span{bytes}), [this](auto whole) {
            got.emplace_back(reinterpret_cast<const char*>(whole.data()), whole.size());
        });
    }
    MessageReader reader{10};
    std::vector<std::string> got;
};

TEST_F(MessageReaderTest, DeliversSeveralMessagesOfOnePiece) {
    EXPECT_FALSE(feed("\0\0\0\0\3abc\0\0\0\0\0\0\0\0\0\1d"s));
    EXPECT_EQ(got, (std::vector<std::string>{"abc", "", "d"}));
    EXPECT_FALSE(reader.end());
}

TEST_F(MessageReaderTest, JoinsMessagesCutIntoSingleBytes) {
    for (const char c : "\0\0\0\0\3abc\0\0\0\0\2de"s) { EXPECT_FALSE(feed({&c, 1})); }
    EXPECT_EQ(got, (std::vector<std::string>{"abc", "de"}));
    EXPECT_EQ(reader.buffered(), 0u);
}

TEST_F(MessageReaderTest, TakesTheLimitAndRefusesOneMore) {
    EXPECT_FALSE(feed("\0\0\0\0\12"s + std::string(10, 'x')));
    EXPECT_EQ(got.size(), 1u);
    const auto failure = feed("\0\0\0\0\13"s);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, Code::ResourceExhausted);
}

TEST_F(MessageReaderTest, RefusesAHugeLengthBeforeKeepingAnyByte) {
    const auto failure = feed("\0\xff\xff\xff\xff"s);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, Code::ResourceExhausted);
    EXPECT_EQ(reader.buffered(), 0u);
}

TEST_F(MessageReaderTest, KeepsOnlyWhatArrived) {
    EXPECT_FALSE(feed("\0\0\0\0\12ab"s));
    EXPECT_EQ(reader.buffered(), 2u);
}

TEST_F(MessageReaderTest, RefusesCompressedAndUnknownFlags) {
    for (const char flag : {'\1', '\2', '\xff'}) {
        MessageReader fresh{10};
        const std::string bytes = flag + "\0\0\0\1x"s;
        const auto failure = fresh.feed(std::as_bytes(std::span{bytes}), [](auto) { FAIL(); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->code, Code::Internal);
    }
}

TEST_F(MessageReaderTest, EndInsidePrefixOrMessageIsAnError) {
    EXPECT_FALSE(feed("\0\0"s));
    ASSERT_TRUE(reader.end());
    EXPECT_EQ(reader.end()->code, Code::Internal);
    EXPECT_FALSE(feed("\0\0\3a"s));
    EXPECT_TRUE(reader.end());
    EXPECT_FALSE(feed("bc"));
    EXPECT_FALSE(reader.end());
}

TEST(FrameCounter, CountsFramesOfAnyKindHoweverCut) {
    const std::string preface(24, 'p');
    const std::string frames =
        "\0\0\0\4\0\0\0\0\0"s + "\0\0\3\xEE\0\0\0\0\0abc"s + "\0\0\0\4\1\0\0\0\0"s;
    FrameCounter whole;
    const std::string all = preface + frames;
    EXPECT_EQ(whole.feed(std::as_bytes(std::span{all})), 3u);
    FrameCounter cut;
    std::size_t sum = 0;
    for (const char& c : all) { sum += cut.feed(std::as_bytes(std::span{&c, 1})); }
    EXPECT_EQ(sum, 3u);
}

}  // namespace
}  // namespace Gale::Wire
