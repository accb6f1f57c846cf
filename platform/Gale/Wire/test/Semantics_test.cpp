#include <algorithm>
#include <chrono>
#include <cstring>

#include "platform/Gale/Wire/test/WireTest.h"

namespace Gale::Wire {
namespace {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

class SemanticsTest : public WireTest {};

TEST_F(SemanticsTest, UnaryCallAnswersHeadersMessageAndStatus) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Echo", "hello");
    ASSERT_TRUE(ended(client, stream));
    auto& reply = client.reply(stream);
    EXPECT_EQ(reply.header(":status"), "200");
    EXPECT_EQ(reply.header("content-type"), "application/grpc");
    EXPECT_EQ(reply.messages(), Strings{"hello"});
    EXPECT_EQ(reply.status(), "0");
    EXPECT_EQ(reply.trailer("grpc-message"), "");
    EXPECT_FALSE(reply.reset);
    EXPECT_EQ(service.handlers, 0u);
    EXPECT_TRUE(service.cancelled.empty());
    EXPECT_EQ(count(Count::CallsFinished), 1u);
}

TEST_F(SemanticsTest, EmptyMessageBothWays) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Echo", "");
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).messages(), Strings{""});
}

TEST_F(SemanticsTest, ContentTypeIsEchoed) {
    auto& client = connect();
    const auto stream =
        client.unary("/test.T/Echo", "x", {{"content-type", "application/grpc+proto"}});
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).header("content-type"), "application/grpc+proto");
}

TEST_F(SemanticsTest, MetadataComesBackInHeadersAndTrailers) {
    auto& client = connect();
    for (const auto* path : {"/test.T/Echo", "/test.T/Chat"}) {
        const auto stream =
            client.unary(path, "x", {{"x-echo", "initial value"}, {"x-echo-bin", "q6ur"}});
        ASSERT_TRUE(ended(client, stream));
        EXPECT_EQ(client.reply(stream).header("x-echo"), "initial value");
        EXPECT_EQ(client.reply(stream).trailer("x-echo-bin"), "q6ur");
    }
}

TEST_F(SemanticsTest, ErrorsAreTrailersOnly) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Fail", "2 100% \xC3\xBC\t\n");
    ASSERT_TRUE(ended(client, stream));
    auto& reply = client.reply(stream);
    EXPECT_EQ(reply.headers, reply.trailers);  // one HEADERS frame
    EXPECT_EQ(reply.header(":status"), "200");
    EXPECT_EQ(reply.status(), "2");
    EXPECT_EQ(reply.trailer("grpc-message"), "100%25 %C3%BC%09%0A");
}

TEST_F(SemanticsTest, UnknownMethodAndServiceAreUnimplemented) {
    auto& client = connect();
    for (const auto* path : {"/test.T/Nope", "/nope.N/Echo", "/test.T", "/test.t/Echo", "/"}) {
        const auto stream = client.unary(path, "x");
        ASSERT_TRUE(ended(client, stream));
        EXPECT_EQ(client.reply(stream).status(), "12") << path;
        EXPECT_EQ(client.reply(stream).header(":status"), "200");
    }
    expectAlive(client);
}

TEST_F(SemanticsTest, AHandlerThatThrowsIsUnknown) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Throw", "x");
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "2");
    EXPECT_EQ(service.handlers, 0u);
    expectAlive(client);
}

TEST_F(SemanticsTest, ServerStreamingSendsAllInOrder) {
    auto& client = connect({{4, 1U << 30U}});
    const auto stream = client.unary("/test.T/Numbers", "10000 100");
    ASSERT_TRUE(ended(client, stream));
    const Strings messages = client.reply(stream).messages();
    ASSERT_EQ(messages.size(), 10000u);
    for (unsigned i = 0; i < messages.size(); ++i) {
        unsigned number = 0;
        std::memcpy(&number, messages[i].data(), sizeof number);
        ASSERT_EQ(number, i);
        ASSERT_EQ(messages[i].size(), 100u);
    }
    EXPECT_EQ(client.reply(stream).status(), "0");
    EXPECT_EQ(count(Count::CallsFinished), 1u);
}

TEST_F(SemanticsTest, MessagesLargerThanAFrameAreCarried) {
    auto& client = connect({{4, 1U << 30U}});
    const auto stream = client.unary("/test.T/Numbers", "5 1000000");
    ASSERT_TRUE(ended(client, stream));
    const Strings messages = client.reply(stream).messages();
    ASSERT_EQ(messages.size(), 5u);
    for (const std::string& message : messages) { EXPECT_EQ(message.size(), 1'000'000u); }
    EXPECT_EQ(client.reply(stream).data.size(), 5u * 1'000'005u);
}

TEST_F(SemanticsTest, LargeUnaryRequestAndReply) {
    auto& client = connect({{4, 1U << 30U}});
    const std::string big(271'828, 'q');
    const auto stream = client.open(WireClient::head("/test.T/Echo"));
    std::size_t sent = 0;
    const std::string whole = WireClient::prefixed(big);
    ASSERT_TRUE(until([&] {  // within the server's window of 256 KiB, which reading renews
        const std::size_t n = std::min<std::size_t>(8192, whole.size() - sent);
        if (n > 0) {
            client.frame(WireClient::Data,
                         sent + n == whole.size() ? WireClient::kEnd : std::uint8_t{0},
                         stream,
                         whole.substr(sent, n));
        }
        sent += n;
        return client.reply(stream).ended;
    }));
    EXPECT_EQ(client.reply(stream).messages(), Strings{big});
}

TEST_F(SemanticsTest, RequestBytesOfFinishedCallsDoNotCountAsHeld) {
    Options options;
    options.maxBufferedRequests = 20'000;
    serve(options);
    auto& client = connect();
    for (int i = 0; i < 10; ++i) {
        const auto stream = client.unary("/test.T/Echo", std::string(10'000, 'x'));
        client.window(stream, 100'000);
        ASSERT_TRUE(ended(client, stream));
        ASSERT_EQ(client.reply(stream).status(), "0") << i;
    }
}

TEST_F(SemanticsTest, PingPongOnAnOpenCall) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Chat"));
    Strings want;
    for (const auto* text : {"one", "two", "three"}) {
        client.send(stream, text);
        want.emplace_back(text);
        ASSERT_TRUE(until([&] { return client.reply(stream).messages() == want; }));
        EXPECT_FALSE(client.reply(stream).ended);
    }
    client.halfClose(stream);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "0");
    EXPECT_FALSE(client.reply(stream).reset);
}

TEST_F(SemanticsTest, EmptyStreamIsOkWithoutMessage) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Chat"), true);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "0");
    EXPECT_TRUE(client.reply(stream).messages().empty());
}

TEST_F(SemanticsTest, HalfCloseLeavesTheReplyOpen) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.liveCalls() == 1; }));
    service.push("late");
    ASSERT_TRUE(until([&] { return client.reply(stream).messages() == Strings{"late"}; }));
    service.push("later");
    service.endLive({Code::Unavailable, "bye"});  // what was pushed and not taken is dropped
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "14");
    EXPECT_EQ(client.reply(stream).trailer("grpc-message"), "bye");
}

TEST_F(SemanticsTest, HeadersGoOutAtAcceptanceNotWithTheFirstMessage) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Live"));
    client.send(stream, "go");
    ASSERT_TRUE(until([&] { return !client.reply(stream).headers.empty(); }));
    EXPECT_TRUE(client.reply(stream).data.empty());
}

TEST_F(SemanticsTest, CancelEndsTheHandlerInTheSameTurn) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Live", "go");
    ASSERT_TRUE(until([&] { return service.handlers == 1; }));
    client.reset(stream);
    settle();
    EXPECT_EQ(service.handlers, 0u);
    ASSERT_EQ(service.cancelled.size(), 1u);
    EXPECT_EQ(service.cancelled[0].code, Code::Cancelled);
    EXPECT_EQ(count(Count::CallsCancelled), 1u);
    expectAlive(client);
}

TEST_F(SemanticsTest, CancelOfABulkStreamStopsTheSource) {
    auto& client = connect();
    const auto stream = client.unary("/test.T/Numbers", "100000000 100");
    ASSERT_TRUE(until([&] { return !client.reply(stream).messages().empty(); }));
    client.reset(stream);
    settle();
    EXPECT_EQ(service.handlers, 0u);
    const auto fills = service.fills;
    settle();
    EXPECT_EQ(service.fills, fills);
}

TEST_F(SemanticsTest, DeadlineEndsTheCallAtTheServer) {
    auto& client = connect();
    const auto before = client.unary("/test.T/Sleep", "x", {{"grpc-timeout", "300m"}});
    const auto after = client.unary("/test.T/Live", "x", {{"grpc-timeout", "300m"}});
    settle();
    advance(299ms);
    EXPECT_EQ(service.handlers, 2u);
    advance(1ms);
    EXPECT_EQ(service.handlers, 0u);
    EXPECT_EQ(client.reply(before).status(), "4");
    EXPECT_EQ(client.reply(after).status(), "4");
    ASSERT_EQ(service.cancelled.size(), 2u);
    EXPECT_EQ(service.cancelled[0].code, Code::DeadlineExceeded);
    EXPECT_EQ(count(Count::CallsExpired), 2u);
}

TEST_F(SemanticsTest, UnaryWithNoOrTwoRequestsIsUnimplemented) {
    auto& client = connect();
    const auto none = client.open(WireClient::head("/test.T/Echo"), true);
    const auto two = client.open(WireClient::head("/test.T/Numbers"));
    client.send(two, "1 1");
    client.send(two, "1 1", true);
    ASSERT_TRUE(ended(client, none));
    ASSERT_TRUE(ended(client, two));
    EXPECT_EQ(client.reply(none).status(), "12");
    EXPECT_EQ(client.reply(two).status(), "12");
    EXPECT_EQ(service.made, 0u);
}

TEST_F(SemanticsTest, MessageCutIntoSingleByteFramesWithPadding) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Echo"));
    const std::string whole = WireClient::prefixed("padded");
    for (std::size_t i = 0; i < whole.size(); ++i) {
        client.frame(WireClient::Data,
                     WireClient::kPadded,
                     stream,
                     std::string{'\3'} + whole[i] + std::string(3, '\0'));
    }
    client.halfClose(stream);
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).messages(), Strings{"padded"});
    EXPECT_EQ(count(Count::EmptyData), 0u);
}

TEST_F(SemanticsTest, RequestTrailersEndTheRequest) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Echo"));
    client.send(stream, "x");
    client.frame(WireClient::Headers,
                 WireClient::kEndHeaders | WireClient::kEnd,
                 stream,
                 WireClient::block({{"x-sum", "1"}}));
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).messages(), Strings{"x"});
}

TEST_F(SemanticsTest, TruncatedMessageIsInternal) {
    auto& client = connect();
    const auto echo = client.open(WireClient::head("/test.T/Echo"));
    client.frame(WireClient::Data, WireClient::kEnd, echo, std::string_view{"\0\0\0\0\5ab", 7});
    const auto chat = client.open(WireClient::head("/test.T/Chat"));
    client.frame(WireClient::Data, WireClient::kEnd, chat, std::string_view{"\0\0", 2});
    ASSERT_TRUE(ended(client, echo));
    ASSERT_TRUE(ended(client, chat));
    EXPECT_EQ(client.reply(echo).status(), "13");
    EXPECT_EQ(client.reply(chat).status(), "13");
    expectAlive(client);
}

TEST_F(SemanticsTest, OversizedMessageIsRefusedByItsPrefix) {
    auto& client = connect();
    const auto stream = client.open(WireClient::head("/test.T/Chat"));
    client.frame(WireClient::Data, 0, stream, std::string_view{"\0\0\x40\0\1", 5});
    ASSERT_TRUE(ended(client, stream));
    EXPECT_EQ(client.reply(stream).status(), "8");
    ASSERT_TRUE(until([&] { return client.reply(stream).reset.has_value(); }));
    EXPECT_EQ(*client.reply(stream).reset, 0u);
    EXPECT_EQ(service.handlers, 0u);
    expectAlive(client);
}

TEST_F(SemanticsTest, EarlyEndSendsTrailersThenResetAndFreesTheStream) {
    auto& client = connect();
    std::vector<std::uint32_t> streams;
    for (int i = 0; i < 300; ++i) {  // three times the limit: a leaked stream would show
        const auto stream = client.open(WireClient::head("/test.T/Early"));
        client.send(stream, "x");
        ASSERT_TRUE(ended(client, stream)) << i;
        ASSERT_TRUE(until([&] { return client.reply(stream).reset.has_value(); }));
        EXPECT_EQ(client.reply(stream).status(), "3");
        EXPECT_EQ(*client.reply(stream).reset, 0u);
        client.frame(WireClient::Data, 0, stream, "late");  // was on its way
    }
    EXPECT_EQ(service.handlers, 0u);
    expectAlive(client);
    EXPECT_TRUE(client.goaways().empty());
}

TEST_F(SemanticsTest, LostConnectionCancelsItsCalls) {
    auto& client = connect();
    client.unary("/test.T/Live", "go");
    client.unary("/test.T/Sleep", "go");
    ASSERT_TRUE(until([&] { return service.handlers == 2; }));
    clients.clear();
    ASSERT_TRUE(until([&] { return service.handlers == 0; }));
    ASSERT_EQ(service.cancelled.size(), 2u);
    EXPECT_EQ(service.cancelled[0].code, Code::Cancelled);
    EXPECT_EQ(count(Count::CallsCancelled), 2u);
    EXPECT_TRUE(server->status().connections.empty());
}

}  // namespace
}  // namespace Gale::Wire
