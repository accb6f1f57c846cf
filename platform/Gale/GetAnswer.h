#pragma once

#include "platform/Gale/ChannelReader.h"
#include "platform/Gale/GetPlan.h"
#include "platform/Gale/JsonTree.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

#include "absl/container/btree_map.h"
#include "absl/container/flat_hash_map.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Gale {

/// The answer to a Get while it is built, in slices: for each requested path the entries are
/// collected from the journal as they are at one moment, then written down in one Notification.
/// I/O thread.
class GetAnswer final {
public:
    enum class State : std::uint8_t {
        more,     ///< call step() again, after others have had their turn
        waiting,  ///< call step() again when the journal has advanced or the entries have come
        done,     ///< takeMessage() has the answer
        failed,   ///< status() says why
    };

    /// The channels of the plan, the limits and the clock outlive the answer. `onFilled`: entries
    /// have come that step() waits for.
    GetAnswer(GetPlan plan,
              const Limits& limits,
              const Kiln::Clock& clock,
              std::function<void()> onFilled);

    /// Does a little: a few hundred entries, or what makes 64 KiB.
    State step();

    /// The bytes of a gnmi.GetResponse.
    std::string takeMessage() { return std::move(message_); }
    const Wire::Status& status() const { return status_; }
    /// That are held, the entries collected so far included.
    std::size_t bytes() const;

private:
    /// A node that the path means, with what it holds so far; JSON only.
    struct Node {
        std::string path;  // bytes of a Path message
        JsonTree tree;
    };

    State collect();
    State build();
    State finishPart();
    bool tooLarge();

    void take(const Reference& entry, const Content& content);
    void takeLeaf(const Schema::Kind& kind, std::string_view update);
    void addToTree(const Schema::Kind& kind, const Schema::LeafNode& leaf);
    JsonTree& treeAt(std::size_t depth, bool own);
    void closeEntry(const Schema::Kind& kind);
    void writeNode(const Node& node);
    std::string pathOf(std::size_t depth) const;

    const GetPlan plan_;
    const Limits& limits_;
    const Kiln::Clock& clock_;
    const std::function<void()> onFilled_;
    Wire::Status status_;
    std::string message_;

    // The requested path in work.
    std::size_t part_ = 0;
    std::optional<ChannelReader> reader_;
    std::array<CursorMessage, 64> batch_;
    absl::btree_map<Reference, Content> entries_;  // collected, not yet written down
    bool collected_ = false;
    std::int64_t stamp_ = 0;
    bool found_ = false;  // there is something, of whatever type
    std::string updates_;
    std::deque<Node> nodes_;  // to which several entries add
    absl::flat_hash_map<std::string, std::size_t> nodeAt_;
    std::size_t nodeBytes_ = 0;

    // The entry in work.
    std::vector<std::string_view> elems_;  // of its path and of a leaf's below it
    std::size_t entryDepth_ = 0;           // so many are the entry's
    PathPattern::State atEntry_ = 0;
    std::optional<std::size_t> nodeDepth_;  // so many elements lead to the node, if the path ends
                                            // at the entry or above
    std::deque<Node> own_;                  // nodes inside it
    absl::flat_hash_map<std::string, std::size_t> ownAt_;
    bool added_ = false;
    std::vector<JsonTree::Step> steps_;
    PackedNotification made_;
    std::string unpacked_;
    std::string names_;
    std::string value_;
};

}  // namespace Gale
