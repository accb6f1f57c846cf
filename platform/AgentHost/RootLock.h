#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace AgentHost {

/// The right to be the one process of its kind in a root directory: a locked file. The kernel gives
/// it back when the holder ends, however it ends.
class RootLock {
public:
    RootLock() = default;
    RootLock(const RootLock&) = delete;
    RootLock& operator=(const RootLock&) = delete;
    ~RootLock();

    /// Creates the directory if it is missing, and locks the file of that name in it. Empty, or
    /// what went wrong; names the process that holds the lock. Root's processes refuse a directory
    /// that belongs to somebody else: its owner could have them write anywhere.
    std::string take(const std::filesystem::path& directory, const std::string& name);

    /// Who holds such a lock. Asking takes no lock, so it is in nobody's way.
    struct Holder {
        pid_t process = 0;     ///< 0: nobody, or a process that this one cannot see
        bool stopped = false;  ///< by a signal or a debugger: it holds the lock and does nothing
    };
    /// nullopt when that cannot be told.
    static std::optional<Holder> holder(const std::filesystem::path& directory,
                                        const std::string& name);

private:
    int fd_ = -1;
};

}  // namespace AgentHost
