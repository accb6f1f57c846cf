#include "platform/Gale/Wire/test/WireTest.h"

namespace Gale::Wire {
namespace {

/// What a malformed request head gets from the whole stack: a status, or a stream reset.
struct WireHeadCase {
    std::string_view name;
    Metadata changes;
    std::string_view httpStatus;  // empty: reset with PROTOCOL_ERROR
    std::string_view grpcStatus;
};

const WireHeadCase kWireHeadCases[] = {
    {"MethodGet", {{":method", "GET"}}, "405", "13"},
    {"MethodMissing", {{":method", ""}}, "", ""},
    {"SchemeMissing", {{":scheme", ""}}, "", ""},
    {"PathMissing", {{":path", ""}}, "", ""},
    {"PathWithoutSlash", {{":path", "test.T/Echo"}}, "", ""},
    {"PathWithoutMethod", {{":path", "/test.T"}}, "200", "12"},
    {"AuthorityAndHostMissing", {{":authority", ""}}, "", ""},
    {"HostInsteadOfAuthority", {{":authority", ""}, {"host", "x"}}, "200", "0"},
    {"HostDiffers", {{"host", "other"}}, "200", "0"},
    {"TeOther", {{"te", "gzip"}}, "", ""},
    {"TeMissing", {{"te", ""}}, "200", "0"},
    {"ContentTypeOther", {{"content-type", "text/html"}}, "415", "3"},
    {"ContentTypeJson", {{"content-type", "application/grpc+json"}}, "415", "3"},
    {"TimeoutMalformed", {{"grpc-timeout", "soon"}}, "400", "13"},
    {"TimeoutOver", {{"grpc-timeout", "0n"}}, "200", "4"},
    {"Gzip", {{"grpc-encoding", "gzip"}}, "200", "12"},
    {"BadBase64", {{"a-bin", "*"}}, "400", "13"},
    {"UpperCaseName", {{"Key", "x"}}, "", ""},
    {"ConnectionField", {{"connection", "close"}}, "", ""},
    {"PseudoAfterNormal", {{":late", "x"}}, "", ""},
    {"NonAsciiValue", {{"key", "\xC3\xBC"}}, "200", "0"},
};

void PrintTo(const WireHeadCase& c, std::ostream* os) {
    *os << c.name;
}

class WireHead : public WireTest, public testing::WithParamInterface<WireHeadCase> {};

TEST_P(WireHead, IsAnsweredAndLeavesTheConnectionUsable) {
    const WireHeadCase& c = GetParam();
    auto& client = connect();
    const auto stream = client.unary("/test.T/Echo", "x", c.changes);
    auto& reply = client.reply(stream);
    ASSERT_TRUE(until([&] { return reply.ended || reply.reset.has_value(); }));
    if (c.httpStatus.empty()) {
        EXPECT_FALSE(reply.ended);
        EXPECT_EQ(reply.reset, 1u);
    } else {
        EXPECT_EQ(reply.header(":status"), c.httpStatus);
        EXPECT_EQ(reply.status(), c.grpcStatus);
        EXPECT_EQ(reply.header("grpc-accept-encoding"), "identity");
    }
    expectAlive(client);
    EXPECT_TRUE(client.goaways().empty());
}
INSTANTIATE_TEST_SUITE_P(, WireHead, testing::ValuesIn(kWireHeadCases), [](const auto& row) {
    return std::string{row.param.name};
});

class WireHeadCount : public WireTest {};

TEST_F(WireHeadCount, MissingTeIsCounted) {
    auto& client = connect();
    ASSERT_TRUE(ended(client, client.unary("/test.T/Echo", "x", {{"te", ""}})));
    EXPECT_EQ(count(Count::MissingTe), 1u);
}

}  // namespace
}  // namespace Gale::Wire
