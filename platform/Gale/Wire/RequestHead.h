#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Gale/Wire/Metadata.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

/// Collects the header fields of one request and judges them. Fields have passed nghttp2's own
/// checks (lower case, order, allowed characters); this adds gRPC's rules. Pure.
class RequestHead {
public:
    struct Refusal {
        int httpStatus;
        Status status;
    };

    /// `limit`: bytes of all fields together, each counted as name + value + 32.
    explicit RequestHead(std::size_t limit) : room_{limit} {}

    /// Answers false when the limit is passed; nothing is kept from then on. The sizes are counted
    /// before anything is copied, since a few bytes on the wire can refer to one field often.
    bool add(std::string_view name, std::string_view value);
    /// Only counts: for the fields of request trailers, which nobody reads.
    bool count(std::string_view name, std::string_view value);
    /// After the last field: why the request cannot be served, or nothing.
    std::optional<Refusal> check() const;

    std::string_view path() const { return path_; }
    /// What the answer says: the client's own "application/grpc" or "application/grpc+proto".
    std::string_view replyContentType() const;
    std::optional<Kiln::Duration> timeout() const { return timeout_; }
    const Metadata& metadata() const { return metadata_; }
    bool teMissing() const { return !te_; }

private:
    void addOwn(std::string_view name, std::string_view value);
    void addMetadata(std::string_view name, std::string_view value);
    void addBinary(std::string_view name, std::string_view value);
    std::optional<Refusal> checkContentType() const;

    std::size_t room_;
    std::string method_;
    std::string path_;
    std::string contentType_;
    std::string encoding_;
    std::optional<Kiln::Duration> timeout_;
    Metadata metadata_;
    unsigned authorities_ = 0;
    unsigned hosts_ = 0;
    bool te_ = false;
    bool badTimeout_ = false;
    bool badBinary_ = false;
};

}  // namespace Gale::Wire
