#pragma once

#include "platform/Kiln/Clock.h"

#include <cstdint>
#include <filesystem>

namespace Gale {

/// Time stamps that only grow: wall time, or one more than the last where the wall clock stands
/// still or steps back. Over restarts too, if there is a file: it holds a mark above all stamps
/// given so far, and is written once for each half minute of stamps.
class StampClock final {
public:
    /// `file` empty: nothing is kept. An unreadable file is traced and counts as none.
    StampClock(const Kiln::Clock& clock, std::filesystem::path file);
    /// Leaves the last stamp itself in the file.
    ~StampClock();
    StampClock(const StampClock&) = delete;
    StampClock& operator=(const StampClock&) = delete;

    /// The stamp that the next change would bear; nanoseconds since the epoch.
    std::int64_t next() const;
    /// The stamp is in use now.
    void used(std::int64_t stamp);
    std::int64_t last() const { return last_; }

private:
    void save(std::int64_t mark);

    const Kiln::Clock& clock_;
    const std::filesystem::path file_;
    std::int64_t last_ = 0;
    std::int64_t mark_ = 0;
};

}  // namespace Gale
