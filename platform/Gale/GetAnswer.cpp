#include "platform/Gale/GetAnswer.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/JsonValue.h"
#include "platform/Gale/WireFields.h"
#include "platform/Gale/WirePath.h"

namespace Gale {

using namespace WireFields;
using Wire::Code;

namespace {

// What one step does at most, roughly.
constexpr int kRounds = 4;
constexpr std::size_t kEntries = 256;
constexpr std::size_t kBytes = 64U << 10U;
/// What a collected entry costs; its bytes are the journal's.
constexpr std::size_t kSlot = sizeof(Reference) + sizeof(Content);

}  // namespace

GetAnswer::GetAnswer(GetPlan plan,
                     const Limits& limits,
                     const Kiln::Clock& clock,
                     std::function<void()> onFilled)
    : plan_(std::move(plan)), limits_(limits), clock_(clock), onFilled_(std::move(onFilled)) {}

GetAnswer::State GetAnswer::step() {
    if (!status_.ok()) { return State::failed; }
    if (part_ == plan_.parts.size()) { return State::done; }
    const State state = collected_ ? build() : collect();
    if (!status_.ok()) {
        // Frees what was built while the status is on its way.
        entries_.clear();
        nodes_.clear();
        std::string{}.swap(updates_);  // "= {}" would keep the room
        std::string{}.swap(message_);
        return State::failed;
    }
    return part_ == plan_.parts.size() ? State::done : state;
}

GetAnswer::State GetAnswer::collect() {
    const GetPlan::Part& part = plan_.parts[part_];
    if (part.hidden) {
        stamp_ = clock_.wallNanoseconds();
        found_ = true;
        return finishPart();
    }
    if (!reader_) {
        reader_.emplace(
            *part.channel, EntryFilter::forCursor(part.filter), Cursor::Mode::once, onFilled_);
    }
    for (int round = 0; round < kRounds; ++round) {
        const Cursor::Result result = reader_->next(batch_);
        for (std::size_t i = 0; i < result.count; ++i) {
            const CursorMessage& message = batch_[i];
            const Reference entry{message.lane, message.key};
            if (message.kind == CursorMessage::Kind::update) {
                entries_[entry] = message.content;
            } else if (message.kind == CursorMessage::Kind::remove) {
                entries_.erase(entry);
            }
        }
        if (tooLarge()) { return State::failed; }
        if (result.state == Cursor::State::idle) { return State::waiting; }
        if (result.state == Cursor::State::ended) {
            reader_.reset();
            collected_ = true;
            stamp_ = clock_.wallNanoseconds();
            break;
        }
    }
    return State::more;
}

GetAnswer::State GetAnswer::build() {
    const std::size_t before = updates_.size() + nodeBytes_;
    for (std::size_t n = 0; n < kEntries && !entries_.empty(); ++n) {
        const auto first = entries_.begin();
        take(first->first, first->second);
        entries_.erase(first);
        if (updates_.size() + nodeBytes_ - before > kBytes) { break; }
    }
    if (tooLarge()) { return State::failed; }
    return entries_.empty() ? finishPart() : State::more;
}

GetAnswer::State GetAnswer::finishPart() {
    const GetPlan::Part& part = plan_.parts[part_];
    if (!found_) {
        status_ = {Code::NotFound, "there is nothing at path " + part.pattern().text()};
        return State::failed;
    }
    for (const Node& node : nodes_) { writeNode(node); }
    std::string head;
    head.push_back(varintTag(Fields::Notification::timestamp));
    appendVarint(head, static_cast<std::uint64_t>(stamp_));
    std::string prefix;
    appendField(prefix, Fields::Path::origin, part.channel->origin);
    if (!plan_.target.empty()) { appendField(prefix, Fields::Path::target, plan_.target); }
    appendField(head, Fields::Notification::prefix, prefix);
    appendHead(message_, Fields::GetResponse::notification, head.size() + updates_.size());
    message_ += head;
    message_ += updates_;

    updates_.clear();
    nodes_.clear();
    nodeAt_.clear();
    nodeBytes_ = 0;
    collected_ = false;
    found_ = false;
    ++part_;
    return tooLarge() ? State::failed : State::more;
}

std::size_t GetAnswer::bytes() const {
    return message_.size() + updates_.size() + nodeBytes_ + entries_.size() * kSlot;
}

bool GetAnswer::tooLarge() {
    if (bytes() <= limits_.getBytes) { return false; }
    status_ = {Code::ResourceExhausted,
               "the answer would take more than " + std::to_string(limits_.getBytes) +
                   " bytes; use Subscribe with mode ONCE"};
    return true;
}

// ---- one entry ----

void GetAnswer::take(const Reference& entry, const Content& content) {
    const GetPlan::Part& part = plan_.parts[part_];
    const Channel& channel = *part.channel;
    const PathPattern& pattern = part.pattern();
    const Schema::Kind& kind = channel.schema.kinds()[channel.view->kindOf(entry.lane, entry.key)];
    PackedNotification::unpack(ChannelReader::notification(channel, entry, content, made_),
                               unpacked_);
    const std::string_view notification = unpacked_;

    elems_.clear();
    atEntry_ = pattern.begin();
    nodeDepth_.reset();
    if (pattern.covered(atEntry_)) { nodeDepth_ = 0; }
    const std::string_view prefix = fieldOf(notification, Fields::Notification::prefix);
    protozero::pbf_reader elems{prefix.data(), prefix.size()};
    while (elems.next(Fields::Path::elem)) {
        elems_.push_back(viewOf(elems.get_view()));
        if (nodeDepth_) { continue; }
        // The filter has compared the keys, and knows more than one way to write a prefix.
        atEntry_ = pattern.step(atEntry_, WirePath::name(elems_.back()));
        if (pattern.covered(atEntry_)) { nodeDepth_ = elems_.size(); }
    }
    entryDepth_ = elems_.size();
    added_ = false;
    protozero::pbf_reader reader{notification.data(), notification.size()};
    while (reader.next()) {
        if (static_cast<int>(reader.tag()) == Fields::Notification::update) {
            takeLeaf(kind, viewOf(reader.get_view()));
        } else {
            reader.skip();
        }
    }
    if (plan_.encoding != ValueEncoding::proto) { closeEntry(kind); }
}

void GetAnswer::takeLeaf(const Schema::Kind& kind, std::string_view update) {
    const PathPattern& pattern = plan_.parts[part_].pattern();
    const std::string_view path = fieldOf(update, Fields::Update::path);
    const std::optional<std::size_t> depthAtEntry = nodeDepth_;
    PathPattern::State state = atEntry_;
    elems_.resize(entryDepth_);
    protozero::pbf_reader elems{path.data(), path.size()};
    while (elems.next(Fields::Path::elem)) {
        elems_.push_back(viewOf(elems.get_view()));
        if (nodeDepth_) { continue; }
        state = WirePath::step(pattern, state, elems_.back());
        if (pattern.covered(state)) { nodeDepth_ = elems_.size(); }
    }
    if (nodeDepth_) {
        found_ = true;
        names_.clear();
        WirePath::appendNames(path, names_);
        const Schema::LeafNode& leaf = kind.leaf(names_);
        const std::string_view value = fieldOf(update, Fields::Update::val);
        if (!(plan_.config && leaf.config) && !(plan_.state && leaf.state)) {
            // Of the other type.
        } else if (plan_.encoding == ValueEncoding::proto) {
            const std::string absolute = pathOf(elems_.size());
            appendHead(updates_,
                       Fields::Notification::update,
                       fieldSize(absolute.size()) + fieldSize(value.size()));
            appendField(updates_, Fields::Update::path, absolute);
            appendField(updates_, Fields::Update::val, value);
        } else {
            value_.clear();
            JsonValue::append(value, leaf, plan_.encoding, value_);
            addToTree(kind, leaf);
        }
    }
    nodeDepth_ = depthAtEntry;
}

/// A leaf that the view does not name has no place in a tree.
void GetAnswer::addToTree(const Schema::Kind& kind, const Schema::LeafNode& leaf) {
    if (kind.path.size() != entryDepth_ || leaf.path.size() != elems_.size() - entryDepth_) {
        return;
    }
    steps_.clear();
    for (std::size_t i = *nodeDepth_; i < elems_.size(); ++i) {
        steps_.push_back(
            {i < entryDepth_ ? &kind.path[i] : &leaf.path[i - entryDepth_], elems_[i]});
    }
    const bool own = *nodeDepth_ >= entryDepth_ && !kind.outer;
    treeAt(*nodeDepth_, own).add(steps_, value_);
    if (!own) { nodeBytes_ += value_.size() + elems_.back().size(); }
    added_ = true;
}

/// `own`: only the entry in work adds to it.
JsonTree& GetAnswer::treeAt(std::size_t depth, bool own) {
    auto& nodes = own ? own_ : nodes_;
    std::string path = pathOf(depth);
    const auto [at, isNew] = (own ? ownAt_ : nodeAt_).try_emplace(path, nodes.size());
    if (isNew) {
        if (!own) { nodeBytes_ += path.size(); }
        nodes.push_back({std::move(path), JsonTree{plan_.encoding}});
    }
    return nodes[at->second].tree;
}

/// Writes down what no other entry adds to.
void GetAnswer::closeEntry(const Schema::Kind& kind) {
    for (const Node& node : own_) { writeNode(node); }
    own_.clear();
    ownAt_.clear();
    if (!added_ || !nodeDepth_ || *nodeDepth_ >= entryDepth_ || kind.outer) { return; }
    steps_.clear();
    for (std::size_t i = *nodeDepth_; i < entryDepth_; ++i) {
        steps_.push_back({&kind.path[i], elems_[i]});
    }
    treeAt(*nodeDepth_, false).close(steps_);
}

void GetAnswer::writeNode(const Node& node) {
    const int member = plan_.encoding == ValueEncoding::jsonIetf ? Fields::TypedValue::jsonIetf
                                                                 : Fields::TypedValue::json;
    std::string text;
    node.tree.print(text);
    const std::size_t typedValue = fieldSize(text.size());
    appendHead(updates_,
               Fields::Notification::update,
               fieldSize(node.path.size()) + fieldSize(typedValue));
    appendField(updates_, Fields::Update::path, node.path);
    appendHead(updates_, Fields::Update::val, typedValue);
    appendField(updates_, member, text);
}

/// As bytes of a Path message.
std::string GetAnswer::pathOf(std::size_t depth) const {
    std::string path;
    for (std::size_t i = 0; i < depth; ++i) { appendField(path, Fields::Path::elem, elems_[i]); }
    return path;
}

}  // namespace Gale
