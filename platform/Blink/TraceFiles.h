#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

/// The ring files that processes have left in a directory, or are writing.
namespace Blink {

struct TraceFileInfo {
    std::filesystem::path path;
    std::uint64_t pid = 0;  ///< of the writer
    bool alive = false;     ///< a process of that number runs, or the file is held by a writer
    std::filesystem::file_time_type written;
};

/// Directory of trace files: BLINKDIR, else `<root>/trace`, else the working directory.
std::filesystem::path traceDirectory(const std::filesystem::path& root);

/// The ring files in a directory: those that are being written first, then the youngest first. What
/// is no ring file is left out; a directory that cannot be read has none.
std::vector<TraceFileInfo> traceFiles(const std::filesystem::path& directory);

/// Makes room: of the files that ended processes left under this name (in which "%d" stands for the
/// process id) only the youngest `keep` stay. A name without "%d" has one file, which its next
/// writer replaces. Never touches the file of a process that runs, nor one that is no ring file or
/// whose writer was another than its name says; a file that its writer never finished making goes.
void pruneTraceFiles(const std::filesystem::path& directory,
                     std::string_view name,
                     std::size_t keep);

}  // namespace Blink
