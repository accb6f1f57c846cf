#pragma once

#include <filesystem>
#include <string>

#include "platform/AgentHost/AgentPlugin.h"

namespace AgentHost {

/// Loads a plug-in for the rest of the process: its code is never unloaded, because what it
/// registered (trace sites, record types) lives as long as the process.
class PluginLoader {
public:
    /// The plug-in's factory. Null, with a text in `error` that names the plug-in and what is
    /// wrong: no such file, not loadable, a symbol missing, another revision (both named).
    static AgentFactory load(const std::filesystem::path& plugin, std::string& error);
};

}  // namespace AgentHost
