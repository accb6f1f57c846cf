#include "test/checker/test/Faults.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "test/checker/AftSchema.h"
#include "test/checker/test/StreamIndex.h"

namespace Checker {
namespace {

constexpr std::string_view kNowhere = "999999999";

using Messages = std::vector<Stream::Message>;

gnmi::Notification& notificationAt(Stream& stream, const Step& step) {
    return *stream.messages[step.at].response.mutable_update();
}

Messages::iterator place(Stream& stream, std::size_t at) {
    return stream.messages.begin() + static_cast<std::ptrdiff_t>(at);
}

void drop(Stream& stream, std::size_t at) {
    stream.messages.erase(place(stream, at));
}

/// Moves message `from` so that it stands where `to` is now.
void move(Stream& stream, std::size_t from, std::size_t to) {
    if (from < to) {
        std::rotate(place(stream, from), place(stream, from + 1), place(stream, to + 1));
    } else {
        std::rotate(place(stream, to), place(stream, from), place(stream, from + 1));
    }
}

/// A copy of message `from` before the one at `to`.
void copy(Stream& stream, std::size_t from, std::size_t to) {
    const Stream::Message message = stream.messages[from];
    stream.messages.insert(place(stream, to), message);
}

std::string lastName(const gnmi::Path& path) {
    return path.elem(path.elem_size() - 1).name();
}

gnmi::Update* leafOf(gnmi::Notification& notification, const std::string& name) {
    for (gnmi::Update& update : *notification.mutable_update()) {
        if (lastName(update.path()) == name) { return &update; }
    }
    return nullptr;
}

/// An update whose content is overtaken by a later one: what is wrong in it leaves no trace in the end.
bool overtaken(const Step& step, List list) {
    return step.list == list && step.isUpdate() && step.live && step.after != nullptr &&
           step.after->isUpdate();
}

/// Finds an overtaken update and spoils its notification.
template <class Spoil>
bool spoilOvertaken(Stream& stream, List list, Spoil spoil) {
    const StreamIndex index{stream};
    const Step* const step = index.find([&](const Step& s) { return overtaken(s, list); });
    return step != nullptr && spoil(notificationAt(stream, *step));
}

/// Finds a delete of a next hop that comes back, and spoils its notification.
template <class Spoil>
bool spoilDelete(Stream& stream, Spoil spoil) {
    const StreamIndex index{stream};
    const Step* const step = index.find(
        [](const Step& s) { return s.list == List::nextHop && s.isDelete && s.after != nullptr; });
    return step != nullptr && spoil(stream, *step);
}

// Lost

bool droppedDelete(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step =
        index.find([](const Step& s) { return s.list == List::nextHop && s.isDelete && s.last; });
    if (step != nullptr) { drop(stream, step->at); }
    return step != nullptr;
}

bool droppedUpdate(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step = index.find([](const Step& s) {
        return s.list == List::nextHop && s.live && s.isUpdate() && s.last && s.before != nullptr &&
               s.before->isUpdate() && s.before->live;
    });
    if (step != nullptr) { drop(stream, step->at); }
    return step != nullptr;
}

bool droppedBetweenSyncAndLive(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step = index.find([](const Step& s) {
        return s.list == List::nextHop && s.live && s.isUpdate() && s.last && s.before != nullptr &&
               !s.before->live;
    });
    if (step == nullptr) { return false; }
    // It becomes the first one after the sync, which then gets lost.
    move(stream, step->at, index.sync() + 1);
    drop(stream, index.sync() + 1);
    return true;
}

bool droppedEntry(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step = index.find(
        [](const Step& s) { return s.list == List::ipv4 && !s.live && s.first && s.last; });
    if (step != nullptr) { drop(stream, step->at); }
    return step != nullptr;
}

bool inventedEntry(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step =
        index.find([](const Step& s) { return s.list == List::nextHop && s.live && s.isUpdate(); });
    if (step == nullptr) { return false; }
    copy(stream, step->at, stream.messages.size());
    auto& made = *stream.messages.back().response.mutable_update();
    (*made.mutable_prefix()->mutable_elem(4)->mutable_key())["index"] = kNowhere;
    for (gnmi::Update& update : *made.mutable_update()) {
        if (lastName(update.path()) == "index" && update.path().elem_size() <= 2) {
            update.mutable_val()->set_uint_val(std::stoull(std::string{kNowhere}));
        }
    }
    return true;
}

bool missingSync(Stream& stream) {
    drop(stream, StreamIndex{stream}.sync());
    return true;
}

// References

bool danglingGroup(Stream& stream) {
    return spoilOvertaken(stream, List::ipv4, [](gnmi::Notification& notification) {
        gnmi::Update* const leaf = leafOf(notification, "next-hop-group");
        if (leaf != nullptr) { leaf->mutable_val()->set_uint_val(999'999'999); }
        return leaf != nullptr;
    });
}

bool danglingNextHop(Stream& stream) {
    return spoilOvertaken(stream, List::group, [](gnmi::Notification& notification) {
        const auto member = [&](std::initializer_list<const char*> below, std::uint64_t value) {
            gnmi::Update& update = *notification.add_update();
            update.mutable_path()->add_elem()->set_name("next-hops");
            gnmi::PathElem& elem = *update.mutable_path()->add_elem();
            elem.set_name("next-hop");
            (*elem.mutable_key())["index"] = kNowhere;
            for (const char* const name : below) {
                update.mutable_path()->add_elem()->set_name(name);
            }
            update.mutable_val()->set_uint_val(value);
        };
        member({"index"}, 999'999'999);
        member({"state", "index"}, 999'999'999);
        member({"state", "weight"}, 1);
        return true;
    });
}

/// The group that a prefix refers to after a step.
std::string groupOf(Stream& stream, const Step& step) {
    gnmi::Update* const leaf = leafOf(notificationAt(stream, step), "next-hop-group");
    return leaf == nullptr
               ? std::string{}
               : entryPath(List::group, "DEFAULT", std::to_string(leaf->val().uint_val()));
}

bool swappedDeletes(Stream& stream) {
    const StreamIndex index{stream};
    for (const Step& prefix : index.steps()) {
        const bool route = prefix.list == List::ipv4 || prefix.list == List::ipv6;
        if (!route || !prefix.isDelete || prefix.before == nullptr) { continue; }
        const std::string group = groupOf(stream, *prefix.before);
        for (const Step* const step : index.of(group)) {
            if (step->at < prefix.at || !step->isDelete) { continue; }
            if (prefix.after != nullptr && prefix.after->at < step->at) { break; }
            move(stream, prefix.at, step->at);  // its delete now follows the group's
            return true;
        }
    }
    return false;
}

bool swappedUpdates(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const group = index.find(
        [](const Step& s) { return s.list == List::group && s.isUpdate() && s.live && s.first; });
    if (group == nullptr) { return false; }
    for (const gnmi::Update& update : notificationAt(stream, *group).update()) {
        if (lastName(update.path()) != "weight") { continue; }
        const std::string& member = update.path().elem(1).key().at("index");
        const Step* const hop = index.of(entryPath(List::nextHop, "DEFAULT", member)).front();
        if (!hop->live || hop->at > group->at) { continue; }
        move(stream, group->at, hop->at);
        return true;
    }
    return false;
}

// The initial set and the sync

bool duplicateInInitialSet(Stream& stream) {
    const StreamIndex index{stream};
    copy(stream, index.steps().front().at, index.sync());
    return true;
}

bool secondSync(Stream& stream) {
    copy(stream, StreamIndex{stream}.sync(), stream.messages.size());
    return true;
}

bool syncFalse(Stream& stream) {
    stream.messages[StreamIndex{stream}.sync()].response.set_sync_response(false);
    return true;
}

// Stamps

bool deleteStampedAs(Stream& stream, std::int64_t later) {
    return spoilDelete(stream, [later](Stream& of, const Step& step) {
        notificationAt(of, step).set_timestamp(notificationAt(of, *step.before).timestamp() +
                                               later);
        return true;
    });
}

bool deleteStampedEqual(Stream& stream) {
    return deleteStampedAs(stream, 0);
}

bool deleteStampedEarlier(Stream& stream) {
    return deleteStampedAs(stream, -1);
}

bool staleReAdd(Stream& stream) {
    return spoilDelete(stream, [](Stream& of, const Step& step) {
        copy(of, step.before->at, step.at + 1);
        return true;
    });
}

bool repeatedUpdate(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step = index.find([](const Step& s) { return s.live && s.isUpdate(); });
    if (step != nullptr) { copy(stream, step->at, step->at + 1); }
    return step != nullptr;
}

bool stampBackwards(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const step = index.find([](const Step& s) {
        return overtaken(s, List::nextHop) && s.before != nullptr && s.before->isUpdate();
    });
    if (step == nullptr) { return false; }
    notificationAt(stream, *step)
        .set_timestamp(notificationAt(stream, *step->before).timestamp() - 1);
    return true;
}

bool missingStamp(Stream& stream) {
    const StreamIndex index{stream};
    notificationAt(stream, index.steps().front()).set_timestamp(0);
    return true;
}

// Form

bool missingAtomicFlag(Stream& stream) {
    return spoilOvertaken(stream, List::group, [](gnmi::Notification& notification) {
        notification.set_atomic(false);
        return true;
    });
}

bool atomicDelete(Stream& stream) {
    return spoilDelete(stream, [](Stream& of, const Step& step) {
        notificationAt(of, step).set_atomic(true);
        return true;
    });
}

bool deleteOfTheList(Stream& stream) {
    return spoilDelete(stream, [](Stream& of, const Step& step) {
        gnmi::Path& path = *notificationAt(of, step).mutable_delete_(0);
        path.mutable_elem(path.elem_size() - 1)->clear_key();
        return true;
    });
}

bool deleteOfALeaf(Stream& stream) {
    return spoilDelete(stream, [](Stream& of, const Step& step) {
        notificationAt(of, step).mutable_delete_(0)->add_elem()->set_name("state");
        return true;
    });
}

bool deletedTwice(Stream& stream) {
    return spoilDelete(stream, [](Stream& of, const Step& step) {
        copy(of, step.at, step.at + 1);
        auto& again = *of.messages[step.at + 1].response.mutable_update();
        again.set_timestamp(again.timestamp() + 1);
        return true;
    });
}

bool prefixAtTheList(Stream& stream) {
    return spoilOvertaken(stream, List::nextHop, [](gnmi::Notification& notification) {
        gnmi::PathElem entry = notification.prefix().elem(4);
        notification.mutable_prefix()->mutable_elem()->RemoveLast();
        for (gnmi::Update& update : *notification.mutable_update()) {
            gnmi::Path path;
            *path.add_elem() = entry;
            path.MergeFrom(update.path());
            *update.mutable_path() = path;
        }
        return true;
    });
}

bool otherOrigin(Stream& stream) {
    return spoilOvertaken(stream, List::nextHop, [](gnmi::Notification& notification) {
        notification.mutable_prefix()->set_origin("elsewhere");
        return true;
    });
}

bool emptyNotification(Stream& stream) {
    const StreamIndex index{stream};
    copy(stream, index.steps().front().at, index.sync());
    auto& made = *stream.messages[index.sync()].response.mutable_update();
    made.clear_update();
    return true;
}

// Leaves

bool memberWithoutWeight(Stream& stream) {
    return spoilOvertaken(stream, List::group, [](gnmi::Notification& notification) {
        auto& updates = *notification.mutable_update();
        const auto weight = std::find_if(updates.begin(), updates.end(), [](const auto& update) {
            return lastName(update.path()) == "weight";
        });
        if (weight == updates.end()) { return false; }
        updates.erase(weight);
        return true;
    });
}

bool contentOfAnotherKey(Stream& stream) {
    const StreamIndex index{stream};
    const Step* const one = index.find([](const Step& s) { return overtaken(s, List::nextHop); });
    const Step* const other = index.find([&](const Step& s) {
        return s.list == List::nextHop && s.isUpdate() && s.entry != one->entry;
    });
    if (one == nullptr || other == nullptr) { return false; }
    *notificationAt(stream, *one).mutable_update() = notificationAt(stream, *other).update();
    return true;
}

bool numberAsText(Stream& stream) {
    return spoilOvertaken(stream, List::group, [](gnmi::Notification& notification) {
        gnmi::Update* const leaf = leafOf(notification, "weight");
        if (leaf != nullptr) { leaf->mutable_val()->set_string_val("1"); }
        return leaf != nullptr;
    });
}

bool leafTwice(Stream& stream) {
    return spoilOvertaken(stream, List::nextHop, [](gnmi::Notification& notification) {
        *notification.add_update() = gnmi::Update{notification.update(0)};
        return true;
    });
}

bool leafOfAnotherList(Stream& stream) {
    return spoilOvertaken(stream, List::nextHop, [](gnmi::Notification& notification) {
        gnmi::Update& update = *notification.add_update();
        update.mutable_path()->add_elem()->set_name("state");
        update.mutable_path()->add_elem()->set_name("weight");
        update.mutable_val()->set_uint_val(1);
        return true;
    });
}

}  // namespace

const std::vector<Fault>& faults() {
    static const std::vector<Fault> all{
        {"DroppedDelete", Rule::staleEntry, droppedDelete},
        {"DroppedUpdate", Rule::contentDiffers, droppedUpdate},
        {"UpdateLostBetweenSyncAndLive", Rule::contentDiffers, droppedBetweenSyncAndLive},
        {"EntryLostFromTheInitialSet", Rule::lostEntry, droppedEntry},
        {"InventedEntry", Rule::staleEntry, inventedEntry},
        {"MissingSync", Rule::noSync, missingSync},
        {"PrefixOverAGroupThatIsNotThere", Rule::danglingGroup, danglingGroup},
        {"GroupOverANextHopThatIsNotThere", Rule::danglingNextHop, danglingNextHop},
        {"GroupDeletedBeforeItsPrefix", Rule::danglingGroup, swappedDeletes},
        {"GroupAddedBeforeItsNextHop", Rule::danglingNextHop, swappedUpdates},
        {"DuplicateInTheInitialSet", Rule::initialDuplicate, duplicateInInitialSet},
        {"SecondSync", Rule::secondSync, secondSync},
        {"SyncFalse", Rule::responseKind, syncFalse},
        {"DeleteStampedEqual", Rule::deleteStamp, deleteStampedEqual},
        {"DeleteStampedEarlier", Rule::deleteStamp, deleteStampedEarlier},
        {"StaleReAddAfterDelete", Rule::staleUpdate, staleReAdd},
        {"RepeatedUpdate", Rule::repeated, repeatedUpdate},
        {"StampBackwards", Rule::stampBackwards, stampBackwards},
        {"MissingStamp", Rule::stampMissing, missingStamp},
        {"MissingAtomicFlag", Rule::notAtomic, missingAtomicFlag},
        {"AtomicDelete", Rule::atomicDelete, atomicDelete},
        {"DeleteOfTheWholeList", Rule::deleteNotAtEntry, deleteOfTheList},
        {"DeleteOfAPart", Rule::deleteNotAtEntry, deleteOfALeaf},
        {"DeletedTwice", Rule::deleteAbsent, deletedTwice},
        {"PrefixAtTheList", Rule::prefixNotEntry, prefixAtTheList},
        {"OtherOrigin", Rule::origin, otherOrigin},
        {"EmptyNotification", Rule::emptyNotification, emptyNotification},
        {"MemberWithoutWeight", Rule::leafSet, memberWithoutWeight},
        {"LeafOfAnotherList", Rule::leafSet, leafOfAnotherList},
        {"ContentOfAnotherKey", Rule::keyLeaf, contentOfAnotherKey},
        {"NumberAsText", Rule::leafType, numberAsText},
        {"LeafTwice", Rule::leafTwice, leafTwice},
    };
    return all;
}

}  // namespace Checker
