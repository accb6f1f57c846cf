#include "platform/Gale/Wire/Router.h"

#include <utility>

namespace Gale::Wire {

void Router::add(std::string path, MethodKind kind, HandlerFactory factory) {
    methods_.insert_or_assign(std::move(path), Method{kind, std::move(factory)});
}

const Router::Method* Router::find(std::string_view path) const {
    const auto it = methods_.find(path);
    return it == methods_.end() ? nullptr : &it->second;
}

}  // namespace Gale::Wire
