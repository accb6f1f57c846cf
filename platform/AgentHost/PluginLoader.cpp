#include "platform/AgentHost/PluginLoader.h"

#include <dlfcn.h>

#include <system_error>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PluginLoader");

namespace AgentHost {
namespace {

std::string lastLoadError() {
    const char* text = ::dlerror();
    return text == nullptr ? "unknown error" : text;
}

/// With a slash in the name the loader takes the file itself and searches no library path.
std::filesystem::path withDirectory(const std::filesystem::path& plugin) {
    return plugin.has_parent_path() ? plugin : "." / plugin;
}

}  // namespace

AgentFactory PluginLoader::load(const std::filesystem::path& plugin, std::string& error) {
    const std::string name = "plug-in " + plugin.string();
    TRACE9("loading {}", plugin.string());
    std::error_code problem;
    if (!std::filesystem::is_regular_file(plugin, problem)) {
        error = name + ": no such file" + (problem ? " (" + problem.message() + ")" : "");
        return nullptr;
    }
    void* const library =
        ::dlopen(withDirectory(plugin).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        error = name + ": cannot be loaded: " + lastLoadError();
        return nullptr;
    }
    const auto* const revision = static_cast<const char*>(::dlsym(library, kRevisionSymbol));
    if (revision == nullptr) {
        error = name + ": is no agent plug-in: it has no symbol '" + kRevisionSymbol + "'";
        return nullptr;
    }
    // Another revision may lay its objects out differently: nothing of it is called.
    if (std::string_view{revision} != PEL_REVISION) {
        error = name + ": built against revision " + revision + ", this host is revision " +
                PEL_REVISION;
        return nullptr;
    }
    void* const factory = ::dlsym(library, kFactorySymbol);
    if (factory == nullptr) {
        error = name + ": has no symbol '" + kFactorySymbol + "'";
        return nullptr;
    }
    return reinterpret_cast<AgentFactory>(factory);
}

}  // namespace AgentHost
