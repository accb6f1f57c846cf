#pragma once

#include <absl/functional/function_ref.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/Store/Writer.h"

namespace Hubdb {

/// The producer's side: entities by path. Writes go into the writer's transaction.
class Publisher {
public:
    explicit Publisher(Store::Writer& writer);
    bool valid() const { return table_ != 0; }
    void entityIs(std::string_view path, std::string_view type, std::string_view record);
    void entityDel(std::string_view path);
    /// Visits the paths of all entities, in order. The visitor must not write.
    void forEachPath(absl::FunctionRef<void(std::string_view path)> visit);
    /// The record of this path, if it is there and of this type; valid until the next write.
    std::optional<std::string_view> entity(std::string_view path, std::string_view type);

private:
    Store::Writer* writer_;
    Store::TableId table_;
};

}  // namespace Hubdb
