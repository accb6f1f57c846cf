#include "test/checker/Recording.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace Checker {
namespace {

static_assert(std::endian::native == std::endian::little);

std::string problem(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

template <class Number>
void write(std::FILE* file, Number number) {
    std::fwrite(&number, sizeof number, 1, file);
}

}  // namespace

std::string RecordWriter::open(const std::filesystem::path& path) {
    path_ = path.string();
    file_.reset(std::fopen(path_.c_str(), "wb"));
    if (file_ == nullptr) { return problem(path_); }
    std::setvbuf(file_.get(), nullptr, _IOFBF, std::size_t{1} << 18U);
    std::fwrite(RecordingFormat::kMagic.data(), 1, RecordingFormat::kMagic.size(), file_.get());
    return {};
}

void RecordWriter::message(std::int64_t received, std::string_view bytes) {
    write(file_.get(), received);
    write(file_.get(), static_cast<std::uint32_t>(bytes.size()));
    std::fwrite(bytes.data(), 1, bytes.size(), file_.get());
}

std::string RecordWriter::end(std::int64_t received, const StreamEnd& end) {
    write(file_.get(), received);
    write(file_.get(), RecordingFormat::kEnd);
    write(file_.get(), end.code);
    write(file_.get(), static_cast<std::uint32_t>(end.text.size()));
    std::fwrite(end.text.data(), 1, end.text.size(), file_.get());
    const bool whole = std::fflush(file_.get()) == 0 && std::ferror(file_.get()) == 0;
    std::string result = whole ? std::string{} : problem(path_);
    file_.reset();
    return result;
}

std::string RecordReader::open(const std::filesystem::path& path) {
    path_ = path.string();
    file_.reset(std::fopen(path_.c_str(), "rb"));
    if (file_ == nullptr) { return problem(path_); }
    std::array<char, RecordingFormat::kMagic.size()> magic{};
    if (!read(magic.data(), magic.size()) ||
        std::string_view{magic.data(), magic.size()} != RecordingFormat::kMagic) {
        return path_ + ": no recording (it does not begin with " +
               std::string{RecordingFormat::kMagic} + ")";
    }
    return {};
}

bool RecordReader::read(void* to, std::size_t size) {
    const std::size_t got = std::fread(to, 1, size, file_.get());
    offset_ += got;
    return got == size;
}

RecordReader::Next RecordReader::broken(const std::string& what) {
    error_ = fmt::format("{}: {}, at byte {} after message {}", path_, what, offset_, number_);
    return Next::broken;
}

RecordReader::Next RecordReader::next() {
    std::uint32_t size = 0;
    if (!read(&received_, sizeof received_) || !read(&size, sizeof size)) {
        return broken("cut short: it has no end record");
    }
    if (size == RecordingFormat::kEnd) {
        if (!read(&end_.code, sizeof end_.code) || !read(&size, sizeof size) ||
            size > RecordingFormat::kMaxMessage) {
            return broken("its end record makes no sense");
        }
        end_.text.resize(size);
        if (!read(end_.text.data(), size)) { return broken("its end record is cut short"); }
        return std::fgetc(file_.get()) == EOF ? Next::end : broken("goes on after its end record");
    }
    if (size > RecordingFormat::kMaxMessage) {
        return broken(fmt::format("a message of {} bytes makes no sense", size));
    }
    bytes_.resize(size);
    if (!read(bytes_.data(), size)) { return broken("cut short in the middle of a message"); }
    ++number_;
    return Next::message;
}

}  // namespace Checker
