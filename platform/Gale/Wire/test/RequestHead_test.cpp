#include "platform/Gale/Wire/RequestHead.h"

#include <gtest/gtest.h>

#include <chrono>

namespace Gale::Wire {
namespace {

/// A good head with changes: the same name replaces, an empty value removes, a new name is added.
RequestHead headWith(const Metadata& changes) {
    Metadata fields{{":method", "POST"},
                    {":scheme", "http"},
                    {":path", "/gnmi.gNMI/Get"},
                    {":authority", "router"},
                    {"te", "trailers"},
                    {"content-type", "application/grpc"}};
    RequestHead head{16384};
    for (const MetadataEntry& field : fields) {
        const MetadataEntry* change = nullptr;
        for (const MetadataEntry& c : changes) {
            if (c.name == field.name) { change = &c; }
        }
        const std::string& value = change != nullptr ? change->value : field.value;
        if (!value.empty()) { EXPECT_TRUE(head.add(field.name, value)); }
    }
    for (const MetadataEntry& c : changes) {
        bool known = false;
        for (const MetadataEntry& field : fields) { known = known || field.name == c.name; }
        if (!known) { EXPECT_TRUE(head.add(c.name, c.value)); }
    }
    return head;
}

struct HeadCase {
    std::string_view name;
    Metadata changes;
    int httpStatus;  // 0: accepted
    Code code;
};

const HeadCase kHeadCases[] = {
    {"Good", {}, 0, Code::Ok},
    {"MethodGet", {{":method", "GET"}}, 405, Code::Internal},
    {"TeMissingIsAccepted", {{"te", ""}}, 0, Code::Ok},
    {"ContentTypeMissing", {{"content-type", ""}}, 415, Code::InvalidArgument},
    {"ContentTypeProto", {{"content-type", "application/grpc+proto"}}, 0, Code::Ok},
    {"ContentTypeParameter", {{"content-type", "application/grpc;charset=x"}}, 0, Code::Ok},
    {"ContentTypeJson", {{"content-type", "application/grpc+json"}}, 415, Code::InvalidArgument},
    {"ContentTypeLonger", {{"content-type", "application/grpcfoo"}}, 415, Code::InvalidArgument},
    {"ContentTypeUpper", {{"content-type", "Application/grpc"}}, 415, Code::InvalidArgument},
    {"ContentTypeWeb", {{"content-type", "application/grpc-web"}}, 415, Code::InvalidArgument},
    {"HostOnly", {{":authority", ""}, {"host", "router"}}, 0, Code::Ok},
    {"HostDiffersIsDropped", {{"host", "other"}}, 0, Code::Ok},
    {"TimeoutGood", {{"grpc-timeout", "300m"}}, 0, Code::Ok},
    {"TimeoutMalformed", {{"grpc-timeout", "300"}}, 400, Code::Internal},
    {"TimeoutZero", {{"grpc-timeout", "0S"}}, 200, Code::DeadlineExceeded},
    {"EncodingIdentity", {{"grpc-encoding", "identity"}}, 0, Code::Ok},
    {"EncodingGzip", {{"grpc-encoding", "gzip"}}, 200, Code::Unimplemented},
    {"AcceptEncodingIsIgnored", {{"grpc-accept-encoding", "gzip,br"}}, 0, Code::Ok},
    {"BadBase64", {{"key-bin", "!!"}}, 400, Code::Internal},
    {"NonAsciiValue", {{"key", "\xC3\xBC\xff"}}, 0, Code::Ok},
};

void PrintTo(const HeadCase& c, std::ostream* os) {
    *os << c.name;
}

class HeadRule : public testing::TestWithParam<HeadCase> {};

TEST_P(HeadRule, Holds) {
    const HeadCase& c = GetParam();
    const auto refusal = headWith(c.changes).check();
    EXPECT_EQ(refusal ? refusal->httpStatus : 0, c.httpStatus);
    EXPECT_EQ(refusal ? refusal->status.code : Code::Ok, c.code);
}
INSTANTIATE_TEST_SUITE_P(, HeadRule, testing::ValuesIn(kHeadCases), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(RequestHead, MoreThanOneAuthorityOrHostIsRefused) {
    RequestHead twice = headWith({});
    EXPECT_TRUE(twice.add(":authority", "b"));
    ASSERT_TRUE(twice.check());
    EXPECT_EQ(twice.check()->httpStatus, 400);
    RequestHead hosts = headWith({{":authority", ""}, {"host", "a"}});
    EXPECT_TRUE(hosts.add("host", "b"));
    EXPECT_TRUE(hosts.check());
}

TEST(RequestHead, MetadataIsWhatIsNotReserved) {
    const RequestHead head = headWith({{"user-agent", "me"},
                                       {"grpc-message-type", "x"},
                                       {"username", "admin"},
                                       {"trace-bin", "q6ur,Zg==, Zm8"},
                                       {"host", "h"}});
    const Metadata want{{"username", "admin"},
                        {"trace-bin", "\xab\xab\xab"},
                        {"trace-bin", "f"},
                        {"trace-bin", "fo"}};
    EXPECT_EQ(head.metadata(), want);
}

TEST(RequestHead, KeepsPathTimeoutAndContentType) {
    const RequestHead head =
        headWith({{"grpc-timeout", "2S"}, {"content-type", "application/grpc+proto;a=b"}});
    EXPECT_EQ(head.path(), "/gnmi.gNMI/Get");
    EXPECT_EQ(head.timeout(), std::chrono::seconds(2));
    EXPECT_EQ(head.replyContentType(), "application/grpc+proto");
    EXPECT_EQ(headWith({}).replyContentType(), "application/grpc");
}

TEST(RequestHead, CountsNameValueAnd32AgainstTheLimit) {
    RequestHead head{100};
    EXPECT_TRUE(head.add("abc", "12345"));                // 40
    EXPECT_TRUE(head.count("ab", std::string(26, 'x')));  // 60: exactly full
    EXPECT_FALSE(head.add("", ""));
    EXPECT_EQ(head.metadata().size(), 1u);
}

}  // namespace
}  // namespace Gale::Wire
