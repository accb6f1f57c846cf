#include "platform/Gale/CursorPosition.h"

namespace Gale {

bool CursorPosition::needsChange(Lane lane, const JournalRecord& record) const {
    if (!has(lanes, lane) || record.at <= changesPassed[index(lane)]) { return false; }
    // What is present goes out sooner or later; what is overtaken only on the way to a target that
    // was taken while it was present.
    return record.until == kNever || (record.at <= target && target < record.until);
}

bool CursorPosition::needsTombstone(Lane lane, const JournalRecord& record) const {
    if (!has(lanes, lane) || record.at <= tombstonesPassed[index(lane)]) { return false; }
    // On the way to a target the client comes to hold lives that it does not hold yet.
    if (!walking && record.at > target && record.born <= target) { return true; }
    return mayHold(lane, record);
}

void CursorPosition::beginAt(Position at) {
    seen = at;
    target = at;
    changesPassed.fill(at);
    tombstonesPassed.fill(at);
}

void CursorPosition::noteRemoval(Lane lane, const JournalRecord& tombstone) {
    if (tombstone.born > seen || walked(lane, tombstone.key)) { return; }
    if (sentAhead(Reference{lane, tombstone.key}, tombstone.born)) { return; }
    unsentRemovals.insert(tombstone.at);
}

bool CursorPosition::sentAhead(const Reference& entry, Position born) const {
    if (ahead.empty()) { return false; }
    const auto sent = ahead.find(entry);
    return sent != ahead.end() && sent->second >= born;
}

void CursorPosition::depart(Position head, const std::array<Position, kLanes>& counts) {
    target = head;
    countAtTarget = counts;
    atRest = false;
    walking = false;
}

void CursorPosition::arrive() {
    seen = target;
    atRest = true;
    // Fresh ones, because clear() would keep the room that a large walk took.
    ahead = {};
    unsentRemovals = {};
}

bool CursorPosition::mayHold(Lane lane, const JournalRecord& tombstone) const {
    const auto sent = ahead.find(Reference{lane, tombstone.key});
    // What was sent ahead is later than what the walk sent; one delete is enough.
    if (sent != ahead.end()) {
        return tombstone.born <= sent->second && sent->second < tombstone.at;
    }
    return tombstone.born <= seen && !unsentRemovals.contains(tombstone.at);
}

bool CursorPosition::walked(Lane lane, const EntryKey& key) const {
    if (!walking || index(lane) < walkLane) { return true; }
    return index(lane) == walkLane && walkBegun && key <= walkKey;
}

}  // namespace Gale
