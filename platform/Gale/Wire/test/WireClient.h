#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Gale/Wire/Metadata.h"

struct nghttp2_hd_inflater;

namespace Gale::Wire {

/// A client that writes its HTTP/2 frames by hand, so that it can break every rule. Non-blocking:
/// pump() sends what waits and takes what came; SETTINGS and PING are acknowledged.
class WireClient {
public:
    enum Type : std::uint8_t {
        Data,
        Headers,
        Priority,
        Reset,
        Settings,
        Push,
        Ping,
        Goaway,
        Window,
        Continuation
    };
    static constexpr std::uint8_t kEnd = 1, kAck = 1, kEndHeaders = 4, kPadded = 8;
    using Setting = std::pair<std::uint16_t, std::uint32_t>;

    struct Reply {
        Metadata headers;   ///< first HEADERS frame
        Metadata trailers;  ///< of the frame that ended the stream (with Trailers-Only: the same)
        std::string data;
        std::size_t dataFrames = 0;
        bool ended = false;
        std::optional<std::uint32_t> reset;

        std::string header(std::string_view name) const;
        std::string trailer(std::string_view name) const;
        std::string status() const { return trailer("grpc-status"); }
        /// The whole messages so far.
        std::vector<std::string> messages() const;
    };
    struct GoawayFrame {
        std::uint32_t lastStream;
        std::uint32_t code;
        std::string text;
    };

    /// Connects. With settings: sends the preface, those settings, and a big connection window.
    explicit WireClient(std::uint16_t port, bool hello = true, std::vector<Setting> settings = {});
    WireClient(const WireClient&) = delete;
    WireClient& operator=(const WireClient&) = delete;
    ~WireClient();

    void raw(std::string_view bytes) { out_ += bytes; }
    void frame(std::uint8_t type,
               std::uint8_t flags,
               std::uint32_t stream,
               std::string_view payload);
    void settings(const std::vector<Setting>& settings);
    void window(std::uint32_t stream, std::uint32_t by);
    void reset(std::uint32_t stream, std::uint32_t code = 8);
    void ping() { frame(Ping, 0, 0, "12345678"); }

    /// Literal header block without any indexing.
    static std::string block(const Metadata& fields);
    static std::string prefixed(std::string_view message);
    /// The fields of a good request; later ones of `extra` replace those of the same name, an empty
    /// value removes.
    static Metadata head(std::string_view path, const Metadata& extra = {});

    std::uint32_t open(const Metadata& head, bool end = false);
    void send(std::uint32_t stream, std::string_view message, bool end = false);
    void halfClose(std::uint32_t stream) { frame(Data, kEnd, stream, ""); }
    /// open + send + half-close.
    std::uint32_t unary(std::string_view path,
                        std::string_view message,
                        const Metadata& extra = {});

    /// False when the server has closed the connection.
    bool pump();
    void stopReading() { reading_ = false; }
    void startReading() { reading_ = true; }

    Reply& reply(std::uint32_t stream) { return replies_[stream]; }
    const std::vector<GoawayFrame>& goaways() const { return goaways_; }
    bool closed() const { return closed_; }
    std::size_t pongs = 0;
    std::size_t pings = 0;
    bool answerPings = true;

private:
    void parse();
    void take(std::uint8_t type,
              std::uint8_t flags,
              std::uint32_t stream,
              std::string_view payload);
    Metadata inflate(std::string_view block);

    int socket_;
    std::string out_;
    std::string in_;
    std::uint32_t nextStream_ = 1;
    std::map<std::uint32_t, Reply> replies_;
    std::vector<GoawayFrame> goaways_;
    nghttp2_hd_inflater* inflater_ = nullptr;
    bool reading_ = true;
    bool closed_ = false;
};

}  // namespace Gale::Wire
