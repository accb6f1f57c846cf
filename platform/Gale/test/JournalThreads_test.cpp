// One thread writes, another reads with several cursors that come, lag and go. Each client is
// checked after every message.

#include "platform/Gale/test/JournalModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>

namespace Gale {
namespace {

constexpr Reference nextHop(std::uint64_t n) {
    return {Lane::nextHops, {0, 0, n}};
}
constexpr Reference group(std::uint64_t n) {
    return {Lane::groups, {0, 0, n}};
}

constexpr std::uint64_t kGroups = 40;

/// Moves groups from one next hop to another in batches: the next hop of its own number or a new
/// one.
class Writer {
public:
    explicit Writer(Journal& journal) : journal_(journal) {}

    void batch() {
        const Journal::Batch batch{journal_};
        const std::uint64_t g = random_() % kGroups;
        const auto old = state_.find(group(g));
        const Reference member = nextHop(++next_);
        put(member, {});
        std::vector<Reference> gone;
        if (old != state_.end()) { gone = old->second.references; }
        if (random_() % 8 == 0 && old != state_.end()) {
            remove(group(g));
            remove(member);
        } else {
            put(group(g), {random_() % 2, {member}});
        }
        for (const Reference& each : gone) { remove(each); }
    }
    const ModelState& state() const { return state_; }

private:
    void put(const Reference& entry, const ModelContent& content) {
        state_[entry] = content;
        journal_.update(entry.lane,
                        entry.key,
                        encode(++stamp_, content.variant),
                        kStampSize,
                        content.references);
    }
    void remove(const Reference& entry) {
        state_.erase(entry);
        journal_.remove(entry.lane, entry.key, "gone");
    }

    Journal& journal_;
    ModelState state_;
    std::mt19937 random_{1};
    std::uint64_t next_ = 0;
    std::uint64_t stamp_ = 0;
};

struct Reader {
    explicit Reader(Journal& journal) : cursor(journal, {}) {}
    /// True while there may be more.
    bool read(std::size_t messages) {
        std::vector<CursorMessage> out(messages);
        const Cursor::Result got = cursor.next(out);
        for (std::size_t i = 0; i < got.count; ++i) { client.receive(out[i]); }
        return got.state == Cursor::State::more;
    }
    Cursor cursor;
    ModelClient client;
};

TEST(JournalThreads, ClientsStayConsistentWhileTheWriterWrites) {
    constexpr int kBatches = 20'000;
    std::atomic<Position> advanced{0};
    Journal* published = nullptr;
    Journal journal{{.onAdvance = [&] { advanced.store(published->head()); },
                     .referenceOf = {},
                     .log = {.chunk = 8, .whole = 4}}};  // most clients are behind what is whole
    published = &journal;

    std::atomic<bool> done{false};
    Writer writer{journal};
    std::thread writing{[&] {
        for (int i = 0; i < kBatches; ++i) { writer.batch(); }
        done.store(true);
    }};
    std::vector<std::unique_ptr<Reader>> readers;
    std::size_t turn = 0;
    while (!done.load()) {
        if (readers.size() < 6) { readers.push_back(std::make_unique<Reader>(journal)); }
        for (std::size_t i = 0; i < readers.size(); ++i) { readers[i]->read(1 + i * i * 7); }
        if (++turn % 50 == 0) {
            const std::size_t victim = (turn / 50) % readers.size();
            EXPECT_EQ(readers[victim]->client.breach(), "");
            readers.erase(readers.begin() + static_cast<std::ptrdiff_t>(victim));
        }
    }
    writing.join();

    EXPECT_EQ(advanced.load(), journal.head());
    for (const auto& reader : readers) {
        while (reader->read(100)) {}
        EXPECT_EQ(reader->client.breach(), "");
        EXPECT_EQ(reader->client.state(), writer.state());
        EXPECT_EQ(reader->client.syncs(), 1);
    }
    readers.clear();
    const JournalStatistics kept = journal.statistics();
    EXPECT_EQ(kept.changes[0] + kept.changes[1] + kept.tombstones[0] + kept.tombstones[1], 0U);
}

}  // namespace
}  // namespace Gale
