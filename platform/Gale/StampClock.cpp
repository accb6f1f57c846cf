#include "platform/Gale/StampClock.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("GaleStampClock");

namespace Gale {

namespace {
constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMarkAhead = 30 * kSecond;
/// A mark further ahead than a wall clock is ever set back by hand is no mark of ours.
constexpr std::int64_t kMarkLimit = 24 * 3600 * kSecond;
}  // namespace

StampClock::StampClock(const Kiln::Clock& clock, std::filesystem::path file)
    : clock_(clock), file_(std::move(file)) {
    std::error_code error;
    if (file_.empty() || !std::filesystem::exists(file_, error)) { return; }
    std::ifstream from{file_};
    std::int64_t mark = 0;
    if (!(from >> mark) || mark < 0 || mark > clock_.wallNanoseconds() + kMarkLimit) {
        TRACE5("time stamp file {} is not usable: starting from the clock", file_.native());
        return;
    }
    last_ = mark_ = mark;
}

StampClock::~StampClock() {
    if (last_ != mark_) { save(last_); }
}

std::int64_t StampClock::next() const {
    return std::max({clock_.wallNanoseconds(), last_ + 1, own_});
}

void StampClock::used(std::int64_t stamp) {
    last_ = std::max(last_, stamp);
    if (last_ > mark_) { save(last_ + kMarkAhead); }
}

void StampClock::begin() {
    const std::lock_guard lock{mutex_};
    VEL_ASSERT(!turn_);
    turn_ = true;
    free_ = std::max(clock_.wallNanoseconds() - kRoom, last_ + 1);
    own_ = free_ + kRoom;
}

void StampClock::end() {
    const std::lock_guard lock{mutex_};
    turn_ = false;
    own_ = 0;
    used(again_);
}

std::int64_t StampClock::again() {
    const std::lock_guard lock{mutex_};
    if (turn_) {
        again_ = std::clamp(again_ + 1, free_, own_ - 1);
    } else {
        again_ = next();
        used(again_);
    }
    return again_;
}

void StampClock::save(std::int64_t mark) {
    mark_ = mark;
    if (file_.empty()) { return; }
    std::filesystem::path fresh = file_;
    fresh += ".new";
    {
        std::ofstream to{fresh, std::ios::trunc};
        to << mark << '\n' << std::flush;
        if (!to) {
            TRACE5("time stamp file {} cannot be written", fresh.native());
            return;
        }
    }
    std::error_code error;
    std::filesystem::rename(fresh, file_, error);
    if (error) { TRACE5("time stamp file {}: {}", file_.native(), error.message()); }
}

}  // namespace Gale
