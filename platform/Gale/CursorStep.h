#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/Journal.h"

#include "absl/functional/function_ref.h"

#include <mutex>
#include <optional>
#include <span>

namespace Gale {

/// What a cursor does under one hold of the journal's mutex: at most 256 steps of its phases, each
/// step at most one message. The phases follow each other as in JOURNAL.md.
class Cursor::Step final {
public:
    Step(Cursor& cursor, std::span<CursorMessage> out);
    Result run();

private:
    using Waiting = absl::FunctionRef<bool(const Reference&)>;

    // One step of the client's way; false: nothing can be done before the journal advances.
    bool step();
    bool roundsTurn();
    // One step of the round; false: it is over.
    bool resend();
    bool wanted(Lane lane, const EntryKey& key, const JournalEntry& here);
    bool deferred(Lane lane, const JournalRecord& record) const;
    void walk();
    void updates();
    void deletes();
    void sync();
    bool beginEpoch();
    void endEpoch();

    void walkPast(const EntryKey& key);
    void pass(Lane lane, const JournalRecord& record);
    void passTombstone(Lane lane, const JournalRecord& record);

    const JournalEntry* entry(const Reference& of) const;
    const JournalRecord* atTarget(const Reference& of);
    bool unsentInWalk(const Reference& of) const;
    bool unsentInEpoch(const Reference& of);
    std::optional<Reference> firstWaiting(const Content& content, Waiting waiting);
    Reference firstOut(const Reference& wanted, bool walking);

    bool shown(Lane lane, const EntryKey& key) const;
    void emit(CursorMessage::Kind kind, const Reference& entry, const Content& content);

    static constexpr std::ptrdiff_t kSteps = 256;

    Cursor& cursor_;
    CursorPosition& at_;
    Journal& journal_;
    const std::span<CursorMessage> out_;
    std::size_t count_ = 0;
    std::ptrdiff_t budget_ = kSteps;
    bool inSequence_ = false;  // the log's next() is the record after the last one passed
    std::optional<JournalEntries::const_iterator> walkNext_;  // of the walk or of the round
    const std::lock_guard<TurnMutex> lock_;
};

}  // namespace Gale
