#include "platform/Store/DataFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace Store {
namespace {

/// A meta page, as data version 1 of the engine lays it out on a 64-bit machine.
struct Tree {
    std::uint32_t pageSize;  // in the first of a meta page's two trees
    std::uint16_t flags;
    std::uint16_t depth;
    std::uint64_t branchPages;
    std::uint64_t leafPages;
    std::uint64_t overflowPages;
    std::uint64_t entries;
    std::uint64_t root;
};
struct MetaPage {
    std::uint64_t number;
    std::uint16_t pad;
    std::uint16_t flags;
    std::uint32_t bounds;
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t address;
    std::uint64_t mapBytes;
    std::array<Tree, 2> trees;
    std::uint64_t lastPage;
    std::uint64_t transaction;
};
static_assert(sizeof(Tree) == 48 && sizeof(MetaPage) == 152);
static_assert(offsetof(MetaPage, magic) == 16 && offsetof(MetaPage, lastPage) == 136);

constexpr std::uint16_t kMetaFlag = 0x08;
constexpr std::uint16_t kNumberKeys = 0x08;  // of the list of free pages
constexpr std::uint32_t kMagic = 0xBEEFC0DE;
constexpr std::uint32_t kDataVersion = 1;
constexpr std::uint32_t kLeastPageBytes = 512;
constexpr std::uint32_t kMostPageBytes = 65536;
constexpr std::uint64_t kNoRoot = UINT64_MAX;
constexpr int kLooks = 10;  // a writer at work may be half-way through one of the meta pages

bool readAt(int fd, off_t at, MetaPage& page) {
    return ::pread(fd, &page, sizeof page, at) == ssize_t{sizeof page};
}

bool sound(const MetaPage& page) {
    const std::uint32_t bytes = page.trees[0].pageSize;
    return (page.flags & kMetaFlag) != 0 && page.magic == kMagic && page.version == kDataVersion &&
           bytes >= kLeastPageBytes && bytes <= kMostPageBytes && (bytes & (bytes - 1)) == 0 &&
           page.trees[0].flags == kNumberKeys && page.trees[1].flags == 0;
}

std::string objection(int fd) {
    MetaPage first{};
    MetaPage second{};
    if (!readAt(fd, 0, first) || !sound(first) ||
        !readAt(fd, off_t{first.trees[0].pageSize}, second) || !sound(second)) {
        return "holds no store of this machine";
    }
    const MetaPage& newer = second.transaction > first.transaction ? second : first;
    const auto wrong = [&newer](const Tree& tree) {
        return tree.root != kNoRoot && (tree.root < 2 || tree.root > newer.lastPage);
    };
    const std::uint64_t most = newer.mapBytes / newer.trees[0].pageSize;
    if (std::any_of(newer.trees.begin(), newer.trees.end(), wrong) || newer.lastPage > most) {
        return "holds meta pages that make no sense";
    }
    // Before anything is committed the file may not have its length yet.
    const bool begun = newer.trees[1].root != kNoRoot;
    // After the meta page: the file had its length before that was written.
    struct stat status {};
    if (::fstat(fd, &status) != 0) { return std::strerror(errno); }
    const auto present = static_cast<std::uint64_t>(status.st_size);
    if (!begun || present >= newer.mapBytes) { return {}; }
    return "is truncated: " + std::to_string(present) + " of " + std::to_string(newer.mapBytes) +
           " bytes";
}

}  // namespace

DataFile lookAtDataFile(const std::filesystem::path& path, std::string& text) {
    text.clear();
    const auto unreadable = [&](const std::string& reason) {
        text = path.filename().string() + " " + reason;
        return DataFile::unreadable;
    };
    // Not to wait for the other end of whatever may be there.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ENOENT) { return DataFile::absent; }
        return unreadable(std::string{"cannot be read: "} + std::strerror(errno));
    }
    struct stat status {};
    std::string reason;
    DataFile found = DataFile::usable;
    if (::fstat(fd, &status) != 0) {
        reason = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        reason = "is no regular file";
    } else if (status.st_size < 2 * ::sysconf(_SC_PAGESIZE)) {
        found = DataFile::absent;
    } else {
        reason = objection(fd);
        for (int look = 1; look < kLooks && !reason.empty(); ++look) { reason = objection(fd); }
    }
    ::close(fd);
    return reason.empty() ? found : unreadable(reason);
}

}  // namespace Store
