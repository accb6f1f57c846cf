#include "platform/Gale/Wire/test/WireClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <nghttp2/nghttp2.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {
namespace {

std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    while (bytes-- > 0) { text += static_cast<char>((value >> (8 * bytes)) & 0xFFU); }
    return text;
}

std::uint32_t readNumber(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes) { value = (value << 8U) | static_cast<unsigned char>(c); }
    return value;
}

/// HPACK integer with a 7-bit prefix, then the octets.
std::string hpackString(std::string_view text) {
    std::string out;
    std::size_t rest = text.size();
    if (rest < 127) { return static_cast<char>(rest) + std::string{text}; }
    out += static_cast<char>(127);
    for (rest -= 127; rest >= 128; rest >>= 7U) { out += static_cast<char>((rest & 127U) | 128U); }
    out += static_cast<char>(rest);
    return out.append(text);
}

std::string find(const Metadata& fields, std::string_view name) {
    const auto it =
        std::find_if(fields.begin(), fields.end(), [&](const auto& f) { return f.name == name; });
    return it == fields.end() ? "" : it->value;
}

}  // namespace

std::string WireClient::Reply::header(std::string_view name) const {
    return find(headers, name);
}
std::string WireClient::Reply::trailer(std::string_view name) const {
    return find(trailers, name);
}

std::vector<std::string> WireClient::Reply::messages() const {
    std::vector<std::string> messages;
    std::string_view rest = data;
    while (rest.size() >= kPrefixBytes) {
        const std::size_t size = readNumber(rest.substr(1, 4));
        if (rest.size() < kPrefixBytes + size) { break; }
        messages.emplace_back(rest.substr(kPrefixBytes, size));
        rest.remove_prefix(kPrefixBytes + size);
    }
    return messages;
}

WireClient::WireClient(std::uint16_t port, bool hello, std::vector<Setting> wanted) {
    nghttp2_hd_inflate_new(&inflater_);
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;  // or small frames would wait for the server's delayed acknowledgement
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    closed_ = ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0;
    if (hello) {
        raw("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n");
        settings(wanted);
        window(0, 0x7FFFFFFF - 65535);
    }
}

WireClient::~WireClient() {
    ::close(socket_);
    nghttp2_hd_inflate_del(inflater_);
}

void WireClient::frame(std::uint8_t type,
                       std::uint8_t flags,
                       std::uint32_t stream,
                       std::string_view payload) {
    raw(number(payload.size(), 3) + number(type, 1) + number(flags, 1) + number(stream, 4));
    raw(payload);
}

void WireClient::settings(const std::vector<Setting>& settings) {
    std::string payload;
    for (const auto& [id, value] : settings) { payload += number(id, 2) + number(value, 4); }
    frame(Settings, 0, 0, payload);
}

void WireClient::window(std::uint32_t stream, std::uint32_t by) {
    frame(Window, 0, stream, number(by, 4));
}

void WireClient::reset(std::uint32_t stream, std::uint32_t code) {
    frame(Reset, 0, stream, number(code, 4));
}

std::string WireClient::block(const Metadata& fields) {
    std::string out;
    for (const MetadataEntry& field : fields) {
        out += '\0' + hpackString(field.name) + hpackString(field.value);
    }
    return out;
}

std::string WireClient::prefixed(std::string_view message) {
    return number(message.size(), 5).append(message);
}

Metadata WireClient::head(std::string_view path, const Metadata& extra) {
    Metadata fields{{":method", "POST"},
                    {":scheme", "http"},
                    {":path", std::string{path}},
                    {":authority", "localhost"},
                    {"te", "trailers"},
                    {"content-type", "application/grpc"}};
    for (const MetadataEntry& entry : extra) {
        const auto it = std::find_if(
            fields.begin(), fields.end(), [&](const auto& f) { return f.name == entry.name; });
        if (it == fields.end()) {
            fields.push_back(entry);
        } else if (entry.value.empty()) {
            fields.erase(it);
        } else {
            it->value = entry.value;
        }
    }
    return fields;
}

std::uint32_t WireClient::open(const Metadata& head, bool end) {
    const std::uint32_t stream = std::exchange(nextStream_, nextStream_ + 2);
    frame(Headers, static_cast<std::uint8_t>(kEndHeaders | (end ? kEnd : 0)), stream, block(head));
    return stream;
}

void WireClient::send(std::uint32_t stream, std::string_view message, bool end) {
    const std::string whole = prefixed(message);
    for (std::string_view rest = whole; !rest.empty();) {
        const std::string_view piece = rest.substr(0, 16384);
        rest.remove_prefix(piece.size());
        frame(Data, end && rest.empty() ? kEnd : std::uint8_t{0}, stream, piece);
    }
}

std::uint32_t WireClient::unary(std::string_view path,
                                std::string_view message,
                                const Metadata& extra) {
    const std::uint32_t stream = open(head(path, extra));
    send(stream, message, true);
    return stream;
}

bool WireClient::pump() {
    if (closed_) { return false; }
    if (!out_.empty()) {
        const ssize_t n = ::send(socket_, out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) { out_.erase(0, static_cast<std::size_t>(n)); }
    }
    std::array<char, 65536> buffer{};
    while (reading_) {
        const ssize_t n = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (n < 0 && errno == EAGAIN) { break; }
        if (n <= 0) {
            closed_ = true;
            break;
        }
        in_.append(buffer.data(), static_cast<std::size_t>(n));
    }
    parse();
    return !closed_;
}

void WireClient::parse() {
    std::string_view rest = in_;
    while (rest.size() >= 9) {
        const std::size_t size = readNumber(rest.substr(0, 3));
        if (rest.size() < 9 + size) { break; }
        take(static_cast<std::uint8_t>(rest[3]),
             static_cast<std::uint8_t>(rest[4]),
             readNumber(rest.substr(5, 4)),
             rest.substr(9, size));
        rest.remove_prefix(9 + size);
    }
    in_.erase(0, in_.size() - rest.size());
}

void WireClient::take(std::uint8_t type,
                      std::uint8_t flags,
                      std::uint32_t stream,
                      std::string_view payload) {
    const bool end = (flags & kEnd) != 0;
    switch (type) {
        case Data:
            replies_[stream].data += payload;
            ++replies_[stream].dataFrames;
            break;
        case Headers: {
            Metadata fields = inflate(payload);
            Reply& reply = replies_[stream];
            if (reply.headers.empty()) { reply.headers = fields; }
            if (end) {
                reply.trailers = std::move(fields);
                reply.ended = true;
            }
            break;
        }
        case Reset:
            replies_[stream].reset = readNumber(payload);
            break;
        case Settings:
            if ((flags & kAck) == 0) { frame(Settings, kAck, 0, ""); }
            break;
        case Ping:
            ++((flags & kAck) != 0 ? pongs : pings);
            if ((flags & kAck) == 0 && answerPings) { frame(Ping, kAck, 0, payload); }
            break;
        case Goaway:
            goaways_.push_back({readNumber(payload.substr(0, 4)),
                                readNumber(payload.substr(4, 4)),
                                std::string{payload.substr(8)}});
            break;
        default:
            break;
    }
}

Metadata WireClient::inflate(std::string_view block) {
    Metadata fields;
    const auto* in = reinterpret_cast<const std::uint8_t*>(block.data());
    std::size_t left = block.size();
    for (;;) {
        nghttp2_nv nv{};
        int flags = 0;
        const ssize_t n = nghttp2_hd_inflate_hd2(inflater_, &nv, &flags, in, left, 1);
        if (n < 0) { return fields; }
        in += n;
        left -= static_cast<std::size_t>(n);
        if ((flags & NGHTTP2_HD_INFLATE_EMIT) != 0) {
            fields.push_back({{reinterpret_cast<char*>(nv.name), nv.namelen},
                              {reinterpret_cast<char*>(nv.value), nv.valuelen}});
        }
        if ((flags & NGHTTP2_HD_INFLATE_FINAL) != 0) {
            nghttp2_hd_inflate_end_headers(inflater_);
            return fields;
        }
    }
}

}  // namespace Gale::Wire
