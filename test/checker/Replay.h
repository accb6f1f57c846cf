#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "test/checker/AftSchema.h"
#include "test/checker/Finding.h"
#include "test/checker/Recording.h"

namespace gnmi {
class Notification;
class SubscribeResponse;
class Update;
}  // namespace gnmi

namespace Checker {

struct EntryContent;

struct ReplayOptions {
    /// References are looked at where an epoch is seen to end, not after each message.
    bool laggard = false;
    /// The end of the recording is the end of an epoch.
    bool quietEnd = false;
    /// Nothing changed during the initial set: no entry comes twice in it, whatever its stamp.
    bool quietStart = false;
    /// The call was a ONCE: OK right after the sync.
    bool once = false;
    /// Off for a stream that shows only a part of the AFT.
    bool references = true;
    /// Entries that are there from a table's first moment on, so that state-synced must not be true before each of them
    /// was told: prefixes of their own table, next hops and groups of every table. At a quiet end each table that has
    /// prefixes here has to be synced.
    std::set<std::string> beforeSynced = {};
};

struct ReplayStatistics {
    std::uint64_t messages = 0;
    std::uint64_t updates = 0;  ///< atomic ones
    std::uint64_t deletes = 0;
    std::uint64_t leaves = 0;   ///< updates of leaves outside atomic entries
    std::uint64_t initial = 0;  ///< atomic updates before the sync
    std::uint64_t epochs = 0;   ///< ends of epochs that were seen
};

/// Plays a recorded stream of the AFT view as a client and holds each message against the rules. What a message says is
/// taken over even when it broke a rule, so that one fault gives one finding; only what is stamped too early is dropped,
/// as the reference cache does.
class Replay {
public:
    explicit Replay(const ReplayOptions& options) : options_{options} {}
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    void take(const gnmi::SubscribeResponse& response);
    /// After the last message.
    void finish(const StreamEnd& end);
    /// Holds the state that the stream led to against another one's, taken after the last change.
    void compareWith(const Replay& truth);

    const std::vector<Finding>& findings() const { return findings_; }
    const ReplayStatistics& statistics() const { return statistics_; }
    bool synced() const { return syncs_ > 0; }
    /// Entries that the client holds at present.
    std::size_t entries(List list) const;
    std::size_t leaves() const;

private:
    struct Entry {
        std::string path;
        List list = List::nextHop;
        bool present = false;
        bool known = false;      // was there at least once
        std::int64_t stamp = 0;  // of the last update or delete
        std::uint64_t referrers = 0;
        std::string text;
        std::string protocol;  // of a prefix
        std::vector<Entry*> refersTo;
    };
    struct Leaf {
        bool present = false;
        std::int64_t stamp = 0;
        std::string text;
    };

    void find(Rule rule, std::string entry, std::string text);
    void notification(const gnmi::Notification& notification);
    void checkPrefix(const gnmi::Notification& notification);
    void updates(const gnmi::Notification& notification, const Elems& prefix);
    void atomicUpdate(const gnmi::Notification& notification, const Place& place);
    bool stampAllows(Entry& entry, std::int64_t stamp, const std::string& text);
    void refer(Entry& entry, const EntryContent& content);
    void release(const std::vector<Entry*>& targets);
    void leafUpdate(const std::string& path, const std::string& text, std::int64_t stamp);
    void counterLeaf(const Elems& path, const gnmi::Update& update);
    Entry& counterAt(const CounterPlace& place);
    void countersGone(const std::string& path);
    void synced(const TablePlace& table);
    void tablesWithoutFlag();
    void summaries();
    void to(Entry& entry, Entry& target, bool held);
    void deletion(const Elems& path, std::int64_t stamp);
    void entryDeletion(Entry& entry, std::int64_t stamp);
    void leafDeletion(const std::string& path, std::int64_t stamp, bool maybe);
    void syncResponse(bool value);
    void epochBorder(const Elems& path, bool isDelete);
    void epochEnd();
    void dangles(const Entry& target, const std::string& how);
    const Entry* referrerOf(const Entry& target) const;
    Entry& entryAt(const std::string& path, List list);

    ReplayOptions options_;
    std::vector<Finding> findings_;
    ReplayStatistics statistics_;
    std::unordered_map<std::string, Entry> entries_;  // pointers to them stay good
    std::map<std::string, Leaf> leaves_;
    std::map<std::string, Entry> counters_;  // of next hops; pointers to them stay good
    std::set<Entry*> missing_;               // referred to and not there
    std::uint64_t syncs_ = 0;
    bool first_ = true;
    std::string origin_;
    std::string target_;
    bool inDeletes_ = false;
    int lane_ = 0;
};

}  // namespace Checker
