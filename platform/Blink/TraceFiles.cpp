#include "platform/Blink/TraceFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>

#include "platform/Blink/RingLayout.h"

namespace Blink {
namespace {

namespace fs = std::filesystem;

bool runs(std::uint64_t pid) {
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
}

/// What the file says of itself. Its writer's number is 0 when it was never finished; nullopt when
/// it is no ring file.
std::optional<TraceFileInfo> look(const fs::path& path) {
    // Not to wait for the writer of a pipe, and not to follow a link out of the directory.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (fd < 0) { return std::nullopt; }
    struct stat status {};
    Layout::Header header{};
    const bool read = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
                      ::pread(fd, &header, sizeof header, 0) == sizeof header;
    // The writer holds it: its process may have another number where we look from.
    const bool held = read && ::flock(fd, LOCK_SH | LOCK_NB) != 0;
    ::close(fd);
    const bool unfinished = header.magic == decltype(header.magic){} && header.version == 0;
    if (!read || (header.magic != Layout::kMagic && !unfinished)) { return std::nullopt; }
    std::error_code ignored;
    TraceFileInfo info{path, header.pid, held, fs::last_write_time(path, ignored)};
    info.alive = held || (info.pid != 0 && runs(info.pid));
    return info;
}

/// Each entry of the directory of which `take` says so.
template <class Take>
std::vector<TraceFileInfo> lookAt(const fs::path& directory, Take take) {
    std::vector<TraceFileInfo> found;
    std::error_code problem;
    for (fs::directory_iterator entry{directory, problem}, end; !problem && entry != end;
         entry.increment(problem)) {
        auto info = look(entry->path());
        if (info && take(*info)) { found.push_back(std::move(*info)); }
    }
    std::sort(found.begin(), found.end(), [](const TraceFileInfo& a, const TraceFileInfo& b) {
        if (a.alive != b.alive) { return a.alive; }
        return a.written != b.written ? a.written > b.written : a.path > b.path;
    });
    return found;
}

/// The number between the two parts of a name; 0 when the name is another.
std::uint64_t numberIn(std::string_view name, std::string_view before, std::string_view after) {
    if (name.size() <= before.size() + after.size() || !name.starts_with(before) ||
        !name.ends_with(after)) {
        return 0;
    }
    name = name.substr(before.size(), name.size() - before.size() - after.size());
    std::uint64_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [last, problem] = std::from_chars(name.data(), end, number);
    return problem == std::errc{} && last == end ? number : 0;
}

}  // namespace

fs::path traceDirectory(const fs::path& root) {
    const char* const chosen = std::getenv("BLINKDIR");
    if (chosen != nullptr) { return chosen; }
    return root.empty() ? fs::current_path() : root / "trace";
}

std::vector<TraceFileInfo> traceFiles(const fs::path& directory) {
    return lookAt(directory, [](const TraceFileInfo& info) { return info.pid != 0; });
}

void pruneTraceFiles(const fs::path& directory, std::string_view name, std::size_t keep) {
    const std::size_t at = name.find("%d");
    if (at == std::string_view::npos) { return; }
    const auto left = lookAt(directory, [&](TraceFileInfo& info) {
        const std::string found = info.path.filename().string();
        const std::uint64_t named = numberIn(found, name.substr(0, at), name.substr(at + 2));
        if (named == 0 || (info.pid != 0 && info.pid != named)) { return false; }
        if (info.pid == 0) { info.alive = info.alive || runs(named); }
        return !info.alive;
    });
    std::error_code ignored;  // gone already, or not ours to delete
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (i >= keep || left[i].pid == 0) { fs::remove(left[i].path, ignored); }
    }
}

}  // namespace Blink
