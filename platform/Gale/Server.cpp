#include "platform/Gale/Server.h"

#include "platform/Blink/Trace.h"
#include "platform/Mesa/EntityManager.h"

#include <algorithm>
#include <utility>

BLINK_TRACE_HANDLE("GaleServer");

namespace Gale {

namespace {
HostConfig& storedHostConfig() {
    static HostConfig config;
    return config;
}
}  // namespace

void hostConfigIs(HostConfig config) {
    storedHostConfig() = std::move(config);
}

const HostConfig& hostConfig() {
    return storedHostConfig();
}

TableProvider::TableProvider(std::string name,
                             Vel::Ref<Mesa::EntityManager> tables,
                             absl::node_hash_set<std::string> prefixes)
    : name_(std::move(name)), tables_(std::move(tables)), prefixes_(std::move(prefixes)) {}

TableProvider::~TableProvider() = default;

std::vector<std::string> TableProvider::tablePrefixes() const {
    const std::string begin = "/" + name_ + "/";
    std::vector<std::string> paths;
    for (const std::string& prefix : prefixes_) {
        if (prefix.starts_with(begin) && prefix.size() > begin.size()) {
            paths.push_back(prefix.substr(begin.size()));
        } else {
            TRACE5("provider {} does not serve prefix {}", name_, prefix);
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace Gale
