#pragma once

#include <string>
#include <vector>

namespace Gale::Wire {

/// One metadata pair. Names are lower case; the value of a name that ends in "-bin" is raw bytes
/// here and base64 only on the wire.
struct MetadataEntry {
    std::string name;
    std::string value;

    bool operator==(const MetadataEntry&) const = default;
};

/// In the order of the wire; a name may occur more than once.
using Metadata = std::vector<MetadataEntry>;

}  // namespace Gale::Wire
