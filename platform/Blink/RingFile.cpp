#include "platform/Blink/RingFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "platform/Blink/RingWriter.h"
#include "platform/Blink/TraceFiles.h"

namespace Blink {
namespace {

struct State {
    std::filesystem::path root;
    std::unique_ptr<TraceFile> file;
    std::unique_ptr<RingWriter> writer;
    // Stay mapped: a thread that is just tracing ends its message there.
    std::vector<std::unique_ptr<RingWriter>> retired;
    bool deleteOnFork = false;
};

State& state() {
    static auto* instance = new State;  // never destroyed: static objects trace while they die
    return *instance;
}

void retireWriter() {
    RingWriter::currentIs(nullptr);
    if (state().writer == nullptr) { return; }
    state().retired.push_back(std::move(state().writer));
}

void onForkInChild() {
    if (state().deleteOnFork) { shutdown(); }
}

std::string withProcessName(std::string_view fileName) {
    const bool suffix = !fileName.empty() && (fileName[0] == '-' || fileName[0] == '.');
    return (suffix ? program_invocation_short_name : "") + std::string{fileName};
}

std::string withProcessId(std::string name) {
    const std::size_t at = name.find("%d");
    if (at != std::string::npos) { name.replace(at, 2, std::to_string(::getpid())); }
    return name;
}

constexpr std::size_t kLongestText = 1024;  // of a call site; longer ones are shown cut
constexpr std::uint64_t kMostRingBytes = 1ULL << 32;
constexpr std::uint64_t kMostSiteBytes = 1U << 24;
constexpr std::size_t kSlotsPerRead = 128;

/// The strings of one call site, as views into the copied table.
struct SiteText {
    std::string_view handle, function, file, format;
    int level = 0;
    int line = 0;
};

std::map<std::uint32_t, SiteText> readSites(const std::vector<char>& table) {
    std::map<std::uint32_t, SiteText> sites;
    std::string_view rest{table.data(), table.size()};
    while (rest.size() >= sizeof(Layout::Site)) {
        Layout::Site entry{};
        std::memcpy(&entry, rest.data(), sizeof entry);
        rest.remove_prefix(sizeof entry);
        const std::size_t bytes = std::size_t{entry.handleBytes} + entry.functionBytes +
                                  entry.fileBytes + entry.formatBytes;
        if (rest.size() < bytes) { break; }
        const auto take = [&rest](std::size_t count) {
            const std::string_view view = rest.substr(0, std::min(count, kLongestText));
            rest.remove_prefix(count);
            return view;
        };
        SiteText text;
        text.handle = take(entry.handleBytes);
        text.function = take(entry.functionBytes);
        text.file = take(entry.fileBytes);
        text.format = take(entry.formatBytes);
        text.level = entry.level;
        text.line = entry.line;
        sites.emplace(entry.id, text);
    }
    return sites;
}

/// Copies from the file; false when it does not have that many bytes (any more).
bool readAt(int fd, std::uint64_t offset, void* to, std::size_t count) {
    auto* at = static_cast<char*>(to);
    while (count > 0) {
        const ssize_t got = ::pread(fd, at, count, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) { continue; }
        if (got <= 0) { return false; }
        at += got;
        offset += static_cast<std::uint64_t>(got);
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

std::uint64_t sequenceAt(const std::vector<std::byte>& slots, std::size_t at) {
    std::uint64_t sequence = 0;
    std::memcpy(&sequence, slots.data() + at, sizeof sequence);
    return sequence;
}

Message decode(std::uint64_t number,
               const std::byte* bytes,
               std::size_t size,
               const std::map<std::uint32_t, SiteText>& sites) {
    Layout::Slot slot{};
    std::memcpy(&slot, bytes, sizeof slot);
    Message message;
    message.number = number;
    message.wallNanoseconds = slot.wallNanoseconds;
    message.thread = slot.thread;
    const auto site = sites.find(slot.site);
    if (site == sites.end()) {
        message.text = "(call site unknown)";
        return message;
    }
    const std::size_t arguments = std::min<std::size_t>(slot.argumentBytes, size - sizeof slot);
    message.level = site->second.level;
    message.line = site->second.line;
    message.handle = site->second.handle;
    message.function = site->second.function;
    message.file = site->second.file;
    message.text = formatMessage(site->second.format, bytes + sizeof slot, arguments);
    return message;
}

}  // namespace

bool TraceFile::mtTraceFileIs() {
    std::string error;
    std::error_code ignored;
    std::filesystem::create_directories(path_.parent_path(), ignored);
    pruneTraceFiles(path_.parent_path(), name_, kKept);
    auto writer = RingWriter::create(path_, ringBytesLog2_, slotBytes_, error);
    if (writer == nullptr) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    retireWriter();
    RingWriter::currentIs(writer.get());
    state().writer = std::move(writer);
    return true;
}

void rootIs(std::filesystem::path root) {
    state().root = std::move(root);
}

void handlesDeleteOnForkIs(bool deleteOnFork) {
    static const bool registered = ::pthread_atfork(nullptr, nullptr, onForkInChild) == 0;
    state().deleteOnFork = registered && deleteOnFork;
}

bool init(std::string_view fileName,
          const char* /*sizeSpec*/,
          const char* /*secondName*/,
          unsigned /*flags*/,
          unsigned ringBytesLog2,
          Threading /*threading*/,
          bool createOnDemand,
          unsigned slotBytes) {
    if (ringBytesLog2 < 16 || ringBytesLog2 > 32 || slotBytes < 64 || slotBytes > 512 ||
        slotBytes % 64 != 0) {
        return false;
    }
    auto file = std::make_unique<TraceFile>();
    file->name_ = withProcessName(fileName);
    file->path_ = traceDirectory(state().root) / withProcessId(file->name_);
    file->ringBytesLog2_ = ringBytesLog2;
    file->slotBytes_ = slotBytes;
    state().file = std::move(file);
    return createOnDemand || state().file->mtTraceFileIs();
}

TraceFile* defaultHandle() {
    return state().file.get();
}

void shutdown() {
    retireWriter();
    state().file.reset();
}

std::uint64_t nextMessageNumber() {
    const RingWriter* writer = RingWriter::current();
    return writer == nullptr ? 0 : writer->nextMessage();
}

RingReader::~RingReader() {
    if (fd_ >= 0) { ::close(fd_); }
}

std::string RingReader::open(const std::filesystem::path& path) {
    if (fd_ >= 0) { ::close(fd_); }
    // Not to wait for the writer of a pipe that bears a trace file's name.
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd_ < 0) { return path.string() + ": " + std::strerror(errno); }
    struct stat info {};
    const bool regular = ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
    const std::string problem =
        regular ? check(static_cast<std::uint64_t>(info.st_size)) : "not a trace file";
    if (problem.empty()) { return {}; }
    ::close(fd_);
    fd_ = -1;
    return path.string() + ": " + problem;
}

std::string RingReader::check(std::uint64_t fileBytes) {
    if (!readAt(fd_, 0, &header_, sizeof header_) || header_.magic != Layout::kMagic) {
        return "not a trace file";
    }
    if (header_.version != Layout::kVersion) {
        return "trace layout " + std::to_string(header_.version) + ", this reader knows " +
               std::to_string(Layout::kVersion);
    }
    const Layout::Header& h = header_;
    const bool sound = h.slotBytes >= 64 && h.slotBytes <= 512 && h.slotBytes % 8 == 0 &&
                       h.slotCount > 0 && h.slotCount <= kMostRingBytes / h.slotBytes &&
                       h.siteTableOffset <= fileBytes && h.siteTableBytes <= kMostSiteBytes &&
                       h.siteTableBytes <= fileBytes - h.siteTableOffset &&
                       h.slotsOffset <= fileBytes && h.slotsOffset % 8 == 0 &&
                       h.slotCount <= (fileBytes - h.slotsOffset) / h.slotBytes;
    return sound ? std::string{} : "trace header does not fit the file";
}

/// The numbers of the messages there are, and the call sites of all of them.
struct RingReader::Reading {
    std::uint64_t oldest = 0;
    std::uint64_t next = 0;
    std::vector<char> table;
    std::map<std::uint32_t, SiteText> sites;
};

std::optional<RingReader::Reading> RingReader::begin() const {
    Layout::Header now{};
    if (fd_ < 0 || !readAt(fd_, 0, &now, sizeof now)) { return std::nullopt; }
    Reading reading;
    reading.next = now.nextMessage;
    reading.oldest = now.nextMessage > header_.slotCount ? now.nextMessage - header_.slotCount : 0;
    // The table is read after the number of messages: it then has the sites of all of them.
    if (!readAt(fd_, 0, &now, sizeof now)) { return std::nullopt; }
    reading.table.resize(std::min(now.siteBytesUsed, header_.siteTableBytes));
    if (!readAt(fd_, header_.siteTableOffset, reading.table.data(), reading.table.size())) {
        return std::nullopt;
    }
    reading.sites = readSites(reading.table);
    return reading;
}

template <class Take>
void RingReader::slots(std::uint64_t from, const Reading& reading, Take take) const {
    // A slot is taken from the middle one of three copies; the outer two say whether it was whole
    // before and after. Each is a system call of its own, so no copy can overtake another.
    std::vector<std::byte> before(kSlotsPerRead * header_.slotBytes);
    std::vector<std::byte> copy(before.size());
    std::vector<std::byte> after(before.size());
    for (std::uint64_t number = std::max(from, reading.oldest); number < reading.next;) {
        const std::uint64_t index = number % header_.slotCount;
        const std::uint64_t count = std::min(
            {reading.next - number, header_.slotCount - index, std::uint64_t{kSlotsPerRead}});
        const std::uint64_t offset = header_.slotsOffset + index * header_.slotBytes;
        for (std::vector<std::byte>* to : {&before, &copy, &after}) {
            if (!readAt(fd_, offset, to->data(), count * header_.slotBytes)) { return; }
        }
        for (std::uint64_t i = 0; i < count; ++i, ++number) {
            const std::size_t at = i * header_.slotBytes;
            const std::uint64_t whole = 2 * number + 2;
            const std::uint64_t last = sequenceAt(after, at);
            const Slot state = last > whole ? Slot::overwritten
                               : last == whole && sequenceAt(before, at) == whole
                                   ? Slot::whole
                                   : Slot::unfinished;
            if (!take(number, state, copy.data() + at)) { return; }
        }
    }
}

std::vector<Message> RingReader::read(std::uint64_t from) const {
    std::vector<Message> messages;
    const auto reading = begin();
    if (!reading) { return messages; }
    slots(from, *reading, [&](std::uint64_t number, Slot state, const std::byte* bytes) {
        if (state == Slot::whole) {
            messages.push_back(decode(number, bytes, header_.slotBytes, reading->sites));
        }
        return true;
    });
    return messages;
}

std::vector<Message> RingReader::readOn(RingPosition& position) const {
    std::vector<Message> messages;
    const auto reading = begin();
    if (!reading) { return messages; }
    if (position.next < reading->oldest) {
        position.lost += reading->oldest - position.next;
        position.next = reading->oldest;
    }
    slots(position.next, *reading, [&](std::uint64_t number, Slot state, const std::byte* bytes) {
        if (state == Slot::unfinished && number >= position.seen) { return false; }
        if (state == Slot::whole) {
            messages.push_back(decode(number, bytes, header_.slotBytes, reading->sites));
        } else {
            ++position.lost;
        }
        position.next = number + 1;
        return true;
    });
    position.seen = reading->next;
    return messages;
}

}  // namespace Blink
