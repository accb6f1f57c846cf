#pragma once

#include "platform/Kiln/Clock.h"

#include <cstdint>
#include <filesystem>
#include <mutex>

namespace Gale {

/// Time stamps that only grow: wall time, or one more than the last where the wall clock stands
/// still or steps back. Over restarts too, if there is a file: it holds a mark above all stamps
/// given so far, and is written once for each half minute of stamps.
///
/// Changes are stamped by one thread, in turns. What is shown again although it has not changed is
/// stamped by another, by again().
class StampClock final {
public:
    /// While it lives its thread may stamp changes; at its end all that bears these stamps is where
    /// again() is asked for it. One at a time.
    class [[nodiscard]] Turn final {
    public:
        explicit Turn(StampClock& stamps) : stamps_(stamps) { stamps_.begin(); }
        ~Turn() { stamps_.end(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        StampClock& stamps_;
    };

    /// `file` empty: nothing is kept. An unreadable file is traced and counts as none.
    StampClock(const Kiln::Clock& clock, std::filesystem::path file);
    /// Leaves the last stamp itself in the file.
    ~StampClock();
    StampClock(const StampClock&) = delete;
    StampClock& operator=(const StampClock&) = delete;

    /// The stamp that the next change would bear; nanoseconds since the epoch. In a turn.
    std::int64_t next() const;
    /// The stamp is in use now. In a turn.
    void used(std::int64_t stamp);
    /// Between turns.
    std::int64_t last() const { return last_; }
    /// A stamp in use above all those of turns that are over and all that were given here before,
    /// and below all that will be given in the turn that is under way or in a later one. Any thread.
    std::int64_t again();

private:
    /// So many are kept free below those of a turn: more than are asked for while it lasts.
    static constexpr std::int64_t kRoom = 4096;

    void begin();
    void end();
    void save(std::int64_t mark);

    const Kiln::Clock& clock_;
    const std::filesystem::path file_;
    std::mutex mutex_;  // of all that follows, but for the thread whose turn it is
    bool turn_ = false;
    std::int64_t free_ = 0;   // the first one kept free below those of this turn
    std::int64_t own_ = 0;    // the first one that this turn may give; 0 between turns
    std::int64_t again_ = 0;  // the last one that again() gave
    std::int64_t last_ = 0;
    std::int64_t mark_ = 0;
};

}  // namespace Gale
