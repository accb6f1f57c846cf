#pragma once

#include "platform/Gale/Cursor.h"
#include "platform/Gale/Journal.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Gale {

/// The content of an entry as a client understands it: a variant and what it refers to.
struct ModelContent {
    std::uint64_t variant = 0;
    std::vector<Reference> references;

    friend auto operator<=>(const ModelContent&, const ModelContent&) = default;
};

using ModelState = std::map<Reference, ModelContent>;

/// A client that believes what it is told and notes each breach of the promise.
class ModelClient final {
public:
    /// What the cursor's client is taken to know before the first message.
    explicit ModelClient(ModelState known = {}) : state_(std::move(known)) {}

    void receive(const CursorMessage& message);

    const ModelState& state() const { return state_; }
    int syncs() const { return syncs_; }
    std::size_t messages() const { return messages_; }
    /// Empty: none so far.
    const std::string& breach() const { return breach_; }

private:
    void check(const std::string& after, bool deleted);

    ModelState state_;
    int syncs_ = 0;
    std::size_t messages_ = 0;
    std::string breach_;
};

std::string toString(const Reference& entry);
std::string toString(const ModelState& state);

/// Bytes of an entry with a time stamp of 8 bytes in front.
std::string encode(std::uint64_t stamp, std::uint64_t variant);
inline constexpr std::size_t kStampSize = 8;

/// The state of the journal and some cursors with positions replaced by their rank, so that equal
/// words mean equal futures. `deferring`: the cursors defer contents.
struct JournalPeek {
    static std::vector<std::uint64_t> fingerprint(const Journal& journal,
                                                  const std::vector<const Cursor*>& cursors,
                                                  bool deferring);
};

}  // namespace Gale
