#pragma once

#include <cstdint>
#include <string>

namespace Gale::Wire {

/// The status codes of gRPC; the numbers travel.
enum class Code : std::uint8_t {
    Ok = 0,
    Cancelled = 1,
    Unknown = 2,
    InvalidArgument = 3,
    DeadlineExceeded = 4,
    NotFound = 5,
    AlreadyExists = 6,
    PermissionDenied = 7,
    ResourceExhausted = 8,
    FailedPrecondition = 9,
    Aborted = 10,
    OutOfRange = 11,
    Unimplemented = 12,
    Internal = 13,
    Unavailable = 14,
    DataLoss = 15,
    Unauthenticated = 16,
};

/// How a call ended. The message is UTF-8 for people; at most its first 1,024 bytes travel.
struct Status {
    Code code = Code::Ok;
    std::string message = {};

    bool ok() const { return code == Code::Ok; }
};

}  // namespace Gale::Wire
