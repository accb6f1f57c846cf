#pragma once

#include "platform/Gale/JsonConverter.h"
#include "platform/Gale/SharedBytes.h"

#include "absl/container/flat_hash_map.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Gale {

/// The Notifications of entries in one JSON encoding, made when the first subscriber needs them and
/// shared by all. Exists only while somebody subscribes in that encoding: see CallContext. I/O
/// thread.
///
/// Keeps what was used last, in two halves: when the younger is full, the older goes. Subscribers
/// that keep up find every change made once, however many entries there are.
class JsonForms final {
public:
    struct Statistics {
        std::uint64_t made = 0;
        std::size_t bytes = 0;  ///< kept, with the PROTO bytes that they hold on to
    };

    /// `mostBytes`: bound of Statistics::bytes, exceeded by at most one entry.
    JsonForms(ValueEncoding encoding, std::size_t mostBytes)
        : converter_(encoding), mostBytes_(mostBytes) {}

    /// The JSON form of an entry's packed Notification.
    SharedBytes of(const Schema::Kind& kind, const SharedBytes& notification);
    /// For what is not shared: no form is kept.
    JsonConverter& converter() { return converter_; }

    Statistics statistics() const { return {made_, young_.bytes + old_.bytes}; }

private:
    struct Form {
        SharedBytes from;  // held, so that its address stays its own
        SharedBytes json;
        std::size_t bytes() const { return from.view().size() + json.view().size(); }
    };
    struct Half {
        absl::flat_hash_map<const char*, Form> forms;  // by the address of the PROTO bytes
        std::size_t bytes = 0;
    };
    const SharedBytes& keep(Form form);

    JsonConverter converter_;
    const std::size_t mostBytes_;
    Half young_;
    Half old_;
    std::string unpacked_;
    std::string scratch_;
    std::uint64_t made_ = 0;
};

}  // namespace Gale
