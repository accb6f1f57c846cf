#include "platform/Store/Environment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/Store/DataFile.h"
#include "platform/Store/Identity.h"
#include "platform/Store/RecordLayout.h"

namespace Store {
namespace {

constexpr mode_t kDirectoryMode = 0750;
constexpr mode_t kDataMode = 0640;
constexpr mode_t kLockMode = 0660;  // readers of the group enter themselves in it
constexpr unsigned kReaders = 510;
constexpr off_t kLockBytes = 64 << 10;  // room for the readers at a cache line each, and the head
constexpr const char* kNoStore = "no store there yet";

/// The process's open environments. The engine must not open a directory's files twice in one
/// process: closing the one would drop the file locks of the other.
struct OpenEnvironments {
    struct Entry {
        std::weak_ptr<Environment> shared;
        const Environment* object = nullptr;
    };
    std::mutex mutex;
    std::condition_variable closed;
    std::map<std::pair<pid_t, std::string>, Entry> byDirectory;  // a forked child has its own
};

OpenEnvironments& openEnvironments() {
    static auto* all = new OpenEnvironments;  // outlives whatever is destroyed at exit
    return *all;
}

/// Holds other writers off while the files are looked at, made and replaced.
class DirectoryLock {
public:
    explicit DirectoryLock(const std::filesystem::path& directory)
        : fd_{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)} {
        if (fd_ >= 0) { ::flock(fd_, LOCK_EX); }
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() {
        if (fd_ >= 0) { ::close(fd_); }
    }

private:
    int fd_;
};

std::string errorText(int code) {
    if (code == MDB_INVALID || code == MDB_VERSION_MISMATCH) {
        return std::string{"holds no store of this machine: "} + mdb_strerror(code);
    }
    return mdb_strerror(code);
}

/// What a look at the directory itself objects to; empty when nothing does.
std::string directoryObjection(const std::filesystem::path& directory) {
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        return errno == ENOENT ? kNoStore : std::strerror(errno);
    }
    if (!S_ISDIR(status.st_mode)) { return "is no directory"; }
    const bool allowed = ::faccessat(AT_FDCWD, directory.c_str(), X_OK, AT_EACCESS) == 0;
    return allowed ? std::string{} : std::strerror(errno);
}

/// Gives the lock file its pages at once: it is mapped, and a page that a full file system cannot
/// give when a reader first enters itself would end that reader's process. Only while this process
/// has the file not open: closing it here drops the process's file locks.
std::string reserveLockFile(const std::filesystem::path& path) {
    const auto cannot = [&path](int code) {
        return path.filename().string() + " cannot be written: " + std::strerror(code);
    };
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kLockMode);
    if (fd < 0) { return cannot(errno); }
    const int code = ::posix_fallocate(fd, 0, kLockBytes);
    ::close(fd);
    return code == 0 ? std::string{} : cannot(code);
}

void makeBell(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kDataMode);
    if (fd >= 0) { ::close(fd); }
}

}  // namespace

std::shared_ptr<Environment> Environment::open(const Options& options,
                                               Access access,
                                               std::string& error) {
    error.clear();
    if (access == Access::write) {
        std::error_code failure;
        if (std::filesystem::create_directories(options.directory, failure)) {
            ::chmod(options.directory.c_str(), kDirectoryMode);
        }
    }
    std::error_code ignored;
    OpenEnvironments& all = openEnvironments();
    std::unique_lock lock{all.mutex};
    const std::pair key{::getpid(),
                        std::filesystem::weakly_canonical(options.directory, ignored).string()};
    for (auto it = all.byDirectory.find(key); it != all.byDirectory.end();
         it = all.byDirectory.find(key)) {
        std::shared_ptr<Environment> present = it->second.shared.lock();
        if (present == nullptr) {
            all.closed.wait(lock);  // its last user is closing it on another thread
            continue;
        }
        if (!present->current()) {
            all.byDirectory.erase(it);  // the files are another store's by now
            break;
        }
        if (access == Access::write) {
            if (present->readOnly_) {
                error = "store " + options.directory.string() + ": " + std::strerror(EACCES);
                return nullptr;
            }
            present->options_.logCapacity = options.logCapacity;
        }
        return present;
    }
    std::shared_ptr<Environment> made{new Environment{options}};
    const std::string failure = made->openFiles(access);
    if (!failure.empty()) {
        error = "store " + options.directory.string() + ": " + failure;
        made->close();
        lock.unlock();  // the destructor takes it
        return nullptr;
    }
    all.byDirectory[key] = {made, made.get()};
    return made;
}

Environment::~Environment() {
    OpenEnvironments& all = openEnvironments();
    const std::lock_guard lock{all.mutex};
    close();
    std::erase_if(all.byDirectory,
                  [this](const auto& entry) { return entry.second.object == this; });
    all.closed.notify_all();
}

void Environment::close() {
    if (env_ != nullptr) { mdb_env_close(env_); }
    env_ = nullptr;
}

std::string Environment::openFiles(Access access) {
    return access == Access::read ? openForReading() : openForWriting();
}

std::string Environment::openForReading() {
    const std::filesystem::path data = options_.directory / "data.mdb";
    if (std::string failure = directoryObjection(options_.directory); !failure.empty()) {
        return failure;
    }
    std::string objection;
    const DataFile file = lookAtDataFile(data, objection);
    if (file != DataFile::usable) { return file == DataFile::absent ? kNoStore : objection; }
    const std::filesystem::path lock = options_.directory / "lock.mdb";
    if (::faccessat(AT_FDCWD, lock.c_str(), R_OK | W_OK, AT_EACCESS) != 0) {
        return errno == ENOENT ? kNoStore
                               : std::string{"lock.mdb cannot be written: "} + std::strerror(errno);
    }
    // One object serves a writer of this process, too, so that it is opened as far as allowed.
    readOnly_ = ::faccessat(AT_FDCWD, data.c_str(), W_OK, AT_EACCESS) != 0;
    if (std::string failure = map(Access::read); !failure.empty()) { return failure; }
    if (!current()) { return kNoStore; }  // replaced while it was being opened
    return openDatabases(MDB_RDONLY, 0);
}

std::string Environment::openForWriting() {
    if (std::string failure = directoryObjection(options_.directory); !failure.empty()) {
        return failure;
    }
    const std::filesystem::path data = options_.directory / "data.mdb";
    const DirectoryLock onlyWriter{options_.directory};
    for (bool replaced = false;; replaced = true) {
        std::string objection;
        const DataFile file = lookAtDataFile(data, objection);
        if (file == DataFile::unreadable) { return objection; }
        std::error_code ignored;
        if (file == DataFile::absent) { std::filesystem::remove(data, ignored); }
        if (std::string failure = reserveLockFile(options_.directory / "lock.mdb");
            !failure.empty()) {
            return failure;
        }
        if (std::string failure = map(Access::write); !failure.empty()) { return failure; }
        std::string failure = openDatabases(0, MDB_CREATE);
        if (!otherBoot_ || replaced) {
            if (failure.empty()) { makeBell(bellPath()); }
            return failure;
        }
        // Nothing of before the last boot is true any more.
        close();
        std::filesystem::remove(data, ignored);
        std::filesystem::remove(options_.directory / "lock.mdb", ignored);
    }
}

/// Opens the engine on the files, which have been looked at.
std::string Environment::map(Access access) {
    if (const int code = mdb_env_create(&env_); code != 0) { return errorText(code); }
    mdb_env_set_maxdbs(env_, 3);
    mdb_env_set_maxreaders(env_, kReaders);
    if (access == Access::write) { mdb_env_set_mapsize(env_, options_.mapBytes); }
    const unsigned flags =
        MDB_NOTLS | MDB_NOSYNC | MDB_NORDAHEAD | MDB_NOMEMINIT | (readOnly_ ? MDB_RDONLY : 0U);
    const int code = mdb_env_open(env_, options_.directory.c_str(), flags, kDataMode);
    if (code == ENOENT) { return access == Access::read ? kNoStore : errorText(code); }
    if (code != 0) { return errorText(code); }
    if (access == Access::write) {  // whatever the umask took; another owner's stay as they are
        ::chmod((options_.directory / "data.mdb").c_str(), kDataMode);
        ::chmod((options_.directory / "lock.mdb").c_str(), kLockMode);
    }
    mdb_filehandle_t fd = -1;
    struct stat status {};
    mdb_env_get_fd(env_, &fd);
    if (::fstat(fd, &status) != 0) { return std::strerror(errno); }
    inode_ = status.st_ino;
    device_ = status.st_dev;
    MDB_envinfo info{};
    mdb_env_info(env_, &info);
    fileBytes_ = static_cast<off_t>(info.me_mapsize);
    // The file's length tells whether something was cut off; what is not written takes no space.
    if (access == Access::write && status.st_size < fileBytes_ &&
        ::ftruncate(fd, fileBytes_) != 0) {
        return std::string{"data.mdb cannot be given its length: "} + std::strerror(errno);
    }
    int dead = 0;
    mdb_reader_check(env_, &dead);
    return {};
}

/// Opens (makes) the databases and compares (writes) the identity.
std::string Environment::openDatabases(unsigned transactionFlags, unsigned databaseFlags) {
    otherBoot_ = false;
    MDB_txn* txn = nullptr;
    if (const int code = mdb_txn_begin(env_, nullptr, transactionFlags, &txn); code != 0) {
        return errorText(code);
    }
    const auto ended = [txn](std::string text) {
        mdb_txn_abort(txn);
        return text;
    };
    for (const auto& [name, database] : {std::pair{"meta", &databases_.meta},
                                         std::pair{"records", &databases_.records},
                                         std::pair{"log", &databases_.log}}) {
        const int code = mdb_dbi_open(txn, name, databaseFlags, database);
        if (code == MDB_NOTFOUND) { return ended(kNoStore); }
        if (code != 0) { return ended(errorText(code)); }
    }
    std::string key{kIdentityKey};
    MDB_val keyBytes{key.size(), key.data()};
    MDB_val found{};
    int code = mdb_get(txn, databases_.meta, &keyBytes, &found);
    Identity identity = Identity::make();
    if (code == 0) {
        const auto present = Identity::decode(viewOf(found));
        if (!present) { return ended("its identity is not readable"); }
        otherBoot_ = !present->ofThisBoot();
        if (std::string objection = present->objection(); !objection.empty()) {
            return ended(std::move(objection));
        }
        identity = *present;
    } else if (code == MDB_NOTFOUND && databaseFlags != 0) {
        std::string bytes = identity.encode();
        MDB_val value{bytes.size(), bytes.data()};
        code = mdb_put(txn, databases_.meta, &keyBytes, &value, 0);
    }
    if (code != 0) { return ended(code == MDB_NOTFOUND ? kNoStore : errorText(code)); }
    generation_ = identity.generation;
    code = mdb_txn_commit(txn);
    return code == 0 ? std::string{} : errorText(code);
}

bool Environment::current() const {
    struct stat status {};
    return ::stat((options_.directory / "data.mdb").c_str(), &status) == 0 &&
           status.st_ino == inode_ && status.st_dev == device_ && status.st_size >= fileBytes_;
}

std::size_t Environment::usedBytes() const {
    MDB_envinfo info{};
    MDB_stat status{};
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &status);
    return (info.me_last_pgno + 1) * status.ms_psize;
}

/// The bell is rung after each commit that changed something.
std::optional<std::int64_t> Environment::lastCommit() const {
    struct stat status {};
    if (::stat(bellPath().c_str(), &status) != 0) { return std::nullopt; }
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    return status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec;
}

}  // namespace Store
