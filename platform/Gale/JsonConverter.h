#pragma once

#include "platform/Gale/Schema.h"
#include "platform/Gale/ValueEncoding.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Gale {

/// Makes the Notification of an entry in a JSON encoding from the one in PROTO: every value
/// becomes JSON, all else stays. Reused, it stops allocating. One thread.
class JsonConverter final {
public:
    /// `encoding` is json or jsonIetf.
    explicit JsonConverter(ValueEncoding encoding) : encoding_(encoding) {}

    /// Appends to `to`. `kind`: what the entry is of, see View::kindOf.
    void convert(const Schema::Kind& kind, std::string_view notification, std::string& to);

private:
    const ValueEncoding encoding_;
    std::string names_;
    std::string value_;
};

}  // namespace Gale
