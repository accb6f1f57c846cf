#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Blink/RingLayout.h"

/// The binary trace: a memory-mapped ring file of fixed-size slots, written by this process and
/// read by anyone. TRACE-FORMAT.md beside this file draws the bytes.
namespace Blink {

enum class Threading { single, multi };

/// The process's ring file. There is at most one, the default handle's.
class TraceFile {
public:
    /// Files of ended processes that are worth their memory: a process that dies and comes again
    /// must not fill a memory file system with traces.
    static constexpr std::size_t kKept = 4;

    /// Creates (or empties) the file and starts tracing into it. Answers false, with the reason on
    /// standard error, when the file cannot be made; the process then runs without a binary trace.
    /// Of the files that ended processes left under the same name kKept stay, the others go first.
    bool mtTraceFileIs();
    const std::filesystem::path& path() const { return path_; }

private:
    friend bool init(
        std::string_view, const char*, const char*, unsigned, unsigned, Threading, bool, unsigned);
    std::filesystem::path path_;
    std::string name_;  // of the file, with "%d" as it was given
    unsigned ringBytesLog2_ = 24;
    unsigned slotBytes_ = 512;
};

/// Directory of trace files when BLINKDIR is not set: `<root>/trace`. Default: the working
/// directory.
void rootIs(std::filesystem::path root);

/// With true, a forked child has no binary trace and no default handle until it makes its own: two
/// writers would spoil each other's messages. Default false.
void handlesDeleteOnForkIs(bool deleteOnFork);

/// Sets up the binary trace facility; the file itself is made by mtTraceFileIs().
/// @param fileName a name that starts with "-" or "." is a suffix to the process's name; "%d"
///        stands for the process id; the directory is BLINKDIR, else the root's
/// @param sizeSpec, secondName, flags reserved; null, null and 0
/// @param ringBytesLog2 size of the ring: 2 to this power bytes, 16 to 32
/// @param threading whether several threads may trace
/// @param createOnDemand false makes the file at once
/// @param slotBytes bytes of one slot, which bounds a message's arguments; a multiple of 64, at
///        most 512
/// @return false when a parameter is out of its range
bool init(std::string_view fileName,
          const char* sizeSpec,
          const char* secondName,
          unsigned flags,
          unsigned ringBytesLog2,
          Threading threading,
          bool createOnDemand,
          unsigned slotBytes);

/// Null until init().
TraceFile* defaultHandle();

/// Ends the binary trace; the file stays. init() may follow. Like init() and mtTraceFileIs() for
/// one thread at a time; other threads may be tracing meanwhile.
void shutdown();

/// Number of the next message; what is traced from now on has this number or a larger one.
std::uint64_t nextMessageNumber();

/// One decoded message.
struct Message {
    std::uint64_t number = 0;  // counts from 0 in each file
    std::int64_t wallNanoseconds = 0;
    std::uint32_t thread = 0;
    int level = 0;
    int line = 0;
    std::string handle;
    std::string function;
    std::string file;
    std::string text;
};

/// How far one who reads on has come in a file.
struct RingPosition {
    std::uint64_t next = 0;  ///< number of the first message that was not yet read
    std::uint64_t lost = 0;  ///< overwritten before they were read, or never finished
    std::uint64_t seen = 0;  ///< what was begun before the last reading; waited for no longer
};

/// Reads a ring file, its own process's or another's, while it is being written.
/// The bytes are foreign: nothing in them, and no change of the file under the reader, can make it
/// fail other than with an error value or fewer messages. So it reads copies and maps nothing.
class RingReader {
public:
    RingReader() = default;
    RingReader(const RingReader&) = delete;
    RingReader& operator=(const RingReader&) = delete;
    ~RingReader();

    /// Empty on success, else what is wrong with the file; nothing can be read then.
    std::string open(const std::filesystem::path& path);
    /// All whole messages with a number of at least `from` that are still in the ring, in order.
    std::vector<Message> read(std::uint64_t from = 0) const;
    /// What has come since the position, which moves on. Stops at a message that is just being
    /// written; one that is not whole at the next reading either counts as lost.
    std::vector<Message> readOn(RingPosition& position) const;

private:
    enum class Slot { whole, unfinished, overwritten };
    struct Reading;
    std::string check(std::uint64_t fileBytes);
    /// nullopt when the file cannot be read (any more).
    std::optional<Reading> begin() const;
    /// Hands over each slot from this number on, until `take` answers false.
    template <class Take>
    void slots(std::uint64_t from, const Reading& reading, Take take) const;

    int fd_ = -1;
    Layout::Header header_{};  // the fixed fields as they were checked
};

}  // namespace Blink
