#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Route/RouteStatus.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/PathTemplate.h"

namespace Pel::OcApi {

/// Prefix entries of the OpenConfig view. In the journal a prefix is its key and one number, group
/// and origin protocol together; the Notification is made when it is sent. Any thread.
class OpenConfigRoutes final {
public:
    /// `instances` outlives this object.
    explicit OpenConfigRoutes(const OpenConfigInstances& instances);

    /// The number that stands for the route's content; null when its FEC id leaves no room in it
    /// (bits 63 to 60 in use), the entry is then held as bytes.
    static std::optional<std::uint64_t> pack(const Mesa::FibRoute& route);
    static Mesa::FibRoute unpack(std::uint64_t value);
    static Gale::Reference referenceOf(const Mesa::FibRoute& route);

    /// Appends prefix, leaves and atomic mark.
    void encode(const Gale::EntryKey& key,
                const Mesa::FibRoute& route,
                Gale::PackedNotification& notification) const;
    void encodeDelete(const Gale::EntryKey& key, Gale::PackedNotification& notification) const;

private:
    struct Family {
        explicit Family(std::string_view entryPath);
        Gale::PathTemplate entry;     // with the origin
        Gale::PathTemplate deletion;  // without
    };
    const Family& family(const Gale::EntryKey& key) const;

    const OpenConfigInstances& instances_;
    const Family ipv4_;
    const Family ipv6_;
    const Gale::PathTemplate prefix_;
    const Gale::PathTemplate statePrefix_;
    const Gale::PathTemplate group_;
    const Gale::PathTemplate groupInstance_;
    const Gale::PathTemplate originProtocol_;
};

}  // namespace Pel::OcApi
