#include "platform/Gale/Wire/RequestHead.h"

#include <algorithm>
#include <utility>

#include "platform/Gale/Wire/Codec.h"

namespace Gale::Wire {
namespace {

constexpr std::size_t kFieldOverhead = 32;
constexpr std::string_view kGrpc = "application/grpc";

}  // namespace

bool RequestHead::count(std::string_view name, std::string_view value) {
    const std::size_t cost = name.size() + value.size() + kFieldOverhead;
    const bool fits = cost <= room_;
    room_ = fits ? room_ - cost : 0;
    return fits;
}

bool RequestHead::add(std::string_view name, std::string_view value) {
    if (!count(name, value)) { return false; }
    addOwn(name, value);
    return true;
}

void RequestHead::addOwn(std::string_view name, std::string_view value) {
    if (name == ":method") {
        method_ = value;
    } else if (name == ":path") {
        path_ = value;
    } else if (name == ":authority") {
        ++authorities_;
    } else if (name == "host") {
        ++hosts_;
    } else if (name == "content-type") {
        contentType_ = value;
    } else if (name == "te") {
        te_ = true;
    } else if (name == "grpc-timeout") {
        timeout_ = parseTimeout(value);
        badTimeout_ = badTimeout_ || !timeout_;
    } else if (name == "grpc-encoding") {
        encoding_ = value;
    } else if (!name.starts_with(":") && !name.starts_with("grpc-") && name != "user-agent") {
        addMetadata(name, value);
    }
}

void RequestHead::addMetadata(std::string_view name, std::string_view value) {
    if (name.ends_with("-bin")) {
        addBinary(name, value);
    } else {
        metadata_.push_back({std::string{name}, std::string{value}});
    }
}

void RequestHead::addBinary(std::string_view name, std::string_view value) {
    // Intermediaries may join values of one name with commas.
    for (std::size_t begin = 0; begin <= value.size();) {
        const std::size_t end = std::min(value.find(',', begin), value.size());
        std::string_view part = value.substr(begin, end - begin);
        while (part.starts_with(' ')) { part.remove_prefix(1); }
        while (part.ends_with(' ')) { part.remove_suffix(1); }
        auto bytes = base64Decode(part);
        if (bytes) {
            metadata_.push_back({std::string{name}, std::move(*bytes)});
        } else {
            badBinary_ = true;
        }
        begin = end + 1;
    }
}

std::optional<RequestHead::Refusal> RequestHead::checkContentType() const {
    std::string_view rest = contentType_;
    if (rest.starts_with(kGrpc)) {
        rest.remove_prefix(kGrpc.size());
        if (rest.starts_with("+proto")) { rest.remove_prefix(6); }
        if (rest.empty() || rest.front() == ';') { return std::nullopt; }
    }
    return Refusal{415, {Code::InvalidArgument, "invalid gRPC request content-type"}};
}

std::optional<RequestHead::Refusal> RequestHead::check() const {
    if (method_ != "POST") { return Refusal{405, {Code::Internal, "the method must be POST"}}; }
    if (authorities_ > 1 || (authorities_ == 0 && hosts_ > 1)) {
        return Refusal{400, {Code::Internal, "more than one authority"}};
    }
    if (auto refusal = checkContentType()) { return refusal; }
    if (badTimeout_) { return Refusal{400, {Code::Internal, "malformed grpc-timeout"}}; }
    if (badBinary_) { return Refusal{400, {Code::Internal, "malformed binary metadata"}}; }
    if (!encoding_.empty() && encoding_ != "identity") {
        return Refusal{200, {Code::Unimplemented, "message compression is not supported"}};
    }
    if (timeout_ && *timeout_ <= Kiln::Duration::zero()) {
        return Refusal{200, {Code::DeadlineExceeded, "deadline was over on arrival"}};
    }
    return std::nullopt;
}

std::string_view RequestHead::replyContentType() const {
    return contentType_.starts_with("application/grpc+proto") ? "application/grpc+proto" : kGrpc;
}

}  // namespace Gale::Wire
