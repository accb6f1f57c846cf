#include "platform/Gale/Wire/HeaderFields.h"

#include "platform/Gale/Wire/Codec.h"

namespace Gale::Wire {
namespace {

std::uint8_t* bytesOf(const std::string& text) {
    // nghttp2 declares input as mutable and copies it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): C interface
    return reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
}

}  // namespace

void HeaderFields::add(std::string_view name, std::string_view value) {
    fields_.push_back({std::string{name}, std::string{value}});
}

void HeaderFields::add(const Metadata& metadata) {
    for (const MetadataEntry& entry : metadata) {
        if (entry.name.ends_with("-bin")) {
            add(entry.name, base64Encode(entry.value));
        } else {
            fields_.push_back(entry);
        }
    }
}

void HeaderFields::add(const Status& status) {
    add("grpc-status", std::to_string(static_cast<unsigned>(status.code)));
    if (!status.message.empty()) { add("grpc-message", percentEncode(status.message)); }
}

std::vector<nghttp2_nv> HeaderFields::view() const {
    std::vector<nghttp2_nv> view;
    view.reserve(fields_.size());
    for (const MetadataEntry& field : fields_) {
        view.push_back({bytesOf(field.name),
                        bytesOf(field.value),
                        field.name.size(),
                        field.value.size(),
                        NGHTTP2_NV_FLAG_NONE});
    }
    return view;
}

}  // namespace Gale::Wire
