#include "platform/Gale/test/JournalModel.h"

#include <algorithm>
#include <cstring>
#include <deque>

namespace Gale {

namespace {

ModelContent understand(const Content& content) {
    ModelContent result;
    if (content.isValue()) {
        result.variant = content.value();
        result.references = {{Lane::groups, {0, 0, content.value()}}};
        return result;
    }
    const std::string_view bytes = content.view().substr(kStampSize);
    result.variant = static_cast<unsigned char>(bytes[0]);
    result.references.assign(content.references().begin(), content.references().end());
    return result;
}

/// Collects words; positions are replaced by their rank when all are known.
class Words {
public:
    explicit Words(Position old) : old_(old) {}

    void add(std::uint64_t word) { words_.push_back(word); }
    void add(const Reference& r) {
        add(static_cast<std::uint64_t>(r.lane));
        add(r.key.lo);
    }
    void addPosition(Position p) {
        // All that every cursor has behind it is equally old.
        if (p <= old_) { p = 0; }
        positions_.push_back(words_.size());
        words_.push_back(p);
        order_.push_back(p);
    }
    std::vector<std::uint64_t> take() {
        std::sort(order_.begin(), order_.end());
        order_.erase(std::unique(order_.begin(), order_.end()), order_.end());
        for (const std::size_t at : positions_) {
            if (words_[at] == kNever) { continue; }
            words_[at] = static_cast<std::uint64_t>(
                std::lower_bound(order_.begin(), order_.end(), words_[at]) - order_.begin());
        }
        return std::move(words_);
    }

private:
    const Position old_;
    std::vector<std::uint64_t> words_;
    std::vector<std::size_t> positions_;
    std::vector<Position> order_;
};

void addContent(Words& words, const Content& content) {
    const ModelContent held = understand(content);
    words.add(held.variant);
    words.add(held.references.size());
    for (const Reference& r : held.references) { words.add(r); }
}

void addLog(Words& words, JournalLog& log, bool contents, bool renames) {
    words.add(log.kept());
    for (const JournalRecord* record = log.after(0); record != nullptr; record = log.next()) {
        if (record->dead()) { continue; }
        words.add(record->key.lo);
        words.addPosition(record->at);
        words.addPosition(record->born);
        words.addPosition(record->until);
        if (contents) { addContent(words, *record->content); }
        if (renames) { words.add(record->renames ? 1 : 0); }
    }
}

}  // namespace

void ModelClient::receive(const CursorMessage& message) {
    ++messages_;
    const Reference entry{message.lane, message.key};
    switch (message.kind) {
        case CursorMessage::Kind::update:
            if (message.again && !state_.contains(entry)) {
                breach_ += toString(entry) + " told again, which it does not hold; ";
            }
            state_[entry] = understand(message.content);
            check("update of " + toString(entry), false);
            break;
        case CursorMessage::Kind::remove:
            if (state_.erase(entry) == 0) {
                breach_ += "delete of " + toString(entry) + ", which it does not hold; ";
            }
            check("delete of " + toString(entry), true);
            break;
        case CursorMessage::Kind::sync:
            if (++syncs_ > 1) { breach_ += "second sync; "; }
            break;
    }
}

/// Deletes of one lane come in the order of removal, which need not be that of the references that
/// a client who lags still holds: there, only the end of the epoch counts.
void ModelClient::check(const std::string& after, bool deleted) {
    for (const auto& [entry, content] : state_) {
        for (const Reference& r : content.references) {
            if (!state_.contains(r) && !(deleted && r.lane == entry.lane)) {
                breach_ += "after " + after + ": " + toString(entry) + " refers to " + toString(r) +
                           ", which is missing; ";
            }
        }
    }
}

std::string toString(const Reference& entry) {
    static constexpr const char* kNames[] = {"N", "G", "P", "F", "C", "S"};
    return kNames[index(entry.lane)] + std::to_string(entry.key.lo);
}

std::string toString(const ModelState& state) {
    std::string result;
    for (const auto& [entry, content] : state) {
        result += toString(entry) + "=" + std::to_string(content.variant) + "(";
        for (const Reference& r : content.references) { result += toString(r); }
        result += ") ";
    }
    return result;
}

std::string encode(std::uint64_t stamp, std::uint64_t variant) {
    std::string result(kStampSize, '\0');
    std::memcpy(result.data(), &stamp, kStampSize);
    result.push_back(static_cast<char>(variant));
    return result;
}

std::vector<std::uint64_t> JournalPeek::fingerprint(const Journal& journal,
                                                    const std::vector<const Cursor*>& cursors,
                                                    bool deferring) {
    auto& j = const_cast<Journal&>(journal);  // NOLINT: the logs' iteration is not const
    Position old = j.head_;
    for (const Cursor* c : cursors) {
        if (c->attached_) { old = std::min(old, c->position_.seen); }
        if (deferring) { old = std::min(old, c->told_); }
        if (c->round_) { old = std::min(old, *c->round_->wanted.changedAfter); }
    }
    Words words{old};
    words.addPosition(j.last_);
    words.addPosition(j.head_);
    for (JournalLane& lane : j.lanes_) {
        words.add(lane.entries.size());
        for (const auto& [key, entry] : lane.entries) {
            words.add(key.lo);
            addContent(words, entry.content);
            words.addPosition(entry.born);
            words.addPosition(entry.changed);
        }
        addLog(words, lane.changes, true, deferring);
        addLog(words, lane.tombstones, false, false);
    }
    for (const Cursor* c : cursors) {
        const CursorPosition& at = c->position_;
        words.add(static_cast<std::uint64_t>(c->phase_));
        words.add(c->lane_);
        words.add(c->synced_ ? 1 : 0);
        words.add((at.atRest ? 2 : 0) + (at.walkDone ? 1 : 0));
        words.addPosition(at.seen);
        words.addPosition(at.target);
        for (std::size_t i = 0; i < kLanes; ++i) {
            words.addPosition(at.changesPassed[i]);
            words.addPosition(at.tombstonesPassed[i]);
        }
        words.add(at.walking ? 1 : 0);
        words.add(at.walking ? at.walkLane : 0);
        words.add(at.walking && at.walkBegun ? at.walkKey.lo + 1 : 0);
        std::map<Reference, Position> ahead(at.ahead.begin(), at.ahead.end());
        words.add(ahead.size());
        for (const auto& [entry, position] : ahead) {
            words.add(entry);
            words.addPosition(position);
        }
        std::set<Position> unsent(at.unsentRemovals.begin(), at.unsentRemovals.end());
        words.add(unsent.size());
        for (const Position p : unsent) { words.addPosition(p); }
        std::set<Reference> alive(c->alive_.begin(), c->alive_.end());
        words.add(alive.size());
        for (const Reference& r : alive) { words.add(r); }
        if (deferring) { words.addPosition(c->told_); }
        words.add(c->round_ ? 1 : 0);
        if (!c->round_) { continue; }
        words.add(c->roundsTurn_ ? 1 : 0);
        words.add(c->round_->lane);
        words.add(c->round_->key ? c->round_->key->lo + 1 : 0);
        words.addPosition(c->round_->begun.value_or(kNever));
        words.addPosition(*c->round_->wanted.changedAfter);
    }
    return words.take();
}

}  // namespace Gale
