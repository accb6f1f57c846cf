#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/ListSource.h"
#include "platform/Gale/PackedNotification.h"
#include "platform/Vel/Entity.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Mesa {
class EntityManager;
}

namespace Gale {

/// A module of the schema, for Capabilities.
struct ModelData {
    std::string name;
    std::string organization;
    std::string version;
};

/// A leaf or leaf-list of an entry.
struct Leaf {
    /// What JSON_IETF (RFC 7951) makes of the value that its form in PROTO does not tell.
    enum class Type : std::uint8_t {
        plain,     ///< nothing: text, flag, number of up to 32 bits, or a union of these
        number64,  ///< number of 64 bits: in quotes
        identity,  ///< text with the identity's module in front
    };
    /// Relative to the entry: "state/index", "next-hops/next-hop[index]/state/weight".
    std::string path;
    Type type = Type::plain;
    std::string identityModule = {};  ///< of Type::identity; empty: the leaf's own, not shown
};

/// One list of entries as it stands in the schema. Each entry of it is one Notification.
///
/// In the paths here an element may have its YANG module in front ("module:name"): the first one,
/// and each whose module is not that of the element before it. gNMI paths are without modules.
struct EntryKind {
    Lane lane = Lane::nextHops;
    /// "network-instances/network-instance[name]/afts/next-hops/next-hop[index]"; key names of one
    /// element in alphabetical order, each in brackets of its own.
    std::string path;
    /// All that an entry can hold.
    std::vector<Leaf> leaves;
};

/// The key values by which a subscription names entries of one kind, outermost element first;
/// null where it leaves the value open. As many as EntryKind::path has brackets.
using KeyValues = std::vector<const std::string*>;
/// Whether an entry of the kind is meant. Any thread, quick.
using KeyPredicate = std::function<bool(const EntryKey&)>;

/// What a view is made from. All of it outlives the view.
struct ViewInputs {
    Vel::Ref<Vel::Dir> root;               ///< of the streamed tree ("AftExport"); not null
    Vel::Ref<Mesa::EntityManager> tables;  ///< shared-memory tables, or null: none are shown
    /// What the agent has mounted at a cell-specific path of the state database, or null; empty: there
    /// is no database.
    std::function<Vel::Ref<Vel::Entity>(std::string_view path)> mounted;
    std::vector<std::string> tablePrefixes;  ///< paths under which tables are shown, no "/" around
    std::string defaultInstance;             ///< what the default VRF is called in the view
};

/// One way to show the state: an origin, its schema, and the encoders of its entries.
///
/// Made and destroyed on the scheduler's thread; outlives every subscription. A function says when
/// other threads may call it; those must not change the object.
class View {
public:
    /// Where a view puts its sources, at once or as the collections appear.
    using SourceSink = std::function<void(std::unique_ptr<ListSource>)>;

    View() = default;
    View(const View&) = delete;
    View& operator=(const View&) = delete;
    virtual ~View() = default;

    /// Constant. Any thread.
    virtual const std::vector<ModelData>& models() const = 0;
    /// The lists that are served. Constant. Any thread.
    virtual const std::vector<EntryKind>& kinds() const = 0;
    /// Further leaves of the schema, as absolute paths: valid to ask for, never there. Constant.
    virtual const std::vector<std::string>& emptyLeaves() const = 0;

    /// Which of kinds() the entry is of. Any thread, quick.
    virtual std::size_t kindOf(Lane lane, const EntryKey& key) const = 0;
    /// Which entries of a kind bear these key values; at least one is not null. A value that no
    /// entry can have gives a predicate that is never true. Any thread.
    virtual KeyPredicate keyPredicate(std::size_t kind, const KeyValues& values) const = 0;
    /// The entry that a value names (its group). Any thread, quick.
    virtual Reference referenceOf(std::uint64_t value) const = 0;
    /// Appends to a Notification that has its stamp what EncodedEntry::value stands for. Any
    /// thread.
    virtual void encodeValue(Lane lane,
                             const EntryKey& key,
                             std::uint64_t value,
                             PackedNotification& notification) const = 0;

    /// Whether there are entries only while somebody reads them. Constant.
    virtual bool lazy() const { return false; }
    /// Hands over the sources; once, or again after detach(). Sources that are there already mark
    /// all they hold when they are taken. Scheduler's thread.
    virtual void attach(SourceSink sink) = 0;
    /// The sources are about to go, and so does the sink. Scheduler's thread.
    virtual void detach() {}
};

using ViewFactory = std::function<std::unique_ptr<View>(const ViewInputs&)>;

/// Registers the view of an origin; before the server is made. Paths without an origin belong to
/// "openconfig".
void viewIs(const std::string& origin, ViewFactory factory);
/// The registered views by origin.
const std::map<std::string, ViewFactory>& views();

}  // namespace Gale
