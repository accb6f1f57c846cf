#pragma once

#include <nghttp2/nghttp2.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/Gale/Wire/Metadata.h"
#include "platform/Gale/Wire/Status.h"

namespace Gale::Wire {

/// The fields of one HEADERS frame of a reply.
class HeaderFields {
public:
    void add(std::string_view name, std::string_view value);
    /// As they travel: "-bin" values in base64.
    void add(const Metadata& metadata);
    void add(const Status& status);

    /// For nghttp2; valid while this is not changed.
    std::vector<nghttp2_nv> view() const;

private:
    Metadata fields_;
};

}  // namespace Gale::Wire
