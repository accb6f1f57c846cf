#include "test/checker/EntryContent.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <algorithm>
#include <string_view>

namespace Checker {
namespace {

/// An entry of a list: the notification's own, or one nested in it.
struct Entry {
    std::string path;  // relative; empty for the notification's own
    std::string keyName;
    std::string key;
    bool keyLeaf = false;
    bool stateKeyLeaf = false;
    bool weight = false;
};

class Reader {
public:
    Reader(const Place& place, EntryContent& to) : place_{place}, to_{to} {
        entries_.push_back({"", std::string{keyName(place.list)}, std::string{place.key}});
    }
    void update(const gnmi::Update& update);
    void finish();

private:
    void problem(Rule rule, std::string text) { to_.problems.emplace_back(rule, std::move(text)); }
    std::size_t entryOf(std::string path, const gnmi::PathElem& elem);
    void keyLeaf(Entry& entry, bool& seen, std::string_view leaf, const gnmi::TypedValue& value);
    void reference(std::string_view leaf, const gnmi::TypedValue& value);
    void complete(const Entry& entry);

    const Place& place_;
    EntryContent& to_;
    std::vector<Entry> entries_;
    std::vector<std::string> lines_;
    std::string groupInstance_;
    std::vector<std::string> groupKeys_;
};

std::size_t Reader::entryOf(std::string path, const gnmi::PathElem& elem) {
    // Leaves of an entry stand together: the last one is nearly always it.
    for (std::size_t i = entries_.size(); i-- > 1;) {
        if (entries_[i].path == path) { return i; }
    }
    entries_.push_back({std::move(path), elem.key().begin()->first, elem.key().begin()->second});
    return entries_.size() - 1;
}

void Reader::keyLeaf(Entry& entry,
                     bool& seen,
                     std::string_view leaf,
                     const gnmi::TypedValue& value) {
    seen = true;
    if (keyText(value) != entry.key) {
        problem(Rule::keyLeaf,
                fmt::format("{} is {}, the key is {}", leaf, valueText(value), entry.key));
    }
}

void Reader::reference(std::string_view leaf, const gnmi::TypedValue& value) {
    const bool ofGroup = place_.list == List::group;
    const bool group = ofGroup ? leaf == "state/backup-next-hop-group" ||
                                     leaf == "conditional/condition/state/next-hop-group"
                               : leaf == "state/next-hop-group";
    if (group) { groupKeys_.push_back(keyText(value)); }
    if (leaf == "state/next-hop-group-network-instance") { groupInstance_ = value.string_val(); }
}

void Reader::update(const gnmi::Update& update) {
    Elems elems;
    append(elems, update.path());
    if (elems.empty()) { return problem(Rule::leafSet, "an update without a path"); }
    std::string path;
    std::string shape;  // without keys
    std::size_t at = 0;
    for (const gnmi::PathElem* const elem : elems) {
        const std::string_view slash = path.empty() ? "" : "/";
        shape.append(slash).append(elem->name());
        path.append(slash).append(pathText({elem}, 0).substr(1));
        if (!elem->key().empty()) { at = entryOf(path, *elem); }
    }
    const auto type = leafType(place_.list, shape);
    if (!type) {
        return problem(Rule::leafSet,
                       fmt::format("{} is no leaf of {}", path, listName(place_.list)));
    }
    if (!isOfType(update.val(), *type)) {
        problem(Rule::leafType, fmt::format("{} has the value {}", path, valueText(update.val())));
    }
    Entry& entry = entries_[at];
    const std::string_view below =
        std::string_view{path}.substr(entry.path.empty() ? 0 : entry.path.size() + 1);
    if (below == entry.keyName) { keyLeaf(entry, entry.keyLeaf, path, update.val()); }
    if (below == "state/" + entry.keyName) {
        keyLeaf(entry, entry.stateKeyLeaf, path, update.val());
    }
    if (below == "state/weight") { entry.weight = true; }
    reference(shape, update.val());
    if (path == "state/origin-protocol") { to_.protocol = update.val().string_val(); }
    lines_.push_back(path + " = " + valueText(update.val()));
}

void Reader::complete(const Entry& entry) {
    const auto missing = [&](bool there, std::string_view leaf) {
        if (there) { return; }
        const std::string_view slash = entry.path.empty() ? "" : "/";
        problem(entry.path.empty() ? Rule::keyLeaf : Rule::leafSet,
                fmt::format("{}{}{} is missing", entry.path, slash, leaf));
    };
    missing(entry.keyLeaf, entry.keyName);
    missing(entry.stateKeyLeaf, "state/" + entry.keyName);
    const bool member = place_.list == List::group && entry.path.starts_with("next-hops/");
    if (!member) { return; }
    missing(entry.weight, "state/weight");
    to_.nextHops.push_back(entryPath(List::nextHop, place_.instance, entry.key));
}

void Reader::finish() {
    for (const Entry& entry : entries_) { complete(entry); }
    const bool forwards = place_.list != List::nextHop && place_.list != List::group;
    if (forwards && groupKeys_.empty()) {
        problem(Rule::leafSet, "state/next-hop-group is missing");
    }
    const std::string_view instance =
        groupInstance_.empty() ? place_.instance : std::string_view{groupInstance_};
    for (const std::string& key : groupKeys_) {
        to_.groups.push_back(entryPath(List::group, instance, key));
    }
    std::sort(lines_.begin(), lines_.end());
    std::string_view last;
    for (const std::string& line : lines_) {
        const std::string_view leaf = std::string_view{line}.substr(0, line.find(" = "));
        if (leaf == last) { problem(Rule::leafTwice, std::string{leaf} + " is there twice"); }
        last = leaf;
        to_.text.append(line).append("\n");
    }
}

}  // namespace

EntryContent readContent(const Place& place, const gnmi::Notification& notification) {
    EntryContent content;
    Reader reader{place, content};
    for (const gnmi::Update& update : notification.update()) { reader.update(update); }
    reader.finish();
    return content;
}

}  // namespace Checker
