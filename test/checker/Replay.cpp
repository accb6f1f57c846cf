#include "test/checker/Replay.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "test/checker/EntryContent.h"

namespace Checker {

namespace {

/// I of /network-instances/network-instance[name=I]/afts/...
std::string_view instanceOf(std::string_view path) {
    constexpr std::string_view kBegin = "/network-instances/network-instance[name=";
    constexpr std::string_view kEnd = "]/afts/";
    const auto end = path.find(kEnd);
    if (!path.starts_with(kBegin) || end == std::string_view::npos) { return {}; }
    return path.substr(kBegin.size(), end - kBegin.size());
}

/// What the paths of a table's prefixes begin with.
std::string tablePath(const TablePlace& table) {
    const std::string entry = entryPath(table.list, table.instance, {});
    return entry.substr(0, entry.find('[', entry.find("/afts/")) + 1);
}

}  // namespace

void Replay::find(Rule rule, std::string entry, std::string text) {
    findings_.push_back({rule, statistics_.messages, std::move(entry), std::move(text)});
}

Replay::Entry& Replay::entryAt(const std::string& path, List list) {
    Entry& entry = entries_[path];
    if (entry.path.empty()) {
        entry.path = path;
        entry.list = list;
    }
    return entry;
}

// One message

void Replay::take(const gnmi::SubscribeResponse& response) {
    ++statistics_.messages;
    if (options_.once && syncs_ > 0) {
        find(Rule::onceTail, {}, "a message after the sync of a ONCE");
    }
    switch (response.response_case()) {
        case gnmi::SubscribeResponse::kUpdate:
            return notification(response.update());
        case gnmi::SubscribeResponse::kSyncResponse:
            return syncResponse(response.sync_response());
        default:
            find(Rule::responseKind, {}, "neither a notification nor a sync");
    }
}

void Replay::syncResponse(bool value) {
    if (!value) { find(Rule::responseKind, {}, "sync_response is false"); }
    if (++syncs_ == 2) { find(Rule::secondSync, {}, "the stream was synced already"); }
    epochEnd();
    if (options_.quietStart) { summaries(); }
}

void Replay::checkPrefix(const gnmi::Notification& notification) {
    const gnmi::Path& prefix = notification.prefix();
    if (first_) {
        origin_ = prefix.origin();
        target_ = prefix.target();
        first_ = false;
    }
    if (prefix.origin() != origin_ || prefix.target() != target_) {
        find(Rule::origin,
             {},
             fmt::format("origin \"{}\" and target \"{}\", before \"{}\" and \"{}\"",
                         prefix.origin(),
                         prefix.target(),
                         origin_,
                         target_));
    }
    const auto ofPath = [this](const gnmi::Path& path) {
        if (!path.origin().empty() || !path.target().empty() || path.element_size() != 0) {
            find(Rule::origin,
                 {},
                 "a path below the prefix has an origin, a target or old elements");
        }
    };
    for (const gnmi::Update& update : notification.update()) { ofPath(update.path()); }
    for (const gnmi::Path& path : notification.delete_()) { ofPath(path); }
}

void Replay::notification(const gnmi::Notification& notification) {
    Elems prefix;
    append(prefix, notification.prefix());
    checkPrefix(notification);
    if (notification.timestamp() <= 0) {
        find(Rule::stampMissing, pathText(prefix), "the notification has no timestamp");
    }
    if (notification.update_size() == 0 && notification.delete__size() == 0) {
        find(Rule::emptyNotification, pathText(prefix), "neither updates nor deletes");
    }
    // What is not atomic says by a delete that one leaf is not known any more.
    const bool counters = counterPlaceOf(prefix) && prefix.size() == kCounterDepth;
    if (notification.update_size() != 0 && notification.delete__size() != 0 && !counters) {
        find(Rule::mixed, pathText(prefix), "updates and deletes in one notification");
    }
    if (notification.atomic() && notification.delete__size() != 0) {
        find(Rule::atomicDelete, pathText(prefix), "a delete with the atomic flag");
    }
    for (const gnmi::Path& path : notification.delete_()) {
        Elems whole = prefix;
        append(whole, path);
        if (counters && notification.update_size() != 0) {
            leafDeletion(pathText(whole), notification.timestamp(), true);
            continue;
        }
        epochBorder(whole, true);
        deletion(whole, notification.timestamp());
    }
    if (notification.update_size() != 0) { updates(notification, prefix); }
}

void Replay::updates(const gnmi::Notification& notification, const Elems& prefix) {
    Elems first = prefix;
    append(first, notification.update(0).path());
    epochBorder(first, false);
    Place place = placeOf(prefix);
    if (notification.atomic()) {
        if (place.kind != Place::Kind::entry) {
            return find(Rule::prefixNotEntry,
                        pathText(prefix),
                        "an atomic notification whose prefix is not one keyed entry");
        }
        return atomicUpdate(notification, place);
    }
    for (const gnmi::Update& update : notification.update()) {
        Elems whole = prefix;
        append(whole, update.path());
        place = placeOf(whole);
        if (place.kind == Place::Kind::elsewhere) {
            if (counterPlaceOf(whole)) { counterLeaf(whole, update); }
            const auto table = syncedTableOf(whole);
            if (table && update.val().bool_val()) { synced(*table); }
            leafUpdate(pathText(whole), valueText(update.val()), notification.timestamp());
            continue;
        }
        find(Rule::notAtomic, pathText(whole), "an update of an atomic entry without the flag");
        // The content is taken over where it is one: the flag is what was wrong.
        place = placeOf(prefix);
        if (place.kind == Place::Kind::entry) { atomicUpdate(notification, place); }
        return;
    }
}

// Entries

bool Replay::stampAllows(Entry& entry, std::int64_t stamp, const std::string& text) {
    if (!entry.known) { return true; }
    if (!entry.present) {
        if (stamp > entry.stamp) { return true; }
        find(Rule::staleUpdate,
             entry.path,
             fmt::format("stamped {}, and was deleted at {}", stamp, entry.stamp));
        return false;
    }
    if (syncs_ == 0 && (options_.quietStart || stamp <= entry.stamp)) {
        find(Rule::initialDuplicate, entry.path, "comes again before the sync");
    } else if (stamp == entry.stamp && text == entry.text) {
        find(Rule::repeated, entry.path, "the same content with the same stamp again");
    } else if (stamp <= entry.stamp) {
        find(Rule::stampBackwards,
             entry.path,
             fmt::format("stamped {}, the update before {}", stamp, entry.stamp));
    }
    return stamp > entry.stamp;
}

void Replay::atomicUpdate(const gnmi::Notification& notification, const Place& place) {
    ++statistics_.updates;
    if (syncs_ == 0) { ++statistics_.initial; }
    EntryContent content = readContent(place, notification);
    Entry& entry = entryAt(entryPath(place.list, place.instance, place.key), place.list);
    for (auto& [rule, text] : content.problems) { find(rule, entry.path, std::move(text)); }
    if (!stampAllows(entry, notification.timestamp(), content.text)) { return; }
    entry.present = entry.known = true;
    entry.stamp = notification.timestamp();
    entry.text = std::move(content.text);
    entry.protocol = std::move(content.protocol);
    missing_.erase(&entry);
    if (options_.references) { refer(entry, content); }
}

void Replay::refer(Entry& entry, const EntryContent& content) {
    const std::vector<Entry*> before = std::exchange(entry.refersTo, {});
    const auto toAll = [&](const std::vector<std::string>& paths, List list) {
        for (const std::string& path : paths) {
            Entry& target = entryAt(path, list);
            to(entry, target, std::find(before.begin(), before.end(), &target) != before.end());
        }
    };
    toAll(content.nextHops, List::nextHop);
    toAll(content.groups, List::group);
    release(before);
}

/// `held`: the entry referred to it before.
void Replay::to(Entry& entry, Entry& target, bool held) {
    entry.refersTo.push_back(&target);
    ++target.referrers;
    if (target.present) { return; }
    missing_.insert(&target);
    if (!options_.laggard && !held) {
        dangles(target, fmt::format("{} refers to it and it is not there", entry.path));
    }
}

void Replay::release(const std::vector<Entry*>& targets) {
    for (Entry* const target : targets) {
        if (--target->referrers == 0) { missing_.erase(target); }
    }
}

void Replay::dangles(const Entry& target, const std::string& how) {
    find(target.list == List::nextHop ? Rule::danglingNextHop : Rule::danglingGroup,
         target.path,
         how);
}

const Replay::Entry* Replay::referrerOf(const Entry& target) const {
    const Entry* found = nullptr;
    const auto look = [&](const auto& entries) {
        for (const auto& [path, entry] : entries) {
            const auto& to = entry.refersTo;
            if (std::find(to.begin(), to.end(), &target) != to.end()) { found = &entry; }
        }
    };
    look(entries_);
    look(counters_);
    return found;
}

// Deletes

void Replay::deletion(const Elems& path, std::int64_t stamp) {
    ++statistics_.deletes;
    const Place place = placeOf(path);
    switch (place.kind) {
        case Place::Kind::elsewhere:
            countersGone(pathText(path));
            return leafDeletion(pathText(path), stamp, false);
        case Place::Kind::entry:
            return entryDeletion(
                entryAt(entryPath(place.list, place.instance, place.key), place.list), stamp);
        case Place::Kind::above:
        case Place::Kind::below:
            find(Rule::deleteNotAtEntry, pathText(path), "a delete is of one whole entry");
    }
}

void Replay::entryDeletion(Entry& entry, std::int64_t stamp) {
    if (!entry.present) {
        return find(Rule::deleteAbsent, entry.path, "a delete of what the client does not have");
    }
    if (stamp <= entry.stamp) {
        find(
            Rule::deleteStamp,
            entry.path,
            fmt::format("deleted at {}, not later than its last update at {}", stamp, entry.stamp));
    }
    entry.present = false;
    entry.stamp = std::max(entry.stamp, stamp);
    entry.text.clear();
    release(std::exchange(entry.refersTo, {}));
    if (entry.referrers == 0) { return; }
    missing_.insert(&entry);
    if (!options_.laggard) {
        const Entry* const referrer = referrerOf(entry);
        dangles(entry,
                fmt::format("deleted while {} refers to it",
                            referrer == nullptr ? "an entry" : referrer->path));
    }
}

// Leaves outside atomic entries

void Replay::leafUpdate(const std::string& path, const std::string& text, std::int64_t stamp) {
    ++statistics_.leaves;
    Leaf& leaf = leaves_[path];
    if (leaf.stamp != 0 && stamp <= leaf.stamp) {
        const bool again = stamp == leaf.stamp && text == leaf.text;
        const Rule rule = !leaf.present ? Rule::staleUpdate
                          : syncs_ == 0 ? Rule::initialDuplicate
                          : again       ? Rule::repeated
                                        : Rule::stampBackwards;
        return find(rule, path, fmt::format("stamped {}, before {}", stamp, leaf.stamp));
    }
    leaf = {true, stamp, text};
}

/// `maybe`: it need not have been there.
void Replay::leafDeletion(const std::string& path, std::int64_t stamp, bool maybe) {
    bool any = false;
    for (auto at = leaves_.lower_bound(path); at != leaves_.end(); ++at) {
        const bool below = at->first == path || at->first.starts_with(path + "/") || path == "/";
        if (!at->first.starts_with(path)) { break; }
        Leaf& leaf = at->second;
        if (!below || !leaf.present) { continue; }
        any = true;
        if (stamp <= leaf.stamp) {
            find(Rule::deleteStamp,
                 at->first,
                 fmt::format("deleted at {}, last update at {}", stamp, leaf.stamp));
        }
        leaf = {false, std::max(stamp, leaf.stamp), {}};
    }
    if (!any && !maybe) {
        find(Rule::deleteAbsent, path, "a delete of what the client does not have");
    }
}

/// A leaf of the next hop's counters: they name the next hop, which has to be there.
void Replay::counterLeaf(const Elems& path, const gnmi::Update& update) {
    const CounterPlace place = *counterPlaceOf(path);
    Entry& counters = counterAt(place);
    const std::string leaf = pathText(path, kCounterDepth);
    if (!isCounterLeaf(leaf)) {
        find(Rule::leafSet, counters.path, leaf + " is no leaf of a next hop's counters");
    } else if (!isOfType(update.val(), LeafType::number)) {
        find(Rule::leafType,
             counters.path,
             fmt::format("{} has the value {}", leaf, valueText(update.val())));
    } else if (leaf.ends_with("index") && keyText(update.val()) != place.index) {
        find(Rule::keyLeaf,
             counters.path,
             fmt::format("{} is {}, the key is {}", leaf, valueText(update.val()), place.index));
    }
    if (counters.present) { return; }
    counters.present = true;
    if (!options_.references) { return; }
    to(counters,
       entryAt(entryPath(List::nextHop, place.instance, place.index), List::nextHop),
       false);
}

Replay::Entry& Replay::counterAt(const CounterPlace& place) {
    std::string at = fmt::format(
        "/network-instances/network-instance[name={}]/afts/counters/next-hops/next-hop[index={}]",
        place.instance,
        place.index);
    Entry& counters = counters_[at];
    counters.path = std::move(at);
    return counters;
}

/// At or below the path.
void Replay::countersGone(const std::string& path) {
    for (auto at = counters_.lower_bound(path); at != counters_.end(); ++at) {
        if (!at->first.starts_with(path)) { break; }
        const bool below = at->first.size() == path.size() || at->first[path.size()] == '/';
        if (!below || !std::exchange(at->second.present, false)) { continue; }
        release(std::exchange(at->second.refersTo, {}));
    }
}

// What is said of whole tables

/// A table is said to be complete.
void Replay::synced(const TablePlace& table) {
    std::size_t missing = 0;
    std::string first;
    for (const std::string& path : options_.beforeSynced) {
        const bool route = path.find("-entry[") != std::string::npos;
        if (route && !path.starts_with(tablePath(table))) { continue; }
        const auto entry = entries_.find(path);
        if (entry != entries_.end() && entry->second.known) { continue; }
        if (missing++ == 0) { first = path; }
    }
    if (missing == 0) { return; }
    find(Rule::flagEarly,
         syncedPath(table),
         fmt::format("true before {} entries that were there, {} among them", missing, first));
}

void Replay::tablesWithoutFlag() {
    std::set<std::string> wanted;
    for (const std::string& path : options_.beforeSynced) {
        const auto entry = entries_.find(path);
        if (entry == entries_.end()) { continue; }
        const List list = entry->second.list;
        if (list != List::ipv4 && list != List::ipv6) { continue; }
        wanted.insert(syncedPath({instanceOf(path), list}));
    }
    for (const std::string& path : wanted) {
        const auto leaf = leaves_.find(path);
        if (leaf == leaves_.end() || leaf->second.text != "true") {
            find(Rule::flagMissing, path, "not true at the end");
        }
    }
}

/// Counts and prefixes are told one after the other, so they agree only where nothing is under way.
void Replay::summaries() {
    if (!options_.references) { return; }  // a part of the AFT
    std::map<std::string, std::uint64_t> counted;
    for (const auto& [path, entry] : entries_) {
        if (entry.present && !entry.protocol.empty()) {
            ++counted[summaryPath({instanceOf(path), entry.list}, entry.protocol)];
        }
    }
    for (const auto& [path, count] : counted) {
        const auto leaf = leaves_.find(path);
        const bool there = leaf != leaves_.end() && leaf->second.present;
        if (there && leaf->second.text == std::to_string(count)) { continue; }
        find(Rule::summaryCount,
             path,
             fmt::format("says {}, and the client holds {} such prefixes",
                         there ? leaf->second.text : "nothing",
                         count));
    }
    for (const auto& [path, leaf] : leaves_) {
        if (!leaf.present || !isSummaryCount(path) || counted.contains(path)) { continue; }
        find(Rule::summaryCount, path, "says " + leaf.text + ", and there is no such prefix");
    }
}

// Epochs: all updates, lane by lane, then all deletes, lanes in reverse

void Replay::epochBorder(const Elems& path, bool isDelete) {
    const auto lane = laneOf(path);
    if (!lane) { return; }
    if (syncs_ != 0) {  // before it the walk has an order of its own
        const bool next = inDeletes_ ? !isDelete || *lane > lane_ : !isDelete && *lane < lane_;
        if (next) { epochEnd(); }
    }
    inDeletes_ = isDelete;
    lane_ = *lane;
}

void Replay::epochEnd() {
    ++statistics_.epochs;
    if (!options_.laggard) { return; }  // was looked at all along
    for (const Entry* const target : missing_) {
        const Entry* const referrer = referrerOf(*target);
        dangles(*target,
                fmt::format("at the end of an epoch {} refers to it and it is not there",
                            referrer == nullptr ? "an entry" : referrer->path));
    }
    missing_.clear();
}

// The end

void Replay::finish(const StreamEnd& end) {
    if (syncs_ == 0) { find(Rule::noSync, {}, "the stream ended before its sync"); }
    if (options_.once && end.code != 0) {
        find(Rule::onceTail, {}, fmt::format("ended with status {}: {}", end.code, end.text));
    }
    if (!options_.quietEnd) { return; }
    epochEnd();
    if (!options_.quietStart || !options_.once) { summaries(); }
    tablesWithoutFlag();
}

std::size_t Replay::entries(List list) const {
    std::size_t count = 0;
    for (const auto& [path, entry] : entries_) { count += entry.present && entry.list == list; }
    return count;
}

std::size_t Replay::leaves() const {
    std::size_t count = 0;
    for (const auto& [path, leaf] : leaves_) { count += leaf.present; }
    return count;
}

namespace {

/// The first line of each that the other has not. The last line need not end.
std::string difference(const std::string& mine, const std::string& theirs) {
    const auto only = [](const std::string& of, const std::string& other) -> std::string {
        std::istringstream others{other};
        std::set<std::string> known;
        for (std::string line; std::getline(others, line);) { known.insert(line); }
        std::istringstream own{of};
        for (std::string line; std::getline(own, line);) {
            if (!known.contains(line)) { return line; }
        }
        return "nothing";
    };
    return fmt::format(
        "the stream led to [{}], the truth has [{}]", only(mine, theirs), only(theirs, mine));
}

}  // namespace

void Replay::compareWith(const Replay& truth) {
    const auto differs = [this](Rule rule, const std::string& path, std::string text) {
        findings_.push_back({rule, 0, path, std::move(text)});
    };
    const auto compare = [&](const auto& mine, const auto& theirs) {
        for (const auto& [path, entry] : mine) {
            if (!entry.present) { continue; }
            const auto found = theirs.find(path);
            if (found == theirs.end() || !found->second.present) {
                differs(Rule::staleEntry, path, "the client holds it and it is no more");
            } else if (found->second.text != entry.text) {
                differs(Rule::contentDiffers, path, difference(entry.text, found->second.text));
            }
        }
        for (const auto& [path, entry] : theirs) {
            const auto found = mine.find(path);
            if (entry.present && (found == mine.end() || !found->second.present)) {
                differs(Rule::lostEntry, path, "it is there and the client does not have it");
            }
        }
    };
    const auto before = static_cast<std::ptrdiff_t>(findings_.size());
    compare(entries_, truth.entries_);
    compare(leaves_, truth.leaves_);
    // Hash order is nobody's order.
    std::sort(findings_.begin() + before, findings_.end(), [](const Finding& a, const Finding& b) {
        return a.entry < b.entry;
    });
}

}  // namespace Checker
