#include "platform/Gale/View.h"

namespace Gale {

namespace {
std::map<std::string, ViewFactory>& registry() {
    static std::map<std::string, ViewFactory> factories;
    return factories;
}
}  // namespace

void viewIs(const std::string& origin, ViewFactory factory) {
    registry()[origin] = std::move(factory);
}

const std::map<std::string, ViewFactory>& views() {
    return registry();
}

}  // namespace Gale
