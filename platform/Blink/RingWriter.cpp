#include "platform/Blink/RingWriter.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace Blink {
namespace {

std::uint32_t threadId() {
    thread_local const auto id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    return id;
}

std::int64_t wallNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

template <class T>
void storeRelease(T& target, T value) {
    std::atomic_ref<T>{target}.store(value, std::memory_order_release);
}

// Site ids carry the file's number above this many bits, so that a site registered in an earlier
// file registers again in the next one.
constexpr unsigned kSiteBits = 20;
constexpr std::uint32_t kFileNumbers = (1U << (32 - kSiteBits)) - 1;
std::atomic<std::uint32_t> fileNumber{0};

}  // namespace

namespace Detail {
constinit std::atomic<RingWriter*> currentRing{nullptr};
}

std::unique_ptr<RingWriter> RingWriter::create(const std::filesystem::path& path,
                                               unsigned ringBytesLog2,
                                               unsigned slotBytes,
                                               std::string& error) {
    const std::uint64_t slotsOffset = 4096 + Layout::kSiteTableBytes;
    const std::uint64_t slotCount = (std::uint64_t{1} << ringBytesLog2) / slotBytes;
    const std::uint64_t size = slotsOffset + slotCount * slotBytes;
    ::unlink(path.c_str());  // an older run's readers keep their file
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    if (fd < 0) {
        error = "cannot create trace file " + path.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    ::flock(fd, LOCK_EX | LOCK_NB);  // says that it is being written, wherever one looks from
    // Reserved, not only sized: on a full file system the first store into a hole would be a
    // SIGBUS.
    void* mapped = MAP_FAILED;
    int failure = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
    if (failure == 0) {
        mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        failure = errno;
    }
    if (mapped == MAP_FAILED) {
        ::close(fd);
        ::unlink(path.c_str());
        error = "cannot map trace file " + path.string() + ": " + std::strerror(failure);
        return nullptr;
    }
    std::unique_ptr<RingWriter> writer{new RingWriter};
    writer->fd_ = fd;
    writer->base_ = static_cast<std::byte*>(mapped);
    writer->size_ = size;
    writer->slotCount_ = slotCount;
    writer->slotBytes_ = slotBytes;
    writer->epoch_ = (fileNumber.fetch_add(1) % kFileNumbers + 1) << kSiteBits;
    writer->header_ = new (mapped) Layout::Header{Layout::kMagic,
                                                  Layout::kVersion,
                                                  slotBytes,
                                                  slotCount,
                                                  4096,
                                                  Layout::kSiteTableBytes,
                                                  slotsOffset,
                                                  static_cast<std::uint64_t>(::getpid()),
                                                  0,
                                                  0};
    return writer;
}

RingWriter::~RingWriter() {
    if (base_ != nullptr) { ::munmap(base_, size_); }
    if (fd_ >= 0) { ::close(fd_); }
}

std::uint64_t RingWriter::nextMessage() const {
    return std::atomic_ref<std::uint64_t>{header_->nextMessage}.load(std::memory_order_acquire);
}

std::uint32_t RingWriter::siteId(CallSite& site, const Handle& handle) {
    const std::lock_guard lock{siteMutex_};
    const std::uint32_t known = site.id.load(std::memory_order_relaxed);
    if ((known >> kSiteBits) == (epoch_ >> kSiteBits)) { return known; }
    const std::size_t handleBytes = handle.name().size();
    const std::size_t functionBytes = std::strlen(site.function);
    const std::size_t fileBytes = std::strlen(site.file);
    const std::size_t formatBytes = std::strlen(site.format);
    const std::size_t total =
        sizeof(Layout::Site) + handleBytes + functionBytes + fileBytes + formatBytes;
    const std::uint64_t used = header_->siteBytesUsed;
    const bool fits = used + total <= Layout::kSiteTableBytes && sites_ + 1 < (1U << kSiteBits);
    const std::uint32_t id = fits ? epoch_ | ++sites_ : epoch_;  // number 0: a site without a text
    if (fits) {
        std::byte* at = base_ + header_->siteTableOffset + used;
        const Layout::Site entry{id & ((1U << kSiteBits) - 1),
                                 site.line,
                                 static_cast<std::uint16_t>(site.level),
                                 static_cast<std::uint16_t>(handleBytes),
                                 static_cast<std::uint16_t>(functionBytes),
                                 static_cast<std::uint16_t>(fileBytes),
                                 static_cast<std::uint32_t>(formatBytes)};
        const auto append = [&at](const void* from, std::size_t count) {
            std::memcpy(at, from, count);
            at += count;
        };
        append(&entry, sizeof entry);
        append(handle.name().data(), handleBytes);
        append(site.function, functionBytes);
        append(site.file, fileBytes);
        append(site.format, formatBytes);
        storeRelease(header_->siteBytesUsed, used + total);
    }
    site.id.store(id, std::memory_order_release);
    return id;
}

void RingWriter::write(CallSite& site, const Handle& handle, const Arguments& arguments) {
    std::uint32_t id = site.id.load(std::memory_order_acquire);
    if ((id >> kSiteBits) != (epoch_ >> kSiteBits)) { id = siteId(site, handle); }
    const std::uint64_t number = std::atomic_ref<std::uint64_t>{header_->nextMessage}.fetch_add(
        1, std::memory_order_relaxed);
    std::byte* const at = base_ + header_->slotsOffset + (number % slotCount_) * slotBytes_;
    auto* const slot = reinterpret_cast<Layout::Slot*>(at);
    const std::size_t room = slotBytes_ - sizeof(Layout::Slot);
    const std::size_t length = arguments.size() < room ? arguments.size() : room;
    std::atomic_ref<std::uint64_t> sequence{slot->sequence};
    std::uint64_t before = sequence.load(std::memory_order_relaxed);
    if (before % 2 != 0 || before > 2 * number ||
        !sequence.compare_exchange_strong(before, 2 * number + 1, std::memory_order_acquire)) {
        return;  // another thread is inside, a whole ring behind or ahead of this one
    }
#if !defined(__SANITIZE_THREAD__)  // which knows no fences and needs none here
    std::atomic_thread_fence(std::memory_order_release);
#endif
    slot->wallNanoseconds = wallNow();
    slot->site = id & ((1U << kSiteBits) - 1);
    slot->thread = threadId();
    slot->argumentBytes = static_cast<std::uint32_t>(length);
    std::memcpy(at + sizeof(Layout::Slot), arguments.data(), length);
    storeRelease(slot->sequence, 2 * number + 2);
}

}  // namespace Blink
