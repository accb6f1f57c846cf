#pragma once

#include "platform/Gale/PathPattern.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/ValueEncoding.h"
#include "platform/Gale/Wire/Status.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include <google/protobuf/repeated_field.h>

namespace gnmi {
class ModelData;
class Path;
}  // namespace gnmi
namespace gnmi_ext {
class Extension;
}

namespace Gale {

class Channel;
class View;

// What Get and Subscribe check alike. A status says what is wrong and names it.
namespace RequestCheck {

template <class T>
using Repeated = google::protobuf::RepeatedPtrField<T>;

Wire::Status invalid(std::string text);
Wire::Status unimplemented(std::string text);

/// Extensions whose neglect would give wrong data are refused, others ignored.
std::optional<Wire::Status> extensions(const Repeated<gnmi_ext::Extension>& all);
/// `number`: of gnmi.Encoding.
std::variant<ValueEncoding, Wire::Status> encoding(int number);
/// That there are some paths, and of them and of models not too many; `what` the paths are called.
std::optional<Wire::Status> count(int paths, const char* what, int models, const Limits& limits);

/// A path that is served, and by whom.
struct Served {
    Channel* channel = nullptr;
    PathPattern pattern;
};
std::variant<Served, Wire::Status> path(const gnmi::Path& prefix,
                                        const gnmi::Path& path,
                                        std::span<const std::unique_ptr<Channel>> channels,
                                        const Limits& limits);

/// Data of other modules than those named must not be shown. All of a view's data belongs to all of
/// its modules here: naming one of them shows everything.
bool modelsWanted(const Repeated<gnmi::ModelData>& wanted, const View& view);

}  // namespace RequestCheck
}  // namespace Gale
