// Every state that the journal and one or two cursors can reach in a small world, within a number
// of batches: two next hops, two groups of which one may stand behind the other, one prefix. After
// every single message the client is checked: it never holds a reference to what it does not hold,
// never gets a delete for what it does not hold, gets one sync. From every state the cursors are
// run to rest: the client then holds exactly what the journal holds, and nothing is kept any more.
// A cursor that defers contents has rounds besides, begun at any time: at rest its client holds every
// entry with the references it has, and after one more round exactly what the journal holds.

#include "platform/Gale/test/JournalModel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <unordered_set>

namespace Gale {
namespace {

constexpr Reference kN1{Lane::nextHops, {0, 0, 1}};
constexpr Reference kN2{Lane::nextHops, {0, 0, 2}};
constexpr Reference kG1{Lane::groups, {0, 0, 1}};
constexpr Reference kG2{Lane::groups, {0, 0, 2}};
constexpr Reference kP{Lane::prefixes, {0, 0, 1}};

/// One change of one entry: `content` is empty for a removal.
struct Change {
    Reference entry;
    std::optional<ModelContent> content;
};

/// A batch, from one consistent state to another.
struct Transaction {
    std::vector<Change> changes;
    /// Consistent at each point, so that cursors may move in its middle.
    bool ordered = true;
};

bool consistent(const ModelState& state) {
    for (const auto& [entry, content] : state) {
        for (const Reference& r : content.references) {
            if (!state.contains(r)) { return false; }
        }
    }
    return true;
}

void apply(ModelState& state, const Change& change) {
    if (change.content) {
        state[change.entry] = *change.content;
    } else {
        state.erase(change.entry);
    }
}

std::uint64_t flipped(const ModelState& state, const Reference& entry) {
    const auto found = state.find(entry);
    return found == state.end() ? 0 : 1 - found->second.variant;
}

/// All contents that an entry may get next.
std::vector<ModelContent> contentsFor(const ModelState& state, const Reference& entry) {
    if (entry.lane == Lane::nextHops) { return {{flipped(state, entry), {}}}; }
    if (entry == kG1) { return {{0, {kN1}}, {0, {kN2}}, {0, {kN1, kG2}}, {1, {kN2, kG2}}}; }
    if (entry == kG2) { return {{0, {kN1}}, {0, {kN2}}}; }
    return {{1, {kG1}}, {2, {kG2}}};  // a value: the number of its group
}

/// All transactions from `state`: single changes, and batches that move a reference from one entry
/// to another while the old one goes, in the good order and in the worst.
std::vector<Transaction> makeTransactions(const ModelState& state) {
    std::vector<Transaction> result;
    const auto offer = [&](std::vector<Change> changes) {
        ModelState end = state;
        bool ordered = true;
        for (const Change& change : changes) {
            apply(end, change);
            ordered = ordered && consistent(end);
        }
        if (consistent(end) && !(end == state && changes.size() == 1)) {
            result.push_back({std::move(changes), ordered});
        }
    };
    for (const Reference& entry : {kN1, kN2, kG1, kG2, kP}) {
        for (const ModelContent& content : contentsFor(state, entry)) { offer({{entry, content}}); }
        if (!state.contains(entry)) { continue; }
        offer({{entry, {}}});
        offer({{entry, {}}, {entry, state.at(entry)}});  // removed and put back at once
    }
    for (const auto& [leaving, coming] : {std::pair{kN1, kN2}, std::pair{kN2, kN1}}) {
        if (!state.contains(leaving) || state.contains(coming)) { continue; }
        std::vector<Change> good{{coming, ModelContent{}}};
        for (const Reference& group : {kG2, kG1}) {
            const auto found = state.find(group);
            if (found == state.end()) { continue; }
            ModelContent content = found->second;
            for (Reference& r : content.references) {
                if (r == leaving) { r = coming; }
            }
            if (content != found->second) { good.push_back({group, content}); }
        }
        good.push_back({leaving, {}});
        offer(good);
        offer({good.rbegin(), good.rend()});
    }
    return result;
}

const std::vector<Transaction>& transactionsFrom(const ModelState& state) {
    static std::map<ModelState, std::vector<Transaction>> known;
    const auto found = known.find(state);
    return found != known.end() ? found->second
                                : known.emplace(state, makeTransactions(state)).first->second;
}

/// A journal with clients, driven by choices so that any state can be reached again.
class World {
public:
    World(std::vector<Cursor::Mode> modes,
          std::vector<ModelState> start,
          bool deferring,
          LogShape shape)
        : journal_{{.onAdvance = {}, .referenceOf = groupOf, .log = shape}}, deferring_(deferring) {
        for (const Change& change : flatten(start)) { write(change); }
        for (const Cursor::Mode mode : modes) { modes_.push_back(mode); }
    }

    std::size_t cursors() const { return modes_.size(); }
    bool open(std::size_t i) const { return i < readers_.size(); }
    const Transaction* inBatch() const { return batch_ ? &transaction_ : nullptr; }

    // --- choices ---
    bool step(std::size_t i) {  // false: nothing to do
        Reader& reader = *readers_[i];
        CursorMessage message;
        Cursor::Result result;
        do {
            result = reader.cursor.next({&message, 1});
        } while (result.count == 0 && result.state == Cursor::State::more);
        if (result.count == 0) { return false; }
        reader.client.receive(message);
        return true;
    }
    void openNext() {
        const Cursor::Mode mode = modes_[readers_.size()];
        readers_.push_back(std::make_unique<Reader>(
            journal_, filter(), mode, mode == Cursor::Mode::updatesOnly ? state_ : ModelState{}));
    }
    /// The first cursor begins a round; false: it cannot.
    bool round() {
        if (!deferring_ || readers_.empty()) { return false; }
        Reader& reader = *readers_[0];
        if (reader.client.syncs() == 0 || reader.cursor.resending()) { return false; }
        reader.cursor.resend({{}, reader.cursor.told()});
        return true;
    }
    /// Begins a batch, or goes on with the open one.
    void write(const Transaction& transaction) {
        if (!batch_) {
            transaction_ = transaction;
            done_ = 0;
            batch_ = std::make_unique<Journal::Batch>(journal_);
        }
        do {
            write(transaction_.changes[done_++]);
        } while (!transaction_.ordered && done_ < transaction_.changes.size());
        if (done_ == transaction_.changes.size()) { batch_.reset(); }
    }

    std::string breach() const {
        std::string result;
        for (const auto& reader : readers_) { result += reader->client.breach(); }
        return result;
    }
    std::vector<std::uint64_t> fingerprint() const {
        std::vector<const Cursor*> cursors;
        for (const auto& reader : readers_) { cursors.push_back(&reader->cursor); }
        std::vector<std::uint64_t> words = JournalPeek::fingerprint(journal_, cursors, deferring_);
        words.push_back(batch_ ? transaction_.changes.size() - done_ : 0);
        if (batch_) {
            for (std::size_t i = done_; i < transaction_.changes.size(); ++i) {
                add(words, transaction_.changes[i].entry, transaction_.changes[i].content);
            }
        }
        for (const auto& reader : readers_) {
            words.push_back(reader->client.state().size());
            for (const auto& [entry, content] : reader->client.state()) {
                add(words, entry, content);
            }
        }
        return words;
    }
    const ModelState& state() const { return state_; }

    /// Runs everything to rest; says what is wrong then.
    std::string settle() {
        while (batch_) { write(transaction_); }
        std::string wrong = rest();
        if (deferring_ && !readers_.empty() && wrong.empty()) {
            if (entriesOf(readers_[0]->client.state()) != entriesOf(state_)) {
                return "the client holds " + toString(readers_[0]->client.state()) +
                       "but there is " + toString(state_);
            }
            round();
            wrong = rest();
        }
        for (std::size_t i = 0; i < readers_.size(); ++i) {
            const ModelClient& client = readers_[i]->client;
            const bool once = modes_[i] == Cursor::Mode::once;
            if (client.syncs() != 1) { wrong += "no sync; "; }
            if (!once && client.state() != state_) {
                wrong += "client ends with " + toString(client.state()) + "but there is " +
                         toString(state_);
            }
            if (!once && readers_[i]->cursor.statistics().lag != 0) { wrong += "lag at rest; "; }
        }
        return wrong + leftovers();
    }
    /// Drops the cursors as they stand; says what is still kept then.
    std::string abandon() {
        while (!readers_.empty()) { readers_.pop_back(); }
        return leftovers();
    }
    void drop(std::size_t i) { readers_.erase(readers_.begin() + static_cast<std::ptrdiff_t>(i)); }

private:
    struct Reader {
        Reader(Journal& journal, CursorFilter filter, Cursor::Mode mode, ModelState known)
            : cursor(journal, std::move(filter), mode), client(std::move(known)) {}
        Cursor cursor;
        ModelClient client;
    };

    CursorFilter filter() const {
        CursorFilter filter;
        if (deferring_) {
            filter.deferred = [](Lane, const EntryKey&) { return true; };
        }
        return filter;
    }
    /// Steps until all cursors are idle; says what is wrong on the way.
    std::string rest() {
        for (std::size_t i = 0; i < readers_.size(); ++i) {
            for (int steps = 0; step(i); ++steps) {
                if (steps > 100) { return "cursor does not come to rest"; }
            }
        }
        return breach();
    }
    /// Without what may be told late.
    static ModelState entriesOf(ModelState state) {
        for (auto& [entry, content] : state) {
            if (entry.lane != Lane::prefixes) { content.variant = 0; }
        }
        return state;
    }
    static std::vector<Change> flatten(const std::vector<ModelState>& start) {
        std::vector<Change> result;
        for (const ModelState& each : start) {
            for (const auto& [entry, content] : each) { result.push_back({entry, content}); }
        }
        return result;
    }
    static void add(std::vector<std::uint64_t>& words,
                    const Reference& entry,
                    const std::optional<ModelContent>& content) {
        words.push_back(index(entry.lane) * 10 + entry.key.lo);
        words.push_back(content ? content->variant + 1 : 0);
        if (!content) { return; }
        words.push_back(content->references.size());
        for (const Reference& r : content->references) {
            words.push_back(index(r.lane) * 10 + r.key.lo);
        }
    }
    void write(const Change& change) {
        apply(state_, change);
        const auto& [lane, key] = change.entry;
        ++stamp_;
        if (!change.content) {
            EXPECT_TRUE(journal_.remove(lane, key, "gone"));
        } else if (lane == Lane::prefixes) {
            journal_.updateValue(lane, key, change.content->variant, stamp_);
        } else {
            journal_.update(lane,
                            key,
                            encode(static_cast<std::uint64_t>(stamp_), change.content->variant),
                            kStampSize,
                            change.content->references);
        }
    }
    std::string leftovers() const {
        const JournalStatistics kept = journal_.statistics();
        std::size_t sum = kept.overtaken;
        for (std::size_t i = 0; i < kLanes; ++i) { sum += kept.changes[i] + kept.tombstones[i]; }
        return sum == 0 ? "" : std::to_string(sum) + " records kept for nobody; ";
    }

    static Reference groupOf(std::uint64_t value) { return {Lane::groups, {0, 0, value}}; }

    Journal journal_;
    const bool deferring_;
    ModelState state_;
    std::int64_t stamp_ = 0;
    std::vector<Cursor::Mode> modes_;
    std::vector<std::unique_ptr<Reader>> readers_;
    std::unique_ptr<Journal::Batch> batch_;
    Transaction transaction_;
    std::size_t done_ = 0;
};

/// 0..8: step of that cursor; 9: begin a round; 10: open the next cursor; 11 and above: write.
using Choice = unsigned char;
using Path = std::basic_string<Choice>;
constexpr Choice kRound = 9;
constexpr Choice kOpen = 10;
constexpr Choice kWrite = 11;

struct Check {
    std::string name;
    std::vector<Cursor::Mode> modes;
    std::vector<ModelState> start;  // written one after the other
    int batches;
    bool deferring = false;
    LogShape shape{};
};

/// All states of a check, breadth first over the number of batches; stops at the first breach.
class Explorer {
public:
    explicit Explorer(const Check& check) : check_(check) {
        // GALE_MODEL_EXTRA=1 goes one batch further, which takes minutes.
        const char* extra = std::getenv("GALE_MODEL_EXTRA");
        if (extra != nullptr) { check_.batches += std::atoi(extra); }
    }

    void run() {
        std::vector<Path> layer{Path{}};
        visit(layer.front());
        for (int batches = 0; batches <= check_.batches && !layer.empty(); ++batches) {
            std::vector<Path> next;
            // Everything but the beginning of a batch costs nothing and stays in this layer.
            for (std::size_t i = 0; i < layer.size(); ++i) {
                const Path path = layer[i];
                expand(path, layer, next, batches < check_.batches);
                if (testing::Test::HasFailure()) { return; }
            }
            layer = std::move(next);
        }
    }
    std::size_t states() const { return seen_.size(); }

private:
    std::unique_ptr<World> replay(const Path& path) const {
        auto world =
            std::make_unique<World>(check_.modes, check_.start, check_.deferring, check_.shape);
        for (const Choice choice : path) { choose(*world, choice); }
        return world;
    }
    static bool choose(World& world, Choice choice) {
        if (choice == kRound) { return world.round(); }
        if (choice < kRound) { return world.step(choice); }
        if (choice == kOpen) {
            world.openNext();
        } else {
            world.write(
                world.inBatch() != nullptr
                    ? *world.inBatch()
                    : transactionsFrom(world.state())[static_cast<std::size_t>(choice) - kWrite]);
        }
        return true;
    }
    void expand(const Path& path, std::vector<Path>& layer, std::vector<Path>& next, bool write) {
        const auto world = replay(path);
        std::size_t opened = 0;
        while (world->open(opened)) { ++opened; }
        for (std::size_t i = 0; i < opened; ++i) { attempt(path, static_cast<Choice>(i), layer); }
        if (opened < world->cursors()) { attempt(path, kOpen, layer); }
        attempt(path, kRound, layer);
        if (world->inBatch() != nullptr) {
            attempt(path, kWrite, layer);
        } else if (write) {
            const std::size_t count = transactionsFrom(world->state()).size();
            for (std::size_t i = 0; i < count; ++i) {
                attempt(path, static_cast<Choice>(kWrite + i), next);
            }
        }
    }
    void attempt(const Path& path, Choice choice, std::vector<Path>& to) {
        const auto world = replay(path);
        if (!choose(*world, choice)) { return; }
        Path longer = path + choice;
        if (world->breach().empty() && !isNew(*world)) { return; }
        ASSERT_EQ(world->breach(), "") << describe(longer);
        visit(longer);
        to.push_back(std::move(longer));
    }
    bool isNew(const World& world) {
        const std::vector<std::uint64_t> words = world.fingerprint();
        return seen_
            .insert(std::string(reinterpret_cast<const char*>(words.data()),
                                words.size() * sizeof(words[0])))
            .second;
    }
    void visit(const Path& path) const {
        auto settling = replay(path);
        EXPECT_EQ(settling->settle(), "") << describe(path);
        if (settling->inBatch() == nullptr) {
            EXPECT_EQ(settling->abandon(), "") << describe(path);
        }
        EXPECT_EQ(replay(path)->abandon(), "") << "abandoned: " << describe(path);
        if (check_.modes.size() < 2) { return; }
        auto bereft = replay(path);
        if (bereft->open(1)) {
            bereft->drop(0);
            while (bereft->step(0)) {}
            EXPECT_EQ(bereft->breach(), "") << "one dropped: " << describe(path);
        }
    }
    std::string describe(const Path& path) const {
        std::string result = "\n";
        World world{check_.modes, check_.start, check_.deferring, check_.shape};
        for (const Choice choice : path) {
            choose(world, choice);
            result += choice == kRound  ? "  round"
                      : choice < kRound ? "  step " + std::to_string(choice)
                      : choice == kOpen ? "  open"
                                        : "  write -> " + toString(world.state());
            result += "\n";
        }
        return result;
    }

    Check check_;
    std::unordered_set<std::string> seen_;
};

class JournalModel : public testing::TestWithParam<Check> {
protected:
    void explore(LogShape shape) {
        Check check = GetParam();
        check.shape = shape;
        Explorer explorer{check};
        explorer.run();
        RecordProperty("states", static_cast<int>(explorer.states()));
        std::cout << explorer.states() << " states\n";
        EXPECT_GT(explorer.states(), 1000U);
    }
};

TEST_P(JournalModel, KeepsItsPromiseInEveryReachableState) {
    explore({});
}

TEST_P(JournalModel, KeepsItForClientsThatAreSoFarBehindThatTheLogHasNoContents) {
    explore({.chunk = 1, .whole = 1});
}

using enum Cursor::Mode;

const ModelState kSmall{{kN1, {}}, {kG1, {0, {kN1}}}, {kP, {1, {kG1}}}};
const ModelState kBackup{{kN1, {}}, {kG2, {0, {kN1}}}, {kG1, {0, {kN1, kG2}}}, {kP, {1, {kG1}}}};

// Most of the states are of this world; under a sanitizer the smaller half of them is enough.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kTwoStreamsBatches = 1;
#else
constexpr int kTwoStreamsBatches = 2;
#endif

INSTANTIATE_TEST_SUITE_P(
    ,
    JournalModel,
    testing::Values(Check{"StreamFromEmpty", {stream}, {}, 4},
                    Check{"StreamFromSmall", {stream}, {kSmall}, 3},
                    Check{"StreamWithBackup", {stream}, {kBackup}, 2},
                    Check{"UpdatesOnly", {updatesOnly}, {kBackup}, 3},
                    Check{"Once", {once}, {kSmall}, 2},
                    Check{"TwoStreams", {stream, stream}, {kSmall}, kTwoStreamsBatches},
                    Check{"TwoLive", {updatesOnly, updatesOnly}, {kSmall}, 2},
                    Check{"Deferring", {stream}, {kSmall}, 2, true},
                    Check{"DeferringUpdatesOnly", {updatesOnly}, {kBackup}, 2, true}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace Gale
