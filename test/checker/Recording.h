#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace Checker {

/// How the call of a recorded stream ended: a canonical gRPC code and its text. A client that ends its call itself
/// records 1, CANCELLED.
struct StreamEnd {
    std::uint32_t code = 0;
    std::string text;
};

/// A file with what one Subscribe call answered, message by message:
///
///     file     "GNMIREC1"  record*  end
///     record   received:u64  size:u32  bytes[size]               bytes: one SubscribeResponse
///     end      received:u64  0xFFFFFFFF:u32  code:u32  size:u32  text[size]
///
/// Numbers are little endian, `received` is in ns since the Unix epoch. Without its end a file was cut short.
struct RecordingFormat {
    static constexpr std::string_view kMagic = "GNMIREC1";
    static constexpr std::uint32_t kEnd = 0xFFFF'FFFF;
    static constexpr std::uint32_t kMaxMessage = 64U << 20U;  ///< bytes; more is no message
};

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

class RecordWriter {
public:
    /// Creates or truncates the file. Empty, or what went wrong.
    std::string open(const std::filesystem::path& path);
    bool isOpen() const { return file_ != nullptr; }
    void message(std::int64_t received, std::string_view bytes);
    /// Writes the end and closes. Empty, or what went wrong since open().
    std::string end(std::int64_t received, const StreamEnd& end);

private:
    std::string path_;
    File file_;
};

class RecordReader {
public:
    enum class Next { message, end, broken };

    /// Empty, or why this is no recording.
    std::string open(const std::filesystem::path& path);
    /// Steps to the next record.
    Next next();

    std::uint64_t number() const { return number_; }  ///< of the message, from 1
    std::int64_t received() const { return received_; }
    std::string_view message() const { return bytes_; }  ///< until the next next()
    const StreamEnd& end() const { return end_; }
    const std::string& error() const { return error_; }  ///< after `broken`

private:
    Next broken(const std::string& what);
    bool read(void* to, std::size_t size);

    File file_;
    std::string path_;
    std::uint64_t offset_ = 0;
    std::uint64_t number_ = 0;
    std::int64_t received_ = 0;
    std::string bytes_;
    StreamEnd end_;
    std::string error_;
};

}  // namespace Checker
